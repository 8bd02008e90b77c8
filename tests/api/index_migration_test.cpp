#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "stg_index.h"
#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

// The conversion of a user's mail folder as a client sees it. Each test has a user of its own.

namespace {

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
