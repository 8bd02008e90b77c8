// index dump and index lint: the unchanged lines of index.dat. index restore: names of a snapshot.

#include "client/admin/name_restore.h"
#include "client/stgctl/look.h"
#include "client/stgctl/names_file.h"

namespace stgctl {

namespace {

using admin::IndexState;
using admin::LintedLine;
using admin::NameFate;
using admin::NameStore;
using admin::RestoredName;
using admin::RestorePlan;
using admin::Verdict;

enum class Wanted { kAllLines, kBadLines };

struct LineOptions : Arguments {
  TextOption folder{*this, "folder", "DIR",
                    "One document folder, instead of all that --area and --owner select"};
  NoLock no_lock{*this};
};

std::string_view name_of(IndexState state) {
  constexpr std::array<std::string_view, 5> kNames = {"missing", "read", "no-bytes", "locked",
                                                      "failed"};
  return kNames[static_cast<std::size_t>(state)];
}

/// What is wrong with a line, or empty.
std::string remark_on(const LintedLine& line) {
  if (line.has_zeros) return "damaged: it contains zeros, which may have replaced other lines";
  switch (line.verdict) {
    case Verdict::kNoSeparator: return "skipped: no \"/\"";
    case Verdict::kShortKey: return "skipped: the key is too short for a timestamp";
    case Verdict::kNoFile: return "skipped, dangling: its file is missing";
    case Verdict::kUnknown:
      return "skipped and kept: the system could not check whether its file exists";
    case Verdict::kDuplicateKey:
      return formatted("skipped: line {} has the same key", line.same_key_as);
    case Verdict::kEntry: break;
  }
  if (!line.has_file) return formatted("valid, but {} does not exist", shown(line.file));
  if (line.same_stored_as != 0)
    return formatted("line {} has the same physical name", line.same_stored_as);
  return line.has_odd_stamp ? "the key does not end in \"_\" and ten digits" : "";
}

class IndexVisitor final : public admin::Visitor {
 public:
  IndexVisitor(Context& context, Wanted wanted, const LineOptions& options)
      : m_context(context), m_wanted(wanted), m_locking(locking_for(context, options.no_lock)) {}

  bool folder(const admin::DocumentFolder& folder) override {
    if (Context::interrupted()) return false;
    m_view.load(folder, m_locking);
    if (!m_view.status().ok()) {
      if (m_view.status().failure() != os::Failure::kNotFound) failed(folder.path, m_view.status());
      return true;
    }
    const IndexState state = m_view.index_state();
    if (state == IndexState::kMissing) return true;
    ++m_folders;
    if (state == IndexState::kLocked) m_failures.lock_missed = true;
    if (state == IndexState::kFailed) ++m_failures.folders;
    if (state != IndexState::kRead) ++m_problems;
    show_folder(state);
    for (const LintedLine& line : admin::IndexLint(m_view)) {
      const std::string remark = remark_on(line);
      if (!remark.empty()) ++m_problems;
      if (m_wanted == Wanted::kAllLines || !remark.empty()) show_line(line, remark);
    }
    return true;
  }

  void failed(const std::string& path, const os::Status& status) override {
    ++m_failures.folders;
    m_context.out().warning(shown(path) + ": " + sys::text_of(status));
  }

  Exit result() const {
    const Exit code = exit_of(m_failures, m_folders != 0);
    const bool is_bad = m_wanted == Wanted::kBadLines && m_problems != 0;
    return code == Exit::kDone && is_bad ? Exit::kProblemsFound : code;
  }

 private:
  void show_folder(IndexState state) {
    Output& out = m_context.out();
    if (!out.json() && m_wanted == Wanted::kBadLines && state == IndexState::kRead) return;
    out.result(schema(),
               {{"record", "index"},
                {"area", admin::name_of(m_view.folder().area)},
                {"owner", m_view.folder().owner},
                {"folder", m_view.folder().path},
                {"state", name_of(state)},
                {"bytes", m_view.index_text().size()}},
               "{}{}\n", out.styled(Style::kBold, shown(m_view.path_of(index_format::kIndexFile))),
               state == IndexState::kRead ? "" : formatted("  {}", name_of(state)));
  }

  void show_line(const LintedLine& line, const std::string& remark) {
    Json fields = {{"record", "line"},
                   {"folder", m_view.folder().path},
                   {"line", line.number},
                   {"verdict", admin::name_of(line.verdict)},
                   {"text", line.raw.substr(0, kMostShown)}};
    if (!line.logical.empty()) {
      fields["name"] = line.logical;
      fields["timestamp"] = line.timestamp;
    }
    if (line.verdict != Verdict::kNoSeparator) fields["physical"] = line.stored;
    if (line.verdict == Verdict::kEntry) fields["file"] = line.file;
    fields["remark"] = remark;
    const std::string where =
        m_wanted == Wanted::kAllLines
            ? formatted("{:>6}  ", line.number)
            : formatted("{}:{}: ", shown(m_view.path_of(index_format::kIndexFile)), line.number);
    m_context.out().result(
        schema(), fields, "{}{}{}\n", where, shown(line.raw.substr(0, kMostShown)),
        remark.empty() ? "" : m_context.out().styled(Style::kYellow, "  # " + remark));
  }

  const char* schema() const {
    return m_wanted == Wanted::kAllLines ? "stgctl.index-dump/1" : "stgctl.index-lint/1";
  }

  static constexpr std::size_t kMostShown = 4096;

  Context& m_context;
  Wanted m_wanted;
  sys::Locking m_locking;
  admin::FolderView m_view;
  std::uint64_t m_folders = 0;
  admin::EntryFailures m_failures;
  std::uint64_t m_problems = 0;
};

template <Wanted kWanted>
Exit run_lines(Context& context, const LineOptions& options) {
  IndexVisitor visitor(context, kWanted, options);
  const admin::Tree& tree = context.tree();
  if (options.folder.empty()) {
    admin::walk(tree, {context.scope()}, visitor);
    return visitor.result();
  }
  const auto located = admin::locate_in(tree, options.folder);
  if (!located || !located->rest.empty())
    not_found("{} is not a document folder of this tree", shown(options.folder));
  visitor.folder(located->folder);
  return visitor.result();
}

// ---- index restore -----------------------------------------------------------------------------

struct RestoreOptions : Arguments {
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
  Restoring(Context& context, const RestoreOptions& options)
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
                                               admin::why_not_usable(job.index(), status)));
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
  const RestoreOptions& m_options;
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

Exit run_restore(Context& context, const RestoreOptions& options) {
  return Restoring(context, options).run();
}

}  // namespace

Commands index_commands() {
  return {{"index dump", Group::kLook, Effect::kLooks, "Show the lines of index.dat unchanged",
           run_lines<Wanted::kAllLines>,
           "Marks the lines that the library's readers skip, with the reason."},
          {"index lint", Group::kLook, Effect::kLooks, "Show the faulty lines of index.dat",
           run_lines<Wanted::kBadLines>, "The exit code is 4 if there is one."}};
}

Commands index_restore_command() {
  return {{"index restore", Group::kChange, Effect::kChanges,
           "Restore names from a snapshot, without changing the documents", run_restore,
           "Restores a name if its file exists and no other name has that file. The names that\n"
           "the index has now stay. The entry that adoption gave to the file is removed, and a\n"
           "file whose extension adoption changed to lower case gets its old name. No other file\n"
           "is renamed, and no document is written. --area, --owner and --folder limit it."}};
}

}  // namespace stgctl
