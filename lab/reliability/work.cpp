#include "lab/reliability/work.h"

#include <cstddef>
#include <cstdlib>
#include <new>

#include "platform/os/os.h"

namespace reliability::allocations {
namespace {

struct State {
  bool is_watched = false;
  Shortage shortage = Shortage::kNone;
  std::uint64_t nth = 0;
  std::uint64_t count = 0;
  std::uint64_t bytes = 0;
  std::int64_t kept = 0;
  bool has_struck = false;
};

thread_local State t_state;

/// Whether the next allocation succeeds.
bool take_one() noexcept {
  if (!t_state.is_watched) return true;
  ++t_state.count;
  const bool fails = (t_state.shortage == Shortage::kOnce && t_state.count == t_state.nth) ||
                     (t_state.shortage == Shortage::kLasting && t_state.count >= t_state.nth);
  if (fails) t_state.has_struck = true;
  return !fails;
}

void* allocate(std::size_t size) noexcept {
  if (!take_one()) return nullptr;
  if (t_state.is_watched) t_state.bytes += size;
  void* const memory = std::malloc(size == 0 ? 1 : size);
  if (memory != nullptr && t_state.is_watched) ++t_state.kept;
  return memory;
}

void give_back(void* memory) noexcept {
  if (memory != nullptr && t_state.is_watched) --t_state.kept;
  std::free(memory);
}

}  // namespace

Watch::Watch(Shortage shortage, std::uint64_t nth) {
  t_state = State{true, shortage, nth, 0, 0, 0, false};
}
Watch::~Watch() { t_state.is_watched = false; }

void Watch::end_shortage() { t_state.shortage = Shortage::kNone; }
std::uint64_t Watch::count() const { return t_state.count; }
std::uint64_t Watch::bytes() const { return t_state.bytes; }
std::int64_t Watch::kept() const { return t_state.kept; }
bool Watch::has_struck() const { return t_state.has_struck; }

}  // namespace reliability::allocations

// Replaces every form except those for over-aligned types, which nothing here uses. The C++ library
// derives the other forms from the first, but a sanitizer's runtime may replace each of them.
void* operator new(std::size_t size) {
  void* const memory = reliability::allocations::allocate(size);
  if (memory == nullptr) throw std::bad_alloc();
  return memory;
}
void* operator new[](std::size_t size) { return ::operator new(size); }
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return reliability::allocations::allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return reliability::allocations::allocate(size);
}
void operator delete(void* memory) noexcept { reliability::allocations::give_back(memory); }
void operator delete[](void* memory) noexcept { reliability::allocations::give_back(memory); }
void operator delete(void* memory, std::size_t) noexcept {
  reliability::allocations::give_back(memory);
}
void operator delete[](void* memory, std::size_t) noexcept {
  reliability::allocations::give_back(memory);
}
void operator delete(void* memory, const std::nothrow_t&) noexcept {
  reliability::allocations::give_back(memory);
}
void operator delete[](void* memory, const std::nothrow_t&) noexcept {
  reliability::allocations::give_back(memory);
}

// ------------------------------------------------------------------------------------------------

#if defined(__linux__)
#include <linux/perf_event.h>
#include <sys/syscall.h>
#include <unistd.h>
#endif

namespace reliability {
namespace {

#if defined(__linux__)

/// Opens a count of the instructions of this thread outside the kernel. @return -1 if the machine
/// does not count them, or does not permit it.
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
