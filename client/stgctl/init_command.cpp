#include "client/stgctl/change_report.h"
#include "client/stgctl/command.h"
#include "client/stgctl/paths.h"

namespace stgctl {

namespace {

/// The missing folders of the tree, the storage folder first.
std::vector<std::string> missing_folders(const std::string& storage) {
  std::vector<std::string> missing;
  const auto note = [&](const std::string& path) {
    std::error_code error;
    if (fs::is_directory(to_path(path), error)) return;
    if (fs::exists(fs::symlink_status(to_path(path), error)))
      refuse("{} exists and is not a folder; move it elsewhere", shown(path));
    missing.push_back(path);
  };
  note(storage);
  for (const admin::Area area : admin::kAreas) note(joined(storage, admin::name_of(area)));
  return missing;
}

Exit run_init(Context& context) {
  const std::string& storage = context.storage();
  const std::string root = from_path(to_path(storage).parent_path());
  std::error_code error;
  if (!fs::is_directory(to_path(root), error))
    fail("the folder {} does not exist; create it first", shown(root));
  const std::vector<std::string> missing = missing_folders(storage);
  ChangeReport report(context, "stgctl.init/1", "made");
  if (missing.empty()) {
    report.skipped({}, shown(storage) + " is already a storage tree");
    return report.finish();
  }
  if (!context.is_dry_run()) {
    context.confirm(formatted("Create a storage tree at {}?", shown(storage)));
    context.create_tree();
  }
  for (const std::string& path : missing) {
    if (!context.is_dry_run() && !fs::is_directory(to_path(path), error)) {
      report.failed(subject_named(from_path(to_path(path).filename())),
                    "the folder could not be created");
      continue;
    }
    report.done({}, {{"path", path}}, shown(path));
  }
  return report.finish();
}

}  // namespace

Commands init_command() {
  return {{"init", Group::kChange, Effect::kChanges, "Create a storage tree below a root folder",
           run_init,
           "The root folder must exist. Folders of the tree that already exist stay as they are.\n"
           "No other command creates a tree."}};
}

}  // namespace stgctl
