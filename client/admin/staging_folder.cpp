#include "client/admin/staging_folder.h"

#include <vector>

namespace admin {

namespace {

constexpr int kMostFolders = 1000;

std::string lock_in(const std::string& path) { return sys::join(path, StagingFolder::kLockName); }

/// Removes the copies; what cannot be removed stays.
void remove_copies(const std::string& path) {
  sys::Folder listing;
  std::vector<std::string> names;
  if (!listing.open(path).ok()) return;
  sys::Entry entry;
  while (listing.next(entry)) {
    if (entry.name != StagingFolder::kLockName) names.emplace_back(entry.name);
  }
  for (const std::string& name : names) {
    const std::string file = sys::join(path, name);
    static_cast<void>(os::make_writable(file));
    static_cast<void>(os::remove_file(file));
  }
}

}  // namespace

bool is_unfinished(std::string_view name) { return name.starts_with(".stgctl-part"); }

bool is_leftover(const std::string& path) {
  if (!is_unfinished(path.substr(path.rfind(sys::kSeparator) + 1))) return false;
  const sys::Kind kind = sys::describe(path).kind;
  if (kind != sys::Kind::kFolder) return kind == sys::Kind::kFile;
  sys::Locking at_once;
  at_once.time_out = std::chrono::milliseconds(0);
  LockedFile lock;
  const os::Status status =
      lock.open(lock_in(path), LockedFile::For::kReading, LockedFile::IfMissing::kFail, at_once);
  return status.failure() != os::Failure::kLocked;
}

os::Status StagingFolder::make(const std::string& folder) {
  remove_leftovers(folder);
  os::Status made;
  for (int number = 1; number <= kMostFolders; ++number) {
    const std::string path = sys::join(folder, std::string(kName) + std::to_string(number));
    made = os::create_directory(path);
    if (made.failure() == os::Failure::kAlreadyExists) continue;
    if (!made.ok()) return made;
    made = take(path, LockedFile::IfMissing::kMake);
    if (made.ok()) return made;
    const bool is_gone = sys::describe(path).kind == sys::Kind::kMissing;
    if (is_gone || made.failure() == os::Failure::kLocked) continue;
    static_cast<void>(os::remove_directory(path));
    return made;
  }
  return made;
}

os::Status StagingFolder::take(const std::string& path, LockedFile::IfMissing if_missing) {
  sys::Locking at_once;
  at_once.time_out = std::chrono::milliseconds(0);
  const os::Status locked =
      m_lock.open(lock_in(path), LockedFile::For::kChanging, if_missing, at_once);
  if (!locked.ok()) return locked;
  // Whoever held it just before may have removed it.
  if (sys::describe(lock_in(path)).kind == sys::Kind::kMissing) {
    m_lock.close();
    return {0, os::Failure::kLocked};
  }
  m_path = path;
  return locked;
}

void StagingFolder::remove() {
  if (m_path.empty()) return;
  remove_copies(m_path);
  // Where an open file can be removed, nobody gets the lock of one that goes.
  const bool is_removed = os::remove_file(lock_in(m_path)).ok();
  m_lock.close();
  if (!is_removed) static_cast<void>(os::remove_file(lock_in(m_path)));
  static_cast<void>(os::remove_directory(m_path));
  m_path.clear();
}

void StagingFolder::remove_leftovers(const std::string& folder) {
  sys::Folder listing;
  std::vector<std::string> left;
  if (!listing.open(folder).ok()) return;
  sys::Entry entry;
  while (listing.next(entry)) {
    if (entry.kind == sys::Kind::kFolder && entry.name.starts_with(kName))
      left.push_back(sys::join(folder, entry.name));
  }
  for (const std::string& path : left) {
    StagingFolder dead;
    const os::Status taken = dead.take(path, LockedFile::IfMissing::kFail);
    // Only an empty folder goes by this.
    if (taken.failure() == os::Failure::kNotFound) static_cast<void>(os::remove_directory(path));
  }
}

}  // namespace admin
