#include "client/stgctl/saved_names.h"

#include "client/admin/name_restore.h"
#include "client/admin/name_snapshot.h"
#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

/// So many snapshots are looked through: of hourly ones those of four days.
constexpr std::size_t kMostSnapshots = 100;

}  // namespace

SavedNames::SavedNames(Context& context) : m_context(context) {
  const std::string file = names_file(context, {});
  if (admin::sys::describe(file).kind != admin::sys::Kind::kFile) return;
  try {
    m_store = std::make_unique<admin::NameStore>(file, admin::NameStore::For::kReading,
                                                 context.locking());
    const std::vector<admin::NameStore::Kept> all = m_store->snapshots();
    for (auto kept = all.rbegin(); kept != all.rend(); ++kept) {
      if (!kept->snapshot || kept->snapshot->layout != context.tree().layout) continue;
      if (m_snapshots.size() == kMostSnapshots) break;
      try {
        m_snapshots.push_back({kept->number, m_store->indexes_of(kept->number)});
      } catch (const admin::StoreError&) {
        // Damaged: the others know what they know.
      }
    }
  } catch (const admin::StoreError&) {
    m_snapshots.clear();
  }
}

SavedNames::Known SavedNames::best_for(const admin::FolderView& folder) {
  Known best;
  const std::string name = admin::saved_name_of(m_context.tree(), folder.folder().path);
  const admin::names_format::SavedIndex* last = nullptr;
  for (const Snapshot& snapshot : m_snapshots) {
    const auto found = snapshot.indexes.find(name);
    if (found == snapshot.indexes.end() || (last != nullptr && *last == found->second)) continue;
    last = &found->second;
    try {
      const admin::RestorePlan plan = admin::plan_restore(folder, m_store->text_of(found->second));
      const std::uint64_t count = plan.count(admin::NameFate::kRestored);
      if (count <= best.restorable) continue;
      best = {snapshot.number, found->second.entries, count, {}};
      for (const admin::RestoredName& each : plan.names) {
        if (each.fate != admin::NameFate::kRestored || !each.renamed_from.empty()) continue;
        best.lines.push_back(index_format::key_of(each.logical, each.timestamp) + "/" +
                             each.stored);
      }
    } catch (const admin::StoreError&) {
      // As above.
    }
  }
  return best;
}

std::uint64_t SavedNames::entries_below(const std::string& folder, std::uint64_t& snapshot) {
  const std::string name = admin::saved_name_of(m_context.tree(), folder);
  for (const Snapshot& each : m_snapshots) {
    std::uint64_t count = 0;
    for (const auto& [path, index] : each.indexes) {
      if (path == name || path.starts_with(name + "/")) count += index.entries;
    }
    if (count == 0) continue;
    snapshot = each.number;
    return count;
  }
  return 0;
}

}  // namespace stgctl
