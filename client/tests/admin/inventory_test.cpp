#include "client/admin/entries.h"

#include "client/tests/admin/tree_fixture.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

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

  Seen take(admin::InventoryOptions options = {}) {
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

TEST_F(Inventory, TellsEverythingInOneOrder) {
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

TEST_F(Inventory, KeepsToAScope) {
  add(admin::Area::kDocs, "anna", "a.kdc", 0);
  add(admin::Area::kUser, "anna", "u.txt", 0);
  add(admin::Area::kUser, "bert", "u.txt", 0);
  admin::InventoryOptions options;
  options.scope.area = admin::Area::kUser;
  options.scope.owner = "bert";
  EXPECT_EQ(take(options).texts, Codes{"version user bert u.txt  @0"});
}

TEST_F(Inventory, TellsWhatBelongsToNothing) {
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

TEST_F(Inventory, GivesAFolderOfPartsToTheLongestName) {
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

TEST_F(Inventory, FailsToTellOfALineOfWhichTheSystemDoesNot) {
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
