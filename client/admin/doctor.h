#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "client/admin/tree.h"

namespace admin {

/// Whether the locks that keep processes apart do so on a file system.
enum class LockProof : std::uint8_t {
  kNotTried,
  kExclude,  ///< of two handles on one file the second is refused while the first holds its lock
  kDoNotExclude,  ///< both get their lock: processes would overwrite each other's changes
  kFailed,        ///< the trial file could not be made or locked
};
std::string_view name_of(LockProof proof);

struct LockTrial {
  LockProof proof = LockProof::kNotTried;
  std::string folder;  ///< where it was tried
  std::string detail;
};

/// Tries locks on a file of its own, which is gone afterwards. The folder should be outside of the
/// tree and on its file system.
LockTrial try_locks(const std::string& folder);
/// The system's folder for temporary files.
std::string temporary_folder();

/// Counts of a tree's upper levels: nothing in a document folder is read.
struct AreaStatus {
  bool exists = false;
  std::uint64_t owners = 0;   ///< 0 in a flat tree
  std::uint64_t folders = 0;  ///< document folders
  std::uint64_t with_index = 0;
  std::uint64_t strays = 0;
};
struct TreeStatus {
  std::array<AreaStatus, kAreas.size()> areas{};
  std::uint64_t failures = 0;
};
TreeStatus status_of(const Tree& tree);

}  // namespace admin
