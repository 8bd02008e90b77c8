#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

/// Sorts positions by their names in byte-wise order. Equal names stay in the order of their
/// positions. What is moved is small, and the first bytes of the names nearly always decide, so few
/// names are read.
///
/// Order of calls: add() for each name; sort(); then sorted(). Errors: std::bad_alloc from add()
/// and reserve(). Threads: any number may call sorted() after sort().
///
/// @tparam Words how many words of eight bytes decide: one is enough for generated names. Logical
/// names often begin alike.
template <std::size_t Words>
class NameOrder {
 public:
  struct Element {
    std::array<std::uint64_t, Words> head;  ///< the first bytes; the numbers compare like the names
    std::size_t position;
  };

  void clear() { m_all.clear(); }
  void reserve(std::size_t names) { m_all.reserve(names); }
  std::size_t size() const { return m_all.size(); }

  void add(std::string_view name, std::size_t position) {
    m_all.push_back({head_of(name), position});
  }
  /// @param name_at returns the name at a position.
  template <class NameAt>
  void sort(const NameAt& name_at) {
    std::sort(m_all.begin(), m_all.end(), [&](const Element& one, const Element& other) {
      for (std::size_t i = 0; i < Words; ++i) {
        if (one.head[i] != other.head[i]) return one.head[i] < other.head[i];
      }
      const int order = name_at(one.position).compare(name_at(other.position));
      return order != 0 ? order < 0 : one.position < other.position;
    });
  }
  std::span<const Element> sorted() const { return m_all; }

 private:
  static constexpr std::size_t kWord = sizeof(std::uint64_t);

  static std::array<std::uint64_t, Words> head_of(std::string_view name) {
    std::array<std::uint64_t, Words> head;
    for (std::uint64_t& word : head) {
      word = word_of(name);
      name.remove_prefix(std::min(name.size(), kWord));
    }
    return head;
  }
  static std::uint64_t word_of(std::string_view text) {
    std::array<unsigned char, kWord> bytes{};
    if (text.size() >= bytes.size()) {
      std::memcpy(bytes.data(), text.data(), bytes.size());
    } else {
      std::copy(text.begin(), text.end(), bytes.begin());
    }
    std::uint64_t word = 0;
    for (const unsigned char byte : bytes) word = word << 8U | byte;
    return word;
  }

  std::vector<Element> m_all;
};
