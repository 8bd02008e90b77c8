#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "lab/reliability/operations.h"
#include "lab/reliability/reliability.h"
#include "lab/reliability/tree_state.h"
#include "lab/reliability/work.h"
#include "tests/support/os_faults.h"
#include "tests/support/scratch.h"
#include "vu_host.h"

/// @file
/// Runs one public operation on a small tree, with a fault that the caller chooses. The suites for
/// faults, kills and failing allocations share this code.
namespace reliability {

/// What decides the behaviour of an operation, besides its arguments.
struct Setting {
  bool synchronize = false;
  Situation situation = Situation::kTidy;
};
inline constexpr std::array<Setting, 6> kSettings = {{{true, Situation::kStrays},
                                                      {true, Situation::kTidy},
                                                      {true, Situation::kNoIndex},
                                                      {false, Situation::kStrays},
                                                      {false, Situation::kTidy},
                                                      {false, Situation::kNoIndex}}};
std::string name_of(const Setting& setting);

/// Counts errors and warnings, and keeps the beginning of the first few, without allocating.
class FailureSink final : public vu_host::trace_sink {
 public:
  FailureSink();
  ~FailureSink() override;
  FailureSink(const FailureSink&) = delete;
  FailureSink& operator=(const FailureSink&) = delete;

  /// Installs or removes the sink.
  void listen(bool wanted);
  void clear() noexcept;
  std::size_t errors() const { return m_errors; }
  std::size_t warnings() const { return m_warnings; }
  /// The first few, as "E text" for errors and "W text" for warnings.
  std::vector<std::string> first() const;

  bool wants(vu_host::trace_level) const noexcept override { return true; }
  bool wants(vu_host::trace_event) const noexcept override { return true; }
  void scope_begin(const vu_host::trace_site&, vu_host::trace_level,
                   std::string_view) noexcept override {}
  void scope_end(const vu_host::trace_site&, vu_host::trace_level) noexcept override {}
  void scope_message(const vu_host::trace_site&, std::string_view) noexcept override {}
  void record(const vu_host::trace_site&, vu_host::trace_level,
              std::string_view) noexcept override {}
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override;

 private:
  using Words = std::array<char, 120>;

  std::size_t m_errors = 0;
  std::size_t m_warnings = 0;
  std::array<Words, 12> m_first{};
  std::size_t m_kept = 0;
};

/// A fault can throw this type. The library does not know it.
struct PlannedException {};

/// How an operation ended.
struct Outcome {
  enum class End : std::uint8_t {
    kReturned,
    kFileExcept,
    kPlanned,
    kNoMemory,
    kOther,  ///< any other exception
  };

  End end = End::kReturned;
  std::string result;  ///< as in_text() returns it; empty after an exception
  std::size_t errors = 0;
  std::size_t warnings = 0;
  std::vector<std::string> traces;  ///< the first errors and warnings
  std::uint64_t allocations = 0;
  std::int64_t kept = 0;     ///< allocations that were not freed
  bool ran_short = false;    ///< an allocation failed
  std::int64_t handles = 0;  ///< handles that were not closed
  bool is_locked = false;    ///< a file is still locked
  Tree tree;                 ///< the tree after the operation
};
const char* name_of(Outcome::End end);

/// One run of an operation without a fault.
struct Undisturbed {
  Tree before;
  Outcome outcome;
  std::vector<os::faults::Call> calls;
};

class Trial {
 public:
  explicit Trial(Run& run) : m_run(run) {}

  /// All files are in this folder.
  std::string root() const { return m_scratch.path("root"); }
  FailureSink& sink() { return m_sink; }

  /// Creates the tree and initialises the storage for the operation.
  void prepare(const PublicOperation& operation, const Setting& setting);
  /// Calls the operation, with the faults that are in force.
  Outcome call(const PublicOperation& operation, const Setting& setting,
               allocations::Shortage shortage = allocations::Shortage::kNone,
               std::uint64_t nth = 0);
  /// prepare() and call() without a fault. In a folder whose files are all in the index the
  /// operation must succeed; otherwise the faults of a failed run test nothing, and the run fails.
  Undisturbed learn(const PublicOperation& operation, const Setting& setting);
  /// The tree as it is now.
  const Tree& look();
  /// Fails the run for handles, memory and locks that the operation did not release.
  void check_held(const std::string& what, const Undisturbed& undisturbed, const Outcome& outcome);
  /// check_held(), and compare() with the trees before the operation and without the fault. Counts
  /// the intermediate states in @p windows.
  void check(const std::string& what, const Undisturbed& undisturbed, const Outcome& outcome,
             Disturbance by, std::map<std::string, std::uint64_t>& windows);

 private:
  Run& m_run;
  const scratch_folder m_scratch;
  FailureSink m_sink;
  Tree m_tree;  ///< after prepare()
  Tree m_now;   ///< after the operation
  int m_prepared = -1;
};

/// Runs of one operation in one setting, each with another fault. Each counts as one run.
using Disturbances = std::vector<std::function<void()>>;
/// Runs all disturbances of each operation and setting. If the run has a count, it instead picks a
/// random operation and setting and runs some of its disturbances, until the run ends.
void go_through(Run& run, std::size_t operations,
                const std::function<Disturbances(std::size_t, const Setting&)>& disturbances_of);

/// Whether one of the files that operations lock is locked.
bool is_anything_locked(const std::string& folder);

}  // namespace reliability
