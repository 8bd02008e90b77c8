// undo, quarantine list and quarantine expire.

#include "client/stgctl/command.h"
#include "client/stgctl/repair_work.h"
#include "client/stgctl/report.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

using admin::LockedFile;

struct Options {
  Arguments app;
  QuarantineOption quarantine{app};
};

struct ExpireOptions {
  Arguments app;
  QuarantineOption quarantine{app};
  Flag all{app, "--all", "Also plans that can still be undone"};
};

/// The last plan that was applied to this tree and not undone.
AppliedPlan last_plan(Context& context, const std::string& quarantine) {
  const std::vector<std::uint64_t> numbers = applied_plans(quarantine);
  const LockedFile::For purpose =
      context.options().dry_run ? LockedFile::For::kReading : LockedFile::For::kChanging;
  for (auto number = numbers.rbegin(); number != numbers.rend(); ++number) {
    AppliedPlan plan = AppliedPlan::open(context, quarantine, *number, purpose);
    if (plan.is_undone() || plan.steps().empty()) continue;
    if (plan.storage() != context.tree().storage) {
      throw Failure(Exit::kRefused,
                    formatted("plan {} in {} belongs to another tree, {}; name another quarantine "
                              "with --quarantine",
                              plan.number(), shown(quarantine), shown(plan.storage())));
    }
    if (plan.expires() <= os::now()) {
      throw Failure(Exit::kRefused,
                    formatted("plan {} expired on {} UTC; it can no longer be undone",
                              plan.number(), format_time(plan.expires())));
    }
    return plan;
  }
  throw Failure(Exit::kNothingMatched,
                formatted("there is no plan to undo in {}", shown(quarantine)));
}

Exit run_undo(Context& context, const Options& options) {
  context.tree();
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  AppliedPlan plan = last_plan(context, quarantine);
  const bool dry = context.options().dry_run;
  if (!dry) {
    context.confirm(formatted("Undo the {} repairs of plan {} from {} UTC?", plan.steps().size(),
                              plan.number(), format_time(plan.time())));
  }
  ChangeReport report(context, "stgctl.undo/1", "undone");
  const bool all = report.guarded([&] {
    const std::vector<Step> steps = plan.steps();
    for (auto step = steps.rbegin(); step != steps.rend(); ++step) {
      if (Context::interrupted()) return false;
      const Worked worked = undo_step(context, plan, *step, dry);
      const Subject subject{"", "", step->repair.path, std::nullopt};
      if (worked.how == Worked::How::kDone) {
        report.done(subject, fields_of(step->repair),
                    formatted("{}{}{}", name_of(step->repair.kind), worked.text.empty() ? "" : " ",
                              worked.text));
      } else if (worked.how == Worked::How::kSkipped) {
        report.skipped(subject, worked.text);
      } else {
        report.failed(subject, worked.text);
      }
    }
    return true;
  });
  if (!dry && all && report.failures() == 0) note(context, [&] { plan.note_undone(); });
  return report.finish({{"number", plan.number()}});
}

// ---- the quarantine ----------------------------------------------------------------------------

const char* state_of(const AppliedPlan& plan) {
  if (plan.is_undone()) return "undone";
  if (plan.expires() <= os::now()) return "expired";
  return plan.is_complete() ? "applied" : "unfinished";
}

Exit run_list(Context& context, const Options& options) {
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  Output& out = context.out();
  const std::vector<std::uint64_t> numbers = applied_plans(quarantine);
  for (const std::uint64_t number : numbers) {
    const AppliedPlan plan =
        AppliedPlan::open(context, quarantine, number, LockedFile::For::kReading);
    if (out.json()) {
      Json fields = {{"record", "plan"},          {"number", number},
                     {"state", state_of(plan)},   {"time", plan.time()},
                     {"expires", plan.expires()}, {"steps", plan.steps().size()}};
      put_name(fields, "storage", plan.storage());
      out.json_line("stgctl.quarantine-list/1", fields);
      continue;
    }
    out.print("{}  {}  {:<10}  {} repairs, until {} UTC\n",
              out.styled(Style::kBold, formatted("{:>6}", number)), format_time(plan.time()),
              state_of(plan), plan.steps().size(), format_time(plan.expires()));
  }
  if (numbers.empty())
    throw Failure(Exit::kNothingMatched, "there is no plan in " + shown(quarantine));
  return Exit::kDone;
}

Exit run_expire(Context& context, const ExpireOptions& options) {
  context.tree();
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  std::vector<std::uint64_t> over;
  for (const std::uint64_t number : applied_plans(quarantine)) {
    const AppliedPlan plan =
        AppliedPlan::open(context, quarantine, number, LockedFile::For::kReading);
    const bool is_ours = plan.storage() == context.tree().storage;
    const bool is_over = plan.is_undone() || plan.expires() <= os::now();
    if (is_ours && (options.all || is_over)) over.push_back(number);
  }
  if (over.empty()) {
    throw Failure(Exit::kNothingMatched,
                  "no plan in the quarantine has expired or was undone; 'stgctl quarantine list' "
                  "shows when plans expire");
  }
  const bool dry = context.options().dry_run;
  if (!dry) {
    context.confirm(formatted("Delete what {} plans moved away?", over.size()));
  }
  ChangeReport report(context, "stgctl.quarantine-expire/1", "removed");
  for (const std::uint64_t number : over) {
    if (Context::interrupted()) break;
    const Subject subject{"", "", formatted("plan {}", number), std::nullopt};
    try {
      const std::uint64_t bytes = dry ? 0 : remove_plan(quarantine, number);
      report.done(subject, {{"number", number}}, dry ? "" : format_bytes(bytes));
    } catch (const Failure& failure) {
      report.failed(subject, failure.what());
    }
  }
  return report.finish();
}

}  // namespace

Commands undo_commands() {
  return {{"undo", Group::kChange, Effect::kChanges, "Undo the repairs of the last plan", run_undo,
           "Brings back what 'repair' removed, last step first, until the plan expires.\n"
           "Lines return beside newer ones. What cannot return stays in the quarantine. Run the\n"
           "command again to continue an interrupted undo."},
          {"quarantine list", Group::kChange, Effect::kLooks, "List the plans in the quarantine",
           run_list},
          {"quarantine expire", Group::kChange, Effect::kChanges,
           "Delete what undone and expired plans moved away", run_expire,
           "Only plans of this tree. 'repair --apply --expire' does the same for expired\n"
           "plans. No other command deletes them."}};
}

}  // namespace stgctl
