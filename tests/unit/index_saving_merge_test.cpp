#include <gtest/gtest.h>

#include <atomic>
#include <random>
#include <string>
#include <thread>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// The merge of a save: which lines of the index on disk it takes over.

namespace {

using os::faults::Call;
using Peer = stg_index_test_peer;
using NameMap = STGIndex::NameMap;
using vu_host::trace_level;

TEST_F(IndexSaving, KeepsWhatAnotherInstanceWroteMeanwhile) {
  recording_sink sink;
  {
    STGIndex first = Peer::load(folder.path());
    Peer::_create(first, "first.kdb", 1);
    {
      // Without an index on disk neither instance waits for a lock of the other.
      STGIndex second = Peer::load(folder.path());
      Peer::_create(second, "second.kdb", 1);
    }
    EXPECT_EQ(folder.index(), "second.kdb_0000000001/00000002\n");
    sink.clear();
  }
  EXPECT_EQ(folder.index(), "first.kdb_0000000001/00000001\nsecond.kdb_0000000001/00000002\n");
  EXPECT_EQ(
      index_traces(sink),
      begin_texts() + Texts{"M:  add in my maps second.kdb_0000000001/00000002"} + end_texts());
}

TEST_F(IndexSaving, ReconcilesTwoThreadsThatLoadedTheSameIndex) {
  folder.write("00000005");
  folder.set_index("old_0000000001/00000005\n");
  std::atomic<int> loaded = 0;
  const auto create = [&](const std::string& logical) {
    STGIndex index = Peer::load(folder.path());
    ++loaded;
    while (loaded < 2) std::this_thread::yield();
    Peer::_create(index, logical, 1);
  };
  std::thread first(create, "a.kdb");
  std::thread second(create, "b.kdb");
  first.join();
  second.join();

  const STGIndex index = Peer::load(folder.path());
  EXPECT_EQ(Peer::lp(index).size(), 3U);
  EXPECT_TRUE(Peer::_contains(index, "a.kdb", 1));
  EXPECT_TRUE(Peer::_contains(index, "b.kdb", 1));
  EXPECT_TRUE(Peer::_contains(index, "old", 1));
  EXPECT_EQ(Peer::pl(index).size(), 3U);
}

TEST_F(IndexSaving, MergesWhatIsOnDiskBetweenItsTwoLocks) {
  folder.write("00000001");
  folder.write("00000002");
  folder.write("00000003");
  folder.set_index("a_0000000001/00000001\n");
  recording_sink sink;
  {
    // At the second open the shared lock is released and the exclusive lock is not yet taken.
    const auto other = [&] { folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n"); };
    const auto hook = os::faults::before(Call::open, other, 2);
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "c_0000000001", "00000003");
    Peer::set_need_update(index);
    EXPECT_FALSE(Peer::_contains(index, "b", 1));
  }
  EXPECT_EQ(folder.index(),
            "a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/00000003\n");
  EXPECT_EQ(index_traces(sink),
            begin_texts() + Texts{"M:  add in my maps b_0000000001/00000002"} + end_texts());
}

TEST_F(IndexSaving, PrefersItsOwnPhysicalNameForAKey) {
  folder.write("00000001");
  folder.write("00000002");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "a_0000000001", "00000001");
    Peer::set_need_update(index);
    folder.set_index("a_0000000001/00000002\n");
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, TakesAnEntryThatAnotherInstanceRemovedAndCreatedAgain) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\n");
  const auto other = [&] {
    folder.erase("00000001");
    folder.write("00000002", "made anew");
    folder.set_index("a_0000000001/00000002\n");
  };
  recording_sink sink;
  {
    const auto hook = os::faults::before(Call::open, other, 2);
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "b_0000000001", "00000002");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000002\nb_0000000001/00000002\n");
  EXPECT_EQ(index_traces(sink),
            begin_texts() + Texts{"M:  add in my maps a_0000000001/00000002"} + end_texts());
}

TEST_F(IndexSaving, KeepsAnEntryOutThatIsGoneHereAndOnDisk) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000003\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    folder.erase("00000001");
    // Another process saves in between and drops the line.
    folder.set_index(" ");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(index_traces(sink), begin_texts() + end_texts());
}

TEST_F(IndexSaving, TakesAMergedEntryWhosePhysicalNameIsTaken) {
  folder.write("00000001");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::insert(index, "a_0000000001", "00000001");
    Peer::set_need_update(index);
    folder.set_index("b_0000000001/00000001\n");
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000001\n");
}

TEST_F(IndexSaving, TakesNoLineOfAFileThatItIsAboutToRemove) {
  // Another process writes a line of another key that names the old file of the renamed entry.
  folder.write("00000001.kdb", "bytes of a");
  folder.write("00000002.kdb", "bytes of b");
  folder.write("index", "00000002");
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n";
  folder.set_index(text);
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_TRUE(Peer::_rename(index, "a.kdb", 1, "c.kdb", 1));
    folder.set_index(text + "z.kdb_0000000001/00000001\n");
    sink.clear();
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\nc.kdb_0000000001/00000003\n");
  EXPECT_FALSE(folder.has("00000001.kdb"));
  EXPECT_EQ(index_traces(sink), begin_texts() + end_texts());
}

TEST_F(IndexSaving, DoesNotBringBackWhatItRemoved) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  folder.set_index("a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\n");
}

TEST_F(IndexSaving, BringsBackAnEntryWhoseFileCouldNotBeRemoved) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  recording_sink sink;
  {
    STGIndex index = Peer::load(folder.path());
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    Peer::_remove(index, "a.kdb", 1);
    EXPECT_FALSE(Peer::_contains(index, "a.kdb", 1));
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
  EXPECT_EQ(sink.count(trace_level::m, " add in my maps a.kdb_0000000001/00000001"), 1U);
}

TEST_F(IndexSaving, TakesLinesThatHaveBecomeValidSinceLoading) {
  folder.write("00000001");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    EXPECT_FALSE(Peer::_contains(index, "b", 1));
    folder.write("00000002");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000002\n");
}

TEST_F(IndexSaving, DropsLinesThatHaveBecomeInvalidSinceLoading) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\n");
  {
    STGIndex index = Peer::load(folder.path());
    folder.erase("00000002");
    EXPECT_TRUE(Peer::_contains(index, "b", 1));
    folder.set_index("a_0000000001/00000001\n");
    Peer::set_need_update(index);
  }
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\n");
}

TEST_F(IndexSaving, ChecksEachLineOnceWhenNoOtherProcessHasSaved) {
  folder.write("00000001");
  folder.write("00000002");
  folder.set_index("a_0000000001/00000001\nb_0000000001/00000002\nc_0000000001/gone\n");
  os::faults::reset();
  rewrite();
  EXPECT_EQ(os::faults::calls(Call::list), 1U);
  EXPECT_EQ(folder.index(), "a_0000000001/00000001\nb_0000000001/00000002\n");
}

TEST_F(IndexSaving, JudgesTheLinesAgainThatLeadToAFileItHasRemoved) {
  folder.write("00000001.kdb");
  folder.write("notes.kdb");
  folder.set_index(
      "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000001\nc_0000000001/00000001.kdb\n"
      "d_0000000001/.\\00000001.kdb\ne_0000000001/notes.kdb\n");
  STGIndex::remove(folder.path(), "a.kdb", 1);
  EXPECT_EQ(folder.index(), "e_0000000001/notes.kdb\n");
}

TEST_F(IndexSaving, WritesWhatMergingEveryLineWouldGive) {
  // Random changes between load and save: in the maps, of the files and of the index on disk.
  std::mt19937 random(1234567);
  const auto one_of = [&random](const Texts& texts) { return texts[random() % texts.size()]; };
  const Texts lines = {
      "a_0000000001/f1\n",   "a_0000000001/f2\n",   "b_0000000001/f1\n", "b_0000000001/f2\n",
      "c.x_0000000001/f3\n", "d_0000000001/none\n", "short/f1\n",        "torn\n",
      "e_0000000001/\n"};
  const auto random_text = [&] {
    std::string text;
    for (std::size_t left = random() % 5; left != 0; --left) text += one_of(lines);
    return text;
  };
  std::size_t merged = 0;
  for (int round = 0; round < 300; ++round) {
    for (const char* const name : {"f1", "f2", "f3", "f3.x", "f4"}) {
      if (folder.has(name)) folder.erase(name);
      if (random() % 3 != 0) folder.write(name);
    }
    const std::string text = random_text();
    folder.set_index(text);
    NameMap expected;
    NameMap on_disk;
    NameMap unused;
    std::string history;
    const auto meanwhile = [&] {
      if (random() % 3 == 0) folder.set_index(random_text());
      history += "on disk " + plain_index::shown(folder.index());
      if (random() % 3 == 0) folder.write(one_of({"f1", "f2", "f3", "f4"}));
      // Without another save, lines that were valid at the load are kept.
      const std::string gone = one_of({"f1", "f2", "f3", "f4"});
      if (random() % 2 == 0 && folder.index() != text && folder.has(gone)) folder.erase(gone);
      plain_index::load(folder.path(), folder.index(), on_disk, unused);
    };
    {
      // The second open is that of the save.
      const auto hook = os::faults::before(Call::open, meanwhile, 2);
      STGIndex index = Peer::load(folder.path());
      const std::string removed = one_of({"a", "b", "c.x", "d"});
      if (random() % 2 == 0) {
        Peer::_remove(index, removed, 1);
        history += "removed " + removed + " ";
      }
      if (random() % 3 == 0) Peer::insert(index, one_of({"a", "b", "g"}) + "_0000000001", "f4");
      Peer::set_need_update(index);
      expected = Peer::lp(index);
    }
    for (const auto& [key, stored] : on_disk) {
      const auto mine = expected.find(key);
      if (mine == expected.end()) ++merged;
      // The line on disk replaces the entry in memory only if the file of that entry is missing.
      if (mine != expected.end() && plain_index::is_valid(folder.path(), key, mine->second))
        continue;
      expected[key] = stored;
    }
    ASSERT_EQ(folder.index(), plain_index::text_of(folder.path(), expected))
        << plain_index::shown(text) << " " << history;
  }
  EXPECT_GT(merged, 40U);
}

TEST_F(IndexSaving, DoesNotBringBackAnEntryMadeAndRemovedSinceTheLoading) {
  folder.write("00000001.kdb");
  folder.set_index("a.kdb_0000000001/00000001\n");
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_create(index, "b.kdb", 1);
    const auto fault = os::faults::fail(Call::remove_file, kRefused);
    Peer::_remove(index, "b.kdb", 1);
    EXPECT_EQ(fault.hits(), 1U);
  }
  EXPECT_EQ(folder.index(), "a.kdb_0000000001/00000001\n");
}

TEST_F(IndexSaving, BringsBackARemovedEntryWhoseFileStays) {
  for (const int entries : {2, 20}) {
    const index_folder several;
    std::string text;
    for (int i = 10; i < 10 + entries; ++i) {
      several.write(std::to_string(i) + ".kdb");
      text += "doc" + std::to_string(i) + ".kdb_0000000001/" + std::to_string(i) + "\n";
    }
    several.set_index(text);
    {
      STGIndex index = Peer::load(several.path());
      const auto fault = os::faults::fail(Call::remove_file, kRefused, 2);
      for (int i = 10; i < 10 + entries; ++i) {
        Peer::_remove(index, "doc" + std::to_string(i) + ".kdb", 1);
      }
      EXPECT_EQ(fault.hits(), 1U);
    }
    EXPECT_EQ(several.index(), "doc11.kdb_0000000001/11\n");
  }
}

TEST_F(IndexSaving, ChecksItsRemovedEntriesBesideANewEntryOfAnotherProcess) {
  folder.write("00000001.kdb");
  folder.write("00000002.kdb");
  const std::string text = "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000002\n";
  folder.set_index(text);
  {
    STGIndex index = Peer::load(folder.path());
    Peer::_remove(index, "a.kdb", 1);
    folder.write("foreign");
    folder.set_index(text + "foreign_0000000001/foreign\n");
    const recording_sink sink;
    Peer::saveIndexFile(index);
    Peer::clear_need_update(index);
    const Texts traces = index_traces(sink);
    const auto told = [&](const std::string& line) {
      return std::count(traces.begin(), traces.end(), "M:  add in my maps " + line);
    };
    EXPECT_EQ(told("foreign_0000000001/foreign"), 1);
    EXPECT_EQ(told("a.kdb_0000000001/00000001"), 0) << "its file is gone";
  }
  EXPECT_EQ(folder.index(), "b.kdb_0000000001/00000002\nforeign_0000000001/foreign\n");
}

TEST_F(IndexSaving, ChecksUnlistedNamesAgainWhenAnotherProcessHasSaved) {
  make_folder(folder.path("sub"));
  folder.write("sub\\one");
  folder.write("sub\\two");
  const std::string text = "a_0000000001/sub\\one\nb_0000000001/sub\\two\n";
  folder.set_index(text);
  {
    STGIndex index = Peer::load(folder.path());
    ASSERT_EQ(Peer::lp(index).size(), 2U);
    Peer::set_need_update(index);
    folder.erase("sub\\one");
    folder.write("foreign");
    folder.set_index(text + "foreign_0000000001/foreign\n");
  }
  EXPECT_EQ(folder.index(), "b_0000000001/sub\\two\nforeign_0000000001/foreign\n");
}

enum class Since { kNothing, kRemoval, kForeignEntry, kManyForeignEntries };

/// @param since what happens between the load and the save.
std::uint64_t calls_to_save(int entries, Since since) {
  const index_folder folder;
  std::string text;
  for (int i = 1; i <= entries; ++i) {
    const std::string number = std::to_string(10000000 + i);
    folder.write(number + ".kdb");
    text += "doc" + number + ".kdb_0000000001/" + number + "\n";
  }
  folder.set_index(text);
  {
    STGIndex index = Peer::load(folder.path());
    Peer::set_need_update(index);
    if (since == Since::kRemoval) Peer::_remove(index, "doc10000001.kdb", 1);
    const int foreign = since == Since::kForeignEntry         ? 1
                        : since == Since::kManyForeignEntries ? 40
                                                              : 0;
    for (int i = 10; i < 10 + foreign; ++i) {
      const std::string name = "foreign" + std::to_string(i);
      folder.write(name);
      text += name + "_0000000001/" + name + "\n";
    }
    if (foreign != 0) folder.set_index(text);
    os::faults::reset();
  }
  EXPECT_EQ(folder.index(), since == Since::kRemoval ? text.substr(text.find('\n') + 1) : text);
  // Lines that the load has checked are not checked again. The save checks a few foreign lines one
  // by one; for many it lists the folder.
  EXPECT_EQ(os::faults::calls(Call::list), since == Since::kManyForeignEntries ? 1U : 0U);
  EXPECT_EQ(os::faults::calls(Call::probe_search), since == Since::kRemoval        ? 2U
                                                   : since == Since::kForeignEntry ? 1U
                                                                                   : 0U);
  return os::faults::calls(Call::any);
}

TEST_F(IndexSaving, ChecksAsManyFilesInALargeFolderAsInASmallOne) {
  for (const Since since :
       {Since::kNothing, Since::kRemoval, Since::kForeignEntry, Since::kManyForeignEntries}) {
    EXPECT_EQ(calls_to_save(5, since), calls_to_save(60, since));
  }
}

}  // namespace
