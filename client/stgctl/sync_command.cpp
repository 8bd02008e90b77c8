#include <set>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "stg_index.h"

namespace stgctl {

namespace {

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
  check_owner_exists(context);
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

Commands sync_command() {
  return {{"sync", Group::kChange, Effect::kChanges, "Adopt files: create entries for orphans",
           run_sync,
           "Each orphan gets an entry under its own name, with its extension in lower case, at\n"
           "timestamp 0. The areas are docs, user and mail, or --area; --owner limits it."}};
}

}  // namespace stgctl
