#include "client/stgctl/completion.h"

#include <algorithm>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "client/stgctl/text.h"

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

/// What "stgctl complete" is asked for; empty for what it does not know.
std::string asked_for(Kind kind) {
  if (kind == Kind::kOwners) return "owners";
  return kind == Kind::kNames ? "names" : "";
}

/// Of what stands at a command without an option's name before it.
Kind kind_of_positionals(const CommandUsage& command) {
  for (const OptionUsage& option : command.options) {
    if (!option.names.empty()) continue;
    if (const Kind kind = kind_of(option); kind != Kind::kAnything) return kind;
  }
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

/// The commands whose positionals are of a kind, as a pattern of a shell: 'get'|'keys show'.
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

/// A script with its gaps filled: "%NAME%" by what belongs there.
std::string filled(std::string script,
                   std::initializer_list<std::pair<std::string_view, std::string>> gaps) {
  for (const auto& [gap, text] : gaps) {
    for (std::size_t at = script.find(gap); at != std::string::npos;
         at = script.find(gap, at + text.size()))
      script.replace(at, gap.size(), text);
  }
  return script;
}

// In the scripts "place" is the command that is being typed, such as "keys set", and "tree" what
// the command line says of the tree; the rest is up to the environment, as for any command.

// ---- bash --------------------------------------------------------------------------------------

constexpr const char* kBash =
    R"(# bash completion for stgctl; load it with: source <(stgctl completion bash)
_stgctl_tree() {
  local i value
  tree=()
  for ((i = 1; i + 1 < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
    --root|--storage|--layout|--area|--owner)
      value=${COMP_WORDS[i+1]}
      [[ $value != = ]] || value=${COMP_WORDS[i+2]}
      tree+=("${COMP_WORDS[i]}" "${value/#\~\//$HOME/}") ;;
    esac
  done
}
# Readline replaces what follows the last character at which it breaks words.
_stgctl_found() {
  local tree word cut='' breaks=${COMP_WORDBREAKS//[^@:=]/}
  word=${COMP_LINE:0:COMP_POINT}
  word=${word##*[[:blank:]]}
  [[ $word != --*=* ]] || word=${word#*=}
  _stgctl_tree
  mapfile -t COMPREPLY < <(stgctl complete "$1" "$word" "${tree[@]}" 2>/dev/null)
  [[ -z $breaks ]] || cut=${word%"${word##*[$breaks]}"}
  COMPREPLY=("${COMPREPLY[@]#"$cut"}")
  compopt -o filenames 2>/dev/null
}
_stgctl() {
  local cur=${COMP_WORDS[COMP_CWORD]} prev=${COMP_WORDS[COMP_CWORD-1]} place='' words='' next i
  COMPREPLY=()
  if [[ $cur == = ]]; then
    cur=''
  elif [[ $prev == = ]]; then
    prev=${COMP_WORDS[COMP_CWORD-2]}
  fi
  for ((i = 1; i < COMP_CWORD; i++)); do
    next="${place:+$place }${COMP_WORDS[i]}"
    case $next in
    %PATHS%) place=$next ;;
    esac
  done
  case "$place|$prev" in
%VALUES%  esac
  if [[ $cur != -* ]]; then
    case $place in
    %NAMES%) _stgctl_found names; return ;;
    %OWNERS%) _stgctl_found owners; return ;;
    esac
  fi
  case $place in
%PLACES%  esac
  COMPREPLY=($(compgen -W "$words" -- "$cur"))
}
complete -o default -F _stgctl stgctl
)";

std::string bash_reply(const OptionUsage& option) {
  switch (const Kind kind = kind_of(option)) {
    case Kind::kWords:
      return formatted("COMPREPLY=($(compgen -W '{}' -- \"$cur\"))", spaced(option.choices));
    case Kind::kFolders:
      return "COMPREPLY=($(compgen -d -- \"$cur\"))";
    case Kind::kFiles:
      return "COMPREPLY=($(compgen -f -- \"$cur\"))";
    case Kind::kAnything:
      return ":";
    default:
      return "_stgctl_found " + asked_for(kind);
  }
}

std::string bash_script(const std::vector<CommandUsage>& usage) {
  std::string values;
  for_each_value(usage,
                 [&](const std::string& place, const std::string& name, const OptionUsage& option) {
                   values += formatted("    {}|{}') {}; return ;;\n",
                                       place == "*" ? "*'" : "'" + place, name, bash_reply(option));
                 });
  std::string places;
  for (const CommandUsage& command : usage) {
    places += formatted("    '{}') words='{}' ;;\n", command.name(),
                        spaced(words_at(command, usage.front())));
  }
  return filled(kBash, {{"%PATHS%", pattern_of_all(usage)},
                        {"%VALUES%", values},
                        {"%NAMES%", pattern_of(usage, Kind::kNames)},
                        {"%OWNERS%", pattern_of(usage, Kind::kOwners)},
                        {"%PLACES%", places}});
}

// ---- zsh ---------------------------------------------------------------------------------------

constexpr const char* kZsh = R"(#compdef stgctl
# zsh completion for stgctl; write it to a folder of $fpath as _stgctl
_stgctl_found() {
  local -a tree found
  local i
  for ((i = 2; i < CURRENT; i++)); do
    case ${words[i]} in
    --root|--storage|--layout|--area|--owner)
      if ((i + 1 < CURRENT)); then
        tree+=("${words[i]}" "${${(Q)words[i+1]}/#\~\//$HOME/}")
      fi ;;
    --root=*|--storage=*|--layout=*|--area=*|--owner=*) tree+=("${(Q)words[i]}") ;;
    esac
  done
  found=("${(@f)$(stgctl complete $1 "${(Q)PREFIX}" "${tree[@]}" 2>/dev/null)}")
  [[ -n ${found[1]} ]] && compadd -a found
}
_stgctl() {
  local place='' next i
  for ((i = 2; i < CURRENT; i++)); do
    next="${place:+$place }${words[i]}"
    case $next in
    %PATHS%) place=$next ;;
    esac
  done
  case "$place|${words[CURRENT-1]}" in
%VALUES%  esac
  if [[ $PREFIX != -* ]]; then
    case $place in
    %NAMES%) _stgctl_found names; return ;;
    %OWNERS%) _stgctl_found owners; return ;;
    esac
  fi
  case $place in
%PLACES%  esac
  _files
}
_stgctl "$@"
)";

std::string zsh_reply(const OptionUsage& option) {
  switch (const Kind kind = kind_of(option)) {
    case Kind::kWords:
      return formatted("compadd -- {}", spaced(option.choices));
    case Kind::kFolders:
      return "_files -/";
    case Kind::kFiles:
      return "_files";
    case Kind::kAnything:
      return "_message 'value'";
    default:
      return "_stgctl_found " + asked_for(kind);
  }
}

std::string zsh_script(const std::vector<CommandUsage>& usage) {
  std::string values;
  for_each_value(usage,
                 [&](const std::string& place, const std::string& name, const OptionUsage& option) {
                   values += formatted("    {}|{}') {}; return ;;\n",
                                       place == "*" ? "*'" : "'" + place, name, zsh_reply(option));
                 });
  std::string places;
  for (const CommandUsage& command : usage) {
    places += formatted("    '{}') compadd -- {} ;;\n", command.name(),
                        spaced(words_at(command, usage.front())));
  }
  return filled(kZsh, {{"%PATHS%", pattern_of_all(usage)},
                       {"%VALUES%", values},
                       {"%NAMES%", pattern_of(usage, Kind::kNames)},
                       {"%OWNERS%", pattern_of(usage, Kind::kOwners)},
                       {"%PLACES%", places}});
}

// ---- fish --------------------------------------------------------------------------------------

constexpr const char* kFish =
    R"(# fish completion for stgctl; load it with: stgctl completion fish | source
function __stgctl_at
  set -l place ''
  for word in (commandline -opc)[2..-1]
    set -l next (string trim -- "$place $word")
    contains -- "$next"%PATHS%; and set place $next
  end
  test "$place" = "$argv[1]"
end
function __stgctl_found
  set -l words (commandline -opc)
  set -l tree
  for i in (seq 2 (count $words))
    switch $words[$i]
      case --root --storage --layout --area --owner
        if test $i -lt (count $words)
          set -a tree $words[$i] (string replace -r '^~/' "$HOME/" -- $words[(math $i + 1)])
        end
      case '--root=*' '--storage=*' '--layout=*' '--area=*' '--owner=*'
        set -a tree $words[$i]
    end
  end
  set -l begin (string replace -r '^--[a-z-]+=' '' -- (commandline -ct))
  stgctl complete $argv[1] "$begin" $tree 2>/dev/null
end
%LINES%)";

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
  return filled(kFish, {{"%PATHS%", known}, {"%LINES%", lines}});
}

// ---- PowerShell --------------------------------------------------------------------------------

constexpr const char* kPowerShell =
    R"(# PowerShell completion for stgctl; load it with: stgctl completion powershell |)"
    R"( Out-String | Invoke-Expression
Register-ArgumentCompleter -Native -CommandName stgctl -ScriptBlock {
  param($wordToComplete, $commandAst, $cursorPosition)
  $places = @{
%PLACES%  }
  $values = @{
%VALUES%  }
  $asked = @{
%ASKED%  }
  $place = ''
  $previous = ''
  $ofTree = '--root', '--storage', '--layout', '--area', '--owner'
  $tree = @()
  foreach ($element in ($commandAst.CommandElements | Select-Object -Skip 1)) {
    $word = $element.ToString().Trim("'", '"')
    $isLast = $element.Extent.EndOffset -ge $cursorPosition
    if ($isLast -and $element.ToString() -eq $wordToComplete) { break }
    $next = "$place $word".Trim()
    if ($places.ContainsKey($next)) { $place = $next }
    if ($previous -in $ofTree) { $tree += $previous, $word }
    $previous = $word
  }
  $words = $places[$place] -split ' '
  $what = if ($wordToComplete -notlike '-*') { $asked[$place] }
  foreach ($key in "$place|$previous", "*|$previous") {
    if ($values.ContainsKey($key)) { $words = $values[$key] -split ' '; $what = $null; break }
    if ($asked.ContainsKey($key)) { $what = $asked[$key]; break }
  }
  $begin = $wordToComplete.Trim("'", '"')
  if ($what) { $words = & stgctl complete $what $begin @tree 2>$null }
  $words | Where-Object { $_ -like "$begin*" } | ForEach-Object {
    $text = $_
    if ($_ -match '[\s"`$(){};,|&<>#'']') { $text = "'" + ($_ -replace "'", "''") + "'" }
    [System.Management.Automation.CompletionResult]::new($text, $_, 'ParameterValue', $_)
  }
}
)";

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
  return filled(kPowerShell, {{"%PLACES%", places}, {"%VALUES%", values}, {"%ASKED%", asked}});
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
