#pragma once

#include <string>
#include <string_view>

#include "client/admin/locked_file.h"

namespace admin {

/// Whether a name is that of something on its way: a file that the client has not completed, or a
/// StagingFolder. Nobody else takes such a thing for a document.
bool is_unfinished(std::string_view name);
/// Whether such a thing is there and its maker seems to be gone: the folder's lock is free. A file
/// has no lock, so its maker may be at work.
bool is_leftover(const std::string& path);

/// A folder of copies on their way into the index of the folder it lies in. Nobody adopts what lies
/// there. Its lock file is held while its program lives, so a folder whose lock is free belongs to
/// nobody any more.
///
/// The lock file is the last thing to go. So a folder without one is empty: just made, or nearly
/// removed. Such a folder may be removed by anybody, and its maker makes another one then.
class StagingFolder {
 public:
  StagingFolder() = default;
  ~StagingFolder() { remove(); }
  StagingFolder(const StagingFolder&) = delete;
  StagingFolder& operator=(const StagingFolder&) = delete;

  /// Makes one in @p folder, and removes there what programs that were killed have left.
  os::Status make(const std::string& folder);
  bool is_made() const { return !m_path.empty(); }
  const std::string& path() const { return m_path; }

  /// The beginning of the names of such folders.
  static constexpr std::string_view kName = ".stgctl-part-";
  /// The name of the lock file in one.
  static constexpr std::string_view kLockName = "lock";

 private:
  /// Takes a folder's lock, or fails at once.
  os::Status take(const std::string& path, LockedFile::IfMissing if_missing);
  /// Removes the folder whose lock is held; what cannot be removed stays.
  void remove();
  static void remove_leftovers(const std::string& folder);

  std::string m_path;  ///< of the folder whose lock is held
  LockedFile m_lock;
};

}  // namespace admin
