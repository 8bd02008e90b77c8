#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "client/admin/stats.h"
#include "client/stgctl/json.h"

namespace stgctl {

struct Box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  /// Without a margin on each side and one more on the top; never below nothing.
  Box inset(double margin, double top = 0) const;
};

/// Divides a box among weights, so that areas are as the weights and, as long as these do not
/// ascend, no piece is longer than need be. A weight of 0 gets a box without area.
std::vector<Box> divide(const Box& box, const std::vector<std::uint64_t>& weights);

// ---- what the charts show ----------------------------------------------------------------------
//
// The figures of a report's charts: where each piece stands, and what it says. How it looks is in
// report/*.svg, the colours in report/report.css.

/// What a group without a name is called.
std::string name_of_owner(const std::string& owner);
std::string name_of_extension(const std::string& extension);

/// Space by area, owner and extension, as nested rectangles: a list for treemap.svg.
Json treemap_figures(const admin::SpaceNode& all);
/// Bytes by age: a list for ages.svg.
Json age_figures(const std::vector<admin::StatsGroup>& ages);
/// What each age limit would free and lose, in parts of the whole: "freed_line", "lost_line" and
/// "points" for curve.svg.
Json curve_figures(const admin::Curve& curve);
/// The line of the bytes freed, as small as a word.
std::string spark_line(const admin::Curve& curve);

}  // namespace stgctl
