#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "lab/interleavings/meeting.h"

/// @file
/// All schedules of a meeting, one run each, depth first.
///
/// A schedule may take the turn from somebody who could go on at most so many times (a
/// preemption). What one schedule does and another one does as well is left out: when the turn
/// comes back to somebody whose next call touches nothing that the others did meanwhile, that call
/// could as well have been made before they began. The schedule in which it was has no more
/// preemptions than this one, for its stretch only grows; so nothing is lost by the bound. What is
/// known from the schedule that takes the turn one call later is not even begun.
namespace interleavings {

enum class Reduction : std::uint8_t { kOn, kOff };
enum class Deaths : std::uint8_t { kNone, kOne };

struct Bounds {
  int preemptions = 2;
  Reduction reduction = Reduction::kOn;
  /// One may end behind each of its changes, also when the others wait or have ended, or while it
  /// waits itself. That counts as a preemption.
  Deaths deaths = Deaths::kNone;
};

class Explorer final : public Guide {
 public:
  explicit Explorer(const Bounds& bounds) : m_bounds(bounds) {}

  /// Begins the next schedule. @return false when there is none.
  bool next();
  Step choose(const Meeting& meeting, int current, const std::vector<int>& able) override;

  /// Whether the last run does what another one does as well.
  bool is_redundant() const { return m_is_redundant; }
  std::uint64_t runs() const { return m_runs; }
  /// Schedules that were left out, each with all that would have begun like it.
  std::uint64_t cut() const { return m_cut; }
  /// A run went another way than the one before it, though led the same way.
  bool is_unrepeatable() const { return m_is_unrepeatable; }

 private:
  /// What the others did from a step on, in any run, until the one whose turn it was had it again.
  using Block = std::optional<Footprint>;

  /// A point at which there is a choice.
  struct Fork {
    std::vector<Step> steps;
    std::size_t at = 0;
    int current = -1;                   ///< whose turn it was
    std::size_t made = 0;               ///< how many calls had been made
    Footprint next = {};                ///< of its next call
    std::vector<Block> blocks = {};     ///< one per step, as far as they are known
    std::vector<Block> one_later = {};  ///< those of the same steps behind its next call
  };

  std::vector<Step> first_steps(const Meeting& meeting, const std::vector<int>& able);
  std::vector<Step> steps_at(const Meeting& meeting, int current, const std::vector<int>& able);
  void offer(const Meeting& meeting, int who, std::vector<Step>& steps);
  bool may_anybody_die(const Meeting& meeting) const;
  bool is_needed(const Meeting& meeting, int who) const;
  void open_fork(const Meeting& meeting, int current, std::vector<Step> steps);
  bool is_same_fork(const Meeting& meeting, int current, const std::vector<Step>& steps) const;
  void take_blocks(const Meeting& meeting, int who);
  bool does_as_one_later(Fork& fork) const;

  const Bounds m_bounds;
  std::vector<Fork> m_forks;
  std::vector<std::size_t> m_taken;  ///< forks where the turn was taken, and not had again yet
  std::size_t m_depth = 0;
  int m_preemptions = 0;
  bool m_has_died = false;
  bool m_is_redundant = false;
  bool m_is_unrepeatable = false;
  std::uint64_t m_runs = 0;
  std::uint64_t m_cut = 0;
};

}  // namespace interleavings
