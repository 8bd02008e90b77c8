#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "index/name_index.h"
#include "index/name_order.h"

/// Values by name that differ from those of the loaded text: of keys, or of physical names. A
/// change stays at its position until the end; one without a value says that the entry is removed.
/// So a position that was found needs no memory to be used again, and copies share no state.
///
/// All texts are views: the caller keeps them. Errors: std::bad_alloc; add() then has changed
/// nothing. Threads: one at a time, also for queries.
class Changes {
 public:
  static constexpr std::size_t kNone = NameIndex::kNone;

  struct Change {
    std::string_view name;
    std::optional<std::string_view> value;
    bool is_doubtful = false;    ///< of a key: the save judges the entry
    std::size_t making = kNone;  ///< of a key: the position of its IndexState::Making
  };

  bool empty() const { return m_all.empty(); }
  Change& operator[](std::size_t position) { return m_all[position]; }
  const Change& operator[](std::size_t position) const { return m_all[position]; }
  const std::vector<Change>& all() const { return m_all; }

  /// The position of a name's change, or kNone.
  std::size_t find(std::string_view name) const {
    if (m_all.empty()) return kNone;
    // An operation looks up a change several times, most often the one that it has just added.
    if (m_all.back().name == name) return m_all.size() - 1;
    return m_index.find(name, m_index.ask(name), NameAt{m_all});
  }
  /// Adds a change of a name that has none. @return its position.
  std::size_t add(std::string_view name, std::optional<std::string_view> value) {
    m_all.push_back({name, value});
    try {
      m_index.add(m_index.ask(name), m_all.size() - 1);
    } catch (...) {
      m_all.pop_back();
      throw;
    }
    return m_all.size() - 1;
  }
  /// The positions of all changes, in byte-wise order of their names. Valid until the next add().
  std::span<const NameOrder<2>::Element> in_order() const {
    if (m_order.size() != m_all.size()) {
      m_order.clear();
      m_order.reserve(m_all.size());
      for (std::size_t i = 0; i < m_all.size(); ++i) m_order.add(m_all[i].name, i);
      m_order.sort(NameAt{m_all});
    }
    return m_order.sorted();
  }

 private:
  struct NameAt {
    const std::vector<Change>& all;
    std::string_view operator()(std::size_t position) const { return all[position].name; }
  };

  std::vector<Change> m_all;
  NameIndex m_index;
  mutable NameOrder<2> m_order;  // in_order() of m_all
};
