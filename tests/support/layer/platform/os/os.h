#pragma once

// The seam as the tests that look inside see it: they, and the library's sources that are built for
// them, find this header before the one of the same name. os::open() is then the layer of faults,
// and os::sys::open() the system.

#define VU_OS_LAYER 1
#include "../../../../../platform/os/os.h"
#include "tests/support/os_faults.h"
