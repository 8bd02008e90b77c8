#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/name_table.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"
#include "index/folder_files.h"
#include "index/index_format.h"

namespace admin {

/// What became of reading a folder's "index.dat".
enum class IndexState : std::uint8_t {
  kMissing,
  kRead,
  kNoBytes,  ///< read, and empty (or zeros alone): the writer puts at least one blank, so somebody
             ///< was stopped half-way
  kLocked,   ///< another process held it until time was out
  kFailed,   ///< it could not be read (see index_status())
};

/// A name in a folder, by its kind.
struct Name {
  std::string_view text;
  sys::Kind kind = sys::Kind::kMissing;
};

/// What a document folder holds at one moment: its names and the text of its index. One object
/// serves folder after folder and keeps its memory, which is that of the largest folder.
class FolderView {
 public:
  FolderView() = default;
  FolderView(const FolderView&) = delete;
  FolderView& operator=(const FolderView&) = delete;

  /// Lists the folder and reads its index. The index comes first, as the library has it: a file
  /// made in between is then one without a line, never a line without its file.
  void load(const DocumentFolder& folder, const sys::Locking& locking);

  /// The same for an index whose text the caller has read, and holds locked.
  void load_text(const DocumentFolder& folder, std::string index_text);

  const DocumentFolder& folder() const { return m_folder; }
  /// Of the listing.
  const os::Status& status() const { return m_status; }
  IndexState index_state() const { return m_index_state; }
  const os::Status& index_status() const { return m_index_status; }
  /// The text that the bytes of the index stand for: of a save that was interrupted, the new one.
  std::string_view index_text() const { return m_index_text; }
  /// What the file holds.
  const std::string& index_bytes() const { return m_index_bytes; }
  /// Whether a save was interrupted, and is still to be completed by the next writer.
  bool has_interrupted_save() const { return m_has_interrupted_save; }

  /// Everything in the folder, the index and its counter included, in the system's order.
  std::span<const Name> names() const { return m_names; }
  static constexpr std::uint32_t kNone = NameTable::kNone;
  /// The place of a name in names(), spelled exactly so.
  std::uint32_t find(std::string_view name) const { return m_table.find(name); }

  /// The same names for the library's reader, which asks the system for others.
  FolderFiles& files() const { return *m_files; }

  /// The folder's path and a name in it.
  std::string path_of(std::string_view name) const { return sys::join(m_folder.path, name); }

  /// The text of the counter file, read now; nothing when there is none or it cannot be read.
  std::optional<std::string> read_counter(const sys::Locking& locking) const;

 private:
  void list();
  void read_index(const sys::Locking& locking);
  void take_text();

  DocumentFolder m_folder;
  os::Status m_status;
  IndexState m_index_state = IndexState::kMissing;
  os::Status m_index_status;
  std::string m_index_path;
  std::string m_index_bytes;
  std::string m_saved_text;       ///< of an interrupted save
  std::string_view m_index_text;  ///< in one of the two
  bool m_has_interrupted_save = false;
  std::unique_ptr<FolderFiles> m_files;
  std::vector<Name> m_names;  ///< with views into m_files
  NameTable m_table;
};

}  // namespace admin
