#include "tests/support/os_barrier.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace os::faults {

namespace {

/// The names at which threads stand.
struct Waiting {
  std::mutex mutex;
  std::vector<std::string> names;
};

Waiting& all_waiting() {
  static auto* const waiting = new Waiting;
  return *waiting;
}

}  // namespace

struct Barrier::Gate {
  explicit Gate(std::string its_name) : name(std::move(its_name)) {}

  void pass() {
    note_arrival();
    {
      std::unique_lock guard(mutex);
      ++standing;
      changed.notify_all();
      changed.wait(guard, [this] { return is_open; });
      --standing;
    }
    note_departure();
  }
  void note_arrival() const {
    const std::scoped_lock guard(all_waiting().mutex);
    all_waiting().names.push_back(name);
  }
  void note_departure() const {
    const std::scoped_lock guard(all_waiting().mutex);
    auto& names = all_waiting().names;
    names.erase(std::find(names.begin(), names.end(), name));
  }

  const std::string name;
  std::mutex mutex;
  std::condition_variable changed;
  int standing = 0;
  bool is_open = false;
};

Barrier::Barrier(std::string name, Call call, std::uint64_t nth)
    : m_gate(std::make_shared<Gate>(std::move(name))),
      m_fault(before(
          call, [gate = m_gate] { gate->pass(); }, nth)) {}

Barrier::~Barrier() { let_go(); }

const std::string& Barrier::name() const { return m_gate->name; }

bool Barrier::is_reached(std::chrono::milliseconds patience) const {
  std::unique_lock guard(m_gate->mutex);
  return m_gate->changed.wait_for(guard, patience, [this] { return m_gate->standing > 0; });
}

void Barrier::let_go() {
  const std::scoped_lock guard(m_gate->mutex);
  m_gate->is_open = true;
  m_gate->changed.notify_all();
}

std::vector<std::string> Barrier::waiting() {
  const std::scoped_lock guard(all_waiting().mutex);
  return all_waiting().names;
}

}  // namespace os::faults
