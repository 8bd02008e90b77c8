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

constexpr const char* kSchema = "stgctl.index-diff/1";

struct Options : Arguments {
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
    out.result(kSchema,
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
    out.result(kSchema, fields, "{}  {}\n",
               out.styled(kStyles.at(what), formatted("{} {}", kSigns.at(what), shown(subject))),
               files);
  }

  Context& m_context;
  std::array<std::uint64_t, 3> m_counts{};
  std::uint64_t m_folders = 0;
};

Exit run_diff(Context& context, const Options& options) {
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

Commands index_diff_command() {
  return {{"index diff", Group::kLook, Effect::kLooks, "Compare the names of two snapshots",
           run_diff,
           "Shows names that were added (+), removed (-), or lead to another file (~). A time or\n"
           "an age selects the last snapshot that is not younger. --area, --owner and --folder\n"
           "limit it."}};
}

}  // namespace stgctl
