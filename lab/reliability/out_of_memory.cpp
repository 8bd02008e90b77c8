// Memory runs out at every allocation of every public operation, for once and for good.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/planted.h"
#include "lab/reliability/trial.h"
#include "tests/support/process.h"

namespace reliability {
namespace {

using allocations::Shortage;

/// What is under way, for a process that is about to be terminated.
std::string& under_way() {
  static std::string what;
  return what;
}

class OutOfMemory {
 public:
  OutOfMemory(Run& run, const std::vector<PublicOperation>& operations)
      : m_run(run), m_operations(operations), m_trial(run) {}

  void run() {
    std::set_terminate([] {
      std::printf("TERMINATED: %s\n", under_way().c_str());
      std::abort();
    });
    go_through(m_run, m_operations.size(), [this](std::size_t number, const Setting& setting) {
      return shortages_of(m_operations[number], setting);
    });
    if (m_spared * 50 > m_run.reached()) m_run.fail("one in fifty never ran short");
    m_run.figure("operations", m_operations.size());
    m_run.figure("allocations that can fail", m_places);
    for (const auto& [what, times] : m_ends) m_run.figure(what, times);
    for (const auto& [what, times] : m_windows) m_run.figure("left: " + what, times);
  }

 private:
  Disturbances shortages_of(const PublicOperation& operation, const Setting& setting) {
    const auto usual = std::make_shared<Undisturbed>(m_trial.learn(operation, setting));
    Disturbances all;
    for (std::uint64_t k = 1; k <= usual->outcome.allocations; ++k) {
      for (const Shortage shortage : {Shortage::kOnce, Shortage::kLasting}) {
        all.emplace_back([this, &operation, setting, usual, k, shortage] {
          run_short(operation, setting, *usual, k, shortage);
        });
      }
    }
    m_places += usual->outcome.allocations;
    return all;
  }

  void run_short(const PublicOperation& operation, const Setting& setting, const Undisturbed& usual,
                 std::uint64_t allocation, Shortage shortage) {
    under_way() = operation.name + " (" + name_of(setting) + "), no memory at allocation " +
                  std::to_string(allocation) + " of " + std::to_string(usual.outcome.allocations) +
                  (shortage == Shortage::kOnce ? ", once" : ", lasting");
    m_trial.prepare(operation, setting);
    const Outcome outcome = m_trial.call(operation, setting, shortage, allocation);
    // Tables that grow now and then make the counts differ by one.
    if (!outcome.ran_short) ++m_spared;
    m_trial.check(under_way(), usual, outcome, Disturbance::kFault, m_windows);
    if (outcome.end == Outcome::End::kOther || outcome.end == Outcome::End::kPlanned) {
      m_run.fail(under_way() + ": ended with " + name_of(outcome.end));
    }
    ++m_ends[name_of(outcome.end)];
  }

  Run& m_run;
  const std::vector<PublicOperation>& m_operations;
  Trial m_trial;
  std::uint64_t m_places = 0;
  std::uint64_t m_spared = 0;  ///< that never ran short
  std::map<std::string, std::uint64_t> m_ends;
  std::map<std::string, std::uint64_t> m_windows;
};

constexpr const char* kElsewhere = "here the C++ library takes its memory from elsewhere";

void out_of_memory(Run& run) {
  if (!machine::handles_and_allocations_are_exact()) return run.not_run(kElsewhere);
  OutOfMemory(run, public_operations()).run();
}
REGISTER_SUITE(out_of_memory, "out-of-memory", "no memory at every allocation of every operation",
               "shortages", 0, Scratch::kMemory)

void out_of_memory_noticed(Run& run) {
  if (!machine::handles_and_allocations_are_exact()) return run.not_run(kElsewhere);
  Run inner(run.seed(), {});
  OutOfMemory(inner, operations_that_leak()).run();
  run.counted(inner.reached());
  const std::vector<std::string>& found = inner.first_failures();
  for (const char* const sign : {"handles are left open", "memory is lost"}) {
    if (std::none_of(found.begin(), found.end(), [&](const std::string& each) {
          return each.find(sign) != std::string::npos;
        })) {
      run.fail(std::string("not found of a planted defect: ") + sign);
    }
  }
}
REGISTER_SUITE(out_of_memory_noticed, "out-of-memory-noticed",
               "an operation that leaks without memory is found", "shortages", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
