#include "client/admin/explain.h"

#include <random>
#include <vector>

#include "client/admin/key_files.h"
#include "client/tests/admin/tree_fixture.h"

using admin::Answer;
using admin::Area;
using admin::Explanation;
using admin::PartState;
using admin::Request;

namespace {

STG::RepositoryType type_of(Area area) {
  if (area == Area::kDocs) return STG::CorporateRepository;
  return area == Area::kMail ? STG::MailRepository : STG::UserFilesRepository;
}

/// Each test has its own owner: the library of a process works on one storage.
class AdminExplain : public ::testing::Test {
 protected:
  AdminExplain() : m_owner("explain" + std::to_string(++s_count)) {
    program_tree();
    STGIndex::setSynchronizeMode(false);
  }

  Request request(Area area, const std::string& entry, std::int32_t timestamp = 0) const {
    Request made;
    made.area = area;
    made.owner = m_owner;
    made.entry = entry;
    made.timestamp = timestamp;
    return made;
  }

  /// Stores a document. @return the path of its file.
  std::string store(Area area, const std::string& entry, std::int32_t timestamp,
                    const std::string& bytes = "content") const {
    vu_file file;
    vu_storage().OpenWrite2(file, m_owner, entry, type_of(area), true, timestamp);
    EXPECT_TRUE(file.is_open());
    const std::string path = file.getFilePath();
    file.write(bytes);
    file.close();
    return path;
  }

  /// The name of the first step that fails, "" if none does. Checks that the library agrees.
  std::string read_no(const Request& asked) const {
    const auto before = snapshot(program_tree().storage);
    const Explanation told = admin::explain_read(program_tree(), asked, {});
    EXPECT_EQ(difference(before, snapshot(program_tree().storage)), "");
    vu_file file;
    vu_storage().OpenRead(file, asked.owner, asked.entry, type_of(asked.area), asked.timestamp);
    EXPECT_EQ(told.would_succeed, file.is_open()) << asked.entry << " " << asked.timestamp;
    if (file.is_open()) {
      EXPECT_EQ(admin::sys::absolute(system_form(file.getFilePath())), told.path);
    }
    EXPECT_EQ(told.would_succeed, told.first_no() == nullptr);
    return told.first_no() == nullptr ? "" : told.first_no()->name;
  }

  std::string write_no(const Request& asked) const {
    const auto before = snapshot(program_tree().storage);
    const Explanation told = admin::explain_write(program_tree(), asked, {});
    EXPECT_EQ(difference(before, snapshot(program_tree().storage)), "");
    vu_file file;
    vu_storage().OpenWrite2(file, asked.owner, asked.entry, type_of(asked.area), asked.replace,
                            asked.timestamp);
    EXPECT_EQ(told.would_succeed, file.is_open()) << asked.entry << " " << asked.timestamp;
    return told.first_no() == nullptr ? "" : told.first_no()->name;
  }

  std::string part_no(const Request& asked, int code) const {
    const auto before = snapshot(program_tree().storage);
    const Explanation told = admin::explain_part(program_tree(), asked, {});
    EXPECT_EQ(difference(before, snapshot(program_tree().storage)), "");
    EXPECT_EQ(told.code, code);
    vu_file file;
    vu_storage().OpenReadSubPart(file, "reader", asked.owner, asked.entry, asked.rendition,
                                 asked.part, asked.timestamp);
    EXPECT_EQ(told.would_succeed, file.is_open());
    return told.first_no() == nullptr ? "" : told.first_no()->name;
  }

  static bool has_step(const Explanation& told, const std::string& name) {
    for (const admin::ExplainStep& step : told.steps) {
      if (step.name == name) return true;
    }
    return false;
  }

  const std::string& owner() const { return m_owner; }

 private:
  static int s_count;
  std::string m_owner;
};

int AdminExplain::s_count = 0;

}  // namespace

TEST_F(AdminExplain, RefusesAWriteWhenTheIndexCannotBeRead) {
  const std::string path = store(Area::kMail, "a.kdc", 0);
  const std::string folder = path.substr(0, path.find_last_of("\\/"));
  ASSERT_TRUE(std::filesystem::remove(system_form(folder + "\\index.dat")));
  ASSERT_TRUE(std::filesystem::create_directory(system_form(folder + "\\index.dat")));
  EXPECT_EQ(write_no(request(Area::kMail, "a.kdc")), "index");
  EXPECT_EQ(read_no(request(Area::kMail, "a.kdc")), "index");
}

TEST_F(AdminExplain, NamesTheMissingFolderOfARead) {
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdc")), "owner-folder");
  EXPECT_EQ(read_no(request(Area::kUser, "a.kdc")), "owner-folder");
  store(Area::kDocs, "a.kdc", 0);
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdc")), "");
  EXPECT_EQ(read_no(request(Area::kDocs, "other.kdc")), "bucket-folder");
  EXPECT_EQ(read_no(request(Area::kDocs, "")), "entry");
}

TEST_F(AdminExplain, NamesTheMissingEntryOfARead) {
  store(Area::kUser, "a.txt", 0);
  EXPECT_EQ(read_no(request(Area::kUser, "b.txt")), "index-line");
  const Explanation told = admin::explain_read(program_tree(), request(Area::kUser, "A.txt"), {});
  EXPECT_TRUE(has_step(told, "other-case"));
}

TEST_F(AdminExplain, NamesTheDanglingEntry) {
  const std::string path = store(Area::kUser, "a.txt", 0);
  std::filesystem::remove(native(path));
  EXPECT_EQ(read_no(request(Area::kUser, "a.txt")), "index-line");
  const Explanation told = admin::explain_read(program_tree(), request(Area::kUser, "a.txt"), {});
  EXPECT_NE(told.first_no()->text.find("dangling entry"), std::string::npos);
}

TEST_F(AdminExplain, NamesTheVersionThatReadersDoNotLookFor) {
  store(Area::kDocs, "a.kdc", 42);
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdc", 42)), "index-line");
  const Explanation told =
      admin::explain_read(program_tree(), request(Area::kDocs, "a.kdc", 42), {});
  EXPECT_TRUE(has_step(told, "other-version"));
  store(Area::kDocs, "a.kdf", 42);
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdf", 42)), "");
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdf", 43)), "index-line");
}

TEST_F(AdminExplain, NamesTheAgeOfADocumentThatIsTooOld) {
  set_modify_time(store(Area::kDocs, "a.kdc", 0), 1000);
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdc", 1000)), "");
  EXPECT_EQ(read_no(request(Area::kDocs, "a.kdc", 1001)), "age");
  set_modify_time(store(Area::kUser, "a.kdc", 0), 1000);
  EXPECT_EQ(read_no(request(Area::kUser, "a.kdc", 1001)), "");
}

TEST_F(AdminExplain, NamesTheFileThatShadowsAnEntry) {
  const std::string path = store(Area::kUser, "a.txt", 0);
  EXPECT_EQ(read_no(request(Area::kUser, "a.txt", 7)), "");
  const std::string place = path.substr(0, path.find_last_of("\\/"));
  write_file(place + "\\a.txt", "plain");
  EXPECT_EQ(read_no(request(Area::kUser, "a.txt", 7)), "");
  const Explanation told = admin::explain_read(program_tree(), request(Area::kUser, "a.txt"), {});
  EXPECT_EQ(told.path, admin::sys::absolute(system_form(place + "\\a.txt")));
}

TEST_F(AdminExplain, NamesAFolderWithTheNameOfAnEntry) {
  const std::string path = store(Area::kUser, "other.txt", 0);
  make_folder(path.substr(0, path.find_last_of("\\/")) + "\\a.txt");
  EXPECT_EQ(read_no(request(Area::kUser, "a.txt")), "open");
}

TEST_F(AdminExplain, NamesAMissingIndex) {
  make_folder(program_tree().storage + "\\user\\" + owner());
  EXPECT_EQ(read_no(request(Area::kUser, "a.txt")), "index");
}

TEST_F(AdminExplain, NamesALockedIndex) {
  const std::string path = store(Area::kUser, "a.txt", 0);
  vu_file writer(path.substr(0, path.find_last_of("\\/")), "index.dat");
  writer.open(vu_file::o_append);
  admin::sys::Locking locking;
  locking.time_out = std::chrono::milliseconds(20);
  const Explanation told =
      admin::explain_read(program_tree(), request(Area::kUser, "a.txt"), locking);
  EXPECT_TRUE(told.lock_missed);
  ASSERT_NE(told.first_no(), nullptr);
  EXPECT_EQ(told.first_no()->name, "index");
}

TEST_F(AdminExplain, ExplainsWritesOfNewAndExistingVersions) {
  EXPECT_EQ(write_no(request(Area::kDocs, "")), "entry");
  EXPECT_EQ(write_no(request(Area::kDocs, "a.kdc", 5)), "");
  EXPECT_EQ(write_no(request(Area::kDocs, "a.kdc", 5)), "");
  Request keep = request(Area::kDocs, "a.kdc", 5);
  keep.replace = false;
  EXPECT_EQ(write_no(keep), "replace");
  keep.timestamp = 6;
  EXPECT_EQ(write_no(keep), "");
}

TEST_F(AdminExplain, NamesAReadOnlyDocument) {
  const std::string path = store(Area::kUser, "a.txt", 0);
  make_read_only(path);
  EXPECT_EQ(
      admin::explain_write(program_tree(), request(Area::kUser, "a.txt"), {}).first_no()->name,
      "open");
  make_writable(path);
}

TEST_F(AdminExplain, SaysWhatAWriteWouldRemove) {
  store(Area::kUser, "one.ctg", 0, "a.txt=1\n");
  store(Area::kUser, "a.txt", 0);
  EXPECT_TRUE(has_step(admin::explain_write(program_tree(), request(Area::kUser, "a.txt"), {}),
                       "category"));
  const std::string document = store(Area::kDocs, "a.kdc", 0);
  EXPECT_FALSE(
      has_step(admin::explain_write(program_tree(), request(Area::kDocs, "a.kdc"), {}), "parts"));
  make_folder(document + "_");
  EXPECT_TRUE(
      has_step(admin::explain_write(program_tree(), request(Area::kDocs, "a.kdc"), {}), "parts"));
}

TEST_F(AdminExplain, ExplainsTheDecisionAboutASubPart) {
  Request asked = request(Area::kDocs, "a.kdc", 9);
  asked.rendition = "html@p1";
  asked.part = "page";
  EXPECT_EQ(part_no(asked, 2), "owner-folder");
  const std::string document = store(Area::kDocs, "a.kdc", 9);
  set_modify_time(document, 5000);
  EXPECT_EQ(part_no(asked, 2), "parts-root");
  make_folder(document + "_\\html\\p1");
  make_folder(document + "_\\html\\preload");
  EXPECT_EQ(part_no(asked, 2), "times");
  const std::string part = document + "_\\html\\p1\\page";
  const std::string preload = document + "_\\html\\preload\\page";
  write_file(part, "part");
  set_modify_time(part, 4000);
  EXPECT_EQ(part_no(asked, 2), "times");
  set_modify_time(part, 5000);
  EXPECT_EQ(part_no(asked, 0), "");
  write_file(preload, "newer");
  set_modify_time(preload, 6000);
  EXPECT_EQ(part_no(asked, 1), "");
  EXPECT_EQ(read_file(part), "newer");
  EXPECT_EQ(part_no(asked, 0), "");
  set_modify_time(document, 0);
  EXPECT_EQ(part_no(asked, -1), "document-time");
  asked.owner.clear();
  EXPECT_EQ(part_no(asked, 2), "owner");
}

TEST_F(AdminExplain, ExplainsTheDecisionAboutASubPartThatIsServedAsItIs) {
  Request asked = request(Area::kDocs, "a.kdf", 9);
  asked.rendition = "xls";
  asked.part = "sheet";
  const std::string document = store(Area::kDocs, "a.kdf", 9);
  make_folder(document + "_\\xls");
  EXPECT_EQ(part_no(asked, 0), "open");
  write_file(document + "_\\xls\\sheet", "old");
  set_modify_time(document + "_\\xls\\sheet", 1000);
  EXPECT_EQ(part_no(asked, 0), "");
}

TEST_F(AdminExplain, WarnsOfSelectorsThatAreWrittenElsewhere) {
  Request asked = request(Area::kDocs, "a.kdc", 9);
  asked.rendition = "a@b";
  asked.part = "page";
  store(Area::kDocs, "a.kdc", 9);
  vu_file file;
  vu_storage().OpenWriteSubPart(file, owner(), "a.kdc", "a@b", "page", 9);
  ASSERT_TRUE(file.is_open());
  file.close();
  EXPECT_EQ(part_no(asked, 2), "times");
  EXPECT_TRUE(has_step(admin::explain_part(program_tree(), asked, {}), "odd-rendition"));
}

TEST_F(AdminExplain, AgreesWithTheLibraryOnRandomTrees) {
  // Random documents, other files and times. Compares each explanation with the library's result.
  std::mt19937 random(99);
  const std::vector<std::string> entries = {"a.kdc", "b.kdf", "c.txt", "d"};
  const std::vector<Area> areas = {Area::kDocs, Area::kUser, Area::kMail};
  const auto any = [&](const auto& list) { return list[random() % list.size()]; };
#if defined(_WIN32)
  // Under Wine a round takes 20 times as long.
  constexpr int kRounds = 30;
#else
  constexpr int kRounds = 120;
#endif
  for (int round = 0; round < kRounds; ++round) {
    const Area area = any(areas);
    const std::string entry = any(entries);
    const auto stamp = static_cast<std::int32_t>(random() % 3) * 1000;
    if (random() % 2 == 0) {
      const std::string path = store(area, entry, stamp);
      set_modify_time(path, 500 + static_cast<std::int64_t>(random() % 3) * 1000);
      if (random() % 4 == 0) std::filesystem::remove(native(path));
      if (random() % 8 == 0)
        write_file(path.substr(0, path.find_last_of("\\/")) + "\\" + entry, "plain");
    }
    read_no(request(any(areas), any(entries), static_cast<std::int32_t>(random() % 3) * 1000));
  }
}

TEST_F(AdminExplain, ShowsTimesAsDates) {
  EXPECT_EQ(admin::shown_time(0), "0 (1970-01-01 00:00:00 UTC)");
  EXPECT_EQ(admin::shown_time(1714547399), "1714547399 (2024-05-01 07:09:59 UTC)");
  EXPECT_EQ(admin::shown_time(-1), "-1 (1969-12-31 23:59:59 UTC)");
  EXPECT_EQ(admin::shown_time(951782400), "951782400 (2000-02-29 00:00:00 UTC)");
}

// ---- lookups, profiles and sub-parts ------------------------------------------------------------

TEST_F(AdminExplain, FindsEntriesWhereTheLibraryFindsThem) {
  const std::string path = store(Area::kUser, "profile.txt", 0, "a=1\n=x\nnone\nb=2=3\n");
  const admin::Explanation found =
      admin::explain_lookup(program_tree(), request(Area::kUser, "profile.txt"), {});
  ASSERT_TRUE(found.would_succeed);
  EXPECT_EQ(found.path, admin::sys::absolute(system_form(path)));
  admin::KeyFile keys;
  ASSERT_TRUE(admin::read_key_file(found.path, {}, keys).ok());
  EXPECT_EQ(keys.lines, (std::vector<std::pair<std::string, std::string>>{
                            {"a", "1"}, {"", "x"}, {"b", "2=3"}}));
  EXPECT_EQ(keys.passed_over, 1U);
  const admin::Explanation missing =
      admin::explain_lookup(program_tree(), request(Area::kUser, "no.txt"), {});
  EXPECT_FALSE(missing.would_succeed);
  EXPECT_EQ(missing.first_no()->text, "the index has no entry with this key");
}

TEST_F(AdminExplain, ListsTheSubPartsOfADocumentWithTheirStates) {
  const std::string document = store(Area::kDocs, "a.kdc", 0);
  set_modify_time(document, 5000);
  const auto put = [&](const std::string& below, std::int64_t time) {
    const std::string path = document + below;
    make_folder(path.substr(0, path.rfind('\\')));
    write_file(path, "x");
    set_modify_time(path, time);
  };
  put("_\\html\\p1\\page", 6000);
  put("_\\html\\p1\\other", 4000);
  put("_\\html\\preload\\page", 7000);
  put("_2024\\xls\\sheet", 5000);
  put("_\\a\\b\\lost", 5000);
  std::vector<std::string> shown;
  for (const admin::Part& part : admin::parts_of(admin::sys::absolute(system_form(document)))) {
    shown.push_back(part.stamp + "|" + part.rendition + "|" + part.name + "|" +
                    std::string(name_of(part.state)) + (part.is_unreachable ? "|unreachable" : ""));
  }
  EXPECT_EQ(shown, (std::vector<std::string>{
                       "|a@b|lost|regenerate|unreachable", "|html@p1|other|regenerate",
                       "|html@p1|page|from-preload", "2024|xls|sheet|up-to-date"}));
}

TEST(AdminProfile, IsProfileTxtBeforeMasterTxt) {
  const scratch_folder config;
  const std::string place = system_form(config.path());
  EXPECT_EQ(admin::master_profile(place), "");
  write_file(config.path("master.txt"), "x");
  EXPECT_EQ(admin::master_profile(place), admin::sys::join(place, "master.txt"));
  write_file(config.path("profile.txt"), "x");
  EXPECT_EQ(admin::master_profile(place), admin::sys::join(place, "profile.txt"));
}
