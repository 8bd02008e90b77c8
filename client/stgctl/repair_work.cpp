#include "client/stgctl/repair.h"

#include <set>

#include "client/admin/key_files.h"
#include "client/admin/repair_text.h"

namespace stgctl {

using admin::FolderView;
using admin::LockedFile;

namespace {

using How = Worked::How;

/// Ends a step that is not done; do_repair() and undo_step() return it as their result.
struct NotDone {
  Worked result;
};
[[noreturn]] void skip(const std::string& why) { throw NotDone{{How::kSkipped, why}}; }
[[noreturn]] void give_up(const std::string& why) { throw NotDone{{How::kFailed, why}}; }
void check(const os::Status& status) {
  if (!status.ok()) give_up(sys::text_of(status));
}

std::string folder_of(const std::string& path) {
  return path.substr(0, path.rfind(sys::kSeparator));
}
std::string file_of(const std::string& path) {
  return path.substr(path.rfind(sys::kSeparator) + 1);
}
bool is_missing(const std::string& path) { return sys::describe(path).kind == sys::Kind::kMissing; }

/// Opens and locks a file. @param if_gone the text of the skipped step if the file is missing.
/// @param is_other whether the step is about another file. Its message then names this one.
void open_locked(Context& context, LockedFile& file, const std::string& path,
                 LockedFile::For purpose, const char* if_gone, bool is_other = false) {
  const os::Status status = file.open(path, purpose, context.locking());
  check_locked(context, path, status);
  if (status.failure() == os::Failure::kNotFound) skip(if_gone);
  if (status.ok()) return;
  const bool reads = purpose == LockedFile::For::kReading;
  const std::string why =
      reads ? admin::why_not_readable(path, status) : admin::why_not_writable(path, status);
  give_up(is_other ? formatted("{} cannot be {}: {}", shown(path), reads ? "read" : "written", why)
                   : why);
}

/// Reads the folder of a file. Without its index nothing shows what the folder's names belong to,
/// so an index that cannot be read ends the step. @param index locked by the caller. If it is not
/// open, this reads it under a shared lock.
void look(Context& context, FolderView& view, const std::string& folder, LockedFile& index) {
  admin::DocumentFolder place;
  place.path = folder;
  if (index.is_open()) return check(view.load_locked(place, index));
  view.load(place, context.locking());
  check(view.status());
  const std::string path = view.path_of(index_format::kIndexFile);
  check_locked(context, path, view.index_status());
  if (view.index_state() != admin::IndexState::kFailed) return;
  give_up(formatted("the index {} cannot be read: {}", shown(path),
                    admin::why_not_readable(path, view.index_status())));
}

LockedFile::For purpose_of(Context& context, LockedFile::For change = LockedFile::For::kChanging) {
  return context.is_dry_run() ? LockedFile::For::kReading : change;
}

/// How to change the bytes of a file.
enum class Writing : std::uint8_t { kLines, kBytes };

void write(LockedFile& file, Writing how, std::string_view old_bytes, std::string_view new_bytes) {
  check(how == Writing::kLines ? file.replace_lines(old_bytes, new_bytes)
                               : file.replace_bytes(old_bytes, new_bytes));
}

/// Records the step, keeps the old bytes, and writes the new ones; not in a dry run.
void replace(WorkPlan& work, const Repair& repair, LockedFile& file, Writing how,
             const std::string& old_bytes, const std::string& new_bytes, bool was_missing = false) {
  if (work.is_dry()) return;
  AppliedPlan& plan = work.get();
  const RepairStep step =
      plan.begin_step(repair, &old_bytes, admin::checksum_of(new_bytes), was_missing);
  write(file, how, old_bytes, new_bytes);
  plan.note_done(step);
}

/// The bytes that a step has kept.
bool read_kept(const AppliedPlan& plan, const RepairStep& step, std::string& bytes) {
  return sys::read_file(plan.item(step), {}, bytes).ok();
}

// ---- doing -------------------------------------------------------------------------------------

// Each returns what it did.

/// Changes the text of an index under its lock. @param change returns the new text, and the number
/// of removed or added lines. @param none the message if that number is 0. @param what "lines".
template <class Change>
std::string change_index(Context& context, const Repair& repair, const std::string& path,
                         WorkPlan& work, const Change& change, const char* none, const char* what) {
  LockedFile index;
  open_locked(context, index, path, purpose_of(context), "the index no longer exists");
  FolderView view;
  look(context, view, folder_of(path), index);
  std::size_t count = 0;
  const std::string text = change(view, count);
  if (count == 0) skip(none);
  replace(work, repair, index, Writing::kLines, std::string(view.index_text()), text);
  return formatted("{} {}", count, what);
}

std::string remove_lines(Context& context, const Repair& repair, const std::string& path,
                         WorkPlan& work) {
  const auto change = [&](const FolderView& view, std::size_t& removed) {
    std::set<admin::BadLine> unwanted;
    for (const auto& [number, line] : admin::bad_lines(view)) {
      for (std::size_t i = 0; i < repair.lines.size(); ++i) {
        if (line.text == repair.lines[i] && admin::name_of(line.verdict) == repair.codes[i])
          unwanted.insert(line);
      }
    }
    return admin::without_bad_lines(view, unwanted, removed);
  };
  return change_index(context, repair, path, work, change,
                      "the lines no longer exist, or are valid now", "lines");
}

std::string restore_lines(Context& context, const Repair& repair, const std::string& path,
                          WorkPlan& work) {
  const auto change = [&](const FolderView& view, std::size_t& added) {
    return admin::with_restored_lines(view, repair.lines, added);
  };
  return change_index(context, repair, path, work, change,
                      "the names exist already, or their files no longer exist", "names");
}

std::string remove_key_lines(Context& context, const Repair& repair, const std::string& path,
                             WorkPlan& work) {
  LockedFile file;
  open_locked(context, file, path, purpose_of(context), "the file no longer exists");
  std::string text;
  check(file.read_all(text));
  FolderView view;
  LockedFile none;
  look(context, view, folder_of(path), none);
  // Without the names of the index, every line would look dangling.
  if (view.index_state() != admin::IndexState::kRead) {
    const bool is_gone = view.index_state() == admin::IndexState::kMissing;
    give_up(formatted("the index {} {}; restore it first, then apply the plan again",
                      shown(view.path_of(index_format::kIndexFile)),
                      is_gone ? "is missing" : "has no entries"));
  }
  std::set<std::string> unwanted;
  for (const std::string& line : repair.lines) {
    if (admin::is_dangling(view, line)) unwanted.insert(line);
  }
  std::size_t removed = 0;
  std::string rest = admin::without_key_lines(text, unwanted, removed);
  if (AppliedPlan* const plan = work.begun()) {
    // A process that was killed during the write leaves new bytes, followed by old ones.
    const RepairStep* const step = plan->unfinished(repair);
    std::string before;
    if (step != nullptr && read_kept(*plan, *step, before)) {
      const std::string wanted = admin::without_key_lines(before, unwanted, removed);
      if (admin::is_between(before, wanted, text)) rest = wanted;
    }
  }
  if (rest == text) skip("the lines no longer exist, or name an existing document now");
  replace(work, repair, file, Writing::kBytes, text, rest);
  return formatted("{} lines", removed);
}

std::string set_counter(Context& context, const Repair& repair, const std::string& path,
                        WorkPlan& work) {
  if (sys::describe(folder_of(path)).kind != sys::Kind::kFolder)
    skip("its folder no longer exists");
  const bool was_missing = is_missing(path);
  std::string text;
  LockedFile counter;
  if (!was_missing || !work.is_dry()) {
    open_locked(context, counter, path, purpose_of(context, LockedFile::For::kCreating),
                "the counter no longer exists");
    check(counter.read_text(text));
  }
  if (!text.empty() && admin::counter_in(text) >= admin::counter_in(repair.value))
    skip("the counter is already at " + shown(text));
  replace(work, repair, counter, Writing::kBytes, text, repair.value, was_missing);
  return "to " + repair.value;
}

std::string quarantine(Context& context, const Repair& repair, const std::string& path,
                       WorkPlan& work) {
  const std::string folder = folder_of(path);
  const std::string index_path = sys::join(folder, index_format::kIndexFile);
  // Under the index's lock no process can create an entry for the file.
  LockedFile index;
  if (!is_missing(index_path))
    open_locked(context, index, index_path, purpose_of(context), "the index no longer exists",
                true);
  const sys::Info info = sys::describe(path);
  if (info.kind == sys::Kind::kMissing) {
    AppliedPlan* const plan = work.begun();
    const RepairStep* const step = plan != nullptr ? plan->unfinished(repair) : nullptr;
    if (step == nullptr || is_missing(plan->item(*step))) skip("it no longer exists");
    plan->note_done(*step);
    return {};
  }
  FolderView view;
  look(context, view, folder, index);
  if (const char* const why = why_not_movable(view, path, repair.is_folder)) skip(why);
  if (!repair.is_folder) {
    if (info.size != repair.bytes || info.modify_time != repair.modified)
      skip("it changed after the plan was written");
    // A process that still writes the file holds its lock.
    LockedFile file;
    open_locked(context, file, path, LockedFile::For::kReading, "it no longer exists");
  }
  if (work.is_dry()) return format_bytes(info.size);
  const RepairStep step = work.get().begin_step(repair);
  if (const os::Status moved = os::rename(path, work.get().item(step)); !moved.ok()) {
    if (is_missing(path)) skip("it no longer exists");
    give_up(sys::text_of(moved) +
            "; the quarantine must be on the same file system (--quarantine)");
  }
  work.get().note_done(step);
  return format_bytes(info.size);
}

// ---- undoing -----------------------------------------------------------------------------------

void undo_move(Context& context, const AppliedPlan& plan, const RepairStep& step,
               const std::string& path) {
  const std::string item = plan.item(step);
  if (is_missing(item)) skip("it is not in the quarantine");
  if (!is_missing(path))
    give_up("its place is taken; it stays in the quarantine as " + shown(item));
  if (sys::describe(folder_of(path)).kind != sys::Kind::kFolder)
    give_up("its folder no longer exists; it stays in the quarantine as " + shown(item));
  if (!context.is_dry_run()) check(os::rename(item, path));
}

void undo_counter(Context& context, LockedFile& counter, const RepairStep& step,
                  const std::string& path, const std::string& before, const std::string& now) {
  if (now == before && !step.was_missing) skip("it is in its old state already");
  if (admin::checksum_of(now) != step.after) skip("newer numbers are in use; the counter stays");
  if (context.is_dry_run()) return;
  check(step.was_missing ? os::remove_file(path) : counter.replace_bytes(now, before));
}

/// The bytes that an index or a key file must get; keeps all later changes.
std::string undone_text(const RepairStep& step, const std::string& before, const std::string& now) {
  // An undo without enough space leaves the beginning of what it wrote.
  if (admin::checksum_of(now) == step.after || before.starts_with(now)) return before;
  if (step.repair.kind == RepairKind::kRemoveLines)
    return admin::with_lines(now, step.repair.lines);
  // The restored names are valid, and other changes followed.
  if (step.repair.kind == RepairKind::kRestoreLines) return now;
  // A kill during the repair or the undo leaves a mix of both texts.
  std::size_t removed = 0;
  const std::set<std::string> lines(step.repair.lines.begin(), step.repair.lines.end());
  const std::string after = admin::without_key_lines(before, lines, removed);
  if (admin::is_between(before, after, now) || admin::is_between(after, before, now)) return before;
  return admin::with_key_lines(now, step.repair.lines);
}

std::string undo_bytes(Context& context, const AppliedPlan& plan, const RepairStep& step,
                       const std::string& path) {
  std::string before;
  if (!read_kept(plan, step, before)) skip("the quarantine keeps nothing of it");
  LockedFile file;
  open_locked(context, file, path, purpose_of(context), "the file no longer exists");
  std::string now;
  const bool is_key_file = step.repair.kind == RepairKind::kRemoveKeyLines;
  check(is_key_file ? file.read_all(now) : file.read_text(now));
  if (step.repair.kind == RepairKind::kSetCounter) {
    undo_counter(context, file, step, path, before, now);
    return {};
  }
  if (now == before) skip("it is in its old state already");
  const std::string text = undone_text(step, before, now);
  if (text == now) skip("the lines exist already");
  if (!context.is_dry_run())
    write(file, is_key_file ? Writing::kBytes : Writing::kLines, now, text);
  return text == before ? "" : "beside newer lines";
}

template <class Work>
Worked result_of(const Work& work) {
  try {
    return {How::kDone, work()};
  } catch (const NotDone& end) {
    return end.result;
  }
}

}  // namespace

const char* why_not_movable(const FolderView& view, const std::string& path, bool is_folder) {
  const std::string name = file_of(path);
  if (admin::is_unfinished(name))
    return admin::is_leftover(path) ? nullptr : "the program that created it is running";
  if (is_folder) return admin::is_orphaned_parts(view, name) ? nullptr : "its document exists";
  return admin::is_unclaimed_file(view, name) ? nullptr : "it has an entry now";
}

WorkPlan::WorkPlan(Context& context, std::string quarantine, std::string digest, std::int64_t keep)
    : m_context(context),
      m_quarantine(std::move(quarantine)),
      m_digest(std::move(digest)),
      m_keep(keep) {
  if (is_dry()) return;
  const std::vector<std::uint64_t> numbers = applied_plans(m_quarantine);
  if (numbers.empty()) return;
  AppliedPlan last(context, m_quarantine, numbers.back(), LockedFile::For::kChanging);
  const PlanRecord& record = last.record();
  const bool is_ours = record.digest == m_digest && record.storage == context.tree().storage;
  if (is_ours && !record.is_complete && !record.is_undone) m_plan.emplace(std::move(last));
}

bool WorkPlan::is_dry() const { return m_context.is_dry_run(); }

AppliedPlan& WorkPlan::get() {
  if (!m_plan) m_plan.emplace(AppliedPlan::begin(m_context, m_quarantine, m_digest, m_keep));
  return *m_plan;
}

Worked do_repair(Context& context, const Repair& repair, WorkPlan& work) {
  return result_of([&] {
    const std::string path = path_in_tree(context, repair.path);
    switch (repair.kind) {
      case RepairKind::kRemoveLines: return remove_lines(context, repair, path, work);
      case RepairKind::kRemoveKeyLines: return remove_key_lines(context, repair, path, work);
      case RepairKind::kSetCounter: return set_counter(context, repair, path, work);
      case RepairKind::kRestoreLines: return restore_lines(context, repair, path, work);
      default: return quarantine(context, repair, path, work);
    }
  });
}

Worked undo_step(Context& context, const AppliedPlan& plan, const RepairStep& step) {
  return result_of([&]() -> std::string {
    const std::string path = path_in_tree(context, step.repair.path);
    if (step.repair.kind != RepairKind::kQuarantine) return undo_bytes(context, plan, step, path);
    undo_move(context, plan, step, path);
    return {};
  });
}

}  // namespace stgctl
