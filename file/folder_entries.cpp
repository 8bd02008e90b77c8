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
