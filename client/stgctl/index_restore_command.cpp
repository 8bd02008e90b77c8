
#include <vector>

#include "client/admin/name_restore.h"
#include "client/admin/name_snapshot.h"
#include "client/admin/system.h"
#include "client/stgctl/command.h"
#include "client/stgctl/context.h"
#include "client/stgctl/names_file.h"
#include "client/stgctl/output.h"
#include "client/stgctl/report.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

using admin::NameFate;
using admin::NameStore;
using admin::RestoredName;
using admin::RestorePlan;

struct Options {
  Arguments app;
  TextOption at{app,
                "--at",
                {"T", is_snapshot_name},
                "The snapshot: its number, a time in UTC ('2026-03-01 12:00', '@SECONDS'), an age "
                "('2h'); the latest otherwise"};
  FolderOption folder{app};
  NamesOption names{app};
  Flag missing{app, "--missing", "Also list the names whose files are missing"};
};

/// A folder with names to restore.
struct Job {
  admin::DocumentFolder folder;
  std::string saved;
};

/// Restores the names of one tree: plans first, then works folder by folder.
class Restoring {
 public:
  Restoring(Context& context, const Options& options)
      : m_context(context),
        m_options(options),
        m_report(context, "stgctl.index-restore/1", "restored") {}

  Exit run() {
    plan();
    if (m_restorable == 0 && m_dropped == 0) {
      // Only interrupted saves are left to complete, which changes no name.
      for (const Job& job : m_jobs) restore(job);
      if (!m_any_told) {
        throw Failure(Exit::kNothingMatched,
                      formatted("snapshot {} has no name to restore; nothing was changed",
                                m_snapshot.number));
      }
      return finish();
    }
    if (!m_context.options().dry_run) {
      m_context.confirm(formatted("Restore {} names in {} folders as of {} UTC?", m_restorable,
                                  m_jobs.size(), format_time(m_snapshot.time)));
      m_report.guarded([&] {
        Progress progress(m_context.out(), m_context.options().progress, "restoring",
                          m_jobs.size());
        for (const Job& job : m_jobs) {
          if (Context::interrupted()) break;
          restore(job);
          progress.advance(1, job.folder.path);
        }
        return 0;
      });
    }
    return finish();
  }

 private:
  /// Reads the saved and the current names. Reports names that stay; in a dry run all names.
  void plan() {
    const std::string file = names_file(m_context, m_options.names);
    const admin::Tree& tree = m_context.tree();
    on_names([&] {
      NameStore store(file, NameStore::For::kReading, m_context.locking());
      m_snapshot = find_snapshot(store, m_options.at);
      if (m_snapshot.layout != tree.layout) {
        throw Failure(Exit::kRefused,
                      formatted("the snapshot is of a tree in the layout '{}', this one has '{}'; "
                                "use --layout, or name another snapshot",
                                admin::name_of(m_snapshot.layout), admin::name_of(tree.layout)));
      }
      const NamesFilter filter(m_context, tree, m_options.folder);
      for (const auto& [name, index] : store.indexes_of(m_snapshot.number)) {
        Context::stop_if_interrupted();
        const auto folder = filter.wanted(name);
        if (!folder) continue;
        try {
          plan_folder(*folder, store.text_of(index));
        } catch (const Failure& failure) {
          if (failure.code() != Exit::kFailed && failure.code() != Exit::kRefused) throw;
          tell_failed(*folder, failure.what());
        }
      }
    });
  }

  void plan_folder(const admin::DocumentFolder& folder, std::string saved) {
    check_no_link(m_context, admin::sys::join(folder.path, index_format::kIndexFile));
    m_view.load(folder, m_context.locking());
    Context::stop_if_interrupted();
    if (m_view.index_state() == admin::IndexState::kLocked) throw locked(folder);
    if (m_view.index_state() == admin::IndexState::kFailed) {
      throw Failure(Exit::kFailed,
                    formatted("{}: {}", shown(m_view.path_of(index_format::kIndexFile)),
                              admin::sys::text_of(m_view.index_status())));
    }
    const bool is_gone = m_view.status().failure() == os::Failure::kNotFound;
    if (!m_view.status().ok() && !is_gone) {
      throw Failure(Exit::kFailed,
                    formatted("{}: {}", shown(folder.path), admin::sys::text_of(m_view.status())));
    }
    const RestorePlan plan = admin::plan_restore(m_view, saved);
    const bool dry = m_context.options().dry_run;
    // An interrupted save is completed even if no name is restored.
    const bool is_job = plan.changes() || m_view.has_interrupted_save();
    if (dry || !is_job) tell(folder, plan);
    if (!is_job) return;
    m_restorable += plan.count(NameFate::kRestored);
    m_dropped += plan.dropped.size();
    if (!dry) m_jobs.push_back({folder, std::move(saved)});
  }

  void restore(const Job& job) {
    RestorePlan plan;
    const os::Status status =
        admin::restore_names(job.folder, job.saved, m_context.locking(), plan);
    Context::stop_if_interrupted();
    if (status.failure() == os::Failure::kLocked) throw locked(job.folder);
    if (!status.ok()) {
      const std::string path = admin::sys::join(job.folder.path, index_format::kIndexFile);
      tell_failed(job.folder,
                  formatted("{}: {}", shown(path), admin::why_not_usable(path, status)));
      return;
    }
    tell(job.folder, plan);
  }

  /// The other folders continue. The user can repeat this one with --folder.
  void tell_failed(const admin::DocumentFolder& folder, const std::string& why) {
    m_any_told = true;
    const std::string name = admin::saved_name_of(m_context.tree(), folder.path);
    m_report.failed(
        {"", "", name, std::nullopt},
        formatted("{}; mend that, then run: stgctl index restore --folder {}", why, shown(name)));
  }

  Failure locked(const admin::DocumentFolder& folder) {
    const std::string path = admin::sys::join(folder.path, index_format::kIndexFile);
    return {Exit::kLockTimeout, formatted("{} is locked by {} (--lock-timeout)", shown(path),
                                          holder_of(m_context, path))};
  }

  void tell(const admin::DocumentFolder& folder, const RestorePlan& plan) {
    m_unchanged += plan.unchanged;
    for (const RestoredName& name : plan.names) {
      const Subject subject{std::string(admin::name_of(folder.area)), folder.owner, name.logical,
                            name.timestamp};
      if (name.fate == NameFate::kRestored) {
        Json fields;
        put_name(fields, "folder", folder.path);
        put_name(fields, "file", name.file);
        if (!name.renamed_from.empty()) put_name(fields, "renamed_from", name.renamed_from);
        const std::string from =
            name.renamed_from.empty() ? "" : ", which was " + shown(name.renamed_from);
        m_report.done(subject, fields, shown(name.file) + from);
      } else if (name.fate == NameFate::kNoFile) {
        ++m_without_file;
        if (m_options.missing) m_report.skipped(subject, name.reason);
      } else {
        m_report.skipped(subject, name.reason);
      }
      m_any_told = m_any_told || name.fate != NameFate::kNoFile || m_options.missing;
    }
    for (const std::string& file : plan.dropped) {
      m_report.done_as("dropped", {std::string(admin::name_of(folder.area)), folder.owner, file, 0},
                       Json::object(), "the entry that adoption gave the file");
      m_any_told = true;
    }
  }

  Exit finish() {
    std::string tail = formatted("{} unchanged", m_unchanged);
    if (m_without_file != 0) tail += formatted(", {} without a file", m_without_file);
    return m_report.finish({{"snapshot", m_snapshot.number},
                            {"time", m_snapshot.time},
                            {"unchanged", m_unchanged},
                            {"without_file", m_without_file}},
                           tail);
  }

  Context& m_context;
  const Options& m_options;
  ChangeReport m_report;
  admin::Snapshot m_snapshot;
  admin::FolderView m_view;
  std::vector<Job> m_jobs;
  std::uint64_t m_restorable = 0;
  std::uint64_t m_dropped = 0;
  std::uint64_t m_unchanged = 0;
  std::uint64_t m_without_file = 0;
  bool m_any_told = false;
};

Exit run_restore(Context& context, const Options& options) {
  return Restoring(context, options).run();
}

}  // namespace

Commands index_restore_command() {
  return {{"index restore", Group::kChange, Effect::kChanges,
           "Restore names from a snapshot, without changing the documents", run_restore,
           "Restores a name if its file exists and no other name has that file. The names that\n"
           "the index has now stay. The entry that adoption gave to the file is removed, and a\n"
           "file whose extension adoption changed to lower case gets its old name. No other file\n"
           "is renamed, and no document is written. --area, --owner and --folder limit it."}};
}

}  // namespace stgctl
