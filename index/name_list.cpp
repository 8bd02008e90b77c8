#include "index/name_list.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "index/index_format.h"

namespace {

/// The first eight bytes as a number; the numbers compare like the texts.
std::uint64_t head_of(std::string_view text) {
  std::array<unsigned char, sizeof(std::uint64_t)> bytes{};
  std::memcpy(bytes.data(), text.data(), std::min(text.size(), bytes.size()));
  std::uint64_t head = 0;
  for (const unsigned char byte : bytes) head = head << 8U | byte;
  return head;
}

}  // namespace

void NameList::add(std::string_view key, std::string_view stored) {
  const std::string_view logical = index_format::logical_of(key);
  Name& name = m_names.emplace_back();
  name.begin = m_text.size();
  name.logical = logical;
  m_text.append(stored);
  if (index_format::bears_extension(key, stored))
    m_text.append(index_format::extension_of(logical));
  name.size = m_text.size() - name.begin;
  name.head = head_of(text_of(name));
  // No two names begin at the same position, not even empty ones: it shows which one came first.
  m_text.push_back('\0');
}

void NameList::fill(IndexState::NameMap& out) {
  std::sort(m_names.begin(), m_names.end(), [this](const Name& one, const Name& other) {
    if (one.head != other.head) return one.head < other.head;
    const int order = text_of(one).compare(text_of(other));
    return order != 0 ? order < 0 : one.begin < other.begin;
  });
  for (const Name& name : m_names) out.emplace_hint(out.end(), text_of(name), name.logical);
}

void add_physical_names(const IndexState& state, IndexState::NameMap& out) {
  NameList names;
  state.visit([&](std::string_view key, std::string_view stored) { names.add(key, stored); });
  names.fill(out);
}
