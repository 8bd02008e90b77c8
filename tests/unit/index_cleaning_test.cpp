#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/recording_sink.h"
#include "tests/unit/index_fixture.h"

// Cleaning by age: which entries are removed. The sweep and the folders of sub-parts:
// index_sweep_test.cpp.

namespace {

using os::faults::Call;
using os::faults::Times;
using AgeMap = STGIndex::AgeMap;
using vu_host::trace_event;

TEST_F(IndexCleaning, RemovesEveryEntryUnderTheLimitZero) {
  write_aged("00000001.kdc", 10);
  write_aged("00000002.kdc", -1000);
  write_aged("notes.txt", kDay);
  make_folder(folder.path("00000001.kdc_"));
  make_folder(folder.path("stray"));
  folder.write("stray.tmp");
  folder.write("index", "00000002");
  folder.set_index(
      "a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\nnotes.txt_0000000000/notes.txt\n");
  EXPECT_EQ(clean(0), 3U);
  EXPECT_TRUE(kept.empty());
  // Without a limit there is no sweep: the orphans stay.
  EXPECT_EQ(folder.names(), (Texts{"index", "index.dat", "stray", "stray.tmp"}));
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexCleaning, KeepsTheEntryOfAFileThatIsMadeAgainBeforeTheSave) {
  // Another process with an older copy of the index creates the entry again. Or a file with the
  // bare physical name appears.
  for (const char* const again : {"00000003.kdc", "00000003"}) {
    std::string text;
    for (int i = 1; i <= 9; ++i) {
      const std::string stored = "0000000" + std::to_string(i);
      folder.write(stored + ".kdc");
      text += "a" + std::to_string(i) + ".kdc_0000000001/" + stored + "\n";
    }
    folder.set_index(text);
    {
      // The first open is that of the load.
      const auto hook = os::faults::before(
          Call::open, [&] { folder.write(again); }, 2);
      EXPECT_EQ(clean(0), 9U);
    }
    EXPECT_EQ(folder.index(), "a3.kdc_0000000001/00000003\n");
    EXPECT_EQ(folder.names(), (Texts{again, "index.dat"}));
    folder.erase(again);
  }
}

TEST_F(IndexCleaning, KeepsSuchAnEntryAlsoWithoutAListingAndByItsOtherFile) {
  for (const bool is_listed : {true, false}) {
    // Both entries are valid by the first file. The second file makes one of them valid again.
    std::string text = "k.kdc_0000000001/00000009\nk_0000000001/00000009\n";
    folder.write("00000009");
    for (int i = 1; i <= 5; ++i) {
      const std::string stored = "0000000" + std::to_string(i);
      folder.write(stored + ".kdc");
      text += "z" + std::to_string(i) + ".kdc_0000000001/" + stored + "\n";
    }
    folder.set_index(text);
    {
      const auto hook = os::faults::before(
          Call::open,
          [&] {
            folder.write("00000009.kdc");
            folder.write("00000001.kdc");
          },
          2);
      // The first listing is that of the load.
      const auto fault = os::faults::fail(Call::list, kRefused, is_listed ? 3 : 2);
      EXPECT_EQ(clean(0), 7U);
      EXPECT_EQ(fault.hits(), is_listed ? 0U : 1U);
    }
    EXPECT_EQ(folder.index(), "k.kdc_0000000001/00000009\nz1.kdc_0000000001/00000001\n");
    folder.erase("00000009.kdc");
  }
}

TEST_F(IndexCleaning, RemovesWhatIsOlderThanTheLimitAndReportsTheRest) {
  write_aged("00000001.kdc", 10);
  write_aged("00000002.kdc", 2 * kDay);
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(kept, (AgeMap{{10, entry("a.kdc_0000000001")}}));
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc", "index.dat"}));
  EXPECT_EQ(folder.index(), "a.kdc_0000000001/00000001\n");
}

TEST_F(IndexCleaning, KeepsWhatIsExactlyAsOldAsTheLimit) {
  write_aged("00000001.kdc", 3600);
  write_aged("00000002.kdc", 3601);
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(kept, (AgeMap{{3600, entry("a.kdc_0000000001")}}));
}

TEST_F(IndexCleaning, FindsTheAgeOfANameThatEndsInASeparator) {
  write_aged("a.kdb", 10);
  folder.set_index("a.kdb_0000000001/a.kdb/\n");
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(kept, (AgeMap{{10, entry("a.kdb_0000000001")}}));
}

TEST_F(IndexCleaning, ReportsTheOldestFirst) {
  write_aged("00000001.kdc", 10);
  write_aged("00000002.kdc", 30);
  write_aged("00000003.kdc", 20);
  write_aged("00000004.kdc", 20);
  folder.set_index(
      "a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n"
      "c.kdc_0000000001/00000003\nd.kdc_0000000001/00000004\n");
  EXPECT_EQ(clean(3600), 0U);
  std::vector<std::pair<unsigned long, std::string>> order(kept.begin(), kept.end());
  EXPECT_EQ(order,
            (std::vector<std::pair<unsigned long, std::string>>{{30, entry("b.kdc_0000000001")},
                                                                {20, entry("c.kdc_0000000001")},
                                                                {20, entry("d.kdc_0000000001")},
                                                                {10, entry("a.kdc_0000000001")}}));
}

TEST_F(IndexCleaning, AddsToWhatItIsGiven) {
  write_aged("00000001.kdc", 10);
  folder.set_index("a.kdc_0000000001/00000001\n");
  kept = {{10, "of another folder"}, {99, "older"}};
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(kept,
            (AgeMap{{99, "older"}, {10, "of another folder"}, {10, entry("a.kdc_0000000001")}}));
  EXPECT_EQ(clean(0), 1U);
  EXPECT_EQ(kept.size(), 3U);
}

TEST_F(IndexCleaning, CountsEveryVersionByItself) {
  write_aged("00000001.kdc", 2 * kDay);
  write_aged("00000002.kdc", 10);
  write_aged("00000003.kdc", 3 * kDay);
  folder.set_index(
      "a.kdc_0000000001/00000001\na.kdc_0000000002/00000002\na.kdc_0000000003/00000003\n");
  EXPECT_EQ(clean(3600), 2U);
  EXPECT_EQ(kept, (AgeMap{{10, entry("a.kdc_0000000002")}}));
  EXPECT_EQ(folder.index(), "a.kdc_0000000002/00000002\n");
}

TEST_F(IndexCleaning, UsesTheRequestedTime) {
  folder.write("00000001.kdc");
  set_modify_time(folder.path("00000001.kdc"), kNow - 500);
  set_access_time(folder.path("00000001.kdc"), kNow - 20);
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600, false), 0U);
  EXPECT_EQ(kept, (AgeMap{{500, entry("a.kdc_0000000001")}}));
  kept.clear();
  EXPECT_EQ(clean(3600, true), 0U);
  EXPECT_EQ(kept, (AgeMap{{20, entry("a.kdc_0000000001")}}));
  EXPECT_EQ(clean(100, true), 0U);
  EXPECT_EQ(clean(100, false), 1U);
}

TEST_F(IndexCleaning, TakesAFileOfTheFutureForNew) {
  // The clean reads the clock and then waits for the lock. A file that is written during the wait
  // is younger.
  write_aged("00000001.kdc", -1);
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(1), 0U);
  EXPECT_EQ(kept, (AgeMap{{0U, entry("a.kdc_0000000001")}}));
  EXPECT_TRUE(folder.has("00000001.kdc"));
}

TEST_F(IndexCleaning, KeepsAFileOfUnknownAge) {
  write_aged("00000001.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\n");
  // The first stat call is for the folder, the second one for the file.
  for (const Times times : {Times::kOnce, Times::kLasting}) {
    kept.clear();
    const auto fault = os::faults::fail(Call::stat, kRefused, 2, times);
    // If the second stat succeeds, the age is known.
    EXPECT_EQ(clean(2 * kDay), 0U);
    EXPECT_GE(fault.hits(), 1U);
    EXPECT_EQ(kept.size(), 1U);
    EXPECT_EQ(kept.begin()->first == 0, times == Times::kLasting);
    EXPECT_TRUE(folder.has("00000001.kdc"));
  }
  const auto fault = os::faults::fail(Call::stat, kRefused, 2, Times::kLasting);
  EXPECT_EQ(clean(0), 1U) << "without a limit";
}

#if !defined(_WIN32)
TEST_F(IndexCleaning, TakesATimeBefore1970ForVeryOld) {
  folder.write("00000001.kdc");
  set_modify_time(folder.path("00000001.kdc"), -100000);
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_FALSE(folder.has("00000001.kdc"));
}
#endif

TEST_F(IndexCleaning, KeepsAnUnknownEntry) {
  write_aged("00000001.kdc", kDay);
  folder.write("stray");
  const std::string text = "a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n";
  folder.set_index(text);
  // The file of the line is missing. The first call is that for the index.
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 2, Times::kOnce);
  recording_sink sink;
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(kept, (AgeMap{{0U, entry("b.kdc_0000000001")}}));
  EXPECT_FALSE(folder.has("00000001.kdc"));
  EXPECT_TRUE(folder.has("stray"));
  EXPECT_EQ(folder.index(), "b.kdc_0000000001/00000002\n");
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: a line stays, for the system does not tell whether its file is "
                       "there: " +
                           folder.path("index.dat") + ": b.kdc_0000000001/00000002"),
            1U);
}

TEST_F(IndexCleaning, DropsALineWhoseFileTheSweepHasTaken) {
  // The sweep compares whole names. The first line's file would be named 00000001.kdc.
  folder.write("00000001");
  write_aged("00000002.kdc", kDay);
  folder.set_index("a.kdc_4294967295/00000001\nb.kdc_0000000001/00000002\n");
  clean(3600);
  EXPECT_FALSE(folder.has("00000001"));
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexCleaning, KeepsWhatIsWrittenWhileItRemovesOthers) {
  write_aged("00000001.kdc", kDay);
  write_aged("00000002.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  const auto hook =
      os::faults::before(Call::remove_file, [&] { folder.write("00000002.kdc", "written anew"); });
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(folder.read("00000002.kdc"), "written anew");
  EXPECT_EQ(folder.index(), "b.kdc_0000000001/00000002\n");
  ASSERT_EQ(kept.size(), 1U);
  EXPECT_EQ(kept.begin()->second, entry("b.kdc_0000000001"));
}

TEST_F(IndexCleaning, DoesNotCountALineThatStaysWhereEverythingIsToGo) {
  write_aged("00000001.kdc", kDay);
  make_folder(folder.path("00000002.kdc_parts"));
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  const auto fault = os::faults::fail(Call::probe_search, kRefused, 2, Times::kOnce);
  EXPECT_EQ(clean(0), 1U);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_EQ(kept, AgeMap());
  EXPECT_EQ(folder.index(), "b.kdc_0000000001/00000002\n");
  EXPECT_TRUE(folder.has("00000002.kdc_parts")) << "the parts of a document that stays";
}

/// The age that the clean reports for a version that it keeps.
unsigned long age_of(std::int64_t time, std::int64_t now) {
  const synchronisation off(false);
  const index_folder folder;
  const auto clock = os::faults::set_now(now);
  folder.write("00000001.kdc");
  set_modify_time(folder.path("00000001.kdc"), time);
  EXPECT_EQ(get_modify_time(folder.path("00000001.kdc")), time);
  folder.set_index("a.kdc_0000000001/00000001\n");
  AgeMap kept;
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path(), 3600, kept, false), 0U);
  EXPECT_EQ(kept.size(), 1U);
  return kept.empty() ? 0 : kept.begin()->first;
}

TEST(IndexAges, AreCountedInTheLow32BitsOfBothTimes) {
  constexpr std::int64_t kRound = std::int64_t{1} << 32U;
  EXPECT_EQ(age_of(100, 110), 10U);
  EXPECT_EQ(age_of(100, kRound + 110), 10U);
  EXPECT_EQ(age_of(100, 7 * kRound + 110), 10U);
#if !defined(_WIN32)
  // Wine does not keep such file times.
  EXPECT_EQ(age_of(kRound - 5, kRound + 5), 10U);
  EXPECT_EQ(age_of(kRound + 100, kRound + 110), 10U);
#endif
}

#if !defined(_WIN32)
// On Windows the file times come from the same clock as the current time.
TEST(IndexAges, AreTakenByAClockThatDoesNotLagBehindTheTimesOfFiles) {
  // Files get the exact time of the system. A clock that advances in ticks can still return the old
  // second just after a new one begins. A file written then would count as the oldest of all.
  using std::chrono::milliseconds;
  using std::chrono::system_clock;
  std::int64_t most = 0;
  for (int turn = 0; turn < 3; ++turn) {
    const auto soon = system_clock::now() + milliseconds(20);
    const auto second = std::chrono::ceil<std::chrono::seconds>(soon);
    std::this_thread::sleep_until(second - milliseconds(5));
    while (system_clock::now() < second + milliseconds(15)) {
      const std::int64_t file_time = system_clock::to_time_t(system_clock::now());
      most = std::max(most, file_time - os::now());
    }
  }
  EXPECT_EQ(most, 0) << "seconds behind";
}
#endif

TEST_F(IndexCleaning, TakesAMissingFileForVeryOld) {
  // The file that makes the line valid is not the file of the entry.
  folder.write("00000001");
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(1000000), 1U);
  EXPECT_TRUE(kept.empty());
  // The other file is now an orphan, and the sweep removes it. The merge does not bring the line
  // back.
  EXPECT_EQ(folder.names(), (Texts{"index.dat"}));
  EXPECT_EQ(folder.index(), " ");
}

TEST_F(IndexCleaning, ReportsAMissingFilesAgeUnderALargeLimit) {
  folder.write("00000001");
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(4294967295U), 0U);
  EXPECT_EQ(kept, (AgeMap{{kNow, entry("a.kdc_0000000001")}}));
}

TEST_F(IndexCleaning, NeverTakesAHugeLimitForZero) {
  write_aged("00000001.kdc", kDay);
  folder.write("stray.tmp");
  folder.set_index("a.kdc_0000000001/00000001\n");
  // Where `long` is wider than 32 bits, the second limit is clamped. Its low 32 bits alone would be
  // 0, which means no limit.
  EXPECT_EQ(clean(std::numeric_limits<unsigned long>::max()), 0U);
  EXPECT_EQ(clean(static_cast<unsigned long>(std::uint64_t{1} << 32U)),
            sizeof(unsigned long) > 4 ? 0U : 1U);
  EXPECT_TRUE(folder.has("stray.tmp"));
}

TEST_F(IndexCleaning, FindsFilesByItsOwnRuleForNames) {
  write_aged("notes.txt", 10);
  write_aged("00000002", 20);
  write_aged("00000003.kdc", 30);
  write_aged("00000004.x", 40);
  folder.set_index(
      "notes.txt_0000000000/notes.txt\n"
      "plain_0000000001/00000002\n"
      "a.kdc_0000000001/00000003\n"
      // A physical name with a dot is a whole file name, although the entry's file would be
      // "00000004.x.kdc".
      "b.kdc_0000000001/00000004.x\n");
  EXPECT_EQ(clean(35), 1U);
  EXPECT_EQ(kept, (AgeMap{{10, entry("notes.txt_0000000000")},
                          {20, entry("plain_0000000001")},
                          {30, entry("a.kdc_0000000001")}}));
}

TEST_F(IndexCleaning, CountsAnEntryWithAnInvalidTimestampButCannotRemoveIt) {
  write_aged("00000001", kDay);
  folder.set_index("x_abcdefghij/00000001\n");
  EXPECT_EQ(clean(0), 1U);
  EXPECT_EQ(folder.index(), "x_abcdefghij/00000001\n");
  EXPECT_TRUE(folder.has("00000001"));
}

TEST_F(IndexCleaning, BringsAnEntryBackWhoseFileCannotBeRemoved) {
  write_aged("00000001.kdc", kDay);
  write_aged("00000002.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  recording_sink sink;
  const auto fault = os::faults::fail(Call::remove_file, kRefused);
  EXPECT_EQ(clean(3600), 2U);
  EXPECT_EQ(sink.count(trace_event::error,
                       "STGIndex: removal of file failed: " + folder.path("00000001.kdc")),
            1U);
  EXPECT_EQ(folder.index(), "a.kdc_0000000001/00000001\n");
}

TEST_F(IndexCleaning, WritesNothingWhereNothingGoes) {
  write_aged("00000001.kdc", 10);
  folder.set_index("a.kdc_0000000001/00000001\n");
  set_modify_time(folder.path("index.dat"), 1000);
  const auto before = folder.state();
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(folder.state(), before);
}

TEST_F(IndexCleaning, FindsNothingInAFolderThatIsMissing) {
  recording_sink sink;
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path("missing"), 3600, kept, false), 0U);
  EXPECT_TRUE(kept.empty());
  EXPECT_FALSE(folder.has("missing"));
  EXPECT_GE(sink.count(trace_event::error, "STGIndex::STGIndex() : the folder " +
                                               folder.path("missing") + " doesn't exist !!!"),
            1U);
}

TEST_F(IndexCleaning, TracesTheFolderAndEveryEntryItRemoves) {
  write_aged("00000001.kdc", kDay);
  write_aged("notes.txt", kDay);
  folder.set_index("a.kdc_0000000042/00000001\nnotes.txt_0000000000/notes.txt\n");
  recording_sink sink;
  EXPECT_EQ(clean(3600), 2U);
  Texts mine;
  for (const std::string& text : index_traces(sink)) {
    if (text.starts_with("XS: ")) mine.push_back(text);
  }
  EXPECT_EQ(mine, (Texts{"XS: Cleaning folder: " + folder.path(),
                         "XS:           Removing entry=a.kdc ts=42 nameOnFS=00000001.kdc",
                         "XS:           Removing entry=notes.txt ts=0 nameOnFS=notes.txt"}));
}

TEST_F(IndexCleaning, FinishesWithAYoungUnknownFileBesideAnIndex) {
  // The sweep loads the index, which adopts and saves. It needs every lock for that.
  const synchronisation on(true);
  write_aged("00000001.kdc", 10);
  write_aged("young.txt", 20);
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600), 0U);
  EXPECT_EQ(kept, (AgeMap{{10, entry("a.kdc_0000000001")}, {20, entry("young.txt_0000000000")}}));
  EXPECT_EQ(folder.index(), "a.kdc_0000000001/00000001\nyoung.txt_0000000000/young.txt\n");
  EXPECT_TRUE(folder.has("young.txt"));
}

TEST_F(IndexCleaning, FinishesWithAnUnknownFileAndNoIndex) {
  const synchronisation on(true);
  write_aged("young.txt", 20);
  write_aged("old.txt", kDay);
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(kept, (AgeMap{{20, entry("young.txt_0000000000")}}));
  EXPECT_EQ(folder.index(), "young.txt_0000000000/young.txt\n");
  EXPECT_FALSE(folder.has("old.txt"));
}

TEST_F(IndexCleaning, RemovesAnAdoptedFileByItsAge) {
  const synchronisation on(true);
  write_aged("00000001.kdc", 10);
  write_aged("old.txt", kDay);
  make_folder(folder.path("old.txt_"));
  folder.set_index("a.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc", "index.dat"}));
  EXPECT_EQ(folder.index(), "a.kdc_0000000001/00000001\n");
}

TEST_F(IndexCleaning, RaisesWhereTheIndexCannotBeLoaded) {
  write_aged("00000001.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\n");
  for (const Call call : {Call::open, Call::read}) {
    const auto fault = os::faults::fail(call, kRefused);
    EXPECT_THROW(clean(3600), vu_file_except);
  }
  EXPECT_TRUE(folder.has("00000001.kdc"));
}

TEST_F(IndexCleaning, StillWritesItsRemovalsWhenTheSweepRaises) {
  write_aged("00000001.kdc", kDay);
  write_aged("00000002.kdc", 10);
  folder.write("stray");
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  // The sweep reads the index again.
  const auto fault = os::faults::fail(Call::read, kRefused, 2);
  EXPECT_THROW(clean(3600), vu_file_except);
  EXPECT_EQ(folder.index(), "b.kdc_0000000001/00000002\n");
  EXPECT_TRUE(folder.has("stray"));
  EXPECT_EQ(kept.size(), 1U);
}

TEST_F(IndexCleaning, RaisesWhatTheRewriteRaises) {
  write_aged("00000001.kdc", kDay);
  folder.set_index("a.kdc_0000000001/00000001\n");
  // The first read is that of the instance.
  const auto fault = os::faults::fail(Call::read, kRefused, 2);
  EXPECT_THROW(clean(3600), vu_file_except);
  EXPECT_EQ(fault.hits(), 1U);
  EXPECT_FALSE(folder.has("00000001.kdc"));
}

#if !defined(_WIN32)
// Narrow names on Windows are in a code page, which need not be UTF-8.
TEST_F(IndexCleaning, TakesTheBytesOfTheFolderForUtf8) {
  make_folder(folder.path("ordner-\xC3\xA4"));
  write_aged("ordner-\xC3\xA4\\00000001.kdc", kDay);
  write_aged("ordner-\xC3\xA4\\\xC3\xB6.kdc", kDay);
  folder.write("ordner-\xC3\xA4\\index.dat",
               "a.kdc_0000000001/00000001\n\xC3\xB6.kdc_0000000000/\xC3\xB6.kdc\n");
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path("ordner-\xC3\xA4"), 3600, kept, false), 2U);
  EXPECT_EQ(list_folder(folder.path("ordner-\xC3\xA4")), (Texts{"index.dat"}));
}

TEST_F(IndexCleaning, RaisesForAFolderThatIsNoUtf8) {
  make_folder(folder.path("\xE4"));
  folder.write("\xE4\\00000001.kdc");
  folder.write("\xE4\\index.dat", "a.kdc_0000000001/00000001\n");
  EXPECT_THROW(STGIndex::cleanOutOfDateOutput(folder.path("\xE4"), 3600, kept, false),
               vu_i18n_except);
  EXPECT_EQ(list_folder(folder.path("\xE4")), (Texts{"00000001.kdc", "index.dat"}));
}

TEST_F(IndexCleaning, LeavesNamesThatAreNoUtf8AndGoesOn) {
  for (const char* const name : {"\xE4.kdc", "\xE4.tmp", "00000001.kdc", "zz.tmp"}) {
    write_aged(name, kDay);
  }
  make_folder(folder.path("\xE4"));
  // The logical name need not be UTF-8, only that of the file.
  folder.set_index("\xE4.kdc_0000000000/\xE4.kdc\n\xE4.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(3600), 1U);
  EXPECT_EQ(kept, (STGIndex::AgeMap{{0, entry("\xE4.kdc_0000000000")}}));
  EXPECT_EQ(folder.index(), "\xE4.kdc_0000000000/\xE4.kdc\n");
  EXPECT_EQ(folder.names(), (Texts{"index.dat", "\xE4", "\xE4.kdc", "\xE4.tmp"}));
}

TEST_F(IndexCleaning, RemovesVersionsWhoseNamesAreNoUtf8UnderTheLimitZero) {
  write_aged("\xE4.kdc", kDay);
  make_folder(folder.path("\xE4.kdc_1"));
  make_folder(folder.path("00000001.kdc_\xE4"));
  write_aged("00000001.kdc", kDay);
  folder.set_index("\xE4.kdc_0000000000/\xE4.kdc\na.kdc_0000000001/00000001\n");
  EXPECT_EQ(clean(0), 2U);
  EXPECT_EQ(folder.names(), (Texts{"00000001.kdc_\xE4", "index.dat", "\xE4.kdc_1"}));
}
#endif

/// A file that only a removed entry hid is adopted by the same clean.
TEST_F(IndexCleaning, AdoptsAFileThatARemovedEntryHid) {
  const std::string bak = "notes.txt.bak_0000000000/notes.txt.bak\n";
  struct Case {
    std::uint32_t limit;
    Texts old;
    Texts young;
    std::string index;
    std::string adopted;
  };
  const Case cases[] = {
      // By the stem, which is its physical name.
      {0,
       {"00000001"},
       {"00000001.kdc"},
       "readme_0000000000/00000001\n",
       "00000001.kdc_0000000000/00000001.kdc\n"},
      {3600, {"notes.txt"}, {"notes.txt.bak"}, "notes.txt_0000000000/notes.txt\n", bak},
      // "notes.txt.bak" begins with the name of an entry that stays, but has another stem.
      {3600,
       {"notes.txt"},
       {"notes.txt.bak", "n"},
       "n_0000000000/n\nnotes.txt_0000000000/notes.txt\n",
       "n_0000000000/n\n" + bak},
      // It is also the file of an entry that stays.
      {3600,
       {"foo"},
       {"foo.txt"},
       "readme_0000000005/foo.txt\nx_0000000005/foo\n",
       "foo.txt_0000000000/foo.txt\nreadme_0000000005/foo.txt\n"},
  };
  for (const auto& [limit, old, young, index, adopted] : cases) {
    for (const bool synchronizes : {true, false}) {
      SCOPED_TRACE(index + (synchronizes ? "on" : "off"));
      const synchronisation state(synchronizes);
      for (const std::string& name : old) write_aged(name, kDay);
      for (const std::string& name : young) write_aged(name, 10);
      folder.set_index(index);
      EXPECT_EQ(clean(limit), 1U);
      EXPECT_EQ(folder.index() == adopted, synchronizes) << folder.index();
      for (const std::string& name : folder.names())
        EXPECT_TRUE(os::remove_file(folder.path(name)).ok());
    }
  }
}

TEST_F(IndexCleaning, OfAllOutputEmptiesTheIndexAndLeavesTheRest) {
  write_aged("00000001.kdc", 10);
  write_aged("00000002.kdc", kDay);
  make_folder(folder.path("00000001.kdc_\\html"));
  make_folder(folder.path("stray"));
  folder.write("stray.tmp");
  folder.write("index", "00000002");
  folder.set_index("a.kdc_0000000001/00000001\nb.kdc_0000000001/00000002\n");
  STGIndex::cleanAllOutput(folder.path());
  EXPECT_EQ(folder.names(), (Texts{"index", "index.dat", "stray", "stray.tmp"}));
  EXPECT_EQ(folder.index(), " ");
  EXPECT_EQ(folder.read("index"), "00000002");
}

TEST_F(IndexCleaning, OfAllOutputRaisesWhereTheIndexCannotBeLoaded) {
  folder.set_index("a.kdc_0000000001/00000001\n");
  const auto fault = os::faults::fail(Call::open, kRefused);
  EXPECT_THROW(STGIndex::cleanAllOutput(folder.path()), vu_file_except);
}

}  // namespace
