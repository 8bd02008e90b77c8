#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/index_reader.h"

/// What an index instance holds in memory: the entries of the text that was loaded, and what the
/// operation changed since.
///
/// The entries of the text are its own lines, in the order of their keys; none is copied. Changes
/// stand beside them: by its key the stored name of an entry, by its stored name the key, and in
/// both that there is none any more. So an operation costs what it changes, and one pass over the
/// text when that is loaded, and one when it is saved.
///
/// Order of calls: load() when there is an index.dat; questions and changes; `save_index`
/// (saving.h), if something changed; then nothing more. A rename takes the old entry with take(),
/// and gives it back with put_back() where a later step fails; withdraw() undoes insert().
///
/// Errors: memory that runs out, and what looking at the folder raises. take() has changed nothing
/// then. withdraw(), put_back() and keep_file() need no memory and raise nothing.
///
/// Threads: one at a time. Copies share the listing of the folder, so they count as one.
class IndexState {
 public:
  using NameMap = std::map<std::string, std::string>;
  /// A key and its stored name.
  using Entry = std::pair<std::string, std::string>;

  /// What is traced about a file that the system does not remove.
  enum class IfItStays : std::uint8_t { kNothing, kError };

  explicit IndexState(const std::string& folder);

  /// Takes what index.dat holds and judges its lines by one listing of the folder.
  void load(FileText bytes);

  const std::string& folder() const { return m_files->folder(); }
  /// The folder as load() found it.
  FolderFiles& files() const { return *m_files; }
  /// Null when there was no index.dat.
  const IndexReading* loaded() const { return m_loaded ? &m_loaded->reading : nullptr; }

  /// Counts from here on for is_unwound(): a copy is an instance of its own.
  void begins_to_live();
  /// Becomes as another one, but for what begins_to_live() noted.
  void take_over(const IndexState& other);
  /// Whether an exception that began after the construction is under way.
  bool is_unwound() const;

  // ---- entries -------------------------------------------------------------------------------

  /// The stored name of an entry; valid until that entry is changed.
  std::optional<std::string_view> find(std::string_view key) const;
  /// The key to which a stored name leads back, of several entries with that name the one that came
  /// first; valid until that entry is changed.
  std::optional<std::string_view> way_back_of(std::string_view stored) const;

  /// Goes through the entries in byte-wise order of the keys: run(lines) for those of the text that
  /// stand as they were loaded, as many in a row as there are, and changed(key, stored) for the
  /// others. Neither may change an entry.
  template <class Run, class Changed>
  void walk(Run run, Changed changed) const {
    std::span<const IndexLine> rest = m_entries;
    for (const auto& [key, stored] : m_by_key) {
      const auto at = std::lower_bound(
          rest.begin(), rest.end(), key,
          [](const IndexLine& line, const std::string& wanted) { return line.key < wanted; });
      const auto before = static_cast<std::size_t>(at - rest.begin());
      if (before != 0) run(rest.first(before));
      rest = rest.subspan(before);
      if (!rest.empty() && rest.front().key == key) rest = rest.subspan(1);
      if (stored) changed(std::string_view(key), std::string_view(*stored));
    }
    if (!rest.empty()) run(rest);
  }
  /// Calls visit(key, stored) for each entry, in the same order and on the same condition.
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

  // ---- lines of which the system does not tell whether their files are there -----------------

  bool has_unknown_lines() const { return m_loaded && m_loaded->reading.unknown != 0; }
  /// Calls visit(key, stored) for each of them.
  template <class Visit>
  void visit_unknown(Visit visit) const {
    if (!has_unknown_lines()) return;
    for (const IndexLine& line : m_loaded->reading.lines) {
      if (line.state == LineState::kUnknown) visit(line.key, line.stored);
    }
  }
  /// The first one of a key that is no entry otherwise, nor was one that take() has taken; or null.
  const IndexLine* unknown_line(const std::string& key) const;

  // ---- changes -------------------------------------------------------------------------------

  /// Enters an entry: its stored name where the key has none, and the way back where the stored
  /// name has none. The save judges its line.
  void insert(const std::string& key, const std::string& stored);
  /// The same for one whose line has just been judged.
  void add(std::string_view key, std::string_view stored);
  /// Nothing for a name that leads nowhere any more.
  using Changes = std::map<std::string, std::optional<std::string>, std::less<>>;
  /// An entry that is none any more, or nothing. It goes back without new memory.
  struct Taken {
    std::string stored;
    std::optional<std::string> way_back;  ///< the key to which the stored name led
    std::optional<Changes::iterator> by_key;
    std::optional<Changes::iterator> by_stored_name;
    explicit operator bool() const { return by_key.has_value(); }
  };
  /// Takes an entry out. Its file is about to be removed; where that fails, the save brings the
  /// entry back. Where this raises nothing has changed.
  Taken take(const std::string& key);
  /// Undoes insert(), as far as it came. No entry is taken where none bears the key.
  Taken withdraw(const std::string& key) noexcept;
  /// Undoes take(); no entry bears the key meanwhile.
  void put_back(Taken&& entry) noexcept;
  /// Gives an entry another stored name: the line of somebody else whose file is there, where its
  /// own is gone.
  void replace(std::string_view key, std::string_view stored);
  /// How an operation made the file of a new entry: empty, or as a copy of `source`, in the place
  /// of another entry with the file `replaced`. Names are empty where there is none.
  struct Making {
    std::string source;
    std::string replaced;
  };
  /// A clean that does not find the new entry in the index yet may sweep its file; then the save
  /// makes it again.
  void file_is_made(const std::string& key, Making how);
  /// A file of the folder goes when the new text is written, under the lock of the save: until then
  /// whoever reads finds the entries from before. The save judges lines as if it had gone already.
  void remove_after_save(const std::string& file, IfItStays if_it_stays);
  /// Whether the file of an entry may be that of an entry with another key, too.
  bool is_anothers(const std::string& key, const std::string& stored) const;
  /// Whether a generated name is that of a file that goes.
  bool is_to_be_removed(const std::string& name) const;
  /// The file stays after all.
  void keep_file(const std::string& file) noexcept { m_files_to_remove.erase(file); }
  struct Removal {
    bool are_gone = true;       ///< all of the files
    std::exception_ptr raised;  ///< by the first removal that raised
  };
  /// Removes these files, once the new text is on the device. Where one of those that were replaced
  /// stays, the sources of the copies do.
  Removal remove_replaced_files();
  /// A file of the folder is about to go or to get another name: the lines that may lead to it are
  /// judged again by the save.
  void file_changes(const std::string& name);
  /// Replaces both directions. For tests.
  void set_maps(const NameMap& by_key, const NameMap& by_stored_name);

 private:
  friend class IndexSave;

  /// What was loaded, and its entries in order.
  struct Loaded {
    Loaded(FileText file, FolderFiles& files)
        : bytes(std::move(file)),
          reading(replacement::text_of(bytes.view(), saved_text), files),
          entries(reading) {}
    FileText bytes;
    std::string saved_text;  ///< of a save that was interrupted
    IndexReading reading;
    EntriesByKey entries;
  };
  /// The entry of the text, or null.
  const IndexLine* loaded_entry(std::string_view key) const;
  /// The first valid line with that stored name, or null.
  const IndexLine* loaded_line(std::string_view stored) const;
  /// The change of a key, and that of a stored name; one that says what was so before where there
  /// is none.
  Changes::iterator change_of_key(std::string_view key);
  Changes::iterator change_of_stored_name(std::string_view stored);
  /// Where the stored name leads to no key.
  void lead_back(std::string_view stored, std::string_view key);
  /// Leaves nothing in the two changes.
  static Taken take_out(Changes::iterator by_key,
                        std::optional<Changes::iterator> by_stored_name) noexcept;
  /// @return whether the file is gone.
  bool remove_for_good(const std::string& file, IfItStays if_it_stays,
                       std::exception_ptr& raised) const;

  int m_exceptions_at_construction;
  std::shared_ptr<FolderFiles> m_files;  // shared by copies
  std::shared_ptr<const Loaded> m_loaded;
  std::span<const IndexLine> m_entries;  ///< of what was loaded
  std::span<const IndexLine> m_lines;    ///< the same in the order of the text, with all lines
  /// Stored name -> line, when several are asked for: m_lines is searched for the first ones.
  using LinesByStoredName = std::unordered_map<std::string_view, const IndexLine*>;
  mutable std::optional<LinesByStoredName> m_lines_by_stored_name;
  mutable std::size_t m_searches = 0;

  Changes m_by_key;
  Changes m_by_stored_name;
  std::vector<Entry> m_erased;
  std::map<std::string, Making> m_made;  // by their keys
  std::map<std::string, IfItStays> m_files_to_remove;
  std::set<std::size_t> m_changed;                // files of the listing
  std::set<std::string, std::less<>> m_doubtful;  // keys whose lines the save judges again
};

/// Copies a file over another one of its folder, and has the copy on the device. A clean that does
/// not know the copy may sweep it meanwhile; then it is made again.
bool copy_and_flush(const std::string& folder, const std::string& from, const std::string& to);
