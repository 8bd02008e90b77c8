#include "platform/os/look.h"

// This header turns many names into macros, so it follows the seam's own header.
#include <windows.h>

#include <algorithm>
#include <array>
#include <cwchar>
#include <string>

#include "platform/os/windows_results.h"

namespace os::look {

using windows::fail;

namespace {

constexpr std::size_t kClassicLimit = 240;

/// A long absolute path in the form without the classic limit.
std::string reachable(const std::string& path) {
  if (path.size() < kClassicLimit || path.starts_with(R"(\\)") || path.find(':') != 1) return path;
  std::string result = R"(\\?\)" + path;
  std::replace(result.begin(), result.end(), '/', '\\');
  return result;
}

std::uint64_t ticks_of(const FILETIME& time) {
  return std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime;
}

Kind kind_of(DWORD attributes) {
  if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return Kind::kLink;
  if (attributes & FILE_ATTRIBUTE_DIRECTORY) return Kind::kFolder;
  return attributes & FILE_ATTRIBUTE_DEVICE ? Kind::kOther : Kind::kFile;
}

/// @tparam Record WIN32_FIND_DATAA or WIN32_FILE_ATTRIBUTE_DATA: both have these fields.
template <class Record>
Info info_from(const Record& record) {
  Info info;
  info.kind = kind_of(record.dwFileAttributes);
  info.is_read_only =
      info.kind == Kind::kFile && (record.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
  info.size = std::uint64_t{record.nFileSizeHigh} << 32U | record.nFileSizeLow;
  if (info.kind == Kind::kFolder) info.size = 0;
  info.modify_time = windows::unix_seconds(ticks_of(record.ftLastWriteTime));
  info.access_time = windows::unix_seconds(ticks_of(record.ftLastAccessTime));
  info.change_mark = static_cast<std::int64_t>(ticks_of(record.ftLastWriteTime));
  return info;
}

std::string narrow(const wchar_t* text) {
  const int needed = WideCharToMultiByte(CP_ACP, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (needed <= 1) return {};
  std::string result(static_cast<std::size_t>(needed), '\0');
  WideCharToMultiByte(CP_ACP, 0, text, -1, result.data(), needed, nullptr, nullptr);
  result.pop_back();
  return result;
}

}  // namespace

// ---- folders -----------------------------------------------------------------------------------

struct Folder::Part {
  std::string path;
  HANDLE search = INVALID_HANDLE_VALUE;
  WIN32_FIND_DATAA found{};
  bool is_first = false;

  ~Part() { close(); }
  void close() {
    if (search != INVALID_HANDLE_VALUE) FindClose(search);
    search = INVALID_HANDLE_VALUE;
  }
};

Folder::Folder() = default;
Folder::~Folder() = default;
Folder::Folder(Folder&&) noexcept = default;
Folder& Folder::operator=(Folder&&) noexcept = default;

Status Folder::open(const std::string& path) {
  if (!m_part) m_part = std::make_unique<Part>();
  m_part->close();
  m_part->path = path;
  m_part->search = FindFirstFileExA(reachable(join(path, "*")).c_str(), FindExInfoBasic,
                                    &m_part->found, FindExSearchNameMatch, nullptr, 0);
  m_part->is_first = m_part->search != INVALID_HANDLE_VALUE;
  return m_status = m_part->is_first ? Status() : fail(GetLastError());
}

Status Folder::open_below(const Folder& parent, const Entry& entry) {
  return open(join(parent.m_part->path, entry.name));
}

bool Folder::next(Entry& entry) {
  Part& part = *m_part;
  for (;;) {
    if (part.is_first) {
      part.is_first = false;
    } else if (!FindNextFileA(part.search, &part.found)) {
      const DWORD code = GetLastError();
      if (code != ERROR_NO_MORE_FILES) m_status = fail(code);
      return false;
    }
    const std::string_view name = part.found.cFileName;
    if (name == "." || name == "..") continue;
    entry.name = name;
    entry.kind = kind_of(part.found.dwFileAttributes);
    return true;
  }
}

Info Folder::describe(const Entry&) { return info_from(m_part->found); }

Info describe(const std::string& path) {
  WIN32_FILE_ATTRIBUTE_DATA found{};
  if (GetFileAttributesExA(reachable(path).c_str(), GetFileExInfoStandard, &found))
    return info_from(found);
  const DWORD code = GetLastError();
  Info info;
  // A plain file on the way to a name has a code of its own.
  if (code != ERROR_DIRECTORY) info.kind = kind_after(fail(code));
  return info;
}

// ---- files -------------------------------------------------------------------------------------

namespace {

HANDLE handle_of(std::intptr_t file) { return reinterpret_cast<HANDLE>(file); }

}  // namespace

Status QuietFile::open(const std::string& path) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  constexpr DWORD kFlags = FILE_FLAG_OPEN_REPARSE_POINT | FILE_FLAG_SEQUENTIAL_SCAN;
  close();
  const HANDLE file = CreateFileA(reachable(path).c_str(), GENERIC_READ, kShareAll, nullptr,
                                  OPEN_EXISTING, kFlags, nullptr);
  if (file == INVALID_HANDLE_VALUE) return fail(GetLastError());
  m_file = reinterpret_cast<std::intptr_t>(file);
  BY_HANDLE_FILE_INFORMATION found{};
  if (!GetFileInformationByHandle(file, &found)) return fail(GetLastError());
  return kind_of(found.dwFileAttributes) == Kind::kFile ? Status() : fail(ERROR_ACCESS_DENIED);
}

void QuietFile::close() {
  if (m_file != kNone) CloseHandle(handle_of(m_file));
  m_file = kNone;
}

Status QuietFile::try_lock() {
  OVERLAPPED whole{};
  const bool is_locked = LockFileEx(handle_of(m_file), LOCKFILE_FAIL_IMMEDIATELY, 0, MAXDWORD,
                                    MAXDWORD, &whole) != FALSE;
  return is_locked ? Status() : fail(GetLastError());
}

Status QuietFile::read(char* to, std::size_t count, std::size_t& done) {
  constexpr std::size_t kLargestPiece = std::size_t{1} << 30U;
  DWORD got = 0;
  const DWORD asked = static_cast<DWORD>(std::min(count, kLargestPiece));
  const bool is_read = ReadFile(handle_of(m_file), to, asked, &got, nullptr) != 0;
  done = is_read ? got : 0;
  return is_read ? Status() : fail(GetLastError());
}

Status probe_writable(const std::string& path) {
  const std::string name = reachable(path);
  const DWORD attributes = ::GetFileAttributesA(name.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return fail(::GetLastError());
  const bool is_folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  // For a folder the attribute has no meaning.
  if (!is_folder && (attributes & FILE_ATTRIBUTE_READONLY) != 0) return fail(ERROR_ACCESS_DENIED);
  const DWORD asked = is_folder ? FILE_ADD_FILE | FILE_DELETE_CHILD : FILE_WRITE_DATA;
  const HANDLE handle =
      ::CreateFileA(name.c_str(), asked, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                    nullptr, OPEN_EXISTING, is_folder ? FILE_FLAG_BACKUP_SEMANTICS : 0, nullptr);
  if (handle == INVALID_HANDLE_VALUE) return fail(::GetLastError());
  ::CloseHandle(handle);
  return {};
}

// A new file inherits its owner and its permissions from the folder, as the other file did.
Status take_over_owner(const std::string&, const std::string&) { return {}; }

Status replace_file(const std::string& from, const std::string& to) {
  const bool done = ::MoveFileExA(reachable(from).c_str(), reachable(to).c_str(),
                                  MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0;
  return done ? Status() : fail(::GetLastError());
}

// Only administrators may flush a volume.
std::vector<bool> flush_file_systems(const std::vector<std::string>& paths) {
  return std::vector<bool>(paths.size(), false);
}

// NTFS keeps a journal of names, so they need no flush.
Status flush_files(const std::vector<std::string>& files, const std::vector<std::string>&) {
  for (const std::string& path : files) {
    if (const Status flushed = os::flush_file(path); !flushed.ok()) return flushed;
  }
  return {};
}

// ---- the system --------------------------------------------------------------------------------

// Windows reports which programs have a file open, not which one has a lock on it, and only for one
// file at a time. The result would mix readers and writers.
Knowledge find_locks(const std::string&, std::vector<HeldLock>&) { return Knowledge::kNone; }

FileSystem file_system_of(const std::string& path) {
  FileSystem result;
  std::array<char, MAX_PATH + 1> volume{};
  if (!GetVolumePathNameA(path.c_str(), volume.data(), MAX_PATH)) return result;
  std::array<char, MAX_PATH + 1> type{};
  DWORD flags = 0;
  if (GetVolumeInformationA(volume.data(), nullptr, 0, nullptr, nullptr, &flags, type.data(),
                            MAX_PATH)) {
    result.type = type.data();
    result.is_read_only = (flags & FILE_READ_ONLY_VOLUME) != 0;
  }
  result.is_network = GetDriveTypeA(volume.data()) == DRIVE_REMOTE;
  ULARGE_INTEGER available{};
  ULARGE_INTEGER total{};
  if (GetDiskFreeSpaceExA(path.c_str(), &available, &total, nullptr)) {
    result.free_bytes = available.QuadPart;
    result.total_bytes = total.QuadPart;
  }
  return result;
}

std::string system_name() {
  std::array<wchar_t, 64> build{};
  DWORD size = sizeof build;
  // GetVersion() depends on the program's manifest; the registry does not.
  const LSTATUS asked =
      RegGetValueW(HKEY_LOCAL_MACHINE, LR"(SOFTWARE\Microsoft\Windows NT\CurrentVersion)",
                   L"CurrentBuildNumber", RRF_RT_REG_SZ, nullptr, build.data(), &size);
  return asked == ERROR_SUCCESS ? "Windows build " + narrow(build.data()) : "Windows";
}

std::string narrow_encoding() {
  const UINT page = GetACP();
  return page == CP_UTF8 ? "UTF-8" : "code page " + std::to_string(page);
}

std::string absolute(const std::string& path) {
  const DWORD needed = GetFullPathNameA(path.c_str(), 0, nullptr, nullptr);
  if (needed == 0) return path;
  std::string result(needed, '\0');
  const DWORD length = GetFullPathNameA(path.c_str(), needed, result.data(), nullptr);
  result.resize(length);
  while (result.size() > 3 && result.back() == kSeparator) result.pop_back();
  return result;
}

}  // namespace os::look
