#pragma once

#include <string>

#include "platform/os/os.h"

/// Lists a folder as vu_file::filenames() does, with the kind of each entry, and traces nothing.
/// Empty when the folder cannot be listed.
os::Listing folder_entries(const std::string& folder);

/// vu_file::exists() with the reason, and without its trace scope.
os::Status find_entry(const std::string& path);
