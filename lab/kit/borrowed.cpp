#include "lab/kit/borrowed.h"

#include <windows.h>

#include <fstream>
#include <string>
#include <utility>

#include "lab/kit/folders.h"
#include "lab/kit/program.h"

namespace kit {
namespace {

/// Whether a path leads to the folder or into it; letters count in either case.
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

/// The disk that the case of a full disk makes, in a folder of its own below "tmp".
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
