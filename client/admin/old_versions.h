#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "client/admin/locked_file.h"
#include "client/admin/tree.h"

namespace admin {

/// A version that is to go for what it was when it was looked at, and what has become of it.
struct OldVersion {
  enum class Fate : std::uint8_t {
    kPending,
    kRemoved,
    kMeanwhile,  ///< somebody else has changed it meanwhile: it stays
    kInUse,      ///< somebody has it open: it stays
    kFailed,
    kLocked,  ///< the index was not to be had in time
  };

  std::string logical;
  std::int32_t timestamp = 0;
  std::string file;  ///< its name in the folder
  /// Whether it is still what is to go. Asked while nobody else can write to it.
  std::function<bool(LockedFile& file)> is_same;
  Fate fate = Fate::kPending;
  std::string reason;  ///< of all but kRemoved; of kLocked the path
};

/// Versions of one folder.
struct OldVersions {
  DocumentFolder folder;
  std::vector<OldVersion*> versions;
};

/// Removes versions of some folders from their indexes together: one load and one save of each,
/// under its exclusive lock, and few flushes for all. A file that somebody has open, or that is not
/// the same any more, stays with its line. A process that is killed leaves lines without files
/// at most, which readers pass over. Folders of parts are left to the caller.
/// @param folders in one order for all programs, since several indexes are locked at a time: that
/// of their paths. Once the lock of one is not had in time, that of no other is asked for: their
/// versions stay pending.
void remove_old_versions(const std::vector<OldVersions>& folders, const sys::Locking& locking);

}  // namespace admin
