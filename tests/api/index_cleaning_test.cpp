#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "stg_index.h"
#include "tests/support/scratch.h"

// Cleaning as a client sees it, by the real clock.

namespace {

using AgeMap = STGIndex::AgeMap;
using Names = std::vector<std::string>;

constexpr long kDay = 86400;

class IndexCleaningClient : public testing::Test {
 protected:
  IndexCleaningClient() { STGIndex::setSynchronizeMode(false); }
  ~IndexCleaningClient() override { STGIndex::setSynchronizeMode(false); }

  std::string path(const std::string& name) const { return folder.path(name); }
  /// A version whose file is as old as given. @return the file's name.
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

  // The oldest first; the clock may have gone on.
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

}  // namespace
