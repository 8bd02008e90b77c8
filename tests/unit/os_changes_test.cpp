#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "tests/unit/os_test_kit.h"

// Making, removing and renaming. The names of the test support end in the same verbs; "os::" marks
// what is under test.

namespace {

using os::Access;
using os::Failure;

// ---- folders -----------------------------------------------------------------------------------

TEST(OsCreateDirectory, MakesOneFolder) {
  const scratch_folder scratch;
  EXPECT_TRUE(succeeds(os::create_directory(scratch.path("narrow"))));
  EXPECT_TRUE(succeeds(os::create_directory(wide(scratch.path("wide")))));
  EXPECT_TRUE(succeeds(os::create_directory(scratch.path("with separator\\"))));
  EXPECT_TRUE(folder_exists(scratch.path("narrow")));
  EXPECT_TRUE(folder_exists(scratch.path("wide")));
  EXPECT_TRUE(folder_exists(scratch.path("with separator")));
}

TEST(OsCreateDirectory, ReportsATakenNameWhateverItIs) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "text");
  for (const std::string name : {"folder", "folder\\", "file"}) {
    EXPECT_TRUE(
        fails(os::create_directory(scratch.path(name)), Failure::kAlreadyExists, {EEXIST, 183}))
        << name;
  }
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsCreateDirectory, WantsTheParent) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "");
  EXPECT_TRUE(
      fails(os::create_directory(scratch.path("missing\\x")), Failure::kNotFound, {ENOENT, 3}));
  EXPECT_TRUE(
      fails(os::create_directory(scratch.path("file\\x")), Failure::kNotFound, {ENOTDIR, 3}));
  EXPECT_TRUE(fails(os::create_directory(std::string()), Failure::kNotFound, {ENOENT, 3}));
}

TEST(OsRemoveDirectory, RemovesAnEmptyFolderOnly) {
  const scratch_folder scratch;
  make_folder(scratch.path("full\\inner"));
  EXPECT_TRUE(fails(os::remove_directory(scratch.path("full")), Failure::kOther, {ENOTEMPTY, 145}));
  EXPECT_TRUE(succeeds(os::remove_directory(scratch.path("full\\inner"))));
  EXPECT_TRUE(succeeds(os::remove_directory(wide(scratch.path("full")))));
  EXPECT_FALSE(folder_exists(scratch.path("full")));
}

TEST(OsRemoveDirectory, LeavesAFileAlone) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  EXPECT_TRUE(fails(os::remove_directory(scratch.path("file")), Failure::kOther, {ENOTDIR, 267}));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
  EXPECT_TRUE(
      fails(os::remove_directory(scratch.path("missing")), Failure::kNotFound, {ENOENT, 2}));
}

// ---- files -------------------------------------------------------------------------------------

TEST(OsRemoveFile, RemovesAFile) {
  const scratch_folder scratch;
  write_file(scratch.path("a"), "");
  write_file(scratch.path("b"), "");
  EXPECT_TRUE(succeeds(os::remove_file(scratch.path("a"))));
  EXPECT_TRUE(succeeds(os::remove_file(wide(scratch.path("b")))));
  EXPECT_TRUE(list_folder(scratch.path()).empty());
  EXPECT_TRUE(fails(os::remove_file(scratch.path("a")), Failure::kNotFound, {ENOENT, 2}));
  EXPECT_EQ(os::last_error(), (Codes{ENOENT, 2}.here()));
}

TEST(OsRemoveFile, LeavesAFolderAlone) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  EXPECT_TRUE(fails(os::remove_file(scratch.path("folder")), Failure::kOther, {EISDIR, 5}));
  EXPECT_EQ(os::last_error(), (Codes{EISDIR, 5}.here()));
  EXPECT_TRUE(folder_exists(scratch.path("folder")));
}

TEST(OsRemoveFile, LeavesAReadOnlyFileAloneWhoeverAsks) {
  const scratch_folder scratch;
  const std::string path = scratch.path("file");
  write_file(path, "text");
  make_read_only(path);
  EXPECT_TRUE(fails(os::remove_file(path), Failure::kOther, {EACCES, 5}));
  EXPECT_EQ(read_file(path), "text");
}

TEST(OsMakeWritable, LetsAReadOnlyFileBeWrittenAndRemoved) {
  const scratch_folder scratch;
  for (const bool in_wide : {false, true}) {
    const std::string path = scratch.path("file");
    write_file(path, "text");
    make_read_only(path);
    EXPECT_FALSE(is_writable(path));
    EXPECT_TRUE(succeeds(in_wide ? os::make_writable(wide(path)) : os::make_writable(path)));
    EXPECT_TRUE(is_writable(path));
    OpenFile(path, Access::kReadWriteCreate).write("more");
    EXPECT_TRUE(succeeds(os::remove_file(path)));
  }
  EXPECT_TRUE(
      fails(os::make_writable(scratch.path("missing")), Failure::kNotFound, {ENOENT, ENOENT}));
}

// ---- renaming ----------------------------------------------------------------------------------

TEST(OsRename, MovesFilesAndFolders) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "text");
  EXPECT_TRUE(succeeds(os::rename(scratch.path("file"), scratch.path("folder\\moved"))));
  EXPECT_TRUE(succeeds(os::rename(wide(scratch.path("folder")), wide(scratch.path("other")))));
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{"other"});
  EXPECT_EQ(read_file(scratch.path("other\\moved")), "text");
}

TEST(OsRename, LeavesATakenNameAlone) {
  const scratch_folder scratch;
  write_file(scratch.path("from"), "new");
  write_file(scratch.path("file"), "old");
  make_folder(scratch.path("folder"));
  make_folder(scratch.path("from folder"));
  const auto refused = [&](const std::string& from, const std::string& to) {
    return fails(os::rename(scratch.path(from), scratch.path(to)), Failure::kAlreadyExists,
                 {EEXIST, EEXIST});
  };
  EXPECT_TRUE(refused("from", "file"));
  EXPECT_TRUE(refused("from", "folder"));
  EXPECT_TRUE(refused("from folder", "folder"));
  EXPECT_TRUE(refused("from folder", "file"));
  EXPECT_EQ(read_file(scratch.path("from")), "new");
  EXPECT_EQ(read_file(scratch.path("file")), "old");
  EXPECT_TRUE(folder_exists(scratch.path("folder")));
  EXPECT_TRUE(folder_exists(scratch.path("from folder")));
}

TEST(OsRename, OntoItselfSucceedsHoweverItIsSpelled) {
  const scratch_folder scratch;
  make_folder(scratch.path("folder"));
  write_file(scratch.path("file"), "text");
  for (const std::string name : {"file", ".\\file", "folder\\..\\file", "folder/../file"}) {
    EXPECT_TRUE(succeeds(os::rename(scratch.path("file"), scratch.path(name)))) << name;
  }
  EXPECT_TRUE(succeeds(os::rename(scratch.path("folder"), scratch.path("folder"))));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsRename, AMissingSourceFailsEvenOntoItself) {
  const scratch_folder scratch;
  const std::string missing = scratch.path("missing");
  EXPECT_TRUE(fails(os::rename(missing, missing), Failure::kNotFound, {ENOENT, ENOENT}));
  EXPECT_TRUE(
      fails(os::rename(missing, scratch.path("new")), Failure::kNotFound, {ENOENT, ENOENT}));
}

TEST(OsRename, WantsTheFolderOfTheNewName) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  EXPECT_TRUE(fails(os::rename(scratch.path("file"), scratch.path("missing\\file")),
                    Failure::kNotFound, {ENOENT, ENOENT}));
  EXPECT_EQ(read_file(scratch.path("file")), "text");
}

TEST(OsRename, MovesReadOnlyAndLockedFilesToo) {
  const scratch_folder scratch;
  write_file(scratch.path("read-only"), "text");
  make_read_only(scratch.path("read-only"));
  EXPECT_TRUE(succeeds(os::rename(scratch.path("read-only"), scratch.path("moved"))));
  EXPECT_FALSE(is_writable(scratch.path("moved")));
  OpenFile file(scratch.path("locked"), Access::kReadWriteCreate);
  EXPECT_TRUE(succeeds(file.lock_exclusive()));
  EXPECT_TRUE(succeeds(os::rename(scratch.path("locked"), scratch.path("moved too"))));
}

TEST(OsRename, ChangesLetterCaseAlone) {
  NEEDS_A_REAL_KERNEL("a rename that changes nothing but letter case takes effect");
  const scratch_folder scratch;
  write_file(scratch.path("Report.KDB"), "text");
  EXPECT_TRUE(succeeds(os::rename(scratch.path("Report.KDB"), scratch.path("Report.kdb"))));
  EXPECT_EQ(list_folder(scratch.path()), std::vector<std::string>{"Report.kdb"});
}

}  // namespace
