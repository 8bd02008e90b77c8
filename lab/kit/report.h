#pragma once

#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "lab/kit/suites.h"

/// @file
/// The reports of the kit: facts about the machine without personal data, and two files of results.
namespace kit {

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
