#pragma once

#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/system.h"

namespace admin {

/// A key file: lines "name=value", split at the first "=", each ended by a carriage return, a line
/// feed or a tab.
struct KeyFile {
  std::vector<std::pair<std::string, std::string>> lines;
  std::size_t passed_over = 0;  ///< number of lines without "="
};
os::Status read_key_file(const std::string& path, const sys::Locking& locking, KeyFile& file);

enum class KeyEdit { kChanged, kUnchanged };

/// Sets the value of a key in its first line and removes its other lines, or appends a new line.
/// All other bytes stay as they are.
KeyEdit set_key(std::string& text, std::string_view key, std::string_view value);
/// Removes every line of a key.
KeyEdit unset_key(std::string& text, std::string_view key);

/// The path of the master profile in a configuration folder: "profile.txt" if it exists, else
/// "master.txt". Empty if both are missing.
std::string master_profile(const std::string& config_folder);

// ---- repairs, as functions of the text ----------------------------------------------------------

/// A line of a key file by its number from 1; empty lines do not count.
std::string_view key_line(std::string_view text, std::size_t number);
/// Whether neither side of a line in a key file is a name in the folder. No line is dangling if the
/// index has no text: its names may be lost.
bool is_dangling(const FolderView& folder, std::string_view line);
/// The key file without these lines. @param removed the number of lines that were removed.
std::string without_key_lines(std::string_view text, const std::set<std::string>& lines,
                              std::size_t& removed);
/// The key file with the @p lines that it does not have, at its end.
std::string with_key_lines(std::string_view text, const std::vector<std::string>& lines);

}  // namespace admin
