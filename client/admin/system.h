#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

/// @file
/// What a reader that leaves no trace needs of the operating system, beyond the seam below the
/// library: folders walked name by name, descriptions that follow no link, and files read under a
/// lock that is never waited for without limit. Nothing here changes a byte, a name or a
/// modification time; where the system lets us, the time of the last access stays as well.
///
/// system_posix.cpp and system_windows.cpp hold what differs, system.cpp the rest. Paths and names
/// are bytes, as the library's narrow paths are.
namespace admin::sys {

#if defined(_WIN32)
inline constexpr char kSeparator = '\\';
/// The longest path that the library's narrow calls take.
inline constexpr std::size_t kPathLimit = 259;
/// Whether a file can be replaced by another one while programs have it open.
inline constexpr bool kReplacesOpenFiles = false;
#else
inline constexpr char kSeparator = '/';
inline constexpr std::size_t kPathLimit = 4095;
inline constexpr bool kReplacesOpenFiles = true;
#endif

/// The longest name of a file that common file systems take.
inline constexpr std::size_t kNameLimit = 255;

enum class Kind : std::uint8_t {
  kMissing,
  kFile,
  kFolder,
  kLink,   ///< wherever it leads
  kOther,  ///< a device, a pipe
};

/// A file or folder. Times in seconds since 1970-01-01 UTC, size in bytes.
struct Info {
  Kind kind = Kind::kMissing;
  bool is_read_only = false;
  std::uint64_t size = 0;
  std::int64_t modify_time = 0;
  std::int64_t access_time = 0;
  /// When it changed last in any way, in the finest unit that the system has: for comparing alone.
  std::int64_t change_mark = 0;
};

/// One name of a folder. The name is followed by a NUL and lives until the next step.
struct Entry {
  std::string_view name;
  Kind kind = Kind::kMissing;
};

/// A folder that is walked once, "." and ".." left out, in the system's order. It holds one buffer,
/// however many names there are.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(Folder&&) noexcept;
  Folder& operator=(Folder&&) noexcept;

  os::Status open(const std::string& path);
  /// Opens the sub-folder that the last step gave; a link is not followed.
  os::Status open_below(const Folder& parent, const Entry& entry);
  /// Steps to the next name. False at the end, or when the listing broke off (see status()).
  bool next(Entry& entry);
  const os::Status& status() const { return m_status; }
  /// Describes the entry of the last step; kMissing when it has gone in the meantime.
  Info describe(const Entry& entry);

 private:
  struct Part;
  std::unique_ptr<Part> m_part;
  os::Status m_status;
};

/// Describes what a path names, without following a link in its last component.
Info describe(const std::string& path);

/// How a file that others may be writing is read.
struct Locking {
  enum class Mode : std::uint8_t {
    kShared,  ///< as the library's readers do
    kNone,    ///< never waits, and may see a half-written file
  };
  Mode mode = Mode::kShared;
  /// How long a lock is asked for again and again before the file is given up.
  std::chrono::milliseconds time_out{10'000};
  /// Called once per file when its lock has been waited for this long.
  std::chrono::milliseconds patience{2'000};
  std::function<void(const std::string& path)> on_wait;
  /// Ends the waiting, as if time were out, once it is set.
  const std::atomic<bool>* stop = nullptr;
};

/// Asks for a lock again and again, as long as a Locking says. @param ask whether it was obtained:
/// Failure::kLocked while somebody else has it. Any other failure passes for success: a file system
/// without locks has none that we could disturb.
os::Status wait_for_lock(const std::string& path, const Locking& locking,
                         const std::function<os::Status()>& ask);

/// A plain file that is open for reading; of a link or anything else nothing is opened. Where that
/// is allowed, its access time does not move.
class QuietFile {
 public:
  QuietFile() = default;
  ~QuietFile() { close(); }
  QuietFile(const QuietFile&) = delete;
  QuietFile& operator=(const QuietFile&) = delete;

  os::Status open(const std::string& path);
  void close();
  /// Asks once for a shared lock over the whole file, as the library's readers take it.
  os::Status try_lock();
  os::Status ask_size(std::uint64_t& size);
  /// Reads on; @p done is 0 at the end.
  os::Status read(char* to, std::size_t count, std::size_t& done);

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t m_file = kNone;  ///< a descriptor or a handle
};

/// Reads a plain file as a whole. Failure::kLocked when its lock could not be had in time.
os::Status read_file(const std::string& path, const Locking& locking, std::string& bytes);
/// Hands a plain file on in pieces, until @p take returns false.
os::Status read_pieces(const std::string& path, const Locking& locking,
                       const std::function<bool(std::string_view piece)>& take);

/// Whether the calling user may open the file for reading, asked by opening it.
os::Status probe_readable(const std::string& path);

/// Whether the calling user may change a file, or make and remove names in a folder, asked without
/// changing anything. A read-only file may not be changed, whoever asks.
os::Status probe_writable(const std::string& path);

/// Has all files of the file system that a path lies on on the device, where there is such a thing.
os::Status flush_file_system(const std::string& path);
/// From so many files on one flush of the file system costs less than theirs.
inline constexpr std::size_t kManyFlushes = 5;
/// Has files on the device, and the names in folders where those are a matter of their own; of
/// many, with one flush of their file system where there is such a thing.
os::Status flush_files(const std::vector<std::string>& files,
                       const std::vector<std::string>& folders);

/// Gives a file the owner and the permissions of another one. Fails where that would not be all:
/// the user may not, or the other one has permissions of more than that kind.
os::Status take_over_owner(const std::string& from, const std::string& to);
/// Puts a file in the place of another one, by one step: the name leads to either at any moment.
os::Status replace_file(const std::string& from, const std::string& to);

/// A lock on a file below a folder, and who holds it.
struct HeldLock {
  std::string path;
  bool is_exclusive = false;
  bool is_whole_file = true;
  std::int64_t process = 0;
  std::string command;  ///< the program's name, as far as the system tells
};

enum class Knowledge : std::uint8_t {
  kComplete,
  kPartial,  ///< processes of other users could not be looked into
  kNone,     ///< this system does not tell
};

/// The locks held on files below a folder (an absolute path).
Knowledge find_locks(const std::string& folder, std::vector<HeldLock>& locks);

/// The system a path lies on.
struct FileSystem {
  std::string type;  ///< "ext4", "NTFS"; empty when unknown
  bool is_read_only = false;
  bool is_network = false;
  std::uint64_t total_bytes = 0;
  std::uint64_t free_bytes = 0;
};
FileSystem file_system_of(const std::string& path);

/// "Linux 6.1.0 x86_64", "Windows 10.0.19045".
std::string system_name();
/// What narrow names mean here: "UTF-8", "ISO-8859-1", "code page 1252".
std::string narrow_encoding();
/// The absolute form of a path, links resolved where the system can; the path itself on a failure.
std::string absolute(const std::string& path);
/// The text of a failed status, without a line end.
std::string text_of(const os::Status& status);

/// A folder and a name in it.
inline std::string join(std::string_view folder, std::string_view name) {
  std::string path;
  path.reserve(folder.size() + name.size() + 1);
  path.append(folder);
  if (path.empty() || path.back() != kSeparator) path += kSeparator;
  return path.append(name);
}

}  // namespace admin::sys
