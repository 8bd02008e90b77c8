#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/admin/locked_file.h"
#include "client/admin/tree.h"

namespace admin {

/// A version to remove if it has not changed since it was examined, and the result.
struct OldVersion {
  enum class Fate : std::uint8_t {
    kPending,
    kRemoved,
    kMeanwhile,  ///< another program has changed it: it stays
    kInUse,      ///< another process has it open: it stays
    kFailed,
    kLocked,  ///< the index was not locked in time
  };

  std::string logical;
  std::int32_t timestamp = 0;
  std::string file;  ///< its name in the folder
  /// Whether the version is unchanged. Called while the file is locked exclusively.
  std::function<bool(LockedFile& file)> is_same;
  Fate fate = Fate::kPending;
  std::string reason;  ///< empty for kRemoved; the path for kLocked
};

/// Versions of one folder.
struct OldVersions {
  DocumentFolder folder;
  std::vector<OldVersion*> versions;
};

/// Removes versions: each index is loaded and saved once under its exclusive lock, and all are
/// flushed together. A file that is open or has changed stays, with its entry. A file that another
/// entry also names stays without this entry. A process that is killed leaves at most dangling
/// entries. The caller removes sub-part folders.
/// @param folders sorted by path: several indexes are locked at a time, and one order for all
/// programs avoids a deadlock. After the first lock time-out, the versions of the remaining folders
/// stay pending.
void remove_old_versions(const std::vector<OldVersions>& folders, const sys::Locking& locking);

}  // namespace admin
