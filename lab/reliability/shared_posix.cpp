#include "lab/reliability/shared_posix.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>
#include <stdexcept>
#include <utility>

#include "lab/reliability/folder_state.h"

namespace reliability {

namespace {

constexpr long kStamp = 7;
constexpr std::chrono::minutes kPatience{50};
constexpr const char* kLongAlarm = "3600";
constexpr std::size_t kShown = 5;  ///< so many names of each kind that is wrong

std::string variable(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// Runs a program of the shell. @return its exit code; @p said gets its output.
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
  run.not_run("there are no two mounts of one file system; ./dev shared makes them");
  return false;
}

bool two_hosts_and_control(Run& run) {
  if (!two_hosts(run)) return false;
  if (!variable("VU_SHARED_CONTROL").empty()) return true;
  run.not_run("nothing is named that could end a part of the file system; ./dev shared does it");
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
    if (each.process->next_line(kPatience) != "done") m_run.fail("a worker has not ended");
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
      // A number of this or another worker, maybe of an entry that is gone.
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
  const FolderState state = look_at(path);
  const Made& made = m_made[number];
  std::map<std::string, std::size_t> wrong;
  const auto tell = [&](const std::string& kind, const std::string& name) {
    if (++wrong[kind] <= kShown) m_run.fail(kind + ": " + name);
  };
  std::set<std::string> expected;
  for (const auto& [physical, logical] : made.there) {
    expected.insert(logical);
    const std::string key = key_for(logical, kStamp);
    const auto line = state.lines.find(key);
    if (line == state.lines.end()) {
      tell("lost", logical);
    } else if (file_of(key, line->second) != physical) {
      tell("redirected", logical);
    } else if (read_file(path + "\\" + physical) != content_of(logical)) {
      tell("foreign bytes", logical);
    }
  }
  for (const auto& [key, stored] : state.lines) {
    const std::string logical = parts_of_key(key).first;
    if (expected.count(logical) == 0 && made.unsure.count(logical) == 0) {
      tell("an entry that nobody has made or kept", logical);
    }
  }
  // What a failed operation drew is known to nobody; there is one file at most of each.
  std::size_t unknown = 0;
  for (const auto& [file, size] : state.files) {
    if (made.there.count(file) != 0) continue;
    if (made.removed.count(file) != 0) {
      tell("a file that was removed", file);
    } else if (++unknown > made.unsure.size()) {
      tell("a file that nobody made", file);
    }
  }
}

}  // namespace reliability
