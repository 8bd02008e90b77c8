#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_reader.h"
#include "index/known_files.h"
#include "platform/os/os.h"
#include "tests/support/index_peer.h"
#include "tests/support/real_kernel.h"
#include "tests/support/scratch.h"

// The lines of an index's text: which there are, which of them count, and what looking at them
// costs.

namespace {

using index_format::Line;
using index_format::Lines;
using index_format::LinesOfKey;
using os::faults::Call;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;

using PlainLine = plain_index::line;
using plain_index::shown;

std::vector<PlainLine> lines_of(const std::string& text) {
  std::vector<PlainLine> result;
  Lines lines(text);
  Line line;
  while (lines.next(line)) {
    EXPECT_LT(line.separator, text.size()) << shown(text);
    EXPECT_EQ(line.key.data() + line.key.size(), text.data() + line.separator) << shown(text);
    EXPECT_EQ(line.stored.data(), text.data() + line.separator + 1) << shown(text);
    EXPECT_EQ(line.runs_on, line.key.find('\n') != std::string_view::npos) << shown(text);
    result.push_back({std::string(line.key), std::string(line.stored)});
  }
  EXPECT_FALSE(lines.next(line)) << shown(text);
  return result;
}

std::vector<PlainLine> lines_of_key(const std::string& text, const std::string& key) {
  std::vector<PlainLine> result;
  LinesOfKey lines(text, key);
  Line line;
  while (lines.next(line)) result.push_back({std::string(line.key), std::string(line.stored)});
  EXPECT_FALSE(lines.next(line)) << shown(text);
  return result;
}

/// Compares every walk over a text with the plain one.
void expect_the_plain_lines(const std::string& text) {
  const std::vector<PlainLine> expected = plain_index::lines(text);
  ASSERT_EQ(lines_of(text).size(), expected.size()) << shown(text);
  ASSERT_TRUE(lines_of(text) == expected) << shown(text);

  std::map<std::string, std::vector<PlainLine>> by_key = {
      {"", {}}, {"a", {}}, {"b", {}}, {"a/a", {}}, {"\n", {}}};
  for (const PlainLine& line : expected) by_key[line.key].push_back(line);
  for (const auto& [key, lines] : by_key) {
    ASSERT_TRUE(lines_of_key(text, key) == lines) << shown(text) << " key " << shown(key);
  }
}

/// Texts out of few pieces, always the same ones.
class RandomTexts {
 public:
  RandomTexts(std::uint32_t seed, std::vector<std::string> pieces)
      : m_random(seed), m_pieces(std::move(pieces)) {}

  std::string next(std::size_t most_pieces) {
    std::string text;
    for (std::size_t left = m_random() % (most_pieces + 1); left != 0; --left) {
      text += m_pieces[m_random() % m_pieces.size()];
    }
    return text;
  }

 private:
  std::mt19937 m_random;
  std::vector<std::string> m_pieces;
};

// ---- which lines there are ---------------------------------------------------------------------

TEST(IndexLines, AreThePlainOnesInEveryShortText) {
  constexpr const char* kCharacters = "a/\n";
  for (std::size_t length = 0; length <= 9; ++length) {
    std::size_t texts = 1;
    for (std::size_t i = 0; i < length; ++i) texts *= 3;
    for (std::size_t number = 0; number < texts; ++number) {
      std::string text;
      for (std::size_t rest = number; text.size() < length; rest /= 3)
        text += kCharacters[rest % 3];
      expect_the_plain_lines(text);
      if (HasFatalFailure()) return;
    }
  }
}

TEST(IndexLines, AreThePlainOnesInRandomTexts) {
  RandomTexts texts(20240117, {"a", "b", "/", "\n", "_", "0", "1", ".", "a_0000000001", "/\n",
                               "\n\n", "b.a_0000000002/00000001\n"});
  for (int i = 0; i < 20000; ++i) {
    expect_the_plain_lines(texts.next(24));
    if (HasFatalFailure()) return;
  }
}

TEST(IndexLines, EndWithTheLastSlash) {
  EXPECT_TRUE(lines_of("").empty());
  EXPECT_TRUE(lines_of(" ").empty());
  EXPECT_TRUE(lines_of("\n\n\n").empty());
  EXPECT_TRUE(lines_of("abc\ndef").empty());
  EXPECT_EQ(lines_of("a/b\nccc\nddd").size(), 1U);
}

TEST(IndexLines, NeedNoLineFeedAtTheEnd) {
  const std::vector<PlainLine> expected = {{"k_0000000001", "00000001"}};
  EXPECT_EQ(lines_of("k_0000000001/00000001"), expected);
  EXPECT_EQ(lines_of("k_0000000001/00000001\n"), expected);
}

TEST(IndexLines, SeparateAtTheirFirstSlashOnly) {
  const std::vector<PlainLine> expected = {{"a", "b/c"}, {"", "/d"}, {"e", ""}};
  EXPECT_EQ(lines_of("a/b/c\n//d\ne/\n"), expected);
}

TEST(IndexLines, KeepACarriageReturnInThePhysicalName) {
  const std::vector<PlainLine> expected = {{"a", "b\r"}, {"c", "d"}};
  EXPECT_EQ(lines_of("a/b\r\nc/d\n"), expected);
}

TEST(IndexLines, RunOnToTheNextSlashWithTheRestOfTheTextAsName) {
  const std::vector<PlainLine> expected = {{"x\ny\nkey", "phys\nkey2/phys2\n"},
                                           {"y\nkey", "phys\nkey2/phys2\n"},
                                           {"key", "phys"},
                                           {"key2", "phys2"}};
  EXPECT_EQ(lines_of("x\ny\nkey/phys\nkey2/phys2\n"), expected);
}

// ---- which lines count -------------------------------------------------------------------------

/// A folder with files, and what is loaded from a text for it.
class IndexText : public testing::Test {
 protected:
  void make_files(const std::vector<std::string>& names) {
    for (const std::string& name : names) write_file(m_folder.path(name), "x");
  }
  void load(const std::string& text) {
    lp.clear();
    pl.clear();
    Peer::string2Maps(folder(), text, lp, pl);
  }
  const std::string& folder() const { return m_folder.path(); }
  std::string path(const std::string& name) const { return m_folder.path(name); }

  NameMap lp;
  NameMap pl;

 private:
  scratch_folder m_folder;
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
    Peer::string2Maps(folder(), text, lp, pl);
    EXPECT_EQ(lp, (NameMap{{"kept", "1"}})) << shown(text);
    EXPECT_EQ(pl, (NameMap{{"2", "kept"}})) << shown(text);
  }
}

TEST_F(IndexText, OverwritesNothingThatIsInTheMapsAlready) {
  make_files({"00000001", "00000002"});
  lp = {{"k_0000000001", "00000009"}};
  pl = {{"00000002", "other_0000000001"}};
  Peer::string2Maps(folder(), "k_0000000001/00000001\nm_0000000001/00000002\n", lp, pl);
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000009"}, {"m_0000000001", "00000002"}}));
  EXPECT_EQ(pl, (NameMap{{"00000002", "other_0000000001"}, {"00000001", "k_0000000001"}}));
}

TEST_F(IndexText, LeavesLinesOutWhoseFilesAreMissing) {
  make_files({"00000002.kdb"});
  load("a.kdb_0000000001/00000001\na.kdb_0000000002/00000002\nb.kdc_0000000001/00000002\n");
  // The third line's file would be 00000002.kdc.
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

TEST_F(IndexText, TakesAKeyWhoseTimestampIsNoNumber) {
  make_files({"00000001"});
  load("just-eleven/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"just-eleven", "00000001"}}));
}

TEST_F(IndexText, CountsACarriageReturnAsPartOfThePhysicalName) {
  make_files({"00000001"});
  load("k_0000000001/00000001\r\nm_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"m_0000000001", "00000001"}}));
#if !defined(_WIN32)
  // Windows has no such names.
  make_files({"00000001\r"});
  load("k_0000000001/00000001\r\nm_0000000001/00000001\n");
  EXPECT_EQ(lp, (NameMap{{"k_0000000001", "00000001\r"}, {"m_0000000001", "00000001"}}));
#endif
}

TEST_F(IndexText, TakesWhateverAnExistenceTestFinds) {
  make_folder(path("sub"));
  make_files({"00000001.kdb", "sub\\inner"});
  // The folder itself, the folder above, patterns, and a way into a sub-folder.
  for (const std::string stored : {"", ".", "..", "*", "0000000?.kdb", "*.kdb", "sub", "sub\\inner",
                                   "sub/inner", "..\\*", "sub\\..\\00000001.kdb"}) {
    load("k_0000000001/" + stored + "\n");
    EXPECT_EQ(lp, (NameMap{{"k_0000000001", stored}})) << stored;
    EXPECT_EQ(pl, (NameMap{{stored, "k_0000000001"}})) << stored;
    EXPECT_TRUE(Peer::validIndexLine(folder(), "k_0000000001", stored)) << stored;
  }
  for (const std::string stored : {"x*", "0000000?.kdc", "sub\\other", "..\\no such thing"}) {
    load("k_0000000001/" + stored + "\n");
    EXPECT_TRUE(lp.empty()) << stored;
    EXPECT_FALSE(Peer::validIndexLine(folder(), "k_0000000001", stored)) << stored;
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
  EXPECT_EQ(lp.size(), 1U);  // the file is found whatever the case
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
  // The extension of the glued name reaches over the line's end where the last line has none.
  load("a\nb.kdb\nc\nkey_0000000001/phys");
  EXPECT_TRUE(lp.empty());
}

TEST_F(IndexText, TellsTheExtensionsOfGluedLinesApart) {
  // What follows the dot of the first line is no name's end; the plain key's file is missing, too.
  make_files({"phys"});
  load("x.kdb\nkey_0000000001/phys");
  EXPECT_EQ(lp, (NameMap{{"x.kdb\nkey_0000000001", "phys"}, {"key_0000000001", "phys"}}));
#if !defined(_WIN32)
  // Where a name may hold a line feed, the glued extension finds its file and the plain key none.
  scratch_folder other;
  write_file(other.path("phys.kdb\nkey"), "x");
  lp.clear();
  Peer::string2Maps(other.path(), "a\nx.kdb\nkey_0000000001/phys", lp, pl);
  EXPECT_EQ(lp, (NameMap{{"a\nx.kdb\nkey_0000000001", "phys"}, {"x.kdb\nkey_0000000001", "phys"}}));
  // Behind the dot there is no extension any more, for the same rest of the text.
  write_file(other.path("phys\n.kdb\nb\nkey"), "x");
  lp.clear();
  Peer::string2Maps(other.path(), "x.kdb\nb\nkey_0000000001/phys\n", lp, pl);
  EXPECT_EQ(lp, (NameMap{{"x.kdb\nb\nkey_0000000001", "phys\n"}}));
#endif
}

TEST_F(IndexText, TakesAGluedLineWhoseNameIsAPath) {
  make_folder(path("d"));
  make_files({"d\\e"});
  load("abc\nkey_0000000001/d/e");
  EXPECT_EQ(lp, (NameMap{{"abc\nkey_0000000001", "d/e"}, {"key_0000000001", "d/e"}}));
}

/// So many random texts. An emulator takes a hundred times as long to ask for a file.
constexpr std::size_t kTexts = kOnWindows ? 300 : 4000;

TEST_F(IndexText, OfRandomPiecesGivesThePlainMaps) {
  make_folder(path("d"));
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
  // A name with a line feed, which only the rest of a text can lead to.
  make_files({"a\n", "00000001\n"});
#endif
  RandomTexts texts(4711, std::move(pieces));
  std::size_t entries = 0;
  std::size_t glued = 0;
  for (std::size_t i = 0; i < kTexts; ++i) {
    const std::string text = texts.next(16);
    NameMap expected_lp;
    NameMap expected_pl;
    plain_index::load(folder(), text, expected_lp, expected_pl);
    load(text);
    ASSERT_EQ(lp, expected_lp) << shown(text);
    ASSERT_EQ(pl, expected_pl) << shown(text);
    entries += lp.size();
    for (const auto& [key, stored] : lp) glued += key.find('\n') != std::string::npos ? 1U : 0U;
  }
  // Otherwise there was nothing to compare.
  EXPECT_GT(entries, kTexts / 2);
  EXPECT_GT(glued, kTexts / 20);
}

TEST_F(IndexText, AnswersForOneNameAsTheMapsDo) {
  make_files({"a", "a.a", "00000001", "00000002.a", "b.a"});
#if !defined(_WIN32)
  make_files({"00000001\n"});
#endif
  // Long stretches of other lines between: several are passed over at once.
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
    plain_index::load(folder(), text, expected_lp, expected_pl);
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
    FolderFiles files(folder());
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
    plain_index::load(folder(), text, expected_lp, expected_pl);
    // A key that no line has, and all those that some line has, valid or not.
    std::map<std::string, bool> keys = {{"b.a_0000000001", true}, {"nobody_0000000001", true}};
    for (const PlainLine& line : plain_index::lines(text)) keys[line.key] = true;
    for (const auto& [key, unused] : keys) {
      LinesOfKey lines(text, key);
      Line line;
      std::string stored = "none";
      while (lines.next(line)) {
        if (!plain_index::is_valid(folder(), key, std::string(line.stored))) continue;
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

// ---- what it costs -----------------------------------------------------------------------------

TEST_F(IndexText, CostsOneListingAndNothingPerLine) {
  std::string text;
  for (int i = 1; i <= 200; ++i) {
    const std::string number = std::to_string(10000000 + i);
    write_file(path(number + ".kdb"), "");
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
      // By itself: a line of another kind ends the reading of plain ones.
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
  // Copying the rest of the text for every line would move 10^13 bytes.
  make_files({"00000001"});
  std::string text;
  for (int i = 0; i < 1000000; ++i) text += "x\n";
  text += "a_0000000001/00000001\n";
  for (int i = 0; i < 1000000; ++i) text += "y.z\n";
  text += "b_0000000001/00000001\n";

  const auto begin = std::chrono::steady_clock::now();
  load(text);
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
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
  // The rest of the text is asked for only where it is short enough to be a name at all.
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

// ---- the folder at one moment ------------------------------------------------------------------

bool is_valid(FolderFiles& files, std::string_view key, std::string_view stored) {
  return state_by_listing(key, stored, files) == LineState::kValid;
}

TEST(FolderFilesOfAnIndex, ListsWhenFirstAskedAndNotAgain) {
  const scratch_folder folder;
  const std::string path = folder.path();
  FolderFiles files(path);
  write_file(folder.path("early"), "");
  EXPECT_TRUE(is_valid(files, "k_0000000001", "early"));
  os::faults::reset();
  EXPECT_EQ(files.entries().size(), 1U);
  EXPECT_EQ(os::faults::calls(Call::list), 0U);
}

TEST(FolderFilesOfAnIndex, StillShowsAFileThatHasGoneSince) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("gone"), "");
  FolderFiles files(path);
  ASSERT_EQ(files.entries().size(), 1U);
  vu_file::remove(folder.path("gone"));
  EXPECT_TRUE(is_valid(files, "k_0000000001", "gone"));
  FolderFiles now(path);
  EXPECT_FALSE(is_valid(now, "k_0000000001", "gone"));
}

TEST(FolderFilesOfAnIndex, FindsAFileThatHasComeSinceByItself) {
  const scratch_folder folder;
  const std::string path = folder.path();
  FolderFiles files(path);
  ASSERT_TRUE(files.entries().empty());
  write_file(folder.path("late.kdb"), "");
  EXPECT_TRUE(is_valid(files, "k.kdb_0000000001", "late"));
  EXPECT_FALSE(is_valid(files, "k.kdc_0000000001", "late"));
}

TEST(FolderFilesOfAnIndex, TakesNoKeyThatIsTooShort) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("a"), "");
  FolderFiles files(path);
  EXPECT_FALSE(is_valid(files, "", "a"));
  EXPECT_FALSE(is_valid(files, "0123456789", "a"));
  EXPECT_TRUE(is_valid(files, "0123456789a", "a"));
}

TEST(FolderFilesOfAnIndex, IsEmptyForAFolderThatIsMissing) {
  const scratch_folder folder;
  const std::string path = folder.path("missing");
  FolderFiles files(path);
  EXPECT_TRUE(files.entries().empty());
  EXPECT_FALSE(is_valid(files, "k_0000000001", ""));
  EXPECT_FALSE(is_valid(files, "k_0000000001", "a"));
}

TEST(FolderFilesOfAnIndex, GivesEachLineItsState) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("00000001"), "");
  write_file(folder.path("00000002"), "");
  struct Worth {
    std::size_t lines;
    std::size_t missing;
    bool ascending;
    bool operator==(const Worth&) const = default;
  };
  const auto worth = [&path](const std::string& text) {
    FolderFiles files(path);
    const IndexReading reading(text, files);
    EXPECT_EQ(reading.unknown, 0U);
    return Worth{reading.lines.size(), reading.missing, reading.ascending && !reading.any_runs_on};
  };
  EXPECT_EQ(worth(""), (Worth{0, 0, true}));
  EXPECT_EQ(worth(" "), (Worth{0, 0, true}));
  EXPECT_EQ(worth("a_0000000001/00000001\nb_0000000001/00000002\n"), (Worth{2, 0, true}));
  EXPECT_EQ(worth("a_0000000001/00000001\nb_0000000001/00000001\n"), (Worth{2, 0, true}));
  EXPECT_EQ(worth("b_0000000001/00000002\na_0000000001/00000001"), (Worth{2, 0, false}));
  EXPECT_EQ(worth("a_0000000001/00000001\nb_0000000001/00000003\n"), (Worth{2, 1, true}));
  EXPECT_EQ(worth("b_0000000001/00000003\na_0000000001/00000001\n"), (Worth{2, 1, true}));
  EXPECT_EQ(worth("short/00000001\n"), (Worth{0, 0, true}));
  EXPECT_EQ(worth("a_0000000001/00000001\na_0000000001/00000002\n"), (Worth{2, 0, false}));
  EXPECT_EQ(worth("torn\na_0000000001/00000001\n"), (Worth{1, 0, false})) << "a line runs on";
  EXPECT_EQ(worth("torn\na_0000000001/00000001"), (Worth{2, 0, false}));
}

TEST(FolderFilesOfAnIndex, SaysOfWhichLinesTheSystemDoesNotTell) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("00000001.kdb"), "");
  const std::string text =
      "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\nc_0000000001/00000003\n"
      "torn\nd_0000000001/00000004";
  // Two questions for the second line, one for the third; the listing answers for the first.
  for (const std::uint64_t nth : {1U, 2U, 3U}) {
    const auto fault =
        os::faults::fail(os::faults::Call::probe_search, {5, os::Failure::kOther}, nth);
    FolderFiles files(path);
    const IndexReading reading(text, files);
    EXPECT_EQ(fault.hits(), 1U);
    ASSERT_EQ(reading.unknown, 1U) << nth;
    EXPECT_EQ(reading.lines[nth < 3 ? 1 : 2].state, LineState::kUnknown);
    EXPECT_EQ(reading.lines[0].state, LineState::kValid);
  }
  // A line that runs on is none until its file is found.
  const auto fault = os::faults::fail(os::faults::Call::probe_search, {5, os::Failure::kOther}, 4);
  FolderFiles files(path);
  EXPECT_EQ(IndexReading(text, files).unknown, 0U);
  EXPECT_EQ(fault.hits(), 1U);
}

TEST(FolderFilesOfAnIndex, AccountsForNoFileThatTheMapsDoNotKnow) {
  const scratch_folder folder;
  const std::string path = folder.path();
  for (const char* const name :
       {"a", "a.a", "b.a", "a.b", "00000001", "00000001.a", "a.a.a", "b.a.q"}) {
    write_file(folder.path(name), "");
  }
  make_folder(folder.path("d.a"));
  RandomTexts texts(
      815, {"a_0000000000/a\n", "a.a_0000000000/a.a\n", "b.a_0000000001/b\n", "x_0000000000/a.b\n",
            "x.a_0000000000/a.a\n", "y.a_0000000002/00000001\n", "a.b_0000000001/a.b\n",
            "z_0000000001/00000001\n", "d.a_0000000000/d.a\n", "e.a_0000000000/d\n", "short/a\n",
            "torn\n", "a.a_0000000000/a.a", "A.q_0000000001/b.a\n", "b.a_0000000000/b.a\n"});
  std::size_t accounted_for = 0;
  for (int i = 0; i < 1000; ++i) {
    const std::string text = texts.next(6);
    FolderFiles files(path);
    const IndexReading loaded(text, files);
    NameMap lp;
    NameMap pl;
    plain_index::load(path, text, lp, pl);
    if (loaded.ascending) {
      EXPECT_EQ(lp.size(), loaded.lines.size() - loaded.missing) << shown(text);
    }
    const KnownFiles known(loaded, files.entries().size());
    STGIndex index = Peer::empty();
    Peer::set_maps(index, lp, pl);
    for (std::size_t entry = 0; entry < files.entries().size(); ++entry) {
      if (!known.contains(entry)) continue;
      ++accounted_for;
      const std::string name(files.entries()[entry].name);
      EXPECT_TRUE(Peer::alreadyInMaps(index, name)) << shown(text) << ' ' << name;
    }
  }
  EXPECT_GT(accounted_for, 1000U);
}

TEST(FolderFilesOfAnIndex, AsksByItselfWhenTheListingFails) {
  const scratch_folder folder;
  const std::string path = folder.path();
  write_file(folder.path("a"), "");
  const auto fault = os::faults::fail(Call::list, {5, os::Failure::kOther});
  FolderFiles files(path);
  EXPECT_TRUE(is_valid(files, "k_0000000001", "a"));
  EXPECT_FALSE(is_valid(files, "k_0000000001", "b"));
  EXPECT_EQ(fault.hits(), 1U);
}

// ---- one line ----------------------------------------------------------------------------------

TEST(IndexLineValidity, AsksForTheStoredNameAndThenWithTheExtension) {
  const scratch_folder folder;
  write_file(folder.path("00000001.kdb"), "");
  write_file(folder.path("notes.txt"), "");
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000001"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000001.kdb"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "notes.txt_0000000000", "notes.txt"));
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "whatever_0000000009", "notes.txt"));
  EXPECT_FALSE(Peer::validIndexLine(folder.path(), "a.kdc_0000000001", "00000001"));
  EXPECT_FALSE(Peer::validIndexLine(folder.path(), "a.kdb_0000000001", "00000002"));
}

TEST(IndexLineValidity, NeedsTheKeyOnlyWhenTheStoredNameIsNotThere) {
  const scratch_folder folder;
  write_file(folder.path("a"), "");
  EXPECT_TRUE(Peer::validIndexLine(folder.path(), "short", "a"));
  EXPECT_THROW(Peer::validIndexLine(folder.path(), "short", "b"), std::out_of_range);
}

}  // namespace
