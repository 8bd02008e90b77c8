#include "lab/interleavings/client_deeds.h"

#include <set>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/name_restore.h"
#include "client/admin/new_versions.h"
#include "client/admin/old_versions.h"
#include "client/admin/repair_text.h"
#include "lab/interleavings/meeting.h"

namespace interleavings {
namespace {

namespace sys = admin::sys;

std::string native_path(std::string path) {
  for (char& c : path) {
    if (c == '\\' || c == '/') c = sys::kSeparator;
  }
  return path;
}

admin::DocumentFolder folder_of(const Cast& cast) {
  return {admin::Area::kUser, cast.owner, "", native_path(cast.folder())};
}

const char* name_of(admin::NewVersion::Fate fate) {
  switch (fate) {
    case admin::NewVersion::Fate::kPending:
      return "pending";
    case admin::NewVersion::Fate::kStored:
      return "stored";
    case admin::NewVersion::Fate::kInPlace:
      return "in place";
    case admin::NewVersion::Fate::kMeanwhile:
      return "meanwhile";
    case admin::NewVersion::Fate::kFailed:
      return "failed";
    case admin::NewVersion::Fate::kLocked:
      return "locked";
  }
  return "?";
}

const char* name_of(admin::OldVersion::Fate fate) {
  switch (fate) {
    case admin::OldVersion::Fate::kPending:
      return "pending";
    case admin::OldVersion::Fate::kRemoved:
      return "removed";
    case admin::OldVersion::Fate::kMeanwhile:
      return "meanwhile";
    case admin::OldVersion::Fate::kInUse:
      return "in use";
    case admin::OldVersion::Fate::kFailed:
      return "failed";
    case admin::OldVersion::Fate::kLocked:
      return "locked";
  }
  return "?";
}

}  // namespace

std::string client_put(const Cast& cast) {
  const AsksAgain asks_again;
  admin::NewVersion version;
  version.source = native_path(cast.root + "\\plain\\one.txt");
  version.logical = cast.entry;
  {
    admin::NewVersions versions(folder_of(cast), {});
    if (!versions.stage(version)) return name_of(version.fate);
    admin::NewVersions::enter({&versions});
  }
  return std::string(name_of(version.fate)) + " " + version.file;
}

std::string client_restore(const Cast& cast) {
  const AsksAgain asks_again;
  // The names of the folder as they were saved once: the entry led to its file.
  const std::string saved = cast.entry + "_0000000000/00000001\n";
  admin::RestorePlan plan;
  const os::Status status = admin::restore_names(folder_of(cast), saved, {}, plan);
  return status.ok() ? std::to_string(plan.count(admin::NameFate::kRestored)) : "failed";
}

std::string client_move_out(const Cast& cast) {
  const AsksAgain asks_again;
  const admin::DocumentFolder folder = folder_of(cast);
  admin::FolderView view;
  view.load(folder, {});
  admin::IndexLint lint;
  lint.start(view);
  admin::OldVersion old;
  old.logical = cast.entry;
  admin::LintedLine line;
  while (lint.next(line)) {
    if (line.verdict == admin::Verdict::kEntry && line.key == cast.entry + "_0000000000")
      old.file = line.file;
  }
  if (old.file.empty()) return "nothing";
  const std::string path = view.path_of(old.file);
  const std::string elsewhere = native_path(cast.root + "\\plain\\moved-" + cast.mark);
  const os::Status copied = os::copy(path, elsewhere, os::IfExists::kReplace);
  if (!copied.ok()) return "not copied";
  old.is_same = [&](admin::LockedFile& file) { return file.is_equal_to(elsewhere); };
  admin::remove_old_versions({{folder, {&old}}}, {});
  return name_of(old.fate);
}

/// Takes the lines out that readers pass over.
std::string client_repair(const Cast& cast) {
  const AsksAgain asks_again;
  const admin::DocumentFolder folder = folder_of(cast);
  admin::LockedFile index;
  const os::Status opened =
      index.open(sys::join(folder.path, "index.dat"), admin::LockedFile::For::kChanging,
                 admin::LockedFile::IfMissing::kFail, {});
  if (!opened.ok()) return "no index";
  std::string text;
  if (!index.read_text(text).ok()) return "failed";
  admin::FolderView view;
  view.load_text(folder, text);
  std::set<admin::BadLine> unwanted;
  for (auto& [number, line] : admin::bad_lines(view)) unwanted.insert(std::move(line));
  if (unwanted.empty()) return "sound";
  std::size_t removed = 0;
  const std::string better = admin::without_bad_lines(view, unwanted, removed);
  return index.replace_lines(text, better).ok() ? "repaired" : "failed";
}

}  // namespace interleavings
