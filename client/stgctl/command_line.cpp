// The only file that includes CLI11.

#include "client/stgctl/command_line.h"

#include <CLI/CLI.hpp>
#include <array>
#include <map>
#include <span>
#include <sstream>

namespace stgctl {

namespace {

void apply(CLI::Option& option, Type type, Rules rules) {
  option.type_name(type.name);
  if (type.check != nullptr) option.check(type.check);
  for (const Rule& rule : rules) {
    switch (rule.kind) {
      case Rule::Kind::kRequired: option.required(); break;
      case Rule::Kind::kOneOf: option.check(CLI::IsMember(rule.words)); break;
      case Rule::Kind::kExcludes: option.excludes(rule.words.front()); break;
      case Rule::Kind::kNeeds: option.needs(rule.words.front()); break;
      case Rule::Kind::kInitially: break;
    }
  }
}

const std::vector<std::string> kWhen = {"auto", "always", "never"};
const std::vector<std::string> kLayouts = {"auto", "owner", "flat"};
const std::vector<std::string> kLevels = {"xs", "s", "m", "l", "xl"};

/// The headings of the groups.
constexpr std::array<const char*, 6> kHeadings = {"Inspect", "Explain", "Check",
                                                  "Change",  "Other",   ""};
const char* heading(Group group) { return kHeadings[static_cast<std::size_t>(group)]; }

std::string check_timeout(const std::string& text) {
  if (text == "none") return {};
  const double seconds = parse_number<double>(text).value_or(-1);
  const bool good = seconds >= 0 && seconds < 1e9;
  return good ? std::string() : "'" + text + "' is not a number of seconds; use a number or 'none'";
}

std::vector<std::string> area_names() {
  std::vector<std::string> names;
  for (const admin::Area area : admin::kAreas) names.emplace_back(admin::name_of(area));
  return names;
}

void declare_global_options(CLI::App& app, GlobalOptions& options) {
  const char* group = "The tree";
  const auto option = [&](const char* name, std::string& value, const char* type,
                          const char* description) {
    return app.add_option(name, value, description)->type_name(type)->group(group);
  };
  // Options that are read by a function.
  const auto read = [&](const char* name, const auto& take, const char* type,
                        const char* description) {
    return app.add_option_function<std::string>(name, take, description)
        ->type_name(type)
        ->group(group);
  };
  const auto choice = [&](const char* name, auto& value, const std::vector<std::string>& words,
                          const char* description) {
    using Value = std::remove_reference_t<decltype(value)>;
    const auto take = [&value, &words](const std::string& word) {
      value = *value_named<Value>(words, word);
    };
    read(name, take, "WORD", description)->check(CLI::IsMember(words));
  };
  option("--root", options.root, "DIR",
         "The folder that contains 'storage': the root of the library (environment: STG_ROOT)");
  option("--storage", options.storage, "DIR", "The storage folder itself");
  choice("--layout", options.layout, kLayouts, "A folder per owner, or flat without owners");
  option("--area", options.area, "WORD", "The area")->check(CLI::IsMember(area_names()));
  option("--owner", options.owner, "OWNER", "The user or domain; AREA/OWNER also names the area");

  group = "Output";
  app.add_flag("--json", options.json, "Print results as JSON")->group(group);
  choice("--color", options.color, kWhen, "When to use colours");
  choice("--progress", options.progress, kWhen, "When to show the progress bar");

  group = "Work";
  const auto take_timeout = [&options](const std::string& text) {
    const auto seconds = parse_number<double>(text);
    options.lock_timeout.reset();
    if (seconds)
      options.lock_timeout = std::chrono::milliseconds(static_cast<std::int64_t>(*seconds * 1000));
  };
  read("--lock-timeout", take_timeout, "SECONDS",
       "How long to wait for a lock, in seconds; 'none' waits without limit (30)")
      ->check(CLI::Validator(check_timeout, ""));
  const auto take_level = [&options](const std::string& level) {
    options.trace = value_named<vu_host::trace_level>(kLevels, CLI::detail::to_lower(level));
  };
  read("--trace", take_level, "LEVEL",
       "Write the library's traces up to this level; only changing commands call the library")
      ->check(CLI::IsMember(kLevels, CLI::ignore_case));
  option("--trace-file", options.trace_file, "FILE",
         "With --trace: append the traces to this file instead of standard error")
      ->needs("--trace");
}

/// Splits an owner of the form "AREA/OWNER". An owner's name contains no separator.
void take_owner_apart(GlobalOptions& options) {
  const std::size_t slash = options.owner.find('/');
  if (slash == std::string::npos) return;
  const std::string area = options.owner.substr(0, slash);
  if (!admin::area_named(area)) return;
  if (!options.area.empty() && options.area != area)
    throw CLI::ValidationError("--owner", "'" + options.owner + "' names another area than --area");
  options.area = area;
  options.owner.erase(0, slash + 1);
}

const CLI::App* subcommand_named(const CLI::App& family, const std::string& name) {
  const auto has_name = [&](const CLI::App* each) { return each->get_name() == name; };
  const std::vector<const CLI::App*> found = family.get_subcommands(has_name);
  return found.empty() ? nullptr : found.front();
}

std::vector<std::string> names_below(const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!sub->get_group().empty()) names.push_back(sub->get_name());
  }
  return names;
}

/// The index of the next argument that is neither an option of the program or the command, nor the
/// value of one.
std::size_t next_word(std::span<const std::string> arguments, std::size_t from, const CLI::App& app,
                      const CLI::App& command) {
  for (; from < arguments.size() && arguments[from].starts_with('-'); ++from) {
    if (arguments[from] == "--") break;
    const CLI::Option* option = command.get_option_no_throw(arguments[from]);
    if (option == nullptr) option = app.get_option_no_throw(arguments[from]);
    if (option != nullptr && option->get_items_expected_max() != 0) ++from;
  }
  return std::min(from, arguments.size());
}

/// "help put" means "put --help". "explain NAME" means "explain read NAME". Options can precede
/// each word.
void rewrite_shorthands(const CLI::App& app, std::vector<std::string>& arguments) {
  std::size_t at = next_word(arguments, 0, app, app);
  const auto is_at = [&](const char* word) {
    return at < arguments.size() && arguments[at] == word;
  };
  if (is_at("explain")) {
    const CLI::App& explain = *app.get_subcommand("explain");
    const std::size_t name = next_word(arguments, at + 1, app, *explain.get_subcommand("read"));
    const bool is_name =
        name < arguments.size() && subcommand_named(explain, arguments[name]) == nullptr;
    if (is_name) arguments.insert(arguments.begin() + static_cast<std::ptrdiff_t>(at) + 1, "read");
    return;
  }
  if (!is_at("help")) return;
  while (is_at("help")) arguments.erase(arguments.begin() + static_cast<std::ptrdiff_t>(at));
  const CLI::App* command = &app;
  for (; !names_below(*command).empty(); ++at) {
    at = next_word(arguments, at, app, *command);
    if (at == arguments.size()) break;
    command = subcommand_named(*command, arguments[at]);
    // Without "--help" the parser reports the unknown command.
    if (command == nullptr) return;
  }
  arguments.emplace_back("--help");
}

/// The number of letters to change, add or remove to turn one word into the other.
std::size_t distance(const std::string& one, const std::string& other) {
  std::vector<std::size_t> row(other.size() + 1);
  for (std::size_t i = 0; i < row.size(); ++i) row[i] = i;
  for (std::size_t i = 0; i < one.size(); ++i) {
    std::size_t diagonal = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < other.size(); ++j) {
      const std::size_t changed = diagonal + (one[i] == other[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, diagonal + 1});
    }
  }
  return row.back();
}

/// "; did you mean 'put'?" if a known word is similar.
std::string did_you_mean(const std::string& word, const std::vector<std::string>& known) {
  const std::string* best = nullptr;
  std::size_t least = word.size() < 4 ? 2 : 3;
  for (const std::string& each : known) {
    if (const std::size_t gap = distance(word, each); gap < least) {
      least = gap;
      best = &each;
    }
  }
  return best == nullptr ? "" : formatted("; did you mean '{}'?", *best);
}

std::vector<std::string> options_of(const CLI::App& command, const CLI::App& app) {
  std::vector<std::string> names;
  for (const CLI::App* each : {&command, &app}) {
    for (const CLI::Option* option : each->get_options()) {
      for (const std::string& name : option->get_lnames()) {
        if (name != "help") names.push_back("--" + name);
      }
    }
  }
  return names;
}

/// Whether a word only follows the argument "--", which ends the options.
bool is_behind_end_of_options(const std::string& word, std::span<const std::string> arguments) {
  const auto end = std::ranges::find(arguments, "--");
  return std::find(arguments.begin(), end, word) == end &&
         std::find(end, arguments.end(), word) != arguments.end();
}

/// What to do about an unexpected option: where it belongs, or which one is similar; can be empty.
/// @param name "stgctl init"
std::string hint_for(const std::string& word, std::span<const std::string> arguments,
                     const CLI::App& command, const CLI::App& app, const std::string& name) {
  const std::string option = word.substr(0, word.find('='));
  if (!option.starts_with('-')) return {};
  const bool is_known = command.get_option_no_throw(option) != nullptr;
  if (is_behind_end_of_options(word, arguments))
    return is_known ? formatted("; '{}' is an option only before '--'", option) : "";
  // Only an option before its command is known and still unexpected.
  if (is_known) return formatted("; '{}' follows the command: '{} {}'", option, name, option);
  return option.starts_with("--") ? did_you_mean(option, options_of(command, app)) : "";
}

/// Prints the requested help, or the error of an invalid command line. @return the exit code.
Exit tell_parse_result(const CLI::App& app, std::span<const std::string> arguments,
                       const CLI::ParseError& result, Output& out) {
  if (result.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    std::ostringstream text;
    app.exit(result, text, text);
    out.write(text.str());
    return Exit::kDone;
  }
  // The named command, as far as it was parsed.
  const CLI::App* command = &app;
  std::string name = "stgctl";
  while (!command->get_subcommands().empty()) {
    command = command->get_subcommands().front();
    name += " " + command->get_name();
  }
  const std::vector<std::string> remaining = app.remaining(true);
  const std::string first = remaining.empty() ? std::string() : remaining.front();
  const bool is_unknown_command = dynamic_cast<const CLI::RequiredError*>(&result) != nullptr &&
                                  !names_below(*command).empty() && !first.empty() &&
                                  !first.starts_with('-');
  if (is_unknown_command) {
    out.error(formatted("there is no command '{}'{}; '{} --help' lists them", shown(first),
                        did_you_mean(first, names_below(*command)), name));
    return Exit::kUsage;
  }
  // The parser returns them in reverse order.
  const std::string text = dynamic_cast<const CLI::ExtrasError*>(&result) != nullptr
                               ? "not expected: " + joined(remaining, " ")
                               : std::string(result.what());
  out.error(formatted("{}{}; see '{} --help'", shown(text),
                      hint_for(first, arguments, *command, app, name), name));
  return Exit::kUsage;
}

/// Splits "WORD:{a,b}".
void read_type(const std::string& type, OptionUsage& usage) {
  const std::size_t open = type.find(":{");
  usage.value = type.substr(0, open);
  if (open == std::string::npos || !type.ends_with('}')) return;
  const std::string_view choices = std::string_view(type).substr(open + 2);
  for (const std::string_view choice : split(choices.substr(0, choices.size() - 1), ','))
    usage.choices.emplace_back(choice);
}

OptionUsage usage_of(const CLI::Option& option) {
  OptionUsage usage;
  for (const std::string& name : option.get_snames()) usage.names.push_back("-" + name);
  for (const std::string& name : option.get_lnames()) usage.names.push_back("--" + name);
  const bool is_flag = option.get_items_expected_max() == 0;
  if (!is_flag) read_type(option.get_type_name(), usage);
  if (usage.names.empty()) usage.positional = usage.value;
  usage.description = option.get_description();
  usage.is_required = option.get_required();
  usage.is_repeated = option.get_items_expected_max() > 1;
  return usage;
}

void collect(const CLI::App& app, std::vector<std::string> path, std::vector<CommandUsage>& all) {
  CommandUsage usage;
  usage.path = path;
  usage.summary = app.get_description();
  usage.details = app.get_footer();
  for (const CLI::Option* option : app.get_options()) usage.options.push_back(usage_of(*option));
  std::vector<const CLI::App*> below;
  for (const CLI::App* sub : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (sub->get_group().empty()) continue;
    below.push_back(sub);
    usage.subcommands.push_back(sub->get_name());
  }
  all.push_back(std::move(usage));
  for (const CLI::App* sub : below) {
    path.push_back(sub->get_name());
    collect(*sub, path, all);
    path.pop_back();
  }
}

}  // namespace

void Arguments::add(const char* names, std::string& value, Type type, const char* description,
                    Rules rules) {
  for (const Rule& rule : rules) {
    if (rule.kind == Rule::Kind::kInitially) value = rule.words.front();
  }
  apply(*m_app->add_option(names, value, description), type, rules);
}

void Arguments::add(const char* names, std::size_t& value, Type type, const char* description,
                    Rules rules) {
  apply(*m_app->add_option(names, value, description), {type.name, is_count}, rules);
}

void Arguments::add(const char* names, std::vector<std::string>& values, Type type,
                    const char* description, Rules rules) {
  apply(*m_app->add_option(names, values, description), type, rules);
}

void Arguments::add_flag(const char* names, bool& value, const char* description, Rules rules) {
  apply(*m_app->add_flag(names, value, description), "", rules);
}

struct CommandLine::Parts {
  struct Leaf {
    CLI::App* app;
    Run run;
    Effect effect = Effect::kLooks;
  };
  const Leaf& named() const;

  Parts();
  void add(const Command& command);
  CLI::App& family(const std::string& name, Group group);

  CLI::App app{"Inspects, explains, checks and changes a storage tree.", "stgctl"};
  GlobalOptions options;
  std::map<std::string, CLI::App*> families;
  std::vector<Leaf> leaves;
};

CommandLine::Parts::Parts() {
  app.fallthrough();
  app.require_subcommand(1);
  app.set_version_flag("-V,--version", std::string("stgctl ") + VU_STGCTL_VERSION);
  app.get_formatter()->column_width(34);
  declare_global_options(app, options);
  for (const Command& command : all_commands()) add(command);
  // A command that is added later would inherit the footer.
  app.footer(
      "Every command that changes the tree takes --dry-run and asks first. Without a\n"
      "terminal it needs --yes. 'stgctl help COMMAND' says more.");
}

void CommandLine::Parts::add(const Command& command) {
  CLI::App* parent = &app;
  std::string name = command.name;
  if (const std::size_t blank = name.find(' '); blank != std::string::npos) {
    parent = &family(name.substr(0, blank), command.group);
    name = name.substr(blank + 1);
  }
  CLI::App& leaf = *parent->add_subcommand(name, command.summary);
  if (parent == &app) leaf.group(heading(command.group));
  if (!command.details.empty()) leaf.footer(command.details);
  if (command.effect != Effect::kLooks)
    leaf.add_flag("-n,--dry-run", options.dry_run, "Only show what would be done");
  if (command.effect == Effect::kChanges)
    leaf.add_flag("-y,--yes", options.yes, "Do not ask for confirmation");
  leaves.push_back({&leaf, command.action.declare(Arguments(leaf, options)), command.effect});
}

/// A command that only groups others, such as "keys" above "keys show".
CLI::App& CommandLine::Parts::family(const std::string& name, Group group) {
  auto [at, is_new] = families.try_emplace(name, nullptr);
  if (is_new) {
    at->second = app.add_subcommand(name, family_summary(name));
    at->second->group(heading(group))->require_subcommand(1);
  } else if (at->second->get_group() != heading(group)) {
    at->second->group("Inspect and change");
  }
  return *at->second;
}

CommandLine::CommandLine() : m_parts(std::make_unique<Parts>()) {}

CommandLine::~CommandLine() = default;

std::optional<Exit> CommandLine::parse(std::vector<std::string> arguments, Output& out) {
  GlobalOptions& options = m_parts->options;
  try {
    rewrite_shorthands(m_parts->app, arguments);
    // The parser reads the arguments from the last to the first, and removes them.
    std::vector<std::string> reversed(arguments.rbegin(), arguments.rend());
    m_parts->app.parse(std::move(reversed));
    if (!options.root.empty() && !options.storage.empty()) {
      throw CLI::ExcludesError("--root", "--storage");
    }
    take_owner_apart(options);
  } catch (const CLI::ParseError& result) {
    return tell_parse_result(m_parts->app, arguments, result, out);
  }
  return std::nullopt;
}

const GlobalOptions& CommandLine::options() const noexcept { return m_parts->options; }

const CommandLine::Parts::Leaf& CommandLine::Parts::named() const {
  return *std::find_if(leaves.begin(), leaves.end(),
                       [](const Leaf& leaf) { return leaf.app->parsed(); });
}

const Run& CommandLine::run() const { return m_parts->named().run; }

bool CommandLine::changes() const { return m_parts->named().effect != Effect::kLooks; }

std::vector<CommandUsage> CommandLine::usage() const {
  std::vector<CommandUsage> all;
  collect(m_parts->app, {}, all);
  return all;
}

}  // namespace stgctl
