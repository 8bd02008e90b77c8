#include <deque>
#include <set>
#include <sstream>

#include "client/stgctl/command.h"
#include "client/stgctl/manifest.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/paths.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace stgctl {

namespace {

struct Options : Arguments {
  TextOption folder{*this, "dir", "DIR", "The folder of an export", kRequired};
  Flag replace{*this, "--replace", "Replace versions that exist with different content"};
};

// ---- the journal -------------------------------------------------------------------------------

/// A journal of the versions that an import overwrites in place. It is a file beside the storage
/// folder, with the same name and ".import". A killed process leaves it. The next import,
/// of any export, then distinguishes a truncated document from one that another process stored. The
/// file stays locked during the import, which excludes a second import into the same tree.
class Journal {
 public:
  /// Reads what an earlier import left, and opens the journal. A dry run only reads.
  /// @throws Failure kLockTimeout while another import runs, kFailed if the journal cannot be
  /// written.
  explicit Journal(Context& context) : m_path(context.storage() + ".import") {
    std::string text;
    if (!context.is_dry_run()) {
      text = open();
    } else if (!sys::read_file(m_path, sys::Locking::none(), text).ok()) {
      text.clear();
    }
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      // A line without an end belongs to an overwrite that never began.
      if (lines.eof()) break;
      if (line.starts_with(kBegun)) m_pending.insert(line.substr(1));
      if (line.starts_with(kEnded)) m_pending.erase(line.substr(1));
    }
  }

  /// Whether the overwrite of a version was begun and not completed.
  bool is_pending(const admin::Holding& version) const {
    return m_pending.contains(word_for(version));
  }

  void begin(const admin::Holding& version) {
    // A line feed first, so that an unfinished line does not join this one.
    const std::string word = word_for(version);
    const std::string line = '\n' + (kBegun + word) + '\n';
    if (m_file.write(line) != static_cast<int>(line.size()))
      fail("{} cannot be written; check the free space", shown(m_path));
    m_pending.insert(word);
  }

  /// The version is complete, or was removed again.
  void end(const admin::Holding& version) {
    // If this line is missing, the next import only checks the version again.
    if (m_pending.erase(word_for(version)) != 0) m_file.write(kEnded + word_for(version) + '\n');
  }

  /// Ends the import: removes the journal, unless it contains pending versions.
  void close() {
    m_file.close();
    std::error_code ignored;
    if (m_pending.empty()) fs::remove(to_path(m_path), ignored);
  }

 private:
  static constexpr char kBegun = '+';
  static constexpr char kEnded = '-';

  /// The version as one word, because its names can contain any byte.
  static std::string word_for(const admin::Holding& version) {
    return formatted("{}/{}/{}/{}", admin::name_of(version.area), admin::to_hex(version.owner),
                     admin::to_hex(version.name), version.timestamp);
  }

  std::string open() {
    const fs::path path = to_path(m_path);
    m_file = vu_file(from_path(path.parent_path()), from_path(path.filename()));
    bool is_locked_elsewhere = false;
    if (!m_file.try_open(vu_file::o_append, is_locked_elsewhere, true))
      fail(
          "cannot create {}, the journal that lets a killed import continue; check the permissions "
          "there",
          shown(m_path));
    if (is_locked_elsewhere)
      locked_out("{} is locked: another import into this tree is running", shown(m_path));
    std::string text;
    try {
      m_file.read(text, 0);
    } catch (const vu_file_except& error) {
      fail("{}: {}", shown(m_path), error.what());
    }
    return text;
  }

  std::string m_path;
  vu_file m_file;
  std::set<std::string> m_pending;
};

// ---- checks ------------------------------------------------------------------------------------

/// Names that only this system does not allow.
void check_name_here(const char* what, std::string_view name) {
  if (sys::kSeparator != '\\') return;
  if (const char* const why = admin::why_not_portable(name))
    refuse("{} '{}' is not allowed: {}", what, shown(name), why);
}

void check_path_here(const std::string& path) {
  for (const std::string_view name : split(path, '/')) check_name_here("the path's name", name);
}

bool is_content_of(const ManifestItem& item, const Content& content) {
  return content.bytes == item.what.info.size && content.checksum == item.checksum;
}

/// The export's file, checked against the manifest.
void check_source(const ManifestItem& item, const std::string& source) {
  if (sys::describe(source).kind != sys::Kind::kFile)
    fail("{} is missing from the export", shown(source));
  if (!is_content_of(item, read_content(source, sys::Locking::none())))
    fail("{} differs from the manifest; export it again", shown(source));
}

std::string system_form(std::string path) {
  std::ranges::replace(path, '/', sys::kSeparator);
  return path;
}

/// Gives a file the time of its source, while no other process has it open.
/// @throws Failure kFailed if another process has it open until the time limit, or if it no longer
/// has the bytes of the source; as check_read().
void set_time(Context& context, const std::string& path, const std::string& source,
              std::int64_t time) {
  using admin::LockedFile;
  LockedFile file;
  const auto open = [&](LockedFile::For purpose) {
    return file.open(path, purpose, context.locking());
  };
  os::Status opened = open(LockedFile::For::kChanging);
  // A read-only file opens only for reading. A shared lock at least excludes writers.
  if (!opened.ok() && opened.failure() != os::Failure::kLocked)
    opened = open(LockedFile::For::kReading);
  Context::stop_if_interrupted();
  // The content is complete. A busy file must not end the import of the others.
  if (opened.failure() == os::Failure::kLocked)
    fail("its time is not restored: another process has it open");
  check_read(path, opened);
  if (!file.is_equal_to(source)) fail("another process changed it; import it again");
  set_modify_time(path, time);
}

// ---- the import --------------------------------------------------------------------------------

/// Imports the items of an export into a tree, in the order of the manifest. New versions are
/// stored in batches, as by put. Sub-parts, and files that are addressed by path, get their names
/// when they are complete and have their time.
class Importing {
 public:
  Importing(Context& context, const Options& options, const admin::Scope& scope, Journal& journal,
            ChangeReport& report)
      : m_context(context),
        m_options(options),
        m_scope(scope),
        m_journal(journal),
        m_report(report),
        m_reader(options.folder),
        m_entries(context) {}

  /// Imports the next items as one batch, and reports each. @return whether there can be more.
  bool run_batch(Progress& progress) {
    StoreBatch batch(m_context);
    std::deque<Work> works;
    m_entries.forget();
    bool is_more = false;
    for (ManifestItem item; (is_more = m_reader.next(item));) {
      if (!is_in_scope(item.what, m_scope)) continue;
      Work& work = works.emplace_back();
      work.item = std::move(item);
      if (!batch.take(work, [&] { return judge(work); })) break;
    }
    batch.run([&](const StoreItem& item) {
      // A kill during the overwrite leaves a truncated file. The journal lists the version.
      m_journal.begin(static_cast<const Work&>(item).item.what);
    });
    for (Work& work : works) {
      batch.attempt(work, [&] {
        // After a lock timeout, no other lock is waited for.
        if (!work.is_version() && !work.failure) batch.throw_end();
        finish(work);
      });
      tell(work);
      progress.advance(1, work.item.what.name);
    }
    batch.throw_end();
    return is_more;
  }

 private:
  /// The result for an item; in a dry run the expected one.
  enum class Result { kNew, kReplaced, kCompleted, kTimeSet, kThere };
  static constexpr std::array<const char*, 4> kWords = {"imported", "replaced", "completed",
                                                        "time restored"};

  struct Work : StoreItem {
    ManifestItem item;
    Result result = Result::kNew;

    bool is_version() const { return item.what.kind == admin::HoldingKind::kVersion; }
  };

  /// Whether to store the item as a version.
  bool judge(Work& work) {
    const admin::Holding& what = work.item.what;
    work.source = location_in(m_options.folder, work.item.file);
    check_owner(what);
    check_source(work.item, work.source);
    if (!work.is_version()) return false;
    check_name("the name", what.name);
    // The stored file gets a number as its name, with the extension of the logical name.
    const std::size_t dot = std::min(what.name.rfind('.'), what.name.size());
    check_name_here("the extension of", "x" + what.name.substr(dot));
    const admin::DocumentFolder folder =
        admin::folder_for(m_context.tree(), what.area, what.owner, what.name);
    work.target = target_of(m_context, folder);
    work.name = what.name;
    work.timestamp = what.timestamp;
    work.size = what.info.size;
    check_no_link(m_context, folder.path);
    check_not_shadowed(m_context, work.target, what.name, what.timestamp);
    work.old = m_entries.find(folder, what.name, what.timestamp);
    if (work.old && is_there(work)) return false;
    return !m_context.is_dry_run();
  }

  /// Whether a version with the same bytes exists: it stays, in its place.
  bool is_there(Work& work) {
    const admin::Holding& what = work.item.what;
    const bool is_ours = m_journal.is_pending(what);
    const std::string path = work.old->path();
    if (!is_content_of(work.item, read_content(path, m_context.locking()))) {
      if (!is_ours) check_replaces();
      work.result = is_ours ? Result::kCompleted : Result::kReplaced;
      return false;
    }
    // A killed import had completed it, but not recorded that.
    if (!m_context.is_dry_run()) m_journal.end(what);
    work.path = path;
    work.result = restore_time(work, path, work.old->info);
    return true;
  }

  /// For an existing file with the bytes of the item.
  Result restore_time(const Work& work, const std::string& path, const sys::Info& info) {
    const std::int64_t time = work.item.what.info.modify_time;
    if (info.modify_time == time) return Result::kThere;
    if (!m_context.is_dry_run()) set_time(m_context, path, work.source, time);
    return Result::kTimeSet;
  }

  void check_replaces() const {
    if (!m_options.replace) fail("it exists with different content; use --replace");
  }

  void finish(Work& work) {
    if (!work.is_version()) {
      if (!work.failure) work.result = import_by_path(work);
      return;
    }
    // A version whose time was not restored has a path and a failure. Its sub-parts are imported.
    m_has_document = work.failure && !work.path.empty();
    m_document = work.path;
    if (work.failure) return;
    const bool is_stored =
        !m_context.is_dry_run() && work.result != Result::kThere && work.result != Result::kTimeSet;
    if (is_stored) check_stored(work);
    m_has_document = true;
    if (is_stored) restore_time(work, work.path, sys::describe(work.path));
  }

  void check_stored(const Work& work) {
    if (!is_content_of(work.item, read_content(work.path, m_context.locking())))
      fail(
          "the stored version differs from the manifest; check whether another process writes to "
          "it");
    m_journal.end(work.item.what);
  }

  void check_owner(const admin::Holding& what) {
    if (what.owner.empty() || m_owners.contains({what.area, what.owner})) return;
    check_name("the owner", what.owner);
    check_name_here("the owner", what.owner);
    // A system that ignores letter case would mix two owners.
    const std::string area = m_context.tree().folder_of(what.area);
    const bool exists = sys::describe(sys::join(area, what.owner)).kind != sys::Kind::kMissing;
    if (exists && !std::ranges::binary_search(names_of_folder(area), what.owner))
      refuse(
          "the owner '{}' is not allowed: this system does not distinguish it from an existing "
          "owner",
          shown(what.owner));
    m_owners.emplace(what.area, what.owner);
  }

  /// The path of a part, or of a file that is addressed by path; empty if a dry run has not stored
  /// the document.
  std::string place_of(const ManifestItem& item) const {
    const admin::Holding& what = item.what;
    check_path_here(what.path);
    if (what.kind == admin::HoldingKind::kPart) {
      if (!m_has_document) fail("its document was not imported");
      return m_document.empty() ? std::string() : m_document + system_form(what.path);
    }
    std::string folder = m_context.tree().folder_of(what.area);
    if (!what.owner.empty()) folder = sys::join(folder, what.owner);
    return sys::join(folder, system_form(what.path));
  }

  Result import_by_path(const Work& work) {
    const ManifestItem& item = work.item;
    const std::string place = place_of(item);
    if (place.empty()) return Result::kNew;
    check_no_link(m_context, place);
    const sys::Info info = sys::describe(place);
    Result result = Result::kNew;
    if (info.kind == sys::Kind::kFile) {
      if (is_content_of(item, read_content(place, m_context.locking())))
        return restore_time(work, place, info);
      check_replaces();
      result = Result::kReplaced;
    } else if (info.kind != sys::Kind::kMissing) {
      fail("{} exists and is not a plain file", shown(place));
    }
    if (m_context.is_dry_run()) return result;
    NewFile file(place);
    if (read_content(work.source, sys::Locking::none(), &file).checksum != item.checksum)
      fail("{} changed while it was read", shown(work.source));
    file.commit(item.what.info.modify_time);
    return result;
  }

  void tell(const Work& work) {
    const Subject subject = subject_of(work.item.what);
    if (work.failure) return m_report.failed(subject, *work.failure);
    if (work.result == Result::kThere) return m_report.skipped(subject, "it already exists");
    if (work.result != Result::kTimeSet) m_report.add_bytes(work.item.what.info.size);
    m_report.done_as(kWords.at(static_cast<std::size_t>(work.result)), subject,
                     fields_of(work.item), tail_of(work.item));
  }

  Context& m_context;
  const Options& m_options;
  const admin::Scope& m_scope;
  Journal& m_journal;
  ChangeReport& m_report;
  ManifestReader m_reader;
  KnownEntries m_entries;                                  ///< for one batch
  std::set<std::pair<admin::Area, std::string>> m_owners;  ///< checked and allowed
  bool m_has_document = false;  ///< whether the last version of the manifest was imported
  std::string m_document;       ///< its path; empty in a dry run that would store it
};

// ---- the command -------------------------------------------------------------------------------

/// The totals to import, known after the whole manifest was checked.
struct Plan {
  admin::Scope scope;
  ManifestSums sums;
  std::uint64_t missing = 0;  ///< files that the export could not read
};

Plan plan_of(Context& context, const std::string& folder) {
  Plan plan;
  ManifestReader reader(folder);
  plan.scope = common_scope(context.scope(), reader.head().scope);
  if (reader.head().layout != context.tree().layout) {
    const bool is_flat = reader.head().layout == admin::Layout::kFlat;
    refuse("the export is of a tree {} owners, but this tree is {} owners (--layout)",
           is_flat ? "without" : "with", is_flat ? "with" : "without");
  }
  ManifestItem item;
  while (reader.next(item)) {
    Context::stop_if_interrupted();
    if (is_in_scope(item.what, plan.scope)) plan.sums.add(item);
  }
  plan.missing = reader.sums().failed;
  return plan;
}

Exit run_import(Context& context, const Options& options) {
  context.tree();
  check_outside_tree(context, options.folder);
  const Plan plan = plan_of(context, options.folder);
  if (plan.missing != 0) {
    context.out().warning(
        formatted("the export is incomplete: {} of its files could not be read when it was written",
                  plan.missing));
  }
  ChangeReport report(context, "stgctl.import/1", "imported");
  if (plan.sums.items() == 0) return report.finish({{"bytes", 0}});
  context.begin_changes(formatted("Import {} versions, {} sub-parts and {} files by path, {}?",
                                  plan.sums.versions, plan.sums.parts, plan.sums.files,
                                  format_bytes(plan.sums.bytes)));
  Journal journal(context);
  report.guarded("importing", plan.sums.items(), [&](Progress& progress) {
    Importing importing(context, options, plan.scope, journal, report);
    while (!Context::interrupted() && importing.run_batch(progress)) {
    }
  });
  if (!context.is_dry_run()) journal.close();
  return report.finish_bytes();
}

}  // namespace

Commands import_command() {
  return {{"import", Group::kChange, Effect::kChanges,
           "Store the content of an export, with its times", run_import,
           "Compares each file with the manifest before it stores the file, and each version\n"
           "afterwards. Skips what already exists. After a kill, run the same import again.\n"
           "--area and --owner limit it."}};
}

}  // namespace stgctl
