
#include <memory>

#include "client/admin/check.h"
#include "client/stgctl/check_report.h"
#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/progress.h"
#include "client/stgctl/text.h"

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
  bool all = false;
  std::size_t path_limit = admin::sys::kPathLimit;
};

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
  CheckReport report(context, options.all ? Lists::kWhole : Lists::kCut);
  {
    Progress progress(context.out(), context.options().progress, "checking", 0);
    asked.on_folder = [&](const admin::DocumentFolder& folder) {
      progress.advance(1, folder.path);
    };
    summary = admin::check(tree, asked, [&](const Finding& finding) { report.add(finding); });
  }
  // A name that is mistyped must not pass for sound.
  if (asked.scope.owner && summary.folders == 0 && report.is_empty() && !summary.was_stopped)
    return Exit::kNothingMatched;
  report.finish(summary, asked.depth == admin::Depth::kFull);
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
  app.add_flag("--all", options->all, "Every finding; else ten of a kind in a folder");
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
       "or a warning, with --strict also for mere information. At the end stand the sums, how\n"
       "many documents are not served, and the next command. Indexes, counters and folders are\n"
       "tried for writing, so run it as the programs do. --area and --owner narrow it down."});
}

}  // namespace stgctl
