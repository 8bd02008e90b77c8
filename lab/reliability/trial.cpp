#include "lab/reliability/trial.h"

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <exception>
#include <filesystem>
#include <new>
#include <optional>

#include "lab/reliability/machine.h"
#include "tests/support/process.h"
#include "tests/support/storage_peer.h"
#include "vu_file_except.h"

namespace reliability {
namespace {

/// Seconds; older than any limit of the clean operations.
constexpr std::int64_t kOld = 1'000'000;

bool is_first_initialisation(const PublicOperation& operation) {
  return operation.name == "vu_storage::initRootStorage";
}

/// Classifies the current exception.
Outcome::End end_by_exception() {
  try {
    throw;
  } catch (const vu_file_except&) {
    return Outcome::End::kFileExcept;
  } catch (const PlannedException&) {
    return Outcome::End::kPlanned;
  } catch (const std::bad_alloc&) {
    return Outcome::End::kNoMemory;
  } catch (...) {
    return Outcome::End::kOther;
  }
}

/// How an operation reported a failure; empty if it succeeded.
std::string failure_of(const PublicOperation& operation, const Outcome& outcome) {
  if (outcome.end != Outcome::End::kReturned) return name_of(outcome.end);
  // These remove twice. The second removal fails.
  const bool removes_twice =
      operation.name == "vu_fileutf8::remove" || operation.name == "vu_fileutf8::recurseRemoveDir";
  if (removes_twice) return {};
  if (outcome.errors != 0) return outcome.traces.empty() ? "an error" : outcome.traces.front();
  // Operations on key files return 0 after success, and 1 or -1 after a failure.
  const bool is_on_keys = operation.name.find("KeysFile") != std::string::npos ||
                          operation.name.find("OrMasterProfile") != std::string::npos;
  const bool is_failure = outcome.result == "false" ||
                          (is_on_keys && outcome.result != "true" && outcome.result != "0");
  return is_failure ? "returns " + outcome.result : "";
}

}  // namespace

std::string name_of(const Setting& setting) {
  return std::string(name_of(setting.situation)) + ", synchronisation " +
         (setting.synchronize ? "on" : "off");
}

const char* name_of(Outcome::End end) {
  switch (end) {
    case Outcome::End::kReturned: return "returned";
    case Outcome::End::kFileExcept: return "vu_file_except";
    case Outcome::End::kPlanned: return "the planned exception";
    case Outcome::End::kNoMemory: return "std::bad_alloc";
    case Outcome::End::kOther: return "another exception";
  }
  return "?";
}

// ---- the sink -----------------------------------------------------------------------------------

FailureSink::FailureSink() { listen(true); }
FailureSink::~FailureSink() { vu_host::install(vu_host::services()); }

void FailureSink::listen(bool wanted) {
  vu_host::services services;
  services.trace = wanted ? this : nullptr;
  vu_host::install(services);
}

void FailureSink::clear() noexcept { m_errors = m_warnings = m_kept = 0; }

std::vector<std::string> FailureSink::first() const {
  std::vector<std::string> words;
  for (std::size_t i = 0; i < m_kept; ++i) words.emplace_back(m_first[i].data());
  return words;
}

void FailureSink::event(const vu_host::trace_site&, vu_host::trace_event event,
                        std::string_view text) noexcept {
  if (event == vu_host::trace_event::success) return;
  const bool is_error = event == vu_host::trace_event::error;
  ++(is_error ? m_errors : m_warnings);
  if (m_kept == m_first.size()) return;
  std::snprintf(m_first[m_kept].data(), m_first[m_kept].size(), "%c %.*s", is_error ? 'E' : 'W',
                static_cast<int>(text.size()), text.data());
  ++m_kept;
}

// ---- one operation ------------------------------------------------------------------------------

void Trial::prepare(const PublicOperation& operation, const Setting& setting) {
  const Place place{root(), setting.synchronize};
  const int situation = static_cast<int>(setting.situation);
  if (m_prepared != situation || m_now != m_tree) {
    reliability::prepare(place, setting.situation);
    m_tree = tree_of(root());
    m_now = m_tree;
    m_prepared = situation;
  }
  set_modify_time(place.folder() + "\\00000002.ctg",
                  static_cast<std::int64_t>(std::time(nullptr)) - kOld);
  vu_storage_test_peer::reset();
  if (!is_first_initialisation(operation)) {
    vu_storage::initRootStorage(place.root, true, setting.synchronize);
  }
  STGIndex::setSynchronizeMode(setting.synchronize);
}

Outcome Trial::call(const PublicOperation& operation, const Setting& setting,
                    allocations::Shortage shortage, std::uint64_t nth) {
  const Place place{root(), setting.synchronize};
  Outcome outcome;
  char result[256] = "";
  m_sink.clear();
  const auto handles = static_cast<std::int64_t>(machine::open_handles());
  {
    allocations::Watch memory(shortage, nth);
    try {
      const std::string text = operation.call(place);
      text.copy(result, sizeof result - 1);
    } catch (...) {
      outcome.end = end_by_exception();
    }
    memory.end_shortage();
    outcome.allocations = memory.count();
    outcome.kept = memory.kept();
    outcome.ran_short = memory.has_struck();
  }
  outcome.handles = static_cast<std::int64_t>(machine::open_handles()) - handles;
  outcome.result = result;
  outcome.errors = m_sink.errors();
  outcome.warnings = m_sink.warnings();
  outcome.traces = m_sink.first();
  return outcome;
}

Undisturbed Trial::learn(const PublicOperation& operation, const Setting& setting) {
  Undisturbed undisturbed;
  // The first call allocates what the library keeps for ever; the list of calls allocates too.
  prepare(operation, setting);
  os::faults::begin_sequence();
  call(operation, setting);
  undisturbed.calls = os::faults::end_sequence();
  look();
  prepare(operation, setting);
  undisturbed.before = m_tree;
  undisturbed.outcome = call(operation, setting);
  undisturbed.outcome.tree = look();
  const std::string wrong = failure_of(operation, undisturbed.outcome);
  if (setting.situation == Situation::kTidy && !wrong.empty())
    m_run.fail(operation.name + " (" + name_of(setting) + "), without a fault: " + wrong);
  return undisturbed;
}

const Tree& Trial::look() {
  m_now = tree_of(root());
  return m_now;
}

void Trial::check_held(const std::string& what, const Undisturbed& undisturbed,
                       const Outcome& outcome) {
  if (machine::handles_and_allocations_are_exact()) {
    if (outcome.handles != 0) m_run.fail(what + ": handles are left open");
    if (outcome.kept > undisturbed.outcome.kept) {
      m_run.fail(what + ": memory is lost, in pieces: " + std::to_string(outcome.kept));
    }
  }
  if (is_anything_locked(Place{root(), false}.folder())) m_run.fail(what + ": a lock is left");
}

void Trial::check(const std::string& what, const Undisturbed& undisturbed, const Outcome& outcome,
                  Disturbance by, std::map<std::string, std::uint64_t>& windows) {
  look();
  check_held(what, undisturbed, outcome);
  const TreeFindings found = compare(undisturbed.before, undisturbed.outcome.tree, m_now, by);
  for (const std::string& each : found.wrong) m_run.fail(what + ": " + each);
  for (const std::string& each : found.windows) ++windows[each];
  if (found.wrong.empty()) {
    ++windows[found.index_is_old || found.index_is_new ? "an index with the old or the new text"
                                                       : "an index with other entries"];
  }
}

void go_through(Run& run, std::size_t operations,
                const std::function<Disturbances(std::size_t, const Setting&)>& disturbances_of) {
  constexpr std::size_t kAtOnce = 12;
  const auto carry_out = [&](const Disturbances& all) {
    for (const std::function<void()>& each : all) {
      if (!run.goes_on()) return;
      each();
      run.counted(1);
    }
  };
  if (run.wanted() == 0) {
    for (std::size_t i = 0; i < operations; ++i) {
      for (const Setting& each : kSettings) carry_out(disturbances_of(i, each));
    }
    return;
  }
  while (run.goes_on()) {
    Disturbances some =
        disturbances_of(run.below(operations), kSettings[run.below(kSettings.size())]);
    std::shuffle(some.begin(), some.end(), run.random());
    some.resize(std::min(some.size(), kAtOnce));
    carry_out(some);
  }
}

bool is_anything_locked(const std::string& folder) {
  bool is_locked = false;
  for (const char* const name : {"\\index.dat", "\\index", "\\00000001.kdb"}) {
    const std::string path = folder + name;
    os::Handle handle = os::kNoHandle;
    if (!file_exists(path)) continue;
    if (!os::sys::open(path, os::Access::kReadWriteCreate, handle).ok()) continue;
    alignas(os::kLockRegionAlign) unsigned char region[os::kLockRegionSize] = {};
    const os::LockRequest request{os::kLockFailAtOnce | os::kLockExclusive, 0, 0xFFFFFFFFU,
                                  0xFFFFFFFFU, region};
    is_locked = is_locked || !os::sys::lock(handle, request).ok();
    static_cast<void>(os::sys::close(handle));
  }
  return is_locked;
}

}  // namespace reliability
