#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>

#include "client/admin/entries.h"
#include "client/admin/name_store_format.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"

namespace admin {

/// The name under which a snapshot keeps the index of a folder: its path below the storage folder,
/// with "/".
std::string saved_name_of(const Tree& tree, std::string_view folder);
/// The folder of such a name in a tree, whether it exists there or not. Nothing for a name that is
/// none, or that the tree's layout does not have.
std::optional<DocumentFolder> folder_of_saved_name(const Tree& tree, std::string_view name);

/// Hands the text of an index that differs from all earlier ones on to whoever keeps it.
/// @param earlier the index of the same folder before, or null.
using KeepText = std::function<names_format::SavedIndex(std::string_view text,
                                                        const names_format::SavedIndex* earlier)>;

struct SnapshotOptions {
  sys::Locking locking;
  /// Ends the walk at the next folder once it is set.
  const std::atomic<bool>* stop = nullptr;
  /// Told of each folder before its index is read.
  std::function<void(const DocumentFolder&)> on_folder;
};

/// The indexes of a tree at this moment, folder after folder: each is read once, under a shared
/// lock.
struct TakenIndexes {
  names_format::SavedIndexes indexes;
  std::uint64_t unread = 0;  ///< could not be read, and stand as they were before
  bool lock_missed = false;  ///< at least one of them for a lock
  bool was_stopped = false;
};
TakenIndexes take_indexes(const Tree& tree, const names_format::SavedIndexes& before,
                          const SnapshotOptions& options, const KeepText& keep,
                          const FailureSink& failed);

}  // namespace admin
