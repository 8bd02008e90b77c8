// Documents, key files, sub-parts and users, through the exported interface alone.

#include <gtest/gtest.h>

#include <cstdint>
#include <ctime>
#include <string>
#include <utility>
#include <vector>

#include "stg_index.h"
#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

namespace {

using Texts = std::vector<std::string>;
using vu_host::trace_event;

constexpr auto kUser = STG::UserRepository;
constexpr auto kDocs = STG::CorporateRepository;
constexpr auto kMail = STG::MailRepository;

class DocumentClient : public testing::Test {
 protected:
  bool store(const std::string& entry, STG::RepositoryType type, bool replace, long timestamp,
             const std::string& bytes) {
    vu_file file;
    facade.OpenWrite(file, owner, entry, type, replace, timestamp);
    if (!file.is_open()) return false;
    facade.Write(file, bytes);
    facade.Close(file);
    return true;
  }

  std::string fetch(const std::string& entry, STG::RepositoryType type, long timestamp) {
    vu_file file;
    facade.OpenRead(file, owner, entry, type, timestamp);
    if (!file.is_open()) return "(closed)";
    std::string bytes;
    facade.Read(file, bytes, 0);
    facade.Close(file);
    return bytes;
  }

  /// Required: before the facade object, which would initialise another root.
  const std::string root = program_storage();
  vu_storage facade;
  /// A different owner for every test.
  const std::string owner = testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(DocumentClient, FindsTheRootsBelowItsFolder) {
  EXPECT_EQ(vu_storage::getStoragePath(), root);
  EXPECT_EQ(vu_storage::getCorpPath(), root + "\\docs");
  EXPECT_EQ(vu_storage::getSemletPath(), root + "\\semlets");
  EXPECT_EQ(vu_storage::getUserPath(), root + "\\user");
  EXPECT_EQ(vu_storage::getListPath(), root + "\\list");
  EXPECT_EQ(vu_storage::getMailPath(), root + "\\mail");
  EXPECT_EQ(list_folder(root), (Texts{"docs", "list", "mail", "semlets", "user"}));
}

TEST_F(DocumentClient, IsRefusedASecondInitialisation) {
  const recording_sink sink;
  const scratch_folder other;
  EXPECT_FALSE(vu_storage::initRootStorage(other.path(), false, true));
  EXPECT_EQ(sink.count(trace_event::error), 1U);
  EXPECT_EQ(sink.messages(), Texts{"root storage already initialized"});
  EXPECT_EQ(vu_storage::getStoragePath(), root);
  EXPECT_TRUE(list_folder(other.path()).empty());
}

TEST_F(DocumentClient, StoresAndServesADocument) {
  EXPECT_EQ(fetch("sales.kdc", kDocs, 0), "(closed)");
  EXPECT_TRUE(store("sales.kdc", kDocs, false, 0, "figures"));
  EXPECT_EQ(fetch("sales.kdc", kDocs, 0), "figures");
  const long now = static_cast<long>(std::time(nullptr));
  EXPECT_EQ(fetch("sales.kdc", kDocs, now - 3'600), "figures");
  EXPECT_EQ(fetch("sales.kdc", kDocs, now + 3'600), "(closed)");

  // An existing document changes only if it is to be replaced.
  EXPECT_FALSE(store("sales.kdc", kDocs, false, 0, "other"));
  EXPECT_EQ(fetch("sales.kdc", kDocs, 0), "figures");
  EXPECT_TRUE(store("sales.kdc", kDocs, true, 0, "other"));
  EXPECT_EQ(fetch("sales.kdc", kDocs, 0), "other");
}

TEST_F(DocumentClient, KeepsVersionsSideBySide) {
  for (const long timestamp : {100L, 300L, 200L})
    EXPECT_TRUE(store("plan.kdf", kDocs, false, timestamp, std::to_string(timestamp)));
  EXPECT_EQ(fetch("plan.kdf", kDocs, 100), "100");
  EXPECT_EQ(fetch("plan.kdf", kDocs, 200), "200");
  EXPECT_EQ(fetch("plan.kdf", kDocs, 250), "(closed)");
  EXPECT_EQ(vu_storage::getLattestTimestamp(owner, "plan.kdf", kDocs), 300);
  EXPECT_EQ(vu_storage::getLattestTimestamp(owner, "none.kdf", kDocs), -1);

  std::string folder;
  std::string physical;
  EXPECT_TRUE(facade.IsFileExist(owner, "plan.kdf", kDocs, 300, &folder, &physical));
  EXPECT_EQ(read_file(folder + "\\" + physical), "300");
  std::string again;
  EXPECT_TRUE(vu_storage::getIndexNameFromDocName(folder, "plan.kdf", 300, again));
  EXPECT_EQ(again, physical);
  EXPECT_FALSE(vu_storage::getIndexNameFromDocName(folder, "plan.kdf", 301, again));
}

TEST_F(DocumentClient, SeparatesOwnersAndAreas) {
  EXPECT_TRUE(store("note.txt", kUser, false, 0, "user"));
  EXPECT_TRUE(store("note.txt", kMail, false, 0, "mail"));
  EXPECT_EQ(fetch("note.txt", kUser, 0), "user");
  EXPECT_EQ(fetch("note.txt", kMail, 0), "mail");
  EXPECT_EQ(fetch("note.txt", STG::UserFilesRepository, 0), "user");
  EXPECT_EQ(fetch("note.txt", STG::MailFilesRepository, 0), "mail");
  EXPECT_FALSE(facade.IsFileExist(owner + "2", "note.txt", kUser, 0, nullptr, nullptr));
  EXPECT_FALSE(facade.IsFileExist("", "note.txt", kUser, 0, nullptr, nullptr));
}

TEST_F(DocumentClient, StoresUnderUtf8Names) {
  const vu_utf8string utf8_owner(owner + "\xC3\xA9");
  const vu_utf8string entry("\xE2\x82\xAC uro.kdc");
  vu_file file;
  facade.OpenWrite(file, utf8_owner, entry, kUser, true, 0);
  ASSERT_TRUE(file.is_open());
  facade.Write(file, "abc");
  facade.Close(file);
  EXPECT_TRUE(facade.IsFileExist(utf8_owner, entry, kUser, 0, nullptr, nullptr));
  facade.OpenRead(file, utf8_owner, entry, kUser, 0);
  ASSERT_TRUE(file.is_open());
  std::string bytes;
  facade.Read(file, bytes, 2);
  facade.Close(file);
  EXPECT_EQ(bytes, "ab");
}

TEST_F(DocumentClient, CopiesInAndOut) {
  const scratch_folder outside;
  write_file(outside.path("report.kdc"), "report");
  EXPECT_TRUE(
      vu_storage::copyToStorage(outside.path("report.kdc"), owner, "r.kdc", kDocs, true, 0));
  EXPECT_TRUE(vu_storage::copyFromStorage(outside.path("back"), owner, "r.kdc", kDocs, 0));
  EXPECT_EQ(read_file(outside.path("back")), "report");
  EXPECT_FALSE(vu_storage::copyFromStorage(outside.path("none"), owner, "none.kdc", kDocs, 0));

  EXPECT_TRUE(facade.copyFileToStorage(outside.path(), "report.kdc", owner, kMail));
  EXPECT_EQ(fetch("report.kdc", kMail, 0), "report");
  EXPECT_TRUE(facade.copyFileToStorage(outside.path(), "report.kdc", vu_utf8string(owner), kMail));
  EXPECT_TRUE(facade.copyFileToUserPath(outside.path(), "report.kdc", owner));
  EXPECT_EQ(fetch("report.kdc", kUser, 0), "report");
  EXPECT_FALSE(facade.copyFileToUserPath(outside.path(), "none.kdc", owner));
}

TEST_F(DocumentClient, ListsAFolder) {
  EXPECT_TRUE(store("b.kda", kUser, false, 0, ""));
  EXPECT_TRUE(store("a.kdc", kUser, false, 0, ""));
  EXPECT_TRUE(store("c.txt", kUser, false, 0, ""));
  std::string folder;
  ASSERT_TRUE(vu_storage::createUserOrDomainNameDirectory(owner, "", kUser, folder, false));
  EXPECT_EQ(folder, root + "\\user\\" + owner);

  Texts physical;
  EXPECT_EQ(vu_storage::getAllFileListFromIndexFile(folder, physical),
            (Texts{"b.kda", "a.kdc", "c.txt"}));
  EXPECT_EQ(physical, (Texts{"00000001.kda", "00000002.kdc", "00000003.txt"}));
  physical.clear();
  const Texts wanted = {"a.kdc", "c.txt"};
  EXPECT_EQ(vu_storage::getFileListFromIndexFile(folder, physical, &wanted), Texts{"a.kdc"});
  EXPECT_EQ(physical, Texts{"00000002.kdc"});
  EXPECT_THROW(vu_storage::getFileListFromIndexFile(folder + "\\none", physical, nullptr),
               vu_file_except);
}

TEST_F(DocumentClient, RebuildsALostIndex) {
  EXPECT_TRUE(store("a.kdc", kUser, false, 0, "abc"));
  const std::string folder = root + "\\user\\" + owner;
  vu_file::remove(folder + "\\index.dat");
  facade.update_IndexDat(folder);
  // Without adoption the file remains an orphan.
  EXPECT_EQ(read_file(folder + "\\index.dat"), " ");
  EXPECT_EQ(fetch("a.kdc", kUser, 0), "(closed)");
}

TEST_F(DocumentClient, KeepsAProfile) {
  STG::NameValueSeq lines;
  lines.push_back({"language", "en"});
  lines.push_back({"formula", "a=b"});
  EXPECT_EQ(vu_storage::saveUserOrMasterProfile(owner, "mine.txt", lines), 0);
  STG::NameValueSeq loaded;
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile(owner, "mine.txt", loaded), 0);
  ASSERT_EQ(loaded.size(), 2U);
  EXPECT_EQ(loaded[1].name, "formula");
  EXPECT_EQ(loaded[1].value, "a=b");
  EXPECT_EQ(vu_storage::loadUserOrMasterProfile(owner, "", loaded), 1);
  EXPECT_EQ(loaded.size(), 2U);
}

TEST_F(DocumentClient, LearnsWhatFails) {
  const recording_sink sink;
  vu_file file;
  std::string bytes = "before";
  facade.Read(file, bytes, 0);
  EXPECT_EQ(bytes, "");
  facade.Write(file, "abc");
  facade.Close(file);
  EXPECT_EQ(sink.events(trace_event::error),
            (Texts{"vu_storage::Read: vu_file::read : read op in write or truncate access file",
                   "vu_storage::Write : vu_file::write : write operation in read access file"}));
}

TEST(DocumentExtension, IsOneOfSeven) {
  program_storage();
  EXPECT_TRUE(vu_storage::isVuDocExt("kda"));
  EXPECT_TRUE(vu_storage::isVuDocExt("kdg"));
  EXPECT_FALSE(vu_storage::isVuDocExt("kdh"));
  EXPECT_FALSE(vu_storage::isVuDocExt(".kda"));
}

// Key files, through the exported interface alone.

using Texts = std::vector<std::string>;
using Pairs = std::vector<std::pair<std::string, std::string>>;
using vu_host::trace_event;

Pairs pairs_of(const STG::NameValueSeq& seq) {
  Pairs pairs;
  for (std::size_t i = 0; i < seq.size(); ++i) pairs.emplace_back(seq[i].name, seq[i].value);
  return pairs;
}

class KeyFileClient : public testing::Test {
 protected:
  const std::string root = program_storage();
  const scratch_folder scratch;
};

TEST_F(KeyFileClient, ReadsBackTheLinesThatItWrote) {
  STG::NameValueSeq lines;
  lines.push_back({"language", "en"});
  lines.push_back({"formula", "a=b+c"});
  lines.push_back({"empty", ""});
  lines.push_back({"language", "de"});
  const std::string text = vu_storage::getStringFromNameValueSeq(lines);
  EXPECT_EQ(text, "language=en\nformula=a=b+c\nempty=\nlanguage=de\n");
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", text, true));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), text);

  STG::NameValueSeq read;
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "keys.txt", read, false), 0L);
  EXPECT_EQ(pairs_of(read), pairs_of(lines));
}

TEST_F(KeyFileClient, AppendsLinesOrReplacesThem) {
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "a=1\n", false));
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "b=2\n", false));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), "a=1\nb=2\n");
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "c=3\n", true));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), "c=3\n");
  EXPECT_TRUE(vu_storage::writeKeysFile(scratch.path(), "keys.txt", "", true));
  EXPECT_EQ(read_file(scratch.path("keys.txt")), "c=3\n");
}

TEST_F(KeyFileClient, ReadsLinesOfOtherProgramsWithTheGivenSeparator) {
  write_file(scratch.path("keys.txt"), "a=b=c\r\n\r\nx=1\ty=2\tno separator\n z = 3 ");
  STG::NameValueSeq seq;
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "keys.txt", seq, false), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "b=c"}, {"x", "1"}, {"y", "2"}, {" z ", " 3 "}}));
  seq.clear();
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "keys.txt", seq, true), 0L);
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a=b", "c"}, {"x", "1"}, {"y", "2"}, {" z ", " 3 "}}));
}

TEST_F(KeyFileClient, ReadsLinesFromAFileThatItOpened) {
  write_file(scratch.path("keys.txt"), "a=1\nb=2\n");
  vu_file file(scratch.path(), "keys.txt");
  file.open(vu_file_base::o_read);
  STG::NameValueSeq seq;
  EXPECT_TRUE(vu_storage::Read(file, seq, false));
  EXPECT_EQ(pairs_of(seq), (Pairs{{"a", "1"}, {"b", "2"}}));
  file.close();

  vu_file never_opened;
  EXPECT_FALSE(vu_storage::Read(never_opened, seq, false));
  EXPECT_EQ(seq.size(), 2U);
}

TEST_F(KeyFileClient, LearnsThatAFileIsMissing) {
  const recording_sink sink;
  STG::NameValueSeq seq;
  EXPECT_EQ(vu_storage::readKeysFile(scratch.path(), "gone.txt", seq, false), 1L);
  EXPECT_EQ(sink.events(trace_event::warning),
            Texts{"vu_storage::readKeysFile : " + scratch.path("gone.txt") + " not found"});
  EXPECT_TRUE(seq.empty());
}

TEST_F(KeyFileClient, LearnsThatItCannotWrite) {
  const recording_sink sink;
  EXPECT_FALSE(vu_storage::writeKeysFile(scratch.path("gone"), "keys.txt", "a=1\n", true));
  EXPECT_EQ(sink.count(trace_event::error, "vu_storage::writeKeysFile : throw exception on open"),
            1U);
  EXPECT_TRUE(list_folder(scratch.path()).empty());
}

// Sub-parts, through the exported interface alone.

using Texts = std::vector<std::string>;
using vu_host::trace_event;

constexpr const char* kEntry = "sales.kdc";
constexpr const char* kPart = "page1.htm";

class SubPartClient : public testing::Test {
 protected:
  ~SubPartClient() override { vu_storage::setTdcTimeStamp(""); }

  /// Stores the document. @return the path of its file.
  std::string store(const std::string& entry, std::int64_t time) {
    vu_file file;
    facade.OpenWrite(file, owner, entry, kDocs, true, 7);
    EXPECT_TRUE(file.is_open());
    facade.Write(file, "document");
    std::string path = file.getFilePath();
    facade.Close(file);
    set_modify_time(path, time);
    return path;
  }

  bool store_part(const std::string& entry, const std::string& selector, const std::string& bytes) {
    vu_file file;
    facade.OpenWriteSubPart(file, owner, entry, selector, kPart, 7);
    if (!file.is_open()) return false;
    facade.Write(file, bytes);
    facade.Close(file);
    return true;
  }

  std::string fetch_part(const std::string& entry, const std::string& selector) {
    vu_file file;
    facade.OpenReadSubPart(file, "reader", owner, entry, selector, kPart, 7);
    if (!file.is_open()) return "(closed)";
    std::string bytes;
    facade.Read(file, bytes, 0);
    facade.Close(file);
    return bytes;
  }

  /// Required: before the facade object, which would initialise another root.
  const std::string root = program_storage();
  vu_storage facade;
  /// A different owner for every test.
  const std::string owner =
      std::string("parts of ") + testing::UnitTest::GetInstance()->current_test_info()->name();
};

TEST_F(SubPartClient, StoresPartsAndIsServedThemUntilTheDocumentIsNewer) {
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "(closed)");
  const std::string document = store(kEntry, 1'000'000'000);
  for (const std::string selector : {"html@p1", "pdf@p1", "xls"}) {
    SCOPED_TRACE(selector);
    EXPECT_EQ(fetch_part(kEntry, selector), "(closed)");
    EXPECT_TRUE(store_part(kEntry, selector, "for " + selector));
    EXPECT_EQ(fetch_part(kEntry, selector), "for " + selector);
  }
  EXPECT_EQ(list_folder(document + "_"), (Texts{"html", "pdf", "xls"}));

  set_modify_time(document + "_\\html\\p1\\" + kPart, 1'000'000'000);
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "for html@p1");
  set_modify_time(document, 1'000'000'001);
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "(closed)");
  EXPECT_EQ(fetch_part(kEntry, "xls"), "for xls");
}

TEST_F(SubPartClient, LosesThePartsOfADocumentThatItReplaces) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "html@p1", "part"));
  EXPECT_EQ(store(kEntry, 1'000'000'000), document);
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "(closed)");
  EXPECT_FALSE(folder_exists(document + "_"));
}

TEST_F(SubPartClient, KeepsPartsOfDifferentStampsApart) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "xls", "without"));
  vu_storage::setTdcTimeStamp("2024");
  EXPECT_EQ(fetch_part(kEntry, "xls"), "(closed)");
  EXPECT_TRUE(store_part(kEntry, "xls", "with"));
  EXPECT_EQ(fetch_part(kEntry, "xls"), "with");
  EXPECT_TRUE(folder_exists(document + "_2024\\xls"));
  vu_storage::setTdcTimeStamp("");
  EXPECT_EQ(fetch_part(kEntry, "xls"), "without");
}

TEST_F(SubPartClient, IsServedANewerPreloadCopy) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "html@p1", "part"));
  set_modify_time(document + "_\\html\\p1\\" + kPart, 1'000'000'100);
  make_folder(document + "_\\html\\preload");
  write_file(document + "_\\html\\preload\\" + kPart, "preloaded");
  set_modify_time(document + "_\\html\\preload\\" + kPart, 1'000'000'200);

  const recording_sink sink;
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "preloaded");
  EXPECT_EQ(fetch_part(kEntry, "html@p1"), "preloaded");
  EXPECT_EQ(sink.count(trace_event::success, "case 1: Doc must be updated from preload"), 1U);
  EXPECT_EQ(sink.count(trace_event::success, "case 0 : Doc is up to date"), 1U);
}

TEST_F(SubPartClient, WritesAndReadsASelectorOfAnotherKindInDifferentFolders) {
  const std::string document = store(kEntry, 1'000'000'000);
  EXPECT_TRUE(store_part(kEntry, "a@b", "part"));
  EXPECT_EQ(read_file(document + "_\\a\\b\\" + kPart), "part");
  EXPECT_EQ(fetch_part(kEntry, "a@b"), "(closed)");
  EXPECT_EQ(list_folder(document + "_"), (Texts{"a", "a@b"}));
}

TEST_F(SubPartClient, IsServedThePartOfATableWhateverItsAge) {
  const std::string document = store("table.kdf", 2'000'000'000);
  EXPECT_TRUE(store_part("table.kdf", "xls", "part"));
  set_modify_time(document + "_\\xls\\" + kPart, 1);
  EXPECT_EQ(fetch_part("table.kdf", "xls"), "part");
}

TEST_F(SubPartClient, ReceivesTheSizeOfAPartAndZeroWithoutOne) {
  store(kEntry, 1'000'000'000);
  vu_file file;
  unsigned long size = 77;
  facade.OpenReadSubPartEx(file, "reader", owner, kEntry, "xls", kPart, 7, size);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(size, 0UL);
  EXPECT_TRUE(store_part(kEntry, "xls", "12345"));
  facade.OpenReadSubPartEx(file, vu_utf8string("reader"), vu_utf8string(owner),
                           vu_utf8string(kEntry), "xls", kPart, 7, size);
  EXPECT_TRUE(file.is_open());
  EXPECT_EQ(size, 5UL);
}

TEST_F(SubPartClient, CannotStoreAPartOfAnUnknownVersion) {
  store(kEntry, 1'000'000'000);
  const recording_sink sink;
  vu_file file;
  facade.OpenWriteSubPart(file, vu_utf8string(owner), vu_utf8string(kEntry), "xls", kPart, 8);
  EXPECT_FALSE(file.is_open());
  EXPECT_EQ(sink.events(trace_event::error),
            Texts{"OpenWriteSubPart : entry not found ! entry=sales.kdc TS=8"});
}

// Users as a whole, and the removal of single documents, through the exported interface alone.

class UserClient : public testing::Test {
 protected:
  static void store(const std::string& user, STG::RepositoryType type, const std::string& bytes) {
    vu_storage facade;
    vu_file file;
    facade.OpenWrite(file, user, "notes.kda", type, false, 0);
    ASSERT_TRUE(file.is_open());
    facade.Write(file, bytes);
    facade.Close(file);
  }

  static std::string fetch(const std::string& user, STG::RepositoryType type) {
    vu_storage facade;
    vu_file file;
    facade.OpenRead(file, user, "notes.kda", type, 0);
    if (!file.is_open()) return "(closed)";
    std::string bytes;
    facade.Read(file, bytes, 0);
    return bytes;
  }

  /// A user name that only this test uses.
  static std::string user(const std::string& name) {
    return name + " of " + testing::UnitTest::GetInstance()->current_test_info()->name();
  }

  const std::string root = program_storage();
};

TEST_F(UserClient, TakesMailAndDocumentsAlongWhenAUserIsRenamed) {
  store(user("old"), STG::MailRepository, "mail");
  store(user("old"), STG::UserRepository, "own");
  store(user("old"), STG::CorporateRepository, "corporate");
  make_folder(root + "\\list\\" + user("old"));
  EXPECT_TRUE(vu_storage::RenameUserStorage(user("old"), user("new")));
  EXPECT_EQ(fetch(user("new"), STG::MailRepository), "mail");
  EXPECT_EQ(fetch(user("new"), STG::UserRepository), "own");
  EXPECT_TRUE(folder_exists(root + "\\list\\" + user("new")));
  // Corporate documents stay under the name of their owner.
  EXPECT_EQ(fetch(user("new"), STG::CorporateRepository), "(closed)");
  EXPECT_EQ(fetch(user("old"), STG::CorporateRepository), "corporate");
}

TEST_F(UserClient, CannotRenameAUserToOneThatIsThere) {
  store(user("old"), STG::MailRepository, "mail");
  store(user("new"), STG::UserRepository, "own");
  EXPECT_FALSE(vu_storage::RenameUserStorage(user("old"), user("new")));
  EXPECT_EQ(fetch(user("old"), STG::MailRepository), "mail");
}

TEST_F(UserClient, RemovesUsersTogether) {
  for (const char* name : {"a", "b", "c"}) {
    store(user(name), STG::MailRepository, "mail");
    store(user(name), STG::UserRepository, "own");
  }
  EXPECT_TRUE(vu_storage::RemoveUsersStorage(
      {vu_utf8string(user("a")), vu_utf8string(user("unknown")), vu_utf8string(user("c"))}));
  for (const char* area : {"\\mail\\", "\\user\\"}) {
    EXPECT_FALSE(folder_exists(root + area + user("a")));
    EXPECT_TRUE(folder_exists(root + area + user("b")));
    EXPECT_FALSE(folder_exists(root + area + user("c")));
  }
  EXPECT_TRUE(vu_storage::RemoveUserStorage(vu_utf8string(user("b"))));
  EXPECT_FALSE(folder_exists(root + "\\mail\\" + user("b")));
}

TEST_F(UserClient, RemovesADocumentWithItsLinesInCategoriesAndAttributes) {
  const std::string owner = user("jdoe");
  store(owner, STG::UserFilesRepository, "own");
  const std::string folder = root + "\\user\\" + owner;
  const std::string category = STGIndex::getPhysicalPath(folder, "reports.ctg");
  write_file(category, "notes.kda=1\nother.kda=2\n");
  write_file(folder + "\\attribut.txt", "other.kda=x\nnotes.kda=y\n");
  EXPECT_TRUE(vu_storage::RemoveFile(owner, "notes.kda", STG::UserFilesRepository, 0));
  EXPECT_EQ(fetch(owner, STG::UserFilesRepository), "(closed)");
  EXPECT_EQ(read_file(category), "other.kda=2\n");
  EXPECT_EQ(read_file(folder + "\\attribut.txt"), "other.kda=x\n");

  // A second removal, and one for an unknown owner, have nothing to do and succeed.
  EXPECT_TRUE(vu_storage::RemoveFile(vu_utf8string(owner), vu_utf8string("notes.kda"),
                                     STG::UserFilesRepository, 0));
  EXPECT_TRUE(vu_storage::RemoveFile(user("nobody"), "notes.kda", STG::UserFilesRepository, 0));
}

}  // namespace
