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

}  // namespace admin
