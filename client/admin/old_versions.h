#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/admin/system.h"
#include "client/admin/tree.h"

namespace admin {

/// A version whose bytes are stored elsewhere by now, and what has become of it.
struct OldVersion {
  enum class Fate : std::uint8_t {
    kPending,
    kRemoved,
    kMeanwhile,  ///< somebody else has changed it meanwhile: it stays
    kFailed,
    kLocked,  ///< the index was not to be had in time
  };

  std::string logical;
  std::int32_t timestamp = 0;
  std::string file;  ///< its name in the folder
  sys::Info info;    ///< of the file, before its bytes were copied
  Fate fate = Fate::kPending;
  std::string reason;  ///< of all but kRemoved; of kLocked the path
};

/// Removes versions of one folder from its index together: one load, one save, under its exclusive
/// lock. A file that somebody has open, or has changed since it was looked at, stays with its line.
/// A process that is killed leaves lines without files at most, which readers pass over. Folders of
/// parts are left to the caller.
void remove_old_versions(const DocumentFolder& folder, const sys::Locking& locking,
                         const std::vector<OldVersion*>& versions);

}  // namespace admin
