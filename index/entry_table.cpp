#include "index/entry_table.h"

#include <xxhash.h>

#include <bit>
#include <random>

namespace {

/// Another one in every process, so that nobody can choose names that all fall into one slot.
std::uint64_t seed() {
  static const std::uint64_t kSeed = [] {
    std::random_device random;
    return std::uint64_t{random()} << 32U | random();
  }();
  return kSeed;
}

std::uint64_t hash_of(std::string_view name) {
  return XXH3_64bits_withSeed(name.data(), name.size(), seed());
}

/// Tells the processor that the bytes are wanted soon.
#if defined(__GNUC__)
void prefetch(const void* bytes) { __builtin_prefetch(bytes); }
#else
void prefetch(const void*) {}
#endif

std::uint32_t tag_of(std::uint64_t hash) { return static_cast<std::uint32_t>(hash >> 32U); }

}  // namespace

EntryTable::EntryTable(const std::vector<os::Entry>& entries)
    : m_entries(&entries), m_slots(std::bit_ceil(entries.size() * 2 + 1)) {
  const std::size_t mask = m_slots.size() - 1;
  for (std::size_t i = 0; i < entries.size(); ++i) {
    const std::uint64_t hash = hash_of(entries[i].name);
    std::size_t slot = hash & mask;
    while (m_slots[slot].position != 0) slot = (slot + 1) & mask;
    m_slots[slot] = {tag_of(hash), static_cast<std::uint32_t>(i + 1)};
  }
}

std::uint64_t EntryTable::ask(std::string_view name) const {
  const std::uint64_t hash = hash_of(name);
  if (!m_slots.empty()) prefetch(&m_slots[hash & (m_slots.size() - 1)]);
  return hash;
}

void EntryTable::fetch(std::uint64_t hash) const {
  if (m_slots.empty()) return;
  const Slot slot = m_slots[hash & (m_slots.size() - 1)];
  if (slot.position != 0) prefetch(&(*m_entries)[slot.position - 1]);
}

std::size_t EntryTable::find(std::string_view name, std::uint64_t hash) const {
  if (m_slots.empty()) return kNone;
  const std::size_t mask = m_slots.size() - 1;
  for (std::size_t slot = hash & mask; m_slots[slot].position != 0; slot = (slot + 1) & mask) {
    const std::size_t position = m_slots[slot].position - 1;
    if (m_slots[slot].tag == tag_of(hash) && (*m_entries)[position].name == name) return position;
  }
  return kNone;
}
