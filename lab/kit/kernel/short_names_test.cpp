#include <string>

#include "lab/kit/kernel/kernel.h"
#include "vu_fileutf8.h"

namespace {

/// Takes the short name from a file: some volumes have none. @return the system's code.
DWORD drop_short_name(const std::wstring& long_path) {
  // Asked for by name: an emulator may not have it.
  using Function = BOOL(WINAPI*)(HANDLE, const wchar_t*);
  const auto set_name = reinterpret_cast<Function>(reinterpret_cast<void*>(
      ::GetProcAddress(::GetModuleHandleA("kernel32.dll"), "SetFileShortNameW")));
  if (set_name == nullptr || is_emulated()) return ERROR_CALL_NOT_IMPLEMENTED;
  HANDLE token = nullptr;
  if (::OpenProcessToken(::GetCurrentProcess(), TOKEN_ADJUST_PRIVILEGES, &token)) {
    TOKEN_PRIVILEGES wanted = {};
    wanted.PrivilegeCount = 1;
    wanted.Privileges[0].Attributes = SE_PRIVILEGE_ENABLED;
    ::LookupPrivilegeValueA(nullptr, "SeRestorePrivilege", &wanted.Privileges[0].Luid);
    ::AdjustTokenPrivileges(token, FALSE, &wanted, 0, nullptr, nullptr);
    ::CloseHandle(token);
  }
  const HANDLE file = ::CreateFileW(long_path.c_str(), GENERIC_WRITE | DELETE, kAllShared, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
  if (file == INVALID_HANDLE_VALUE) return ::GetLastError();
  const DWORD code = set_name(file, L"") ? 0 : ::GetLastError();
  ::CloseHandle(file);
  return code;
}

bool has_short_name(const std::wstring& path) {
  WIN32_FIND_DATAW data = {};
  const HANDLE search = ::FindFirstFileW(path.c_str(), &data);
  if (search == INVALID_HANDLE_VALUE) return false;
  ::FindClose(search);
  return data.cAlternateFileName[0] != L'\0';
}

}  // namespace

TEST_F(Kernel, AFileWithoutAShortNameIsOpenedByItsLongPath) {
  settles(12, "paths beyond 260 characters on a volume without short names");
  const std::wstring part =
      L"a long name, so that there could be a short one" + std::wstring(40, L'n');
  std::string folder = m_scratch.path();
  // Only the wide calls go beyond the classic limit.
  std::wstring wide = L"\\\\?\\" + std::wstring(folder.begin(), folder.end());
  bool is_short = false;
  DWORD code = 0;
  while (wide.size() < 400) {
    wide += L"\\" + part;
    ASSERT_TRUE(::CreateDirectoryW(wide.c_str(), nullptr)) << ::GetLastError();
    is_short = has_short_name(wide);
    if (is_short) code = drop_short_name(wide);
  }
  folder.assign(wide.begin() + 4, wide.end());
  if (has_short_name(wide))
    GTEST_SKIP() << "this volume has short names, and this account cannot take one away (" << code
                 << ")";
  const vu_utf8string file(folder + "\\file of a long path.text");
  vu_fileutf8 writer(file);
  writer.open(vu_file_base::o_truncate);
  ASSERT_TRUE(writer.is_open());
  writer.write("0123456789");
  writer.close();
  EXPECT_TRUE(vu_fileutf8::exists(file));
  EXPECT_EQ(vu_fileutf8::size(file), 10U);
  vu_fileutf8::remove(file, true);
  EXPECT_FALSE(vu_fileutf8::exists(file));
  found(is_short ? "the short name was taken away; the long path was used"
                 : "there are no short names here; the long path was used");
}
