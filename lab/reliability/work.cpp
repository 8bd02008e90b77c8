#include "lab/reliability/work.h"

#include "platform/os/os.h"

#if defined(__linux__)
#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace reliability {
namespace {

#if defined(__linux__)

/// Instructions of this thread outside the kernel; -1 where the machine or its owner does not count
/// them.
int open_processor() {
  ::perf_event_attr wanted = {};
  wanted.size = sizeof wanted;
  wanted.type = PERF_TYPE_HARDWARE;
  wanted.config = PERF_COUNT_HW_INSTRUCTIONS;
  wanted.exclude_kernel = 1;
  wanted.exclude_hv = 1;
  return static_cast<int>(::syscall(SYS_perf_event_open, &wanted, 0, -1, -1, 0UL));
}

std::uint64_t read_processor(int counter) {
  std::uint64_t value = 0;
  if (counter < 0 || ::read(counter, &value, sizeof value) != sizeof value) return 0;
  return value;
}

void close_processor(int counter) {
  if (counter >= 0) ::close(counter);
}

#else

int open_processor() { return -1; }
std::uint64_t read_processor(int) { return 0; }
void close_processor(int) {}

#endif

}  // namespace

WorkCounter::WorkCounter() {
  os::faults::reset();
  m_processor = open_processor();
}

WorkCounter::~WorkCounter() { close_processor(m_processor); }

Work WorkCounter::work() const {
  return {m_watch.count(), m_watch.bytes(), os::faults::calls(os::faults::Call::any),
          read_processor(m_processor)};
}

}  // namespace reliability
