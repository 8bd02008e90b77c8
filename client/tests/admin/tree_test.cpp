#include "client/admin/tree.h"

#include <random>
#include <set>
#include <vector>

#include "client/tests/admin/tree_fixture.h"

using admin::Area;
using admin::Layout;

namespace {

struct Seen final : admin::Visitor {
  bool folder(const admin::DocumentFolder& folder) override {
    const std::string area(name_of(folder.area));
    in_order.push_back(area + ":" + folder.owner + ":" + folder.bucket);
    folders.insert(in_order.back());
    return folders.size() < most;
  }
  void stray(Area area, const std::string& path, admin::sys::Kind) override {
    strays.insert(std::string(name_of(area)) + ":" +
                  path.substr(path.rfind(admin::sys::kSeparator) + 1));
  }
  std::set<std::string> folders;
  std::vector<std::string> in_order;
  std::set<std::string> strays;
  std::size_t most = 1000;
};

}  // namespace

TEST_F(AdminTree, IsFoundBelowItsRootAndByItself) {
  std::string why;
  const auto by_root = admin::locate({system_form(root()), "", Layout::kAuto}, why);
  const auto by_storage = admin::locate(
      {"/nowhere", system_form(storage()) + admin::sys::kSeparator, Layout::kAuto}, why);
  ASSERT_TRUE(by_root && by_storage);
  EXPECT_EQ(by_root->storage, by_storage->storage);
  EXPECT_TRUE(by_root->layout_was_guessed);
}

TEST_F(AdminTree, IsNotFoundWithoutAreaFolders) {
  std::string why;
  EXPECT_FALSE(admin::locate({system_form(root()) + "x", "", Layout::kAuto}, why));
  EXPECT_NE(why.find("not a folder"), std::string::npos) << why;
  EXPECT_FALSE(admin::locate({"", system_form(root()), Layout::kAuto}, why));
  EXPECT_NE(why.find("none of the folders"), std::string::npos) << why;
  EXPECT_FALSE(admin::locate({"", "", Layout::kAuto}, why));
}

TEST_F(AdminTree, WithoutDocumentsHasTheOwnerLayout) {
  EXPECT_EQ(admin::guess_layout(tree().storage), Layout::kOwner);
}

TEST_F(AdminTree, WithOwnersIsRecognisedAlsoWhenAnOwnerHasTheNameOfABucket) {
  add(Area::kDocs, "12345678", "a.kdc", 0);
  EXPECT_EQ(admin::guess_layout(tree().storage), Layout::kOwner);
}

TEST_F(AdminTree, ThatIsFlatIsRecognisedByItsIndexes) {
  write_file(storage() + "\\mail\\index.dat", " ");
  EXPECT_EQ(admin::guess_layout(tree().storage), Layout::kFlat);
}

TEST_F(AdminTree, ThatIsFlatIsRecognisedByItsBuckets) {
  make_folder(storage() + "\\docs\\00000097");
  EXPECT_EQ(admin::guess_layout(tree().storage), Layout::kOwner);
  write_file(storage() + "\\docs\\00000097\\index.dat", " ");
  EXPECT_EQ(admin::guess_layout(tree().storage), Layout::kFlat);
}

TEST_F(AdminTree, IsWalkedFolderByFolder) {
  add(Area::kDocs, "anna", "a", 0);
  add(Area::kDocs, "anna", "ab", 0);
  add(Area::kDocs, "", "a", 0);
  add(Area::kUser, "anna", "x.txt", 0);
  add(Area::kMail, "bert", "m.kdc", 0);
  make_folder(storage() + "\\list\\anna");
  write_file(storage() + "\\docs\\readme", "");
  make_folder(storage() + "\\docs\\anna\\notes");
  write_file(storage() + "\\user\\stray.txt", "");
  Seen seen;
  EXPECT_TRUE(admin::walk(tree(), {}, seen));
  EXPECT_EQ(seen.folders,
            (std::set<std::string>{"docs:anna:00000097", "docs:anna:00000075", "docs:_:00000097",
                                   "user:anna:", "mail:bert:", "list:anna:", "semlets::"}));
  EXPECT_EQ(seen.strays, (std::set<std::string>{"docs:readme", "docs:notes", "user:stray.txt"}));
}

TEST_F(AdminTree, IsWalkedWithinAScope) {
  add(Area::kDocs, "anna", "a", 0);
  add(Area::kUser, "anna", "x.txt", 0);
  add(Area::kUser, "", "x.txt", 0);
  Seen of_anna;
  admin::walk(tree(), {{Area::kUser, "anna"}}, of_anna);
  EXPECT_EQ(of_anna.folders, (std::set<std::string>{"user:anna:"}));
  Seen of_nobody;
  admin::walk(tree(), {{std::nullopt, ""}}, of_nobody);
  EXPECT_EQ(of_nobody.folders, (std::set<std::string>{"user:_:"}));
  Seen of_unknown;
  admin::walk(tree(), {{std::nullopt, "nobody"}}, of_unknown);
  EXPECT_TRUE(of_unknown.folders.empty());
}

TEST_F(AdminTree, IsWalkedInTheOrderOfNamesWhateverTheFileSystemListsFirst) {
  std::vector<std::string> expected;
  for (int i = 10; i < 30; ++i) expected.push_back("docs:owner" + std::to_string(i) + ":00000097");
  // The order of a listing differs between file systems.
  for (const int i : {7, 3, 19, 0, 12, 5, 18, 1, 9, 14, 2, 16, 11, 4, 17, 6, 15, 8, 13, 10})
    make_folder(storage() + "\\docs\\owner" + std::to_string(10 + i) + "\\00000097");
  const std::string buckets = storage() + "\\docs\\owner99\\";
  for (const char* const bucket : {"00000004", "00000009", "00000001", "00000007", "00000002"})
    make_folder(buckets + bucket);
  for (const char* const bucket : {"00000001", "00000002", "00000004", "00000007", "00000009"})
    expected.push_back(std::string("docs:owner99:") + bucket);
  Seen seen;
  EXPECT_TRUE(admin::walk(tree(), {{Area::kDocs, std::nullopt}}, seen));
  EXPECT_EQ(seen.in_order, expected);
}

TEST_F(AdminTree, WalkEndsWhenTheVisitorReturnsFalse) {
  add(Area::kUser, "anna", "x.txt", 0);
  add(Area::kUser, "bert", "x.txt", 0);
  Seen seen;
  seen.most = 1;
  EXPECT_FALSE(admin::walk(tree(), {}, seen));
  EXPECT_EQ(seen.folders.size(), 1U);
}

TEST_F(AdminTree, ThatIsFlatIsWalkedWithoutOwners) {
  make_folder(storage() + "\\docs\\00000097");
  Seen seen;
  admin::walk(tree(Layout::kFlat), {}, seen);
  EXPECT_EQ(seen.folders,
            (std::set<std::string>{"docs::00000097", "user::", "mail::", "list::", "semlets::"}));
}

TEST_F(AdminTree, SplitsPathsInIt) {
  const admin::Tree all = tree();
  const std::string bucket = folder(Area::kDocs, "anna", "a");
  const auto file = admin::locate_in(all, admin::sys::join(bucket, "00000001.kdc"));
  ASSERT_TRUE(file);
  EXPECT_EQ(file->folder.path, bucket);
  EXPECT_EQ(file->folder.owner, "anna");
  EXPECT_EQ(file->folder.bucket, "00000097");
  EXPECT_EQ(file->rest, "00000001.kdc");
  const auto itself = admin::locate_in(all, bucket);
  ASSERT_TRUE(itself);
  EXPECT_EQ(itself->rest, "");
  EXPECT_FALSE(admin::locate_in(all, all.storage));
  EXPECT_FALSE(admin::locate_in(all, all.folder_of(Area::kDocs)));
  EXPECT_FALSE(admin::locate_in(all, system_form(root())));
  EXPECT_FALSE(admin::locate_in(all, admin::sys::join(all.storage, "else/a")));
}

TEST(AdminLayout, PutsEntriesIntoTheFoldersThatTheLibraryUses) {
  const admin::Tree& tree = program_tree();
  for (const std::string owner : {"anna", ""}) {
    for (const std::string entry : {"a", "ab", "Sales Report.kdc", "\xE4\xF6\xFC.kdc", "\xFF"}) {
      for (const auto& [type, area] : {std::pair{STG::CorporateRepository, Area::kDocs},
                                       std::pair{STG::UserFilesRepository, Area::kUser},
                                       std::pair{STG::MailRepository, Area::kMail}}) {
        std::string folder;
        ASSERT_TRUE(vu_storage::createUserOrDomainNameDirectory(owner, entry, type, folder, true));
        const admin::DocumentFolder expected = admin::folder_for(tree, area, owner, entry);
        EXPECT_EQ(admin::sys::absolute(system_form(folder)), expected.path);
      }
    }
  }
}

TEST(AdminLayout, NumbersBucketsAsTheLibraryDoes) {
  std::mt19937 random(5);
  for (int round = 0; round < 20'000; ++round) {
    std::string name(random() % 40, ' ');
    const bool is_ascii = random() % 2 == 0;
    for (char& c : name) c = static_cast<char>(random() % (is_ascii ? 128 : 256));
    ASSERT_EQ(admin::bucket_number(name),
              static_cast<std::uint32_t>(layout::hash_of(name, layout::kBuckets)))
        << round;
  }
}
