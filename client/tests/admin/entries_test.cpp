#if !defined(_WIN32)
#include <unistd.h>
#endif

#include <ctime>
#include <set>

#include "client/admin/entries.h"
#include "client/admin/stats.h"
#include "client/tests/admin/tree_fixture.h"
#include "vu_file.h"

using admin::Area;
using admin::EntryQuery;
using admin::EntryState;
using admin::GroupBy;

namespace {

class AdminEntries : public AdminTree {
 protected:
  using Lines = std::multiset<std::string>;

  /// "area:owner:logical@timestamp=state" of each match.
  Lines list(const EntryQuery& query = {}) {
    Lines all;
    m_failures = admin::for_each_entry(
        tree(), query,
        [&](const admin::EntryView& entry) {
          all.insert(std::string(name_of(entry.folder->area)) + ":" + entry.folder->owner + ":" +
                     std::string(entry.logical) + "@" + std::to_string(entry.timestamp) + "=" +
                     std::string(name_of(entry.state)));
          m_sizes.push_back(entry.info.size);
          return all.size() < m_most;
        },
        [&](const std::string& path, const std::string&) { m_failed.push_back(path); });
    return all;
  }

  admin::Stats stats(GroupBy by, std::size_t top = 0) {
    admin::StatsOptions options;
    options.by = by;
    options.top = top;
    options.now = 100 * 86'400;
    return admin::collect_stats(tree(), options);
  }
  static std::string groups(const admin::Stats& stats) {
    std::string text;
    for (const admin::StatsGroup& group : stats.groups) {
      if (group.sum.files == 0) continue;
      text += group.name + ":" + std::to_string(group.sum.files) + ":" +
              std::to_string(group.sum.bytes) + " ";
    }
    return text;
  }

  admin::EntryFailures m_failures;
  std::vector<std::string> m_failed;
  std::vector<std::uint64_t> m_sizes;
  std::size_t m_most = 1000;
};

}  // namespace

TEST_F(AdminEntries, AreListedWithTheirStates) {
  add(Area::kDocs, "anna", "sales.kdc", 0);
  add(Area::kDocs, "anna", "daily.kdf", 7);
  const std::string gone = add(Area::kUser, "bert", "gone.txt", 0);
  add(Area::kUser, "bert", "here.txt", 0);
  std::filesystem::remove(native(gone));
  write_file(folder(Area::kUser, "bert", "") + "\\loose.txt", "x");
  EXPECT_EQ(list(), (Lines{"docs:anna:sales.kdc@0=indexed", "docs:anna:daily.kdf@7=indexed",
                           "user:bert:here.txt@0=indexed", "user:bert:loose.txt@0=unindexed"}));
  EntryQuery query;
  query.with_missing = true;
  EXPECT_EQ(list(query).count("user:bert:gone.txt@0=missing"), 1U);
  query.state = EntryState::kMissing;
  EXPECT_EQ(list(query), Lines{"user:bert:gone.txt@0=missing"});
  query.state = EntryState::kUnindexed;
  EXPECT_EQ(list(query), Lines{"user:bert:loose.txt@0=unindexed"});
}

TEST_F(AdminEntries, AreFoundByName) {
  add(Area::kDocs, "anna", "sales.kdc", 0);
  add(Area::kDocs, "bert", "sales.kdc", 3);
  add(Area::kUser, "bert", "Sales.kdb", 0);
  EntryQuery query;
  query.pattern = "s*.kd?";
  EXPECT_EQ(list(query).size(), 2U);
  query.extension = "kdb";
  EXPECT_EQ(list(query).size(), 0U);
  query = {};
  query.logical = "sales.kdc";
  EXPECT_EQ(list(query).size(), 2U);
  query.timestamp = 3;
  EXPECT_EQ(list(query), Lines{"docs:bert:sales.kdc@3=indexed"});
  query = {};
  query.logical = "sales.kdc";
  query.scope = {Area::kDocs, "anna"};
  EXPECT_EQ(list(query), Lines{"docs:anna:sales.kdc@0=indexed"});
  query.scope = {Area::kDocs, "nobody"};
  EXPECT_EQ(list(query), Lines{});
  EXPECT_EQ(m_failures.folders, 0U);
}

TEST_F(AdminEntries, AreFoundBySizeAndTime) {
  const std::string old = add(Area::kUser, "anna", "old.txt", 0, "12345");
  const std::string young = add(Area::kUser, "anna", "young.txt", 0, "123");
  set_modify_time(old, 1000);
  set_modify_time(young, 2000);
  EntryQuery query;
  query.least_size = 4;
  EXPECT_EQ(list(query), Lines{"user:anna:old.txt@0=indexed"});
  EXPECT_EQ(m_sizes, std::vector<std::uint64_t>{5});
  query = {};
  query.most_size = 3;
  EXPECT_EQ(list(query), Lines{"user:anna:young.txt@0=indexed"});
  query = {};
  query.modified_after = 1000;
  EXPECT_EQ(list(query), Lines{"user:anna:young.txt@0=indexed"});
  query = {};
  query.modified_before = 2000;
  EXPECT_EQ(list(query), Lines{"user:anna:old.txt@0=indexed"});
}

TEST_F(AdminEntries, StopWhenTheSinkReturnsFalse) {
  add(Area::kUser, "anna", "a.txt", 0);
  add(Area::kUser, "anna", "b.txt", 0);
  m_most = 1;
  EXPECT_EQ(list().size(), 1U);
}

TEST_F(AdminEntries, OfALockedIndexAreAFailure) {
  const std::string file = add(Area::kUser, "anna", "a.txt", 0);
  add(Area::kUser, "bert", "b.txt", 0);
  vu_file writer(folder(Area::kUser, "anna", ""), "index.dat");
  writer.open(vu_file::o_append);
  EntryQuery query;
  query.locking.time_out = std::chrono::milliseconds(30);
  EXPECT_EQ(list(query), Lines{"user:bert:b.txt@0=indexed"});
  EXPECT_TRUE(m_failures.lock_missed);
  EXPECT_EQ(m_failed.size(), 1U);

  query.locking.mode = admin::sys::Locking::Mode::kNone;
  m_failed.clear();
#if !defined(_WIN32)
  EXPECT_EQ(list(query).size(), 2U);
#endif
  writer.close();
  query.locking.mode = admin::sys::Locking::Mode::kShared;
  EXPECT_EQ(list(query).size(), 2U);
}

#if !defined(_WIN32)

TEST_F(AdminEntries, ThatAreUnknownAreNotListedAsMissing) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  namespace fs = std::filesystem;
  const std::string place = folder(Area::kUser, "anna", "");
  write_file(place + "\\index.dat",
             "gone.kdb_0000000000/00000001\nz.kdb_0000000000/elsewhere\\x\n");
  make_folder(place + "\\elsewhere");
  fs::permissions(native(place + "\\elsewhere"), fs::perms::none);
  fs::permissions(native(root()), fs::perms::all);
  EntryQuery query;
  query.state = EntryState::kMissing;
  ASSERT_EQ(seteuid(65534), 0);
  const Lines found = list(query);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(found, Lines{"user:anna:gone.kdb@0=missing"});
}

#endif

TEST_F(AdminEntries, AreAddedUpByArea) {
  const std::string document = add(Area::kDocs, "anna", "sales.kdc", 0, "1234567890");
  make_folder(document + "_\\html\\p1");
  write_file(document + "_\\html\\p1\\page", "123");
  add(Area::kUser, "bert", "a.txt", 0, "1");
  write_file(storage() + "\\docs\\readme", "12");
  const admin::Stats stats_by_area = stats(GroupBy::kArea);
  EXPECT_EQ(stats_by_area.documents.files, 2U);
  EXPECT_EQ(stats_by_area.documents.bytes, 11U);
  EXPECT_EQ(stats_by_area.parts.files, 1U);
  EXPECT_EQ(stats_by_area.parts.bytes, 3U);
  EXPECT_EQ(stats_by_area.indexes.files, 4U);
  EXPECT_EQ(stats_by_area.strays.files, 1U);
  EXPECT_EQ(stats_by_area.all.files, 8U);
  EXPECT_EQ(stats_by_area.all.bytes, stats_by_area.documents.bytes + stats_by_area.parts.bytes +
                                         stats_by_area.indexes.bytes + stats_by_area.strays.bytes);
  ASSERT_EQ(stats_by_area.groups.size(), 2U);
  EXPECT_EQ(stats_by_area.groups[0].name, "docs");
  EXPECT_EQ(stats_by_area.groups[0].sum.files, 5U);
  EXPECT_EQ(stats_by_area.folders, 3U);
}

TEST_F(AdminEntries, AreAddedUpWithoutUnfinishedFiles) {
  const std::string document = add(Area::kDocs, "anna", "sales.kdc", 0, "1234567890");
  const std::string place = document.substr(0, document.find_last_of("/\\"));
  make_folder(place + "\\.stgctl-part-1");
  write_file(place + "\\.stgctl-part-1\\lock", "");
  write_file(place + "\\.stgctl-part-1\\1", "12345");
  make_folder(storage() + "\\list\\anna");
  write_file(storage() + "\\list\\anna\\.stgctl-part", "123");
  const admin::Stats sums = stats(GroupBy::kExtension);
  EXPECT_EQ(sums.documents.files, 1U);
  EXPECT_EQ(sums.documents.bytes, 10U);
  EXPECT_EQ(sums.parts.files, 0U);
  EXPECT_EQ(sums.unfinished.files, 3U);
  EXPECT_EQ(sums.unfinished.bytes, 8U);
  EXPECT_NE(groups(sums).find("(unfinished):3:8 "), std::string::npos) << groups(sums);
}

TEST_F(AdminEntries, AreAddedUpByOwnerExtensionAndFolder) {
  add(Area::kUser, "anna", "a.txt", 0, "12345");
  add(Area::kMail, "anna", "b.kdc", 0, "12");
  add(Area::kUser, "bert", "c.txt", 0, "1");
  const std::string without = "index";
  std::filesystem::remove(native(folder(Area::kUser, "anna", "") + "\\" + without));
  EXPECT_NE(groups(stats(GroupBy::kExtension)).find(".txt:2:6 "), std::string::npos);
  EXPECT_NE(groups(stats(GroupBy::kExtension)).find(".kdc:1:2 "), std::string::npos);
  const admin::Stats by_owner = stats(GroupBy::kOwner, 1);
  ASSERT_EQ(by_owner.groups.size(), 1U);
  EXPECT_EQ(by_owner.groups[0].name, "anna");
  EXPECT_EQ(by_owner.other_groups, 1U);
  EXPECT_EQ(by_owner.others.files + by_owner.groups[0].sum.files, by_owner.all.files);
  write_file(storage() + "\\user\\stray", "12");
  const admin::Stats by_folder = stats(GroupBy::kFolder, 2);
  ASSERT_EQ(by_folder.groups.size(), 2U);
  EXPECT_GE(by_folder.groups[0].sum.bytes, by_folder.groups[1].sum.bytes);
  EXPECT_EQ(by_folder.groups[0].sum.bytes + by_folder.groups[1].sum.bytes + by_folder.others.bytes,
            by_folder.all.bytes);
}

TEST_F(AdminEntries, AreAddedUpByAge) {
  const std::string path = add(Area::kUser, "anna", "a.txt", 0, "12345");
  set_modify_time(path, 98 * 86'400);
  const std::string place = folder(Area::kUser, "anna", "");
  for (const char* name : {"index", "index.dat"}) set_modify_time(place + "\\" + name, 86'400);
  const admin::Stats by_age = stats(GroupBy::kAge);
  EXPECT_EQ(by_age.groups.size(), 7U);
  EXPECT_EQ(by_age.groups[1].sum.files, 1U);
  EXPECT_EQ(by_age.groups[1].sum.bytes, 5U);
  EXPECT_EQ(by_age.groups[4].name, "up to a year");
  EXPECT_EQ(by_age.groups[4].sum.files, 2U);
}

// ---- inventories -------------------------------------------------------------------------------

class Inventory : public AdminTree {
 protected:
  struct Seen final : admin::InventorySink {
    bool holding(const admin::Holding& holding) override {
      EXPECT_TRUE(!last || *last < holding) << holding.location;
      last = holding;
      std::string text(name_of(holding.kind));
      for (const std::string& word :
           {std::string(name_of(holding.area)), holding.owner, holding.name, holding.path})
        text += " " + word;
      if (holding.kind != admin::HoldingKind::kFile)
        text += " @" + std::to_string(holding.timestamp);
      if (holding.out_of_reach != nullptr) text += " (out of reach)";
      texts.push_back(text);
      return true;
    }
    void left_out(const std::string& location, const char*) override {
      left.push_back(location.substr(location.find_last_of("/\\") + 1));
    }
    void failed(const std::string& location, const std::string&) override {
      failures.push_back(location.substr(location.find_last_of("/\\") + 1));
    }
    std::optional<admin::Holding> last;
    Codes texts;
    Codes left;
    Codes failures;
  };

  Seen take(admin::WalkOptions options = {}) {
    Seen seen;
    const admin::EntryFailures failures = admin::take_inventory(tree(), options, seen);
    EXPECT_EQ(seen.failures, m_expected_failures);
    EXPECT_EQ(failures.folders, m_expected_failures.size());
    std::sort(seen.left.begin(), seen.left.end());
    return seen;
  }

  Codes m_expected_failures;

  static void write(const std::string& path) {
    make_folder(path.substr(0, path.find_last_of("/\\")));
    write_file(path, "x");
  }
};

TEST_F(Inventory, ListsEverythingInOneOrder) {
  const std::string document = add(admin::Area::kDocs, "anna", "a.kdc", 0);
  add(admin::Area::kDocs, "anna", "a.kdc", 7);
  add(admin::Area::kDocs, "Bert", "z.kdf", 1);
  add(admin::Area::kUser, "anna", "u.txt", 0);
  add(admin::Area::kMail, "anna", "m.kda", 0);
  write(document + "_\\xls\\1");
  write(document + "_2024\\html\\page\\2");
  write(storage() + "\\list\\anna\\a.b");
  write(storage() + "\\list\\anna\\a\\c");
  write(storage() + "\\semlets\\index.dat");
  const auto before = snapshot(system_form(storage()));
  const Seen seen = take();
  EXPECT_EQ(difference(before, snapshot(system_form(storage()))), "");
  EXPECT_EQ(seen.texts,
            (Codes{"version docs Bert z.kdf  @1", "version docs anna a.kdc  @0",
                   "part docs anna a.kdc _/xls/1 @0", "part docs anna a.kdc _2024/html/page/2 @0",
                   "version docs anna a.kdc  @7", "version user anna u.txt  @0",
                   "version mail anna m.kda  @0", "file list anna  a/c", "file list anna  a.b",
                   "file semlets   index.dat"}));
  EXPECT_EQ(seen.left, Codes());
}

TEST_F(Inventory, StaysWithinAScope) {
  add(admin::Area::kDocs, "anna", "a.kdc", 0);
  add(admin::Area::kUser, "anna", "u.txt", 0);
  add(admin::Area::kUser, "bert", "u.txt", 0);
  admin::WalkOptions options;
  options.scope.area = admin::Area::kUser;
  options.scope.owner = "bert";
  EXPECT_EQ(take(options).texts, Codes{"version user bert u.txt  @0"});
}

TEST_F(Inventory, ReportsItemsWithoutADocument) {
  const std::string document = add(admin::Area::kUser, "anna", "a.txt", 0);
  const std::string place = document.substr(0, document.find_last_of("/\\"));
  write(place + "\\loose.tmp");
  write(place + "\\loose.tmp_\\html\\1");
  write(place + "\\other\\1");
  write(storage() + "\\docs\\stray");
  const Seen seen = take();
  EXPECT_EQ(seen.texts, Codes{"version user anna a.txt  @0"});
  EXPECT_EQ(seen.left, (Codes{"loose.tmp", "loose.tmp_", "other", "stray"}));
}

TEST_F(Inventory, AssignsASubPartFolderToTheLongestName) {
  const std::string place = folder(admin::Area::kUser, "anna", "");
  write_file(place + "\\a.kdc", "x");
  write_file(place + "\\a.kdc_b.kdc", "x");
  write_file(place + "\\index.dat", "a.kdc_0000000000/a.kdc\na.kdc_b.kdc_0000000000/a.kdc_b.kdc\n");
  write(place + "\\a.kdc_b.kdc_1\\p");
  write(place + "\\a.kdc_1\\p");
  EXPECT_EQ(take().texts,
            (Codes{"version user anna a.kdc  @0", "part user anna a.kdc _1/p @0",
                   "version user anna a.kdc_b.kdc  @0", "part user anna a.kdc_b.kdc _1/p @0"}));
}

TEST_F(Inventory, MarksWhatTheLibraryNeverFinds) {
  const std::string place = storage() + "\\docs\\anna\\00000001";
  make_folder(place);
  write_file(place + "\\00000001.kdc", "x");
  write_file(place + "\\index.dat", "lost.kdc_0000000000/00000001\n");
  const std::string user = folder(admin::Area::kUser, "anna", "");
  write_file(user + "\\00000001.kdf", "x");
  write_file(user + "\\index.dat", "v.kdf_4294967295/00000001\n");
  EXPECT_EQ(take().texts, (Codes{"version docs anna lost.kdc  @0 (out of reach)",
                                 "version user anna v.kdf  @2147483647 (out of reach)"}));
}

TEST(InventoryOrder, GoesFolderByFolder) {
  const Codes sorted = {"", "a", "a/b", "a/b/c", "a/c", "a b", "a.b", "b", "\xff"};
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    for (std::size_t j = 0; j < sorted.size(); ++j)
      EXPECT_EQ(admin::compare_paths(sorted[i], sorted[j]), i <=> j)
          << sorted[i] << " " << sorted[j];
  }
}

#if !defined(_WIN32)

TEST_F(Inventory, ReportsAnUnknownEntryAsAFailure) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  namespace fs = std::filesystem;
  add(admin::Area::kUser, "anna", "a.txt", 0);
  const std::string place = folder(admin::Area::kUser, "anna", "");
  write_file(place + "\\index.dat",
             read_file(place + "\\index.dat") + "z.kdb_0000000000/elsewhere\\x\n");
  make_folder(place + "\\elsewhere");
  fs::permissions(native(place + "\\elsewhere"), fs::perms::none);
  fs::permissions(native(root()), fs::perms::all);
  m_expected_failures = {"x"};
  ASSERT_EQ(seteuid(65534), 0);
  const Seen seen = take();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(seen.texts, Codes{"version user anna a.txt  @0"});
}

#endif
