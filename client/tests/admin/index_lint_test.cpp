#include "client/admin/folder_view.h"

#include <map>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "client/tests/admin/tree_fixture.h"
#include "index/folder_files.h"
#include "index/index_reader.h"
#include "tests/support/interrupted_save.h"
#include "tests/support/real_kernel.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

using admin::Verdict;

namespace {

class AdminIndex : public ::testing::Test {
 protected:
  AdminIndex() { STGIndex::setSynchronizeMode(false); }

  std::string path(const std::string& name) const { return m_folder.path(name); }
  void file(const std::string& name) const { write_file(path(name), "x"); }
  void index(const std::string& text) const { write_file(path("index.dat"), text); }

  std::vector<admin::LintedLine> lines() {
    admin::DocumentFolder folder;
    folder.path = system_form(m_folder.path());
    m_view.load(folder, {});
    m_lint.emplace(m_view);
    std::vector<admin::LintedLine> all;
    for (const admin::LintedLine& line : *m_lint) {
      m_files.push_back(std::string(line.file));
      all.push_back(line);
    }
    return all;
  }

  /// "number:verdict" of every line.
  std::vector<std::string> verdicts() {
    std::vector<std::string> all;
    for (const admin::LintedLine& line : lines())
      all.push_back(std::to_string(line.number) + ":" + std::string(name_of(line.verdict)));
    return all;
  }

  /// Compares the entries that the library finds with those of the lint.
  void compare_with_library() {
    std::map<std::string, std::string> by_key;
    for (const admin::LintedLine& line : lines()) {
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

  /// Compares the lint's verdicts with the library's reader.
  void compare_with_reader(const std::string& text) {
    FolderFiles files(m_folder.path());
    const IndexReading reading(text, files);
    std::vector<std::string> expected;
    for (const IndexLine& line : reading.lines) {
      const char* const state = line.state == LineState::kValid     ? "valid"
                                : line.state == LineState::kMissing ? "missing"
                                                                    : "unknown";
      expected.push_back(std::string(line.key) + "/" + std::string(line.stored) + " " + state);
    }
    std::vector<std::string> found;
    for (const admin::LintedLine& line : lines()) {
      const char* const state = line.verdict == Verdict::kNoFile    ? "missing"
                                : line.verdict == Verdict::kUnknown ? "unknown"
                                                                    : "valid";
      if (line.verdict != Verdict::kNoSeparator && line.verdict != Verdict::kShortKey)
        found.push_back(std::string(line.key) + "/" + std::string(line.stored) + " " + state);
    }
    ASSERT_EQ(expected, found) << text;
    m_compared += found.size();
    m_missing += reading.missing;
    m_unknown += reading.unknown;
  }

  std::size_t compared() const { return m_compared; }
  std::size_t missing() const { return m_missing; }
  std::size_t unknown() const { return m_unknown; }

  admin::IndexState state() const { return m_view.index_state(); }
  admin::FolderView& view() { return m_view; }
  admin::IndexLint& lint() { return *m_lint; }
  const std::string& file_of(std::size_t line) const { return m_files[line]; }

 private:
  scratch_folder m_folder;
  admin::FolderView m_view;
  std::optional<admin::IndexLint> m_lint;
  std::vector<std::string> m_files;
  std::size_t m_compared = 0;
  std::size_t m_missing = 0;
  std::size_t m_unknown = 0;
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

TEST_F(AdminIndex, OfOneBlankHasNoLines) {
  index(" ");
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kRead);
}

TEST_F(AdminIndex, WithoutBytesDiffersFromAMissingOne) {
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kMissing);
  index("");
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kNoBytes);
}

TEST_F(AdminIndex, SaysWhyLinesAreSkipped) {
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

TEST_F(AdminIndex, AcceptsALastLineWithoutALineFeed) {
  file("00000001.kdc");
  index("a.kdc_0000000000/00000001");
  EXPECT_EQ(verdicts(), (Verdicts{"1:entry"}));
  compare_with_library();
}

TEST_F(AdminIndex, HasAValidEntryWithoutFileWhenOnlyThePhysicalNameExists) {
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

TEST_F(AdminIndex, HasAValidAdoptedEntryWhenOnlyTheNameWithTheExtensionExists) {
  file("notes.txt.txt");
  index("notes.txt_0000000000/notes.txt\n");
  const auto all = lines();
  ASSERT_EQ(all.size(), 1U);
  EXPECT_EQ(all[0].verdict, Verdict::kEntry);
  EXPECT_FALSE(all[0].has_file);
  EXPECT_EQ(file_of(0), "notes.txt");
  const std::uint32_t listed = view().find("notes.txt.txt");
  ASSERT_NE(listed, admin::FolderView::kNone);
  EXPECT_TRUE(lint().is_claimed(listed));
  compare_with_library();
}

TEST_F(AdminIndex, HasTheNewTextOfAnInterruptedSave) {
  file("00000001.kdc");
  file("00000002.kdc");
  const std::string old_text = "a.kdc_0000000000/00000001\n";
  const std::string new_text = old_text + "b.kdc_0000000000/00000002\n";
  const std::string bytes = interrupted_save(old_text, new_text);
  index(bytes);
  EXPECT_EQ(verdicts(), (Verdicts{"1:entry", "2:entry"}));
  EXPECT_EQ(view().index_text(), new_text);
  EXPECT_EQ(view().index_bytes(), bytes);
  EXPECT_TRUE(view().has_interrupted_save());
  compare_with_library();
  // Without its last byte the trailer is not valid.
  index(bytes.substr(0, bytes.size() - 1));
  lines();
  EXPECT_FALSE(view().has_interrupted_save());
  EXPECT_EQ(view().index_text().substr(0, old_text.size()), old_text);
  // The size reached the device before the bytes did.
  index(old_text + std::string(512, '\0'));
  EXPECT_EQ(verdicts(), Verdicts{"1:entry"});
  EXPECT_EQ(view().index_text(), old_text);
  index(std::string(512, '\0'));
  EXPECT_TRUE(lines().empty());
  EXPECT_EQ(state(), admin::IndexState::kNoBytes);
}

TEST_F(AdminIndex, IsNotKeptByAViewThatOnlyListsAnotherFolder) {
  file("00000001.kdb");
  index("a.kdb_0000000001/00000001\n");
  admin::DocumentFolder folder;
  folder.path = system_form(path(""));
  admin::FolderView view;
  view.load(folder, {});
  ASSERT_EQ(view.index_state(), admin::IndexState::kRead);
  const scratch_folder other;
  write_file(other.path("b"), "x");
  EXPECT_TRUE(view.list(system_form(other.path())).ok());
  EXPECT_EQ(view.names().size(), 1U);
  EXPECT_EQ(view.index_state(), admin::IndexState::kMissing);
  EXPECT_EQ(view.index_text(), "");
  for (const admin::LintedLine& line : admin::IndexLint(view)) ADD_FAILURE() << line.raw;
}

#if !defined(_WIN32)

TEST_F(AdminIndex, HasUnknownEntries) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  make_folder(path("priv"));
  file("priv\\x.kdb");
  file("00000001.kdb");
  index("a.kdb_0000000000/00000001\nz.kdb_0000000001/priv\\x\nz.kdb_0000000002/gone\n");
  namespace fs = std::filesystem;
  fs::permissions(system_form(path("priv")), fs::perms::none);
  fs::permissions(system_form(path("index.dat")), fs::perms::all);
  fs::permissions(fs::path(system_form(path("priv"))).parent_path(), fs::perms::all);
  ASSERT_EQ(seteuid(65534), 0);
  const Verdicts found = verdicts();
  const std::size_t unknown = lint().unknown_lines();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(found, (Verdicts{"1:entry", "2:unknown", "3:no-file"}));
  EXPECT_EQ(unknown, 1U);
}

#endif

TEST_F(AdminIndex, AcceptsPhysicalNamesThatAreValidPaths) {
  // A physical name can be a pattern or contain a separator: the library only checks that the path
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

TEST_F(AdminIndex, DetectsAnOddTimestamp) {
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

TEST_F(AdminIndex, OfRandomBytesIsReadAsByTheLibrary) {
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
    // A blank is an index without entries. An empty index would be one that lost its entries.
    index(text.empty() ? " " : text);
    SCOPED_TRACE("round " + std::to_string(round));
    ASSERT_NO_FATAL_FAILURE(compare_with_library());
  }
}

TEST_F(AdminIndex, HasTheVerdictsOfTheLibrarysReader) {
  constexpr int kRounds = kOnWindows ? 12 : 60;
  std::mt19937 random(20261122);
  const auto one_of = [&](const std::vector<std::string>& texts) {
    return texts[random() % texts.size()];
  };
  const std::vector<std::string> stored = {"00000001", "00000002", "notes.txt", "x?",   "sub\\in",
                                           "x.",       "loud",     "priv\\x",   "LOUD", "gone"};
  const std::vector<std::string> logical = {"a.kdc", "b", "notes.txt", "x?..", "c.TXT", "loud.kdc"};
  const std::vector<std::string> stamp = {"_0000000000", "_0000000001", "_4294967295",
                                          "x00000000y1", "_1"};
  make_folder(path("sub"));
  make_folder(path("priv"));
  file("priv\\x");
#if !defined(_WIN32)
  namespace fs = std::filesystem;
  const bool can_hide = geteuid() == 0;
  fs::permissions(system_form(path("priv")), fs::perms::none);
  fs::permissions(fs::path(system_form(path("priv"))).parent_path(), fs::perms::all);
#endif
  for (int round = 0; round < kRounds; ++round) {
    std::vector<std::string> made;
    for (const std::string& name : stored) {
      if (name.find_first_of("?\\") != std::string::npos || random() % 2 == 0) continue;
      made.push_back(path(name + one_of({"", ".kdc", ".txt", ".TXT"})));
      write_file(made.back(), "x");
    }
    for (int nth = 0; nth < 20; ++nth) {
      std::string text;
      for (auto left = random() % 9; left > 0; --left) {
        text += one_of(logical) + one_of(stamp);
        if (random() % 8 != 0) text += "/" + one_of(stored);
        if (random() % 8 != 0) text += "\n";
      }
      const std::string bytes = random() % 4 == 0 ? interrupted_save("old", text) : text;
      index(bytes);
#if !defined(_WIN32)
      fs::permissions(system_form(path("index.dat")), fs::perms::all);
      if (can_hide) {
        EXPECT_EQ(seteuid(65534), 0);
      }
#endif
      // For both, an empty index has no lines.
      compare_with_reader(text);
#if !defined(_WIN32)
      if (can_hide) {
        EXPECT_EQ(seteuid(0), 0);
      }
#endif
      if (HasFatalFailure()) return;
    }
    for (const std::string& each : made) vu_file::remove(each);
  }
  EXPECT_GT(compared(), 30U * kRounds);
  EXPECT_GT(missing(), 3U * kRounds);
#if !defined(_WIN32)
  if (can_hide) {
    EXPECT_GT(unknown(), 200U);
  }
#endif
}

TEST_F(AdminIndex, AndItsCounterAreRead) {
  file("00000001.kdc");
  index(" ");
  lines();
  EXPECT_FALSE(view().read_counter({}));
  write_file(path("index"), "00000041");
  lines();
  EXPECT_EQ(view().read_counter({}), "00000041");
  write_file(path("index"), interrupted_save("7", "00000042"));
  EXPECT_EQ(view().read_counter({}), "00000042");
}
