#include "lab/kit/page.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <sstream>

#include "lab/kit/folders.h"

namespace kit {
namespace {

constexpr const char* kHead = R"(<!doctype html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width"><title>vu_storage on this Windows</title><style>
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

/// Without the name of its class, which is the same for all.
std::string short_name_of(const Case& one) { return one.name.substr(one.name.find('.') + 1); }

/// A name of many words, which may be broken before each of them.
std::string breakable(const std::string& name) {
  std::string result;
  for (const char c : name) {
    if (c >= 'A' && c <= 'Z' && !result.empty()) result += "<wbr>";
    result += c;
  }
  return result;
}

/// Without the place in the sources that stands before it.
std::string reason_of(const Case& one) {
  const std::size_t at = one.words.find("Skipped\n");
  return at == std::string::npos ? one.words : one.words.substr(at + 8);
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

/// The cases that only a real kernel settles, by their numbers.
std::vector<Case> kernel_cases(const Report& report) {
  std::vector<Case> all;
  for (const Result& result : report.results) {
    if (result.suite.kind == Kind::kKernel)
      all.insert(all.end(), result.cases.begin(), result.cases.end());
  }
  std::stable_sort(all.begin(), all.end(),
                   [](const Case& one, const Case& two) { return one.number < two.number; });
  return all;
}

void write_kernel_cases(std::ostream& page, const Report& report) {
  page << "<h2>What only a real kernel shows</h2>\n";
  for (const Result& result : report.results) {
    if (result.suite.kind == Kind::kKernel && !result.words.empty())
      page << "<p class=\"note\">" << result.suite.name << ": " << escaped(result.words) << "</p>";
  }
  page << "<table><tr><th>no.</th><th>case</th><th>result</th><th>what it settles</th>"
          "<th>what was seen, or why not</th></tr>\n";
  for (const Case& one : kernel_cases(report)) {
    page << "<tr><td>" << one.number << "</td><td>" << breakable(short_name_of(one)) << "</td>"
         << marked(one.state) << "<td>" << escaped(one.settles) << "</td><td>"
         << escaped(one.found.empty() ? reason_of(one) : one.found) << "</td></tr>\n";
  }
  page << "</table>";
}

void write_suites(std::ostream& page, const Report& report) {
  page << "<h2>All suites</h2><table><tr><th>suite</th><th>what it "
          "is</th><th>result</th><th>passed</th>"
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
    page << "<td>" << static_cast<int>(result.seconds) << "</td></tr>\n";
  }
  page << "</table>";
}

/// What runs have said, which is of use also where they passed.
void write_runs(std::ostream& page, const Report& report) {
  page << "<h2>What the runs and the benchmark have said</h2>";
  for (const Result& result : report.results) {
    if (result.suite.kind == Kind::kRun && result.state == State::kPassed)
      page << "<p><b>" << result.suite.name << "</b></p><pre>" << escaped(result.words)
           << "</pre>\n";
  }
}

void write_words(std::ostream& page, const Report& report, State state, const char* title) {
  page << "<h2>" << title << "</h2>";
  bool any = false;
  const auto tell = [&](const std::string& name, const std::string& words) {
    page << "<p><b>" << escaped(name) << "</b></p><pre>" << escaped(words) << "</pre>\n";
    any = true;
  };
  for (const Result& result : report.results) {
    if (result.state == state && !result.words.empty()) tell(result.suite.name, result.words);
    for (const Case& one : result.cases) {
      if (one.state == state) tell(result.suite.name + ": " + one.name, reason_of(one));
    }
  }
  if (!any) page << "<p>Nothing.</p>";
}

nlohmann::ordered_json json_of(const Case& one) {
  nlohmann::ordered_json told = {{"name", one.name}, {"state", name_of(one.state)}};
  if (one.number != 0) told["number"] = one.number;
  if (!one.settles.empty()) told["settles"] = one.settles;
  if (!one.found.empty()) told["found"] = one.found;
  if (!one.words.empty()) told["words"] = reason_of(one);
  return told;
}

nlohmann::ordered_json json_of(const Result& result) {
  nlohmann::ordered_json suite;
  suite["name"] = result.suite.name;
  suite["state"] = name_of(result.state);
  suite["seconds"] = static_cast<int>(result.seconds);
  if (!result.words.empty()) suite["words"] = result.words;
  for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
    suite[name_of(state)] = result.count(state);
  suite["cases"] = nlohmann::ordered_json::array();
  for (const Case& one : result.cases) {
    // Of those that passed only what they settle or have seen is of use.
    if (one.state != State::kPassed || one.number != 0) suite["cases"].push_back(json_of(one));
  }
  return suite;
}

std::string json_text(const Report& report) {
  nlohmann::ordered_json all;
  all["version"] = report.version;
  all["began"] = report.began;
  all["seconds"] = static_cast<int>(report.seconds);
  all["summary"] = report.summary();
  all["is_emulated"] = report.is_emulated;
  all["is_stopped"] = report.is_stopped;
  all["suites_wanted"] = report.wanted;
  if (!report.remains.empty()) all["remains"] = report.remains;
  for (const auto& [name, value] : report.facts) all["machine"][name] = value;
  all["suites"] = nlohmann::ordered_json::array();
  for (const Result& result : report.results) all["suites"].push_back(json_of(result));
  constexpr auto replace = nlohmann::ordered_json::error_handler_t::replace;
  return all.dump(1, ' ', false, replace) + "\n";
}

std::string page_text(const Report& report) {
  std::ostringstream page;
  page << kHead << "<h1>vu_storage " << report.version << " on this Windows</h1>\n<p>Begun "
       << report.began << " UTC. <b>" << escaped(report.summary()) << "</b></p>\n";
  if (report.is_emulated) {
    page
        << "<p class=\"note\">This is not Windows but an emulator of it. What follows says nothing "
           "about a real kernel.</p>\n";
  }
  if (!report.remains.empty()) page << "<p class=\"note\">" << escaped(report.remains) << "</p>\n";
  page << "<p><b>Please send back</b> the file report.json, which lies beside this page. It holds "
          "what is shown here, and nothing else.</p>\n";
  write_kernel_cases(page, report);
  write_suites(page, report);
  write_facts(page, report);
  write_words(page, report, State::kFailed, "What failed");
  write_words(page, report, State::kSkipped, "What was skipped, and why");
  write_runs(page, report);
  page << "</body></html>\n";
  return page.str();
}

}  // namespace

int Report::count(State of) const {
  return static_cast<int>(std::count_if(results.begin(), results.end(),
                                        [of](const Result& each) { return each.state == of; }));
}

bool Report::is_good() const {
  return results.size() == wanted && count(State::kFailed) == 0 && !is_stopped;
}

std::string Report::summary() const {
  int cases[3] = {0, 0, 0};
  for (const Result& result : results) {
    for (const State state : {State::kPassed, State::kFailed, State::kSkipped})
      cases[static_cast<int>(state)] += result.count(state);
  }
  const auto number = [](int count, const char* what) { return std::to_string(count) + what; };
  std::string told = number(count(State::kPassed), " suites passed, ") +
                     number(count(State::kFailed), " failed, ") +
                     number(count(State::kSkipped), " were skipped; ") +
                     number(cases[0], " cases passed, ") + number(cases[1], " failed, ") +
                     number(cases[2], " were skipped.");
  if (results.size() < wanted)
    told += " The run is not over, or was ended: " + std::to_string(wanted - results.size()) +
            " suites are missing.";
  if (is_stopped) told += " It was stopped before its end.";
  return told;
}

bool write_reports(const Report& report, const std::filesystem::path& folder) {
  const bool is_told = replace_file(folder / "report.json", json_text(report));
  return replace_file(folder / "report.html", page_text(report)) && is_told;
}

}  // namespace kit
