#include "client/admin/name_restore.h"
#include "client/stgctl/names_file.h"
#include "client/stgctl/target.h"

namespace stgctl {

namespace {

using admin::NameFate;
using admin::NameStore;
using admin::RestoredName;
using admin::RestorePlan;

struct Options : Arguments {
  TextOption at{*this,
                "--at",
                {"T", is_snapshot_name},
                "The snapshot: its number, a time in UTC ('2026-03-01 12:00', '@SECONDS'), an age "
                "('2h'); the latest otherwise"};
  FolderOption folder{*this};
  NamesOption names{*this};
  Flag missing{*this, "--missing", "Also list the names whose files are missing"};
};

/// A folder with names to restore.
struct Job {
  admin::DocumentFolder folder;
  std::string saved;

  std::string index() const { return sys::join(folder.path, index_format::kIndexFile); }
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
    if (m_restorable == 0 && m_to_drop == 0) {
      // Only interrupted saves are left to complete, which changes no name.
      for (const Job& job : m_jobs) restore(job);
      if (!m_any_told)
        not_found("snapshot {} has no name to restore; nothing was changed", m_snapshot.number);
    } else if (!m_context.is_dry_run()) {
      m_context.confirm(formatted("Restore {} names in {} folders as of {} UTC?", m_restorable,
                                  m_jobs.size(), format_time(m_snapshot.time)));
      m_report.for_each("restoring", m_jobs, [&](const Job& job) {
        restore(job);
        return job.folder.path;
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
      if (m_snapshot.layout != tree.layout)
        refuse(
            "the snapshot is of a tree in the layout '{}', this one has '{}'; use --layout, or "
            "name another snapshot",
            admin::name_of(m_snapshot.layout), admin::name_of(tree.layout));
      const NamesFilter filter(m_context, tree, m_options.folder);
      for (const auto& [name, index] : store.indexes_of(m_snapshot.number)) {
        Context::stop_if_interrupted();
        const auto folder = filter.wanted(name);
        if (!folder) continue;
        try {
          plan_folder({*folder, store.text_of(index)});
        } catch (const Failure& failure) {
          if (failure.code() != Exit::kFailed && failure.code() != Exit::kRefused) throw;
          tell_failed(*folder, failure.what());
        }
      }
    });
  }

  void plan_folder(Job job) {
    check_no_link(m_context, job.index());
    m_view.load(job.folder, m_context.locking());
    const admin::IndexState state = m_view.index_state();
    if (state == admin::IndexState::kLocked)
      check_locked(m_context, job.index(), m_view.index_status());
    Context::stop_if_interrupted();
    if (state == admin::IndexState::kFailed)
      fail("{}: {}", shown(job.index()), sys::text_of(m_view.index_status()));
    if (!m_view.status().ok() && m_view.status().failure() != os::Failure::kNotFound)
      fail("{}: {}", shown(job.folder.path), sys::text_of(m_view.status()));
    const RestorePlan plan = admin::plan_restore(m_view, job.saved);
    // An interrupted save is completed even if no name is restored.
    const bool is_job = plan.changes() || m_view.has_interrupted_save();
    if (m_context.is_dry_run() || !is_job) tell(job.folder, plan);
    if (!is_job) return;
    m_restorable += plan.count(NameFate::kRestored);
    m_to_drop += plan.dropped.size();
    if (!m_context.is_dry_run()) m_jobs.push_back(std::move(job));
  }

  void restore(const Job& job) {
    RestorePlan plan;
    const os::Status status =
        admin::restore_names(job.folder, job.saved, m_context.locking(), plan);
    check_locked(m_context, job.index(), status);
    if (!status.ok()) {
      return tell_failed(job.folder, formatted("{}: {}", shown(job.index()),
                                               admin::why_not_writable(job.index(), status)));
    }
    tell(job.folder, plan);
  }

  /// The other folders continue. The user can repeat this one with --folder.
  void tell_failed(const admin::DocumentFolder& folder, const std::string& why) {
    m_any_told = true;
    const std::string name = admin::saved_name_of(m_context.tree(), folder.path);
    m_report.failed(
        subject_named(name),
        formatted("{}; mend that, then run: stgctl index restore --folder {}", why, shown(name)));
  }

  void tell(const admin::DocumentFolder& folder, const RestorePlan& plan) {
    m_unchanged += plan.unchanged;
    for (const RestoredName& name : plan.names) tell(folder, name);
    for (const std::string& file : plan.dropped) {
      ++m_dropped;
      m_report.also_done("dropped", subject_in(folder.area, folder.owner, file, 0),
                         "the entry that adoption gave the file");
      m_any_told = true;
    }
  }

  void tell(const admin::DocumentFolder& folder, const RestoredName& name) {
    const bool has_no_file = name.fate == NameFate::kNoFile;
    if (has_no_file) ++m_without_file;
    if (has_no_file && !m_options.missing) return;
    m_any_told = true;
    const Subject subject = subject_in(folder.area, folder.owner, name.logical, name.timestamp);
    if (name.fate != NameFate::kRestored) return m_report.skipped(subject, name.reason);
    Json fields = {{"folder", folder.path}, {"file", name.file}};
    std::string tail = shown(name.file);
    if (!name.renamed_from.empty()) {
      fields["renamed_from"] = name.renamed_from;
      tail += ", which was " + shown(name.renamed_from);
    }
    m_report.done(subject, fields, tail);
  }

  Exit finish() {
    std::string tail = formatted("{} unchanged", m_unchanged);
    if (m_dropped != 0) tail += formatted(", {} dropped", m_dropped);
    if (m_without_file != 0) tail += formatted(", {} without a file", m_without_file);
    return m_report.finish({{"snapshot", m_snapshot.number},
                            {"time", m_snapshot.time},
                            {"unchanged", m_unchanged},
                            {"dropped", m_dropped},
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
  std::uint64_t m_to_drop = 0;
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
