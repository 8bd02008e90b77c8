#include "file/lock_limit.h"

#include <algorithm>
#include <thread>

namespace {

using namespace std::chrono_literals;

/// A waiting thread tries again after a pause, which grows from the first value to the second.
constexpr std::chrono::milliseconds kShortest = 1ms;
constexpr std::chrono::milliseconds kLongest = 20ms;

constinit thread_local LockLimit* t_limit = nullptr;

}  // namespace

LockLimit::LockLimit(std::optional<std::chrono::milliseconds> most) noexcept : m_before(t_limit) {
  // A limit of 100 years or more is no limit; it could exceed the range of the clock.
  constexpr std::chrono::hours kEver = 24h * 365 * 100;
  if (most && *most < kEver) m_end = Clock::now() + *most;
  t_limit = this;
}

LockLimit::~LockLimit() { t_limit = m_before; }

bool LockLimit::is_set() noexcept { return t_limit != nullptr && t_limit->m_end; }

bool LockLimit::passed() noexcept { return t_limit != nullptr && t_limit->m_passed; }

os::Status LockLimit::lock(os::Handle handle, const os::LockRequest& request, bool* waited) {
  const bool is_patient = (request.flags & os::kLockFailAtOnce) == 0;
  if (!is_patient || (!is_set() && waited == nullptr)) return os::lock(handle, request);
  os::LockRequest at_once = request;
  at_once.flags |= os::kLockFailAtOnce;
  for (std::chrono::milliseconds pause = kShortest;; pause = std::min(2 * pause, kLongest)) {
    const os::Status status = os::lock(handle, at_once);
    if (status.failure() != os::Failure::kLocked) return status;
    if (waited != nullptr) *waited = true;
    if (!is_set()) return os::lock(handle, request);
    const Clock::time_point now = Clock::now();
    if (now >= *t_limit->m_end) {
      t_limit->m_passed = true;
      return status;
    }
    std::this_thread::sleep_for(std::min<Clock::duration>(pause, *t_limit->m_end - now));
  }
}
