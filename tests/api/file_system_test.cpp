// Queries to the file system in both spellings: existence, times, sizes, listings.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
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
class FileSystemTest : public testing::Test {
 protected:
  static auto text(const std::string& bytes) { return Spelling::to_text(bytes); }
  static bool exists(const std::string& path) { return Spelling::file::exists(text(path)); }
  static bool is_dir(const std::string& path) { return Spelling::file::is_dir(text(path)); }
  list names_in(const std::string& folder) const {
    list names = to_bytes<Spelling>(Spelling::file::filenames(text(folder)));
    std::sort(names.begin(), names.end());
    return names;
  }
  static constexpr bool kNarrow = std::is_same_v<Spelling, narrow_spelling>;

  scratch_folder m_dir;
};

}  // namespace

#define SYSTEM_TESTS(name)                         \
  template <class Spelling>                        \
  class name : public FileSystemTest<Spelling> {}; \
  TYPED_TEST_SUITE(name, file_spellings, spelling_names)

SYSTEM_TESTS(VuFileExists);

TYPED_TEST(VuFileExists, IsTrueForFilesAndFolders) {
  write_file(this->m_dir.path("file"), "");
  make_folder(this->m_dir.path("folder"));
  EXPECT_TRUE(this->exists(this->m_dir.path("file")));
  EXPECT_TRUE(this->exists(this->m_dir.path("folder")));
  EXPECT_FALSE(this->exists(this->m_dir.path("missing")));
  EXPECT_FALSE(this->exists(this->m_dir.path("missing\\file")));
}

TYPED_TEST(VuFileExists, IsFalseForTheEmptyPath) { EXPECT_FALSE(this->exists("")); }

TYPED_TEST(VuFileExists, FindsAFolderNamedWithATrailingSeparator) {
  make_folder(this->m_dir.path("folder"));
  EXPECT_TRUE(this->exists(this->m_dir.path("folder\\")));
  EXPECT_TRUE(this->exists(this->m_dir.path("folder/")));
  EXPECT_FALSE(this->exists(this->m_dir.path("missing\\")));
}

TYPED_TEST(VuFileExists, TakesWildcardsInTheLastName) {
  write_file(this->m_dir.path("report.txt"), "");
  EXPECT_TRUE(this->exists(this->m_dir.path("rep*")));
  EXPECT_TRUE(this->exists(this->m_dir.path("report.t?t")));
  EXPECT_FALSE(this->exists(this->m_dir.path("x*")));
}

TYPED_TEST(VuFileExists, TracesNothingButItsScope) {
  recording_sink sink;
  this->exists(this->m_dir.path("missing"));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_EQ(sink.count(traced::kind_t::record), 0U);
  ASSERT_GT(sink.count(traced::kind_t::scope), 0U);
  EXPECT_EQ(sink.all()[0].source, "vu_file");
  EXPECT_EQ(sink.all()[0].level, trace_level::xl);
}

#if !defined(_WIN32)
// On Windows a junction needs permissions or tools that a test may not have.
TYPED_TEST(VuFileExists, FindsALinkThatLeadsNowhere) {
  std::filesystem::create_symlink("nowhere", native(this->m_dir.path("link")));
  EXPECT_TRUE(this->exists(this->m_dir.path("link")));
}
#endif

SYSTEM_TESTS(VuFileStat);

TYPED_TEST(VuFileStat, TellsTimesAndSize) {
  const std::string path = this->m_dir.path("f");
  write_file(path, "0123456789");
  set_modify_time(path, 1'000'000'000);
  set_access_time(path, 1'100'000'000);
  EXPECT_EQ(TypeParam::file::modify_time(this->text(path)), 1'000'000'000U);
  EXPECT_EQ(TypeParam::file::access_time(this->text(path)), 1'100'000'000U);
  EXPECT_EQ(TypeParam::file::size(this->text(path)), 10U);
}

TYPED_TEST(VuFileStat, TellsAFolderFromAFile) {
  write_file(this->m_dir.path("file"), "");
  make_folder(this->m_dir.path("folder"));
  recording_sink sink;
  EXPECT_TRUE(this->is_dir(this->m_dir.path("folder")));
  EXPECT_TRUE(this->is_dir(this->m_dir.path("folder\\")));
  EXPECT_FALSE(this->is_dir(this->m_dir.path("file")));
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TYPED_TEST(VuFileStat, OfAMissingPathIsZeroAfterAWarning) {
  using file = typename TypeParam::file;
  const std::string path = this->m_dir.path("missing");
  recording_sink sink;
  EXPECT_EQ(file::access_time(this->text(path)), 0U);
  EXPECT_EQ(file::modify_time(this->text(path)), 0U);
  EXPECT_EQ(file::size(this->text(path)), 0U);
  EXPECT_FALSE(file::is_dir(this->text(path)));
  const list expected =
      this->kNarrow ? list{"vu_file::access_time : '" + path + "' not exists",
                           "vu_file::modify_time : '" + path + "' not exists",
                           "vu_file::size : '" + path + "' not exists",
                           "vu_file::is_dir : '" + path + "' not exists"}
                    // The test for a folder names the path as the system gets it.
                    : list{path + ": doesn't exists", path + ": doesn't exists",
                           path + ": doesn't exists", with_backslashes(path) + ": doesn't exists"};
  EXPECT_EQ(sink.events(trace_event::warning), expected);
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TYPED_TEST(VuFileStat, BelowAPlainFileIsMissing) {
  write_file(this->m_dir.path("file"), "");
  recording_sink sink;
  EXPECT_FALSE(this->is_dir(this->m_dir.path("file\\below")));
  EXPECT_EQ(sink.count(trace_event::warning), 1U);
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TEST(VuFileStatNarrow, OfAFileNamedWithATrailingSeparatorIsMissing) {
  const scratch_folder dir;
  write_file(dir.path("file"), "0123");
  recording_sink sink;
  EXPECT_EQ(vu_file::size(dir.path("file\\")), 0);
  EXPECT_EQ(sink.events(trace_event::warning),
            list{"vu_file::size : '" + dir.path("file\\") + "' not exists"});
}

TEST(VuFileStatUtf8, DropsEveryTrailingBackslash) {
  const scratch_folder dir;
  write_file(dir.path("file"), "0123");
  make_folder(dir.path("folder"));
  EXPECT_EQ(vu_fileutf8::size(vu_utf8string(dir.path("file\\"))), 4U);
  EXPECT_EQ(vu_fileutf8::size(vu_utf8string(dir.path("file\\\\\\"))), 4U);
  EXPECT_TRUE(vu_fileutf8::is_dir(vu_utf8string(dir.path("folder\\\\"))));
  EXPECT_TRUE(vu_fileutf8::is_dir(vu_utf8string(dir.path("folder/"))));
}

SYSTEM_TESTS(VuFileRoot);

TYPED_TEST(VuFileRoot, IsFoundByEveryQuestion) {
  // The drive of the folder for temporary files; on Linux there is one root.
  const std::string temporary = system_temporary_folder();
  const bool has_drive = temporary.size() > 2 && temporary[1] == ':';
  const std::string root = has_drive ? temporary.substr(0, 2) + "\\" : "\\";
  for (const std::string& path : {root, has_drive ? temporary.substr(0, 2) + "/" : "/"}) {
    SCOPED_TRACE(path);
    recording_sink sink;
    EXPECT_TRUE(this->exists(path));
    EXPECT_TRUE(this->is_dir(path));
    EXPECT_FALSE(this->names_in(path).empty());
    EXPECT_EQ(TypeParam::file::size(this->text(path)), 0U);
    EXPECT_NE(TypeParam::file::modify_time(this->text(path)), 0U);
    EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  }
  EXPECT_TRUE(this->exists(root + "."));
  EXPECT_FALSE(this->exists(root + "no such name here"));
  if (has_drive) {
    EXPECT_FALSE(this->exists("1:\\"));
  }
}

SYSTEM_TESTS(VuFileFolder);

TYPED_TEST(VuFileFolder, HasNoSizeSoThatReadingItWholeGivesNothing) {
  make_folder(this->m_dir.path("folder"));
  write_file(this->m_dir.path("folder\\file"), "0123");
  EXPECT_EQ(TypeParam::file::size(this->text(this->m_dir.path("folder"))), 0U);
  typename TypeParam::file file(this->text(this->m_dir.path()), this->text("file"));
  file.open(vu_file_base::o_append);
  file.close();
  file.setPath(this->text(this->m_dir.path("folder")));
  std::string bytes = "before";
  EXPECT_EQ(file.read(bytes, 0), 0);
  EXPECT_EQ(bytes, "");
}

// A sparse file uses no disk space, at any size.
TEST(VuFileSize, NarrowIsTheLow32BitsAsASignedNumber) {
  const scratch_folder dir;
  const std::string path = dir.path("large");
  write_file(path, "");
  const std::pair<std::uint64_t, int> rows[] = {
      {0x7FFFFFFFU, 0x7FFFFFFF},
      {0x80000000U, -2147483647 - 1},
      {3'000'000'000U, -1'294'967'296},
      {0xFFFFFFFFU, -1},
      {0x100000000U, 0},
      {0x100000000U + 1'000, 1'000},
  };
  for (const auto& [size, expected] : rows) {
    std::filesystem::resize_file(native(path), size);
    EXPECT_EQ(vu_file::size(path), expected) << size;
    EXPECT_EQ(vu_fileutf8::size(vu_utf8string(path)), size);
  }
}

TEST(VuFileSize, BeyondAReadCountFailsTheReadOfAWholeFile) {
  const scratch_folder dir;
  const std::string path = dir.path("large");
  write_file(path, "text");
  std::filesystem::resize_file(native(path), 0x80000000U);
  vu_file narrow(path);
  narrow.open(vu_file_base::o_read);
  std::string text;
  EXPECT_EQ(thrown_text([&] { narrow.read(text, 0); }), "throw exception on read");
  vu_fileutf8 wide{vu_utf8string(path)};
  wide.open(vu_file_base::o_read);
  EXPECT_EQ(thrown_text([&] { wide.read(text, 0); }), "throw exception on read");
  EXPECT_EQ(text, "");
  EXPECT_EQ(wide.read(text, 4), 4) << "a part can be read";
  EXPECT_EQ(text, "text");
}

TEST(VuFileSize, BeyondFourGigabytesReadsTheLow32BitsOrNothing) {
  const scratch_folder dir;
  const std::string path = dir.path("large");
  write_file(path, "0123456789");
  std::filesystem::resize_file(native(path), 0x100000000U + 4);
  vu_file narrow(path);
  narrow.open(vu_file_base::o_read);
  std::string text;
  EXPECT_EQ(narrow.read(text, 0), 4);
  EXPECT_EQ(text, "0123");

  vu_fileutf8 wide{vu_utf8string(path)};
  wide.open(vu_file_base::o_read);
  recording_sink sink;
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  EXPECT_EQ(thrown_text([&] { wide.read(buffer, length); }), "throw exception on read");
  EXPECT_EQ(buffer, nullptr) << "nothing was allocated";
  EXPECT_EQ(length, 0U);
  EXPECT_EQ(sink.count(trace_event::error, "read file : " + path), 1U);
}

SYSTEM_TESTS(VuFileFilenames);

TYPED_TEST(VuFileFilenames, AreTheNamesOfFilesAndFoldersAlike) {
  write_file(this->m_dir.path("b.txt"), "");
  write_file(this->m_dir.path("a"), "");
  write_file(this->m_dir.path("..c"), "");
  make_folder(this->m_dir.path("folder"));
  write_file(this->m_dir.path("folder\\below"), "");
  const list expected = {"..c", "a", "b.txt", "folder"};
  EXPECT_EQ(this->names_in(this->m_dir.path()), expected);
  EXPECT_EQ(this->names_in(this->m_dir.path() + "\\"), expected);
  EXPECT_EQ(this->names_in(this->m_dir.path() + "/"), expected);
}

TYPED_TEST(VuFileFilenames, OfAnEmptyFolderAreNone) {
  make_folder(this->m_dir.path("folder"));
  recording_sink sink;
  EXPECT_EQ(this->names_in(this->m_dir.path("folder")), list{});
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}

TYPED_TEST(VuFileFilenames, OfWhatIsNoFolderAreNone) {
  write_file(this->m_dir.path("file"), "");
  recording_sink sink;
  EXPECT_EQ(this->names_in(this->m_dir.path("file")), list{});
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
  EXPECT_EQ(this->names_in(this->m_dir.path("missing")), list{});
  EXPECT_EQ(sink.count(trace_event::warning), 1U);
  EXPECT_EQ(this->names_in(this->m_dir.path("*")), list{});
  EXPECT_EQ(this->names_in(""), list{});
}

namespace {

std::uint64_t size_in_kb(const std::string& folder) {
  return vu_fileutf8::getFolderSizeInKb(vu_utf8string(folder));
}

}  // namespace

TEST(VuFileUtf8FolderSize, RoundsEachFileDownByItself) {
  const scratch_folder dir;
  write_file(dir.path("a"), std::string(1023, 'x'));
  EXPECT_EQ(size_in_kb(dir.path()), 0U);
  write_file(dir.path("b"), std::string(1024, 'x'));
  EXPECT_EQ(size_in_kb(dir.path()), 1U);
  write_file(dir.path("c"), std::string(3 * 1024 + 1023, 'x'));
  EXPECT_EQ(size_in_kb(dir.path()), 4U);
}

TEST(VuFileUtf8FolderSize, OfAThousandFilesOf1000BytesIsNothing) {
  const scratch_folder dir;
  const std::string content(1000, 'x');
  for (int i = 0; i < 1000; ++i) write_file(dir.path(std::to_string(i)), content);
  EXPECT_EQ(size_in_kb(dir.path()), 0U);
}

TEST(VuFileUtf8FolderSize, CountsFoldersByWhatIsInThem) {
  const scratch_folder dir;
  make_folder(dir.path("empty"));
  EXPECT_EQ(size_in_kb(dir.path()), 0U);
  make_folder(dir.path("one\\two"));
  write_file(dir.path("one\\a"), std::string(2048, 'x'));
  write_file(dir.path("one\\two\\b"), std::string(4096, 'x'));
  EXPECT_EQ(size_in_kb(dir.path()), 6U);
}

TEST(VuFileUtf8FolderSize, OfAMissingFolderIsNothing) {
  const scratch_folder dir;
  EXPECT_EQ(size_in_kb(dir.path("missing")), 0U);
}

#if !defined(_WIN32)
// On Windows a junction needs permissions or tools that a test may not have.
TEST(VuFileUtf8FolderSize, CountsALinkThatLeadsNowhereAsNothing) {
  const scratch_folder dir;
  std::filesystem::create_symlink("nowhere", native(dir.path("link")));
  recording_sink sink;
  EXPECT_EQ(size_in_kb(dir.path()), 0U);
  EXPECT_EQ(sink.count(trace_event::warning, dir.path("link") + ": doesn't exists"), 1U);
}

TEST(VuFileUtf8FolderSize, CountsALinkToAFolderAsNothing) {
  const scratch_folder dir;
  make_folder(dir.path("folder"));
  write_file(dir.path("folder\\f"), std::string(2048, 'x'));
  // With two such links, walking into them would take 2^40 steps.
  for (const char* link : {"folder/one", "folder/two"}) {
    std::filesystem::create_directory_symlink(".", native(dir.path(link)));
  }
  std::filesystem::create_directory_symlink("folder", native(dir.path("outside")));
  recording_sink sink;
  EXPECT_EQ(size_in_kb(dir.path()), 2U);
  EXPECT_EQ(sink.count(traced::kind_t::event), 0U);
}
#endif
