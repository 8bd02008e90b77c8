#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

#include "index/read_list.h"
#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// The read list: its lines, the names that they form, loading and saving.

namespace {

using os::faults::Call;
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
    }
    return folder.read("read.txt");
  }
  void load_and_save() const {
    ReadList list(folder.path(), "read.txt");
    list.load();
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

TEST_F(ReadListFile, ThatCannotBeLoadedIsNeverSaved) {
  const std::string text = b + "\n" + a + "\n";
  folder.write("read.txt", text);
  for (const Call call : {Call::open, Call::read}) {
    const auto fault = os::faults::fail(call, kRefused);
    EXPECT_THROW(load_and_save(), vu_file_except);
    EXPECT_EQ(folder.read("read.txt"), text);
  }
  {
    const auto fault = os::faults::throw_from(Call::stat, std::bad_alloc());
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

struct Unwinding {};

TEST_F(ReadListFile, IsSavedWhileAnotherExceptionUnwinds) {
  folder.write("read.txt", b + "\n" + a + "\n");
  EXPECT_THROW(
      {
        ReadList list(folder.path(), "read.txt");
        list.load();
        throw Unwinding();
      },
      Unwinding);
  EXPECT_EQ(folder.read("read.txt"), a + "\n" + b + "\n");
}

TEST_F(ReadListFile, SwallowsItsOwnExceptionWhileAnotherOneUnwinds) {
  const auto swallowed = [this](const std::exception_ptr& exception) {
    folder.write("read.txt", a + "\n");
    recording_sink sink;
    const auto fault = os::faults::fail_with(Call::write, exception);
    EXPECT_THROW(
        {
          ReadList list(folder.path(), "read.txt");
          list.load();
          throw Unwinding();
        },
        Unwinding);
    EXPECT_EQ(fault.hits(), 1U);
    return index_traces(sink);
  };
  EXPECT_EQ(swallowed(std::make_exception_ptr(std::runtime_error("of the library"))),
            (Texts{"Error: of the library"}));
  EXPECT_EQ(swallowed(std::make_exception_ptr(vu_file_except("of the file"))),
            (Texts{"Error: of the file"}));
  EXPECT_EQ(swallowed(std::make_exception_ptr('x')), (Texts{"Error: unknown exception"}));
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

}  // namespace
