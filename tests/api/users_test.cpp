#include <gtest/gtest.h>

#include <string>

#include "stg_index.h"
#include "tests/api/program_storage.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

// Users as a whole, and the removal of single documents, through the exported interface alone.

namespace {

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

  /// A user's name that only this test uses.
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
  // What belongs to everybody stays under its owner's name.
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

  // Once more, and for an owner that nobody knows: nothing is left to do, which is a success.
  EXPECT_TRUE(vu_storage::RemoveFile(vu_utf8string(owner), vu_utf8string("notes.kda"),
                                     STG::UserFilesRepository, 0));
  EXPECT_TRUE(vu_storage::RemoveFile(user("nobody"), "notes.kda", STG::UserFilesRepository, 0));
}

}  // namespace
