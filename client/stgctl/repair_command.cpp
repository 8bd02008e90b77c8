
#include <algorithm>
#include <fstream>

#include "client/stgctl/command.h"
#include "client/stgctl/names_file.h"
#include "client/stgctl/output.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/repair_work.h"
#include "client/stgctl/report.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

constexpr const char* kSchema = "stgctl.repair/1";

std::string is_code(const std::string& text) {
  return admin::code_named(text)
             ? std::string()
             : "'" + text + "' is not a code; list them with 'stgctl check --codes'";
}

struct Options {
  Arguments app;
  TextOption plan{app, "--plan", "FILE", "Check the tree, and write a plan of repairs"};
  TextOption apply{
      app, "--apply", "FILE", "Carry out the plan in such a file", {excludes("--plan")}};
  ListOption only{
      app, "--only", {"CODE", is_code}, "Plan only for findings of this code; may be repeated"};
  Flag force{app, "--force", "With --plan: also plan what empties a folder or removes most of it"};
  Flag expire{app, "--expire", "With --apply: also delete what expired plans moved away"};
  QuarantineOption quarantine{app};
  TextOption keep{app, "--keep", kAge, "How long 'undo' is possible (30d)", {initially("30d")}};
};

/// A repair in the report: its path below the storage folder.
Subject subject_of(const Repair& repair) { return {"", "", repair.path, std::nullopt}; }

std::string in_words(const Repair& repair) {
  std::string text = formatted("{} ({}", name_of(repair.kind), repair.code);
  if (!repair.lines.empty()) text += formatted(", {} lines", repair.lines.size());
  if (repair.kind == RepairKind::kSetCounter) text += ", to " + repair.value;
  if (repair.kind == RepairKind::kQuarantine && !repair.is_folder)
    text += ", " + format_bytes(repair.bytes);
  return text + ")";
}

// ---- what older plans keep ---------------------------------------------------------------------

/// The expired plans. @param own a plan to omit; 0 for none.
std::vector<std::uint64_t> expired_plans(Context& context, const std::string& quarantine,
                                         std::uint64_t own) {
  std::vector<std::uint64_t> numbers;
  for (const std::uint64_t number : applied_plans(quarantine)) {
    if (number == own) continue;
    const AppliedPlan plan =
        AppliedPlan::open(context, quarantine, number, admin::LockedFile::For::kReading);
    if (plan.storage() == context.tree().storage && plan.expires() <= os::now())
      numbers.push_back(number);
  }
  return numbers;
}

/// A text about expired plans, or empty. @param own the plan in use: its manifest is locked.
std::string told_of_expired(Context& context, const Options& options, std::uint64_t own = 0) {
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  const std::size_t count = expired_plans(context, quarantine, own).size();
  if (count == 0) return {};
  return formatted("; {} older plans have expired; 'quarantine expire' removes them", count);
}

// ---- planning ----------------------------------------------------------------------------------

/// Writes first to another name in the same folder: an existing plan stays until the new one is
/// whole.
void write_plan(const std::string& file, const std::string& text) {
  const std::string part = file + ".stgctl-part";
  std::error_code error;
  {
    std::ofstream out(to_path(part), std::ios::binary | std::ios::trunc);
    out << text;
    out.flush();
    if (!out) error = std::make_error_code(std::errc::io_error);
  }
  if (!error) std::filesystem::rename(to_path(part), to_path(file), error);
  if (!error) return;
  std::error_code ignored;
  std::filesystem::remove(to_path(part), ignored);
  throw Failure(Exit::kFailed,
                shown(file) + " cannot be written; check the free space and the permissions");
}

Exit run_plan(Context& context, const Options& options) {
  const std::string file = place_outside(context, options.plan);
  const sys::Kind there = sys::describe(file).kind;
  if (there != sys::Kind::kMissing && there != sys::Kind::kFile)
    throw Failure(Exit::kRefused, shown(file) + " is not a plain file; name another place");
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
    report.done(subject_of(repair), fields_of(repair), in_words(repair));
  if (!context.options().dry_run) {
    if (there == sys::Kind::kFile) context.confirm(formatted("Overwrite {}?", shown(file)));
    write_plan(file, text_of(plan));
  }
  Json sums = {{"left", plan.left.size()}};
  put_name(sums, "file", file);
  return report.finish(sums, formatted("{} findings not repaired{}", plan.left.size(),
                                       told_of_expired(context, options)));
}

// ---- applying ----------------------------------------------------------------------------------

Exit run_apply(Context& context, const Options& options) {
  const std::string quarantine = quarantine_folder(context, options.quarantine);
  std::string text;
  const os::Status read = sys::read_file(options.apply, context.locking(), text);
  if (!read.ok())
    throw Failure(Exit::kFailed, formatted("{}: {}", shown(options.apply), sys::text_of(read)));
  const RepairPlan plan = read_plan(context, text);
  if (plan.repairs.empty())
    throw Failure(Exit::kNothingMatched, shown(options.apply) + " contains no repairs");
  for (const std::string& cost : plan.costs) context.out().warning(cost);
  const std::size_t expired = expired_plans(context, quarantine, 0).size();
  if (!context.options().dry_run) {
    const std::string for_good =
        options.expire && expired != 0
            ? formatted(" What {} expired plans moved away is deleted.", expired)
            : "";
    context.confirm(formatted("Apply {} repairs? What they remove is kept in {}.{}",
                              plan.repairs.size(), shown(quarantine), for_good));
  }
  ChangeReport report(context, kSchema, "repaired");
  WorkPlan work(context, quarantine, digest_of(text), parse_age(options.keep).value_or(0));
  const bool all = report.guarded([&] {
    Progress progress(context.out(), context.options().progress, "repairing", plan.repairs.size());
    for (const Repair& repair : plan.repairs) {
      if (Context::interrupted()) return false;
      const Subject subject = subject_of(repair);
      Worked worked;
      try {
        worked = do_repair(context, repair, work);
      } catch (const Failure& failure) {
        if (failure.code() != Exit::kFailed) throw;
        // The manifest cannot be written, so no further repair is allowed.
        report.failed(subject, failure.what());
        return false;
      }
      if (worked.how == Worked::How::kDone) {
        report.done(subject, fields_of(repair),
                    formatted("{} {}", name_of(repair.kind), worked.text));
      } else if (worked.how == Worked::How::kSkipped) {
        report.skipped(subject, worked.text);
      } else {
        report.failed(subject, worked.text);
      }
      progress.advance(1, repair.path);
    }
    return true;
  });
  Json sums = Json::object();
  std::string tail;
  if (AppliedPlan* const applied = work.begun()) {
    // After a failure the same plan can be applied again, and continues in the same place.
    if (all && report.failures() == 0) note(context, [&] { applied->note_complete(); });
    sums["number"] = applied->number();
    sums["expires"] = applied->expires();
    tail = formatted("plan {} can be undone until {} UTC", applied->number(),
                     format_time(applied->expires()));
  }
  const std::uint64_t own = work.begun() != nullptr ? work.begun()->number() : 0;
  if (options.expire && !context.options().dry_run && all) {
    const std::vector<std::uint64_t> over = expired_plans(context, quarantine, own);
    for (const std::uint64_t number : over) remove_plan(quarantine, number);
    sums["expired"] = over.size();
    if (!over.empty()) tail += formatted(", {} expired plans deleted", over.size());
  } else {
    tail += told_of_expired(context, options, own);
  }
  return report.finish(sums, tail);
}

Exit run_repair(Context& context, const Options& options) {
  if (options.plan.empty() == options.apply.empty()) {
    throw Failure(
        Exit::kUsage,
        "no plan is named; write one with --plan FILE, then carry it out with --apply FILE");
  }
  context.tree();
  return options.plan.empty() ? run_apply(context, options) : run_plan(context, options);
}

}  // namespace

Commands repair_command() {
  return {{"repair", Group::kChange, Effect::kChanges, "Repair what check finds, with a plan",
           run_repair,
           "The plan is JSON, one item per repair; delete the items that you do not want. Names\n"
           "that a snapshot or a damaged index still contains are restored first. Other repairs\n"
           "remove faulty lines from indexes and key files, move away orphans and sub-parts\n"
           "without a document, and raise counters that are too low. The plan also lists what it\n"
           "does not repair. A repair that would remove most of a folder is planned only with\n"
           "--force. Whatever is removed goes to the quarantine, and 'undo' brings it back. What\n"
           "changed after the plan was written is skipped. Apply the plan again to continue an\n"
           "interrupted repair."}};
}

}  // namespace stgctl
