#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

/// @file
/// The part of the seam that only the client uses: it lists folders name by name, describes files
/// without following links, and describes the system. Where the system allows it, reading leaves
/// the access time unchanged. The files look_posix.cpp and look_windows.cpp each contain one system
/// completely; the library is built with neither.
///
/// Paths and names are bytes, like the library's narrow paths, with the system's own separator.
namespace os::look {

#if defined(_WIN32)
inline constexpr char kSeparator = '\\';
/// The longest path that the library's narrow calls accept.
inline constexpr std::size_t kPathLimit = 259;
/// Whether a file can be replaced by another one while programs have it open.
inline constexpr bool kReplacesOpenFiles = false;
/// Whether a file is also found under its name in another letter case.
inline constexpr bool kIgnoresCase = true;
#else
inline constexpr char kSeparator = '/';
inline constexpr std::size_t kPathLimit = 4095;
inline constexpr bool kReplacesOpenFiles = true;
inline constexpr bool kIgnoresCase = false;
#endif

/// The longest file name on common file systems.
inline constexpr std::size_t kNameLimit = 255;

enum class Kind : std::uint8_t {
  kMissing,  ///< no file has this name
  kFile,
  kFolder,
  kLink,     ///< whatever its target is
  kOther,    ///< a device, a pipe
  kUnknown,  ///< the system cannot tell, for example after a failure of the device
};

/// A file or folder. Times in seconds since 1970-01-01 UTC, size in bytes.
struct Info {
  Kind kind = Kind::kMissing;
  bool is_read_only = false;
  std::uint64_t size = 0;
  std::int64_t modify_time = 0;
  std::int64_t access_time = 0;
  /// The time of the last change of any kind (on Windows: of the last write), in the finest unit of
  /// the system; only for comparisons.
  std::int64_t change_mark = 0;
};

/// One name of a folder. A NUL follows the name. The name is valid until the next step.
struct Entry {
  std::string_view name;
  Kind kind = Kind::kMissing;
};

/// One walk through a folder in the system's order, without "." and "..". It uses one buffer for
/// any number of names. Order of calls: open() or open_below(), then next() until it returns false;
/// both can be opened again. Threads: one at a time.
class Folder {
 public:
  Folder();
  ~Folder();
  Folder(Folder&&) noexcept;
  Folder& operator=(Folder&&) noexcept;

  os::Status open(const std::string& path);
  /// Opens the sub-folder that the last step of @p parent returned. On Windows this follows a link.
  os::Status open_below(const Folder& parent, const Entry& entry);
  /// Steps to the next name. False at the end, or if the listing broke off (see status()).
  bool next(Entry& entry);
  const os::Status& status() const { return m_status; }
  /// Describes the entry of the last step as it is now; kMissing if it is gone. On Windows: as the
  /// step found it.
  Info describe(const Entry& entry);

 private:
  struct Part;
  std::unique_ptr<Part> m_part;
  os::Status m_status;
};

/// What a failed query shows: only some failures mean that no file has the name.
inline Kind kind_after(const os::Status& failed) {
  const bool is_missing =
      failed.failure() == os::Failure::kNotFound || failed.failure() == os::Failure::kNoName;
  return is_missing ? Kind::kMissing : Kind::kUnknown;
}

/// Describes what a path names; does not follow a link in its last component.
Info describe(const std::string& path);

/// A plain file that is open for reading; open() fails for anything else, and for a link. Where the
/// system allows it, the access time does not change. open() first closes the file that was open
/// before. Threads: one at a time.
class QuietFile {
 public:
  QuietFile() = default;
  ~QuietFile() { close(); }
  QuietFile(const QuietFile&) = delete;
  QuietFile& operator=(const QuietFile&) = delete;

  os::Status open(const std::string& path);
  void close();
  /// Tries once to take a shared lock on the whole file, like the library's readers.
  os::Status try_lock();
  /// Reads from the current position; @p done can be less than @p count, and is 0 at the end.
  os::Status read(char* to, std::size_t count, std::size_t& done);

 private:
  static constexpr std::intptr_t kNone = -1;
  std::intptr_t m_file = kNone;  ///< a descriptor or a handle
};

/// Whether the calling user may change a file, or create and remove names in a folder. The check
/// changes nothing. No user may change a read-only file.
os::Status probe_writable(const std::string& path);

/// Flushes each file system that contains many of the files, if the system can do that.
/// @return for each file whether its file system was flushed.
std::vector<bool> flush_file_systems(const std::vector<std::string>& paths);
/// Flushes files, and the names in folders if the system keeps those separately. For many files of
/// one file system it flushes that once, if the system can do that.
os::Status flush_files(const std::vector<std::string>& files,
                       const std::vector<std::string>& folders);

/// Copies the owner and the permissions of @p from to the file @p to. Fails if the user may not, or
/// if @p from has an access control list. On Windows it does nothing and succeeds.
os::Status take_over_owner(const std::string& from, const std::string& to);
/// Replaces a file by another one in one step: at any moment the name leads to one of the two.
os::Status replace_file(const std::string& from, const std::string& to);

/// A lock on a file below a folder, and its holder.
struct HeldLock {
  std::string path;
  bool is_exclusive = false;
  bool is_whole_file = true;
  std::int64_t process = 0;
  std::string command;  ///< the program's name, if the system reports it
};

enum class Knowledge : std::uint8_t {
  kComplete,
  kPartial,  ///< processes of other users could not be examined
  kNone,     ///< this system does not list locks
};

/// The locks on files below a folder (an absolute path).
Knowledge find_locks(const std::string& folder, std::vector<HeldLock>& locks);

/// The file system of a path.
struct FileSystem {
  std::string type;  ///< "ext4", "NTFS"; empty if unknown
  bool is_read_only = false;
  bool is_network = false;
  std::uint64_t total_bytes = 0;
  std::uint64_t free_bytes = 0;
};
FileSystem file_system_of(const std::string& path);

/// "Linux 6.1.0 x86_64", "Windows 10.0.19045".
std::string system_name();
/// The encoding of narrow names: "UTF-8", "ISO-8859-1", "code page 1252".
std::string narrow_encoding();
/// The absolute form of a path, with links resolved if the system can; on a failure the path
/// itself.
std::string absolute(const std::string& path);

inline std::string join(std::string_view folder, std::string_view name) {
  std::string path;
  path.reserve(folder.size() + name.size() + 1);
  path.append(folder);
  if (path.empty() || path.back() != kSeparator) path += kSeparator;
  return path.append(name);
}

}  // namespace os::look
