#pragma once

#include "platform/host/trace.h"

/// Opens the trace scope of an operation of the file layer, at the level that all of them have. The
/// arguments are the pieces of the label, if the operation has one.
#define VU_FILE_SCOPE(...) VU_TRACE_SCOPE("vu_file", vu_host::trace_level::xl, __VA_ARGS__)
