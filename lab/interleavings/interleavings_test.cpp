// Tests of the explorer and the judge, and a selection of the combinations.

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "lab/interleavings/interleaving.h"
#include "lab/interleavings/judge.h"
#include "lab/interleavings/runner.h"
#include "lab/interleavings/schedules.h"
#include "lab/interleavings/tree.h"
#include "platform/os/os.h"
#include "tests/support/scratch.h"
#include "vu_file.h"

namespace interleavings {
namespace {

// ---- what a tree means --------------------------------------------------------------------------

constexpr const char* kBert = "storage/user/bert/";

void replace_in(std::string& text, const std::string& from, const std::string& to) {
  const std::size_t at = text.find(from);
  ASSERT_NE(at, std::string::npos) << from;
  text.replace(at, from.size(), to);
}

TEST(InterleavingsView, ReportsDifferences) {
  const Tree tidy = tree_for(Setup::kTidy);
  const Facts before = facts_of(tidy);
  const std::string bert = kBert;
  const auto differs = [&](const std::string& path, const std::string& bytes) {
    Tree tree = tidy;
    add_file(tree, path, bytes, 0);
    return facts_of(tree) != before;
  };
  EXPECT_TRUE(differs(bert + "00000002.kdb", "other bytes"));
  EXPECT_TRUE(differs(bert + "00000007.kdb", ""));
  EXPECT_TRUE(differs(bert + "index.dat", ""));
  EXPECT_TRUE(differs(bert + "index", "00000003"));
  EXPECT_TRUE(differs("storage/docs/anna/00000046/00000001.kdf_/html/x/part", "other bytes"));
  EXPECT_TRUE(differs("plain/one.txt", "other bytes"));
  EXPECT_TRUE(differs(bert + "folder/file", ""));
  Tree tree = tidy;
  std::string& lines = tree[bert + "index.dat"].bytes;
  replace_in(lines, "second.kdb_0000000000/00000002", "second.kdb_0000000000/00000001");
  EXPECT_TRUE(facts_of(tree).contains("storage/user/bert: two entries, one file"));
  replace_in(lines, "second.kdb_0000000000/00000001\n", "");
  EXPECT_NE(facts_of(tree), before);
}

TEST(InterleavingsView, ShowsTheStateOfAnIndex) {
  Tree tree = tree_for(Setup::kTidy);
  EXPECT_EQ(facts_of(tree)["storage/user/bert: index"], "whole");
  tree[std::string(kBert) + "index.dat"].bytes = "";
  EXPECT_EQ(facts_of(tree)["storage/user/bert: index"], "empty");
  tree.erase(std::string(kBert) + "index.dat");
  EXPECT_EQ(facts_of(tree)["storage/user/bert: index"], "none");
}

TEST(InterleavingsView, CountsOrphansWithTheSameBytes) {
  Tree tree = tree_for(Setup::kTidy);
  add_file(tree, std::string(kBert) + "00000007.kdb", "x", 0);
  add_file(tree, std::string(kBert) + "00000008.kdb", "x", 0);
  EXPECT_EQ(facts_of(tree)["storage/user/bert: loose .kdb 'x'"], "2");
}

TEST(InterleavingsView, HidesTheNumberOfAFile) {
  Tree tree = tree_for(Setup::kTidy);
  const Facts before = facts_of(tree);
  const std::string bert = kBert;
  tree[bert + "00000009.kdb"] = tree[bert + "00000002.kdb"];
  tree.erase(bert + "00000002.kdb");
  replace_in(tree[bert + "index.dat"].bytes, "/00000002", "/00000009");
  tree[bert + "index"].bytes = "00000009";
  EXPECT_EQ(facts_of(tree), before);
}

// ---- what may be --------------------------------------------------------------------------------

constexpr const char* kFirst = "storage/user/anna: new.kdb_0000000000";
constexpr const char* kSecond = "storage/user/anna: newer.kdb_0000000000";

TEST(InterleavingsJudge, FindsALostEntryAfterAKill) {
  const Combination combination = combination_from("create + create, other-new, tidy, off");
  const Outcome both{{"a", "b"}, {{kFirst, ""}, {kSecond, ""}}, {false, false}};
  const Outcome without_a{{"", "b"}, {{kSecond, ""}}, {true, false}};
  const Outcome without_b{{"a", ""}, {{kFirst, ""}}, {false, true}};
  const Judge judge(combination, {}, {both, without_a, without_b});
  EXPECT_EQ(judge.judge(without_a).wrong, "");
  EXPECT_EQ(judge.judge({{"a", ""}, both.facts, {false, true}}).wrong, "");
  // A has created its entry, and returned.
  const Outcome lost{{"a", ""}, {{kSecond, ""}}, {false, true}};
  EXPECT_NE(judge.judge(lost).wrong, "");
  EXPECT_NE(judge.judge({{"a", "b"}, {{kSecond, ""}}, {false, false}}).wrong, "");
}

TEST(InterleavingsJudge, FindsALostLineAfterTwoCreationsOfOneEntry) {
  const Combination combination = combination_from("create + create, same-new, tidy, off");
  const Judge judge(combination, {}, {{{"a", "a"}, {{kFirst, ""}}, {false, false}}});
  const std::string loose = "storage/user/anna: loose .kdb ''";
  const Verdict accepted = judge.judge({{"a", "b"}, {{kFirst, ""}, {loose, "1"}}, {false, false}});
  EXPECT_EQ(accepted.wrong, "");
  EXPECT_EQ(accepted.races, std::vector<std::string>{"same-entry"});
  EXPECT_NE(judge.judge({{"a", "b"}, {{loose, "2"}}, {false, false}}).wrong, "");
}

TEST(InterleavingsJudge, FindsAResultThatNoStoryDescribes) {
  const Combination combination = combination_from("create + remove, other, tidy, off");
  const std::string bystander = "storage/user/anna: other.kdc_0000000000";
  const std::string index = "storage/user/anna: index";
  const Facts before{{bystander, "bytes"}, {index, "whole"}};
  const Judge judge(combination, before, {{{"", ""}, before, {false, false}}});
  const auto wrong = [&](const Facts& facts) {
    return judge.judge({{"", ""}, facts, {false, false}}).wrong;
  };
  EXPECT_EQ(wrong(before), "");
  EXPECT_NE(wrong({{index, "whole"}}), "");
  EXPECT_NE(wrong({{bystander, "others"}, {index, "whole"}}), "");
  EXPECT_NE(wrong({{bystander, "bytes"}, {index, "interrupted"}}), "");
  for (const char* const fact :
       {"storage/user/anna: another.kdb_0000000000", "storage/user/anna/x",
        "storage/user/anna: the counter is too low", "storage/user/anna: two entries, one file"}) {
    Facts facts = before;
    facts[fact] = "1";
    EXPECT_NE(wrong(facts), "") << fact;
  }
}

TEST(InterleavingsRaces, HaveAStoryInTheGuide) {
  const std::string page = read_file(VU_TEST_DOCS "/concurrency.md");
  for (const Race& each : accepted_races()) {
    const bool is_told = page.find("\n### " + each.story + "\n") != std::string::npos ||
                         page.find("\n## " + each.story + "\n") != std::string::npos;
    EXPECT_TRUE(is_told) << each.name << ": " << each.story;
  }
}

// ------------------------------------------------------------------------------------------------
// Tests of the explorer, and a selection of the combinations.

// ---- the layer ----------------------------------------------------------------------------------

/// Two files, opened for writing one after the other.
std::string hold_both(const std::string& first, const std::string& second) {
  vu_file one(first);
  one.open(vu_file::o_append);
  vu_file other(second);
  other.open(vu_file::o_append);
  return "both";
}

TEST(InterleavingsLayer, ReportsADeadlockAtOnce) {
  const scratch_folder scratch;
  const std::string a = scratch.path("a");
  const std::string b = scratch.path("b");
  Explorer explorer({});
  std::string told;
  while (told.empty() && explorer.next()) {
    Interleaving interleaving(scratch.path(), explorer);
    told = interleaving.run({[&] { return hold_both(a, b); }, [&] { return hold_both(b, a); }})
               .deadlock;
  }
  EXPECT_EQ(told,
            "A waits at: lock (exclusive) b, held by B (exclusive); "
            "B waits at: lock (exclusive) a, held by A (exclusive)");
}

TEST(InterleavingsLayer, ReportsNoDeadlockIfLocksAreTakenInOneOrder) {
  const scratch_folder scratch;
  const std::string a = scratch.path("a");
  const std::string b = scratch.path("b");
  Explorer explorer({});
  while (explorer.next()) {
    Interleaving interleaving(scratch.path(), explorer);
    const RunResult result =
        interleaving.run({[&] { return hold_both(a, b); }, [&] { return hold_both(a, b); }});
    ASSERT_EQ(result.deadlock, "");
    ASSERT_EQ(result.answers, (std::vector<std::string>{"both", "both"}));
  }
  EXPECT_GT(explorer.runs(), 5U);
}

/// Reads a number and writes the next one, each under its own lock.
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
    Interleaving interleaving(scratch.path(), explorer);
    interleaving.run({[&] { return count_on(path); }, [&] { return count_on(path); }});
    ends.insert(read_file(path));
  }
  runs = explorer.runs();
  return ends;
}

TEST(InterleavingsLayer, FindsALostUpdateWithOnePreemption) {
  std::uint64_t runs = 0;
  EXPECT_EQ(counts({.preemptions = 0}, runs), (std::set<std::string>{"2"}));
  EXPECT_EQ(runs, 2U);
  EXPECT_EQ(counts({.preemptions = 1}, runs), (std::set<std::string>{"1", "2"}));
}

TEST(InterleavingsLayer, ReleasesTheLocksOfAKilledProcess) {
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
  // After open, lock and truncation A is killed, and B does not wait.
  Replay scheduler(schedule_from("A3x B"));
  Interleaving interleaving(scratch.path(), scheduler);
  const RunResult result = interleaving.run({hold, read});
  EXPECT_EQ(result.deadlock, "");
  EXPECT_EQ(result.killed, (std::vector<bool>{true, false}));
  EXPECT_EQ(result.answers[1], "");
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
  EXPECT_FALSE(are_dependent(probe, list));
  EXPECT_TRUE(are_dependent(probe, gone));
  EXPECT_TRUE(are_dependent(list, gone));
  EXPECT_FALSE(are_dependent(probe, footprint_of(mark(Call::remove_file, "f/b"), there)));
  EXPECT_FALSE(are_dependent(list, footprint_of(mark(Call::remove_file, "f/a"), missing)));
  // Renaming a folder also renames everything in it.
  const SeenCall moves{Call::rename, "f", "g"};
  EXPECT_TRUE(are_dependent(probe, footprint_of(moves, there)));
  const Footprint shared = footprint_of({Call::lock, "f/a", "", false, false}, there);
  const Footprint exclusive = footprint_of({Call::lock, "f/a", "", false, true}, there);
  EXPECT_FALSE(are_dependent(shared, shared));
  EXPECT_TRUE(are_dependent(shared, exclusive));
}

TEST(InterleavingsLayer, ParsesTheTextOfASchedule) {
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

bool dies_while_another_waits(const std::vector<Event>& events) {
  const auto is_end = [](const Event& each) { return each.is_kill && each.who == 0; };
  const auto end = std::find_if(events.begin(), events.end(), is_end);
  if (end == events.begin() || end == events.end()) return false;
  // B opens the file and waits for its lock. After that A has written, and was then killed.
  const auto opened = std::find_if(events.begin(), end, [](const Event& each) {
    return each.who == 1 && each.call.function == os::faults::Call::open;
  });
  return opened != end && std::prev(end)->call.function == os::faults::Call::write &&
         std::find_if(std::next(opened), end, [](const Event& each) { return each.who == 1; }) ==
             end;
}

TEST(InterleavingsLayer, KillsAProcessForWhichAnotherOneWaits) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  bool is_met = false;
  Explorer explorer({.kills = Kills::kOne});
  while (explorer.next()) {
    write_file(path, "before");
    Interleaving interleaving(scratch.path(), explorer);
    const RunResult result = interleaving.run(
        {[&] { return put_text(path, "by A"), std::string(); }, [&] { return text_in(path); }});
    EXPECT_EQ(result.deadlock, "");
    is_met = is_met || dies_while_another_waits(interleaving.events());
  }
  EXPECT_TRUE(is_met);
}

TEST(InterleavingsLayer, EndsAProcessAfterTheEndOfAnotherOne) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  std::set<std::string> ends;
  Explorer explorer({.preemptions = 1, .kills = Kills::kOne});
  while (explorer.next()) {
    write_file(path, "before");
    Interleaving interleaving(scratch.path(), explorer);
    const RunResult result = interleaving.run(
        {[&] { return put_text(path, "by A"), std::string(); }, [&] { return text_in(path); }});
    if (result.killed[0]) ends.insert(result.answers[1] + ", " + read_file(path));
  }
  EXPECT_TRUE(ends.contains("before, "));
}

/// The first operation creates "a". The second creates "b" if it sees "a", the third then "c".
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
    Interleaving interleaving(scratch.path(), explorer);
    const RunResult result = interleaving.run({[&] {
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
    ends.insert(result.answers[0] + (sees("b") ? "b" : "-") + (sees("c") ? "c" : "-"));
  }
  runs = explorer.runs();
  return ends;
}

TEST(InterleavingsLayer, OmitsNoDifferentScheduleOfThree) {
  std::uint64_t reduced = 0;
  std::uint64_t all = 0;
  const std::set<std::string> ends = ends_of_three(Reduction::kOn, reduced);
  EXPECT_EQ(ends, ends_of_three(Reduction::kOff, all));
  EXPECT_TRUE(ends.contains("cbbc"));
  EXPECT_LT(reduced, all);
}

TEST(InterleavingsLayer, ReportsThatARunDiverged) {
  const scratch_folder scratch;
  const std::string path = scratch.path("a");
  Explorer explorer({.preemptions = 1});
  int run = 0;
  while (explorer.next()) {
    ++run;
    Interleaving interleaving(scratch.path(), explorer);
    const auto ask = [&] {
      vu_file::exists(path);
      if (run % 2 == 1) vu_file::exists(path);
      return std::string();
    };
    interleaving.run({ask, ask});
  }
  EXPECT_TRUE(explorer.is_unrepeatable());
}

// ---- combinations -------------------------------------------------------------------------------

std::string findings_in_words(const Explored& explored) {
  std::string text;
  for (const Finding& each : explored.findings)
    text += in_text(each.schedule) + ": " + each.what + "\n" + each.calls;
  return text;
}

/// Under Wine a schedule takes a hundred times as long.
#if defined(_WIN32)
constexpr int kDeep = 1;
#else
constexpr int kDeep = 2;
#endif

class Interleavings : public testing::Test {
 protected:
  Explored explore(const std::string& text, const Bounds& bounds = {.preemptions = kDeep}) {
    Explored explored = m_runner.explore(combination_from(text), bounds);
    EXPECT_EQ(findings_in_words(explored), "") << text;
    EXPECT_GT(explored.schedules, 2U) << text;
    return explored;
  }

  Runner m_runner;
};

TEST_F(Interleavings, HaveTheSameEndsWithoutTheReduction) {
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

TEST_F(Interleavings, InTwoFoldersDoNotTouchEachOther) {
  const Explored explored = explore("write + remove, other-folder, tidy, off");
  EXPECT_EQ(explored.ends.size(), 1U);
}

TEST_F(Interleavings, OfTwoCreationsKeepBothEntries) {
  const Explored explored = explore("create + create, other-new, tidy, off");
  EXPECT_TRUE(explored.races.empty());
}

TEST_F(Interleavings, OfTwoCreationsOfOneEntryLeaveOneLine) {
  const Explored explored = explore("create + create, same-new, tidy, off");
  EXPECT_GT(explored.races.count("same-entry"), 0U);
}

class InterleavingsOf : public Interleavings, public testing::WithParamInterface<const char*> {};

TEST_P(InterleavingsOf, TwoEndAsAllowed) { explore(GetParam(), {.preemptions = 1}); }

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

TEST_F(Interleavings, WithOneKilledProcessEndInAnAllowedState) {
  for (const char* const text :
       {"create + create, other-new, tidy, off", "rename + names, same, tidy, off",
        "remove + create, same, tidy, off"})
    explore(text, {.preemptions = 1, .kills = Kills::kOne});
}

// The entry exists all the time, before and after the rename.
TEST_F(Interleavings, OfExistsAndARenameOntoItsEntryFindTheEntry) {
  EXPECT_TRUE(explore("rename-onto + exists, other, tidy, off").races.empty());
}

TEST_F(Interleavings, OfAWriteAndARenameOntoItsEntryReplaceNothing) {
  EXPECT_TRUE(explore("rename-onto + write-new, other, tidy, off").races.empty());
}

TEST_F(Interleavings, OfProcessesThatInitialiseOneStorageDisturbNoOther) {
  const Explored explored = m_runner.explore(combination_from("begin + begin, same, tidy, off"),
                                             {.preemptions = 1}, Participants::kProcesses);
  EXPECT_EQ(findings_in_words(explored), "");
  EXPECT_GT(explored.schedules, 5U);
}

/// Reads a text, and writes it again with its mark at the end.
std::string add_mark(const Target& target) {
  const std::string path = target.root + "\\plain\\one.txt";
  put_text(path, text_in(path) + target.mark);
  return "";
}

/// Adds to one file while it has another one open.
std::string hold_and_add(const Target& target) {
  const bool is_first = target.mark == "by A";
  return hold_both(target.root + (is_first ? "\\plain\\one.txt" : "\\plain\\two.txt"),
                   target.root + (is_first ? "\\plain\\two.txt" : "\\plain\\one.txt"));
}

TEST_F(Interleavings, ThatLoseAnUpdateAreReportedWithASchedule) {
  const Operation adds{"add-mark", kAsks, add_mark, false};
  const Combination combination{{&adds, &adds}};
  const Explored explored = m_runner.explore(combination, {});
  ASSERT_FALSE(explored.findings.empty());
  for (const Finding& each : explored.findings) {
    EXPECT_NE(each.what.find("\n    plain/one.txt is 'oneby "), std::string::npos) << each.what;
    // A preemption, the write of the other operation, and then the first one again.
    EXPECT_EQ(each.schedule.size(), 3U) << in_text(each.schedule);
    const Finding again = m_runner.replay(combination, schedule_from(in_text(each.schedule)));
    EXPECT_EQ(again.what, each.what);
    EXPECT_EQ(again.calls, each.calls);
    EXPECT_EQ(again.end, each.end);
  }
}

TEST_F(Interleavings, ThatDeadlockAreReportedWithASchedule) {
  const Operation holds{"hold-and-add", kAsks, hold_and_add, false};
  const Combination combination{{&holds, &holds}};
  const Explored explored = m_runner.explore(combination, {});
  ASSERT_FALSE(explored.findings.empty());
  const Finding& first = explored.findings.front();
  EXPECT_EQ(first.what,
            "deadlock: "
            "A waits at: lock (exclusive) plain/two.txt, held by B (exclusive); "
            "B waits at: lock (exclusive) plain/one.txt, held by A (exclusive)");
  EXPECT_EQ(m_runner.replay(combination, first.schedule).what, first.what);
}

/// With the same schedule, threads and processes make the same calls, with the same results.
TEST_F(Interleavings, AreTheSameForProcessesAndThreads) {
  const char* const trio = "create + write + names, other, tidy, off";
  const char* const other = "rename + remove + read, same, tidy, off";
  std::vector<std::pair<const char*, const char*>> led = {{trio, "A20 B12 C A B"},
                                                          {other, "B11 A C B"}};
#if !defined(_WIN32)
  // Under Wine a process takes seconds to start.
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
    const Combination combination = combination_from(text);
    const Finding threads = m_runner.replay(combination, schedule_from(schedule));
    const Finding processes =
        m_runner.replay(combination, schedule_from(schedule), Participants::kProcesses);
    EXPECT_EQ(threads.calls, processes.calls) << text << ": " << schedule;
    EXPECT_EQ(threads.end, processes.end) << text << ": " << schedule;
    EXPECT_FALSE(threads.calls.empty());
  }
}

}  // namespace
}  // namespace interleavings
