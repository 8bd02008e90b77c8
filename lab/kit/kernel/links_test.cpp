// Other ways to the same folder: junctions, symbolic links, substituted drives, shares.

#include <windows.h>
#include <winioctl.h>

#include <cstring>
#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "tests/support/process.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// As the system stores it: the headers have it for drivers alone.
struct MountPoint {
  DWORD tag;
  WORD data_length;
  WORD reserved;
  WORD target_offset;
  WORD target_length;
  WORD shown_offset;
  WORD shown_length;
  wchar_t texts[1000];
};

/// What says yes and does nothing has made no link.
DWORD code_of_link(const std::string& path) {
  const DWORD attributes = ::GetFileAttributesA(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return ::GetLastError();
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? 0 : ERROR_NOT_A_REPARSE_POINT;
}

/// Makes a junction; every account may. @return the system's code, 0 for a success.
DWORD make_junction(const std::string& path, const std::string& target) {
  const std::wstring inner = L"\\??\\" + wide(target);
  const std::wstring shown = wide(target);
  if (inner.size() + shown.size() + 2 > 1000) return ERROR_FILENAME_EXCED_RANGE;
  if (!::CreateDirectoryA(path.c_str(), nullptr)) return ::GetLastError();
  MountPoint point = {};
  point.tag = IO_REPARSE_TAG_MOUNT_POINT;
  point.target_length = static_cast<WORD>(inner.size() * sizeof(wchar_t));
  point.shown_offset = static_cast<WORD>(point.target_length + sizeof(wchar_t));
  point.shown_length = static_cast<WORD>(shown.size() * sizeof(wchar_t));
  std::memcpy(point.texts, inner.c_str(), point.target_length);
  std::memcpy(point.texts + inner.size() + 1, shown.c_str(), point.shown_length);
  // Four numbers and two texts, each with its end.
  point.data_length =
      static_cast<WORD>(8 + point.target_length + point.shown_length + 2 * sizeof(wchar_t));
  const HANDLE folder =
      ::CreateFileA(path.c_str(), GENERIC_WRITE, 0, nullptr, OPEN_EXISTING,
                    FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT, nullptr);
  if (folder == INVALID_HANDLE_VALUE) return ::GetLastError();
  DWORD done = 0;
  const bool is_made =
      ::DeviceIoControl(folder, FSCTL_SET_REPARSE_POINT, &point, point.data_length + 8U, nullptr, 0,
                        &done, nullptr) != FALSE;
  const DWORD code = is_made ? 0 : ::GetLastError();
  ::CloseHandle(folder);
  return is_made ? code_of_link(path) : code;
}

DWORD make_symbolic_link(const std::string& path, const std::string& target) {
  constexpr DWORD kFolder = 1;
  constexpr DWORD kForDevelopers = 2;
  if (!::CreateSymbolicLinkA(path.c_str(), target.c_str(), kFolder | kForDevelopers))
    return ::GetLastError();
  return code_of_link(path);
}

/// A tree behind a link is worked in, and a removal takes the link and not what it leads to.
void expect_a_link_is_followed_and_not_emptied(const std::string& link, const std::string& target,
                                               const std::string& folder) {
  EXPECT_EQ(work_of_a_process_in(link), "all right");
  write_file(target + "\\guarded", "0123456789");
  EXPECT_TRUE(vu_file::exists(link + "\\guarded"));
  vu_file through_link(link + "\\guarded");
  through_link.open(vu_file::o_append);
  vu_file direct(target + "\\guarded");
  bool is_refused = false;
  direct.try_open(vu_file::o_read, is_refused, true);
  EXPECT_TRUE(is_refused) << "two ways to a file have two locks";
  direct.close();
  through_link.close();
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(folder)));
  EXPECT_FALSE(folder_exists(link));
  const bool is_kept = file_exists(target + "\\guarded");
  EXPECT_TRUE(is_kept) << "a removal has walked through the link";
  found(is_kept ? "a removal stops at the link" : "a removal walks through the link");
}

/// A letter for a folder, for this session; given back at the end.
class SubstitutedDrive {
 public:
  explicit SubstitutedDrive(const std::string& folder) : m_folder(folder) {
    const DWORD used = ::GetLogicalDrives();
    for (char letter = 'Z'; letter > 'C' && m_drive.empty(); --letter) {
      if ((used >> (letter - 'A') & 1U) == 0) m_drive = std::string(1, letter) + ":";
    }
    if (m_drive.empty() || !::DefineDosDeviceA(0, m_drive.c_str(), m_folder.c_str())) {
      m_code = m_drive.empty() ? ERROR_NO_MORE_ITEMS : ::GetLastError();
      m_drive.clear();
    } else if (::GetFileAttributesA((m_drive + "\\").c_str()) == INVALID_FILE_ATTRIBUTES) {
      m_code = ::GetLastError();
    }
  }
  ~SubstitutedDrive() {
    constexpr DWORD kExactly = DDD_REMOVE_DEFINITION | DDD_EXACT_MATCH_ON_REMOVE;
    if (!m_drive.empty() && !::DefineDosDeviceA(kExactly, m_drive.c_str(), m_folder.c_str()))
      ::DefineDosDeviceA(DDD_REMOVE_DEFINITION, m_drive.c_str(), nullptr);
  }
  SubstitutedDrive(const SubstitutedDrive&) = delete;
  SubstitutedDrive& operator=(const SubstitutedDrive&) = delete;

  /// "Z:".
  const std::string& drive() const { return m_drive; }
  /// The system's code; 0 where the drive is there.
  DWORD code() const { return m_code; }

 private:
  std::string m_folder;
  std::string m_drive;
  DWORD m_code = 0;
};

}  // namespace

TEST_F(Kernel, JunctionsAreFollowedAndNotEmptied) {
  settles(18, "a tree behind a junction, and whether a removal stops at one");
  make_folder(path("target"));
  make_folder(path("folder"));
  const DWORD code = make_junction(path("folder\\link"), path("target"));
  if (code != 0) GTEST_SKIP() << "no junction can be made here: " << code;
  expect_a_link_is_followed_and_not_emptied(path("folder\\link"), path("target"), path("folder"));
}

TEST_F(Kernel, SymbolicLinksAreFollowedAndNotEmptied) {
  settles(19, "the same for a symbolic link to a folder");
  make_folder(path("target"));
  make_folder(path("folder"));
  const DWORD code = make_symbolic_link(path("folder\\link"), path("target"));
  if (code != 0) {
    GTEST_SKIP() << "no symbolic link can be made here (" << code
                 << "); one can in Developer Mode, or as an administrator";
  }
  expect_a_link_is_followed_and_not_emptied(path("folder\\link"), path("target"), path("folder"));
}

TEST_F(Kernel, ASubstitutedDriveLeadsToTheSameFiles) {
  settles(20, "a tree at the root of a substituted drive, and its locks");
  make_folder(path("folder"));
  const SubstitutedDrive drive(path("folder"));
  if (drive.code() != 0) GTEST_SKIP() << "no drive can be substituted: " << drive.code();
  EXPECT_EQ(work_of_a_process_in(drive.drive() + "\\"), "all right");
  EXPECT_EQ(work_of_a_process_in(drive.drive() + "\\tree\\in it"), "all right");
  write_file(path("folder\\file"), "0123456789");
  EXPECT_TRUE(vu_file::exists(drive.drive() + "\\file"));
  const bool is_one = is_one_lock(path("folder\\file"), drive.drive() + "\\file");
  found(drive.drive() + (is_one ? ", one lock by either way" : ", two locks of one file"));
  EXPECT_TRUE(is_one);
}

TEST_F(Kernel, AShareLeadsToTheSameFiles) {
  settles(21, "paths of shares, whose existence is asked by attributes, and locks through them");
  const std::string local = m_scratch.path();
  if (local.size() < 3 || local[1] != ':') GTEST_SKIP() << "this folder is on no drive";
  const std::string share = "\\\\localhost\\" + local.substr(0, 1) + "$" + local.substr(2);
  write_file(path("file"), "0123456789");
  if (::GetFileAttributesA(share.c_str()) == INVALID_FILE_ATTRIBUTES)
    GTEST_SKIP() << "the drive's own share cannot be reached from here (" << ::GetLastError()
                 << "); it can as an administrator";
  EXPECT_EQ(work_of_a_process_in(share + "\\tree"), "all right");
  EXPECT_TRUE(folder_exists(path("tree")));
  EXPECT_TRUE(vu_file::exists(share + "\\file"));
  EXPECT_FALSE(vu_file::exists(share + "\\none"));
  const bool is_one = is_one_lock(path("file"), share + "\\file");
  found(is_one ? "a lock through the drive is one through the share"
               : "a lock through the drive is none through the share");
  EXPECT_TRUE(is_one);
}
