// repair, undo, quarantine list and quarantine expire.

#include "client/stgctl/change_report.h"
#include "client/stgctl/names_file.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/repair.h"

namespace stgctl {

using admin::LockedFile;

namespace {

constexpr const char* kSchema = "stgctl.repair/1";

std::string is_code(const std::string& text) {
  return admin::code_named(text)
             ? std::string()
             : "'" + text + "' is not a code; list them with 'stgctl check --codes'";
}

struct RepairOptions : Arguments {
  TextOption plan{*this, "--plan", "FILE", "Check the tree, and write a plan of repairs"};
  TextOption apply{*this, "--apply", "FILE", "Carry out the plan in such a file",
                   excludes("--plan")};
  ListOption only{
      *this, "--only", {"CODE", is_code}, "Plan only for findings of this code; may be repeated"};
  Flag force{*this, "--force",
             "With --plan: also plan what empties a folder or removes most of it"};
  Flag expire{*this, "--expire", "With --apply: also delete what expired plans moved away"};
  QuarantineOption quarantine{*this};
  TextOption keep{*this, "--keep", kAge, "How long 'undo' is possible (30d)", initially("30d")};
};

struct QuarantineOptions : Arguments {
  QuarantineOption quarantine{*this};
};

struct ExpireOptions : Arguments {
  QuarantineOption quarantine{*this};
  Flag all{*this, "--all", "Also plans that can still be undone"};
};

std::string in_words(const Repair& repair) {
  std::string text = formatted("{} ({}", name_of(repair.kind), repair.code);
  if (!repair.lines.empty()) text += formatted(", {} lines", repair.lines.size());
  if (repair.kind == RepairKind::kSetCounter) text += ", to " + repair.value;
  if (repair.kind == RepairKind::kQuarantine && !repair.is_folder)
    text += ", " + format_bytes(repair.bytes);
  return text + ")";
}

/// Reports the result of a repair, or of its undo, under its path below the storage folder.
void tell(ChangeReport& report, const Repair& repair, const Worked& worked) {
  const Subject subject = subject_named(repair.path);
  switch (worked.how) {
    case Worked::How::kSkipped: return report.skipped(subject, worked.text);
    case Worked::How::kFailed: return report.failed(subject, worked.text);
    default:
      return report.done(
          subject, fields_of(repair),
          formatted("{}{}{}", name_of(repair.kind), worked.text.empty() ? "" : " ", worked.text));
  }
}

/// Records in a manifest that all is done. If that fails, it only warns: a repeated command finds
/// nothing left to do and records it then.
void note(Context& context, AppliedPlan& plan, void (AppliedPlan::*noting)()) {
  try {
    (plan.*noting)();
  } catch (const Failure& failure) {
    context.out().warning(failure.what());
  }
}

// ---- what older plans keep ---------------------------------------------------------------------

/// The expired plans. @param own the plan in use, which is locked; 0 for none.
std::vector<std::uint64_t> expired_plans(Context& context, const std::string& quarantine,
                                         std::uint64_t own = 0) {
  const auto is_expired = [](const PlanRecord& plan) { return plan.is_expired(); };
  return plans_of_tree(context, quarantine, is_expired, own);
}

/// A text about expired plans, or empty.
std::string told_of_expired(Context& context, const std::string& quarantine,
                            std::uint64_t own = 0) {
  const std::size_t count = expired_plans(context, quarantine, own).size();
  if (count == 0) return {};
  return formatted("; {} older plans have expired; 'quarantine expire' removes them", count);
}

// ---- planning ----------------------------------------------------------------------------------

Exit run_plan(Context& context, const RepairOptions& options) {
  const std::string file = place_outside(context, options.plan);
  const bool overwrites = is_file_at(file);
  const RepairPlan plan =
      make_plan(context, options.only, options.force ? Emptying::kAllowed : Emptying::kSpared);
  for (const std::string& spared : plan.spared) {
    context.out().warning(spared +
                          "; not planned. Restore what is missing first ('stgctl index restore', a "
                          "backup), or use --force");
  }
  for (const std::string& cost : plan.costs) context.out().warning(cost);
  if (plan.repairs.empty()) {
    throw Failure(
        Exit::kNothingMatched,
        plan.left.empty()
            ? "nothing needs a repair"
            : formatted("{} findings, none of which repair can mend; list them with 'stgctl check'",
                        plan.left.size()));
  }
  ChangeReport report(context, kSchema, "planned");
  for (const Repair& repair : plan.repairs)
    report.done(subject_named(repair.path), fields_of(repair), in_words(repair));
  if (!context.is_dry_run()) {
    if (overwrites) context.confirm(formatted("Overwrite {}?", shown(file)));
    write_file(file, text_of(plan));
  }
  Json sums = {{"left", plan.left.size()}};
  sums["file"] = file;
  return report.finish(
      sums, formatted("{} findings not repaired{}", plan.left.size(),
                      told_of_expired(context, quarantine_folder(context, options.quarantine))));
}

// ---- applying ----------------------------------------------------------------------------------

RepairPlan plan_in(Context& context, const std::string& file, std::string& text) {
  const os::Status read = sys::read_file(file, context.locking(), text);
  if (!read.ok()) fail("{}: {}", shown(file), sys::text_of(read));
  RepairPlan plan = read_plan(context, text);
  if (plan.repairs.empty()) not_found("{} contains no repairs", shown(file));
  for (const std::string& cost : plan.costs) context.out().warning(cost);
  return plan;
}

Exit run_apply(Context& context, const RepairOptions& options) {
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  std::string text;
  const RepairPlan plan = plan_in(context, options.apply, text);
  const std::size_t expired = expired_plans(context, quarantine).size();
  if (!context.is_dry_run()) {
    const std::string for_good =
        options.expire && expired != 0
            ? formatted(" What {} expired plans moved away is deleted.", expired)
            : "";
    context.confirm(formatted("Apply {} repairs? What they remove is kept in {}.{}",
                              plan.repairs.size(), shown(quarantine), for_good));
  }
  ChangeReport report(context, kSchema, "repaired");
  WorkPlan work(context, quarantine, admin::checksum_of(text), parse_age(options.keep).value_or(0));
  bool all = false;
  report.guarded("repairing", plan.repairs.size(), [&](Progress& progress) {
    for (const Repair& repair : plan.repairs) {
      Context::stop_if_interrupted();
      try {
        tell(report, repair, do_repair(context, repair, work));
      } catch (const Failure& failure) {
        if (failure.code() != Exit::kFailed) throw;
        // The manifest cannot be written, so no further repair is allowed.
        return report.failed(subject_named(repair.path), failure);
      }
      progress.advance(1, repair.path);
    }
    all = true;
  });
  Json sums = Json::object();
  std::string tail;
  std::uint64_t own = 0;
  if (AppliedPlan* const applied = work.begun()) {
    // After a failure the same plan can be applied again, and continues in the same place.
    if (all && report.failures() == 0) note(context, *applied, &AppliedPlan::note_complete);
    const PlanRecord& record = applied->record();
    own = record.number;
    sums["number"] = own;
    sums["expires"] = record.expires;
    tail = formatted("plan {} can be undone until {} UTC", own, format_time(record.expires));
  }
  if (options.expire && !context.is_dry_run() && all) {
    const std::vector<std::uint64_t> over = expired_plans(context, quarantine, own);
    for (const std::uint64_t number : over) remove_plan(quarantine, number);
    sums["expired"] = over.size();
    if (!over.empty()) tail += formatted(", {} expired plans deleted", over.size());
  } else {
    tail += told_of_expired(context, quarantine, own);
  }
  return report.finish(sums, tail);
}

Exit run_repair(Context& context, const RepairOptions& options) {
  if (options.plan.empty() == options.apply.empty())
    misused("no plan is named; write one with --plan FILE, then carry it out with --apply FILE");
  context.tree();
  return options.plan.empty() ? run_apply(context, options) : run_plan(context, options);
}

// ---- undoing -----------------------------------------------------------------------------------

/// The last plan that was applied to this tree and not undone.
AppliedPlan last_plan(Context& context, const std::string& quarantine) {
  const std::vector<std::uint64_t> numbers = applied_plans(quarantine);
  const LockedFile::For purpose =
      context.is_dry_run() ? LockedFile::For::kReading : LockedFile::For::kChanging;
  for (auto number = numbers.rbegin(); number != numbers.rend(); ++number) {
    AppliedPlan plan(context, quarantine, *number, purpose);
    const PlanRecord& record = plan.record();
    if (record.is_undone || record.steps.empty()) continue;
    if (record.storage != context.tree().storage)
      refuse("plan {} in {} belongs to another tree, {}; name another quarantine with --quarantine",
             record.number, shown(quarantine), shown(record.storage));
    if (record.is_expired())
      refuse("plan {} expired on {} UTC; it can no longer be undone", record.number,
             format_time(record.expires));
    return plan;
  }
  not_found("there is no plan to undo in {}", shown(quarantine));
}

Exit run_undo(Context& context, const QuarantineOptions& options) {
  context.tree();
  AppliedPlan plan = last_plan(context, quarantine_folder(context, options.quarantine));
  const PlanRecord& record = plan.record();
  const std::vector<RepairStep> last_first(record.steps.rbegin(), record.steps.rend());
  if (!context.is_dry_run()) {
    context.confirm(formatted("Undo the {} repairs of plan {} from {} UTC?", last_first.size(),
                              record.number, format_time(record.time)));
  }
  ChangeReport report(context, "stgctl.undo/1", "undone");
  const bool all = report.guarded([&] {
    for (const RepairStep& step : last_first) {
      Context::stop_if_interrupted();
      tell(report, step.repair, undo_step(context, plan, step));
    }
  });
  if (!context.is_dry_run() && all && report.failures() == 0)
    note(context, plan, &AppliedPlan::note_undone);
  return report.finish({{"number", record.number}});
}

// ---- the quarantine ----------------------------------------------------------------------------

const char* state_of(const PlanRecord& plan) {
  if (plan.is_undone) return "undone";
  if (plan.is_expired()) return "expired";
  return plan.is_complete ? "applied" : "unfinished";
}

Exit run_list(Context& context, const QuarantineOptions& options) {
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  Output& out = context.out();
  const std::vector<std::uint64_t> numbers = applied_plans(quarantine);
  for (const std::uint64_t number : numbers) {
    const AppliedPlan applied(context, quarantine, number, LockedFile::For::kReading);
    const PlanRecord& plan = applied.record();
    out.result("stgctl.quarantine-list/1",
               {{"record", "plan"},
                {"number", number},
                {"state", state_of(plan)},
                {"time", plan.time},
                {"expires", plan.expires},
                {"steps", plan.steps.size()},
                {"storage", plan.storage}},
               "{}  {}  {:<10}  {} repairs, until {} UTC\n",
               out.styled(Style::kBold, formatted("{:>6}", number)), format_time(plan.time),
               state_of(plan), plan.steps.size(), format_time(plan.expires));
  }
  if (numbers.empty()) not_found("there is no plan in {}", shown(quarantine));
  return Exit::kDone;
}

Exit run_expire(Context& context, const ExpireOptions& options) {
  context.tree();
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  const std::vector<std::uint64_t> over = plans_of_tree(
      context, quarantine,
      [&](const PlanRecord& plan) { return options.all || plan.is_undone || plan.is_expired(); });
  if (over.empty())
    not_found(
        "no plan in the quarantine has expired or was undone; 'stgctl quarantine list' "
        "shows when plans expire");
  const bool dry = context.is_dry_run();
  if (!dry) context.confirm(formatted("Delete what {} plans moved away?", over.size()));
  ChangeReport report(context, "stgctl.quarantine-expire/1", "removed");
  for (const std::uint64_t number : over) {
    if (Context::interrupted()) break;
    const Subject subject = subject_named(formatted("plan {}", number));
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

Commands repair_commands() {
  return {{"repair", Group::kChange, Effect::kChanges, "Repair what check finds, with a plan",
           run_repair,
           "The plan is JSON, one item per repair; delete the items that you do not want. Names\n"
           "that a snapshot or a damaged index still contains are restored first. Other repairs\n"
           "remove faulty lines from indexes and key files, move away orphans and sub-parts\n"
           "without a document, and raise counters that are too low. The plan also lists what it\n"
           "does not repair. A repair that would remove most of a folder is planned only with\n"
           "--force. Whatever is removed goes to the quarantine, and 'undo' brings it back. What\n"
           "changed after the plan was written is skipped. Apply the plan again to continue an\n"
           "interrupted repair."},
          {"undo", Group::kChange, Effect::kChanges, "Undo the repairs of the last plan", run_undo,
           "Brings back what 'repair' removed, last step first, until the plan expires.\n"
           "Lines return beside newer ones. What cannot return stays in the quarantine. Run the\n"
           "command again to continue an interrupted undo."},
          {"quarantine list", Group::kLook, Effect::kLooks, "List the plans in the quarantine",
           run_list},
          {"quarantine expire", Group::kChange, Effect::kChanges,
           "Delete what undone and expired plans moved away", run_expire,
           "Only plans of this tree. 'repair --apply --expire' does the same for expired\n"
           "plans. No other command deletes them."}};
}

}  // namespace stgctl
