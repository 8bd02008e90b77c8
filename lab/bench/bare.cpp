#include "lab/bench/bare.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace bare {
namespace {

using Info = struct ::stat;

void lock(int descriptor, short type, const std::string& path) {
  struct ::flock request {};
  request.l_type = type;
  request.l_whence = SEEK_SET;
  if (::fcntl(descriptor, F_OFD_SETLKW, &request) != 0) broken("cannot lock", path);
}

/// Required: no user may write a read-only file. The system lets the superuser open it.
Info writable_info(int descriptor, const std::string& path) {
  Info info{};
  if (descriptor < 0 || ::fstat(descriptor, &info) != 0) broken("cannot open", path);
  if (!S_ISREG(info.st_mode) || !(info.st_mode & S_IWUSR)) broken("cannot write", path);
  return info;
}

}  // namespace

void broken(const char* what, const std::string& path) {
  std::fprintf(stderr, "error: %s %s: %s\n", what, path.c_str(), std::strerror(errno));
  std::exit(1);
}

// ---- files -------------------------------------------------------------------------------------

File::File(const std::string& path, Mode mode)
    : m_path(path),
      m_descriptor(::open(path.c_str(),
                          O_CLOEXEC | (mode == Mode::kRead ? O_RDONLY : O_RDWR | O_CREAT), 0666)) {
  if (m_descriptor < 0) broken("cannot open", path);
  if (mode != Mode::kRead) static_cast<void>(writable_info(m_descriptor, path));
  lock(m_descriptor, mode == Mode::kRead ? F_RDLCK : F_WRLCK, path);
}

File::File(File&& other) noexcept
    : m_path(std::move(other.m_path)), m_descriptor(std::exchange(other.m_descriptor, -1)) {}

File::~File() {
  if (m_descriptor < 0) return;
  lock(m_descriptor, F_UNLCK, m_path);
  ::close(m_descriptor);
}

std::size_t File::size() const {
  Info info{};
  if (::stat(m_path.c_str(), &info) != 0) broken("no size of", m_path);
  return static_cast<std::size_t>(info.st_size);
}

Text File::read() const {
  Text text(size());
  read_into(text.data(), text.view().size());
  return text;
}

void File::read_into(char* buffer, std::size_t wanted) const {
  for (std::size_t done = 0; done < wanted;) {
    const ::ssize_t count = ::read(m_descriptor, buffer + done, wanted - done);
    if (count <= 0) broken("cannot read", "an open file");
    done += static_cast<std::size_t>(count);
  }
}

void File::write_at(std::size_t offset, std::string_view bytes) const {
  const ::ssize_t count =
      ::pwrite(m_descriptor, bytes.data(), bytes.size(), static_cast<::off_t>(offset));
  if (count != static_cast<::ssize_t>(bytes.size())) broken("cannot write", "an open file");
}

void File::cut(std::size_t size) const {
  if (::ftruncate(m_descriptor, static_cast<::off_t>(size)) != 0) broken("cannot cut", "a file");
}

void File::reserve(std::size_t size) const {
  // Best effort: some file systems cannot reserve space.
  static_cast<void>(::fallocate(m_descriptor, FALLOC_FL_KEEP_SIZE, 0, static_cast<::off_t>(size)));
}

void File::flush() const {
  if (::fsync(m_descriptor) != 0) broken("cannot flush", "a file");
}

Text read_locked(const std::string& path) { return File(path, File::Mode::kRead).read(); }

// ---- names -------------------------------------------------------------------------------------

bool entry_exists(const std::string& path) {
  Info info{};
  return ::lstat(path.c_str(), &info) == 0;
}

bool is_folder(const std::string& path) {
  Info info{};
  return ::stat(path.c_str(), &info) == 0 && S_ISDIR(info.st_mode);
}

long modify_time(const std::string& path) {
  Info info{};
  return ::stat(path.c_str(), &info) == 0 ? static_cast<long>(info.st_mtime) : 0;
}

std::size_t list(const std::string& folder) {
  DIR* const stream = ::opendir(folder.c_str());
  if (stream == nullptr) broken("cannot list", folder);
  std::size_t count = 0;
  while (::readdir(stream) != nullptr) ++count;
  ::closedir(stream);
  return count;
}

void make_writable(const std::string& path) {
  constexpr ::mode_t kOwner = S_IRUSR | S_IWUSR;
  Info info{};
  if (::stat(path.c_str(), &info) != 0) broken("cannot ask for", path);
  if ((info.st_mode & kOwner) == kOwner) return;
  if (::chmod(path.c_str(), (info.st_mode & 07777) | kOwner) != 0)
    broken("cannot make writable", path);
}

void remove_file(const std::string& path) {
  if (::unlink(path.c_str()) != 0) broken("cannot remove", path);
}

void rename(const std::string& from, const std::string& to) {
  if (::rename(from.c_str(), to.c_str()) != 0) broken("cannot rename", from);
}

void copy_onto(const std::string& from, const std::string& to, Flush flush) {
  const int source = ::open(from.c_str(), O_RDONLY | O_CLOEXEC);
  const int target = ::open(to.c_str(), O_WRONLY | O_CLOEXEC | O_CREAT, 0666);
  Info info{};
  if (source < 0 || ::fstat(source, &info) != 0) broken("cannot copy", from);
  // Required: a file is not copied onto itself.
  const Info target_info = writable_info(target, to);
  if (info.st_dev == target_info.st_dev && info.st_ino == target_info.st_ino)
    broken("the same file:", to);
  // Required: a copy respects the locks of other handles. So the target is cut under its lock.
  lock(source, F_RDLCK, from);
  lock(target, F_WRLCK, to);
  if (::ftruncate(target, 0) != 0) broken("cannot cut", to);
  ::off_t left = info.st_size;
  while (left > 0) {
    const ::ssize_t count =
        ::copy_file_range(source, nullptr, target, nullptr, static_cast<std::size_t>(left), 0);
    if (count <= 0) broken("cannot copy", from);
    left -= count;
  }
  const std::array<timespec, 2> times = {timespec{0, UTIME_NOW}, info.st_mtim};
  if (::futimens(target, times.data()) != 0) broken("cannot set the times of", to);
  if (flush == Flush::kYes && ::fsync(target) != 0) broken("cannot flush", to);
  // A child process that was forked meanwhile would keep locks that end only with the descriptors.
  lock(target, F_UNLCK, to);
  lock(source, F_UNLCK, from);
  ::close(source);
  ::close(target);
}

}  // namespace bare
