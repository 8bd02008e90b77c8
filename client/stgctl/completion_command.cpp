// completion: the scripts of the shells. complete: the command that these scripts call.

#include <algorithm>
#include <initializer_list>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/stgctl/command.h"
#include "client/stgctl/command_line.h"
#include "client/stgctl/context.h"
#include "client/stgctl/look.h"
#include "client/stgctl/template_text.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

std::string spaced(const std::vector<std::string>& words) { return joined(words, " "); }

/// What can appear at a place: sub-commands, the command's options and the global ones.
std::vector<std::string> words_at(const CommandUsage& command, const CommandUsage& program) {
  std::vector<std::string> words = command.subcommands;
  for (const OptionUsage& option : command.options) {
    words.insert(words.end(), option.names.begin(), option.names.end());
  }
  if (command.path.empty()) return words;
  for (const OptionUsage& option : program.options) {
    for (const std::string& name : option.names) {
      if (name != "--version" && name != "-V" &&
          std::find(words.begin(), words.end(), name) == words.end()) {
        words.push_back(name);
      }
    }
  }
  return words;
}

enum class Kind { kWords, kFolders, kFiles, kOwners, kNames, kAnything };

Kind kind_of(const OptionUsage& option) {
  const std::string& value = option.value;
  if (!option.choices.empty()) return Kind::kWords;
  if (value == "DIR") return Kind::kFolders;
  if (value == "FILE" || value == "SOURCE") return Kind::kFiles;
  if (value == "OWNER") return Kind::kOwners;
  if (value == "NAME" || value == "NEW-NAME" || value == "ENTRY" || value == "PATTERN")
    return Kind::kNames;
  return Kind::kAnything;
}

/// The argument for "stgctl complete"; empty if it has no list of this kind.
std::string asked_for(Kind kind) {
  if (kind == Kind::kOwners) return "owners";
  return kind == Kind::kNames ? "names" : "";
}

/// The kind of the first positional for which there are proposals.
Kind kind_of_positionals(const CommandUsage& command) {
  for (const OptionUsage& option : command.options) {
    if (!option.names.empty()) continue;
    if (const Kind kind = kind_of(option); kind != Kind::kAnything) return kind;
  }
  return Kind::kAnything;
}

/// Calls back for every option that takes a value, with the name of its command. Global options
/// belong to all commands ("*").
template <class Callback>
void for_each_value(const std::vector<CommandUsage>& usage, Callback&& callback) {
  for (const CommandUsage& command : usage) {
    for (const OptionUsage& option : command.options) {
      if (option.value.empty() || option.names.empty()) continue;
      for (const std::string& name : option.names) {
        callback(command.path.empty() ? std::string("*") : command.name(), name, option);
      }
    }
  }
}

/// The commands with positionals of a kind, as a shell pattern: 'get'|'keys show'.
std::string pattern_of(const std::vector<CommandUsage>& usage, Kind kind) {
  std::string pattern;
  for (const CommandUsage& command : usage) {
    if (command.path.empty() || kind_of_positionals(command) != kind) continue;
    pattern += formatted("{}'{}'", pattern.empty() ? "" : "|", command.name());
  }
  return pattern;
}

std::string pattern_of_all(const std::vector<CommandUsage>& usage) {
  std::string pattern;
  for (const CommandUsage& command : usage) {
    if (command.path.empty()) continue;
    pattern += formatted("{}'{}'", pattern.empty() ? "" : "|", command.name());
  }
  return pattern;
}

/// A file of the folder completion/ with its placeholders filled: "%NAME%" is replaced by its
/// value.
std::string filled(const char* file,
                   std::initializer_list<std::pair<std::string_view, std::string>> gaps) {
  std::string script(embedded_file(file));
  for (const auto& [gap, text] : gaps) {
    for (std::size_t at = script.find(gap); at != std::string::npos;
         at = script.find(gap, at + text.size()))
      script.replace(at, gap.size(), text);
  }
  return script;
}

// In the scripts "place" is the current command, such as "keys set", and "tree" the options that
// name the tree. STG_ROOT works as for any command.

// ---- bash and zsh ------------------------------------------------------------------------------

/// What differs between the scripts of bash and zsh.
struct CaseShell {
  const char* file;
  const char* place;     ///< sets the words of a place; they replace "%"
  const char* words;     ///< completes one of the words; they replace "%"
  const char* folders;   ///< completes a folder
  const char* files;     ///< completes a file
  const char* anything;  ///< the action for an unknown value
};
constexpr CaseShell kBash = {"stgctl.bash",
                             "words='%'",
                             "COMPREPLY=($(compgen -W '%' -- \"$cur\"))",
                             "COMPREPLY=($(compgen -d -- \"$cur\"))",
                             "COMPREPLY=($(compgen -f -- \"$cur\"))",
                             ":"};
constexpr CaseShell kZsh = {"stgctl.zsh", "compadd -- %", "compadd -- %",
                            "_files -/",  "_files",       "_message 'value'"};

/// The pattern with the words in place of its "%".
std::string with_words(std::string pattern, const std::vector<std::string>& words) {
  return pattern.replace(pattern.rfind('%'), 1, spaced(words));
}

std::string reply_of(const CaseShell& shell, const OptionUsage& option) {
  switch (const Kind kind = kind_of(option)) {
    case Kind::kWords:
      return with_words(shell.words, option.choices);
    case Kind::kFolders:
      return shell.folders;
    case Kind::kFiles:
      return shell.files;
    case Kind::kAnything:
      return shell.anything;
    default:
      return "_stgctl_found " + asked_for(kind);
  }
}

std::string case_script(const CaseShell& shell, const std::vector<CommandUsage>& usage) {
  std::string values;
  for_each_value(
      usage, [&](const std::string& place, const std::string& name, const OptionUsage& option) {
        values += formatted("    {}|{}') {}; return ;;\n", place == "*" ? "*'" : "'" + place, name,
                            reply_of(shell, option));
      });
  std::string places;
  for (const CommandUsage& command : usage) {
    places += formatted("    '{}') {} ;;\n", command.name(),
                        with_words(shell.place, words_at(command, usage.front())));
  }
  return filled(shell.file, {{"%PATHS%", pattern_of_all(usage)},
                             {"%VALUES%", values},
                             {"%NAMES%", pattern_of(usage, Kind::kNames)},
                             {"%OWNERS%", pattern_of(usage, Kind::kOwners)},
                             {"%PLACES%", places}});
}

// ---- fish --------------------------------------------------------------------------------------

std::string fish_quoted(const std::string& text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'' || c == '\\') quoted += '\\';
    quoted += c;
  }
  return quoted + "'";
}

std::string fish_option(const CommandUsage& command, const OptionUsage& option) {
  std::string line = "complete -c stgctl";
  if (!command.path.empty()) line += formatted(" -n \"__stgctl_at '{}'\"", command.name());
  for (const std::string& name : option.names) {
    line += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
  }
  if (!option.value.empty()) line += " -r";
  if (!option.choices.empty()) line += formatted(" -f -a '{}'", spaced(option.choices));
  if (const std::string what = asked_for(kind_of(option)); !what.empty())
    line += formatted(" -f -a '(__stgctl_found {})'", what);
  return line + " -d " + fish_quoted(option.description) + "\n";
}

std::string fish_script(const std::vector<CommandUsage>& usage) {
  std::string lines;
  for (const CommandUsage& command : usage) {
    for (const CommandUsage& below : usage) {
      if (below.path.size() != command.path.size() + 1 ||
          !std::equal(command.path.begin(), command.path.end(), below.path.begin())) {
        continue;
      }
      lines += formatted("complete -c stgctl -n \"__stgctl_at '{}'\" -f -a {} -d {}\n",
                         command.name(), below.path.back(), fish_quoted(below.summary));
    }
    if (const std::string what = asked_for(kind_of_positionals(command)); !what.empty()) {
      lines += formatted("complete -c stgctl -n \"__stgctl_at '{}'\" -f -a '(__stgctl_found {})'\n",
                         command.name(), what);
    }
    for (const OptionUsage& option : command.options) {
      if (!option.names.empty()) lines += fish_option(command, option);
    }
  }
  std::string known;
  for (const CommandUsage& command : usage) {
    if (!command.path.empty()) known += " '" + command.name() + "'";
  }
  return filled("stgctl.fish", {{"%PATHS%", known}, {"%LINES%", lines}});
}

// ---- PowerShell --------------------------------------------------------------------------------

std::string powershell_script(const std::vector<CommandUsage>& usage) {
  std::string places;
  std::string asked;
  for (const CommandUsage& command : usage) {
    places +=
        formatted("    '{}' = '{}'\n", command.name(), spaced(words_at(command, usage.front())));
    if (const std::string what = asked_for(kind_of_positionals(command)); !what.empty())
      asked += formatted("    '{}' = '{}'\n", command.name(), what);
  }
  std::string values;
  for_each_value(
      usage, [&](const std::string& place, const std::string& name, const OptionUsage& option) {
        if (!option.choices.empty())
          values += formatted("    '{}|{}' = '{}'\n", place, name, spaced(option.choices));
        if (const std::string what = asked_for(kind_of(option)); !what.empty())
          asked += formatted("    '{}|{}' = '{}'\n", place, name, what);
      });
  return filled("stgctl.ps1", {{"%PLACES%", places}, {"%VALUES%", values}, {"%ASKED%", asked}});
}

/// The shells that completion_script() supports.
const std::vector<std::string> kShells = {"bash", "zsh", "fish", "powershell"};

/// A script for the completion of the program's command line.
std::string completion_script(const std::string& shell, const std::vector<CommandUsage>& usage) {
  if (shell == "bash") return case_script(kBash, usage);
  if (shell == "zsh") return case_script(kZsh, usage);
  if (shell == "fish") return fish_script(usage);
  return powershell_script(usage);
}

struct ShellOption {
  Arguments app;
  TextOption shell{app, "shell", "SHELL", "The shell", {kRequired, one_of(kShells)}};
};

Exit run_completion(Context& context, const ShellOption& option) {
  const std::string script = completion_script(option.shell, context.command_line().usage());
  if (context.out().json()) {
    context.out().json_line("stgctl.completion/1", {{"shell", option.shell}, {"script", script}});
  } else {
    context.out().write(script);
  }
  return Exit::kDone;
}

}  // namespace

Commands completion_command() {
  return {{"completion", Group::kOther, Effect::kLooks,
           "Write a script that completes this program's command line", run_completion,
           "  bash        source <(stgctl completion bash)\n"
           "  zsh         stgctl completion zsh > a folder of $fpath, as _stgctl\n"
           "  fish        stgctl completion fish | source\n"
           "  powershell  stgctl completion powershell | Out-String | Invoke-Expression"}};
}

// ---- complete ----------------------------------------------------------------------------------

namespace {

namespace sys = admin::sys;

struct Options {
  Arguments app;
  TextOption what{
      app, "what", "WHAT", "What to complete", {kRequired, one_of({"owners", "names"})}};
  TextOption begin{app, "begin", "TEXT", "What has been typed so far"};
};

/// More proposals are not useful on a screen.
constexpr std::size_t kMost = 2000;

/// Completion never waits for a lock. A half-written index can cost some proposals.
sys::Locking at_once() {
  sys::Locking locking;
  locking.mode = sys::Locking::Mode::kNone;
  return locking;
}

/// Names that cannot be typed are not proposed.
void propose(std::set<std::string>& all, const Options& options, std::string_view text) {
  if (text.starts_with(options.begin) && shown(text) == text) all.emplace(text);
}

std::set<std::string> owners(Context& context, const Options& options) {
  std::set<std::string> found;
  if (context.tree().layout == admin::Layout::kFlat) return found;
  const admin::Scope scope = context.scope();
  for (const admin::Area area : admin::kAreas) {
    if (area == admin::Area::kSemlets || scope.area.value_or(area) != area) continue;
    sys::Folder folder;
    if (!folder.open(context.tree().folder_of(area)).ok()) continue;
    sys::Entry entry;
    while (folder.next(entry)) {
      if (entry.kind == sys::Kind::kFolder) propose(found, options, entry.name);
    }
  }
  return found;
}

/// Where versions with this beginning can be: "docs/anna/sa" means the documents of one owner.
admin::Scope scope_of(Context& context, const std::string& begin) {
  admin::Scope scope = context.scope();
  const std::size_t slash = begin.find('/');
  if (slash == std::string::npos) return scope;
  scope.area = admin::area_named(begin.substr(0, slash));
  const std::size_t next = begin.find('/', slash + 1);
  const bool has_owner = context.tree().layout == admin::Layout::kOwner;
  if (has_owner && next != std::string::npos)
    scope.owner = begin.substr(slash + 1, next - slash - 1);
  return scope;
}

/// Versions in their printed form; after the first letter also plain names.
std::set<std::string> names(Context& context, const Options& options) {
  std::set<std::string> found;
  admin::EntryQuery query;
  query.scope = scope_of(context, options.begin);
  query.locking = at_once();
  query.state = admin::EntryState::kIndexed;
  query.stop = &Context::interrupt_flag();
  std::string version;
  static_cast<void>(admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        version.clear();
        append_subject(version, entry);
        propose(found, options, version);
        if (!options.begin.empty()) propose(found, options, entry.logical);
        return found.size() < kMost;
      },
      [](const std::string&, const std::string&) {}));
  return found;
}

Exit run_complete(Context& context, const Options& options) {
  const std::set<std::string> all =
      options.what == "owners" ? owners(context, options) : names(context, options);
  for (const std::string& each : all) context.out().write(each + "\n");
  return all.empty() ? Exit::kNothingMatched : Exit::kDone;
}

}  // namespace

Commands complete_command() {
  return {{"complete", Group::kHidden, Effect::kLooks,
           "List owners or names that begin with the text", run_complete}};
}

}  // namespace stgctl
