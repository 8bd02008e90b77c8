#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/system.h"

namespace admin {

/// A plain file that is open and locked as the library's handles are: shared for reading, exclusive
/// for changing. The lock is waited for as long as a Locking says, and ends with the object.
///
/// With FolderView and the rest everything in this folder reads; this class, and what is built on
/// it, is what changes files.
class LockedFile {
 public:
  enum class For : std::uint8_t { kReading, kChanging };
  enum class IfMissing : std::uint8_t { kFail, kMake };

  LockedFile() = default;
  ~LockedFile() { close(); }
  LockedFile(const LockedFile&) = delete;
  LockedFile& operator=(const LockedFile&) = delete;

  /// Failure::kLocked when the lock could not be had in time. A link, or anything else that is no
  /// plain file, is not opened. For changing, the locking's mode does not matter: the lock is
  /// always taken.
  os::Status open(const std::string& path, For purpose, IfMissing if_missing,
                  const sys::Locking& locking);
  bool is_open() const { return m_handle != os::kNoHandle; }
  /// Gives the lock back. What was written and not flushed may get lost with the power, nothing
  /// else.
  void close();

  /// Its size, asked of the path.
  std::uint64_t size() const { return sys::describe(m_path).size; }
  /// Reads the file whole.
  os::Status read_all(std::string& bytes);
  /// Reads the text that an index or a counter stands for. For changing, an interrupted save is
  /// completed first, so that the file holds the text and nothing else.
  os::Status read_text(std::string& text);
  /// Reads so many bytes; fewer only at the end of the file.
  os::Status read_at(std::uint64_t offset, std::size_t count, std::string& bytes);
  /// Writes all of the bytes, or fails.
  os::Status write_at(std::uint64_t offset, std::string_view bytes);
  os::Status cut_at(std::uint64_t size);
  os::Status flush();
  /// Whether another file, read without a lock, has the same bytes.
  bool is_equal_to(const std::string& other);

  /// Replaces the lines of an index so that a process killed on the way leaves the old ones or the
  /// new ones (file/replacement.h), and has them on the device. @p old_text is what the file holds.
  os::Status replace_lines(std::string_view old_text, std::string_view new_text);
  /// The same of several files, which are flushed together.
  struct NewLines {
    LockedFile* file;
    std::string_view old_text;
    std::string_view new_text;
    os::Status status;  ///< what became of it
  };
  static void replace_lines(std::vector<NewLines>& all);
  /// Replaces any bytes, from the first that differs on, and has them on the device. A process
  /// killed on the way leaves a file that is_between() recognises.
  os::Status replace_bytes(std::string_view old_bytes, std::string_view new_bytes);

 private:
  os::Status lock(For purpose, const sys::Locking& locking);
  os::Status move_to(std::uint64_t offset);

  std::string m_path;
  For m_purpose = For::kReading;
  os::Handle m_handle = os::kNoHandle;
};

/// Whether the bytes are what a replace_bytes() that was killed can have left: a beginning of the
/// new ones, and the old ones from there on.
bool is_between(std::string_view old_bytes, std::string_view new_bytes, std::string_view found);

// ---- what is on its way ------------------------------------------------------------------------

/// Whether a name is that of something on its way: a file that the client has not completed, or a
/// StagingFolder. Nobody else takes such a thing for a document.
bool is_unfinished(std::string_view name);
/// Whether such a thing is there and its maker seems to be gone: the folder's lock is free. A file
/// has no lock, so its maker may be at work.
bool is_leftover(const std::string& path);

/// A folder of copies on their way into the index of the folder it lies in. Nobody adopts what lies
/// there. Its lock file is held while its program lives, so a folder whose lock is free belongs to
/// nobody any more.
///
/// The lock file is the last thing to go. So a folder without one is empty: just made, or nearly
/// removed. Such a folder may be removed by anybody, and its maker makes another one then.
class StagingFolder {
 public:
  StagingFolder() = default;
  ~StagingFolder() { remove(); }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  /// Makes one in @p folder, and removes there what programs that were killed have left.
  os::Status make(const std::string& folder);
  bool is_made() const { return !m_path.empty(); }
  const std::string& path() const { return m_path; }

  /// The beginning of the names of such folders.
  static constexpr std::string_view kName = ".stgctl-part-";
  /// The name of the lock file in one.
  static constexpr std::string_view kLockName = "lock";

 private:
  /// Takes a folder's lock, or fails at once.
  os::Status take(const std::string& path, LockedFile::IfMissing if_missing);
  /// Removes the folder whose lock is held; what cannot be removed stays.
  void remove();
  static void remove_leftovers(const std::string& folder);

  std::string m_path;  ///< of the folder whose lock is held
  LockedFile m_lock;
};

}  // namespace admin
