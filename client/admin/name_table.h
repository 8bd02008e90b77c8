#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

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

}  // namespace admin
