#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "lab/kit/program.h"

/// @file
/// What the kit runs, and what came of it.
namespace kit {

enum class Kind {
  kKernel,  ///< cases that only a real kernel settles; a program of cases
  kCases,   ///< a program of cases, which writes a report of its own
  kRun,     ///< one run, which ends with 0, 77 for "not run here", or anything else
};

struct Suite {
  std::string name;
  std::string what;     ///< in plain words
  std::string program;  ///< in the folder bin, without ".exe"
  std::string arguments;
  std::string without;  ///< cases that are left out, as GoogleTest's filter has them
  Kind kind;
  std::chrono::seconds limit;
};

/// In the order in which they run: what settles most comes first.
const std::vector<Suite>& suites();

enum class State { kPassed, kFailed, kSkipped };
const char* name_of(State state);

struct Case {
  std::string name;
  State state = State::kPassed;
  std::string words;    ///< why it failed or was skipped
  int number = 0;       ///< of a case that only a real kernel settles
  std::string settles;  ///< what such a case does
  std::string found;    ///< what it saw, where it tells
};

struct Result {
  Suite suite;
  State state = State::kFailed;
  std::string words;  ///< why it did not pass; of a run what it has said
  double seconds = 0;
  std::vector<Case> cases;

  int count(State of) const;
};

/// Runs a suite in a folder of its own below @p work. A program of cases that ends before its last
/// case is started again for the ones that are missing.
Result run(const Suite& suite, const std::filesystem::path& bin, const std::filesystem::path& work,
           const Waiting& waiting);

// ------------------------------------------------------------------------------------------------
// What a program of cases has told: its report, or what it has said when it left none.

std::string bytes_of(const std::filesystem::path& path);
/// Valid UTF-8 without control characters, at most the last 3,000 bytes.
std::string last_words(const std::string& text);

/// The cases of a report. @return whether there is a report.
bool read_report(const std::filesystem::path& report, const std::string& log,
                 std::vector<Case>& cases);

/// The cases of a program that left no report. One that had begun and not ended has failed.
/// @param why it has. @return whether there was one.
bool read_log(const std::string& log, const std::string& why, std::vector<Case>& cases);

}  // namespace kit
