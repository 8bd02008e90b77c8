// Every combination of two or three operations in every order of their system calls that needs few
// preemptions; see lab/interleavings.

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "lab/interleavings/runner.h"
#include "lab/reliability/reliability.h"

namespace reliability {
namespace {

using interleavings::Combination;
using interleavings::Explored;

class Interleavings {
 public:
  explicit Interleavings(Run& run) : m_run(run) {}

  /// Explores a combination. A short one is explored again with one more preemption.
  void explore(const Combination& combination, interleavings::Bounds bounds) {
    const std::uint64_t schedules = explore_within(combination, bounds);
    if (schedules > kShort) return;
    ++bounds.preemptions;
    ++m_deeper;
    explore_within(combination, bounds);
  }

  void report() {
    m_run.figure("combinations run", m_combinations);
    m_run.figure("short combinations, also run with one more preemption", m_deeper);
    m_run.figure("schedules of the longest combination", m_most);
    m_run.figure("schedules with the effects of another one, omitted", m_cut);
    m_run.figure("schedules with the effects of another one, run", m_redundant);
    m_run.figure("calls", m_calls);
    for (const auto& [race, count] : m_races) m_run.figure("race " + race, count);
  }

  /// Each accepted race must occur, or its story is obsolete. Kills belong to the other suite.
  void expect_every_race() {
    for (const interleavings::Race& each : interleavings::accepted_races()) {
      if (!each.needs_a_kill && !m_races.contains(each.name))
        m_run.fail("the accepted race '" + each.name + "' did not occur");
    }
  }

 private:
  /// A short combination has at most this number of schedules, with two preemptions.
  static constexpr std::uint64_t kShort = 60;

  std::uint64_t explore_within(const Combination& combination,
                               const interleavings::Bounds& bounds) {
    const Explored explored = m_runner.explore(combination, bounds);
    m_run.counted(explored.schedules);
    if (bounds.preemptions == interleavings::Bounds{}.preemptions) ++m_combinations;
    m_cut += explored.cut;
    m_redundant += explored.redundant;
    m_calls += explored.calls;
    m_most = std::max(m_most, explored.schedules);
    for (const auto& [race, count] : explored.races) m_races[race] += count;
    for (const interleavings::Finding& each : explored.findings) {
      const std::string told =
          in_text(combination) + ": " + in_text(each.schedule) + ": " + each.what + "\n";
      // Printed at once, because a long run can find more than its report shows.
      std::printf("found    %s", told.c_str());
      m_run.fail(told + each.calls);
    }
    return explored.schedules;
  }

  Run& m_run;
  interleavings::Runner m_runner;
  std::uint64_t m_combinations = 0;
  std::uint64_t m_deeper = 0;
  std::uint64_t m_cut = 0;
  std::uint64_t m_redundant = 0;
  std::uint64_t m_calls = 0;
  std::uint64_t m_most = 0;
  std::map<std::string, std::uint64_t> m_races;
};

void replay(Run& run, const std::string& text) {
  const std::size_t colon = text.find(": ");
  interleavings::Runner runner;
  const interleavings::Finding finding = runner.replay(
      interleavings::combination_from(text.substr(0, colon)),
      interleavings::schedule_from(text.substr(std::min(colon, text.size() - 2) + 2)));
  run.figure("calls", "\n" + finding.calls);
  run.counted(1);
  if (!finding.what.empty()) run.fail(finding.what);
}

/// Findings do not end the run: it prints each of them.
bool is_enough(const Run& run) {
  return run.time_is_over() || (run.wanted() != 0 && run.reached() >= run.wanted());
}

/// The combinations whose names contain the text of --only. With a limit, they are in random order.
std::vector<Combination> chosen(Run& run, std::vector<Combination> all) {
  std::erase_if(all, [&](const Combination& each) {
    return in_text(each).find(run.only()) == std::string::npos;
  });
  if (run.wanted() != 0 || run.budget().count() != 0)
    std::shuffle(all.begin(), all.end(), run.random());
  return all;
}

void explore_all(Run& run) {
  if (!run.replayed().empty()) return replay(run, run.replayed());
  Interleavings all(run);
  std::vector<Combination> combinations = interleavings::all_pairs();
  for (Combination& each : interleavings::all_trios()) combinations.push_back(std::move(each));
  const std::size_t whole = combinations.size();
  combinations = chosen(run, std::move(combinations));
  std::size_t held = 0;
  for (const Combination& each : combinations) {
    if (is_enough(run)) break;
    all.explore(each, {});
    ++held;
  }
  run.figure("all combinations", whole);
  all.report();
  if (held == whole) all.expect_every_race();
}
REGISTER_SUITE(explore_all, "interleavings", "two operations, in every order of their system calls",
               "schedules", 0, Scratch::kMemory, Cases::kSelectable)

void explore_killed(Run& run) {
  if (!run.replayed().empty()) return replay(run, run.replayed());
  Interleavings all(run);
  for (const Combination& each : chosen(run, interleavings::all_pairs())) {
    if (is_enough(run)) break;
    all.explore(each, {.kills = interleavings::Kills::kOne});
  }
  all.report();
}
REGISTER_SUITE(explore_killed, "interleavings-killed",
               "the same, and one of the operations is killed", "schedules", 0, Scratch::kMemory,
               Cases::kSelectable)

}  // namespace
}  // namespace reliability
