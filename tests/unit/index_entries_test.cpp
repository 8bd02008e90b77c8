#include <gtest/gtest.h>

#include <string>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// Creating and removing entries, in memory and with their files. Renaming: index_rename_test.cpp.

namespace {

using os::faults::Call;
using os::faults::Times;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_event;

TEST_F(IndexEntries, AreFoundByNameAndTimestamp) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000007/00000001\n");
  const STGIndex index = Peer::load(folder.path());
  EXPECT_TRUE(Peer::_contains(index, "a.kdb", 7));
  EXPECT_FALSE(Peer::_contains(index, "a.kdb", 8));
  EXPECT_FALSE(Peer::_contains(index, "A.kdb", 7));
  EXPECT_FALSE(Peer::_contains(index, "a", 7));
  EXPECT_FALSE(Peer::_contains(index, "", 0));
}

class IndexCreate : public IndexEntries {};

TEST_F(IndexCreate, DrawsANameAndMakesAnEmptyFile) {
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::_create(index, "Sales Report.kdb", 1199145600), "00000001.kdb");
    EXPECT_EQ(Peer::lp(index), (NameMap{{"Sales Report.kdb_1199145600", "00000001"}}));
    EXPECT_EQ(Peer::pl(index), (NameMap{{"00000001", "Sales Report.kdb_1199145600"}}));
    EXPECT_TRUE(Peer::need_update(index));
    EXPECT_EQ(index_traces(sink), create_texts());
    EXPECT_EQ(folder.read("00000001.kdb"), "");
    EXPECT_FALSE(folder.has_index());
  }
  EXPECT_EQ(folder.index(), "Sales Report.kdb_1199145600/00000001\n");
  EXPECT_EQ(folder.read("index"), "00000001");
}

TEST_F(IndexCreate, GivesAnExtensionlessNameAnExtensionlessFile) {
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::_create(index, "k1mailboxcompliant", 0), "00000001");
  EXPECT_TRUE(folder.has("00000001"));
}

TEST_F(IndexCreate, KeepsTheExtensionsCase) {
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::_create(index, "R.KDB", 1), "00000001.KDB");
}

TEST_F(IndexCreate, GivesTheSameNameAgainWithoutDrawingANumber) {
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
  }
  EXPECT_EQ(folder.read("index"), "00000001");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_FALSE(Peer::need_update(index));
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
    // The index needs a save even if the entry existed before.
    EXPECT_TRUE(Peer::need_update(index));
    EXPECT_EQ(index_traces(sink), create_texts());
  }
  EXPECT_EQ(folder.read("index"), "00000001");
}

TEST_F(IndexCreate, KeepsTimestampsApart) {
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
    EXPECT_EQ(Peer::_create(index, "a.kdb", 2), "00000002.kdb");
    EXPECT_EQ(Peer::_create(index, "a.kdb", 0), "00000003.kdb");
  }
  EXPECT_EQ(folder.index(),
            "a.kdb_0000000000/00000003\na.kdb_0000000001/00000001\na.kdb_0000000002/00000002\n");
}

TEST_F(IndexCreate, KeepsTheBytesOfAFileThatIsThere) {
  folder.write("00000001.kdb", "old bytes");
  STGIndex index = Peer::load(folder.path());
  os::faults::reset();
  EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
  EXPECT_EQ(folder.read("00000001.kdb"), "old bytes");
  // Only the counter is opened.
  EXPECT_EQ(os::faults::calls(Call::open), 1U);
}

TEST_F(IndexCreate, MakesTheFileWithTheExtensionWhereOnlyTheStoredNameIsThere) {
  folder.write("00000001", "stored");
  folder.set_index("a.kdb_0000000001/00000001\n");
  STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::_create(index, "a.kdb", 1), "00000001.kdb");
  EXPECT_EQ(folder.read("00000001.kdb"), "");
  EXPECT_EQ(folder.read("00000001"), "stored");
}

TEST_F(IndexCreate, AppendsTheExtensionToAFoundFilesNameAsWell) {
  folder.write("notes.txt", "found");
  folder.set_index("notes.txt_0000000000/notes.txt\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::_create(index, "notes.txt", 0), "notes.txt.txt");
  }
  EXPECT_EQ(folder.read("notes.txt.txt"), "");
  EXPECT_EQ(folder.index(), "notes.txt_0000000000/notes.txt\n");
}

TEST_F(IndexCreate, LetsAFileThatCannotBeMadeRaise) {
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    // The first open is that of the counter.
    const auto fault = os::faults::fail(Call::open, kRefused, 2);
    try {
      Peer::_create(index, "a.kdb", 1);
      ADD_FAILURE() << "nothing was raised";
    } catch (const vu_file_except& e) {
      EXPECT_EQ(e.what(), "throw exception on open");
    }
    EXPECT_FALSE(Peer::need_update(index));
    EXPECT_EQ(index_traces(sink), Texts{});
  }
  // The number is used up; the index is unchanged.
  EXPECT_EQ(folder.names(), (Texts{"index"}));
  EXPECT_EQ(folder.read("index"), "00000001");
}

TEST_F(IndexCreate, RaisesInAFolderThatIsMissing) {
  STGIndex index = Peer::load(folder.path("missing"));
  EXPECT_THROW(Peer::_create(index, "a.kdb", 1), vu_file_except);
  EXPECT_FALSE(Peer::need_update(index));
  EXPECT_FALSE(folder.has("missing"));
}

TEST_F(IndexCreate, GivesTheFileBackUnlocked) {
  STGIndex index = Peer::load(folder.path());
  EXPECT_TRUE(is_free(Peer::_create(index, "a.kdb", 1)));
}

class IndexRemove : public IndexEntries {};

TEST_F(IndexRemove, DropsTheEntryAndDeletesItsFile) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000001/00000001\na.kdb_0000000002/00000002\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
    EXPECT_EQ(Peer::lp(index), (NameMap{{"a.kdb_0000000002", "00000002"}}));
    EXPECT_EQ(Peer::pl(index), (NameMap{{"00000002", "a.kdb_0000000002"}}));
    EXPECT_TRUE(Peer::need_update(index));
    EXPECT_EQ(index_traces(sink), remove_texts());
  }
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdb", "index.dat"}));
  EXPECT_EQ(folder.index(), "a.kdb_0000000002/00000002\n");
}

TEST_F(IndexRemove, DoesNothingForAnEntryThatIsMissing) {
  folder.write("00000001.kdb");
  folder.write("b.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 2);
    Peer::_remove(index, "b.kdb", 0);
    EXPECT_FALSE(Peer::need_update(index));
  }
  EXPECT_EQ(index_traces(sink), Texts{});
  EXPECT_EQ(folder.state(), before);
}

TEST_F(IndexRemove, DeletesAFoundFileUnderItsOwnName) {
  folder.write("notes.txt");
  folder.set_index("notes.txt_0000000000/notes.txt\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "notes.txt", 0);
  }
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexRemove, DeletesAReadOnlyFile) {
  folder.write("00000001.kdb");
  make_read_only(folder.path("00000001.kdb"));
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
  }
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TEST_F(IndexRemove, ReportsThatAFileCannotBeMadeWritable) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  make_read_only(folder.path("00000001.kdb"));
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::fail(Call::make_writable, kRefused, 1);
    Peer::_remove(index, "a.kdb", 1);
  }
  const std::string path = folder.path("00000001.kdb");
  for (const std::string& text :
       {"vu_file::chmodW : failed (" + path + ")", "STGIndex: removal of file failed: " + path})
    EXPECT_EQ(sink.count(trace_event::error, text), 1U) << text;
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdb", "index.dat"}));
  make_writable(path);
}

TEST_F(IndexRemove, IsContentWithAFileThatHasGone) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    folder.erase("00000001.kdb");
    os::faults::reset();
    Peer::_remove(index, "a.kdb", 1);
    EXPECT_EQ(os::faults::calls(Call::make_writable), 0U);
    EXPECT_EQ(os::faults::calls(Call::remove_file), 0U);
    EXPECT_TRUE(Peer::lp(index).empty());
  }
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TEST_F(IndexRemove, SaysThatAFileStaysAndDropsTheEntryAllTheSame) {
  folder.write("00000001.kdb", "stays");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    EXPECT_NO_THROW(Peer::_remove(index, "a.kdb", 1));
    EXPECT_EQ(index_traces(sink),
              Texts{"Error: STGIndex: removal of file failed: " + folder.path("00000001.kdb")} +
                  remove_texts());
    EXPECT_TRUE(Peer::lp(index).empty());
    EXPECT_TRUE(Peer::pl(index).empty());
  }
  // The file exists, so the line on disk is valid and the merge restores it.
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(folder.read("00000001.kdb"), "stays");
}

TEST_F(IndexRemove, SaysThatAFileStaysThatNeverWasWritten) {
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "a.kdb", 1);
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    Peer::_remove(index, "a.kdb", 1);
  }
  // The disk has no line for it, so the merge does not restore it.
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: removal of file failed: " + folder.path("00000001.kdb")),
            1U);
  EXPECT_EQ(folder.index(), " ");
  EXPECT_TRUE(folder.has("00000001.kdb"));
}

TEST_F(IndexRemove, FreesAPhysicalNameThatTwoEntriesShare) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_EQ(Peer::pl(index), (NameMap{{"00000001", "a_0000000001"}}));
    Peer::_remove(index, "b", 1);
    EXPECT_EQ(Peer::lp(index), (NameMap{{"a_0000000001", "00000001"}}));
    EXPECT_TRUE(Peer::pl(index).empty());
  }
  // The file of the other entry was removed with it.
  EXPECT_EQ(folder.index(), " ");
  EXPECT_FALSE(folder.has("00000001"));
}

// A clean in another process removes every file that the index does not name.

class IndexSweptFiles : public IndexEntries {};

TEST_F(IndexSweptFiles, AreMadeAgainByTheSave) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  folder.write("00000001.kdb", "bytes of a");
  folder.write("index", "00000001");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
    folder.erase("00000002.kdb");
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "");
  EXPECT_EQ(sink.events(trace_event::warning),
            Texts{"STGIndex: made again, for it was removed before the index named it: " +
                  folder.path("00000002.kdb")});
}

TEST_F(IndexSweptFiles, AreCopiedAgainFromTheirSources) {
  const std::string source = "a.kdb_0000000001/00000001\n";
  for (const std::string target : {"", "b.kdb_0000000001/00000002\n"}) {
    for (const bool copy_fails : {false, true}) {
      const index_folder place;
      place.set_index(source + target);
      place.write("00000001.kdb", "bytes of a");
      if (!target.empty()) place.write("00000002.kdb", "bytes of b");
      place.write("index", "00000002");
      {
        STGIndex index = Peer::load(place.path());
        EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
        place.erase("00000003.kdb");
        const auto fault =
            os::faults::fail(Call::copy, kRefused, copy_fails ? 1 : 2, Times::kLasting);
        Peer::saveIndexFile(index);
        Peer::clear_need_update(index);
      }
      if (copy_fails) {
        EXPECT_EQ(place.index(), source + target);
        EXPECT_EQ(place.read("00000001.kdb"), "bytes of a");
        EXPECT_EQ(place.has("00000002.kdb"), !target.empty());
      } else {
        EXPECT_EQ(place.index(), "b.kdb_0000000001/00000003\n");
        EXPECT_EQ(place.read("00000003.kdb"), "bytes of a");
        EXPECT_EQ(place.names().size(), 3U);
      }
    }
  }
}

TEST_F(IndexSweptFiles, AreCopiedAgainAlsoWhenSweptWithinTheCopy) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  folder.write("00000001.kdb", "bytes of a");
  folder.write("index", "00000001");
  const auto hook = os::faults::before(Call::flush_file, [&] { folder.erase("00000002.kdb"); });
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 1);
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of a");
}

TEST_F(IndexSweptFiles, AreCopiedAgainAfterASecondRenameToTheirEntryFailed) {
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "n.kdb", 1));
    const auto fault = os::faults::fail(Call::copy, kRefused);
    EXPECT_FALSE(Peer::_rename(index, "b.kdb", 1, "n.kdb", 1));
    folder.erase("00000003.kdb");
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\nn.kdb_0000000001/00000003\n");
  EXPECT_EQ(folder.read("00000003.kdb"), "bytes of a");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of b");
}

TEST_F(IndexSweptFiles, LeaveAllSourcesOfTheirEntryWhenTheyCannotBeCopiedAgain) {
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n";
  folder.set_index(text);
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "n.kdb", 1));
    EXPECT_TRUE(Peer::_rename(index, "b.kdb", 1, "n.kdb", 1));
    folder.erase("00000004.kdb");
    const auto fault = os::faults::fail(Call::copy, kRefused);
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
  }
  EXPECT_EQ(folder.index(), text);
  EXPECT_EQ(folder.read("00000001.kdb"), "bytes of a");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of b");
}

TEST_F(IndexSweptFiles, AreNotTakenForAnotherFileThatMakesTheirLineValid) {
  for (const bool is_folder : {false, true}) {
    for (const bool renames : {false, true}) {
      const index_folder place;
      place.set_index("a.kdb_0000000001/00000001\n");
      place.write("00000001.kdb", "bytes of a");
      place.write("index", "00000001");
      if (is_folder) {
        make_folder(place.path("00000002"));
      } else {
        place.write("00000002", "bytes of a stranger");
      }
      {
        STGIndex index = Peer::load(place.path());
        if (renames) {
          EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
        } else {
          Peer::_create(index, "b.kdb", 1);
        }
        place.erase("00000002.kdb");
      }
      EXPECT_EQ(place.read("00000002.kdb"), renames ? "bytes of a" : "");
      EXPECT_EQ(place.has("00000001.kdb"), !renames);
    }
  }
}

TEST_F(IndexEntries, GetAllTheirFilesAgainAmongOtherChanges) {
  // An entry that is removed again comes between the new ones.
  folder.write("index", "00000001");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "d.kdb", 1);
    Peer::_create(index, "c.kdb", 1);
    Peer::_create(index, "b.kdb", 1);
    Peer::_remove(index, "c.kdb", 1);
    folder.erase("00000002.kdb");
    folder.erase("00000004.kdb");
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000004\nd.kdb_0000000001/00000002\n");
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdb", "00000004.kdb", "index", "index.dat"}));
}

TEST_F(IndexEntries, MayGiveALineThatRunsOnItsFile) {
  // The first line has no slash, so it continues to the slash of the second line, and its key
  // contains the line feed. The text does not end with a line feed, so the physical name is
  // "00000001.kdb".
  const std::string runs_on = "n.txt_0000000000\na.kdb_0000000000/00000001.kdb";
  folder.set_index(runs_on);
  EXPECT_EQ(STGIndex::create(folder.path(), "b.kdb", 0), "00000001.kdb");
  EXPECT_EQ(folder.index(),
            "a.kdb_0000000000/00000001.kdb\nb.kdb_0000000000/00000001\n" + runs_on + "\n");
}

TEST_F(IndexEntries, DoNotGetAFileAgainOnceTheyAreRemoved) {
  folder.set_index("a.kdb_0000000001/00000001\n");
  folder.write("00000001.kdb", "bytes of a");
  folder.write("index", "00000001");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
    Peer::_remove(index, "b.kdb", 1);
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdb", "index", "index.dat"}));
}

TEST_F(IndexEntries, RefuseARenameOfAnEntryWhoseFileTheirInstanceHasMade) {
  folder.write("00000001.kdb", "bytes of a");
  folder.write("index", "00000001");
  folder.set_index("a.kdb_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "b.kdb", 1));
    EXPECT_FALSE(Peer::_rename(index, "b.kdb", 1, "c.kdb", 1));
    Peer::_create(index, "d.kdb", 1);
    EXPECT_FALSE(Peer::_rename(index, "d.kdb", 1, "e.kdb", 1));
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\nd.kdb_0000000001/00000003\n");
  EXPECT_EQ(folder.read("00000002.kdb"), "bytes of a");
  EXPECT_EQ(folder.names(), (Texts{"00000002.kdb", "00000003.kdb", "index", "index.dat"}));
}

}  // namespace
