#pragma once

#include <chrono>
#include <optional>

#include "platform/os/os.h"

/// Limits how long the calling thread waits for the locks of files that it opens: one deadline for
/// all locks, counted from the construction. Time between the waits counts, too. The limit applies
/// while the object exists. Of nested objects only the innermost one applies.
///
/// After the deadline, each lock that is not free is refused at once, and open() throws. So the
/// operation ends soon, and its caller checks passed(). try_open() with noWait has no deadline.
class LockLimit {
 public:
  using Clock = std::chrono::steady_clock;

  /// @param most nothing for no limit; with 0 a lock that is not free is refused at once.
  explicit LockLimit(std::optional<std::chrono::milliseconds> most) noexcept;
  ~LockLimit();
  LockLimit(const LockLimit&) = delete;
  LockLimit& operator=(const LockLimit&) = delete;

  /// Whether this thread has a limit now.
  static bool is_set() noexcept;
  /// Whether the current limit has refused a lock because of its deadline.
  static bool passed() noexcept;
  /// Takes a lock within the current limit. If @p waited is not null, it receives whether another
  /// handle had a conflicting lock first. Asking that costs one more call, but only then.
  static os::Status lock(os::Handle handle, const os::LockRequest& request, bool* waited = nullptr);

 private:
  std::optional<Clock::time_point> m_end;
  bool m_passed = false;
  LockLimit* m_before;
};
