#include "lab/kit/suites.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>

#include "lab/kit/program.h"

namespace kit {
namespace {

using namespace std::chrono_literals;

/// @param without cases that compare with the documents of the sources, which a kit has not.
Suite cases(const char* name, const char* what, std::chrono::seconds limit,
            const std::string& without = {}) {
  return {name,         what, name, without.empty() ? without : "--gtest_filter=-" + without,
          Kind::kCases, limit};
}
Suite long_run(const char* name, const char* what, const char* count) {
  return {name,       what, "reliability", std::string(name) + " --scratch . --count " + count,
          Kind::kRun, 900s};
}

std::string bytes_of(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), {}};
}

/// The end of what a program has said.
std::string last_words(const std::filesystem::path& log) {
  constexpr std::size_t kMost = 3000;
  const std::string text = bytes_of(log);
  return text.size() > kMost ? text.substr(text.size() - kMost) : text;
}

std::string text_of(const nlohmann::json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

Case case_of(const std::string& suite, const nlohmann::json& told) {
  Case one;
  one.name = suite + "." + text_of(told, "name");
  one.settles = text_of(told, "settles");
  one.found = text_of(told, "found");
  const auto add = [&](const char* list, State state) {
    if (told.find(list) == told.end()) return;
    one.state = state;
    for (const auto& each : told[list]) one.words += text_of(each, "failure") + "\n";
  };
  // The report does not tell why; what the program has said does.
  if (text_of(told, "result") == "SKIPPED") one.state = State::kSkipped;
  add("failures", State::kFailed);
  return one;
}

/// What a program said between the beginning and the end of a case.
std::string words_of(const std::string& log, const std::string& name) {
  const std::string begin = "[ RUN      ] " + name;
  const std::size_t at = log.find(begin);
  if (at == std::string::npos) return {};
  const std::size_t from = at + begin.size();
  return log.substr(from, log.find("[  SKIPPED ] ", from) - from);
}

/// What the report of a program of cases tells. @return whether there is one.
bool read_cases(const std::filesystem::path& report, std::vector<Case>& cases) {
  const nlohmann::json told = nlohmann::json::parse(bytes_of(report), nullptr, false);
  if (!told.is_object() || told.find("testsuites") == told.end()) return false;
  for (const auto& suite : told["testsuites"]) {
    for (const auto& one : suite["testsuite"]) {
      if (text_of(one, "status") == "RUN") cases.push_back(case_of(text_of(suite, "name"), one));
    }
  }
  return true;
}

void judge_cases(Result& result, const Ended& ended, const std::filesystem::path& folder) {
  if (!read_cases(folder / "report.json", result.cases)) {
    result.words = "it ended without a report (" + std::to_string(ended.code) +
                   "): " + last_words(folder / "log.txt");
    return;
  }
  const std::string log = bytes_of(folder / "log.txt");
  for (Case& one : result.cases) {
    if (one.state == State::kSkipped) one.words = words_of(log, one.name);
  }
  const bool has_failed = result.count(State::kFailed) != 0 || ended.code != 0;
  const bool has_run = result.count(State::kPassed) != 0;
  result.state = has_failed ? State::kFailed : has_run ? State::kPassed : State::kSkipped;
}

void judge_run(Result& result, const Ended& ended, const std::filesystem::path& folder) {
  constexpr unsigned long kNotRun = 77;
  result.words = last_words(folder / "log.txt");
  if (ended.code == 0) result.state = State::kPassed;
  if (ended.code == kNotRun) result.state = State::kSkipped;
}

}  // namespace

const std::vector<Suite>& suites() {
  static const std::vector<Suite> all = {
      cases("kernel_tests", "what only a real Windows kernel shows", 600s),
      cases("unit_tests", "the library, from inside, with faults", 1800s, "CallCounts.*"),
      cases("api_tests", "the exported classes", 900s),
      cases("c_interface_tests", "the C interface", 300s),
      cases("cpp_layer_tests", "the C++ layer over it", 300s),
      cases("multi_tests", "several processes", 900s),
      cases("admin_tests", "the client's reader of trees", 900s),
      cases("stgctl_tests", "the client", 1800s, "ClientCheck.ListsWhatItCanFindAndTheManualHasIt"),
      {"fuzz_replay", "inputs that a fuzzer has found", "fuzz_replay", {}, Kind::kCases, 600s},
      long_run("kills", "processes that are killed while they save", "60"),
      long_run("kill-each-call", "a process that ends at each call of the system", "150"),
      long_run("crowd", "eight processes that create at once", "400"),
      long_run("faults", "calls of the system that fail", "300"),
      long_run("c-faults", "the same behind the C interface", "300"),
      long_run("short-writes", "writes that are cut short", "200"),
      long_run("power-loss", "a model of power cuts", "1000"),
      long_run("threads", "threads", "100"),
      long_run("handles", "late copies of handles", "50")};
  return all;
}

const char* name_of(State state) {
  switch (state) {
    case State::kPassed:
      return "passed";
    case State::kFailed:
      return "failed";
    case State::kSkipped:
      return "skipped";
  }
  return "?";
}

int Result::count(State of) const {
  return static_cast<int>(
      std::count_if(cases.begin(), cases.end(), [of](const Case& one) { return one.state == of; }));
}

Result run(const Suite& suite, const std::filesystem::path& bin,
           const std::filesystem::path& work) {
  Result result;
  result.suite = suite;
  const std::filesystem::path program = bin / (suite.program + ".exe");
  if (!std::filesystem::exists(program)) {
    result.state = State::kSkipped;
    result.words = "its program is not in this kit";
    return result;
  }
  const std::filesystem::path folder = work / suite.name;
  std::filesystem::create_directories(folder);
  std::wstring line = quoted(program.wstring());
  if (suite.kind == Kind::kCases) line += L" --gtest_output=json:report.json --gtest_color=no";
  if (!suite.arguments.empty())
    line += L" " + std::wstring(suite.arguments.begin(), suite.arguments.end());
  const Ended ended = run(line, folder, folder / "log.txt", suite.limit);
  result.seconds = ended.time.count();
  if (!ended.was_started) {
    result.words = "it could not be started: the system says " + std::to_string(ended.code);
  } else if (!ended.was_in_time) {
    result.words = "it was ended after " + std::to_string(suite.limit.count()) +
                   " seconds; its last words: " + last_words(folder / "log.txt");
  } else if (suite.kind == Kind::kCases) {
    judge_cases(result, ended, folder);
  } else {
    judge_run(result, ended, folder);
  }
  return result;
}

}  // namespace kit
