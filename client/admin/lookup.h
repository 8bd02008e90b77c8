#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/explain.h"

namespace admin {

/// Where the library finds an entry.
struct Lookup {
  bool found = false;
  bool by_plain_name = false;  ///< a file of the entry's own name, which goes before the index
  bool lock_missed = false;
  DocumentFolder folder;
  std::string file;
  std::string path;
  std::string why;  ///< what said no
};

/// Looks an entry up at exactly one timestamp, as the library does before it opens anything.
Lookup look_up(const Tree& tree, const Request& request, const sys::Locking& locking);

/// A key file: lines of name and value, split at the first "=".
struct KeyFile {
  std::vector<std::pair<std::string, std::string>> lines;
  std::size_t passed_over = 0;  ///< lines without "="
};
os::Status read_key_file(const std::string& path, const sys::Locking& locking, KeyFile& file);

/// The master profile's file in a configuration folder: "profile.txt" when it is there, else
/// "master.txt". Empty when neither is.
std::string master_profile(const std::string& config_folder);

}  // namespace admin
