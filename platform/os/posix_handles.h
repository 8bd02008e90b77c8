#pragma once

#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>
#include <utility>
#include <vector>

#include "platform/os/os.h"

/// @file
/// The table of the handles on POSIX systems.
namespace os::posix {

/// The open handles of the process. Any thread may call any member.
///
/// A handle is a slot number with a generation in the higher bits. A copy of a handle can outlive
/// the close, and the system may give a closed descriptor to the next file. A stale handle must not
/// reach that file. Therefore a close ends a generation, and the slot is not used again until
/// kReserve others have been freed after it. A number returns only after millions of opens.
class HandleTable {
 public:
  struct File {
    int descriptor = -1;
    bool has_lock = false;  ///< a lock taken by lock(), not the short one around a single transfer
  };

  /// Takes over the descriptor. Returns nothing if the table is full; then the caller keeps the
  /// descriptor.
  std::optional<Handle> add(int descriptor) {
    const std::scoped_lock guard(m_mutex);
    std::uint32_t index = m_oldest_free;
    if (m_free_count < kReserve && m_slots.size() < kMaxSlots) {
      m_slots.emplace_back();
      index = static_cast<std::uint32_t>(m_slots.size() - 1);
    } else if (m_free_count != 0) {
      m_oldest_free = m_slots[index].next_free;
      --m_free_count;
    } else {
      return std::nullopt;
    }
    Slot& slot = m_slots[index];
    slot.file = {descriptor, false};
    return static_cast<Handle>(slot.generation << kSlotBits | index);
  }

  /// The file of a handle, as a copy. If one thread closes a handle while another one uses it, the
  /// result is that of the system.
  std::optional<File> find(Handle handle) {
    const std::scoped_lock guard(m_mutex);
    const Slot* slot = live_slot(handle);
    if (slot == nullptr) return std::nullopt;
    return slot->file;
  }

  void set_lock(Handle handle, bool has_lock) {
    const std::scoped_lock guard(m_mutex);
    if (Slot* slot = live_slot(handle)) slot->file.has_lock = has_lock;
  }

  /// Ends the handle; the caller closes the descriptor. Needs no memory: even without memory the
  /// file and its lock must be released.
  std::optional<File> remove(Handle handle) {
    const std::scoped_lock guard(m_mutex);
    Slot* slot = live_slot(handle);
    if (slot == nullptr) return std::nullopt;
    const std::uint32_t index = static_cast<std::uint32_t>(handle) & kSlotMask;
    (m_free_count == 0 ? m_oldest_free : m_slots[m_newest_free].next_free) = index;
    m_newest_free = index;
    ++m_free_count;
    slot->generation =
        slot->generation == kLastGeneration ? kFirstGeneration : slot->generation + 1;
    return std::exchange(slot->file, File{});
  }

 private:
  static constexpr unsigned kSlotBits = 18;
  static constexpr std::size_t kMaxSlots = std::size_t{1} << kSlotBits;
  static constexpr std::uint32_t kSlotMask = (1U << kSlotBits) - 1;
  /// The first one puts every handle above the descriptors of a system (about a million).
  static constexpr std::uint32_t kFirstGeneration = 8;
  static constexpr std::uint32_t kLastGeneration = (1U << (31 - kSlotBits)) - 1;
  static constexpr std::size_t kReserve = 1024;

  struct Slot {
    std::uint32_t generation = kFirstGeneration;
    std::uint32_t next_free = 0;  ///< for a freed slot: the one that was freed after it
    File file;
  };

  Slot* live_slot(Handle handle) {
    if (handle < 0) return nullptr;
    const auto number = static_cast<std::uint32_t>(handle);
    const std::size_t index = number & kSlotMask;
    if (index >= m_slots.size()) return nullptr;
    Slot& slot = m_slots[index];
    const bool live = slot.file.descriptor >= 0 && slot.generation == number >> kSlotBits;
    return live ? &slot : nullptr;
  }

  std::mutex m_mutex;
  std::vector<Slot> m_slots;
  std::size_t m_free_count = 0;
  std::uint32_t m_oldest_free = 0;
  std::uint32_t m_newest_free = 0;
};

}  // namespace os::posix
