#pragma once

#include <optional>
#include <vector>

#include "client/admin/old_versions.h"
#include "client/stgctl/target.h"

namespace stgctl {

/// An entry that is to go, and what has become of it.
struct Removal {
  const FoundEntry* entry = nullptr;
  admin::OldVersion version;
};

/// @param is_same whether it is still what is to go; asked while nobody else can write to it.
Removal removal_of(const FoundEntry& entry,
                   std::function<bool(admin::LockedFile& file)> is_same);

/// Removes entries with their parts, together: see admin::remove_old_versions(). Key lines stay.
/// @return why no further lock was asked for: kLockTimeout or kInterrupted.
std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals);

/// Whether the entry was removed.
inline bool is_removed(const Removal& removal) {
  return removal.version.fate == admin::OldVersion::Fate::kRemoved;
}
/// Why it was not.
std::string why_not_removed(const Removal& removal);

}  // namespace stgctl
