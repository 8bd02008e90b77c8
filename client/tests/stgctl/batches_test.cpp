// Many versions at once: replaced, moved, imported.
#if !defined(_WIN32)
#include <unistd.h>
#endif

#include <filesystem>

#include "client/tests/stgctl/fixture.h"
#include "vu_file.h"

namespace fs = std::filesystem;

class ClientBatches : public Client {
 protected:
  ClientBatches() { init(); }

  /// Creates a number of files to store. @return their folder.
  std::string sources(int count, const std::string& bytes) {
    make_folder(scratch().path("in\\many"));
    for (int i = 0; i < count; ++i)
      source("many\\f" + std::to_string(i) + ".kdc", bytes + std::to_string(i));
    return shell_path(scratch().path("in\\many"));
  }
  void put_many(int count, const std::string& bytes, const std::string& area = "docs") {
    const outcome result = change({"put", sources(count, bytes), "--replace", "--area", area});
    ASSERT_EQ(result.code, 0) << result.err;
  }
  void expect_sound() {
    const outcome result = on_tree({"check"});
    EXPECT_EQ(result.code, 0) << result.out;
  }
  static std::string folder_of(const std::string& path) {
    return path.substr(0, path.find_last_of("/\\"));
  }
};

TEST_F(ClientBatches, ReplaceManyVersionsWhereTheyAre) {
  constexpr int kFiles = 150;
  put_many(kFiles, "old", "user");
  const std::string index = storage() + "\\user\\anna\\index.dat";
  const std::string lines = read_file(index);
  const std::string parts = physical("user", "f7.kdc") + "_\\html";
  make_folder(parts);
  const std::vector<Json> told = json(
      {"put", sources(kFiles, "new"), "--replace", "--area", "user", "--owner", "anna", "--yes"});
  EXPECT_EQ(told.back().at("done"), kFiles);
  EXPECT_EQ(told[0].at("action"), "replaced");
  // Each version keeps its file, so the index does not change.
  EXPECT_EQ(read_file(index), lines);
  for (const int i : {0, 7, kFiles - 1}) {
    const std::string number = std::to_string(i);
    EXPECT_EQ(get("f" + number + ".kdc", {"--area", "user"}), "new" + number);
  }
  EXPECT_FALSE(folder_exists(parts));
  expect_sound();
}

TEST_F(ClientBatches, ReplaceAndStoreInOneWork) {
  put_many(3, "old");
  sources(5, "new");
  const std::vector<Json> told = json(
      {"put", shell_path(scratch().path("in\\many")), "--replace", "--owner", "anna", "--yes"});
  int replaced = 0;
  for (const Json& line : told) replaced += line.value("action", "") == "replaced" ? 1 : 0;
  EXPECT_EQ(replaced, 3);
  EXPECT_EQ(told.back().at("done"), 5);
  EXPECT_EQ(get("f0.kdc"), "new0");
  EXPECT_EQ(get("f4.kdc"), "new4");
  expect_sound();
}

TEST_F(ClientBatches, WriteAVersionInPlaceThatSomebodyHasOpen) {
  put_many(2, "old");
  const std::string path = physical("docs", "f1.kdc");
  vu_file reader(folder_of(path), path.substr(path.find_last_of("/\\") + 1));
  reader.open(vu_file::o_read);
  running_program program({"put", sources(2, "new"), "--replace", "--owner", "anna", "--yes",
                           "--root", shell_path(root())},
                          {{"STG_ROOT", ""}});
  EXPECT_TRUE(program.complains("waiting for"));
  std::string bytes;
  reader.read(bytes, 0);
  EXPECT_EQ(bytes, "old1");
  reader.close();
  const outcome result = program.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(get("f0.kdc"), "new0");
  EXPECT_EQ(get("f1.kdc"), "new1");
  expect_sound();
}

TEST_F(ClientBatches, MoveWhatAPatternMatches) {
  constexpr int kFiles = 120;
  put_many(kFiles, "x");
  put("other.kdf", "stays");
  const std::string before = tree();
  const std::vector<std::string> move = {"mv",         "--match", "f*.kdc", "--to",
                                         "g*.old.kdc", "--owner", "anna"};
  std::vector<std::string> dry = move;
  dry.emplace_back("-n");
  EXPECT_NE(on_tree(dry).out.find("would be moved  docs/anna/f7.kdc@0  to docs/anna/g7.old.kdc@0"),
            std::string::npos);
  EXPECT_EQ(tree(), before);
  std::vector<std::string> really = move;
  really.emplace_back("--yes");
  const std::vector<Json> told = json(really);
  EXPECT_EQ(told.back().at("done"), kFiles);
  EXPECT_EQ(told.back().at("bytes"), 10 * 2 + 90 * 3 + 20 * 4);
  EXPECT_EQ(get("g119.old.kdc"), "x119");
  EXPECT_EQ(on_tree({"ls", "f*.kdc"}).code, 3);
  EXPECT_EQ(lines_of(on_tree({"ls"}).out).size(), kFiles + 1U);
  EXPECT_EQ(get_modify_time(physical("docs", "g0.old.kdc")), 1'600'000'000);
  expect_sound();
  // There is nothing left to move.
  EXPECT_EQ(on_tree(really).code, 3);
}

TEST_F(ClientBatches, MoveToAnotherOwnerAndArea) {
  put("a.kdf", "1", 4);
  put("b.kdf", "2", 5);
  ASSERT_EQ(on_tree({"mv", "--match", "docs/anna/*", "--to", "user/bert/my*", "--yes"}).code, 0);
  EXPECT_EQ(on_tree({"cat", "user/bert/mya.kdf@4"}).out, "1");
  EXPECT_EQ(on_tree({"cat", "user/bert/myb.kdf@5"}).out, "2");
  EXPECT_EQ(on_tree({"ls", "--owner", "anna"}).code, 3);
  ASSERT_EQ(on_tree({"mv", "user/bert/mya.kdf@4", "docs/anna/a.kdf", "--yes"}).code, 0);
  EXPECT_EQ(on_tree({"cat", "docs/anna/a.kdf@4"}).out, "1");
}

TEST_F(ClientBatches, MoveByAPatternWithSeveralStars) {
  put("ra-b-\xC3\xA4-c.kdc", "1");
  put("r-\xC3\xB6x.kdc", "2");
  ASSERT_EQ(change({"mv", "--match", "r*-?*.kdc", "--to", "*+*.kdc"}).code, 0);
  // Each star takes as little as possible; "?" takes a whole character.
  EXPECT_EQ(get("a+-\xC3\xA4-c.kdc"), "1");
  EXPECT_EQ(get("+x.kdc"), "2");
}

TEST_F(ClientBatches, RefuseMovesThatWouldLoseAVersion) {
  put("a1.kdc", "1");
  put("a2.kdc", "2");
  put("b1.kdc", "3");
  const std::string before = tree();
  const auto refused = [&](std::vector<std::string> command, int code, const std::string& why) {
    command.insert(command.begin(), "mv");
    const outcome result = change(command);
    EXPECT_EQ(result.code, code) << result.out;
    EXPECT_NE(result.err.find(why), std::string::npos) << result.err;
  };
  refused({"--match", "a*.kdc", "--to", "b*.kdc"}, 12, "b1.kdc@0 already exists; use --replace");
  refused({"--match", "a?.kdc", "--to", "c.kdc"}, 12, "two versions would get the name");
  refused({"--match", "a*.kdc", "--to", "x*y*.kdc"}, 2, "as many");
  refused({"--match", "a*.kdc"}, 2, "--match PATTERN --to PATTERN");
  refused({"--match", "a*.kdc", "--to", "../*.kdc"}, 12, "is not allowed");
  refused({"--match", "none*", "--to", "b*"}, 3, "nothing matches");
  refused({"a1.kdc", "b1.kdc", "--match", "a*"}, 2, "--match PATTERN --to PATTERN");
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientBatches, RefuseAMoveOntoWhatIsMovedItself) {
  put("x.kdc", "1");
  put("xx.kdc", "2");
  const std::string before = tree();
  const outcome result = change({"mv", "--match", "x*.kdc", "--to", "xx*.kdc", "--replace"});
  EXPECT_EQ(result.code, 12);
  EXPECT_NE(result.err.find("docs/anna/xx.kdc@0 is also in the list of documents to move"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientBatches, ImportWhatWasThereAndWhatWasNot) {
  constexpr int kFiles = 230;
  put_many(kFiles, "x");
  const std::string exported = shell_path(scratch().path("export"));
  ASSERT_EQ(on_tree({"export", exported}).code, 0);
  // Some are missing, some have other bytes, some are unchanged.
  ASSERT_EQ(change({"rm", "--match", "f1*.kdc"}).code, 0);
  ASSERT_EQ(change({"put", source("f2.kdc", "other"), "--replace"}).code, 0);
  ASSERT_EQ(on_tree({"import", exported, "--yes"}).code, 5);
  EXPECT_EQ(get("f2.kdc"), "other");
  EXPECT_EQ(get("f199.kdc"), "x199");
  const std::vector<Json> told = json({"import", exported, "--replace", "--yes"});
  EXPECT_EQ(told.back().at("done"), 1);
  EXPECT_EQ(told.back().at("skipped"), kFiles - 1);
  EXPECT_EQ(on_tree({"compare", exported}).code, 0);
  EXPECT_FALSE(file_exists(root() + "\\storage.import"));
  expect_sound();
}

#if !defined(_WIN32)

TEST_F(ClientBatches, AReplacedVersionKeepsItsPermissions) {
  put("a.kdc", "old");
  const fs::path path = physical("docs", "a.kdc");
  const auto mine = fs::perms::owner_read | fs::perms::owner_write | fs::perms::group_read;
  fs::permissions(path, mine);
  put("a.kdc", "new");
  EXPECT_EQ(get("a.kdc"), "new");
  EXPECT_EQ(fs::status(path).permissions(), mine);
}

TEST_F(ClientBatches, AnotherAccountsFileIsReplacedWithAWarningOfItsTime) {
  if (geteuid() != 0) GTEST_SKIP() << "needs to change the user";
  put("a.kdc", "old");
  const std::string file = source("a.kdc", "new", 1'500'000'000);
  open_to_all();
  const outcome result = change_as_nobody({"put", file, "--replace"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.err.find("has the current time, not that of"), std::string::npos) << result.err;
  EXPECT_EQ(get("a.kdc"), "new");
}

#endif
