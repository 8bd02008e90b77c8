#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "index/read_list.h"
#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/c_interface_fixture.h"
#include "tests/unit/index_fixture.h"

// The read list: its lines, the names that they form, loading and saving, and what a migration does
// with it.

namespace {

using os::faults::Call;
using os::faults::Times;
using vu_host::trace_event;

TEST(ReadListName, IsMadeOfFiveFields) {
  EXPECT_EQ(ReadList::name_of("x\tA%20B\tB\tf4\tf5\tf6\t"), "f4#f5#x#A%20B.kdb");
  EXPECT_EQ(ReadList::name_of("1\t2\tA\t4\t5\t6\t"), "4#5#1#2.kda");
  EXPECT_EQ(ReadList::name_of("1\t2\tA\t4\t5\tsomething else\tmore\tand more"), "4#5#1#2.kda");
}

TEST(ReadListName, EndsInAnExtensionByTheThirdFieldsFirstCharacter) {
  for (int code = 1; code < 256; ++code) {
    const char kind = static_cast<char>(static_cast<unsigned char>(code));
    if (kind == '\t') continue;
    std::string extension = ".kdg";
    if (kind == 'A') extension = ".kda";
    if (kind == 'B') extension = ".kdb";
    if (kind == 'H' || kind == 'R' || kind == 'T') extension = ".kdc";
    if (kind == 'N') extension = ".kdd";
    if (kind == 'U') extension = ".kde";
    if (kind == 'Z') extension = ".kdf";
    const std::string tail = "\t4\t5\t6\t";
    EXPECT_EQ(ReadList::name_of("1\t2\t" + std::string(1, kind) + tail), "4#5#1#2" + extension)
        << code;
    EXPECT_EQ(ReadList::name_of("1\t2\t" + std::string(1, kind) + "AB" + tail),
              "4#5#1#2" + extension)
        << code;
  }
}

TEST(ReadListName, IsEmptyWithFewerThanSixTabs) {
  for (const char* const line : {"", "x", "\t", "1\t2\tA\t4\t5\t6", "1\t2\tA\t4\t5",
                                 "1\t2\tA\t4\t5\t", "\t\t\t\t\t\t", "no tabs at all"}) {
    EXPECT_EQ(ReadList::name_of(line), "") << line;
  }
}

TEST(ReadListName, LooksForTheFirstTabAfterTheFirstCharacter) {
  // A tab at the start belongs to the first field.
  EXPECT_EQ(ReadList::name_of("\tab\t2\tB\t4\t5\t6\t"), "4#5#\tab#2.kdb");
  EXPECT_EQ(ReadList::name_of("\t\t2\tB\t4\t5\t6\t"), "4#5#\t#2.kdb");
}

TEST(ReadListName, LooksForEachFurtherTabTwoPositionsOn) {
  // A tab directly after another tab belongs to the next field and does not end it.
  EXPECT_EQ(ReadList::name_of("x\t\tB\tf4\tf5\tf6\tf7\t"), "f5#f6#x#\tB.kdg");
  EXPECT_EQ(ReadList::name_of("1\t2\t\tA\t4\t5\t6\t"), "4#5#1#2.kdg");
  EXPECT_EQ(ReadList::name_of("1\t2\tA\t\t4\t5\t6\t"), "\t4#5#1#2.kda");
  EXPECT_EQ(ReadList::name_of("1\t2\tA\t4\t5\t\t"), "");
  EXPECT_EQ(ReadList::name_of("1\t2\tA\t4\t5\t\t\t"), "4#5#1#2.kda");
  EXPECT_EQ(ReadList::name_of("\t\t\t\t\t\t\t\t\t\t\t\t"), "\t#\t#\t#\t.kdg");
}

class ReadListFile : public IndexTest {
 protected:
  /// Loads a text, saves it and returns the new text.
  std::string rewritten(const std::string& text) {
    folder.write("read.txt", text);
    {
      ReadList list(folder.path(), "read.txt");
      list.load();
      list.save();
    }
    return folder.read("read.txt");
  }
  /// The text of the list after the lines of these names were unescaped.
  std::string unescaped(const std::string& text, const Texts& names) const {
    folder.write("read.txt", text);
    {
      ReadList list(folder.path(), "read.txt");
      list.load();
      for (const std::string& each : names) list.unescape_line_of(each);
      list.save();
    }
    return folder.read("read.txt");
  }
  void load_and_save() const {
    ReadList list(folder.path(), "read.txt");
    list.load();
    list.save();
  }

  const std::string a = "1\t2\tA\ta\t5\t6\t";  // a#5#1#2.kda
  const std::string b = "1\t2\tA\tb\t5\t6\t";
  const std::string c = "1\t2\tA\tc\t5\t6\t";
};

TEST_F(ReadListFile, KeepsItsLinesInTheOrderOfTheirNames) {
  EXPECT_EQ(rewritten(c + "\n" + a + "\n" + b + "\n"), a + "\n" + b + "\n" + c + "\n");
}

TEST_F(ReadListFile, KeepsWholeLines) {
  const std::string long_line = a + "more\tfields with blanks \r";
  EXPECT_EQ(rewritten(long_line + "\n"), long_line + "\n");
}

TEST_F(ReadListFile, KeepsNoLineWithoutAName) {
  EXPECT_EQ(rewritten("no tabs\n" + b + "\n\n1\t2\tA\t4\t5\t6\n" + a + "\n"), a + "\n" + b + "\n");
}

TEST_F(ReadListFile, KeepsTheFirstOfTwoLinesWithOneName) {
  const std::string first = a + "first";
  const std::string second = a + "second";
  EXPECT_EQ(rewritten(b + "\n" + first + "\n" + second + "\n"), first + "\n" + b + "\n");
  EXPECT_EQ(rewritten(second + "\n" + first + "\n"), second + "\n");
}

TEST_F(ReadListFile, TakesTheLastCharacterOffAFinalLineWithoutALineFeed) {
  EXPECT_EQ(rewritten(a + "\n" + b + "X"), a + "\n" + b + "\n");
  EXPECT_EQ(rewritten(a + "\n" + b + "XY"), a + "\n" + b + "X\n");
  // The removed character can be the tab that completed the line.
  EXPECT_EQ(rewritten(a + "\n" + b), a + "\n");
  EXPECT_EQ(rewritten(a + "\nX"), a + "\n");
}

TEST_F(ReadListFile, LoadsNoLineFromATextWithoutALineFeed) {
  EXPECT_EQ(rewritten(a), "");
  EXPECT_EQ(rewritten(a + "X"), "");
  EXPECT_EQ(rewritten(""), "");
}

TEST_F(ReadListFile, OfLineFeedsAloneIsEmpty) {
  EXPECT_EQ(rewritten("\n"), "");
  EXPECT_EQ(rewritten("\n\n\n"), "");
}

TEST_F(ReadListFile, IsStableOnceWritten) {
  const std::string once = rewritten(c + "\n\n" + a + "1\n" + b + "\n" + a + "2\nrest");
  EXPECT_EQ(rewritten(once), once);
}

TEST_F(ReadListFile, IsMadeWhenItIsMissing) {
  {
    ReadList list(folder.path(), "00000001.txt");
    list.load();
    list.save();
  }
  EXPECT_EQ(folder.names(), (Texts{"00000001.txt"}));
  EXPECT_EQ(folder.read("00000001.txt"), "");
}

TEST_F(ReadListFile, IsNotHeldOpenInBetween) {
  folder.write("read.txt", a + "\n");
  ReadList list(folder.path(), "read.txt");
  list.load();
  EXPECT_TRUE(is_free("read.txt"));
}

TEST_F(ReadListFile, UnescapesTheSecondFieldOfALine) {
  // The line keeps the position of its old name.
  EXPECT_EQ(unescaped("x\tA%20B\tB\tf4\tf5\tf6\t\n" + a + "\n", {"f4#f5#x#A%20B.kdb"}),
            a + "\nx\tA B\tB\tf4\tf5\tf6\t\n");
}

TEST_F(ReadListFile, UnescapesNothingElse) {
  EXPECT_EQ(unescaped("%41\tA+B.c%20\tB%41\tf+4\tf%205\t%41\t%41\n",
                      {"f+4#f%205#%41#A+B.c%20.kdb", "nobody", ""}),
            "%41\tA B.c%20\tB%41\tf+4\tf%205\t%41\t%41\n");
}

TEST_F(ReadListFile, UnescapesByTheTabsThatItFinds) {
  EXPECT_EQ(unescaped("\tx\t\t%41\tB\tf4\tf5\tf6\t\n", {"f4#f5#\tx#\t%41.kdb"}),
            "\tx\t\tA\tB\tf4\tf5\tf6\t\n");
}

TEST_F(ReadListFile, UnescapesALineInEveryCall) {
  EXPECT_EQ(
      unescaped("x\tA%2520B\tB\tf4\tf5\tf6\t\n", {"f4#f5#x#A%2520B.kdb", "f4#f5#x#A%2520B.kdb"}),
      "x\tA B\tB\tf4\tf5\tf6\t\n");
}

TEST_F(ReadListFile, TakesAFieldThatUnescapingEmpties) {
  EXPECT_EQ(unescaped("x\t%2\tB\tf4\tf5\tf6\t\n", {"f4#f5#x#%2.kdb"}), "x\t\tB\tf4\tf5\tf6\t\n");
}

TEST_F(ReadListFile, CanReadALineAgainThatUnescapingShortened) {
  // Field 2 is now empty, so the tab that ends it counts as its first character. The search then
  // finds fewer than six tabs in the line.
  EXPECT_EQ(unescaped("x\t%2\tB\tf4\tf5\tf6\t\n", {"f4#f5#x#%2.kdb", "f4#f5#x#%2.kdb"}),
            "x\t\tB\tf4\tf5\tf6\t\n");
}

TEST_F(ReadListFile, ThatCannotBeLoadedRaises) {
  const std::string text = b + "\n" + a + "\n";
  folder.write("read.txt", text);
  for (const Call call : {Call::open, Call::read}) {
    const auto fault = os::faults::fail(call, kRefused);
    EXPECT_THROW(load_and_save(), vu_file_except);
    EXPECT_EQ(folder.read("read.txt"), text);
  }
  {
    const auto fault = os::faults::throw_from(Call::read, std::bad_alloc());
    EXPECT_THROW(load_and_save(), std::bad_alloc);
  }
  EXPECT_EQ(folder.read("read.txt"), text);
  EXPECT_TRUE(is_free("read.txt"));
}

TEST_F(ReadListFile, ThatCannotBeSavedRaises) {
  folder.write("read.txt", a + "\n");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::open, kRefused, 2);
  try {
    load_and_save();
    ADD_FAILURE() << "nothing was raised";
  } catch (const vu_file_except& e) {
    EXPECT_EQ(e.what(), "throw exception on open");
  }
  EXPECT_EQ(folder.read("read.txt"), a + "\n");
  EXPECT_EQ(index_traces(sink), Texts{});
}

TEST_F(ReadListFile, RaisesWhatWritingRaises) {
  folder.write("read.txt", a + "\n");
  const auto fault = os::faults::throw_from(Call::write, std::runtime_error("write"));
  EXPECT_THROW(load_and_save(), std::runtime_error);
}

TEST_F(ReadListFile, ReportsNoShortWrite) {
  // The handle traces it; the migration gets no error.
  folder.write("read.txt", a + "\n");
  recording_sink sink;
  const auto fault = os::faults::cut_transfer(Call::write, 3, {28, os::Failure::kOther});
  EXPECT_NO_THROW(load_and_save());
  EXPECT_EQ(sink.count(trace_event::error, "write file : " + folder.path("read.txt")), 1U);
  EXPECT_EQ(folder.read("read.txt"), a.substr(0, 3));
}

// The list in a migration.

TEST_F(IndexMigration, UnescapesTheLineOfAnEntryThatItConverts) {
  make_mail_folder();
  write("f4#f5#x#A%20B.kdb", "mail");
  write("read.txt", "x\tA%20B\tB\tf4\tf5\tf6\t\n");
  migrate();
  EXPECT_EQ(read("read.txt"), "x\tA B\tB\tf4\tf5\tf6\t\n");
  EXPECT_EQ(entry("f4#f5#x#A B.kdb"), "mail");
}

TEST_F(IndexMigration, LeavesTheLinesOfOtherEntriesAsTheyAre) {
  make_mail_folder();
  write("f4#f5#x#A%20B.kdb", "mail");
  write("read.txt",
        "x\tA%20B\tB\tf4\tf5\tf6\t\n"
        "x\tA%20B\tA\tf4\tf5\tf6\t\n"
        "y\tA%20B\tB\tf4\tf5\tf6\t\n");
  migrate();
  EXPECT_EQ(read("read.txt"),
            "x\tA%20B\tA\tf4\tf5\tf6\t\n"
            "x\tA B\tB\tf4\tf5\tf6\t\n"
            "y\tA%20B\tB\tf4\tf5\tf6\t\n");
}

TEST_F(IndexMigration, RewritesTheListAlsoWhenNothingIsConverted) {
  make_mail_folder();
  write("read.txt",
        "x\t2\tB\tz\tf5\tf6\t\n"
        "no name\n"
        "x\t2\tB\ta\tf5\tf6\tfirst\n"
        "x\t2\tB\ta\tf5\tf6\tsecond\n"
        "x\t2\tB\tm\tf5\tf6\tfinal X");
  migrate();
  EXPECT_EQ(read("read.txt"),
            "x\t2\tB\ta\tf5\tf6\tfirst\n"
            "x\t2\tB\tm\tf5\tf6\tfinal \n"
            "x\t2\tB\tz\tf5\tf6\t\n");
}

TEST_F(IndexMigration, FindsTheListThroughTheIndex) {
  STGIndex::setSynchronizeMode(false);
  make_mail_folder();
  write("00000004.txt", "no name\nx\t2\tB\ta\tf5\tf6\t\n");
  write("index", "00000004");
  write("index.dat", "read.txt_0000000000/00000004\n");
  migrate();
  EXPECT_EQ(read("00000004.txt"), "x\t2\tB\ta\tf5\tf6\t\n");
  EXPECT_EQ(index(), "k1mailboxcompliant_0000000000/00000005\nread.txt_0000000000/00000004\n");
}

TEST_F(IndexMigration, CreatesAListIfThereIsNone) {
  make_mail_folder();
  migrate();
  EXPECT_EQ(entry("read.txt"), "");
  EXPECT_EQ(read("00000001.txt"), "");
}

TEST_F(IndexMigration, UnescapesTheLineOfAnEntryAtAnotherTimestampToo) {
  // Only entries at timestamp 0 are renamed, but the line is found by its name alone.
  STGIndex::setSynchronizeMode(false);
  make_mail_folder();
  write("f4#f5#x#A%20B.kdb", "mail");
  write("read.txt", "x\tA%20B\tB\tf4\tf5\tf6\t\n");
  write("index.dat", "f4#f5#x#A%20B.kdb_0000000005/f4#f5#x#A%20B\n");
  migrate();
  EXPECT_EQ(read("read.txt"), "x\tA B\tB\tf4\tf5\tf6\t\n");
  EXPECT_EQ(read("f4#f5#x#A%20B.kdb"), "mail");
  EXPECT_EQ(index(),
            "f4#f5#x#A%20B.kdb_0000000005/f4#f5#x#A%20B\n"
            "k1mailboxcompliant_0000000000/00000001\n");
}

TEST_F(IndexMigration, PassesSeveralVersionsOfOneEscapedName) {
  STGIndex::setSynchronizeMode(false);
  make_mail_folder();
  // The first version empties the second field.
  write("1#1#1#%2.kdb", "mail");
  write("read.txt", "1\t%2\tB\t1\t1\tf\t\n");
  write("index.dat", "1#1#1#%2.kdb_0000000005/1#1#1#%2\n1#1#1#%2.kdb_0000000006/1#1#1#%2\n");
  EXPECT_NO_THROW(migrate());
  EXPECT_EQ(read("read.txt"), "1\t\tB\t1\t1\tf\t\n");
  EXPECT_TRUE(is_marked());
}

TEST_F(IndexMigration, RaisesWhereTheListCannotBeRead) {
  make_mail_folder();
  write("a%20.kdb", "a");
  write("read.txt", "no name\n");
  write("index.dat", "a%20.kdb_0000000000/a%20.kdb\nread.txt_0000000000/read.txt\n");
  {
    // Reads 1 to 4 are of the index: for the marker, for the forced rewrite (its load and its save)
    // and for the name of the list.
    const auto fault = os::faults::fail(Call::read, kRefused, 5);
    EXPECT_THROW(migrate(), vu_file_except);
    EXPECT_EQ(fault.hits(), 1U);
  }
  // A read list that was not loaded is not saved.
  EXPECT_EQ(read("read.txt"), "no name\n");
  EXPECT_TRUE(has("a%20.kdb"));
  EXPECT_FALSE(is_marked());
  migrate();
  EXPECT_EQ(read("read.txt"), "");
  EXPECT_EQ(entry("a .kdb"), "a");
}

TEST_F(IndexMigration, RaisesWhereTheListCannotBeSaved) {
  make_mail_folder();
  write("read.txt", "x\t2\tB\ta\tf5\tf6\t\n");
  std::unique_ptr<os::faults::Fault> broken;
  {
    // The last open is that of the read list. The file of the marker is created earlier.
    int openings = 0;
    const auto count = os::faults::before(
        Call::open, [&openings] { ++openings; }, 1, Times::kLasting);
    migrate();
    ASSERT_GT(openings, 5);
    for (const std::string& name : names()) {
      if (name != "read.txt") std::filesystem::remove(native(path(name)));
    }
    broken.reset(new os::faults::Fault(
        os::faults::fail(Call::open, kRefused, static_cast<std::uint64_t>(openings))));
  }
  EXPECT_THROW(migrate(), vu_file_except);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_TRUE(is_marked());
  EXPECT_EQ(read("read.txt"), "x\t2\tB\ta\tf5\tf6\t\n");
}

TEST_F(IndexMigration, LeavesTheListAloneWhenTheIndexIsNotSaved) {
  const std::string list = "no name\n1\ta%20\tB\t1\t1\tf\t\n";
  const std::string text =
      "1#1#1#a%20.kdb_0000000000/1#1#1#a%20.kdb\nread.txt_0000000000/read.txt\n";
  // After the copy, 1 is the counter, for the marker. Open 2 is the marker's file. Then the save.
  for (const auto& [call, nth] :
       {std::pair(Call::open, 3U), std::pair(Call::read, 2U), std::pair(Call::write, 2U)}) {
    make_mail_folder();
    write("1#1#1#a%20.kdb", "a");
    write("read.txt", list);
    write("index.dat", text);
    std::unique_ptr<os::faults::Fault> broken;
    {
      const auto hook = os::faults::before(Call::copy, [&, what = call, n = nth] {
        broken.reset(new os::faults::Fault(os::faults::fail(what, kRefused, n)));
      });
      if (call == Call::read) {
        EXPECT_THROW(migrate(), vu_file_except);
      } else {
        EXPECT_NO_THROW(migrate());
      }
    }
    ASSERT_TRUE(broken);
    EXPECT_EQ(broken->hits(), 1U);
    EXPECT_EQ(index(), text);
    EXPECT_EQ(read("read.txt"), list);
    EXPECT_EQ(read("1#1#1#a%20.kdb"), "a");

    migrate();
    EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
    EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n");
    EXPECT_TRUE(is_marked());
    for (const std::string& name : names()) std::filesystem::remove(native(path(name)));
  }
}

TEST_F(IndexMigration, ConvertsTheListWhenOnlyTheSecondTextOfTheSaveIsNotWritten) {
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("read.txt", "1\ta%20\tB\t1\t1\tf\t\n");
  // The source stays, so the save writes a second text.
  std::unique_ptr<os::faults::Fault> broken;
  const auto hook = os::faults::before(Call::remove_file, [&broken] {
    broken.reset(new os::faults::Fault(os::faults::fail(Call::write, kRefused)));
  });
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  migrate();
  ASSERT_TRUE(broken);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
  EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n");
}

TEST_F(IndexMigration, UnescapesTheLinesOfAllMailsWithOneUnescapedName) {
  make_mail_folder();
  write("1#1#1#a%20b.kdb", "first");
  write("1#1#1#a+b.kdb", "last");
  write("read.txt", "1\ta%20b\tB\t1\t1\tf\t\n1\ta+b\tB\t1\t1\tg\t\n");
  migrate();
  EXPECT_EQ(entry("1#1#1#a b.kdb"), "last");
  EXPECT_EQ(read("read.txt"), "1\ta b\tB\t1\t1\tf\t\n1\ta b\tB\t1\t1\tg\t\n");
}

TEST_F(IndexMigration, LeavesTheLineOfARenameAloneThatTheSaveHasUndone) {
  const std::string list = "1\ta%20\tB\t1\t1\tf\t\n";
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("read.txt", list);
  // A clean sweeps the copy, and the save cannot make it again.
  std::unique_ptr<os::faults::Fault> broken;
  const auto hook = os::faults::before(Call::flush_file, [&] {
    std::filesystem::remove(native(path("00000001.kdb")));
    broken.reset(new os::faults::Fault(os::faults::fail(Call::copy, kRefused)));
  });
  migrate();
  ASSERT_TRUE(broken);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_EQ(entry("1#1#1#a%20.kdb"), "a");
  EXPECT_EQ(entry("1#1#1#a .kdb"), "no such entry");
  EXPECT_EQ(read("read.txt"), list);
}

TEST_F(IndexMigration, SetsNoMarkerIfTheSaveHasUndoneARename) {
  make_mail_folder();
  write("1#1#1#a%20.kdb", "a");
  write("1#1#1#b%20.kdb", "b");
  write("read.txt", "1\ta%20\tB\t1\t1\tf\t\n1\tb%20\tB\t1\t1\tf\t\n");
  // A clean sweeps the copy of the first mail, and the save cannot make it again.
  std::unique_ptr<os::faults::Fault> broken;
  const auto hook = os::faults::before(
      Call::flush_file,
      [&] {
        std::filesystem::remove(native(path("00000001.kdb")));
        broken.reset(new os::faults::Fault(os::faults::fail(Call::copy, kRefused)));
      },
      2);
  migrate();
  ASSERT_TRUE(broken);
  EXPECT_EQ(broken->hits(), 1U);
  EXPECT_EQ(index(),
            "1#1#1#a%20.kdb_0000000000/1#1#1#a%20.kdb\n"
            "1#1#1#b .kdb_0000000000/00000002\n"
            "read.txt_0000000000/read.txt\n");
  // The marker's file is gone, too.
  EXPECT_EQ(names(), (Texts{"00000002.kdb", "1#1#1#a%20.kdb", "index", "index.dat", "read.txt"}));
  EXPECT_EQ(read("read.txt"), "1\ta%20\tB\t1\t1\tf\t\n1\tb \tB\t1\t1\tf\t\n");

  broken.reset();
  migrate();
  EXPECT_EQ(entry("1#1#1#a .kdb"), "a");
  EXPECT_EQ(entry("1#1#1#b .kdb"), "b");
  EXPECT_EQ(read("read.txt"), "1\ta \tB\t1\t1\tf\t\n1\tb \tB\t1\t1\tf\t\n");
  EXPECT_TRUE(is_marked());
}

// ---- migration by the C interface, where other programs use the list ----------------------------

/// A mail folder with one mail to migrate, and its line in the read list.
class CInterfaceMigration : public CInterfaceTest {
 protected:
  CInterfaceMigration() {
    STGIndex::setSynchronizeMode(true);
    make_folder(m_mails);
    write_file(m_mails + "\\read.txt", kLine);
    write_file(m_mails + "\\f4#f5#x#A%20B.kdb", "mail");
  }
  ~CInterfaceMigration() override { STGIndex::setSynchronizeMode(false); }

  std::string list() const { return read_file(m_mails + "\\read.txt"); }

  static constexpr const char* kLine = "x\tA%20B\tB\tf4\tf5\tf6\t\n";
  static constexpr const char* kMigrated = "x\tA B\tB\tf4\tf5\tf6\t\n";
  const std::string m_mails = m_scratch.path("storage\\mail\\anna");
};

TEST_F(CInterfaceMigration, AReadListThatCannotBeCutKeepsItsLines) {
  int times_kept = 0;
  for (FaultNumber nth;; ++nth) {
    vu_file::recurseRemoveDir(m_mails);
    make_folder(m_mails);
    write_file(m_mails + "\\read.txt", kLine);
    write_file(m_mails + "\\f4#f5#x#A%20B.kdb", "mail");
    const auto fault = faults::fail(Call::set_end, kRefused, nth);
    const vu_status status = vu_migrate_inbox(m_store, "anna");
    if (fault.hits() == 0) {
      EXPECT_EQ(status, VU_DONE);
      EXPECT_EQ(list(), kMigrated);
      break;
    }
    EXPECT_TRUE(list() == kLine || list() == kMigrated) << nth << list();
    EXPECT_TRUE(list() == kMigrated || status != VU_DONE) << nth;
    times_kept += list() == kLine ? 1 : 0;
    ASSERT_LT(nth, 100U);
  }
  EXPECT_GT(times_kept, 0);
}

TEST_F(CInterfaceMigration, ALineThatIsAppendedMeanwhileStays) {
  // The other program appends as soon as it gets the lock of the list.
  bool was_locked = false;
  std::thread other;
  const auto append = [&] {
    vu_file file(m_mails, "read.txt");
    was_locked = !file.try_open(vu_file::o_append, was_locked, true) || was_locked;
    file.close();
    other = std::thread([&] {
      vu_file list_of_other(m_mails, "read.txt");
      list_of_other.open(vu_file::o_append);
      list_of_other.write("appended\n");
      list_of_other.close();
    });
  };
  {
    const auto hook = faults::before(Call::copy, append);
    EXPECT_EQ(vu_migrate_inbox(m_store, "anna"), VU_DONE) << last_error().text;
    ASSERT_EQ(hook.hits(), 1U);
  }
  other.join();
  EXPECT_TRUE(was_locked);
  EXPECT_EQ(list(), std::string(kMigrated) + "appended\n");
}

}  // namespace
