// The index as a client uses it: versions of names in a folder, and queries.

#include <gtest/gtest.h>

#include <ctime>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "stg_index.h"
#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

namespace {

using NameMap = STGIndex::NameMap;
using Names = std::vector<std::string>;

/// A folder, and the synchronisation switch; off again after the test, as the storage of this
/// program needs it.
class IndexClient : public testing::Test {
 protected:
  IndexClient() { STGIndex::setSynchronizeMode(false); }
  ~IndexClient() override { STGIndex::setSynchronizeMode(false); }

  std::string path(const std::string& name) const { return folder.path(name); }
  std::string index() const { return read_file(path("index.dat")); }
  std::string create(const std::string& logical, long ts) const {
    return STGIndex::create(folder.path(), logical, ts);
  }
  bool exists(const std::string& logical, long ts) {
    physical = "untouched";
    return STGIndex::exists(folder.path(), logical, ts, physical);
  }

  const scratch_folder folder;
  std::string physical;
  NameMap out;
};

TEST_F(IndexClient, MakesAVersionOnce) {
  EXPECT_EQ(create("a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(create("a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(read_file(path("index")), "00000001");
  EXPECT_EQ(index(), "a.kdb_0000000005/00000001\n");
  EXPECT_EQ(read_file(path("00000001.kdb")), "");
}

TEST_F(IndexClient, KeepsVersionsSideBySide) {
  EXPECT_EQ(create("a.kdb", 5), "00000001.kdb");
  EXPECT_EQ(create("a.kdb", 6), "00000002.kdb");
  EXPECT_EQ(create("a long and awkward name: (copy) of it?.kdc", 6), "00000003.kdc");
  EXPECT_TRUE(exists("a.kdb", 6));
  EXPECT_EQ(physical, "00000002.kdb");
  EXPECT_FALSE(exists("a.kdb", 7));
  EXPECT_EQ(physical, "untouched");
}

TEST_F(IndexClient, FindsAFileUnderItsOwnNameWhateverTheTimestamp) {
  write_file(path("a.kdb"), "");
  EXPECT_TRUE(exists("a.kdb", 5));
  EXPECT_EQ(physical, "a.kdb");
  EXPECT_TRUE(exists("a.kdb", 0));
}

TEST_F(IndexClient, FindsNoVersionWhoseFileHasGone) {
  create("a.kdb", 5);
  std::filesystem::remove(native(path("00000001.kdb")));
  EXPECT_FALSE(exists("a.kdb", 5));
  EXPECT_EQ(physical, "untouched");
}

TEST_F(IndexClient, MakesAnUnversionedFileOnDemand) {
  EXPECT_EQ(STGIndex::getPhysicalName(folder.path(), "read.txt"), "00000001.txt");
  EXPECT_EQ(STGIndex::getPhysicalName(folder.path(), "read.txt"), "00000001.txt");
  EXPECT_EQ(STGIndex::getPhysicalPath(folder.path(), "read.txt"), path("00000001.txt"));
  EXPECT_EQ(index(), "read.txt_0000000000/00000001\n");
  EXPECT_EQ(read_file(path("00000001.txt")), "");
}

TEST_F(IndexClient, RemovesAVersionWithItsFile) {
  create("a.kdb", 5);
  create("a.kdb", 6);
  STGIndex::remove(folder.path(), "a.kdb", 5);
  STGIndex::remove(folder.path(), "a.kdb", 99);
  EXPECT_EQ(index(), "a.kdb_0000000006/00000002\n");
  EXPECT_EQ(list_folder(folder.path()), (Names{"00000002.kdb", "index", "index.dat"}));
}

TEST_F(IndexClient, RenamesAVersionOntoAnother) {
  write_file(path(create("a.kdb", 1)), "bytes of a");
  write_file(path(create("b.kdb", 2)), "bytes of b");
  STGIndex::rename(folder.path(), "a.kdb", 1, "b.kdb", 2);
  EXPECT_EQ(index(), "b.kdb_0000000002/00000003\n");
  EXPECT_TRUE(exists("b.kdb", 2));
  EXPECT_EQ(read_file(path(physical)), "bytes of a");
  EXPECT_FALSE(exists("a.kdb", 1));
}

TEST_F(IndexClient, RenamesNothingOntoItself) {
  STGIndex::rename(folder.path(), "a", 1, "a", 1);
  EXPECT_EQ(list_folder(folder.path()), Names{});
}

TEST_F(IndexClient, LosesNoVersionOfSeveralThreads) {
  const auto create_some = [this](const std::string& name) {
    for (long ts = 1; ts <= 10; ++ts) STGIndex::create(folder.path(), name, ts);
  };
  std::thread first(create_some, "first.kdb");
  std::thread second(create_some, "second.kdb");
  std::thread third(create_some, "third.kdb");
  first.join();
  second.join();
  third.join();
  STGIndex::plValues(folder.path(), out);
  EXPECT_EQ(out.size(), 30U);
  for (const std::string name : {"first.kdb", "second.kdb", "third.kdb"}) {
    for (long ts = 1; ts <= 10; ++ts) EXPECT_TRUE(exists(name, ts)) << name << ts;
  }
}

TEST_F(IndexClient, KeepsEveryVersionsBytesThroughManyChanges) {
  const Names logicals = {"a.kdb", "b.kdc", "c", "a longer name.kdb"};
  constexpr long kStamps = 3;
  std::mt19937 random(271828);
  const auto any_logical = [&] { return logicals[random() % logicals.size()]; };
  const auto any_stamp = [&] { return static_cast<long>(random() % kStamps); };
  for (const bool on : {false, true}) {
    STGIndex::setSynchronizeMode(on);
    const scratch_folder fresh;
    std::map<std::pair<std::string, long>, std::string> model;
    for (int step = 0; step < 120; ++step) {
      const std::pair<std::string, long> one(any_logical(), any_stamp());
      const std::pair<std::string, long> other(any_logical(), any_stamp());
      switch (random() % 4) {
        case 0:
        case 1: {
          const std::string name = STGIndex::create(fresh.path(), one.first, one.second);
          model[one] = "bytes of step " + std::to_string(step);
          write_file(fresh.path(name), model[one]);
          break;
        }
        case 2:
          STGIndex::remove(fresh.path(), one.first, one.second);
          model.erase(one);
          break;
        default:
          STGIndex::rename(fresh.path(), one.first, one.second, other.first, other.second);
          if (one == other || !model.contains(one)) break;
          model[other] = model[one];
          model.erase(one);
      }
      for (const std::string& logical : logicals) {
        for (long ts = 0; ts < kStamps; ++ts) {
          const auto expected = model.find({logical, ts});
          const bool found = STGIndex::exists(fresh.path(), logical, ts, physical);
          ASSERT_EQ(found, expected != model.end()) << step << ' ' << logical << ' ' << ts;
          if (found) {
            ASSERT_EQ(read_file(fresh.path(physical)), expected->second) << step;
          }
        }
      }
    }
    // One file for each version, the index and the counter.
    EXPECT_EQ(list_folder(fresh.path()).size(), model.size() + 2);
    STGIndex::plValues(fresh.path(), out);
    EXPECT_EQ(out.size(), model.size());
  }
}

TEST_F(IndexClient, FindsTheLatestVersion) {
  create("x.kdb", 10);
  create("x.kdb", 30);
  create("y.kdb", 50);
  create("z", 0);
  long ts = 77;
  EXPECT_TRUE(STGIndex::lastVersion(folder.path(), "x.kdb", ts));
  EXPECT_EQ(ts, 30);
  EXPECT_TRUE(STGIndex::lastVersion(folder.path(), "y.kdb", ts));
  EXPECT_EQ(ts, 50);
  EXPECT_TRUE(STGIndex::lastVersion(folder.path(), "z", ts));
  EXPECT_EQ(ts, 0);
  ts = 77;
  EXPECT_FALSE(STGIndex::lastVersion(folder.path(), "z.kdb", ts));
  EXPECT_EQ(ts, 0);
  EXPECT_FALSE(STGIndex::lastVersion(folder.path(), "X.kdb", ts));
}

TEST_F(IndexClient, TakesNoTimestampBelowZeroForTheLatest) {
  write_file(path("00000001"), "");
  write_file(path("index.dat"), "x_      -005/00000001\n");
  long ts = 77;
  EXPECT_TRUE(STGIndex::lastVersion(folder.path(), "x", ts));
  EXPECT_EQ(ts, 0);
}

TEST_F(IndexClient, FindsTheLatestVersionAlsoWhereTheKeysAreInAnotherOrder) {
  write_file(path("00000001"), "");
  write_file(path("index.dat"), "x_         9/00000001\nx_0000000005/00000001\n");
  long ts = 77;
  EXPECT_TRUE(STGIndex::lastVersion(folder.path(), "x", ts));
  EXPECT_EQ(ts, 9);
}

TEST_F(IndexClient, ListsByPhysicalOrByLogicalName) {
  create("a.kdb", 5);
  create("list.ctg", 0);
  create("notes", 1);
  out = {{"old", "content"}};
  STGIndex::plValues(folder.path(), out);
  EXPECT_EQ(
      out,
      (NameMap{{"00000001.kdb", "a.kdb"}, {"00000002.ctg", "list.ctg"}, {"00000003", "notes"}}));
  STGIndex::lpValues(folder.path(), out);
  EXPECT_EQ(
      out,
      (NameMap{{"a.kdb", "00000001.kdb"}, {"list.ctg", "00000002.ctg"}, {"notes", "00000003"}}));
}

TEST_F(IndexClient, ListsTheSmallestTimestampOfAName) {
  create("a.kdb", 30);
  create("a.kdb", 5);
  create("a.kdb", 10);
  create("c.ctg", 9);
  create("c.ctg", 8);
  STGIndex::lpValues(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"a.kdb", "00000002.kdb"}, {"c.ctg", "00000005.ctg"}}));
  STGIndex::getCategories(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"c.ctg", "00000005.ctg"}}));
  // By physical names every version is listed.
  STGIndex::plValues(folder.path(), out);
  EXPECT_EQ(out.size(), 5U);
}

TEST_F(IndexClient, ListsTheFirstOfTwoNamesOfOneFile) {
  write_file(path("00000001.kdb"), "");
  write_file(path("index.dat"), "a.kdb_0000000001/00000001\nb.kdb_0000000001/00000001\n");
  STGIndex::plValues(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"00000001.kdb", "a.kdb"}}));
  STGIndex::lpValues(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"a.kdb", "00000001.kdb"}, {"b.kdb", "00000001.kdb"}}));
  STGIndex::getVUDocs(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"00000001.kdb", "a.kdb"}}));
}

TEST_F(IndexClient, ListsCategoriesByLogicalNameAndDocumentsByPhysicalName) {
  for (const char* const name :
       {"a.kda", "b.kdb", "c.kdc", "d.kdd", "e.kde", "f.kdf", "g.kdg", "h.kdh", "i.KDB", "kdb",
        "j.kdb.txt", "k.txt.kdb", "l.ctg", "m.CTG", "ctg", "n.ctg.x", "o.kd", "p.", "q.kdbx"}) {
    create(name, 1);
  }
  STGIndex::getVUDocs(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"00000001.kda", "a.kda"},
                          {"00000002.kdb", "b.kdb"},
                          {"00000003.kdc", "c.kdc"},
                          {"00000004.kdd", "d.kdd"},
                          {"00000005.kde", "e.kde"},
                          {"00000006.kdf", "f.kdf"},
                          {"00000007.kdg", "g.kdg"},
                          {"00000012.kdb", "k.txt.kdb"}}));
  STGIndex::getCategories(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"l.ctg", "00000013.ctg"}}));
}

TEST_F(IndexClient, ListsNothingOfAFolderThatIsMissing) {
  out = {{"old", "content"}};
  STGIndex::plValues(path("missing"), out);
  EXPECT_TRUE(out.empty());
  long ts = 77;
  EXPECT_FALSE(STGIndex::lastVersion(path("missing"), "a", ts));
  EXPECT_EQ(ts, 0);
  EXPECT_FALSE(STGIndex::exists(path("missing"), "a", 1, physical));
  EXPECT_FALSE(folder_exists(path("missing")));
}

TEST_F(IndexClient, RaisesTheFileLayersException) {
  make_folder(path("index.dat"));
  try {
    STGIndex::plValues(folder.path(), out);
    ADD_FAILURE() << "nothing was raised";
  } catch (const vu_file_except& e) {
    EXPECT_EQ(e.what(), "throw exception on open");
  }
  EXPECT_THROW(STGIndex::create(path("missing"), "a", 1), vu_file_except);
}

TEST_F(IndexClient, TracesUnderItsOwnSourceName) {
  recording_sink sink;
  create("a.kdb", 5);
  bool seen = false;
  for (const traced& each : sink.all()) {
    if (each.text != " STGIndex (create): Set need update flag to true: index.dat will be updated")
      continue;
    EXPECT_EQ(each.source, "stg_index");
    EXPECT_EQ(each.kind, traced::kind_t::record);
    EXPECT_EQ(each.level, vu_host::trace_level::m);
    EXPECT_NE(each.signature.find("_create"), std::string::npos);
    seen = true;
  }
  EXPECT_TRUE(seen);
}

TEST_F(IndexClient, AdoptsFilesWithTheSwitchOn) {
  STGIndex::setSynchronizeMode(true);
  write_file(path("Report.KDB"), "report");
  write_file(path("notes.txt"), "notes");
  make_folder(path("sub"));
  STGIndex::updateIndexFile(folder.path());
  EXPECT_EQ(index(), "Report.kdb_0000000000/Report.kdb\nnotes.txt_0000000000/notes.txt\n");
  STGIndex::lpValues(folder.path(), out);
  EXPECT_EQ(out, (NameMap{{"Report.kdb", "Report.kdb"}, {"notes.txt", "notes.txt"}}));
  EXPECT_EQ(read_file(path("Report.kdb")), "report");
}

TEST_F(IndexClient, LeavesFilesUnknownWithTheSwitchOff) {
  write_file(path("notes.txt"), "notes");
  STGIndex::updateIndexFile(folder.path());
  EXPECT_EQ(index(), " ");
  STGIndex::lpValues(folder.path(), out);
  EXPECT_TRUE(out.empty());
}

TEST_F(IndexClient, RecognisesAndDecodesEscapedNames) {
  EXPECT_TRUE(STGIndex::iSsambaOrT101("Q1+Sales%2Fdoc.kdb"));
  EXPECT_FALSE(STGIndex::iSsambaOrT101("Q1 Sales.kdb"));
  std::string name = "My%20Report+1.kdb";
  STGIndex::UnescapeVU(name);
  EXPECT_EQ(name, "My Report 1.kdb");
}

// A clean as a client uses it, with the real clock.

using AgeMap = STGIndex::AgeMap;
using Names = std::vector<std::string>;

constexpr long kDay = 86400;

class IndexCleaningClient : public testing::Test {
 protected:
  IndexCleaningClient() { STGIndex::setSynchronizeMode(false); }
  ~IndexCleaningClient() override { STGIndex::setSynchronizeMode(false); }

  std::string path(const std::string& name) const { return folder.path(name); }
  /// Creates a version with a file of this age. @return the name of the file.
  std::string version(const std::string& logical, long ts, long age) const {
    const std::string name = STGIndex::create(folder.path(), logical, ts);
    set_modify_time(path(name), static_cast<std::int64_t>(std::time(nullptr)) - age);
    return name;
  }
  Names names() const { return list_folder(folder.path()); }

  const scratch_folder folder;
};

TEST_F(IndexCleaningClient, RemovesOldVersionsAndReportsTheOthers) {
  version("a.kdc", 1, 2 * kDay);
  version("a.kdc", 2, 10);
  version("b.kdc", 1, 100);
  make_folder(path("00000001.kdc_\\html"));
  make_folder(path("00000002.kdc_\\html"));
  AgeMap kept;
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path(), 3600, kept, false), 1U);
  EXPECT_EQ(names(),
            (Names{"00000002.kdc", "00000002.kdc_", "00000003.kdc", "index", "index.dat"}));
  EXPECT_EQ(read_file(path("index.dat")), "a.kdc_0000000002/00000002\nb.kdc_0000000001/00000003\n");

  // The oldest is first; the clock may have advanced.
  ASSERT_EQ(kept.size(), 2U);
  EXPECT_EQ(kept.begin()->second, folder.path() + "\\b.kdc_0000000001");
  EXPECT_GE(kept.begin()->first, 100U);
  EXPECT_LT(kept.begin()->first, 160U);
  EXPECT_EQ(kept.rbegin()->second, folder.path() + "\\a.kdc_0000000002");
  EXPECT_GE(kept.rbegin()->first, 10U);
  EXPECT_LT(kept.rbegin()->first, 70U);
}

TEST_F(IndexCleaningClient, SweepsStrayFilesAndFolders) {
  version("a.kdc", 1, 10);
  write_file(path("notes.tmp"), "");
  make_folder(path("stray\\inner"));
  AgeMap kept;
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path(), 3600, kept, false), 0U);
  EXPECT_EQ(names(), (Names{"00000001.kdc", "index", "index.dat"}));
}

TEST_F(IndexCleaningClient, FinishesWithAYoungUnknownFileAndTheSwitchOn) {
  version("a.kdc", 1, 10);
  STGIndex::setSynchronizeMode(true);
  write_file(path("young.txt"), "");
  set_modify_time(path("young.txt"), static_cast<std::int64_t>(std::time(nullptr)) - 20);
  AgeMap kept;
  EXPECT_EQ(STGIndex::cleanOutOfDateOutput(folder.path(), 3600, kept, false), 0U);
  EXPECT_EQ(kept.size(), 2U);
  EXPECT_EQ(names(), (Names{"00000001.kdc", "index", "index.dat", "young.txt"}));
  EXPECT_EQ(read_file(path("index.dat")),
            "a.kdc_0000000001/00000001\nyoung.txt_0000000000/young.txt\n");
}

TEST_F(IndexCleaningClient, RemovesAllOutputAndNothingElse) {
  version("a.kdc", 1, 10);
  version("b.kdc", 1, 2 * kDay);
  make_folder(path("00000001.kdc_2024"));
  write_file(path("stray.tmp"), "");
  STGIndex::cleanAllOutput(folder.path());
  EXPECT_EQ(names(), (Names{"index", "index.dat", "stray.tmp"}));
  EXPECT_EQ(read_file(path("index.dat")), " ");
}

TEST_F(IndexCleaningClient, RemovesAndMeasuresSubPartFolders) {
  for (const char* const name : {"00001.kdc_", "00001.kdc_2024", "00001.kdcx"})
    make_folder(path(name));
  write_file(path("00001.kdc_\\part"), std::string(2500, 'x'));
  write_file(path("00001.kdc_2024\\part"), std::string(1024, 'x'));
  write_file(path("00001.kdc_x"), "a plain file");
  unsigned long counter = 99;
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", &counter);
  EXPECT_EQ(counter, 3U);
  EXPECT_EQ(names(), (Names{"00001.kdc_x", "00001.kdcx"}));
  STGIndex::cleanOutputDirectories(folder.path(), "00001.kdc", nullptr);
  EXPECT_EQ(names(), (Names{"00001.kdc_x", "00001.kdcx"}));
}

// The migration of a mail folder as a client uses it. Each test has its own user.

using Names = std::vector<std::string>;

class IndexMigrationClient : public testing::Test {
 protected:
  explicit IndexMigrationClient() { program_storage(); }
  ~IndexMigrationClient() override { STGIndex::setSynchronizeMode(false); }

  static std::string mail_folder(const std::string& user) {
    return vu_storage::getMailPath() + "\\" + user;
  }
  static std::string entry(const std::string& folder, const std::string& logical) {
    std::string physical;
    if (!STGIndex::exists(folder, logical, 0, physical)) return "no such entry";
    return read_file(folder + "\\" + physical);
  }
};

TEST_F(IndexMigrationClient, ConvertsAFolderOnce) {
  const std::string folder = mail_folder("index-migration-once");
  make_folder(folder);
  write_file(folder + "\\f4#f5#x#A%20B.kdb", "mail");
  write_file(folder + "\\plain.txt", "plain");
  write_file(folder + "\\read.txt", "no name\nx\tA%20B\tB\tf4\tf5\tf6\t\n");
  STGIndex::setSynchronizeMode(true);
  STGIndex::migrateInboxRead("index-migration-once");

  EXPECT_EQ(entry(folder, "f4#f5#x#A B.kdb"), "mail");
  EXPECT_EQ(entry(folder, "plain.txt"), "plain");
  EXPECT_EQ(entry(folder, "k1mailboxcompliant"), "");
  EXPECT_EQ(read_file(folder + "\\read.txt"), "x\tA B\tB\tf4\tf5\tf6\t\n");
  EXPECT_EQ(list_folder(folder),
            (Names{"00000001.kdb", "00000002", "index", "index.dat", "plain.txt", "read.txt"}));

  write_file(folder + "\\late%20mail.kdb", "late");
  STGIndex::migrateInboxRead("index-migration-once");
  EXPECT_EQ(read_file(folder + "\\late%20mail.kdb"), "late");
}

TEST_F(IndexMigrationClient, MakesAnEmptyFolderForAUserWithoutOne) {
  recording_sink sink;
  STGIndex::migrateInboxRead("index-migration-new");
  EXPECT_EQ(list_folder(mail_folder("index-migration-new")), Names{});
  EXPECT_EQ(sink.count(vu_host::trace_event::warning,
                       "User index-migration-new has an empty inbox read. No need migration);"),
            1U);
}

TEST_F(IndexMigrationClient, RefusesAnEmptyUser) {
  recording_sink sink;
  const Names before = list_folder(vu_storage::getMailPath());
  STGIndex::migrateInboxRead("");
  EXPECT_EQ(list_folder(vu_storage::getMailPath()), before);
  EXPECT_EQ(
      sink.count(vu_host::trace_event::warning, " Migration on inbox read need an non empty user "),
      1U);
}

}  // namespace
