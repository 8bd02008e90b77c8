#include "client/stgctl/repair_work.h"

#include <set>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/repair_text.h"
#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;
using admin::FolderView;
using admin::LockedFile;

namespace {

using How = Worked::How;

Worked skipped(const std::string& why) { return {How::kSkipped, why}; }
Worked failed(const os::Status& status) { return {How::kFailed, sys::text_of(status)}; }

std::string folder_of(const std::string& path) {
  return path.substr(0, path.rfind(sys::kSeparator));
}
std::string file_of(const std::string& path) {
  return path.substr(path.rfind(sys::kSeparator) + 1);
}

/// Opens and locks a file. @throws Failure kLockTimeout, kInterrupted.
os::Status open_locked(Context& context, LockedFile& file, const std::string& path,
                       LockedFile::For purpose, LockedFile::IfMissing if_missing) {
  const os::Status status = file.open(path, purpose, if_missing, context.locking());
  Context::stop_if_interrupted();
  if (status.failure() == os::Failure::kLocked) {
    throw Failure(Exit::kLockTimeout, formatted("{} is locked by {} (--lock-timeout)", shown(path),
                                                holder_of(context, path)));
  }
  return status;
}

/// Reads the folder of a file. The caller holds the lock of the folder's index.
void look(FolderView& view, const std::string& folder, LockedFile& index) {
  admin::DocumentFolder place;
  place.path = folder;
  std::string text;
  if (index.is_open() && index.read_text(text).ok()) {
    view.load_text(place, text);
  } else {
    sys::Locking no_lock;
    no_lock.mode = sys::Locking::Mode::kNone;
    view.load(place, no_lock);
  }
}

LockedFile::For purpose_of(bool dry_run) {
  return dry_run ? LockedFile::For::kReading : LockedFile::For::kChanging;
}

/// How to change the bytes of a file.
enum class Writing : std::uint8_t { kLines, kBytes };

os::Status write(LockedFile& file, Writing how, std::string_view old_bytes,
                 std::string_view new_bytes) {
  return how == Writing::kLines ? file.replace_lines(old_bytes, new_bytes)
                                : file.replace_bytes(old_bytes, new_bytes);
}

/// Records the step, keeps the old bytes, and writes the new ones.
Worked replace(AppliedPlan& plan, const Repair& repair, LockedFile& file, Writing how,
               const std::string& old_bytes, const std::string& new_bytes, bool was_missing) {
  const Step* step = plan.unfinished(repair);
  if (step == nullptr) step = &plan.note(repair, &old_bytes, digest_of(new_bytes), was_missing);
  const Step noted = *step;
  const os::Status status = write(file, how, old_bytes, new_bytes);
  if (!status.ok()) return failed(status);
  plan.note_done(noted);
  return {};
}

/// The bytes that a step has kept.
bool read_kept(const AppliedPlan& plan, const Step& step, std::string& bytes) {
  return sys::read_file(plan.item(step), {}, bytes).ok();
}

// ---- doing -------------------------------------------------------------------------------------

/// Changes the text of an index under its lock. @param change returns the new text, and the number
/// of removed or added lines. @param none the message if that number is 0. @param what "lines".
template <class Change>
Worked change_index(Context& context, const Repair& repair, const std::string& path, WorkPlan& work,
                    const Change& change, const char* none, const char* what) {
  LockedFile index;
  const os::Status opened =
      open_locked(context, index, path, purpose_of(work.is_dry()), LockedFile::IfMissing::kFail);
  if (opened.failure() == os::Failure::kNotFound) return skipped("the index no longer exists");
  if (!opened.ok()) return failed(opened);
  FolderView view;
  look(view, folder_of(path), index);
  if (!view.status().ok()) return failed(view.status());
  std::size_t count = 0;
  const std::string text = change(view, count);
  if (count == 0) return skipped(none);
  const std::string told = formatted("{} {}", count, what);
  if (work.is_dry()) return {How::kDone, told};
  Worked worked = replace(work.get(), repair, index, Writing::kLines,
                          std::string(view.index_text()), text, false);
  if (worked.how == How::kDone) worked.text = told;
  return worked;
}

Worked remove_lines(Context& context, const Repair& repair, const std::string& path,
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

Worked restore_lines(Context& context, const Repair& repair, const std::string& path,
                     WorkPlan& work) {
  const auto change = [&](const FolderView& view, std::size_t& added) {
    return admin::with_restored_lines(view, repair.lines, added);
  };
  return change_index(context, repair, path, work, change,
                      "the names exist already, or their files no longer exist", "names");
}

Worked remove_key_lines(Context& context, const Repair& repair, const std::string& path,
                        WorkPlan& work) {
  LockedFile file;
  const os::Status opened =
      open_locked(context, file, path, purpose_of(work.is_dry()), LockedFile::IfMissing::kFail);
  if (opened.failure() == os::Failure::kNotFound) return skipped("the file no longer exists");
  if (!opened.ok()) return failed(opened);
  std::string text;
  if (const os::Status read = file.read_all(text); !read.ok()) return failed(read);
  FolderView view;
  LockedFile none;
  look(view, folder_of(path), none);
  std::set<std::string> unwanted;
  for (const std::string& line : repair.lines) {
    if (admin::is_dangling(view, line)) unwanted.insert(line);
  }
  std::size_t removed = 0;
  std::string rest = admin::without_key_lines(text, unwanted, removed);
  if (AppliedPlan* const plan = work.begun()) {
    // A process that was killed during the write leaves new bytes, followed by old ones.
    const Step* const step = plan->unfinished(repair);
    std::string before;
    if (step != nullptr && read_kept(*plan, *step, before)) {
      const std::string wanted = admin::without_key_lines(before, unwanted, removed);
      if (admin::is_between(before, wanted, text)) rest = wanted;
    }
  }
  if (rest == text) return skipped("the lines no longer exist, or name an existing document now");
  const std::string told = formatted("{} lines", removed);
  if (work.is_dry()) return {How::kDone, told};
  Worked worked = replace(work.get(), repair, file, Writing::kBytes, text, rest, false);
  if (worked.how == How::kDone) worked.text = told;
  return worked;
}

Worked set_counter(Context& context, const Repair& repair, const std::string& path,
                   WorkPlan& work) {
  if (sys::describe(folder_of(path)).kind != sys::Kind::kFolder)
    return skipped("its folder no longer exists");
  const bool was_missing = sys::describe(path).kind == sys::Kind::kMissing;
  std::string text;
  LockedFile counter;
  if (!was_missing || !work.is_dry()) {
    const os::Status opened = open_locked(context, counter, path, purpose_of(work.is_dry()),
                                          LockedFile::IfMissing::kMake);
    if (!opened.ok()) return failed(opened);
    if (const os::Status read = counter.read_text(text); !read.ok()) return failed(read);
  }
  if (!text.empty() && admin::counter_in(text) >= admin::counter_in(repair.value))
    return skipped("the counter is already at " + shown(text));
  const std::string told = "to " + repair.value;
  if (work.is_dry()) return {How::kDone, told};
  Worked worked =
      replace(work.get(), repair, counter, Writing::kBytes, text, repair.value, was_missing);
  if (worked.how == How::kDone) worked.text = told;
  return worked;
}

Worked quarantine(Context& context, const Repair& repair, const std::string& path, WorkPlan& work) {
  const std::string folder = folder_of(path);
  const std::string index_path = sys::join(folder, index_format::kIndexFile);
  // Under the index's lock no process can create an entry for the file.
  LockedFile index;
  if (sys::describe(index_path).kind != sys::Kind::kMissing) {
    const os::Status opened = open_locked(context, index, index_path, purpose_of(work.is_dry()),
                                          LockedFile::IfMissing::kFail);
    if (!opened.ok()) return failed(opened);
  }
  const sys::Info info = sys::describe(path);
  if (AppliedPlan* const plan = work.begun(); plan != nullptr && info.kind == sys::Kind::kMissing) {
    const Step* const step = plan->unfinished(repair);
    if (step != nullptr && sys::describe(plan->item(*step)).kind != sys::Kind::kMissing) {
      plan->note_done(Step(*step));
      return {};
    }
  }
  if (info.kind == sys::Kind::kMissing) return skipped("it no longer exists");
  FolderView view;
  look(view, folder, index);
  if (admin::is_unfinished(file_of(path))) {
    if (!admin::is_leftover(path)) return skipped("the program that created it is running");
  } else if (repair.is_folder) {
    if (!admin::is_orphaned_parts(view, file_of(path))) return skipped("its document exists");
  } else if (!admin::is_unclaimed_file(view, file_of(path))) {
    return skipped("it has an entry now");
  }
  if (!repair.is_folder && (info.size != repair.bytes || info.modify_time != repair.modified))
    return skipped("it changed after the plan was written");
  if (!repair.is_folder) {
    // A process that still writes the file holds its lock.
    LockedFile file;
    const os::Status opened =
        open_locked(context, file, path, LockedFile::For::kReading, LockedFile::IfMissing::kFail);
    if (!opened.ok()) return failed(opened);
  }
  if (work.is_dry()) return {How::kDone, format_bytes(info.size)};
  AppliedPlan& plan = work.get();
  const Step* step = plan.unfinished(repair);
  if (step == nullptr) step = &plan.note(repair, nullptr, "", false);
  const Step noted = *step;
  const os::Status moved = os::rename(path, plan.item(noted));
  if (!moved.ok()) {
    return {How::kFailed, sys::text_of(moved) +
                              "; the quarantine must be on the same file system (--quarantine)"};
  }
  plan.note_done(noted);
  return {How::kDone, format_bytes(info.size)};
}

// ---- undoing -----------------------------------------------------------------------------------

Worked undo_move(const AppliedPlan& plan, const Step& step, const std::string& path, bool dry_run) {
  const std::string item = plan.item(step);
  if (sys::describe(item).kind == sys::Kind::kMissing)
    return skipped("it is not in the quarantine");
  if (sys::describe(path).kind != sys::Kind::kMissing)
    return {How::kFailed, "its place is taken; it stays in the quarantine as " + shown(item)};
  if (sys::describe(folder_of(path)).kind != sys::Kind::kFolder)
    return {How::kFailed,
            "its folder no longer exists; it stays in the quarantine as " + shown(item)};
  if (dry_run) return {};
  const os::Status moved = os::rename(item, path);
  return moved.ok() ? Worked() : failed(moved);
}

Worked undo_counter(LockedFile& counter, const Step& step, const std::string& path,
                    const std::string& before, const std::string& now, bool dry_run) {
  if (now == before && !step.was_missing) return skipped("it is in its old state already");
  if (digest_of(now) != step.after) return skipped("newer numbers are in use; the counter stays");
  if (dry_run) return {};
  if (!step.was_missing) {
    const os::Status written = counter.replace_bytes(now, before);
    return written.ok() ? Worked() : failed(written);
  }
  const os::Status removed = os::remove_file(path);
  return removed.ok() ? Worked() : failed(removed);
}

/// The bytes that an index or a key file must get; keeps all later changes.
std::string undone_text(const Step& step, const std::string& before, const std::string& now) {
  // An undo without enough space leaves the beginning of what it wrote.
  if (digest_of(now) == step.after || before.starts_with(now)) return before;
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

Worked undo_bytes(Context& context, const AppliedPlan& plan, const Step& step,
                  const std::string& path, bool dry_run) {
  std::string before;
  if (!read_kept(plan, step, before)) return skipped("the quarantine keeps nothing of it");
  LockedFile file;
  const os::Status opened =
      open_locked(context, file, path, purpose_of(dry_run), LockedFile::IfMissing::kFail);
  if (opened.failure() == os::Failure::kNotFound) return skipped("the file no longer exists");
  if (!opened.ok()) return failed(opened);
  std::string now;
  const bool is_key_file = step.repair.kind == RepairKind::kRemoveKeyLines;
  const os::Status read = is_key_file ? file.read_all(now) : file.read_text(now);
  if (!read.ok()) return failed(read);
  if (step.repair.kind == RepairKind::kSetCounter)
    return undo_counter(file, step, path, before, now, dry_run);
  if (now == before) return skipped("it is in its old state already");
  const std::string text = undone_text(step, before, now);
  if (text == now) return skipped("the lines exist already");
  const std::string told = text == before ? "" : "beside newer lines";
  if (dry_run) return {How::kDone, told};
  const Writing how = is_key_file ? Writing::kBytes : Writing::kLines;
  const os::Status written = write(file, how, now, text);
  return written.ok() ? Worked{How::kDone, told} : failed(written);
}

}  // namespace

WorkPlan::WorkPlan(Context& context, std::string quarantine, std::string digest, std::int64_t keep)
    : m_context(context),
      m_quarantine(std::move(quarantine)),
      m_digest(std::move(digest)),
      m_keep(keep) {
  if (is_dry()) return;
  const std::vector<std::uint64_t> numbers = applied_plans(m_quarantine);
  if (numbers.empty()) return;
  AppliedPlan last =
      AppliedPlan::open(context, m_quarantine, numbers.back(), LockedFile::For::kChanging);
  const bool is_ours = last.digest() == m_digest && last.storage() == context.tree().storage;
  if (is_ours && !last.is_complete() && !last.is_undone()) m_plan.emplace(std::move(last));
}

bool WorkPlan::is_dry() const { return m_context.options().dry_run; }

AppliedPlan& WorkPlan::get() {
  if (!m_plan) m_plan.emplace(AppliedPlan::begin(m_context, m_quarantine, m_digest, m_keep));
  return *m_plan;
}

Worked do_repair(Context& context, const Repair& repair, WorkPlan& work) {
  const std::string path = path_in_tree(context, repair.path);
  switch (repair.kind) {
    case RepairKind::kRemoveLines:
      return remove_lines(context, repair, path, work);
    case RepairKind::kRemoveKeyLines:
      return remove_key_lines(context, repair, path, work);
    case RepairKind::kSetCounter:
      return set_counter(context, repair, path, work);
    case RepairKind::kRestoreLines:
      return restore_lines(context, repair, path, work);
    default:
      return quarantine(context, repair, path, work);
  }
}

void note(Context& context, const std::function<void()>& noting) {
  try {
    noting();
  } catch (const Failure& failure) {
    context.out().warning(failure.what());
  }
}

Worked undo_step(Context& context, const AppliedPlan& plan, const Step& step, bool dry_run) {
  const std::string path = path_in_tree(context, step.repair.path);
  if (step.repair.kind == RepairKind::kQuarantine) return undo_move(plan, step, path, dry_run);
  return undo_bytes(context, plan, step, path, dry_run);
}

}  // namespace stgctl
