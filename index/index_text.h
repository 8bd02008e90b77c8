#pragma once

#include <optional>
#include <string>

#include "file/handle_core.h"
#include "vu_file.h"

/// Opens index.dat for reading and reads all of it; returns nothing if it does not exist. The
/// handle stays open and keeps the shared lock until the caller closes it.
/// @param index the handle of index.dat in @p folder. A missing folder is traced as an error.
/// @throws vu_file_except if index.dat is not missing and cannot be opened or read.
std::optional<FileText> read_index(vu_file& index, const std::string& folder);
