#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "stg_index.h"

namespace stgctl {

namespace {

constexpr const char* kMarker = "k1mailboxcompliant";

/// An escaped name and its plain form.
struct Renaming {
  std::string from;
  std::string to;
};

struct Plan {
  bool is_converted = false;
  std::vector<Renaming> renamings;
  std::vector<std::pair<std::string, const char*>> staying;  ///< escaped names, and why they stay
  std::vector<std::string> adoptions;
};

/// Why the library leaves a mail under its escaped name; null if it converts the mail.
const char* why_not_converted(const std::string& folder, const std::string& plain) {
  if (plain.find_first_of("/\n") != std::string::npos)
    return "it keeps its escaped name: an index cannot contain the plain one";
  return admin::can_be_stored_as(folder, plain)
             ? nullptr
             : "it keeps its escaped name: no file can have the extension of the plain one";
}

Plan plan_of(Context& context, const admin::DocumentFolder& folder) {
  Plan plan;
  admin::EntryQuery query;
  query.scope.area = folder.area;
  if (context.tree().layout == admin::Layout::kOwner) query.scope.owner = folder.owner;
  for (const FoundEntry& entry : find_entries(context, query)) {
    if (entry.name == kMarker && entry.timestamp == 0) plan.is_converted = true;
    const bool is_new = entry.state == admin::EntryState::kUnindexed;
    if (is_new) plan.adoptions.push_back(entry.name);
    // Only a file under its own name can have an escaped name.
    if (entry.state == admin::EntryState::kMissing || entry.timestamp != 0 ||
        entry.file != entry.name)
      continue;
    const std::string name = is_new ? adopted_name(entry.name) : entry.name;
    if (!STGIndex::iSsambaOrT101(name)) continue;
    std::string plain = name;
    STGIndex::UnescapeVU(plain);
    if (plain == name) continue;
    if (const char* const why = why_not_converted(folder.path, plain)) {
      plan.staying.emplace_back(name, why);
    } else {
      plan.renamings.push_back({name, plain});
    }
  }
  std::ranges::sort(plan.renamings, {}, &Renaming::from);
  std::ranges::sort(plan.staying);
  std::ranges::sort(plan.adoptions);
  return plan;
}

Exit run_inbox(Context& context) {
  if (!context.options().area.empty() && context.options().area != "mail")
    refuse("an inbox is in the area mail; omit --area");
  if (context.tree().layout == admin::Layout::kFlat)
    refuse(
        "the tree is flat: its owners share the mail folder, and only the folder of one owner can "
        "be converted");
  const Target target = target_of(context, admin::Area::kMail);
  const admin::DocumentFolder folder = folder_for(context, target, "");
  if (sys::describe(folder.path).kind == sys::Kind::kMissing)
    not_found("{} has no mail folder", shown(target.owner));
  check_no_link(context, folder.path);
  const Plan plan = plan_of(context, folder);
  const auto mail = [&](const std::string& name) {
    return subject_in(target.area, target.owner, name);
  };
  ChangeReport report(context, "stgctl.migrate.inbox/1", "converted");
  if (plan.is_converted) {
    report.skipped(mail(""), "the inbox is already converted");
    return report.finish();
  }
  for (const std::string& name : plan.adoptions) check_name("the file", name);
  // If the counter is not usable, the library would give every new name the same file.
  if (const std::string why = admin::why_not_storable(folder.path); !why.empty()) fail("{}", why);
  // Orphans are mail too. Without adoption the migration would skip them for ever.
  context.begin_changes(
      formatted("Convert the inbox of {}: {} names, {} new files?", shown(target.owner),
                plan.renamings.size(), plan.adoptions.size()),
      Context::Adoption::kOn);
  if (!context.is_dry_run()) {
    wait_until_free(context, folder.path);
    STGIndex::migrateInboxRead(target.owner);
  }
  const Plan left = context.is_dry_run() ? Plan() : plan_of(context, folder);
  for (const Renaming& each : plan.renamings) {
    const Subject subject = mail(each.from);
    if (std::ranges::find(left.renamings, each.from, &Renaming::from) != left.renamings.end()) {
      report.failed(subject,
                    "it could not be converted; run again with --trace m to see the reason");
      continue;
    }
    report.done(subject, {{"new_name", each.to}}, "to " + shown(each.to));
  }
  for (const auto& [name, why] : plan.staying) report.skipped(mail(name), why);
  for (const std::string& name : plan.adoptions) {
    report.also_done("adopted", mail(name));
  }
  if (!context.is_dry_run() && !left.is_converted) {
    report.failed(mail(""), "the inbox is not marked as converted; run this again");
  } else {
    report.also_done("marked", mail(kMarker));
  }
  return report.finish({{"adopted", plan.adoptions.size()}},
                       formatted("{} adopted", plan.adoptions.size()));
}

}  // namespace

Commands migrate_command() {
  return {{"migrate inbox", Group::kChange, Effect::kChanges,
           "Convert the mail names of an owner, once", run_inbox,
           "Older programs stored mail under escaped names. This command creates entries with\n"
           "the plain names for this mail, and converts the read list too. It adopts orphans\n"
           "first. Mail whose plain name cannot be stored keeps its name. A marker in the folder\n"
           "makes a second run do nothing."}};
}

}  // namespace stgctl
