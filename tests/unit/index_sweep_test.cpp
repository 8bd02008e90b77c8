// Which files the sweep removes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

namespace {

using os::faults::Call;
using os::faults::Times;
using AgeMap = STGIndex::AgeMap;
using vu_host::trace_event;

TEST_F(IndexCleaning, SweepsAwayWhatNoLineAccountsFor) {
  write_aged("00000001.kdc", 10);
  folder.write("notes.tmp");
  folder.write("index", "00000001");
  make_folder(folder.path("stray\\inner"));
  folder.write("stray\\inner\\file");
  folder.set_index("a.kdc_0000000001/00000001\n");
  recording_sink sink;
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc", "index", "index.dat"}));
  // Removals are traced as errors, so that they are noticed.
  EXPECT_EQ(sink.count(trace_event::error, "removing orphan file: " + folder.path("notes.tmp")),
            1U);
  EXPECT_EQ(sink.count(trace_event::error, "removing orphan directory: " + folder.path("stray")),
            1U);
  EXPECT_EQ(sink.count(trace_event::error), 2U);
}

TEST_F(IndexCleaning, SweepsAWholeFolderWithoutAnIndex) {
  folder.write("00000001.kdc");
  folder.write("notes.txt");
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names(), Texts{});
}

TEST_F(IndexCleaning, TakesTheIndexsOwnFilesForNoOrphans) {
  folder.write("index", "00000001");
  folder.set_index(" ");
  folder.write("index.bak");
  EXPECT_EQ(clean(1), 0U);
  EXPECT_EQ(folder.names(), (Texts{"index", "index.dat"}));
}

TEST_F(IndexCleaning, ComparesAnOrphansTimeItselfWithTheLimit) {
  folder.set_index(" ");
  // The code compares a point in time with a duration: only files from the first seconds of 1970
  // survive.
  for (const std::int64_t time : {1, 3599, 3600, 3601, 100000}) {
    const std::string name = "stray" + std::to_string(time);
    folder.write(name);
    set_modify_time(folder.path(name), time);
  }
  folder.write("fresh");
  set_modify_time(folder.path("fresh"), kNow);
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names(), (Texts{"index.dat", "stray1", "stray3599", "stray3600"}));
}

TEST_F(IndexCleaning, UsesTheRequestedTimeInTheSweepToo) {
  folder.set_index(" ");
  folder.write("stray");
  set_modify_time(folder.path("stray"), 100000);
  set_access_time(folder.path("stray"), 1000);
  EXPECT_EQ(clean(3600, true), 0U);
  EXPECT_TRUE(folder.has("stray"));
  EXPECT_EQ(clean(3600, false), 0U);
  EXPECT_FALSE(folder.has("stray"));
}

TEST_F(IndexCleaning, SweepsNothingUnderTheLimitZero) {
  folder.set_index(" ");
  folder.write("stray");
  recording_sink sink;
  EXPECT_EQ(clean(0), 0U);
  EXPECT_TRUE(folder.has("stray"));
  EXPECT_EQ(sink.count(trace_event::error), 0U);
}

TEST_F(IndexCleaning, SweepsAFileThatOnlyAnotherNameMakesValid) {
  // The file "my.file" makes the line valid, but the file of its entry is "my.file.kdb".
  folder.set_index("a.kdb_0000000001/my.file\n");
  folder.write("my.file");
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
}

TEST_F(IndexCleaning, ReportsAMissingFolderForEachOfItsTwoLooks) {
  recording_sink sink;
  AgeMap ages;
  const std::string missing = folder.path("missing");
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(missing, 3600, ages, false), 0U);
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex::STGIndex() : the folder " + missing + " doesn't exist !!!"),
            2U);
}

TEST_F(IndexCleaning, SweepsAmongNamesThatAreNotAscii) {
  write_aged("00000001.kdc", 10);
  folder.write("stray");
  folder.write("\xC3\xA9.tmp");
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc", "index.dat"}));
}

TEST_F(IndexCleaning, LeavesAnOrphanWhoseTimeIsNotKnown) {
  folder.set_index(" ");
  folder.write("stray");
  set_modify_time(folder.path("stray"), 0);
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_TRUE(folder.has("stray"));
}

TEST_F(IndexCleaning, LeavesAnOrphanOfUnknownTime) {
  // The first calls are for the folder, the index and then the file's time. The last two check,
  // before and inside of the removal, whether it is a folder.
  std::uint64_t last = 0;
  {
    folder.set_index(" ");
    folder.write("stray");
    const auto count =
        os::faults::before(Call::remove_file, [&] { last = os::faults::calls(Call::stat); });
    os::faults::reset();
    clean(3600);
    ASSERT_FALSE(folder.has("stray")) << "otherwise it goes";
  }
  ASSERT_GE(last, 3U);
  folder.write("stray");
  for (std::uint64_t nth = 1; nth + 1 < last; ++nth) {
    const auto fault = os::faults::fail(Call::stat, kRefused, nth, Times::kLasting);
    EXPECT_EQ(clean(3600), 0U);
    EXPECT_GE(fault.hits(), 2U);
    EXPECT_TRUE(folder.has("stray")) << "question " << nth;
  }
}

TEST_F(IndexCleaning, ContinuesAfterAnOrphanThatCannotBeRemoved) {
  folder.set_index(" ");
  folder.write("stray1");
  folder.write("stray2");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names().size(), 2U);
  EXPECT_EQ(sink.count(trace_event::error, "removing orphan file: " + folder.path("stray1")), 1U);
  EXPECT_EQ(sink.count(trace_event::error, "removing orphan file: " + folder.path("stray2")), 1U);
  // The third error is that of the file layer.
  EXPECT_EQ(sink.count(trace_event::error), 3U);
}

TEST_F(IndexCleaning, SweepsNoDocumentWhenAnExistenceTestFailsOnce) {
  for (const os::Status& failure : {kRefused, os::Status(2, os::Failure::kNotFound)}) {
    std::uint64_t probes = 0;
    for (bool was_hit = true; was_hit; ++probes) {
      write_aged("00000001.kdc", 10);
      // Without an orphan there is no second load.
      folder.write("stray");
      folder.set_index("a.kdc_0000000001/00000001\n");
      const auto fault = os::faults::fail(Call::probe_search, failure, probes + 1, Times::kOnce);
      EXPECT_EQ(clean(3600), 0U);
      was_hit = fault.hits() != 0;
      EXPECT_TRUE(folder.has("00000001.kdc")) << "probe " << probes + 1;
      EXPECT_EQ(folder.index(), "a.kdc_0000000001/00000001\n") << "probe " << probes + 1;
    }
    EXPECT_GE(probes, 3U) << "of both loads, and one more that is not made";
  }
}

TEST_F(IndexCleaning, SparesInTheSweepWhatItsOwnLookAccountsFor) {
  write_aged("00000001.kdc", 10);
  folder.set_index("a.kdc_0000000001/00000001\n");
  folder.write("stray");
  // Between the two loads the line is removed, while its file exists.
  const auto hook = os::faults::before(
      Call::open, [&] { folder.set_index(" "); }, 2);
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc", "index.dat"}));
}

TEST_F(IndexCleaning, LeavesOrphansWhenTheIndexCannotBeChecked) {
  write_aged("00000001.kdc", 10);
  folder.write("stray");
  folder.set_index("a.kdc_0000000001/00000001\n");
  recording_sink sink;
  // The first listing is that of the first load, the second one that of the sweep.
  for (const std::uint64_t nth : {1U, 2U}) {
    sink.clear();
    const auto listing = os::faults::fail(Call::list, kRefused, nth);
    const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
    EXPECT_EQ(clean(3600), 0U);
    EXPECT_EQ(listing.hits(), 1U);
    EXPECT_EQ(folder.names(), (Texts{"00000001.kdc", "index.dat", "stray"}));
    EXPECT_EQ(sink.count(trace_event::error,
                         "STGIndex: orphans stay, for the system does not tell which files the "
                         "index names: " +
                             folder.path()),
              1U);
  }
}

TEST_F(IndexCleaning, SaysThatOrphansStayOnlyIfItWouldHaveRemovedOne) {
  const std::string stay =
      "STGIndex: orphans stay, for the system does not tell which files the index names: " +
      folder.path();
  write_aged("00000001.kdc", 10);
  for (const bool has_orphan : {false, true}) {
    if (has_orphan) folder.write("stray");
    for (const unsigned long limit : {0UL, 3600UL, 4000000000UL}) {
      folder.set_index("a.kdc_0000000001/00000001\nx.kdc_0000000001/elsewhere\n");
      folder.write("00000001.kdc");
      recording_sink sink;
      {
        const auto fault = os::faults::fail(Call::probe_search, kRefused, 1, Times::kLasting);
        clean(limit);
      }
      // The sweep compares the time of a file with the limit.
      EXPECT_EQ(sink.count(trace_event::error, stay), has_orphan && limit == 3600 ? 1U : 0U);
      EXPECT_EQ(folder.has("stray"), has_orphan);
    }
  }
}

TEST_F(IndexCleaning, LeavesWhatOneOfTheLoadsCouldNotListForAdoption) {
  STGIndex::setSynchronizeMode(true);
  for (const std::uint64_t listing : {1U, 2U, 3U}) {
    write_aged("stray", 10);
    folder.set_index(" ");
    const auto fault = os::faults::fail(Call::list, kRefused, listing, Times::kOnce);
    EXPECT_EQ(clean(3600), 0U);
    EXPECT_EQ(fault.hits(), 1U);
    EXPECT_TRUE(folder.has("stray")) << "listing " << listing;
  }
}

TEST_F(IndexCleaning, LetsAPhysicalNameAccountForAllNamesThatBeginWithIt) {
  for (const char* const name : {"00000001.kdc", "notes.txt", "plain"}) write_aged(name, 10);
  for (const char* const name : {"00000001.kdcx", "notes.txt.bak", "plain.old", "00000001.kd",
                                 "00000001", "notes.tx", "notes_txt", "plai", "Plain-x"}) {
    folder.write(name);
  }
  make_folder(folder.path("00000001.kdc_2024"));
  make_folder(folder.path("00000002.kdc_2024"));
  folder.set_index(
      "a.kdc_0000000001/00000001\nnotes.txt_0000000000/notes.txt\nplain_0000000001/plain\n");
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.names(),
            (Texts{"00000001.kdc", "00000001.kdc_2024", "00000001.kdcx", "index.dat", "notes.txt",
                   "notes.txt.bak", "plain", "plain.old"}));
}

TEST(IndexSweep, SparesAllWhereAnEntryHasNoFileNameAtAll) {
  // The empty physical name is valid, because it names the folder itself, which is young. It is a
  // prefix of every name.
  const synchronisation off(false);
  const index_folder folder;
  const auto clock = os::faults::set_now(std::time(nullptr) + 100);
  folder.write("stray");
  folder.set_index("x_0000000001/\n");
  AgeMap kept;
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path(), 3600, kept, false), 0U);
  EXPECT_EQ(kept.size(), 1U);
  EXPECT_TRUE(folder.has("stray"));
}

/// The reference model: whether a name is one of the physical names or begins with one.
bool plainly_accounted_for(const std::set<std::string>& physical_names, const std::string& name) {
  for (const std::string& physical : physical_names) {
    if (name.substr(0, physical.size()) == physical) return true;
  }
  return false;
}

TEST_F(IndexCleaning, SweepsByTheSameRuleAsAPlainSearch) {
  std::mt19937 random(20240229);
  const auto random_name = [&random] {
    std::string name;
    const std::size_t length = 1 + random() % 6;
    while (name.size() < length) name += "ab_-"[random() % 4];
    return name;
  };
  std::size_t swept = 0;
  std::size_t spared = 0;
  for (int round = 0; round < 20; ++round) {
    const index_folder crowd;
    std::set<std::string> names;
    std::set<std::string> physical_names;
    std::string text;
    while (names.size() < 24) names.insert(random_name());
    for (const std::string& name : names) {
      crowd.write(name);
      set_modify_time(crowd.path(name), kNow - 10);
      if (random() % 4 != 0) continue;
      physical_names.insert(name);
      text += "k" + std::to_string(physical_names.size()) + "_0000000001/" + name + "\n";
    }
    crowd.set_index(text.empty() ? " " : text);

    Texts expected = {"index.dat"};
    for (const std::string& name : names) {
      const bool stays = plainly_accounted_for(physical_names, name);
      if (stays) expected.push_back(name);
      (stays ? spared : swept) += 1;
    }
    std::sort(expected.begin(), expected.end());
    AgeMap ages;
    EXPECT_EQ(STGIndex::cleanOutOfDateOutput(crowd.path(), 3600, ages, false), 0U);
    EXPECT_EQ(ages.size(), physical_names.size());
    ASSERT_EQ(crowd.names(), expected) << text;
  }
  EXPECT_GT(swept, 50U);
  EXPECT_GT(spared, 50U);
}

TEST_F(IndexCleaning, ReadsTheIndexOnDiskThatStillHasARemovedEntry) {
  // The physical name of the line, which is still on disk, begins the name of the other file.
  write_aged("00000001.kdc", kDay);
  folder.write("00000001.kdc_x");
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600), 1U);
  // The file of the line is missing, so the line is not loaded. The sweep removes the other file
  // too.
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
}

// Folders of sub-parts that are removed with an entry or alone.

using os::faults::Call;
using Peer = stg_index_test_peer;

TEST_F(IndexCleaning, RemovesTheSubPartFoldersOfWhatGoes) {
  write_aged("00000001.kdc", kDay);
  write_aged("00000002.kdc", 10);
  for (const char* const name :
       {"00000001.kdc_", "00000001.kdc_2024\\html\\deep", "00000002.kdc_", "00000002.kdc_2024"}) {
    make_folder(folder.path(name));
  }
  folder.write("00000001.kdc_2024\\html\\deep\\part.htm");
  folder.write("00000002.kdc_2024\\part.htm");
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(folder.names(),
            (Texts{"00000002.kdc", "00000002.kdc_", "00000002.kdc_2024", "index.dat"}));
  EXPECT_TRUE(folder.has("00000002.kdc_2024\\part.htm"));
}

TEST_F(IndexCleaning, RemovesSubPartFoldersUnderTheLimitZeroToo) {
  write_aged("notes.txt", 10);
  make_folder(folder.path("notes.txt_1"));
  make_folder(folder.path("notes.txtx"));
  folder.write("notes.txt_file");
  folder.set_index("notes.txt_0000000000/notes.txt\n");
  STGIndex::cleanAllOutput(folder.path());
  EXPECT_EQ(folder.names(), (Texts{"index.dat", "notes.txt_file", "notes.txtx"}));
}

TEST_F(IndexCleaning, DropsALineThatOnlyARemovedFolderMadeValid) {
  write_aged("00000001.kdc", kDay);
  make_folder(folder.path("00000001.kdc_"));
  folder.set_index("a.kdc_0000000001/00000001\nz_0000000001/00000001.kdc_\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexCleaning, LooksAtTheFolderAsItWasBeforeTheFirstRemoval) {
  write_aged("00000001.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\n");
  const auto hook = os::faults::before(Call::remove_file, [&] {
    make_folder(folder.path("00000001.kdc_late"));
    folder.write("late.tmp");
  });
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(hook.hits(), 1U);
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc_late", "index.dat", "late.tmp"}));
}

class IndexSubPartFolders : public IndexCleaning {};

TEST_F(IndexSubPartFolders, GoByTheirPrefix) {
  for (const char* const name : {"00001.kdc_", "00001.kdc_2024", "00001.kdcx", "00001.kd_",
                                 "00001.kdc", "x00001.kdc_", "00002.kdc_"}) {
    make_folder(folder.path(name));
  }
  folder.write("00001.kdc_x", "a plain file");
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", nullptr);
  EXPECT_EQ(folder.names(), (Texts{"00001.kd_", "00001.kdc", "00001.kdc_x", "00001.kdcx",
                                   "00002.kdc_", "x00001.kdc_"}));
}

TEST_F(IndexSubPartFolders, AreMeasuredInKilobytesBeforeTheyGo) {
  make_folder(folder.path("00001.kdc_\\html\\deep"));
  make_folder(folder.path("00001.kdc_2024"));
  make_folder(folder.path("00001.kdcx"));
  folder.write("00001.kdc_\\a", std::string(1024, 'x'));
  folder.write("00001.kdc_\\html\\b", std::string(3 * 1024 + 1023, 'x'));
  folder.write("00001.kdc_\\html\\deep\\c", std::string(1023, 'x'));
  folder.write("00001.kdc_2024\\d", std::string(10 * 1024, 'x'));
  folder.write("00001.kdcx\\e", std::string(99 * 1024, 'x'));
  folder.write("00001.kdc_file", std::string(99 * 1024, 'x'));
  unsigned long counter = 12345;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  EXPECT_EQ(counter, 14U);
  EXPECT_EQ(folder.names(), (Texts{"00001.kdc_file", "00001.kdcx"}));
}

TEST_F(IndexSubPartFolders, SetTheCounterToZeroIfThereAreNone) {
  unsigned long counter = 12345;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  EXPECT_EQ(counter, 0U);
  counter = 12345;
  STGIndex::cleanOutputDirectories(folder.path("missing"), "00001.kdc", &counter);
  EXPECT_EQ(counter, 0U);
}

TEST_F(IndexSubPartFolders, NeedNoIndexAndCreateNone) {
  make_folder(folder.path("00001.kdc_"));
  os::faults::reset();
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", nullptr);
  EXPECT_EQ(os::faults::calls(Call::open), 0U);
  EXPECT_EQ(folder.names(), Texts{});
}

TEST_F(IndexSubPartFolders, OfTheEmptyNameBeginWithAnUnderscore) {
  make_folder(folder.path("_"));
  make_folder(folder.path("_x"));
  make_folder(folder.path("x_"));
  STGIndex::cleanOutputDirectories(folder.path(), "", nullptr);
  EXPECT_EQ(folder.names(), (Texts{"x_"}));
}

TEST_F(IndexSubPartFolders, AreSaidToStayWhenTheyDo) {
  make_folder(folder.path("00001.kdc_"));
  make_folder(folder.path("00001.kdc_2024"));
  recording_sink sink;
  const auto fault = os::faults::fail(Call::remove_directory, kRefused);
  unsigned long counter = 0;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  ASSERT_EQ(folder.names().size(), 1U);
  EXPECT_EQ(index_traces(sink), (Texts{"Error: STGIndex: removal of output directory failed: " +
                                       folder.path(folder.names().front())}));
}

TEST_F(IndexSubPartFolders, AreTakenFromAGivenListing) {
  make_folder(folder.path("a_1"));
  make_folder(folder.path("a_2"));
  folder.write("a_3");
  const std::vector<vu_utf8string> names = {vu_utf8string("a_1"), vu_utf8string("a_3"),
                                            vu_utf8string("a_gone"), vu_utf8string("b_1")};
  Peer::cleanOutputDirectories(vu_utf8string(folder.path() + "\\"), names, "a", nullptr);
  EXPECT_EQ(folder.names(), (Texts{"a_2", "a_3"}));
}

}  // namespace
