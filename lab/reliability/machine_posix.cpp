#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>
#include <stdexcept>
#include <system_error>

#include "lab/reliability/machine.h"
#include "tests/support/process.h"

namespace reliability::machine {

os::Status status_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNotFound: return {ENOENT, os::Failure::kNotFound};
    case Trouble::kDenied: return {EACCES, os::Failure::kOther};
    case Trouble::kDiskFull: return {ENOSPC, os::Failure::kOther};
    case Trouble::kLocked: return {EAGAIN, os::Failure::kLocked};
    case Trouble::kNoName: return {ENAMETOOLONG, os::Failure::kNoName};
    case Trouble::kBroken: return {EIO, os::Failure::kOther};
  }
  return {};
}

void prepare_process() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  std::signal(SIGPIPE, SIG_IGN);
}

void set_variable(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

std::string memory_folder() {
  const std::string folder = "/dev/shm";
  return ::access(folder.c_str(), W_OK) == 0 ? folder : std::string();
}

std::uint64_t open_handles() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  // Does not count the descriptor of this listing.
  return static_cast<std::uint64_t>(std::distance(begin(all), end(all))) - 1;
}

std::uint64_t memory_in_use() {
  const struct ::mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::uint64_t memory_slack() { return 4096; }

bool large_folders_are_slow() { return false; }

bool stale_copies_are_harmless() { return true; }

void stop(child_process& helper) { helper.stop(); }

void resume(child_process& helper) { helper.resume(); }

int run_apart(const std::string& role, const std::vector<std::string>& args) {
  std::fflush(nullptr);
  const ::pid_t child = ::fork();
  if (child == 0) {
    std::vector<std::string> words = {"reliability", "--role=" + role};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& each : words) pointers.push_back(each.data());
    std::_Exit(run_role(static_cast<int>(pointers.size()), pointers.data()).value_or(2));
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool handles_and_allocations_are_exact() { return true; }

bool sees_the_sources() { return true; }

bool is_superuser() { return ::geteuid() == 0; }

}  // namespace reliability::machine

// ------------------------------------------------------------------------------------------------

namespace reliability::ground {
namespace {

std::string native(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

void check(int result, const char* what, const std::string& path) {
  if (result < 0)
    throw std::system_error(errno, std::generic_category(), std::string(what) + " " + path);
}

std::string bytes_of(int folder, const char* name, std::size_t size) {
  const int file = ::openat(folder, name, O_RDONLY | O_CLOEXEC);
  check(file, "open", name);
  std::string bytes(size + 1, '\0');
  const ::ssize_t count = ::read(file, bytes.data(), bytes.size());
  ::close(file);
  check(static_cast<int>(count), "read", name);
  bytes.resize(static_cast<std::size_t>(count));
  return bytes;
}

std::string difference_of_file(int folder, const char* name, const struct ::stat& info,
                               const model::Node& expected) {
  if (expected.is_folder) return " is a file";
  const std::string bytes = bytes_of(folder, name, static_cast<std::size_t>(info.st_size));
  if (bytes != expected.bytes)
    return " contains " + shown(bytes) + " instead of " + shown(expected.bytes);
  if (info.st_mtime != expected.time)
    return " has the time " + std::to_string(info.st_mtime) + " instead of " +
           std::to_string(expected.time);
  const bool read_only = (info.st_mode & S_IWUSR) == 0;
  if (read_only != expected.is_read_only) return read_only ? " is read-only" : " is not read-only";
  return "";
}

std::string walk(int descriptor, const std::string& path, const model::Node* expected,
                 After after) {
  ::DIR* const folder = ::fdopendir(descriptor);
  if (folder == nullptr) throw std::system_error(errno, std::generic_category(), "list " + path);
  std::string result;
  std::size_t met = 0;
  while (const ::dirent* entry = ::readdir(folder)) {
    const std::string name = entry->d_name;
    if (name == "." || name == "..") continue;
    const model::Node* node = nullptr;
    if (expected != nullptr) {
      const auto found = expected->names.find(name);
      if (found != expected->names.end()) node = &found->second;
      if (node == nullptr && result.empty()) result = path + "\\" + name + " should not be there";
      if (node != nullptr) ++met;
    }
    struct ::stat info = {};
    check(::fstatat(descriptor, entry->d_name, &info, AT_SYMLINK_NOFOLLOW), "stat", name);
    const bool is_folder = S_ISDIR(info.st_mode);
    if (is_folder) {
      const int inner = ::openat(descriptor, entry->d_name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
      check(inner, "open", name);
      if (node != nullptr && !node->is_folder && result.empty())
        result = path + "\\" + name + " is a folder";
      const std::string below = walk(inner, path + "\\" + name, node, after);
      if (result.empty()) result = below;
    } else if (node != nullptr && result.empty()) {
      const std::string here = difference_of_file(descriptor, entry->d_name, info, *node);
      if (!here.empty()) result = path + "\\" + name + here;
    }
    if (after == After::kEmpty)
      check(::unlinkat(descriptor, entry->d_name, is_folder ? AT_REMOVEDIR : 0), "remove", name);
  }
  if (expected != nullptr && result.empty() && met != expected->names.size()) {
    for (const auto& [name, node] : expected->names) {
      struct ::stat info = {};
      // With After::kEmpty the found names are already removed, so this reports all names.
      if (after == After::kEmpty || ::fstatat(descriptor, name.c_str(), &info, AT_SYMLINK_NOFOLLOW))
        result += (result.empty() ? path + " should contain " : ", ") + name;
    }
  }
  ::closedir(folder);
  return result;
}

}  // namespace

void write(const std::string& path, const std::string& bytes) {
  const int file = ::open(native(path).c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  check(file, "open", path);
  const ::ssize_t count = ::write(file, bytes.data(), bytes.size());
  ::close(file);
  check(static_cast<int>(count), "write", path);
}

void make_folder(const std::string& path) {
  check(::mkdir(native(path).c_str(), 0777), "make", path);
}

void remove(const std::string& path) {
  const std::string name = native(path);
  if (::unlink(name.c_str()) == 0) return;
  check(::rmdir(name.c_str()), "remove", path);
}

void set_time(const std::string& path, std::int64_t seconds) {
  const ::timespec both[2] = {{seconds, 0}, {seconds, 0}};
  check(::utimensat(AT_FDCWD, native(path).c_str(), both, 0), "set the time of", path);
}

void set_read_only(const std::string& path, bool read_only) {
  check(::chmod(native(path).c_str(), read_only ? 0444 : 0644), "mark", path);
}

std::vector<std::string> listing(const std::string& path) {
  std::vector<std::string> names;
  ::DIR* const folder = ::opendir(native(path).c_str());
  if (folder == nullptr) return names;
  while (const ::dirent* entry = ::readdir(folder)) {
    const std::string name = entry->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(folder);
  return names;
}

std::string difference(const std::string& path, const model::Node& expected, After after) {
  const int folder = ::open(native(path).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  check(folder, "open", path);
  return walk(folder, path, &expected, after);
}

}  // namespace reliability::ground
