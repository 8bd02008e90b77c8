#pragma once

#include <cstdint>

/// @file
/// Replaces the program's operator new. It counts the allocations of one thread, and it can fail.
namespace reliability::allocations {

enum class Shortage : std::uint8_t {
  kNone,
  kOnce,     ///< one allocation fails
  kLasting,  ///< this allocation and all later ones fail
};

/// Counts the allocations of this thread during its lifetime. The @p nth one throws std::bad_alloc.
class Watch {
 public:
  explicit Watch(Shortage shortage = Shortage::kNone, std::uint64_t nth = 0);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Allocations succeed again. The counts continue.
  void end_shortage();
  /// The number of allocations, including failed ones.
  std::uint64_t count() const;
  /// The sum of the requested bytes.
  std::uint64_t bytes() const;
  /// The number of allocations that were not freed.
  std::int64_t kept() const;
  /// Whether an allocation failed.
  bool has_struck() const;
};

}  // namespace reliability::allocations

// ------------------------------------------------------------------------------------------------
// Work in numbers that are the same in each run, unlike times.

namespace reliability {

struct Work {
  std::uint64_t allocations = 0;
  std::uint64_t bytes = 0;         ///< allocated in total
  std::uint64_t calls = 0;         ///< system calls
  std::uint64_t instructions = 0;  ///< of the processor; 0 if it does not count them
};

/// Counts the work of this thread from its construction on.
class WorkCounter {
 public:
  WorkCounter();
  ~WorkCounter();
  WorkCounter(const WorkCounter&) = delete;
  WorkCounter& operator=(const WorkCounter&) = delete;

  Work work() const;

 private:
  allocations::Watch m_watch;
  int m_processor = -1;
};

}  // namespace reliability
