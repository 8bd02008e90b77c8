#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/kit/suites.h"

/// @file
/// What a program of cases has told: its report, or what it has said when it left none.
namespace kit {

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
