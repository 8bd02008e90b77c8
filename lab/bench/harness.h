#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// @file
/// Contests: the same job done by several contenders, their repetitions interleaved in one run.
namespace bench {

enum class Who {
  kLibrary,
  kFloor,
  kLiteral,
  kSqlitePerOperation,
  kSqliteKeptOpen,
  kLmdbPerOperation,
  kLmdbKeptOpen,
};
inline constexpr Who kEverybody[] = {Who::kLibrary,        Who::kFloor,
                                     Who::kLiteral,        Who::kSqlitePerOperation,
                                     Who::kSqliteKeptOpen, Who::kLmdbPerOperation,
                                     Who::kLmdbKeptOpen};
const char* name(Who who);

/// One contender's way of doing the job.
struct Job {
  std::function<void()> run;
  /// Makes everything be as before the job; not timed. None for a job that changes nothing.
  std::function<void()> restore;
  /// How often it can be done where nothing puts things back; 0 for any number.
  std::size_t supply = 0;
};

/// What a contest needs for as long as it lasts is owned by the functions.
using Jobs = std::map<Who, Job>;

/// What the library has to reach against somebody.
struct Requirement {
  enum class Kind { kAtMostTimes, kAtLeastTimesFaster };
  Kind kind;
  Who against;
  double factor;
};
inline Requirement at_most(double factor, Who against) {
  return {Requirement::Kind::kAtMostTimes, against, factor};
}
inline Requirement at_least_faster(double factor, Who against) {
  return {Requirement::Kind::kAtLeastTimesFaster, against, factor};
}

struct Contest {
  std::string workload;
  std::string place;        ///< "disk" or "memory"
  std::string size;         ///< what varies, with its unit
  std::size_t entries = 0;  ///< in the folder
  std::vector<Requirement> requirements;
  std::function<Jobs()> prepare;
};

/// Seconds per job, one value for each repetition.
struct Outcome {
  Contest contest;
  std::map<Who, std::vector<double>> seconds;

  bool has(Who who) const { return seconds.contains(who); }
  double median(Who who) const;
  double minimum(Who who) const;
  /// The library's median against somebody's.
  double ratio(Who who) const { return median(Who::kLibrary) / median(who); }
  bool meets(const Requirement& requirement) const;
};

struct Effort {
  double seconds_per_repetition = 0.04;
  int repetitions = 7;
  int repetitions_of_literal =
      3;  ///< it is slow where there is much to do, and judged with room to spare
};

/// Runs one contest: the repetitions of all contenders in a random order.
Outcome run(const Contest& contest, const Effort& effort);

}  // namespace bench
