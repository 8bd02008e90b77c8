#pragma once

#include <optional>
#include <string>

#include "file/handle_core.h"
#include "vu_file.h"

/// Opens an index for reading and reads all of it, if there is one. The handle stays open, and with
/// it the shared lock: whoever asks holds it until he has his answer.
/// @param index the handle of index.dat in @p folder. A folder that does not exist is traced.
/// @throws vu_file_except when an index that is there can be neither opened nor read.
std::optional<FileText> read_index(vu_file& index, const std::string& folder);
