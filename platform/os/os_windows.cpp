#include "platform/os/os.h"

// In the library only this file includes windows.h. That header turns many names into macros, such
// as CreateDirectory. So it follows the seam's own header, which uses none of these names.
#include <windows.h>

#include <direct.h>
#include <io.h>
#include <mbctype.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <cwchar>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/os/path_root.h"
#include "platform/os/windows_results.h"

#if defined(_MSC_VER)
// GetVersion() is deprecated for its version number, which is not used here.
#pragma warning(disable : 4996)
#endif

namespace os {

Status windows::fail(std::uint32_t code) {
  const auto number = static_cast<std::int32_t>(code);
  switch (code) {
    case ERROR_FILE_NOT_FOUND:
    case ERROR_PATH_NOT_FOUND:
    case ERROR_DELETE_PENDING:  // removed, but another program still has it open
    case ERROR_ENVVAR_NOT_FOUND: return {number, Failure::kNotFound};
    case ERROR_ALREADY_EXISTS:
    case ERROR_FILE_EXISTS: return {number, Failure::kAlreadyExists};
    case ERROR_IO_PENDING:  // a lock request that may not wait is refused with either of the two
    case ERROR_LOCK_VIOLATION: return {number, Failure::kLocked};
    case ERROR_INVALID_NAME:
    case ERROR_BAD_PATHNAME:
    case ERROR_FILENAME_EXCED_RANGE: return {number, Failure::kNoName};
    default: return {number, Failure::kOther};
  }
}

}  // namespace os

namespace os::sys {

using windows::fail;

namespace {

static_assert(sizeof(OVERLAPPED) == kLockRegionSize && alignof(OVERLAPPED) == kLockRegionAlign);
static_assert(kLockFailAtOnce == LOCKFILE_FAIL_IMMEDIATELY);
static_assert(kLockExclusive == LOCKFILE_EXCLUSIVE_LOCK);
static_assert(sizeof(wchar_t) == sizeof(char16_t));

/// The longest path of the system, with its terminator.
constexpr DWORD kLongestPath = 32767;
/// The count of a transfer has 32 bits, and some drivers refuse the largest counts.
constexpr std::size_t kLargestPiece = std::size_t{1} << 30;

// ---- results -----------------------------------------------------------------------------------

/// The failure of a query about a name. A folder without any entry, and a plain file on the way,
/// have codes of their own for a missing name.
Status no_answer(DWORD code) {
  if (code == ERROR_NO_MORE_FILES || code == ERROR_DIRECTORY)
    return {static_cast<std::int32_t>(code), Failure::kNotFound};
  return fail(code);
}

/// Reads the error number before any other call, as the system requires.
Status result_of(BOOL succeeded) { return succeeded ? Status() : fail(GetLastError()); }

/// An error number of the C runtime with its meaning.
Status fail_runtime(int code) {
  switch (code) {
    case ENOENT: return {code, Failure::kNotFound};
    case EEXIST: return {code, Failure::kAlreadyExists};
    default: return {code, Failure::kOther};
  }
}

Status result_of_runtime(int returned) { return returned == 0 ? Status() : fail_runtime(errno); }

// ---- text --------------------------------------------------------------------------------------

// Wide characters of the system and of the library have the same size but two types, so texts are
// copied.

std::wstring wide_text(std::u16string_view text) { return {text.begin(), text.end()}; }

ucs2string to_ucs2(std::wstring_view text) {
  return ucs2string(std::u16string(text.begin(), text.end()));
}

/// The code page of the narrow file calls; a program can choose between two.
UINT file_code_page() { return AreFileApisANSI() ? CP_ACP : CP_OEMCP; }

/// A narrow text, read like a name in a narrow file call.
std::wstring wide_text(const char* text) {
  const UINT code_page = file_code_page();
  const int with_end = MultiByteToWideChar(code_page, 0, text, -1, nullptr, 0);
  if (with_end <= 1) return {};
  std::wstring result(static_cast<std::size_t>(with_end), L'\0');
  MultiByteToWideChar(code_page, 0, text, -1, result.data(), with_end);
  result.pop_back();
  return result;
}

/// Either path as wide text. Search for separators in this form: in a two-byte code page the second
/// byte of a character may have the value of a separator.
std::wstring wide_text(Path path) {
  return path.is_wide() ? wide_text(std::u16string_view(path.wide())) : wide_text(path.narrow());
}

std::string to_multibyte(UINT code_page, std::wstring_view text) {
  if (text.empty()) return {};
  const int length = static_cast<int>(text.size());
  const int needed =
      WideCharToMultiByte(code_page, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(std::max(needed, 0)), '\0');
  WideCharToMultiByte(code_page, 0, text.data(), length, result.data(), needed, nullptr, nullptr);
  return result;
}

/// Calls @p use with the path's text, narrow or wide. The overloads below select the system's
/// function by that type, so that both forms share one body.
template <class Use>
auto with_text(Path path, Use use) {
  return path.is_wide() ? use(wide_text(path).c_str()) : use(path.narrow());
}

/// Drops the separators at the end of a path; a root keeps its own. @return whether it dropped any.
bool trim_separators(std::wstring& path) {
  const std::size_t length = length_without_separators(std::wstring_view(path));
  const bool trimmed = length < path.size();
  path.resize(length);
  return trimmed;
}

// ---- the narrow and the wide form of each call -------------------------------------------------

constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

HANDLE create_file(const char* path, DWORD access, DWORD disposition,
                   DWORD flags = FILE_ATTRIBUTE_NORMAL) {
  return CreateFileA(path, access, kShareAll, nullptr, disposition, flags, nullptr);
}
HANDLE create_file(const wchar_t* path, DWORD access, DWORD disposition,
                   DWORD flags = FILE_ATTRIBUTE_NORMAL) {
  return CreateFileW(path, access, kShareAll, nullptr, disposition, flags, nullptr);
}

HANDLE find_first(const char* pattern, WIN32_FIND_DATAA& found) {
  return FindFirstFileA(pattern, &found);
}
HANDLE find_first(const wchar_t* pattern, WIN32_FIND_DATAW& found) {
  return FindFirstFileW(pattern, &found);
}
BOOL find_next(HANDLE search, WIN32_FIND_DATAA& found) { return FindNextFileA(search, &found); }
BOOL find_next(HANDLE search, WIN32_FIND_DATAW& found) { return FindNextFileW(search, &found); }

BOOL get_attributes(const char* path, WIN32_FILE_ATTRIBUTE_DATA& data) {
  return GetFileAttributesExA(path, GetFileExInfoStandard, &data);
}
BOOL set_attributes(const char* path, DWORD attributes) {
  return SetFileAttributesA(path, attributes);
}
BOOL set_attributes(const wchar_t* path, DWORD attributes) {
  return SetFileAttributesW(path, attributes);
}
BOOL get_attributes(const wchar_t* path, WIN32_FILE_ATTRIBUTE_DATA& data) {
  return GetFileAttributesExW(path, GetFileExInfoStandard, &data);
}

BOOL make_folder(const char* path) { return CreateDirectoryA(path, nullptr); }
BOOL make_folder(const wchar_t* path) { return CreateDirectoryW(path, nullptr); }
BOOL remove_folder(const char* path) { return RemoveDirectoryA(path); }
BOOL remove_folder(const wchar_t* path) { return RemoveDirectoryW(path); }
BOOL delete_file(const char* path) { return DeleteFileA(path); }
BOOL delete_file(const wchar_t* path) { return DeleteFileW(path); }

DWORD format_message(DWORD flags, DWORD code, DWORD language, char** text) {
  return FormatMessageA(flags, nullptr, code, language, reinterpret_cast<char*>(text), 0, nullptr);
}
DWORD format_message(DWORD flags, DWORD code, DWORD language, wchar_t** text) {
  return FormatMessageW(flags, nullptr, code, language, reinterpret_cast<wchar_t*>(text), 0,
                        nullptr);
}

template <class Character>
struct Records;
template <>
struct Records<char> {
  using Find = WIN32_FIND_DATAA;
  static std::string name(const Find& found) { return found.cFileName; }
};
template <>
struct Records<wchar_t> {
  using Find = WIN32_FIND_DATAW;
  static std::string name(const Find& found) { return to_multibyte(CP_UTF8, found.cFileName); }
};

// ---- files and folders -------------------------------------------------------------------------

struct SearchCloser {
  void operator()(HANDLE search) const { FindClose(search); }
};
using Search = std::unique_ptr<void, SearchCloser>;

/// Null if the search finds nothing; GetLastError() then returns the reason.
template <class Character>
Search start_search(const Character* pattern, typename Records<Character>::Find& found) {
  const HANDLE search = find_first(pattern, found);
  return Search(search == INVALID_HANDLE_VALUE ? nullptr : search);
}

/// Whether the path is a link to another place (a junction, a symbolic link). A folder of a cloud
/// drive is not, although it is also stored in a special way.
template <class Character>
bool is_link(const Character* path, const WIN32_FILE_ATTRIBUTE_DATA& data) {
  if (!(data.dwFileAttributes & FILE_ATTRIBUTE_REPARSE_POINT)) return false;
  typename Records<Character>::Find found{};
  return start_search(path, found) && IsReparseTagNameSurrogate(found.dwReserved0);
}

std::int64_t unix_seconds(const FILETIME& time) {
  return windows::unix_seconds(std::uint64_t{time.dwHighDateTime} << 32U | time.dwLowDateTime);
}

FileStat stat_from(const WIN32_FILE_ATTRIBUTE_DATA& data) {
  FileStat result;
  result.access_time = unix_seconds(data.ftLastAccessTime);
  result.modify_time = unix_seconds(data.ftLastWriteTime);
  result.is_directory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!result.is_directory)
    result.size = std::uint64_t{data.nFileSizeHigh} << 32U | data.nFileSizeLow;
  return result;
}

/// Whether a path is a root and ".": the form that searches for a folder's own entry.
bool is_root_searched_for(std::wstring path) {
  if (!path.ends_with(L"\\.") && !path.ends_with(L"/.")) return false;
  path.pop_back();
  trim_separators(path);
  return path.size() == root_length(std::wstring_view(path));
}

Status stat_trimmed(const wchar_t* path, FileStat& result, Links links) {
  WIN32_FILE_ATTRIBUTE_DATA attributes{};
  if (links == Links::kKeep && get_attributes(path, attributes) && is_link(path, attributes)) {
    result = stat_from(attributes);
    result.is_directory = false;
    return {};
  }
  struct _stat64 data {};
  const Status status = result_of_runtime(_wstat64(path, &data));
  if (!status.ok()) {
    // Older runtimes treat the "?" of the prefix as a pattern. Some refuse the root of a share.
    if (get_attributes(path, attributes)) {
      result = stat_from(attributes);
      return {};
    }
    // The runtime's code is that of a missing file after every failure, also if a share does not
    // answer. The meaning is the system's.
    const Failure reason = no_answer(GetLastError()).failure();
    const bool is_missing = reason == Failure::kNotFound || reason == Failure::kNoName;
    return is_missing ? status : Status(status.code(), Failure::kOther);
  }
  result.access_time = data.st_atime;
  result.modify_time = data.st_mtime;
  result.is_directory = (data.st_mode & _S_IFMT) == _S_IFDIR;
  result.is_writable = (data.st_mode & _S_IFMT) == _S_IFREG && (data.st_mode & _S_IWRITE) != 0;
  result.size = result.is_directory ? 0 : static_cast<std::uint64_t>(data.st_size);
  return {};
}

/// Whether a handle is that of a device, such as NUL or CON, or of a pipe.
bool is_device(HANDLE handle) {
  const DWORD type = GetFileType(handle);
  return type == FILE_TYPE_CHAR || type == FILE_TYPE_PIPE;
}

HANDLE system_handle(Handle handle) {
  return reinterpret_cast<HANDLE>(static_cast<INT_PTR>(handle));
}

/// Moves @p count bytes by calls of @p move_piece(offset, length, moved). Each call moves as many
/// bytes as it can; a call that moves none ends the transfer early.
template <class MovePiece>
Status transfer(std::size_t count, std::size_t& done, MovePiece move_piece) {
  done = 0;
  while (done < count) {
    DWORD moved = 0;
    const auto length = static_cast<DWORD>(std::min(count - done, kLargestPiece));
    const Status status = result_of(move_piece(done, length, moved));
    done += moved;
    if (!status.ok()) return status;
    if (moved == 0) break;
  }
  return {};
}

/// The system's text for an error number, without inserts, in a buffer that the system allocates.
template <class Character>
std::basic_string<Character> message(std::int32_t code) {
  constexpr DWORD kFlags =
      FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS;
  Character* text = nullptr;
  const DWORD language = MAKELANGID(LANG_NEUTRAL, SUBLANG_DEFAULT);
  const DWORD length = format_message(kFlags, static_cast<DWORD>(code), language, &text);
  if (length == 0) return {};
  struct Release {
    void operator()(Character* buffer) const { LocalFree(buffer); }
  };
  const std::unique_ptr<Character, Release> owner(text);
  return std::basic_string<Character>(text, length);
}

}  // namespace

// ---- files -------------------------------------------------------------------------------------

Status open(Path path, Access access, Handle& handle) {
  const bool writing = access != Access::kReadExisting;
  const DWORD rights = writing ? GENERIC_READ | GENERIC_WRITE : GENERIC_READ;
  const bool creates = writing && access != Access::kReadWriteExisting;
  const DWORD disposition = !creates                       ? OPEN_EXISTING
                            : access == Access::kCreateNew ? CREATE_NEW
                                                           : OPEN_ALWAYS;
  HANDLE opened =
      with_text(path, [&](const auto* text) { return create_file(text, rights, disposition); });
  // A read from a console or a pipe would wait. Like a folder, neither is a file.
  if (opened != INVALID_HANDLE_VALUE && is_device(opened)) {
    CloseHandle(std::exchange(opened, INVALID_HANDLE_VALUE));
    SetLastError(ERROR_ACCESS_DENIED);
  }
  // Only the lower half distinguishes handles. The upper half is sign extension, also in
  // INVALID_HANDLE_VALUE.
  handle = static_cast<Handle>(reinterpret_cast<INT_PTR>(opened));
  return result_of(opened != INVALID_HANDLE_VALUE);
}

Status close(Handle handle) { return result_of(CloseHandle(system_handle(handle))); }

Status read(Handle handle, void* buffer, std::size_t count, std::size_t& done) {
  char* const bytes = static_cast<char*>(buffer);
  return transfer(count, done, [&](std::size_t offset, DWORD length, DWORD& moved) {
    return ReadFile(system_handle(handle), bytes + offset, length, &moved, nullptr);
  });
}

Status write(Handle handle, const void* data, std::size_t count, std::size_t& done) {
  const char* const bytes = static_cast<const char*>(data);
  return transfer(count, done, [&](std::size_t offset, DWORD length, DWORD& moved) {
    return WriteFile(system_handle(handle), bytes + offset, length, &moved, nullptr);
  });
}

Status write_at(Handle handle, std::uint64_t offset, const void* data, std::size_t count,
                std::size_t& done) {
  const char* const bytes = static_cast<const char*>(data);
  return transfer(count, done, [&](std::size_t from, DWORD length, DWORD& moved) {
    const std::uint64_t at = offset + from;
    OVERLAPPED place{};
    place.Offset = static_cast<DWORD>(at);
    place.OffsetHigh = static_cast<DWORD>(at >> 32U);
    return WriteFile(system_handle(handle), bytes + from, length, &moved, &place);
  });
}

Status seek(Handle handle, std::int32_t distance, std::int16_t method) {
  // With the upper half the new position can be beyond 4 GB.
  LONG high = distance < 0 ? -1 : 0;
  SetLastError(NO_ERROR);
  const DWORD low =
      SetFilePointer(system_handle(handle), distance, &high, static_cast<DWORD>(method));
  if (low != INVALID_SET_FILE_POINTER) return {};
  // That value is also the lower half of a valid position.
  const DWORD code = GetLastError();
  return code == NO_ERROR ? Status() : fail(code);
}

Status set_end(Handle handle) { return result_of(SetEndOfFile(system_handle(handle))); }

Status size(Handle handle, std::uint64_t& bytes) {
  LARGE_INTEGER found{};
  const Status status = result_of(GetFileSizeEx(system_handle(handle), &found));
  bytes = static_cast<std::uint64_t>(found.QuadPart);
  return status;
}

Status reserve(Handle handle, std::uint64_t size) {
  LARGE_INTEGER current{};
  if (!GetFileSizeEx(system_handle(handle), &current)) return fail(GetLastError());
  // An allocation below the size would cut the file.
  if (static_cast<std::uint64_t>(current.QuadPart) >= size) return {};
  FILE_ALLOCATION_INFO wanted{};
  wanted.AllocationSize.QuadPart = static_cast<LONGLONG>(size);
  const Status reserved = result_of(SetFileInformationByHandle(
      system_handle(handle), FileAllocationInfo, &wanted, sizeof wanted));
  return reserved.code() == ERROR_DISK_FULL ? reserved : Status();
}

Status take_time(Handle from, Handle to, CopiedTime& time) {
  // On Windows an account that may write a file may also set its time.
  time = CopiedTime::kKept;
  FILETIME modified{};
  if (!GetFileTime(system_handle(from), nullptr, nullptr, &modified)) return fail(GetLastError());
  return result_of(SetFileTime(system_handle(to), nullptr, nullptr, &modified));
}

Status flush(Handle handle) { return result_of(FlushFileBuffers(system_handle(handle))); }

Status lock(Handle handle, const LockRequest& request) {
  return result_of(LockFileEx(system_handle(handle), request.flags, request.reserved,
                              request.length_low, request.length_high,
                              static_cast<OVERLAPPED*>(request.region)));
}

Status unlock(Handle handle) {
  OVERLAPPED from_start{};
  return result_of(UnlockFileEx(system_handle(handle), 0, MAXDWORD, MAXDWORD, &from_start));
}

// ---- queries ---------------------------------------------------------------------------------

Status probe_attributes(Path path) {
  WIN32_FILE_ATTRIBUTE_DATA data{};
  return with_text(path, [&](const auto* text) {
    return get_attributes(text, data) ? Status() : no_answer(GetLastError());
  });
}

Status probe_search(Path path) {
  const Status found = with_text(path, []<class Character>(const Character* text) {
    typename Records<Character>::Find entry{};
    if (start_search(text, entry)) return Status();
    return no_answer(GetLastError());
  });
  if (found.ok()) return found;
  // A root is not an entry of any folder, so no search finds it.
  const std::wstring text = wide_text(path);
  WIN32_FILE_ATTRIBUTE_DATA data{};
  if (is_root_searched_for(text) && get_attributes(text.c_str(), data)) return {};
  SetLastError(static_cast<DWORD>(found.code()));
  return found;
}

Status list(Path folder, Listing& entries) {
  const auto kind_of = [](DWORD attributes) {
    if (attributes & FILE_ATTRIBUTE_REPARSE_POINT) return EntryKind::kUnknown;
    return attributes & FILE_ATTRIBUTE_DIRECTORY ? EntryKind::kFolder : EntryKind::kFile;
  };
  return with_text(folder, [&]<class Character>(const Character* text) {
    // The empty path is not a folder, and does not mean the current one.
    if (*text == 0) return fail(ERROR_PATH_NOT_FOUND);
    std::basic_string<Character> pattern(text);
    pattern += Character('*');
    const std::size_t before = entries.size();
    typename Records<Character>::Find found{};
    const Search search = start_search(pattern.c_str(), found);
    if (!search) return no_answer(GetLastError());
    do {
      const std::string name = Records<Character>::name(found);
      if (name != "." && name != "..") entries.append(name, kind_of(found.dwFileAttributes));
    } while (find_next(search.get(), found));
    if (const DWORD code = GetLastError(); code != ERROR_NO_MORE_FILES) {
      entries.cut(before);
      return fail(code);
    }
    return Status();
  });
}

Status stat(Path path, FileStat& result, Links links) {
  std::wstring text = wide_text(path);
  const bool had_separator = trim_separators(text);
  FileStat found;
  const Status status = stat_trimmed(text.c_str(), found, links);
  if (!status.ok()) return status;
  if (had_separator && !found.is_directory) return fail_runtime(ENOENT);
  result = found;
  return {};
}

Status same_file(Path one, Path other, bool& is_same) {
  // Both files stay open until the comparison: the number of a removed file can be given again.
  const auto opened = [](Path path) {
    return with_text(path, [](const auto* text) {
      // Without this flag the system opens no folder.
      return create_file(text, 0, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    });
  };
  const HANDLE first = opened(one);
  if (first == INVALID_HANDLE_VALUE) return no_answer(GetLastError());
  const HANDLE second = opened(other);
  BY_HANDLE_FILE_INFORMATION a{};
  BY_HANDLE_FILE_INFORMATION b{};
  const bool is_told = second != INVALID_HANDLE_VALUE &&
                       GetFileInformationByHandle(first, &a) != FALSE &&
                       GetFileInformationByHandle(second, &b) != FALSE;
  const Status status = is_told ? Status() : no_answer(GetLastError());
  CloseHandle(first);
  if (second != INVALID_HANDLE_VALUE) CloseHandle(second);
  is_same = is_told && a.dwVolumeSerialNumber == b.dwVolumeSerialNumber &&
            a.nFileIndexHigh == b.nFileIndexHigh && a.nFileIndexLow == b.nFileIndexLow;
  return status;
}

Status open_folder(Path, Handle& folder) {
  folder = kNoHandle;
  return {};
}

// ---- changes -----------------------------------------------------------------------------------

Status make_writable(Path path) {
  const std::wstring text = wide_text(path);
  struct _stat64 data {};
  const int mode = _wstat64(text.c_str(), &data) == 0 ? data.st_mode : 0;
  return result_of_runtime(_wchmod(text.c_str(), mode | _S_IREAD | _S_IWRITE));
}

Status create_directory(Path path) {
  return with_text(path, [](const auto* text) { return result_of(make_folder(text)); });
}

Status remove_directory(Path path) {
  return with_text(path, [](const auto* text) { return result_of(remove_folder(text)); });
}

Status remove_file(Path path) {
  return with_text(path, [](const auto* text) {
    const Status status = result_of(delete_file(text));
    if (status.ok()) return status;
    // For the system a link to a folder is a folder. Removing it leaves the target alone.
    WIN32_FILE_ATTRIBUTE_DATA data{};
    const bool is_folder_link = get_attributes(text, data) && is_link(text, data) &&
                                (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY);
    if (is_folder_link) return result_of(remove_folder(text));
    SetLastError(static_cast<DWORD>(status.code()));
    return status;
  });
}

Status remove_file(Path path, const FileStat&) { return sys::remove_file(path); }

/// Fails if one path is narrow and the other wide; no caller does that.
Status rename(Path from, Path to) {
  if (from.is_wide() != to.is_wide()) return fail_runtime(EINVAL);
  return result_of_runtime(from.is_wide() ? _wrename(wide_text(from).c_str(), wide_text(to).c_str())
                                          : std::rename(from.narrow(), to.narrow()));
}

Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time, Flushed flushed) {
  // On Windows an account that may write a file may also set its time.
  if (time != nullptr) *time = CopiedTime::kKept;
  if (from.is_wide() != to.is_wide()) return fail(ERROR_INVALID_PARAMETER);
  const BOOL fail_if_exists = if_exists == IfExists::kFail;
  const Status copied = result_of(
      from.is_wide() ? CopyFileW(wide_text(from).c_str(), wide_text(to).c_str(), fail_if_exists)
                     : CopyFileA(from.narrow(), to.narrow(), fail_if_exists));
  if (!copied.ok() || flushed == Flushed::kNo) return copied;
  // A copy that another process has removed in between was complete.
  const Status on_device = sys::flush_file(to);
  if (on_device.failure() == Failure::kNotFound) return copied;
  if (!on_device.ok()) {
    static_cast<void>(sys::make_writable(to));
    static_cast<void>(sys::remove_file(to));
  }
  return on_device;
}

Status flush_file(Path path) {
  return with_text(path, [](const auto* text) {
    // The system flushes only a handle for writing, and nobody can open a read-only file for that.
    WIN32_FILE_ATTRIBUTE_DATA data{};
    const bool is_read_only = get_attributes(text, data) != FALSE &&
                              (data.dwFileAttributes & FILE_ATTRIBUTE_READONLY) != 0;
    if (is_read_only && !set_attributes(text, data.dwFileAttributes & ~FILE_ATTRIBUTE_READONLY))
      return fail(GetLastError());
    const HANDLE file = create_file(text, GENERIC_WRITE, OPEN_EXISTING);
    Status status = result_of(file != INVALID_HANDLE_VALUE);
    if (is_read_only) set_attributes(text, data.dwFileAttributes);
    if (!status.ok()) return status;
    status = result_of(FlushFileBuffers(file));
    CloseHandle(file);
    return status;
  });
}

// ---- names -------------------------------------------------------------------------------------

Status short_path(const ucs2string& path, ucs2string& result) {
  std::vector<wchar_t> buffer(kLongestPath);
  const DWORD length = GetShortPathNameW(wide_text(path).c_str(), buffer.data(), kLongestPath);
  if (length == 0) return fail(GetLastError());
  if (length >= kLongestPath) return fail(ERROR_BUFFER_OVERFLOW);
  result = to_ucs2({buffer.data(), length});
  return {};
}

Status current_directory(ucs2string& result) {
  std::vector<wchar_t> buffer(kLongestPath);
  if (_wgetcwd(buffer.data(), static_cast<int>(kLongestPath)) == nullptr) {
    return fail_runtime(errno);
  }
  result = to_ucs2(buffer.data());
  return {};
}

Status full_path(const ucs2string& path, ucs2string& result) {
  std::vector<wchar_t> buffer(kLongestPath);
  if (_wfullpath(buffer.data(), wide_text(path).c_str(), kLongestPath) == nullptr) {
    return fail_runtime(errno);
  }
  result = to_ucs2(buffer.data());
  return {};
}

Status program_folder(ucs2string& result) {
  std::vector<wchar_t> buffer(kLongestPath);
  const DWORD length = GetModuleFileNameW(nullptr, buffer.data(), kLongestPath);
  if (length == 0) return fail(GetLastError());
  // A path that does not fit is cut, and the rest does not show its folder.
  if (length >= kLongestPath) return fail(ERROR_BUFFER_OVERFLOW);
  std::wstring path(buffer.data(), length);
  path.resize(path.find_last_of(L"\\/") + 1);
  trim_separators(path);
  result = to_ucs2(path);
  return {};
}

Status temporary_folder(ucs2string& result) {
  std::vector<wchar_t> buffer(kLongestPath);
  const DWORD length = GetTempPathW(kLongestPath, buffer.data());
  if (length == 0) return fail(GetLastError());
  if (length >= kLongestPath) return fail(ERROR_BUFFER_OVERFLOW);
  std::wstring path(buffer.data(), length);
  trim_separators(path);
  result = to_ucs2(path);
  return {};
}

Status environment(const std::string& variable, ucs2string& value) {
  const std::wstring name = wide_text(variable.c_str());
  DWORD size = GetEnvironmentVariableW(name.c_str(), nullptr, 0);
  std::wstring text;
  // The value may grow between the two calls.
  while (size > text.size()) {
    text.resize(size);
    size = GetEnvironmentVariableW(name.c_str(), text.data(), static_cast<DWORD>(text.size()));
  }
  if (size == 0) return fail(GetLastError());
  text.resize(size);
  value = to_ucs2(text);
  return {};
}

std::string to_narrow(const ucs2string& text) {
  return to_multibyte(file_code_page(), wide_text(std::u16string_view(text.str())));
}

bool narrow_of(const std::string& utf8, std::string& narrow) {
  const int length = static_cast<int>(utf8.size());
  const int units =
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, nullptr, 0);
  if (units == 0 && !utf8.empty()) return false;
  std::wstring wide(static_cast<std::size_t>(units), L'\0');
  MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, utf8.data(), length, wide.data(), units);
  std::string text = to_multibyte(file_code_page(), wide);
  // The system replaces a character by a similar one, but that is the name of another file.
  if (wide_text(text.c_str()) != wide) return false;
  narrow = std::move(text);
  return true;
}

std::string utf8_of(const std::string& narrow) {
  return to_multibyte(CP_UTF8, wide_text(narrow.c_str()));
}

std::string native_form(const std::string& narrow) {
  std::string path = utf8_of(narrow);
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

bool is_lead_byte(unsigned char byte) { return _ismbblead(byte) != 0; }

// ---- the rest ----------------------------------------------------------------------------------

std::int32_t last_error() { return static_cast<std::int32_t>(GetLastError()); }

std::string error_text(std::int32_t code) { return message<char>(code); }

ucs2string error_text_wide(std::int32_t code) { return to_ucs2(message<wchar_t>(code)); }

std::int64_t now() { return _time64(nullptr); }

bool nt_family() {
  constexpr DWORD kNotNt = 0x80000000;
  return (GetVersion() & kNotNt) == 0;
}

bool locks_belong_to_handles(Path) { return true; }

}  // namespace os::sys
