#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <string>
#include <utility>
#include <vector>

/// @file
/// The kit runs programs, judges their suites and writes the reports.
namespace kit {

// ------------------------------------------------------------------------------------------------
// Runs a program in its folder, with its output in a file. At the time limit it ends the program
// and all of its helpers.

struct Ended {
  bool was_started = false;
  bool was_in_time = true;
  bool was_stopped = false;  ///< by request_stop()
  unsigned long code = 0;
  std::chrono::duration<double> time{};
};

/// Called every few seconds while a program runs.
using Waiting = std::function<void(std::chrono::seconds)>;

/// @param line the whole command line.
/// @param log receives the output.
Ended run(const std::wstring& line, const std::filesystem::path& folder,
          const std::filesystem::path& log, std::chrono::seconds limit,
          const Waiting& waiting = {});

/// An argument for a command line, in quotes.
std::wstring quoted(const std::wstring& text);

/// Ends the running program, and prevents others from starting. Callable from any thread.
void request_stop();
bool is_stopped();

/// Removes variables that change what the programs do.
/// @param temporary the folder for their temporary files.
void clean_environment(const std::filesystem::path& temporary);

// ------------------------------------------------------------------------------------------------
// The suites and their results.

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

// ------------------------------------------------------------------------------------------------
// Facts about the machine, without personal data.

using Facts = std::vector<std::pair<std::string, std::string>>;

/// @param work a folder on the disk that is used.
Facts facts_of_machine(const std::filesystem::path& work);

/// Whether this is Wine. Its results say nothing about a Windows kernel.
bool is_emulated();

// ------------------------------------------------------------------------------------------------
// The two reports: one for people, one for programs.

struct Report {
  std::string version;
  std::string began;  ///< date and time, UTC
  double seconds = 0;
  std::size_t wanted = 0;  ///< number of suites
  bool is_emulated = false;
  bool is_stopped = false;  ///< by the user
  Facts facts;
  std::vector<Result> results;
  std::string remains;  ///< what could not be removed

  int count(State of) const;
  /// Whether all suites ran, and none failed.
  bool is_good() const;
  /// The result in one line.
  std::string summary() const;
};

/// Replaces report.json and report.html, each atomically. @return whether it succeeded.
bool write_reports(const Report& report, const std::filesystem::path& folder);

}  // namespace kit
