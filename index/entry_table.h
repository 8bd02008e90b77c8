#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

/// Finds the entries of a listing by their names. An open-addressed table of positions: nothing is
/// allocated per name, and a look-up touches one slot and one entry. In a large folder both are far
/// from the processor; who looks up several names asks for all slots, then for all entries, then
/// finds them, and waits once instead of for each.
class EntryTable {
 public:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  EntryTable() = default;
  /// @param entries must outlive this object; fewer than 2^32.
  explicit EntryTable(const std::vector<os::Entry>& entries);

  /// What a name is found by. Its slot is fetched meanwhile.
  std::uint64_t ask(std::string_view name) const;
  /// Fetches the entry that the name's slot leads to.
  void fetch(std::uint64_t hash) const;
  /// The position of the entry that bears the name, or kNone. @param hash from ask().
  std::size_t find(std::string_view name, std::uint64_t hash) const;

 private:
  /// Part of the name's hash, so that names are compared when they are nearly sure to be equal, and
  /// the position plus one; 0 for a free slot.
  struct Slot {
    std::uint32_t tag = 0;
    std::uint32_t position = 0;
  };

  const std::vector<os::Entry>* m_entries = nullptr;
  std::vector<Slot> m_slots;  // a power of two, at most half full
};
