#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/interleavings/interleaving.h"

/// @file
/// Generates all schedules of a combination, depth first.
///
/// A schedule has a limited number of preemptions. A preemption takes the turn from an operation
/// that could continue. A schedule with the effects of another one is omitted. Example: A is
/// preempted, and then A's next call touches nothing that the others touched. A could have made
/// that call before the preemption, with no more preemptions, so the limit loses nothing. Schedules
/// that preempt A later are run first. If one of them shows this, the earlier one is not even
/// begun.
namespace interleavings {

enum class Reduction : std::uint8_t { kOn, kOff };
enum class Kills : std::uint8_t { kNone, kOne };

struct Bounds {
  int preemptions = 2;
  Reduction reduction = Reduction::kOn;
  /// One operation may be killed after each of its changes; also while it waits, or after others
  /// have ended. A kill counts as a preemption.
  Kills kills = Kills::kNone;
};

class Explorer final : public Scheduler {
 public:
  explicit Explorer(const Bounds& bounds) : m_bounds(bounds) {}

  /// Begins the next schedule. @return false if there is none.
  bool next();
  Choice choose(const Interleaving& interleaving, int current,
                const std::vector<int>& able) override;

  /// Whether the last run had the effects of another schedule.
  bool is_redundant() const { return m_is_redundant; }
  std::uint64_t runs() const { return m_runs; }
  /// The number of omitted beginnings of schedules.
  std::uint64_t cut() const { return m_cut; }
  /// Whether the same choices led to a different run.
  bool is_unrepeatable() const { return m_is_unrepeatable; }

 private:
  /// What the others touched from a choice until the preempted operation continued, in all runs.
  using Block = std::optional<Footprint>;

  /// A point of a run with more than one choice.
  struct Branch {
    std::vector<Choice> choices;
    std::size_t at = 0;
    int current = -1;                   ///< the operation that has the turn
    std::size_t made = 0;               ///< calls made so far
    Footprint next = {};                ///< what its next call touches
    std::vector<Block> blocks = {};     ///< one per choice, if known
    std::vector<Block> one_later = {};  ///< blocks of the same choices one call later
  };

  std::vector<Choice> first_choices(const Interleaving& interleaving, const std::vector<int>& able);
  std::vector<Choice> choices_at(const Interleaving& interleaving, int current,
                                 const std::vector<int>& able);
  void offer(const Interleaving& interleaving, int who, std::vector<Choice>& choices);
  bool may_anybody_be_killed(const Interleaving& interleaving) const;
  bool is_needed(const Interleaving& interleaving, int who) const;
  void open_branch(const Interleaving& interleaving, int current, std::vector<Choice> choices);
  bool is_same_branch(const Interleaving& interleaving, int current,
                      const std::vector<Choice>& choices) const;
  void take_blocks(const Interleaving& interleaving, int who);
  bool does_as_one_later(Branch& branch) const;

  const Bounds m_bounds;
  std::vector<Branch> m_branches;
  std::vector<std::size_t> m_taken;  ///< branches whose operation is still preempted
  std::size_t m_depth = 0;
  int m_preemptions = 0;
  bool m_has_killed = false;
  bool m_is_redundant = false;
  bool m_is_unrepeatable = false;
  std::uint64_t m_runs = 0;
  std::uint64_t m_cut = 0;
};

// ------------------------------------------------------------------------------------------------
// A schedule as text. Example: "A12 B5 A B": A makes twelve calls, B five, then A the rest, then B.
// "A12x" kills A after its twelfth call. An operation that must wait passes the turn at once.

struct Slice {
  static constexpr std::size_t kToItsEnd = static_cast<std::size_t>(-1);

  int who = 0;
  std::size_t calls = kToItsEnd;
  bool is_killed = false;

  bool operator==(const Slice&) const = default;
};
using Schedule = std::vector<Slice>;

std::string in_text(const Schedule& schedule);
/// @throws std::invalid_argument if the text is not a schedule.
Schedule schedule_from(const std::string& text);
/// The length of each operation's last slice. In a deadlock no operation reaches its end.
enum class LastSlice : std::uint8_t { kToItsEnd, kAsMade };
/// The schedule of a run.
Schedule schedule_of(const std::vector<Event>& events, LastSlice last = LastSlice::kToItsEnd);
/// The calls, one per line.
std::string calls_in_words(const std::vector<Event>& events);

/// Runs a schedule. A slice is skipped if its operation cannot continue.
class Replay final : public Scheduler {
 public:
  explicit Replay(Schedule schedule) : m_schedule(std::move(schedule)) {}

  Choice choose(const Interleaving& interleaving, int current,
                const std::vector<int>& able) override;

 private:
  const Schedule m_schedule;
  std::size_t m_at = 0;
  std::size_t m_made_before = 0;  ///< all calls made before the current slice
};

}  // namespace interleavings
