#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "lab/interleavings/explorer.h"
#include "lab/interleavings/judge.h"
#include "lab/interleavings/schedule.h"
#include "lab/interleavings/stage.h"
#include "tests/support/scratch.h"

/// @file
/// Runs meetings: in every schedule, or in one.
namespace interleavings {

/// A schedule whose end nothing allows.
struct Finding {
  std::string what = {};
  Schedule schedule = {};
  std::string calls = {};  ///< a line each
  std::string end = {};    ///< in words
};

struct Explored {
  std::uint64_t schedules = 0;  ///< that were run
  std::uint64_t cut = 0;        ///< that were left out, with all that begins like them
  std::uint64_t redundant = 0;  ///< that were run, and do what others do
  std::uint64_t calls = 0;      ///< made in all runs
  std::set<std::string> ends;   ///< in words: answers and facts, those that were met
  std::map<std::string, std::uint64_t> races;  ///< how many schedules each explains
  std::vector<Finding> findings;               ///< the first few, shrunk, one of each kind
};

/// The place where meetings are held; one at a time, since the storage of a process has one root.
class Field {
 public:
  Field();
  ~Field();
  Field(const Field&) = delete;
  Field& operator=(const Field&) = delete;

  /// Stops when enough is wrong.
  Explored explore(const Gathering& gathering, const Bounds& bounds,
                   Played played = Played::kByThreads);
  /// One schedule, judged: what is wrong is empty when nothing is.
  Finding replay(const Gathering& gathering, const Schedule& schedule,
                 Played played = Played::kByThreads);

 private:
  struct Run {
    Outcome outcome;
    std::string ended_badly;  ///< a deadlock
    std::vector<Made> made;
    Schedule schedule;
  };

  void prepare(const Gathering& gathering);
  Run run(const Gathering& gathering, Guide& guide, Played played = Played::kByThreads);
  std::vector<Outcome> orders_of(const Gathering& gathering, Deaths deaths, Played played);
  std::string wrong_with(const Run& run, const Judge& judge, Explored* explored);
  Finding shrunk(const Gathering& gathering, const Judge& judge, Finding finding, Played played);

  const scratch_folder m_scratch;
  Stage m_stage;
  Tree m_before;
};

/// An end in words.
std::string in_words(const Outcome& outcome);

}  // namespace interleavings
