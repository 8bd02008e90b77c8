// Ends the process before and after every system call of a public operation. Then it compares the
// tree with the trees before and after the operation, and runs another operation.

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/operations.h"
#include "lab/reliability/trial.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/storage_peer.h"
#include "vu_storage.h"

namespace reliability {
namespace {

using os::faults::Call;

const std::vector<PublicOperation>& operations_called(const std::string& list) {
  return list == "faulty" ? operations_that_cut_first() : public_operations();
}

/// args: a root; synchronisation "on" or "off"; "library" or "faulty"; the number of the operation;
/// the number of the call, from 1; "before" or "after".
int killed_at_call(const std::vector<std::string>& args) {
  const Place place{args.at(0), args.at(1) == "on"};
  const PublicOperation& operation = operations_called(args.at(2)).at(std::stoul(args.at(3)));
  vu_storage_test_peer::reset();
  if (operation.name != "vu_storage::initRootStorage") {
    vu_storage::initRootStorage(place.root, true, place.synchronize);
  }
  STGIndex::setSynchronizeMode(place.synchronize);
  const std::uint64_t call = std::stoul(args.at(4));
  const auto end = args.at(5) == "before" ? os::faults::end_process_before(Call::system, call)
                                          : os::faults::end_process_after(Call::system, call);
  operation.call(place);
  return 0;
}
REGISTER_ROLE(killed_at_call, killed_at_call)

class KillEachCall {
 public:
  KillEachCall(Run& run, std::string list)
      : m_run(run),
        m_list(std::move(list)),
        m_operations(operations_called(m_list)),
        m_trial(run) {}

  void run() {
    go_through(m_run, m_operations.size(), [this](std::size_t number, const Setting& setting) {
      return kills_of(number, setting);
    });
    m_run.figure("operations", m_operations.size());
    m_run.figure("calls with a kill before and after them", m_places);
    m_run.figure("kills that left the old or the new state", m_clean);
    for (const auto& [what, times] : m_windows) m_run.figure("left: " + what, times);
  }

 private:
  Disturbances kills_of(std::size_t number, const Setting& setting) {
    const auto usual = std::make_shared<Undisturbed>(m_trial.learn(m_operations[number], setting));
    Disturbances all;
    for (std::size_t k = 1; k <= usual->calls.size(); ++k) {
      for (const char* const moment : {"before", "after"}) {
        all.emplace_back([this, number, setting, usual, k, moment] {
          kill(number, setting, *usual, k, moment);
        });
      }
    }
    m_places += usual->calls.size();
    return all;
  }

  void kill(std::size_t number, const Setting& setting, const Undisturbed& usual, std::size_t call,
            const char* moment) {
    const PublicOperation& operation = m_operations[number];
    const std::string what = operation.name + " (" + name_of(setting) + "), killed " + moment +
                             " call " + std::to_string(call) + " of " +
                             std::to_string(usual.calls.size()) + ", " +
                             os::faults::name(usual.calls[call - 1]);
    m_trial.prepare(operation, setting);
    const int code = machine::run_apart("killed_at_call",
                                        {m_trial.root(), setting.synchronize ? "on" : "off", m_list,
                                         std::to_string(number), std::to_string(call), moment});
    if (code != os::faults::kEnded) {
      return m_run.fail(what + ": the process ended with " + std::to_string(code));
    }
    const Tree now = m_trial.look();
    const TreeFindings found = compare(usual.before, usual.outcome.tree, now, Disturbance::kKill);
    for (const std::string& each : found.wrong) m_run.fail(what + ": " + each);
    for (const std::string& each : found.windows) ++m_windows[each];
    if (found.windows.empty()) ++m_clean;
    if (is_anything_locked(folder())) m_run.fail(what + ": a lock is left");
    next_operation(what, setting);
  }

  std::string folder() const { return Place{m_trial.root(), false}.folder(); }

  /// After the kill, another operation can create an entry, and loses no other.
  void next_operation(const std::string& what, const Setting& setting) {
    if (!folder_exists(folder())) return;
    const reader::Lines before = reader::look_at(folder()).lines;
    STGIndex::setSynchronizeMode(setting.synchronize);
    STGIndex::create(folder(), "next.kdb", 1);
    std::string name;
    if (!STGIndex::exists(folder(), "next.kdb", 1, name)) {
      m_run.fail(what + ": the next operation fails");
    }
    const reader::Lines after = reader::look_at(folder()).lines;
    for (const auto& [key, stored] : before) {
      const auto kept = after.find(key);
      if (kept == after.end() || kept->second != stored) {
        m_run.fail(what + ": the next operation loses " + key);
      }
    }
    m_trial.look();
  }

  Run& m_run;
  const std::string m_list;
  const std::vector<PublicOperation>& m_operations;
  Trial m_trial;
  std::uint64_t m_places = 0;
  std::uint64_t m_clean = 0;
  std::map<std::string, std::uint64_t> m_windows;
};

void kill_each_call(Run& run) { KillEachCall(run, "library").run(); }
REGISTER_SUITE(kill_each_call, "kill-each-call",
               "a kill before and after every system call of an operation", "kills", 0,
               Scratch::kMemory)

void kill_each_call_noticed(Run& run) {
  Run inner(run.seed(), {run.wanted(), std::chrono::seconds(0)});
  KillEachCall(inner, "faulty").run();
  run.counted(inner.reached());
  run.figure("corruptions by kills of a faulty save", inner.failures());
  const std::vector<std::string>& found = inner.first_failures();
  const bool is_told = std::any_of(found.begin(), found.end(), [](const std::string& each) {
    return each.find("empty: ") != std::string::npos;
  });
  if (!is_told) run.fail("a save that truncates the index first was not detected");
}
REGISTER_SUITE(kill_each_call_noticed, "kill-each-call-noticed",
               "a save that corrupts the index when it is killed is detected", "kills", 0,
               Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// Every allocation of every public operation fails, once or together with all later ones.

using allocations::Shortage;

/// The current run, for the message of a process that terminates.
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
    if (m_spared * 50 > m_run.reached())
      m_run.fail("more than one run in fifty had no failing allocation");
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
    // A table that grows now and then changes the number of allocations by one.
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
  std::uint64_t m_spared = 0;  ///< runs without a failing allocation
  std::map<std::string, std::uint64_t> m_ends;
  std::map<std::string, std::uint64_t> m_windows;
};

constexpr const char* kElsewhere = "here the C++ library does not use this program's operator new";

void out_of_memory(Run& run) {
  if (!machine::handles_and_allocations_are_exact()) return run.not_run(kElsewhere);
  OutOfMemory(run, public_operations()).run();
}
REGISTER_SUITE(out_of_memory, "out-of-memory", "every allocation of every operation fails",
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
      run.fail(std::string("an injected defect was not detected: ") + sign);
    }
  }
}
REGISTER_SUITE(out_of_memory_noticed, "out-of-memory-noticed",
               "an operation that leaks when an allocation fails is detected", "shortages", 0,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
