#include "lab/kit/page.h"

#include <fstream>
#include <nlohmann/json.hpp>

namespace kit {
namespace {

constexpr const char* kHead = R"(<!doctype html>
<html lang="en"><head><meta charset="utf-8"><title>vu_storage on this Windows</title><style>
body { font: 15px/1.5 "Segoe UI", sans-serif; max-width: 70em; margin: 2em auto; padding: 0 1em;
color: #222; } table { border-collapse: collapse; margin: 1em 0; }
td, th { border: 1px solid #ccc; padding: .3em .6em; text-align: left; vertical-align: top; }
.passed { color: #176117; } .failed { color: #a01010; font-weight: 600; } .skipped { color: #666; }
pre { white-space: pre-wrap; max-height: 20em; overflow: auto; background: #f6f6f6; padding: .6em; }
.note { background: #fff4cc; padding: .6em 1em; }
</style></head><body>
)";

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '&':
        result += "&amp;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string marked(State state) {
  const std::string name = name_of(state);
  return "<td class=\"" + name + "\">" + name + "</td>";
}

void write_facts(std::ostream& page, const Report& report) {
  page << "<h2>The machine</h2><table>";
  for (const auto& [name, value] : report.facts)
    page << "<tr><th>" << escaped(name) << "</th><td>" << escaped(value) << "</td></tr>";
  page << "</table>";
}

void write_kernel_cases(std::ostream& page, const Report& report) {
  page << "<h2>What only a real kernel shows</h2><table><tr><th>case</th><th></th><th>what it "
          "settles</th><th>what was seen</th></tr>";
  for (const Result& result : report.results) {
    for (const Case& one : result.cases) {
      if (one.settles.empty()) continue;
      page << "<tr><td>" << escaped(one.name) << "</td>" << marked(one.state) << "<td>"
           << escaped(one.settles) << "</td><td>" << escaped(one.found) << "</td></tr>";
    }
  }
  page << "</table>";
}

void write_suites(std::ostream& page, const Report& report) {
  page << "<h2>All suites</h2><table><tr><th>suite</th><th>what it is</th><th></th><th>passed</th>"
          "<th>failed</th><th>skipped</th><th>seconds</th></tr>";
  for (const Result& result : report.results) {
    page << "<tr><td>" << result.suite.name << "</td><td>" << escaped(result.suite.what) << "</td>"
         << marked(result.state);
    if (result.cases.empty()) {
      page << "<td></td><td></td><td></td>";
    } else {
      for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
        page << "<td>" << result.count(state) << "</td>";
    }
    page << "<td>" << static_cast<int>(result.seconds) << "</td></tr>";
  }
  page << "</table>";
}

void write_words(std::ostream& page, const Report& report, State state, const char* title) {
  page << "<h2>" << title << "</h2>";
  bool any = false;
  const auto tell = [&](const std::string& name, const std::string& words) {
    page << "<p><b>" << escaped(name) << "</b></p><pre>" << escaped(words) << "</pre>";
    any = true;
  };
  for (const Result& result : report.results) {
    if (result.state == state && !result.words.empty()) tell(result.suite.name, result.words);
    for (const Case& one : result.cases) {
      if (one.state == state) tell(result.suite.name + ": " + one.name, one.words);
    }
  }
  if (!any) page << "<p>Nothing.</p>";
}

}  // namespace

void write_json(const Report& report, const std::filesystem::path& path) {
  nlohmann::ordered_json all;
  all["version"] = report.version;
  all["began"] = report.began;
  all["is_emulated"] = report.is_emulated;
  for (const auto& [name, value] : report.facts) all["machine"][name] = value;
  all["suites"] = nlohmann::ordered_json::array();
  for (const Result& result : report.results) {
    nlohmann::ordered_json suite;
    suite["name"] = result.suite.name;
    suite["state"] = name_of(result.state);
    suite["seconds"] = result.seconds;
    if (!result.words.empty()) suite["words"] = result.words;
    for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
      suite[name_of(state)] = result.count(state);
    suite["cases"] = nlohmann::ordered_json::array();
    for (const Case& one : result.cases) {
      // Of those that passed only what they settle or have seen is of use.
      if (one.state == State::kPassed && one.settles.empty()) continue;
      suite["cases"].push_back({{"name", one.name},
                                {"state", name_of(one.state)},
                                {"words", one.words},
                                {"settles", one.settles},
                                {"found", one.found}});
    }
    all["suites"].push_back(suite);
  }
  // Programs may have said what is no UTF-8.
  constexpr auto replace = nlohmann::ordered_json::error_handler_t::replace;
  std::ofstream(path, std::ios::binary) << all.dump(1, ' ', false, replace) << "\n";
}

void write_page(const Report& report, const std::filesystem::path& path) {
  std::ofstream page(path, std::ios::binary);
  page << kHead << "<h1>vu_storage " << report.version << " on this Windows</h1><p>Begun "
       << report.began << " UTC.</p>";
  if (report.is_emulated) {
    page
        << "<p class=\"note\">This is not Windows but an emulator of it. What follows says nothing "
           "about a real kernel.</p>";
  }
  page
      << "<p><b>Please send back</b> the file report.json beside this page. It holds what is shown "
         "here, and nothing else.</p>";
  write_kernel_cases(page, report);
  write_suites(page, report);
  write_facts(page, report);
  write_words(page, report, State::kFailed, "What failed");
  write_words(page, report, State::kSkipped, "What was skipped, and why");
  page << "</body></html>\n";
}

}  // namespace kit
