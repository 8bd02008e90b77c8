#include "lab/interleavings/runner.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "lab/interleavings/operations.h"
#include "stg_index.h"
#include "tests/support/storage_peer.h"
#include "vu_storage.h"

namespace interleavings {
namespace {

std::string with_slashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

/// The search in one combination ends after this number of findings.
constexpr std::size_t kMostFindings = 3;

/// The kind of a finding, without entries and bytes.
std::string kind_of(const std::string& what) { return what.substr(0, what.find('\n')); }

/// It is unknown what the calls of the client touch.
bool is_any_the_clients(const Combination& combination) {
  return std::any_of(combination.operations.begin(), combination.operations.end(),
                     [](const Operation* each) { return each->does(kClient); });
}

}  // namespace

std::string in_words(const Outcome& outcome) {
  std::string words;
  for (const std::string& each : outcome.answers) words += "answer: " + shown(each) + "\n";
  for (const auto& [fact, value] : outcome.facts) words += fact + " = " + shown(value) + "\n";
  return words;
}

Runner::Runner() : m_disk(with_slashes(m_scratch.path("root"))) {
  vu_storage_test_peer::reset();
  m_disk.set(tree_for(Setup::kTidy));
  vu_storage::initRootStorage(m_disk.root(), true, false);
}

Runner::~Runner() { vu_storage_test_peer::reset(); }

void Runner::prepare(const Combination& combination) {
  STGIndex::setSynchronizeMode(combination.synchronize);
  m_before = tree_for(combination.setup);
}

Runner::Run Runner::run(const Combination& combination, Scheduler& scheduler,
                        Participants participants) {
  m_disk.set(m_before);
  Interleaving interleaving(m_disk.root(), scheduler, participants);
  const RunResult result =
      interleaving.run(participants == Participants::kThreads
                           ? combination.tasks(m_disk.root())
                           : process_tasks(combination, m_disk.root(), interleaving));
  const Tree& after = m_disk.look();
  Run run;
  run.events = interleaving.events();
  const bool have_all_ended = result.deadlock.empty();
  run.schedule =
      schedule_of(run.events, have_all_ended ? LastSlice::kToItsEnd : LastSlice::kAsMade);
  if (!have_all_ended) run.ended_badly = "deadlock: " + result.deadlock;
  run.outcome.facts = facts_of(after);
  run.outcome.killed = result.killed;
  for (std::size_t i = 0; i < result.answers.size(); ++i) {
    const Operation& operation = *combination.operations[i];
    const Target target = combination.target_of(i, m_disk.root());
    const std::string folder = std::string("storage/") + operation.area + "/" + target.owner;
    run.outcome.answers.push_back(without_numbers(result.answers[i], folder, m_before, after));
  }
  return run;
}

/// The ends of all orders of the operations; with kills also of all but one of them.
std::vector<Outcome> Runner::orders_of(const Combination& combination, Kills kills,
                                       Participants participants) {
  std::vector<Outcome> orders;
  std::vector<int> order(combination.operations.size());
  std::iota(order.begin(), order.end(), 0);
  do {
    for (int left_out = -1; left_out < static_cast<int>(order.size()); ++left_out) {
      if (left_out >= 0 && kills == Kills::kNone) break;
      Schedule schedule;
      // An operation that is killed before its first call does nothing.
      if (left_out >= 0) schedule.push_back({left_out, 0, true});
      for (const int who : order) {
        if (who != left_out) schedule.push_back({who});
      }
      Replay replay(schedule);
      orders.push_back(run(combination, replay, participants).outcome);
    }
  } while (std::next_permutation(order.begin(), order.end()));
  return orders;
}

/// @return empty if the run may end like this.
std::string Runner::wrong_with(const Run& run, const Judge& judge, Explored* explored) {
  if (!run.ended_badly.empty()) return run.ended_badly;
  Verdict verdict = judge.judge(run.outcome);
  if (explored != nullptr) {
    for (const std::string& race : verdict.races) ++explored->races[race];
  }
  return std::move(verdict.wrong);
}

Explored Runner::explore(const Combination& combination, const Bounds& bounds,
                         Participants participants) {
  prepare(combination);
  const Facts before = facts_of(m_before);
  const Judge judge(combination, before, orders_of(combination, bounds.kills, participants));
  Explored explored;
  Bounds within = bounds;
  if (is_any_the_clients(combination)) within.reduction = Reduction::kOff;
  Explorer explorer(within);
  std::set<std::string> kinds;
  while (explored.findings.size() < kMostFindings && explorer.next()) {
    const Run run = this->run(combination, explorer, participants);
    explored.calls += run.events.size();
    if (explorer.is_redundant()) {
      ++explored.redundant;
      continue;
    }
    explored.ends.insert(in_words(run.outcome));
    std::string wrong = wrong_with(run, judge, &explored);
    if (wrong.empty()) continue;
    if (!kinds.insert(wrong).second) continue;
    Finding finding{std::move(wrong), run.schedule, calls_in_words(run.events),
                    in_words(run.outcome)};
    explored.findings.push_back(shrunk(combination, judge, std::move(finding), participants));
  }
  if (explorer.is_unrepeatable())
    explored.findings.push_back({"two runs of the same schedule differ"});
  explored.schedules = explorer.runs();
  explored.cut = explorer.cut();
  return explored;
}

Finding Runner::replay(const Combination& combination, const Schedule& schedule,
                       Participants participants) {
  prepare(combination);
  const bool has_kill = std::any_of(schedule.begin(), schedule.end(),
                                    [](const Slice& each) { return each.is_killed; });
  const Facts before = facts_of(m_before);
  const Judge judge(combination, before,
                    orders_of(combination, has_kill ? Kills::kOne : Kills::kNone, participants));
  Replay scheduler(schedule);
  const Run run = this->run(combination, scheduler, participants);
  return {wrong_with(run, judge, nullptr), run.schedule, calls_in_words(run.events),
          in_words(run.outcome)};
}

/// Leaves out each slice that the finding does not need.
Finding Runner::shrunk(const Combination& combination, const Judge& judge, Finding finding,
                       Participants participants) {
  const auto is_as_wrong = [&](const Schedule& schedule) {
    Replay scheduler(schedule);
    const Run run = this->run(combination, scheduler, participants);
    const std::string wrong = wrong_with(run, judge, nullptr);
    if (wrong.empty() || kind_of(wrong) != kind_of(finding.what)) return false;
    if (run.schedule.size() >= finding.schedule.size()) return false;
    finding = {wrong, run.schedule, calls_in_words(run.events), in_words(run.outcome)};
    return true;
  };
  for (std::size_t i = 0; i < finding.schedule.size();) {
    Schedule shorter = finding.schedule;
    shorter.erase(shorter.begin() + static_cast<std::ptrdiff_t>(i));
    i = is_as_wrong(shorter) ? 0 : i + 1;
  }
  return finding;
}

}  // namespace interleavings
