#include "client/tests/stgctl/fixture.h"

class ClientKeys : public Client {
 protected:
  ClientKeys() { init(); }
  std::string text(const std::string& file) { return get(file, {"--area", "user"}); }
};
class ClientUser : public ClientKeys {};

TEST_F(ClientKeys, SetsLinesAndLeavesTheOthers) {
  ASSERT_EQ(
      change({"put", source("k.ctg", "a=1\r\nno key\tb=2\nb=3\nlast"), "--area", "user"}).code, 0);
  const outcome result = change({"keys", "set", "k.ctg", "b=new", "c=x=y"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(text("k.ctg"), "a=1\r\nno key\tb=new\nlast\nc=x=y\n");
}

TEST_F(ClientKeys, MakesAMissingFile) {
  const std::vector<Json> lines = json({"keys", "set", "k.ctg", "a=1", "--owner", "anna", "--yes"});
  EXPECT_EQ(lines[0].at("schema"), "stgctl.keys.set/1");
  EXPECT_EQ(lines[0].at("action"), "set");
  EXPECT_EQ(lines[0].at("key"), "a");
  EXPECT_EQ(lines[0].at("value"), "1");
  EXPECT_EQ(text("k.ctg"), "a=1\n");
}

TEST_F(ClientKeys, RemovesLines) {
  ASSERT_EQ(change({"keys", "set", "k.ctg", "a=1", "ab=2", "b=3"}).code, 0);
  const outcome unset = change({"keys", "unset", "k.ctg", "a", "z"});
  EXPECT_EQ(unset.code, 0);
  EXPECT_NE(unset.out.find("there is no line with the name z\n"), std::string::npos) << unset.out;
  EXPECT_EQ(text("k.ctg"), "ab=2\nb=3\n");
  EXPECT_EQ(change({"keys", "unset", "k.ctg", "ab", "b"}).code, 0);
  EXPECT_EQ(text("k.ctg"), "");
  EXPECT_EQ(change({"keys", "unset", "none.ctg", "a"}).code, 3);
  EXPECT_EQ(physical("user", "none.ctg"), "(no file)");
}

TEST_F(ClientKeys, ChangesNothingInADryRun) {
  ASSERT_EQ(change({"keys", "set", "k.ctg", "a=1"}).code, 0);
  const std::string before = tree();
  EXPECT_EQ(on_tree({"keys", "set", "k.ctg", "a=2", "--owner", "anna", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"keys", "set", "other.ctg", "a=2", "--owner", "anna", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"keys", "unset", "k.ctg", "a", "--owner", "anna", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"profile", "set", "a=2", "--owner", "anna", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"profile", "set", "a=2", "--owner", "anna"}).code, 12);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientKeys, RefusesWhatAKeyFileCannotHold) {
  const std::string before = tree();
  EXPECT_EQ(change({"keys", "set", "k.ctg", "a"}).code, 2);
  EXPECT_EQ(change({"keys", "set", "k.ctg", "=a"}).code, 2);
  EXPECT_EQ(change({"keys", "unset", "k.ctg", "a=b"}).code, 2);
  EXPECT_EQ(change({"keys", "set", "k.ctg", "a=b\tc"}).code, 12);
  EXPECT_EQ(change({"keys", "set", "k.ctg", "a=b\nc=d"}).code, 12);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientKeys, LeavesAFileAloneThatSaysSoAlready) {
  ASSERT_EQ(change({"keys", "set", "k.ctg", "a=1"}).code, 0);
  const std::string path = physical("user", "k.ctg");
  set_modify_time(path, 1'000'000'000);
  EXPECT_EQ(change({"keys", "set", "k.ctg", "a=1"}).code, 0);
  EXPECT_EQ(get_modify_time(path), 1'000'000'000);
}

TEST_F(ClientKeys, SetsAProfile) {
  ASSERT_EQ(change({"profile", "set", "language=de"}).code, 0);
  EXPECT_EQ(text("profile.txt"), "language=de\n");
  ASSERT_EQ(change({"profile", "set", "--file", "other.txt", "language=fr"}).code, 0);
  EXPECT_EQ(text("other.txt"), "language=fr\n");
}

TEST_F(ClientUser, ListsOwnersWithTheirAreas) {
  put("a.kdc", "x");
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  make_folder(storage() + "\\mail\\bert");
  const std::string before = tree();
  const std::vector<Json> lines = json({"user", "list"});
  ASSERT_EQ(lines.size(), 2U);
  EXPECT_EQ(lines[0].at("schema"), "stgctl.user.list/1");
  EXPECT_EQ(lines[0].at("owner"), "anna");
  EXPECT_EQ(lines[0].at("areas").dump(), R"(["docs","user"])");
  EXPECT_EQ(lines[1].at("owner"), "bert");
  EXPECT_EQ(on_tree({"user", "list", "--owner", "carl"}).code, 3);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientUser, RenamesAnOwner) {
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  make_folder(storage() + "\\mail\\anna");
  const std::string before = tree();
  EXPECT_EQ(on_tree({"user", "rename", "anna", "bert", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"user", "rename", "anna", "bert"}).code, 12);
  EXPECT_EQ(on_tree({"user", "rename", "carl", "bert", "-y"}).code, 3);
  EXPECT_EQ(on_tree({"user", "rename", "anna", "..", "-y"}).code, 12);
  EXPECT_EQ(tree(), before);
  EXPECT_EQ(json({"user", "rename", "anna", "bert", "-y"}).back().at("done"), 2);
  EXPECT_EQ(list_folder(storage() + "\\user"), std::vector<std::string>{"bert"});
  EXPECT_EQ(list_folder(storage() + "\\mail"), std::vector<std::string>{"bert"});
}

TEST_F(ClientUser, RefusesANameThatIsTaken) {
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  make_folder(storage() + "\\list\\bert");
  const std::string before = tree();
  EXPECT_EQ(on_tree({"user", "rename", "anna", "bert", "-y"}).code, 12);
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientUser, GoesOverAllAreasAndSaysSoWhereOneIsNamed) {
  put("a.kdc", "x");
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  const std::string before = tree();
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"user", "rename", "docs/anna", "docs/bert", "-y"},
                                             {"user", "rename", "anna", "user/bert", "-y"},
                                             {"user", "remove", "user/anna", "-y"}}) {
    const outcome result = on_tree(command);
    EXPECT_EQ(result.code, 12) << command[2];
    EXPECT_NE(result.err.find("names one area"), std::string::npos) << result.err;
    EXPECT_NE(result.err.find("; use '"), std::string::npos) << result.err;
  }
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientUser, TellsOfEachThatIsUnknownAndRemovesTheOthers) {
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  const outcome result = on_tree({"user", "remove", "anna", "carl", "-y"});
  EXPECT_EQ(result.code, 5) << result.out;
  EXPECT_NE(result.err.find("carl"), std::string::npos) << result.err;
  EXPECT_EQ(list_folder(storage() + "\\user"), std::vector<std::string>());
}

TEST_F(ClientUser, RemovesAnOwnerAndNobodyElse) {
  put("a.kdc", "x");
  ASSERT_EQ(change({"profile", "set", "a=b"}).code, 0);
  make_folder(storage() + "\\user\\bert\\deep");
  write_file(storage() + "\\user\\bert\\deep\\file", "12345");
  const std::string before = tree();
  EXPECT_EQ(on_tree({"user", "remove", "bert", "-n"}).code, 0);
  EXPECT_EQ(on_tree({"user", "remove", "bert"}).code, 12);
  EXPECT_EQ(on_tree({"user", "remove", "..", "-y"}).code, 12);
  EXPECT_EQ(on_tree({"user", "remove", "carl", "-y"}).code, 3);
  EXPECT_EQ(tree(), before);
  const std::vector<Json> lines = json({"user", "remove", "bert", "-y"});
  EXPECT_EQ(lines[0].at("files"), 1);
  EXPECT_EQ(lines[0].at("bytes"), 5);
  EXPECT_EQ(list_folder(storage() + "\\user"), std::vector<std::string>{"anna"});
  EXPECT_EQ(on_tree({"user", "remove", "anna", "-y"}).code, 0);
  // Corporate documents stay.
  EXPECT_EQ(get("a.kdc"), "x");
}
