#include <gtest/gtest.h>
#if defined(__linux__)
#include <sys/stat.h>
#endif

#include <cstdint>
#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// The existence query without an instance, seen at the seam and in the traces.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

class IndexExists : public IndexOperations {
 protected:
  bool exists(const std::string& logical, long ts) {
    physical = "untouched";
    return STGIndex::exists(folder.path(), logical, ts, physical);
  }
  /// "yes, " or "no, ", and the returned name.
  std::string answer(const std::string& logical, long ts) {
    return (exists(logical, ts) ? "yes, " : "no, ") + physical;
  }
};

TEST_F(IndexExists, AnswersByAFileOfTheLogicalNameWhateverTheIndexSays) {
  folder.write("a.kdb");
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000005/00000001\n");
  for (const long ts : {5L, 0L, 77L, -1L}) {
    EXPECT_TRUE(exists("a.kdb", ts)) << ts;
    EXPECT_EQ(physical, "a.kdb") << ts;
  }
}

TEST_F(IndexExists, NeedsNoIndexForAFileOfTheLogicalName) {
  folder.write("a.kdb");
  os::faults::reset();
  EXPECT_TRUE(exists("a.kdb", 5));
  EXPECT_EQ(os::faults::calls(Call::any), 1U);
  EXPECT_FALSE(folder.has_index());
}

TEST_F(IndexExists, TakesTheNameAsItIs) {
  make_folder(folder.path("sub"));
  folder.write("sub\\inner.kdb");
  folder.write("a.kdb");
  folder.write("index", "00000001");
  folder.set_index(" ");
  // A folder, a path through folders, patterns, the index and its counter, the folder itself.
  for (const std::string logical : {"sub", "sub\\inner.kdb", "sub\\..\\a.kdb", "..", "*", "a*",
                                    "?.kdb", "index", "index.dat", ""}) {
    EXPECT_TRUE(exists(logical, 1)) << logical;
    EXPECT_EQ(physical, logical);
  }
  for (const std::string logical : {"b*", "?b.kdb", "sub\\other", "a.kdb\\x"}) {
    EXPECT_FALSE(exists(logical, 1)) << logical;
    EXPECT_EQ(physical, "untouched");
  }
}

TEST_F(IndexExists, FindsAnEntryOfTheIndex) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000005/00000001\na.kdb_0000000006/00000002\n");
  EXPECT_EQ(answer("a.kdb", 5), "yes, 00000001.kdb");
  EXPECT_EQ(answer("a.kdb", 6), "yes, 00000002.kdb");
  EXPECT_EQ(answer("a.kdb", 7), "no, untouched");
  EXPECT_FALSE(exists("b.kdb", 5));
  EXPECT_FALSE(exists("xa.kdb", 5));
  EXPECT_FALSE(exists("a.kd", 5));
}

TEST_F(IndexExists, AcceptsOneStringForBothNames) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000005/00000001\n");
  std::string name = "a.kdb";
  EXPECT_TRUE(STGIndex::exists(folder.path(), name, 5, name));
  EXPECT_EQ(name, "00000001.kdb");
  EXPECT_TRUE(STGIndex::exists(folder.path(), name, 5, name));
  EXPECT_EQ(name, "00000001.kdb");
}

TEST_F(IndexExists, FindsNoEntryWhoseFileHasGone) {
  folder.set_index("a.kdb_0000000005/00000001\n");
  EXPECT_EQ(answer("a.kdb", 5), "no, untouched");
}

TEST_F(IndexExists, NamesTheFileOfALineThatOnlyAnotherFileMakesValid) {
  // The file with the bare physical name makes the line valid. The file of the entry is missing.
  folder.write("00000001");
  folder.set_index("a.kdb_0000000005/00000001\n");
  EXPECT_EQ(answer("a.kdb", 5), "no, 00000001.kdb");
}

TEST_F(IndexExists, TakesTheFirstValidLineOfAKey) {
  folder.write("00000002.kdb");
  folder.write("00000003.kdb");
  folder.set_index(
      "a.kdb_0000000005/00000001\na.kdb_0000000005/00000002\na.kdb_0000000005/00000003\n");
  EXPECT_EQ(answer("a.kdb", 5), "yes, 00000002.kdb");
}

TEST_F(IndexExists, StopsAtAValidLineWhoseFileIsMissing) {
  folder.write("00000001");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000005/00000001\na.kdb_0000000005/00000002\n");
  EXPECT_EQ(answer("a.kdb", 5), "no, 00000001.kdb");
}

TEST_F(IndexExists, FindsAFoundFileUnderAnotherTimestampByNoMeans) {
  folder.write("moved.txt");
  folder.set_index("notes.txt_0000000000/moved.txt\n");
  // The extension is appended, because the physical name differs from the logical name.
  EXPECT_EQ(answer("notes.txt", 0), "no, moved.txt.txt");
}

TEST_F(IndexExists, ReadsTimestampsInTheirUnsignedForm) {
  folder.write("00000001");
  folder.set_index("a_4294967295/00000001\n");
  EXPECT_EQ(answer("a", -1), "yes, 00000001");
}

TEST_F(IndexExists, ReadsALastLineWithoutALineFeed) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002");
  EXPECT_EQ(answer("b", 1), "yes, 00000002");
}

TEST_F(IndexExists, SkipsInvalidLines) {
  folder.write("00000001");
  folder.set_index("torn\n/00000001\nx/00000001\n\na_0000000001/00000001\n");
  EXPECT_TRUE(exists("a", 1));
  EXPECT_FALSE(exists("x", 1));
}

TEST_F(IndexExists, FindsNoKeyWithASlash) {
  folder.write("00000001");
  folder.set_index("a/b_0000000001/00000001\n");
  EXPECT_EQ(answer("a/b", 1), "no, untouched");
}

TEST_F(IndexExists, FindsAKeyThatRanOverTheEndOfALine) {
  folder.write("00000001");
  folder.set_index("abc\nkey_0000000001/00000001");
  EXPECT_EQ(answer("abc\nkey", 1), "yes, 00000001");
  EXPECT_TRUE(exists("key", 1));
  EXPECT_FALSE(exists("abc", 1));
}

TEST_F(IndexExists, AnswersAsALoadedIndexDoes) {
  // Each line is one case. The loaded maps are the reference.
  folder.write("00000001.kdb");
  folder.write("00000002");
  folder.write("notes.txt");
  folder.set_index(
      "a.kdb_0000000001/00000001\n"
      "a.kdb_0000000001/00000002\n"
      "b.kdb_0000000001/00000002\n"
      "c_0000000001/00000002\n"
      "d.txt_0000000000/notes.txt\n"
      "e.txt_0000000001/notes\n"
      "f.kdb_0000000001/none\n"
      "no slash\n"
      "g_0000000001/\n"
      "h_0000000001/..\n"
      "i_0000000001/*\n"
      "j_0000000001/00000001.kdb\r\n"
      "short/00000002\n"
      "k_0000000001/00000002");
  const STGIndex index = Peer::load(folder.path());
  const STGIndex::NameMap entries = Peer::lp(index);
  ASSERT_EQ(entries.size(), 9U);
  for (const std::string logical :
       {"a.kdb", "b.kdb", "c", "d.txt", "e.txt", "f.kdb", "g", "h", "i", "j", "short", "k"}) {
    for (const long ts : {0L, 1L}) {
      const auto entry = entries.find(Peer::entryAndTS(logical, ts));
      const bool known = entry != entries.end();
      const std::string name = known ? Peer::pName(entry) : "untouched";
      const bool expected = known && vu_file::exists(folder.path(name));
      EXPECT_EQ(exists(logical, ts), expected) << logical;
      EXPECT_EQ(physical, name) << logical;
    }
  }
}

TEST_F(IndexExists, OnlyReadsWhereThereIsAnIndex) {
  const synchronisation on(true);
  folder.write("00000001.kdb", "data");
  folder.write("stray.TXT", "unknown to the index");
  folder.set_index("gone_0000000001/00000009\na.kdb_0000000005/00000001\ntorn");
  for (const std::string& name : folder.names()) set_modify_time(folder.path(name), 1000);
  const auto before = folder.state();
  os::faults::reset();
  EXPECT_TRUE(exists("a.kdb", 5));
  EXPECT_FALSE(exists("a.kdb", 6));
#if defined(_WIN32)
  EXPECT_TRUE(exists("stray.txt", 0));  // found by the file itself, in any letter case
#else
  EXPECT_FALSE(exists("stray.txt", 0));
#endif
  EXPECT_EQ(folder.state(), before);
  for (const Call call : {Call::write, Call::set_end, Call::flush, Call::rename,
                          Call::make_writable, Call::remove_file, Call::list}) {
    EXPECT_EQ(os::faults::calls(call), 0U) << os::faults::name(call);
  }
}

TEST_F(IndexExists, MakesAMissingIndexFirst) {
  EXPECT_FALSE(exists("a.kdb", 5));
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexExists, AdoptsWhereItMakesTheIndex) {
  const synchronisation on(true);
  folder.write("Report.KDB");
  EXPECT_EQ(answer("Report.kdb", 0), "yes, Report.kdb");
#if !defined(_WIN32)
  // On Windows the file itself is found, so the query does not use the index.
  EXPECT_EQ(folder.index(), "Report.kdb_0000000000/Report.kdb\n");
#endif
}

TEST_F(IndexExists, WarnsWhenTheIndexCannotBeOpened) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000005/00000001\n");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::open, kRefused);
  EXPECT_EQ(answer("a.kdb", 5), "no, untouched");
  EXPECT_EQ(index_traces(sink),
            (Texts{"Warning: " + cannot_open("a.kdb", "throw exception on open")}));
}

TEST_F(IndexExists, WarnsWhenAFolderTakesTheIndexsName) {
  make_folder(folder.path("index.dat"));
  recording_sink sink;
  EXPECT_FALSE(exists("a.kdb", 5));
  EXPECT_EQ(index_traces(sink),
            (Texts{"Warning: " + cannot_open("a.kdb", "throw exception on open")}));
}

#if defined(__linux__)
TEST_F(IndexExists, WarnsWhenAPipeTakesTheIndexsNameAndWaitsForNoWriter) {
  ASSERT_EQ(::mkfifo(native(folder.path("index.dat")).c_str(), 0666), 0);
  recording_sink sink;
  EXPECT_FALSE(exists("a.kdb", 5));
  EXPECT_EQ(index_traces(sink),
            (Texts{"Warning: " + cannot_open("a.kdb", "throw exception on open")}));
}
#endif

TEST_F(IndexExists, TracesTheTextOfTheExceptionThatTheOpeningRaised) {
  folder.set_index(" ");
  recording_sink sink;
  const auto fault = os::faults::throw_from(Call::open, vu_file_except("the reason", 9));
  EXPECT_FALSE(exists("some name.kdb", 5));
  EXPECT_EQ(index_traces(sink), (Texts{"Warning: " + cannot_open("some name.kdb", "the reason")}));
}

TEST_F(IndexExists, SaysWhatIsWrongInAFolderThatIsMissing) {
  const std::string missing = folder.path("missing");
  recording_sink sink;
  EXPECT_FALSE(STGIndex::exists(missing, "a.kdb", 5, physical));
  EXPECT_EQ(physical, "untouched");
  EXPECT_EQ(index_traces(sink),
            (Texts{"Error: STGIndex::STGIndex() : the folder " + missing + " doesn't exist !!!",
                   "M:  STGIndex: (begin) updating index.dat ...", "M:   folder : " + missing,
                   "Warning: STGIndex::~STGIndex(): Unable to create/update index.dat - please "
                   "verify that you have write access and disk is not full.\n Reason: throw "
                   "exception on open",
                   "Warning: STGIndex::exists(): Unable to open index.dat file while checking for "
                   "existence of a.kdb in directory " +
                       missing + "\n Reason: throw exception on open"}));
  EXPECT_FALSE(folder.has("missing"));
}

TEST_F(IndexExists, LetsOtherExceptionsOfTheOpeningPass) {
  folder.set_index(" ");
  const auto fault = os::faults::throw_from(Call::open, std::bad_alloc());
  EXPECT_THROW(exists("a.kdb", 5), std::bad_alloc);
}

TEST_F(IndexExists, LetsAFailedReadPass) {
  folder.set_index("a.kdb_0000000005/00000001\n");
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::read, kRefused);
    try {
      exists("a.kdb", 5);
      ADD_FAILURE() << "nothing was raised";
    } catch (const vu_file_except& e) {
      EXPECT_EQ(e.what(), "throw exception on read");
    }
  }
  EXPECT_EQ(physical, "untouched");
  EXPECT_EQ(index_traces(sink), Texts{});
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexExists, NamesAnUnknownEntry) {
  folder.set_index("a.kdb_0000000005/00000007\n");
  // Earlier calls: for the logical name and for the index.
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 3, Times::kLasting);
  recording_sink sink;
  EXPECT_FALSE(STGIndex::exists(folder.path(), "a.kdb", 5, physical));
  EXPECT_EQ(sink.events(trace_event::error),
            Texts{"STGIndex: a line stays, for the system does not tell whether its file is "
                  "there: " +
                  folder.path("index.dat") + ": a.kdb_0000000005/00000007"});
}

TEST_F(IndexExists, TracesNothingWhereAllIsWell) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000005/00000001\n");
  recording_sink sink;
  EXPECT_TRUE(exists("a.kdb", 5));
  EXPECT_FALSE(exists("b.kdb", 5));
  EXPECT_EQ(index_traces(sink), Texts{});
}

/// The number of seam calls of one query in a folder with this many entries. Only two of their
/// files exist; the query does not check the others.
std::uint64_t calls_to_ask(int entries, const std::string& logical, bool expected) {
  const index_folder folder;
  std::string text;
  for (int i = 1; i <= entries; ++i) {
    const std::string number = std::to_string(10000000 + i);
    if (i == 7 || i == 1999) folder.write(number + ".kdb");
    text += "doc" + number + ".kdb_0000000001/" + number + "\n";
  }
  folder.set_index(text);
  std::string physical;
  os::faults::reset();
  EXPECT_EQ(STGIndex::exists(folder.path(), logical, 1, physical), expected);
  return os::faults::calls(Call::any);
}

TEST_F(IndexExists, TakesAtMostTenCallsHoweverManyEntriesThereAre) {
  // An index of at most one page takes fewer.
  EXPECT_EQ(calls_to_ask(10, "doc10000007.kdb", true), 8U);
  const std::uint64_t many = calls_to_ask(200, "doc10000007.kdb", true);
  EXPECT_EQ(many, 10U);
  EXPECT_EQ(calls_to_ask(2000, "doc10000007.kdb", true), many);
  EXPECT_EQ(calls_to_ask(2000, "doc10001999.kdb", true), many);
}

TEST_F(IndexExists, NeedsNoMoreCallsForAMissingEntry) {
  EXPECT_EQ(calls_to_ask(10, "nothing.kdb", false), 7U);
  const std::uint64_t many = calls_to_ask(200, "nothing.kdb", false);
  EXPECT_EQ(many, 9U);
  EXPECT_EQ(calls_to_ask(2000, "nothing.kdb", false), many);
}

TEST_F(IndexExists, ReadsManyLinesWithoutASlashOnce) {
  folder.write("00000001.kdb");
  folder.set_index(std::string(300000, '\n') + "a.kdb_0000000005/00000001\n");
  os::faults::reset();
  EXPECT_TRUE(exists("a.kdb", 5));
  EXPECT_LE(os::faults::calls(Call::any), 10U);
  EXPECT_FALSE(exists("\n\na.kdb", 5));
}

}  // namespace
