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
/// One public operation on a small tree, alone in its process, disturbed in a way that the caller
/// chooses: what the suites of faults, kills and missing memory have in common.
namespace reliability {

/// What else decides the way of an operation.
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

/// Takes everything that is traced, keeps the first words of the failures, and needs no memory for
/// that.
class FailureSink final : public vu_host::trace_sink {
 public:
  FailureSink();
  ~FailureSink() override;
  FailureSink(const FailureSink&) = delete;
  FailureSink& operator=(const FailureSink&) = delete;

  /// Whether anything reaches it from now on.
  void listen(bool wanted);
  void clear() noexcept;
  std::size_t errors() const { return m_errors; }
  std::size_t warnings() const { return m_warnings; }
  /// "E text" and "W text", the first few.
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

/// What is thrown from the seam: nothing that the library knows.
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
  std::string result;  ///< in_text(), when it returned
  std::size_t errors = 0;
  std::size_t warnings = 0;
  std::vector<std::string> traces;  ///< the first of both
  std::uint64_t allocations = 0;
  std::int64_t kept = 0;     ///< memory that was not given back, in pieces
  bool ran_short = false;    ///< an allocation was refused
  std::int64_t handles = 0;  ///< that were not closed
  bool is_locked = false;    ///< a lock was left
  Tree tree;                 ///< what is there now
};
const char* name_of(Outcome::End end);

/// What an operation does when nothing disturbs it.
struct Undisturbed {
  Tree before;
  Outcome outcome;
  std::vector<os::faults::Call> calls;
};

class Trial {
 public:
  explicit Trial(Run& run) : m_run(run) {}

  /// The folder below which everything lies.
  std::string root() const { return m_scratch.path("root"); }
  FailureSink& sink() { return m_sink; }

  /// Makes the tree and the storage as an operation is to find them.
  void prepare(const PublicOperation& operation, const Setting& setting);
  /// Calls the operation under whatever is in force.
  Outcome call(const PublicOperation& operation, const Setting& setting,
               allocations::Shortage shortage = allocations::Shortage::kNone,
               std::uint64_t nth = 0);
  /// Both, undisturbed.
  Undisturbed learn(const PublicOperation& operation, const Setting& setting);
  /// What is there now.
  const Tree& look();
  /// What an operation holds although it is over: handles, memory, locks.
  void check_held(const std::string& what, const Undisturbed& undisturbed, const Outcome& outcome);
  /// What is wrong in any case: handles, locks or memory left, a tree that may not be. The windows
  /// go to
  /// @p windows.
  void check(const std::string& what, const Undisturbed& undisturbed, const Outcome& outcome,
             Disturbance by, std::map<std::string, std::uint64_t>& windows);

 private:
  Run& m_run;
  const scratch_folder m_scratch;
  FailureSink m_sink;
  Tree m_tree;  ///< as prepared
  Tree m_now;   ///< as left
  int m_prepared = -1;
};

/// Disturbances of one operation in one setting; each is counted when it is over.
using Disturbances = std::vector<std::function<void()>>;
/// Goes through them all, operation by operation; where a count limits the run, through some of a
/// random operation in a random setting, again and again.
void go_through(Run& run, std::size_t operations,
                const std::function<Disturbances(std::size_t, const Setting&)>& disturbances_of);

/// Whether anybody holds a lock on one of the files that operations lock.
bool is_anything_locked(const std::string& folder);

}  // namespace reliability
