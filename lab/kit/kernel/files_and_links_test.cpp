// The system's behaviour for single files and folders, and other paths to a folder: junctions,
// symbolic links, substituted drives, shares.

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include <windows.h>
#include <winioctl.h>

#include "lab/kit/kernel/kernel.h"
#include "tests/support/process.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

TEST_F(Kernel, ARemovedFileIsGoneWhenItsLastReaderCloses) {
  settles(4, "whether the name of a removed file stays while a program reads it");
  write_file(path("file"), "0123456789");
  vu_file reader(path("file"));
  reader.open(vu_file::o_read);
  vu_file::remove(path("file"));
  found(file_exists(path("file")) ? "the name stays until the last close"
                                  : "the name disappears at once");
  reader.close();
  EXPECT_FALSE(file_exists(path("file")));
}

TEST_F(Kernel, ADocumentThatIsBeingReadIsRemovedAndStoredAgain) {
  settles(5, "what an application sees: a removal and a new version during a read");
  Store store(program_root(), "reader");
  ASSERT_EQ(store.put("a.kdc", "old"), VU_DONE);
  const std::string file = store.path("a.kdc");
  ASSERT_FALSE(file.empty());
  vu_status removed = VU_FAILED;
  vu_status stored = VU_FAILED;
  {
    const RawFile reader(file, GENERIC_READ, kAllShared);
    ASSERT_TRUE(reader.is_open());
    removed = store.remove("a.kdc");
    stored = store.put("a.kdc", "new");
    const std::string content = store.content("a.kdc");
    if (stored == VU_DONE) {
      EXPECT_EQ(content, "new");
    } else if (removed == VU_DONE) {
      EXPECT_TRUE(content == "new" || content == "[VU_NOTHING_MATCHED]") << content;
    } else {
      EXPECT_TRUE(content == "old" || content == "new") << content;
    }
    EXPECT_EQ(reader.read_a_byte(), 0U);
  }
  EXPECT_EQ(store.put("a.kdc", "last"), VU_DONE);
  EXPECT_EQ(store.content("a.kdc"), "last");
  const std::vector<std::string> names = store.names();
  EXPECT_EQ(std::count(names.begin(), names.end(), "a.kdc"), 1);
  // A file with a pending removal may have been adopted as a document.
  found(std::string("remove: ") + vu_status_name(removed) + ", then put: " +
        vu_status_name(stored) + "; files that came back: " + std::to_string(names.size() - 1));
  EXPECT_EQ(store.remove("a.kdc"), VU_DONE);
}

TEST_F(Kernel, FoldersAreMadeFromTheRootOfADriveOn) {
  settles(6, "createDirR() with an absolute path, whose first part is the drive");
  char root[MAX_PATH] = "";
  ASSERT_TRUE(::GetVolumePathNameA(m_scratch.path().c_str(), root, MAX_PATH));
  ::CreateDirectoryA(root, nullptr);
  found("CreateDirectory of " + std::string(root) + ": " + std::to_string(::GetLastError()));
  EXPECT_TRUE(vu_fileutf8::createDirR(vu_utf8string(path("a\\b\\c"))));
  EXPECT_TRUE(folder_exists(path("a\\b\\c")));
}

TEST_F(Kernel, ARenameThatChangesLettersAloneIsOne) {
  settles(7, "an adopted file gets its extension in lower case");
  NEEDS_A_REAL_KERNEL("a rename changes the case of letters");
  write_file(path("Report.KDB"), "x");
  EXPECT_TRUE(vu_file::rename(path("Report.KDB"), path("Report.kdb")));
  EXPECT_EQ(list_folder(m_scratch.path()), std::vector<std::string>{"Report.kdb"});
}

TEST_F(Kernel, AReadOnlyFileIsSoForEverybody) {
  settles(8, "no account can write or remove a read-only file");
  NEEDS_A_REAL_KERNEL("the read-only attribute also applies to administrators");
  write_file(path("file"), "x");
  make_read_only(path("file"));
  vu_file::remove(path("file"));
  EXPECT_TRUE(file_exists(path("file")));
  const RawFile writer(path("file"), GENERIC_WRITE, kAllShared);
  found("opening it to write: " + std::to_string(writer.code()) +
        (is_administrator() ? ", an administrator" : ", not an administrator"));
  EXPECT_FALSE(writer.is_open());
}

TEST_F(Kernel, ASizeInAFolderMayLagBehindAnOpenFile) {
  settles(11, "whether sizes must come from the open file, not from its folder");
  vu_file writer(path("file"));
  writer.open(vu_file::o_truncate);
  writer.write(std::string(5000, 'x'));
  WIN32_FIND_DATAA data = {};
  const HANDLE search = ::FindFirstFileA(path("file").c_str(), &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  ::FindClose(search);
  const std::int32_t told = vu_file::size(path("file"));
  {
    const RawFile same(path("file"), GENERIC_READ, kAllShared);
    LARGE_INTEGER size = {};
    ASSERT_TRUE(::GetFileSizeEx(same.get(), &size));
    EXPECT_EQ(size.QuadPart, 5000);
  }
  found("the folder says " + std::to_string(data.nFileSizeLow) + ", vu_file::size " +
        std::to_string(told) + ", the file 5000");
  writer.close();
  EXPECT_EQ(vu_file::size(path("file")), 5000);
}

TEST_F(Kernel, SpaceIsReservedAndFilesAreFlushed) {
  settles(23, "whether a save reserves its space on this file system");
  write_file(path("file"), "0123456789");
  bool is_reserved = false;
  DWORD code = 0;
  std::int64_t allocated = 0;
  {
    const RawFile file(path("file"), GENERIC_READ | GENERIC_WRITE, kAllShared);
    FILE_ALLOCATION_INFO wanted = {};
    wanted.AllocationSize.QuadPart = 1'000'000;
    is_reserved = ::SetFileInformationByHandle(file.get(), FileAllocationInfo, &wanted,
                                               sizeof wanted) != FALSE;
    code = ::GetLastError();
    FILE_STANDARD_INFO info = {};
    ::GetFileInformationByHandleEx(file.get(), FileStandardInfo, &info, sizeof info);
    allocated = info.AllocationSize.QuadPart;
    EXPECT_TRUE(::FlushFileBuffers(file.get()));
  }
  found(is_reserved ? "reserved: the file occupies " + std::to_string(allocated) + " bytes"
                    : "no space is reserved: " + std::to_string(code));
  EXPECT_EQ(read_file(path("file")), "0123456789");
  if (!is_emulated() && file_system_of(m_scratch.path()) == "NTFS") {
    EXPECT_TRUE(is_reserved);
    EXPECT_GE(allocated, 1'000'000);
  }
}

// ------------------------------------------------------------------------------------------------
// Other paths to the same folder: junctions, symbolic links, substituted drives, shares.

namespace {

std::wstring wide(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

/// The system's structure; the headers declare it for drivers only.
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

/// A call that succeeds and does nothing has created no link.
DWORD code_of_link(const std::string& path) {
  const DWORD attributes = ::GetFileAttributesA(path.c_str());
  if (attributes == INVALID_FILE_ATTRIBUTES) return ::GetLastError();
  return (attributes & FILE_ATTRIBUTE_REPARSE_POINT) != 0 ? 0 : ERROR_NOT_A_REPARSE_POINT;
}

/// Creates a junction, which every account may do. @return the error code, 0 for a success.
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
  // Four numbers and two texts, each with its terminator.
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

/// A tree behind a link can be used. A removal removes the link and not its target.
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
  EXPECT_TRUE(is_refused) << "two paths to a file have two locks";
  direct.close();
  through_link.close();
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(folder)));
  EXPECT_FALSE(folder_exists(link));
  const bool is_kept = file_exists(target + "\\guarded");
  EXPECT_TRUE(is_kept) << "a removal emptied the target of the link";
  found(is_kept ? "a removal stops at the link" : "a removal empties the target of the link");
}

/// A drive letter for a folder, during this session. The destructor releases it.
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
  /// The error code; 0 if the drive exists.
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
  if (code != 0) GTEST_SKIP() << "cannot create a junction here: " << code;
  expect_a_link_is_followed_and_not_emptied(path("folder\\link"), path("target"), path("folder"));
}

TEST_F(Kernel, SymbolicLinksAreFollowedAndNotEmptied) {
  settles(19, "the same for a symbolic link to a folder");
  make_folder(path("target"));
  make_folder(path("folder"));
  const DWORD code = make_symbolic_link(path("folder\\link"), path("target"));
  if (code != 0) {
    GTEST_SKIP() << "cannot create a symbolic link here (" << code
                 << "); it works in Developer Mode, or as an administrator";
  }
  expect_a_link_is_followed_and_not_emptied(path("folder\\link"), path("target"), path("folder"));
}

TEST_F(Kernel, ASubstitutedDriveLeadsToTheSameFiles) {
  settles(20, "a tree at the root of a substituted drive, and its locks");
  make_folder(path("folder"));
  const SubstitutedDrive drive(path("folder"));
  if (drive.code() != 0) GTEST_SKIP() << "cannot substitute a drive: " << drive.code();
  EXPECT_EQ(work_of_a_process_in(drive.drive() + "\\"), "all right");
  EXPECT_EQ(work_of_a_process_in(drive.drive() + "\\tree\\in it"), "all right");
  write_file(path("folder\\file"), "0123456789");
  EXPECT_TRUE(vu_file::exists(drive.drive() + "\\file"));
  const bool is_one = is_one_lock(path("folder\\file"), drive.drive() + "\\file");
  found(drive.drive() + (is_one ? ", one lock through both paths" : ", two locks of one file"));
  EXPECT_TRUE(is_one);
}

TEST_F(Kernel, AShareLeadsToTheSameFiles) {
  settles(21, "paths on shares, whose existence is checked by attributes, and locks through them");
  const std::string local = m_scratch.path();
  if (local.size() < 3 || local[1] != ':') GTEST_SKIP() << "this folder is not on a drive";
  const std::string share = "\\\\localhost\\" + local.substr(0, 1) + "$" + local.substr(2);
  write_file(path("file"), "0123456789");
  if (::GetFileAttributesA(share.c_str()) == INVALID_FILE_ATTRIBUTES)
    GTEST_SKIP() << "cannot reach the drive's own share from here (" << ::GetLastError()
                 << "); it works as an administrator";
  EXPECT_EQ(work_of_a_process_in(share + "\\tree"), "all right");
  EXPECT_TRUE(folder_exists(path("tree")));
  EXPECT_TRUE(vu_file::exists(share + "\\file"));
  EXPECT_FALSE(vu_file::exists(share + "\\none"));
  const bool is_one = is_one_lock(path("file"), share + "\\file");
  found(is_one ? "a lock through the drive is a lock through the share"
               : "a lock through the drive is no lock through the share");
  EXPECT_TRUE(is_one);
}
