// Failures of the file-system operations in both spellings, and which system calls they make.

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

namespace faults = os::faults;
using faults::Call;
using faults::Times;
using vu_host::trace_event;
using vu_host::trace_level;
using list = std::vector<std::string>;

constexpr os::Status kDenied{EACCES, os::Failure::kOther};
const std::runtime_error kPlanned("planned");

template <class Spelling>
class SystemFaultTest : public testing::Test {
 protected:
  static auto text(const std::string& bytes) { return Spelling::to_text(bytes); }
  static bool exists(const std::string& path) { return Spelling::file::exists(text(path)); }
  static constexpr bool kNarrow = std::is_same_v<Spelling, narrow_spelling>;

  std::string path(const std::string& name) const { return m_dir.path(name); }
  std::string long_path(const std::string& name) const {
    return with_backslashes(m_dir.path(name));
  }
  void make_tree() const {
    make_folder(path("tree\\one"));
    write_file(path("tree\\one\\b"), "");
  }

  scratch_folder m_dir;
};

}  // namespace

#define FAULT_TESTS(name)                           \
  template <class Spelling>                         \
  class name : public SystemFaultTest<Spelling> {}; \
  TYPED_TEST_SUITE(name, file_spellings, spelling_names)

FAULT_TESTS(VuFileExistsCalls);

TYPED_TEST(VuFileExistsCalls, AskForAttributesOnlyOfNetworkPaths) {
  struct row {
    const char* path;
    bool attributes;
  };
  const row rows[] = {
      {"\\\\server\\share", true},
      {"\\\\?\\C:\\x", true},
      {"\\\\x", true},
      {"\\\\", false},
      {"C:\\x", false},
      {"\\x", false},
      {"", false},
      {"x\\\\y", false},
  };
  for (const row& r : rows) {
    const auto attributes = faults::fail(Call::probe_attributes, os::Status());
    const auto search = faults::fail(Call::probe_search, os::Status());
    faults::reset();
    EXPECT_TRUE(this->exists(r.path)) << r.path;
    EXPECT_EQ(faults::calls(Call::probe_attributes), r.attributes ? 1U : 0U) << r.path;
    EXPECT_EQ(faults::calls(Call::probe_search), r.attributes ? 0U : 1U) << r.path;
  }
}

TYPED_TEST(VuFileExistsCalls, AreAnsweredNoByAnyFailure) {
  const auto attributes = faults::fail(Call::probe_attributes, kDenied);
  const auto search = faults::fail(Call::probe_search, kDenied);
  recording_sink sink;
  EXPECT_FALSE(this->exists("\\\\server\\share"));
  EXPECT_FALSE(this->exists(this->m_dir.path()));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

FAULT_TESTS(VuFileStatFailure);

TYPED_TEST(VuFileStatFailure, OtherThanAMissingPathIsZeroAfterAnError) {
  using file = typename TypeParam::file;
  const std::string path = this->path("f");
  write_file(path, "text");
  const auto fault = faults::fail(Call::stat, kDenied, 1, Times::kLasting);
  recording_sink sink;
  EXPECT_EQ(file::access_time(this->text(path)), 0U);
  EXPECT_EQ(file::modify_time(this->text(path)), 0U);
  EXPECT_EQ(file::size(this->text(path)), 0U);
  EXPECT_FALSE(file::is_dir(this->text(path)));
  const list expected =
      this->kNarrow ? list{"vu_file::access_time '" + path + "': Problem getting information",
                           "vu_file::modify_time '" + path + "': Problem getting information",
                           "vu_file::size '" + path + "': Problem getting information",
                           "vu_file::is_dir '" + path + "': Problem getting information"}
                    : list{path + ": can't stat", path + ": can't stat", path + ": can't stat",
                           with_backslashes(path) + ": can't stat"};
  EXPECT_EQ(sink.events(trace_event::error), expected);
  EXPECT_EQ(sink.count(trace_event::warning), 0U);
}

FAULT_TESTS(VuFileFilenamesFailure);

TYPED_TEST(VuFileFilenamesFailure, OfTheListingGivesNoNames) {
  write_file(this->path("f"), "");
  const auto fault = faults::fail(Call::list, kDenied);
  recording_sink sink;
  EXPECT_TRUE(TypeParam::file::filenames(this->text(this->m_dir.path())).empty());
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST(VuFileUtf8FolderSizeFailure, OfAFileCountsAsNothing) {
  const scratch_folder dir;
  write_file(dir.path("a"), std::string(2048, 'x'));
  // The first call checks the folder, the second checks that it is a file, the third gets its size.
  const auto fault = faults::fail(Call::stat, kDenied, 3);
  recording_sink sink;
  EXPECT_EQ(vu_fileutf8::getFolderSizeInKb(vu_utf8string(dir.path())), 0U);
  EXPECT_EQ(sink.events(trace_event::error), list{dir.path("a") + ": can't stat"});
}

FAULT_TESTS(VuFileChangeFailure);

TYPED_TEST(VuFileChangeFailure, OfChmodWIsFalseAfterAnError) {
  write_file(this->path("f"), "");
  const auto fault = faults::fail(Call::make_writable, kDenied);
  recording_sink sink;
  EXPECT_FALSE(TypeParam::file::chmodW(this->text(this->path("f"))));
  EXPECT_EQ(sink.events(trace_event::error),
            list{std::string(TypeParam::kClass) + "::chmodW : failed (" + this->path("f") + ")"});
}

TYPED_TEST(VuFileChangeFailure, OfCreateDirIsFalseAfterAnErrorWithTheSystemsText) {
  const auto fault = faults::fail(Call::create_directory, kDenied);
  recording_sink sink;
  EXPECT_FALSE(TypeParam::file::createDir(this->text(this->path("new"))));
  EXPECT_EQ(sink.events(trace_event::error),
            list{std::string(TypeParam::kClass) + "::createDir (" + this->path("new") +
                 ") : " + os::error_text(EACCES)});
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
}

TYPED_TEST(VuFileChangeFailure, OfCreateDirWithoutAMessageEndsBehindTheColon) {
  const auto fault = faults::fail(Call::create_directory, {0x0FFFFFFF, os::Failure::kOther});
  recording_sink sink;
  EXPECT_FALSE(TypeParam::file::createDir(this->text(this->path("new"))));
  EXPECT_EQ(sink.events(trace_event::error),
            list{std::string(TypeParam::kClass) + "::createDir (" + this->path("new") + ") : "});
}

TYPED_TEST(VuFileChangeFailure, OfRenameIsFalseAfterAWarning) {
  const auto fault = faults::fail(Call::rename, kDenied);
  recording_sink sink;
  EXPECT_FALSE(TypeParam::file::rename(this->text("a/b"), this->text("c/d")));
  EXPECT_EQ(sink.events(trace_event::warning),
            list{std::string(TypeParam::kClass) + "::rename() \t old Name : a/b new name c/d"});
}

TYPED_TEST(VuFileChangeFailure, OfCopyFileIsFalseAndTracedAsASuccess) {
  write_file(this->path("a"), "text");
  const auto fault = faults::fail(Call::copy, kDenied);
  recording_sink sink;
  EXPECT_FALSE(
      TypeParam::file::copyFile(this->text(this->path("a")), this->text(this->path("b")), true));
  EXPECT_EQ(sink.events(trace_event::success),
            list{"\tfrom fileSrc=" + this->path("a") + " to FileDest=" + this->path("b")});
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TYPED_TEST(VuFileChangeFailure, OfCopyFileByAnExceptionNamesTheSourceTwice) {
  write_file(this->path("a"), "text");
  for (const Call call : {Call::probe_search, Call::copy}) {
    const auto fault = faults::throw_from(call, kPlanned);
    recording_sink sink;
    EXPECT_FALSE(
        TypeParam::file::copyFile(this->text(this->path("a")), this->text(this->path("b")), true));
    EXPECT_EQ(sink.events(trace_event::error),
              list{"Can't copy " + this->path("a") + " file  to " + this->path("a") + " file"});
    EXPECT_EQ(sink.count(trace_event::success), 0U);
  }
}

TYPED_TEST(VuFileChangeFailure, OfCopyFileWithoutOverwritingLeavesTheLastWordToTheSystem) {
  write_file(this->path("a"), "text");
  // Another process creates the target between the check and the copy.
  const auto hook = faults::before(Call::copy, [&] { write_file(this->path("b"), "somebody's"); });
  EXPECT_FALSE(
      TypeParam::file::copyFile(this->text(this->path("a")), this->text(this->path("b")), false));
  EXPECT_EQ(read_file(this->path("b")), "somebody's");
}

TYPED_TEST(VuFileChangeFailure, OfRecurseRemoveDirIsStillTrue) {
  this->make_tree();
  const auto files = faults::fail(Call::remove_file, kDenied, 1, Times::kLasting);
  const auto folders = faults::fail(Call::remove_directory, kDenied, 1, Times::kLasting);
  EXPECT_TRUE(TypeParam::file::recurseRemoveDir(this->text(this->path("tree"))));
  EXPECT_EQ(list_folder(this->path("tree\\one")), list{"b"});
}

TEST(VuFileUtf8CreateDirRFailure, OfOneFolderEndsItWithFalse) {
  const auto missing = faults::fail(Call::probe_search, kDenied, 1, Times::kLasting);
  const auto fault = faults::fail(Call::create_directory, kDenied);
  recording_sink sink;
  faults::reset();
  EXPECT_FALSE(vu_fileutf8::createDirR(vu_utf8string("one\\two")));
  EXPECT_EQ(faults::calls(Call::create_directory), 1U);
  EXPECT_EQ(sink.events(trace_event::error),
            list{"vu_fileutf8::createDir (one\\) : " + os::error_text(EACCES)});
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
}

TEST(VuFileUtf8CreateDirRFailure, ByAnExceptionIsFalseAfterAnError) {
  for (const Call call : {Call::probe_search, Call::create_directory}) {
    const auto missing = faults::fail(Call::probe_search, kDenied, 2, Times::kLasting);
    const auto fault = faults::throw_from(call, kPlanned);
    const auto never = faults::fail(Call::probe_search, kDenied, 1, Times::kLasting);
    recording_sink sink;
    EXPECT_FALSE(vu_fileutf8::createDirR(vu_utf8string("one\\two")));
    EXPECT_EQ(sink.events(trace_event::error), list{"vu_fileutf8::createDirR(one\\two)"});
  }
}

TEST(VuFileRemoveFailure, IsSilentInTheNarrowForm) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  const auto fault = faults::fail(Call::remove_file, kDenied);
  recording_sink sink;
  vu_file::remove(dir.path("f"));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
  EXPECT_TRUE(file_exists(dir.path("f")));
}

TEST(VuFileRemoveFailure, ByAnExceptionIsAnErrorInTheNarrowForm) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  for (const Call call : {Call::stat, Call::remove_file}) {
    const auto fault = faults::throw_from(call, kPlanned);
    recording_sink sink;
    EXPECT_NO_THROW(vu_file::remove(dir.path("f")));
    EXPECT_EQ(sink.events(trace_event::error), list{"vu_file::remove(" + dir.path("f") + ")"});
  }
}

TEST(VuFileRemoveFailure, OfTheQuestionIsTracedAndThePathTakenForAFile) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  const auto fault = faults::fail(Call::stat, kDenied);
  recording_sink sink;
  vu_file::remove(dir.path("f"));
  EXPECT_EQ(sink.events(trace_event::error),
            list{"vu_file::is_dir '" + dir.path("f") + "': Problem getting information"});
  EXPECT_FALSE(file_exists(dir.path("f")));
}

TEST(VuFileUtf8RemoveFailure, IsTracedWithTheSystemsText) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  const auto fault = faults::fail(Call::remove_file, kDenied, 1, Times::kLasting);
  const std::string expected =
      "removing: " + with_backslashes(dir.path("f")) + ": " + os::error_text(EACCES);
  recording_sink sink;
  vu_fileutf8::remove(vu_utf8string(dir.path("f")), false);
  EXPECT_EQ(sink.events(trace_event::error), list{expected});
  vu_fileutf8::remove(vu_utf8string(dir.path("f")), true);
  EXPECT_EQ(sink.records(trace_level::xs), list{expected});
}

TEST(VuFileUtf8RemoveFailure, WithoutAMessageNamesTheCode) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  const auto fault = faults::fail(Call::remove_file, {0x0FFFFFFF, os::Failure::kOther});
  recording_sink sink;
  vu_fileutf8::remove(vu_utf8string(dir.path("f")), false);
  EXPECT_EQ(sink.events(trace_event::error),
            list{"removing: " + with_backslashes(dir.path("f")) + ": system error: 268435455\n"});
}

TEST(VuFileUtf8RemoveFailure, ByAnExceptionIsAnErrorWhateverTheFlag) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  for (const bool quiet : {false, true}) {
    for (const Call call : {Call::stat, Call::remove_file}) {
      const auto fault = faults::throw_from(call, kPlanned);
      recording_sink sink;
      EXPECT_NO_THROW(vu_fileutf8::remove(vu_utf8string(dir.path("f")), quiet));
      EXPECT_EQ(sink.events(trace_event::error),
                list{"uncaught exception while removing " + with_backslashes(dir.path("f"))});
    }
  }
}

TEST(VuFileRecurseRemoveDirFailure, ByAnExceptionIsFalseAfterAnError) {
  const scratch_folder dir;
  make_folder(dir.path("tree"));
  for (const Call call : {Call::probe_search, Call::stat, Call::list}) {
    const auto fault = faults::throw_from(call, kPlanned);
    recording_sink sink;
    EXPECT_FALSE(vu_file::recurseRemoveDir(dir.path("tree")));
    EXPECT_EQ(sink.events(trace_event::error),
              list{"vu_file::recurseRemoveDir(" + dir.path("tree") + ")"});
  }
  EXPECT_TRUE(folder_exists(dir.path("tree")));
}

TEST(VuFileRecurseRemoveDirFailure, PassesOverAnEntryThatHasGone) {
  const scratch_folder dir;
  make_folder(dir.path("tree"));
  write_file(dir.path("tree\\f"), "");
  const auto hook =
      faults::after(Call::list, [&] { std::filesystem::remove(native(dir.path("tree\\f"))); });
  recording_sink sink;
  EXPECT_TRUE(vu_file::recurseRemoveDir(dir.path("tree")));
  EXPECT_EQ(sink.records(trace_level::xs), list{"root path->" + dir.path("tree")});
  EXPECT_FALSE(folder_exists(dir.path("tree")));
}

TEST(VuFileUtf8RecurseRemoveDirFailure, ByAnExceptionInTheListingIsAnErrorAndTrue) {
  const scratch_folder dir;
  make_folder(dir.path("tree"));
  const auto fault = faults::throw_from(Call::list, kPlanned);
  recording_sink sink;
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(dir.path("tree"))));
  EXPECT_EQ(sink.events(trace_event::error),
            list{"uncaught exception while removing " + with_backslashes(dir.path("tree"))});
  EXPECT_TRUE(folder_exists(dir.path("tree")));
}

TEST(VuFileUtf8RecurseRemoveDirFailure, OfOneFolderLeavesTheOthersToGo) {
  const scratch_folder dir;
  make_folder(dir.path("tree\\one"));
  make_folder(dir.path("tree\\two"));
  // The second listing is that of the sub-folder that comes first.
  const auto fault = faults::throw_from(Call::list, kPlanned, 2);
  recording_sink sink;
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(dir.path("tree"))));
  EXPECT_EQ(list_folder(dir.path("tree")).size(), 1U);
  EXPECT_EQ(sink.count(trace_event::error), 1U);
}

TEST(VuFileUtf8RecurseRemoveDirFailure, OfARemovalIsTracedQuietly) {
  const scratch_folder dir;
  make_folder(dir.path("tree"));
  write_file(dir.path("tree\\f"), "");
  const auto fault = faults::fail(Call::remove_file, kDenied);
  recording_sink sink;
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(dir.path("tree")), false));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_EQ(sink.records(trace_level::xs).at(0),
            "removing: " + with_backslashes(dir.path("tree\\f")) + ": " + os::error_text(EACCES));
}

namespace {

/// Longer than the limit on both systems; does not exist.
const std::string kLong = "C:\\" + std::string(300, 'x');

#if defined(__linux__)
/// A tree in which another process replaces a folder by a link to a foreign folder.
class SwappedFolder : public testing::Test {
 protected:
  SwappedFolder() {
    make_folder(m_dir.path("tree\\sub\\deep"));
    write_file(m_dir.path("tree\\sub\\file"), "ours");
    write_file(m_dir.path("tree\\sub\\only ours"), "ours");
    make_folder(m_dir.path("foreign\\deep"));
    write_file(m_dir.path("foreign\\file"), "theirs");
    write_file(m_dir.path("foreign\\deep\\file"), "theirs");
  }
  void swap() const {
    std::filesystem::rename(native(m_dir.path("tree\\sub")), native(m_dir.path("moved")));
    std::filesystem::create_directory_symlink(native(m_dir.path("foreign")),
                                              native(m_dir.path("tree\\sub")));
  }
  void expect_foreign_files() const {
    EXPECT_EQ(read_file(m_dir.path("foreign\\file")), "theirs");
    EXPECT_EQ(read_file(m_dir.path("foreign\\deep\\file")), "theirs");
  }
  template <class Remove>
  void expect_safe_when_swapped_before(Call call, std::uint64_t nth, Remove remove) const {
    const auto hook = faults::before(
        call, [&] { swap(); }, nth);
    EXPECT_TRUE(remove());
    EXPECT_EQ(hook.hits(), 1U);
    expect_foreign_files();
  }

  scratch_folder m_dir;
};

TEST_F(SwappedFolder, BeforeItIsOpenedIsNotWalkedInto) {
  expect_safe_when_swapped_before(Call::open_folder, 2,
                                  [&] { return vu_file::recurseRemoveDir(m_dir.path("tree")); });
}

TEST_F(SwappedFolder, BeforeItIsListedLeavesTheForeignFiles) {
  expect_safe_when_swapped_before(Call::list, 2,
                                  [&] { return vu_file::recurseRemoveDir(m_dir.path("tree")); });
}

TEST_F(SwappedFolder, BeforeAFileInItIsRemovedLeavesTheForeignOne) {
  expect_safe_when_swapped_before(Call::remove_file, 1,
                                  [&] { return vu_file::recurseRemoveDir(m_dir.path("tree")); });
}

TEST_F(SwappedFolder, IsNotWalkedIntoByTheUtf8FormEither) {
  const vu_utf8string tree(m_dir.path("tree"));
  const auto remove = [&] { return vu_fileutf8::recurseRemoveDir(tree); };
  expect_safe_when_swapped_before(Call::open_folder, 2, remove);
}

TEST_F(SwappedFolder, IsNotWalkedIntoIfItsPathEndsInASeparator) {
  const std::string path = m_dir.path("tree\\sub\\");
  expect_safe_when_swapped_before(Call::open_folder, 1,
                                  [&] { return vu_file::recurseRemoveDir(path); });
}

TEST_F(SwappedFolder, IsListedByTheUtf8FormAsTheRequestedOne) {
  const vu_utf8string tree(m_dir.path("tree"));
  const auto remove = [&] { return vu_fileutf8::recurseRemoveDir(tree); };
  expect_safe_when_swapped_before(Call::list, 2, remove);
  EXPECT_TRUE(list_folder(m_dir.path("moved")).empty());
}
#endif

TYPED_TEST(VuFileChangeFailure, OfOpeningAFolderLeavesWhatIsInItAndIsStillTrue) {
  make_folder(this->m_dir.path("tree"));
  write_file(this->m_dir.path("tree\\f"), "");
  const auto refused = faults::fail(Call::open_folder, kDenied);
  EXPECT_TRUE(TypeParam::file::recurseRemoveDir(TypeParam::to_text(this->m_dir.path("tree"))));
  EXPECT_TRUE(file_exists(this->m_dir.path("tree\\f")));
}

/// As in code page 932: the second byte of the character is a backslash.
class TwoByteNames : public testing::Test {
 protected:
  const faults::Fault m_lead_bytes = faults::set_lead_bytes("\x81\x95");
  const std::string m_name = "\x95\x5C";
};

TEST_F(TwoByteNames, AreNotCutByTheHelpersForPaths) {
  std::string path = "dir\\" + m_name;
  vu_file::addFileSep(path);
  EXPECT_EQ(path, "dir\\" + m_name + "\\");
  vu_file::addFileSep(path);
  EXPECT_EQ(path, "dir\\" + m_name + "\\");
  vu_file::removeLastFileSep(path);
  EXPECT_EQ(path, "dir\\" + m_name);
  vu_file::removeLastFileSep(path);
  EXPECT_EQ(path, "dir\\" + m_name);
  std::string dir;
  EXPECT_EQ(vu_file::getShirtFileName(path, dir), m_name);
  EXPECT_EQ(dir, "dir\\");
  EXPECT_EQ(vu_file::getShirtFileName(m_name, dir), m_name);
  EXPECT_EQ(dir, ".\\");
  const vu_path names(path);
  EXPECT_EQ(names.getParentPathName(), "dir");
  EXPECT_EQ(names.getRelativePathName(), m_name);
}

TEST_F(TwoByteNames, AreCountedFromTheBeginningOfTheirRun) {
  // Two bytes that can both begin a character are one character. The backslash after it is a
  // separator.
  std::string path = "\x95\x95\\";
  vu_file::removeLastFileSep(path);
  EXPECT_EQ(path, "\x95\x95");
  path = "\x95\x81\x95\\";
  vu_file::removeLastFileSep(path);
  EXPECT_EQ(path, "\x95\x81\x95\\");
}

TEST_F(TwoByteNames, AreTheNamesOfHandles) {
  const vu_file file("dir\\" + m_name);
  EXPECT_EQ(file.getPath().getParentPathName(), "dir");
  EXPECT_EQ(file.getPath().getRelativePathName(), m_name);
  vu_file kept("dir", "name");
  kept.setPath(m_name);
  EXPECT_EQ(kept.getFilePath(), "dir\\name") << "a name alone is no path";
}

TEST_F(TwoByteNames, AreUtf8InTheOtherForm) {
  vu_utf8string path("\xE8\xA1\xA8\\");
  vu_fileutf8::removeLastFileSep(path);
  EXPECT_EQ(path.str(), "\xE8\xA1\xA8");
}

#if defined(__linux__)
TEST_F(TwoByteNames, AreAskedForWhole) {
  const scratch_folder dir;
  make_folder(dir.path("\x95"));
  // Linux sees a folder and a separator. The file layer sees one character, so it does not check
  // for a folder.
  EXPECT_FALSE(vu_file::exists(dir.path(m_name)));
  EXPECT_TRUE(vu_file::exists(dir.path("\x95/")));
}
#endif

}  // namespace

TEST(VuFileUtf8LongForm, GoesWithEveryOperationButOne) {
  const vu_utf8string path(kLong);
  const vu_utf8string target(kLong + "y");
  recording_sink sink;
  const auto count = [](auto operation) {
    faults::reset();
    operation();
    return faults::calls(Call::short_path);
  };
  EXPECT_EQ(count([&] { vu_fileutf8::exists(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::access_time(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::modify_time(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::size(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::is_dir(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::filenames(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::remove(path, true); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::recurseRemoveDir(path); }), 1U);
  EXPECT_EQ(count([&] { vu_fileutf8::rename(path, target); }), 2U);
  EXPECT_EQ(count([&] { vu_fileutf8::copyFile(path, target, true); }), 2U);
  EXPECT_EQ(count([&] {
              const auto fault = faults::fail(Call::create_directory, kDenied);
              vu_fileutf8::createDir(path);
            }),
            1U);
  EXPECT_EQ(count([&] { vu_fileutf8::chmodW(path); }), 0U) << "which takes the path as it is";
  EXPECT_EQ(count([&] {
              vu_utf8string changed(path);
              vu_fileutf8::rel2abs(changed);
            }),
            0U);
}

TEST(VuFileUtf8LongForm, IsGivenToTheEntriesOfAFolderWithinTheLimit) {
  const scratch_folder dir;
  std::string folder = dir.path("tree");
  while (folder.size() < 220) folder += "\\folder_20_characters";
  make_folder(folder);
  write_file(folder + "\\" + std::string(60, 'f'), "");
  faults::reset();
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(folder)));
  EXPECT_EQ(faults::calls(Call::short_path), 1U);
  EXPECT_FALSE(folder_exists(folder));
}

TEST(VuFileUtf8LongForm, GoesWithTheHandle) {
  vu_fileutf8 file{vu_utf8string(kLong), vu_utf8string("f")};
  bool lock_failed = false;
  faults::reset();
  EXPECT_FALSE(file.try_open(vu_file_base::o_read, lock_failed, true));
  EXPECT_EQ(faults::calls(Call::short_path), 1U);
}

TEST(VuFileUtf8LongForm, IsNoMatterOfTheNarrowForm) {
  faults::reset();
  vu_file::exists(kLong);
  vu_file::size(kLong);
  vu_file::filenames(kLong);
  vu_file::rename(kLong, kLong + "y");
  EXPECT_EQ(faults::calls(Call::short_path), 0U);
}
