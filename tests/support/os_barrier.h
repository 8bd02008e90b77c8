#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/os_faults.h"

namespace os::faults {

/// Stops the thread that makes a call, before it is made, until the test lets it go on.
///
///     Barrier barrier("the entry's file is made", Call::lock, 2);
///     std::thread other([&] { STGIndex::create(folder, "a.kdb", 0); });
///     ASSERT_TRUE(barrier.is_reached());
///     ...                              // whatever is to happen meanwhile
///     barrier.let_go();
///
/// The name is for messages, and for waiting().
class [[nodiscard]] Barrier {
 public:
  Barrier(std::string name, Call call, std::uint64_t nth = 1);
  /// Lets go.
  ~Barrier();
  Barrier(const Barrier&) = delete;
  Barrier& operator=(const Barrier&) = delete;

  const std::string& name() const;
  /// Waits until a thread stands here. @return whether one does, after @p patience at the latest.
  bool is_reached(std::chrono::milliseconds patience = std::chrono::seconds(20)) const;
  /// Whoever stands here goes on, and nobody is stopped any more.
  void let_go();

  /// The names of the barriers at which threads stand now, in the order of their coming.
  static std::vector<std::string> waiting();

 private:
  struct Gate;

  const std::shared_ptr<Gate> m_gate;
  const Fault m_fault;
};

}  // namespace os::faults
