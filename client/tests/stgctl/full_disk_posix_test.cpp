// The client on a disk that takes no more: files may not grow beyond a limit.
#include <sys/resource.h>

#include <csignal>

#include "client/tests/stgctl/repair_fixture.h"

namespace {

/// Lets no file of this process and its children grow beyond a size, as a full disk does.
class SizeLimit {
 public:
  explicit SizeLimit(std::size_t bytes) {
    // Else the system ends the process instead of refusing the write. A child inherits that.
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
    EXPECT_NE(result.err.find("is the disk full?"), std::string::npos) << result.err;
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
    // Putting back makes an index longer.
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

TEST_F(ClientFullDisk, WritesNoHalfPlan) {
  harm();
  const outcome result = within(200, {"repair", "--plan", plan()});
  EXPECT_EQ(result.code, 1);
  EXPECT_FALSE(file_exists(plan()));
  EXPECT_FALSE(file_exists(plan() + ".stgctl-part"));
}
