// index snapshot, index log and index diff: the saved names.

#include <array>

#include "client/admin/name_restore.h"
#include "client/stgctl/look.h"
#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

using admin::NameDifference;
using admin::NameStore;
using admin::SavedIndex;
using admin::SavedIndexes;
using admin::Snapshot;

// ---- index snapshot ----------------------------------------------------------------------------

/// The indexes of the last snapshot; empty if there is none, or if it is damaged.
SavedIndexes indexes_before(Context& context, NameStore& store, const std::string& storage) {
  const std::uint64_t last = store.last_number();
  if (last == 0) return {};
  try {
    SavedIndexes before = store.indexes_of(last);
    const Snapshot snapshot = find_snapshot(store, std::to_string(last));
    if (snapshot.storage != storage)
      refuse("the last saved names are those of {}; name another file with --names",
             shown(snapshot.storage));
    return before;
  } catch (const admin::StoreError& error) {
    context.out().warning(formatted("{}; all indexes are saved again", error.what()));
    return {};
  }
}

admin::TakenIndexes take(Context& context, const SavedIndexes& before,
                         const admin::KeepText& keep) {
  auto asked = context.walk();
  const Progress progress(context.out(), "reading", asked);
  admin::TakenIndexes taken =
      admin::take_indexes(context.tree(), before, asked, keep, warn_of_failures(context));
  // An incomplete view would look as if the rest had been removed.
  Context::stop_if_interrupted();
  return taken;
}

/// What NameStore::commit() would return.
Snapshot preview(const SavedIndexes& before, const SavedIndexes& now, Snapshot head,
                 std::uint64_t last) {
  head.number = last + 1;
  head.folders = now.size();
  for (const auto& [name, index] : now) {
    head.entries += index.entries;
    head.bytes += index.size;
    const auto old = before.find(name);
    if (old == before.end()) ++head.added;
    if (old != before.end() && old->second.digest != index.digest) ++head.changed;
  }
  for (const auto& [name, index] : before) head.removed += now.contains(name) ? 0U : 1U;
  return head;
}

void show(Context& context, const Snapshot& snapshot, const std::string& file,
          std::uint64_t written) {
  Output& out = context.out();
  const bool dry = context.is_dry_run();
  Json fields = fields_of(snapshot);
  fields["file"] = file;
  fields["written"] = written;
  fields["dry_run"] = dry;
  out.result(
      "stgctl.index-snapshot/1", fields,
      "{}: {} entries in {} folders; {} changed, {} new, {} removed{}\n",
      out.styled(Style::kBold, formatted("{}snapshot {}", dry ? "would be " : "", snapshot.number)),
      snapshot.entries, snapshot.folders, snapshot.changed, snapshot.added, snapshot.removed,
      dry ? "; nothing was written"
          : formatted("; {} more in {}", format_bytes(written), shown(file)));
}

struct SnapshotOptions : Arguments {
  NamesOption names{*this};
};

Exit run_snapshot(Context& context, const SnapshotOptions& options) {
  if (!context.options().area.empty() || !context.options().owner.empty())
    misused("a snapshot is always of the whole tree; omit --area and --owner");
  const std::string file = names_file(context, options.names);
  Snapshot head;
  head.storage = context.tree().storage;
  head.layout = context.tree().layout;
  head.time = os::now();
  return on_names([&] {
    const bool dry = context.is_dry_run();
    const bool is_there = sys::describe(file).kind != sys::Kind::kMissing;
    std::optional<NameStore> store;
    if (is_there || !dry)
      store.emplace(file, dry ? NameStore::For::kReading : NameStore::For::kAppending,
                    context.locking());
    if (store && store->torn_bytes() != 0) {
      context.out().note(formatted("stgctl: {} bytes after the last snapshot are incomplete{}",
                                   store->torn_bytes(), dry ? "" : " and were removed"));
    }
    const SavedIndexes before =
        store ? indexes_before(context, *store, head.storage) : SavedIndexes();
    const std::uint64_t last = store ? store->last_number() : 0;
    const std::uint64_t size = store ? store->file_size() : 0;
    const admin::TakenIndexes taken =
        take(context, before, [&](std::string_view text, const SavedIndex* earlier) {
          return dry ? admin::measure(text) : store->add(text, earlier);
        });
    head.unread = taken.unread;
    const Snapshot made = dry ? preview(before, taken.indexes, head, last)
                              : store->commit(head, before, taken.indexes);
    show(context, made, file, dry ? 0 : store->file_size() - size);
    if (taken.lock_missed) return Exit::kLockTimeout;
    return taken.unread != 0 ? Exit::kPartlyDone : Exit::kDone;
  });
}

// ---- index log ---------------------------------------------------------------------------------

constexpr const char* kLogSchema = "stgctl.index-log/1";

void show_snapshot(Context& context, const NameStore::Kept& kept) {
  Output& out = context.out();
  const std::string number = out.styled(Style::kBold, formatted("{:>6}", kept.number));
  Json fields = {{"record", "snapshot"},
                 {"number", kept.number},
                 {"state", kept.snapshot ? "whole" : "damaged"}};
  if (kept.snapshot) fields.update(fields_of(*kept.snapshot));
  fields["file_bytes"] = kept.file_bytes;
  if (!kept.snapshot) {
    return out.result(kLogSchema, fields, "{}  {}\n", number, out.styled(Style::kRed, "damaged"));
  }
  const Snapshot& s = *kept.snapshot;
  out.result(kLogSchema, fields,
             "{}  {}  {:>8} entries  {:>5} folders  {} changed, {} new, {} removed{}\n", number,
             format_time(s.time), s.entries, s.folders, s.changed, s.added, s.removed,
             s.unread == 0 ? "" : formatted(", {} not read", s.unread));
}

void show_folder(Context& context, const Snapshot& snapshot, const admin::DocumentFolder& folder,
                 const char* change, const SavedIndex* index) {
  Output& out = context.out();
  const std::uint64_t entries = index != nullptr ? index->entries : 0;
  const std::uint64_t bytes = index != nullptr ? index->size : 0;
  const Json fields = {{"record", "folder"},    {"number", snapshot.number},
                       {"time", snapshot.time}, {"area", admin::name_of(folder.area)},
                       {"owner", folder.owner}, {"folder", folder.path},
                       {"change", change},      {"entries", entries},
                       {"bytes", bytes}};
  // JSON keeps the word "gone", which scripts may compare.
  const std::string_view shown_change = change == std::string_view("gone") ? "removed" : change;
  out.result(kLogSchema, fields, "{}  {}  {:<7}  {:>8} entries  {}\n",
             out.styled(Style::kBold, formatted("{:>6}", snapshot.number)),
             format_time(snapshot.time), shown_change, entries, shown(folder.path));
}

struct LogOptions : Arguments {
  NamesOption names{*this};
  FolderOption folder{*this};
};

/// The snapshots in which the wanted indexes changed.
std::uint64_t show_changes(Context& context, NameStore& store,
                           const std::vector<NameStore::Kept>& all, const LogOptions& options) {
  SavedIndexes before;
  std::uint64_t shown_lines = 0;
  for (const NameStore::Kept& kept : all) {
    Context::stop_if_interrupted();
    if (!kept.snapshot) {
      show_snapshot(context, kept);
      continue;
    }
    const NamesFilter filter(context, tree_of_names(context, kept.snapshot->layout),
                             options.folder);
    SavedIndexes now = store.indexes_of(kept.number);
    for (const auto& [name, index] : now) {
      const auto old = before.find(name);
      if (old != before.end() && old->second.digest == index.digest) continue;
      const auto folder = filter.wanted(name);
      if (!folder) continue;
      ++shown_lines;
      show_folder(context, *kept.snapshot, *folder, old == before.end() ? "new" : "changed",
                  &index);
    }
    for (const auto& [name, index] : before) {
      if (now.contains(name)) continue;
      const auto folder = filter.wanted(name);
      if (!folder) continue;
      ++shown_lines;
      show_folder(context, *kept.snapshot, *folder, "gone", nullptr);
    }
    before = std::move(now);
  }
  return shown_lines;
}

Exit run_log(Context& context, const LogOptions& options) {
  const std::string file = names_file(context, options.names);
  return on_names([&] {
    NameStore store(file, NameStore::For::kReading, context.locking());
    const std::vector<NameStore::Kept> all = store.snapshots();
    const bool narrowed = !options.folder.empty() || !context.options().area.empty() ||
                          !context.options().owner.empty();
    std::uint64_t lines = all.size();
    if (narrowed) {
      lines = show_changes(context, store, all, options);
    } else {
      for (const NameStore::Kept& kept : all) show_snapshot(context, kept);
    }
    Output& out = context.out();
    out.result(kLogSchema,
               {{"record", "summary"},
                {"snapshots", all.size()},
                {"file", file},
                {"file_bytes", store.file_size()},
                {"torn_bytes", store.torn_bytes()}},
               "{}\n",
               out.styled(Style::kBold, formatted("{} snapshots, {} in {}", all.size(),
                                                  format_bytes(store.file_size()), shown(file))));
    if (!out.json() && store.torn_bytes() != 0)
      out.print("{} bytes after the last one are incomplete; the next snapshot removes them\n",
                store.torn_bytes());
    return lines == 0 ? Exit::kNothingMatched : Exit::kDone;
  });
}

// ---- index diff --------------------------------------------------------------------------------

constexpr const char* kDiffSchema = "stgctl.index-diff/1";

struct DiffOptions : Arguments {
  TextOption before{*this,
                    "before",
                    {"A", is_snapshot_name_or_now},
                    "A snapshot: its number, 'latest', a time in UTC ('2026-03-01 12:00', "
                    "'@SECONDS'), an age ('2h'), or 'now' for the tree itself",
                    kRequired};
  TextOption after{*this,
                   "after",
                   {"B", is_snapshot_name_or_now},
                   "The snapshot to compare with (now)",
                   initially("now")};
  NamesOption names{*this};
  FolderOption folder{*this};
};

/// The names of a tree at one moment: from a snapshot, or just read.
struct Side {
  SavedIndexes indexes;
  std::map<std::uint64_t, std::string> texts;  ///< of indexes in the tree that the other side lacks
  admin::Layout layout = admin::Layout::kOwner;
  Json fields;
  bool lock_missed = false;
  std::uint64_t unread = 0;

  std::string text_of(NameStore& store, const SavedIndex& index) const {
    const auto found = texts.find(index.digest.low);
    return found != texts.end() ? found->second : store.text_of(index);
  }
};

Side read_now(Context& context, const SavedIndexes& other) {
  Side side;
  auto asked = context.walk();
  asked.scope = {};
  const auto keep = [&](std::string_view text, const SavedIndex*) {
    const SavedIndex index = admin::measure(text);
    side.texts.emplace(index.digest.low, text);
    return index;
  };
  admin::TakenIndexes taken =
      admin::take_indexes(context.tree(), other, asked, keep, warn_of_failures(context));
  Context::stop_if_interrupted();
  side.indexes = std::move(taken.indexes);
  side.layout = context.tree().layout;
  side.fields = {{"now", true}, {"time", os::now()}};
  side.lock_missed = taken.lock_missed;
  side.unread = taken.unread;
  return side;
}

Side read_saved(NameStore& store, const std::string& name) {
  Side side;
  const Snapshot snapshot = find_snapshot(store, name);
  side.indexes = store.indexes_of(snapshot.number);
  side.layout = snapshot.layout;
  side.fields = {{"number", snapshot.number}, {"time", snapshot.time}};
  return side;
}

/// Prints the differences, then the totals.
class DiffReport {
 public:
  explicit DiffReport(Context& context) : m_context(context) {}

  void folder(const admin::DocumentFolder& folder, std::string_view before,
              std::string_view after) {
    bool differs = false;
    admin::compare_names(before, after, [&](const NameDifference& difference) {
      differs = true;
      ++m_counts.at(static_cast<std::size_t>(difference.what));
      tell(folder, difference);
    });
    if (differs) ++m_folders;
  }

  Exit finish(const Side& before, const Side& after) {
    Output& out = m_context.out();
    const auto [added, removed, moved] = m_counts;
    out.result(kDiffSchema,
               {{"record", "summary"},
                {"before", before.fields},
                {"after", after.fields},
                {"added", added},
                {"removed", removed},
                {"moved", moved},
                {"folders", m_folders}},
               "{}\n",
               out.styled(Style::kBold, formatted("{} added, {} removed, {} moved in {} folders",
                                                  added, removed, moved, m_folders)));
    if (before.lock_missed || after.lock_missed) return Exit::kLockTimeout;
    return before.unread + after.unread != 0 ? Exit::kPartlyDone : Exit::kDone;
  }

 private:
  void tell(const admin::DocumentFolder& folder, const NameDifference& difference) {
    Output& out = m_context.out();
    const admin::NameLine line{difference.key, {}};
    const Subject subject =
        subject_in(folder.area, folder.owner, std::string(line.logical()), line.timestamp());
    Json fields = {{"record", "name"}, {"change", admin::name_of(difference.what)}};
    put_subject(fields, subject);
    fields["folder"] = folder.path;
    if (difference.what != NameDifference::What::kAdded) fields["before"] = difference.before;
    if (difference.what != NameDifference::What::kRemoved) fields["after"] = difference.after;
    constexpr std::array<const char*, 3> kSigns = {"+", "-", "~"};
    constexpr std::array<Style, 3> kStyles = {Style::kGreen, Style::kRed, Style::kYellow};
    const auto what = static_cast<std::size_t>(difference.what);
    std::string files = shown(difference.before.empty() ? difference.after : difference.before);
    if (difference.what == NameDifference::What::kMoved) files += " -> " + shown(difference.after);
    out.result(kDiffSchema, fields, "{}  {}\n",
               out.styled(kStyles.at(what), formatted("{} {}", kSigns.at(what), shown(subject))),
               files);
  }

  Context& m_context;
  std::array<std::uint64_t, 3> m_counts{};
  std::uint64_t m_folders = 0;
};

Exit run_diff(Context& context, const DiffOptions& options) {
  const std::string file = names_file(context, options.names);
  return on_names([&] {
    NameStore store(file, NameStore::For::kReading, context.locking());
    const bool from_now = options.before == "now";
    const bool to_now = options.after == "now";
    if (from_now && to_now) misused("both sides are 'now'; name a snapshot ('stgctl index log')");
    Side saved = read_saved(store, from_now ? options.after : options.before);
    Side other =
        from_now || to_now ? read_now(context, saved.indexes) : read_saved(store, options.after);
    const Side& before = from_now ? other : saved;
    const Side& after = from_now ? saved : other;
    const NamesFilter filter(context, tree_of_names(context, after.layout), options.folder);
    DiffReport report(context);
    SavedIndexes all = before.indexes;
    all.insert(after.indexes.begin(), after.indexes.end());
    for (const auto& [name, any] : all) {
      Context::stop_if_interrupted();
      const auto old = before.indexes.find(name);
      const auto now = after.indexes.find(name);
      const bool has_old = old != before.indexes.end();
      const bool has_new = now != after.indexes.end();
      if (has_old && has_new && old->second.digest == now->second.digest) continue;
      const auto folder = filter.wanted(name);
      if (!folder) continue;
      report.folder(*folder, has_old ? before.text_of(store, old->second) : "",
                    has_new ? after.text_of(store, now->second) : "");
    }
    return report.finish(before, after);
  });
}

}  // namespace

Commands snapshot_commands() {
  return {
      {"index snapshot", Group::kChange, Effect::kChanges,
       "Save the names of all documents in a file outside the tree", run_snapshot,
       "Reads each index once, under a shared lock, and stores what differs from the last\n"
       "snapshot. The command only appends to the file; it does not change the tree and does\n"
       "not ask. For an index that cannot be read, the snapshot contains its state of the\n"
       "snapshot before."},
      {"index log", Group::kLook, Effect::kLooks, "List the snapshots of the names", run_log,
       "With --folder, --area or --owner: only the snapshots in which those indexes changed,\n"
       "and how many entries they had. This works without the tree, too."},
      {"index diff", Group::kLook, Effect::kLooks, "Compare the names of two snapshots", run_diff,
       "Shows names that were added (+), removed (-), or lead to another file (~). A time or\n"
       "an age selects the last snapshot that is not younger. --area, --owner and --folder\n"
       "limit it."}};
}

}  // namespace stgctl
