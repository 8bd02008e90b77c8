#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "tools/admin/folder_view.h"
#include "tools/admin/locked_file.h"
#include "tools/admin/system.h"
#include "tools/admin/tree.h"

namespace admin {

/// A document to store under a name that is free, and what has become of it.
struct NewVersion {
  enum class Fate : std::uint8_t {
    kPending,
    kStored,
    kMeanwhile,  ///< somebody else has stored, or removed, the name meanwhile
    kFailed,
    kLocked,  ///< a lock was not obtained in time
  };

  std::string source;
  std::string logical;
  std::int32_t timestamp = 0;
  Fate fate = Fate::kPending;
  std::string file;    ///< of kStored: its name in the folder
  std::string reason;  ///< of the others, with the system's own words; of kLocked the path
};

/// New versions of one folder, entered in its index together: one load, one save. The order:
///
///  1. stage() copies each file beside its place, into a folder that nobody adopts.
///  2. The copies are flushed, those of many folders together.
///  3. prepare() locks the index, asks which names are still free, draws numbers from the counter
///     and moves the copies to their places.
///  4. Counters and folders are flushed, those of many folders together.
///  5. commit() saves the index once, and gives its lock back.
///  6. verify() looks once more, when no index is locked here any longer.
///
/// enter() does 2 to 6 for some folders.
///
/// A name is seen only when its document is whole. What fails is taken back by the physical file
/// that was made here, never by its name, which may be somebody else's by then. A process that is
/// killed leaves whole files without a line at most, or the folder of copies, which the next one
/// that stores something there removes.
class NewVersions {
 public:
  NewVersions(DocumentFolder folder, sys::Locking locking)
      : m_folder(std::move(folder)), m_locking(std::move(locking)) {}
  ~NewVersions();
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
  };

  os::Status make_staging_folder();
  void remove_leftovers();
  void prepare();
  void commit();
  bool open_index();
  bool is_sound(bool is_new);
  void drop_taken();
  bool draw_numbers();
  void move_files();
  std::string text_with_lines() const;
  void save();
  void verify();
  void refuse(const char* what, const std::string& path, const os::Status& status);
  void fail_pending(NewVersion::Fate fate, const std::string& reason);
  void take_back(Item& item);
  bool any_pending() const;
  std::string path_of(std::string_view name) const { return sys::join(m_folder.path, name); }

  DocumentFolder m_folder;
  sys::Locking m_locking;
  std::string m_staging;
  LockedFile m_staging_lock;
  std::vector<Item> m_items;
  LockedFile m_index;  ///< from prepare() to commit()
  FolderView m_view;
  std::string m_text;
};

/// The beginning of the names of folders that hold copies on their way into the index.
inline constexpr std::string_view kStagingName = ".stgctl-part-";

}  // namespace admin
