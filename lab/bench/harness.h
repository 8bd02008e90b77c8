#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

/// @file
/// Contests: several contenders do the same job; their repetitions are interleaved in one run.
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

struct Job {
  std::function<void()> run;
  /// Undoes the job; not timed. Empty for a job that changes nothing.
  std::function<void()> restore;
  /// How often the job can run without being undone; 0: any number of times.
  std::size_t supply = 0;
};

/// The functions own everything that they need during a contest.
using Jobs = std::map<Who, Job>;

/// The result that the library must reach: compared with another contender, or in seconds.
struct Requirement {
  enum class Kind { kAtMostTimes, kAtLeastTimesFaster, kAtMostSeconds };
  Kind kind;
  Who against;
  double factor;  ///< or the seconds
};
inline Requirement at_most(double factor, Who against) {
  return {Requirement::Kind::kAtMostTimes, against, factor};
}
inline Requirement at_least_faster(double factor, Who against) {
  return {Requirement::Kind::kAtLeastTimesFaster, against, factor};
}
/// @param against is only shown beside the library.
inline Requirement at_most_seconds(double seconds, Who against) {
  return {Requirement::Kind::kAtMostSeconds, against, seconds};
}

struct Contest {
  std::string workload;
  std::string place;        ///< "disk" or "memory"
  std::string size;         ///< the varied size, with its unit
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
  /// The library's median divided by that of @p who.
  double ratio(Who who) const { return median(Who::kLibrary) / median(who); }
  bool meets(const Requirement& requirement) const;
};

struct Effort {
  double seconds_per_repetition = 0.04;
  int repetitions = 7;
  int repetitions_of_literal =
      3;  ///< fewer: it is slow, and the requirements against it have a wide margin
};

/// Runs one contest: the repetitions of all contenders in a random order.
Outcome run(const Contest& contest, const Effort& effort);

}  // namespace bench
