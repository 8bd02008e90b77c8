#include "index/loaded_index.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

/// An entry's place among the others by its stored name. The first bytes decide nearly always, and
/// comparing them as one number costs a fraction of comparing two texts.
struct Place {
  std::uint64_t head = 0;
  std::size_t entry = 0;
};

/// The first eight bytes in such an order that numbers compare as the texts do.
std::uint64_t head_of(std::string_view text) {
  std::uint64_t head = 0;
  for (std::size_t i = 0; i < sizeof head; ++i) {
    head = head << 8U | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
  }
  return head;
}

}  // namespace

void LoadedIndex::fill(NameMap& lp, NameMap& pl) const {
  for (const IndexEntry& entry : entries) lp.emplace_hint(lp.end(), entry.key, entry.stored);
  fill_by_stored_name(pl);
}

void LoadedIndex::fill_by_stored_name(NameMap& pl) const {
  // In sorted order each name goes behind the last one: no search, no comparison down the tree.
  std::vector<Place> places(entries.size());
  for (std::size_t i = 0; i < places.size(); ++i) places[i] = {head_of(entries[i].stored), i};
  std::sort(places.begin(), places.end(), [this](const Place& a, const Place& b) {
    if (a.head != b.head) return a.head < b.head;
    const int order = entries[a.entry].stored.compare(entries[b.entry].stored);
    return order != 0 ? order < 0 : a.entry < b.entry;
  });
  for (const Place& place : places) {
    pl.emplace_hint(pl.end(), entries[place.entry].stored, entries[place.entry].key);
  }
}

const IndexEntry* LoadedIndex::find(std::string_view key) const {
  const auto it = std::lower_bound(
      entries.begin(), entries.end(), key,
      [](const IndexEntry& entry, std::string_view wanted) { return entry.key < wanted; });
  return it != entries.end() && it->key == key ? &*it : nullptr;
}
