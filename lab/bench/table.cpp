#include "lab/bench/table.h"

#include <algorithm>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <optional>
#include <ostream>

namespace bench {
namespace {

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value < 10 ? "%.2f" : value < 100 ? "%.1f" : "%.0f", value);
  return text;
}

std::string microseconds(const Outcome& outcome, Who who) {
  return outcome.has(who) ? number(outcome.median(who) * 1e6) : std::string();
}

std::string describe(const Requirement& requirement) {
  if (requirement.kind == Requirement::Kind::kAtLeastTimesFaster)
    return "at least " + number(requirement.factor) + " x faster than " + name(requirement.against);
  if (requirement.kind == Requirement::Kind::kAtMostSeconds)
    return "at most " + number(requirement.factor * 1e6) + " us";
  if (requirement.factor == 1) return std::string("not slower than ") + name(requirement.against);
  return "at most " + number(requirement.factor) + " x " + name(requirement.against);
}

/// The times per entry of a workload at the smallest and the largest size of a Flatness.
struct Ends {
  double from = 0;
  double to = 0;
};

std::optional<Ends> ends_of(const std::vector<Outcome>& outcomes, const Flatness& flatness) {
  Ends ends;
  for (const Outcome& outcome : outcomes) {
    if (outcome.contest.workload != flatness.workload || outcome.contest.place != flatness.place)
      continue;
    const double per_entry =
        outcome.median(Who::kLibrary) / static_cast<double>(outcome.contest.entries);
    if (outcome.contest.entries == flatness.from) ends.from = per_entry;
    if (outcome.contest.entries == flatness.to) ends.to = per_entry;
  }
  if (ends.from == 0 || ends.to == 0) return std::nullopt;
  return ends;
}

std::string verdicts(const Outcome& outcome) {
  std::string text;
  for (const Requirement& requirement : outcome.contest.requirements) {
    if (!text.empty()) text += "; ";
    text += (outcome.meets(requirement) ? "ok: " : "**missed**: ") + describe(requirement);
  }
  return text;
}

void write_row(std::ostream& out, const Outcome& outcome) {
  const bool per_entry = !outcome.has(Who::kFloor);
  out << "| " << outcome.contest.workload << " | " << outcome.contest.size << " | "
      << outcome.contest.place << " | " << microseconds(outcome, Who::kLibrary) << " | "
      << microseconds(outcome, Who::kFloor) << " | "
      << (outcome.has(Who::kFloor) ? number(outcome.ratio(Who::kFloor)) : std::string()) << " | "
      << microseconds(outcome, Who::kLiteral) << " | "
      << (outcome.has(Who::kLiteral) ? number(1 / outcome.ratio(Who::kLiteral)) : std::string());
  for (const Who who :
       {Who::kSqlitePerOperation, Who::kSqliteKeptOpen, Who::kLmdbPerOperation, Who::kLmdbKeptOpen})
    out << " | " << microseconds(outcome, who);
  out << " | " << verdicts(outcome);
  if (per_entry)
    out << number(outcome.median(Who::kLibrary) * 1e9 /
                  static_cast<double>(outcome.contest.entries))
        << " ns per entry";
  out << " |\n";
}

nlohmann::json json_of(const Outcome& outcome) {
  nlohmann::json row;
  row["workload"] = outcome.contest.workload;
  row["size"] = outcome.contest.size;
  row["entries"] = outcome.contest.entries;
  row["place"] = outcome.contest.place;
  for (const auto& [who, seconds] : outcome.seconds) {
    nlohmann::json& one = row["seconds"][name(who)];
    one["repetitions"] = seconds;
    one["median"] = outcome.median(who);
    one["minimum"] = outcome.minimum(who);
  }
  for (const Requirement& requirement : outcome.contest.requirements)
    row["required"].push_back({{"what", describe(requirement)},
                               {"library_against_it", outcome.ratio(requirement.against)},
                               {"reached", outcome.meets(requirement)}});
  return row;
}

}  // namespace

void write_markdown(std::ostream& out, const Machine& machine, const std::vector<Outcome>& outcomes,
                    const std::vector<Flatness>& flat) {
  out << "Medians of interleaved repetitions, in microseconds per operation. Machine: "
      << machine.cores << " cores (" << machine.processor << "), Linux " << machine.kernel
      << "; \"disk\" is " << machine.disk << ", \"memory\" is " << machine.memory << ".\n\n"
      << "| workload | size | place | library | floor | library / floor | literal | literal / "
         "library"
      << " | SQLite, per operation | SQLite, kept open | LMDB, per operation | LMDB, kept open"
      << " | required |\n"
      << "|---|---|---|--:|--:|--:|--:|--:|--:|--:|--:|--:|---|\n";
  for (const Outcome& outcome : outcomes) write_row(out, outcome);
  for (const Flatness& flatness : flat) {
    const auto ends = ends_of(outcomes, flatness);
    if (!ends) continue;
    const double ratio = ends->to / ends->from;
    out << "\n"
        << flatness.workload << ": time per entry with " << flatness.to << " entries is "
        << number(ratio) << " x that with " << flatness.from << "; "
        << (ratio <= flatness.factor ? "ok" : "**missed**") << ": at most "
        << number(flatness.factor) << " x.\n";
  }
  out << "\nRequirements missed: " << count_missed(outcomes, flat) << "\n";
}

void write_json(std::ostream& out, const Machine& machine, const std::vector<Outcome>& outcomes,
                const std::vector<Flatness>& flat) {
  nlohmann::json all;
  all["machine"] = {{"cores", machine.cores},
                    {"processor", machine.processor},
                    {"kernel", machine.kernel},
                    {"disk", machine.disk},
                    {"memory", machine.memory}};
  for (const Outcome& outcome : outcomes) all["workloads"].push_back(json_of(outcome));
  for (const Flatness& flatness : flat) {
    if (const auto ends = ends_of(outcomes, flatness))
      all["per_entry"].push_back({{"workload", flatness.workload},
                                  {"seconds_at_" + std::to_string(flatness.from), ends->from},
                                  {"seconds_at_" + std::to_string(flatness.to), ends->to},
                                  {"at_most", flatness.factor},
                                  {"reached", ends->to <= flatness.factor * ends->from}});
  }
  all["missed"] = count_missed(outcomes, flat);
  out << all.dump(2) << "\n";
}

std::size_t count_missed(const std::vector<Outcome>& outcomes, const std::vector<Flatness>& flat) {
  std::ptrdiff_t missed = 0;
  for (const Outcome& outcome : outcomes)
    missed +=
        std::count_if(outcome.contest.requirements.begin(), outcome.contest.requirements.end(),
                      [&](const Requirement& requirement) { return !outcome.meets(requirement); });
  for (const Flatness& flatness : flat) {
    const auto ends = ends_of(outcomes, flatness);
    if (ends && ends->to > flatness.factor * ends->from) ++missed;
  }
  return static_cast<std::size_t>(missed);
}

}  // namespace bench
