#include <filesystem>
#include <memory>

#include "client/tests/stgctl/fixture.h"
#include "tests/support/real_kernel.h"
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
  // A reading command does not matter.
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

TEST_F(ClientLocks, UnsetsNothingInAKeyFileThatIsRemovedMeanwhile) {
  const std::string file = physical("user", "profile.txt");
  vu_file index(folder(), "index.dat");
  index.open(vu_file::o_read);
  running_program program({"keys", "unset", "profile.txt", "a", "--owner", "anna", "--yes",
                           "--root", shell_path(root())},
                          {{"STG_ROOT", ""}});
  EXPECT_TRUE(program.complains("waiting for"));
  std::filesystem::remove(shell_path(file));
  const std::string before = tree();
  index.close();
  const outcome result = program.wait();
  EXPECT_EQ(result.code, 3) << result.err;
  EXPECT_NE(result.err.find("there is no key file"), std::string::npos) << result.err;
  EXPECT_EQ(tree(), before);
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

/// Bytes that another process writes while a command waits: in the same second, of the same length.
class ClientRewrites : public ClientLocks {
 protected:
  /// Runs a command that must wait for the index of a document, and writes the document meanwhile.
  /// @return the messages
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
  EXPECT_NE(result.err.find("but the old version also remains: another program has changed it"),
            std::string::npos)
      << result.err;
  EXPECT_EQ(on_tree({"cat", "docs/anna/a.kdf@7"}).out, "new");
  EXPECT_EQ(on_tree({"cat", "user/bert/a.kdf@7"}).out, "old");
}

#if !defined(_WIN32)

// Windows reports only the time that was set.
TEST_F(ClientRewrites, StayWhenTheOldBytesAreCleanedAway) {
  const outcome result = rewritten_during({"clean", "--max-size", "0", "--owner", "anna"});
  EXPECT_EQ(result.code, 0) << result.err;
  EXPECT_NE(result.out.find("changed since it was examined"), std::string::npos) << result.out;
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

// ---- put where something is in its way, and beside others --------------------------------------

namespace fs = std::filesystem;

class ClientPutTrouble : public Client {
 protected:
  ClientPutTrouble() {
    init();
    EXPECT_EQ(change({"put", source("first.txt", "first"), "--area", "user"}).code, 0);
  }
  std::string place() const { return storage() + "\\user\\anna"; }
  /// Makes a file read-only for the lifetime of the object.
  class ReadOnly {
   public:
    explicit ReadOnly(const std::string& path) : m_path(shell_path(path)) {
      fs::permissions(m_path, kWrite, fs::perm_options::remove);
    }
    ~ReadOnly() { fs::permissions(m_path, fs::perms::owner_write, fs::perm_options::add); }
    ReadOnly(const ReadOnly&) = delete;
    ReadOnly& operator=(const ReadOnly&) = delete;

   private:
    static constexpr auto kWrite =
        fs::perms::owner_write | fs::perms::group_write | fs::perms::others_write;
    fs::path m_path;
  };
  outcome put_two(bool dry = false) {
    std::vector<std::string> arguments = {"put", source("one.txt", "1"), source("two.txt", "22"),
                                          "--area", "user"};
    if (dry) arguments.emplace_back("--dry-run");
    return change(arguments);
  }
};

TEST_F(ClientPutTrouble, TwoAtOnceOfTheSameNamesLoseNone) {
  constexpr int kNames = 40;
  for (const char* const side : {"left", "right"}) {
    make_folder(scratch().path(std::string("in\\") + side));
    for (int i = 0; i < kNames; ++i)
      source(std::string(side) + "\\n" + std::to_string(i) + ".kdc", side);
  }
  std::vector<std::unique_ptr<running_program>> programs;
  for (const char* const side : {"left", "right"}) {
    programs.push_back(std::make_unique<running_program>(
        std::vector<std::string>{"put", shell_path(scratch().path(std::string("in\\") + side)),
                                 "--owner", "anna", "--yes", "--json", "--root",
                                 shell_path(root())},
        Environment{{"STG_ROOT", ""}}));
  }
  std::uint64_t stored = 0;
  for (const auto& program : programs) {
    const outcome result = program->wait();
    const std::vector<std::string> lines = lines_of(result.out);
    ASSERT_FALSE(lines.empty()) << result.err;
    stored += Json::parse(lines.back()).at("done").get<std::uint64_t>();
  }
  EXPECT_EQ(stored, kNames);
  for (int i = 0; i < kNames; ++i) {
    const std::string got = get("n" + std::to_string(i) + ".kdc");
    EXPECT_TRUE(got == "left" || got == "right") << i << ": " << got;
  }
  EXPECT_EQ(on_tree({"check"}).code, 0) << on_tree({"check"}).out;
}

TEST_F(ClientPutTrouble, AnUnusableCounterIsToldBeforeANameIsMade) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  const std::string counter = place() + "\\index";
  {
    const ReadOnly harm(counter);
    for (const bool dry : {true, false}) {
      const outcome result = put_two(dry);
      EXPECT_EQ(result.code, 1) << result.out;
      EXPECT_NE(result.err.find("the counter"), std::string::npos) << result.err;
      EXPECT_NE(result.err.find("it is read-only"), std::string::npos) << result.err;
      EXPECT_EQ(result.out.find("stored  "), std::string::npos) << result.out;
    }
    EXPECT_EQ(on_tree({"ls", "one.txt"}).code, 3);
  }
  EXPECT_EQ(on_tree({"check"}).code, 0) << on_tree({"check"}).out;
  EXPECT_EQ(put_two().code, 0);
}

TEST_F(ClientPutTrouble, AnUnusableCounterGivesNoKeyFileAName) {
  const std::string counter = shell_path(place() + "\\index");
  fs::rename(counter, counter + ".away");
  fs::create_directory(counter);
  for (const char* const name : {"one.txt", "two.txt"}) {
    for (const char* const mode : {"-n", "--yes"}) {
      const outcome result = on_tree({"keys", "set", name, "a=b", "--owner", "anna", mode});
      EXPECT_EQ(result.code, 1) << result.out;
      EXPECT_NE(result.err.find("a folder is in its place"), std::string::npos) << result.err;
    }
    EXPECT_EQ(on_tree({"ls", name}).code, 3);
  }
  fs::remove(counter);
  fs::rename(counter + ".away", counter);
  EXPECT_EQ(change({"keys", "set", "one.txt", "a=b"}).code, 0);
}

TEST_F(ClientPutTrouble, AReadOnlyIndexIsToldAndLeavesNoOrphan) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  {
    const ReadOnly harm(place() + "\\index.dat");
    for (const bool dry : {true, false}) {
      const outcome result = put_two(dry);
      EXPECT_EQ(result.code, 1) << result.out;
      EXPECT_NE(result.err.find("index.dat cannot be written: it is read-only"), std::string::npos)
          << result.err;
      EXPECT_EQ(result.err.find("\r\r"), std::string::npos) << "the system's own line end";
    }
  }
  EXPECT_EQ(on_tree({"check"}).code, 0) << on_tree({"check"}).out;
}

TEST_F(ClientPutTrouble, RemovingSaysRemovedOnlyWhenTheLineIsGone) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  const ReadOnly harm(place() + "\\index.dat");
  const outcome result = change({"rm", "first.txt", "--area", "user"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.out.find("removed  "), std::string::npos) << result.out;
  EXPECT_NE(result.err.find("it is read-only"), std::string::npos) << result.err;
  EXPECT_EQ(get("first.txt", {"--area", "user"}), "first");
}

TEST_F(ClientPutTrouble, AReadOnlyDocumentIsNotCutWhenItCannotBeReplaced) {
  NEEDS_A_REAL_KERNEL("a read-only file is refused for writing, whoever asks");
  const ReadOnly harm(physical("user", "first.txt"));
  const std::string before = tree();
  const outcome result = change({"put", source("first.txt", "new"), "--area", "user", "--replace"});
  EXPECT_EQ(result.code, 1);
  EXPECT_NE(result.err.find("it is read-only"), std::string::npos) << result.err;
  EXPECT_EQ(result.err.find("is truncated"), std::string::npos) << result.err;
  EXPECT_EQ(tree(), before);
}

TEST_F(ClientPutTrouble, AFileInPlaceOfTheFolderIsTold) {
  put("a.kdc", "x");
  const std::string folder = fs::path(physical("docs", "a.kdc")).parent_path().string();
  fs::remove_all(folder);
  write_file(folder, "in its place");
  for (const char* const mode : {"--dry-run", "--yes"}) {
    const outcome result = on_tree({"put", source("a.kdc", "x"), "--owner", "anna", mode});
    EXPECT_EQ(result.code, 1) << result.out;
    EXPECT_NE(result.err.find("a file is in the place of a folder"), std::string::npos)
        << result.err;
  }
}

TEST_F(ClientPutTrouble, SkipsWhatIsThereWithTheSameBytes) {
  source("a.kdc", "same");
  source("b.kdc", "2");
  const std::string in = shell_path(scratch().path("in"));
  ASSERT_EQ(change({"put", in}).code, 0);
  fs::remove(shell_path(scratch().path("in\\first.txt")));
  source("c.kdc", "333");
  source("b.kdc", "other");
  const std::vector<Json> lines = json({"put", in, "--owner", "anna", "--yes"}, 5);
  EXPECT_EQ(actions(lines),
            (std::vector<std::string>{"skipped a.kdc", "failed b.kdc", "stored c.kdc"}));
  EXPECT_EQ(lines.back().at("bytes"), 3);
  EXPECT_EQ(get("b.kdc"), "2");
}

TEST_F(ClientPutTrouble, KeepsPathsInNamesOnRequest) {
  make_folder(scratch().path("in\\one"));
  make_folder(scratch().path("in\\one\\two"));
  source("one\\a.kdc", "1");
  source("one\\two\\a.kdc", "2");
  const std::string in = shell_path(scratch().path("in"));
  EXPECT_EQ(change({"put", in}).code, 5);
  const std::vector<Json> lines = json({"put", in, "--keep-paths", "--owner", "bert", "--yes"});
  EXPECT_EQ(actions(lines), (std::vector<std::string>{"stored first.txt", "stored one~a.kdc",
                                                      "stored one~two~a.kdc"}));
}

TEST_F(ClientPutTrouble, ManyFilesComeInBatches) {
  constexpr int kFiles = 250;
  make_folder(scratch().path("in\\many"));
  for (int i = 0; i < kFiles; ++i) source("many\\f" + std::to_string(i) + ".kdc", "x");
  const std::vector<Json> lines =
      json({"put", shell_path(scratch().path("in\\many")), "--owner", "anna", "--yes"});
  EXPECT_EQ(lines.back().at("done"), kFiles);
  EXPECT_EQ(lines.back().at("bytes"), kFiles);
  EXPECT_EQ(on_tree({"check"}).code, 0) << on_tree({"check"}).out;
  EXPECT_EQ(get("f249.kdc"), "x");
}
