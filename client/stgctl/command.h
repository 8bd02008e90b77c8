#pragma once

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/stgctl/arguments.h"
#include "client/stgctl/exit_codes.h"

namespace stgctl {

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
