#include "client/tests/stgctl/fixture.h"
#include "vu_file.h"

class ClientLocks : public Client {
 protected:
  ClientLocks() {
    init();
    const outcome made = change({"profile", "set", "a=b"});
    EXPECT_EQ(made.code, 0) << made.err;
  }
  std::string folder() const { return storage() + "\\user\\anna"; }
};

TEST_F(ClientLocks, GivesUpWhenTheTimeIsOver) {
  const std::string before = tree();
  vu_file index(folder(), "index.dat");
  index.open(vu_file::o_append);
  for (const std::vector<std::string>& command :
       std::vector<std::vector<std::string>>{{"profile", "set", "a=c"},
                                             {"rm", "profile.txt", "--area", "user"},
                                             {"mv", "profile.txt", "other.txt", "--area", "user"},
                                             {"user", "rename", "anna", "bert"},
                                             {"user", "remove", "anna"}}) {
    std::vector<std::string> arguments = command;
    if (command[0] != "user") arguments.insert(arguments.end(), {"--owner", "anna"});
    arguments.insert(arguments.end(), {"--yes", "--lock-timeout", "0.2"});
    const outcome result = on_tree(arguments);
    EXPECT_EQ(result.code, 11) << command[0] << result.err;
    EXPECT_NE(result.err.find("index.dat"), std::string::npos) << result.err;
  }
  index.close();
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientLocks, WaitsForAReaderBeforeItChanges) {
  vu_file index(folder(), "index.dat");
  index.open(vu_file::o_read);
  EXPECT_EQ(change({"profile", "set", "a=c", "--lock-timeout", "0.2"}).code, 11);
  // Looking is no matter.
  EXPECT_EQ(get("profile.txt", {"--area", "user", "--lock-timeout", "0.2"}), "a=b\n");
  index.close();
}

TEST_F(ClientLocks, TellsOfALongWaitAndGoesOnWhenItIsOver) {
  vu_file index(folder(), "index.dat");
  index.open(vu_file::o_read);
  running_program program(
      {"profile", "set", "a=c", "--owner", "anna", "--yes", "--root", shell_path(root())},
      {{"STG_ROOT", ""}});
  EXPECT_TRUE(program.complains("waiting for"));
  EXPECT_TRUE(program.complains("index.dat"));
  index.close();
  const outcome result = program.wait();
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_EQ(get("profile.txt", {"--area", "user"}), "a=c\n");
}

TEST_F(ClientLocks, WaitsForADocumentThatIsOpenElsewhere) {
  put("a.kdc", "old");
  const std::string path = physical("docs", "a.kdc");
  vu_file document(path.substr(0, path.find_last_of("/\\")),
                   path.substr(path.find_last_of("/\\") + 1));
  document.open(vu_file::o_read);
  const outcome result =
      change({"put", source("a.kdc", "new"), "--replace", "--lock-timeout", "0.2"});
  EXPECT_EQ(result.code, 11) << result.err;
  document.close();
  EXPECT_EQ(get("a.kdc"), "old");
}

TEST_F(ClientLocks, CountsTheBytesOfWhatWasDoneBeforeTheTimeWasOver) {
  put("a.kdc", "12345");
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  vu_file index(path.substr(0, path.find_last_of("/\\")), "index.dat");
  index.open(vu_file::o_read);
  const std::vector<Json> lines =
      json({"rm", "a.kdc", "b.kdc", "--owner", "anna", "--yes", "--lock-timeout", "0.2"}, 5);
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(lines.back().at("bytes"), 5);
  index.close();
}

TEST_F(ClientLocks, MovesNothingThatIsOpenElsewhere) {
  put("a.kdc", "old");
  const std::string path = physical("docs", "a.kdc");
  vu_file document(path.substr(0, path.find_last_of("/\\")),
                   path.substr(path.find_last_of("/\\") + 1));
  document.open(vu_file::o_read);
  const outcome result = change({"mv", "a.kdc", "b.kdc", "--lock-timeout", "0.2"});
  EXPECT_EQ(result.code, 11) << result.err;
  document.close();
  EXPECT_EQ(get("a.kdc"), "old");
  EXPECT_EQ(on_tree({"ls", "b.kdc"}).code, 3);
}

/// What was written anew while a command waits, within the second of the old bytes and as long.
class ClientRewrites : public ClientLocks {
 protected:
  /// Runs a command that has to wait for the index of a document, and writes the document
  /// meanwhile. @return what was told
  outcome rewritten_during(std::vector<std::string> command) {
    put("a.kdf", "old", 7);
    const std::string path = physical("docs", "a.kdf");
    vu_file index(path.substr(0, path.find_last_of("/\\")), "index.dat");
    index.open(vu_file::o_read);
    command.insert(command.end(), {"--yes", "--root", shell_path(root())});
    running_program program(command, {{"STG_ROOT", ""}});
    EXPECT_TRUE(program.complains("waiting for"));
    EXPECT_TRUE(program.complains("index.dat"));
    const std::int64_t time = get_modify_time(path);
    write_file(path, "new");
    set_modify_time(path, time);
    index.close();
    return program.wait();
  }
};

TEST_F(ClientRewrites, StayWhereTheyWereWhenTheOldBytesAreMoved) {
  const outcome result = rewritten_during({"mv", "docs/anna/a.kdf@7", "user/bert/a.kdf"});
  EXPECT_EQ(result.code, 1) << result.out;
  EXPECT_NE(result.err.find("but also where it was: somebody else changed it"), std::string::npos)
      << result.err;
  EXPECT_EQ(on_tree({"cat", "docs/anna/a.kdf@7"}).out, "new");
  EXPECT_EQ(on_tree({"cat", "user/bert/a.kdf@7"}).out, "old");
}

#if !defined(_WIN32)

// Windows tells of a change no more than the time that was set.
TEST_F(ClientRewrites, StayWhenTheOldBytesAreCleanedAway) {
  const outcome result = rewritten_during({"clean", "--max-size", "0", "--owner", "anna"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.out.find("changed since it was looked at"), std::string::npos) << result.out;
  EXPECT_EQ(on_tree({"cat", "docs/anna/a.kdf@7"}).out, "new");
}

#endif

TEST_F(ClientLocks, CleansNothingThatIsOpenElsewhere) {
  put("a.kdc", "old");
  put("b.kdc", "old");
  const std::string path = physical("docs", "a.kdc");
  vu_file document(path.substr(0, path.find_last_of("/\\")),
                   path.substr(path.find_last_of("/\\") + 1));
  document.open(vu_file::o_read);
  const std::vector<Json> lines =
      json({"clean", "--max-size", "0", "--owner", "anna", "--yes", "--lock-timeout", "0.2"});
  document.close();
  EXPECT_EQ(actions(lines), (std::vector<std::string>{"removed b.kdc", "skipped a.kdc"}));
  EXPECT_EQ(get("a.kdc"), "old");
}

TEST_F(ClientLocks, TellsWhatWasDoneBeforeTheTimeWasOver) {
  put("b.kdc", "old");
  const std::string path = physical("docs", "b.kdc");
  source("a.kdc", "new");
  source("b.kdc", "new");
  vu_file index(path.substr(0, path.find_last_of("/\\")), "index.dat");
  index.open(vu_file::o_read);
  const std::vector<Json> lines = json({"put", shell_path(scratch().path("in")), "--replace",
                                        "--owner", "anna", "--yes", "--lock-timeout", "0.2"},
                                       5);
  index.close();
  EXPECT_EQ(actions(lines), std::vector<std::string>{"stored a.kdc"});
  EXPECT_EQ(lines.back().at("done"), 1);
  EXPECT_EQ(get("b.kdc"), "old");
}
