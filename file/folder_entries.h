#pragma once

#include <string>

#include "platform/os/os.h"
#include "vu_i18n.h"

/// Like vu_file::filenames(), with the kind of each entry, but untraced; empty on a failure.
os::Listing folder_entries(const std::string& folder);

/// Like vu_fileutf8::filenames(), with the kind of each entry. It traces what is_dir() traces.
os::Listing utf8_entries(const vu_utf8string& folder);

/// Like vu_file::exists(), but returns the reason and opens no trace scope.
os::Status find_entry(const std::string& path);
