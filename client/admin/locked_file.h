#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/system.h"

namespace admin {

/// An open file, by the calls of the seam. The destructor closes it, which also ends its lock.
class OpenFile {
 public:
  enum class Lock : std::uint8_t { kShared, kExclusive };

  OpenFile() = default;
  ~OpenFile() { close(); }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;

  os::Status open(const std::string& path, os::Access access);
  bool is_open() const { return m_handle != os::kNoHandle; }
  void close() { static_cast<void>(try_close()); }
  os::Status try_close();

  /// Requests a whole-file lock once, without waiting.
  os::Status try_lock(Lock kind);
  os::Status unlock() { return os::unlock(m_handle); }
  /// Reads @p count bytes; fewer only at the end of the file.
  os::Status read_at(std::uint64_t offset, std::size_t count, std::string& bytes);
  /// Writes all bytes, or fails.
  os::Status write_at(std::uint64_t offset, std::string_view bytes);
  os::Status cut_at(std::uint64_t size);
  os::Status flush() { return os::flush(m_handle); }

 protected:
  os::Handle m_handle = os::kNoHandle;

 private:
  os::Status move_to(std::uint64_t offset);
};

/// A plain file that is open and locked as the library does it: shared for reading, exclusive for
/// changing. A Locking says how long to wait for the lock. The lock ends with the object. close()
/// does not flush: a power failure can lose what was written since the last flush.
///
/// In this folder only LockedFile, and the code that uses it, changes files of a tree. SharedView
/// changes only trial files.
class LockedFile : public OpenFile {
 public:
  enum class For : std::uint8_t {
    kReading,
    kChanging,
    kCreating,  ///< like kChanging, but creates a missing file
  };

  /// Fails with Failure::kLocked after the time-out. Opens only plain files, no links. Except with
  /// kReading the file is always locked, whatever the mode in @p locking.
  os::Status open(const std::string& path, For purpose, const sys::Locking& locking);

  /// The size, looked up by the path.
  std::uint64_t size() const { return sys::describe(m_path).size; }
  /// Reads all bytes.
  os::Status read_all(std::string& bytes);
  /// Reads the valid text of an index or a counter. Except with kReading it first completes an
  /// interrupted save, so the file then contains only the text.
  os::Status read_text(std::string& text);
  /// Whether another file has the same bytes. Reads it without a lock.
  bool is_equal_to(const std::string& other);

  /// Replaces the text of an index by an atomic replacement (file/replacement.h), and flushes it.
  /// @param old_text the present content of the file.
  os::Status replace_lines(std::string_view old_text, std::string_view new_text);
  /// The same for several files, which are flushed together.
  struct NewLines {
    LockedFile* file;
    std::string_view old_text;
    std::string_view new_text;
    os::Status status;  ///< the result
  };
  static void replace_lines(std::vector<NewLines>& all);
  /// Writes the bytes from the first difference on, and flushes them. Not atomic: a process that is
  /// killed leaves bytes that is_between() recognises.
  os::Status replace_bytes(std::string_view old_bytes, std::string_view new_bytes);

 private:
  std::string m_path;
  For m_purpose = For::kReading;
};

/// Whether an interrupted replace_bytes() can have left these bytes: the beginning of the new ones,
/// followed by the rest of the old ones.
bool is_between(std::string_view old_bytes, std::string_view new_bytes, std::string_view found);

// ---- unfinished files and folders ---------------------------------------------------------------

/// Whether the name is that of an unfinished file of the client, or of a StagingFolder. Neither is
/// ever adopted or listed as a document.
bool is_unfinished(std::string_view name);
/// Whether such a file or folder exists, and the lock of the folder is free. The process that
/// created the folder has then ended. A file has no lock, so its process may still run.
bool is_leftover(const std::string& path);

/// A sub-folder for copies that are not yet in the index. Nothing in it is adopted. Its lock file
/// is locked as long as the program runs, so a staging folder with a free lock is stale.
///
/// The lock file is removed last. So a folder without a lock file is empty: just created, or almost
/// removed. Any program may remove such a folder; the creator then creates another one.
class StagingFolder {
 public:
  StagingFolder() = default;
  ~StagingFolder() { remove(); }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  /// Creates one in @p folder, and first removes the stale ones there.
  os::Status make(const std::string& folder);
  bool is_made() const { return !m_path.empty(); }
  const std::string& path() const { return m_path; }

  /// The prefix of the names of staging folders.
  static constexpr std::string_view kName = ".stgctl-part-";
  /// The name of the lock file.
  static constexpr std::string_view kLockName = "lock";

 private:
  /// Locks a folder, without waiting.
  os::Status take(const std::string& path, LockedFile::For purpose);
  /// Removes the locked folder. Files that cannot be removed stay.
  void remove();
  static void remove_leftovers(const std::string& folder);

  std::string m_path;  ///< of the locked folder
  LockedFile m_lock;
};

}  // namespace admin
