// A fault at every call of the seam that a public operation makes, one at a time: what the
// operation says, what it traces, and what it leaves.

#include <algorithm>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/reliability/fault_rules.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/planted.h"
#include "lab/reliability/trial.h"
#include "tests/support/process.h"

namespace reliability {
namespace {

using os::faults::Call;

class Faults {
 public:
  Faults(Run& run, const std::vector<PublicOperation>& operations)
      : m_run(run), m_operations(operations), m_trial(run) {}

  void run() {
    go_through(m_run, m_operations.size(), [this](std::size_t number, const Setting& setting) {
      return faults_of(m_operations[number], setting);
    });
    m_run.figure("operations", m_operations.size());
    m_run.figure("places where a fault could strike", m_places);
    for (const auto& [what, times] : m_ends) m_run.figure(what, times);
    for (const auto& [what, times] : m_windows) m_run.figure("left: " + what, times);
  }

 private:
  Disturbances faults_of(const PublicOperation& operation, const Setting& setting) {
    const test_alarm alarm(operation.name, std::chrono::seconds(120));
    const auto usual = std::make_shared<Undisturbed>(m_trial.learn(operation, setting));
    Disturbances all;
    for (std::size_t k = 0; k < usual->calls.size(); ++k) {
      for (const Way& way : ways_for(usual->calls[k])) {
        all.emplace_back([this, &operation, setting, usual, k, way] {
          inject(operation, setting, *usual, k, way);
        });
      }
    }
    m_places += usual->calls.size();
    return all;
  }

  void inject(const PublicOperation& operation, const Setting& setting, const Undisturbed& usual,
              std::size_t at, const Way& way) {
    const Call call = usual.calls[at];
    const std::string what = operation.name + " (" + name_of(setting) + "), " +
                             os::faults::name(call) + " as call " + std::to_string(at + 1) +
                             " of " + std::to_string(usual.calls.size()) + ": " + in_words(way);
    m_trial.prepare(operation, setting);
    const test_alarm alarm(what, std::chrono::seconds(60));
    Outcome outcome;
    {
      const auto fault = plan(way, usual.calls, at);
      outcome = m_trial.call(operation, setting);
      if (fault.hits() == 0) m_run.fail(what + ": never struck");
    }
    m_trial.check(what, usual, outcome, disturbance_of(operation.name, way, call), m_windows);
    for (const std::string& each : complaints(operation.name, way, call, usual, outcome)) {
      m_run.fail(what + ": " + each);
    }
    ++m_ends[name_of(outcome.end)];
  }

  Run& m_run;
  const std::vector<PublicOperation>& m_operations;
  Trial m_trial;
  std::uint64_t m_places = 0;
  std::map<std::string, std::uint64_t> m_ends;
  std::map<std::string, std::uint64_t> m_windows;
};

void faults(Run& run) { Faults(run, public_operations()).run(); }
REGISTER_SUITE(faults, "faults", "a fault at every call of the system that an operation makes",
               "faults", 0, Scratch::kMemory)

void faults_noticed(Run& run) {
  if (!machine::handles_and_allocations_are_exact()) {
    run.not_run(
        "planted operations leave files open, whose names are not free again before the process "
        "ends");
    return;
  }
  const std::pair<const std::vector<PublicOperation>&, const char*> kPlanted[] = {
      {operations_that_leak(), "handles are left open"},
      {operations_that_leak(), "memory is lost"},
      {operations_that_cut_first(), "empty: "},
      {operations_that_say_nothing(), "no trace"},
      {operations_that_let_out(), "ended with vu_file_except"}};
  for (const auto& [operations, sign] : kPlanted) {
    Run inner(run.seed(), {run.wanted(), std::chrono::seconds(0)});
    Faults(inner, operations).run();
    run.counted(inner.reached());
    const std::vector<std::string>& found = inner.first_failures();
    if (std::none_of(found.begin(), found.end(), [&, words = std::string(sign)](const auto& each) {
          return each.find(words) != std::string::npos;
        })) {
      run.fail(std::string("not found of a planted defect: ") + sign);
    }
  }
}
REGISTER_SUITE(faults_noticed, "faults-noticed", "an operation that a fault makes do harm is found",
               "faults", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
