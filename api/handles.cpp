#include "api/handles.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <mutex>
#include <new>
#include <vector>

namespace api::handles {
namespace {

/// The state of an entry in one number: how often it was given out, its kind, who uses it.
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

struct Slot {
  std::atomic<std::uint64_t> state = 0;
  std::unique_ptr<Object> object;
};

/// A handle is odd: no address of an object is.
constexpr unsigned kSlotBits = 20;
constexpr std::size_t kInBlock = 1024;
constexpr std::size_t kBlocks = (std::size_t{1} << kSlotBits) / kInBlock;

/// Blocks are made when they are needed, and stay: whoever looks a handle up takes no lock.
struct Table {
  std::array<std::atomic<Slot*>, kBlocks> blocks{};
  std::mutex mutex;
  std::vector<std::uint32_t> free;
  std::size_t made = 0;
};

Table& table() {
  // Never destroyed: programs close streams in destructors of their own.
  static auto* const all = new Table;
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
  Slot* const block = table().blocks[place / kInBlock].load(std::memory_order_acquire);
  return block != nullptr ? &block[place % kInBlock] : nullptr;
}

std::uint64_t number_of(const void* handle) {
  return static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(handle));
}

/// A place that nobody has; under the mutex.
std::uint32_t free_place(Table& all) {
  if (all.free.empty()) {
    if (all.made == kBlocks) throw std::bad_alloc();
    // So much that giving places back never needs memory.
    all.free.reserve((all.made + 1) * kInBlock);
    all.blocks[all.made].store(new Slot[kInBlock], std::memory_order_release);
    const auto first = static_cast<std::uint32_t>(all.made++ * kInBlock);
    for (std::uint32_t i = kInBlock; i-- != 0;) all.free.push_back(first + i);
  }
  const std::uint32_t place = all.free.back();
  all.free.pop_back();
  return place;
}

}  // namespace

void* add(Kind kind, std::unique_ptr<Object> object) {
  Table& all = table();
  const std::lock_guard lock(all.mutex);
  const std::uint32_t place = free_place(all);
  Slot& slot = all.blocks[place / kInBlock].load(std::memory_order_relaxed)[place % kInBlock];
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
    if (state.kind != kind || number_of(place_of(number), state.generation) != number)
      return Found::kNone;
    if (sharing == Sharing::kExclusive && state.users != 0) return Found::kBusy;
  } while (!slot->state.compare_exchange_weak(bits, bits + 1, std::memory_order_acquire));
  object = slot->object.get();
  return Found::kYes;
}

void give_back(const void* handle) noexcept {
  slot_of(number_of(handle))->state.fetch_sub(1, std::memory_order_release);
}

Found take_out(const void* handle, Kind kind, std::unique_ptr<Object>& object) noexcept {
  Object* used = nullptr;
  const Found found = acquire(handle, kind, Sharing::kExclusive, used);
  if (found != Found::kYes) return found;
  const std::uint64_t number = number_of(handle);
  Slot* const slot = slot_of(number);
  // Whoever shares it has come between: a store is used by many.
  std::uint64_t mine = slot->state.load(std::memory_order_acquire);
  State state = State::of(mine);
  if (state.users != 1) {
    give_back(handle);
    return Found::kBusy;
  }
  state = {state.generation + 1, Kind::kFree, 0};
  if (!slot->state.compare_exchange_strong(mine, state.bits(), std::memory_order_acq_rel)) {
    give_back(handle);
    return Found::kBusy;
  }
  object = std::move(slot->object);
  Table& all = table();
  const std::lock_guard lock(all.mutex);
  all.free.push_back(place_of(number));
  return Found::kYes;
}

}  // namespace api::handles
