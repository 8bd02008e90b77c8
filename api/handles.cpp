#include "api/handles.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>
#include <vector>

namespace api::handles {
namespace {

/// The state of a slot in one number: generation, kind, number of users.
struct State {
  std::uint32_t generation;
  Kind kind;
  std::uint32_t users;  ///< 24 bits

  static State of(std::uint64_t bits) {
    return {static_cast<std::uint32_t>(bits >> 32), static_cast<Kind>((bits >> 24) & 0xFFU),
            static_cast<std::uint32_t>(bits & 0xFFFFFFU)};
  }
  std::uint64_t bits() const {
    return (std::uint64_t{generation} << 32) | (static_cast<std::uint64_t>(kind) << 24) | users;
  }
};

/// A place of the table. `state` says who may use `object`: the threads that it counts, and the one
/// that adds it or takes it out.
struct Slot {
  std::atomic<std::uint64_t> state = 0;
  std::unique_ptr<Object> object;
};

/// A handle is an odd number; the address of an object never is.
constexpr unsigned kSlotBits = 20;
constexpr std::size_t kInBlock = 1024;
constexpr std::size_t kBlocks = (std::size_t{1} << kSlotBits) / kInBlock;

/// Blocks are created on demand and never freed, so that a lookup needs no lock.
constinit std::array<std::atomic<Slot*>, kBlocks> g_blocks{};

/// The places for new handles, and how many blocks exist. Hold `mutex` to use the others.
struct FreePlaces {
  std::mutex mutex;
  std::vector<std::uint32_t> places;
  std::size_t blocks = 0;
};

FreePlaces& free_places() {
  // Never destroyed: destructors of static objects may still close streams.
  static auto* const all = new FreePlaces;
  return *all;
}

std::uint64_t number_of(std::uint32_t place, std::uint32_t generation) {
  return (std::uint64_t{generation} << (kSlotBits + 1)) | (std::uint64_t{place} << 1) | 1U;
}

std::uint32_t place_of(std::uint64_t number) {
  return static_cast<std::uint32_t>(number >> 1) & ((1U << kSlotBits) - 1);
}

Slot* slot_of(std::uint64_t number) {
  if ((number & 1U) == 0) return nullptr;
  const std::uint32_t place = place_of(number);
  Slot* const block = g_blocks[place / kInBlock].load(std::memory_order_acquire);
  return block != nullptr ? &block[place % kInBlock] : nullptr;
}

std::uint64_t number_of(const void* handle) {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(handle));
}

/// The place that was freed last. Opening and closing in turn needs no lock.
constexpr std::uint32_t kNoPlace = ~std::uint32_t{0};
constinit std::atomic<std::uint32_t> g_last_place = kNoPlace;

std::uint32_t free_place() {
  const std::uint32_t last = g_last_place.exchange(kNoPlace, std::memory_order_acquire);
  if (last != kNoPlace) return last;
  FreePlaces& all = free_places();
  const std::lock_guard lock(all.mutex);
  if (all.places.empty()) {
    if (all.blocks == kBlocks) throw std::bad_alloc();
    // Enough that give_place_back() never allocates.
    all.places.reserve((all.blocks + 1) * kInBlock);
    g_blocks[all.blocks].store(new Slot[kInBlock], std::memory_order_release);
    const auto first = static_cast<std::uint32_t>(all.blocks++ * kInBlock);
    for (std::uint32_t i = kInBlock; i-- != 0;) all.places.push_back(first + i);
  }
  const std::uint32_t place = all.places.back();
  all.places.pop_back();
  return place;
}

void give_place_back(std::uint32_t place) {
  const std::uint32_t earlier = g_last_place.exchange(place, std::memory_order_acq_rel);
  if (earlier == kNoPlace) return;
  FreePlaces& all = free_places();
  const std::lock_guard lock(all.mutex);
  all.places.push_back(earlier);
}

bool is_of(const State& state, Kind kind, std::uint64_t number) {
  return state.kind == kind && number_of(place_of(number), state.generation) == number;
}

}  // namespace

void* add(Kind kind, std::unique_ptr<Object> object) {
  const std::uint32_t place = free_place();
  Slot& slot = g_blocks[place / kInBlock].load(std::memory_order_acquire)[place % kInBlock];
  slot.object = std::move(object);
  const std::uint32_t generation = State::of(slot.state.load(std::memory_order_relaxed)).generation;
  slot.state.store(State{generation, kind, 0}.bits(), std::memory_order_release);
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(number_of(place, generation)));
}

Found acquire(const void* handle, Kind kind, Sharing sharing, Object*& object) noexcept {
  const std::uint64_t number = number_of(handle);
  Slot* const slot = slot_of(number);
  if (slot == nullptr) return Found::kNone;
  std::uint64_t bits = slot->state.load(std::memory_order_acquire);
  do {
    const State state = State::of(bits);
    if (!is_of(state, kind, number)) return Found::kNone;
    if (sharing == Sharing::kExclusive && state.users != 0) return Found::kBusy;
  } while (!slot->state.compare_exchange_weak(bits, bits + 1, std::memory_order_acquire));
  object = slot->object.get();
  return Found::kYes;
}

void give_back(const void* handle) noexcept {
  slot_of(number_of(handle))->state.fetch_sub(1, std::memory_order_release);
}

Found take_out(const void* handle, Kind kind, std::unique_ptr<Object>& object) noexcept {
  const std::uint64_t number = number_of(handle);
  Slot* const slot = slot_of(number);
  if (slot == nullptr) return Found::kNone;
  std::uint64_t bits = slot->state.load(std::memory_order_acquire);
  const State state = State::of(bits);
  if (!is_of(state, kind, number)) return Found::kNone;
  const std::uint64_t ended = State{state.generation + 1, Kind::kFree, 0}.bits();
  if (state.users != 0 ||
      !slot->state.compare_exchange_strong(bits, ended, std::memory_order_acq_rel))
    return Found::kBusy;
  object = std::move(slot->object);
  give_place_back(place_of(number));
  return Found::kYes;
}

}  // namespace api::handles
