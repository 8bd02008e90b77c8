#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/stgctl/command.h"
#include "client/stgctl/output.h"

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

class Output;

/// The command line as a whole: the global options, all commands with theirs, and what each one
/// runs.
class CommandLine {
 public:
  CommandLine();
  ~CommandLine();
  CommandLine(const CommandLine&) = delete;
  CommandLine& operator=(const CommandLine&) = delete;

  /// Reads the arguments, without the program's name.
  /// @return nothing when a command is to be run; else what there was to tell has been told, help
  /// or what is wrong, and this is the exit code.
  std::optional<Exit> parse(std::vector<std::string> arguments, Output& out);

  const GlobalOptions& options() const noexcept;
  /// What the command that was named runs.
  const Run& run() const;
  /// Whether that command changes something.
  bool changes() const;
  /// The program itself first, then every command and the families above them, in the order of the
  /// help. What is hidden is left out.
  std::vector<CommandUsage> usage() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> m_parts;
};

}  // namespace stgctl
