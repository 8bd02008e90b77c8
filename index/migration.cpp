#include <algorithm>
#include <exception>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "file/folder_entries.h"
#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/mail_root.h"
#include "index/read_list.h"
#include "index/saving.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
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

void report_not_writable(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  VU_ERROR("STGIndex: migration: not begun, for its index cannot be written: ", folder);
}

/// Steps of which each one runs, also after an exception of an earlier one. The first exception is
/// thrown at the end; others are traced.
class Steps {
 public:
  template <class Step>
  void run(Step step) {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    try {
      step();
    } catch (...) {
      if (!m_first) {
        m_first = std::current_exception();
      } else {
        VU_ERROR(text_of_current_exception());
      }
    }
  }
  void end() const {
    if (m_first) std::rethrow_exception(m_first);
  }

 private:
  std::exception_ptr m_first;
};

/// Whether a generated name can have this extension.
bool is_possible_extension(const std::string& folder, const std::string& extension) {
  constexpr std::size_t kShort = 64;
  // Such an extension is possible on every system.
  if (extension.size() <= kShort && index_format::is_escaped_form(extension)) return true;
  if (extension.find_first_of(std::string_view("/\\\0", 3)) != std::string::npos) return false;
  // Both are necessary: a search takes "*" and "?" for patterns, and the name of a stream, with a
  // colon, has attributes.
  const std::string path = path_text::join(folder, index_format::kTroubleName + extension);
  return os::probe_attributes(path).failure() != os::Failure::kNoName &&
         find_entry(path).failure() != os::Failure::kNoName;
}

/// A logical name with escapes, and the unescaped one.
struct Renamed {
  std::string from;
  std::string to;
};

/// Renames the entries with escaped names.
/// @param rename renames an entry with the timestamp 0 and returns whether it succeeded.
/// @param renamed receives the renamed entries.
/// @return whether every rename succeeded.
template <class Rename>
bool convert(const IndexState& index, Rename rename, std::vector<Renamed>& renamed) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  bool is_complete = true;
  // Entries that appear during the loop have generated names and are skipped; others may disappear.
  std::vector<std::string_view> keys;
  index.visit([&](std::string_view key, std::string_view) { keys.push_back(key); });
  for (const std::string_view key : keys) {
    const std::string_view logical = index_format::logical_of(key);
    if (!index_format::is_escaped_form(logical)) continue;
    const std::optional<std::string_view> stored = index.find(key);
    if (!stored || !index_format::is_file_name(key, *stored, logical)) continue;
    std::string name(logical);
    std::string unescaped = index_format::unescape(name);
    if (unescaped == name) continue;
    if (std::any_of(unescaped.begin(), unescaped.end(),
                    [](char c) { return c == '/' || c == '\n'; })) {
      VU_WARNING("STGIndex: migration: left as it is, no index line can hold its unescaped name: ",
                 index.folder(), "\\", name);
      continue;
    }
    // Example: a%2E%5Cb becomes "a.\b", and a file 00000001.\b would be in another folder.
    if (!is_possible_extension(index.folder(),
                               std::string(index_format::extension_of(unescaped)))) {
      VU_WARNING(
          "STGIndex: migration: left as it is, no file can have the extension of its unescaped "
          "name: ",
          index.folder(), "\\", name);
      continue;
    }
    if (rename(name, unescaped)) {
      renamed.push_back({std::move(name), std::move(unescaped)});
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
    {
      // An index that cannot be written would make each call copy all mails again.
      const SaveWatch watch;
      updateIndexFile(folder);
      if (watch.has_failed()) {
        report_not_writable(folder);
        return;
      }
    }
    ReadList read_list(folder, getPhysicalName(folder, kReadList));
    // The index is not locked yet. Another program may have the list open and wait for the index.
    read_list.load();
    std::vector<Renamed> renamed;
    const SaveWatch watch;
    Steps steps;
    // The list names the entries of the index, so it is written only after the index. And the block
    // ends the lock on the index, also after a failure: another program may have the list open and
    // wait for the index.
    steps.run([&] {
      STGIndex index(folder);
      has_begun = !index.m_state->has_unknown_lines();
      if (!has_begun) return report_not_begun(folder);
      const auto rename = [&](const std::string& from, const std::string& to) {
        return index._rename(from, 0, to, 0);
      };
      if (!convert(*index.m_state, rename, renamed)) return;
      index._create(kMarker, 0);
      // A mail whose rename the save cannot keep has to be found by the next call.
      index.m_state->keep_only_with_others(entryAndTS(kMarker, 0));
    });
    if (has_begun && !watch.has_failed()) {
      steps.run([&] {
        for (const Renamed& each : renamed) {
          if (!watch.has_withdrawn(each.to, 0)) read_list.unescape_line_of(each.from);
        }
        read_list.save();
      });
    }
    steps.end();
  } catch (...) {
    if (!has_begun) report_not_begun(folder);
    throw;
  }
}
