#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/stgctl/exit_codes.h"

/// @file
/// How a command declares its part of the command line. What stands behind it is seen by
/// command_line.cpp alone: compiled into every command it was most of the time that the client
/// takes to build.
namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace stgctl {

/// Empty when a value is good, else what is wrong with it.
using Check = std::function<std::string(const std::string&)>;

/// An option, a flag or a positional that was declared. Each call adds to it.
class Argument {
 public:
  explicit Argument(CLI::Option& option) noexcept : m_option(&option) {}

  /// What the help calls its value.
  Argument type_name(const char* name) const;
  Argument required() const;
  Argument check(const Check& what) const;
  Argument one_of(const std::vector<std::string>& values) const;
  /// Refused together with the other one.
  Argument excludes(Argument other) const;
  Argument excludes(const char* other) const;
  /// Refused without the other one.
  Argument needs(Argument other) const;

 private:
  CLI::Option* m_option;
};

/// A command's part of the command line. The values are there when the command runs, so they must
/// live as long; what was not given keeps the value that it has.
class Arguments {
 public:
  explicit Arguments(CLI::App& app) noexcept : m_app(app) {}

  /// @param names "--name", "-n,--name", or the name of a positional without a dash
  Argument add_option(const char* names, std::string& value, const char* description);
  Argument add_option(const char* names, std::size_t& value, const char* description);
  /// Takes several values.
  Argument add_option(const char* names, std::vector<std::string>& values, const char* description);
  Argument add_flag(const char* names, bool& value, const char* description);

 private:
  CLI::App& m_app;
};

class Context;

/// Under which heading the help lists a command.
/// A hidden one serves the project itself and is listed nowhere.
enum class Group { kLook, kExplain, kCheck, kChange, kOther, kHidden };

/// Whether a command changes the tree: then the frame gives it --dry-run and --yes.
enum class Effect { kLooks, kChanges };

/// Runs a command whose options have been read.
using Run = std::function<Exit(Context&)>;

/// One command of the program.
struct Command {
  std::string name;  ///< "ls", or with its family before it: "keys show"
  Group group;
  Effect effect;
  std::string summary;  ///< one line, without a full stop
  /// Adds the command's own options to its part of the command line, and says what to run when it
  /// was named. The options' storage lives in the returned function (a shared pointer that both
  /// lambdas hold).
  std::function<Run(Arguments&)> declare;
  std::string details = {};  ///< paragraphs for the help and the manual, may be empty
};

using Commands = std::vector<Command>;

/// Every command, in the order of the help (commands.cpp).
void add_all_commands(Commands& commands);
/// One line about a command that only stands above others, such as "keys" (commands.cpp).
const char* family_summary(const std::string& name);

}  // namespace stgctl
