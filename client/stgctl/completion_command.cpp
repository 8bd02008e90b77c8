// completion: the scripts of the shells. complete: what these scripts ask at each TAB.

#include <cstdlib>
#include <set>

#include "client/stgctl/command_line.h"
#include "client/stgctl/look.h"
#include "client/stgctl/template_text.h"

namespace stgctl {

namespace {

const std::map<std::string, const char*> kScripts = {{"bash", "stgctl.bash"},
                                                     {"zsh", "stgctl.zsh"},
                                                     {"fish", "stgctl.fish"},
                                                     {"powershell", "stgctl.ps1"}};

struct ShellOption : Arguments {
  TextOption shell{*this,       "shell",   "SHELL",
                   "The shell", kRequired, one_of({"bash", "zsh", "fish", "powershell"})};
};

Exit run_completion(Context& context, const ShellOption& option) {
  const std::string_view script = embedded_file(kScripts.at(option.shell));
  context.out().result("stgctl.completion/1", {{"shell", option.shell}, {"script", script}}, "{}",
                       script);
  return Exit::kDone;
}

// ---- complete ----------------------------------------------------------------------------------

struct Options : Arguments {
  Flag described{*this, "--described", "Also print descriptions, after a tab"};
  Flag new_word{*this, "--new-word", "The word to complete is empty, and not among the words"};
  ListOption words{*this, "word", "WORD", "After '--', the words up to the one to complete"};
};

/// What can follow, with descriptions. The shell itself completes folders and files.
using Proposals = std::vector<std::pair<std::string, std::string>>;

constexpr auto kNone = std::string::npos;
/// More proposals are not useful on a screen.
constexpr std::size_t kMost = 2000;

/// The options that name the tree, among the words before the current one.
/// Shells pass "~" as it was typed; bash splits "--root=DIR" into three words.
std::vector<std::string> tree_options(std::vector<std::string> words) {
  std::erase(words, "=");
  std::vector<std::string> found;
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::size_t sign = words[i].find('=');
    const std::string name = words[i].substr(0, sign);
    if (name != "--root" && name != "--storage" && name != "--layout" && name != "--area" &&
        name != "--owner")
      continue;
    if (sign == kNone && i + 1 == words.size()) break;
    std::string value = sign == kNone ? words[++i] : words[i].substr(sign + 1);
    const char* const home = std::getenv("HOME");
    if (value.starts_with("~/") && home != nullptr) value.replace(0, 1, home);
    found.insert(found.end(), {name, value});
  }
  return found;
}

std::set<std::string> owners(Context& context) {
  std::set<std::string> found;
  if (context.tree().layout == admin::Layout::kFlat) return found;
  admin::Scope scope = context.scope();
  scope.owner.reset();
  for (const auto& [name, areas] : owners_in(context, scope)) found.insert(name);
  return found;
}

/// Where versions with this beginning can be: "docs/anna/sa" means the
/// documents of one owner.
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
/// Never waits for a lock: a half-written index can cost some proposals.
std::set<std::string> names(Context& context, const std::string& begin) {
  std::set<std::string> found;
  admin::EntryQuery query = query_of(context, "", "");
  query.locking.mode = sys::Locking::Mode::kNone;
  query.scope = scope_of(context, begin);
  query.state = admin::EntryState::kIndexed;
  static_cast<void>(admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        const std::string version = subject_text(entry);
        if (version.starts_with(begin)) found.insert(version);
        if (!begin.empty() && entry.logical.starts_with(begin)) found.emplace(entry.logical);
        return found.size() < kMost;
      },
      [](const std::string&, const std::string&) {}));
  return found;
}

/// Owners or names of the tree that the words before name.
Proposals of_tree(Context& context, const Options& options, std::string_view kind,
                  const std::string& begin) {
  Proposals proposals;
  std::vector<std::string> arguments = tree_options(options.words);
  arguments.insert(arguments.begin(), "complete");
  CommandLine line;
  if (line.parse(arguments, context.out())) return proposals;
  Context tree(line, context.out());
  for (const std::string& text : kind == "owners" ? owners(tree) : names(tree, begin)) {
    // Text that cannot be typed is not proposed.
    if (shown(std::string_view(text)) == text) proposals.emplace_back(text, "");
  }
  return proposals;
}

/// Sub-commands, the command's options and the global ones.
Proposals words_at(const CommandUsage& command, const std::vector<CommandUsage>& usage) {
  Proposals words;
  for (const CommandUsage& each : usage) {
    std::vector<std::string> above = each.path;
    if (above.empty()) continue;
    above.pop_back();
    if (above == command.path) words.emplace_back(each.path.back(), each.summary);
  }
  for (const CommandUsage* const place : {&command, &usage.front()}) {
    for (const OptionUsage& option : place->options) {
      for (const std::string& name : option.names) {
        const bool is_known = std::any_of(words.begin(), words.end(),
                                          [&](const auto& word) { return word.first == name; });
        const bool is_version = name == "-V" || name == "--version";
        if (!is_known && (!is_version || command.path.empty()))
          words.emplace_back(name, option.description);
      }
    }
  }
  return words;
}

/// "words" for a list of choices, "value" for what cannot be proposed.
std::string_view kind_of(const OptionUsage& option) {
  static const std::map<std::string_view, std::string_view> kKinds = {
      {"DIR", "folders"}, {"FILE", "files"},     {"SOURCE", "files"}, {"OWNER", "owners"},
      {"NAME", "names"},  {"NEW-NAME", "names"}, {"ENTRY", "names"},  {"PATTERN", "names"}};
  if (!option.choices.empty()) return "words";
  const auto found = kKinds.find(option.value);
  return found == kKinds.end() ? "value" : found->second;
}

const CommandUsage& command_at(const std::vector<std::string>& words,
                               const std::vector<CommandUsage>& usage) {
  const CommandUsage* place = &usage.front();
  for (const std::string& word : words) {
    std::vector<std::string> path = place->path;
    path.push_back(word);
    const auto next = std::find_if(usage.begin(), usage.end(),
                                   [&](const CommandUsage& each) { return each.path == path; });
    if (next != usage.end()) place = &*next;
  }
  return *place;
}

/// The option of that name, if it takes a value; null if there is none.
const OptionUsage* option_named(const std::string& name, const CommandUsage& command,
                                const CommandUsage& program) {
  for (const CommandUsage* const place : {&command, &program}) {
    for (const OptionUsage& option : place->options) {
      const bool is_named = std::count(option.names.begin(), option.names.end(), name) != 0;
      if (is_named && !option.value.empty()) return &option;
    }
  }
  return nullptr;
}

/// The first positional for which there are proposals, or null.
const OptionUsage* positional_of(const CommandUsage& command) {
  const auto found = std::find_if(
      command.options.begin(), command.options.end(),
      [](const OptionUsage& option) { return option.names.empty() && kind_of(option) != "value"; });
  return found == command.options.end() ? nullptr : &*found;
}

/// Prints the kind of the proposals, then each that begins like the current
/// word.
Exit run_complete(Context& context, Options& options) {
  std::string current;
  if (!options.new_word && !options.words.empty()) {
    current = options.words.back();
    options.words.pop_back();
  }
  const std::vector<CommandUsage> usage = context.command_line().usage();
  const CommandUsage& command = command_at(options.words, usage);
  std::string previous = options.words.empty() ? "" : options.words.back();
  // "--owner=an"
  const std::size_t sign = current.starts_with("--") ? current.find('=') : kNone;
  const std::string head = sign == kNone ? "" : current.substr(0, sign + 1);
  const std::string begin = current.substr(head.size());
  if (sign != kNone) previous = current.substr(0, sign);
  const OptionUsage* option = option_named(previous, command, usage.front());
  if (option == nullptr && !begin.starts_with('-')) option = positional_of(command);
  const std::string_view kind = option == nullptr ? "words" : kind_of(*option);
  context.out().print("{}\n", kind);
  Proposals proposals;
  if (option == nullptr) proposals = words_at(command, usage);
  if (option != nullptr) {
    for (const std::string& choice : option->choices) proposals.emplace_back(choice, "");
  }
  if (kind == "owners" || kind == "names") proposals = of_tree(context, options, kind, begin);
  for (const auto& [text, description] : proposals) {
    if (!text.starts_with(begin)) continue;
    const bool is_described = options.described && !description.empty();
    context.out().print("{}{}{}\n", head, text, is_described ? "\t" + description : "");
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
           "  powershell  stgctl completion powershell | Out-String | "
           "Invoke-Expression"},
          {"complete", Group::kHidden, Effect::kLooks,
           "List what can follow in a command line, for the completion scripts", run_complete}};
}

}  // namespace stgctl
