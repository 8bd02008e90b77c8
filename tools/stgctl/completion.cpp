#include "tools/stgctl/completion.h"
#include "tools/stgctl/text.h"

#include <algorithm>

namespace stgctl {

namespace {

std::string spaced(const std::vector<std::string>& words) { return joined(words, " "); }

/// What can stand at a place: sub-commands, the command's options and the global ones.
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

enum class Kind { kWords, kFolders, kFiles, kAnything };

Kind kind_of(const OptionUsage& option) {
  if (!option.choices.empty()) return Kind::kWords;
  if (option.value == "DIR") return Kind::kFolders;
  if (option.value == "FILE" || option.value == "SOURCE") return Kind::kFiles;
  return Kind::kAnything;
}

/// Calls back for every option that takes a value, with the name of the command where it does:
/// global options do everywhere ("*").
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

std::string case_of_paths(const std::vector<CommandUsage>& usage) {
  std::string patterns;
  for (const CommandUsage& command : usage) {
    if (command.path.empty()) continue;
    patterns += formatted("{}'{}'", patterns.empty() ? "" : "|", command.name());
  }
  return patterns;
}

// In the two scripts below "place" is the command that is being typed, such as "keys set".

std::string bash_script(const std::vector<CommandUsage>& usage) {
  std::string values;
  for_each_value(
      usage, [&](const std::string& place, const std::string& name, const OptionUsage& option) {
        std::string reply = ":";
        if (kind_of(option) == Kind::kWords) {
          reply = formatted("COMPREPLY=($(compgen -W '{}' -- \"$cur\"))", spaced(option.choices));
        } else if (kind_of(option) == Kind::kFolders) {
          reply = "COMPREPLY=($(compgen -d -- \"$cur\"))";
        } else if (kind_of(option) == Kind::kFiles) {
          reply = "COMPREPLY=($(compgen -f -- \"$cur\"))";
        } else if (name == "--owner") {
          reply = "COMPREPLY=($(compgen -W \"$(_stgctl_owners)\" -- \"$cur\"))";
        }
        values += formatted("    {}|{}') {}; return ;;\n", place == "*" ? "*'" : "'" + place, name,
                            reply);
      });
  std::string places;
  for (const CommandUsage& command : usage) {
    places += formatted("    '{}') words='{}' ;;\n", command.name(),
                        spaced(words_at(command, usage.front())));
  }
  return formatted(R"(# bash completion for stgctl; load it with: source <(stgctl completion bash)
# The tree is that of STG_ROOT, or what the command line names.
_stgctl_tree() {{
  local i
  tree=()
  for ((i = 1; i + 1 < COMP_CWORD; i++)); do
    case ${{COMP_WORDS[i]}} in
    --root|--storage|--layout) tree+=("${{COMP_WORDS[i]}}" "${{COMP_WORDS[i+1]}}") ;;
    esac
  done
}}
_stgctl_owners() {{
  local tree
  _stgctl_tree
  stgctl user list "${{tree[@]}}" 2>/dev/null | sed 's/  *.*//'
}}
_stgctl_names() {{
  local tree
  _stgctl_tree
  stgctl ls --no-lock "${{tree[@]}}" 2>/dev/null | head -n 2000 | sed 's/  .*//'
}}
_stgctl() {{
  local cur=${{COMP_WORDS[COMP_CWORD]}} prev=${{COMP_WORDS[COMP_CWORD-1]}} place='' words='' next i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; i++)); do
    next="${{place:+$place }}${{COMP_WORDS[i]}}"
    case $next in
    {}) place=$next ;;
    esac
  done
  case "$place|$prev" in
{}  esac
  case $place in
{}  esac
  case $place in
    versions|which|cat|parts|get|rm|mv|'explain read'|'explain write')
      [[ $cur == -* ]] || words="$words $(_stgctl_names) " ;;
  esac
  COMPREPLY=($(compgen -W "$words" -- "$cur"))
}}
complete -o default -F _stgctl stgctl
)",
                   case_of_paths(usage), values, places);
}

std::string zsh_script(const std::vector<CommandUsage>& usage) {
  std::string values;
  for_each_value(usage,
                 [&](const std::string& place, const std::string& name, const OptionUsage& option) {
                   std::string reply = "_message 'value'";
                   if (kind_of(option) == Kind::kWords)
                     reply = formatted("compadd -- {}", spaced(option.choices));
                   if (kind_of(option) == Kind::kFolders) reply = "_files -/";
                   if (kind_of(option) == Kind::kFiles) reply = "_files";
                   values += formatted("    {}|{}') {}; return ;;\n",
                                       place == "*" ? "*'" : "'" + place, name, reply);
                 });
  std::string places;
  for (const CommandUsage& command : usage) {
    places += formatted("    '{}') compadd -- {} ;;\n", command.name(),
                        spaced(words_at(command, usage.front())));
  }
  return formatted(R"(#compdef stgctl
# zsh completion for stgctl; write it to a folder of $fpath as _stgctl
_stgctl() {{
  local place='' next i
  for ((i = 2; i < CURRENT; i++)); do
    next="${{place:+$place }}${{words[i]}}"
    case $next in
    {}) place=$next ;;
    esac
  done
  case "$place|${{words[CURRENT-1]}}" in
{}  esac
  case $place in
{}  esac
  _files
}}
_stgctl "$@"
)",
                   case_of_paths(usage), values, places);
}

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
    for (const OptionUsage& option : command.options) {
      if (!option.names.empty()) lines += fish_option(command, option);
    }
  }
  std::string known;
  for (const CommandUsage& command : usage) {
    if (!command.path.empty()) known += " '" + command.name() + "'";
  }
  return formatted(R"(# fish completion for stgctl; load it with: stgctl completion fish | source
function __stgctl_at
  set -l place ''
  for word in (commandline -opc)[2..-1]
    set -l next (string trim -- "$place $word")
    contains -- "$next"{}; and set place $next
  end
  test "$place" = "$argv[1]"
end
{})",
                   known, lines);
}

std::string powershell_script(const std::vector<CommandUsage>& usage) {
  std::string table;
  for (const CommandUsage& command : usage) {
    table +=
        formatted("    '{}' = '{}'\n", command.name(), spaced(words_at(command, usage.front())));
  }
  std::string values;
  for_each_value(usage,
                 [&](const std::string& place, const std::string& name, const OptionUsage& option) {
                   if (option.choices.empty()) return;
                   values += formatted("    '{}|{}' = '{}'\n", place, name, spaced(option.choices));
                 });
  return formatted(
      R"(# PowerShell completion for stgctl; load it with: stgctl completion powershell |)"
      R"( Out-String | Invoke-Expression
Register-ArgumentCompleter -Native -CommandName stgctl -ScriptBlock {{
  param($wordToComplete, $commandAst, $cursorPosition)
  $places = @{{
{}  }}
  $values = @{{
{}  }}
  $place = ''
  $previous = ''
  foreach ($element in ($commandAst.CommandElements | Select-Object -Skip 1)) {{
    $word = $element.ToString()
    if ($element.Extent.EndOffset -ge $cursorPosition -and $word -eq $wordToComplete) {{ break }}
    $next = "$place $word".Trim()
    if ($places.ContainsKey($next)) {{ $place = $next }}
    $previous = $word
  }}
  $words = $places[$place]
  foreach ($key in "$place|$previous", "*|$previous") {{
    if ($values.ContainsKey($key)) {{ $words = $values[$key]; break }}
  }}
  $words -split ' ' | Where-Object {{ $_ -like "$wordToComplete*" }} | ForEach-Object {{
    [System.Management.Automation.CompletionResult]::new($_, $_, 'ParameterValue', $_)
  }}
}}
)",
      table, values);
}

}  // namespace

const std::vector<std::string>& completion_shells() {
  static const std::vector<std::string> kShells = {"bash", "zsh", "fish", "powershell"};
  return kShells;
}

std::string completion_script(const std::string& shell, const std::vector<CommandUsage>& usage) {
  if (shell == "bash") return bash_script(usage);
  if (shell == "zsh") return zsh_script(usage);
  if (shell == "fish") return fish_script(usage);
  return powershell_script(usage);
}

}  // namespace stgctl
