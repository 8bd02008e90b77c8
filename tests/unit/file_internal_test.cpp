// Internal functions of the file layer: the long form of paths, descriptions of files, listings
// with kinds, and code that depends on the narrow encoding.

#include "file/file_internal.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "file/folder_entries.h"
#include "tests/support/file_spellings.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/unit/test_kit.h"
#include "vu_fileutf8.h"

namespace {

namespace faults = os::faults;
using faults::Call;
using vu_file_internal::getFileStat;
using vu_file_internal::getLongPath;
using vu_host::trace_event;
using list = std::vector<std::string>;

std::u16string long_path(const std::u16string& path) { return getLongPath(ucs2string(path)).str(); }

/// A root followed by @p beyond characters, in names of a usual length.
std::u16string path_of(const std::u16string& root, std::size_t beyond) {
  std::u16string rest;
  while (rest.size() < beyond) rest += u"abcdefghi\\";
  rest.resize(beyond);
  if (!rest.empty() && rest.back() == u'\\') rest.back() = u'x';
  return root + rest;
}

const std::u16string kPrefix = u"\\\\?\\";
constexpr os::Status kNoShortName{1, os::Failure::kOther};

}  // namespace

TEST(GetLongPath, MakesSeparatorsUniformAndSingle) {
  const std::pair<std::u16string, std::u16string> rows[] = {
      {u"", u""},
      {u"a", u"a"},
      {u"/", u"\\"},
      {u"//", u"\\\\"},
      {u"///", u"\\\\\\"},
      {u"////", u"\\\\\\"},
      {u"a/b", u"a\\b"},
      {u"C:/dir/f.txt", u"C:\\dir\\f.txt"},
      {u"C:\\\\dir\\\\\\f", u"C:\\dir\\f"},
      {u"C:\\dir\\/f", u"C:\\dir\\f"},
      {u"\\\\server\\\\share", u"\\\\server\\share"},
      {u"//server//share", u"\\\\server\\share"},
      {u"\\a\\\\b", u"\\a\\b"},
      // A pair that begins before the third character is kept.
      {u"a\\\\b", u"a\\\\b"},
      {u"a\\\\\\\\b", u"a\\\\b"},
      {u"ab\\\\c", u"ab\\c"},
      {u"\\\\\\\\server", u"\\\\\\server"},
      {u"\\\\?\\C:\\\\x", u"\\\\?\\C:\\x"},
  };
  for (const auto& [path, expected] : rows)
    EXPECT_TRUE(long_path(path) == expected) << vu_utf8string(ucs2string(path)).str();
}

TEST(GetLongPath, LeavesFoldersOf248To251CharactersAlone) {
  const scratch_folder dir;
  // The limit does not include the root.
  const std::size_t root = dir.path()[1] == ':' ? 3 : 1;
  for (std::size_t length = 248; length <= root + 248; ++length) {
    const std::string path = dir.path(std::string(length - dir.path().size() - 1, 'x'));
    EXPECT_EQ(getLongPath(ucs2string(vu_utf8string(path))).size(), length);
    // Without the prefix Windows reserves room for a short name below a folder, and refuses to
    // create a folder with such a long path.
    const bool is_made = !kOnWindows || is_emulated();
    EXPECT_EQ(vu_fileutf8::createDir(vu_utf8string(path)), is_made) << length;
  }
}

TEST(GetLongPath, LeavesPathsBelowTheLimitAlone) {
  faults::reset();
  for (const std::u16string root : {u"C:\\", u"z:\\", u"\\\\", u"\\"}) {
    const std::u16string path = path_of(root, 248);
    EXPECT_TRUE(long_path(path) == path);
  }
  EXPECT_EQ(faults::calls(Call::short_path), 0U);
}

TEST(GetLongPath, PrefixesPathsFromTheLimitOnWhenThereIsNoShortName) {
  for (const std::u16string root : {u"C:\\", u"z:\\", u"\\\\", u"\\"}) {
    for (const std::size_t beyond : {249U, 251U, 1'000U}) {
      const auto none = faults::fail(Call::short_path, kNoShortName);
      const std::u16string path = path_of(root, beyond);
      EXPECT_TRUE(long_path(path) == kPrefix + path) << beyond;
      EXPECT_EQ(none.hits(), 1U);
    }
  }
}

TEST(GetLongPath, TakesTheShortNameWhenTheSystemGivesOne) {
  // The call succeeds but leaves its result empty.
  const auto given = faults::fail(Call::short_path, os::Status());
  EXPECT_TRUE(long_path(path_of(u"C:\\", 249)).empty());
  EXPECT_EQ(given.hits(), 1U);
}

TEST(GetLongPath, LeavesPathsWithoutARootAloneWhateverTheirLength) {
  faults::reset();
  for (const std::u16string root : {u"", u"C:", u"1:\\", u"C", u"ab\\"}) {
    const std::u16string path = path_of(root + u"x", 1'000);
    EXPECT_TRUE(long_path(path) == path);
  }
  EXPECT_EQ(faults::calls(Call::short_path), 0U);
}

TEST(GetLongPath, MeasuresAPrefixedPathWithoutItsPrefix) {
  const auto none = faults::fail(Call::short_path, kNoShortName, 1, faults::Times::kLasting);
  const std::u16string below = kPrefix + path_of(u"C:\\", 248);
  EXPECT_TRUE(long_path(below) == below);
  EXPECT_EQ(none.hits(), 0U);
  const std::u16string beyond = kPrefix + path_of(u"C:\\", 249);
  EXPECT_TRUE(long_path(beyond) == beyond) << "one prefix, not two";
  EXPECT_EQ(none.hits(), 1U);
  const std::u16string relative = kPrefix + path_of(u"x", 300);
  EXPECT_TRUE(long_path(relative) == relative);
  EXPECT_EQ(none.hits(), 1U);
}

TEST(GetLongPath, MeasuresTheNormalisedPath) {
  faults::reset();
  const std::u16string path = path_of(u"C:\\", 248);
  EXPECT_TRUE(long_path(u"C:\\\\\\\\" + path.substr(3)) == path);
  EXPECT_EQ(faults::calls(Call::short_path), 0U);
}

TEST(GetLongPath, ReachesTheSameFile) {
  const scratch_folder dir;
  std::string folder = dir.path();
  while (folder.size() < 300) folder += "\\folder_of_thirty_characters_xx";
  make_folder(folder);
  write_file(folder + "\\f", "0123");
  os::FileStat found;
  ASSERT_TRUE(os::stat(getLongPath(ucs2string(vu_utf8string(folder + "\\f"))), found).ok());
  EXPECT_EQ(found.size, 4U);
}

TEST(GetFileStat, PutsThePathIntoItsLongFormUnlessItIsInIt) {
  const scratch_folder dir;
  std::string folder = dir.path();
  while (folder.size() < 300) folder += "\\folder_of_thirty_characters_xx";
  make_folder(folder);
  const vu_utf8string path(folder);
  os::FileStat found;
  faults::reset();
  EXPECT_TRUE(getFileStat(path, found, false));
  EXPECT_TRUE(found.is_directory);
  EXPECT_EQ(faults::calls(Call::short_path), 1U);
  EXPECT_TRUE(getFileStat(vu_file_internal::long_form(path), found, true));
  EXPECT_EQ(faults::calls(Call::short_path), 2U) << "that of long_form() itself";
}

/// Records the paths that reach the system, as UTF-8.
class PathsOfCalls final : public faults::Conductor {
 public:
  os::Status conduct(const faults::Arriving& arriving,
                     const std::function<os::Status()>& make) override {
    const os::Path& path = *arriving.path;
    m_paths.push_back(path.is_wide() ? vu_utf8string(ucs2string(path.wide())).str()
                                     : path.narrow());
    return make();
  }
  const list& paths() const { return m_paths; }

 private:
  list m_paths;
};

TEST(GetFileStat, MakesTheSeparatorsBehindThePrefixUniform) {
  PathsOfCalls calls;
  const faults::Conducted conducted(calls);
  os::FileStat found;
  for (const char* path : {"\\\\?\\Q:/no//x", "//?/Q:/no/x", "\\\\?\\Q:\\no\\\\x\\"}) {
    EXPECT_FALSE(getFileStat(vu_utf8string(path), found, false));
  }
  EXPECT_EQ(calls.paths(), list(3, "\\\\?\\Q:\\no\\x"));
}

TEST(GetFileStat, DropsEveryTrailingBackslashOfALongFormToo) {
  const scratch_folder dir;
  write_file(dir.path("f"), "0123");
  os::FileStat found;
  EXPECT_TRUE(getFileStat(vu_utf8string(dir.path("f\\\\\\")), found, true));
  EXPECT_EQ(found.size, 4U);
}

TEST(GetFileStat, TracesWhatIsMissingAsAWarningAndAnyOtherFailureAsAnError) {
  const scratch_folder dir;
  const vu_utf8string path(dir.path("f"));
  os::FileStat found;
  recording_sink sink;
  EXPECT_FALSE(getFileStat(path, found, false));
  EXPECT_EQ(sink.events(trace_event::warning), list{path.str() + ": doesn't exists"});
  const auto fault = faults::fail(Call::stat, {13, os::Failure::kOther});
  EXPECT_FALSE(getFileStat(path, found, false));
  EXPECT_EQ(sink.events(trace_event::error), list{path.str() + ": can't stat"});
}

TEST(SystemErrorText, IsTheSystemsOrNamesTheCode) {
  const std::string text = vu_file_internal::system_error_text(5);
  EXPECT_EQ(text, vu_utf8string(os::error_text_wide(5)).str());
  EXPECT_FALSE(text.empty());
  EXPECT_EQ(vu_file_internal::system_error_text(0x0FFFFFFF), "system error: 268435455\n");
  const auto none = faults::fail(Call::error_text_wide, os::Status());
  EXPECT_EQ(vu_file_internal::system_error_text(5), "system error: 5\n");
}

namespace {

os::Listing entries_of(const std::string& folder) {
  os::Listing entries;
  static_cast<void>(folder_entries(folder, entries));
  return entries;
}

}  // namespace

TEST(FolderEntries, AreTheNamesThatFilenamesGivesInTheSameOrder) {
  const scratch_folder dir;
  for (int i = 0; i < 50; ++i) write_file(dir.path("file" + std::to_string(i)), "");
  make_folder(dir.path("folder"));
  for (const std::string& folder : {dir.path(), dir.path() + "\\", dir.path() + "/"}) {
    list names;
    for (const os::Entry entry : entries_of(folder)) names.emplace_back(entry.name);
    EXPECT_EQ(names, vu_file::filenames(folder));
    EXPECT_EQ(names.size(), 51U);
  }
}

TEST(FolderEntries, KnowFilesFromFoldersAndTraceNothing) {
  const scratch_folder dir;
  write_file(dir.path("file"), "");
  make_folder(dir.path("folder"));
  recording_sink sink;
  const os::Listing listing = entries_of(dir.path());
  EXPECT_EQ(sink.count(), 0U);
  std::vector<os::Entry> entries;
  for (const os::Entry entry : listing) entries.push_back(entry);
  std::sort(entries.begin(), entries.end(),
            [](const os::Entry& a, const os::Entry& b) { return a.name < b.name; });
  ASSERT_EQ(entries.size(), 2U);
  EXPECT_EQ(entries[0].name, "file");
  EXPECT_EQ(entries[0].kind, os::EntryKind::kFile);
  EXPECT_EQ(entries[1].name, "folder");
  EXPECT_EQ(entries[1].kind, os::EntryKind::kFolder);
}

TEST(FolderEntries, OfAnUnlistableFolderAreEmpty) {
  const scratch_folder dir;
  write_file(dir.path("file"), "");
  recording_sink sink;
  EXPECT_TRUE(entries_of(dir.path("missing")).empty());
  EXPECT_TRUE(entries_of(dir.path("file")).empty());
  EXPECT_TRUE(entries_of("").empty());
  const auto fault = faults::fail(Call::list, {13, os::Failure::kOther});
  os::Listing entries;
  EXPECT_EQ(folder_entries(dir.path(), entries).code(), 13);
  EXPECT_TRUE(entries.empty());
  EXPECT_EQ(sink.count(), 0U);
}

TEST(NextLine, ReturnsAnEmptyLineAfterTheLastOne) {
  std::string_view rest = "a\n\r\n\n";
  std::string_view line;
  EXPECT_TRUE(next_line(rest, line));
  EXPECT_EQ(line, "a");
  EXPECT_FALSE(next_line(rest, line));
  EXPECT_TRUE(rest.empty());
}

TEST(VuPathInATwoByteEncoding, TakesNoSecondByteForASeparator) {
  const auto lead_bytes = faults::set_lead_bytes("\x83\x95");
  const std::pair<std::string, std::pair<std::string, std::string>> rows[] = {
      {"dir\\na\x83\\me", {"dir", "na\x83\\me"}},
      {"\x83\\\\name", {"\x83\\", "name"}},
      {"\x83\x83\\name", {"\x83\x83", "name"}},
      {"\x83\x95\x83\\name", {"", "\x95\x83\\name"}},
      {"dir\\\x83", {"dir", "\x83"}},
      {"dir\\\x83\\", {"dir", "\x83\\"}},
  };
  for (const auto& [full, names] : rows) {
    const vu_path path(full);
    EXPECT_EQ(path.getParentPathName(), names.first) << testing::PrintToString(full);
    EXPECT_EQ(path.getRelativePathName(), names.second) << testing::PrintToString(full);
  }
}

TEST(VuPathInATwoByteEncoding, IsAnotherMatterForUtf8) {
  const auto lead_bytes = faults::set_lead_bytes("\x83");
  const vu_pathutf8 path(vu_utf8string("dir\\na\x83\\me"));
  EXPECT_EQ(path.getParentPathName().str(), "dir\\na\x83");
  EXPECT_EQ(path.getRelativePathName().str(), "me");
}

TEST(VuFileUtf8CurrentDirectory, OnFailureLeavesItsArgument) {
  const auto fault = faults::fail(Call::current_directory, {2, os::Failure::kNotFound});
  vu_utf8string current("before");
  EXPECT_FALSE(vu_fileutf8::getCurrentDirectory(current));
  EXPECT_EQ(current.str(), "before");
}

TEST(VuFileUtf8Rel2abs, OnFailureLeavesItsArgument) {
  const auto fault = faults::fail(Call::full_path, {2, os::Failure::kNotFound});
  vu_utf8string path("before");
  EXPECT_FALSE(vu_fileutf8::rel2abs(path));
  EXPECT_EQ(path.str(), "before");
}

TEST(VuFileUtf8Rel2abs, OfAPathWithANulIsFalse) {
  const std::string text("a\0b", 3);
  vu_utf8string path(text);
  EXPECT_FALSE(vu_fileutf8::rel2abs(path));
  EXPECT_EQ(path.str(), text);
}

#if defined(__linux__)
TEST(VuFileUtf8CurrentDirectory, ThatHasNoUtf8FormIsFalse) {
  const scratch_folder dir;
  const std::filesystem::path before = std::filesystem::current_path();
  const std::string odd = dir.path("\xED\xA0\x80");
  make_folder(odd);
  std::filesystem::current_path(native(odd));
  vu_utf8string current("before");
  EXPECT_FALSE(vu_fileutf8::getCurrentDirectory(current));
  EXPECT_EQ(current.str(), "before");
  EXPECT_FALSE(vu_fileutf8::rel2abs(current));
  EXPECT_EQ(current.str(), "before");
  std::filesystem::current_path(before);
}
#endif
