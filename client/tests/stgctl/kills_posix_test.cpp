// The client killed at random moments while it saves names, repairs and undoes.
#include <chrono>
#include <random>
#include <thread>

#include "client/tests/stgctl/repair_fixture.h"

class ClientKilled : public HarmedTree {
 protected:
  using Clock = std::chrono::steady_clock;

  std::vector<std::string> with_root(std::vector<std::string> arguments) const {
    arguments.insert(arguments.end(), {"--root", shell_path(root())});
    return arguments;
  }

  /// Starts the client and kills it at some moment of the time that it takes when it is left alone.
  void kill(const std::vector<std::string>& arguments, std::chrono::microseconds whole) {
    std::uniform_int_distribution<std::int64_t> moment(0, whole.count());
    const running_program program(with_root(arguments), {{"STG_ROOT", ""}});
    std::this_thread::sleep_for(std::chrono::microseconds(moment(m_random)));
  }

  /// How long the client takes for something.
  std::chrono::microseconds duration_of(const std::vector<std::string>& arguments) {
    const Clock::time_point begin = Clock::now();
    running_program program(with_root(arguments), {{"STG_ROOT", ""}});
    program.wait();
    return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
  }

  std::mt19937 m_random{20'240'501};
};

TEST_F(ClientKilled, WhileItSavesNamesLosesNoEarlierSnapshot) {
  const auto whole = duration_of({"index", "snapshot"});
  std::size_t complete = 1;
  std::size_t lost = 0;
  const std::string names = root() + "\\storage.names";
  for (int round = 0; round < 60; ++round) {
    // Something to store in every round, beyond a page.
    std::string text = m_healthy;
    for (int i = 0; i < 300; ++i)
      text += "n" + std::to_string(round) + "-" + std::to_string(i) + ".kdc_0000000000/x\n";
    write_file(m_folder + "/index.dat", text);
    const std::string before = tree();
    const std::string file = read_file(names);
    kill({"index", "snapshot"}, whole);
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(read_file(names).starts_with(file.substr(0, 16)));
    const std::vector<Json> log = json({"index", "log"});
    const std::size_t count = log.size() - 1;
    ASSERT_TRUE(count == complete || count == complete + 1) << round;
    lost += count == complete ? 1 : 0;
    complete = count;
    for (const Json& line : log) ASSERT_NE(line.value("state", ""), "damaged") << round;
  }
  // Every one of them is what the tree was then.
  EXPECT_EQ(json({"index", "diff", "1", "latest"}).back().at("folders"), complete > 1 ? 1 : 0);
  for (std::size_t number = 1; number <= complete; ++number)
    EXPECT_EQ(on_tree({"index", "diff", std::to_string(number), "now"}).code, 0) << number;
  EXPECT_EQ(on_tree({"index", "snapshot"}).code, 0);
  EXPECT_EQ(json({"index", "diff", "latest", "now"}).size(), 1U);
  RecordProperty("lost", static_cast<int>(lost));
}

TEST_F(ClientKilled, WhileItRepairsAndUndoesCanBeAskedAgain) {
  harm();
  const std::string harmed = files();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const std::vector<std::string> repair = {"repair", "--apply", plan(), "--yes"};
  const std::vector<std::string> undo = {"undo", "--yes"};
  const auto whole_repair = duration_of(repair);
  const std::string repaired = files();
  const auto whole_undo = duration_of(undo);
  ASSERT_EQ(files(), harmed);
  int halves = 0;
  for (int round = 0; round < 40; ++round) {
    kill(repair, whole_repair);
    const std::string half = files();
    halves += half != harmed && half != repaired ? 1 : 0;
    // What nothing was wrong with is never touched.
    ASSERT_EQ(get("a.kdc"), "bytes of a") << round;
    ASSERT_EQ(on_tree(repair).code, 0) << round;
    ASSERT_EQ(files(), repaired) << round;
    kill(undo, whole_undo);
    const outcome again = on_tree(undo);
    // 3: it was complete, or nothing was left to do.
    ASSERT_TRUE(again.code == 0 || again.code == 3) << round << again.err;
    ASSERT_EQ(files(), harmed) << round;
    ASSERT_EQ(get("a.kdc"), "bytes of a") << round;
  }
  RecordProperty("halves", halves);
}

TEST_F(ClientKilled, WhileItRepairsCanBeUndoneAsFarAsItCame) {
  harm();
  const std::string harmed = files();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const std::vector<std::string> repair = {"repair", "--apply", plan(), "--yes"};
  const auto whole = duration_of(repair);
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  for (int round = 0; round < 25; ++round) {
    kill(repair, whole);
    const outcome undone = on_tree({"undo", "--yes"});
    ASSERT_TRUE(undone.code == 0 || undone.code == 3) << round << undone.err;
    ASSERT_EQ(files(), harmed) << round;
  }
}

TEST_F(ClientKilled, WhileItRestoresNamesLeavesThemToBeRestored) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string healthy = files();
  const auto lose = [&] {
    for (const auto& entry : std::filesystem::recursive_directory_iterator(native(storage()))) {
      if (entry.path().filename() == "index.dat") write_file(entry.path().string(), "");
    }
    ASSERT_EQ(on_tree({"sync", "--yes"}).code, 0);
  };
  const std::vector<std::string> restore = {"index", "restore", "--yes"};
  lose();
  const auto whole = duration_of(restore);
  ASSERT_EQ(files(), healthy);
  for (int round = 0; round < 25; ++round) {
    lose();
    kill(restore, whole);
    const outcome again = on_tree(restore);
    ASSERT_TRUE(again.code == 0 || again.code == 3) << round << again.err;
    ASSERT_EQ(files(), healthy) << round;
  }
}

TEST_F(ClientKilled, WhileItReplacesLeavesEachVersionWhole) {
  constexpr int kFiles = 10;
  constexpr std::size_t kBytes = 20'000;
  make_folder(scratch().path("in\\many"));
  const auto put_all = [&](char letter) {
    for (int i = 0; i < kFiles; ++i)
      source("many\\f" + std::to_string(i) + ".kdc", std::string(kBytes, letter));
    return std::vector<std::string>{"put",     shell_path(scratch().path("in\\many")),
                                    "--area",  "user",
                                    "--owner", "anna",
                                    "--yes",   "--replace"};
  };
  ASSERT_EQ(on_tree(put_all('a')).code, 0);
  const auto whole = duration_of(put_all('b'));
  int halves = 0;
  char last = 'b';
  for (int round = 0; round < 12; ++round) {
    const char next = static_cast<char>('a' + round % 20);
    const std::vector<std::string> arguments = put_all(next);
    kill(arguments, whole);
    int replaced = 0;
    for (int i = 0; i < kFiles; ++i) {
      const std::string bytes = read_file(physical("user", "f" + std::to_string(i) + ".kdc"));
      ASSERT_EQ(bytes.size(), kBytes) << round;
      ASSERT_TRUE(bytes == std::string(kBytes, last) || bytes == std::string(kBytes, next))
          << round << ": " << i;
      replaced += bytes[0] == next ? 1 : 0;
    }
    halves += replaced > 0 && replaced < kFiles ? 1 : 0;
    ASSERT_EQ(on_tree(arguments).code, 0) << round;
    last = next;
  }
  // Folders of copies that others had begun go with the next one.
  ASSERT_EQ(on_tree(put_all('z')).code, 0);
  for (const auto& each : std::filesystem::directory_iterator(native(storage() + "\\user\\anna")))
    EXPECT_FALSE(each.path().filename().string().starts_with(".stgctl")) << each.path();
  RecordProperty("halves", halves);
}

TEST_F(ClientKilled, WhileItMovesLosesNoVersion) {
  constexpr int kFiles = 10;
  make_folder(scratch().path("in\\many"));
  for (int i = 0; i < kFiles; ++i)
    source("many\\f" + std::to_string(i) + ".kdc", "bytes of " + std::to_string(i));
  ASSERT_EQ(
      on_tree({"put", shell_path(scratch().path("in\\many")), "--owner", "anna", "--yes"}).code, 0);
  const std::vector<std::string> there = {"mv",      "--match", "f*.kdc", "--to",     "g*.kdc",
                                          "--owner", "anna",    "--yes",  "--replace"};
  const std::vector<std::string> back = {"mv",      "--match", "g*.kdc", "--to",     "f*.kdc",
                                         "--owner", "anna",    "--yes",  "--replace"};
  const auto whole = duration_of(there);
  ASSERT_EQ(on_tree(back).code, 0);
  for (int round = 0; round < 8; ++round) {
    kill(there, whole);
    for (int i = 0; i < kFiles; ++i) {
      const std::string number = std::to_string(i);
      const std::string moved = get("g" + number + ".kdc");
      const std::string stayed = get("f" + number + ".kdc");
      const std::string bytes = "bytes of " + number;
      ASSERT_TRUE(moved == bytes || stayed == bytes) << round << ": " << moved << stayed;
    }
    const int code = on_tree(there).code;
    ASSERT_TRUE(code == 0 || code == 3) << round;
    ASSERT_EQ(lines_of(on_tree({"ls", "g*.kdc"}).out).size(), kFiles) << round;
    ASSERT_EQ(on_tree({"ls", "f*.kdc"}).code, 3) << round;
    ASSERT_EQ(on_tree(back).code, 0) << round;
  }
}
