#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/stgctl/exit_codes.h"

/// @file
/// How a command declares its part of the command line. Only command_line.cpp includes the parser
/// itself: compiled into every command it took most of the client's build time.
namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace stgctl {

/// Empty if a value is good, otherwise an error text.
using Check = std::function<std::string(const std::string&)>;

/// A declared option, flag or positional. Each call changes it.
class Argument {
 public:
  explicit Argument(CLI::Option& option) noexcept : m_option(&option) {}

  /// The name of the value in the help.
  Argument type_name(const char* name) const;
  Argument required() const;
  Argument check(const Check& what) const;
  Argument one_of(const std::vector<std::string>& values) const;
  /// Not allowed together with the other one.
  Argument excludes(Argument other) const;
  Argument excludes(const char* other) const;
  /// Not allowed without the other one.
  Argument needs(Argument other) const;

 private:
  CLI::Option* m_option;
};

/// A command's part of the command line. The parser sets the values before the command runs, so
/// they must live until its end. A value that is not given does not change.
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

/// The heading under which the help lists a command. A hidden command is for the project itself and
/// is not listed.
enum class Group { kLook, kExplain, kCheck, kChange, kOther, kHidden };

/// Whether a command changes the tree, or writes a file. If so, it gets --dry-run and --yes.
enum class Effect { kLooks, kChanges };

/// Runs a command whose options have been read. An exception other than Failure means kFailed.
using Run = std::function<Exit(Context&)>;

/// One command of the program.
struct Command {
  std::string name;  ///< "ls", or with its family: "keys show"
  Group group;
  Effect effect;
  std::string summary;  ///< one line, without a full stop
  /// Adds the command's options to its part of the command line. Returns the function to run. That
  /// function owns the storage of the options: both lambdas hold a shared pointer to it.
  std::function<Run(Arguments&)> declare;
  std::string details = {};  ///< paragraphs for the help and the manual; can be empty
};

using Commands = std::vector<Command>;

/// Every command, in the order of the help (commands.cpp).
void add_all_commands(Commands& commands);
/// One line about a command that only groups others, such as "keys" (commands.cpp).
const char* family_summary(const std::string& name);

}  // namespace stgctl
