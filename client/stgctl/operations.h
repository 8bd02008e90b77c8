#pragma once

#include <deque>

#include "client/admin/stats.h"
#include "client/admin/versions.h"
#include "client/stgctl/target.h"

/// @file
/// Changes of versions. Each waits first for the locks that it needs, and checks the result in the
/// tree afterwards. The client stores versions itself, as the library writes them
/// (admin::NewVersions). Everything else goes through the library's interface.
namespace stgctl {

// ---- storing -----------------------------------------------------------------------------------

/// A file to store as a version, and the result.
struct StoreItem {
  Target target;
  std::string source;
  std::string name;
  std::int32_t timestamp = 0;
  std::uint64_t size = 0;
  std::optional<FoundEntry> old = {};  ///< the version that it replaces
  std::optional<Failure> failure = {};
  std::string path = {};  ///< of the version, once it is stored
};
Subject subject_of(const StoreItem& item);

/// @throws Failure kFailed if the file cannot be read, or its version not be written.
void check_storable(Context& context, const StoreItem& item);

/// Sorts items by the folders of their versions: each index is then loaded and saved as rarely as
/// possible. @param folder_of returns the path of an item's folder.
template <class Item, class FolderOf>
void sort_by_folder(std::vector<Item>& items, const FolderOf& folder_of) {
  std::vector<std::pair<std::string, Item>> sorted;
  for (Item& item : items) {
    std::string folder = folder_of(item);
    sorted.emplace_back(std::move(folder), std::move(item));
  }
  std::ranges::stable_sort(sorted, {}, &std::pair<std::string, Item>::first);
  for (std::size_t i = 0; i < items.size(); ++i) items[i] = std::move(sorted[i].second);
}

/// Stores versions with one load and one save of each index:
///
/// 1. take() for each item. The items must live until the end of the batch.
/// 2. run(). Then each taken item has its path or its failure.
/// 3. throw_end(), after all items were reported.
///
/// A failure concerns only its item. A lock timeout or Ctrl-C ends the batch: no other lock is
/// waited for, and the items that are not stored get the same failure.
class StoreBatch {
 public:
  /// Limits of a batch: a number of files, a number of bytes.
  static constexpr std::size_t kMostFiles = 100;
  static constexpr std::uint64_t kMostBytes = std::uint64_t{256} * 1024 * 1024;

  explicit StoreBatch(Context& context, std::size_t most_files = kMostFiles);

  /// Takes an item, and copies its file beside its place. @param judge whether to store it; can
  /// throw Failure. @return whether the batch can take another item.
  bool take(StoreItem& item, const std::function<bool()>& judge);
  /// Enters all versions, and removes the sub-parts of replaced versions. A version without space
  /// for both files is overwritten, see overwrite_file().
  /// @param before_overwrite is called first for such an item.
  void run(const std::function<void(const StoreItem&)>& before_overwrite = {});
  /// Runs a step for an item. A Failure becomes that of the item.
  void attempt(StoreItem& item, const std::function<void()>& step);

  /// What ended the batch: kLockTimeout, kInterrupted.
  std::optional<Failure>& end() { return m_end; }
  /// @throws Failure if something ended the batch.
  void throw_end() const {
    if (m_end) throw Failure(*m_end);
  }

 private:
  struct Staged {
    StoreItem* item = nullptr;
    admin::NewVersion version;
  };

  void stage(StoreItem& item);
  void settle(const Staged& staged, const std::function<void(const StoreItem&)>& before_overwrite);

  Context& m_context;
  std::size_t m_most_files;
  std::size_t m_taken = 0;
  std::uint64_t m_bytes = 0;
  std::uint64_t m_free;  ///< free space, less the copied bytes
  std::deque<Staged> m_staged;
  std::map<std::string, std::unique_ptr<admin::NewVersions>> m_folders;
  std::optional<Failure> m_end;
};

// ---- sub-parts ---------------------------------------------------------------------------------

/// The sub-part folders in a folder, by its current names. The name of each begins with
/// the name of a document's file and "_". It belongs to the file with the longest such name.
class FoundParts {
 public:
  explicit FoundParts(const std::string& folder) { m_view.list(folder); }

  /// The sub-part folders of some files.
  std::vector<std::string> of(const std::vector<std::string>& files) const;
  /// Removes the sub-part folders of some files. @throws Failure kFailed if one stays.
  void remove(const std::vector<std::string>& files) const;
  /// The same, with a warning instead of the exception.
  void try_to_remove(Context& context, const std::vector<std::string>& files) const;

 private:
  admin::FolderView m_view;
};

/// The sub-part folders of one version.
std::vector<std::string> part_folders(const FoundEntry& entry);

/// Counts what is below a folder. Links count as files and are not followed.
/// @param at_each is called before each item, and can throw.
admin::Sum count_below(const std::string& folder, const std::function<void()>& at_each = {});

// ---- removing many -----------------------------------------------------------------------------

/// An entry to remove, and the result.
struct Removal {
  const FoundEntry* entry = nullptr;
  admin::OldVersion version;

  /// @param is_same whether the entry is still the one to remove; called while no other process can
  /// write to it.
  Removal(const FoundEntry& old, std::function<bool(admin::LockedFile& file)> is_same);
  bool is_removed() const { return version.fate == admin::OldVersion::Fate::kRemoved; }
  std::string why_not_removed() const;
};

/// Removes entries with their sub-parts together: see admin::remove_old_versions(). Key lines stay.
/// @return why it stopped taking locks: kLockTimeout or kInterrupted.
std::optional<Failure> remove_together(Context& context, const std::vector<Removal*>& removals);

}  // namespace stgctl
