#include "lab/interleavings/field.h"

#include <algorithm>
#include <numeric>
#include <utility>

#include "lab/interleavings/processes.h"
#include "stg_index.h"
#include "tests/support/storage_peer.h"
#include "vu_storage.h"

namespace interleavings {
namespace {

std::string with_slashes(std::string path) {
  std::replace(path.begin(), path.end(), '\\', '/');
  return path;
}

/// Of one meeting: then it ends.
constexpr std::size_t kMostFindings = 3;

/// What kind of finding it is: without the entries and bytes that it names.
std::string kind_of(const std::string& what) { return what.substr(0, what.find('\n')); }

/// Nobody knows what all of its calls touch.
bool is_any_the_clients(const Gathering& gathering) {
  return std::any_of(gathering.operations.begin(), gathering.operations.end(),
                     [](const MeetingOperation* each) { return each->does(kClient); });
}

}  // namespace

std::string in_words(const Outcome& outcome) {
  std::string words;
  for (const std::string& each : outcome.answers) words += "answer: " + shown(each) + "\n";
  for (const auto& [fact, value] : outcome.facts) words += fact + " = " + shown(value) + "\n";
  return words;
}

Field::Field() : m_stage(with_slashes(m_scratch.path("root"))) {
  vu_storage_test_peer::reset();
  m_stage.set(tree_for(Ground::kTidy));
  vu_storage::initRootStorage(m_stage.root(), true, false);
}

Field::~Field() { vu_storage_test_peer::reset(); }

void Field::prepare(const Gathering& gathering) {
  STGIndex::setSynchronizeMode(gathering.synchronize);
  m_before = tree_for(gathering.ground);
}

Field::Run Field::run(const Gathering& gathering, Guide& guide, Played played) {
  m_stage.set(m_before);
  Meeting meeting(m_stage.root(), guide, played);
  const Ending ending = meeting.run(played == Played::kByThreads
                                        ? gathering.ready(m_stage.root())
                                        : ready_as_processes(gathering, m_stage.root(), meeting));
  const Tree& after = m_stage.look();
  Run run;
  run.made = meeting.made();
  const bool have_all_ended = ending.deadlock.empty();
  run.schedule =
      schedule_of(run.made, have_all_ended ? LastStretch::kToItsEnd : LastStretch::kAsMade);
  if (!have_all_ended) run.ended_badly = "nobody can go on: " + ending.deadlock;
  run.outcome.facts = facts_of(after);
  run.outcome.died = ending.died;
  for (std::size_t i = 0; i < ending.answers.size(); ++i) {
    const MeetingOperation& operation = *gathering.operations[i];
    const Cast cast = gathering.cast_of(i, m_stage.root());
    const std::string folder = std::string("storage/") + operation.area + "/" + cast.owner;
    run.outcome.answers.push_back(without_numbers(ending.answers[i], folder, m_before, after));
  }
  return run;
}

/// The ends of the operations one after the other, in every order; where one may die, also without
/// it.
std::vector<Outcome> Field::orders_of(const Gathering& gathering, Deaths deaths, Played played) {
  std::vector<Outcome> orders;
  std::vector<int> order(gathering.operations.size());
  std::iota(order.begin(), order.end(), 0);
  do {
    for (int left_out = -1; left_out < static_cast<int>(order.size()); ++left_out) {
      if (left_out >= 0 && deaths == Deaths::kNone) break;
      Schedule schedule;
      // Who dies before its first call does nothing.
      if (left_out >= 0) schedule.push_back({left_out, 0, true});
      for (const int who : order) {
        if (who != left_out) schedule.push_back({who});
      }
      Replay replay(schedule);
      orders.push_back(run(gathering, replay, played).outcome);
    }
  } while (std::next_permutation(order.begin(), order.end()));
  return orders;
}

/// @return empty when nothing is.
std::string Field::wrong_with(const Run& run, const Judge& judge, Explored* explored) {
  if (!run.ended_badly.empty()) return run.ended_badly;
  Verdict verdict = judge.judge(run.outcome);
  if (explored != nullptr) {
    for (const std::string& race : verdict.races) ++explored->races[race];
  }
  return std::move(verdict.wrong);
}

Explored Field::explore(const Gathering& gathering, const Bounds& bounds, Played played) {
  prepare(gathering);
  const Facts before = facts_of(m_before);
  const Judge judge(gathering, before, orders_of(gathering, bounds.deaths, played));
  Explored explored;
  Bounds within = bounds;
  if (is_any_the_clients(gathering)) within.reduction = Reduction::kOff;
  Explorer explorer(within);
  std::set<std::string> kinds;
  while (explored.findings.size() < kMostFindings && explorer.next()) {
    const Run run = this->run(gathering, explorer, played);
    explored.calls += run.made.size();
    if (explorer.is_redundant()) {
      ++explored.redundant;
      continue;
    }
    explored.ends.insert(in_words(run.outcome));
    std::string wrong = wrong_with(run, judge, &explored);
    if (wrong.empty()) continue;
    if (!kinds.insert(wrong).second) continue;
    Finding finding{std::move(wrong), run.schedule, told(run.made), in_words(run.outcome)};
    explored.findings.push_back(shrunk(gathering, judge, std::move(finding), played));
  }
  if (explorer.is_unrepeatable()) explored.findings.push_back({"the same schedule went two ways"});
  explored.schedules = explorer.runs();
  explored.cut = explorer.cut();
  return explored;
}

Finding Field::replay(const Gathering& gathering, const Schedule& schedule, Played played) {
  prepare(gathering);
  const bool has_death =
      std::any_of(schedule.begin(), schedule.end(), [](const Stretch& each) { return each.dies; });
  const Facts before = facts_of(m_before);
  const Judge judge(gathering, before,
                    orders_of(gathering, has_death ? Deaths::kOne : Deaths::kNone, played));
  Replay guide(schedule);
  const Run run = this->run(gathering, guide, played);
  return {wrong_with(run, judge, nullptr), run.schedule, told(run.made), in_words(run.outcome)};
}

/// Leaves out each stretch that can be left out.
Finding Field::shrunk(const Gathering& gathering, const Judge& judge, Finding finding,
                      Played played) {
  const auto is_as_wrong = [&](const Schedule& schedule) {
    Replay guide(schedule);
    const Run run = this->run(gathering, guide, played);
    const std::string wrong = wrong_with(run, judge, nullptr);
    if (wrong.empty() || kind_of(wrong) != kind_of(finding.what)) return false;
    if (run.schedule.size() >= finding.schedule.size()) return false;
    finding = {wrong, run.schedule, told(run.made), in_words(run.outcome)};
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
