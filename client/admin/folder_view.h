#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client/admin/system.h"
#include "client/admin/tree.h"
#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_reader.h"

namespace admin {

/// A set of names that are kept elsewhere, each with a number: for one folder at a time, filled and
/// cleared again and again without giving its memory back.
class NameTable {
 public:
  static constexpr std::uint32_t kNone = 0xFFFFFFFF;

  void clear() {
    // A small folder behind a huge one must not cost as much as that one.
    if (m_items.size() * 8 < m_slots.size()) {
      for (const Item& item : m_items) wipe(item.hash);
    } else {
      m_slots.assign(m_slots.size(), kNone);
    }
    m_items.clear();
  }

  std::size_t size() const { return m_items.size(); }

  std::uint32_t find(std::string_view name) const {
    if (m_items.empty()) return kNone;
    const std::size_t hash = hash_of(name);
    for (std::size_t at = hash & mask(); m_slots[at] != kNone; at = (at + 1) & mask()) {
      const Item& item = m_items[m_slots[at]];
      if (item.hash == hash && item.name == name) return item.number;
    }
    return kNone;
  }

  /// Enters a name unless it is there. @return the number that belongs to the name from now on.
  std::uint32_t insert(std::string_view name, std::uint32_t number) {
    if ((m_items.size() + 1) * 2 > m_slots.size()) grow();
    const std::size_t hash = hash_of(name);
    std::size_t at = hash & mask();
    for (; m_slots[at] != kNone; at = (at + 1) & mask()) {
      const Item& item = m_items[m_slots[at]];
      if (item.hash == hash && item.name == name) return item.number;
    }
    m_slots[at] = static_cast<std::uint32_t>(m_items.size());
    m_items.push_back({name, hash, number});
    return number;
  }

 private:
  struct Item {
    std::string_view name;
    std::size_t hash;
    std::uint32_t number;
  };

  static std::size_t hash_of(std::string_view name) { return std::hash<std::string_view>{}(name); }
  std::size_t mask() const { return m_slots.size() - 1; }

  /// Empties the run of taken slots that a hash begins in; all of its names are to go.
  void wipe(std::size_t hash) {
    for (std::size_t at = hash & mask(); m_slots[at] != kNone; at = (at + 1) & mask())
      m_slots[at] = kNone;
  }

  void grow() {
    m_slots.assign(m_slots.empty() ? 64 : m_slots.size() * 2, kNone);
    for (std::uint32_t i = 0; i < m_items.size(); ++i) {
      std::size_t at = m_items[i].hash & mask();
      while (m_slots[at] != kNone) at = (at + 1) & mask();
      m_slots[at] = i;
    }
  }

  std::vector<std::uint32_t> m_slots;  ///< a power of two of them, kNone where free
  std::vector<Item> m_items;
};

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

// ---- the lines of its index --------------------------------------------------------------------

/// What the library's reader makes of a line of "index.dat".
enum class Verdict : std::uint8_t {
  kEntry,         ///< an entry of the folder
  kNoSeparator,   ///< no "/": passed over
  kShortKey,      ///< the key has no room for a timestamp: passed over
  kNoFile,        ///< neither the physical name nor that with the extension exists: passed over
  kDuplicateKey,  ///< an earlier line has the key: passed over
  kUnknown,       ///< the system does not tell whether its file is there: passed over, but kept
};

/// "entry", "no-separator", ...
std::string_view name_of(Verdict verdict);
/// Whether a line of this verdict says nothing, so that an index may do without it.
inline bool is_bad(Verdict verdict) {
  return verdict != Verdict::kEntry && verdict != Verdict::kUnknown;
}

/// One line, with views into the folder's view and into the walk: good until its next step.
struct LintedLine {
  std::size_t number = 0;  ///< from 1
  std::string_view raw;    ///< without its line feed
  std::string_view key;
  std::string_view logical;
  std::int32_t timestamp = 0;
  std::string_view stored;  ///< the physical name as the line has it
  Verdict verdict = Verdict::kEntry;
  bool has_odd_stamp = false;  ///< what ends the key is not "_" and ten digits
  /// The line is what zeros have left of several ones, whatever readers make of it: no name holds a
  /// zero.
  bool has_zeros = false;
  /// The name of the entry's file, and where the listing has it (FolderView::kNone when the name
  /// leads to a file that is listed differently).
  std::string_view file;
  std::uint32_t listed = FolderView::kNone;
  /// Of kEntry: the line counts by its physical name with or without the extension, and only one
  /// of the two is the entry's file.
  bool has_file = false;
  std::size_t same_stored_as = 0;  ///< the earlier line with this physical name, or 0
  std::size_t same_key_as = 0;     ///< the earlier line with this key, or 0
};

/// Walks the lines of a folder's index in one pass and with memory for one folder. What a line is
/// worth is what the library's reader says; this class adds what only a look at the file as such
/// needs.
class IndexLint {
 public:
  /// Begins with the folder that the view has loaded.
  void start(const FolderView& view);
  /// The next line, valid or not; false at the end. Blanks behind the last line say nothing.
  bool next(LintedLine& line);

  /// After the walk: whether a line was met that counts because of this name of the listing.
  bool is_claimed(std::uint32_t listed) const { return m_claimed[listed]; }
  /// Lines whose keys do not ascend, as the writer's do.
  std::size_t unordered_lines() const { return m_unordered; }
  /// Lines of the verdict kUnknown.
  std::size_t unknown_lines() const { return m_unknown; }

 private:
  void judge(LintedLine& line, const IndexLine& read);
  void note_order(const IndexLine& read);
  void find_file(LintedLine& line, const IndexLine& read);
  void note_entry(LintedLine& line, const IndexLine& read);

  const FolderView* m_view = nullptr;
  std::optional<IndexReader> m_reader;
  std::size_t m_number = 0;
  std::size_t m_at = 0;  ///< where the next line begins
  std::size_t m_unordered = 0;
  std::size_t m_unknown = 0;
  std::string_view m_last_key;
  std::string m_file;
  std::vector<bool> m_claimed;
  NameTable m_stored;
  NameTable m_keys;
};

}  // namespace admin
