#include "tests/support/scratch.h"

#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <random>
#include <system_error>
#include <thread>

#if defined(_WIN32)
#include <windows.h>

#include <sys/utime.h>
#else
#include <fcntl.h>
#endif

namespace fs = std::filesystem;

namespace {

constexpr char kLongPrefix[] = "\\\\?\\";

[[noreturn]] void fail(const char* what, const std::string& path, int code) {
  throw fs::filesystem_error(std::string("test support: ") + what, native(path),
                             std::error_code(code, std::generic_category()));
}

struct Times {
  std::int64_t access;
  std::int64_t modify;
};

#if defined(_WIN32)

std::string utf8(const fs::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}

fs::path wide(const std::string& text) { return std::u8string(text.begin(), text.end()); }

Times times_of(const std::string& path) {
  struct ::_stat64 info = {};
  if (::_wstat64(native(path).c_str(), &info) != 0) fail("stat", path, errno);
  return {info.st_atime, info.st_mtime};
}

void set_times(const std::string& path, const Times& times) {
  struct ::__utimbuf64 buffer = {times.access, times.modify};
  if (::_wutime64(native(path).c_str(), &buffer) != 0) fail("utime", path, errno);
}

// The runtime's directory iterator uses a buffer of the classic path limit; with a longer path it
// lists another folder. The system's search has no such limit.

/// The names in a folder that match a pattern.
std::vector<std::string> names_in(const fs::path& folder, const wchar_t* pattern = L"*") {
  std::vector<std::string> names;
  ::WIN32_FIND_DATAW found = {};
  const HANDLE search = ::FindFirstFileW((folder.native() + L"\\" + pattern).c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) {
    const DWORD code = ::GetLastError();
    if (code == ERROR_FILE_NOT_FOUND) return names;
    throw fs::filesystem_error("test support: list", folder,
                               std::error_code(static_cast<int>(code), std::system_category()));
  }
  do {
    const std::wstring name = found.cFileName;
    if (name != L"." && name != L"..") names.push_back(utf8(name));
  } while (::FindNextFileW(search, &found));
  ::FindClose(search);
  return names;
}

bool is_real_folder(const fs::path& path) {
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0 &&
         (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0;
}

/// Whether the last name of the path has exactly the spelling of the file.
bool is_spelled_so(const fs::path& path) {
  const std::wstring last = path.filename().native();
  if (last.empty() || last.find_first_of(L"*?") != std::wstring::npos) return false;
  const std::vector<std::string> names = names_in(path.parent_path(), last.c_str());
  return std::find(names.begin(), names.end(), utf8(last)) != names.end();
}

void remove_one(const fs::path& path, std::error_code& error) {
  ::SetFileAttributesW(path.c_str(), FILE_ATTRIBUTE_NORMAL);
  const DWORD attributes = ::GetFileAttributesW(path.c_str());
  const bool folder =
      attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!(folder ? ::RemoveDirectoryW(path.c_str()) : ::DeleteFileW(path.c_str()))) {
    error.assign(static_cast<int>(::GetLastError()), std::system_category());
  }
}

/// A form of the path that also works for deep paths below it.
fs::path long_form(const std::string& path) { return wide(kLongPrefix + path); }

fs::path child_of(const fs::path& folder, const std::string& name) {
  return folder.native() + L"\\" + wide(name).native();
}

#else

std::string utf8(const fs::path& path) { return path.native(); }

std::vector<std::string> names_in(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& entry : fs::directory_iterator(folder)) {
    names.push_back(utf8(entry.path().filename()));
  }
  return names;
}

bool is_real_folder(const fs::path& path) {
  return fs::symlink_status(path).type() == fs::file_type::directory;
}

bool is_spelled_so(const fs::path&) { return true; }

fs::path long_form(const std::string& path) { return native(path); }

// A name may contain a backslash on Linux; do not split it.
fs::path child_of(const fs::path& folder, const std::string& name) { return folder / name; }

void remove_one(const fs::path& path, std::error_code& error) {
  std::error_code problem;
  fs::remove(path, problem);
  if (problem) error = problem;
}

Times times_of(const std::string& path) {
  struct ::stat info = {};
  if (::stat(native(path).c_str(), &info) != 0) fail("stat", path, errno);
  return {info.st_atim.tv_sec, info.st_mtim.tv_sec};
}

void set_times(const std::string& path, const Times& times) {
  const ::timespec both[2] = {{times.access, 0}, {times.modify, 0}};
  if (::utimensat(AT_FDCWD, native(path).c_str(), both, 0) != 0) fail("utimensat", path, errno);
}

#endif

fs::path temporary_root() {
  const char* const named = std::getenv("VU_TEST_TMP");
  const fs::path root =
      named != nullptr && *named != '\0' ? native(named) : fs::temp_directory_path();
  return fs::absolute(root);
}

/// The path without a trailing separator; on Windows with "\" only.
std::string plain_text(const fs::path& path) {
  std::string text = utf8(path.lexically_normal());
  while (text.size() > 1 && (text.back() == '/' || text.back() == '\\')) text.pop_back();
#if defined(_WIN32)
  std::replace(text.begin(), text.end(), '/', '\\');
#endif
  return text;
}

/// Removes what it can. @param error the last failure.
void remove_tree(const fs::path& path, std::error_code& error) {
  if (is_real_folder(path)) {
    std::error_code ignored;
    fs::permissions(path, fs::perms::owner_all, fs::perm_options::add, ignored);
    for (const std::string& each : names_in(path)) remove_tree(child_of(path, each), error);
  }
  remove_one(path, error);
}

}  // namespace

scratch_folder::scratch_folder() {
  const fs::path root = temporary_root();
  fs::create_directories(root);
  std::random_device random;
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string name = "vu_test_" + std::to_string(random());
    // False if the name is taken: another process may have drawn the same one.
    if (fs::create_directory(root / name)) {
      m_path = plain_text(root / name);
      return;
    }
  }
  fail("no fresh folder", plain_text(root), EEXIST);
}

scratch_folder::~scratch_folder() {
  // A process that was just killed may still have a file open for a moment.
  std::error_code error;
  for (int attempt = 0; attempt < 100; ++attempt) {
    error.clear();
    try {
      remove_tree(long_form(m_path), error);
    } catch (const fs::filesystem_error& e) {
      error = e.code();
    }
    if (!error) return;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  std::cerr << "test support: cannot remove " << m_path << ": " << error.message() << std::endl;
}

fs::path native(const std::string& path) {
  std::string text = path;
#if defined(_WIN32)
  std::replace(text.begin(), text.end(), '/', '\\');
  const bool drive = text.size() > 2 && text[1] == ':' && text[2] == '\\';
  if (drive && text.size() > 200) text.insert(0, kLongPrefix);
  return wide(text);
#else
  if (text.rfind(kLongPrefix, 0) == 0) text.erase(0, sizeof kLongPrefix - 1);
  std::replace(text.begin(), text.end(), '\\', '/');
  return fs::path(text);
#endif
}

std::string system_temporary_folder() { return plain_text(fs::temp_directory_path()); }

void write_file(const std::string& path, const std::string& bytes) {
  std::ofstream out(native(path), std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) fail("write", path, EIO);
}

std::string read_file(const std::string& path) {
  std::ifstream in(native(path), std::ios::binary);
  if (!in) fail("open for reading", path, ENOENT);
  std::string bytes(std::istreambuf_iterator<char>(in), {});
  if (in.bad()) fail("read", path, EIO);
  return bytes;
}

bool file_exists(const std::string& path) {
  std::error_code error;
  return fs::exists(fs::symlink_status(native(path), error)) && is_spelled_so(native(path));
}

bool folder_exists(const std::string& path) {
  std::error_code error;
  return fs::is_directory(native(path), error);
}

void set_modify_time(const std::string& path, std::int64_t seconds) {
  set_times(path, {seconds, seconds});
}

std::int64_t get_modify_time(const std::string& path) { return times_of(path).modify; }

void set_access_time(const std::string& path, std::int64_t seconds) {
  set_times(path, {seconds, times_of(path).modify});
}

std::vector<std::string> list_folder(const std::string& path) {
  std::vector<std::string> names = names_in(native(path));
  std::sort(names.begin(), names.end());
  return names;
}

void make_folder(const std::string& path) { fs::create_directories(native(path)); }

void make_read_only(const std::string& path) {
  constexpr fs::perms kWrite =
      fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
  fs::permissions(native(path), kWrite, fs::perm_options::remove);
}

void make_writable(const std::string& path) {
  fs::permissions(native(path), fs::perms::owner_read | fs::perms::owner_write,
                  fs::perm_options::add);
}

bool is_writable(const std::string& path) {
  return (fs::status(native(path)).permissions() & fs::perms::owner_write) != fs::perms::none;
}
