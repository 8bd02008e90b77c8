#include <dirent.h>
#include <fcntl.h>
#include <langinfo.h>
#include <sys/stat.h>
#include <sys/statfs.h>
#include <sys/utsname.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <clocale>
#include <cstdlib>
#include <fstream>
#include <map>
#include <sstream>
#include <string>
#include <utility>

#include "platform/os/look.h"
#include "platform/os/posix_calls.h"

// "::" marks the functions of the system.
namespace os::look {

using posix::Descriptor;
using posix::fail;
using posix::result_of;

namespace {

constexpr int kLook = O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NOCTTY | O_NONBLOCK;

/// Opens without changing the access time, if the user is the owner or the superuser.
Descriptor open_quietly(int folder, const char* name, int flags) {
  int number = ::openat(folder, name, kLook | flags | O_NOATIME);
  if (number < 0 && errno == EPERM) number = ::openat(folder, name, kLook | flags);
  return Descriptor(number);
}

Kind kind_of(::mode_t mode) {
  if (S_ISREG(mode)) return Kind::kFile;
  if (S_ISDIR(mode)) return Kind::kFolder;
  return S_ISLNK(mode) ? Kind::kLink : Kind::kOther;
}

Kind kind_of_type(unsigned char type) {
  switch (type) {
    case DT_REG: return Kind::kFile;
    case DT_DIR: return Kind::kFolder;
    case DT_LNK: return Kind::kLink;
    default: return Kind::kOther;
  }
}

Info describe_at(int folder, const char* name) {
  struct ::stat found {};
  Info info;
  if (::fstatat(folder, name, &found, AT_SYMLINK_NOFOLLOW) != 0) {
    info.kind = kind_after(posix::no_answer(errno));
    return info;
  }
  info.kind = kind_of(found.st_mode);
  info.is_read_only = info.kind == Kind::kFile && !(found.st_mode & S_IWUSR);
  info.size = static_cast<std::uint64_t>(found.st_size);
  info.modify_time = found.st_mtim.tv_sec;
  info.access_time = found.st_atim.tv_sec;
  // Nobody can set this time back, unlike the time of the last write.
  info.change_mark = std::int64_t{found.st_ctim.tv_sec} * 1'000'000'000 + found.st_ctim.tv_nsec;
  return info;
}

// ---- who holds locks ---------------------------------------------------------------------------

std::string read_link(const std::string& path) {
  std::array<char, 4096> text{};
  const ::ssize_t length = ::readlink(path.c_str(), text.data(), text.size());
  return length > 0 ? std::string(text.data(), static_cast<std::size_t>(length)) : std::string();
}

/// Reads the lock of one open file of a process from its fdinfo text:
/// "lock:  1: OFDLCK  ADVISORY  WRITE 4242 08:01:1234 0 EOF".
bool parse_lock(const std::string& text, HeldLock& lock) {
  const std::size_t at = text.find("lock:");
  if (at == std::string::npos) return false;
  const std::string line = text.substr(at, text.find('\n', at) - at);
  lock.is_exclusive = line.find(" WRITE ") != std::string::npos;
  lock.is_whole_file = line.ends_with(" 0 EOF");
  return true;
}

std::string first_line(const std::string& path) {
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  return line;
}

std::string whole_text(const std::string& path) {
  std::ifstream file(path);
  return {std::istreambuf_iterator<char>(file), {}};
}

bool is_number(std::string_view text) {
  return !text.empty() && text.find_first_not_of("0123456789") == std::string_view::npos;
}

/// Whether a process is ending or gone, so that its locks end soon. The system shows the files of
/// such a process only to the superuser, whoever owned it.
bool is_ending(const std::string& process) {
  const std::string stat = whole_text("/proc/" + process + "/stat");
  // "42 (its name) Z 1 ...": the sixth number after the state contains the flags, with PF_EXITING.
  const std::size_t name_end = stat.rfind(')');
  if (name_end == std::string::npos) return true;
  constexpr unsigned long kExiting = 0x4;
  std::istringstream fields(stat.substr(name_end + 1));
  std::string skipped;
  for (int i = 0; i < 6; ++i) fields >> skipped;
  unsigned long flags = 0;
  return fields >> flags && (flags & kExiting) != 0;
}

/// The locks of one process. False if the system does not allow access.
bool locks_of_process(const std::string& process, const std::string& prefix,
                      std::vector<HeldLock>& locks) {
  const std::string base = "/proc/" + process;
  Folder files;
  const Status opened = files.open(base + "/fd");
  if (!opened.ok()) return opened.failure() == Failure::kNotFound || is_ending(process);
  Entry entry;
  while (files.next(entry)) {
    const std::string number(entry.name);
    const std::string path = read_link(base + "/fd/" + number);
    if (!path.starts_with(prefix)) continue;
    HeldLock lock;
    if (!parse_lock(whole_text(base + "/fdinfo/" + number), lock)) continue;
    lock.path = path;
    std::from_chars(process.data(), process.data() + process.size(), lock.process);
    lock.command = first_line(base + "/comm");
    locks.push_back(std::move(lock));
  }
  return true;
}

// ---- flushing ----------------------------------------------------------------------------------

/// For this number of files or more, one flush of the file system costs less than separate flushes.
constexpr std::size_t kManyFlushes = 5;

/// Flushes all files of the file system that contains @p path.
bool flush_file_system(const std::string& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  return file.valid() && ::syncfs(file.get()) == 0;
}

Status flush_names(const std::string& path) {
  const Descriptor folder(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_DIRECTORY));
  if (!folder.valid()) return fail(errno);
  // Some file systems refuse this: names need no flush there.
  if (::fsync(folder.get()) != 0 && errno != EINVAL && errno != ENOTSUP) return fail(errno);
  return {};
}

// ---- file systems ------------------------------------------------------------------------------

/// Decodes escapes in the list of mounts, such as "\040" for a blank.
std::string unescape_mount(std::string_view text) {
  std::string result;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '\\' && i + 3 < text.size()) {
      result += static_cast<char>((text[i + 1] - '0') * 64 + (text[i + 2] - '0') * 8 +
                                  (text[i + 3] - '0'));
      i += 3;
    } else {
      result += text[i];
    }
  }
  return result;
}

/// The type of the file system mounted nearest above a path; of two at one place, the later one.
std::string mounted_type(const std::string& path) {
  std::ifstream mounts("/proc/self/mounts");
  std::string device;
  std::string place;
  std::string type;
  std::string rest;
  std::string best;
  std::string found;
  while (mounts >> device >> place >> type && std::getline(mounts, rest)) {
    place = unescape_mount(place);
    const std::string below = place == "/" ? place : place + "/";
    if ((path + "/").starts_with(below) && below.size() >= best.size()) {
      best = below;
      found = type;
    }
  }
  return found;
}

bool is_network_type(std::string_view type) {
  return type.starts_with("nfs") || type == "cifs" || type == "smb3" || type == "9p" ||
         type.starts_with("fuse.sshfs") || type == "fuse.glusterfs" || type == "ceph" ||
         type == "afs";
}

}  // namespace

// ---- folders -----------------------------------------------------------------------------------

struct Folder::Part {
  ::DIR* stream = nullptr;

  ~Part() { close(); }
  void close() {
    if (stream != nullptr) ::closedir(stream);
    stream = nullptr;
  }
  Status open(int above, const char* name) {
    Descriptor folder = open_quietly(above, name, O_DIRECTORY);
    const int code = errno;
    close();
    if (!folder.valid()) return fail(code);
    stream = ::fdopendir(folder.get());
    if (stream == nullptr) return fail(errno);
    folder.release();
    return {};
  }
};

Folder::Folder() = default;
Folder::~Folder() = default;
Folder::Folder(Folder&&) noexcept = default;
Folder& Folder::operator=(Folder&&) noexcept = default;

Status Folder::open(const std::string& path) {
  if (!m_part) m_part = std::make_unique<Part>();
  return m_status = m_part->open(AT_FDCWD, path.c_str());
}

Status Folder::open_below(const Folder& parent, const Entry& entry) {
  if (!m_part) m_part = std::make_unique<Part>();
  return m_status = m_part->open(::dirfd(parent.m_part->stream), entry.name.data());
}

bool Folder::next(Entry& entry) {
  if (!m_status.ok()) return false;
  for (;;) {
    errno = 0;
    const ::dirent* const record = ::readdir(m_part->stream);
    if (record == nullptr) {
      if (errno != 0) m_status = fail(errno);
      return false;
    }
    entry.name = record->d_name;
    if (entry.name == "." || entry.name == "..") continue;
    entry.kind = record->d_type == DT_UNKNOWN
                     ? describe_at(::dirfd(m_part->stream), record->d_name).kind
                     : kind_of_type(record->d_type);
    return true;
  }
}

Info Folder::describe(const Entry& entry) {
  return describe_at(::dirfd(m_part->stream), entry.name.data());
}

Info describe(const std::string& path) { return describe_at(AT_FDCWD, path.c_str()); }

// ---- files -------------------------------------------------------------------------------------

Status QuietFile::open(const std::string& path) {
  close();
  Descriptor file = open_quietly(AT_FDCWD, path.c_str(), 0);
  if (!file.valid()) return fail(errno);
  struct ::stat found {};
  if (::fstat(file.get(), &found) != 0) return fail(errno);
  if (!S_ISREG(found.st_mode)) return fail(S_ISDIR(found.st_mode) ? EISDIR : EINVAL);
  m_file = file.release();
  return {};
}

void QuietFile::close() {
  if (m_file != kNone) ::close(static_cast<int>(m_file));
  m_file = kNone;
}

Status QuietFile::try_lock() {
  const int file = static_cast<int>(m_file);
  if (posix::set_whole_file_lock(file, F_OFD_SETLK, F_RDLCK) == 0) return {};
  return posix::is_refusal(errno) ? fail(EAGAIN, Failure::kLocked) : fail(errno);
}

Status QuietFile::read(char* to, std::size_t count, std::size_t& done) {
  const ::ssize_t got =
      posix::uninterrupted([&] { return ::read(static_cast<int>(m_file), to, count); });
  done = got > 0 ? static_cast<std::size_t>(got) : 0;
  return got < 0 ? fail(errno) : Status();
}

Status probe_writable(const std::string& path) {
  struct ::stat found {};
  if (::stat(path.c_str(), &found) != 0) return fail(errno);
  const bool is_folder = S_ISDIR(found.st_mode);
  // Required: even the superuser's programs leave a read-only file alone.
  if (!is_folder && !(found.st_mode & S_IWUSR)) return fail(EACCES);
  const int asked = is_folder ? W_OK | X_OK : R_OK | W_OK;
  return result_of(::faccessat(AT_FDCWD, path.c_str(), asked, AT_EACCESS));
}

Status take_over_owner(const std::string& from, const std::string& to) {
  struct ::stat found {};
  struct ::stat made {};
  if (::stat(from.c_str(), &found) != 0 || ::stat(to.c_str(), &made) != 0) return fail(errno);
  if (::getxattr(from.c_str(), "system.posix_acl_access", nullptr, 0) >= 0) return fail(EPERM);
  const bool is_other = found.st_uid != made.st_uid || found.st_gid != made.st_gid;
  if (is_other && ::chown(to.c_str(), found.st_uid, found.st_gid) != 0) return fail(errno);
  constexpr ::mode_t kPermissions = 07777;
  return result_of(::chmod(to.c_str(), found.st_mode & kPermissions));
}

Status replace_file(const std::string& from, const std::string& to) {
  return result_of(::rename(from.c_str(), to.c_str()));
}

std::vector<bool> flush_file_systems(const std::vector<std::string>& paths) {
  std::vector<bool> flushed(paths.size(), false);
  if (paths.size() < kManyFlushes) return flushed;
  // An area or an owner's folder can be a mount of its own.
  std::map<::dev_t, std::vector<std::size_t>> by_device;
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (const auto info = posix::info_of(paths[i].c_str())) by_device[info->st_dev].push_back(i);
  }
  for (const auto& [device, files] : by_device) {
    if (files.size() < kManyFlushes) continue;
    const bool is_flushed = flush_file_system(paths[files.front()]);
    for (const std::size_t i : files) flushed[i] = is_flushed;
  }
  return flushed;
}

Status flush_files(const std::vector<std::string>& files, const std::vector<std::string>& folders) {
  std::vector<std::string> paths = files;
  paths.insert(paths.end(), folders.begin(), folders.end());
  const std::vector<bool> is_flushed = flush_file_systems(paths);
  for (std::size_t i = 0; i < paths.size(); ++i) {
    if (is_flushed[i]) continue;
    const Status flushed = i < files.size() ? os::flush_file(paths[i]) : flush_names(paths[i]);
    if (!flushed.ok()) return flushed;
  }
  return {};
}

// ---- the system --------------------------------------------------------------------------------

Knowledge find_locks(const std::string& folder, std::vector<HeldLock>& locks) {
  Folder processes;
  if (!processes.open("/proc").ok()) return Knowledge::kNone;
  const std::string prefix = join(absolute(folder), "");
  bool complete = true;
  Entry entry;
  while (processes.next(entry)) {
    if (!is_number(entry.name)) continue;
    if (!locks_of_process(std::string(entry.name), prefix, locks)) complete = false;
  }
  std::sort(locks.begin(), locks.end(), [](const HeldLock& one, const HeldLock& other) {
    return std::tie(one.path, one.process) < std::tie(other.path, other.process);
  });
  return complete ? Knowledge::kComplete : Knowledge::kPartial;
}

FileSystem file_system_of(const std::string& path) {
  FileSystem result;
  result.type = mounted_type(absolute(path));
  result.is_network = is_network_type(result.type);
  struct ::statfs found {};
  if (::statfs(path.c_str(), &found) != 0) return result;
  constexpr long kReadOnlyFlag = 1;  // ST_RDONLY, as statfs() returns it
  result.is_read_only = (static_cast<long>(found.f_flags) & kReadOnlyFlag) != 0;
  const auto block = static_cast<std::uint64_t>(found.f_bsize);
  result.total_bytes = static_cast<std::uint64_t>(found.f_blocks) * block;
  result.free_bytes = static_cast<std::uint64_t>(found.f_bavail) * block;
  return result;
}

std::string system_name() {
  struct ::utsname name {};
  if (::uname(&name) != 0) return "unknown";
  return std::string(name.sysname) + " " + name.release + " " + name.machine;
}

std::string narrow_encoding() {
  // From a new locale: that of the program may be "C", whatever the user has set.
  const ::locale_t locale = ::newlocale(LC_CTYPE_MASK, "", nullptr);
  if (locale == nullptr) return "bytes";
  std::string result = ::nl_langinfo_l(CODESET, locale);
  ::freelocale(locale);
  return result;
}

std::string absolute(const std::string& path) {
  const std::unique_ptr<char, decltype(&std::free)> real(::realpath(path.c_str(), nullptr),
                                                         &std::free);
  return real ? std::string(real.get()) : path;
}

}  // namespace os::look
