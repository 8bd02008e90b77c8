#include <array>
#include <sstream>

#include "client/stgctl/command.h"
#include "client/stgctl/command_line.h"

namespace stgctl {

namespace {

constexpr const char* kBegin = R"(.SH DESCRIPTION
.B stgctl
inspects, explains, checks and changes a storage tree: the folder "storage" with its areas
docs, user, mail, list and semlets. Its layout is described in
.BR stgctl-tree (7).
A command that only reads changes no byte, no name and no modification time. A command that
changes the tree uses the storage library, or works under its locks and by its rules. It takes
.BR --dry-run ,
asks first, and without a terminal needs
.BR --yes .
.PP
Results go to the standard output, all other messages to the standard error. With
.B --json
each line is one object. Its field "schema" contains the name and version of the form. Names are
bytes. A name that is not valid UTF-8 is printed with U+FFFD; JSON contains its bytes in a second
field whose name ends in "_hex".
.PP
After Ctrl-C or SIGTERM the program finishes the current entry, or the current batch of entries,
and prints the results. A second signal ends it at once.
)";

constexpr std::array<std::pair<Exit, const char*>, 10> kExits = {
    {{Exit::kDone, "Done."},
     {Exit::kFailed, "Failed; no part of the request was done."},
     {Exit::kUsage, "The command line is not valid."},
     {Exit::kNothingMatched, "Nothing in the tree matches the request."},
     {Exit::kProblemsFound, "A check found problems."},
     {Exit::kPartlyDone, "Some of the work was done, some failed."},
     {Exit::kNoTree, "There is no storage tree."},
     {Exit::kLockTimeout, "A lock was not obtained in time."},
     {Exit::kRefused, "Refused: unsafe, or not confirmed."},
     {Exit::kInterrupted, "Interrupted."}}};

constexpr const char* kEnd = R"(.SH ENVIRONMENT
.TP
.B STG_ROOT
The folder that contains "storage", if neither
.B --root
nor
.B --storage
is given.
.TP
.B NO_COLOR
If it is set and not empty, the output has no colours, unless
.B --color always
is given.
.SH SEE ALSO
.BR stgctl-index (5),
.BR stgctl-tree (7)
)";

/// Text for roff: no line begins with a control character, and hyphens stay hyphens.
std::string roff(const std::string& text) {
  std::string result;
  bool at_begin = true;
  for (const char c : text) {
    if (at_begin && (c == '.' || c == '\'')) result += "\\&";
    result += c == '\\' ? "\\e" : c == '-' ? "\\-" : std::string(1, c);
    at_begin = c == '\n';
  }
  return result;
}

/// Paragraphs; lines that begin with blanks stay lines.
std::string paragraphs(const std::string& text) {
  std::istringstream lines(text);
  std::string result;
  for (std::string line; std::getline(lines, line);) {
    if (line.starts_with("  ")) {
      result += ".br\n" + roff(line.substr(2)) + "\n";
    } else {
      result += line.empty() ? ".PP\n" : roff(line) + "\n";
    }
  }
  return result;
}

std::string option_entry(const OptionUsage& option) {
  std::string head;
  for (const std::string& name : option.names) {
    head += formatted("{}\\fB{}\\fR", head.empty() ? "" : ", ", roff(name));
  }
  if (head.empty()) {
    head = formatted("\\fI{}\\fR{}", roff(option.positional), option.is_repeated ? " ..." : "");
  } else if (!option.value.empty()) {
    head += formatted(" \\fI{}\\fR", roff(option.value));
  }
  std::string text = formatted(".TP\n{}\n{}", head, roff(option.description));
  if (!option.choices.empty()) text += formatted(": {}", roff(joined(option.choices, ", ")));
  return text + ".\n";
}

std::string synopsis(const CommandUsage& command) {
  std::string line = formatted(".B stgctl {}\n", roff(command.name()));
  std::string arguments = "[\\fIoptions\\fR]";
  for (const OptionUsage& option : command.options) {
    if (option.positional.empty()) continue;
    const std::string word =
        formatted("\\fI{}\\fR{}", roff(option.positional), option.is_repeated ? " ..." : "");
    arguments += option.is_required ? " " + word : " [" + word + "]";
  }
  return line + arguments + "\n";
}

bool is_help(const OptionUsage& option) {
  return !option.names.empty() && option.names.back() == "--help";
}

std::string command_section(const CommandUsage& command) {
  std::string text = formatted(".SS {}\n{}.PP\n{}.\n", roff(command.name()), synopsis(command),
                               roff(command.summary));
  if (!command.details.empty()) text += paragraphs(command.details);
  for (const OptionUsage& option : command.options) {
    if (!is_help(option)) text += option_entry(option);
  }
  return text;
}

/// The page stgctl(1) as roff.
std::string manual_page(const std::vector<CommandUsage>& usage) {
  const CommandUsage& program = usage.front();
  std::string page = formatted(
      ".\\\" Written by \"stgctl manual\"; change the program, not this file.\n"
      ".TH STGCTL 1 \"\" \"stgctl {}\"\n"
      ".SH NAME\n"
      "stgctl \\- inspect, explain, check and change a storage tree\n"
      ".SH SYNOPSIS\n"
      ".B stgctl\n"
      "[\\fIoptions\\fR] \\fIcommand\\fR [\\fIarguments\\fR]\n",
      VU_STGCTL_VERSION);
  page += kBegin;
  page +=
      ".SH OPTIONS\n"
      "Every command accepts these options, before or after its name.\n";
  for (const OptionUsage& option : program.options) page += option_entry(option);
  page += ".SH COMMANDS\n";
  for (const CommandUsage& command : usage) {
    // A family runs nothing itself.
    if (command.path.empty() || !command.subcommands.empty()) continue;
    page += command_section(command);
  }
  page += ".SH EXIT STATUS\n";
  for (const auto& [code, text] : kExits)
    page += formatted(".TP\n.B {}\n{}\n", static_cast<int>(code), text);
  return page + kEnd;
}

Exit run_manual(Context& context) {
  context.out().write(manual_page(context.command_line().usage()));
  return Exit::kDone;
}

}  // namespace

Commands manual_command() {
  return {{"manual", Group::kHidden, Effect::kLooks, "Write the manual page", run_manual}};
}

}  // namespace stgctl
