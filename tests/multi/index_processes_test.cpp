// Several processes on one storage folder: what the index guarantees, and its known limits.
//
// While a handle has "index.dat" open for reading, operations can load the index but not write it.
// With such a handle these cases stop two operations after both have loaded and before either has
// written.

#include <gtest/gtest.h>

#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "stg_index.h"
#include "tests/multi/helpers.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace {

using Names = std::vector<std::string>;
using Lines = std::vector<std::pair<std::string, std::string>>;
using synchronisation = remote_index::synchronisation;

class IndexUnderProcesses : public testing::Test {
 protected:
  void SetUp() override {
    STGIndex::setSynchronizeMode(false);
    STGIndex::updateIndexFile(folder.path());
  }
  void TearDown() override { STGIndex::setSynchronizeMode(true); }

  const scratch_folder folder;
};

/// Prevents every operation on a folder from writing its index.
class write_barrier {
 public:
  explicit write_barrier(const std::string& folder) : m_index(folder, "index.dat") { lower(); }
  void lower() { m_index.open(vu_file::o_read); }
  void lift() { m_index.close(); }

 private:
  vu_file m_index;
};

/// Takes the next entry that a create_many process acknowledges. @return whether there was one.
bool take_line(child_process& child, std::map<std::string, std::string>& acknowledged) {
  const std::optional<std::string> line = child.next_line();
  if (!line || *line == "done") return false;
  const std::size_t blank = line->find(' ');
  if (blank == std::string::npos) {
    ADD_FAILURE() << "an odd line: " << *line;
    return false;
  }
  EXPECT_TRUE(acknowledged.emplace(line->substr(0, blank), line->substr(blank + 1)).second)
      << *line;
  return true;
}

/// Takes all entries, logical name -> physical name, until the process has finished or died.
void collect(child_process& child, std::map<std::string, std::string>& acknowledged) {
  while (take_line(child, acknowledged)) {
  }
}

/// Checks that every acknowledged entry is in the index once, with its file.
void expect_all_found(const std::string& folder,
                      const std::map<std::string, std::string>& acknowledged) {
  std::map<std::string, Names> stored_of;
  for (const auto& [key, stored] : index_lines(folder)) stored_of[key].push_back(stored);
  for (const auto& [logical, physical] : acknowledged) {
    const Names& stored = stored_of[key_of(logical, 7)];
    ASSERT_EQ(stored.size(), 1U) << logical;
    EXPECT_EQ(stored[0] + ".kdb", physical) << logical;
    EXPECT_TRUE(file_exists(folder + "\\" + physical)) << logical;
  }
}

void expect_no_name_twice(const std::map<std::string, std::string>& acknowledged) {
  std::set<std::string> names;
  for (const auto& [logical, physical] : acknowledged) {
    EXPECT_TRUE(names.insert(physical).second) << physical << " was given twice";
  }
}

/// Several processes create entries in one folder, all at once.
std::map<std::string, std::string> create_at_once(const std::string& folder, int processes,
                                                  int each, const std::string& synchronise) {
  std::vector<std::unique_ptr<child_process>> children;
  for (int number = 0; number < processes; ++number) {
    children.push_back(std::make_unique<child_process>(
        "create_many",
        Names{folder, "p" + std::to_string(number) + "-", std::to_string(each), synchronise}));
  }
  for (const auto& child : children) child->hears("ready");
  for (const auto& child : children) child->tell("go");
  std::map<std::string, std::string> acknowledged;
  for (const auto& child : children) {
    collect(*child, acknowledged);
    child->close_input();
    EXPECT_EQ(child->wait(), 0);
  }
  EXPECT_EQ(acknowledged.size(), static_cast<std::size_t>(processes * each));
  return acknowledged;
}

#if defined(_WIN32)
constexpr int kProcesses = 3;
constexpr int kEntries = 10;
constexpr int kKills = 4;
#else
constexpr int kProcesses = 4;
constexpr int kEntries = 25;
constexpr int kKills = 20;
#endif

}  // namespace

TEST_F(IndexUnderProcesses, KeepsTheEntriesOfTwoThatLoadedTheSameIndex) {
  remote_index a(folder.path());
  remote_index b(folder.path());
  write_barrier barrier(folder.path());
  a.begin("create one.kdb 7");
  b.begin("create two.kdb 7");
  ASSERT_TRUE(wait_for_data_files(folder.path(), 2));
  EXPECT_EQ(index_lines(folder.path()), Lines{}) << "neither has written";
  barrier.lift();
  const std::string of_a = a.result();
  const std::string of_b = b.result();
  EXPECT_NE(of_a, of_b);
  EXPECT_EQ(stored_name(folder.path(), "one.kdb", 7) + ".kdb", of_a);
  EXPECT_EQ(stored_name(folder.path(), "two.kdb", 7) + ".kdb", of_b);
  EXPECT_EQ(index_lines(folder.path()).size(), 2U);
}

TEST_F(IndexUnderProcesses, LeavesOneLineWhenTwoCreateTheSameEntry) {
  remote_index a(folder.path());
  remote_index b(folder.path());
  write_barrier barrier(folder.path());
  a.begin("create same.kdb 7");
  b.begin("create same.kdb 7");
  ASSERT_TRUE(wait_for_data_files(folder.path(), 2));
  barrier.lift();
  const std::string of_a = a.result();
  const std::string of_b = b.result();
  EXPECT_NE(of_a, of_b) << "each drew a number of its own";
  const Lines lines = index_lines(folder.path());
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_EQ(lines[0].first, key_of("same.kdb", 7));
  EXPECT_TRUE(lines[0].second + ".kdb" == of_a || lines[0].second + ".kdb" == of_b)
      << lines[0].second;
  EXPECT_EQ(data_files(folder.path()).size(), 2U) << "the other file stays, in no line";
  // Now both processes return the same name.
  EXPECT_EQ(a.result_of("create same.kdb 7"), lines[0].second + ".kdb");
  EXPECT_EQ(b.result_of("exists same.kdb 7"), lines[0].second + ".kdb");
}

TEST_F(IndexUnderProcesses, KeepsARemovalThatAnOlderLoadKnowsNothingOf) {
  STGIndex::create(folder.path(), "old.kdb", 7);
  remote_index a(folder.path());
  remote_index b(folder.path());
  write_barrier barrier(folder.path());
  a.begin("create new.kdb 7");
  ASSERT_TRUE(wait_for_data_files(folder.path(), 2)) << "old.kdb is in its loaded index";
  b.begin("remove old.kdb 7");
  barrier.lift();
  EXPECT_EQ(b.result(), "");
  a.result();
  EXPECT_EQ(stored_name(folder.path(), "old.kdb", 7), "") << "its file is gone, and so is the line";
  EXPECT_NE(stored_name(folder.path(), "new.kdb", 7), "");
}

TEST_F(IndexUnderProcesses, FindsEverythingThatManyHaveCreated) {
  const std::map<std::string, std::string> acknowledged =
      create_at_once(folder.path(), kProcesses, kEntries, "off");
  expect_all_found(folder.path(), acknowledged);
  expect_no_name_twice(acknowledged);
  EXPECT_EQ(index_lines(folder.path()).size(), acknowledged.size()) << "and nothing else";
  EXPECT_EQ(data_files(folder.path()).size(), acknowledged.size());
}

TEST_F(IndexUnderProcesses, FindsEverythingThatManyHaveCreatedWhileFilesAreAdopted) {
  const std::map<std::string, std::string> acknowledged =
      create_at_once(folder.path(), kProcesses, kEntries, "on");
  expect_all_found(folder.path(), acknowledged);
  expect_no_name_twice(acknowledged);
  EXPECT_EQ(data_files(folder.path()).size(), acknowledged.size()) << "adoption makes no files";
}

TEST_F(IndexUnderProcesses, CreatesOneIndexWhenSeveralProcessesFindNone) {
  const scratch_folder fresh;
  const std::map<std::string, std::string> acknowledged =
      create_at_once(fresh.path(), kProcesses, 3, "off");
  expect_all_found(fresh.path(), acknowledged);
  expect_no_name_twice(acknowledged);
}

TEST_F(IndexUnderProcesses, HasTwoEntriesForAFileThatAnotherAdoptedTooEarly) {
  remote_index maker(folder.path());
  remote_index adopter(folder.path(), synchronisation::on);
  write_barrier barrier(folder.path());
  maker.begin("create made.kdb 7");
  ASSERT_TRUE(wait_for_data_files(folder.path(), 1));
  const std::string file = data_files(folder.path()).front();
  adopter.begin("create other.kdb 7");
  ASSERT_TRUE(wait_for_data_files(folder.path(), 2));
  barrier.lift();
  EXPECT_EQ(maker.result(), file);
  const std::string other = adopter.result();
  EXPECT_EQ(stored_name(folder.path(), "made.kdb", 7) + ".kdb", file) << "nothing is lost";
  EXPECT_EQ(stored_name(folder.path(), "other.kdb", 7) + ".kdb", other);
  EXPECT_EQ(stored_name(folder.path(), file, 0), file)
      << "and the file is an entry of its own, too";
  EXPECT_EQ(index_lines(folder.path()).size(), 3U);
}

TEST_F(IndexUnderProcesses, MakeAFileAgainThatASweepTookBeforeItsLineWasWritten) {
  remote_index maker(folder.path());
  remote_index sweeper(folder.path());
  {
    write_barrier barrier(folder.path());
    maker.begin("create made.kdb 7");
    ASSERT_TRUE(wait_for_data_files(folder.path(), 1));
    const std::string file = data_files(folder.path()).front();
    EXPECT_EQ(sweeper.result_of("clean any 1000000"), "0") << "no entry was removed";
    // Windows may keep the name until the process that created the file also closes it.
    EXPECT_TRUE(wait_until([&] { return data_files(folder.path()).empty(); }))
        << "but the file that no line accounts for goes";
    barrier.lift();
    EXPECT_EQ(maker.result(), file) << "until its maker has the lock";
    EXPECT_EQ(stored_name(folder.path(), "made.kdb", 7) + ".kdb", file);
    EXPECT_EQ(data_files(folder.path()), std::vector<std::string>{file});
  }
  EXPECT_EQ(index_lines(folder.path()).size(), 1U);
}

#if !defined(_WIN32)
// Windows has no public call that stops a process.

/// Suspends a process in the middle of an operation, after the load and before the save, while it
/// has no lock on the index. Then removes the barrier.
void stop_before_it_writes(remote_index& process, write_barrier& barrier,
                           const std::string& folder) {
  while (true) {
    process.stop();
    barrier.lift();
    vu_file probe(folder, "index.dat");
    bool refused = true;
    ASSERT_TRUE(probe.try_open(vu_file::o_append, refused, true));
    if (!refused) return;
    probe.close();
    barrier.lower();
    process.resume();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

TEST_F(IndexUnderProcesses, KeepsAnEntryThatIsRemovedAndMadeAgainUnderAnOlderLoad) {
  const std::string old_file = STGIndex::create(folder.path(), "again.kdb", 7);
  remote_index late(folder.path());
  write_barrier barrier(folder.path());
  late.begin("create other.kdb 7");
  ASSERT_TRUE(wait_for_data_files(folder.path(), 2));
  stop_before_it_writes(late, barrier, folder.path());
  STGIndex::remove(folder.path(), "again.kdb", 7);
  const std::string new_file = STGIndex::create(folder.path(), "again.kdb", 7);
  EXPECT_NE(new_file, old_file);
  EXPECT_EQ(stored_name(folder.path(), "again.kdb", 7) + ".kdb", new_file);

  late.resume();
  late.result();
  EXPECT_NE(stored_name(folder.path(), "other.kdb", 7), "");
  EXPECT_EQ(stored_name(folder.path(), "again.kdb", 7) + ".kdb", new_file)
      << "the late one knows the key with the old file, which is gone";
  EXPECT_TRUE(file_exists(folder.path(new_file)));
}
#endif

TEST_F(IndexUnderProcesses, LosesOnlyTheEntryOfAProcessThatDiesBeforeItWrites) {
  STGIndex::create(folder.path(), "safe.kdb", 7);
  auto victim = std::make_unique<remote_index>(folder.path());
  {
    write_barrier barrier(folder.path());
    victim->begin("create lost.kdb 7");
    ASSERT_TRUE(wait_for_data_files(folder.path(), 2));
    victim->kill();
    EXPECT_EQ(victim->wait(), child_process::kKilled);
  }
  EXPECT_NE(stored_name(folder.path(), "safe.kdb", 7), "");
  EXPECT_EQ(index_lines(folder.path()).size(), 1U);
  EXPECT_EQ(data_files(folder.path()).size(), 2U) << "the empty file stays";
  const std::string next = STGIndex::create(folder.path(), "next.kdb", 7);
  EXPECT_EQ(data_files(folder.path()).size(), 3U) << "and its number is not given again";
  EXPECT_EQ(stored_name(folder.path(), "next.kdb", 7) + ".kdb", next);
}

TEST_F(IndexUnderProcesses, KeepsEveryAcknowledgedEntryOfProcessesThatAreKilled) {
  // The index has several pages, which a system may write one by one.
  std::map<std::string, std::string> acknowledged;
  std::string text;
  for (int number = 1000; number < 1400; ++number) {
    const std::string digits = std::to_string(number);
    text += key_of("kept-" + digits + ".kdb", 7) + "/0000" + digits + "\n";
    write_file(folder.path("0000" + digits + ".kdb"), "");
    acknowledged.emplace("kept-" + digits + ".kdb", "0000" + digits + ".kdb");
  }
  write_file(folder.path("index.dat"), text);
  write_file(folder.path("index"), "00001399");

  std::size_t not_acknowledged = 0;
  for (int round = 0; round < kKills; ++round) {
    const std::string prefix = "r" + std::to_string(round) + "-";
    child_process victim("create_many", {folder.path(), prefix, "1000", "off"});
    ASSERT_TRUE(victim.hears("ready"));
    victim.tell("go");
    // Each round kills it at another point: after one to five entries, somewhere in the next one.
    for (int entries = 0; entries <= round % 5; ++entries) {
      ASSERT_TRUE(take_line(victim, acknowledged));
    }
    std::this_thread::sleep_for(std::chrono::microseconds(170 * round));
    victim.kill();
    collect(victim, acknowledged);
    EXPECT_EQ(victim.wait(), child_process::kKilled);

    EXPECT_NE(read_file(folder.path("index.dat")), "") << "never an empty file";
    STGIndex::NameMap found;
    STGIndex::lpValues(folder.path(), found);
    for (const auto& [logical, physical] : acknowledged)
      EXPECT_EQ(found[logical], physical) << logical;
    // One more entry may be written but not acknowledged: the last one.
    EXPECT_LE(found.size(), acknowledged.size() + not_acknowledged + 1);
    for (const auto& [logical, physical] : found) {
      if (acknowledged.contains(logical) || logical.starts_with(prefix)) continue;
      EXPECT_EQ(logical[0], 'r') << "an entry that nobody made: " << logical;
    }
    not_acknowledged = found.size() - acknowledged.size();
    if (HasFailure()) return;
  }
  expect_no_name_twice(acknowledged);
  acknowledged.emplace("next.kdb", STGIndex::create(folder.path(), "next.kdb", 7));
  expect_no_name_twice(acknowledged);
  expect_all_found(folder.path(), acknowledged);
}

TEST_F(IndexUnderProcesses, KeepsTheEntriesOfTwoThreadsThatLoadedTheSameIndex) {
  write_barrier barrier(folder.path());
  std::string of_a;
  std::string of_b;
  std::thread a([&] { of_a = STGIndex::create(folder.path(), "one.kdb", 7); });
  std::thread b([&] { of_b = STGIndex::create(folder.path(), "two.kdb", 7); });
  EXPECT_TRUE(wait_for_data_files(folder.path(), 2));
  EXPECT_EQ(index_lines(folder.path()), Lines{});
  barrier.lift();
  a.join();
  b.join();
  EXPECT_NE(of_a, of_b);
  EXPECT_EQ(stored_name(folder.path(), "one.kdb", 7) + ".kdb", of_a);
  EXPECT_EQ(stored_name(folder.path(), "two.kdb", 7) + ".kdb", of_b);
  EXPECT_EQ(index_lines(folder.path()).size(), 2U);
}

TEST_F(IndexUnderProcesses, FindsEverythingThatManyThreadsHaveCreated) {
  constexpr int kThreads = 4;
  std::vector<std::map<std::string, std::string>> of_thread(kThreads);
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([&, thread] {
      for (int number = 0; number < kEntries; ++number) {
        const std::string logical =
            "t" + std::to_string(thread) + "-" + std::to_string(number) + ".kdb";
        of_thread[static_cast<std::size_t>(thread)].emplace(
            logical, STGIndex::create(folder.path(), logical, 7));
      }
    });
  }
  for (std::thread& each : threads) each.join();
  std::map<std::string, std::string> acknowledged;
  for (auto& each : of_thread) acknowledged.merge(each);
  EXPECT_EQ(acknowledged.size(), std::size_t{kThreads * kEntries});
  expect_all_found(folder.path(), acknowledged);
  expect_no_name_twice(acknowledged);
  EXPECT_EQ(index_lines(folder.path()).size(), acknowledged.size());
}

// Documents between processes: a reader never sees a half-written document.

namespace {

constexpr char kOwner[] = "jdoe";
constexpr char kDocument[] = "sales.kdb";
constexpr auto kArea = STG::UserRepository;

/// args: a root. Works on one document, one command per line: "write", "add TEXT", "read", "close",
/// and "replace" through a second handle.
int use_document(const std::vector<std::string>& args) {
  vu_storage::initRootStorage(args.at(0), true, false);
  vu_storage storage;
  vu_file file;
  while (const std::optional<std::string> line = hear()) {
    std::istringstream words(*line);
    std::string verb;
    std::string text;
    words >> verb >> text;
    if (verb == "write" || verb == "read") {
      say("opening");
      if (verb == "write") {
        storage.OpenWrite(file, kOwner, kDocument, kArea, true, 0);
      } else {
        storage.OpenRead(file, kOwner, kDocument, kArea, 0);
        storage.Read(file, text, 0);
      }
      say((file.is_open() ? "open " : "closed ") + text);
    } else if (verb == "replace") {
      say("opening");
      vu_file second;
      storage.OpenWrite(second, kOwner, kDocument, kArea, true, 0);
      say(second.is_open() ? "open" : "closed");
    } else if (verb == "add") {
      storage.Write(file, text);
      say("added");
    } else {
      storage.Close(file);
      say("closed");
    }
  }
  return 0;
}
REGISTER_ROLE(use_document, use_document)

void ask(child_process& child, const std::string& line, const std::string& answer) {
  child.tell(line);
  EXPECT_TRUE(child.hears(answer)) << line;
}

}  // namespace

TEST(DocumentsUnderProcesses, AreReadWholeOrNotYet) {
  const scratch_folder folder;
  child_process writer("use_document", {folder.path()});
  child_process reader("use_document", {folder.path()});
  ask(writer, "write", "opening");
  ASSERT_TRUE(writer.hears("open "));
  ask(writer, "add first-", "added");

  ask(reader, "read", "opening");
  EXPECT_TRUE(reader.stays_silent());
  ask(writer, "add second", "added");
  ask(writer, "close", "closed");
  EXPECT_TRUE(reader.hears("open first-second"));

  // The other direction: a document is not replaced while a reader has it open.
  ask(writer, "write", "opening");
  EXPECT_TRUE(writer.stays_silent());
  ask(reader, "close", "closed");
  EXPECT_TRUE(writer.hears("open "));
  ask(writer, "add new", "added");
  ask(writer, "close", "closed");
  ask(reader, "read", "opening");
  EXPECT_TRUE(reader.hears("open new"));
}

TEST(DocumentsUnderProcesses, AreLeftCutShortByAWriterThatDies) {
  const scratch_folder folder;
  child_process reader("use_document", {folder.path()});
  {
    child_process writer("use_document", {folder.path()});
    ask(writer, "write", "opening");
    ASSERT_TRUE(writer.hears("open "));
    ask(writer, "add only-a-part", "added");
    writer.kill();
    EXPECT_EQ(writer.wait(), child_process::kKilled);
  }
  ask(reader, "read", "opening");
  EXPECT_TRUE(reader.hears("open only-a-part")) << "it cannot be told from a complete one";
}

TEST(DocumentsUnderProcesses, KeepACallerWaitingForEverThatReplacesWhatItReads) {
  const scratch_folder folder;
  child_process caller("use_document", {folder.path()});
  ask(caller, "write", "opening");
  ASSERT_TRUE(caller.hears("open "));
  ask(caller, "close", "closed");
  ask(caller, "read", "opening");
  ASSERT_TRUE(caller.hears("open "));
  ask(caller, "replace", "opening");
  EXPECT_TRUE(caller.stays_silent(std::chrono::milliseconds(400)));
  caller.kill();
  EXPECT_EQ(caller.wait(), child_process::kKilled);

  child_process next("use_document", {folder.path()});
  ask(next, "replace", "opening");
  EXPECT_TRUE(next.hears("open")) << "what it waited for is free again";
}
