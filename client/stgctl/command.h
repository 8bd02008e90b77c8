#pragma once

#include <functional>
#include <type_traits>

#include "client/stgctl/context.h"
#include "client/stgctl/text.h"

/// @file
/// How a command declares its part of the command line. Only command_line.cpp includes the parser
/// itself: compiled into every command it took most of the client's build time.
namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace stgctl {

/// What a value on the command line is.
struct Type {
  /// Returns an empty text if a value is good, otherwise an error text.
  using Check = std::string (*)(const std::string& value);

  constexpr Type(const char* word, Check is_good = nullptr) noexcept : name(word), check(is_good) {}

  const char* name;  ///< in the help: "SIZE"
  Check check;
};
inline constexpr Type kAge{"AGE", is_age};
inline constexpr Type kSize{"SIZE", is_size};
inline constexpr Type kStamp{"TIMESTAMP", is_stamp};

/// What else holds for an option.
struct Rule {
  enum class Kind { kRequired, kInitially, kOneOf, kExcludes, kNeeds };
  Kind kind;
  std::vector<std::string> words = {};
};
using Rules = std::initializer_list<Rule>;
inline const Rule kRequired = {Rule::Kind::kRequired};
/// The value if none is given.
inline Rule initially(const char* value) { return {Rule::Kind::kInitially, {value}}; }
inline Rule one_of(std::vector<std::string> values) {
  return {Rule::Kind::kOneOf, std::move(values)};
}
/// Not allowed together with another option, which is declared before.
inline Rule excludes(const char* other) { return {Rule::Kind::kExcludes, {other}}; }
/// Not allowed without another option, which is declared before.
inline Rule needs(const char* other) { return {Rule::Kind::kNeeds, {other}}; }

/// A command's part of the command line.
class Arguments {
 public:
  /// @param options where add_no_lock() sets the flag.
  Arguments(CLI::App& app, GlobalOptions& options) noexcept : m_app(&app), m_options(&options) {}

  /// Declares an option. The parser sets its value before the command runs; a value that is not
  /// given does not change.
  /// @param names "--name", "-n,--name", or the name of a positional without a dash
  void add(const char* names, std::string& value, Type type, const char* description,
           Rules rules = {});
  void add(const char* names, std::size_t& value, Type type, const char* description,
           Rules rules = {});
  /// Takes several values.
  void add(const char* names, std::vector<std::string>& values, Type type, const char* description,
           Rules rules = {});
  void add_flag(const char* names, bool& value, const char* description, Rules rules = {});
  /// Declares --no-lock: Context::locking() then takes no lock.
  void add_no_lock() {
    add_flag("--no-lock", m_options->no_lock,
             "Read indexes without a lock: never waits, but can see a half-written one");
  }

 private:
  CLI::App* m_app;
  GlobalOptions* m_options;
};

// The members of a structure of options declare themselves, in the order of the help:
//
//     struct Options : Arguments {
//       TextOption name{*this, "name", "NAME", "The logical name", kRequired};
//       Flag quick{*this, "--quick", "Read no file"};
//     };

/// A value that is declared where it is defined. It stays at its place until the command runs.
template <class Value>
struct Option : Value {
  Option() = default;
  template <class... Each>
  Option(Arguments app, const char* names, Type type, const char* description,
         const Each&... rules) {
    app.add(names, *this, type, description, {rules...});
  }
  using Value::operator=;
};
using TextOption = Option<std::string>;
/// Takes several values.
using ListOption = Option<std::vector<std::string>>;

struct NumberOption {
  NumberOption(Arguments app, const char* names, Type type, const char* description,
               std::size_t initial)
      : value(initial) {
    app.add(names, value, type, description, {});
  }
  operator std::size_t() const noexcept { return value; }
  std::size_t value;
};

struct Flag {
  Flag() = default;
  template <class... Each>
  Flag(Arguments app, const char* names, const char* description, const Each&... rules) {
    app.add_flag(names, value, description, {rules...});
  }
  operator bool() const noexcept { return value; }
  bool value = false;
};

/// --no-lock, of a command that reads indexes.
struct NoLock {
  explicit NoLock(Arguments app) { app.add_no_lock(); }
};

/// The heading under which the help lists a command. A hidden command is for the project itself and
/// is not listed.
enum class Group { kLook, kExplain, kCheck, kChange, kOther, kHidden };

/// Whether a command changes the tree, or writes a file. If so, it gets --dry-run; with kChanges it
/// can ask, and gets --yes.
enum class Effect { kLooks, kSaves, kChanges };

/// Runs a command whose options have been read. An exception other than Failure means kFailed.
using Run = std::function<Exit(Context&)>;

/// A command's options, and what it does with them.
struct Action {
  /// A command without options.
  Action(Exit (*run)(Context&)) : declare([run](Arguments) { return run; }) {}
  /// A command with a structure of options.
  template <class Options>
  Action(Exit (*run)(Context&, Options&))
      : declare([run](Arguments app) -> Run {
          const std::shared_ptr<Options> options(new std::remove_const_t<Options>{app});
          return [run, options](Context& context) { return run(context, *options); };
        }) {}

  /// Adds the options to the command line. Returns the function to run, which owns them.
  std::function<Run(Arguments)> declare;
};

/// One command of the program.
struct Command {
  std::string name;  ///< "ls", or with its family: "keys show"
  Group group;
  Effect effect;
  std::string summary;  ///< one line, without a full stop
  Action action;
  std::string details = {};  ///< paragraphs for the help and the manual; can be empty
};

using Commands = std::vector<Command>;

/// Every command, in the order of the help (commands.cpp).
Commands all_commands();
/// One line about a command that only groups others, such as "keys" (commands.cpp).
const char* family_summary(const std::string& name);

}  // namespace stgctl
