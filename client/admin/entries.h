#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/folder_view.h"
#include "client/admin/index_lint.h"

/// @file
/// Entries of a tree, found and listed in a stream: the memory is that of the largest folder.
namespace admin {

/// What is in a document folder, seen from the outside.
enum class EntryState : std::uint8_t {
  kIndexed,    ///< a valid line
  kUnindexed,  ///< a plain file that no line mentions
  kMissing,    ///< a line whose file is not there
};
std::string_view name_of(EntryState state);

/// An entry, with views that are good during the call that hands it on.
struct EntryView {
  const DocumentFolder* folder = nullptr;
  EntryState state = EntryState::kIndexed;
  std::string_view logical;  ///< of an unindexed file its own name
  std::int32_t timestamp = 0;
  std::string_view stored;  ///< the physical name as the line has it
  std::string_view file;    ///< the name of the file in the folder
  std::size_t line = 0;     ///< of index.dat; 0 for an unindexed file
  /// Asked for on demand, see EntryQuery::with_info.
  sys::Info info;
};

/// Which entries are wanted. An unset member lets everything pass.
struct EntryQuery {
  Scope scope;
  std::optional<std::string> pattern;    ///< of the logical name: "*" and "?"
  std::optional<std::string> logical;    ///< exactly
  std::optional<std::string> extension;  ///< of the logical name, without the dot
  std::optional<std::int32_t> timestamp;
  std::optional<EntryState> state;
  std::optional<std::uint64_t> least_size;
  std::optional<std::uint64_t> most_size;
  std::optional<std::int64_t> modified_after;   ///< seconds since 1970, exclusive
  std::optional<std::int64_t> modified_before;  ///< exclusive
  bool with_missing = false;  ///< also lines without a file, which no reader counts
  bool with_info = false;     ///< fill EntryView::info
  sys::Locking locking;
  const std::atomic<bool>* stop = nullptr;
};

/// What a listing has met besides entries.
struct EntryFailures {
  std::uint64_t folders = 0;  ///< that could not be read
  bool lock_missed = false;   ///< at least one of them for a lock
  bool was_stopped = false;
};

/// @return whether to go on.
using EntrySink = std::function<bool(const EntryView&)>;
/// A folder that could not be read, and why.
using FailureSink = std::function<void(const std::string& path, const std::string& why)>;

/// Hands on every entry that matches, folder after folder: first the lines, then unindexed files.
EntryFailures for_each_entry(const Tree& tree, const EntryQuery& query, const EntrySink& sink,
                             const FailureSink& failed);

}  // namespace admin
