// The main function of the program `reliability`: a suite, or the role of a helper process.

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <iostream>
#include <optional>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

namespace reliability {
namespace {

/// CTest reports this exit code as "skipped".
constexpr int kNotRun = 77;

constexpr char kUsage[] =
    "usage: reliability SUITE [--count N] [--budget SECONDS] [--seed N] [--scratch DIR]\n"
    "                   [--only TEXT] [--replay CASE]\n"
    "       reliability --list\n";

std::vector<Suite>& suites() {
  static std::vector<Suite> known;
  return known;
}

struct Options {
  std::string name;
  std::optional<std::uint64_t> count;
  std::uint64_t budget = 0;
  std::optional<std::uint64_t> seed;
  std::string scratch;
  std::string only;
  std::string replayed;
};

std::uint64_t number(const std::string& option, const std::string& text) {
  std::uint64_t value = 0;
  const char* const end = text.data() + text.size();
  const auto result = std::from_chars(text.data(), end, value);
  if (text.empty() || result.ec != std::errc() || result.ptr != end) {
    throw std::invalid_argument(option + " '" + text + "' is not a number");
  }
  return value;
}

Options read_options(const std::vector<std::string>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const std::string& name = arguments[i];
    const auto value = [&]() -> const std::string& {
      if (++i == arguments.size()) throw std::invalid_argument(name + " needs a value");
      return arguments[i];
    };
    if (name == "--count") {
      options.count = number(name, value());
    } else if (name == "--budget") {
      options.budget = number(name, value());
    } else if (name == "--seed") {
      options.seed = number(name, value());
    } else if (name == "--scratch") {
      options.scratch = value();
    } else if (name == "--only") {
      options.only = value();
    } else if (name == "--replay") {
      options.replayed = value();
    } else if (name.rfind("--", 0) == 0) {
      throw std::invalid_argument("unknown option '" + name + "'");
    } else if (options.name.empty()) {
      options.name = name;
    } else {
      throw std::invalid_argument("name one suite only: '" + options.name + "' or '" + name + "'");
    }
  }
  if (options.name.empty()) throw std::invalid_argument("name a suite");
  return options;
}

void list_suites() {
  for (const Suite& each : suites()) {
    const std::string count = each.count == 0 ? "all " : std::to_string(each.count) + " ";
    std::cout << each.name << ": " << each.what << " (" << count << each.unit << ")\n";
  }
}

const Suite& suite_called(const std::string& name) {
  const auto found = std::find_if(suites().begin(), suites().end(),
                                  [&](const Suite& each) { return each.name == name; });
  if (found == suites().end()) {
    throw std::invalid_argument("unknown suite '" + name + "'; --list shows the suites");
  }
  return *found;
}

/// A valid command line that the suite cannot follow.
struct Refusal : std::runtime_error {
  using runtime_error::runtime_error;
};

/// @throws Refusal if the options select cases and the suite has none to select.
void check_selection(const Suite& suite, const Options& options) {
  if (suite.cases == Cases::kSelectable || (options.only.empty() && options.replayed.empty())) {
    return;
  }
  std::string selectable;
  for (const Suite& each : suites()) {
    if (each.cases == Cases::kSelectable)
      selectable += (selectable.empty() ? "" : ", ") + each.name;
  }
  throw Refusal("'" + suite.name + "' has no " + (options.only.empty() ? "--replay" : "--only") +
                ": these suites have it: " + selectable);
}

/// Everything that tests/support creates from now on, also in helper processes, is in this folder.
void choose_scratch(const Suite& suite, const std::string& named) {
  std::string folder = named;
  if (folder.empty()) {
    folder = suite.scratch == Scratch::kMemory ? machine::memory_folder() : std::string();
  }
  if (folder.empty()) folder = (std::filesystem::current_path() / "reliability-scratch").string();
  std::filesystem::create_directories(native(folder));
  machine::set_variable("VU_TEST_TMP", folder);
}

int report(const Suite& suite, const Run& run) {
  std::printf("seed     %llu\n", static_cast<unsigned long long>(run.seed()));
  std::printf("time     %.1f s\n", run.seconds());
  const std::string wanted = run.wanted() == 0 ? "" : " of " + std::to_string(run.wanted());
  std::printf("reached  %llu%s %s\n", static_cast<unsigned long long>(run.reached()),
              wanted.c_str(), suite.unit.c_str());
  for (const std::string& each : run.figures()) std::printf("%s\n", each.c_str());
  for (const std::string& each : run.first_failures()) std::printf("WRONG: %s\n", each.c_str());
  if (!run.reason_not_run().empty() && run.failures() == 0) {
    std::printf("%s: not run (%s)\n", suite.name.c_str(), run.reason_not_run().c_str());
    return kNotRun;
  }
  const bool passed = run.failures() == 0 && run.reached() > 0;
  std::printf("%s: %s\n", suite.name.c_str(), passed ? "passed" : "FAILED");
  return passed ? 0 : 1;
}

int run_suite(const Options& options) {
  const Suite& suite = suite_called(options.name);
  check_selection(suite, options);
  choose_scratch(suite, options.scratch);
  const Limits limits{options.count.value_or(suite.count), std::chrono::seconds(options.budget),
                      options.only, options.replayed};
  Run run(options.seed ? *options.seed : std::random_device{}(), limits);
  std::printf("%s: %s\n", suite.name.c_str(), suite.what.c_str());
  try {
    suite.function(run);
  } catch (const std::exception& e) {
    run.fail(std::string("the suite threw: ") + e.what());
  }
  return report(suite, run);
}

}  // namespace

bool register_suite(Suite suite) {
  const auto after = std::find_if(suites().begin(), suites().end(),
                                  [&](const Suite& each) { return each.name > suite.name; });
  suites().insert(after, std::move(suite));
  return true;
}

// ---- one run ------------------------------------------------------------------------------------

void Run::figure(const std::string& name, const std::string& value) {
  m_figures.push_back("figure   " + name + ": " + value);
}

void Run::fail(const std::string& what) {
  const std::scoped_lock guard(m_mutex);
  ++m_failure_count;
  if (m_failures.size() < kEnough) m_failures.push_back(what);
}

std::size_t Run::failures() const {
  const std::scoped_lock guard(m_mutex);
  return m_failure_count;
}

void expect_normal_end(Run& run, child_process& helper, const std::string& who) {
  const std::optional<int> code = helper.wait();
  if (code == 0) return;
  run.fail(who + (code ? " ended with exit code " + std::to_string(*code) : " does not end"));
}

std::string as_milliseconds(Clock::duration time) {
  char text[40];
  std::snprintf(text, sizeof text, "%.1f ms",
                std::chrono::duration<double, std::milli>(time).count());
  return text;
}

}  // namespace reliability

int main(int argc, char** argv) {
  reliability::machine::prepare_process();
  if (const std::optional<int> result = run_role(argc, argv)) return *result;
  try {
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    if (arguments == std::vector<std::string>{"--list"}) {
      reliability::list_suites();
      return 0;
    }
    return reliability::run_suite(reliability::read_options(arguments));
  } catch (const reliability::Refusal& e) {
    std::cerr << "error: " << e.what() << "\n";
    return 2;
  } catch (const std::exception& e) {
    std::cerr << "error: " << e.what() << "\n" << reliability::kUsage;
    return 2;
  }
}
