#include "client/stgctl/removing.h"

#include <map>
#include <utility>

#include "client/stgctl/lock_wait.h"
#include "client/stgctl/operations.h"

namespace stgctl {

using Fate = admin::OldVersion::Fate;

Removal removal_of(const FoundEntry& entry,
                   std::function<bool(admin::LockedFile& file)> is_same) {
  return {&entry,
          {entry.name, entry.timestamp, entry.file, std::move(is_same), Fate::kPending, ""}};
}

std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals) {
  std::map<std::string, std::vector<Removal*>> by_folder;
  for (Removal* const each : removals) by_folder[each->entry->folder.path].push_back(each);
  std::vector<admin::OldVersions> folders;
  // Asked for while the files are there, by which they are told apart.
  std::vector<FoundParts> parts;
  for (const auto& [path, of_folder] : by_folder) {
    admin::OldVersions& folder = folders.emplace_back();
    folder.folder = of_folder.front()->entry->folder;
    for (Removal* const each : of_folder) folder.versions.push_back(&each->version);
    parts.emplace_back(path);
  }
  admin::remove_old_versions(folders, context.locking());
  std::optional<Failure> end;
  for (std::size_t i = 0; i < folders.size(); ++i) {
    std::vector<std::string> gone;
    for (const admin::OldVersion* const version : folders[i].versions) {
      if (version->fate == Fate::kRemoved) gone.push_back(version->file);
      if (version->fate == Fate::kLocked && !end) end = lock_missed(context, version->reason);
    }
    parts[i].try_to_remove(context, gone);
  }
  if (end && Context::interrupted()) end = Failure(Exit::kInterrupted, "interrupted");
  return end;
}

std::string why_not_removed(const Removal& removal) {
  const Fate fate = removal.version.fate;
  const bool is_open = fate == Fate::kPending || fate == Fate::kLocked;
  return is_open ? "a lock was not obtained in time" : removal.version.reason;
}

}  // namespace stgctl
