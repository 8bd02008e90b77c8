#pragma once

#include <string>

#include "platform/os/os.h"

/// Like vu_file::filenames(), with the kind of each entry, but untraced; empty on a failure.
os::Listing folder_entries(const std::string& folder);

/// Like vu_file::exists(), but returns the reason and opens no trace scope.
os::Status find_entry(const std::string& path);
