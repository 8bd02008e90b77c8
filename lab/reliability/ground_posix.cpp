#include "lab/reliability/ground.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <stdexcept>
#include <system_error>

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
    return " holds " + shown(bytes) + " instead of " + shown(expected.bytes);
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
      // Where everything was removed, those that were met are gone as well: the count tells.
      if (after == After::kEmpty || ::fstatat(descriptor, name.c_str(), &info, AT_SYMLINK_NOFOLLOW))
        result += (result.empty() ? path + " should hold " : ", ") + name;
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
