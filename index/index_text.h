#pragma once

#include <optional>
#include <string>

#include "file/handle_core.h"
#include "vu_file.h"

/// Opens index.dat for reading and reads all of it, if it exists. The handle stays open and keeps
/// the shared lock; the caller closes it when it no longer needs the lock.
/// @param index the handle of index.dat in @p folder. A missing folder is traced as an error.
/// @throws vu_file_except if index.dat is not missing and cannot be opened or read.
std::optional<FileText> read_index(vu_file& index, const std::string& folder);
