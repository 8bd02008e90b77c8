#include "lab/reliability/shared_posix.h"

#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "lab/reader/index_reader.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace reliability {

namespace {

constexpr long kStamp = 7;
constexpr std::chrono::minutes kPatience{50};
constexpr const char* kLongAlarm = "3600";
constexpr std::size_t kShown = 5;  ///< names in the report for each kind of defect

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// Runs a shell command. @return its exit code; @p said receives its output.
int run_words(const std::string& words, std::string& said) {
  std::FILE* const pipe = ::popen((words + " 2>&1").c_str(), "r");
  if (pipe == nullptr) throw std::runtime_error("cannot start: " + words);
  char buffer[512];
  std::size_t count = 0;
  while ((count = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) said.append(buffer, count);
  const int status = ::pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

}  // namespace

// ---- the mounts ---------------------------------------------------------------------------------

bool two_hosts(Run& run) {
  if (!variable("VU_SHARED_A").empty() && !variable("VU_SHARED_B").empty()) return true;
  run.not_run("two mounts of one file system are needed; ./dev shared creates them");
  return false;
}

bool two_hosts_and_control(Run& run) {
  if (!two_hosts(run)) return false;
  if (!variable("VU_SHARED_CONTROL").empty()) return true;
  run.not_run("a program that stops parts of the file system is needed; ./dev shared sets it");
  return false;
}

std::string control(const std::string& words) {
  std::string said;
  const int code = run_words(variable("VU_SHARED_CONTROL") + " " + words, said);
  if (code != 0)
    throw std::runtime_error(words + " ended with " + std::to_string(code) + ": " + said);
  while (!said.empty() && said.back() == '\n') said.pop_back();
  return said;
}

bool control_succeeds(const std::string& words) {
  std::string said;
  return run_words(variable("VU_SHARED_CONTROL") + " " + words, said) == 0;
}

SharedFolder::SharedFolder() {
  static int made = 0;
  const std::string name = "/run-" + std::to_string(::getpid()) + "-" + std::to_string(++made);
  m_a = variable("VU_SHARED_A") + name;
  m_b = variable("VU_SHARED_B") + name;
  make_folder(m_a);
}

SharedFolder::~SharedFolder() {
  std::error_code ignored;
  std::filesystem::remove_all(native(m_a), ignored);
}

// ---- the crowd ----------------------------------------------------------------------------------

SharedWork::SharedWork(Run& run, const Shape& shape) : m_run(run), m_shape(shape) {
  m_made.resize(shape.folders);
  for (std::size_t i = 0; i < shape.folders; ++i) make_folder(folder(Host::kA, i));
}

std::string SharedWork::folder(Host host, std::size_t number) const {
  return m_shared.seen_by(host) + "\\folder" + std::to_string(number);
}

void SharedWork::start() {
  const std::map<std::string, std::string> alarm = {{"VU_TEST_ALARM", kLongAlarm}};
  for (std::size_t i = 0; i < m_shape.processes * 2; ++i) {
    const Host host = i % 2 == 0 ? Host::kA : Host::kB;
    const Host other = host == Host::kA ? Host::kB : Host::kA;
    const std::string name = (host == Host::kA ? "a" : "b") + std::to_string(i);
    const std::string report = m_local.path("report-" + name);
    const std::vector<std::string> args = {
        name,
        std::to_string(m_shape.rounds),
        m_shape.locks == Locks::kTaken ? "locked" : "unlocked",
        report,
        std::to_string(m_shape.folders),
        m_shared.seen_by(host),
        m_shared.seen_by(m_shape.look == Look::kFromTheOther ? other : host)};
    m_workers.push_back(
        {std::make_unique<child_process>("shared_worker", args, alarm), report, host});
  }
  for (const Worker& each : m_workers) {
    if (each.process->next_line() != "ready") m_run.fail("a worker does not start");
  }
  for (const Worker& each : m_workers) each.process->tell("go");
}

std::size_t SharedWork::rounds_so_far() const {
  std::size_t rounds = 0;
  for (const Worker& each : m_workers) {
    if (!file_exists(each.report)) continue;
    const std::string report = read_file(each.report);
    for (std::size_t at = 0; (at = report.find("made\t", at)) != std::string::npos; ++at) ++rounds;
  }
  return rounds;
}

void SharedWork::wait(Host host) {
  const std::map<std::string, std::size_t> before = std::exchange(m_failures, {});
  wait_for_failures(host);
  for (const auto& [text, count] : m_failures)
    m_run.fail(std::to_string(count) + " workers ended with: " + text);
  for (const auto& [text, count] : before) m_failures[text] += count;
}

void SharedWork::wait_for_failures(Host host) {
  for (const Worker& each : m_workers) {
    if (each.host != host) continue;
    if (each.process->next_line(kPatience) == "done") {
      expect_normal_end(m_run, *each.process, "a worker");
    } else {
      m_run.fail("a worker has not ended");
    }
    read_report(each);
  }
}

void SharedWork::read_report(const Worker& worker) {
  std::istringstream report(read_file(worker.report));
  for (std::string line; std::getline(report, line);) {
    std::istringstream fields(line);
    std::string what, number, logical, text, time;
    std::getline(fields, what, '\t');
    std::getline(fields, number, '\t');
    std::getline(fields, logical, '\t');
    std::getline(fields, text, '\t');
    std::getline(fields, time, '\t');
    const std::int64_t taken = time.empty() ? 0 : std::stoll(time);
    Made& made = m_made.at(std::stoul(number));
    if (what == "begins") {
      made.unsure[logical] = "";
    } else if (what == "made") {
      made.unsure.erase(logical);
      ++m_creates;
      m_longest.create = std::max(m_longest.create, taken);
      // The number may belong to an entry that was removed.
      const bool drawn_before = made.there.count(text) != 0 || made.removed.count(text) != 0;
      if (drawn_before) m_run.fail("drawn twice: " + text + " for " + logical);
      made.there[text] = logical;
    } else if (what == "read") {
      m_longest.read = std::max(m_longest.read, taken);
    } else if (what == "removes") {
      made.there.erase(text);
      made.unsure[logical] = text;
    } else if (what == "removed") {
      made.unsure.erase(logical);
      ++m_removals;
      m_longest.remove = std::max(m_longest.remove, taken);
      made.removed[text] = logical;
    } else if (what == "failed") {
      ++m_failures[text];
    }
  }
}

void SharedWork::check() {
  check_from(Host::kA);
  check_from(Host::kB);
}

void SharedWork::check_from(Host host) {
  for (std::size_t i = 0; i < m_shape.folders; ++i) check_folder(host, i);
}

void SharedWork::check_folder(Host host, std::size_t number) {
  const std::string path = folder(host, number);
  const reader::FolderState state = reader::look_at(path);
  const Made& made = m_made[number];
  std::map<std::string, std::size_t> wrong;
  const auto tell = [&](const std::string& kind, const std::string& name) {
    if (++wrong[kind] <= kShown) m_run.fail(kind + ": " + name);
  };
  std::set<std::string> expected;
  for (const auto& [physical, logical] : made.there) {
    expected.insert(logical);
    const std::string key = reader::key_for(logical, kStamp);
    const auto line = state.lines.find(key);
    if (line == state.lines.end()) {
      tell("lost", logical);
    } else if (reader::file_of(key, line->second) != physical) {
      tell("redirected", logical);
    } else if (read_file(path + "\\" + physical) != content_of(logical)) {
      tell("foreign bytes", logical);
    }
  }
  for (const auto& [key, stored] : state.lines) {
    const std::string logical = reader::parts_of_key(key).first;
    if (expected.count(logical) == 0 && made.unsure.count(logical) == 0) {
      tell("an entry that no worker created or kept", logical);
    }
  }
  // The names that failed operations drew are unknown. Each can have left one file.
  std::size_t unknown = 0;
  for (const auto& [file, size] : state.files) {
    if (made.there.count(file) != 0) continue;
    if (made.removed.count(file) != 0) {
      tell("a file that was removed", file);
    } else if (++unknown > made.unsure.size()) {
      tell("a file that no worker created", file);
    }
  }
}

// ------------------------------------------------------------------------------------------------
// One worker of a crowd on two mounts. It creates, reads and removes entries, and writes a report.

namespace {

/// args: its name; rounds; "locked" or "unlocked"; the report file; the number of folders; the
/// parent folder for its work; the same through the mount for its checks.
class SharedWorker {
 public:
  explicit SharedWorker(const std::vector<std::string>& args)
      : m_name(args.at(0)),
        m_rounds(std::stoul(args.at(1))),
        m_report(native(args.at(3)), std::ios::app),
        m_folders(std::stoul(args.at(4))),
        m_works_in(args.at(5)),
        m_looks_at(args.at(6)),
        m_random(std::hash<std::string>()(m_name)) {
    if (args.at(2) == "unlocked") m_unlocked = std::make_unique<LocksTakenOut>();
    STGIndex::setSynchronizeMode(false);
  }

  /// Ends at the first failure.
  void work() {
    try {
      for (std::size_t round = 0; round < m_rounds; ++round) {
        create(round);
        if (round % 2 == 1) remove();
      }
      return;
    } catch (const vu_file_except& e) {
      tell("failed", 0, "", e.what(), {});
    } catch (const std::exception& e) {
      tell("failed", 0, "", std::string("unexpected exception: ") + e.what(), {});
    }
  }

 private:
  struct Entry {
    std::size_t folder;
    std::string logical;
    std::string physical;
  };

  static std::string below(const std::string& folder, std::size_t number) {
    return folder + "\\folder" + std::to_string(number);
  }

  /// The line is written before the next operation begins.
  void tell(const char* what, std::size_t folder, const std::string& logical,
            const std::string& text, Clock::duration taken) {
    const auto time = std::chrono::duration_cast<std::chrono::microseconds>(taken).count();
    m_report << what << '\t' << folder << '\t' << logical << '\t' << text << '\t' << time
             << std::endl;
  }

  void create(std::size_t round) {
    Entry entry{round % m_folders, "document " + m_name + " " + std::to_string(round) + ".kdb", {}};
    tell("begins", entry.folder, entry.logical, "", {});
    auto begin = Clock::now();
    entry.physical = create_document(below(m_works_in, entry.folder), entry.logical);
    const Clock::duration taken = Clock::now() - begin;
    begin = Clock::now();
    const std::string wrong = read_document(below(m_looks_at, entry.folder), entry.logical);
    if (!wrong.empty()) {
      tell("stale", entry.folder, entry.logical, wrong, Clock::now() - begin);
      // An entry that cannot be read back is not a finished creation.
      throw vu_file_except("an entry that was just created cannot be read: " + wrong);
    }
    tell("read", entry.folder, entry.logical, "", Clock::now() - begin);
    tell("made", entry.folder, entry.logical, entry.physical, taken);
    m_there.push_back(std::move(entry));
  }

  void remove() {
    const std::size_t which = m_random() % m_there.size();
    const Entry entry = m_there[which];
    m_there.erase(m_there.begin() + static_cast<std::ptrdiff_t>(which));
    tell("removes", entry.folder, entry.logical, entry.physical, {});
    const auto begin = Clock::now();
    STGIndex::remove(below(m_works_in, entry.folder), entry.logical, kStamp);
    const Clock::duration taken = Clock::now() - begin;
    std::string physical;
    if (STGIndex::exists(below(m_looks_at, entry.folder), entry.logical, kStamp, physical)) {
      tell("stale", entry.folder, entry.logical, "removed, and still an entry", taken);
      throw vu_file_except("an entry that was just removed is there");
    }
    // A removal has no result, and exists() returns false too if the folder cannot be read.
    std::error_code gone;
    if (!std::filesystem::is_directory(native(m_looks_at), gone)) {
      throw vu_file_except("the entry is not found, but the folder cannot be read");
    }
    tell("removed", entry.folder, entry.logical, entry.physical, taken);
  }

  const std::string m_name;
  const std::size_t m_rounds;
  std::ofstream m_report;
  const std::size_t m_folders;
  const std::string m_works_in;
  const std::string m_looks_at;
  Random m_random;
  std::unique_ptr<LocksTakenOut> m_unlocked;
  std::vector<Entry> m_there;
};

int shared_worker(const std::vector<std::string>& args) {
  SharedWorker worker(args);
  say("ready");
  if (!hear()) return 1;
  worker.work();
  say("done");
  return 0;
}
REGISTER_ROLE(shared_worker, shared_worker)

}  // namespace

std::string content_of(const std::string& logical) { return "the bytes of " + logical; }

std::string create_document(const std::string& folder, const std::string& logical) {
  const std::string physical = STGIndex::create(folder, logical, kStamp);
  vu_file file(folder, physical);
  file.open(vu_file::o_truncate);
  const std::string bytes = content_of(logical);
  const int written = file.write(bytes);
  file.close();
  if (written != static_cast<int>(bytes.size())) {
    throw vu_file_except("write wrote " + std::to_string(written) + " bytes");
  }
  return physical;
}

std::string read_document(const std::string& folder, const std::string& logical) {
  std::string physical;
  if (!STGIndex::exists(folder, logical, kStamp, physical)) return "no entry";
  vu_file file(folder, physical);
  file.open(vu_file::o_read);
  std::string bytes;
  file.read(bytes, 0);
  file.close();
  return bytes == content_of(logical) ? "" : "read as '" + bytes + "'";
}

}  // namespace reliability
