#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/interleavings/interleaving.h"

/// @file
/// All schedules of a combination, one run each, depth first.
///
/// A schedule may take the turn from somebody who could go on at most so many times (a
/// preemption). What one schedule does and another one does as well is left out: when the turn
/// comes back to somebody whose next call touches nothing that the others did meanwhile, that call
/// could as well have been made before they began. The schedule in which it was has no more
/// preemptions than this one, for its slice only grows; so nothing is lost by the bound. What is
/// known from the schedule that takes the turn one call later is not even begun.
namespace interleavings {

enum class Reduction : std::uint8_t { kOn, kOff };
enum class Kills : std::uint8_t { kNone, kOne };

struct Bounds {
  int preemptions = 2;
  Reduction reduction = Reduction::kOn;
  /// One may end behind each of its changes, also when the others wait or have ended, or while it
  /// waits itself. That counts as a preemption.
  Kills kills = Kills::kNone;
};

class Explorer final : public Scheduler {
 public:
  explicit Explorer(const Bounds& bounds) : m_bounds(bounds) {}

  /// Begins the next schedule. @return false when there is none.
  bool next();
  Choice choose(const Interleaving& interleaving, int current,
                const std::vector<int>& able) override;

  /// Whether the last run does what another one does as well.
  bool is_redundant() const { return m_is_redundant; }
  std::uint64_t runs() const { return m_runs; }
  /// Schedules that were left out, each with all that would have begun like it.
  std::uint64_t cut() const { return m_cut; }
  /// A run went another way than the one before it, though led the same way.
  bool is_unrepeatable() const { return m_is_unrepeatable; }

 private:
  /// What the others did from a choice on, in any run, until the one whose turn it was had it
  /// again.
  using Block = std::optional<Footprint>;

  /// A point at which there is a choice.
  struct Branch {
    std::vector<Choice> choices;
    std::size_t at = 0;
    int current = -1;                   ///< whose turn it was
    std::size_t made = 0;               ///< how many calls had been made
    Footprint next = {};                ///< of its next call
    std::vector<Block> blocks = {};     ///< one per choice, as far as they are known
    std::vector<Block> one_later = {};  ///< those of the same choices behind its next call
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
  std::vector<std::size_t> m_taken;  ///< branches where the turn was taken, and not had again yet
  std::size_t m_depth = 0;
  int m_preemptions = 0;
  bool m_has_killed = false;
  bool m_is_redundant = false;
  bool m_is_unrepeatable = false;
  std::uint64_t m_runs = 0;
  std::uint64_t m_cut = 0;
};

// ------------------------------------------------------------------------------------------------
// A schedule: who makes how many calls before somebody else goes on. As text "A12 B5 A B":
// A makes twelve calls, then B five, then A the rest of its own, then B. "A12x" ends A behind its
// twelfth call. Who has to wait for a lock hands on at once.

struct Slice {
  static constexpr std::size_t kToItsEnd = static_cast<std::size_t>(-1);

  int who = 0;
  std::size_t calls = kToItsEnd;
  bool is_killed = false;

  bool operator==(const Slice&) const = default;
};
using Schedule = std::vector<Slice>;

std::string in_text(const Schedule& schedule);
/// Throws std::invalid_argument.
Schedule schedule_from(const std::string& text);
/// What the last slice of each says: in a deadlock nobody comes to its end.
enum class LastSlice : std::uint8_t { kToItsEnd, kAsMade };
/// What was done in a run.
Schedule schedule_of(const std::vector<Event>& events, LastSlice last = LastSlice::kToItsEnd);
/// The calls, a line each.
std::string calls_in_words(const std::vector<Event>& events);

/// Leads a run along a schedule. Where that cannot be followed, whoever can goes on.
class Replay final : public Scheduler {
 public:
  explicit Replay(Schedule schedule) : m_schedule(std::move(schedule)) {}

  Choice choose(const Interleaving& interleaving, int current,
                const std::vector<int>& able) override;

 private:
  const Schedule m_schedule;
  std::size_t m_at = 0;
  std::size_t m_made_before = 0;  ///< the calls of everybody when the slice began
};

}  // namespace interleavings
