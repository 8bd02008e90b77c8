#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/folder_view.h"
#include "client/admin/tree.h"

/// @file
/// Finds and lists the entries of a tree. It needs memory for the largest folder only.
namespace admin {

enum class EntryState : std::uint8_t {
  kIndexed,    ///< a valid entry
  kUnindexed,  ///< an orphan
  kMissing,    ///< the file that readers open is missing
};
inline constexpr std::array<std::string_view, 3> kEntryStates = {"indexed", "unindexed", "missing"};
constexpr std::string_view name_of(EntryState state) {
  return kEntryStates[static_cast<std::size_t>(state)];
}

/// An entry or an orphan. The views are valid only during the call of the sink.
struct EntryView {
  const DocumentFolder* folder = nullptr;
  EntryState state = EntryState::kIndexed;
  std::string_view logical;  ///< of an orphan: the file name
  std::int32_t timestamp = 0;
  std::string_view stored;  ///< the physical name in the index
  std::string_view file;    ///< the name of the file in the folder
  /// Filled on demand, see EntryQuery::with_info.
  sys::Info info;
};

/// Which entries to list. An unset member does not filter.
struct EntryQuery : WalkOptions {
  std::optional<std::string> pattern;    ///< of the logical name: "*" and "?"
  std::optional<std::string> logical;    ///< exactly
  std::optional<std::string> extension;  ///< of the logical name, without the dot
  std::optional<std::int32_t> timestamp;
  std::optional<EntryState> state;
  std::optional<std::uint64_t> least_size;
  std::optional<std::uint64_t> most_size;
  std::optional<std::int64_t> modified_after;   ///< seconds since 1970, exclusive
  std::optional<std::int64_t> modified_before;  ///< exclusive
  bool with_missing = false;                    ///< also entries in the state kMissing
  bool with_info = false;                       ///< fill EntryView::info
};

struct EntryFailures {
  std::uint64_t folders = 0;  ///< that could not be read
  bool lock_missed = false;   ///< at least one because of a lock
  bool was_stopped = false;
};

/// @return whether to continue.
using EntrySink = std::function<bool(const EntryView&)>;
/// Called for a folder that could not be read.
using FailureSink = std::function<void(const std::string& path, const std::string& why)>;

/// Passes every entry that matches to @p sink, folder by folder: first the entries, then orphans.
EntryFailures for_each_entry(const Tree& tree, const EntryQuery& query, const EntrySink& sink,
                             const FailureSink& failed);

// ---- inventories -------------------------------------------------------------------------------
// An inventory lists all content of a tree, in an order that is the same on every system. Exports
// and comparisons of trees use it. It needs memory for the largest folder only.

enum class HoldingKind : std::uint8_t {
  kVersion,  ///< a version of a document, from an index
  kPart,     ///< a sub-part of a version
  kFile,     ///< a file in an area whose files are addressed by path
};
inline constexpr std::array<std::string_view, 3> kHoldingKinds = {"version", "part", "file"};
constexpr std::string_view name_of(HoldingKind kind) {
  return kHoldingKinds[static_cast<std::size_t>(kind)];
}

struct Holding {
  HoldingKind kind = HoldingKind::kVersion;
  Area area = Area::kDocs;
  std::string owner;           ///< the owner folder's name, as in DocumentFolder
  std::string bucket;          ///< of "docs" only
  std::string name;            ///< the logical name; empty for kFile
  std::int32_t timestamp = 0;  ///< of kVersion and kPart
  /// With "/" between the names. For a sub-part it begins with the "_STAMP" of its folder's name;
  /// for a kFile it is relative to its owner's folder.
  std::string path;
  std::string location;  ///< its path in the system
  sys::Info info;
  /// Why the library never finds this entry; null if it does.
  const char* out_of_reach = nullptr;
};

/// The order of an inventory: by area, owner, bucket, name and timestamp. A version comes before
/// its sub-parts. Paths are compared with compare_paths(), other texts byte by byte.
std::strong_ordering operator<=>(const Holding& one, const Holding& other);
inline bool operator==(const Holding& one, const Holding& other) { return (one <=> other) == 0; }

/// Compares paths name by name: "a/b" comes before "a.b".
std::strong_ordering compare_paths(std::string_view one, std::string_view other);

class InventorySink {
 public:
  virtual ~InventorySink() = default;
  /// @return whether to continue.
  virtual bool holding(const Holding& holding) = 0;
  /// Called for an item that is not part of the content, for example an orphan.
  virtual void left_out(const std::string& /*location*/, const char* /*why*/) {}
  /// Called for a folder that could not be read.
  virtual void failed(const std::string& /*location*/, const std::string& /*why*/) {}
};

/// Passes every holding to @p sink, in order.
EntryFailures take_inventory(const Tree& tree, const WalkOptions& options, InventorySink& sink);

}  // namespace admin
