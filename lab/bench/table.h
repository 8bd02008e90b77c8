#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "lab/bench/harness.h"

namespace bench {

/// The machine of a run, for the head of the table.
struct Machine {
  unsigned cores = 0;
  std::string processor;
  std::string kernel;
  std::string disk;    ///< file system
  std::string memory;  ///< file system
};

/// A workload whose time per entry may grow at most by @p factor with the number of entries.
struct Flatness {
  std::string workload;
  std::string place;
  std::size_t from;
  std::size_t to;
  double factor;
};

/// Writes a Markdown table: medians in microseconds, ratios, requirements and whether they are met.
void write_markdown(std::ostream& out, const Machine& machine, const std::vector<Outcome>& outcomes,
                    const std::vector<Flatness>& flat);
/// Writes all results, with each repetition.
void write_json(std::ostream& out, const Machine& machine, const std::vector<Outcome>& outcomes,
                const std::vector<Flatness>& flat);
std::size_t count_missed(const std::vector<Outcome>& outcomes, const std::vector<Flatness>& flat);

}  // namespace bench
