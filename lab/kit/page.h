#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "lab/kit/machine.h"
#include "lab/kit/suites.h"

/// @file
/// The two files that the kit leaves: one for people, one for whoever reads it with a program.
namespace kit {

struct Report {
  std::string version;
  std::string began;  ///< date and time, UTC
  bool is_emulated = false;
  Facts facts;
  std::vector<Result> results;
};

void write_json(const Report& report, const std::filesystem::path& path);
void write_page(const Report& report, const std::filesystem::path& path);

}  // namespace kit
