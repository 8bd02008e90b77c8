#include "client/admin/name_restore.h"

#include "client/admin/locked_file.h"
#include "client/admin/names.h"
#include "client/tests/admin/tree_fixture.h"
#include "tests/support/interrupted_save.h"

#if !defined(_WIN32)
#include <unistd.h>
#endif

using admin::NameFate;
using admin::RestorePlan;

namespace {

/// A folder whose index was saved in a snapshot and then damaged.
class AdminRestore : public AdminTree {
 protected:
  static constexpr admin::Area kArea = admin::Area::kUser;

  std::string place() const { return folder(kArea, "anna", ""); }
  std::string index() const { return place() + "\\index.dat"; }
  std::string text() const { return read_file(index()); }
  admin::DocumentFolder document_folder() const {
    return admin::folder_for(tree(), kArea, "anna", "");
  }

  /// Adopts the orphans, like a program with synchronisation on.
  void adopt() const {
    STGIndex::setSynchronizeMode(true);
    STGIndex::updateIndexFile(place());
    STGIndex::setSynchronizeMode(false);
  }

  RestorePlan restore(const std::string& saved) const {
    RestorePlan plan;
    const os::Status status = admin::restore_names(document_folder(), saved, {}, plan);
    EXPECT_TRUE(status.ok()) << admin::sys::text_of(status);
    return plan;
  }

  RestorePlan plan(const std::string& saved) const {
    admin::FolderView view;
    view.load(document_folder(), admin::sys::Locking());
    return admin::plan_restore(view, saved);
  }

  /// The bytes of a document, read through the library by its name.
  std::string content(const std::string& name, long timestamp = 0) const {
    std::string file;
    if (!STGIndex::exists(place(), name, timestamp, file)) return "(nothing)";
    return read_file(place() + "\\" + file);
  }
};

}  // namespace

TEST_F(AdminRestore, WorksOnTheTextOfAnInterruptedSave) {
  add(kArea, "anna", "a.kdc", 0, "bytes of a");
  const std::string old_text = text();
  add(kArea, "anna", "b.kdc", 0, "bytes of b");
  const std::string new_text = text();
  // A saved key that neither text contains.
  const std::string saved = "a.kdc_0000000042/00000001\n";
  write_file(index(), interrupted_save(old_text, new_text));
  const auto keep = [&](std::string_view kept, const admin::SavedIndex*) {
    EXPECT_EQ(kept, new_text);
    return admin::measure(kept);
  };
  const auto ignore = [](const std::string&, const std::string&) {};
  EXPECT_EQ(admin::take_indexes(tree(), {}, {}, keep, ignore).indexes.size(), 1U);
  const RestorePlan done = restore(saved + new_text);
  EXPECT_EQ(done.unchanged, 2U);
  EXPECT_EQ(text().find("vu-index-save"), std::string::npos);
  EXPECT_EQ(content("a.kdc"), "bytes of a");
  EXPECT_EQ(content("b.kdc"), "bytes of b");
}

#if !defined(_WIN32)

TEST_F(AdminRestore, KeepsAnUnknownEntry) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  namespace fs = std::filesystem;
  add(kArea, "anna", "a.kdc", 0, "bytes of a");
  const std::string saved = text();
  const std::string unknown = "z.kdb_0000000000/elsewhere\\x\n";
  write_file(index(), unknown);
  make_folder(place() + "\\elsewhere");
  for (const std::string& each : {index(), place(), root()})
    fs::permissions(native(each), fs::perms::all);
  fs::permissions(native(place() + "\\elsewhere"), fs::perms::none);
  ASSERT_EQ(seteuid(65534), 0);
  const RestorePlan done = restore(saved);
  ASSERT_EQ(seteuid(0), 0);
  EXPECT_EQ(done.count(NameFate::kRestored), 1U);
  EXPECT_EQ(text(), saved + unknown);
}

#endif

TEST_F(AdminRestore, RecoversAFolderWhoseIndexWasEmptiedAndWhoseFilesWereAdopted) {
  add(kArea, "anna", "Sales report.kdb", 0, "sales");
  add(kArea, "anna", "Sales report.kdb", 42, "older sales");
  add(kArea, "anna", "LOUD.KDC", 0, "loud");
  add(kArea, "anna", "no extension", 7, "plain");
  write_file(place() + "\\notes.txt", "notes");
  adopt();
  const std::string saved = text();
  const std::map<std::string, std::string> before = snapshot(place());
  write_file(index(), "");
  adopt();
  ASSERT_NE(text(), saved);
  ASSERT_EQ(content("Sales report.kdb"), "(nothing)");

  const RestorePlan done = restore(saved);
  EXPECT_EQ(done.count(NameFate::kRestored), 4U);
  EXPECT_EQ(done.unchanged, 1U);
  EXPECT_EQ(text(), saved);
  EXPECT_EQ(content("Sales report.kdb"), "sales");
  EXPECT_EQ(content("Sales report.kdb", 42), "older sales");
  EXPECT_EQ(content("LOUD.KDC"), "loud");
  EXPECT_EQ(content("no extension", 7), "plain");
  EXPECT_EQ(content("notes.txt"), "notes");
  // Names, bytes and times of the documents are as before.
  std::map<std::string, std::string> after = snapshot(place());
  after.erase(system_form(index()));
  std::map<std::string, std::string> documents = before;
  documents.erase(system_form(index()));
  after.erase(system_form(place()));
  documents.erase(system_form(place()));
  EXPECT_EQ(difference(documents, after), "");
  EXPECT_FALSE(plan(saved).changes());
}

TEST_F(AdminRestore, RestoresNamesInAFolderWithoutAnIndex) {
  add(kArea, "anna", "a.kdc", 0, "a");
  const std::string saved = text();
  std::filesystem::remove(native(index()));
  EXPECT_EQ(plan(saved).count(NameFate::kRestored), 1U);
  restore(saved);
  EXPECT_EQ(text(), saved);
  EXPECT_EQ(content("a.kdc"), "a");
}

TEST_F(AdminRestore, KeepsWhatWasWrittenSince) {
  add(kArea, "anna", "a.kdc", 0, "a");
  add(kArea, "anna", "b.kdc", 0, "b");
  add(kArea, "anna", "gone.kdc", 0, "gone");
  const std::string saved = text();
  STGIndex::remove(place(), "gone.kdc", 0);
  write_file(index(), "");
  // The counter continues, so the new documents get new files.
  add(kArea, "anna", "b.kdc", 0, "new b");
  add(kArea, "anna", "c.kdc", 0, "c");
  const RestorePlan done = restore(saved);
  ASSERT_EQ(done.names.size(), 3U);
  EXPECT_EQ(done.names[0].fate, NameFate::kRestored);
  EXPECT_EQ(done.names[1].fate, NameFate::kKept);
  EXPECT_EQ(done.names[2].fate, NameFate::kNoFile);
  EXPECT_EQ(content("a.kdc"), "a");
  EXPECT_EQ(content("b.kdc"), "new b");
  EXPECT_EQ(content("c.kdc"), "c");
  EXPECT_EQ(content("gone.kdc"), "(nothing)");
}

TEST_F(AdminRestore, LeavesAFileToTheEntryThatHasItNow) {
  add(kArea, "anna", "a.kdc", 0, "a");
  const std::string saved = text();
  write_file(index(), "other.kdc_0000000000/00000001\n");
  const RestorePlan planned = plan(saved);
  ASSERT_EQ(planned.names.size(), 1U);
  EXPECT_EQ(planned.names[0].fate, NameFate::kTaken);
  EXPECT_FALSE(planned.changes());
  EXPECT_EQ(content("other.kdc"), "a");
}

TEST_F(AdminRestore, RemovesTheSecondEntryOfAFileThatWasAdoptedTooEarly) {
  add(kArea, "anna", "a.kdc", 0, "a");
  const std::string saved = text();
  write_file(index(), "00000001.kdc_0000000000/00000001.kdc\n" + saved);
  const RestorePlan done = restore(saved);
  EXPECT_EQ(done.dropped, std::vector<std::string>{"00000001.kdc"});
  EXPECT_EQ(text(), saved);
  // An adopted entry that was in the saved index stays.
  const std::string both = "00000001.kdc_0000000000/00000001.kdc\n" + saved;
  write_file(index(), both);
  EXPECT_FALSE(plan(both).changes());
}

TEST_F(AdminRestore, CompletesARestoreThatWasInterruptedBeforeTheSave) {
  add(kArea, "anna", "LOUD.KDC", 0, "loud");
  const std::string saved = text();
  write_file(index(), "");
  adopt();
  const std::string adopted = text();
  restore(saved);
  // As after an interruption: the file has its old name again, but the index is not saved yet.
  write_file(index(), adopted);
  restore(saved);
  EXPECT_EQ(text(), saved);
  EXPECT_EQ(content("LOUD.KDC"), "loud");
}

TEST_F(AdminRestore, RefusesNamesThatLeadOutOfTheFolder) {
  write_file(storage() + "\\user\\outside.kdc", "x");
  place();
  const RestorePlan planned =
      plan("x.kdc_0000000000/../outside\ny.kdc_0000000000/*\nz_0000000000/index.dat\n");
  EXPECT_EQ(planned.count(NameFate::kNoFile), 3U);
  EXPECT_FALSE(planned.changes());
}

TEST_F(AdminRestore, WaitsForTheIndexUntilTheTimeOut) {
  add(kArea, "anna", "a.kdc", 0, "a");
  const std::string saved = text();
  write_file(index(), " ");
  vu_file reader(place(), "index.dat");
  reader.open(vu_file::o_read);
  admin::sys::Locking locking;
  locking.time_out = std::chrono::milliseconds(30);
  RestorePlan plan;
  EXPECT_EQ(admin::restore_names(document_folder(), saved, locking, plan).failure(),
            os::Failure::kLocked);
  reader.close();
  EXPECT_EQ(text(), " ");
}

TEST(AdminLockedFile, RecognisesWhatAKilledReplacementLeaves) {
  const std::string old_bytes = "a=1\nb=2\nc=3\n";
  for (const std::string& new_bytes :
       {std::string("a=1\nc=3\n"), std::string("a=1\nb=2\nb2=2\nc=3\n"), std::string(),
        old_bytes}) {
    for (std::size_t at = 0; at <= new_bytes.size(); ++at) {
      std::string found = new_bytes.substr(0, at);
      if (at < old_bytes.size()) found += old_bytes.substr(at);
      EXPECT_TRUE(admin::is_between(old_bytes, new_bytes, found)) << found;
    }
    EXPECT_TRUE(admin::is_between(old_bytes, new_bytes, old_bytes));
    EXPECT_FALSE(admin::is_between(old_bytes, new_bytes, "x=1\nb=2\nc=3\n"));
    EXPECT_FALSE(admin::is_between(old_bytes, new_bytes, old_bytes + "d=4\n"));
  }
}

TEST(AdminRestoreOfATree, LetsTheLibraryReadEveryDocumentByItsNameAgain) {
  const admin::Tree& tree = program_tree();
  const scratch_folder outside;
  const std::string names = system_form(outside.path("names"));
  std::map<std::string, std::string> documents;
  for (int i = 0; i < 300; ++i) {
    const std::string extension = i % 3 == 0 ? ".KDC" : ".kdc";
    const std::string name = "Restored report " + std::to_string(i) + extension;
    documents[name] = "bytes of " + std::to_string(i);
    vu_storage storage;
    vu_file file;
    storage.OpenWrite(file, "restored", name, STG::CorporateRepository, false, 0);
    ASSERT_TRUE(file.is_open()) << name;
    storage.Write(file, documents[name]);
    storage.Close(file);
  }
  const auto ignore = [](const std::string&, const std::string&) {};
  {
    admin::NameStore store(names, admin::NameStore::For::kCreating, {});
    const admin::TakenIndexes taken = admin::take_indexes(
        tree, {}, {},
        [&](std::string_view text, const admin::SavedIndex* earlier) {
          return store.add(text, earlier);
        },
        ignore);
    ASSERT_EQ(store.commit({}, {}, taken.indexes).number, 1U);
  }

  const std::string area = tree.folder_of(admin::Area::kDocs);
  std::map<std::string, std::string> before;
  for (const auto& each : std::filesystem::recursive_directory_iterator(area + "/restored")) {
    if (!each.is_regular_file()) continue;
    const std::string path = each.path().string();
    if (each.path().filename() == "index.dat") {
      before[path] = read_file(path);
      write_file(path, "");
    } else {
      before[path] = read_file(path) + std::to_string(get_modify_time(path));
    }
  }
  STGIndex::setSynchronizeMode(true);
  for (const auto& each : std::filesystem::directory_iterator(area + "/restored"))
    STGIndex::updateIndexFile(each.path().string());
  STGIndex::setSynchronizeMode(false);
  const auto read = [](const std::string& name) {
    vu_storage storage;
    vu_file file;
    storage.OpenRead(file, "restored", name, STG::CorporateRepository, 0);
    std::string bytes;
    if (!file.is_open()) return std::string("(not served)");
    storage.Read(file, bytes, 0);
    storage.Close(file);
    return bytes;
  };
  for (const auto& [name, bytes] : documents) ASSERT_EQ(read(name), "(not served)");

  admin::NameStore store(names, admin::NameStore::For::kReading, {});
  for (const auto& [name, index] : store.indexes_of(1)) {
    const auto folder = admin::folder_of_saved_name(tree, name);
    ASSERT_TRUE(folder) << name;
    if (folder->owner != "restored") continue;
    RestorePlan plan;
    ASSERT_TRUE(admin::restore_names(*folder, store.text_of(index), {}, plan).ok()) << name;
  }
  for (const auto& [name, bytes] : documents) EXPECT_EQ(read(name), bytes) << name;
  std::map<std::string, std::string> after;
  for (const auto& each : std::filesystem::recursive_directory_iterator(area + "/restored")) {
    if (!each.is_regular_file()) continue;
    const std::string path = each.path().string();
    after[path] = read_file(path);
    if (each.path().filename() != "index.dat") after[path] += std::to_string(get_modify_time(path));
  }
  EXPECT_EQ(after, before);
}
