#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

/// @file
/// The command line as data, for whatever is generated from it: completion scripts and the manual.
namespace stgctl {

struct OptionUsage {
  std::vector<std::string> names;  ///< "-n", "--dry-run"; empty for a positional
  std::string positional;          ///< "SOURCE", for a positional
  std::string value;               ///< "DIR"; empty for a flag
  std::vector<std::string> choices;
  std::string description;
  std::string group;
  bool is_required = false;
  bool is_repeated = false;
};

struct CommandUsage {
  std::vector<std::string> path;  ///< empty for the program itself, else {"keys", "show"}
  std::string summary;
  std::string details;
  std::string group;
  std::vector<OptionUsage> options;
  std::vector<std::string> subcommands;

  std::string name() const;  ///< "keys show"
};

/// The program itself first, then every command and the families above them, in the order of the help. What
/// is hidden is left out.
std::vector<CommandUsage> usage_of(const CLI::App& application);

}  // namespace stgctl
