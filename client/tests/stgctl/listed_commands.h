#pragma once

#include <functional>
#include <string>
#include <vector>

/// An option or a positional as a help text lists it.
struct listed_argument {
  std::string name;   ///< "--as", or that of a positional
  std::string value;  ///< "NAME", "WORD:{auto,always,never}"; empty for a flag
};

/// A command as the help texts list it.
struct listed_command {
  std::vector<std::string> words;  ///< {"keys", "show"}; empty for the program itself
  std::vector<listed_argument> arguments;

  std::string name() const;
};

/// Gives back the help text of a command.
using help_of = std::function<std::string(const std::vector<std::string>& command)>;

/// Every command of the program, the program itself first: whatever is held against all commands
/// holds for those to come as well.
std::vector<listed_command> listed_commands(const help_of& help);
