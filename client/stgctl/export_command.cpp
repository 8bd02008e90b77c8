#include <unordered_map>

#include "client/stgctl/command.h"
#include "client/stgctl/manifest.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/target.h"

namespace stgctl {

namespace {

/// Converts paths of names between "/" to portable names. The paths come folder by folder.
class PortablePaths {
 public:
  void clear() {
    m_names.clear();
    m_folders.clear();
  }

  std::string take(std::string_view path) {
    std::string result;
    std::size_t depth = 0;
    for (std::size_t end; (end = path.find('/')) != std::string_view::npos; ++depth) {
      const std::string_view name = path.substr(0, end);
      path.remove_prefix(end + 1);
      if (depth == m_folders.size() || m_folders[depth].name != name) {
        m_folders.resize(depth);
        m_folders.push_back({std::string(name), names_at(depth).take(name), {}});
      }
      result += m_folders[depth].portable + '/';
    }
    m_folders.resize(depth);
    return result + names_at(depth).take(path);
  }

 private:
  struct Folder {
    std::string name;
    std::string portable;
    admin::PortableNames names;
  };
  admin::PortableNames& names_at(std::size_t depth) {
    return depth == 0 ? m_names : m_folders[depth - 1].names;
  }

  admin::PortableNames m_names;
  std::vector<Folder> m_folders;  ///< the folders of the last path, from the top
};

/// The place of each item of an inventory in an export, with "/" between the names:
///
///     docs/OWNER/TIMESTAMP/NAME                    a version
///     docs/OWNER/TIMESTAMP.parts/NAME/_STAMP/...   its sub-parts
///     list/OWNER/...                               files that are addressed by path
///
/// All names are portable, and different in each folder.
class ExportNames {
 public:
  /// For the next item of the inventory.
  std::string take(const admin::Holding& holding) {
    enter(holding);
    switch (holding.kind) {
      case admin::HoldingKind::kVersion:
        m_paths.clear();
        m_document = m_documents[holding.timestamp].take(holding.name);
        return formatted("{}/{}/{}", m_folder, holding.timestamp, m_document);
      case admin::HoldingKind::kPart:
        return formatted("{}/{}.parts/{}/{}", m_folder, holding.timestamp, m_document,
                         m_paths.take(holding.path));
      default: return formatted("{}/{}", m_folder, m_paths.take(holding.path));
    }
  }

 private:
  void enter(const admin::Holding& holding) {
    if (m_area == holding.area && m_owner == holding.owner) return;
    if (m_area != holding.area) m_owners.clear();
    m_area = holding.area;
    m_owner = holding.owner;
    m_folder = admin::name_of(holding.area);
    if (!m_owner.empty()) m_folder += '/' + m_owners.take(m_owner);
    m_documents.clear();
    m_paths.clear();
  }

  std::optional<admin::Area> m_area;
  std::string m_owner;
  admin::PortableNames m_owners;
  std::string m_folder;    ///< of the owner
  std::string m_document;  ///< the last version's name
  std::unordered_map<std::int32_t, admin::PortableNames> m_documents;
  PortablePaths m_paths;
};

using admin::Holding;

/// Whether the target folder contains an unfinished export.
/// @throws Failure kRefused if it contains anything else.
bool is_unfinished(Context& context, const std::string& folder) {
  check_outside_tree(context, folder);
  const sys::Kind kind = sys::describe(folder).kind;
  if (kind == sys::Kind::kMissing) return false;
  if (kind != sys::Kind::kFolder) refuse("{} is not a folder; name another place", shown(folder));
  const std::vector<std::string> names = names_of_folder(folder);
  if (names.empty()) return false;
  if (std::ranges::find(names, kManifestName) != names.end())
    refuse("{} already contains an export; name another folder, or remove it", shown(folder));
  if (std::ranges::find(names, kUnfinishedManifestName) == names.end())
    refuse("{} is not empty; name an empty or a new folder", shown(folder));
  return true;
}

/// Removes an unfinished export.
void begin_anew(const std::string& folder) {
  std::error_code error;
  for (const admin::Area area : admin::kAreas) {
    fs::remove_all(to_path(joined(folder, admin::name_of(area))), error);
    if (error) break;
  }
  if (!error) fs::remove(to_path(joined(folder, kUnfinishedManifestName)), error);
  if (error)
    fail("{}: cannot remove the unfinished export in it ({}); remove it, or name another folder",
         shown(folder), error.message());
}

/// Copies the items of the inventory.
class Exporting final : public admin::InventorySink {
 public:
  /// @param manifest null in a dry run.
  Exporting(Context& context, const std::string& folder, ManifestWriter* manifest,
            ChangeReport& report)
      : m_context(context),
        m_folder(folder),
        m_manifest(manifest),
        m_report(report),
        m_progress(context.out(), "exporting") {}

  bool holding(const Holding& holding) override {
    if (Context::interrupted()) return false;
    const Subject subject = subject_of(holding);
    if (holding.out_of_reach != nullptr) {
      m_report.skipped(subject, holding.out_of_reach);
      return true;
    }
    try {
      ManifestItem item{holding, m_names.take(holding), {}};
      if (m_manifest != nullptr) copy(item);
      m_sums.add(item);
      m_report.done(subject, fields_of(item), tail_of(item));
    } catch (const WriteFailure& failure) {
      m_report.failed(subject, failure);
      m_disk_refuses = true;
      return false;
    } catch (const Failure& failure) {
      if (failure.code() == Exit::kInterrupted) throw;
      m_lock_missed |= failure.code() == Exit::kLockTimeout;
      m_report.failed(subject, failure.what());
    }
    m_progress.advance(1, holding.name);
    return true;
  }

  void left_out(const std::string& location, const char* why) override {
    m_report.skipped(subject_named(location), why);
  }
  void failed(const std::string& location, const std::string& why) override {
    m_report.failed(subject_named(location), why);
  }

  const ManifestSums& sums() const { return m_sums; }
  /// Whether a file could not be written. The items after it were not tried.
  bool disk_refuses() const { return m_disk_refuses; }
  bool lock_missed() const { return m_lock_missed; }

 private:
  /// Tries again if the document changed between the reads of its bytes and its time.
  void copy(ManifestItem& item) {
    constexpr int kTries = 3;
    const std::string& source = item.what.location;
    for (int i = 0; i < kTries; ++i) {
      const sys::Info before = sys::describe(source);
      NewFile target(location_in(m_folder, item.file));
      const Content content = read_content(source, m_context.locking(), &target);
      const sys::Info after = sys::describe(source);
      if (after.modify_time != before.modify_time || after.size != content.bytes) continue;
      target.commit(after.modify_time);
      item.what.info = after;
      item.checksum = content.checksum;
      m_manifest->add(item);
      return;
    }
    fail("it changed while it was read; export it when no process writes to it");
  }

  Context& m_context;
  const std::string& m_folder;
  ManifestWriter* m_manifest;
  ChangeReport& m_report;
  Progress m_progress;
  ExportNames m_names;
  ManifestSums m_sums;
  bool m_disk_refuses = false;
  bool m_lock_missed = false;
};

struct Options : Arguments {
  TextOption folder{*this, "dir", "DIR", "A new or empty folder outside the tree", kRequired};
};

Exit run_export(Context& context, const Options& options) {
  const std::string& folder = options.folder;
  const admin::Tree& tree = context.tree();
  const bool dry = context.is_dry_run();
  check_owner_exists(context);
  if (is_unfinished(context, folder) && !dry) {
    context.confirm(formatted("{} contains an unfinished export: start it again?", shown(folder)));
    begin_anew(folder);
  }
  ChangeReport report(context, "stgctl.export/1", "exported");
  std::optional<ManifestWriter> manifest;
  if (!dry) manifest.emplace(folder, ManifestHead{tree.layout, context.scope()});
  Exporting exporting(context, folder, dry ? nullptr : &*manifest, report);
  admin::EntryFailures failures;
  report.guarded([&] { failures = admin::take_inventory(tree, context.walk(), exporting); });
  const bool is_whole = !exporting.disk_refuses() && !Context::interrupted();
  if (manifest && is_whole) manifest->end(report.failures());
  if (!dry && !is_whole) {
    context.out().error(
        formatted("the export in {} is unfinished and has no manifest; run the same command again "
                  "to restart it",
                  shown(folder)));
  }
  const ManifestSums& sums = exporting.sums();
  Json fields = sums.fields();
  fields.update({{"whole", is_whole}, {"folder", folder}});
  const Exit code =
      report.finish(fields, formatted("{}: {}", format_bytes(sums.bytes), sums.in_words()));
  const bool lock_missed = exporting.lock_missed() || failures.lock_missed;
  if (code == Exit::kFailed && lock_missed) return Exit::kLockTimeout;
  // An empty tree has an export, too.
  return code == Exit::kNothingMatched && context.options().owner.empty() ? Exit::kDone : code;
}

}  // namespace

Commands export_command() {
  return {{"export", Group::kChange, Effect::kChanges,
           "Export a tree as files under their logical names, with a manifest", run_export,
           "Exports all areas: versions of documents with their sub-parts, user files, mail, and\n"
           "files that are addressed by path. --area and --owner limit it. The tree does not\n"
           "change. The manifest, which import and compare read, is written last: a folder\n"
           "without one contains an unfinished export. Orphans are not exported, but reported."}};
}

}  // namespace stgctl
