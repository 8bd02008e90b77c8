// Other file systems, full disks, and short names.

#include <cstdlib>
#include <stdexcept>
#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "tests/support/process.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

/// Fills a disk completely; give_back() frees some bytes again.
class Filler {
 public:
  explicit Filler(const std::string& path)
      : m_file(path, GENERIC_WRITE, kAllShared, CREATE_ALWAYS) {
    if (!m_file.is_open()) throw std::runtime_error("cannot fill the disk");
    for (std::size_t piece = 1U << 20U; piece >= 512; piece /= 2) {
      const std::string bytes(piece, 'f');
      DWORD done = 0;
      while (::WriteFile(m_file.get(), bytes.data(), static_cast<DWORD>(piece), &done, nullptr) &&
             done == piece) {
        m_size += piece;
        if (m_size > kMost) throw std::runtime_error("this disk is too large to fill");
      }
    }
  }
  void give_back(std::int64_t bytes) {
    m_size -= bytes;
    LARGE_INTEGER position = {};
    position.QuadPart = m_size;
    if (!::SetFilePointerEx(m_file.get(), position, nullptr, FILE_BEGIN) ||
        !::SetEndOfFile(m_file.get()))
      throw std::runtime_error("cannot truncate the filler: " + std::to_string(::GetLastError()));
  }

 private:
  static constexpr std::int64_t kMost = 200'000'000;
  RawFile m_file;
  std::int64_t m_size = 0;
};

std::string name_of(int number) { return "document " + std::to_string(number) + ".kdc"; }

/// Replaces documents by larger ones while free space shrinks. @return how many calls were refused.
/// @throws std::runtime_error for a document that is neither old nor new.
std::string store_on_a_full_disk(const std::string& folder) {
  constexpr int kDocuments = 20;
  Store store(folder + "\\tree");
  for (int i = 0; i < kDocuments; ++i) {
    if (store.put(name_of(i), std::string(2000, 'o')) != VU_DONE)
      throw std::runtime_error("the disk is too small for the old documents");
  }
  const std::string larger(12'000, 'n');
  int refused = 0;
  {
    Filler filler(folder + "\\filler");
    for (int i = 0; i < kDocuments; ++i) {
      if (i >= kDocuments / 2) filler.give_back(4096);
      const vu_status status = store.put(name_of(i), larger);
      if (status != VU_DONE) ++refused;
      const std::string content = store.content(name_of(i));
      const bool is_old = content == std::string(2000, 'o');
      if (!(content == larger || (is_old && status != VU_DONE)))
        throw std::runtime_error(name_of(i) + " is lost: " + content.substr(0, 40));
    }
    if (store.names().size() != kDocuments) throw std::runtime_error("a document is lost");
  }
  DeleteFileA((folder + "\\filler").c_str());
  for (const std::string& each : store.names()) store.remove(each);
  const std::string afterwards = work_in(store);
  if (afterwards != "all right") throw std::runtime_error("afterwards: " + afterwards);
  return std::to_string(refused) + " of " + std::to_string(kDocuments) + " calls were refused";
}

int fill_a_disk(const std::vector<std::string>& args) {
  try {
    say("right: " + store_on_a_full_disk(args.at(0)));
  } catch (const std::exception& reason) {
    say(reason.what());
  }
  return 0;
}
REGISTER_ROLE(fill_a_disk, fill_a_disk)

/// A small disk in a file, mounted as a folder. Needs an administrator. The destructor detaches it.
class SmallDisk {
 public:
  SmallDisk(const std::string& file, const std::string& folder) : m_file(file), m_folder(folder) {
    make_folder(folder);
    m_is_made = run_diskpart("create vdisk file=\"" + m_file + "\" maximum=16 type=fixed\n" +
                             "select vdisk file=\"" + m_file + "\"\nattach vdisk\n" +
                             "create partition primary\nformat fs=ntfs quick label=vu_kit\n" +
                             "assign mount=\"" + m_folder + "\"\n");
  }
  ~SmallDisk() {
    run_diskpart("select vdisk file=\"" + m_file + "\"\ndetach vdisk\n");
    ::RemoveDirectoryA(m_folder.c_str());
    ::DeleteFileA(m_file.c_str());
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  bool is_made() const { return m_is_made; }
  const std::string& words() const { return m_words; }

 private:
  bool run_diskpart(const std::string& script) {
    const std::string path = m_file + ".txt";
    write_file(path, script);
    std::string line = "diskpart.exe /s \"" + path + "\"";
    STARTUPINFOA start = {};
    start.cb = sizeof start;
    PROCESS_INFORMATION info = {};
    if (!::CreateProcessA(nullptr, line.data(), nullptr, nullptr, FALSE, CREATE_NO_WINDOW, nullptr,
                          nullptr, &start, &info)) {
      m_words = "cannot start diskpart: " + std::to_string(::GetLastError());
      return false;
    }
    const bool is_over = ::WaitForSingleObject(info.hProcess, 90'000) == WAIT_OBJECT_0;
    DWORD code = 1;
    ::GetExitCodeProcess(info.hProcess, &code);
    ::CloseHandle(info.hThread);
    ::CloseHandle(info.hProcess);
    ::DeleteFileA(path.c_str());
    if (!is_over || code != 0) m_words = "diskpart ended with " + std::to_string(code);
    return is_over && code == 0;
  }

  std::string m_file;
  std::string m_folder;
  bool m_is_made = false;
  std::string m_words;
};

void expect_nothing_is_lost_on(const std::string& folder) {
  child_process child("fill_a_disk", {folder});
  const std::string said = child.next_line().value_or("the process ended without output");
  child.wait();
  vu_file::recurseRemoveDir(folder + "\\tree");
  constexpr char kRight[] = "right: ";
  const bool is_right = said.rfind(kRight, 0) == 0;
  found(is_right ? said.substr(sizeof kRight - 1) : said);
  EXPECT_TRUE(is_right) << said;
  EXPECT_NE(said.rfind("right: 0 of", 0), 0U) << "the disk was not full";
}

/// Example: "D: FAT32". Without network drives.
std::string other_file_systems() {
  std::string told;
  const DWORD drives = ::GetLogicalDrives();
  for (char letter = 'A'; letter <= 'Z'; ++letter) {
    const std::string root = std::string(1, letter) + ":\\";
    if ((drives >> (letter - 'A') & 1U) == 0) continue;
    const UINT type = ::GetDriveTypeA(root.c_str());
    if (type != DRIVE_FIXED && type != DRIVE_REMOVABLE) continue;
    const std::string system = file_system_of(root);
    if (!system.empty() && system != "NTFS") told += " " + root + " is " + system + ".";
  }
  return told;
}

}  // namespace

TEST_F(Kernel, OtherFileSystemsKeepDocumentsAndLocks) {
  settles(22, "storage on ReFS, FAT32 or exFAT: documents, locks, and the resolution of its times");
  const std::string system = file_system_of(m_scratch.path());
  if (system == "NTFS" || system.empty()) {
    GTEST_SKIP() << "this folder is on " << (system.empty() ? "an unknown file system" : system)
                 << "; run.cmd X:\\folder works on another drive." << other_file_systems();
  }
  EXPECT_EQ(work_of_a_process_in(path("tree")), "all right");
  write_file(path("file"), "0123456789");
  EXPECT_TRUE(is_one_lock(path("file"), path("file")));
  set_modify_time(path("file"), 1'500'000'001);
  const auto time = vu_file::modify_time(path("file"));
  found(system + "; a time of ...001 s is read back as ..." + std::to_string(time - 1'500'000'000) +
        " s");
  EXPECT_LE(std::abs(time - 1'500'000'001), 2);
}

TEST_F(Kernel, AFullDiskLeavesTheOldDocumentOrTheNewOne) {
  settles(24, "replacements on a full disk");
  if (const char* const named = std::getenv("VU_KIT_SMALL_DISK"); named != nullptr) {
    expect_nothing_is_lost_on(named);
    return;
  }
  if (!is_administrator()) {
    GTEST_SKIP() << "only an administrator may create a disk in a file; for this case, start "
                    "run.cmd as administrator";
  }
  if (is_emulated()) GTEST_SKIP() << "Wine has no diskpart";
  const SmallDisk disk(path("disk.vhd"), path("disk"));
  if (!disk.is_made()) GTEST_SKIP() << "cannot create a disk in a file: " << disk.words();
  expect_nothing_is_lost_on(path("disk"));
}

// ------------------------------------------------------------------------------------------------

namespace {

/// Removes the short name of a file; some volumes have none. @return the error code.
DWORD drop_short_name(const std::wstring& long_path) {
  // Looked up by name, because Wine may not have it.
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
  // Only the wide calls accept paths beyond the classic limit.
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
    GTEST_SKIP() << "this volume has short names, and this account cannot remove one (" << code
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
  found(is_short ? "the short name was removed; the long path was used"
                 : "there are no short names here; the long path was used");
}
