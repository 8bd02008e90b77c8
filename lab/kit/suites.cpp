#include "lab/kit/kit.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

#include <windows.h>

#include "lab/kit/folders.h"

namespace kit {
namespace {

using namespace std::chrono_literals;

/// @param without the cases to omit: they need files of the sources that the kit does not contain.
Suite cases(const char* name, const char* what, std::chrono::seconds limit,
            const char* without = "") {
  return {name, what, name, {}, without, Kind::kCases, limit};
}
Suite kernel(const char* name, const char* what) {
  return {name, what, name, {}, {}, Kind::kKernel, 600s};
}
/// On a slow disk it ends after a minute, with a lower count.
Suite long_run(const char* name, const char* what, const char* count) {
  return {name,
          what,
          "reliability",
          std::string(name) + " --budget 60 --count " + count + " --scratch ",
          {},
          Kind::kRun,
          300s};
}

std::vector<Suite> all_suites() {
  return {
      kernel("kernel_tests", "what only a real Windows kernel can show"),
      kernel("kernel_long_paths", "the same, with a manifest that requests long paths"),
      kernel("kernel_code_page_932", "the same, in a Japanese code page"),
      kernel("kernel_code_page_1252", "the same, in a Western code page"),
      kernel("kernel_code_page_65001", "the same, in UTF-8"),
      cases("unit_tests", "the internals of the library, with fault injection", 1800s,
            "CallCounts.*"),
      cases("api_tests", "the exported classes", 900s),
      cases("c_interface_tests", "the C interface", 300s),
      cases("cpp_layer_tests", "the C++ layer above it", 300s),
      cases("multi_tests", "several processes", 900s),
      cases("admin_tests", "the client's library for trees", 900s),
      cases("stgctl_tests", "the client", 1800s, "ClientCheck.ListsWhatItCanFindAndTheManualHasIt"),
      cases("fuzz_replay", "inputs that a fuzzer found", 600s),
      long_run("kills", "processes that are killed during a save", "60"),
      long_run("kills-mail", "processes that are killed during a migration of mails", "10"),
      long_run("kill-each-call", "a process that ends at each system call", "100"),
      long_run("crowd", "eight processes that create at once", "400"),
      long_run("clean-crowd", "cleans during creates", "100"),
      long_run("faults", "system calls that fail", "300"),
      long_run("c-faults", "the same below the C interface", "200"),
      long_run("short-writes", "writes that are cut short", "200"),
      long_run("sequences", "random operations, compared with the reference model", "40"),
      long_run("power-loss", "power failures on a model of a disk", "1000"),
      long_run("threads", "threads", "100"),
      long_run("handles", "copies of handles, closed late", "50"),
      {"benchmark",
       "the library, compared with a literal implementation",
       "storage_bench_plain",
       "--quick ",
       {},
       Kind::kRun,
       600s}};
}

/// Windows' own codes, for example of an access violation, are known in hexadecimal.
std::string code_text(unsigned long code) {
  char text[40] = "";
  std::snprintf(text, sizeof text, code < 0x80000000UL ? "%lu" : "0x%lX", code);
  return text;
}

/// Starts a program until each of its cases has ended, or it makes no more progress.
class CaseRuns {
 public:
  CaseRuns(const Suite& suite, std::wstring program, std::filesystem::path folder,
           const Waiting& waiting)
      : m_suite(suite),
        m_program(std::move(program)),
        m_folder(std::move(folder)),
        m_waiting(waiting) {}

  void run(Result& result) {
    // A limit for a program that crashes again and again.
    constexpr int kStarts = 6;
    for (int start = 1; start <= kStarts; ++start) {
      const Ended ended = run_once(result, start);
      result.seconds += ended.time.count();
      if (!ended.was_started) {
        result.words = "cannot start it: " + system_text(ended.code);
        return;
      }
      if (m_is_complete) {
        judge(result, ended);
        return;
      }
      result.words = why(ended);
      if (ended.was_stopped && result.count(State::kFailed) == 0) result.state = State::kSkipped;
      if (!m_goes_on) result.words += "; its last output: " + last_words(m_said);
      if (ended.was_stopped || !m_goes_on) return;
    }
    result.words += "; it was not started again";
  }

 private:
  Ended run_once(Result& result, int start) {
    const std::string number = std::to_string(start);
    write_flags(result.cases);
    // A relative path: GoogleTest treats the path of a share as one on the drive.
    const std::wstring line = m_program + L" --gtest_color=no --gtest_flagfile=flags.txt " +
                              L"--gtest_output=json:report" + std::to_wstring(start) + L".json";
    const std::filesystem::path log = m_folder / ("log" + number + ".txt");
    const auto used = std::chrono::seconds(static_cast<long long>(result.seconds));
    const std::chrono::seconds limit = std::max<std::chrono::seconds>(m_suite.limit - used, 60s);
    const Ended ended = kit::run(line, m_folder, log, limit, m_waiting);
    const std::string said = bytes_of(log);
    m_is_complete = ended.was_in_time && !ended.was_stopped &&
                    read_report(m_folder / ("report" + number + ".json"), said, result.cases);
    m_goes_on = !m_is_complete && ended.was_started && read_log(said, why(ended), result.cases);
    // A stop by the user is not a failure.
    if (m_goes_on && ended.was_stopped) result.cases.back().state = State::kSkipped;
    m_said = said;
    return ended;
  }

  /// Omits the cases that ended in an earlier start.
  void write_flags(const std::vector<Case>& ended) const {
    std::string names = m_suite.without;
    for (const Case& one : ended) names += (names.empty() ? "" : ":") + one.name;
    std::ofstream(m_folder / "flags.txt", std::ios::binary) << "--gtest_filter=*-" << names << "\n";
  }

  std::string why(const Ended& ended) const {
    if (ended.was_stopped) return "the user stopped the run here";
    if (!ended.was_in_time)
      return "it was stopped after " + std::to_string(m_suite.limit.count()) + " seconds";
    return "the program ended before its last case, with " + code_text(ended.code);
  }

  void judge(Result& result, const Ended& ended) const {
    const bool has_failed = result.count(State::kFailed) != 0;
    const bool has_passed = result.count(State::kPassed) != 0;
    result.state = has_failed || ended.code != 0 ? State::kFailed
                   : has_passed                  ? State::kPassed
                                                 : State::kSkipped;
    if (!has_failed && ended.code != 0)
      result.words = "it ended with " + code_text(ended.code) + ": " + last_words(m_said);
    if (result.cases.empty()) {
      result.state = State::kFailed;
      result.words = "it ran no cases";
    }
  }

  const Suite& m_suite;
  const std::wstring m_program;
  const std::filesystem::path m_folder;
  const Waiting& m_waiting;
  bool m_is_complete = false;
  bool m_goes_on = false;
  std::string m_said;
};

void run_whole(Result& result, const std::wstring& program, const std::filesystem::path& folder,
               const Waiting& waiting) {
  constexpr unsigned long kNotRun = 77;
  const Suite& suite = result.suite;
  // The last argument is the folder that the program may use.
  const std::wstring arguments(suite.arguments.begin(), suite.arguments.end());
  const std::wstring ground = quoted((folder / "ground").wstring());
  const std::filesystem::path log = folder / "log.txt";
  const Ended ended = run(program + L" " + arguments + ground, folder, log, suite.limit, waiting);
  result.seconds = ended.time.count();
  result.words = last_words(bytes_of(log));
  if (!ended.was_started) {
    result.words = "cannot start it: " + system_text(ended.code);
  } else if (ended.was_stopped) {
    result.state = State::kSkipped;
    result.words = "the user stopped the run here; its last output: " + result.words;
  } else if (!ended.was_in_time) {
    result.words = "it was stopped after " + std::to_string(suite.limit.count()) +
                   " seconds; its last output: " + result.words;
  } else if (ended.code == 0 || ended.code == kNotRun) {
    result.state = ended.code == 0 ? State::kPassed : State::kSkipped;
  } else {
    result.words = "it ended with " + code_text(ended.code) + ": " + result.words;
  }
}

}  // namespace

const std::vector<Suite>& suites() {
  static const std::vector<Suite> all = all_suites();
  return all;
}

const char* name_of(State state) {
  switch (state) {
    case State::kPassed: return "passed";
    case State::kFailed: return "failed";
    case State::kSkipped: return "skipped";
  }
  return "?";
}

int Result::count(State of) const {
  return static_cast<int>(
      std::count_if(cases.begin(), cases.end(), [of](const Case& one) { return one.state == of; }));
}

Result run(const Suite& suite, const std::filesystem::path& bin, const std::filesystem::path& work,
           const Waiting& waiting) {
  Result result;
  result.suite = suite;
  if (is_stopped()) {
    result.state = State::kSkipped;
    result.words = "the user stopped the run before it";
    return result;
  }
  const std::filesystem::path program = bin / (suite.program + ".exe");
  if (!std::filesystem::exists(program)) {
    result.words = "bin\\" + suite.program +
                   ".exe is missing; perhaps it was not unpacked from the ZIP, or "
                   "a virus scanner removed it";
    return result;
  }
  const std::filesystem::path folder = work / suite.name;
  ::CreateDirectoryW(folder.c_str(), nullptr);
  const std::wstring start = quoted(program.wstring());
  if (suite.kind == Kind::kRun) {
    run_whole(result, start, folder, waiting);
  } else {
    CaseRuns(suite, start, folder, waiting).run(result);
  }
  return result;
}

// ------------------------------------------------------------------------------------------------

namespace {

constexpr char kBegin[] = "[ RUN      ] ";
constexpr char kGood[] = "[       OK ] ";
constexpr char kBad[] = "[  FAILED  ] ";
constexpr char kLeft[] = "[  SKIPPED ] ";

std::string text_of(const nlohmann::json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// The output between the beginning and the end of a case.
std::string words_of(const std::string& log, const std::string& name) {
  const std::size_t at = log.find(kBegin + name);
  if (at == std::string::npos) return {};
  const std::size_t from = at + sizeof kBegin - 1 + name.size();
  const std::size_t end = std::min(log.find(kLeft, from), log.find(kBegin, from));
  return last_words(log.substr(from, end - from));
}

Case case_of(const std::string& suite, const nlohmann::json& told, const std::string& log) {
  Case one;
  one.name = suite + "." + text_of(told, "name");
  one.number = std::atoi(text_of(told, "number").c_str());
  one.settles = text_of(told, "settles");
  one.found = text_of(told, "found");
  if (text_of(told, "result") == "SKIPPED") {
    one.state = State::kSkipped;
    // The report does not contain the reason; the output does.
    one.words = words_of(log, one.name);
  }
  if (told.find("failures") != told.end()) {
    one.state = State::kFailed;
    for (const auto& each : told["failures"]) one.words += text_of(each, "failure") + "\n";
    one.words = last_words(one.words);
  }
  return one;
}

/// Reads the remarks of a kernel case.
void read_remark(const std::string& line, Case& one) {
  const auto rest = [&](const char* begin) {
    const std::string mark = begin;
    return line.rfind(mark, 0) == 0 ? last_words(line.substr(mark.size())) : std::string();
  };
  if (const std::string number = rest("number: "); !number.empty())
    one.number = std::atoi(number.c_str());
  if (const std::string text = rest("settles: "); !text.empty()) one.settles = text;
  if (const std::string text = rest("found: "); !text.empty()) one.found = text;
}

/// Whether the line begins with the mark. The name follows it, and perhaps a time.
bool has_mark(const std::string& line, const std::string& mark, std::string& name) {
  if (line.rfind(mark, 0) != 0) return false;
  name = line.substr(mark.size(), line.find_first_of(" ,\r", mark.size()) - mark.size());
  return true;
}

}  // namespace

std::string bytes_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

std::string last_words(const std::string& text) {
  constexpr std::size_t kMost = 3000;
  std::string end = text.size() > kMost ? "... " + text.substr(text.size() - kMost) : text;
  const auto is_out = [](char c) { return static_cast<unsigned char>(c) < 32 && c != '\n'; };
  end.erase(std::remove(end.begin(), end.end(), '\r'), end.end());
  std::replace_if(end.begin(), end.end(), is_out, ' ');
  end.erase(0, end.find_first_not_of("\n "));
  // The output of a program may be invalid UTF-8.
  constexpr auto replace = nlohmann::json::error_handler_t::replace;
  return nlohmann::json::parse(nlohmann::json(end).dump(-1, ' ', false, replace));
}

bool read_report(const std::filesystem::path& report, const std::string& log,
                 std::vector<Case>& cases) {
  const nlohmann::json told = nlohmann::json::parse(bytes_of(report), nullptr, false);
  if (!told.is_object() || told.find("testsuites") == told.end()) return false;
  for (const auto& suite : told["testsuites"]) {
    for (const auto& one : suite["testsuite"]) {
      if (text_of(one, "status") == "RUN")
        cases.push_back(case_of(text_of(suite, "name"), one, log));
    }
  }
  return true;
}

bool read_log(const std::string& log, const std::string& why, std::vector<Case>& cases) {
  std::istringstream lines(log);
  std::string running;
  Case one;
  const auto ends = [&](State state) {
    one.state = state;
    one.words = state == State::kPassed ? std::string() : words_of(log, one.name);
    cases.push_back(one);
    one = Case();
    running.clear();
  };
  for (std::string line; std::getline(lines, line);) {
    if (has_mark(line, kBegin, running)) continue;
    read_remark(line, one);
    // At the end the program prints the names again.
    if (running.empty()) continue;
    if (has_mark(line, kGood, one.name) && one.name == running) ends(State::kPassed);
    if (has_mark(line, kBad, one.name) && one.name == running) ends(State::kFailed);
    if (has_mark(line, kLeft, one.name) && one.name == running) ends(State::kSkipped);
  }
  if (running.empty()) return false;
  one.name = running;
  ends(State::kFailed);
  cases.back().words = why + "; its last output: " + cases.back().words;
  return true;
}

}  // namespace kit
