#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "lab/kit/suites.h"

/// @file
/// What the kit reports: the machine, of which nothing names a person, and two files with results.
namespace kit {

using Facts = std::vector<std::pair<std::string, std::string>>;

/// @param work a folder on the disk that everything runs on.
Facts facts_of_machine(const std::filesystem::path& work);

/// Whether this is Wine, whose results must not be taken for those of a kernel.
bool is_emulated();

// ------------------------------------------------------------------------------------------------
// The two files that the kit leaves: one for people, one for whoever reads it with a program.

struct Report {
  std::string version;
  std::string began;  ///< date and time, UTC
  double seconds = 0;
  std::size_t wanted = 0;  ///< suites
  bool is_emulated = false;
  bool is_stopped = false;  ///< by the user
  Facts facts;
  std::vector<Result> results;
  std::string remains;  ///< what could not be removed

  int count(State of) const;
  /// Whether everything ran, and nothing failed.
  bool is_good() const;
  /// One line for people: how it went.
  std::string summary() const;
};

/// Replaces report.json and report.html in a folder, each as a whole. @return whether it could.
bool write_reports(const Report& report, const std::filesystem::path& folder);

}  // namespace kit
