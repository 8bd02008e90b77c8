// What only a real Windows kernel shows, each case with what it settles. Under an emulator those
// that it cannot show are skipped, and the others say what it does.

#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu/storage.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace {

using namespace std::chrono_literals;

/// Not real_kernel.h, which declares for itself what <windows.h> does.
bool is_emulated() {
  return ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}
#define NEEDS_A_REAL_KERNEL(what)                                                         \
  do {                                                                                    \
    if (is_emulated()) GTEST_SKIP() << "Wine does not do this, Windows does: " << (what); \
  } while (false)

void settles(const char* what) { testing::Test::RecordProperty("settles", what); }
void found(const std::string& what) { testing::Test::RecordProperty("found", what); }

/// A file opened by the system alone.
class RawFile {
 public:
  RawFile(const std::string& path, DWORD access, DWORD sharing)
      : m_handle(::CreateFileA(path.c_str(), access, sharing, nullptr, OPEN_EXISTING,
                               FILE_ATTRIBUTE_NORMAL, nullptr)) {}
  ~RawFile() {
    if (is_open()) ::CloseHandle(m_handle);
  }
  RawFile(const RawFile&) = delete;
  RawFile& operator=(const RawFile&) = delete;

  bool is_open() const { return m_handle != INVALID_HANDLE_VALUE; }
  HANDLE get() const { return m_handle; }
  /// The system's code for reading a byte; 0 for a success.
  DWORD read_a_byte() const {
    char byte = 0;
    DWORD done = 0;
    return ::ReadFile(m_handle, &byte, 1, &done, nullptr) ? 0 : ::GetLastError();
  }

 private:
  HANDLE m_handle;
};

constexpr DWORD kAllShared = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;

class Kernel : public testing::Test {
 protected:
  std::string path(const std::string& name) const { return m_scratch.path(name); }

  const scratch_folder m_scratch;
};

/// A helper that holds a file's lock until it is told to end, or is killed.
int hold_a_lock(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  file.open(vu_file::o_append);
  say("locked");
  hear();
  return 0;
}
REGISTER_ROLE(hold_a_lock, hold_a_lock)

}  // namespace

TEST_F(Kernel, ALockKeepsOtherHandlesFromReading) {
  settles("a reader never sees a half-written file, also one that asks for no lock");
  NEEDS_A_REAL_KERNEL("a read of what another handle has locked fails with 33");
  write_file(path("file"), "0123456789");
  vu_file writer(path("file"));
  writer.open(vu_file::o_append);
  const RawFile reader(path("file"), GENERIC_READ, kAllShared);
  ASSERT_TRUE(reader.is_open());
  const DWORD code = reader.read_a_byte();
  found("the system says " + std::to_string(code));
  EXPECT_EQ(code, static_cast<DWORD>(ERROR_LOCK_VIOLATION));
  writer.close();
  EXPECT_EQ(reader.read_a_byte(), 0U);
}

TEST_F(Kernel, ALockEndsWithAProcessThatIsKilled) {
  settles("how long others wait for the lock of a program that has crashed");
  write_file(path("file"), "x");
  child_process holder("hold_a_lock", {path("file")});
  ASSERT_TRUE(holder.hears("locked"));
  const auto begin = std::chrono::steady_clock::now();
  holder.kill();
  vu_file file(path("file"));
  file.open(vu_file::o_append);
  const std::chrono::duration<double, std::milli> time = std::chrono::steady_clock::now() - begin;
  found(std::to_string(static_cast<int>(time.count())) + " ms after the kill");
  EXPECT_TRUE(file.is_locked());
  EXPECT_LT(time, 20s);
}

TEST_F(Kernel, ARemovedFileIsGoneWhenItsLastReaderCloses) {
  settles("whether the name of a removed file stays while somebody reads it");
  write_file(path("file"), "0123456789");
  vu_file reader(path("file"));
  reader.open(vu_file::o_read);
  vu_file::remove(path("file"));
  found(file_exists(path("file")) ? "the name stays until the last close"
                                  : "the name goes at once");
  reader.close();
  EXPECT_FALSE(file_exists(path("file")));
}

TEST_F(Kernel, FoldersAreMadeFromTheRootOfADriveOn) {
  settles("createDirR() with a whole path, whose first part is the drive");
  char root[MAX_PATH] = "";
  ASSERT_TRUE(::GetVolumePathNameA(m_scratch.path().c_str(), root, MAX_PATH));
  ::CreateDirectoryA(root, nullptr);
  found("CreateDirectory of " + std::string(root) + ": " + std::to_string(::GetLastError()));
  EXPECT_TRUE(vu_fileutf8::createDirR(vu_utf8string(path("a\\b\\c"))));
  EXPECT_TRUE(folder_exists(path("a\\b\\c")));
}

TEST_F(Kernel, ARenameThatChangesLettersAloneIsOne) {
  settles("an adopted file gets its extension in small letters");
  NEEDS_A_REAL_KERNEL("a rename that only changes the case of letters changes them");
  write_file(path("Report.KDB"), "x");
  EXPECT_TRUE(vu_file::rename(path("Report.KDB"), path("Report.kdb")));
  EXPECT_EQ(list_folder(m_scratch.path()), std::vector<std::string>{"Report.kdb"});
}

TEST_F(Kernel, AReadOnlyFileIsSoForEverybody) {
  settles("read-only files are neither written nor removed, whoever asks");
  NEEDS_A_REAL_KERNEL("the read-only attribute holds for administrators as well");
  write_file(path("file"), "x");
  make_read_only(path("file"));
  vu_file::remove(path("file"));
  EXPECT_TRUE(file_exists(path("file")));
  const RawFile writer(path("file"), GENERIC_WRITE, kAllShared);
  found("opening it to write: " + std::to_string(::GetLastError()));
  EXPECT_FALSE(writer.is_open());
}

TEST_F(Kernel, AFileThatAScannerHoldsWithoutSharingIsAFailureAndNotALoss) {
  settles("what a program that shares nothing, a virus scanner say, does to a replacement");
  const std::string root = m_scratch.path();
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = root.c_str();
  vu_store* store = nullptr;
  ASSERT_EQ(vu_open_store(&settings, &store), VU_DONE);
  vu_document document = VU_DOCUMENT_INIT;
  document.owner = "anna";
  document.name = "a.kdf";
  ASSERT_EQ(vu_put(store, &document, "old", 3, 0, nullptr), VU_DONE);
  char file[1000] = "";
  ASSERT_EQ(vu_file_path(store, &document, file, sizeof file, nullptr), VU_DONE);
  vu_status put = VU_DONE;
  vu_status read = VU_DONE;
  char bytes[10] = "";
  std::size_t size = 0;
  {
    const RawFile scanner(file, GENERIC_READ, 0);
    ASSERT_TRUE(scanner.is_open());
    read = vu_read(store, &document, bytes, sizeof bytes, &size);
    put = vu_put(store, &document, "new", 3, VU_REPLACE, nullptr);
  }
  found(std::string("read: ") + vu_status_name(read) + ", put: " + vu_status_name(put));
  EXPECT_EQ(read, VU_FAILED);
  ASSERT_EQ(vu_read(store, &document, bytes, sizeof bytes, &size), VU_DONE);
  const std::string content(bytes, size);
  EXPECT_TRUE(content == "old" || content == "new") << content;
  EXPECT_EQ(vu_put(store, &document, "last", 4, VU_REPLACE, nullptr), VU_DONE);
  EXPECT_EQ(vu_close_store(store), VU_DONE);
}

TEST_F(Kernel, ASizeInAFolderMayLagBehindAnOpenFile) {
  settles("whether sizes must be asked of the open file and not of its folder");
  vu_file writer(path("file"));
  writer.open(vu_file::o_truncate);
  writer.write(std::string(5000, 'x'));
  WIN32_FIND_DATAA data = {};
  const HANDLE search = ::FindFirstFileA(path("file").c_str(), &data);
  ASSERT_NE(search, INVALID_HANDLE_VALUE);
  ::FindClose(search);
  const RawFile same(path("file"), GENERIC_READ, kAllShared);
  LARGE_INTEGER size = {};
  ASSERT_TRUE(::GetFileSizeEx(same.get(), &size));
  found("the folder says " + std::to_string(data.nFileSizeLow) + ", the file " +
        std::to_string(size.QuadPart));
  EXPECT_EQ(size.QuadPart, 5000);
}

TEST_F(Kernel, LongPathsSucceedOrAreToldSo) {
  settles("from which length on paths fail, with the manifest of the programs as it is");
  std::string folder = m_scratch.path();
  std::string told;
  for (const std::size_t length : {200U, 240U, 247U, 248U, 255U, 259U, 260U, 300U}) {
    while (folder.size() + 1 < length) {
      const std::size_t part = std::min<std::size_t>(length - folder.size() - 1, 50);
      folder += "\\" + std::string(part, 'f');
      if (part < 2 && folder.size() + 1 >= length) break;
      vu_fileutf8::createDirR(vu_utf8string(folder));
    }
    told += std::to_string(folder.size()) + (folder_exists(folder) ? " yes, " : " no, ");
  }
  found(told);
  EXPECT_NE(told.find(" yes"), std::string::npos);
}

TEST_F(Kernel, AShareLeadsToTheSameFiles) {
  settles("paths of shares, whose existence is asked by attributes");
  const std::string local = m_scratch.path();
  if (local.size() < 3 || local[1] != ':') GTEST_SKIP() << "this folder is on no drive";
  const std::string share = "\\\\localhost\\" + local.substr(0, 1) + "$" + local.substr(2);
  write_file(path("file"), "0123456789");
  if (::GetFileAttributesA(share.c_str()) == INVALID_FILE_ATTRIBUTES)
    GTEST_SKIP() << "the drive's own share cannot be reached from here: " << ::GetLastError();
  EXPECT_TRUE(vu_file::exists(share + "\\file"));
  vu_file writer(path("file"));
  writer.open(vu_file::o_append);
  vu_file other(share + "\\file");
  bool refused = false;
  other.try_open(vu_file::o_read, refused, true);
  found(refused ? "a lock through the drive is one through the share"
                : "a lock through the drive is none through the share");
}

TEST_F(Kernel, SpaceIsReservedAndFilesAreFlushed) {
  settles("whether a save makes sure of its space on this file system");
  write_file(path("file"), "0123456789");
  const RawFile file(path("file"), GENERIC_READ | GENERIC_WRITE, kAllShared);
  FILE_ALLOCATION_INFO wanted = {};
  wanted.AllocationSize.QuadPart = 1'000'000;
  const bool is_reserved =
      ::SetFileInformationByHandle(file.get(), FileAllocationInfo, &wanted, sizeof wanted) != FALSE;
  found(is_reserved ? "space is reserved"
                    : "no space is reserved: " + std::to_string(::GetLastError()));
  EXPECT_TRUE(::FlushFileBuffers(file.get()));
  EXPECT_EQ(read_file(path("file")), "0123456789");
}
