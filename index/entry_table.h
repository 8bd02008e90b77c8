#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

/// Finds the entries of a listing by name. It is an open-addressed hash table of positions: nothing
/// is allocated per name, and a look-up reads one slot and one entry.
///
/// In a large folder neither is in the processor's cache. To look up several names, call ask() for
/// all of them, then fetch() for all, then find() for all: the processor then waits only once.
///
/// Errors: std::bad_alloc from the constructor; nothing else. Threads: any number may look up.
class EntryTable {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  EntryTable() = default;
  /// @param entries must outlive this object and must not change; fewer than 2^32.
  explicit EntryTable(const os::Listing& entries);

  /// The hash of a name, for find(). Starts to load the name's slot into the cache.
  std::uint64_t ask(std::string_view name) const {
    const std::uint64_t hash = m_hash(name);
    if (!m_slots.empty()) prefetch(&m_slots[slot_of(hash)]);
    return hash;
  }
  /// Starts to load the entry of the name's slot into the cache.
  void fetch(std::uint64_t hash) const {
    if (m_slots.empty()) return;
    const Slot slot = m_slots[slot_of(hash)];
    if (slot.position != 0) prefetch((*m_entries)[slot.position - 1].name.data());
  }
  /// The position of the entry with this name, or kNone. @param hash from ask().
  [[gnu::always_inline]] std::size_t find(std::string_view name, std::uint64_t hash) const {
    if (m_slots.empty()) return kNone;
    for (std::size_t slot = slot_of(hash); m_slots[slot].position != 0;
         slot = (slot + 1) & m_mask) {
      const std::size_t position = m_slots[slot].position - 1;
      if (m_slots[slot].tag == tag_of(hash) && is_same((*m_entries)[position].name, name))
        return position;
    }
    return kNone;
  }

 private:
  /// The tag is a part of the hash: names are compared only if it is equal. The position is that of
  /// the entry plus one; 0 marks a free slot.
  struct Slot {
    std::uint32_t tag = 0;
    std::uint32_t position = 0;
  };

  /// Two words of eight bytes cover most names.
  static constexpr std::size_t kWord = sizeof(std::uint64_t);
  static std::uint64_t word_at(const char* bytes) {
    std::uint64_t word = 0;
    std::memcpy(&word, bytes, kWord);
    return word;
  }
  static bool is_same(std::string_view one, std::string_view other) {
    const std::size_t size = one.size();
    if (size != other.size()) return false;
    if (size < kWord || size > 2 * kWord) return one == other;
    return word_at(one.data()) == word_at(other.data()) &&
           word_at(one.data() + size - kWord) == word_at(other.data() + size - kWord);
  }

  /// Multiplies the words of a name by odd numbers and combines them; the upper bits are used. Each
  /// process has other numbers, so names that collide in one need not collide in the next.
  class Hash {
   public:
    Hash();
    std::uint64_t operator()(std::string_view name) const {
      const std::size_t size = name.size();
      if (size < kWord || size > 2 * kWord) return of_any(name);
      return (word_at(name.data()) * m_first + word_at(name.data() + size - kWord) * m_last) ^
             size * m_first;
    }

   private:
    std::uint64_t of_any(std::string_view name) const;

    std::uint64_t m_first;
    std::uint64_t m_last;
  };

  std::size_t slot_of(std::uint64_t hash) const { return hash >> m_shift; }
  static std::uint32_t tag_of(std::uint64_t hash) {
    return static_cast<std::uint32_t>(hash >> 32U);
  }
  /// Asks the processor to load the bytes into its cache.
  static void prefetch([[maybe_unused]] const void* bytes) {
#if defined(__GNUC__)
    __builtin_prefetch(bytes);
#endif
  }

  const os::Listing* m_entries = nullptr;
  Hash m_hash;
  std::vector<Slot> m_slots;  // a power of two, at most half full
  std::size_t m_mask = 0;     // the number of slots less one
  unsigned m_shift = 0;       // the slot of a hash is hash >> m_shift
};
