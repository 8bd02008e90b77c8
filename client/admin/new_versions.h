#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"

namespace admin {

/// A document to store, and what has become of it.
struct NewVersion {
  enum class Fate : std::uint8_t {
    kPending,
    kStored,
    kMeanwhile,  ///< somebody else has stored, or removed, the name meanwhile
    kFailed,
    kLocked,  ///< a lock was not obtained in time
    /// Its file cannot be exchanged for the copy: somebody has it open, or the copy could not be
    /// given the file's owner. Nothing was changed; it has to be written where it stands.
    kInPlace,
  };

  std::string source;
  std::string logical;
  std::int32_t timestamp = 0;
  /// The file of the version that is replaced; empty for a name that is free.
  std::string replaces;
  Fate fate = Fate::kPending;
  std::string file;    ///< of kStored: its name in the folder
  std::string reason;  ///< of the others, with the system's own words; of kLocked the path
};

/// Versions of one folder, new ones entered in its index together: one load, one save. In order:
///
///  1. stage() copies each file beside its place, into a folder that nobody adopts.
///  2. The copies are flushed, those of many folders together.
///  3. prepare() locks the index, asks which names are still free, draws numbers from the counter
///     and moves the copies to their places.
///  4. Counters and folders are flushed, those of many folders together.
///  5. save() saves each index once, those of many folders together.
///  6. replace_files() puts copies that replace a version in the place of its file, each by one
///     renaming, while file and index are locked. Then the index's lock is given back.
///  7. Folders in which files were replaced are flushed.
///  8. verify() looks once more, when no index is locked here any longer.
///
/// enter() does 2 to 8 for some folders.
///
/// A version that is replaced is the old one or the new one at any moment, never a part of either.
/// Whoever waits for its lock just then still has the old file, as if it had come before.
///
/// A name is seen only when its document is whole. What fails is taken back by the physical file
/// that was made here, never by its name, which may be somebody else's by then. A process that is
/// killed leaves whole files without a line at most, or the folder of copies, which the next one
/// that stores something there removes.
class NewVersions {
 public:
  NewVersions(DocumentFolder folder, sys::Locking locking)
      : m_folder(std::move(folder)), m_locking(std::move(locking)) {}
  NewVersions(const NewVersions&) = delete;
  NewVersions& operator=(const NewVersions&) = delete;

  /// Copies the version's source. Its folders are made when they are missing. @return whether that
  /// went well; else the version says why.
  bool stage(NewVersion& version);
  /// Enters what was staged, and tells each version's fate. @param folders in one order for all
  /// programs, since several indexes are locked at a time: that of their paths.
  static void enter(const std::vector<NewVersions*>& folders);

 private:
  struct Item {
    NewVersion* version = nullptr;
    std::string copy;
    std::string stored;
    bool is_moved = false;

    bool is_pending() const { return version->fate == NewVersion::Fate::kPending; }
    bool is_new() const { return version->replaces.empty(); }
  };

  static void flush_replaced(const std::vector<NewVersions*>& folders,
                             const std::vector<std::string>& replaced);
  void prepare();
  bool open_index();
  bool is_sound();
  void drop_taken();
  bool draw_numbers();
  void move_files();
  std::string text_with_lines() const;
  static void save(const std::vector<NewVersions*>& folders);
  void judge_save(const std::string& wanted, const os::Status& status);
  bool replace_files();
  void verify();
  void refuse(const char* what, const std::string& path, const os::Status& status);
  void fail_pending(NewVersion::Fate fate, const std::string& reason);
  void take_back(Item& item);
  bool any_pending() const;
  bool any_new_pending() const;
  std::string path_of(std::string_view name) const { return sys::join(m_folder.path, name); }

  DocumentFolder m_folder;
  sys::Locking m_locking;
  StagingFolder m_staging;
  std::vector<Item> m_items;
  LockedFile m_index;  ///< from prepare() to replace_files()
  FolderView m_view;
  std::string m_text;
};

}  // namespace admin
