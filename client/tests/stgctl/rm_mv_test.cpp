#include "client/tests/stgctl/fixture.h"

class ClientRm : public Client {
 protected:
  ClientRm() { init(); }
  static std::string folder_of(const std::string& path) {
    return path.substr(0, path.find_last_of("/\\"));
  }
};
class ClientMv : public ClientRm {};

TEST_F(ClientRm, RemovesADocumentWithItsParts) {
  put("a.kdc", "text");
  put("b.kdc", "other");
  const std::string file = physical("docs", "a.kdc");
  make_folder(file + "_\\html\\page");
  write_file(file + "_\\html\\page\\1", "x");
  make_folder(file + "_2024");
  // Neither of these belongs to it.
  make_folder(file + "x");
  const std::vector<Json> lines = json({"rm", "a.kdc", "--owner", "anna", "--yes"});
  EXPECT_EQ(actions(lines), std::vector<std::string>{"removed a.kdc"});
  EXPECT_EQ(lines[0].at("part_folders"), 2);
  EXPECT_FALSE(file_exists(file));
  EXPECT_FALSE(folder_exists(file + "_"));
  EXPECT_FALSE(folder_exists(file + "_2024"));
  EXPECT_TRUE(folder_exists(file + "x"));
  EXPECT_EQ(physical("docs", "a.kdc"), "(no file)");
  EXPECT_EQ(get("b.kdc"), "other");
}

TEST_F(ClientRm, LeavesThePartsOfADocumentWithALongerName) {
  const std::string folder = storage() + "\\user\\anna";
  make_folder(folder + "\\a_b.kdc_");
  write_file(folder + "\\a", "1");
  write_file(folder + "\\a_b.kdc", "2");
  ASSERT_EQ(change({"sync", "--area", "user"}).code, 0);
  ASSERT_EQ(change({"rm", "a", "--area", "user"}).code, 0);
  EXPECT_FALSE(file_exists(folder + "\\a"));
  EXPECT_TRUE(folder_exists(folder + "\\a_b.kdc_"));
}

TEST_F(ClientRm, ChangesNothingInADryRun) {
  put("a.kdc", "text");
  const std::string before = tree();
  const outcome result = on_tree({"rm", "a.kdc", "--owner", "anna", "-n"});
  EXPECT_EQ(result.code, 0);
  EXPECT_NE(result.out.find("would be removed"), std::string::npos);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientRm, WantsToKnowWhichOfSeveralVersions) {
  put("v.kdf", "1", 1);
  put("v.kdf", "2", 2);
  put("v.kdf", "3", 3);
  EXPECT_EQ(change({"rm", "v.kdf"}).code, 12);
  EXPECT_EQ(change({"rm", "v.kdf", "--timestamp", "2"}).code, 0);
  EXPECT_EQ(get("v.kdf", {"--timestamp", "1"}), "1");
  EXPECT_EQ(change({"rm", "v.kdf", "--timestamp", "2"}).code, 3);
  EXPECT_EQ(change({"rm", "v.kdf", "--all-versions"}).code, 0);
  EXPECT_EQ(physical("docs", "v.kdf"), "(no file)");
}

TEST_F(ClientRm, RemovesWhatMatchesAPattern) {
  put("a1.kdc", "1");
  put("a2.kdc", "2");
  put("b1.kdc", "3");
  const outcome result = change({"rm", "--match", "a?.kdc"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(physical("docs", "a1.kdc"), "(no file)");
  EXPECT_EQ(physical("docs", "a2.kdc"), "(no file)");
  EXPECT_EQ(get("b1.kdc"), "3");
  EXPECT_EQ(change({"rm", "--match", "c*"}).code, 3);
  EXPECT_EQ(change({"rm"}).code, 2);
}

TEST_F(ClientRm, RemovesTheKeyLinesThatNameTheDocument) {
  ASSERT_EQ(change({"put", source("a.txt", "x"), "--area", "user"}).code, 0);
  ASSERT_EQ(change({"keys", "set", "attribut.txt", "a.txt=1", "b.txt=2"}).code, 0);
  ASSERT_EQ(change({"rm", "a.txt", "--area", "user"}).code, 0);
  EXPECT_EQ(get("attribut.txt", {"--area", "user"}), "b.txt=2\n");
}

TEST_F(ClientRm, LeavesKeyLinesWhereTheLibraryWouldCutAnotherOne) {
  ASSERT_EQ(change({"put", source("b.txt", "x"), "--area", "user"}).code, 0);
  ASSERT_EQ(change({"keys", "set", "attribut.txt", "ab.txt=1", "b.txt=2"}).code, 0);
  const outcome result = change({"rm", "b.txt", "--area", "user"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.err.find("attribut.txt"), std::string::npos);
  EXPECT_EQ(get("attribut.txt", {"--area", "user"}), "ab.txt=1\nb.txt=2\n");
}

TEST_F(ClientMv, RenamesWithinAFolder) {
  ASSERT_EQ(change({"put", source("a.txt", "x", 1'111'111'111), "--area", "user"}).code, 0);
  const std::vector<Json> lines =
      json({"mv", "a.txt", "b.txt", "--area", "user", "--owner", "anna", "--yes"});
  EXPECT_EQ(lines[0].at("action"), "moved");
  EXPECT_EQ(lines[0].at("name"), "a.txt");
  EXPECT_EQ(lines[0].at("new_name"), "b.txt");
  EXPECT_EQ(get("b.txt", {"--area", "user"}), "x");
  EXPECT_EQ(physical("user", "a.txt"), "(no file)");
  EXPECT_EQ(get_modify_time(physical("user", "b.txt")), 1'111'111'111);
}

TEST_F(ClientMv, TakesADocumentToTheFolderOfItsNewName) {
  put("a.kdc", "text", 0, 1'111'111'111);
  const std::string old_file = physical("docs", "a.kdc");
  make_folder(old_file + "_\\html");
  ASSERT_EQ(change({"mv", "a.kdc", "something else.kdc"}).code, 0);
  EXPECT_EQ(get("something else.kdc"), "text");
  const std::string new_file = physical("docs", "something else.kdc");
  EXPECT_NE(folder_of(new_file), folder_of(old_file));
  EXPECT_EQ(get_modify_time(new_file), 1'111'111'111);
  EXPECT_FALSE(file_exists(old_file));
  EXPECT_FALSE(folder_exists(old_file + "_"));
}

TEST_F(ClientMv, GivesAVersionAnotherStamp) {
  put("v.kdf", "1", 1);
  ASSERT_EQ(change({"mv", "v.kdf", "v.kdf", "--new-timestamp", "9"}).code, 0);
  EXPECT_EQ(get("v.kdf", {"--timestamp", "9"}), "1");
  EXPECT_EQ(on_tree({"get", "v.kdf", "--timestamp", "1", "--owner", "anna"}).code, 3);
  EXPECT_EQ(change({"mv", "v.kdf", "v.kdf"}).code, 12);
}

TEST_F(ClientMv, ReplacesOnlyWhenTold) {
  put("a.kdc", "a");
  put("b.kdc", "b");
  const std::string before = tree();
  EXPECT_EQ(change({"mv", "a.kdc", "b.kdc"}).code, 12);
  EXPECT_EQ(change({"mv", "x.kdc", "b.kdc"}).code, 3);
  EXPECT_EQ(on_tree({"mv", "a.kdc", "b.kdc", "--replace", "--owner", "anna", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"mv", "a.kdc", "b.kdc", "--replace", "--owner", "anna"}).code, 12);
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(change({"mv", "a.kdc", "b.kdc", "--replace"}).code, 0);
  EXPECT_EQ(get("b.kdc"), "a");
}
