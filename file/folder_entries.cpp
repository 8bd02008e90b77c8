#include "file/folder_entries.h"

#include "file/path_text.h"

std::vector<os::Entry> folder_entries(const std::string& folder) {
  std::vector<os::Entry> entries;
  // A separator alone would make the empty name the current folder.
  if (folder.empty()) return entries;
  // As in filenames(), a listing that fails is an empty one.
  static_cast<void>(os::list(path_text::with_separator(folder), entries));
  return entries;
}

os::Status find_entry(const std::string& path) {
  if (path_text::is_network(path)) return os::probe_attributes(path);
  // A folder is found as its own entry.
  if (path_text::ends_in_separator(path)) return os::probe_search(path + ".");
  return os::probe_search(path);
}
