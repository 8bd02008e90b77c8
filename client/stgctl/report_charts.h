#pragma once

#include "client/admin/stats.h"
#include "client/stgctl/json.h"

namespace stgctl {

struct Box {
  double x = 0;
  double y = 0;
  double width = 0;
  double height = 0;

  /// The box without a margin on each side, and without @p top at the top; can be empty.
  Box inset(double margin, double top = 0) const;
};

/// Divides a box among weights. The areas are in proportion to the weights. If the weights descend,
/// the pieces are as close to squares as possible. A weight of 0 gets a box without area.
std::vector<Box> divide(const Box& box, const std::vector<std::uint64_t>& weights);

// ---- what the charts show ----------------------------------------------------------------------
//
// The positions and texts of a report's charts. The look is in report/*.svg, the colours in
// report/report.css.

/// The label of a group without a name.
std::string name_of_owner(const std::string& owner);
std::string name_of_extension(const std::string& extension);

/// Space by area, owner and extension, as nested rectangles: a list for treemap.svg.
Json treemap_figures(const admin::SpaceNode& all);
/// Bytes by age: a list for ages.svg.
Json age_figures(const std::vector<admin::StatsGroup>& ages);
/// What each age limit would free and lose, as shares of the total: "freed_line", "lost_line" and
/// "points" for curve.svg.
Json curve_figures(const admin::Curve& curve);
/// A small line chart of the freed bytes, for a table cell.
std::string spark_line(const admin::Curve& curve);

}  // namespace stgctl
