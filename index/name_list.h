#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index/index_state.h"

/// A list of physical file names with their logical ones, on its way into a map.
///
/// Names come in the order of the index and belong into that of the map. They are sorted in one
/// piece of memory before: then each node goes behind the last one, and nobody searches the tree.
class NameList {
 public:
  /// @param key, stored the entry; the key lives as long as this object.
  void add(std::string_view key, std::string_view stored);
  /// Physical file name -> logical name; of several with one physical name the first one that was
  /// added, and none where the map has that name.
  void fill(IndexState::NameMap& out);

 private:
  struct Name {
    std::uint64_t head = 0;  ///< the first bytes: these decide nearly always
    std::size_t begin = 0;   ///< in m_text
    std::size_t size = 0;
    std::string_view logical;
  };
  std::string_view text_of(const Name& name) const {
    return std::string_view(m_text).substr(name.begin, name.size);
  }

  std::string m_text;
  std::vector<Name> m_names;
};

/// Enters the physical file name -> logical name of each entry.
void add_physical_names(const IndexState& state, IndexState::NameMap& out);
