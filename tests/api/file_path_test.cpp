// Paths as text: vu_path and its UTF-8 form, the string functions of the handles, the exception,
// and the temporary root.

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/file_spellings.h"
#include "tests/support/host_services.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_file_except.h"

TEST(VuFileExcept, SaysItsMessageAndNothingElse) {
  EXPECT_EQ(vu_file_except("x", 5).what(), "x");
  EXPECT_EQ(vu_file_except("two\r\nlines ").what(), "two\r\nlines ");
}

TEST(VuFileExcept, IsEmptyByDefault) { EXPECT_EQ(vu_file_except().what(), ""); }

TEST(VuFileExcept, IsCopiedWithItsMessage) {
  const vu_file_except original("first", 1);
  vu_file_except copy(original);
  EXPECT_EQ(copy.what(), "first");
  copy = vu_file_except("second", 2);
  EXPECT_EQ(copy.what(), "second");
  EXPECT_EQ(original.what(), "first");
}

TEST(VuFileExcept, CrossesTheLibraryAsItsOwnType) {
  const scratch_folder dir;
  vu_file file(dir.path(), "missing");
  EXPECT_THROW(file.open(vu_file::o_read), vu_file_except);
}

/// A path and its two parts.
struct split_row {
  const char* full;
  const char* parent;
  const char* name;
};

template <class Spelling>
class VuPath : public testing::Test {
 protected:
  using path_type = typename Spelling::path;
  static path_type split(const std::string& full) { return path_type(Spelling::to_text(full)); }
  static path_type pair(const std::string& parent, const std::string& name) {
    return path_type(Spelling::to_text(parent), Spelling::to_text(name));
  }
  static std::string parent(const path_type& p) {
    return Spelling::to_bytes(p.getParentPathName());
  }
  static std::string name(const path_type& p) {
    return Spelling::to_bytes(p.getRelativePathName());
  }
  static std::string absolute(const path_type& p) {
    return Spelling::to_bytes(p.getAbsolutePathName());
  }
};
TYPED_TEST_SUITE(VuPath, file_spellings, spelling_names);

TYPED_TEST(VuPath, IsSplitAtTheLastBackslash) {
  const split_row rows[] = {
      {"C:\\dir\\f.txt", "C:\\dir", "f.txt"},
      {"\\abc", "", "abc"},
      {"a\\b", "a", "b"},
      {"a\\", "a", ""},
      {"\\", "", ""},
      {"a\\\\b", "a\\", "b"},
      {"\\\\server\\share", "\\\\server", "share"},
      {"x/y\\z", "x/y", "z"},
      {"d\xC3\xA9\\\xE6\x97\xA5", "d\xC3\xA9", "\xE6\x97\xA5"},
  };
  for (const split_row& r : rows) {
    const auto p = this->split(r.full);
    EXPECT_EQ(this->parent(p), r.parent) << r.full;
    EXPECT_EQ(this->name(p), r.name) << r.full;
  }
}

TYPED_TEST(VuPath, WithoutABackslashLosesItsFirstCharacter) {
  const auto word = this->split("abc");
  EXPECT_EQ(this->parent(word), "");
  EXPECT_EQ(this->name(word), "bc");

  const auto slashes = this->split("C:/dir/f.txt");
  EXPECT_EQ(this->parent(slashes), "");
  EXPECT_EQ(this->name(slashes), ":/dir/f.txt");

  EXPECT_EQ(this->name(this->split("a")), "");
}

TYPED_TEST(VuPath, OfNothingHasTwoEmptyNames) {
  const auto p = this->split("");
  EXPECT_EQ(this->parent(p), "");
  EXPECT_EQ(this->name(p), "");
}

TYPED_TEST(VuPath, OfAnyLengthIsSplitWhole) {
  for (const std::size_t length : {8'190U, 8'191U, 8'192U, 100'000U}) {
    const std::string folder(length - 2, 'd');
    const auto p = this->split(folder + "\\n");
    EXPECT_EQ(this->parent(p), folder) << length;
    EXPECT_EQ(this->name(p), "n") << length;
  }
}

TYPED_TEST(VuPath, KeepsTwoGivenNamesAsTheyAre) {
  const auto p = this->pair("dir\\", "\\name");
  EXPECT_EQ(this->parent(p), "dir\\");
  EXPECT_EQ(this->name(p), "\\name");
}

TYPED_TEST(VuPath, IsJoinedWithExactlyOneBackslash) {
  EXPECT_EQ(this->absolute(this->pair("", "x")), "\\x");
  EXPECT_EQ(this->absolute(this->pair("dir", "x")), "dir\\x");
  EXPECT_EQ(this->absolute(this->pair("dir\\", "x")), "dir\\\\x");
  EXPECT_EQ(this->absolute(this->pair("dir/", "x")), "dir/\\x");
  EXPECT_EQ(this->absolute(this->pair("", "")), "\\");
}

TYPED_TEST(VuPath, ParentIsSplitAgain) {
  const auto parent = this->pair("C:\\one\\two", "x").getParentPath();
  EXPECT_EQ(this->parent(parent), "C:\\one");
  EXPECT_EQ(this->name(parent), "two");

  const auto cut = this->pair("abc", "x").getParentPath();
  EXPECT_EQ(this->parent(cut), "");
  EXPECT_EQ(this->name(cut), "bc");
}

TYPED_TEST(VuPath, IsAValue) {
  const auto original = this->split("a\\b");
  auto copy = original;
  EXPECT_EQ(this->absolute(copy), "a\\b");
  copy = this->split("c\\d");
  EXPECT_EQ(this->absolute(copy), "c\\d");
  EXPECT_EQ(this->absolute(original), "a\\b");
}

TYPED_TEST(VuPath, IsDestroyedThroughItsBase) {
  using path = typename TypeParam::path;
  struct derived : path {
    derived(const path& p, bool& gone) : path(p), m_gone(gone) {}
    ~derived() override { m_gone = true; }
    bool& m_gone;
  };
  bool gone = false;
  path* const p = new derived(this->split("a\\b"), gone);
  delete p;
  EXPECT_TRUE(gone);
}

template <class Spelling>
class VuFileNames : public testing::Test {
 protected:
  static std::string add_sep(const std::string& path) {
    auto t = Spelling::to_text(path);
    Spelling::file::addFileSep(t);
    return Spelling::to_bytes(t);
  }
  static std::string remove_sep(const std::string& path) {
    auto t = Spelling::to_text(path);
    Spelling::file::removeLastFileSep(t);
    return Spelling::to_bytes(t);
  }
};
TYPED_TEST_SUITE(VuFileNames, file_spellings, spelling_names);

TYPED_TEST(VuFileNames, AddFileSepAppendsABackslashUnlessThereIsASeparator) {
  EXPECT_EQ(this->add_sep(""), ".\\");
  EXPECT_EQ(this->add_sep("a"), "a\\");
  EXPECT_EQ(this->add_sep("a/"), "a/");
  EXPECT_EQ(this->add_sep("a\\"), "a\\");
  EXPECT_EQ(this->add_sep("C:"), "C:\\");
}

TYPED_TEST(VuFileNames, RemoveLastFileSepRemovesOneSeparator) {
  EXPECT_EQ(this->remove_sep(""), ".");
  EXPECT_EQ(this->remove_sep("a\\"), "a");
  EXPECT_EQ(this->remove_sep("a/"), "a");
  EXPECT_EQ(this->remove_sep("a\\\\"), "a\\");
  EXPECT_EQ(this->remove_sep("a"), "a");
  EXPECT_EQ(this->remove_sep("\\"), "");
}

TYPED_TEST(VuFileNames, SplitCutsAtTheLastDotWhereverItStands) {
  struct row {
    const char* full;
    const char* name;
    const char* extension;
  };
  const row rows[] = {
      {"report.txt", "report", "txt"}, {"dir.old\\file", "dir", "old\\file"},
      {"a.b.c", "a.b", "c"},           {"a.", "a", ""},
      {".profile", "", "profile"},
  };
  for (const row& r : rows) {
    auto name = TypeParam::to_text(r.full);
    auto extension = TypeParam::to_text("before");
    TypeParam::file::split(name, extension);
    EXPECT_EQ(TypeParam::to_bytes(name), r.name) << r.full;
    EXPECT_EQ(TypeParam::to_bytes(extension), r.extension) << r.full;
  }
}

TYPED_TEST(VuFileNames, SplitWithoutADotLeavesBothArguments) {
  auto name = TypeParam::to_text("file");
  auto extension = TypeParam::to_text("before");
  TypeParam::file::split(name, extension);
  EXPECT_EQ(TypeParam::to_bytes(name), "file");
  EXPECT_EQ(TypeParam::to_bytes(extension), "before");
}

TYPED_TEST(VuFileNames, GetExtensionIsWhatFollowsTheLastDot) {
  const auto extension_of = [](const char* path) {
    return std::string(
        TypeParam::to_bytes(TypeParam::file::getExtension(TypeParam::to_text(path))));
  };
  EXPECT_EQ(extension_of("report.txt"), "txt");
  EXPECT_EQ(extension_of("a."), "");
  EXPECT_EQ(extension_of("a"), "");
  EXPECT_EQ(extension_of(""), "");
  EXPECT_EQ(extension_of("dir.old\\file"), "old\\file");
}

TYPED_TEST(VuFileNames, GetShirtFileNameSplitsAtEitherSeparator) {
  const split_row rows[] = {
      {"report.txt", ".\\", "report.txt"},
      {"C:\\x\\y.txt", "C:\\x\\", "y.txt"},
      {"a/b", "a/", "b"},
      {"a\\b/c", "a\\b/", "c"},
      {"a/b\\c", "a/b\\", "c"},
      {"a\\", "a\\", ""},
      {"", ".\\", ""},
  };
  for (const split_row& r : rows) {
    auto dir = TypeParam::to_text("before");
    const auto name = TypeParam::file::getShirtFileName(TypeParam::to_text(r.full), dir);
    EXPECT_EQ(TypeParam::to_bytes(name), r.name) << r.full;
    EXPECT_EQ(TypeParam::to_bytes(dir), r.parent) << r.full;
  }
}

TYPED_TEST(VuFileNames, GetShirtFileNameMayPutTheFolderWhereThePathWas) {
  auto path = TypeParam::to_text("a\\b");
  const auto name = TypeParam::file::getShirtFileName(path, path);
  EXPECT_EQ(TypeParam::to_bytes(name), "b");
  EXPECT_EQ(TypeParam::to_bytes(path), "a\\");
}

TYPED_TEST(VuFileNames, GetShirtFileNameTracesTheThreeNames) {
  recording_sink sink;
  auto dir = TypeParam::to_text("");
  TypeParam::file::getShirtFileName(TypeParam::to_text("C:\\x\\y.txt"), dir);
  EXPECT_EQ(
      sink.records(vu_host::trace_level::xs),
      std::vector<std::string>{"\tFull File Name->C:\\x\\y.txt sDir->C:\\x\\file Name->y.txt"});
  const char* const label = std::string(TypeParam::kClass) == "vu_file"
                                ? "Vu_file::getShirtFileName"
                                : "vu_fileutf8::getShirtFileName";
  EXPECT_EQ(sink.scopes(), std::vector<std::string>{label});
}

TEST(VuFileUtf8Directories, AreTheComponentsThatAreNotEmpty) {
  const auto components_of = [](const char16_t* path) {
    return to_bytes<utf8_spelling>(vu_fileutf8::directories(ucs2string(path)));
  };
  using list = std::vector<std::string>;
  EXPECT_EQ(components_of(u"C:\\a\\\\b\\"), (list{"C:", "a", "b"}));
  EXPECT_EQ(components_of(u"\\\\server\\share"), (list{"server", "share"}));
  EXPECT_EQ(components_of(u"a/b\\c"), (list{"a/b", "c"}));
  EXPECT_EQ(components_of(u"\\\\\\"), list{});
  EXPECT_EQ(components_of(u""), list{});
  EXPECT_EQ(components_of(u"\u00e9\\\u65e5"), (list{"\xC3\xA9", "\xE6\x97\xA5"}));
}

TEST(VuFileUtf8CurrentDirectory, IsTheProcesses) {
  vu_utf8string current("before");
  ASSERT_TRUE(vu_fileutf8::getCurrentDirectory(current));
  EXPECT_TRUE(std::filesystem::equivalent(native(current.str()), std::filesystem::current_path()));
}

TEST(VuFileUtf8CurrentDirectory, AndAbsolutePathsHaveBackslashesAlone) {
  vu_utf8string current;
  ASSERT_TRUE(vu_fileutf8::getCurrentDirectory(current));
  EXPECT_EQ(current.str().find('/'), std::string::npos) << current.str();
  vu_utf8string path("some/thing");
  ASSERT_TRUE(vu_fileutf8::rel2abs(path));
  EXPECT_EQ(path.str(), current.str() + "\\some\\thing");
  // Handles accept such a path.
  const vu_fileutf8 file(path);
  EXPECT_EQ(file.getFilePath().str(), path.str());
  EXPECT_EQ(file.getPath().getRelativePathName().str(), "thing");
}

TEST(VuFileUtf8Rel2abs, PutsTheCurrentDirectoryBeforeARelativePath) {
  vu_utf8string current;
  ASSERT_TRUE(vu_fileutf8::getCurrentDirectory(current));
  vu_utf8string path("some\\thing");
  ASSERT_TRUE(vu_fileutf8::rel2abs(path));
  EXPECT_EQ(native(path.str()), native(current.str() + "\\some\\thing"));
}

TEST(VuFileUtf8Rel2abs, FoldsDotsAndLeavesTheFileSystemAlone) {
  const scratch_folder dir;
  vu_utf8string path(dir.path("missing\\..\\.\\other"));
  ASSERT_TRUE(vu_fileutf8::rel2abs(path));
  EXPECT_EQ(native(path.str()), native(dir.path("other")));
}

TEST(GetTempRootPath, IsTheFrameworksFolderWithoutItsTrailingBackslash) {
  const std::pair<const char*, const char*> rows[] = {
      {"C:\\temp\\", "C:\\temp"},
      {"C:\\temp", "C:\\temp"},
      {"C:\\temp\\\\", "C:\\temp\\"},
      {"C:\\temp/", "C:\\temp/"},
      {"\\", ""},
      {"", ""},
  };
  for (const auto& [folder, expected] : rows) {
    fake_temporary_files temp("unused", folder);
    vu_host::services services;
    services.temp = &temp;
    recording_sink sink(services);
    std::string out = "before";
    getTempRootPath(out);
    EXPECT_EQ(out, expected) << folder;
    EXPECT_EQ(temp.calls(), std::vector<std::string>{"framework_root_folder"});
  }
}

TEST(GetTempRootPath, WithoutAHostIsAFolderAllTheSame) {
  std::string out;
  getTempRootPath(out);
  EXPECT_FALSE(out.empty());
  EXPECT_NE(out.back(), '\\');
}
