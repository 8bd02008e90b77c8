
#include <memory>

#include "tools/admin/check.h"
#include "tools/stgctl/command.h"
#include "tools/stgctl/look.h"
#include "tools/stgctl/progress.h"
#include "tools/stgctl/text.h"

namespace stgctl {

namespace {

using admin::CheckSummary;
using admin::Finding;
using admin::FindingKind;
using admin::Severity;

struct Options {
  bool quick = false;
  bool full = false;
  bool strict = false;
  bool no_lock = false;
  bool codes = false;
  std::size_t path_limit = admin::sys::kPathLimit;
};

Style style_of(Severity severity) {
  if (severity == Severity::kError) return Style::kRed;
  return severity == Severity::kWarning ? Style::kYellow : Style::kBlue;
}

Exit show_codes(Context& context) {
  for (const FindingKind& kind : admin::finding_kinds()) {
    if (context.out().json()) {
      context.out().json_line("stgctl.check-codes/1", {{"code", kind.name},
                                                       {"severity", admin::name_of(kind.severity)},
                                                       {"meaning", kind.meaning},
                                                       {"remedy", kind.remedy}});
      continue;
    }
    context.out().print(
        "{}  {}\n    {}\n    {}\n", context.out().styled(Style::kBold, kind.name),
        context.out().styled(style_of(kind.severity), admin::name_of(kind.severity)), kind.meaning,
        kind.remedy);
  }
  return Exit::kDone;
}

void show(Context& context, const Finding& finding) {
  const FindingKind& kind = admin::kind_of(finding.code);
  if (context.out().json()) {
    Json fields;
    fields["record"] = "finding";
    fields["code"] = kind.name;
    fields["severity"] = admin::name_of(kind.severity);
    if (finding.area) fields["area"] = admin::name_of(*finding.area);
    put_name(fields, "owner", finding.owner);
    put_name(fields, "folder", finding.folder);
    put_name(fields, "name", finding.name);
    if (finding.line != 0) fields["line"] = finding.line;
    put_name(fields, "detail", finding.detail);
    context.out().json_line("stgctl.check/1", fields);
    return;
  }
  std::string where = shown(admin::sys::join(finding.folder, finding.name));
  if (finding.name.empty()) where = shown(finding.folder);
  if (finding.line != 0) where += formatted(" (line {})", finding.line);
  context.out().print("{} {}  {}{}{}\n",
                      context.out().styled(style_of(kind.severity),
                                           formatted("{:<7}", admin::name_of(kind.severity))),
                      context.out().styled(Style::kBold, kind.name), where,
                      finding.detail.empty() ? "" : ": ", shown(finding.detail));
}

void show_summary(Context& context, const CheckSummary& summary, admin::Depth depth) {
  const auto count = [&](Severity severity) { return summary.count(severity); };
  if (context.out().json()) {
    Json fields;
    fields["record"] = "summary";
    fields["depth"] = depth == admin::Depth::kFull ? "full" : "quick";
    fields["folders"] = summary.folders;
    fields["entries"] = summary.entries;
    fields["files"] = summary.files;
    fields["errors"] = count(Severity::kError);
    fields["warnings"] = count(Severity::kWarning);
    fields["infos"] = count(Severity::kInfo);
    fields["interrupted"] = summary.was_stopped;
    fields["codes"] = Json::object();
    for (const FindingKind& kind : admin::finding_kinds()) {
      const std::uint64_t found = summary.findings[static_cast<std::size_t>(kind.code)];
      if (found != 0) fields["codes"][std::string(kind.name)] = found;
    }
    context.out().json_line("stgctl.check/1", fields);
    return;
  }
  const std::string counts = formatted("{} errors, {} warnings, {} infos", count(Severity::kError),
                                       count(Severity::kWarning), count(Severity::kInfo));
  const bool clean =
      count(Severity::kError) + count(Severity::kWarning) + count(Severity::kInfo) == 0;
  context.out().print(
      "{} folders, {} entries, {} files: {}\n", summary.folders, summary.entries, summary.files,
      context.out().styled(clean ? Style::kGreen : Style::kBold, clean ? "nothing found" : counts));
}

Exit run_check(Context& context, const Options& options) {
  if (options.codes) return show_codes(context);
  admin::CheckOptions asked;
  asked.scope = context.scope();
  asked.depth = options.quick ? admin::Depth::kQuick : admin::Depth::kFull;
  asked.locking = locking_for(context, options.no_lock);
  asked.path_limit = options.path_limit;
  asked.stop = &Context::interrupt_flag();
  const admin::Tree& tree = context.tree();
  CheckSummary summary;
  {
    Progress progress(context.out(), context.options().progress, "checking", 0);
    asked.on_folder = [&](const admin::DocumentFolder& folder) {
      progress.advance(1, folder.path);
    };
    summary = admin::check(tree, asked, [&](const Finding& finding) { show(context, finding); });
  }
  show_summary(context, summary, asked.depth);
  if (summary.was_stopped) return Exit::kInterrupted;
  const std::uint64_t problems = summary.count(Severity::kError) +
                                 summary.count(Severity::kWarning) +
                                 (options.strict ? summary.count(Severity::kInfo) : 0);
  return problems == 0 ? Exit::kDone : Exit::kProblemsFound;
}

Run declare(Arguments& app) {
  auto options = std::make_shared<Options>();
  const Argument quick =
      app.add_flag("--quick", options->quick, "Names and indexes only: no file is asked for");
  app.add_flag("--full", options->full, "Sizes, times, key files and parts as well (the default)")
      .excludes(quick);
  app.add_flag("--strict", options->strict, "Findings that are mere information count as problems");
  app.add_option("--path-limit", options->path_limit, "The longest path that counts as usable")
      .type_name("BYTES");
  app.add_flag("--codes", options->codes, "List what can be found, with meanings and remedies");
  add_no_lock(app, options->no_lock);
  return [options](Context& context) { return run_check(context, *options); };
}

}  // namespace

void add_check_command(Commands& commands) {
  commands.push_back(
      {"check", Group::kCheck, Effect::kLooks, "Find what is wrong in a tree, and change nothing",
       declare,
       "Each finding has a stable code and a severity. The exit code is 4 when there is an error\n"
       "or a warning, with --strict also for mere information. --area and --owner narrow the\n"
       "check down."});
}

}  // namespace stgctl
