#include "client/stgctl/names_file.h"

#include <regex>

#include "client/admin/name_restore.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/paths.h"

namespace stgctl {

namespace {

constexpr const char* kEnding = ".names";
/// The most snapshots to search: four days of hourly ones.
constexpr std::size_t kMostSnapshots = 100;

/// "2026-03-01", "2026-03-01 12:00", "2026-03-01T12:00:30Z"; a day or a minute means its end.
std::optional<std::int64_t> parse_time(std::string_view text) {
  static const std::regex kForm(R"((\d{4})-(\d\d)-(\d\d)(?:[ T](\d\d):(\d\d)(?::(\d\d))?)?Z?)");
  std::cmatch found;
  if (!std::regex_match(text.data(), text.data() + text.size(), found, kForm)) return std::nullopt;
  const auto part = [&](std::size_t number, int otherwise) {
    return found[number].matched ? std::stoi(found[number].str()) : otherwise;
  };
  using namespace std::chrono;
  const year_month_day date{year(part(1, 0)), month(static_cast<unsigned>(part(2, 0))),
                            day(static_cast<unsigned>(part(3, 0)))};
  const int hour = part(4, 23);
  const int minute = part(5, 59);
  const int second = part(6, 59);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return std::nullopt;
  const auto time = sys_days(date) + hours(hour) + minutes(minute) + seconds(second);
  return time.time_since_epoch().count();
}

/// A snapshot as the user names it: "12", "latest", "2026-03-01 12:00", "@1772000000", "2h".
struct SnapshotName {
  std::optional<std::uint64_t> number = {};
  std::optional<std::int64_t> time = {};  ///< seconds since 1970 UTC; "latest" has neither
};

/// @param now the time from which an age counts back. @return nothing for other text.
std::optional<SnapshotName> parse_snapshot_name(std::string_view text, std::int64_t now) {
  if (text == "latest") return SnapshotName();
  if (const auto number = parse_number<std::uint64_t>(text))
    return *number == 0 ? std::nullopt : std::optional(SnapshotName{.number = number});
  std::optional<std::int64_t> time;
  if (text.starts_with('@')) {
    time = parse_number<std::int64_t>(text.substr(1));
  } else if (const auto age = parse_age(text)) {
    time = now - *age;
  } else {
    time = parse_time(text);
  }
  if (!time) return std::nullopt;
  return SnapshotName{.time = time};
}

}  // namespace

std::string place_outside(Context& context, const std::string& file) {
  std::error_code error;
  const fs::path path = fs::absolute(to_path(file), error).lexically_normal();
  if (error || !path.has_filename())
    refuse("{} is not a file name; name another place", shown(file));
  const std::string folder = sys::absolute(from_path(path.parent_path()));
  if (is_in_tree(context, folder))
    refuse("{} is in the tree; name a place outside the tree", shown(file));
  return sys::join(folder, from_path(path.filename()));
}

std::string names_file(Context& context, const std::string& option) {
  if (option.empty()) return sys::absolute(context.storage()) + kEnding;
  return place_outside(context, option);
}

admin::Tree tree_of_names(Context& context, admin::Layout layout) {
  admin::Tree tree;
  tree.storage = sys::absolute(context.storage());
  tree.layout = layout;
  return tree;
}

void throw_failure(const admin::StoreError& error) {
  using Why = admin::StoreError::Why;
  switch (error.why()) {
    case Why::kMissing: not_found("{}; 'stgctl index snapshot' does that", error.what());
    case Why::kLocked: locked_out("{}", error.what());
    case Why::kForeign: refuse("{}", error.what());
    default: fail("{}", error.what());
  }
}

NamesFilter::NamesFilter(Context& context, admin::Tree tree, const std::string& named)
    : m_tree(std::move(tree)), m_scope(context.scope()) {
  if (named.empty()) return;
  std::string name = named;
  if (sys::kSeparator != '/') std::replace(name.begin(), name.end(), sys::kSeparator, '/');
  while (name.ends_with('/')) name.pop_back();
  std::optional<admin::DocumentFolder> folder = admin::folder_of_saved_name(m_tree, name);
  if (!folder) {
    const auto located = admin::locate_in(m_tree, named);
    if (located && located->rest.empty()) folder = located->folder;
  }
  if (!folder) not_found("{} is not a document folder of this tree", shown(named));
  m_folder = admin::saved_name_of(m_tree, folder->path);
}

std::optional<admin::DocumentFolder> NamesFilter::wanted(std::string_view saved_name) const {
  using admin::are_same_to_system;
  if (!m_folder.empty() && !are_same_to_system(saved_name, m_folder)) return std::nullopt;
  auto folder = admin::folder_of_saved_name(m_tree, saved_name);
  if (!folder) return std::nullopt;
  if (m_scope.area && *m_scope.area != folder->area) return std::nullopt;
  if (m_scope.owner && !are_same_to_system(admin::owner_folder_name(*m_scope.owner), folder->owner))
    return std::nullopt;
  return folder;
}

// ---- the names of snapshots --------------------------------------------------------------------

std::string is_snapshot_name_or_now(const std::string& text) {
  if (text == "now" || parse_snapshot_name(text, 0)) return {};
  return "'" + text +
         "' is not a snapshot: use its number, 'latest', a time in UTC such as '2026-03-01 12:00', "
         "'@SECONDS', or an age such as '2h'";
}

std::string is_snapshot_name(const std::string& text) {
  return text == "now" ? "'now' is not a snapshot; name one" : is_snapshot_name_or_now(text);
}

admin::Snapshot find_snapshot(admin::NameStore& store, const std::string& text) {
  const SnapshotName name =
      parse_snapshot_name(text.empty() ? "latest" : text, os::now()).value_or(SnapshotName());
  const std::vector<admin::NameStore::Kept> all = store.snapshots();
  for (auto kept = all.rbegin(); kept != all.rend(); ++kept) {
    const bool is_it = name.number
                           ? kept->number == *name.number
                           : !name.time || (kept->snapshot && kept->snapshot->time <= *name.time);
    if (!is_it) continue;
    if (kept->snapshot) return *kept->snapshot;
    fail("snapshot {} is damaged; list the others with 'stgctl index log'", kept->number);
  }
  if (!all.empty())
    not_found("there is no snapshot '{}'; list them with 'stgctl index log'", shown(text));
  not_found("there is no complete snapshot yet; create one with 'stgctl index snapshot'");
}

Json fields_of(const admin::Snapshot& snapshot) {
  return {{"number", snapshot.number},   {"time", snapshot.time},
          {"storage", snapshot.storage}, {"folders", snapshot.folders},
          {"entries", snapshot.entries}, {"bytes", snapshot.bytes},
          {"changed", snapshot.changed}, {"added", snapshot.added},
          {"removed", snapshot.removed}, {"unread", snapshot.unread}};
}

// ---- what saved names tell ---------------------------------------------------------------------

SavedNames::SavedNames(Context& context) : m_context(context) {
  const std::string file = names_file(context, {});
  if (sys::describe(file).kind != sys::Kind::kFile) return;
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
        // Damaged: the other snapshots are still usable.
      }
    }
  } catch (const admin::StoreError&) {
    m_snapshots.clear();
  }
}

SavedNames::Known SavedNames::best_for(const admin::FolderView& folder) {
  Known best;
  const std::string name = admin::saved_name_of(m_context.tree(), folder.folder().path);
  const admin::SavedIndex* last = nullptr;
  for (const Snapshot& snapshot : m_snapshots) {
    const auto found = snapshot.indexes.find(name);
    if (found == snapshot.indexes.end() || (last != nullptr && *last == found->second)) continue;
    last = &found->second;
    try {
      const admin::RestorePlan plan = admin::plan_restore(folder, m_store->text_of(found->second));
      const std::uint64_t count = plan.count(admin::NameFate::kRestored);
      if (count <= best.restorable) continue;
      best = {snapshot.number, count, {}};
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
