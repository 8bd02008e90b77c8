// Many processes in shared folders: writers, readers and cleaners.

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/real_kernel.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace reliability {

inline constexpr long kCrowdStamp = 7;
/// Seconds; for a helper with thousands of operations.
inline constexpr const char* kLongAlarm = "3000";

inline std::string content_of(const std::string& logical) { return "the bytes of " + logical; }

/// Creates an entry and stores its bytes. @return the physical name.
inline std::string create_document(const std::string& folder, const std::string& logical) {
  const std::string physical = STGIndex::create(folder, logical, kCrowdStamp);
  vu_file file(folder, physical);
  file.open(vu_file::o_truncate);
  file.write(content_of(logical));
  file.close();
  return physical;
}

// ------------------------------------------------------------------------------------------------
// Many processes create entries in the same folders, while others read.

namespace {

constexpr std::size_t kReaders = 2;

std::string logical_name(const std::string& who, std::size_t number) {
  return "document " + who + " " + std::to_string(number) + ".kdb";
}

// ---- the helpers --------------------------------------------------------------------------------

/// Every lock succeeds without being taken.
struct LocksTakenOut {
  os::faults::Fault lock =
      os::faults::fail(os::faults::Call::lock, {}, 1, os::faults::Times::kLasting);
  os::faults::Fault unlock =
      os::faults::fail(os::faults::Call::unlock, {}, 1, os::faults::Times::kLasting);
};

/// args: the writer's name; the number of creates; "locked" or "unlocked"; synchronisation "on" or
/// "off"; a file for the results; the folders. Each line of the results has an entry, its physical
/// name, and the microseconds of its creation.
int crowd_writer(const std::vector<std::string>& args) {
  std::unique_ptr<LocksTakenOut> unlocked;
  if (args.at(2) == "unlocked") unlocked = std::make_unique<LocksTakenOut>();
  STGIndex::setSynchronizeMode(args.at(3) == "on");
  const std::size_t count = std::stoul(args.at(1));
  const std::size_t folders = args.size() - 5;
  std::ostringstream done;
  say("ready");
  if (!hear()) return 1;
  for (std::size_t number = 0; number < count; ++number) {
    const std::string logical = logical_name(args.at(0), number);
    const std::size_t folder = number % folders;
    const auto begin = Clock::now();
    std::string physical;
    try {
      physical = create_document(args.at(5 + folder), logical);
    } catch (const vu_file_except& e) {
      physical = "exception";
    }
    const auto taken = std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - begin);
    done << folder << '\t' << logical << '\t' << physical << '\t' << taken.count() << '\n';
  }
  write_file(args.at(4), done.str());
  say("done");
  return 0;
}
REGISTER_ROLE(crowd_writer, crowd_writer)

/// args: the number of writers; the entries of each; the folders. Looks for entries until a line
/// arrives. Then prints the number of look-ups and the first defect.
int crowd_reader(const std::vector<std::string>& args) {
  STGIndex::setSynchronizeMode(false);
  const std::size_t writers = std::stoul(args.at(0));
  const std::size_t count = std::stoul(args.at(1));
  const std::size_t folders = args.size() - 2;
  const std::string stop = args.at(2) + ".stop";
  Random random(1);
  std::size_t looked = 0;
  std::size_t found = 0;
  std::set<std::string> known;
  std::string wrong = "nothing";
  say("ready");
  while (!file_exists(stop)) {
    // Readers without a pause would keep the writers from the lock.
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const std::size_t number = random() % count;
    const std::string logical = logical_name("w" + std::to_string(random() % writers), number);
    const std::string& folder = args.at(2 + number % folders);
    std::string physical;
    ++looked;
    try {
      if (!STGIndex::exists(folder, logical, kCrowdStamp, physical)) {
        if (known.count(logical) != 0) wrong = logical + ", which was there before, is missing";
        continue;
      }
      known.insert(logical);
      vu_file file(folder, physical);
      file.open(vu_file::o_read);
      std::string bytes;
      file.read(bytes, 0);
      file.close();
      ++found;
      if (!bytes.empty() && bytes != content_of(logical)) wrong = logical + " read as " + bytes;
    } catch (const vu_file_except& e) {
      wrong = logical + ": " + e.what();
    }
  }
  say(std::to_string(looked));
  say(std::to_string(found));
  say(wrong);
  return 0;
}
REGISTER_ROLE(crowd_reader, crowd_reader)

/// The number in the helper's next line. A helper without a line has crashed; its exit code fails
/// the run.
std::uint64_t number_from(child_process& helper) {
  return std::stoull(helper.next_line().value_or("0"));
}

// ---- one crowd ----------------------------------------------------------------------------------

enum class Locks : std::uint8_t { kTaken, kTakenOut };

struct Crowd {
  std::size_t processes = 8;
  std::size_t creates = 0;  ///< by each process
  std::size_t folders = 1;
  Locks locks = Locks::kTaken;
  bool adoption = false;
};

struct Outcome {
  std::uint64_t acknowledged = 0;
  std::int64_t longest = 0;  ///< microseconds
  std::uint64_t looked = 0;
  std::uint64_t found = 0;
};

class CrowdRun {
 public:
  CrowdRun(Run& run, const Crowd& crowd) : m_run(run), m_crowd(crowd) {
    for (std::size_t i = 0; i < crowd.folders; ++i) {
      m_folders.push_back(m_scratch.path("folder" + std::to_string(i)));
      make_folder(m_folders.back());
    }
  }

  Outcome run() {
    start();
    const bool complete = wait();
    if (complete) {
      for (std::size_t i = 0; i < m_crowd.processes; ++i) read_report(i);
      for (std::size_t i = 0; i < m_folders.size(); ++i) check_folder(i);
    }
    return m_outcome;
  }

 private:
  std::string report_file(std::size_t writer) const {
    return m_scratch.path("report" + std::to_string(writer));
  }

  void start() {
    const std::map<std::string, std::string> alarm = {{"VU_TEST_ALARM", kLongAlarm}};
    for (std::size_t i = 0; i < m_crowd.processes; ++i) {
      std::vector<std::string> args = {"w" + std::to_string(i), std::to_string(m_crowd.creates),
                                       m_crowd.locks == Locks::kTaken ? "locked" : "unlocked",
                                       m_crowd.adoption ? "on" : "off", report_file(i)};
      args.insert(args.end(), m_folders.begin(), m_folders.end());
      m_writers.push_back(std::make_unique<child_process>("crowd_writer", args, alarm));
    }
    std::vector<std::string> args = {std::to_string(m_crowd.processes),
                                     std::to_string(m_crowd.creates)};
    args.insert(args.end(), m_folders.begin(), m_folders.end());
    for (std::size_t i = 0; i < kReaders; ++i) {
      m_readers.push_back(std::make_unique<child_process>("crowd_reader", args, alarm));
    }
    for (auto* const group : {&m_writers, &m_readers}) {
      for (auto& each : *group) {
        if (each->next_line() != "ready") m_run.fail("a process of the crowd does not start");
      }
    }
    for (auto& each : m_writers) each->tell("go");
  }

  bool wait() {
    bool complete = true;
    for (auto& each : m_writers) {
      if (each->next_line(std::chrono::minutes(50)) == "done") {
        expect_normal_end(m_run, *each, "a writer");
        continue;
      }
      m_run.fail("a writer did not end normally");
      complete = false;
    }
    write_file(m_folders.front() + ".stop", "");
    for (auto& each : m_readers) {
      m_outcome.looked += number_from(*each);
      m_outcome.found += number_from(*each);
      const std::string wrong = each->next_line().value_or("no answer");
      if (wrong != "nothing") m_run.fail("a reader found: " + wrong);
      expect_normal_end(m_run, *each, "a reader");
    }
    return complete;
  }

  void read_report(std::size_t writer) {
    std::istringstream report(read_file(report_file(writer)));
    std::size_t lines = 0;
    for (std::string line; std::getline(report, line); ++lines) {
      std::istringstream fields(line);
      std::string folder;
      std::string logical;
      std::string physical;
      std::string taken;
      std::getline(fields, folder, '\t');
      std::getline(fields, logical, '\t');
      std::getline(fields, physical, '\t');
      std::getline(fields, taken, '\t');
      if (physical == "exception") {
        m_run.fail("creating " + logical + " threw an exception");
        continue;
      }
      ++m_outcome.acknowledged;
      m_outcome.longest = std::max<std::int64_t>(m_outcome.longest, std::stoll(taken));
      m_acknowledged[std::stoul(folder)].emplace(logical, physical);
    }
    if (lines != m_crowd.creates) m_run.fail("a writer reports too few creates");
  }

  void check_folder(std::size_t number) {
    const reader::FolderState state = reader::look_at(m_folders[number]);
    std::set<std::string> names;
    for (const auto& [logical, physical] : m_acknowledged[number]) {
      if (!names.insert(physical).second) m_run.fail("drawn twice: " + physical);
      const std::string key = reader::key_for(logical, kCrowdStamp);
      const auto line = state.lines.find(key);
      if (line == state.lines.end()) {
        m_run.fail("lost: " + logical);
      } else if (reader::file_of(key, line->second) != physical) {
        m_run.fail("redirected: " + logical);
      } else if (read_file(m_folders[number] + "\\" + physical) != content_of(logical)) {
        m_run.fail("foreign bytes: " + logical);
      }
    }
    for (const auto& [key, stored] : state.lines) {
      const std::string logical = reader::parts_of_key(key).first;
      const bool adopted = m_crowd.adoption && logical == stored && names.count(stored) != 0;
      if (m_acknowledged[number].count(logical) == 0 && !adopted) m_run.fail("invented: " + key);
    }
    for (const auto& [file, size] : state.files) {
      if (names.count(file) == 0) m_run.fail("a file that no operation created: " + file);
    }
  }

  Run& m_run;
  const Crowd m_crowd;
  scratch_folder m_scratch;
  std::vector<std::string> m_folders;
  std::vector<std::unique_ptr<child_process>> m_writers;
  std::vector<std::unique_ptr<child_process>> m_readers;
  std::map<std::size_t, std::map<std::string, std::string>> m_acknowledged;
  Outcome m_outcome;
};

void tell(Run& run, const std::string& what, const Outcome& outcome) {
  run.figure(what + ", finished creates, all found", outcome.acknowledged);
  run.figure(what + ", longest create",
             as_milliseconds(std::chrono::microseconds(outcome.longest)));
  run.figure(what + ", look-ups by readers",
             std::to_string(outcome.looked) + ", found " + std::to_string(outcome.found));
}

void crowd(Run& run) {
  // Half of the creates are in one folder, half in four; a tenth of each with synchronisation on.
  const std::size_t processes = machine::large_folders_are_slow() ? 4 : 8;
  const auto share = [&](std::uint64_t part) {
    return static_cast<std::size_t>(
        std::max<std::uint64_t>(1, run.wanted() * part / 20 / processes));
  };
  std::uint64_t found = 0;
  std::uint64_t kinds = 0;
  for (const std::size_t folders : {1U, 4U}) {
    for (const bool adoption : {false, true}) {
      if (run.time_is_over() || run.failures() != 0) break;
      const Crowd shape{processes, share(adoption ? 1 : 9), folders, Locks::kTaken, adoption};
      const auto begin = Clock::now();
      const Outcome outcome = CrowdRun(run, shape).run();
      run.counted(outcome.acknowledged);
      found += outcome.found;
      ++kinds;
      tell(run,
           std::to_string(processes) + " x " + std::to_string(shape.creates) + ", folders " +
               std::to_string(folders) + (adoption ? ", synchronisation on" : ""),
           outcome);
      run.figure("  took", as_milliseconds(Clock::now() - begin));
    }
  }
  run.figure("kinds of crowds", std::to_string(kinds) + " of 4");
  if (found == 0) run.fail("no reader found a document during the creates");
}
REGISTER_SUITE(crowd, "crowd",
               "8 processes (4 under Wine) create at once while others read; 1 and 4 folders",
               "creates", 44'448, Scratch::kMemory)

/// The same without locks. Passes if a corruption is found before the count is reached.
void crowd_noticed(Run& run) {
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  while (inner.failures() == 0 && run.goes_on()) {
    CrowdRun(inner, {4, 25, 1, Locks::kTakenOut, false}).run();
    run.counted(1);
  }
  if (inner.failures() == 0) {
    run.fail("the corruption by a crowd without locks was not detected");
  } else {
    run.figure("found after the last crowd", inner.first_failures().front());
  }
}
REGISTER_SUITE(crowd_noticed, "crowd-noticed",
               "the corruption by a crowd without locks is detected", "crowds at most", 50,
               Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// Cleaners clean a folder without a pause while others write to it. All documents are young, except
// those that a writer makes old.

/// Seconds, far more than a run takes; a clean keeps younger documents.
constexpr unsigned long kLimit = 100'000;
constexpr std::size_t kWriters = 3;
constexpr std::size_t kCleaners = 2;

// ---- the helpers --------------------------------------------------------------------------------

/// args: the writer's name; the number of creates; a file for the documents that must remain; the
/// folder. Makes every fourth document old. Renames every third one, half of these to an existing
/// name. A rename that fails with an error changes neither document.
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
      // A cleaner removes it, now or later.
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

/// args: the folder. Cleans until a line arrives. Prints the numbers of cleans and removed entries.
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
  std::uint64_t refused = 0;  ///< renames that failed
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
        m_outcome.refused += number_from(*each);
        expect_normal_end(m_run, *each, "a writer");
        continue;
      }
      m_run.fail("a writer did not end normally");
      complete = false;
    }
    write_file(m_folder + ".stop", "");
    for (auto& each : m_cleaners) {
      m_outcome.rounds += number_from(*each);
      m_outcome.removed += number_from(*each);
      expect_normal_end(m_run, *each, "a cleaner");
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
    const reader::FolderState state = reader::look_at(m_folder);
    for (std::size_t i = 0; i < kWriters; ++i) {
      std::istringstream kept(read_file(report(i)));
      for (std::string line; std::getline(kept, line); ++m_outcome.documents) {
        const std::string logical = line.substr(0, line.find('\t'));
        const std::string key = reader::key_for(logical, kCrowdStamp);
        const auto entry = state.lines.find(key);
        if (entry == state.lines.end()) {
          m_run.fail("lost: " + logical);
        } else if (const std::string file = m_folder + "\\" + reader::file_of(key, entry->second);
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
  run.figure("cleans during the writes", all.rounds);
  run.figure("old documents removed", all.removed);
  run.figure("renames that failed and changed nothing", all.refused);
  // Windows refuses to replace a file that another process has open.
  if (!kOnWindows && all.refused != 0)
    run.fail("a rename failed, although open files do not matter here");
  if (all.removed == 0) run.fail("no clean removed anything");
}
REGISTER_SUITE(clean_crowd, "clean-crowd",
               "2 processes clean a folder without a pause while 3 write to it", "creates", 30'000,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
