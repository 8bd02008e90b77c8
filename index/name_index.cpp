#include "index/name_index.h"

#include <xxhash.h>

#include <bit>
#include <random>
#include <utility>

namespace {

std::uint64_t random_number() {
  std::random_device random;
  return std::uint64_t{random()} << 32U | random();
}

struct Numbers {
  std::uint64_t first = random_number() | 1U;
  std::uint64_t last = random_number() | 1U;
};

unsigned shift_for(std::size_t slots) {
  constexpr unsigned kTagBits = 32;
  return kTagBits - static_cast<unsigned>(std::countr_zero(slots));
}

}  // namespace

NameIndex::Hash::Hash() {
  static const Numbers numbers;
  m_first = numbers.first;
  m_last = numbers.last;
}

std::uint64_t NameIndex::Hash::of_any(std::string_view name) const {
  return XXH3_64bits_withSeed(name.data(), name.size(), m_first);
}

// At least two slots: a shift by all bits of the tag is undefined.
NameIndex::NameIndex(std::size_t names)
    : m_slots(std::bit_ceil(names * 2 + 2)),
      m_room(m_slots.size() / 2),
      m_shift(shift_for(m_slots.size())) {}

void NameIndex::grow() {
  std::vector<Slot> filled(2 * m_slots.size());
  m_slots.swap(filled);
  m_room += filled.size() / 2;
  m_shift = shift_for(m_slots.size());
  for (const Slot slot : filled) {
    if (slot.position != 0) put(slot);
  }
}
