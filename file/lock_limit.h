#pragma once

#include <chrono>
#include <optional>

#include "platform/os/os.h"

/// How long the calling thread waits for the locks that it opens files with: without limit, as the
/// classes say, unless an object of this class lives. All waits of its life count together.
///
/// When the time is over every further lock that is not free is refused at once, and open() throws:
/// an operation ends as soon as it can, and its caller asks passed().
class LockLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// @param most nothing for no limit; 0 refuses a lock that is not free at once.
  explicit LockLimit(std::optional<std::chrono::milliseconds> most) noexcept;
  ~LockLimit();
  LockLimit(const LockLimit&) = delete;
  LockLimit& operator=(const LockLimit&) = delete;

  /// Whether a limit is in force on this thread.
  static bool is_set() noexcept;
  /// Whether a lock was not obtained because the time was over.
  static bool passed() noexcept;
  /// Takes a lock within the limit in force.
  static os::Status lock(os::Handle handle, const os::LockRequest& request);

 private:
  std::optional<Clock::time_point> m_end;
  bool m_passed = false;
  LockLimit* m_before;
};
