#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "index/index_reader.h"

/// What an index instance holds in memory: the text that was loaded, with the worth of each of its
/// lines, and what the operation changed since.
///
/// The two maps of the entries, key -> stored name and back, are built when somebody asks for them
/// by lp() or pl(); there is no other way to them. A question walks the entries by visit() and
/// builds none.
///
/// Order of calls: load() when there is an index.dat; questions and changes; `save_index`
/// (saving.h), if something changed; then nothing more.
class IndexState {
 public:
  using NameMap = std::map<std::string, std::string>;
  /// A key and its stored name.
  using Entry = std::pair<std::string, std::string>;

  /// What is traced about a file that the system does not remove.
  enum class IfItStays : std::uint8_t { kNothing, kError };

  explicit IndexState(const std::string& folder);

  /// Takes the text of index.dat and judges its lines by one listing of the folder.
  void load(std::string text);

  const std::string& folder() const { return m_files->folder(); }
  /// The folder as load() found it.
  FolderFiles& files() const { return *m_files; }
  /// Null when there was no index.dat.
  const IndexReading* loaded() const { return m_loaded.get(); }

  /// Counts from here on for is_unwound(): a copy is an instance of its own.
  void begins_to_live();
  /// Becomes as another one, but for what begins_to_live() noted.
  void take_over(const IndexState& other);
  /// Whether an exception that began after the construction is under way.
  bool is_unwound() const;

  // ---- entries -------------------------------------------------------------------------------

  const NameMap& lp() const { return maps().lp; }
  const NameMap& pl() const { return maps().pl; }
  /// The stored name of an entry, or null.
  const std::string* find(const std::string& key) const;

  /// Calls visit(key, stored) for each entry in byte-wise order of the keys.
  template <class Visit>
  void visit(Visit visit) const {
    if (m_maps || !m_loaded || !m_loaded->ascending) {
      for (const auto& [key, stored] : lp()) visit(key, stored);
      return;
    }
    for (const IndexLine& line : m_loaded->lines) {
      if (line.state == LineState::kValid) visit(line.key, line.stored);
    }
  }

  // ---- lines of which the system does not tell whether their files are there -----------------

  bool has_unknown_lines() const { return m_loaded && m_loaded->unknown != 0; }
  /// Calls visit(key, stored) for each of them.
  template <class Visit>
  void visit_unknown(Visit visit) const {
    if (!has_unknown_lines()) return;
    for (const IndexLine& line : m_loaded->lines) {
      if (line.state == LineState::kUnknown) visit(line.key, line.stored);
    }
  }
  /// The first one of a key that is no entry otherwise, nor was one that take() has taken; or null.
  const IndexLine* unknown_line(const std::string& key) const;

  // ---- changes -------------------------------------------------------------------------------

  /// Enters an entry into both maps, where what is there stays.
  void insert(const std::string& key, const std::string& stored);
  /// An entry that is in neither map any more, or none. Its nodes go back without new memory.
  struct Taken {
    NameMap::node_type by_key;
    NameMap::node_type by_stored_name;
    explicit operator bool() const { return !by_key.empty(); }
  };
  /// Takes an entry out of both maps. Its file is about to be removed; where that fails, the save
  /// brings the entry back. Where this raises nothing has changed.
  Taken take(const std::string& key);
  /// Undoes insert(), as far as it came. No entry is taken where none bears the key.
  Taken withdraw(const std::string& key) noexcept;
  /// Undoes take(); no entry bears the key meanwhile.
  void put_back(Taken&& entry) noexcept;
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
  /// Replaces both maps. For tests.
  void set_maps(NameMap lp, NameMap pl);

 private:
  friend class IndexSave;

  struct Maps {
    NameMap lp;
    NameMap pl;
  };
  Maps& maps() const;
  /// @return whether the file is gone.
  bool remove_for_good(const std::string& file, IfItStays if_it_stays,
                       std::exception_ptr& raised) const;

  int m_exceptions_at_construction;
  std::shared_ptr<FolderFiles> m_files;  // shared by copies
  std::shared_ptr<const IndexReading> m_loaded;
  mutable std::optional<Maps> m_maps;

  std::vector<Entry> m_erased;
  std::map<std::string, Making> m_made;  // by their keys
  std::map<std::string, IfItStays> m_files_to_remove;
  std::set<std::size_t> m_changed;                // files of the listing
  std::set<std::string, std::less<>> m_doubtful;  // keys whose lines the save judges again
};

/// Copies a file over another one of its folder, and has the copy on the device. A clean that does
/// not know the copy may sweep it meanwhile; then it is made again.
bool copy_and_flush(const std::string& folder, const std::string& from, const std::string& to);

/// Enters the physical file name -> logical name of each entry.
void add_physical_names(const IndexState& state, IndexState::NameMap& out);
