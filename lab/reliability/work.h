#pragma once

#include <cstdint>

/// @file
/// Work that can be counted, so that it is the same in every run; and the program's operator new,
/// which counts for one thread, and runs out of memory where it is told to.
namespace reliability::allocations {

enum class Shortage : std::uint8_t {
  kNone,
  kOnce,     ///< one allocation fails
  kLasting,  ///< that one and all that follow
};

/// Counts this thread's allocations as long as it lives, and lets the @p nth fail with
/// std::bad_alloc.
class Watch {
 public:
  explicit Watch(Shortage shortage = Shortage::kNone, std::uint64_t nth = 0);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;

  /// Memory is there again; the counting goes on.
  void end_shortage();
  /// How often something was allocated, or should have been.
  std::uint64_t count() const;
  /// The bytes that were asked for, all together.
  std::uint64_t bytes() const;
  /// What was allocated and not given back since, in pieces.
  std::int64_t kept() const;
  /// Whether an allocation failed.
  bool has_struck() const;
};

}  // namespace reliability::allocations

// ------------------------------------------------------------------------------------------------
// Work that can be counted, so that it is the same in every run.

namespace reliability {

struct Work {
  std::uint64_t allocations = 0;
  std::uint64_t bytes = 0;         ///< that were allocated, all together
  std::uint64_t calls = 0;         ///< of the system
  std::uint64_t instructions = 0;  ///< of the processor; 0 where nobody counts them
};

/// Counts from its construction on, for this thread.
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
