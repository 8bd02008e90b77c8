#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "client/stgctl/command.h"
#include "client/stgctl/options.h"
#include "client/stgctl/usage.h"

namespace stgctl {

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
