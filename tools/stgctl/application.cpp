#include "tools/stgctl/application.h"

#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <exception>
#include <map>

#include "tools/stgctl/command.h"
#include "tools/stgctl/context.h"
#include "tools/stgctl/output.h"
#include "tools/stgctl/terminal.h"
#include "tools/stgctl/text.h"
#include "vu_file_except.h"

namespace stgctl {

namespace {

/// The global options as they are typed; the texts are read when the whole line has been.
struct Typed {
  std::string layout = "auto";
  std::string lock_timeout = "30";
  std::string color = "auto";
  std::string progress = "auto";
  std::string trace;
};

const std::vector<std::string> kWhen = {"auto", "always", "never"};
const std::vector<std::string> kLayouts = {"auto", "owner", "flat"};
const std::vector<std::string> kLevels = {"xs", "s", "m", "l", "xl"};

const char* heading(Group group) {
  switch (group) {
    case Group::kLook:
      return "Look";
    case Group::kExplain:
      return "Explain";
    case Group::kCheck:
      return "Check";
    case Group::kChange:
      return "Change";
    case Group::kHidden:
      return "";
    default:
      return "Other";
  }
}

template <class Enum>
Enum chosen(const std::vector<std::string>& names, const std::string& name) {
  const auto found = std::find(names.begin(), names.end(), name);
  return static_cast<Enum>(found - names.begin());
}

std::string check_timeout(const std::string& text) {
  if (text == "none") return {};
  double seconds = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
  const bool good =
      error == std::errc() && end == text.data() + text.size() && seconds >= 0 && seconds < 1e9;
  return good ? std::string() : "'" + text + "' is neither a number of seconds nor 'none'";
}

std::vector<std::string> area_names() {
  std::vector<std::string> names;
  for (const admin::Area area : admin::kAreas) names.emplace_back(admin::name_of(area));
  return names;
}

void declare_global_options(CLI::App& app, GlobalOptions& options, Typed& typed) {
  const char* const tree = "The tree";
  app.add_option("--root", options.root,
                 "The folder above 'storage', as the library was initialised with "
                 "(environment: STG_ROOT)")
      ->type_name("DIR")
      ->group(tree);
  app.add_option("--storage", options.storage, "The storage folder itself")
      ->type_name("DIR")
      ->group(tree);
  app.add_option("--layout", typed.layout, "With a folder per owner, or flat without")
      ->type_name("WORD")
      ->check(CLI::IsMember(kLayouts))
      ->group(tree);
  app.add_option("--area", options.area, "The area of the repository")
      ->type_name("WORD")
      ->check(CLI::IsMember(area_names()))
      ->group(tree);
  app.add_option("--owner", options.owner, "The user or domain")->type_name("NAME")->group(tree);

  const char* const shape = "Output";
  app.add_flag("--json", options.json, "Results as JSON")->group(shape);
  app.add_option("--color", typed.color, "Colours")
      ->type_name("WORD")
      ->check(CLI::IsMember(kWhen))
      ->group(shape);
  app.add_option("--progress", typed.progress, "The progress bar")
      ->type_name("WORD")
      ->check(CLI::IsMember(kWhen))
      ->group(shape);

  const char* const work = "Work";
  app.add_option("--lock-timeout", typed.lock_timeout,
                 "How long to wait for a lock, in seconds, or 'none' for ever (30)")
      ->type_name("SECONDS")
      ->check(CLI::Validator(check_timeout, ""))
      ->group(work);
  app.add_option("--trace", typed.trace, "Write what the library traces, up to this level")
      ->type_name("LEVEL")
      ->check(CLI::IsMember(kLevels, CLI::ignore_case))
      ->group(work);
  app.add_option("--trace-file", options.trace_file, "Where to, instead of the error output")
      ->type_name("FILE")
      ->group(work);
}

void read_typed(const Typed& typed, GlobalOptions& options) {
  options.layout = chosen<admin::Layout>(kLayouts, typed.layout);
  options.color = chosen<When>(kWhen, typed.color);
  options.progress = chosen<When>(kWhen, typed.progress);
  if (!typed.trace.empty()) {
    options.trace = chosen<vu_host::trace_level>(kLevels, CLI::detail::to_lower(typed.trace));
  }
  options.lock_timeout.reset();
  if (typed.lock_timeout != "none") {
    double seconds = 0;
    std::from_chars(typed.lock_timeout.data(),
                    typed.lock_timeout.data() + typed.lock_timeout.size(), seconds);
    options.lock_timeout = std::chrono::milliseconds(static_cast<std::int64_t>(seconds * 1000));
  }
}

/// The command line as a whole: the application with all its commands, and what each one runs.
class CommandLine {
 public:
  CommandLine() : m_app("Looks at, explains, checks and changes a storage tree.", "stgctl") {
    m_app.fallthrough();
    m_app.require_subcommand(1);
    m_app.set_version_flag("--version", std::string("stgctl ") + VU_STGCTL_VERSION);
    m_app.get_formatter()->column_width(34);
    m_app.footer(
        "Every changing command takes --dry-run, asks before it changes anything, and needs --yes\n"
        "where nobody can answer. 'stgctl COMMAND --help' tells more.");
    declare_global_options(m_app, m_options, m_typed);
    Commands commands;
    add_all_commands(commands);
    for (const Command& command : commands) add(command);
  }

  CLI::App& app() { return m_app; }
  const GlobalOptions& options() const { return m_options; }

  void parse(std::vector<std::string> arguments) {
    // The parser takes them from the back.
    std::reverse(arguments.begin(), arguments.end());
    m_app.parse(arguments);
    if (!m_options.root.empty() && !m_options.storage.empty()) {
      throw CLI::ExcludesError("--root", "--storage");
    }
    read_typed(m_typed, m_options);
  }

  /// What the command that was named runs.
  const Run& run() const {
    const auto named = std::find_if(m_leaves.begin(), m_leaves.end(),
                                    [](const Leaf& leaf) { return leaf.app->parsed(); });
    return named->run;
  }

 private:
  struct Leaf {
    CLI::App* app;
    Run run;
  };

  void add(const Command& command) {
    CLI::App* parent = &m_app;
    std::string name = command.name;
    if (const std::size_t blank = name.find(' '); blank != std::string::npos) {
      parent = &family(name.substr(0, blank), command.group);
      name = name.substr(blank + 1);
    }
    std::string description = command.summary;
    CLI::App& leaf = *parent->add_subcommand(name, description);
    if (parent == &m_app) leaf.group(heading(command.group));
    if (!command.details.empty()) leaf.footer(command.details);
    if (command.effect == Effect::kChanges) {
      leaf.add_flag("-n,--dry-run", m_options.dry_run, "Only tell what would be done");
      leaf.add_flag("-y,--yes", m_options.yes, "Do it without asking");
    }
    m_leaves.push_back({&leaf, command.declare(leaf)});
  }

  /// The command that others stand below, such as "keys" above "keys show".
  CLI::App& family(const std::string& name, Group group) {
    auto [at, is_new] = m_families.try_emplace(name, nullptr);
    if (is_new) {
      at->second = m_app.add_subcommand(name, family_summary(name));
      at->second->group(heading(group))->require_subcommand(1);
    }
    return *at->second;
  }

  CLI::App m_app;
  GlobalOptions m_options;
  Typed m_typed;
  std::map<std::string, CLI::App*> m_families;
  std::vector<Leaf> m_leaves;
};

/// @return the exit code of a command line that is no request, or is wrong.
Exit tell_parse_result(const CLI::App& app, const CLI::ParseError& result, Output& out) {
  if (result.get_exit_code() == static_cast<int>(CLI::ExitCodes::Success)) {
    std::ostringstream text;
    app.exit(result, text, text);
    out.write(text.str());
    return Exit::kDone;
  }
  const std::vector<std::string> remaining = app.remaining();
  if (dynamic_cast<const CLI::RequiredError*>(&result) != nullptr &&
      app.get_subcommands().empty() && !remaining.empty()) {
    out.error(fmt::format("there is no command '{}'; 'stgctl --help' lists them",
                          shown(remaining.front())));
    return Exit::kUsage;
  }
  out.error(fmt::format("{}; 'stgctl --help' tells more", shown(std::string_view(result.what()))));
  return Exit::kUsage;
}

Exit run_guarded(const Run& run, Context& context) {
  Output& out = context.out();
  try {
    const Exit result = run(context);
    out.flush();
    return result;
  } catch (const Failure& failure) {
    out.error(failure.what());
    return failure.code();
  } catch (const vu_file_except& failure) {
    out.error("a file of the tree cannot be opened or read: " + failure.what() +
              "; --trace m tells which one");
  } catch (const std::exception& failure) {
    out.error(shown(std::string_view(failure.what())));
  }
  return Exit::kFailed;
}

}  // namespace

Exit run_application(const std::vector<std::string>& arguments) {
  Output out;
  try {
    CommandLine line;
    try {
      line.parse(arguments);
    } catch (const CLI::ParseError& result) {
      const Exit code = tell_parse_result(line.app(), result, out);
      out.flush();
      return code;
    }
    out.configure(line.options());
    terminal::watch_interrupt();
    Context context(line.options(), out, line.app());
    return run_guarded(line.run(), context);
  } catch (const Failure& failure) {
    out.error(failure.what());
    return failure.code();
  }
}

}  // namespace stgctl
