#pragma once

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

  /// "keys show"
  std::string name() const {
    std::string text;
    for (const std::string& word : path) text += (text.empty() ? "" : " ") + word;
    return text;
  }
};

}  // namespace stgctl
