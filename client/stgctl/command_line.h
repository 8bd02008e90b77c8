#pragma once

#include "client/stgctl/command.h"

/// @file
/// The command line as data, for the generated completion scripts and manual.
namespace stgctl {

struct OptionUsage {
  std::vector<std::string> names;  ///< "-n", "--dry-run"; empty for a positional
  std::string positional;          ///< "SOURCE", for a positional
  std::string value;               ///< "DIR"; empty for a flag
  std::vector<std::string> choices;
  std::string description;
  bool is_required = false;
  bool is_repeated = false;
};

struct CommandUsage {
  std::vector<std::string> path;  ///< empty for the program itself, otherwise {"keys", "show"}
  std::string summary;
  std::string details;
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

/// The whole command line: the global options, all commands with their options, and what each
/// command runs.
class CommandLine {
 public:
  CommandLine();
  ~CommandLine();

  /// Reads the arguments, without the program's name.
  /// @return nothing if a command is to run. Otherwise help or an error was printed, and this is
  /// the exit code.
  std::optional<Exit> parse(std::vector<std::string> arguments, Output& out);

  const GlobalOptions& options() const noexcept;
  /// Runs the named command.
  const Run& run() const;
  /// Whether the named command changes the tree.
  bool changes() const;
  /// The program itself, then every command and family, in the order of the help, without hidden
  /// ones.
  std::vector<CommandUsage> usage() const;

 private:
  struct Parts;
  std::unique_ptr<Parts> m_parts;
};

}  // namespace stgctl
