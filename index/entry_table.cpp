#include "index/entry_table.h"

#include <xxhash.h>

#include <bit>
#include <random>

namespace {

std::uint64_t random_number() {
  std::random_device random;
  return std::uint64_t{random()} << 32U | random();
}

struct Numbers {
  std::uint64_t first = random_number() | 1U;
  std::uint64_t last = random_number() | 1U;
};

}  // namespace

EntryTable::Hash::Hash() {
  static const Numbers numbers;
  m_first = numbers.first;
  m_last = numbers.last;
}

std::uint64_t EntryTable::Hash::of_any(std::string_view name) const {
  return XXH3_64bits_withSeed(name.data(), name.size(), m_first);
}

EntryTable::EntryTable(const os::Listing& entries) : m_entries(&entries) {
  // At least two slots: a shift by all 64 bits is undefined.
  const std::size_t slots = std::bit_ceil(entries.size() * 2 + 2);
  m_slots.resize(slots);
  m_mask = slots - 1;
  m_shift = 64U - static_cast<unsigned>(std::countr_zero(slots));
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::uint64_t hash = m_hash(entries[i].name);
    std::size_t slot = slot_of(hash);
    while (m_slots[slot].position != 0) slot = (slot + 1) & m_mask;
    m_slots[slot] = {tag_of(hash), static_cast<std::uint32_t>(i + 1)};
  }
}
