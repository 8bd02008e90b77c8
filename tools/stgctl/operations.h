#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/stgctl/target.h"

/// @file
/// Changes of single versions, through the library's interface. Each waits for the locks that it
/// needs first, and looks afterwards whether the tree shows what was asked for.
namespace stgctl {

/// Stores a file as a version, which it replaces when it exists, with its parts. The version bears
/// the file's time. Key lines stay.
/// @throws Failure kFailed with the reason; a new version that could not be filled is gone again.
void store_file(Context& context, const Target& target, const std::string& source,
                std::uint64_t size, const std::string& name, std::int32_t timestamp);

/// The folders with the parts of a document: those named like its file and "_", less those that
/// belong to another file of the folder with a longer name.
std::vector<std::string> part_folders(const FoundEntry& entry);

/// Whether the key lines that go with an entry are removed, too.
enum class KeyLines { kRemove, kLeave };
/// Removes a version with its parts. @throws Failure kFailed with the reason.
void remove_version(Context& context, const FoundEntry& entry, KeyLines lines);

/// The key files of the entry's folder in which the library, which looks for the name anywhere in
/// the text, would cut something else than a line of that name.
std::vector<std::string> key_files_at_risk(Context& context, const FoundEntry& entry);

}  // namespace stgctl
