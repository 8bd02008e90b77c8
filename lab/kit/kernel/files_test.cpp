// What the system does to single files and folders.

#include <algorithm>
#include <string>
#include <vector>

#include "lab/kit/kernel/kernel.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

TEST_F(Kernel, ARemovedFileIsGoneWhenItsLastReaderCloses) {
  settles(4, "whether the name of a removed file stays while somebody reads it");
  write_file(path("file"), "0123456789");
  vu_file reader(path("file"));
  reader.open(vu_file::o_read);
  vu_file::remove(path("file"));
  found(file_exists(path("file")) ? "the name stays until the last close"
                                  : "the name goes at once");
  reader.close();
  EXPECT_FALSE(file_exists(path("file")));
}

TEST_F(Kernel, ADocumentThatSomebodyReadsIsRemovedAndStoredAnew) {
  settles(5, "what an application sees of that: a removal and a new version beside a reader");
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
  // A file whose removal was still to come may have been adopted as a document of its own.
  found(std::string("remove: ") + vu_status_name(removed) + ", then put: " +
        vu_status_name(stored) + "; files that came back: " + std::to_string(names.size() - 1));
  EXPECT_EQ(store.remove("a.kdc"), VU_DONE);
}

TEST_F(Kernel, FoldersAreMadeFromTheRootOfADriveOn) {
  settles(6, "createDirR() with a whole path, whose first part is the drive");
  char root[MAX_PATH] = "";
  ASSERT_TRUE(::GetVolumePathNameA(m_scratch.path().c_str(), root, MAX_PATH));
  ::CreateDirectoryA(root, nullptr);
  found("CreateDirectory of " + std::string(root) + ": " + std::to_string(::GetLastError()));
  EXPECT_TRUE(vu_fileutf8::createDirR(vu_utf8string(path("a\\b\\c"))));
  EXPECT_TRUE(folder_exists(path("a\\b\\c")));
}

TEST_F(Kernel, ARenameThatChangesLettersAloneIsOne) {
  settles(7, "an adopted file gets its extension in small letters");
  NEEDS_A_REAL_KERNEL("a rename that only changes the case of letters changes them");
  write_file(path("Report.KDB"), "x");
  EXPECT_TRUE(vu_file::rename(path("Report.KDB"), path("Report.kdb")));
  EXPECT_EQ(list_folder(m_scratch.path()), std::vector<std::string>{"Report.kdb"});
}

TEST_F(Kernel, AReadOnlyFileIsSoForEverybody) {
  settles(8, "read-only files are neither written nor removed, whoever asks");
  NEEDS_A_REAL_KERNEL("the read-only attribute holds for administrators as well");
  write_file(path("file"), "x");
  make_read_only(path("file"));
  vu_file::remove(path("file"));
  EXPECT_TRUE(file_exists(path("file")));
  const RawFile writer(path("file"), GENERIC_WRITE, kAllShared);
  found("opening it to write: " + std::to_string(writer.code()) +
        (is_administrator() ? ", an administrator" : ", no administrator"));
  EXPECT_FALSE(writer.is_open());
}

TEST_F(Kernel, ASizeInAFolderMayLagBehindAnOpenFile) {
  settles(11, "whether sizes must be asked of the open file and not of its folder");
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
  settles(23, "whether a save makes sure of its space on this file system");
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
