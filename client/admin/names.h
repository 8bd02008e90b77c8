#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/entries.h"
#include "client/admin/locked_file.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"

/// @file
/// Saved names: snapshots of all indexes of a tree. docs/formats.md describes the file.
namespace admin {

/// A 128-bit hash that identifies a text.
struct Digest {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  bool operator==(const Digest&) const = default;
};
Digest digest_of(std::string_view bytes);

/// A saved index: the position of its text in the file, and the properties to check.
struct SavedIndex {
  std::uint64_t at = 0;
  std::uint64_t size = 0;     ///< of the text
  std::uint64_t entries = 0;  ///< lines with the form of an entry
  Digest digest;
  bool operator==(const SavedIndex&) const = default;
};
/// The indexes of a tree by their folders, for example "docs/anna/00000097".
using SavedIndexes = std::map<std::string, SavedIndex, std::less<>>;

/// All properties of a text except its position.
SavedIndex measure(std::string_view text);

/// The description of a snapshot.
struct Snapshot {
  std::uint64_t number = 0;  ///< from 1
  std::int64_t time = 0;     ///< seconds since 1970 UTC
  std::string storage;       ///< the storage folder
  Layout layout = Layout::kOwner;
  std::uint64_t folders = 0;  ///< number of indexes
  std::uint64_t entries = 0;
  std::uint64_t bytes = 0;  ///< of the indexes
  std::uint64_t changed = 0;
  std::uint64_t added = 0;
  std::uint64_t removed = 0;
  std::uint64_t unread = 0;    ///< indexes that could not be read; the snapshot contains their
                               ///< previous state
  std::uint64_t checksum = 0;  ///< of all indexes together
  /// Whether the list contains all indexes; else only the changes since the previous snapshot.
  bool is_whole = true;
};

/// Passes on the indexes whose texts differ: first those that are in @p now, then those that are
/// only in @p before. An index that is missing on one side is null.
void compare_indexes(const SavedIndexes& before, const SavedIndexes& now,
                     const std::function<void(const std::string& folder, const SavedIndex* before,
                                              const SavedIndex* now)>& sink);
/// The description of the snapshot @p now that follows @p before. @param head its other members.
Snapshot description_of(Snapshot head, const SavedIndexes& before, const SavedIndexes& now);

// ---- taking a snapshot -------------------------------------------------------------------------

/// The name of a folder in a snapshot: its path below the storage folder, with "/".
std::string saved_name_of(const Tree& tree, std::string_view folder);
/// The folder with such a name; it need not exist. Nothing if the name is invalid, or not possible
/// in the tree's layout.
std::optional<DocumentFolder> folder_of_saved_name(const Tree& tree, std::string_view name);

/// Saves a text that differs from all earlier ones.
/// @param earlier the previous index of the same folder, or null.
using KeepText = std::function<SavedIndex(std::string_view text, const SavedIndex* earlier)>;

/// The indexes of a tree. Each was read once, under a shared lock, at a different moment.
struct TakenIndexes {
  SavedIndexes indexes;
  std::uint64_t unread = 0;  ///< could not be read: their previous state was kept
  bool lock_missed = false;  ///< at least one because of a lock
};
TakenIndexes take_indexes(const Tree& tree, const SavedIndexes& before, const WalkOptions& options,
                          const KeepText& keep, const FailureSink& failed);

// ---- the file ----------------------------------------------------------------------------------

/// Why a file of saved names cannot be used.
class StoreError : public std::runtime_error {
 public:
  enum class Why : std::uint8_t {
    kMissing,  ///< the file does not exist
    kLocked,   ///< another process had it locked until the time-out
    kForeign,  ///< it is not a file of saved names
    kDamaged,  ///< a checksum does not match, or bytes are missing
    kFailed,   ///< the system reported an error
  };
  StoreError(Why why, const std::string& text) : std::runtime_error(text), m_why(why) {}
  Why why() const noexcept { return m_why; }

 private:
  Why m_why;
};

/// The file of saved names of a tree: a sequence of snapshots of all its indexes. Snapshots are
/// only appended. A snapshot is valid when its trailer follows it. The trailer is written last.
/// Readers ignore bytes after the last trailer, which a killed process or a full disk leaves; the
/// next snapshot removes them.
///
/// Every snapshot ends with the list of all indexes, or with the changes of that list. The text of
/// an index is stored once, and only the bytes that differ from an earlier text. Lists and texts
/// have checksums, so damage inside the file affects only what depends on the damaged bytes.
///
/// The object locks the file as long as it lives, see LockedFile::open(). All calls may throw
/// StoreError.
class NameStore {
 public:
  /// A snapshot and its list.
  struct Manifest;
  /// The end of a snapshot. It is written last: without it the snapshot is not valid.
  struct Trailer {
    std::uint64_t at = 0;  ///< its position
    std::uint64_t number = 0;
    std::uint64_t manifest_at = 0;
    std::uint64_t manifest_size = 0;
    std::uint64_t manifest_checksum = 0;
    std::uint64_t previous = 0;  ///< position of the previous trailer; 0: none
  };
  static constexpr std::size_t kTrailerSize = 56;

  using For = LockedFile::For;

  /// @param purpose kReading, or kCreating to append snapshots.
  NameStore(const std::string& path, For purpose, const sys::Locking& locking);
  /// Removes what was added and not committed.
  ~NameStore();
  NameStore(const NameStore&) = delete;
  NameStore& operator=(const NameStore&) = delete;

  // ---- reading ----

  /// A snapshot in the file; without a description if that is damaged.
  struct Kept {
    std::uint64_t number = 0;
    std::uint64_t file_bytes = 0;  ///< its size in the file
    std::optional<Snapshot> snapshot;
  };
  /// Oldest first. If the file is damaged, numbers can be missing.
  std::vector<Kept> snapshots();
  /// The indexes of a snapshot.
  SavedIndexes indexes_of(std::uint64_t number);
  std::string text_of(const SavedIndex& index);

  /// The number of bytes after the last complete snapshot, left by an interrupted process.
  std::uint64_t torn_bytes() const { return m_torn; }
  /// The number of the last snapshot; 0: none.
  std::uint64_t last_number() const { return m_chain.empty() ? 0 : m_chain.front().number; }

  // ---- appending ----

  /// Stores a text. @param earlier an index with a similar text, or null.
  SavedIndex add(std::string_view text, const SavedIndex* earlier);
  /// Completes the snapshot; after the call it is valid.
  /// @param head time, storage, layout, and number of unread indexes; the call adds the rest.
  /// @param before the indexes of last_number(), empty if they could not be read.
  /// @return the complete description.
  Snapshot commit(Snapshot head, const SavedIndexes& before, const SavedIndexes& now);
  /// The size of the file, with the uncommitted bytes.
  std::uint64_t file_size() const { return m_end + m_pending.size(); }

 private:
  void check_head();
  std::optional<Trailer> trailer_at(std::uint64_t at);
  std::optional<Trailer> last_trailer_before(std::uint64_t end);
  void read_chain(std::uint64_t down_to);
  std::optional<Manifest> manifest_of(const Trailer& trailer);
  std::string stored_text(std::uint64_t at, std::uint32_t& depth);
  std::string read(std::uint64_t at, std::uint64_t count);
  void write_pending();
  void check(const os::Status& status, const char* what) const;
  [[noreturn]] void damaged(const std::string& what) const;

  std::string m_path;
  LockedFile m_file;
  std::vector<Trailer> m_chain;  ///< newest first, as far as it was read
  bool m_chain_is_whole = false;
  std::uint64_t m_valid_end = 0;  ///< the position after the last trailer
  std::uint64_t m_torn = 0;
  std::uint64_t m_end = 0;  ///< the position for the pending bytes
  std::string m_pending;
  bool m_has_added = false;
};

}  // namespace admin
