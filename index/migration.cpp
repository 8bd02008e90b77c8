#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/mail_root.h"
#include "index/read_list.h"
#include "platform/host/trace.h"
#include "stg_index.h"

// The migration: the one-time conversion of escaped names in a user's mail folder.

namespace {

constexpr const char* kMarker = "k1mailboxcompliant";
constexpr const char* kReadList = "read.txt";

void report_not_begun(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  VU_ERROR(
      "STGIndex: migration: not begun, for its index or its read list cannot be read for certain: ",
      folder);
}

/// Renames the entries with escaped names, and decodes their lines of the read list.
/// @param rename renames an entry with the timestamp 0 and returns whether it succeeded.
/// @return whether every rename succeeded.
template <class Rename>
bool convert(const IndexState& index, ReadList& read_list, Rename rename) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  bool is_complete = true;
  // Entries that appear during the loop have generated names and are skipped; others may disappear.
  std::vector<std::string> keys;
  index.visit([&](std::string_view key, std::string_view) { keys.emplace_back(key); });
  for (const std::string& key : keys) {
    const std::optional<std::string_view> stored = index.find(key);
    const std::string name(index_format::logical_of(key));
    if (!stored || name != index_format::file_name_of(key, *stored) ||
        !index_format::is_escaped_form(name))
      continue;
    const std::string unescaped = index_format::unescape(name);
    if (unescaped == name) continue;
    if (unescaped.find_first_of("/\n") != std::string::npos) {
      VU_WARNING("STGIndex: migration: left as it is, no index line can hold its unescaped name: ",
                 index.folder(), "\\", name);
      continue;
    }
    if (rename(name, unescaped)) {
      read_list.unescape_line_of(name);
    } else {
      is_complete = false;
    }
  }
  return is_complete;
}

}  // namespace

void STGIndex::migrateInboxRead(const std::string& user) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (user.empty()) {
    VU_WARNING(" Migration on inbox read need an non empty user ");  // sic
    return;
  }
  const std::string folder = path_text::join(initialised_mail_root(), user);
  if (!vu_file::is_dir(folder)) {
    vu_file::createDir(folder);
    VU_WARNING("User ", user, " has an empty inbox read. No need migration);");  // sic
    return;
  }
  bool has_begun = false;
  try {
    std::string marker_file;
    if (exists(folder, kMarker, 0, marker_file)) return;
    updateIndexFile(folder);
    // The instance is destroyed first and saves the index. The list is saved only if it was loaded.
    ReadList read_list(folder, getPhysicalName(folder, kReadList));
    STGIndex index(folder);
    if (index.m_state->has_unknown_lines()) {
      report_not_begun(folder);
      return;
    }
    read_list.load();
    has_begun = true;
    const bool is_complete =
        convert(*index.m_state, read_list, [&](const std::string& from, const std::string& to) {
          return index._rename(from, 0, to, 0);
        });
    if (is_complete) index._create(kMarker, 0);
  } catch (...) {
    if (!has_begun) report_not_begun(folder);
    throw;
  }
}
