// Every public operation under an alarm: alone, and while another process has a lock that it needs.

#include <algorithm>
#include <array>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/operations.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace reliability {
namespace {

using namespace std::chrono_literals;

constexpr std::chrono::seconds kAlarm = 5s;

// ---- the helpers --------------------------------------------------------------------------------

/// args: a root; synchronisation "on" or "off". Calls the operations whose numbers it reads.
int operations_caller(const std::vector<std::string>& args) {
  const Place place{args.at(0), args.at(1) == "on"};
  vu_storage::initRootStorage(place.root, true, place.synchronize);
  say("ready");
  while (const std::optional<std::string> line = hear()) {
    const PublicOperation& operation = public_operations().at(std::stoul(*line));
    const test_alarm alarm(operation.name, kAlarm);
    try {
      operation.call(place);
      say("done");
    } catch (const vu_file_except& e) {
      say("exception " + e.what());
    }
  }
  return 0;
}
REGISTER_ROLE(operations_caller, operations_caller)

/// args: a file; "read" or "write". Locks the file until a line arrives.
int lock_holder(const std::vector<std::string>& args) {
  vu_file file(args.at(0));
  file.open(args.at(1) == "read" ? vu_file::o_read : vu_file::o_write);
  say(file.is_locked() ? "locked" : "not locked");
  hear();
  file.close();
  return 0;
}
REGISTER_ROLE(lock_holder, lock_holder)

// ---- the parent's side --------------------------------------------------------------------------

struct Holder {
  const char* what;
  const char* file;  ///< in the folder
  const char* mode;
  unsigned blocks;  ///< the operations that wait for it
};
constexpr Holder kHolders[] = {
    {"a writer has index.dat open", "index.dat", "write", kForIndexWriter},
    {"a reader has index.dat open", "index.dat", "read", kForIndexReader},
    {"a writer has the counter open", "index", "write", kForCounter},
    {"a writer has the document open", "00000001.kdb", "write", kForDocument},
};

class Alarms {
 public:
  explicit Alarms(Run& run) : m_run(run) {}

  /// If the run has a limit, it picks random cases: a third each of calls alone, calls that need
  /// not wait for a lock holder, and calls that must wait.
  void run() {
    std::vector<Case> cases = all_cases();
    if (m_run.wanted() != 0 || m_run.budget().count() != 0) cases = mixed(std::move(cases));
    for (const Case& each : cases) {
      if (!m_run.goes_on()) break;
      call(each);
    }
    m_caller.reset();
    if (m_waited == 0 && m_run.reached() > 2) m_run.fail("no call waited for a lock holder");
    m_run.figure("operations", public_operations().size());
    m_run.figure("calls that waited for a stopped process and continued after its end", m_waited);
    m_run.figure("calls that did not have to wait", m_not_waited);
  }

 private:
  struct Case {
    std::size_t operation;
    bool synchronize;
    Situation situation;
    const Holder* holder;  ///< null: the operation is called alone

    bool waits() const {
      return holder != nullptr && (public_operations()[operation].waits & holder->blocks) != 0;
    }
  };

  static std::vector<Case> all_cases() {
    std::vector<Case> cases;
    const std::size_t count = public_operations().size();
    for (const bool synchronize : {true, false}) {
      for (const Situation situation :
           {Situation::kStrays, Situation::kTidy, Situation::kNoIndex}) {
        for (std::size_t i = 0; i < count; ++i)
          cases.push_back({i, synchronize, situation, nullptr});
      }
    }
    for (const Holder& holder : kHolders) {
      for (std::size_t i = 0; i < count; ++i)
        cases.push_back({i, false, Situation::kTidy, &holder});
    }
    return cases;
  }

  std::vector<Case> mixed(std::vector<Case> cases) {
    std::shuffle(cases.begin(), cases.end(), m_run.random());
    std::array<std::vector<Case>, 3> kinds;
    for (const Case& each : cases)
      kinds.at(each.holder == nullptr ? 0 : each.waits() ? 2 : 1).push_back(each);
    std::vector<Case> all;
    for (std::size_t i = 0; all.size() < cases.size(); ++i) {
      for (const std::vector<Case>& kind : kinds) {
        if (i < kind.size()) all.push_back(kind[i]);
      }
    }
    return all;
  }

  std::string root() const { return m_scratch.path("root"); }

  void start(bool synchronize) {
    m_synchronize = synchronize;
    m_caller = std::make_unique<child_process>(
        "operations_caller", std::vector<std::string>{root(), synchronize ? "on" : "off"},
        std::map<std::string, std::string>{{"VU_TEST_ALARM", "3000"}});
    if (m_caller->next_line() != "ready") m_run.fail("the helper does not start");
  }

  /// Whether the current operation ends.
  bool ends(const std::string& what) {
    const auto answer = m_caller->next_line(kAlarm + 5s);
    if (answer) return true;
    const auto code = m_caller->wait(10s);
    m_run.fail(what +
               (code == test_alarm::kExitCode ? " did not end" : " ended without an answer"));
    m_caller.reset();
    return false;
  }

  void call(const Case& which) {
    prepare({root(), which.synchronize}, which.situation);
    if (m_synchronize != which.synchronize) m_caller.reset();
    if (m_caller == nullptr) start(which.synchronize);
    if (which.holder != nullptr) {
      call_beside(which);
    } else {
      m_caller->tell(std::to_string(which.operation));
      ends(public_operations()[which.operation].name + ", " + name_of(which.situation));
    }
    m_run.counted(1);
  }

  void call_beside(const Case& which) {
    const Holder& holder = *which.holder;
    const PublicOperation& operation = public_operations()[which.operation];
    const std::string what = operation.name + ", " + holder.what;
    const Place place{root(), false};
    child_process other("lock_holder", {place.folder() + "\\" + holder.file, holder.mode});
    if (other.next_line() != "locked") return m_run.fail("the lock holder gets no lock");
    machine::stop(other);
    m_caller->tell(std::to_string(which.operation));
    if (!which.waits()) {
      ++m_not_waited;
      ends(what + ", without a need to wait,");
    } else if (!m_caller->stays_silent(100ms)) {
      m_run.fail(what + ": does not wait");
      m_caller.reset();
    } else {
      ++m_waited;
      if (m_waited % 2 == 0) {
        other.kill();
      } else {
        machine::resume(other);
        other.tell("");
      }
      ends(what + ", after the end of the lock holder,");
    }
    other.kill();
    other.wait();
  }

  Run& m_run;
  const scratch_folder m_scratch;
  std::unique_ptr<child_process> m_caller;
  bool m_synchronize = false;  ///< of the caller
  std::uint64_t m_waited = 0;
  std::uint64_t m_not_waited = 0;
};

/// The public members that a header declares, as "class::member". Empty if the header does not
/// declare the class in this way.
std::set<std::string> declared_in(const std::string& header, const std::string& class_name) {
  std::string text = std::regex_replace(read_file(header), std::regex("//[^\n]*"), "");
  const std::size_t begin = text.find("class VU_STORAGE_API " + class_name + " ");
  if (begin == text.npos) return {};
  text.erase(0, begin);
  text.erase(std::min({text.find(" private:"), text.find(" protected:"), text.size()}));
  std::set<std::string> members;
  const std::regex call("([A-Za-z_][A-Za-z_0-9]*)\\(");
  for (std::sregex_iterator it(text.begin(), text.end(), call), end; it != end; ++it) {
    const std::string member = (*it)[1];
    if (member != "noexcept") members.insert(class_name + "::" + member);
  }
  return members;
}

/// A member that is missing in the list would never be called.
void check_that_all_are_listed(Run& run) {
  std::set<std::string> listed;
  for (const PublicOperation& each : public_operations()) {
    listed.insert(each.name.substr(0, each.name.find(' ')));
  }
  const std::string include = VU_INCLUDE_FOLDER;
  const std::pair<const char*, const char*> classes[] = {{"stg_index.h", "STGIndex"},
                                                         {"vu_storage.h", "vu_storage"},
                                                         {"vu_file.h", "vu_file"},
                                                         {"vu_fileutf8.h", "vu_fileutf8"}};
  std::size_t found = 0;
  for (const auto& [header, class_name] : classes) {
    const std::set<std::string> members = declared_in(include + "/" + header, class_name);
    if (members.empty()) run.fail(std::string("no member found of the class ") + class_name);
    for (const std::string& each : members) {
      ++found;
      // STGIndex has no public constructor except the copy constructor.
      if (each != "STGIndex::STGIndex" && listed.count(each) == 0) {
        run.fail("never called: " + each);
      }
    }
  }
  run.figure("members that the headers declare", found);
}

void alarms(Run& run) {
  if (machine::sees_the_sources()) check_that_all_are_listed(run);
  Alarms(run).run();
}
REGISTER_SUITE(alarms, "alarms", "no operation waits for itself or for a process that has ended",
               "calls", 0, Scratch::kMemory)

/// Deadlocks with itself. Passes if the alarm ends it.
int waits_for_itself(const std::vector<std::string>& args) {
  const test_alarm alarm("one that waits for itself", 1s);
  vu_file reader(args.at(0));
  reader.open(vu_file::o_read);
  vu_file writer(args.at(0));
  writer.open(vu_file::o_write);
  return 0;
}
REGISTER_ROLE(waits_for_itself, waits_for_itself)

void alarms_noticed(Run& run) {
  const scratch_folder scratch;
  write_file(scratch.path("file"), "text");
  while (run.goes_on()) {
    child_process child("waits_for_itself", {scratch.path("file")});
    if (child.wait() != test_alarm::kExitCode) run.fail("the alarm did not end the process");
    run.counted(1);
  }
}
REGISTER_SUITE(alarms_noticed, "alarms-noticed", "an operation that waits for itself is detected",
               "calls", 1, Scratch::kMemory)

}  // namespace
}  // namespace reliability
