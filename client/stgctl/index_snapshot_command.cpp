#include "client/stgctl/look.h"
#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

using admin::NameStore;
using admin::SavedIndex;
using admin::SavedIndexes;
using admin::Snapshot;

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
  Progress progress(context.out(), "reading", asked);
  admin::TakenIndexes taken =
      admin::take_indexes(context.tree(), before, asked, keep, warn_of_failures(context));
  // An incomplete view would look as if the rest had been removed.
  Context::stop_if_interrupted();
  return taken;
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

struct Options : Arguments {
  NamesOption names{*this};
};

Exit run_snapshot(Context& context, const Options& options) {
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
      store.emplace(file, dry ? NameStore::For::kReading : NameStore::For::kCreating,
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
    head.number = last + 1;
    head.unread = taken.unread;
    const Snapshot made = dry ? admin::description_of(head, before, taken.indexes)
                              : store->commit(head, before, taken.indexes);
    show(context, made, file, dry ? 0 : store->file_size() - size);
    if (taken.lock_missed) return Exit::kLockTimeout;
    return taken.unread != 0 ? Exit::kPartlyDone : Exit::kDone;
  });
}

}  // namespace

Commands index_snapshot_command() {
  return {{"index snapshot", Group::kChange, Effect::kSaves,
           "Save the names of all documents in a file outside the tree", run_snapshot,
           "Reads each index once, under a shared lock, and stores what differs from the last\n"
           "snapshot. The command only appends to the file; it does not change the tree and does\n"
           "not ask. For an index that cannot be read, the snapshot contains its state of the\n"
           "snapshot before."}};
}

}  // namespace stgctl
