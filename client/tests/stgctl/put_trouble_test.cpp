// put where something is in its way, and beside others who store the same names.
#include <filesystem>
#include <memory>

#include "client/tests/stgctl/fixture.h"
#include "tests/support/real_kernel.h"

namespace fs = std::filesystem;

class ClientPutTrouble : public Client {
 protected:
  ClientPutTrouble() {
    init();
    EXPECT_EQ(change({"put", source("first.txt", "first"), "--area", "user"}).code, 0);
  }
  std::string place() const { return storage() + "\\user\\anna"; }
  /// Makes a file read-only, as long as the object lives.
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
      EXPECT_NE(result.err.find("a folder stands in its place"), std::string::npos) << result.err;
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
  EXPECT_EQ(result.err.find("is cut"), std::string::npos) << result.err;
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
    EXPECT_NE(result.err.find("a file stands where a folder has to be"), std::string::npos)
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
