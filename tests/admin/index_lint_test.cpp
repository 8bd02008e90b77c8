#include "tools/admin/index_lint.h"

#include <map>
#include <random>
#include <string>
#include <vector>

#include "tests/admin/tree_fixture.h"

using admin::Verdict;

namespace {

/// A document folder with an index written by hand.
class AdminIndex : public ::testing::Test {
 protected:
  AdminIndex() { STGIndex::setSynchronizeMode(false); }

  std::string path(const std::string& name) const { return m_folder.path(name); }
  void file(const std::string& name) const { write_file(path(name), "x"); }
  void index(const std::string& text) const { write_file(path("index.dat"), text); }

  std::vector<admin::IndexLine> lines() {
    admin::DocumentFolder folder;
    folder.path = system_form(m_folder.path());
    m_view.load(folder, {});
    m_lint.start(m_view);
    std::vector<admin::IndexLine> all;
    admin::IndexLine line;
    while (m_lint.next(line)) {
      m_files.push_back(std::string(line.file));
      all.push_back(line);
    }
    return all;
  }

  /// "number:verdict" of every line.
  std::vector<std::string> verdicts() {
    std::vector<std::string> all;
    for (const admin::IndexLine& line : lines())
      all.push_back(std::to_string(line.number) + ":" + std::string(name_of(line.verdict)));
    return all;
  }

  /// What the library finds under each physical name, and what the lines say.
  void compare_with_library() {
    std::map<std::string, std::string> by_key;
    for (const admin::IndexLine& line : lines()) {
      if (line.verdict == Verdict::kEntry)
        by_key.emplace(std::string(line.key), std::string(line.stored));
    }
    std::map<std::string, std::string> expected;
    for (const auto& [key, stored] : by_key)
      expected.emplace(index_format::file_name_of(key, stored),
                       std::string(index_format::logical_of(key)));
    std::map<std::string, std::string> found;
    STGIndex::plValues(m_folder.path(), found);
    ASSERT_EQ(expected, found);
  }

  admin::IndexState state() const { return m_view.index_state(); }
  admin::FolderView& view() { return m_view; }
  admin::IndexLint& lint() { return m_lint; }
  const std::string& file_of(std::size_t line) const { return m_files[line]; }

 private:
  scratch_folder m_folder;
  admin::FolderView m_view;
  admin::IndexLint m_lint;
  std::vector<std::string> m_files;
};

using Verdicts = std::vector<std::string>;

}  // namespace

TEST_F(AdminIndex, WithTheThreeKindsOfEntriesIsRead) {
  file("00000001.kdb");
  file("00000002.kdc");
  file("notes.txt");
  index(
      "Sales Report.kdb_1199145600/00000001\n"
      "budget.kdc_0000000042/00000002\n"
      "notes.txt_0000000000/notes.txt\n");
  const auto all = lines();
  ASSERT_EQ(all.size(), 3U);
  EXPECT_EQ(all[0].logical, "Sales Report.kdb");
  EXPECT_EQ(all[0].timestamp, 1199145600);
  EXPECT_EQ(all[0].stored, "00000001");
  EXPECT_EQ(all[0].file, "00000001.kdb");
  EXPECT_EQ(all[2].file, "notes.txt");
  for (const auto& line : all) {
    EXPECT_EQ(line.verdict, Verdict::kEntry);
    EXPECT_TRUE(line.has_file);
    EXPECT_FALSE(line.has_odd_stamp);
    EXPECT_TRUE(lint().is_claimed(line.listed));
  }
  EXPECT_EQ(lint().unordered_lines(), 0U);
  compare_with_library();
}

TEST_F(AdminIndex, ThatIsOneBlankHasNoLine) {
  index(" ");
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kRead);
}

TEST_F(AdminIndex, WithoutBytesIsToldApartFromAMissingOne) {
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kMissing);
  index("");
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kNoBytes);
}

TEST_F(AdminIndex, TellsWhyLinesArePassedOver) {
  file("00000001.kdc");
  index(
      "a.kdc_0000000000/00000001\n"
      "b.kdc_0000000000/00000002\n"
      "short/00000001\n"
      "no separator here\n"
      "c.kdc_0000000000/00000001\n"
      "a.kdc_0000000000/00000001\n"
      "tail");
  EXPECT_EQ(verdicts(), (Verdicts{"1:entry", "2:no-file", "3:short-key", "4:no-separator",
                                  "5:entry", "6:duplicate-key", "7:no-separator"}));
  const auto all = lines();
  EXPECT_EQ(all[4].same_stored_as, 1U);
  EXPECT_EQ(all[5].same_key_as, 1U);
  EXPECT_EQ(all[3].raw, "no separator here");
  EXPECT_EQ(all[6].raw, "tail");
  compare_with_library();
}

TEST_F(AdminIndex, KeepsACarriageReturnInThePhysicalName) {
  file("00000001.kdc");
  index("a.kdc_0000000000/00000001\r\n");
  EXPECT_EQ(verdicts(), (Verdicts{"1:no-file"}));
  compare_with_library();
}

TEST_F(AdminIndex, TakesALastLineWithoutALineFeed) {
  file("00000001.kdc");
  index("a.kdc_0000000000/00000001");
  EXPECT_EQ(verdicts(), (Verdicts{"1:entry"}));
  compare_with_library();
}

TEST_F(AdminIndex, HasAValidLineWithoutAFileWhenThePhysicalNameAloneExists) {
  file("plain");
  index("a.kdc_0000000005/plain\n");
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].verdict, Verdict::kEntry);
  EXPECT_FALSE(all[0].has_file);
  EXPECT_EQ(file_of(0), "plain.kdc");
  std::string physical;
  EXPECT_FALSE(STGIndex::exists(path("").substr(0, path("").size() - 1), "a.kdc", 5, physical));
  compare_with_library();
}

TEST_F(AdminIndex, AcceptsNamesThatThePathMakesSenseOf) {
  // The physical name may be a pattern, or lead elsewhere: the library asks whether the path
  // exists.
  make_folder(path("sub"));
  file("sub\\inner.kdc");
  file("00000001.kdc");
  index(
      "a.kdc_0000000000/0000000?\n"
      "b.kdc_0000000000/sub\\inner\n"
      "c.kdc_0000000000/.\n");
  EXPECT_EQ(verdicts(), (Verdicts{"1:entry", "2:entry", "3:entry"}));
  compare_with_library();
}

TEST_F(AdminIndex, SeesAnOddTimestamp) {
  file("00000001.kdc");
  index("a.kdcx00000000y1/00000001\n");
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_TRUE(all[0].has_odd_stamp);
}

TEST_F(AdminIndex, CountsLinesOutOfOrder) {
  file("00000001.kdc");
  file("00000002.kdc");
  index("b.kdc_0000000000/00000001\na.kdc_0000000000/00000002\n");
  lines();
  EXPECT_EQ(lint().unordered_lines(), 1U);
}

TEST_F(AdminIndex, OfGarbageIsReadAsTheLibraryReadsIt) {
  const std::vector<std::string> pieces = {"a.kdc_0000000000/00000001",
                                           "b.kdc_0000000042/00000002",
                                           "a.kdc_0000000000/00000003",
                                           "c.kdc_0000000001/missing",
                                           "notes.txt_0000000000/notes.txt",
                                           "x/y",
                                           "/",
                                           "//",
                                           "\n",
                                           "\n",
                                           "\n",
                                           "\r\n",
                                           " ",
                                           "_0000000000/",
                                           "text",
                                           "a.kdc_",
                                           "00000",
                                           "\xE4\xFF",
                                           ".kdc",
                                           std::string(1, '\0')};
  for (const char* name : {"00000001.kdc", "00000002.kdc", "00000003.kdc", "notes.txt", "text"})
    file(name);
  std::mt19937 random(20240501);
  for (int round = 0; round < 400; ++round) {
    std::string text;
    for (auto left = random() % 12; left > 0; --left) {
      text += pieces[random() % pieces.size()];
      if (random() % 3 != 0) text += '\n';
    }
    // A blank is an index without entries; without a byte the library would have nothing to read.
    index(text.empty() ? " " : text);
    SCOPED_TRACE("round " + std::to_string(round));
    ASSERT_NO_FATAL_FAILURE(compare_with_library());
  }
}

TEST_F(AdminIndex, AndItsCounterAreRead) {
  file("00000001.kdc");
  index(" ");
  lines();
  EXPECT_FALSE(view().read_counter({}));
  write_file(path("index"), "00000041");
  lines();
  EXPECT_EQ(view().read_counter({}), "00000041");
}
