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
    kMissing,  ///< there is none
    kLocked,   ///< another process held it until time was out
    kForeign,  ///< it is a file of another kind
    kDamaged,  ///< bytes that are needed are not what was written
    kFailed,   ///< the system refused
  };
  StoreError(Why why, const std::string& text) : std::runtime_error(text), m_why(why) {}
  Why why() const noexcept { return m_why; }

 private:
  Why m_why;
};

/// The file that keeps the names of a tree: snapshots of all its indexes, one behind the other. It
/// is only appended to. A snapshot counts when its trailer stands behind it, which is written last;
/// what a process that was killed, or found no space, has left behind the last trailer is passed
/// over, and cut off by the next one that appends.
///
/// Every snapshot ends with a list of indexes, or of what has changed in that list; the texts of
/// the indexes are stored once, and as far as they differ from an earlier one. Lists and texts have
/// checksums, so damage in the midst of the file costs what depends on it and nothing else.
///
/// The lock lasts as long as the object. All calls may throw StoreError.
class NameStore {
 public:
  enum class For : std::uint8_t { kReading, kAppending };

  /// @param purpose kAppending makes the file when it is missing.
  NameStore(const std::string& path, For purpose, const sys::Locking& locking);
  /// Takes back what was added and not committed.
  ~NameStore();
  NameStore(const NameStore&) = delete;
  NameStore& operator=(const NameStore&) = delete;

  // ---- reading ----

  /// A snapshot in the file; without what it says about itself when that is damaged.
  struct Kept {
    std::uint64_t number = 0;
    std::uint64_t file_bytes = 0;  ///< what it takes in the file
    std::optional<Snapshot> snapshot;
  };
  /// Oldest first. Between them numbers may be missing, where the file is damaged.
  std::vector<Kept> snapshots();
  /// The indexes that a snapshot holds.
  SavedIndexes indexes_of(std::uint64_t number);
  /// The text of a saved index.
  std::string text_of(const SavedIndex& index);

  /// Bytes behind the last complete snapshot, left by a process that was stopped.
  std::uint64_t torn_bytes() const { return m_torn; }
  /// The number of the last snapshot, 0 for none.
  std::uint64_t last_number() const { return m_chain.empty() ? 0 : m_chain.front().trailer.number; }

  // ---- appending ----

  /// Stores a text. @param earlier what it may share bytes with, or null.
  SavedIndex add(std::string_view text, const SavedIndex* earlier);
  /// Ends the snapshot; from here on it counts. @param head its time, storage, layout, and the
  /// number of unread indexes; the rest is filled in. @param before the indexes of last_number(),
  /// empty when those could not be read. @return what it says about itself.
  Snapshot commit(Snapshot head, const SavedIndexes& before, const SavedIndexes& now);
  /// The size of the file, what is being added included.
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
  std::vector<Link> m_chain;  ///< newest first, as far as it has been followed
  bool m_chain_is_whole = false;
  std::uint64_t m_valid_end = 0;  ///< behind the last trailer
  std::uint64_t m_torn = 0;
  std::uint64_t m_end = 0;  ///< where the pending bytes go
  std::string m_pending;
  bool m_has_added = false;
};

}  // namespace admin
