#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <vector>

/// @file
/// Long runs that look for what a unit test cannot show: what a process leaves that is killed at
/// any moment, what many processes and threads do to each other, what a full disk does. Each is a
/// suite with a count (of kills, creates, races ...) that may add up over runs with different
/// seeds.
///
///     void crowd(reliability::Run& run) { ...; run.counted(1); run.figure("creates", 20000); }
///     REGISTER_SUITE(crowd, "crowd", "many processes create at once", 20000, Scratch::kMemory)
namespace reliability {

using Random = std::mt19937_64;
using Clock = std::chrono::steady_clock;

/// Where a suite's files lie unless the command line names a folder.
enum class Scratch : std::uint8_t {
  kDisk,    ///< below the current folder
  kMemory,  ///< a file system in memory, where there is one
};

struct Limits {
  std::uint64_t count = 0;         ///< how far to go; 0 for suites with an end of their own
  std::chrono::seconds budget{0};  ///< when to stop before that; zero for never
  std::string only = {};           ///< what of it to do, for suites that know parts by name
  std::string replayed = {};       ///< the one case to do, as the suite itself has told it
};

/// One run of a suite: its limits, its random numbers, and what it found. Any thread may report.
class Run {
 public:
  Run(std::uint64_t seed, const Limits& limits)
      : m_seed(seed), m_limits(limits), m_random(seed), m_begin(Clock::now()) {}

  std::uint64_t seed() const { return m_seed; }
  Random& random() { return m_random; }
  /// A number below @p end.
  std::uint64_t below(std::uint64_t end) { return m_random() % end; }

  /// How far the suite is to go.
  std::uint64_t wanted() const { return m_limits.count; }
  /// When it is to stop before that; zero for never.
  std::chrono::seconds budget() const { return m_limits.budget; }
  /// A part of the suite, or one case of it, instead of the whole; empty for that.
  const std::string& only() const { return m_limits.only; }
  const std::string& replayed() const { return m_limits.replayed; }
  /// How far it has come.
  std::uint64_t reached() const { return m_reached; }
  void counted(std::uint64_t more) { m_reached += more; }
  double seconds() const { return std::chrono::duration<double>(Clock::now() - m_begin).count(); }
  bool time_is_over() const {
    return m_limits.budget.count() != 0 && Clock::now() - m_begin >= m_limits.budget;
  }
  /// Whether the suite goes on: neither the count is reached nor the time over, nor too much wrong.
  bool goes_on() const {
    return (wanted() == 0 || m_reached < wanted()) && !time_is_over() && failures() < kEnough;
  }

  /// A line of the report.
  void figure(const std::string& name, const std::string& value);
  void figure(const std::string& name, std::uint64_t value) { figure(name, std::to_string(value)); }
  /// Something that must not be.
  void fail(const std::string& what);
  std::size_t failures() const;
  /// The suite cannot be run here, for this reason. That is neither passed nor failed.
  void not_run(const std::string& reason) { m_not_run = reason; }

  const std::string& reason_not_run() const { return m_not_run; }
  const std::vector<std::string>& figures() const { return m_figures; }
  const std::vector<std::string>& first_failures() const { return m_failures; }

 private:
  static constexpr std::size_t kEnough = 20;

  const std::uint64_t m_seed;
  const Limits m_limits;
  Random m_random;
  const Clock::time_point m_begin;
  std::uint64_t m_reached = 0;
  std::string m_not_run;
  std::vector<std::string> m_figures;
  mutable std::mutex m_mutex;
  std::size_t m_failure_count = 0;
  std::vector<std::string> m_failures;
};

using SuiteFunction = void (*)(Run& run);

struct Suite {
  std::string name;
  std::string what;
  std::string unit;     ///< what is counted
  std::uint64_t count;  ///< without one on the command line; 0: as much as there is
  Scratch scratch;
  SuiteFunction function;
};

/// @return true.
bool register_suite(Suite suite);

#define REGISTER_SUITE(identifier, name, what, unit, count, scratch)      \
  [[maybe_unused]] static const bool suite_##identifier##_is_registered = \
      ::reliability::register_suite({name, what, unit, count, scratch, identifier});

/// "12.3 ms"
std::string as_milliseconds(Clock::duration time);

}  // namespace reliability
