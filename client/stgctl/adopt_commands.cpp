// migrate inbox and sync: what the index does not know yet.

#include <set>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "stg_index.h"

namespace stgctl {

namespace {

// ---- migrate inbox -----------------------------------------------------------------------------

constexpr const char* kMarker = "k1mailboxcompliant";

/// An escaped name and its plain form.
struct Renaming {
  std::string from;
  std::string to;
};

struct Plan {
  bool is_converted = false;
  std::vector<Renaming> renamings;
  std::vector<std::string> adoptions;
};

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
    // The library does not change names that an index cannot contain.
    if (plain.find_first_of("/\n") != std::string::npos) continue;
    plan.renamings.push_back({name, plain});
  }
  std::ranges::sort(plan.renamings, {}, &Renaming::from);
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

// ---- sync --------------------------------------------------------------------------------------

using Folders = std::map<std::string, std::vector<FoundEntry>>;

/// The orphans of the tree by folder. Names that are not safe for the library stay orphans.
Folders unknown_files(Context& context, ChangeReport& report) {
  admin::EntryQuery query;
  query.scope = context.scope();
  query.state = admin::EntryState::kUnindexed;
  Folders folders;
  std::set<std::string> unsafe;
  for (FoundEntry& entry : find_entries(context, query)) {
    if (!admin::expects_index(entry.folder.area)) continue;
    std::string path = entry.folder.path;
    try {
      check_no_link(context, entry.path());
      check_name("the name", entry.name);
    } catch (const Failure& failure) {
      report.failed(subject_of(entry), failure);
      // Adoption handles a folder as a whole.
      unsafe.insert(path);
      continue;
    }
    folders[std::move(path)].push_back(std::move(entry));
  }
  for (const std::string& path : unsafe) {
    const auto found = folders.find(path);
    if (found == folders.end()) continue;
    for (const FoundEntry& entry : found->second) {
      report.failed(subject_of(entry), "a file beside it has a name that is not allowed");
    }
    folders.erase(found);
  }
  return folders;
}

void adopt(Context& context, const std::string& path, const std::vector<FoundEntry>& files,
           ChangeReport& report) {
  std::set<std::string> known;
  if (!context.is_dry_run()) {
    wait_until_free(context, path);
    STGIndex::updateIndexFile(path);
    for (const FoundEntry& entry : entries_of_folder(context, files.front().folder))
      known.insert(entry.name);
  }
  for (const FoundEntry& file : files) {
    const bool is_left = !known.contains(adopted_name(file.name)) && !known.contains(file.name);
    if (!context.is_dry_run() && is_left) {
      report.failed(
          subject_of(file),
          "the index has no entry for it afterwards; run again with --trace m to see the reason");
    } else {
      report.done(subject_of(file), {{"bytes", file.info.size}}, format_bytes(file.info.size));
    }
  }
}

Exit run_sync(Context& context) {
  context.tree();
  if (!context.options().owner.empty()) check_name("the owner", context.options().owner);
  ChangeReport report(context, "stgctl.sync/1", "adopted");
  const Folders folders = unknown_files(context, report);
  std::size_t files = 0;
  for (const auto& [path, entries] : folders) files += entries.size();
  if (files == 0) {
    if (report.failures() == 0) not_found("every file has an entry: nothing was changed");
    return report.finish();
  }
  context.begin_changes(formatted("Adopt {} files in {} folders?", files, folders.size()),
                        Context::Adoption::kOn);
  report.guarded("adopting", files, [&](Progress& progress) {
    for (const auto& [path, entries] : folders) {
      Context::stop_if_interrupted();
      adopt(context, path, entries, report);
      progress.advance(entries.size(), path);
    }
  });
  return report.finish();
}

}  // namespace

Commands adopt_commands() {
  return {{"migrate inbox", Group::kChange, Effect::kChanges,
           "Convert the mail names of an owner, once", run_inbox,
           "Older programs stored mail under escaped names. This command creates entries with the\n"
           "plain names for this mail, and converts the read list too. It adopts orphans first. A\n"
           "marker in the folder makes a second run do nothing."},
          {"sync", Group::kChange, Effect::kChanges, "Adopt files: create entries for orphans",
           run_sync,
           "Each orphan gets an entry under its own name, with its extension in lower case, at\n"
           "timestamp 0. The areas are docs, user and mail, or --area; --owner limits it."}};
}

}  // namespace stgctl
