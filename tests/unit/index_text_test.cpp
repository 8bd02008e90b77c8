#include <gtest/gtest.h>

#include <chrono>
#include <map>
#include <string>
#include <vector>

#include "index/folder_files.h"
#include "index/index_format.h"
#include "platform/os/os.h"
#include "tests/support/process.h"
#include "tests/support/real_kernel.h"
#include "tests/support/scratch.h"
#include "tests/unit/index_fixture.h"

// The lines of an index text: which are valid, and the cost of reading them.

namespace {

using index_format::Line;
using index_format::LinesOfKey;
using os::faults::Call;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using PlainLine = plain_index::line;
using plain_index::shown;

/// A folder with files, and the maps that are loaded from a text.
class IndexText : public IndexTest {
 protected:
  void make_files(const std::vector<std::string>& names) const {
    for (const std::string& name : names) folder.write(name, "x");
  }
  void load(const std::string& text) {
    lp.clear();
    pl.clear();
    Peer::string2Maps(folder.path(), text, lp, pl);
  }

  NameMap lp;
  NameMap pl;
};

TEST_F(IndexText, GivesBothDirectionsOfEveryValidLine) {
  make_files({"00000001.kdb", "00000002.kdc", "notes.txt"});
  load(
      "Sales Report.kdb_1199145600/00000001\n"
      "budget.kdc_0000000042/00000002\n"
      "notes.txt_0000000000/notes.txt\n");
  EXPECT_EQ(lp, (NameMap{{"Sales Report.kdb_1199145600", "00000001"},
                         {"budget.kdc_0000000042", "00000002"},
                         {"notes.txt_0000000000", "notes.txt"}}));
  EXPECT_EQ(pl, (NameMap{{"00000001", "Sales Report.kdb_1199145600"},
                         {"00000002", "budget.kdc_0000000042"},
                         {"notes.txt", "notes.txt_0000000000"}}));
}

TEST_F(IndexText, NeedsNoLineFeedAtItsEnd) {
  make_files({"00000001"});
  load("k_0000000001/00000001");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000001"}}));
  load("k_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000001"}}));
}

TEST_F(IndexText, WithoutASlashLeavesTheMapsUnchanged) {
  make_files({"a"});
  for (const std::string text : {"", " ", "\n", "a_0000000001", "a\na\na\n"}) {
    lp = {{"kept", "1"}};
    pl = {{"2", "kept"}};
    Peer::string2Maps(folder.path(), text, lp, pl);
    EXPECT_EQ(lp, (NameMap{{"kept", "1"}})) << shown(text);
    EXPECT_EQ(pl, (NameMap{{"2", "kept"}})) << shown(text);
  }
}

TEST_F(IndexText, OverwritesNothingThatIsInTheMapsAlready) {
  make_files({"00000001", "00000002"});
  lp = {{"k_0000000001", "00000009"}};
  pl = {{"00000002", "other_0000000001"}};
  Peer::string2Maps(folder.path(), "k_0000000001/00000001\nm_0000000001/00000002\n", lp, pl);
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000009"}, {"m_0000000001", "00000002"}}));
  EXPECT_EQ(pl, (NameMap{{"00000002", "other_0000000001"}, {"00000001", "k_0000000001"}}));
}

TEST_F(IndexText, LeavesLinesOutWhoseFilesAreMissing) {
  make_files({"00000002.kdb"});
  load("a.kdb_0000000001/00000001\na.kdb_0000000002/00000002\nb.kdc_0000000001/00000002\n");
  // The file of the third line would be 00000002.kdc.
  EXPECT_EQ(lp, (NameMap{{"a.kdb_0000000002", "00000002"}}));
}

TEST_F(IndexText, TakesALineWhoseFileBearsTheStoredNameAlone) {
  make_files({"00000001", "notes.txt"});
  load("a.kdb_0000000001/00000001\nother.doc_0000000003/notes.txt\n");
  EXPECT_EQ(lp, (NameMap{{"a.kdb_0000000001", "00000001"}, {"other.doc_0000000003", "notes.txt"}}));
}

TEST_F(IndexText, KeepsTheFirstOfTwoLinesWithOneKey) {
  make_files({"00000001", "00000002"});
  load("k_0000000001/00000002\nk_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000002"}}));
  EXPECT_EQ(pl, (NameMap{{"00000001", "k_0000000001"}, {"00000002", "k_0000000001"}}));
}

TEST_F(IndexText, KeepsTheFirstOfTwoLinesWithOnePhysicalName) {
  make_files({"00000001"});
  load("z_0000000001/00000001\na_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"a_0000000001", "00000001"}, {"z_0000000001", "00000001"}}));
  EXPECT_EQ(pl, (NameMap{{"00000001", "z_0000000001"}}));
}

TEST_F(IndexText, PassesOverAnInvalidLineToAValidOneOfTheSameKey) {
  make_files({"00000002"});
  load("k_0000000001/00000001\nk_0000000001/00000002\n");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000002"}}));
}

TEST_F(IndexText, LeavesOutKeysThatAreTooShort) {
  make_files({"00000001"});
  for (const std::string text : {"/00000001\n", "k/00000001\n", "0123456789/00000001\n",
                                 "/00000001", "0123456789/00000001"}) {
    EXPECT_NO_THROW(load(text)) << shown(text);
    EXPECT_TRUE(lp.empty()) << shown(text);
    EXPECT_TRUE(pl.empty()) << shown(text);
  }
  load("k/00000001\n_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"_0000000001", "00000001"}}));
}

TEST_F(IndexText, AcceptsAKeyWithAnInvalidTimestamp) {
  make_files({"00000001"});
  load("just-eleven/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"just-eleven", "00000001"}}));
}

TEST_F(IndexText, CountsACarriageReturnAsPartOfThePhysicalName) {
  make_files({"00000001"});
  load("k_0000000001/00000001\r\nm_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"m_0000000001", "00000001"}}));
#if !defined(_WIN32)
  // Windows does not allow such names.
  make_files({"00000001\r"});
  load("k_0000000001/00000001\r\nm_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000001\r"}, {"m_0000000001", "00000001"}}));
#endif
}

TEST_F(IndexText, TakesWhateverAnExistenceTestFinds) {
  make_folder(folder.path("sub"));
  make_files({"00000001.kdb", "sub\\inner"});
  // The folder itself, its parent, patterns, and paths through a sub-folder.
  for (const std::string stored : {"", ".", "..", "*", "0000000?.kdb", "*.kdb", "sub", "sub\\inner",
                                   "sub/inner", "..\\*", "sub\\..\\00000001.kdb"}) {
    load("k_0000000001/" + stored + "\n");
    EXPECT_EQ(lp, (NameMap{{"k_0000000001", stored}})) << stored;
    EXPECT_EQ(pl, (NameMap{{stored, "k_0000000001"}})) << stored;
    EXPECT_TRUE(Peer::validIndexLine(folder.path(), "k_0000000001", stored)) << stored;
  }
  for (const std::string stored : {"x*", "0000000?.kdc", "sub\\other", "..\\no such thing"}) {
    load("k_0000000001/" + stored + "\n");
    EXPECT_TRUE(lp.empty()) << stored;
    EXPECT_FALSE(Peer::validIndexLine(folder.path(), "k_0000000001", stored)) << stored;
  }
}

TEST_F(IndexText, AppendsTheLogicalExtensionToPatternsToo) {
  make_files({"00000001.kdb"});
  load("k.kdb_0000000001/0000000?\nk.kdc_0000000001/0000000?\n");
  EXPECT_EQ(lp, (NameMap{{"k.kdb_0000000001", "0000000?"}}));
}

TEST_F(IndexText, FollowsTheSystemInTheLetterCaseOfNames) {
  make_files({"Report.kdb"});
  load("Report.KDB_0000000000/REPORT.KDB\n");
#if defined(_WIN32)
  EXPECT_EQ(lp.size(), 1U);  // the file is found in any letter case
#else
  EXPECT_EQ(lp.size(), 0U);  // there is no file of that name
#endif
}

TEST_F(IndexText, SkipsALineWithoutASlashAndReadsTheNextOne) {
  make_files({"00000001", "00000002"});
  load("torn line\nk_0000000001/00000001\nanother torn one\n\nm_0000000001/00000002\n");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000001"}, {"m_0000000001", "00000002"}}));
}

TEST_F(IndexText, GluesALineWithoutASlashToALastLineWithoutALineFeed) {
  make_files({"phys"});
  load("abc\nkey_0000000001/phys");
  EXPECT_EQ(lp, (NameMap{{"abc\nkey_0000000001", "phys"}, {"key_0000000001", "phys"}}));
  EXPECT_EQ(pl, (NameMap{{"phys", "abc\nkey_0000000001"}}));
}

TEST_F(IndexText, GluesSuchLinesToALongNameAsWell) {
  const std::string name = "a-physical-name-of-some-length-" + std::string(100, 'x');
  make_files({name});
  load("abc\nkey_0000000001/" + name);
  EXPECT_EQ(lp, (NameMap{{"abc\nkey_0000000001", name}, {"key_0000000001", name}}));
}

TEST_F(IndexText, GluesSuchLinesByTheLogicalExtensionAsWell) {
  make_files({"phys.kdb"});
  load("a\nb.kdb\nc\nkey.kdb_0000000001/phys");
  EXPECT_EQ(lp, (NameMap{{"a\nb.kdb\nc\nkey.kdb_0000000001", "phys"},
                         {"b.kdb\nc\nkey.kdb_0000000001", "phys"},
                         {"c\nkey.kdb_0000000001", "phys"},
                         {"key.kdb_0000000001", "phys"}}));
  // The last line has no extension, so that of the joined name is ".kdb\nc\nkey".
  load("a\nb.kdb\nc\nkey_0000000001/phys");
  EXPECT_TRUE(lp.empty());
}

TEST_F(IndexText, DistinguishesTheExtensionsOfGluedLines) {
  // Both lines are valid because the file "phys" exists; their extensions differ.
  make_files({"phys"});
  load("x.kdb\nkey_0000000001/phys");
  EXPECT_EQ(lp, (NameMap{{"x.kdb\nkey_0000000001", "phys"}, {"key_0000000001", "phys"}}));
#if !defined(_WIN32)
  // Where a name may contain a line feed, the joined extension finds its file and the plain key
  // does not.
  scratch_folder other;
  write_file(other.path("phys.kdb\nkey"), "x");
  lp.clear();
  Peer::string2Maps(other.path(), "a\nx.kdb\nkey_0000000001/phys", lp, pl);
  EXPECT_EQ(lp, (NameMap{{"a\nx.kdb\nkey_0000000001", "phys"}, {"x.kdb\nkey_0000000001", "phys"}}));
  // The key "b\nkey" starts after the dot, so it has no extension and no file.
  write_file(other.path("phys\n.kdb\nb\nkey"), "x");
  lp.clear();
  Peer::string2Maps(other.path(), "x.kdb\nb\nkey_0000000001/phys\n", lp, pl);
  EXPECT_EQ(lp, (NameMap{{"x.kdb\nb\nkey_0000000001", "phys\n"}}));
#endif
}

TEST_F(IndexText, TakesAGluedLineWhoseNameIsAPath) {
  make_folder(folder.path("d"));
  make_files({"d\\e"});
  load("abc\nkey_0000000001/d/e");
  EXPECT_EQ(lp, (NameMap{{"abc\nkey_0000000001", "d/e"}, {"key_0000000001", "d/e"}}));
}

/// The number of random texts. A check for a file takes a hundred times as long under Wine.
constexpr std::size_t kTexts = kOnWindows ? 300 : 4000;

TEST_F(IndexText, OfRandomPiecesGivesThePlainMaps) {
  make_folder(folder.path("d"));
  make_files({"a", "a.a", "00000001", "00000002.a", "b.a", "d\\a", ".a"});
  std::vector<std::string> pieces = {"a",
                                     "/",
                                     "\n",
                                     "_",
                                     "0",
                                     "1",
                                     ".",
                                     "d",
                                     "/\n",
                                     "\n\n",
                                     "a.a",
                                     "*",
                                     "?",
                                     "\\",
                                     "..",
                                     "b.a_0000000001",
                                     "a_0000000000",
                                     "_0000000002/a\n",
                                     "a.a_0000000003/00000002\n",
                                     "b_0000000004/00000001",
                                     "xx\nb.a_0000000005/00000002",
                                     "k_0000000006/d/a"};
#if !defined(_WIN32)
  // A name with a line feed, which only the rest of a text can name.
  make_files({"a\n", "00000001\n"});
#endif
  RandomTexts texts(4711, std::move(pieces));
  std::size_t entries = 0;
  std::size_t glued = 0;
  for (std::size_t i = 0; i < kTexts; ++i) {
    const std::string text = texts.next(16);
    NameMap expected_lp;
    NameMap expected_pl;
    plain_index::load(folder.path(), text, expected_lp, expected_pl);
    load(text);
    ASSERT_EQ(lp, expected_lp) << shown(text);
    ASSERT_EQ(pl, expected_pl) << shown(text);
    entries += lp.size();
    for (const auto& [key, stored] : lp) glued += key.find('\n') != std::string::npos ? 1U : 0U;
  }
  // Checks that there was something to compare.
  EXPECT_GT(entries, kTexts / 2);
  EXPECT_GT(glued, kTexts / 20);
}

TEST_F(IndexText, AnswersForOneNameAsTheMapsDo) {
  make_files({"a", "a.a", "00000001", "00000002.a", "b.a"});
#if !defined(_WIN32)
  make_files({"00000001\n"});
#endif
  // Long runs of other lines in between: the search skips several at once.
  std::string others;
  for (int i = 0; i < 30; ++i) others += "other name.a_0000000" + std::to_string(100 + i) + "/a\n";
  RandomTexts texts(2718, {"a", "/", "\n", "_", ".", "b.a_0000000001/a\n", "b.a_0000000009/none\n",
                           "b.a_0000000003/00000002\n", "b.a_0000000002/00000002", others,
                           "a_0000000000/00000001\n", "bb.a_0000000007/a\n", "b_000000000\n1/",
                           "00000001\n", "xb.a_0000000008/a\n", "b.a_000000001/a\n"});
  std::size_t found = 0;
  std::size_t run_on = 0;
  for (std::size_t i = 0; i < kTexts; ++i) {
    const std::string text = texts.next(12);
    NameMap expected_lp;
    NameMap expected_pl;
    plain_index::load(folder.path(), text, expected_lp, expected_pl);
    std::map<std::string, long> expected = {{"b.a", -1}, {"b", -1}, {"", -1}, {"nobody", -1}};
    for (const PlainLine& line : plain_index::lines(text)) {
      if (line.key.size() >= 11) expected.emplace(line.key.substr(0, line.key.size() - 11), -1);
    }
    for (const auto& [key, stored] : expected_lp) {
      long& latest = expected[key.substr(0, key.size() - 11)];
      latest = std::max({latest, 0L, static_cast<long>(index_format::timestamp_of(key))});
      ++found;
      run_on += key.find('\n') != std::string::npos ? 1U : 0U;
    }
    FolderFiles files(folder.path());
    for (const auto& [name, latest] : expected) {
      index_format::LinesOfName lines(text, name);
      Line line;
      long answer = -1;
      while (lines.next(line)) {
        ASSERT_EQ(index_format::logical_of(line.key), name) << shown(text);
        if (state_by_probing(line, files) != LineState::kValid) continue;
        answer = std::max({answer, 0L, static_cast<long>(index_format::timestamp_of(line.key))});
      }
      ASSERT_EQ(answer, latest) << shown(text) << ' ' << name;
    }
  }
  EXPECT_GT(found, kTexts / 2);
  EXPECT_GT(run_on, kTexts / 80);
}

TEST_F(IndexText, AnswersForOneKeyAsTheMapsDo) {
  make_files({"a", "a.a", "00000001", "00000002.a", "b.a"});
  RandomTexts texts(99, {"a", "/", "\n", "_", ".", "b.a_0000000001/a\n", "b.a_0000000001/none\n",
                         "b.a_0000000001/00000002", "a_0000000000/00000001\n", "\n\n"});
  std::size_t found = 0;
  for (std::size_t i = 0; i < kTexts / 2; ++i) {
    const std::string text = texts.next(10);
    NameMap expected_lp;
    NameMap expected_pl;
    plain_index::load(folder.path(), text, expected_lp, expected_pl);
    // A key without a line, and every key of a line, valid or not.
    std::map<std::string, bool> keys = {{"b.a_0000000001", true}, {"nobody_0000000001", true}};
    for (const PlainLine& line : plain_index::lines(text)) keys[line.key] = true;
    for (const auto& [key, unused] : keys) {
      LinesOfKey lines(text, key);
      Line line;
      std::string stored = "none";
      while (lines.next(line)) {
        if (!plain_index::is_valid(folder.path(), key, std::string(line.stored))) continue;
        stored = line.stored;
        break;
      }
      const auto expected = expected_lp.find(key);
      ASSERT_EQ(stored, expected == expected_lp.end() ? "none" : expected->second)
          << shown(text) << " key " << shown(key);
      found += expected == expected_lp.end() ? 0U : 1U;
    }
  }
  EXPECT_GT(found, kTexts / 4);
}

TEST_F(IndexText, CostsOneListingAndNothingPerLine) {
  std::string text;
  for (int i = 1; i <= 200; ++i) {
    const std::string number = std::to_string(10000000 + i);
    write_file(folder.path(number + ".kdb"), "");
    text += "doc" + number + ".kdb_0000000001/" + number + "\n";
  }
  os::faults::reset();
  load(text);
  EXPECT_EQ(lp.size(), 200U);
  EXPECT_EQ(os::faults::calls(Call::list), 1U);
  EXPECT_EQ(os::faults::calls(Call::any), 1U);
}

TEST_F(IndexText, CostsNoProbeWhateverTheLengthsOfItsNames) {
  for (const std::size_t length : {1U, 7U, 8U, 15U, 16U, 17U, 31U, 32U, 63U, 64U, 65U}) {
    for (const std::size_t extension : {0U, 2U, 15U, 16U, 17U, 64U}) {
      const std::string stored(length, static_cast<char>('a' + extension % 26));
      const std::string dotted = extension == 0 ? "" : "." + std::string(extension - 1, 'x');
      make_files({stored + dotted});
      const std::string line =
          "k" + dotted + "_" + std::to_string(1000000000 + length) + "/" + stored + "\n";
      os::faults::reset();
      // Only one line: a line of another kind would end the fast path for plain lines.
      load(line + std::string(100, '\n'));
      EXPECT_EQ(os::faults::calls(Call::probe_search), 0U) << line;
    }
  }
}

TEST_F(IndexText, CostsAProbeOnlyForNamesThatTheListingDoesNotShow) {
  make_files({"00000001.kdb"});
  os::faults::reset();
  load("a.kdb_0000000001/00000001\nb.kdb_0000000001/missing\nc_0000000001/missing\n");
  EXPECT_EQ(lp.size(), 1U);
  EXPECT_EQ(os::faults::calls(Call::list), 1U);
  EXPECT_EQ(os::faults::calls(Call::probe_search), 3U);
}

TEST_F(IndexText, WithoutASlashCostsNothing) {
  os::faults::reset();
  load(std::string(100000, '\n'));
  EXPECT_EQ(os::faults::calls(Call::any), 0U);
}

TEST_F(IndexText, OfKeysThatAreTooShortCostsNothing) {
  os::faults::reset();
  load("short/00000001\nshorter/00000001\n" + std::string(100, 'x'));
  EXPECT_EQ(os::faults::calls(Call::any), 0U);
}

TEST_F(IndexText, OfBareLineFeedsIsReadInLinearWork) {
  make_files({"00000001.kdb"});
  os::faults::reset();
  load(std::string(100000, '\n') + "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"a.kdb_0000000001", "00000001"}}));
  EXPECT_LE(os::faults::calls(Call::probe_search), 2U);
  EXPECT_EQ(os::faults::calls(Call::list), 1U);
}

TEST_F(IndexText, OfManyLinesWithoutASlashIsReadInLinearTime) {
  // A copy of the rest of the text for every line would move 10^13 bytes.
  make_files({"00000001"});
  std::string text;
  for (int i = 0; i < 1000000; ++i) text += "x\n";
  text += "a_0000000001/00000001\n";
  for (int i = 0; i < 1000000; ++i) text += "y.z\n";
  text += "b_0000000001/00000001\n";

  const test_alarm alarm("2,000,002 lines", std::chrono::seconds(100));
  load(text);
  EXPECT_EQ(lp, (NameMap{{"a_0000000001", "00000001"}, {"b_0000000001", "00000001"}}));

  EXPECT_EQ(lines_of_key(text, "b_0000000001").size(), 1U);
  EXPECT_TRUE(lines_of_key(text, "x\nx_0000000001").empty());
}

TEST_F(IndexText, OfLinesThatAlternateWithBlankOnesIsReadInLinearWork) {
  std::string text;
  for (int i = 0; i < 5000; ++i) text += "\nlogical.kdb_0000000001/00000001\n";
  make_files({"00000001.kdb"});
  os::faults::reset();
  load(text);
  EXPECT_EQ(lp, (NameMap{{"logical.kdb_0000000001", "00000001"}}));
  // The rest of the text is checked as a name only if it is short enough to be one.
  EXPECT_LE(os::faults::calls(Call::probe_search), 2U * (32768U / 33U + 1U));
}

TEST_F(IndexText, KeepsEveryGluedKeyOfItsLastLine) {
  make_files({"00000001"});
  load(std::string(200, '\n') + "a_0000000001/00000001");
  ASSERT_EQ(lp.size(), 201U);
  for (std::size_t before = 0; before <= 200; ++before) {
    EXPECT_EQ(lp.count(std::string(before, '\n') + "a_0000000001"), 1U) << before;
  }
}

}  // namespace
