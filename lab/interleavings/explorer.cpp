#include "lab/interleavings/explorer.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace interleavings {

bool Explorer::next() {
  // It has not come where it was to go another way.
  if (m_depth < m_forks.size()) m_is_unrepeatable = true;
  if (m_runs != 0) {
    std::optional<Fork> behind;
    for (;;) {
      if (m_forks.empty()) return false;
      Fork& fork = m_forks.back();
      const bool is_one_later =
          behind && behind->made == fork.made + 1 && behind->current == fork.current;
      if (fork.at == 0 && is_one_later && behind->steps == fork.steps)
        fork.one_later = behind->blocks;
      if (++fork.at == fork.steps.size()) {
        behind = std::move(fork);
        m_forks.pop_back();
      } else if (!does_as_one_later(fork)) {
        break;
      }
    }
  }
  ++m_runs;
  m_depth = 0;
  m_preemptions = 0;
  m_has_died = false;
  m_is_redundant = false;
  m_taken.clear();
  return true;
}

/// Whether the step at which a fork is can be left out: its next call touches nothing that the
/// others do when they get the turn behind it, so they do the same before it.
bool Explorer::does_as_one_later(Fork& fork) const {
  if (m_bounds.reduction == Reduction::kOff || fork.one_later.empty()) return false;
  const Block& block = fork.one_later[fork.at];
  if (fork.steps[fork.at].dies || !block || touch_each_other(*block, fork.next)) return false;
  fork.blocks[fork.at] = block;
  return true;
}

Step Explorer::choose(const Meeting& meeting, int current, const std::vector<int>& able) {
  std::vector<Step> steps = steps_at(meeting, current, able);
  Step step = steps.front();
  if (steps.size() > 1) {
    if (m_depth == m_forks.size()) {
      open_fork(meeting, current, std::move(steps));
    } else if (!is_same_fork(meeting, current, steps)) {
      m_is_unrepeatable = true;
    }
    const Fork& fork = m_forks[m_depth];
    step = fork.steps[fork.at];
    const bool is_possible = std::find(able.begin(), able.end(), step.who) != able.end() ||
                             (step.dies && meeting.waits(step.who));
    if (!is_possible) {
      m_is_unrepeatable = true;
      step = {able.front()};
    }
    if (fork.current >= 0 && step.who != fork.current) m_taken.push_back(m_depth);
    ++m_depth;
  }
  if (step.dies || (current >= 0 && step.who != current)) ++m_preemptions;
  m_has_died = m_has_died || step.dies;
  take_blocks(meeting, step.who);
  return step;
}

void Explorer::open_fork(const Meeting& meeting, int current, std::vector<Step> steps) {
  Fork fork{std::move(steps)};
  fork.current = current;
  fork.made = meeting.made().size();
  if (current >= 0) fork.next = meeting.next_footprint(current);
  fork.blocks.resize(fork.steps.size());
  m_forks.push_back(std::move(fork));
}

bool Explorer::is_same_fork(const Meeting& meeting, int current,
                            const std::vector<Step>& steps) const {
  const Fork& fork = m_forks[m_depth];
  return fork.current == current && fork.made == meeting.made().size() && fork.steps == steps;
}

/// @p who has its turn again: what the others did meanwhile is known, and what they stand at. Of
/// two, the other one did most of it in the first run; several may go on in many ways.
void Explorer::take_blocks(const Meeting& meeting, int who) {
  std::erase_if(m_taken, [&](std::size_t at) {
    Fork& fork = m_forks[at];
    if (fork.current != who) return false;
    Block& block = fork.blocks[fork.at];
    if (block && meeting.size() == 2) return true;
    if (!block) block.emplace();
    const auto add = [&](const Footprint& more) {
      for (const Touched& each : more) {
        if (std::find(block->begin(), block->end(), each) == block->end()) block->push_back(each);
      }
    };
    for (std::size_t i = fork.made; i < meeting.made().size(); ++i)
      add(meeting.made()[i].footprint);
    for (int other = 0; other < meeting.size(); ++other) {
      if (other != who && !meeting.has_ended(other)) add(meeting.next_footprint(other));
    }
    return true;
  });
}

/// The first one is what happens without a guide.
std::vector<Step> Explorer::steps_at(const Meeting& meeting, int current,
                                     const std::vector<int>& able) {
  if (m_is_redundant) return {{current >= 0 ? current : able.front()}};
  if (current < 0) return first_steps(meeting, able);
  std::vector<Step> steps = {{current}};
  if (m_preemptions == m_bounds.preemptions) return steps;
  for (const int who : able) {
    if (who != current) offer(meeting, who, steps);
  }
  // Before its next change a process may end as well as before what it only looks at.
  const bool may_die = may_anybody_die(meeting) && meeting.has_begun(current) &&
                       !meeting.made().empty() && meeting.made().back().who == current &&
                       changes_anything(meeting.made().back().footprint);
  if (may_die) steps.push_back({current, true});
  return steps;
}

/// Where nobody's turn is taken: it has ended, or waits.
std::vector<Step> Explorer::first_steps(const Meeting& meeting, const std::vector<int>& able) {
  std::vector<Step> steps;
  for (const int who : able) offer(meeting, who, steps);
  if (steps.empty()) {
    m_is_redundant = true;
    return {{able.front()}};
  }
  if (may_anybody_die(meeting)) {
    for (int who = 0; who < meeting.size(); ++who) {
      if (meeting.waits(who) && meeting.has_begun(who)) steps.push_back({who, true});
    }
  }
  return steps;
}

void Explorer::offer(const Meeting& meeting, int who, std::vector<Step>& steps) {
  if (is_needed(meeting, who)) {
    steps.push_back({who});
  } else if (m_depth == m_forks.size()) {
    ++m_cut;
  }
}

bool Explorer::may_anybody_die(const Meeting& meeting) const {
  return m_bounds.deaths == Deaths::kOne && !m_has_died && meeting.size() > 1 &&
         m_preemptions < m_bounds.preemptions;
}

bool Explorer::is_needed(const Meeting& meeting, int who) const {
  if (m_bounds.reduction == Reduction::kOff || !meeting.has_begun(who)) return true;
  const Footprint& next = meeting.next_footprint(who);
  const auto& made = meeting.made();
  for (auto it = made.rbegin(); it != made.rend() && it->who != who; ++it) {
    if (touch_each_other(it->footprint, next)) return true;
  }
  return false;
}

}  // namespace interleavings
