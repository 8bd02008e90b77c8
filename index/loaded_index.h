#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

/// One line of an index, as views of a text that outlives it.
struct IndexEntry {
  std::string_view key;
  std::string_view stored;
};

/// The text of an index as it was read, and the lines of it that were valid then. Never copied or
/// moved: the entries are views of the text.
struct LoadedIndex {
  using NameMap = std::map<std::string, std::string>;

  explicit LoadedIndex(std::string index_text) : text(std::move(index_text)) {}
  LoadedIndex(const LoadedIndex&) = delete;
  LoadedIndex& operator=(const LoadedIndex&) = delete;

  /// Enters the entries into the maps key -> stored and stored -> key, where the first one of a name
  /// stays.
  void fill(NameMap& lp, NameMap& pl) const;

  /// The entry of a key, or null. The entries must be ascending.
  const IndexEntry* find(std::string_view key) const;

  const std::string text;
  std::vector<IndexEntry> entries;  ///< in the order of the text
  bool ascending = true;  ///< by key, so that each occurs once; as the library writes them
  bool complete = true;   ///< every line of the text is among the entries

 private:
  void fill_by_stored_name(NameMap& pl) const;
};
