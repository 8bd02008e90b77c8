#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/os_faults.h"

/// @file
/// The plan of all faults. os_faults.cpp changes it; the functions of the seam in
/// os_faults_seam.cpp follow it. Tests include os_faults.h.
namespace os::faults {

inline constexpr std::size_t kFunctions = static_cast<std::size_t>(Call::any);

constexpr std::size_t index_of(Call call) { return static_cast<std::size_t>(call); }

inline bool concerns(Call rule, Call call) {
  return rule == call || rule == Call::any || (rule == Call::system && asks_the_system(call));
}

/// One rule. Members that are not set do not apply.
struct Rule {
  Call call = Call::any;
  std::uint64_t nth = 1;
  Times times = Times::kOnce;
  std::function<void()> before;
  std::function<void()> after;
  std::exception_ptr exception;
  std::optional<Status> status;
  std::optional<std::size_t> most_bytes;
  std::optional<std::int64_t> now;
  std::optional<std::string> lead_bytes;
  std::optional<bool> nt_family;
  std::uint64_t seen = 0;
  std::uint64_t hits = 0;
};

/// The rules and the counters. Never destroyed, because the seam is used until the process ends.
struct Plan {
  std::mutex mutex;
  std::vector<std::shared_ptr<Rule>> rules;
  std::array<std::uint64_t, kFunctions> counters{};
  std::optional<std::vector<Call>> sequence;
  std::function<void(const Made&)> watcher;
  std::atomic<bool> is_watched = false;
  std::atomic<Conductor*> conductor = nullptr;
};

Plan& plan();

}  // namespace os::faults
