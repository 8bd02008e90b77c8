#include "lab/interleavings/schedules.h"

#include <algorithm>
#include <map>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace interleavings {
namespace {

char letter(int who) { return static_cast<char>('A' + who); }

}  // namespace

std::string in_text(const Schedule& schedule) {
  std::string text;
  for (const Slice& each : schedule) {
    if (!text.empty()) text += ' ';
    text += letter(each.who);
    if (each.calls != Slice::kToItsEnd) text += std::to_string(each.calls);
    if (each.is_killed) text += 'x';
  }
  return text;
}

Schedule schedule_from(const std::string& text) {
  Schedule schedule;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    Slice slice;
    if (word.front() < 'A' || word.front() > 'C')
      throw std::invalid_argument("unknown operation " + word);
    slice.who = word.front() - 'A';
    if (word.ends_with('x')) {
      slice.is_killed = true;
      word.pop_back();
    }
    if (word.size() > 1) slice.calls = std::stoul(word.substr(1));
    schedule.push_back(slice);
  }
  return schedule;
}

Schedule schedule_of(const std::vector<Event>& events, LastSlice last) {
  Schedule schedule;
  for (const Event& each : events) {
    if (schedule.empty() || schedule.back().who != each.who) schedule.push_back({each.who, 0});
    if (each.is_kill) {
      schedule.back().is_killed = true;
    } else {
      ++schedule.back().calls;
    }
  }
  if (last == LastSlice::kAsMade) return schedule;
  std::map<int, bool> is_known;
  for (auto it = schedule.rbegin(); it != schedule.rend(); ++it) {
    if (!std::exchange(is_known[it->who], true) && !it->is_killed) it->calls = Slice::kToItsEnd;
  }
  return schedule;
}

std::string calls_in_words(const std::vector<Event>& events) {
  std::string text;
  std::map<int, int> numbers;
  for (const Event& each : events) {
    text += std::string("    ") + letter(each.who);
    text += each.is_kill ? " is killed here"
                         : std::to_string(++numbers[each.who]) + " " + in_words(each.call);
    text += "\n";
  }
  return text;
}

Choice Replay::choose(const Interleaving& interleaving, int current, const std::vector<int>& able) {
  const std::size_t made = interleaving.events().size();
  for (; m_at < m_schedule.size(); ++m_at, m_made_before = made) {
    const Slice& slice = m_schedule[m_at];
    const bool is_able = std::find(able.begin(), able.end(), slice.who) != able.end();
    const bool is_over = slice.calls != Slice::kToItsEnd && made - m_made_before >= slice.calls;
    // A waiting operation can still be killed.
    if (!is_able && !(is_over && slice.is_killed && interleaving.waits(slice.who))) continue;
    if (!is_over) return {slice.who};
    if (slice.is_killed) {
      ++m_at;
      m_made_before = made + 1;
      return {slice.who, true};
    }
  }
  return {current >= 0 ? current : able.front()};
}

// ------------------------------------------------------------------------------------------------

bool Explorer::next() {
  // The last run ended before its last branch: it did not repeat the earlier calls.
  if (m_depth < m_branches.size()) m_is_unrepeatable = true;
  if (m_runs != 0) {
    std::optional<Branch> behind;
    for (;;) {
      if (m_branches.empty()) return false;
      Branch& branch = m_branches.back();
      const bool is_one_later =
          behind && behind->made == branch.made + 1 && behind->current == branch.current;
      if (branch.at == 0 && is_one_later && behind->choices == branch.choices)
        branch.one_later = behind->blocks;
      if (++branch.at == branch.choices.size()) {
        behind = std::move(branch);
        m_branches.pop_back();
      } else if (!does_as_one_later(branch)) {
        break;
      }
    }
  }
  ++m_runs;
  m_depth = 0;
  m_preemptions = 0;
  m_has_killed = false;
  m_is_redundant = false;
  m_taken.clear();
  return true;
}

/// Whether the current choice of a branch can be omitted. It can if the next call of the preempted
/// operation touches nothing that the others touched after the same choice one call later.
bool Explorer::does_as_one_later(Branch& branch) const {
  if (m_bounds.reduction == Reduction::kOff || branch.one_later.empty()) return false;
  const Block& block = branch.one_later[branch.at];
  if (branch.choices[branch.at].is_killed || !block || are_dependent(*block, branch.next))
    return false;
  branch.blocks[branch.at] = block;
  return true;
}

Choice Explorer::choose(const Interleaving& interleaving, int current,
                        const std::vector<int>& able) {
  std::vector<Choice> choices = choices_at(interleaving, current, able);
  Choice choice = choices.front();
  if (choices.size() > 1) {
    if (m_depth == m_branches.size()) {
      open_branch(interleaving, current, std::move(choices));
    } else if (!is_same_branch(interleaving, current, choices)) {
      m_is_unrepeatable = true;
    }
    const Branch& branch = m_branches[m_depth];
    choice = branch.choices[branch.at];
    const bool is_possible = std::find(able.begin(), able.end(), choice.who) != able.end() ||
                             (choice.is_killed && interleaving.waits(choice.who));
    if (!is_possible) {
      m_is_unrepeatable = true;
      choice = {able.front()};
    }
    if (branch.current >= 0 && choice.who != branch.current) m_taken.push_back(m_depth);
    ++m_depth;
  }
  if (choice.is_killed || (current >= 0 && choice.who != current)) ++m_preemptions;
  m_has_killed = m_has_killed || choice.is_killed;
  take_blocks(interleaving, choice.who);
  return choice;
}

void Explorer::open_branch(const Interleaving& interleaving, int current,
                           std::vector<Choice> choices) {
  Branch branch{std::move(choices)};
  branch.current = current;
  branch.made = interleaving.events().size();
  if (current >= 0) branch.next = interleaving.next_footprint(current);
  branch.blocks.resize(branch.choices.size());
  m_branches.push_back(std::move(branch));
}

bool Explorer::is_same_branch(const Interleaving& interleaving, int current,
                              const std::vector<Choice>& choices) const {
  const Branch& branch = m_branches[m_depth];
  return branch.current == current && branch.made == interleaving.events().size() &&
         branch.choices == choices;
}

/// @p who has the turn again, so it is known what the others touched and touch next. With two
/// operations the first run shows that. With three it may differ between runs.
void Explorer::take_blocks(const Interleaving& interleaving, int who) {
  std::erase_if(m_taken, [&](std::size_t at) {
    Branch& branch = m_branches[at];
    if (branch.current != who) return false;
    Block& block = branch.blocks[branch.at];
    if (block && interleaving.size() == 2) return true;
    if (!block) block.emplace();
    const auto add = [&](const Footprint& more) {
      for (const Access& each : more) {
        if (std::find(block->begin(), block->end(), each) == block->end()) block->push_back(each);
      }
    };
    for (std::size_t i = branch.made; i < interleaving.events().size(); ++i)
      add(interleaving.events()[i].footprint);
    for (int other = 0; other < interleaving.size(); ++other) {
      if (other != who && !interleaving.has_ended(other)) add(interleaving.next_footprint(other));
    }
    return true;
  });
}

/// The first choice is the one without a preemption.
std::vector<Choice> Explorer::choices_at(const Interleaving& interleaving, int current,
                                         const std::vector<int>& able) {
  if (m_is_redundant) return {{current >= 0 ? current : able.front()}};
  if (current < 0) return first_choices(interleaving, able);
  std::vector<Choice> choices = {{current}};
  if (m_preemptions == m_bounds.preemptions) return choices;
  for (const int who : able) {
    if (who != current) offer(interleaving, who, choices);
  }
  // A kill is only tried directly after a change: later moments have the same effect.
  const bool may_be_killed = may_anybody_be_killed(interleaving) &&
                             interleaving.has_begun(current) && !interleaving.events().empty() &&
                             interleaving.events().back().who == current &&
                             changes_anything(interleaving.events().back().footprint);
  if (may_be_killed) choices.push_back({current, true});
  return choices;
}

/// Choices without a preemption: the last operation has ended or waits.
std::vector<Choice> Explorer::first_choices(const Interleaving& interleaving,
                                            const std::vector<int>& able) {
  std::vector<Choice> choices;
  for (const int who : able) offer(interleaving, who, choices);
  if (choices.empty()) {
    m_is_redundant = true;
    return {{able.front()}};
  }
  if (may_anybody_be_killed(interleaving)) {
    for (int who = 0; who < interleaving.size(); ++who) {
      if (interleaving.waits(who) && interleaving.has_begun(who)) choices.push_back({who, true});
    }
  }
  return choices;
}

void Explorer::offer(const Interleaving& interleaving, int who, std::vector<Choice>& choices) {
  if (is_needed(interleaving, who)) {
    choices.push_back({who});
  } else if (m_depth == m_branches.size()) {
    ++m_cut;
  }
}

bool Explorer::may_anybody_be_killed(const Interleaving& interleaving) const {
  return m_bounds.kills == Kills::kOne && !m_has_killed && interleaving.size() > 1 &&
         m_preemptions < m_bounds.preemptions;
}

bool Explorer::is_needed(const Interleaving& interleaving, int who) const {
  if (m_bounds.reduction == Reduction::kOff || !interleaving.has_begun(who)) return true;
  const Footprint& next = interleaving.next_footprint(who);
  const auto& events = interleaving.events();
  for (auto it = events.rbegin(); it != events.rend() && it->who != who; ++it) {
    if (are_dependent(it->footprint, next)) return true;
  }
  return false;
}

}  // namespace interleavings
