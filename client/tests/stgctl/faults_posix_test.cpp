// The client, killed before one of its changes, and on a full disk.
#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "client/tests/stgctl/fixture.h"
#include "client/tests/stgctl/repair_fixture.h"

namespace {

/// Limits the size of all files of this process and its children, like a full disk.
class SizeLimit {
 public:
  explicit SizeLimit(std::size_t bytes) {
    // Otherwise the system ends the process instead of refusing the write. Children inherit this.
    m_handler = ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &m_before);
    struct ::rlimit limit = m_before;
    limit.rlim_cur = bytes;
    m_is_set = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }
  ~SizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &m_before);
    ::signal(SIGXFSZ, m_handler);
  }
  SizeLimit(const SizeLimit&) = delete;
  SizeLimit& operator=(const SizeLimit&) = delete;

  bool is_set() const { return m_is_set; }

 private:
  struct ::rlimit m_before {};
  void (*m_handler)(int) = nullptr;
  bool m_is_set = false;
};

}  // namespace

// ---- files may not grow beyond a limit ---------------------------------------------------------

class ClientFullDisk : public HarmedTree {
 protected:
  outcome within(std::size_t bytes, const std::vector<std::string>& arguments) {
    const SizeLimit limit(bytes);
    EXPECT_TRUE(limit.is_set());
    return on_tree(arguments);
  }
};

TEST_F(ClientFullDisk, KeepsEarlierSnapshotsAndSaysSo) {
  ASSERT_EQ(on_tree({"index", "snapshot"}).code, 0);
  const std::string names = root() + "\\storage.names";
  const std::string before = read_file(names);
  std::string text = m_healthy;
  for (int i = 0; i < 500; ++i) text += "n" + std::to_string(i) + ".kdc_0000000000/x\n";
  write_file(m_folder + "/index.dat", text);
  for (const std::size_t room : {0, 1, 100, 4000, 10'000}) {
    const outcome result = within(before.size() + room, {"index", "snapshot"});
    EXPECT_EQ(result.code, 1) << room << result.out;
    EXPECT_NE(result.err.find("check whether the disk is full"), std::string::npos) << result.err;
    EXPECT_EQ(read_file(names), before) << room;
    EXPECT_EQ(json({"index", "log"}).size(), 2U);
  }
  EXPECT_EQ(on_tree({"index", "snapshot"}).code, 0);
  EXPECT_EQ(json({"index", "log"}).size(), 3U);
  EXPECT_EQ(json({"index", "diff", "latest"}).size(), 1U);
}

TEST_F(ClientFullDisk, MakesNoFirstSnapshotWhereThereIsNoRoom) {
  for (const std::size_t room : {0, 10, 100}) {
    EXPECT_EQ(within(room, {"index", "snapshot"}).code, 1) << room;
    EXPECT_EQ(on_tree({"index", "restore", "--yes"}).code, 3) << room;
  }
  EXPECT_EQ(json({"index", "snapshot"})[0].at("number"), 1);
}

TEST_F(ClientFullDisk, RepairsAndUndoesInPartAndCompletesItWhenThereIsRoom) {
  harm();
  const std::string harmed = files();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const std::vector<std::string> repair = {"repair", "--apply", plan(), "--yes"};
  ASSERT_EQ(on_tree(repair).code, 0);
  const std::string repaired = files();
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  ASSERT_EQ(files(), harmed);
  int refusals = 0;
  for (std::size_t room = 0; room < 4000; room += 97) {
    const outcome result = within(room, repair);
    refusals += result.code != 0 ? 1 : 0;
    ASSERT_TRUE(result.code == 0 || result.code == 1 || result.code == 5) << room << result.err;
    ASSERT_EQ(get("a.kdc"), "bytes of a") << room;
    ASSERT_EQ(on_tree(repair).code, 0) << room;
    ASSERT_EQ(files(), repaired) << room;
    // The undo makes an index longer.
    const outcome undone = within(room / 16, {"undo", "--yes"});
    ASSERT_TRUE(undone.code == 0 || undone.code == 1 || undone.code == 5) << room << undone.err;
    ASSERT_EQ(get("a.kdc"), "bytes of a") << room;
    const outcome again = on_tree({"undo", "--yes"});
    ASSERT_TRUE(again.code == 0 || again.code == 3) << room << again.err;
    ASSERT_EQ(files(), harmed) << room;
  }
  EXPECT_GT(refusals, 5);
}

TEST_F(ClientFullDisk, LeavesAVersionWholeThatItCannotReplace) {
  put("big.kdc", std::string(5000, 'o'));
  const std::string file = source("big.kdc", std::string(50'000, 'n'));
  for (const std::size_t room : {0, 3000, 49'999}) {
    const outcome result = within(room, {"put", file, "--replace", "--owner", "anna", "--yes"});
    EXPECT_EQ(result.code, 1) << room << result.out;
    EXPECT_EQ(get("big.kdc"), std::string(5000, 'o')) << room;
    EXPECT_EQ(on_tree({"check"}).code, 0) << room;
  }
  EXPECT_EQ(change({"put", file, "--replace"}).code, 0);
  EXPECT_EQ(get("big.kdc"), std::string(50'000, 'n'));
}

TEST_F(ClientFullDisk, LeavesTheLinesOfAKeyFileThatItCannotWrite) {
  ASSERT_EQ(change({"keys", "set", "k.ctg", "a=1", "b=2", "c=3"}).code, 0);
  using Arguments = std::vector<std::string>;
  for (const std::size_t room : {0, 5, 9}) {
    for (Arguments edit : {Arguments{"set", "k.ctg", "a=longer", "d=4"},
                           Arguments{"set", "k.ctg", "a=9"}, Arguments{"unset", "k.ctg", "a"}}) {
      edit.insert(edit.begin(), "keys");
      edit.insert(edit.end(), {"--owner", "anna", "--yes"});
      EXPECT_EQ(within(room, edit).code, 1) << room;
      EXPECT_EQ(get("k.ctg", {"--area", "user"}), "a=1\nb=2\nc=3\n") << room;
    }
  }
}

TEST_F(ClientFullDisk, WritesNoHalfPlan) {
  harm();
  const outcome result = within(200, {"repair", "--plan", plan()});
  EXPECT_EQ(result.code, 1);
  EXPECT_FALSE(file_exists(plan()));
  EXPECT_FALSE(file_exists(plan() + ".stgctl-part"));
}

// ---- killed while it saves names, repairs and undoes -------------------------------------------

class ClientKilled : public HarmedTree {
 protected:
  void SetUp() override {
    if (!can_trace()) GTEST_SKIP() << "this system does not let a process trace another one";
  }

  /// See kill_before_change(). With 0 it counts the changes of a whole run.
  int kill_before(std::vector<std::string> words, int nth) {
    words.insert(words.begin(), client_path());
    words.insert(words.end(), {"--root", shell_path(root())});
    return kill_before_change(words, nth);
  }

  /// Kills the client in one of @p rounds runs. The kills are spread evenly over all changes; the
  /// last runs may end without a kill.
  void kill(const std::vector<std::string>& arguments, int changes, int round, int rounds) {
    kill_before(arguments, 1 + round * (changes + 1) / rounds);
  }
};

TEST_F(ClientKilled, WhileItSavesNamesLosesNoEarlierSnapshot) {
  constexpr int kRounds = 60;
  const int changes = kill_before({"index", "snapshot"}, 0);
  std::size_t complete = 1;
  int lost = 0;
  int halves = 0;
  const std::string names = root() + "\\storage.names";
  for (int round = 0; round < kRounds; ++round) {
    // Something to store in every round, more than a page.
    std::string text = m_healthy;
    for (int i = 0; i < 300; ++i)
      text += "n" + std::to_string(round) + "-" + std::to_string(i) + ".kdc_0000000000/x\n";
    write_file(m_folder + "/index.dat", text);
    const std::string before = tree();
    const std::string file = read_file(names);
    kill({"index", "snapshot"}, changes, round, kRounds);
    EXPECT_EQ(tree(), before);
    EXPECT_TRUE(read_file(names).starts_with(file.substr(0, 16)));
    const std::vector<Json> log = json({"index", "log"});
    const std::size_t count = log.size() - 1;
    ASSERT_TRUE(count == complete || count == complete + 1) << round;
    lost += count == complete ? 1 : 0;
    halves += count == complete && read_file(names) != file ? 1 : 0;
    complete = count;
    for (const Json& line : log) ASSERT_NE(line.value("state", ""), "damaged") << round;
  }
  // Each of them equals the tree at its time.
  EXPECT_EQ(json({"index", "diff", "1", "latest"}).back().at("folders"), complete > 1 ? 1 : 0);
  for (std::size_t number = 1; number <= complete; ++number)
    EXPECT_EQ(on_tree({"index", "diff", std::to_string(number), "now"}).code, 0) << number;
  EXPECT_EQ(on_tree({"index", "snapshot"}).code, 0);
  EXPECT_EQ(json({"index", "diff", "latest", "now"}).size(), 1U);
  EXPECT_GT(lost, 0);
  EXPECT_LT(lost, kRounds);
  EXPECT_GT(halves, 0);
}

TEST_F(ClientKilled, WhileItRepairsAndUndoesCanBeAskedAgain) {
  harm();
  const std::string harmed = files();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const std::vector<std::string> repair = {"repair", "--apply", plan(), "--yes"};
  const std::vector<std::string> undo = {"undo", "--yes"};
  constexpr int kRounds = 40;
  const int repair_changes = kill_before(repair, 0);
  const std::string repaired = files();
  const int undo_changes = kill_before(undo, 0);
  ASSERT_EQ(files(), harmed);
  int halves = 0;
  int undo_halves = 0;
  for (int round = 0; round < kRounds; ++round) {
    kill(repair, repair_changes, round, kRounds);
    const std::string half = files();
    halves += half != harmed && half != repaired ? 1 : 0;
    // Files without damage never change.
    ASSERT_EQ(get("a.kdc"), "bytes of a") << round;
    ASSERT_EQ(on_tree(repair).code, 0) << round;
    ASSERT_EQ(files(), repaired) << round;
    kill(undo, undo_changes, round, kRounds);
    const std::string undone = files();
    undo_halves += undone != harmed && undone != repaired ? 1 : 0;
    const outcome again = on_tree(undo);
    // 3: it was complete, or nothing was left to do.
    ASSERT_TRUE(again.code == 0 || again.code == 3) << round << again.err;
    ASSERT_EQ(files(), harmed) << round;
    ASSERT_EQ(get("a.kdc"), "bytes of a") << round;
  }
  EXPECT_GT(halves, 0);
  EXPECT_GT(undo_halves, 0);
}

TEST_F(ClientKilled, WhileItRepairsCanBeUndoneAsFarAsItCame) {
  harm();
  const std::string harmed = files();
  ASSERT_EQ(on_tree({"repair", "--plan", plan()}).code, 0);
  const std::vector<std::string> repair = {"repair", "--apply", plan(), "--yes"};
  constexpr int kRounds = 25;
  const int changes = kill_before(repair, 0);
  const std::string repaired = files();
  ASSERT_EQ(on_tree({"undo", "--yes"}).code, 0);
  int halves = 0;
  for (int round = 0; round < kRounds; ++round) {
    kill(repair, changes, round, kRounds);
    const std::string half = files();
    halves += half != harmed && half != repaired ? 1 : 0;
    const outcome undone = on_tree({"undo", "--yes"});
    ASSERT_TRUE(undone.code == 0 || undone.code == 3) << round << undone.err;
    ASSERT_EQ(files(), harmed) << round;
  }
  EXPECT_GT(halves, 0);
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
  constexpr int kRounds = 25;
  lose();
  const int changes = kill_before(restore, 0);
  ASSERT_EQ(files(), healthy);
  int halves = 0;
  for (int round = 0; round < kRounds; ++round) {
    lose();
    const std::string lost = files();
    kill(restore, changes, round, kRounds);
    const std::string half = files();
    halves += half != lost && half != healthy ? 1 : 0;
    const outcome again = on_tree(restore);
    ASSERT_TRUE(again.code == 0 || again.code == 3) << round << again.err;
    ASSERT_EQ(files(), healthy) << round;
  }
  EXPECT_GT(halves, 0);
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
  constexpr int kRounds = 20;
  const int changes = kill_before(put_all('b'), 0);
  int halves = 0;
  char last = 'b';
  for (int round = 0; round < kRounds; ++round) {
    const char next = static_cast<char>('c' + round);
    kill(put_all(next), changes, round, kRounds);
    int replaced = 0;
    for (int i = 0; i < kFiles; ++i) {
      const std::string bytes = read_file(physical("user", "f" + std::to_string(i) + ".kdc"));
      ASSERT_EQ(bytes.size(), kBytes) << round;
      ASSERT_TRUE(bytes == std::string(kBytes, last) || bytes == std::string(kBytes, next))
          << round << ": " << i;
      replaced += bytes[0] == next ? 1 : 0;
    }
    halves += replaced > 0 && replaced < kFiles ? 1 : 0;
    ASSERT_EQ(on_tree(put_all(next)).code, 0) << round;
    last = next;
  }
  // The next copy removes the unfinished folders of others.
  ASSERT_EQ(on_tree(put_all('z')).code, 0);
  for (const auto& each : std::filesystem::directory_iterator(native(storage() + "\\user\\anna")))
    EXPECT_FALSE(each.path().filename().string().starts_with(".stgctl")) << each.path();
  EXPECT_GT(halves, 0);
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
  constexpr int kRounds = 10;
  const int changes = kill_before(there, 0);
  ASSERT_EQ(on_tree(back).code, 0);
  int halves = 0;
  for (int round = 0; round < kRounds; ++round) {
    const std::string before = files();
    kill(there, changes, round, kRounds);
    int moves = 0;
    for (int i = 0; i < kFiles; ++i) {
      const std::string number = std::to_string(i);
      const std::string moved = get("g" + number + ".kdc");
      const std::string stayed = get("f" + number + ".kdc");
      const std::string bytes = "bytes of " + number;
      ASSERT_TRUE(moved == bytes || stayed == bytes) << round << ": " << moved << stayed;
      moves += moved == bytes && stayed != bytes ? 1 : 0;
    }
    halves += moves < kFiles && files() != before ? 1 : 0;
    const int code = on_tree(there).code;
    ASSERT_TRUE(code == 0 || code == 3) << round;
    ASSERT_EQ(lines_of(on_tree({"ls", "g*.kdc"}).out).size(), kFiles) << round;
    ASSERT_EQ(on_tree({"ls", "f*.kdc"}).code, 3) << round;
    ASSERT_EQ(on_tree(back).code, 0) << round;
  }
  EXPECT_GT(halves, 0);
}

// ---- imports -----------------------------------------------------------------------------------

namespace {

using namespace std::chrono_literals;

/// A disk of a few megabytes that only this process sees.
class SmallDisk {
 public:
  explicit SmallDisk(const std::string& folder) : m_folder(native(folder).string()) {
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", m_folder.c_str(), "tmpfs", 0, "size=3m,mode=0777") != 0)
      m_refusal = std::strerror(errno);
  }
  ~SmallDisk() {
    if (m_refusal.empty()) ::umount2(m_folder.c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Empty if the disk is mounted.
  const std::string& refusal() const { return m_refusal; }

 private:
  std::string m_folder;
  std::string m_refusal;
};

}  // namespace

class ClientImportFaults : public Client {
 protected:
  ClientImportFaults() {
    init();
    make_folder(other_root());
  }
  std::string other_root() const { return scratch().path("other"); }
  std::string journal() const { return other_root() + "\\storage.import"; }
  std::string folder() const { return shell_path(scratch().path("export")); }
  std::vector<std::string> import_arguments() const {
    return {"import", folder(), "--yes", "--json", "--root", shell_path(other_root())};
  }
  Json compare(int code) {
    const outcome result = run({"compare", folder(), "--json", "--root", shell_path(other_root())});
    EXPECT_EQ(result.code, code) << result.err << result.out;
    return Json::parse(lines_of(result.out).back());
  }
  void init_other() {
    ASSERT_EQ(run({"init", "--yes", "--root", shell_path(other_root())}).code, 0);
  }
  /// Each document is whole, with an entry or before its entry was written.
  void expect_whole_files(std::size_t size) {
    const outcome found =
        run({"find", "--area", "docs", "--long", "--json", "--root", shell_path(other_root())});
    for (const std::string& line : lines_of(found.out)) {
      const Json entry = Json::parse(line);
      ASSERT_NE(entry.at("state"), "missing") << line;
      ASSERT_EQ(entry.at("bytes"), size) << line;
    }
  }
  /// Documents of a size, each with a sub-part and, beside them, a list.
  void fill(int count, std::size_t size) {
    std::vector<std::string> arguments = {"put"};
    for (int i = 0; i < count; ++i) {
      const std::string name = "d" + std::to_string(i) + ".kdc";
      arguments.push_back(source(name, std::string(size, static_cast<char>('a' + i % 26))));
    }
    ASSERT_EQ(change(arguments).code, 0);
    const std::string part = physical("docs", "d0.kdc") + "_\\html\\page";
    make_folder(part);
    write_file(part + "\\1", std::string(size, 'p'));
    make_folder(storage() + "\\list\\anna");
    write_file(storage() + "\\list\\anna\\l", std::string(size, 'l'));
    ASSERT_EQ(on_tree({"export", folder()}).code, 0);
  }
};

TEST_F(ClientImportFaults, AKilledOneIsSaidAgain) {
  constexpr int kDocuments = 24;
  constexpr std::size_t kBytes = 700'000;
  fill(kDocuments, kBytes);
  init_other();
  int kills = 0;
  bool is_left = false;
  // Each run is killed a little later, at any moment of its work.
  for (std::chrono::milliseconds moment = 0ms; moment < 2s; moment += moment / 2 + 1ms) {
    {
      const running_program importing(import_arguments());
      const auto begin = std::chrono::steady_clock::now();
      const auto alarm = begin + 5s;
      while (!file_exists(journal()) && std::chrono::steady_clock::now() < alarm) {
      }
      std::this_thread::sleep_for(moment);
      // It has ended by itself.
      if (!file_exists(journal())) break;
    }
    ++kills;
    is_left = is_left || file_exists(journal());
    expect_whole_files(kBytes);
  }
  EXPECT_GT(kills, 0);
  EXPECT_TRUE(is_left);
  const outcome last = run(import_arguments());
  EXPECT_EQ(last.code, 0) << last.err << last.out;
  EXPECT_EQ(compare(0).at("equal"), kDocuments + 2);
  EXPECT_FALSE(file_exists(journal()));
}

TEST_F(ClientImportFaults, WhatAKilledOneHadCompletedIsPendingNoMore) {
  fill(1, 10);
  init_other();
  ASSERT_EQ(run(import_arguments()).code, 0);
  ASSERT_FALSE(file_exists(journal()));
  // As after a kill before it could record that the document is complete.
  write_file(journal(), "\n+docs/616e6e61/64302e6b6463/0\n");
  const outcome again = run(import_arguments());
  EXPECT_EQ(again.code, 0) << again.err << again.out;
  EXPECT_FALSE(file_exists(journal()));
}

TEST_F(ClientImportFaults, TwoAtOnceDoNotMeet) {
  fill(1, 10);
  init_other();
  const int held = ::open(native(journal()).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  struct ::flock whole {};
  whole.l_type = F_WRLCK;
  ASSERT_EQ(::fcntl(held, F_OFD_SETLK, &whole), 0);
  const outcome refused = run(import_arguments());
  EXPECT_EQ(refused.code, 11);
  EXPECT_NE(refused.err.find("another import"), std::string::npos) << refused.err;
  ::close(held);
  EXPECT_EQ(run(import_arguments()).code, 0);
}

TEST_F(ClientImportFaults, FilesThatCannotBeWrittenLeaveNothingBehind) {
  constexpr int kDocuments = 3;
  fill(kDocuments, 300'000);
  ASSERT_EQ(change({"put", source("small.kdc", "s")}).code, 0);
  std::filesystem::remove_all(native(folder()));
  ASSERT_EQ(on_tree({"export", folder()}).code, 0);
  init_other();
  {
    const SizeLimit limit(100'000);
    ASSERT_TRUE(limit.is_set());
    const outcome result = run(import_arguments());
    EXPECT_EQ(result.code, 5) << result.err << result.out;
    const Json sums = Json::parse(lines_of(result.out).back());
    EXPECT_EQ(sums.at("done"), 1);
    EXPECT_EQ(sums.at("failed"), kDocuments + 2);
  }
  const Json difference = compare(4);
  EXPECT_EQ(difference.at("equal"), 1);
  EXPECT_EQ(difference.at("codes").size(), 1U);
  EXPECT_EQ(difference.at("codes").at("not-in-tree"), kDocuments + 2);
  EXPECT_FALSE(file_exists(journal()));
  const outcome check = run({"check", "--root", shell_path(other_root())});
  EXPECT_EQ(check.code, 0) << check.out;
  EXPECT_EQ(run(import_arguments()).code, 0);
  EXPECT_EQ(compare(0).at("equal"), kDocuments + 3);
}

TEST_F(ClientImportFaults, AFullDiskLeavesNothingHalfWritten) {
  constexpr int kDocuments = 10;
  fill(kDocuments, 500'000);
  const SmallDisk disk(other_root());
  if (!disk.refusal().empty())
    GTEST_SKIP() << "a small disk cannot be mounted here: " << disk.refusal();
  init_other();
  const outcome result = run(import_arguments());
  EXPECT_EQ(result.code, 5) << result.err << result.out;
  const Json difference = compare(4);
  EXPECT_GT(difference.at("equal"), 0);
  EXPECT_EQ(difference.at("codes").size(), 1U);
  EXPECT_EQ(difference.at("codes").at("not-in-tree"),
            kDocuments + 2 - difference.at("equal").get<int>());
  EXPECT_EQ(run({"check", "--root", shell_path(other_root())}).code, 0);
}

TEST_F(ClientImportFaults, AnExportThatFindsNoRoomHasNoManifest) {
  fill(2, 300'000);
  std::filesystem::remove_all(native(folder()));
  {
    const SizeLimit limit(100'000);
    ASSERT_TRUE(limit.is_set());
    const outcome result = on_tree({"export", folder()});
    EXPECT_EQ(result.code, 1);
    EXPECT_NE(result.err.find("is unfinished"), std::string::npos) << result.err;
  }
  EXPECT_FALSE(file_exists(folder() + "\\manifest.jsonl"));
  EXPECT_EQ(run(import_arguments()).code, 10);
  init_other();
  EXPECT_EQ(run(import_arguments()).code, 1);
  EXPECT_EQ(on_tree({"export", folder(), "--yes"}).code, 0);
  EXPECT_EQ(run(import_arguments()).code, 0);
  EXPECT_EQ(compare(0).at("equal"), 4);
}

TEST_F(ClientImportFaults, NamesOfAnyBytesSurvive) {
  const std::vector<std::string> names = {"plain.kdc",
                                          "Plain.kdc",
                                          "PLAIN.KDC",
                                          "bad\xff\xfe.kdc",
                                          "colon: 5.kdc",
                                          "con.kdc",
                                          "tab\there.kdc",
                                          "ends in a dot.",
                                          "\xc3\x84.kdc",
                                          "\xc3\xa4.kdc",
                                          "%63on.kdc",
                                          "quote\"<>|.kdc",
                                          std::string(300, 'l') + ".kdc",
                                          std::string(300, 'l') + "2.kdc"};
  for (const std::string& owner :
       {std::string("anna"), std::string("Anna"), std::string("o\xff:")}) {
    for (const std::string& name : names) {
      ASSERT_EQ(
          on_tree({"put", source("x", "bytes of " + name), "--as", name, "--owner", owner, "--yes"})
              .code,
          0)
          << name;
    }
  }
  ASSERT_EQ(on_tree({"export", folder()}).code, 0);
  for (const auto& each : std::filesystem::recursive_directory_iterator(native(folder()))) {
    const std::string name = each.path().filename().string();
    EXPECT_LE(name.size(), 100U);
    EXPECT_EQ(name.find_first_of("<>:\"|?*\\\xff\xfe\t"), std::string::npos) << name;
  }
  init_other();
  EXPECT_EQ(run(import_arguments()).code, 0);
  EXPECT_EQ(compare(0).at("equal"), names.size() * 3);
  const std::string manifest = read_file(folder() + "\\manifest.jsonl");
  EXPECT_NE(manifest.find("\"name_hex\":\"626164fffe2e6b6463\""), std::string::npos);
}
