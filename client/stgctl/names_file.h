#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/name_store.h"
#include "client/stgctl/context.h"
#include "client/stgctl/output.h"

/// @file
/// What the commands on the file of saved names have in common.
namespace stgctl {

/// Which of a tree's indexes a command is about, and where they are saved.
struct NamesOptions {
  std::string file;    ///< --names
  std::string folder;  ///< --folder
};
void add_names_option(Arguments& app, NamesOptions& options);
void add_folder_option(Arguments& app, NamesOptions& options);

/// The path of the file: as said, or beside the storage folder. The tree need not exist.
/// @throws Failure kRefused for a place in the tree.
std::string names_file(Context& context, const NamesOptions& options);

/// The absolute path of a file that may be made there. @throws Failure kRefused for a place in the
/// tree.
std::string place_outside(Context& context, const std::string& file);

/// The tree that saved names belong to: the one that is there, or what its layout would be.
admin::Tree tree_of_names(Context& context, const admin::Snapshot& snapshot);

/// Runs work on the file. @throws Failure for each StoreError.
template <class Work>
auto on_names(Work&& work) -> decltype(work());
[[noreturn]] void fail(const admin::StoreError& error);

/// Chooses saved indexes by --area, --owner and --folder.
class NamesFilter {
 public:
  /// @throws Failure kNothingMatched when --folder is no document folder.
  NamesFilter(Context& context, const admin::Tree& tree, const NamesOptions& options);
  /// The folder of a saved index, if it is wanted.
  std::optional<admin::DocumentFolder> wanted(std::string_view saved_name) const;

 private:
  const admin::Tree& m_tree;
  admin::Scope m_scope;
  std::string m_folder;
};

/// A snapshot as it is named: "12", "latest", "2026-03-01 12:00", "@1772000000", "2h", "now".
struct SnapshotName {
  enum class Kind : std::uint8_t { kNumber, kLatest, kTime, kNow };
  Kind kind = Kind::kLatest;
  std::uint64_t number = 0;
  std::int64_t time = 0;  ///< seconds since 1970 UTC
};
/// @param now what an age is counted back from. @return nothing for other text.
std::optional<SnapshotName> parse_snapshot_name(std::string_view text, std::int64_t now);
/// As a check of an argument: empty when the text names a snapshot, else what is wrong with it.
std::string is_snapshot_name(const std::string& text);
std::string is_snapshot_name_or_now(const std::string& text);
/// The snapshot of that name; of a time the last one that is not younger.
/// @throws Failure kNothingMatched when there is none, kFailed when it is damaged.
admin::Snapshot find_snapshot(admin::NameStore& store, const std::string& text);

/// The fields "number", "time", "storage", "folders", "entries", "bytes", "changed", "added",
/// "removed", "unread".
Json fields_of(const admin::Snapshot& snapshot);

template <class Work>
auto on_names(Work&& work) -> decltype(work()) {
  try {
    return std::forward<Work>(work)();
  } catch (const admin::StoreError& error) {
    fail(error);
  }
}

// ---- what saved names tell ---------------------------------------------------------------------

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
