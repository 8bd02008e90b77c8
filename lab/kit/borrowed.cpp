#include "lab/kit/borrowed.h"

#include <windows.h>

#include <fstream>
#include <string>

#include "lab/kit/folders.h"
#include "lab/kit/program.h"

namespace kit {
namespace {

/// Whether a path lies in the folder; letters count in either case.
bool is_in(const std::wstring& path, const std::filesystem::path& folder) {
  const std::wstring begin = folder.wstring() + L"\\";
  return path.size() > begin.size() &&
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
    const std::wstring path = whole.substr(mark.size());
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

void give_back_what_was_borrowed(const std::filesystem::path& folder) {
  give_back_letters(folder);
  give_back_disks(folder);
}

}  // namespace kit
