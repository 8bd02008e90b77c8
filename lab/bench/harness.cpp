#include "lab/bench/harness.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <utility>

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

/// Collects the time per job of each repetition.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type != Run::RT_Iteration) continue;
      m_seconds[run.run_name.function_name].push_back(run.real_accumulated_time /
                                                      static_cast<double>(run.iterations));
    }
  }
  const std::vector<double>& of(const std::string& name) const { return m_seconds.at(name); }

 private:
  std::map<std::string, std::vector<double>> m_seconds;
};

void time_by_hand(benchmark::State& state, const Job& job) {
  for ([[maybe_unused]] auto _ : state) {
    const Clock::time_point start = Clock::now();
    job.run();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - start).count());
    if (job.restore) job.restore();
  }
}

void time_it(benchmark::State& state, const Job& job) {
  for ([[maybe_unused]] auto _ : state) job.run();
}

double middle(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  const std::size_t half = values.size() / 2;
  return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

}  // namespace

const char* name(Who who) {
  switch (who) {
    case Who::kLibrary: return "library";
    case Who::kFloor: return "floor";
    case Who::kLiteral: return "literal";
    case Who::kSqlitePerOperation: return "SQLite, opened per operation";
    case Who::kSqliteKeptOpen: return "SQLite, kept open";
    case Who::kLmdbPerOperation: return "LMDB, opened per operation";
    case Who::kLmdbKeptOpen: return "LMDB, kept open";
  }
  return "";
}

double Outcome::median(Who who) const { return middle(seconds.at(who)); }

double Outcome::minimum(Who who) const {
  const std::vector<double>& values = seconds.at(who);
  return *std::min_element(values.begin(), values.end());
}

bool Outcome::meets(const Requirement& requirement) const {
  if (requirement.kind == Requirement::Kind::kAtMostSeconds)
    return median(Who::kLibrary) <= requirement.factor;
  const double against = ratio(requirement.against);
  return requirement.kind == Requirement::Kind::kAtMostTimes ? against <= requirement.factor
                                                             : 1 / against >= requirement.factor;
}

namespace {

void enter(Who who, const Job& job, const Effort& effort) {
  const bool by_hand = job.restore || job.supply != 0;
  benchmark::internal::Benchmark* const entered =
      benchmark::RegisterBenchmark(name(who), [&job, by_hand](benchmark::State& state) {
        by_hand ? time_by_hand(state, job) : time_it(state, job);
      });
  if (by_hand) {
    entered->UseManualTime();
  } else {
    entered->UseRealTime();
  }
  const int wanted = who == Who::kLiteral ? effort.repetitions_of_literal : effort.repetitions;
  if (job.supply == 0) {
    entered->MinTime(effort.seconds_per_repetition)->Repetitions(wanted);
    return;
  }
  const std::size_t repetitions = std::min(job.supply, static_cast<std::size_t>(wanted));
  entered->Iterations(static_cast<benchmark::IterationCount>(job.supply / repetitions))
      ->Repetitions(static_cast<int>(repetitions));
}

}  // namespace

Outcome run(const Contest& contest, const Effort& effort) {
  const Jobs jobs = contest.prepare();
  for (const auto& [who, job] : jobs) {
    // The first run warms up the caches of the system and the prepared statements.
    if (who != Who::kLiteral && job.supply == 0) {
      job.run();
      if (job.restore) job.restore();
    }
    enter(who, job, effort);
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector, ".");
  benchmark::ClearRegisteredBenchmarks();

  Outcome outcome{contest, {}};
  for (const auto& [who, job] : jobs) outcome.seconds[who] = collector.of(name(who));
  return outcome;
}

}  // namespace bench
