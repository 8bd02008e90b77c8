#include <gtest/gtest.h>

#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// When an index is saved, and which text. Merge, crashes and exceptions: the other index_saving
// files.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

TEST_F(IndexSaving, HappensOnlyAfterAChange) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n\n\ntorn");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  os::faults::reset();
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
  }
  EXPECT_EQ(folder.state(), before);
  EXPECT_EQ(os::faults::calls(Call::write), 0U);
  EXPECT_EQ(os::faults::calls(Call::set_end), 0U);
}

TEST_F(IndexSaving, WritesOneLinePerEntryInTheOrderOfTheKeys) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdc");
  folder.write("notes.txt");
  EXPECT_EQ(rewritten("notes.txt_0000000000/notes.txt\n"
                      "budget.kdc_0000000042/00000002\n"
                      "Sales Report.kdb_1199145600/00000001"),
            "Sales Report.kdb_1199145600/00000001\n"
            "budget.kdc_0000000042/00000002\n"
            "notes.txt_0000000000/notes.txt\n");
}

TEST_F(IndexSaving, OrdersKeysByTheirBytes) {
  const std::string text =
      "\x01_0000000001/f\n"
      " _0000000001/f\n"
      "A_0000000001/f\n"
      "a_0000000001/f\n"
      "a_0000000002/f\n"
      "aa_0000000001/f\n"
      "\x7F_0000000001/f\n"
      "\x80_0000000001/f\n"
      "\xFF_0000000001/f\n";
  folder.write("f");
  EXPECT_EQ(rewritten(text), text);
}

TEST_F(IndexSaving, IsTakenBackUnchangedByLoading) {
  folder.write("f");
  folder.set_index("b_0000000001/f\na\r_0000000002/f\n_0000000000/f\n");
  NameMap lp;
  {
    STGIndex index = Peer::load(folder.path());
    lp = Peer::lp(index);
    Peer::set_need_update(index);
  }
  ASSERT_EQ(lp.size(), 3U);
  const std::string text = folder.index();
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::lp(index), lp);
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), text);
}

TEST_F(IndexSaving, WritesOneBlankForAnIndexWithoutEntries) {
  rewrite();
  EXPECT_EQ(folder.index(), " ");
  rewrite();
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
}

TEST_F(IndexSaving, WritesOneBlankWhenNoLineIsValidAnyMore) {
  EXPECT_EQ(rewritten("a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n"), " ");
}

TEST_F(IndexSaving, TruncatesTheFileAfterAShorterText) {
  folder.write("00000001");
  EXPECT_EQ(rewritten("a_0000000001/00000001\n" + std::string(100000, 'x')),
            "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, DropsWhatIsInvalid) {
  folder.write("00000001");
  EXPECT_EQ(rewritten("a_0000000001/00000001\nb_0000000001/gone\nshort/00000001\nno slash\n"),
            "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, KeepsEntriesThatShareAPhysicalName) {
  folder.write("00000001");
  EXPECT_EQ(rewritten("a_0000000001/00000001\nb_0000000001/00000001\n"),
            "a_0000000001/00000001\nb_0000000001/00000001\n");
}

TEST_F(IndexSaving, WritesTheFirstOfTwoLinesWithOneKey) {
  folder.write("00000001");
  folder.write("00000002");
  EXPECT_EQ(rewritten("a_0000000001/00000002\na_0000000001/00000001\n"), "a_0000000001/00000002\n");
}

TEST_F(IndexSaving, LosesAnEntryWhoseLogicalNameHoldsASlash) {
  // The text is read back as another key, whose file would be named "b_0000000001/00000001".
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "a/b", 1);
    Peer::_create(index, "other", 1);
  }
  EXPECT_EQ(folder.index(), "a/b_0000000001/00000001\nother_0000000001/00000002\n");
  rewrite();
  EXPECT_EQ(folder.index(), "other_0000000001/00000002\n");
}

TEST_F(IndexSaving, KeepsAnUnknownEntryAndSavesTheRest) {
  folder.write("00000001");
  // The check for the file of the second line fails. The file of the third line is missing.
  const std::string text = "a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/00000003\n";
  folder.set_index(text);
  recording_sink sink;
  {
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_FALSE(Peer::_contains(index, "b", 1)) << "a question takes it for missing";
    Peer::insert(index, "d_0000000001", "00000001");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000001\nb_0000000001/00000002\nd_0000000001/00000001\n");
  EXPECT_EQ(
      sink.events(trace_event::error),
      Texts{"STGIndex: a line stays, for the system does not tell whether its file is there: " +
            folder.path("index.dat") + ": b_0000000001/00000002"});
  EXPECT_TRUE(index_is_free());
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nd_0000000001/00000001\n")
      << "the next one can tell";
}

TEST_F(IndexSaving, KeepsUnknownEntriesThatOthersWrote) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
    Peer::insert(index, "c_0000000001", "00000001");
    Peer::set_need_update(index);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    const auto listing = os::faults::fail(Call::list, kRefused, 1, Times::kLasting);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/00000001\n");
}

TEST_F(IndexSaving, KeepsBothMapsInStepWithWhatItMerges) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "own_0000000001", "00000003");
    folder.write("00000003");
    // Another process creates one entry again, and a new one.
    folder.erase("00000001");
    folder.write("00000004");
    folder.write("00000005");
    folder.set_index("a_0000000001/00000004\nb_0000000001/00000002\nc_0000000001/00000005\n");
    Peer::saveIndexFile(index);
    EXPECT_EQ(Peer::lp(index), (STGIndex::NameMap{{"a_0000000001", "00000004"},
                                                  {"b_0000000001", "00000002"},
                                                  {"c_0000000001", "00000005"},
                                                  {"own_0000000001", "00000003"}}));
    EXPECT_EQ(Peer::pl(index), (STGIndex::NameMap{{"00000002", "b_0000000001"},
                                                  {"00000003", "own_0000000001"},
                                                  {"00000004", "a_0000000001"},
                                                  {"00000005", "c_0000000001"}}));
  }
}

TEST_F(IndexSaving, NamesALineThatItFindsOutNothingAbout) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: a line stays, for the system does not tell whether its file is "
                       "there: " +
                           folder.path("index.dat") + ": a.kdb_0000000001/00000001"),
            1U);
}

TEST_F(IndexSaving, KeepsTheOrderOfTwoLinesOfOneKeyIfOneIsUnknown) {
  folder.write("00000001");
  folder.write("00000003");
  for (const bool unknown_first : {true, false}) {
    const std::string known = "b_0000000001/00000001\n";
    const std::string unknown = "b_0000000001/00000002\n";
    const std::string text = unknown_first ? unknown + known : known + unknown;
    folder.set_index("a_0000000001/00000003\n" + text);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2);
    rewrite();
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(folder.index(), "a_0000000001/00000003\n" + text);
  }
}

TEST_F(IndexSaving, SortsUnknownEntries) {
  folder.write("00000001");
  folder.set_index("c_0000000001/00000002\na_0000000001/00000003\nb_0000000001/00000001\n");
  {
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    rewrite();
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000003\nb_0000000001/00000001\nc_0000000001/00000002\n");
}

TEST_F(IndexSaving, KeepsBothLinesOfAKeyWhoseOwnEntryIsUnknown) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    // Another process removes the entry and creates it again. Then the check for the old file
    // fails.
    folder.erase("00000001");
    folder.set_index("a_0000000001/00000002\n");
    Peer::set_need_update(index);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 2, Times::kLasting);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
    EXPECT_GE(fault.hits(), 1U);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\na_0000000001/00000002\n");
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000002\n");
}

TEST_F(IndexSaving, IsNotStoppedByALineThatLeadsToAnUnreadableFolder) {
  // A foreign line does not prevent the save of other entries.
  folder.write("00000001.kdb");
  const std::string odd = "zzz.kdb_0000000001/..\\priv\\x\n";
  folder.set_index("a.kdb_0000000001/00000001\n" + odd);
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 4, Times::kLasting);
  // Earlier calls: for the logical name and for the index, by the query and by the load.
  EXPECT_EQ(STGIndex::create(folder.path(), "b.kdb", 1), "00000002.kdb");
  EXPECT_GE(fault.hits(), 1U);
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n" + odd);
}

TEST_F(IndexSaving, NeedsNoListingWhenEachFileCanBeChecked) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  const auto listings = os::faults::fail(Call::list, kRefused, 1, Times::kLasting);
  rewrite();
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, DropsALineWhoseFileNoSystemCouldName) {
  folder.write("00000001");
  EXPECT_EQ(rewritten("a_0000000001/00000001\nb_0000000001/" + std::string(5000, 'x') +
                      "\nc_0000000001/00000001\\below\n"),
            "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, WritesInPlaceUnderOneLock) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/gone\n");
  bool was_locked = false;
  const auto hook = os::faults::before(
      Call::write,
      [&] {
        vu_file reader(folder.path(), "index.dat");
        EXPECT_TRUE(reader.try_open(vu_file::o_read, was_locked, true));
        EXPECT_TRUE(was_locked);
      },
      1, Times::kLasting);
  os::faults::reset();
  rewrite();
  EXPECT_TRUE(was_locked);
  EXPECT_EQ(os::faults::calls(Call::write), 2U) << "the copy, and the text";
  EXPECT_EQ(os::faults::calls(Call::flush), 2U);
  EXPECT_EQ(os::faults::calls(Call::rename), 0U);
  EXPECT_EQ(os::faults::calls(Call::remove_file), 0U);
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.names(), (Texts{"00000001", "index.dat"}));
}

TEST_F(IndexSaving, WritesNothingWhereTheTextIsTheSame) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  os::faults::reset();
  rewrite();
  EXPECT_EQ(os::faults::calls(Call::write), 0U);
  EXPECT_EQ(os::faults::calls(Call::set_end), 0U);
  EXPECT_EQ(os::faults::calls(Call::flush), 0U);
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
  EXPECT_TRUE(index_is_free());
  EXPECT_EQ(folder.names(), (Texts{"00000001", "index.dat"}));
}

TEST_F(IndexSaving, TracesItsBeginAndItsEnd) {
  recording_sink sink;
  rewrite();
  EXPECT_EQ(index_traces(sink), begin_texts() + end_texts());
  sink.clear();
  { const STGIndex index = Peer::load(folder.path()); }
  EXPECT_EQ(index_traces(sink), Texts{});
}

TEST_F(IndexSaving, ContinuesAfterAnUnknownSize) {
  std::string text;  // of more than a page
  for (int i = 1000; i < 1300; ++i) text += std::to_string(i) + "_0000000001/00000001\n";
  folder.write("00000001");
  // The load asks for the size, then the save.
  for (const std::uint64_t nth : {1U, 2U}) {
    folder.set_index(text);
    const auto fault = os::faults::fail(Call::size, kRefused, nth);
    {
      STGIndex index = Peer::load(folder.path());
      Peer::insert(index, "c_0000000001", "00000001");
      Peer::set_need_update(index);
    }
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_EQ(folder.index(), text + "c_0000000001/00000001\n");
  }
  EXPECT_TRUE(index_is_free());
}

TEST_F(IndexSaving, KeepsALineThatIsValidThroughTheFolderItself) {
  for (const std::string stored : {"", "."}) {
    // Many removed lines are judged by a listing, a few one by one.
    for (const int others : {0, 6}) {
      const index_folder place;
      std::string text;
      for (int i = 0; i < others; ++i) {
        const std::string number = "0000000" + std::to_string(i);
        place.write(number + ".kdb");
        text += "a.kdb_000000000" + std::to_string(i) + "/" + number + "\n";
      }
      const std::string line = "k.kdb_0000000001/" + stored + "\n";
      place.write(stored + ".kdb");
      place.set_index(text + line);
      STGIndex::cleanAllOutput(place.path());
      EXPECT_EQ(place.index(), line) << others;
      EXPECT_EQ(place.names(), Texts{"index.dat"});
    }
  }
}

}  // namespace
