// Processes that clean a folder again and again while others write to it. Everything there is
// young, except for what is made old on purpose.

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include "lab/reliability/crowd_documents.h"
#include "lab/reliability/folder_state.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/real_kernel.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_file_except.h"

namespace reliability {
namespace {

/// Younger documents stay, in seconds: far more than a run takes.
constexpr unsigned long kLimit = 100'000;
constexpr std::size_t kWriters = 3;
constexpr std::size_t kCleaners = 2;

// ---- the helpers --------------------------------------------------------------------------------

/// args: its name; how many; a file for the names that must be there afterwards; the folder. Every
/// third document gets another name, half of these that of another document, and every fourth one
/// is made old. A rename that is refused, with an error, leaves both documents as they were.
int clean_writer(const std::vector<std::string>& args) {
  STGIndex::setSynchronizeMode(false);
  const std::size_t count = std::stoul(args.at(1));
  const std::string& folder = args.at(3);
  std::ostringstream kept;
  const auto keeps = [&](const std::string& name, const std::string& content_from) {
    kept << name << '\t' << content_of(content_from) << '\n';
  };
  std::size_t refused = 0;
  say("ready");
  if (!hear()) return 1;
  for (std::size_t number = 0; number < count; ++number) {
    const std::string logical = args.at(0) + " " + std::to_string(number) + ".kdb";
    const std::string physical = create_document(folder, logical);
    if (number % 4 == 3) {
      // A cleaner takes it away, now or later.
      if (file_exists(folder + "\\" + physical)) set_modify_time(folder + "\\" + physical, 1000);
      continue;
    }
    const bool moves = number % 3 == 0;
    const std::string name = moves ? "moved " + logical : logical;
    const bool replaces = number % 6 == 0;
    if (replaces) create_document(folder, name);
    const recording_sink sink;
    if (moves) STGIndex::rename(folder, logical, kCrowdStamp, name, kCrowdStamp);
    if (sink.events(vu_host::trace_event::error).empty()) {
      keeps(name, logical);
    } else {
      ++refused;
      keeps(logical, logical);
      if (replaces) keeps(name, name);
    }
  }
  write_file(args.at(2), kept.str());
  say("done");
  say(std::to_string(refused));
  return 0;
}
REGISTER_ROLE(clean_writer, clean_writer)

/// args: the folder. Cleans until it hears of the end; says how often, and how many it took away.
int clean_cleaner(const std::vector<std::string>& args) {
  STGIndex::setSynchronizeMode(false);
  std::size_t rounds = 0;
  unsigned long removed = 0;
  say("ready");
  for (; !file_exists(args.at(0) + ".stop"); ++rounds) {
    STGIndex::AgeMap kept;
    removed += STGIndex::cleanOutOfDateOutput(args.at(0), kLimit, kept, false);
  }
  say(std::to_string(rounds));
  say(std::to_string(removed));
  return 0;
}
REGISTER_ROLE(clean_cleaner, clean_cleaner)

// ---- one crowd ----------------------------------------------------------------------------------

struct CleanOutcome {
  std::uint64_t documents = 0;
  std::uint64_t rounds = 0;
  std::uint64_t removed = 0;
  std::uint64_t refused = 0;  ///< renames
};

class CleanCrowd {
 public:
  CleanCrowd(Run& run, std::size_t creates)
      : m_run(run), m_creates(creates), m_folder(m_scratch.path("folder")) {
    make_folder(m_folder);
  }

  CleanOutcome run() {
    start();
    bool complete = true;
    for (auto& each : m_writers) {
      if (each->next_line(std::chrono::minutes(50)) == "done") {
        m_outcome.refused += std::stoull(each->next_line().value_or("0"));
        continue;
      }
      m_run.fail("a writer has not ended as it should");
      complete = false;
    }
    write_file(m_folder + ".stop", "");
    for (auto& each : m_cleaners) {
      m_outcome.rounds += std::stoull(each->next_line().value_or("0"));
      m_outcome.removed += std::stoull(each->next_line().value_or("0"));
    }
    if (complete) check();
    return m_outcome;
  }

 private:
  std::string report(std::size_t writer) const {
    return m_scratch.path("report" + std::to_string(writer));
  }

  void start() {
    const std::map<std::string, std::string> alarm = {{"VU_TEST_ALARM", kLongAlarm}};
    for (std::size_t i = 0; i < kWriters; ++i) {
      const std::vector<std::string> args = {"w" + std::to_string(i), std::to_string(m_creates),
                                             report(i), m_folder};
      m_writers.push_back(std::make_unique<child_process>("clean_writer", args, alarm));
    }
    for (std::size_t i = 0; i < kCleaners; ++i) {
      m_cleaners.push_back(
          std::make_unique<child_process>("clean_cleaner", std::vector{m_folder}, alarm));
    }
    for (auto* const group : {&m_writers, &m_cleaners}) {
      for (auto& each : *group) {
        if (each->next_line() != "ready") m_run.fail("a process of the crowd does not start");
      }
    }
    for (auto& each : m_writers) each->tell("go");
  }

  void check() {
    const FolderState state = look_at(m_folder);
    for (std::size_t i = 0; i < kWriters; ++i) {
      std::istringstream kept(read_file(report(i)));
      for (std::string line; std::getline(kept, line); ++m_outcome.documents) {
        const std::string logical = line.substr(0, line.find('\t'));
        const std::string key = key_for(logical, kCrowdStamp);
        const auto entry = state.lines.find(key);
        if (entry == state.lines.end()) {
          m_run.fail("lost: " + logical);
        } else if (const std::string file = m_folder + "\\" + file_of(key, entry->second);
                   !file_exists(file) || read_file(file) != line.substr(logical.size() + 1)) {
          m_run.fail("lost: the bytes of " + logical + ", " +
                     (file_exists(file) ? "found '" + read_file(file) + "'" : "no file"));
        }
      }
    }
  }

  Run& m_run;
  const std::size_t m_creates;
  scratch_folder m_scratch;
  const std::string m_folder;
  std::vector<std::unique_ptr<child_process>> m_writers;
  std::vector<std::unique_ptr<child_process>> m_cleaners;
  CleanOutcome m_outcome;
};

void clean_crowd(Run& run) {
  constexpr std::size_t kCreates = 100;
  CleanOutcome all;
  while (run.goes_on()) {
    const std::uint64_t left = run.wanted() == 0 ? kCreates : run.wanted() - run.reached();
    const std::size_t creates =
        std::min<std::size_t>(kCreates, static_cast<std::size_t>(left) / kWriters + 1);
    const CleanOutcome one = CleanCrowd(run, creates).run();
    run.counted(creates * kWriters);
    all.documents += one.documents;
    all.rounds += one.rounds;
    all.removed += one.removed;
    all.refused += one.refused;
  }
  run.figure("young documents written, and found afterwards", all.documents);
  run.figure("cleanings beside the writers", all.rounds);
  run.figure("old documents cleaned away", all.removed);
  run.figure("renames that the system refused, both documents being as before", all.refused);
  // Where locks are enforced, a file that another process looks at cannot be replaced.
  if (!kOnWindows && all.refused != 0) run.fail("a rename was refused, and nothing is open here");
  if (all.removed == 0) run.fail("nothing was ever cleaned away");
}
REGISTER_SUITE(clean_crowd, "clean-crowd",
               "2 processes clean a folder again and again while 3 write to it", "creates", 30'000,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
