#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/locked_file.h"
#include "client/admin/name_snapshot.h"

namespace admin {

using names_format::SavedIndex;
using names_format::SavedIndexes;
using names_format::Snapshot;

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
  enum class For : std::uint8_t { kReading, kAppending };

  /// @param purpose kAppending creates the file if it is missing.
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
  std::uint64_t last_number() const { return m_chain.empty() ? 0 : m_chain.front().trailer.number; }

  // ---- appending ----

  /// Stores a text. @param earlier an index with a similar text, or null.
  SavedIndex add(std::string_view text, const SavedIndex* earlier);
  /// Completes the snapshot; after the call it is valid.
  /// @param head time, storage, layout, and number of unread indexes; the call fills in the rest.
  /// @param before the indexes of last_number(), empty if they could not be read.
  /// @return the complete description.
  Snapshot commit(Snapshot head, const SavedIndexes& before, const SavedIndexes& now);
  /// The size of the file, with the uncommitted bytes.
  std::uint64_t file_size() const { return m_end + m_pending.size(); }

 private:
  struct Link {
    std::uint64_t at = 0;
    names_format::Trailer trailer;
  };

  void check_head();
  std::optional<Link> trailer_at(std::uint64_t at);
  std::optional<Link> last_trailer_before(std::uint64_t end);
  void read_chain(std::uint64_t down_to);
  std::optional<names_format::Manifest> manifest_of(const Link& link);
  std::string stored_text(std::uint64_t at, std::uint32_t& depth);
  std::string read(std::uint64_t at, std::uint64_t count);
  void write_pending();
  void check(const os::Status& status, const char* what) const;
  [[noreturn]] void damaged(const std::string& what) const;

  std::string m_path;
  LockedFile m_file;
  std::vector<Link> m_chain;  ///< newest first, as far as it was read
  bool m_chain_is_whole = false;
  std::uint64_t m_valid_end = 0;  ///< the position after the last trailer
  std::uint64_t m_torn = 0;
  std::uint64_t m_end = 0;  ///< the position for the pending bytes
  std::string m_pending;
  bool m_has_added = false;
};

}  // namespace admin
