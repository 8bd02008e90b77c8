#pragma once

#include <cstdint>

#include "lab/reliability/allocations.h"

/// @file
/// Work that can be counted, so that it is the same in every run.
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
