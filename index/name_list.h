#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "index/index_state.h"

/// Collects physical file names with their logical names, and adds them to a map.
///
/// The index and the map have different orders. The list sorts the names in one piece of memory
/// first. Then the map appends each node at its end, without a search.
class NameList {
 public:
  /// @param key, stored the entry; the key must outlive this object.
  void add(std::string_view key, std::string_view stored);
  /// Adds physical file name -> logical name. Of several with one physical name, the first one is
  /// added; a name that the map contains already stays as it is.
  void fill(IndexState::NameMap& out);

 private:
  struct Name {
    std::uint64_t head = 0;  ///< the first bytes, which nearly always decide the order
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

/// Adds physical file name -> logical name of each entry.
void add_physical_names(const IndexState& state, IndexState::NameMap& out);
