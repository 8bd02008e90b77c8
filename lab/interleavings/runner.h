#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/interleavings/judge.h"
#include "lab/interleavings/schedules.h"
#include "lab/interleavings/tree.h"
#include "tests/support/scratch.h"

/// @file
/// Runs a combination in every schedule, or in one.
namespace interleavings {

/// A schedule with an end that is not allowed.
struct Finding {
  std::string what = {};
  Schedule schedule = {};
  std::string calls = {};  ///< one per line
  std::string end = {};    ///< in words
};

struct Explored {
  std::uint64_t schedules = 0;                 ///< schedules that were run
  std::uint64_t cut = 0;                       ///< omitted beginnings of schedules
  std::uint64_t redundant = 0;                 ///< run, but equal in effect to another schedule
  std::uint64_t calls = 0;                     ///< in all runs
  std::set<std::string> ends;                  ///< all ends in words: results and facts
  std::map<std::string, std::uint64_t> races;  ///< how many schedules each explains
  std::vector<Finding> findings;               ///< the first few, shortened, one of each kind
};

/// Runs one combination at a time, because the storage of a process has one root.
class Runner {
 public:
  Runner();
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  /// Runs all schedules, until there are enough findings.
  Explored explore(const Combination& combination, const Bounds& bounds,
                   Participants participants = Participants::kThreads);
  /// Runs one schedule. Finding::what is empty if its end is allowed.
  Finding replay(const Combination& combination, const Schedule& schedule,
                 Participants participants = Participants::kThreads);

 private:
  struct Run {
    Outcome outcome;
    std::string ended_badly;  ///< a deadlock
    std::vector<Event> events;
    Schedule schedule;
  };

  void prepare(const Combination& combination);
  Run run(const Combination& combination, Scheduler& scheduler,
          Participants participants = Participants::kThreads);
  std::vector<Outcome> orders_of(const Combination& combination, Kills kills,
                                 Participants participants);
  std::string wrong_with(const Run& run, const Judge& judge, Explored* explored);
  Finding shrunk(const Combination& combination, const Judge& judge, Finding finding,
                 Participants participants);

  const scratch_folder m_scratch;
  TreeOnDisk m_disk;
  Tree m_before;
};

/// An end in words.
std::string in_words(const Outcome& outcome);

}  // namespace interleavings
