#pragma once

#include <string>

#include "platform/os/os.h"
#include "vu_i18n.h"

/// Like vu_file::filenames(), with the kind of each entry, but untraced and with the reason of a
/// failure. Then, and for an empty name, nothing is appended.
os::Status folder_entries(const std::string& folder, os::Listing& entries);

/// Like vu_fileutf8::filenames(), with the kind of each entry. It traces what is_dir() traces.
os::Listing utf8_entries(const vu_utf8string& folder);

/// Like vu_file::exists(), but returns the reason and opens no trace scope.
os::Status find_entry(const std::string& path);

/// Like vu_file::copyFile() that overwrites, but waits until the copy is on the device. @return
/// whether both succeeded.
bool copy_and_flush(const std::string& src, const std::string& dst);

/// Creates an empty file, and waits until it is on the device: an index that names it may be there
/// first. @return false if the name is taken. @throws vu_file_except after another failure, which
/// is traced; then it has called remove_new_file().
bool create_new_file(const std::string& path);

/// Removes a new file again, because no entry names it. Traces an error if the file stays: it is an
/// orphan then.
void remove_new_file(const std::string& path) noexcept;

/// Removes a plain file that its owner can write, and nothing else: the work of vu_file::chmodW()
/// and vu_file::remove() in fewer system calls. An exception is traced like one of the latter.
/// @return false if the path names no such file: then use the two functions. Otherwise check
/// whether the file is gone.
bool remove_plain_file(const std::string& path);
