// The explorer itself, and a selection of the meetings that `reliability interleavings` holds.

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lab/interleavings/explorer.h"
#include "lab/interleavings/field.h"
#include "lab/interleavings/footprint.h"
#include "lab/interleavings/schedule.h"
#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "vu_file.h"

namespace interleavings {
namespace {

// ---- the layer ----------------------------------------------------------------------------------

/// Two files, opened for writing one after the other.
std::string hold_both(const std::string& first, const std::string& second) {
  vu_file one(first);
  one.open(vu_file::o_append);
  vu_file other(second);
  other.open(vu_file::o_append);
  return "both";
}

TEST(InterleavingsLayer, TellsADeadlockAtOnce) {
  const scratch_folder scratch;
  const std::string a = scratch.path("a");
  const std::string b = scratch.path("b");
  Explorer explorer({});
  std::string told;
  while (told.empty() && explorer.next()) {
    Meeting meeting(scratch.path(), explorer);
    told = meeting.run({[&] { return hold_both(a, b); }, [&] { return hold_both(b, a); }}).deadlock;
  }
  EXPECT_EQ(told,
            "A waits at: lock (exclusive) b, held by B (exclusive); "
            "B waits at: lock (exclusive) a, held by A (exclusive)");
}

TEST(InterleavingsLayer, TellsNoDeadlockWhereLocksAreTakenInOneOrder) {
  const scratch_folder scratch;
  const std::string a = scratch.path("a");
  const std::string b = scratch.path("b");
  Explorer explorer({});
  while (explorer.next()) {
    Meeting meeting(scratch.path(), explorer);
    const Ending ending =
        meeting.run({[&] { return hold_both(a, b); }, [&] { return hold_both(a, b); }});
    ASSERT_EQ(ending.deadlock, "");
    ASSERT_EQ(ending.answers, (std::vector<std::string>{"both", "both"}));
  }
  EXPECT_GT(explorer.runs(), 5U);
}

/// Reads a number and writes the next one, with a lock for each alone.
std::string count_on(const std::string& path) {
  vu_file file(path);
  file.open(vu_file::o_read);
  std::string text;
  file.read(text, 0);
  file.close();
  file.open(vu_file::o_truncate);
  file.write(std::to_string(std::stoi(text) + 1));
  file.close();
  return text;
}

std::set<std::string> counts(const Bounds& bounds, std::uint64_t& runs) {
  const scratch_folder scratch;
  const std::string path = scratch.path("count");
  std::set<std::string> ends;
  Explorer explorer(bounds);
  while (explorer.next()) {
    write_file(path, "0");
    Meeting meeting(scratch.path(), explorer);
    meeting.run({[&] { return count_on(path); }, [&] { return count_on(path); }});
    ends.insert(read_file(path));
  }
  runs = explorer.runs();
  return ends;
}

TEST(InterleavingsLayer, MeetsALostUpdateWithOnePreemption) {
  std::uint64_t runs = 0;
  EXPECT_EQ(counts({.preemptions = 0}, runs), (std::set<std::string>{"2"}));
  EXPECT_EQ(runs, 2U);
  EXPECT_EQ(counts({.preemptions = 1}, runs), (std::set<std::string>{"1", "2"}));
}

TEST(InterleavingsLayer, EndsAProcessWithItsLocks) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  const auto hold = [&] {
    vu_file file(path);
    file.open(vu_file::o_truncate);
    file.write("by A");
    file.close();
    return std::string("done");
  };
  const auto read = [&] {
    vu_file file(path);
    file.open(vu_file::o_read);
    std::string text;
    file.read(text, 0);
    return text;
  };
  write_file(path, "before");
  // Open, lock and cut: then it is gone, and nobody waits for it.
  Replay guide(schedule_from("A3x B"));
  Meeting meeting(scratch.path(), guide);
  const Ending ending = meeting.run({hold, read});
  EXPECT_EQ(ending.deadlock, "");
  EXPECT_EQ(ending.died, (std::vector<bool>{true, false}));
  EXPECT_EQ(ending.answers[1], "");
  EXPECT_EQ(read_file(path), "");
}

TEST(InterleavingsLayer, KnowsWhichCallsTouchEachOther) {
  using os::faults::Call;
  const auto there = [](const std::string&) { return true; };
  const auto missing = [](const std::string&) { return false; };
  const auto mark = [](Call call, const std::string& path) { return SeenCall{call, path}; };
  const Footprint probe = footprint_of(mark(Call::probe_search, "f/a"), there);
  const Footprint list = footprint_of(mark(Call::list, "f"), there);
  const Footprint gone = footprint_of(mark(Call::remove_file, "f/a"), there);
  EXPECT_FALSE(touch_each_other(probe, list));
  EXPECT_TRUE(touch_each_other(probe, gone));
  EXPECT_TRUE(touch_each_other(list, gone));
  EXPECT_FALSE(touch_each_other(probe, footprint_of(mark(Call::remove_file, "f/b"), there)));
  EXPECT_FALSE(touch_each_other(list, footprint_of(mark(Call::remove_file, "f/a"), missing)));
  // A folder that moves takes along what is in it.
  const SeenCall moves{Call::rename, "f", "g"};
  EXPECT_TRUE(touch_each_other(probe, footprint_of(moves, there)));
  const Footprint shared = footprint_of({Call::lock, "f/a", "", false, false}, there);
  const Footprint exclusive = footprint_of({Call::lock, "f/a", "", false, true}, there);
  EXPECT_FALSE(touch_each_other(shared, shared));
  EXPECT_TRUE(touch_each_other(shared, exclusive));
}

TEST(InterleavingsLayer, ReadsTheTextOfASchedule) {
  for (const char* const text : {"A12 B5 A B", "A3x B", "C B1 A"})
    EXPECT_EQ(in_text(schedule_from(text)), text);
}

// ---- which schedules there are ------------------------------------------------------------------

void put_text(const std::string& path, const std::string& text) {
  vu_file file(path);
  file.open(vu_file::o_truncate);
  file.write(text);
  file.close();
}

std::string text_in(const std::string& path) {
  vu_file file(path);
  file.open(vu_file::o_read);
  std::string text;
  file.read(text, 0);
  file.close();
  return text;
}

bool dies_while_another_waits(const std::vector<Made>& made) {
  const auto is_end = [](const Made& each) { return each.is_death && each.who == 0; };
  const auto end = std::find_if(made.begin(), made.end(), is_end);
  if (end == made.begin() || end == made.end()) return false;
  // B stands before its lock, and A has written under its own since.
  const auto opened = std::find_if(made.begin(), end, [](const Made& each) {
    return each.who == 1 && each.call.function == os::faults::Call::open;
  });
  return opened != end && std::prev(end)->call.function == os::faults::Call::write &&
         std::find_if(std::next(opened), end, [](const Made& each) { return each.who == 1; }) ==
             end;
}

TEST(InterleavingsLayer, EndsAProcessForWhichAnotherOneWaits) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  bool is_met = false;
  Explorer explorer({.deaths = Deaths::kOne});
  while (explorer.next()) {
    write_file(path, "before");
    Meeting meeting(scratch.path(), explorer);
    const Ending ending = meeting.run(
        {[&] { return put_text(path, "by A"), std::string(); }, [&] { return text_in(path); }});
    EXPECT_EQ(ending.deadlock, "");
    is_met = is_met || dies_while_another_waits(meeting.made());
  }
  EXPECT_TRUE(is_met);
}

TEST(InterleavingsLayer, EndsAProcessBehindTheEndOfAnotherOne) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  std::set<std::string> ends;
  Explorer explorer({.preemptions = 1, .deaths = Deaths::kOne});
  while (explorer.next()) {
    write_file(path, "before");
    Meeting meeting(scratch.path(), explorer);
    const Ending ending = meeting.run(
        {[&] { return put_text(path, "by A"), std::string(); }, [&] { return text_in(path); }});
    if (ending.died[0]) ends.insert(ending.answers[1] + ", " + read_file(path));
  }
  EXPECT_TRUE(ends.contains("before, "));
}

/// What three see of each other's folders: two make one only when they see another one's.
std::set<std::string> ends_of_three(Reduction reduction, std::uint64_t& runs) {
  const scratch_folder scratch;
  const auto make = [&](const char* const name) {
    static_cast<void>(os::create_directory(scratch.path(name)));
  };
  const auto sees = [&](const char* const name) {
    return os::probe_search(scratch.path(name)).ok();
  };
  std::set<std::string> ends;
  Explorer explorer({.preemptions = 1, .reduction = reduction});
  while (explorer.next()) {
    for (const char* const each : {"a", "b", "c"})
      static_cast<void>(os::remove_directory(scratch.path(each)));
    Meeting meeting(scratch.path(), explorer);
    const Ending ending = meeting.run({[&] {
                                         make("a");
                                         const std::string c = sees("c") ? "c" : "-";
                                         return c + (sees("b") ? "b" : "-");
                                       },
                                       [&] {
                                         if (sees("a")) make("b");
                                         return std::string();
                                       },
                                       [&] {
                                         if (sees("b")) make("c");
                                         return std::string();
                                       }});
    ends.insert(ending.answers[0] + (sees("b") ? "b" : "-") + (sees("c") ? "c" : "-"));
  }
  runs = explorer.runs();
  return ends;
}

TEST(InterleavingsLayer, LeavesOutNothingOfThreeThatDiffers) {
  std::uint64_t reduced = 0;
  std::uint64_t all = 0;
  const std::set<std::string> ends = ends_of_three(Reduction::kOn, reduced);
  EXPECT_EQ(ends, ends_of_three(Reduction::kOff, all));
  EXPECT_TRUE(ends.contains("cbbc"));
  EXPECT_LT(reduced, all);
}

TEST(InterleavingsLayer, TellsThatARunWentAnotherWay) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  Explorer explorer({.preemptions = 1});
  int run = 0;
  while (explorer.next()) {
    ++run;
    Meeting meeting(scratch.path(), explorer);
    const auto ask = [&] {
      vu_file::exists(path);
      if (run % 2 == 1) vu_file::exists(path);
      return std::string();
    };
    meeting.run({ask, ask});
  }
  EXPECT_TRUE(explorer.is_unrepeatable());
}

// ---- meetings -----------------------------------------------------------------------------------

std::string told(const Explored& explored) {
  std::string text;
  for (const Finding& each : explored.findings)
    text += in_text(each.schedule) + ": " + each.what + "\n" + each.calls;
  return text;
}

/// A Windows program may run under an emulator, where a schedule takes a hundred times as long.
#if defined(_WIN32)
constexpr int kDeep = 1;
#else
constexpr int kDeep = 2;
#endif

class Interleavings : public testing::Test {
 protected:
  Explored explore(const std::string& text, const Bounds& bounds = {.preemptions = kDeep}) {
    Explored explored = m_field.explore(gathering_from(text), bounds);
    EXPECT_EQ(told(explored), "") << text;
    EXPECT_GT(explored.schedules, 2U) << text;
    return explored;
  }

  Field m_field;
};

TEST_F(Interleavings, EndAsTheyDoWithoutTheReduction) {
  std::vector<std::pair<const char*, int>> pairs = {{"exists + remove, same, tidy, off", kDeep},
                                                    {"read + write, same, tidy, off", 1}};
#if !defined(_WIN32)
  pairs.emplace_back("names + update, same, tidy, off", kDeep);
  pairs.emplace_back("remove + write, same, tidy, off", 1);
#endif
  for (const auto& [text, preemptions] : pairs) {
    const Explored reduced = explore(text, {.preemptions = preemptions});
    const Explored all = explore(text, {.preemptions = preemptions, .reduction = Reduction::kOff});
    EXPECT_EQ(reduced.ends, all.ends) << text;
    EXPECT_LT(reduced.schedules, all.schedules) << text;
  }
}

TEST_F(Interleavings, OfOtherFoldersTouchNothingOfEachOther) {
  const Explored explored = explore("write + remove, other-folder, tidy, off");
  EXPECT_EQ(explored.ends.size(), 1U);
}

TEST_F(Interleavings, OfTwoThatCreateDifferentEntriesKeepBoth) {
  const Explored explored = explore("create + create, other-new, tidy, off");
  EXPECT_TRUE(explored.races.empty());
}

TEST_F(Interleavings, OfTwoThatCreateOneEntryLeaveOneLine) {
  const Explored explored = explore("create + create, same-new, tidy, off");
  EXPECT_GT(explored.races.count("same-entry"), 0U);
}

class InterleavingsOf : public Interleavings, public testing::WithParamInterface<const char*> {};

TEST_P(InterleavingsOf, TwoEndAsTheyMay) { explore(GetParam(), {.preemptions = 1}); }

INSTANTIATE_TEST_SUITE_P(
    Selection, InterleavingsOf,
    testing::Values("create + create, same-new, tidy, on", "create + remove, same, tidy, off",
                    "create + clean, same-new, tidy, off",
                    "create + exists, same-new, no-index, off", "remove + remove, same, stray, off",
                    "remove + rename, same, tidy, off", "remove + read, same, tidy, off",
                    "remove + write, same, tidy, off", "rename + rename, same, tidy, off",
                    "rename + write, same, tidy, off", "rename-onto + read, other, tidy, off",
                    "rename-onto + rename-onto, other, tidy, off",
                    "names + names, same, no-index, on", "update + clean, same, stray, off",
                    "read + write, same-new, tidy, off", "write + write, same, tidy, off",
                    "copy-in + read, same, tidy, off", "save-keys + load-keys, same, tidy, off",
                    "create + put, other-new, tidy, off",
                    "write-part + read-part, same, tidy, off"));

TEST_F(Interleavings, OfWhichOneIsKilledEndAsTheyMay) {
  for (const char* const text :
       {"create + create, other-new, tidy, off", "rename + names, same, tidy, off",
        "remove + create, same, tidy, off"})
    explore(text, {.preemptions = 1, .deaths = Deaths::kOne});
}

// The entry is there all the time: before the rename, and behind it.
TEST_F(Interleavings, OfAQuestionAndARenameOntoItsEntryAnswerYes) {
  EXPECT_TRUE(explore("rename-onto + exists, other, tidy, off").races.empty());
}

TEST_F(Interleavings, OfAWriterOfNewEntriesAndARenameOntoItsEntryReplaceNothing) {
  EXPECT_TRUE(explore("rename-onto + write-new, other, tidy, off").races.empty());
}

TEST_F(Interleavings, OfProcessesThatBeginOneStorageDisturbNobody) {
  const Explored explored = m_field.explore(gathering_from("begin + begin, same, tidy, off"),
                                            {.preemptions = 1}, Played::kByProcesses);
  EXPECT_EQ(told(explored), "");
  EXPECT_GT(explored.schedules, 5U);
}

/// Takes a text, and puts it back with its mark behind.
std::string add_mark(const Cast& cast) {
  const std::string path = cast.root + "\\plain\\one.txt";
  put_text(path, text_in(path) + cast.mark);
  return "";
}

/// Adds to one file while it holds another one.
std::string hold_and_add(const Cast& cast) {
  const bool is_first = cast.mark == "by A";
  return hold_both(cast.root + (is_first ? "\\plain\\one.txt" : "\\plain\\two.txt"),
                   cast.root + (is_first ? "\\plain\\two.txt" : "\\plain\\one.txt"));
}

TEST_F(Interleavings, ThatLoseAnUpdateAreToldWithASchedule) {
  const MeetingOperation adds{"add-mark", kAsks, add_mark, false};
  const Gathering gathering{{&adds, &adds}};
  const Explored explored = m_field.explore(gathering, {});
  ASSERT_FALSE(explored.findings.empty());
  for (const Finding& each : explored.findings) {
    EXPECT_NE(each.what.find("\n    plain/one.txt is 'oneby "), std::string::npos) << each.what;
    // One takes the turn, the other one writes, and then the first one.
    EXPECT_EQ(each.schedule.size(), 3U) << in_text(each.schedule);
    const Finding again = m_field.replay(gathering, schedule_from(in_text(each.schedule)));
    EXPECT_EQ(again.what, each.what);
    EXPECT_EQ(again.calls, each.calls);
    EXPECT_EQ(again.end, each.end);
  }
}

TEST_F(Interleavings, ThatWaitForEachOtherAreToldWithASchedule) {
  const MeetingOperation holds{"hold-and-add", kAsks, hold_and_add, false};
  const Gathering gathering{{&holds, &holds}};
  const Explored explored = m_field.explore(gathering, {});
  ASSERT_FALSE(explored.findings.empty());
  const Finding& first = explored.findings.front();
  EXPECT_EQ(first.what,
            "nobody can go on: "
            "A waits at: lock (exclusive) plain/two.txt, held by B (exclusive); "
            "B waits at: lock (exclusive) plain/one.txt, held by A (exclusive)");
  EXPECT_EQ(m_field.replay(gathering, first.schedule).what, first.what);
}

/// Threads stand for processes: led the same way, both make the same calls, with the same ends.
TEST_F(Interleavings, AreHeldByProcessesAsTheyAreByThreads) {
  const char* const trio = "create + write + names, other, tidy, off";
  const char* const other = "rename + remove + read, same, tidy, off";
  std::vector<std::pair<const char*, const char*>> led = {{trio, "A20 B12 C A B"},
                                                          {other, "B11 A C B"}};
#if !defined(_WIN32)
  // Processes take an emulator seconds to start.
  led.insert(led.end(), {{trio, "A B C"},
                         {trio, "C B A"},
                         {trio, "A9 B C A"},
                         {trio, "B10 A30 C4 B A C"},
                         {other, "A B C"},
                         {other, "C7 A B C"},
                         {other, "A25 B C A"},
                         {other, "A18 C8 B20 A C B"}});
#endif
  for (const auto& [text, schedule] : led) {
    const Gathering gathering = gathering_from(text);
    const Finding threads = m_field.replay(gathering, schedule_from(schedule));
    const Finding processes =
        m_field.replay(gathering, schedule_from(schedule), Played::kByProcesses);
    EXPECT_EQ(threads.calls, processes.calls) << text << ": " << schedule;
    EXPECT_EQ(threads.end, processes.end) << text << ": " << schedule;
    EXPECT_FALSE(threads.calls.empty());
  }
}

}  // namespace
}  // namespace interleavings
