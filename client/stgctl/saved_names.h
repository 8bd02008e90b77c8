#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/name_store.h"
#include "client/stgctl/context.h"

namespace stgctl {

/// What the saved names beside a tree know, for those who say what is lost and how it comes back.
/// Where there are none, or none that can be read, it knows nothing.
class SavedNames {
 public:
  explicit SavedNames(Context& context);

  /// The snapshot that would bring back the most names of a folder as it is, the latest of those.
  struct Known {
    std::uint64_t snapshot = 0;      ///< 0: none
    std::uint64_t entries = 0;       ///< that it has of the folder
    std::uint64_t restorable = 0;    ///< names that 'index restore' would bring back
    std::vector<std::string> lines;  ///< those of them that need no file renamed
  };
  Known best_for(const admin::FolderView& folder);
  /// How many entries the last snapshot that had any has in a folder and below. @param snapshot its
  /// number.
  std::uint64_t entries_below(const std::string& folder, std::uint64_t& snapshot);
  /// Whether there are snapshots at all.
  bool any() const { return !m_snapshots.empty(); }

 private:
  struct Snapshot {
    std::uint64_t number = 0;
    admin::names_format::SavedIndexes indexes;
  };

  Context& m_context;
  std::unique_ptr<admin::NameStore> m_store;
  std::vector<Snapshot> m_snapshots;  ///< newest first
};

}  // namespace stgctl
