#pragma once

#include <map>
#include <string>
#include <vector>

#include "index/index_state.h"
#include "stg_index.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"

/// Lets unit tests keep an index in memory, and reach its private operations and state. Each
/// forwarder has the name of the function that it calls.
struct stg_index_test_peer {
  using NameMap = STGIndex::NameMap;

  /// The index of a folder. An exception of its destructor leaves the enclosing block:
  ///
  ///   {
  ///     STGIndex index = stg_index_test_peer::load(folder);
  ///     stg_index_test_peer::_create(index, "a.kdb", 1);
  ///   }  // written here
  static STGIndex load(const std::string& folder) { return STGIndex(folder); }
  /// An index without a folder and without entries.
  static STGIndex empty() { return STGIndex(); }

  static const std::string& folder(const STGIndex& index) { return index.m_folder; }
  static NameMap lp(const STGIndex& index) { return index.m_state->by_key(); }
  static NameMap pl(const STGIndex& index) { return index.m_state->by_stored_name(); }
  static bool need_update(const STGIndex& index) { return index.m_needUpdate; }
  static void set_need_update(STGIndex& index) { index.m_needUpdate = true; }
  static void clear_need_update(STGIndex& index) { index.m_needUpdate = false; }
  /// Inserts an entry into both maps, without a file and without a trace.
  static void insert(STGIndex& index, const std::string& key, const std::string& physical) {
    index.m_state->insert(key, physical);
  }
  static void set_maps(STGIndex& index, const NameMap& lp, const NameMap& pl) {
    index.m_state->set_maps(lp, pl);
  }
  static bool synchronizes() { return STGIndex::m_autoSynchronizeToFolder; }

  static bool _contains(const STGIndex& index, const std::string& logical, long ts) {
    return index._contains(logical, ts);
  }
  static std::string _create(STGIndex& index, const std::string& logical, long ts) {
    return index._create(logical, ts);
  }
  static void _remove(STGIndex& index, const std::string& logical, long ts) {
    index._remove(logical, ts);
  }
  static bool _rename(STGIndex& index, const std::string& oldLogical, long oldTs,
                      const std::string& newLogical, long newTs) {
    return index._rename(oldLogical, oldTs, newLogical, newTs);
  }
  static std::string newIndex(STGIndex& index) { return index.newIndex(); }
  static bool alreadyInMaps(const STGIndex& index, const std::string& fileName) {
    return index.alreadyInMaps(fileName);
  }
  static void add_not_referenced_entry(STGIndex& index, const std::string& fileName) {
    index.add_not_referenced_entry(fileName);
  }
  static void synchronizeToFolder(STGIndex& index) { index.synchronizeToFolder(); }

  static void saveIndexFile(STGIndex& index) {
    index.close();
    index.saveIndexFile();
  }
  static void checkIndexFile(const std::string& folder) { STGIndex::checkIndexFile(folder); }
  static std::string entryAndTS(const std::string& logical, long ts) {
    return STGIndex::entryAndTS(logical, ts);
  }
  static std::string entryOnly(const std::string& key) { return STGIndex::entryOnly(key); }
  static long tsOnly(const std::string& key) { return STGIndex::tsOnly(key); }
  static std::string extension(const std::string& name) { return STGIndex::extension(name); }
  static bool validIndexLine(const std::string& folder, const std::string& key,
                             const std::string& physical) {
    return STGIndex::validIndexLine(folder, key, physical);
  }
  static void string2Maps(const std::string& folder, const std::string& text, NameMap& lp,
                          NameMap& pl) {
    STGIndex::string2Maps(folder, text, lp, pl);
  }
  static std::string lName(NameMap::const_iterator it) { return STGIndex::lName(it); }
  static long ts(NameMap::const_iterator it) { return STGIndex::ts(it); }
  static std::string pName(NameMap::const_iterator it) { return STGIndex::pName(it); }
  static void cleanOutputDirectories(const vu_utf8string& folder,
                                     const std::vector<vu_utf8string>& names,
                                     const std::string& name, unsigned long* counter) {
    STGIndex::cleanOutputDirectories(folder, names, name, counter);
  }
};

/// Sets the synchronisation switch for a scope.
class synchronisation {
 public:
  explicit synchronisation(bool on) : m_before(stg_index_test_peer::synchronizes()) {
    STGIndex::setSynchronizeMode(on);
  }
  ~synchronisation() { STGIndex::setSynchronizeMode(m_before); }
  synchronisation(const synchronisation&) = delete;
  synchronisation& operator=(const synchronisation&) = delete;

 private:
  bool m_before;
};

/// A reference model of an index text: simple and slow. Tests compare the library's result with it.
namespace plain_index {

struct line {
  std::string key;
  std::string stored;
  bool operator==(const line&) const = default;
};

/// The lines of a text. Only the first line feed and the first slash at or after the start of a
/// line matter.
inline std::vector<line> lines(const std::string& text) {
  std::vector<line> result;
  std::size_t start = 0;
  for (;;) {
    const std::size_t end = text.find_first_of("\n", start);
    const std::size_t slash = text.find_first_of("/", start);
    if (slash == std::string::npos) return result;
    const std::string key = text.substr(start, slash - start);
    if (end == std::string::npos) {
      result.push_back({key, text.substr(slash + 1)});
      return result;
    }
    // If the line feed comes before the slash, this length wraps to a huge number. substr() then
    // takes the rest of the text.
    result.push_back({key, text.substr(slash + 1, end - (slash + 1))});
    start = end + 1;
  }
}

/// Whether the file of a line exists; takes one or two probes.
inline bool is_valid(const std::string& folder, const std::string& key, const std::string& stored) {
  if (key.size() < 11) return false;
  if (vu_file::exists(folder + "\\" + stored)) return true;
  const std::string logical = key.substr(0, key.size() - 11);
  const std::size_t dot = logical.rfind('.');
  const std::string extension = dot == std::string::npos ? "" : logical.substr(dot);
  return vu_file::exists(folder + "\\" + stored + extension);
}

inline void load(const std::string& folder, const std::string& text, STGIndex::NameMap& lp,
                 STGIndex::NameMap& pl) {
  for (const line& each : lines(text)) {
    if (!is_valid(folder, each.key, each.stored)) continue;
    lp.insert({each.key, each.stored});
    pl.insert({each.stored, each.key});
  }
}

/// The index text of a map.
inline std::string text_of(const std::string& folder, const STGIndex::NameMap& lp) {
  std::string text;
  for (const auto& [key, stored] : lp) {
    if (is_valid(folder, key, stored)) text += key + "/" + stored + "\n";
  }
  return text.empty() ? " " : text;
}

/// The text with visible line feeds, for messages.
inline std::string shown(const std::string& text) {
  std::string result;
  for (const char c : text) result += c == '\n' ? std::string("\\n") : std::string(1, c);
  return '"' + result + '"';
}

}  // namespace plain_index

/// A folder for an index.
class index_folder {
 public:
  const std::string& path() const { return m_scratch.path(); }
  std::string path(const std::string& name) const { return m_scratch.path(name); }

  void set_index(const std::string& text) const { write(kIndex, text); }
  std::string index() const { return read(kIndex); }
  bool has_index() const { return has(kIndex); }

  /// Creates or replaces a file.
  void write(const std::string& name, const std::string& bytes = "") const {
    write_file(path(name), bytes);
  }
  std::string read(const std::string& name) const { return read_file(path(name)); }
  bool has(const std::string& name) const { return file_exists(path(name)); }
  void erase(const std::string& name) const { std::filesystem::remove(native(path(name))); }
  std::vector<std::string> names() const { return list_folder(path()); }

  /// The visible state of the folder: names, bytes of files, times of modification.
  std::map<std::string, std::string> state() const {
    std::map<std::string, std::string> result;
    for (const std::string& name : names()) {
      const std::string bytes = folder_exists(path(name)) ? "folder" : read(name);
      result[name] = std::to_string(get_modify_time(path(name))) + " " + bytes;
    }
    return result;
  }

 private:
  static constexpr const char* kIndex = "index.dat";

  scratch_folder m_scratch;
};

/// What the index traced, in order, without scopes: "M: text", "Warning: text" and so on.
inline std::vector<std::string> index_traces(const recording_sink& sink) {
  static constexpr const char* kLevels[] = {"XS: ", "S: ", "M: ", "L: ", "XL: "};
  static constexpr const char* kEvents[] = {"Success: ", "Warning: ", "Error: "};
  std::vector<std::string> result;
  for (const traced& each : sink.all()) {
    if (each.source != "stg_index") continue;
    if (each.kind == traced::kind_t::record) {
      result.push_back(kLevels[static_cast<std::size_t>(each.level)] + each.text);
    } else if (each.kind == traced::kind_t::event) {
      result.push_back(kEvents[static_cast<std::size_t>(each.event)] + each.text);
    }
  }
  return result;
}
