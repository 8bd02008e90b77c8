#include "lab/kit/cases.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>

namespace kit {
namespace {

constexpr char kBegin[] = "[ RUN      ] ";
constexpr char kGood[] = "[       OK ] ";
constexpr char kBad[] = "[  FAILED  ] ";
constexpr char kLeft[] = "[  SKIPPED ] ";

std::string text_of(const nlohmann::json& object, const char* name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : std::string();
}

/// What a program said between the beginning and the end of a case.
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
    // The report does not tell why; what the program has said does.
    one.words = words_of(log, one.name);
  }
  if (told.find("failures") != told.end()) {
    one.state = State::kFailed;
    for (const auto& each : told["failures"]) one.words += text_of(each, "failure") + "\n";
    one.words = last_words(one.words);
  }
  return one;
}

/// What a case of a real kernel says of itself.
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

/// The name that follows a mark, without the time that may stand behind it.
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
  // A program may have said what is no UTF-8.
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
    // The names are told once more at the end.
    if (running.empty()) continue;
    if (has_mark(line, kGood, one.name) && one.name == running) ends(State::kPassed);
    if (has_mark(line, kBad, one.name) && one.name == running) ends(State::kFailed);
    if (has_mark(line, kLeft, one.name) && one.name == running) ends(State::kSkipped);
  }
  if (running.empty()) return false;
  one.name = running;
  ends(State::kFailed);
  cases.back().words = why + "; its last words: " + cases.back().words;
  return true;
}

}  // namespace kit
