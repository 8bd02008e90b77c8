#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <vector>

/// Finds positions by name: in a listing, in the lines of a text, in a list of changes. It is an
/// open-addressed hash table of positions. It contains no names: the caller passes a function that
/// returns the name at a position. So nothing is allocated per name, and a look-up reads one slot
/// and one name.
///
/// In a large folder neither is in the processor's cache. To look up several names, call ask() for
/// all of them, then fetch() for all, then find() for all: the processor then waits only once.
///
/// Order of calls: any. Do not add a name that find() finds. Errors: std::bad_alloc from the
/// constructor and from add(), which then has changed nothing. Threads: any number may look up
/// while none adds.
class NameIndex {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  /// @param names the expected number of names, fewer than 2^31; more can be added.
  explicit NameIndex(std::size_t names = 0);

  /// The hash of a name, for the functions below. Starts to load the name's slot into the cache.
  std::uint64_t ask(std::string_view name) const {
    const std::uint64_t hash = m_hash(name);
    prefetch(&m_slots[slot_of(tag_of(hash))]);
    return hash;
  }
  /// Starts to load the name of that slot into the cache.
  template <class NameAt>
  [[gnu::always_inline]] void fetch(std::uint64_t hash, const NameAt& name_at) const {
    const Slot slot = m_slots[slot_of(tag_of(hash))];
    if (slot.position != 0) prefetch(name_at(slot.position - 1).data());
  }
  /// The position of this name, or kNone. @param hash from ask().
  template <class NameAt>
  [[gnu::always_inline]] std::size_t find(std::string_view name, std::uint64_t hash,
                                          const NameAt& name_at) const {
    const std::uint32_t tag = tag_of(hash);
    for (std::size_t slot = slot_of(tag); m_slots[slot].position != 0; slot = next(slot)) {
      const std::size_t position = m_slots[slot].position - 1;
      if (m_slots[slot].tag == tag && is_same(name_at(position), name)) return position;
    }
    return kNone;
  }
  /// Adds the position of a name. @param hash from ask().
  void add(std::uint64_t hash, std::size_t position) {
    if (m_room == 0) grow();
    --m_room;
    put({tag_of(hash), static_cast<std::uint32_t>(position + 1)});
  }

 private:
  /// The tag is the upper half of the hash. Its first bits choose the slot, and names are compared
  /// only if it is equal. `position` is the name's position plus one; 0 marks a free slot.
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

  static std::uint32_t tag_of(std::uint64_t hash) {
    return static_cast<std::uint32_t>(hash >> 32U);
  }
  std::size_t slot_of(std::uint32_t tag) const { return tag >> m_shift; }
  std::size_t next(std::size_t slot) const { return (slot + 1) & (m_slots.size() - 1); }
  /// Asks the processor to load the bytes into its cache.
  static void prefetch([[maybe_unused]] const void* bytes) {
#if defined(__GNUC__)
    __builtin_prefetch(bytes);
#endif
  }
  void put(Slot filled) {
    std::size_t slot = slot_of(filled.tag);
    while (m_slots[slot].position != 0) slot = next(slot);
    m_slots[slot] = filled;
  }
  void grow();

  Hash m_hash;
  std::vector<Slot> m_slots;  // a power of two, at most half full
  std::size_t m_room;         // how many names fit before it grows
  unsigned m_shift = 0;       // the slot of a tag is tag >> m_shift
};
