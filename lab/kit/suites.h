#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/kit/program.h"

/// @file
/// The suites of the kit and their results.
namespace kit {

enum class Kind {
  kKernel,  ///< a program of cases that only a real kernel can show
  kCases,   ///< a program of cases, which writes a report
  kRun,     ///< one run; its exit code is 0, 77 for "not run", or anything else for a failure
};

struct Suite {
  std::string name;
  std::string what;     ///< a description
  std::string program;  ///< in the folder bin, without ".exe"
  std::string arguments;
  std::string without;  ///< cases that are omitted, as a GoogleTest filter
  Kind kind;
  std::chrono::seconds limit;
};

/// The suites in the order in which they run; the most important ones first.
const std::vector<Suite>& suites();

enum class State { kPassed, kFailed, kSkipped };
const char* name_of(State state);

struct Case {
  std::string name;
  State state = State::kPassed;
  std::string words;    ///< why it failed or was skipped
  int number = 0;       ///< the number of a kernel case in docs/porting.md
  std::string settles;  ///< what a kernel case shows
  std::string found;    ///< what it saw, if it reports that
};

struct Result {
  Suite suite;
  State state = State::kFailed;
  std::string words;  ///< why it did not pass; for a run its output
  double seconds = 0;
  std::vector<Case> cases;

  int count(State of) const;
};

/// Runs a suite in its folder below @p work. If a program of cases ends before its last case, it is
/// started again for the remaining ones.
Result run(const Suite& suite, const std::filesystem::path& bin, const std::filesystem::path& work,
           const Waiting& waiting);

// ------------------------------------------------------------------------------------------------
// Reads the results of a program of cases: its report, or else its output.

std::string bytes_of(const std::filesystem::path& path);
/// The last 3,000 bytes as valid UTF-8 without control characters.
std::string last_words(const std::string& text);

/// Reads the cases of a report. @return whether there is a report.
bool read_report(const std::filesystem::path& report, const std::string& log,
                 std::vector<Case>& cases);

/// Reads the cases of a program without a report. The case that had begun and not ended has failed.
/// @param why the reason of that failure. @return whether there was such a case.
bool read_log(const std::string& log, const std::string& why, std::vector<Case>& cases);

}  // namespace kit
