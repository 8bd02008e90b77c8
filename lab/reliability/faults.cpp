#include "lab/reliability/faults.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/operations.h"
#include "lab/reliability/trial.h"
#include "tests/support/process.h"

namespace reliability {
namespace {

using machine::Trouble;
using os::faults::Call;
using os::faults::Times;
using Kind = Way::Kind;

/// A short transfer moves at most this number of bytes.
constexpr std::size_t kShortTransfer = 5;

const char* name_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNotFound: return "not found";
    case Trouble::kDenied: return "access denied";
    case Trouble::kDiskFull: return "disk full";
    case Trouble::kLocked: return "locked";
    case Trouble::kNoName: return "no such name";
    case Trouble::kBroken: return "input or output error";
  }
  return "?";
}

bool is_transfer(Call call) { return call == Call::read || call == Call::write; }

// ---- what the headers state ---------------------------------------------------------------------

bool starts_with_any(const std::string& name, std::initializer_list<const char*> beginnings) {
  return std::any_of(beginnings.begin(), beginnings.end(),
                     [&](const char* each) { return name.rfind(each, 0) == 0; });
}

/// Operations of vu_storage that let all exceptions pass.
bool is_open_to_exceptions(const std::string& operation) {
  return starts_with_any(
      operation,
      {"vu_storage::getLattestTimestamp", "vu_storage::update_IndexDat",
       "vu_storage::copyToStorage", "vu_storage::copyFromStorage", "vu_storage::copyFileToStorage",
       "vu_storage::copyFileToUserPath", "vu_storage::getFileListFromIndexFile"});
}

/// Operations that turn only vu_file_except into a result. Example: the folder of an owner needs
/// the area's folder, which is determined outside of the handler.
bool is_open_to_others(const std::string& operation) {
  return starts_with_any(
      operation, {"vu_storage::saveUserOrMasterProfile", "vu_storage::loadUserOrMasterProfile",
                  "vu_storage::createUserOrDomainNameDirectory"});
}

/// Operations that open a file or load an index, and report failures by vu_file_except.
bool opens_a_file(const std::string& operation) {
  return starts_with_any(
             operation,
             {"STGIndex::", "vu_file::open", "vu_file::read", "vu_file::write", "vu_file::seek",
              "vu_file::rewind", "vu_file::clear", "vu_file::close", "vu_file::linesNotEmpty",
              "vu_fileutf8::open", "vu_fileutf8::read", "vu_fileutf8::write", "vu_fileutf8::seek",
              "vu_fileutf8::rewind", "vu_fileutf8::clear", "vu_fileutf8::close",
              "vu_fileutf8::linesNotEmpty"}) ||
         is_open_to_exceptions(operation);
}

bool may_end_so(const std::string& operation, const Way& way, Outcome::End end) {
  switch (end) {
    case Outcome::End::kReturned: return true;
    case Outcome::End::kFileExcept: return opens_a_file(operation);
    case Outcome::End::kPlanned:
      return way.kind == Kind::kException &&
             (operation.rfind("vu_storage::", 0) != 0 || is_open_to_exceptions(operation) ||
              is_open_to_others(operation));
    default: return false;
  }
}

/// The beginning of the trace that belongs to a failed call: "E" for an error, "W" for a warning.
std::string stated_trace(const std::string& operation, const Way& way, Call call) {
  const bool by_exception = way.kind == Kind::kException;
  if (way.kind == Kind::kShort) return {};
  switch (call) {
    case Call::flush:
      return by_exception ? "E Catch exception while flusing buffer : "
                          : "E Can't flush buffers : ";
    case Call::unlock:
      return by_exception ? "E catch exception while unlocking file : " : "E Can't unlock file : ";
    case Call::close: return by_exception ? "E catch exception closing file : " : "E close file : ";
    case Call::set_end: return by_exception ? "" : "E Can't truncate file  : ";
    case Call::write:
    case Call::reserve: return by_exception ? "" : "E write file : ";
    case Call::read: return by_exception ? "" : "E read file : ";
    case Call::open:
      return by_exception || operation.find("::try_open") != std::string::npos ? ""
                                                                               : "open o_read : ";
    case Call::copy: return by_exception ? "E Can't copy " : "";
    case Call::create_directory: return by_exception ? "" : "::createDir (";
    case Call::make_writable: return by_exception ? "" : "::chmodW : failed (";
    case Call::rename: return by_exception ? "" : "::rename() \t old Name : ";
    default: return {};
  }
}

bool has_trace(const Outcome& outcome, const std::string& words) {
  return std::any_of(outcome.traces.begin(), outcome.traces.end(), [&](const std::string& each) {
    return words.rfind("E ", 0) == 0 ? each.rfind(words, 0) == 0
                                     : each.find(words) != std::string::npos;
  });
}

/// A file that ends early is not a failure. Checks whether something exists answer "no" without a
/// trace. Some operations report by their result alone.
bool may_be_silent(const std::string& operation, const Way& way, Call call) {
  if (way.kind == Kind::kShort) return true;
  // The reader of key lines returns false for every exception, without a trace.
  if (way.kind == Kind::kException && starts_with_any(operation, {"vu_storage::readKeysFile"})) {
    return call == Call::read || call == Call::stat;
  }
  switch (call) {
    case Call::probe_attributes:
    case Call::probe_search:
    case Call::list:
    case Call::seek:
    case Call::copy:
    case Call::current_directory:
    case Call::full_path: return true;
    case Call::remove_file:
    case Call::remove_directory: return operation.find("::recurseRemoveDir") != std::string::npos;
    case Call::open_folder:
      // The functions that remove trees trace no failures.
      return starts_with_any(operation, {"vu_fileutf8::recurseRemoveDir"});
    case Call::open: return operation.find("::try_open") != std::string::npos;
    default: return false;
  }
}

/// Whether a result reports a failure. A second removal can remove what the first one left.
bool is_a_failure(const std::string& operation, const std::string& answer,
                  const std::string& usual) {
  const bool is_yes_or_no = usual == "true" || usual == "false";
  return !is_yes_or_no || answer == "false" ||
         starts_with_any(operation, {"vu_fileutf8::recurseRemoveDir"});
}

/// Whether the operation traced something that it does not trace without the fault.
bool says_something(const Outcome& outcome, const Outcome& usual) {
  return std::any_of(outcome.traces.begin(), outcome.traces.end(), [&](const std::string& each) {
    return std::find(usual.traces.begin(), usual.traces.end(), each) == usual.traces.end();
  });
}

}  // namespace

std::string in_words(const Way& way) {
  std::string words;
  switch (way.kind) {
    case Kind::kStatus: words = name_of(way.trouble); break;
    case Kind::kException: words = "an exception"; break;
    case Kind::kShort: words = "a short transfer"; break;
    case Kind::kShortFailure: words = std::string("a part, then ") + name_of(way.trouble); break;
  }
  return words + (way.times == Times::kLasting ? ", lasting" : ", once");
}

std::vector<Way> ways_for(Call call) {
  std::vector<Way> ways;
  for (const Times times : {Times::kOnce, Times::kLasting}) {
    for (const Trouble trouble : {Trouble::kNotFound, Trouble::kDenied, Trouble::kDiskFull,
                                  Trouble::kLocked, Trouble::kNoName, Trouble::kBroken}) {
      ways.push_back({Kind::kStatus, trouble, times});
    }
    ways.push_back({Kind::kException, Trouble::kBroken, times});
    if (!is_transfer(call)) continue;
    // A short read means the end of the file, so only one read is short.
    if (call == Call::write || times == Times::kOnce) {
      ways.push_back({Kind::kShort, Trouble::kBroken, times});
    }
    ways.push_back(
        {Kind::kShortFailure, call == Call::write ? Trouble::kDiskFull : Trouble::kBroken, times});
  }
  return ways;
}

os::faults::Fault plan(const Way& way, const std::vector<Call>& calls, std::size_t at) {
  const Call call = calls[at];
  const std::uint64_t nth = at + 1;
  // The number among the reads, or among the writes.
  const auto here = calls.begin() + static_cast<std::ptrdiff_t>(at) + 1;
  const auto nth_transfer = static_cast<std::uint64_t>(std::count(calls.begin(), here, call));
  const os::Status status = machine::status_of(way.trouble);
  switch (way.kind) {
    case Kind::kException:
      return os::faults::throw_from(Call::system, PlannedException(), nth, way.times);
    case Kind::kShort:
      return os::faults::cut_transfer(call, kShortTransfer, {}, nth_transfer, way.times);
    case Kind::kShortFailure:
      return os::faults::cut_transfer(call, kShortTransfer, status, nth_transfer, way.times);
    case Kind::kStatus: break;
  }
  return os::faults::fail(Call::system, status, nth, way.times);
}

Disturbance disturbance_of(const std::string& operation, const Way& way, Call call) {
  if (starts_with_any(operation, {"STGIndex::clean"}) && call == Call::stat) {
    return Disturbance::kNoAge;
  }
  const bool says_missing = way.kind == Kind::kStatus &&
                            (way.trouble == Trouble::kNotFound || way.trouble == Trouble::kNoName);
  if (says_missing) return Disturbance::kLie;
  if (call == Call::seek || call == Call::set_end || call == Call::lock) {
    return Disturbance::kMisplaced;
  }
  if (way.kind == Kind::kShort && call == Call::read) return Disturbance::kLie;
  const bool is_part = way.kind == Kind::kShort || way.kind == Kind::kShortFailure;
  return is_part && call == Call::write ? Disturbance::kTorn : Disturbance::kFault;
}

std::vector<std::string> complaints(const std::string& operation, const Way& way, Call call,
                                    const Undisturbed& usual, const Outcome& outcome) {
  std::vector<std::string> found;
  if (!may_end_so(operation, way, outcome.end)) {
    found.push_back(std::string("ended with ") + reliability::name_of(outcome.end));
  }
  const std::string words = stated_trace(operation, way, call);
  // A flush that throws needs no trace of its own, if the operation throws or traces something.
  const bool may_pass =
      call == Call::flush && way.kind == Kind::kException &&
      (outcome.end != Outcome::End::kReturned || says_something(outcome, usual.outcome));
  if (!words.empty() && !has_trace(outcome, words) && !may_pass) {
    found.push_back("no trace \"" + words + "\"");
  }
  const bool differs = outcome.end == Outcome::End::kReturned &&
                       usual.outcome.end == Outcome::End::kReturned &&
                       outcome.result != usual.outcome.result;
  if (differs && !says_something(outcome, usual.outcome) && !may_be_silent(operation, way, call)) {
    found.push_back("answered " + outcome.result + " instead of " + usual.outcome.result +
                    " without a trace");
  }
  if (differs && !is_a_failure(operation, outcome.result, usual.outcome.result) &&
      disturbance_of(operation, way, call) != Disturbance::kLie) {
    found.push_back("answered " + outcome.result + " instead of " + usual.outcome.result);
  }
  return found;
}

// ------------------------------------------------------------------------------------------------
// A fault at every call of the OS seam that a public operation makes, one at a time. Checks the
// result, the traces and the tree.

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
    m_run.figure("calls that can fail", m_places);
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
      if (fault.hits() == 0) m_run.fail(what + ": the fault never occurred");
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
REGISTER_SUITE(faults, "faults", "a fault at every system call of an operation", "faults", 0,
               Scratch::kMemory)

void faults_noticed(Run& run) {
  if (!machine::handles_and_allocations_are_exact()) {
    run.not_run(
        "faulty operations leave files open, whose names are not free again before the process "
        "ends");
    return;
  }
  const std::pair<const std::vector<PublicOperation>&, const char*> kFaulty[] = {
      {operations_that_leak(), "handles are left open"},
      {operations_that_leak(), "memory is lost"},
      {operations_that_cut_first(), "empty: "},
      {operations_that_say_nothing(), "no trace"},
      {operations_that_let_out(), "ended with vu_file_except"},
      {operations_that_always_fail(), "without a fault: vu_file_except"},
      {operations_that_always_fail(), "without a fault: returns false"},
      {operations_that_always_fail(), "without a fault: E "},
      {operations_that_always_fail(), "without a fault: returns 1"}};
  for (const auto& [operations, sign] : kFaulty) {
    Run inner(run.seed(), {run.wanted(), std::chrono::seconds(0)});
    Faults(inner, operations).run();
    run.counted(inner.reached());
    const std::vector<std::string>& found = inner.first_failures();
    if (std::none_of(found.begin(), found.end(), [&, words = std::string(sign)](const auto& each) {
          return each.find(words) != std::string::npos;
        })) {
      run.fail(std::string("an injected defect was not detected: ") + sign);
    }
  }
}
REGISTER_SUITE(faults_noticed, "faults-noticed",
               "an operation with a defect after a fault is detected", "faults", 0,
               Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// The same faults with a trace sink and without one. The operation must not behave differently.

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
    m_run.figure("traces, with a sink", m_traced);
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
    if (unheard.errors + unheard.warnings != 0)
      m_run.fail(what + ": a trace reached a removed sink");
    if (heard.end != unheard.end) {
      m_run.fail(what + ": " + name_of(heard.end) + ", unheard " + name_of(unheard.end));
    } else if (heard.result != unheard.result) {
      m_run.fail(what + ": answered " + heard.result + ", unheard " + unheard.result);
    }
    if (heard.tree != unheard.tree) m_run.fail(what + ": the tree differs without a sink");
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
REGISTER_SUITE(unheard, "unheard", "a fault has the same result without a trace sink", "pairs", 0,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
