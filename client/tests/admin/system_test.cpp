#include "client/admin/system.h"

#include <atomic>
#include <chrono>
#include <thread>

#include "client/admin/entries.h"
#include "client/admin/explain.h"
#include "client/admin/shared_probe.h"
#include "client/admin/stats.h"
#include "client/tests/admin/tree_fixture.h"
#include "tests/support/process.h"
#include "vu_file.h"

#if defined(__linux__)
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <cerrno>
#include <deque>
#include <filesystem>

#include "client/admin/locked_file.h"
#endif
#if !defined(_WIN32)
#include <unistd.h>
#endif

using admin::Area;
using admin::sys::Kind;
using admin::sys::Locking;

namespace {

int hold_file(const std::vector<std::string>& args) {
  vu_file file(args.at(0), args.at(1));
  file.open(args.at(2) == "exclusive" ? vu_file::o_append : vu_file::o_read);
  say("holding");
  hear();
  return 0;
}

}  // namespace
REGISTER_ROLE(hold_file, hold_file)

TEST(AdminSystem, ListsAFolderOfAnySizeOnce) {
  const scratch_folder scratch;
  std::map<std::string, Kind> expected;
  for (int i = 0; i < 3000; ++i) {
    const std::string name = "a longer name of a file " + std::to_string(i);
    if (i < 600) write_file(scratch.path(name), "");
    if (i < 600) expected[name] = Kind::kFile;
  }
  make_folder(scratch.path("sub"));
  expected["sub"] = Kind::kFolder;
  admin::sys::Folder folder;
  ASSERT_TRUE(folder.open(system_form(scratch.path())).ok());
  std::map<std::string, Kind> found;
  admin::sys::Entry entry;
  while (folder.next(entry)) {
    EXPECT_TRUE(found.emplace(std::string(entry.name), entry.kind).second) << entry.name;
    EXPECT_EQ(entry.name.data()[entry.name.size()], '\0');
  }
  EXPECT_TRUE(folder.status().ok());
  EXPECT_EQ(found, expected);
}

TEST(AdminSystem, SaysWhenAFolderIsMissing) {
  const scratch_folder scratch;
  admin::sys::Folder folder;
  EXPECT_EQ(folder.open(system_form(scratch.path("none"))).failure(), os::Failure::kNotFound);
  write_file(scratch.path("file"), "");
  EXPECT_FALSE(folder.open(system_form(scratch.path("file"))).ok());
}

TEST(AdminSystem, DescribesFiles) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "12345");
  set_modify_time(scratch.path("file"), 1234567);
  const admin::sys::Info info = admin::sys::describe(system_form(scratch.path("file")));
  EXPECT_EQ(info.kind, Kind::kFile);
  EXPECT_EQ(info.size, 5U);
  EXPECT_EQ(info.modify_time, 1234567);
  EXPECT_FALSE(info.is_read_only);
  make_read_only(scratch.path("file"));
  EXPECT_TRUE(admin::sys::describe(system_form(scratch.path("file"))).is_read_only);
  make_writable(scratch.path("file"));
  EXPECT_EQ(admin::sys::describe(system_form(scratch.path("none"))).kind, Kind::kMissing);
  EXPECT_EQ(admin::sys::describe(system_form(scratch.path())).kind, Kind::kFolder);
}

TEST(AdminSystem, ReadsFilesOfAnySizeAsAWholeAndInPieces) {
  const scratch_folder scratch;
  for (const std::size_t size : {0U, 1U, 4096U, 700'001U}) {
    std::string bytes(size, 'x');
    for (std::size_t i = 0; i < size; i += 7) bytes[i] = static_cast<char>(i);
    write_file(scratch.path("file"), bytes);
    std::string read;
    ASSERT_TRUE(admin::sys::read_file(system_form(scratch.path("file")), {}, read).ok());
    EXPECT_EQ(read, bytes);
    std::string pieces;
    ASSERT_TRUE(
        admin::sys::read_pieces(system_form(scratch.path("file")), {}, [&](std::string_view piece) {
          pieces += piece;
          return true;
        }).ok());
    EXPECT_EQ(pieces, bytes);
  }
  std::string read = "old";
  EXPECT_EQ(admin::sys::read_file(system_form(scratch.path("none")), {}, read).failure(),
            os::Failure::kNotFound);
  EXPECT_FALSE(admin::sys::read_file(system_form(scratch.path()), {}, read).ok());
}

TEST(AdminSystem, GivesUpALockAfterTheTimeOut) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "x");
  vu_file writer(scratch.path(), "file");
  writer.open(vu_file::o_append);
  Locking locking;
  locking.time_out = std::chrono::milliseconds(60);
  locking.patience = std::chrono::milliseconds(20);
  int told = 0;
  locking.on_wait = [&](const std::string&) { ++told; };
  std::string bytes;
  EXPECT_EQ(admin::sys::read_file(system_form(scratch.path("file")), locking, bytes).failure(),
            os::Failure::kLocked);
  EXPECT_EQ(told, 1);
}

TEST(AdminSystem, GivesUpALockWhenStopped) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "x");
  vu_file writer(scratch.path(), "file");
  writer.open(vu_file::o_append);
  const std::atomic<bool> stop{true};
  Locking locking;
  locking.time_out = std::chrono::hours(1);
  locking.stop = &stop;
  std::string bytes;
  EXPECT_EQ(admin::sys::read_file(system_form(scratch.path("file")), locking, bytes).failure(),
            os::Failure::kLocked);
}

TEST(AdminSystem, ReadsWhenTheWriterHasFinished) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "x");
  child_process writer("hold_file", {scratch.path(), "file", "exclusive"});
  ASSERT_TRUE(writer.hears("holding"));
  Locking locking;
  locking.time_out = std::chrono::seconds(40);
  locking.patience = std::chrono::milliseconds(1);
  // The writer releases its lock when the reader waits.
  locking.on_wait = [&](const std::string&) { writer.close_input(); };
  std::string bytes;
  EXPECT_TRUE(admin::sys::read_file(system_form(scratch.path("file")), locking, bytes).ok());
  EXPECT_EQ(bytes, "x");
  EXPECT_EQ(writer.wait(), 0);
}

TEST(AdminSystem, ExcludesWritersOnlyWhileItReads) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "x");
  std::string bytes;
  ASSERT_TRUE(admin::sys::read_file(system_form(scratch.path("file")), {}, bytes).ok());
  vu_file writer(scratch.path(), "file");
  bool refused = true;
  EXPECT_TRUE(writer.try_open(vu_file::o_append, refused, true));
  EXPECT_FALSE(refused);
  EXPECT_TRUE(writer.is_locked());
}

TEST(AdminSystem, FindsWhoHoldsALock) {
  const scratch_folder scratch;
  make_folder(scratch.path("sub"));
  write_file(scratch.path("sub\\file"), "x");
  write_file(scratch.path("free"), "x");
  std::vector<admin::sys::HeldLock> locks;
  const auto known = admin::sys::find_locks(system_form(scratch.path()), locks);
#if defined(_WIN32)
  EXPECT_EQ(known, admin::sys::Knowledge::kNone);
#else
  EXPECT_NE(known, admin::sys::Knowledge::kNone);
  EXPECT_TRUE(locks.empty());
  child_process writer("hold_file", {scratch.path("sub"), "file", "exclusive"});
  ASSERT_TRUE(writer.hears("holding"));
  admin::sys::find_locks(system_form(scratch.path()), locks);
  ASSERT_EQ(locks.size(), 1U);
  EXPECT_EQ(locks[0].path, system_form(scratch.path("sub\\file")));
  EXPECT_TRUE(locks[0].is_exclusive);
  EXPECT_TRUE(locks[0].is_whole_file);
  EXPECT_EQ(locks[0].command, "admin_tests");
  EXPECT_NE(locks[0].process, getpid());
  writer.close_input();
  EXPECT_EQ(writer.wait(), 0);
  locks.clear();
  child_process reader("hold_file", {scratch.path("sub"), "file", "shared"});
  ASSERT_TRUE(reader.hears("holding"));
  admin::sys::find_locks(system_form(scratch.path()), locks);
  ASSERT_EQ(locks.size(), 1U);
  EXPECT_FALSE(locks[0].is_exclusive);
#endif
}

#if defined(__linux__)
namespace {

/// What the code under test has flushed: file systems as a whole, and single files.
struct Flushes {
  std::vector<::dev_t> systems;
  std::vector<::ino_t> files;
};
Flushes* g_flushes = nullptr;

struct ::stat info_of(int file) {
  struct ::stat info = {};
  ::fstat(file, &info);
  return info;
}

}  // namespace

// Replace the functions of the C library, so that a test sees each call.
extern "C" int syncfs(int file) noexcept {
  if (g_flushes != nullptr) g_flushes->systems.push_back(info_of(file).st_dev);
  return static_cast<int>(::syscall(SYS_syncfs, file));
}
extern "C" int fsync(int file) {
  if (g_flushes != nullptr) g_flushes->files.push_back(info_of(file).st_ino);
  return static_cast<int>(::syscall(SYS_fsync, file));
}

/// A tree on two file systems: the folder of the test and a second one.
class AdminTwoFileSystems : public testing::Test {
 protected:
  void SetUp() override {
    make_files(system_form(m_scratch.path()));
    // The folder of the test may be in memory, and the current folder on a disk.
    for (const std::string& place :
         {std::string("/dev/shm"), std::filesystem::current_path().string()}) {
      const std::string folder = place + "/vu_admin_" + std::to_string(::getpid());
      std::error_code error;
      if (!std::filesystem::create_directory(folder, error)) continue;
      m_away = folder;
      if (stat_of(m_away).st_dev != stat_of(m_paths.front()).st_dev) {
        make_files(m_away);
        g_flushes = &m_flushes;
        return;
      }
      std::filesystem::remove(m_away, error);
    }
    GTEST_SKIP() << "there is no second file system";
  }
  void TearDown() override {
    g_flushes = nullptr;
    std::error_code error;
    std::filesystem::remove_all(m_away, error);
  }

  static struct ::stat stat_of(const std::string& path) {
    struct ::stat info = {};
    EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
    return info;
  }
  /// Whether a flush of its own or one of its file system has reached each file.
  void expect_all_flushed() const {
    for (const std::string& path : m_paths) {
      const struct ::stat info = stat_of(path);
      EXPECT_EQ(std::ranges::count(m_flushes.systems, info.st_dev) +
                    std::ranges::count(m_flushes.files, info.st_ino),
                1)
          << path;
    }
  }

  const scratch_folder m_scratch;
  std::string m_away;
  std::vector<std::string> m_paths;
  Flushes m_flushes;

 private:
  void make_files(const std::string& folder) {
    for (int i = 0; i < 5; ++i) {
      m_paths.push_back(admin::sys::join(folder, std::to_string(i)));
      write_file(m_paths.back(), "old");
    }
  }
};

TEST_F(AdminTwoFileSystems, AreBothFlushedForManyFiles) {
  ASSERT_TRUE(admin::sys::flush_files(m_paths, {}).ok());
  EXPECT_EQ(m_flushes.systems.size(), 2U);
  expect_all_flushed();
}

TEST_F(AdminTwoFileSystems, AFewFilesOnTheSecondOneAreFlushedOneByOne) {
  m_paths.resize(6);
  ASSERT_TRUE(admin::sys::flush_files(m_paths, {m_away}).ok());
  EXPECT_EQ(m_flushes.systems.size(), 1U);
  EXPECT_EQ(m_flushes.files.size(), 2U);
  expect_all_flushed();
}

TEST_F(AdminTwoFileSystems, EachIndexIsOnItsDeviceBeforeItsSecondWrite) {
  m_paths.resize(6);
  std::deque<admin::LockedFile> files(m_paths.size());
  std::vector<admin::LockedFile::NewLines> all;
  for (std::size_t i = 0; i < files.size(); ++i) {
    ASSERT_TRUE(files[i].open(m_paths[i], admin::LockedFile::For::kChanging, {}).ok());
    all.push_back({&files[i], "old", "other", {}});
  }
  admin::LockedFile::replace_lines(all);
  for (const auto& each : all) EXPECT_TRUE(each.status.ok());
  // The first flush is that of the copies. The last file is alone on its file system.
  ASSERT_FALSE(m_flushes.files.empty());
  EXPECT_EQ(m_flushes.files.front(), stat_of(m_paths.back()).st_ino);
  EXPECT_EQ(m_flushes.files.size(), m_flushes.systems.size());
}

TEST(AdminSystem, DoesNotCallAFileMissingThatItCannotDescribe) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  const scratch_folder scratch;
  make_folder(scratch.path("closed"));
  const std::string path = system_form(scratch.path("closed\\file"));
  write_file(path, "x");
  ASSERT_EQ(::chmod(system_form(scratch.path("closed")).c_str(), 0700), 0);
  constexpr ::uid_t kNobody = 65534;
  ASSERT_EQ(::seteuid(kNobody), 0);
  const Kind kind = admin::sys::describe(path).kind;
  admin::LockedFile file;
  const os::Status opened = file.open(path, admin::LockedFile::For::kChanging, {});
  ASSERT_EQ(::seteuid(0), 0);
  EXPECT_EQ(kind, Kind::kUnknown);
  EXPECT_EQ(opened.code(), EACCES);
  EXPECT_EQ(admin::sys::describe(path + "/below").kind, Kind::kMissing);
  EXPECT_EQ(admin::sys::describe(path + std::string(300, 'x')).kind, Kind::kMissing);
}

/// The exit code if the system does not allow new namespaces, for example in a container.
constexpr int kNoNamespaces = 100;

/// Runs @p act as an ordinary user, in a process that sees only itself and its children.
/// @return its exit code.
template <class Act>
int in_new_namespaces(Act act) {
  const auto code_of = [](::pid_t child) {
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  };
  const ::pid_t outer = ::fork();
  if (outer != 0) return code_of(outer);
  if (::unshare(CLONE_NEWPID | CLONE_NEWNS) != 0) ::_exit(kNoNamespaces);
  const ::pid_t inner = ::fork();
  if (inner != 0) ::_exit(code_of(inner));
  constexpr ::uid_t kNobody = 65534;
  const bool is_ready = ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0 &&
                        ::mount("proc", "/proc", "proc", 0, nullptr) == 0 &&
                        ::setgid(kNobody) == 0 && ::setuid(kNobody) == 0 &&
                        ::prctl(PR_SET_DUMPABLE, 1) == 0;
  ::_exit(is_ready ? act() : kNoNamespaces);
}

TEST(AdminSystem, KnowsAllLocksDespiteAProcessThatHasEnded) {
  if (::geteuid() != 0) GTEST_SKIP() << "needs root: it creates process namespaces";
  const int known = in_new_namespaces([] {
    const ::pid_t ended = ::fork();
    if (ended == 0) ::_exit(0);
    ::siginfo_t info{};
    ::waitid(P_PID, static_cast<::id_t>(ended), &info, WEXITED | WNOWAIT);  // it stays a zombie
    std::vector<admin::sys::HeldLock> locks;
    return static_cast<int>(admin::sys::find_locks("/nowhere", locks));
  });
  if (known == kNoNamespaces) GTEST_SKIP() << "the system does not allow new process namespaces";
  EXPECT_EQ(known, static_cast<int>(admin::sys::Knowledge::kComplete));
}
#endif

TEST(AdminSystem, DescribesSystemAndFileSystem) {
  const scratch_folder scratch;
  const admin::sys::FileSystem system = admin::sys::file_system_of(system_form(scratch.path()));
  EXPECT_FALSE(system.type.empty());
  EXPECT_GT(system.total_bytes, 0U);
  EXPECT_GE(system.total_bytes, system.free_bytes);
  EXPECT_FALSE(admin::sys::system_name().empty());
  EXPECT_FALSE(admin::sys::narrow_encoding().empty());
}

TEST(AdminDoctor, ProvesThatLocksExcludeAndLeavesNothingBehind) {
  const scratch_folder scratch;
  const admin::LockTrial trial = admin::try_locks(system_form(scratch.path()));
  EXPECT_EQ(trial.proof, admin::LockProof::kExclude) << trial.detail;
  EXPECT_TRUE(list_folder(scratch.path()).empty());
  EXPECT_EQ(admin::try_locks(system_form(scratch.path("none"))).proof, admin::LockProof::kFailed);
  EXPECT_EQ(admin::sys::describe(admin::temporary_folder()).kind, Kind::kFolder);
}

TEST_F(AdminTree, HasAStatus) {
  add(Area::kDocs, "anna", "a", 0);
  add(Area::kDocs, "anna", "ab", 0);
  add(Area::kDocs, "bert", "a", 0);
  make_folder(storage() + "\\user\\anna");
  std::filesystem::remove(native(storage() + "\\list"));
  const admin::TreeStatus status = admin::status_of(tree());
  EXPECT_EQ(status.areas[0].owners, 2U);
  EXPECT_EQ(status.areas[0].folders, 3U);
  EXPECT_EQ(status.areas[0].with_index, 3U);
  EXPECT_EQ(status.areas[1].folders, 1U);
  EXPECT_EQ(status.areas[1].with_index, 0U);
  EXPECT_FALSE(status.areas[3].exists);
  EXPECT_TRUE(status.areas[4].exists);
}

TEST_F(AdminTree, ReportsALockedIndexAndContinues) {
  add(Area::kUser, "anna", "a.txt", 0);
  add(Area::kUser, "bert", "b.kdc", 0, "");
  vu_file writer(folder(Area::kUser, "anna", ""), "index.dat");
  writer.open(vu_file::o_append);
  admin::CheckOptions options;
  options.locking.time_out = std::chrono::milliseconds(20);
  std::vector<std::string> found;
  for (const admin::Finding& each : findings(options))
    found.emplace_back(admin::kind_of(each.code).name);
  std::sort(found.begin(), found.end());
  EXPECT_EQ(found, (Codes{"empty-document", "lock-not-obtained"}));
}

TEST_F(AdminTree, IsNeverChangedByReaders) {
  const std::string document = add(Area::kDocs, "anna", "sales.kdc", 0);
  make_folder(document + "_\\html\\p1");
  write_file(document + "_\\html\\p1\\page", "x");
  add(Area::kUser, "anna", "one.ctg", 0, "gone.kdc=1\n");
  write_file(folder(Area::kMail, "bert", "") + "\\loose.TXT", "x");
  make_folder(storage() + "\\user\\empty");
  const admin::Tree all = tree();
  const auto before = snapshot(all.storage);
  // Sets old access times, so every access would change them. Reading the times does not.
  std::vector<std::string> paths;
  for (const auto& each : std::filesystem::recursive_directory_iterator(native(storage())))
    paths.push_back(each.path().string());
#if !defined(_WIN32)
  for (const std::string& path : paths) set_access_time(path, 1'000'000);
#endif

  codes();
  admin::for_each_entry(
      all, {}, [](const admin::EntryView&) { return true; },
      [](const std::string&, const std::string&) {});
  admin::collect_stats(all, {});
  admin::status_of(all);
  for (const char* owner : {"anna", "bert", "empty", "nobody"}) {
    for (const Area area : {Area::kDocs, Area::kUser, Area::kMail}) {
      admin::Request request;
      request.area = area;
      request.owner = owner;
      request.entry = "sales.kdc";
      admin::explain_read(all, request, {});
      admin::explain_write(all, request, {});
      admin::explain_part(all, request, {});
    }
  }
  admin::parts_of(system_form(document));
  std::vector<admin::sys::HeldLock> locks;
  admin::sys::find_locks(all.storage, locks);
#if !defined(_WIN32)
  for (const std::string& path : paths)
    EXPECT_EQ(admin::sys::describe(path).access_time, 1'000'000) << path;
#endif
  EXPECT_EQ(difference(before, snapshot(all.storage)), "");
}

#if !defined(_WIN32)

TEST_F(AdminTree, FindsFoldersThatCannotBeListed) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  add(Area::kUser, "anna", "a.txt", 0);
  add(Area::kUser, "bert", "b.txt", 0);
  std::filesystem::permissions(native(storage() + "\\user\\anna"), std::filesystem::perms::none);
  std::filesystem::permissions(native(root()), std::filesystem::perms::all);
  ASSERT_EQ(seteuid(65534), 0);
  const Codes found = codes();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(found, (Codes{"not-writable", "unreadable-folder"}));
}

#endif
