#pragma once

#include <atomic>
#include <compare>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/folder_view.h"
#include "client/admin/tree.h"

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

// ---- inventories -------------------------------------------------------------------------------
//
// Everything that a tree keeps for its owners, in one order that does not depend on the system:
// what is carried to another tree, and what two trees are compared by. The memory is that of the
// largest folder.

enum class HoldingKind : std::uint8_t {
  kVersion,  ///< a version of a document, as an index names it
  kPart,     ///< a file in the folders of parts of a version
  kFile,     ///< a file of an area that is addressed by path
};
std::string_view name_of(HoldingKind kind);

/// One thing that is kept.
struct Holding {
  HoldingKind kind = HoldingKind::kVersion;
  Area area = Area::kDocs;
  std::string owner;           ///< the owner folder's name, as in DocumentFolder
  std::string bucket;          ///< of "docs" only
  std::string name;            ///< the logical name; empty for kFile
  std::int32_t timestamp = 0;  ///< of kVersion and kPart
  /// Names between "/": of a part from its folder's "_STAMP" on, of a file below its owner's
  /// folder.
  std::string path;
  std::string location;  ///< where it lies
  sys::Info info;
  /// Why the library never finds this entry; null when it does.
  const char* out_of_reach = nullptr;
};

/// The bucket that a name leads to.
std::string bucket_of(std::string_view name);

/// The order of an inventory: areas, owners, buckets, names, timestamps, a version before its
/// parts, paths folder by folder. Texts are ordered byte by byte.
std::strong_ordering operator<=>(const Holding& one, const Holding& other);
inline bool operator==(const Holding& one, const Holding& other) { return (one <=> other) == 0; }

/// Paths folder by folder: "a/b" goes before "a.b".
std::strong_ordering compare_paths(std::string_view one, std::string_view other);

struct InventoryOptions {
  Scope scope;
  sys::Locking locking;
  const std::atomic<bool>* stop = nullptr;
  /// Told of each folder before it is looked at.
  std::function<void(const DocumentFolder&)> on_folder;
};

/// What an inventory tells.
class InventorySink {
 public:
  virtual ~InventorySink() = default;
  /// One thing that is kept. @return whether to go on.
  virtual bool holding(const Holding& holding) = 0;
  /// Something that belongs to nothing in the tree: a file that no index names, say.
  virtual void left_out(const std::string& location, const char* why);
  /// A folder that could not be read.
  virtual void failed(const std::string& location, const std::string& why);
};

/// Hands on every holding in order.
EntryFailures take_inventory(const Tree& tree, const InventoryOptions& options,
                             InventorySink& sink);

}  // namespace admin
