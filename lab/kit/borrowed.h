#pragma once

#include <filesystem>

/// @file
/// Two cases borrow something that outlives a process: a drive letter, and a disk in a file. They
/// give it back themselves; this is for the ones that were ended before they could.
namespace kit {

/// Takes back what leads into a folder, or lies in it as a disk.
void give_back_what_was_borrowed(const std::filesystem::path& folder);

}  // namespace kit
