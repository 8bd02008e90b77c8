#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/admin/stats.h"

namespace admin {

/// Where the space of a tree goes: areas, in them owners, in them extensions. Small siblings are
/// counted together, so that the size of it does not grow with the tree.
struct SpaceNode {
  std::string name;  ///< bytes; may be empty (no owner, no extension)
  Sum sum;
  std::uint64_t merged = 0;         ///< of siblings counted together: how many; else 0
  std::vector<SpaceNode> children;  ///< by size, largest first; merged ones last
};

/// Groups as collect_stats() gives them: the largest, and the rest together.
struct GroupedSpace {
  std::vector<StatsGroup> groups;
  std::uint64_t other_groups = 0;
  Sum others;
};

struct SpaceOptions {
  StatsOptions stats;          ///< ages are grouped, whatever it says
  std::size_t top = 20;        ///< groups of owners and extensions
  std::size_t owners = 12;     ///< of each area in the hierarchy
  std::size_t extensions = 5;  ///< of each owner in the hierarchy
};

struct Space {
  Stats stats;  ///< with the ages as groups
  GroupedSpace areas;
  GroupedSpace owners;
  GroupedSpace extensions;
  SpaceNode all;
};

/// Adds up a tree once and groups it in every way.
Space survey_space(const Tree& tree, const SpaceOptions& options);

}  // namespace admin
