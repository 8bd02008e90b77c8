#pragma once

#include <iosfwd>
#include <string>
#include <vector>

#include "lab/bench/harness.h"

namespace bench {

/// What one run was made on, for the head of the table.
struct Machine {
  unsigned cores = 0;
  std::string processor;
  std::string kernel;
  std::string disk;    ///< file system
  std::string memory;  ///< file system
};

/// Rows whose time per entry must not grow with their number, beyond @p factor.
struct Flatness {
  std::string workload;
  std::string place;
  std::size_t from;
  std::size_t to;
  double factor;
};

/// A Markdown table: medians in microseconds, ratios, what was required and whether it was reached.
void write_markdown(std::ostream& out, const Machine& machine, const std::vector<Outcome>& outcomes,
                    const std::vector<Flatness>& flat);
/// Everything, every repetition included.
void write_json(std::ostream& out, const Machine& machine, const std::vector<Outcome>& outcomes,
                const std::vector<Flatness>& flat);
/// How many requirements were not reached.
std::size_t count_missed(const std::vector<Outcome>& outcomes, const std::vector<Flatness>& flat);

}  // namespace bench
