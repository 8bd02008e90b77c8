#include "lab/interleavings/schedule.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace interleavings {
namespace {

char letter(int who) { return static_cast<char>('A' + who); }

}  // namespace

std::string in_text(const Schedule& schedule) {
  std::string text;
  for (const Stretch& each : schedule) {
    if (!text.empty()) text += ' ';
    text += letter(each.who);
    if (each.calls != Stretch::kToItsEnd) text += std::to_string(each.calls);
    if (each.dies) text += 'x';
  }
  return text;
}

Schedule schedule_from(const std::string& text) {
  Schedule schedule;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    Stretch stretch;
    if (word.front() < 'A' || word.front() > 'C') throw std::invalid_argument("who is " + word);
    stretch.who = word.front() - 'A';
    if (word.ends_with('x')) {
      stretch.dies = true;
      word.pop_back();
    }
    if (word.size() > 1) stretch.calls = std::stoul(word.substr(1));
    schedule.push_back(stretch);
  }
  return schedule;
}

Schedule schedule_of(const std::vector<Made>& made, LastStretch last) {
  Schedule schedule;
  for (const Made& each : made) {
    if (schedule.empty() || schedule.back().who != each.who) schedule.push_back({each.who, 0});
    if (each.is_death) {
      schedule.back().dies = true;
    } else {
      ++schedule.back().calls;
    }
  }
  if (last == LastStretch::kAsMade) return schedule;
  std::map<int, bool> is_known;
  for (auto it = schedule.rbegin(); it != schedule.rend(); ++it) {
    if (!std::exchange(is_known[it->who], true) && !it->dies) it->calls = Stretch::kToItsEnd;
  }
  return schedule;
}

std::string told(const std::vector<Made>& made) {
  std::string text;
  std::map<int, int> numbers;
  for (const Made& each : made) {
    text += std::string("    ") + letter(each.who);
    text += each.is_death ? " ends here"
                          : std::to_string(++numbers[each.who]) + " " + in_words(each.call);
    text += "\n";
  }
  return text;
}

Step Replay::choose(const Meeting& meeting, int current, const std::vector<int>& able) {
  const std::size_t made = meeting.made().size();
  for (; m_at < m_schedule.size(); ++m_at, m_made_before = made) {
    const Stretch& stretch = m_schedule[m_at];
    const bool is_able = std::find(able.begin(), able.end(), stretch.who) != able.end();
    const bool is_over =
        stretch.calls != Stretch::kToItsEnd && made - m_made_before >= stretch.calls;
    // Who waits can end all the same.
    if (!is_able && !(is_over && stretch.dies && meeting.waits(stretch.who))) continue;
    if (!is_over) return {stretch.who};
    if (stretch.dies) {
      ++m_at;
      m_made_before = made + 1;
      return {stretch.who, true};
    }
  }
  return {current >= 0 ? current : able.front()};
}

}  // namespace interleavings
