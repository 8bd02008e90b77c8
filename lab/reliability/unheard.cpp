// The same faults with somebody to trace to and with nobody: what an operation does must not depend
// on it.

#include <array>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "lab/reliability/fault_rules.h"
#include "lab/reliability/trial.h"
#include "tests/support/process.h"

namespace reliability {
namespace {

using os::faults::Times;

const std::array<Way, 2> kWays = {
    {{Way::Kind::kStatus, machine::Trouble::kBroken, Times::kOnce},
     {Way::Kind::kException, machine::Trouble::kBroken, Times::kOnce}}};

class Unheard {
 public:
  explicit Unheard(Run& run) : m_run(run), m_trial(run) {}

  void run() {
    const std::vector<PublicOperation>& operations = public_operations();
    go_through(m_run, operations.size(), [&](std::size_t number, const Setting& setting) {
      return pairs_of(operations[number], setting);
    });
    m_run.figure("operations", operations.size());
    m_run.figure("traced, when somebody listened", m_traced);
    if (m_traced == 0) m_run.fail("nothing was ever traced");
  }

 private:
  Disturbances pairs_of(const PublicOperation& operation, const Setting& setting) {
    const test_alarm alarm(operation.name, std::chrono::seconds(120));
    const auto usual = std::make_shared<Undisturbed>(m_trial.learn(operation, setting));
    Disturbances all;
    for (std::size_t k = 0; k < usual->calls.size(); ++k) {
      for (const Way& way : kWays) {
        all.emplace_back([this, &operation, setting, usual, k, way] {
          pair(operation, setting, *usual, k, way);
        });
      }
    }
    return all;
  }

  void pair(const PublicOperation& operation, const Setting& setting, const Undisturbed& usual,
            std::size_t at, const Way& way) {
    const std::string what = operation.name + " (" + name_of(setting) + "), " +
                             os::faults::name(usual.calls[at]) + " as call " +
                             std::to_string(at + 1) + ": " + in_words(way);
    const test_alarm alarm(what, std::chrono::seconds(60));
    const Outcome heard = disturbed(operation, setting, usual, at, way);
    m_trial.sink().listen(false);
    const Outcome unheard = disturbed(operation, setting, usual, at, way);
    m_trial.sink().listen(true);
    m_traced += heard.errors + heard.warnings;
    if (unheard.errors + unheard.warnings != 0) m_run.fail(what + ": was traced to nobody");
    if (heard.end != unheard.end) {
      m_run.fail(what + ": " + name_of(heard.end) + ", unheard " + name_of(unheard.end));
    } else if (heard.result != unheard.result) {
      m_run.fail(what + ": answered " + heard.result + ", unheard " + unheard.result);
    }
    if (heard.tree != unheard.tree) m_run.fail(what + ": leaves another tree when unheard");
  }

  Outcome disturbed(const PublicOperation& operation, const Setting& setting,
                    const Undisturbed& usual, std::size_t at, const Way& way) {
    m_trial.prepare(operation, setting);
    Outcome outcome;
    {
      const auto fault = plan(way, usual.calls, at);
      outcome = m_trial.call(operation, setting);
    }
    outcome.tree = m_trial.look();
    return outcome;
  }

  Run& m_run;
  Trial m_trial;
  std::uint64_t m_traced = 0;
};

void unheard(Run& run) { Unheard(run).run(); }
REGISTER_SUITE(unheard, "unheard", "a fault ends the same when there is nobody to trace to",
               "pairs", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
