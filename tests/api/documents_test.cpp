#include <gtest/gtest.h>

#include <ctime>
#include <string>
#include <vector>

#include "tests/api/program_storage.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

// A client's day with documents, through the exported interface alone.

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

  /// Initialised before the facade's object, which would do so elsewhere.
  const std::string root = program_storage();
  vu_storage facade;
  /// One of its own for every test.
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

  // There already: left alone unless it is to be replaced.
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
  // Without adoption nothing accounts for the file any more.
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

TEST_F(DocumentClient, IsToldWhatFails) {
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

}  // namespace
