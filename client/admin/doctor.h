#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "client/admin/tree.h"

namespace admin {

/// Whether whole-file locks work on a file system.
enum class LockProof : std::uint8_t {
  kNotTried,
  kExclude,       ///< while one handle has an exclusive lock, another handle gets none
  kDoNotExclude,  ///< both get a lock: processes would overwrite each other's changes
  kFailed,        ///< the trial file could not be created or locked
};
std::string_view name_of(LockProof proof);

struct LockTrial {
  LockProof proof = LockProof::kNotTried;
  std::string folder;
  std::string detail;
};

/// Tries locks on a new file in @p folder, and removes the file. The folder should be on the tree's
/// file system, but outside the tree.
LockTrial try_locks(const std::string& folder);
/// The system's folder for temporary files.
std::string temporary_folder();

/// Counts of the folders above the documents. Document folders are not listed.
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
