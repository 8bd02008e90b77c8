#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"
#include "index/index_format.h"

namespace admin {

struct IndexNames;

/// A version to store or to remove, and the result.
struct ChangedVersion {
  enum class Fate : std::uint8_t {
    kPending,
    kStored,
    kRemoved,
    kMeanwhile,  ///< another program has stored, changed or removed the entry: it stays so
    kInUse,      ///< not removed: another process has it open
    kFailed,
    kLocked,  ///< a lock was not obtained in time
    /// Not stored: the copy cannot replace the file. The file is open, or its owner could not be
    /// given to the copy. Nothing was changed; the caller must write into the existing file.
    kInPlace,
  };

  std::string logical;
  std::int32_t timestamp = 0;
  std::string file;  ///< its name in the folder; a new entry gets one when it is stored
  Fate fate = Fate::kPending;
  std::string reason;  ///< why it was not changed; with kLocked the path of the locked file

  std::string key() const { return index_format::key_of(logical, timestamp); }
  void end(Fate new_fate, std::string why = {}) {
    fate = new_fate;
    reason = std::move(why);
  }
  /// It failed because a file cannot be written. @param what "the index"
  void fail_to_write(const char* what, const std::string& path, const os::Status& status);
  /// The same, or kLocked if another process has locked the file.
  void refuse(const char* what, const std::string& path, const os::Status& status);
};

/// An index that is locked, loaded and saved once.
struct ChangedIndex {
  LockedFile file;
  FolderView view;
  std::string new_text;  ///< empty: it is not saved
  os::Status saved;      ///< ok if the new text is valid

  /// Saves those with a new text, and flushes them together.
  static void save(const std::vector<ChangedIndex*>& all);
};

// ---- storing ------------------------------------------------------------------------------------

/// A document to store.
struct NewVersion : ChangedVersion {
  std::string source;
  /// The file of the version to replace; empty for a new entry.
  std::string replaces;
};

/// Stores versions of one folder, with one load and one save of its index:
///
/// 1. stage() copies each file into a StagingFolder.
/// 2. The copies are flushed, for all folders together.
/// 3. prepare() locks the index, checks which keys are still free, takes numbers from the counter
///    and renames the copies to their final names.
/// 4. Counters and folders are flushed, for all folders together.
/// 5. ChangedIndex::save() saves each index once; the indexes are flushed together.
/// 6. replace_files() replaces the files of existing versions, each by one rename, while file and
///    index are locked. Then it unlocks the index.
/// 7. Folders in which files were replaced are flushed.
/// 8. verify() reads the index again, without a lock on any other index.
///
/// enter() does steps 2 to 8 for several folders.
///
/// A replaced version is the old one or the new one at any moment, never a mixture. A process that
/// waits for the file's lock at that moment still reads the old file.
///
/// An entry is visible only when its document is complete. After a failure the new physical file is
/// removed, never the entry by its key: the key may belong to another program. A process that is
/// killed leaves at most orphans with their complete content, and its StagingFolder, which the next
/// store in the folder removes.
class NewVersions {
 public:
  NewVersions(DocumentFolder folder, sys::Locking locking)
      : m_folder(std::move(folder)), m_locking(std::move(locking)) {}
  NewVersions(const NewVersions&) = delete;
  NewVersions& operator=(const NewVersions&) = delete;

  /// Copies the version's source. Creates missing folders.
  /// @return whether it succeeded; if not, the version contains the reason.
  bool stage(NewVersion& version);
  /// Stores what was staged, and sets the fate of each version.
  /// @param folders sorted by path: several indexes are locked at a time, and one order for all
  /// programs avoids a deadlock.
  static void enter(const std::vector<NewVersions*>& folders);

 private:
  struct Item {
    NewVersion* version = nullptr;
    std::string copy;
    std::string stored;
    bool is_moved = false;

    bool is_pending() const { return version->fate == NewVersion::Fate::kPending; }
    bool is_new() const { return version->replaces.empty(); }
    bool is_new_pending() const { return is_pending() && is_new(); }
  };

  void prepare();
  bool open_index();
  bool is_sound();
  void drop_taken(const IndexNames& names);
  bool draw_numbers(const IndexNames& names);
  void move_files();
  std::string text_with_lines() const;
  void judge_save();
  bool replace_files();
  void doubt_replaced(const std::string& why);
  void verify();
  void refuse(const char* what, const std::string& path, const os::Status& status);
  void fail_pending(const std::string& reason);
  void take_back(Item& item);
  bool any_new_pending() const;
  std::string path_of(std::string_view name) const { return sys::join(m_folder.path, name); }

  DocumentFolder m_folder;
  sys::Locking m_locking;
  StagingFolder m_staging;
  std::vector<Item> m_items;
  ChangedIndex m_index;  ///< locked from prepare() to replace_files()
};

// ---- removing -----------------------------------------------------------------------------------

/// A version to remove if it has not changed since it was examined.
struct OldVersion : ChangedVersion {
  /// Whether the version is unchanged. Called while the file is locked exclusively.
  std::function<bool(LockedFile& file)> is_same;
};

/// Versions of one folder.
struct OldVersions {
  DocumentFolder folder;
  std::vector<OldVersion*> versions;
};

/// Removes versions: each index is loaded and saved once under its exclusive lock, and all are
/// flushed together. A file that is open or has changed stays, with its entry. A file that another
/// entry also names stays without this entry. A second line with the key of a removed entry stays
/// if its file exists: it is the entry from now on, as after a removal by the library. A process
/// that is killed leaves at most dangling entries. The caller removes sub-part folders.
/// @param folders sorted by path: several indexes are locked at a time, and one order for all
/// programs avoids a deadlock. After the first lock time-out, the versions of the remaining folders
/// stay pending.
void remove_old_versions(const std::vector<OldVersions>& folders, const sys::Locking& locking);

}  // namespace admin
