#pragma once

#include "client/admin/names.h"
#include "client/stgctl/command.h"

/// @file
/// Common parts of the commands that use the file of saved names.
namespace stgctl {

/// --names: the file of the saved names.
struct NamesOption : TextOption {
  explicit NamesOption(Arguments app)
      : TextOption(app, "--names", "FILE",
                   "The file of saved names (beside the storage folder: 'storage.names')") {}
};
/// --folder: one of the saved indexes.
struct FolderOption : TextOption {
  explicit FolderOption(Arguments app)
      : TextOption(app, "--folder", "DIR",
                   "One document folder, by its path or as 'docs/anna/00000042'") {}
};

/// The path of the file: @p option, or beside the storage folder. The tree need not exist.
/// @throws Failure kRefused for a place in the tree.
std::string names_file(Context& context, const std::string& option);

/// The absolute path for a new file. @throws Failure kRefused for a place in the tree.
std::string place_outside(Context& context, const std::string& file);

/// The tree of the saved names: the existing tree, or the layout that it would have.
admin::Tree tree_of_names(Context& context, admin::Layout layout);

[[noreturn]] void throw_failure(const admin::StoreError& error);
/// Runs work on the file. @throws Failure in place of each StoreError.
template <class Work>
auto on_names(Work&& work) -> decltype(work()) {
  try {
    return std::forward<Work>(work)();
  } catch (const admin::StoreError& error) {
    throw_failure(error);
  }
}

/// Selects saved indexes by --area, --owner and --folder. As in a tree, the letter case of folders
/// does not matter on Windows.
class NamesFilter {
 public:
  /// @param named the value of --folder.
  /// @throws Failure kNothingMatched if it is not a document folder.
  NamesFilter(Context& context, admin::Tree tree, const std::string& named);
  /// The folder of a saved index, if it is selected.
  std::optional<admin::DocumentFolder> wanted(std::string_view saved_name) const;

 private:
  admin::Tree m_tree;
  admin::Scope m_scope;
  std::string m_folder;
};

/// As a check of an argument: empty if the text names a snapshot, otherwise an error text.
std::string is_snapshot_name(const std::string& text);
std::string is_snapshot_name_or_now(const std::string& text);
/// The named snapshot. A time selects the last snapshot that is not younger.
/// @throws Failure kNothingMatched if there is none, kFailed if it is damaged.
admin::Snapshot find_snapshot(admin::NameStore& store, const std::string& text);

/// The fields "number", "time", "storage", "folders", "entries", "bytes", "changed", "added",
/// "removed", "unread".
Json fields_of(const admin::Snapshot& snapshot);

// ---- what saved names tell ---------------------------------------------------------------------

/// The saved names beside a tree, for commands that report lost names and how to restore them. If
/// there are none, or they cannot be read, all results are empty.
class SavedNames {
 public:
  explicit SavedNames(Context& context);

  /// The snapshot that would restore the most names of a folder in its current state; of equal
  /// ones the latest.
  struct Known {
    std::uint64_t snapshot = 0;      ///< 0: none
    std::uint64_t restorable = 0;    ///< names that 'index restore' would bring back
    std::vector<std::string> lines;  ///< those that need no renamed file
  };
  Known best_for(const admin::FolderView& folder);
  /// The number of entries in a folder and below it, in the last snapshot that has any there.
  /// @param snapshot gets the number of that snapshot; unchanged if the result is 0.
  std::uint64_t entries_below(const std::string& folder, std::uint64_t& snapshot);

 private:
  struct Snapshot {
    std::uint64_t number = 0;
    admin::SavedIndexes indexes;
  };

  Context& m_context;
  std::unique_ptr<admin::NameStore> m_store;
  std::vector<Snapshot> m_snapshots;  ///< newest first
};

}  // namespace stgctl
