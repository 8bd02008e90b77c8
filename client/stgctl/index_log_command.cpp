#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

using admin::NameStore;
using admin::SavedIndex;
using admin::SavedIndexes;
using admin::Snapshot;

constexpr const char* kSchema = "stgctl.index-log/1";

void show_snapshot(Context& context, const NameStore::Kept& kept) {
  Output& out = context.out();
  const std::string number = out.styled(Style::kBold, formatted("{:>6}", kept.number));
  Json fields = {{"record", "snapshot"},
                 {"number", kept.number},
                 {"state", kept.snapshot ? "whole" : "damaged"}};
  if (kept.snapshot) fields.update(fields_of(*kept.snapshot));
  fields["file_bytes"] = kept.file_bytes;
  if (!kept.snapshot) {
    return out.result(kSchema, fields, "{}  {}\n", number, out.styled(Style::kRed, "damaged"));
  }
  const Snapshot& s = *kept.snapshot;
  out.result(kSchema, fields,
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
  out.result(kSchema, fields, "{}  {}  {:<7}  {:>8} entries  {}\n",
             out.styled(Style::kBold, formatted("{:>6}", snapshot.number)),
             format_time(snapshot.time), shown_change, entries, shown(folder.path));
}

struct Options : Arguments {
  NamesOption names{*this};
  FolderOption folder{*this};
};

/// The snapshots in which the wanted indexes changed.
std::uint64_t show_changes(Context& context, NameStore& store,
                           const std::vector<NameStore::Kept>& all, const Options& options) {
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
    admin::compare_indexes(
        before, now, [&](const std::string& name, const SavedIndex* old, const SavedIndex* index) {
          const auto folder = filter.wanted(name);
          if (!folder) return;
          ++shown_lines;
          const char* const change = old == nullptr ? "new" : index == nullptr ? "gone" : "changed";
          show_folder(context, *kept.snapshot, *folder, change, index);
        });
    before = std::move(now);
  }
  return shown_lines;
}

Exit run_log(Context& context, const Options& options) {
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
    out.result(kSchema,
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

}  // namespace

Commands index_log_command() {
  return {{"index log", Group::kLook, Effect::kLooks, "List the snapshots of the names", run_log,
           "With --folder, --area or --owner: only the snapshots in which those indexes changed,\n"
           "and how many entries they had. This works without the tree, too."}};
}

}  // namespace stgctl
