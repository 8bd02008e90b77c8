#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <random>
#include <string>
#include <string_view>
#include <vector>

class child_process;

/// @file
/// A suite is a long test of something that unit tests cannot show. Examples: kills at any moment,
/// many processes at once, a full disk. Each suite counts its runs (kills, creates, races ...). The
/// counts of runs with different seeds add up.
///
///     void crowd(reliability::Run& run) { ...; run.counted(1); run.figure("creates", 20000); }
///     REGISTER_SUITE(crowd, "crowd", "many processes create", "creates", 20000, Scratch::kMemory)
namespace reliability {

using Random = std::mt19937_64;
using Clock = std::chrono::steady_clock;

/// Where a suite creates its files, unless the command line names a folder.
enum class Scratch : std::uint8_t {
  kDisk,    ///< in the current folder
  kMemory,  ///< in a file system in memory, if there is one
};

/// Whether --only and --replay can select cases of a suite.
enum class Cases : std::uint8_t { kAllOrNone, kSelectable };

struct Limits {
  std::uint64_t count = 0;         ///< the suite stops at this count; 0: it runs to its end
  std::chrono::seconds budget{0};  ///< the suite stops after this time; zero: no limit
  // Empty, unless the suite has Cases::kSelectable.
  std::string only = {};      ///< the suite runs only its parts with this text in their name
  std::string replayed = {};  ///< the suite runs only this case, in the notation that it prints
};

/// One run of a suite: its limits, random numbers and results. Any thread may call fail().
class Run {
 public:
  Run(std::uint64_t seed, const Limits& limits)
      : m_seed(seed), m_limits(limits), m_random(seed), m_begin(Clock::now()) {}

  std::uint64_t seed() const { return m_seed; }
  Random& random() { return m_random; }
  /// A random number less than @p end.
  std::uint64_t below(std::uint64_t end) { return m_random() % end; }

  /// The limits, see Limits.
  std::uint64_t wanted() const { return m_limits.count; }
  std::chrono::seconds budget() const { return m_limits.budget; }
  const std::string& only() const { return m_limits.only; }
  const std::string& replayed() const { return m_limits.replayed; }
  /// The count so far.
  std::uint64_t reached() const { return m_reached; }
  void counted(std::uint64_t more) { m_reached += more; }
  double seconds() const { return std::chrono::duration<double>(Clock::now() - m_begin).count(); }
  bool time_is_over() const {
    return m_limits.budget.count() != 0 && Clock::now() - m_begin >= m_limits.budget;
  }
  /// False as soon as the count or the time limit is reached, or after kEnough failures.
  bool goes_on() const {
    return (wanted() == 0 || m_reached < wanted()) && !time_is_over() && failures() < kEnough;
  }

  /// Adds a line to the report.
  void figure(const std::string& name, const std::string& value);
  void figure(const std::string& name, std::uint64_t value) { figure(name, std::to_string(value)); }
  /// Reports a defect.
  void fail(const std::string& what);
  std::size_t failures() const;
  /// The suite cannot run here. It then has neither passed nor failed.
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
  std::string unit;     ///< what Suite::count counts
  std::uint64_t count;  ///< if the command line has none; 0: the suite runs to its end
  Scratch scratch;
  SuiteFunction function;
  Cases cases = Cases::kAllOrNone;
};

/// @return true.
bool register_suite(Suite suite);

/// After @p scratch a suite may name its Cases.
#define REGISTER_SUITE(identifier, name, what, unit, count, scratch, ...) \
  [[maybe_unused]] static const bool suite_##identifier##_is_registered = \
      ::reliability::register_suite(                                      \
          {name, what, unit, count, scratch, identifier __VA_OPT__(, ) __VA_ARGS__});

/// Waits for the end of a helper, and fails the run unless its exit code is 0. A sanitizer reports
/// by the exit code, after the last line of the helper.
void expect_normal_end(Run& run, child_process& helper, const std::string& who);

/// "12.3 ms"
std::string as_milliseconds(Clock::duration time);

}  // namespace reliability
