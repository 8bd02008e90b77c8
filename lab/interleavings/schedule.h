#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/meeting.h"

/// @file
/// A schedule: who makes how many calls before somebody else goes on. As text "A12 B5 A B":
/// A makes twelve calls, then B five, then A the rest of its own, then B. "A12x" ends A behind its
/// twelfth call. Who has to wait for a lock hands on at once.
namespace interleavings {

struct Stretch {
  static constexpr std::size_t kToItsEnd = static_cast<std::size_t>(-1);

  int who = 0;
  std::size_t calls = kToItsEnd;
  bool dies = false;

  bool operator==(const Stretch&) const = default;
};
using Schedule = std::vector<Stretch>;

std::string in_text(const Schedule& schedule);
/// Throws std::invalid_argument.
Schedule schedule_from(const std::string& text);
/// What the last stretch of each says: in a deadlock nobody comes to its end.
enum class LastStretch : std::uint8_t { kToItsEnd, kAsMade };
/// What was done in a meeting.
Schedule schedule_of(const std::vector<Made>& made, LastStretch last = LastStretch::kToItsEnd);
/// The calls, a line each.
std::string told(const std::vector<Made>& made);

/// Leads a meeting along a schedule. Where that cannot be followed, whoever can goes on.
class Replay final : public Guide {
 public:
  explicit Replay(Schedule schedule) : m_schedule(std::move(schedule)) {}

  Step choose(const Meeting& meeting, int current, const std::vector<int>& able) override;

 private:
  const Schedule m_schedule;
  std::size_t m_at = 0;
  std::size_t m_made_before = 0;  ///< the calls of everybody when the stretch began
};

}  // namespace interleavings
