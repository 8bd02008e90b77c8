#include "file/folder_entries.h"

#include "file/path_text.h"

using path_text::Encoding;
using path_text::ends_in_separator;
using path_text::with_separator;

os::Status folder_entries(const std::string& folder, os::Listing& entries) {
  // with_separator() would turn the empty name into the current folder.
  if (folder.empty()) return {};
  return os::list(with_separator(folder, Encoding::kNarrow), entries);
}

os::Status find_entry(const std::string& path) {
  if (path_text::is_network(path)) return os::probe_attributes(path);
  // A folder is found by its own entry, ".".
  if (ends_in_separator(path, Encoding::kNarrow)) return os::probe_search(path + ".");
  return os::probe_search(path);
}
