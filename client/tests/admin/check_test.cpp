#include "client/admin/check.h"

#include <ctime>

#include "client/admin/key_files.h"
#include "client/admin/repair_text.h"
#include "client/tests/admin/tree_fixture.h"
#include "tests/support/interrupted_save.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

using admin::Area;
using admin::Depth;

namespace {

class AdminCheck : public AdminTree {
 protected:
  std::string user() const { return folder(Area::kUser, "anna", ""); }
  void user_file(const std::string& name, const std::string& bytes = "x") const {
    write_file(user() + "\\" + name, bytes);
  }
  void user_index(const std::string& text) const { user_file("index.dat", text); }
};

}  // namespace

TEST_F(AdminCheck, FindsNothingInACleanTree) {
  add(Area::kDocs, "anna", "sales.kdc", 0);
  add(Area::kDocs, "anna", "daily.kdf", 42);
  add(Area::kDocs, "anna", "daily.kdf", 43);
  add(Area::kDocs, "", "sales.kdc", 0);
  add(Area::kUser, "anna", "notes.txt", 0);
  add(Area::kUser, "anna", "attribut.txt", 0, "notes.txt=1\n");
  add(Area::kUser, "anna", "first.ctg", 0, "notes.txt=\n");
  add(Area::kMail, "anna", "k1mailboxcompliant", 0, "");
  const std::string document = add(Area::kDocs, "bert", "parted.kdc", 0);
  make_folder(document + "_\\html\\p1");
  make_folder(document + "_\\html\\preload");
  write_file(document + "_\\html\\p1\\page", "x");
  write_file(document + "_\\html\\preload\\page", "x");
  set_modify_time(document + "_\\html\\preload\\page", 1000);
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
  EXPECT_EQ(codes(Depth::kFull), Codes{});
  EXPECT_EQ(summary().entries, 9U);
  EXPECT_EQ(summary().files, 9U);
  EXPECT_EQ(summary().count(admin::Severity::kError), 0U);
}

TEST_F(AdminCheck, FindsNothingInAnEmptyTree) { EXPECT_EQ(codes(), Codes{}); }

TEST_F(AdminCheck, FindsADanglingEntry) {
  user_index("a.kdc_0000000000/00000001\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"line-without-file"});
  const auto found = findings();
  EXPECT_EQ(found[0].name, "a.kdc");
  EXPECT_EQ(found[0].line, 1U);
  EXPECT_EQ(found[0].owner, "anna");
  EXPECT_EQ(found[0].area, Area::kUser);
  EXPECT_EQ(found[0].folder, user());
  EXPECT_EQ(summary().count(admin::Severity::kWarning), 1U);
}

TEST_F(AdminCheck, FindsAValidEntryWhoseFileReadersDoNotFind) {
  user_file("plain");
  user_index("a.kdc_0000000000/plain\n");
  // The file without the extension makes the entry valid.
  EXPECT_EQ(codes(Depth::kQuick), Codes{"entry-without-file"});
}

TEST_F(AdminCheck, FindsAnAdoptedEntryThatIsValidOnlyByItsNameWithTheExtension) {
  user_file("notes.txt.txt");
  user_index("notes.txt_0000000000/notes.txt\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"entry-without-file"});
}

TEST_F(AdminCheck, ReportsAnInterruptedSaveAsAnInfo) {
  user_file("00000001.kdc");
  user_file("00000002.kdc");
  user_file("index", "00000002");
  const std::string old_text = "a.kdc_0000000000/00000001\n";
  user_index(interrupted_save(old_text, old_text + "b.kdc_0000000000/00000002\n"));
  EXPECT_EQ(codes(), Codes{"interrupted-save"});
  EXPECT_EQ(summary().entries, 2U);
  EXPECT_EQ(summary().count(admin::Severity::kInfo), 1U);
  // The next writer completes the save.
  add(Area::kUser, "anna", "c.kdc", 0);
  EXPECT_EQ(codes(), Codes{});
  EXPECT_EQ(summary().entries, 3U);
}

TEST_F(AdminCheck, FindsAnOrphan) {
  user_index(" ");
  user_file("notes.txt");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"file-without-line"});
}

TEST_F(AdminCheck, FindsNoOrphansInAreasWithoutIndex) {
  write_file(storage() + "\\semlets\\a.txt", "x");
  make_folder(storage() + "\\list\\anna\\deeper");
  write_file(storage() + "\\list\\anna\\a.txt", "x");
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminCheck, FindsAMissingIndexOnce) {
  user_file("a.txt");
  user_file("b.txt");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"missing-index"});
}

TEST_F(AdminCheck, FindsAnIndexWithoutBytes) {
  user_index("");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"empty-index"});
}

TEST_F(AdminCheck, FindsAnIndexThatIsAFolder) {
  make_folder(user() + "\\index.dat");
  const Codes found = codes(Depth::kQuick);
  EXPECT_EQ(std::count(found.begin(), found.end(), "unreadable-index"), 1) << found.size();
}

TEST_F(AdminCheck, FindsADuplicateKey) {
  user_file("00000001.kdc");
  user_file("00000002.kdc");
  user_file("index", "00000002");
  user_index("a.kdc_0000000000/00000001\na.kdc_0000000000/00000002\n");
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"duplicate-key", "file-without-line", "unordered-lines"}));
}

TEST_F(AdminCheck, FindsTwoEntriesWithOnePhysicalName) {
  user_file("00000001.kdc");
  user_file("index", "00000001");
  user_index("a.kdc_0000000000/00000001\nb.kdc_0000000000/00000001\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"duplicate-physical-name"});
  const admin::Finding found = findings()[0];
  EXPECT_EQ(found.detail, "key \"b.kdc_0000000000\", physical name \"00000001\" in lines 1 and 2");
  EXPECT_EQ(found.name, "index.dat");
  EXPECT_EQ(found.key, "b.kdc_0000000000");
}

TEST_F(AdminCheck, FindsMalformedLines) {
  user_file("00000001.kdc");
  user_file("index", "00000001");
  user_index("a.kdc_0000000000/00000001\nnothing\nshort/x\na.kdcx00000000y1/00000001\n");
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"duplicate-physical-name", "malformed-line",
                                         "malformed-line", "odd-timestamp"}));
  std::vector<std::string> details;
  for (const admin::Finding& each : findings()) {
    if (each.code != admin::Code::kMalformedLine) continue;
    EXPECT_EQ(each.name, "index.dat");
    details.push_back(std::to_string(each.line) + " " + each.detail);
  }
  EXPECT_EQ(details, (std::vector<std::string>{"2 \"nothing\" contains no \"/\"",
                                               "3 the key in \"short/x\" is too short"}));
}

TEST_F(AdminCheck, ShowsTheTextBeforeZeros) {
  user_file("00000001.kdc");
  user_index("a.kdc_0000000000/00000001" + std::string(3, '\0') + "b\n");
  ASSERT_FALSE(findings().empty());
  EXPECT_EQ(findings()[0].name, "index.dat");
  EXPECT_EQ(findings()[0].detail,
            "zeros, possibly in place of other lines, follow \"a.kdc_0000000000/00000001\"");
}

TEST_F(AdminCheck, FindsLinesOutOfOrder) {
  user_file("00000001.kdc");
  user_file("00000002.kdc");
  user_file("index", "00000002");
  user_index("b.kdc_0000000000/00000001\na.kdc_0000000000/00000002\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"unordered-lines"});
}

TEST_F(AdminCheck, FindsACounterBehindTheNames) {
  user_file("00000007.kdc");
  user_index("a.kdc_0000000000/00000007\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"counter-behind"});
  user_file("index", "00000006");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"counter-behind"});
  user_file("index", "00000007");
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
}

TEST_F(AdminCheck, FindsACounterBehindAnOrphan) {
  user_file("00000008.kdc");
  user_file("index", "00000007");
  user_index(" ");
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"counter-behind", "file-without-line"}));
}

TEST_F(AdminCheck, IgnoresAdoptedNamesAndTheEmergencyNameForTheCounter) {
  user_file("20240501.txt");
  user_file("99999999.kdc");
  user_file("index", "00000001");
  user_index("20240501.txt_0000000000/20240501.txt\na.kdc_0000000000/99999999\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
}

TEST_F(AdminCheck, FindsANegativeCounter) {
  user_file("00000007.kdc");
  user_file("index", "-5");
  user_index("a.kdc_0000000000/00000007\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"counter-unreadable"});
}

TEST_F(AdminCheck, FindsAnEntryInAWrongBucket) {
  const std::string wrong = folder(Area::kDocs, "anna", "other.kdc");
  STGIndex::create(wrong, "sales.kdc", 0);
  EXPECT_EQ(codes(Depth::kQuick), Codes{"wrong-bucket"});
  EXPECT_NE(
      findings()[0].detail.find(admin::folder_for(tree(), Area::kDocs, "", "sales.kdc").bucket),
      std::string::npos);
}

TEST_F(AdminCheck, FindsAPlainFileThatShadowsAnEntry) {
  add(Area::kUser, "anna", "notes.txt", 0);
  user_file("notes.txt");
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"file-without-line", "shadowed-name"}));
}

TEST_F(AdminCheck, FindsNoShadowInAnAdoptedFile) {
  user_file("notes.txt");
  user_index("notes.txt_0000000000/notes.txt\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
}

TEST_F(AdminCheck, FindsVersionsThatReadersNeverFind) {
  add(Area::kDocs, "anna", "sales.kdc", 42);
  EXPECT_EQ(codes(Depth::kQuick), Codes{"unreachable-timestamp"});
}

TEST_F(AdminCheck, FindsVersionsOutsideTheCorporateAreaThatReadersNeverFind) {
  add(Area::kUser, "anna", "daily.kdf", 42);
  add(Area::kMail, "anna", "mail.kdc", 1);
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"unreachable-timestamp", "unreachable-timestamp"}));
}

TEST_F(AdminCheck, FindsPartsWithoutTheirDocument) {
  const std::string document = add(Area::kDocs, "anna", "sales.kdc", 0);
  make_folder(document + "_");
  make_folder(document + "_2024");
  EXPECT_EQ(codes(), Codes{});
  make_folder(folder(Area::kDocs, "anna", "sales.kdc") + "\\00000009.kdc_2024");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"parts-without-document"});
}

TEST_F(AdminCheck, LeavesThePartsOfAnEntryWhoseFileIsNoFile) {
  const std::string document = add(Area::kDocs, "anna", "sales.kdc", 0);
  make_folder(document + "_1");
  std::filesystem::remove(native(document));
  make_folder(document);
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"document-replaced", "stray-item"}));
}

TEST_F(AdminCheck, FindsPartsOlderThanTheirPreloadCopy) {
  const std::string root = add(Area::kDocs, "anna", "sales.kdc", 0) + "_";
  for (const std::string type : {"\\html", "\\pdf", ""}) {
    make_folder(root + type + "\\one");
    make_folder(root + type + "\\preload");
    write_file(root + type + "\\one\\page", "old");
    write_file(root + type + "\\preload\\page", "new");
    set_modify_time(root + type + "\\one\\page", 1000);
    set_modify_time(root + type + "\\preload\\page", 1060);
  }
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
  EXPECT_EQ(codes(), (Codes{"preload-newer", "preload-newer", "preload-newer"}));
  EXPECT_EQ(findings()[0].detail, "60 seconds");
  set_modify_time(root + "\\html\\one\\page", 1060);
  EXPECT_EQ(codes(), (Codes{"preload-newer", "preload-newer"}));
}

TEST_F(AdminCheck, IgnoresPreloadCopiesOfDocumentsWhosePartsAreServedAsTheyAre) {
  const std::string root = add(Area::kDocs, "anna", "daily.kdf", 1) + "_";
  make_folder(root + "\\one");
  make_folder(root + "\\preload");
  write_file(root + "\\one\\page", "old");
  write_file(root + "\\preload\\page", "new");
  set_modify_time(root + "\\one\\page", 1000);
  EXPECT_EQ(codes(), Codes{});
}

TEST_F(AdminCheck, FindsDanglingLinesOfKeyFiles) {
  add(Area::kUser, "anna", "here.kdc", 0);
  add(Area::kUser, "anna", "attribut.txt", 0, "here.kdc=1\ngone.kdc=2\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
  EXPECT_EQ(codes(), Codes{"dangling-key-line"});
  EXPECT_EQ(findings()[0].line, 2U);
}

TEST_F(AdminCheck, FindsDanglingLinesOfCategoryFiles) {
  add(Area::kUser, "anna", "here.kdc", 0);
  add(Area::kUser, "anna", "one.ctg", 0, "1=here.kdc\nhere.kdc=x\nno separator\n");
  EXPECT_EQ(codes(), Codes{});
  add(Area::kUser, "anna", "two.ctg", 0, "gone.kdc=x\n");
  EXPECT_EQ(codes(), Codes{"dangling-category-line"});
}

TEST_F(AdminCheck, FindsEmptyDocuments) {
  add(Area::kUser, "anna", "mark", 0, "");
  EXPECT_EQ(codes(), Codes{});
  add(Area::kUser, "anna", "sales.kdc", 0, "");
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
  EXPECT_EQ(codes(), Codes{"empty-document"});
}

TEST_F(AdminCheck, FindsLogicalNamesThatDifferInLetterCase) {
  add(Area::kUser, "anna", "Sales.kdc", 0);
  add(Area::kUser, "anna", "sales.kdc", 0);
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
  EXPECT_EQ(codes(), Codes{"case-collision"});
}

TEST_F(AdminCheck, FindsUnsafeLogicalNames) {
  user_file("00000001.kdc");
  user_file("index", "1");
  user_index("..\\up.kdc_0000000000/00000001\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"unsafe-name"});
}

TEST_F(AdminCheck, FindsPathsNearTheLimit) {
  add(Area::kUser, "anna", "sales.kdc", 0);
  admin::CheckOptions options;
  options.path_limit = user().size() + 5;
  const auto found = findings(options);
  ASSERT_FALSE(found.empty());
  for (const admin::Finding& each : found) EXPECT_EQ(each.code, admin::Code::kPathNearLimit);
}

TEST_F(AdminCheck, FindsStrayItems) {
  write_file(storage() + "\\docs\\readme", "x");
  make_folder(storage() + "\\docs\\anna\\notes");
  make_folder(user() + "\\sub");
  make_folder(folder(Area::kDocs, "anna", "a") + "\\sub");
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"stray-item", "stray-item", "stray-item", "stray-item"}));
  EXPECT_EQ(summary().count(admin::Severity::kInfo), 4U);
}

TEST_F(AdminCheck, ChecksOnlyTheScope) {
  add(Area::kDocs, "anna", "sales.kdc", 42);
  add(Area::kMail, "bert", "mail.kdc", 42);
  admin::CheckOptions options;
  options.scope.area = Area::kMail;
  EXPECT_EQ(findings(options).size(), 1U);
  options.scope.owner = "anna";
  EXPECT_EQ(findings(options).size(), 0U);
}

TEST_F(AdminCheck, StopsOnRequest) {
  add(Area::kDocs, "anna", "sales.kdc", 42);
  const std::atomic<bool> stop{true};
  admin::CheckOptions options;
  options.stop = &stop;
  EXPECT_TRUE(findings(options).empty());
  EXPECT_TRUE(summary().was_stopped);
}

TEST_F(AdminCheck, HasAStableNameAndARemedyForEveryKindOfFinding) {
  ASSERT_EQ(admin::finding_kinds().size(), admin::kCodes);
  for (const admin::FindingKind& kind : admin::finding_kinds()) {
    EXPECT_EQ(admin::code_named(kind.name), kind.code);
    EXPECT_FALSE(kind.meaning.empty());
    EXPECT_FALSE(kind.remedy.empty());
  }
  EXPECT_FALSE(admin::code_named("no-such-code"));
}

// Findings that need names of any bytes, links and permissions.
#if !defined(_WIN32)

TEST_F(AdminCheck, FindsAnUnknownEntry) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  namespace fs = std::filesystem;
  user_file("00000007.kdb");
  user_index("z.kdb_0000000000/elsewhere\\x\n");
  make_folder(user() + "\\elsewhere");
  fs::permissions(native(user() + "\\elsewhere"), fs::perms::none);
  fs::permissions(native(user()), fs::perms::all);
  fs::permissions(native(root()), fs::perms::all);
  ASSERT_EQ(seteuid(65534), 0);
  const Codes found = codes(Depth::kQuick);
  admin::FolderView view;
  view.load(admin::folder_for(tree(), Area::kUser, "anna", ""), {});
  // A repair must not move a file that may belong to the unknown entry.
  const bool is_unclaimed = admin::is_unclaimed_file(view, "00000007.kdb");
  const std::size_t bad_lines = admin::bad_lines(view).size();
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(found, (Codes{"counter-behind", "file-without-line", "not-writable", "stray-item",
                          "unknown-line"}));
  EXPECT_FALSE(is_unclaimed);
  EXPECT_EQ(bad_lines, 0U);
}

TEST_F(AdminCheck, FindsFilesThatDifferInLetterCase) {
  user_file("Notes.txt");
  user_file("notes.txt");
  user_index("Notes.txt_0000000000/Notes.txt\nnotes.txt_0000000000/notes.txt\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{});
  EXPECT_EQ(codes(), Codes{"case-collision"});
}

TEST_F(AdminCheck, FindsNamesThatAreNotPortable) {
  user_file("a:b.txt");
  user_file("\xE4.txt");
  user_index("a:b.txt_0000000000/a:b.txt\n\xE4.txt_0000000000/\xE4.txt\n");
  EXPECT_EQ(codes(Depth::kQuick), (Codes{"not-portable-name", "not-portable-name"}));
}

TEST_F(AdminCheck, FindsLinksAndDoesNotFollowThem) {
  const scratch_folder elsewhere;
  write_file(elsewhere.path("index.dat"), "x");
  const std::filesystem::path target = native(elsewhere.path());
  std::filesystem::create_symlink(target, native(storage() + "\\user\\linked"));
  std::filesystem::create_symlink(target, native(storage() + "\\docs\\linked"));
  std::filesystem::create_symlink(target / "index.dat", native(user() + "\\index.dat"));
  EXPECT_EQ(codes(), (Codes{"link-in-tree", "link-in-tree", "link-in-tree"}));
}

TEST_F(AdminCheck, FindsANameNearTheLimit) {
  const std::string name(240, 'n');
  user_file(name);
  user_index(name + "_0000000000/" + name + "\n");
  EXPECT_EQ(codes(Depth::kQuick), Codes{"path-near-limit"});
}

#endif

TEST_F(AdminCheck, CallsNoKeyLineDanglingWithoutTheNamesOfTheIndex) {
  user_file("attribut.txt", "gone.txt=1\n");
  const auto is_dangling = [&] {
    admin::FolderView view;
    view.load({Area::kUser, "anna", "", user()}, {});
    return admin::is_dangling(view, "gone.txt=1");
  };
  EXPECT_FALSE(is_dangling());
  user_index("");
  EXPECT_FALSE(is_dangling());
  user_index(" ");
  EXPECT_TRUE(is_dangling());
}
