#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <map>
#include <memory>
#include <memory_resource>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/changes.h"
#include "index/index_reader.h"
#include "index/name_index.h"

/// The memory of an index instance: the entries that were loaded, and the changes since.
///
/// The loaded entries are the lines of the text in the order of their keys; none is copied. Two
/// lists contain the changes: from key to physical name, and from physical name to key. The cost of
/// an operation is one pass over the text at the load, one at the save, and its changes.
///
/// Order of calls: load() if there is an index.dat; queries and changes; `save_index` (saving.h) if
/// something changed; then nothing more. A rename removes the entry that it replaces with take(),
/// and restores it with put_back() if a later step fails. withdraw() undoes insert().
///
/// Errors: std::bad_alloc only. If take() throws, it has changed nothing. withdraw(), put_back()
/// and keep_file() need no memory and do not throw.
///
/// Threads: one at a time. Copies share the listing of the folder and the texts of the changes, so
/// they count as one object.
class IndexState {
 public:
  using NameMap = std::map<std::string, std::string>;
  /// A key and its physical name; views that are valid as long as the state.
  using Entry = std::pair<std::string_view, std::string_view>;

  /// What is traced if the system does not remove a file.
  enum class IfItStays : std::uint8_t { kNothing, kError };

  explicit IndexState(const std::string& folder);

  /// Takes the bytes of index.dat and judges their lines by one listing of the folder.
  void load(FileText bytes);

  const std::string& folder() const { return m_files->folder(); }
  /// The folder as load() found it.
  FolderFiles& files() const { return *m_files; }
  /// Null if there was no index.dat.
  const IndexReading* loaded() const { return m_loaded ? &m_loaded->reading : nullptr; }

  /// Notes the exceptions in flight, for is_unwound(). A copied instance calls this as well.
  void begins_to_live();
  /// Copies another state, except for what begins_to_live() noted. If it throws, nothing changes.
  void take_over(const IndexState& other);
  /// Whether an exception is in flight that was thrown after the instance began to live.
  bool is_unwound() const;

  // ---- entries -------------------------------------------------------------------------------

  /// The physical name of an entry; nothing if the entry is missing, dangling or unknown. Valid as
  /// long as the state.
  std::optional<std::string_view> find(std::string_view key) const;
  /// The key to which a physical name leads; if several entries have that name, the key of the
  /// first one. Valid as long as the state.
  std::optional<std::string_view> way_back_of(std::string_view stored) const;
  /// Whether a file of the folder belongs to an entry, so that it is not adopted: an adopted entry
  /// of its name, or any entry whose physical name is its name without the extension.
  bool knows_file(std::string_view name) const;

  /// Visits the entries in byte-wise order of their keys. Calls run(lines) for consecutive loaded
  /// entries without a change, as many as possible at once, and changed(key, stored) for each other
  /// entry. Neither function may change an entry.
  template <class Run, class Changed>
  void walk(Run run, Changed changed) const {
    std::span<const IndexLine> rest = m_entries;
    for (const NameOrder<2>::Element& element : m_by_key.in_order()) {
      const Changes::Change& change = m_by_key[element.position];
      const std::size_t before = lines_before(rest, change.name);
      if (before != 0) run(rest.first(before));
      rest = rest.subspan(before);
      if (!rest.empty() && rest.front().key == change.name) rest = rest.subspan(1);
      if (change.value) changed(change.name, *change.value);
    }
    if (!rest.empty()) run(rest);
  }
  /// Calls visit(key, stored) for each entry, in the same order. The call may not change an entry.
  template <class Visit>
  void visit(Visit visit) const {
    walk(
        [&](std::span<const IndexLine> lines) {
          for (const IndexLine& line : lines) visit(line.key, line.stored);
        },
        visit);
  }

  /// Both directions as maps. For tests.
  NameMap by_key() const;
  NameMap by_stored_name() const;

  // ---- unknown entries -----------------------------------------------------------------------

  bool has_unknown_lines() const { return m_loaded && m_loaded->reading.unknown != 0; }
  /// Calls visit(key, stored) for each unknown entry.
  template <class Visit>
  void visit_unknown(Visit visit) const {
    if (!has_unknown_lines()) return;
    for (const IndexLine& line : m_loaded->reading.lines) {
      if (line.state == LineState::kUnknown) visit(line.key, line.stored);
    }
  }
  /// The first unknown line with this key. Null if there is none, if find() finds the key, or if
  /// take() has removed an entry with this key.
  const IndexLine* unknown_line(const std::string& key) const;

  // ---- changes -------------------------------------------------------------------------------

  /// Adds an entry. A key that has a physical name keeps it, and a physical name that leads to a
  /// key keeps that key. The save judges the entry.
  void insert(std::string_view key, std::string_view stored);
  /// The same for an entry that has just been judged.
  void add(std::string_view key, std::string_view stored) { enter(key, stored); }
  /// A removed entry, or nothing. put_back() restores it without new memory.
  struct Taken {
    std::string_view stored;
    std::optional<std::string_view> way_back;  ///< the key to which the physical name led
    std::size_t by_key = Changes::kNone;       ///< the positions of the changes
    std::size_t by_stored_name = Changes::kNone;
    std::size_t making = Changes::kNone;  ///< how its file was made, if this operation made it
    explicit operator bool() const { return by_key != Changes::kNone; }
  };
  /// Removes an entry that find() finds, before the caller removes its file. If the file stays, the
  /// save restores the entry. If take() throws, nothing has changed.
  Taken take(std::string_view key);
  /// Undoes insert(), complete or not. Returns nothing if no entry has the key.
  Taken withdraw(std::string_view key) noexcept;
  /// Undoes take(). No entry may have the key in between.
  void put_back(const Taken& entry) noexcept;
  /// Gives an entry the physical name that another process wrote for its key. The file of the old
  /// physical name is gone, the file of the new one exists.
  void replace(std::string_view key, std::string_view stored);
  /// How an operation created `file` for a new entry: empty, or as a copy of `source` that replaces
  /// an entry with the file `replaced`. A name that does not apply is empty. If this operation had
  /// made the replaced entry, too, `before` is Taken::making of that one.
  struct Making {
    std::string file;
    std::string source;
    std::string replaced;
    std::size_t before = Changes::kNone;
  };
  /// Notes a file that was created. A clean that runs before the save finds no entry for it in
  /// index.dat and may sweep it; then the save creates it again.
  void file_is_made(const std::string& key, Making how);
  /// Makes a new entry depend on all others: if a save withdraws one of them, it withdraws this
  /// entry, too, and removes its file. At most one entry can depend.
  void keep_only_with_others(std::string key) { m_dependent = std::move(key); }
  /// Schedules the removal of a file after the new text is written, under the lock of the save.
  /// Until then readers find the old entries. The save judges lines as if the file were gone.
  void remove_after_save(const std::string& file, IfItStays if_it_stays);
  /// Whether the file of an entry may also be the file of an entry with another key.
  bool is_anothers(const std::string& key, const std::string& stored) const;
  /// Whether this instance has created the file of an entry.
  bool is_made(std::string_view key) const { return making_of(key) != Changes::kNone; }
  /// Whether a scheduled file has this generated name, with or without an extension.
  bool is_to_be_removed(const std::string& name) const;
  /// Cancels a scheduled removal.
  void keep_file(const std::string& file) noexcept { m_files_to_remove.erase(file); }
  struct Removal {
    bool are_gone = true;       ///< all scheduled files
    std::exception_ptr raised;  ///< the first exception of a removal
  };
  /// Removes the scheduled files; call it when the new text is on the device. If a replaced file
  /// stays, the sources of the copies stay as well.
  Removal remove_replaced_files();
  /// Call it before a file of the folder is removed or renamed. The save then judges again the
  /// lines that may lead to the file.
  void file_changes(const std::string& name);
  /// Notes that the operation has removed a file, and has checked that it is gone.
  void file_is_gone(const std::string& name);
  /// Whether file_is_gone() was called for the file at this position in the listing.
  bool is_gone(std::size_t file) const { return m_gone.contains(file); }
  /// Replaces both directions. For tests.
  void set_maps(const NameMap& by_key, const NameMap& by_stored_name);

 private:
  friend class IndexSave;

  /// The loaded text and its entries by key.
  struct Loaded {
    Loaded(FileText file, FolderFiles& files)
        : bytes(std::move(file)),
          reading(replacement::text_of(bytes.view(), saved_text), files),
          entries(reading) {}
    FileText bytes;
    std::string saved_text;  ///< the text of an interrupted save
    IndexReading reading;
    EntriesByKey entries;
  };
  /// The loaded entry with this key, or null.
  const IndexLine* loaded_entry(std::string_view key) const;
  /// The first valid line with this physical name, or null.
  const IndexLine* loaded_line(std::string_view stored) const;
  /// How many of the lines come before a key.
  static std::size_t lines_before(std::span<const IndexLine> lines, std::string_view key) {
    // A clean changes one entry after the other.
    if (lines.empty() || !(lines.front().key < key)) return 0;
    const auto at = std::lower_bound(
        lines.begin(), lines.end(), key,
        [](const IndexLine& line, std::string_view wanted) { return line.key < wanted; });
    return static_cast<std::size_t>(at - lines.begin());
  }
  /// A copy of a text that is valid as long as the state.
  std::string_view kept(std::string_view text);
  /// The position of the change of a key or of a physical name. A new one begins with the current
  /// value.
  std::size_t change_of_key(std::string_view key);
  std::size_t change_of_stored_name(std::string_view stored);
  /// Adds an entry. @return the change of its key.
  Changes::Change& enter(std::string_view key, std::string_view stored);
  /// How the file of an entry was made: a position in m_makings, or kNone.
  std::size_t making_of(std::string_view key) const;
  /// Cancels the removals that only a copy justified. Its file is lost, so the file of an entry
  /// that it replaces stays. And if that one was a copy, too, its own source stays.
  void keep_files_of(std::size_t making) noexcept;
  /// Withdraws the entry of keep_only_with_others().
  void withdraw_dependent();
  /// Empties both changes.
  Taken take_out(std::size_t by_key, std::size_t by_stored_name) noexcept;
  /// @return whether the file is gone.
  bool remove_for_good(const std::string& file, IfItStays if_it_stays,
                       std::exception_ptr& raised) const;

  int m_exceptions_at_construction;
  std::shared_ptr<FolderFiles> m_files;  // shared by copies
  std::shared_ptr<const Loaded> m_loaded;
  std::span<const IndexLine> m_entries;  ///< of the loaded text, by key
  std::span<const IndexLine> m_lines;    ///< all its lines, in the order of the text
  /// Finds m_lines by physical name. Built for the fifth search; the first ones go through m_lines.
  mutable std::optional<NameIndex> m_lines_by_stored_name;
  mutable std::size_t m_searches = 0;
  mutable std::size_t m_last_place = 0;  ///< of loaded_entry() in m_entries

  /// The texts of the changes that are not in the loaded text. Shared by copies.
  std::shared_ptr<std::pmr::monotonic_buffer_resource> m_texts;
  Changes m_by_key;
  Changes m_by_stored_name;
  std::vector<std::string_view> m_erased;  ///< keys of take(), also of those that were put back
  std::vector<Making> m_makings;           // Changes::Change::making is a position
  std::string m_dependent;                 // see keep_only_with_others(); empty if there is none
  std::map<std::string, IfItStays, std::less<>> m_files_to_remove;
  FileSet m_changed;  // positions in the listing
  FileSet m_gone;     // positions in the listing
};
