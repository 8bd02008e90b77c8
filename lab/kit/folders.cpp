#include "lab/kit/folders.h"

#include <algorithm>
#include <fstream>
#include <stdexcept>
#include <string>
#include <utility>

#include <windows.h>

#include "lab/kit/kit.h"

namespace kit {
namespace {

constexpr const wchar_t* kName = L"vu-kit-run-";
/// Stays open during the run.
constexpr const wchar_t* kTaken = L"in-use";

DWORD attributes_of(const std::filesystem::path& path) {
  return ::GetFileAttributesW(long_form(path).c_str());
}
bool is_there(const std::filesystem::path& path) {
  return attributes_of(path) != INVALID_FILE_ATTRIBUTES;
}

/// Removes what it can, without a retry. @return whether everything is removed.
bool remove_once(const std::filesystem::path& path) {
  const DWORD attributes = attributes_of(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return true;
  const std::wstring name = long_form(path);
  if ((attributes & FILE_ATTRIBUTE_READONLY) != 0)
    ::SetFileAttributesW(name.c_str(), FILE_ATTRIBUTE_NORMAL);
  const bool is_folder = (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
  if (!is_folder) return ::DeleteFileW(name.c_str()) != FALSE;
  if ((attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0) {
    WIN32_FIND_DATAW data = {};
    const HANDLE search = ::FindFirstFileW((name + L"\\*").c_str(), &data);
    if (search != INVALID_HANDLE_VALUE) {
      do {
        const std::wstring each = data.cFileName;
        if (each != L"." && each != L"..") remove_once(path / each);
      } while (::FindNextFileW(search, &data));
      ::FindClose(search);
    }
  }
  return ::RemoveDirectoryW(name.c_str()) != FALSE;
}

/// Null if another run uses the folder.
HANDLE take(const std::filesystem::path& folder) {
  const HANDLE file = ::CreateFileW(long_form(folder / kTaken).c_str(), GENERIC_WRITE, 0, nullptr,
                                    CREATE_ALWAYS, FILE_ATTRIBUTE_NORMAL, nullptr);
  return file == INVALID_HANDLE_VALUE ? nullptr : file;
}

/// Removes the folders of killed runs.
void remove_remains(const std::filesystem::path& where) {
  WIN32_FIND_DATAW data = {};
  const HANDLE search = ::FindFirstFileW((long_form(where) + L"\\" + kName + L"*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::filesystem::path folder = where / data.cFileName;
    const bool is_ours = is_there(folder / kTaken);
    const HANDLE taken = is_ours ? take(folder) : nullptr;
    if (taken == nullptr) continue;
    ::CloseHandle(taken);
    give_back_what_was_borrowed(folder);
    remove_once(folder);
  } while (::FindNextFileW(search, &data));
  ::FindClose(search);
}

}  // namespace

std::string utf8_of(const std::wstring& text) {
  const int length = static_cast<int>(text.size());
  const int size =
      ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, nullptr, 0, nullptr, nullptr);
  std::string result(static_cast<std::size_t>(size), '\0');
  ::WideCharToMultiByte(CP_UTF8, 0, text.data(), length, result.data(), size, nullptr, nullptr);
  return result;
}

std::filesystem::path full_path(const std::filesystem::path& path) {
  std::wstring text(32768, L'\0');
  text.resize(
      ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(text.size()), text.data(), nullptr));
  while (text.size() > 3 && text.back() == L'\\') text.pop_back();
  return text;
}

bool is_on_share(const std::filesystem::path& path) {
  const std::wstring text = path.wstring();
  return text.rfind(L"\\\\", 0) == 0 && text.rfind(L"\\\\?\\", 0) != 0;
}

std::filesystem::path parent_of(const std::filesystem::path& path) {
  const std::wstring text = path.wstring();
  // "D:\" and "\\server\share" have no parent.
  std::size_t root = 3;
  if (text.rfind(L"\\\\", 0) == 0) root = text.find(L'\\', text.find(L'\\', 2) + 1);
  const std::size_t end = text.find_last_of(L'\\');
  if (end == std::wstring::npos || root == std::wstring::npos || text.size() <= root) return path;
  return text.substr(0, std::max(end, root));
}

std::string system_text(unsigned long code) {
  wchar_t text[512] = L"";
  const DWORD size = ::FormatMessageW(FORMAT_MESSAGE_FROM_SYSTEM | FORMAT_MESSAGE_IGNORE_INSERTS,
                                      nullptr, code, 0, text, 512, nullptr);
  std::wstring words(text, size);
  while (!words.empty() && (words.back() <= L' ' || words.back() == L'.')) words.pop_back();
  return utf8_of(words) + " (" + std::to_string(code) + ")";
}

std::wstring long_form(const std::filesystem::path& path) {
  const std::wstring text = path.wstring();
  if (text.rfind(L"\\\\?\\", 0) == 0) return text;
  if (text.rfind(L"\\\\", 0) == 0) return L"\\\\?\\UNC" + text.substr(1);
  return L"\\\\?\\" + text;
}

std::vector<std::filesystem::path> make_folders(const std::filesystem::path& folder) {
  std::vector<std::filesystem::path> missing;
  for (std::filesystem::path each = folder; !is_there(each); each = parent_of(each)) {
    if (each == parent_of(each)) break;
    missing.insert(missing.begin(), each);
  }
  for (const std::filesystem::path& next : missing) {
    if (!::CreateDirectoryW(long_form(next).c_str(), nullptr)) {
      throw std::runtime_error("the folder " + utf8_of(next.wstring()) +
                               " cannot be created: " + system_text(::GetLastError()));
    }
  }
  return missing;
}

bool remove_tree(const std::filesystem::path& folder) {
  // A process that has just ended, or a virus scanner, may still have a file open.
  for (int attempt = 0; attempt < 50; ++attempt) {
    if (remove_once(folder)) return true;
    ::Sleep(100);
  }
  return false;
}

bool replace_file(const std::filesystem::path& path, const std::string& bytes) {
  const std::wstring target = long_form(path);
  const std::wstring next = target + L".new";
  const HANDLE file = ::CreateFileW(next.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD done = 0;
  const bool is_written =
      ::WriteFile(file, bytes.data(), static_cast<DWORD>(bytes.size()), &done, nullptr) != FALSE &&
      done == bytes.size();
  ::CloseHandle(file);
  // A viewer or a scanner may have the old file open for a moment.
  for (int attempt = 0; is_written && attempt < 20; ++attempt) {
    if (::MoveFileExW(next.c_str(), target.c_str(), MOVEFILE_REPLACE_EXISTING)) return true;
    ::Sleep(100);
  }
  ::DeleteFileW(next.c_str());
  return false;
}

bool is_ascii(const std::wstring& text) {
  return std::all_of(text.begin(), text.end(), [](wchar_t c) { return c < 128; });
}

std::filesystem::path short_form(const std::filesystem::path& folder) {
  constexpr std::size_t kLong = 60;
  if (is_ascii(folder.wstring()) && folder.wstring().size() <= kLong) return folder;
  std::wstring path(32768, L'\0');
  path.resize(::GetShortPathNameW(folder.c_str(), path.data(), static_cast<DWORD>(path.size())));
  const bool is_shorter = path.size() < folder.wstring().size();
  const bool is_better =
      !path.empty() && (is_ascii(folder.wstring()) ? is_shorter : is_ascii(path));
  return is_better ? std::filesystem::path(path) : folder;
}

WorkFolder::WorkFolder(const std::filesystem::path& where) : m_made(make_folders(where)) {
  remove_remains(where);
  for (int number = 1; m_taken == nullptr; ++number) {
    m_path = where / (kName + std::to_wstring(number));
    if (is_there(m_path)) continue;
    make_folders(m_path);
    m_taken = take(m_path);
    if (m_taken == nullptr) {
      throw std::runtime_error("cannot write in " + utf8_of(m_path.wstring()) + ": " +
                               system_text(::GetLastError()));
    }
  }
}

WorkFolder::~WorkFolder() { remove(); }

bool WorkFolder::remove() {
  if (m_taken == nullptr) return true;
  ::CloseHandle(m_taken);
  m_taken = nullptr;
  give_back_what_was_borrowed(m_path);
  const bool has_gone = remove_tree(m_path);
  // The innermost first. A folder that now contains something stays.
  for (auto each = m_made.rbegin(); each != m_made.rend(); ++each)
    ::RemoveDirectoryW(long_form(*each).c_str());
  return has_gone;
}

// ------------------------------------------------------------------------------------------------

namespace {

/// Whether a path is the folder or inside it, ignoring case.
bool is_in(std::wstring path, const std::filesystem::path& folder) {
  path += L"\\";
  const std::wstring begin = folder.wstring() + L"\\";
  return path.size() >= begin.size() &&
         ::CompareStringOrdinal(path.data(), static_cast<int>(begin.size()), begin.data(),
                                static_cast<int>(begin.size()), TRUE) == CSTR_EQUAL;
}

void give_back_letters(const std::filesystem::path& folder) {
  const std::wstring mark = L"\\??\\";
  const std::filesystem::path shorter = short_form(folder);
  for (wchar_t letter = L'A'; letter <= L'Z'; ++letter) {
    const std::wstring drive = std::wstring(1, letter) + L":";
    wchar_t target[4096] = L"";
    if (::QueryDosDeviceW(drive.c_str(), target, 4096) == 0) continue;
    const std::wstring whole = target;
    if (whole.rfind(mark, 0) != 0) continue;
    std::wstring path = whole.substr(mark.size());
    if (path.rfind(L"UNC\\", 0) == 0) path = L"\\\\" + path.substr(4);
    if (!is_in(path, folder) && !is_in(path, shorter)) continue;
    constexpr DWORD kExactly =
        DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE | DDD_RAW_TARGET_PATH;
    ::DefineDosDeviceW(kExactly, drive.c_str(), whole.c_str());
  }
}

/// Detaches the disk of the full-disk case, which is in a folder below "tmp".
void give_back_disks(const std::filesystem::path& folder) {
  const std::filesystem::path below = folder / "tmp";
  WIN32_FIND_DATAW data = {};
  const HANDLE search = ::FindFirstFileW(long_form(below / L"vu_test_*").c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return;
  do {
    const std::filesystem::path disk = below / data.cFileName / L"disk.vhd";
    if (::GetFileAttributesW(long_form(disk).c_str()) == INVALID_FILE_ATTRIBUTES) continue;
    const std::filesystem::path script = folder / "detach.txt";
    std::ofstream(script) << "select vdisk file=\"" << utf8_of(short_form(disk).wstring())
                          << "\"\ndetach vdisk\n";
    run(L"diskpart.exe /s " + quoted(script.wstring()), folder, folder / "detach.log",
        std::chrono::seconds(90));
  } while (::FindNextFileW(search, &data));
  ::FindClose(search);
}

}  // namespace

BorrowedLetter::BorrowedLetter(std::filesystem::path folder) : m_folder(std::move(folder)) {
  const DWORD used = ::GetLogicalDrives();
  for (wchar_t letter = L'Z'; letter > L'C' && m_drive.empty(); --letter) {
    if ((used >> (letter - L'A') & 1U) == 0) m_drive = std::wstring(1, letter) + L":";
  }
  if (m_drive.empty() || !::DefineDosDeviceW(0, m_drive.c_str(), m_folder.c_str())) {
    m_drive.clear();
  } else if (::GetFileAttributesW(root().c_str()) == INVALID_FILE_ATTRIBUTES) {
    ::DefineDosDeviceW(DDD_REMOVE_DEFINITION, m_drive.c_str(), m_folder.c_str());
    m_drive.clear();
  }
}

BorrowedLetter::~BorrowedLetter() {
  constexpr DWORD kExactly = DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE;
  if (!m_drive.empty()) ::DefineDosDeviceW(kExactly, m_drive.c_str(), m_folder.c_str());
}

std::filesystem::path BorrowedLetter::root() const {
  return m_drive.empty() ? std::filesystem::path() : std::filesystem::path(m_drive + L"\\");
}

void give_back_what_was_borrowed(const std::filesystem::path& folder) {
  give_back_letters(folder);
  give_back_disks(folder);
}

}  // namespace kit
