// Changes to the file system in both spellings: folders, removal, renaming, copying.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

using vu_host::trace_event;
using vu_host::trace_level;
using list = std::vector<std::string>;

template <class Spelling>
class FileChangeTest : public testing::Test {
 protected:
  static auto text(const std::string& bytes) { return Spelling::to_text(bytes); }
  static bool create(const std::string& path) { return Spelling::file::createDir(text(path)); }
  static void remove(const std::string& path) { Spelling::file::remove(text(path)); }
  static bool rename(const std::string& from, const std::string& to) {
    return Spelling::file::rename(text(from), text(to));
  }
  static bool copy(const std::string& from, const std::string& to, bool overwrite) {
    return Spelling::file::copyFile(text(from), text(to), overwrite);
  }
  static bool remove_tree(const std::string& path) {
    return Spelling::file::recurseRemoveDir(text(path));
  }
  static constexpr bool kNarrow = std::is_same_v<Spelling, narrow_spelling>;

  std::string path(const std::string& name) const { return m_dir.path(name); }
  /// The long form of a path, as the UTF-8 operations trace it.
  std::string long_path(const std::string& name) const {
    return with_backslashes(m_dir.path(name));
  }
  void make_tree() const {
    make_folder(path("tree\\one\\two"));
    write_file(path("tree\\a"), "");
    write_file(path("tree\\one\\b"), "");
    write_file(path("tree\\one\\two\\c"), "");
  }

  scratch_folder m_dir;
};

/// Makes a folder the current folder for a scope.
class current_folder {
 public:
  explicit current_folder(const std::string& path) : m_before(std::filesystem::current_path()) {
    std::filesystem::current_path(native(path));
  }
  ~current_folder() { std::filesystem::current_path(m_before); }
  current_folder(const current_folder&) = delete;
  current_folder& operator=(const current_folder&) = delete;

 private:
  std::filesystem::path m_before;
};

}  // namespace

#define CHANGE_TESTS(name)                         \
  template <class Spelling>                        \
  class name : public FileChangeTest<Spelling> {}; \
  TYPED_TEST_SUITE(name, file_spellings, spelling_names)

CHANGE_TESTS(VuFileChmodW);

TYPED_TEST(VuFileChmodW, MakesAReadOnlyFileWritable) {
  write_file(this->path("f"), "text");
  make_read_only(this->path("f"));
  EXPECT_TRUE(TypeParam::file::chmodW(this->text(this->path("f"))));
  EXPECT_TRUE(is_writable(this->path("f")));
  EXPECT_TRUE(TypeParam::file::chmodW(this->text(this->path("f"))));
  EXPECT_TRUE(is_writable(this->path("f")));
}

TYPED_TEST(VuFileChmodW, OfAMissingFileIsFalseAfterAnError) {
  recording_sink sink;
  EXPECT_FALSE(TypeParam::file::chmodW(this->text(this->path("missing"))));
  EXPECT_EQ(
      sink.events(trace_event::error),
      list{std::string(TypeParam::kClass) + "::chmodW : failed (" + this->path("missing") + ")"});
}

CHANGE_TESTS(VuFileCreateDir);

TYPED_TEST(VuFileCreateDir, MakesOneFolder) {
  recording_sink sink;
  EXPECT_TRUE(this->create(this->path("new")));
  EXPECT_TRUE(folder_exists(this->path("new")));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
}

TYPED_TEST(VuFileCreateDir, OfAFolderThatExistsIsTrueAndTracedAtXsOnly) {
  make_folder(this->path("there"));
  recording_sink sink;
  EXPECT_TRUE(this->create(this->path("there")));
  EXPECT_EQ(sink.records(trace_level::xs),
            list{std::string(TypeParam::kClass) + "::createDir directory already exists (" +
                 this->path("there") + ") "});
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TYPED_TEST(VuFileCreateDir, OfANameThatAFileHasIsTrueAsWell) {
  write_file(this->path("file"), "");
  EXPECT_TRUE(this->create(this->path("file")));
  EXPECT_FALSE(folder_exists(this->path("file")));
}

TYPED_TEST(VuFileCreateDir, BelowAMissingFolderIsFalseAfterAnErrorWithTheSystemsText) {
  recording_sink sink;
  EXPECT_FALSE(this->create(this->path("no\\new")));
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 1U);
  const std::string begin =
      std::string(TypeParam::kClass) + "::createDir (" + this->path("no\\new") + ") : ";
  EXPECT_EQ(errors[0].substr(0, begin.size()), begin);
  EXPECT_GT(errors[0].size(), begin.size() + 2);
  EXPECT_EQ(errors[0].substr(errors[0].size() - 2), "\r\n");
}

class VuFileUtf8CreateDirR : public FileChangeTest<utf8_spelling> {
 protected:
  static bool create_all(const std::string& path) {
    return vu_fileutf8::createDirR(vu_utf8string(path));
  }
};

TEST_F(VuFileUtf8CreateDirR, OfAFolderThatExistsIsTrueAtOnce) {
  recording_sink sink;
  EXPECT_TRUE(create_all(m_dir.path()));
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
}

TEST_F(VuFileUtf8CreateDirR, MakesTheMissingFoldersOneByOne) {
  const current_folder here(m_dir.path());
  make_folder(path("one"));
  recording_sink sink;
  EXPECT_TRUE(create_all("one\\two\\three"));
  EXPECT_TRUE(folder_exists(path("one\\two\\three")));
  EXPECT_EQ(sink.records(trace_level::xs), list{"Recursivly created directory one\\two\\three"});
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TEST_F(VuFileUtf8CreateDirR, DropsEmptyComponents) {
  const current_folder here(m_dir.path());
  EXPECT_TRUE(create_all("one\\\\two\\"));
  EXPECT_TRUE(folder_exists(path("one\\two")));
}

TEST_F(VuFileUtf8CreateDirR, MakesANetworkPathBelowTheCurrentFolder) {
  const current_folder here(m_dir.path());
  EXPECT_TRUE(create_all("\\\\no_such_server_here\\share\\folder"));
  EXPECT_TRUE(folder_exists(path("no_such_server_here\\share\\folder")));
}

TEST_F(VuFileUtf8CreateDirR, MakesAnAbsolutePath) {
  const std::string folder = path("one\\two");
  const current_folder here(m_dir.path());
  recording_sink sink;
  EXPECT_TRUE(create_all(folder));
  EXPECT_TRUE(folder_exists(folder));
  EXPECT_EQ(sink.count(trace_level::xs, "Recursivly created directory " + folder), 1U);
}

TEST_F(VuFileUtf8CreateDirR, MakesTheFoldersOfAnAbsolutePathOfEitherSeparator) {
  std::string folder = path("one\\two");
  std::replace(folder.begin(), folder.end(), '/', '\\');
  const scratch_folder elsewhere;
  const current_folder here(elsewhere.path());
  EXPECT_TRUE(create_all(folder));
  EXPECT_TRUE(folder_exists(folder));
  std::string other = path("three\\four");
  std::replace(other.begin(), other.end(), '\\', '/');
  EXPECT_TRUE(create_all(other));
  EXPECT_TRUE(folder_exists(other));
  EXPECT_TRUE(list_folder(elsewhere.path()).empty());
}

TEST_F(VuFileUtf8CreateDirR, MakesWhatRel2absGives) {
  const current_folder here(m_dir.path());
  vu_utf8string absolute("x\\y");
  ASSERT_TRUE(vu_fileutf8::rel2abs(absolute));
  EXPECT_TRUE(vu_fileutf8::createDirR(absolute));
  EXPECT_TRUE(folder_exists(path("x\\y")));
}

TEST_F(VuFileUtf8CreateDirR, BelowAFileIsFalse) {
  const current_folder here(m_dir.path());
  write_file(path("file"), "");
  recording_sink sink;
  EXPECT_FALSE(create_all("file\\two\\three"));
  const list errors = sink.events(trace_event::error);
  ASSERT_EQ(errors.size(), 1U);
  const std::string begin = "vu_fileutf8::createDir (file\\two\\) : ";
  EXPECT_EQ(errors[0].substr(0, begin.size()), begin);
  EXPECT_EQ(sink.count(trace_level::xs, "Recursivly created directory file\\two\\three"), 0U);
}

TEST_F(VuFileUtf8CreateDirR, OfTheEmptyPathMakesNothingAndIsTrue) {
  recording_sink sink;
  EXPECT_TRUE(create_all(""));
  EXPECT_EQ(sink.records(trace_level::xs), list{"Recursivly created directory "});
}

TEST_F(VuFileUtf8CreateDirR, OfBytesThatAreNoUtf8IsFalseAfterAnError) {
  recording_sink sink;
  EXPECT_FALSE(create_all("bad\xff"));
  EXPECT_EQ(sink.events(trace_event::error), list{"vu_fileutf8::createDirR(bad\xff)"});
}

CHANGE_TESTS(VuFileRemove);

TYPED_TEST(VuFileRemove, RemovesAFile) {
  write_file(this->path("f"), "text");
  this->remove(this->path("f"));
  EXPECT_FALSE(file_exists(this->path("f")));
}

TYPED_TEST(VuFileRemove, RemovesAnEmptyFolderButNoFullOne) {
  make_folder(this->path("empty"));
  make_folder(this->path("full"));
  write_file(this->path("full\\f"), "");
  this->remove(this->path("empty"));
  this->remove(this->path("full"));
  EXPECT_FALSE(file_exists(this->path("empty")));
  EXPECT_TRUE(file_exists(this->path("full\\f")));
}

TEST(VuFileRemoveNarrow, OfAMissingPathSaysNothingButItsQuestion) {
  const scratch_folder dir;
  recording_sink sink;
  vu_file::remove(dir.path("missing"));
  EXPECT_EQ(sink.events(trace_event::warning),
            list{"vu_file::is_dir : '" + dir.path("missing") + "' not exists"});
  EXPECT_EQ(sink.count(trace_event::error), 0U);
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
}

TEST(VuFileRemoveUtf8, TracesWhatItRemovedAtXs) {
  const scratch_folder dir;
  write_file(dir.path("f"), "");
  recording_sink sink;
  vu_fileutf8::remove(vu_utf8string(dir.path() + "/f"), false);
  EXPECT_EQ(sink.records(trace_level::xs), list{"removed: " + with_backslashes(dir.path("f"))});
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TEST(VuFileRemoveUtf8, TracesAFailureAtXsWhenQuietAndAsAnErrorOtherwise) {
  const scratch_folder dir;
  make_folder(dir.path("full"));
  write_file(dir.path("full\\f"), "");
  const std::string begin = "removing: " + with_backslashes(dir.path("full")) + ": ";

  const auto is_failure = [&](const list& texts) {
    return texts.size() == 1 && texts[0].rfind(begin, 0) == 0 && texts[0].size() > begin.size();
  };
  const vu_utf8string path(dir.path("full"));
  {
    recording_sink sink;
    vu_fileutf8::remove(path);
    EXPECT_TRUE(is_failure(sink.records(trace_level::xs)));
    EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  }
  {
    recording_sink sink;
    vu_fileutf8::remove(path, true);
    EXPECT_TRUE(is_failure(sink.records(trace_level::xs)));
    EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  }
  {
    recording_sink sink;
    vu_fileutf8::remove(path, false);
    EXPECT_TRUE(is_failure(sink.events(trace_event::error)));
    EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
  }
}

TEST(VuFileRemoveUtf8, OfAMissingPathWarnsBeforeItFails) {
  const scratch_folder dir;
  recording_sink sink;
  vu_fileutf8::remove(vu_utf8string(dir.path("missing")), false);
  EXPECT_EQ(sink.events(trace_event::warning),
            list{with_backslashes(dir.path("missing")) + ": doesn't exists"});
  EXPECT_EQ(sink.count(trace_event::error), 1U);
}

TEST(VuFileRemoveUtf8, OfBytesThatAreNoUtf8RaisesTheStringsOwnException) {
  EXPECT_THROW(vu_fileutf8::remove(vu_utf8string("bad\xff"), true), vu_i18n_except);
  EXPECT_THROW(vu_fileutf8::recurseRemoveDir(vu_utf8string("bad\xff")), vu_i18n_except);
}

CHANGE_TESTS(VuFileRecurseRemoveDir);

TYPED_TEST(VuFileRecurseRemoveDir, RemovesAFolderWithEverythingInIt) {
  this->make_tree();
  EXPECT_TRUE(this->remove_tree(this->path("tree")));
  EXPECT_FALSE(file_exists(this->path("tree")));
}

TYPED_TEST(VuFileRecurseRemoveDir, OfWhatIsNoFolderIsFalse) {
  write_file(this->path("file"), "");
  recording_sink sink;
  EXPECT_FALSE(this->remove_tree(this->path("missing")));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U) << "existence comes first, and traces nothing";
  EXPECT_FALSE(this->remove_tree(this->path("file")));
  EXPECT_FALSE(this->remove_tree(""));
  EXPECT_TRUE(file_exists(this->path("file")));
}

#if !defined(_WIN32)
// On Windows a junction needs permissions or tools that a test may not have.
TYPED_TEST(VuFileRecurseRemoveDir, RemovesALinkButNotWhatItLeadsTo) {
  make_folder(this->path("guarded"));
  write_file(this->path("guarded\\f"), "");
  make_folder(this->path("tree"));
  std::filesystem::create_directory_symlink(native(this->path("guarded")),
                                            native(this->path("tree\\link")));
  std::filesystem::create_symlink("nowhere", native(this->path("tree\\dangling")));
  recording_sink sink;
  EXPECT_TRUE(this->remove_tree(this->path("tree")));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U) << "no question follows the links";
  EXPECT_FALSE(file_exists(this->path("tree")));
  EXPECT_TRUE(file_exists(this->path("guarded\\f")));
}

TYPED_TEST(VuFileRecurseRemoveDir, OfALinkToAFolderIsFalse) {
  make_folder(this->path("guarded"));
  write_file(this->path("guarded\\f"), "");
  std::filesystem::create_directory_symlink(native(this->path("guarded")),
                                            native(this->path("link")));
  EXPECT_FALSE(this->remove_tree(this->path("link")));
  EXPECT_TRUE(file_exists(this->path("link")));
  EXPECT_TRUE(file_exists(this->path("guarded\\f")));
}

// On Windows no name contains a question mark.
TYPED_TEST(VuFileRecurseRemoveDir, RemovesNamesThatAreAlsoPatterns) {
  make_folder(this->path("tree\\sub? "));
  for (const std::string name : {"why?.", "what? ", "*.", "sub? \\f", "plain"}) {
    write_file(this->path("tree\\" + name), "");
    EXPECT_TRUE(TypeParam::file::exists(this->text(this->path("tree\\" + name)))) << name;
  }
  EXPECT_TRUE(this->remove_tree(this->path("tree")));
  EXPECT_FALSE(file_exists(this->path("tree")));
}

// Not under Wine, where the superuser can remove read-only files.
TYPED_TEST(VuFileRecurseRemoveDir, IsTrueAlthoughAReadOnlyFileStays) {
  this->make_tree();
  make_read_only(this->path("tree\\one\\b"));
  EXPECT_TRUE(this->remove_tree(this->path("tree")));
  EXPECT_EQ(list_folder(this->path("tree")), list{"one"});
  EXPECT_EQ(list_folder(this->path("tree\\one")), list{"b"});
}
#endif

TEST(VuFileRecurseRemoveDirNarrow, TracesEachPathAndTheRootLast) {
  const scratch_folder dir;
  make_folder(dir.path("tree\\one"));
  write_file(dir.path("tree\\one\\b"), "");
  recording_sink sink;
  EXPECT_TRUE(vu_file::recurseRemoveDir(dir.path("tree")));
  EXPECT_EQ(
      sink.records(trace_level::xs),
      (list{"\tpath->" + dir.path("tree\\one\\b") + " is removed",
            "root path->" + dir.path("tree\\one"),
            "\tpath->" + dir.path("tree\\one") + " is removed", "root path->" + dir.path("tree")}));
  // The recursion has already removed the folder, so the second removal traces a warning.
  EXPECT_EQ(sink.events(trace_event::warning),
            list{"vu_file::is_dir : '" + dir.path("tree\\one") + "' not exists"});
}

TEST(VuFileRecurseRemoveDirUtf8, TracesEachRemovalQuietlyForEveryArgument) {
  const scratch_folder dir;
  make_folder(dir.path("tree\\one"));
  write_file(dir.path("tree\\one\\b"), "");
  const std::string tree = with_backslashes(dir.path("tree"));
  recording_sink sink;
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(dir.path("tree")), false));
  EXPECT_EQ(
      sink.records(trace_level::xs),
      (list{"removed: " + tree + "\\one\\b", "removed: " + tree + "\\one", "removed: " + tree}));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

#if !defined(_WIN32)
TEST(VuFileRecurseRemoveDirUtf8, PassesOverANameThatHasNoUtf8Form) {
  const scratch_folder dir;
  make_folder(dir.path("tree\\one"));
  for (const std::string name : {"a", "caf\xe9", "one\\b", "z"}) {
    write_file(dir.path("tree\\" + name), "");
  }
  recording_sink sink;
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(dir.path("tree"))));
  EXPECT_EQ(list_folder(dir.path("tree")), list{"caf\xe9"});
  EXPECT_EQ(sink.events(trace_event::error),
            list{"uncaught exception while removing " + with_backslashes(dir.path("tree")) +
                 "\\caf\xe9"});
}
#endif

TEST(VuFileRecurseRemoveDirUtf8, ReachesWhatLiesBeyondTheClassicLimit) {
  const scratch_folder dir;
  std::string folder = dir.path("tree");
  while (folder.size() < 400) folder += "\\folder_of_thirty_characters_xx";
  make_folder(folder);
  write_file(folder + "\\f", "");
  EXPECT_TRUE(vu_fileutf8::recurseRemoveDir(vu_utf8string(dir.path("tree"))));
  EXPECT_FALSE(file_exists(dir.path("tree")));
}

CHANGE_TESTS(VuFileRename);

TYPED_TEST(VuFileRename, MovesAFileOrAFolder) {
  write_file(this->path("a"), "text");
  make_folder(this->path("folder"));
  recording_sink sink;
  EXPECT_TRUE(this->rename(this->path("a"), this->path("b")));
  EXPECT_TRUE(this->rename(this->path("folder"), this->path("renamed")));
  EXPECT_EQ(list_folder(this->m_dir.path()), (list{"b", "renamed"}));
  EXPECT_EQ(read_file(this->path("b")), "text");
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TYPED_TEST(VuFileRename, OntoATakenNameIsFalseAfterAWarning) {
  write_file(this->path("a"), "one");
  write_file(this->path("b"), "two");
  recording_sink sink;
  EXPECT_FALSE(this->rename(this->path("a"), this->path("b")));
  EXPECT_EQ(sink.events(trace_event::warning),
            list{std::string(TypeParam::kClass) + "::rename() \t old Name : " + this->path("a") +
                 " new name " + this->path("b")});
  EXPECT_EQ(read_file(this->path("a")), "one");
  EXPECT_EQ(read_file(this->path("b")), "two");
}

TYPED_TEST(VuFileRename, OfAMissingFileIsFalseAfterAWarning) {
  recording_sink sink;
  EXPECT_FALSE(this->rename(this->path("missing"), this->path("b")));
  EXPECT_EQ(sink.count(trace_event::warning), 1U);
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TYPED_TEST(VuFileRename, OntoItselfIsTrue) {
  write_file(this->path("a"), "one");
  EXPECT_TRUE(this->rename(this->path("a"), this->path("a")));
  EXPECT_EQ(read_file(this->path("a")), "one");
}

CHANGE_TESTS(VuFileCopyFile);

TYPED_TEST(VuFileCopyFile, CopiesContentAndModificationTime) {
  write_file(this->path("a"), "text");
  set_modify_time(this->path("a"), 1'000'000'000);
  recording_sink sink;
  EXPECT_TRUE(this->copy(this->path("a"), this->path("b"), false));
  EXPECT_EQ(read_file(this->path("b")), "text");
  EXPECT_EQ(get_modify_time(this->path("b")), 1'000'000'000);
  EXPECT_EQ(sink.events(trace_event::success),
            list{"\tfrom fileSrc=" + this->path("a") + " to FileDest=" + this->path("b")});
  EXPECT_EQ(sink.scopes(trace_level::xl).at(0),
            this->kNarrow ? "Vu_file::copyFile" : "vu_fileutf8::copyFile");
}

TYPED_TEST(VuFileCopyFile, OfAMissingSourceIsFalseWithoutATrace) {
  recording_sink sink;
  EXPECT_FALSE(this->copy(this->path("missing"), this->path("b"), true));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_FALSE(file_exists(this->path("b")));
}

TYPED_TEST(VuFileCopyFile, OntoAnExistingFileDependsOnTheFlag) {
  write_file(this->path("a"), "one");
  write_file(this->path("b"), "longer than one");
  recording_sink sink;
  EXPECT_FALSE(this->copy(this->path("a"), this->path("b"), false));
  EXPECT_EQ(read_file(this->path("b")), "longer than one");
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_TRUE(this->copy(this->path("a"), this->path("b"), true));
  EXPECT_EQ(read_file(this->path("b")), "one");
}

TYPED_TEST(VuFileCopyFile, ThatTheSystemRefusesIsFalseAndTracedAsASuccess) {
  write_file(this->path("a"), "one");
  recording_sink sink;
  EXPECT_FALSE(this->copy(this->path("a"), this->path("no\\b"), true));
  EXPECT_EQ(sink.events(trace_event::success),
            list{"\tfrom fileSrc=" + this->path("a") + " to FileDest=" + this->path("no\\b")});
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TYPED_TEST(VuFileCopyFile, OfAFolderIsFalse) {
  make_folder(this->path("folder"));
  EXPECT_FALSE(this->copy(this->path("folder"), this->path("b"), true));
  EXPECT_FALSE(file_exists(this->path("b")));
}

TYPED_TEST(VuFileCopyFile, OntoItselfIsFalseAndChangesNothing) {
  write_file(this->path("a"), "one");
  EXPECT_FALSE(this->copy(this->path("a"), this->path("a"), true));
  EXPECT_EQ(read_file(this->path("a")), "one");
}

TEST(VuFileCopyFileUtf8, OfBytesThatAreNoUtf8IsFalseAfterAnErrorThatNamesTheSourceTwice) {
  recording_sink sink;
  EXPECT_FALSE(vu_fileutf8::copyFile(vu_utf8string("bad\xff"), vu_utf8string("target"), true));
  EXPECT_EQ(sink.events(trace_event::error), list{"Can't copy bad\xff file  to bad\xff file"});
}
