#include "client/stgctl/report_charts.h"

#include <numeric>

#include "client/stgctl/text.h"

namespace stgctl {

namespace {

/// How much the worst piece of a row differs from a square. @param side the length of the row.
double worst_ratio(double sum, double first, double last, double side) {
  const auto [least, most] = std::minmax(first, last);
  if (sum <= 0 || side <= 0 || least <= 0) return 0;
  const double thickness = sum / side;
  return std::max(most / (thickness * thickness), thickness * thickness / least);
}

using admin::Curve;
using admin::Loss;
using admin::SpaceNode;
using admin::StatsGroup;

constexpr double kTextWidth = 6.8;  ///< of one character in a label

/// A place in a chart.
std::string at(double place) { return formatted("{:.1f}", place); }

/// As much of a text as fits; nothing if only a few letters fit.
std::string fitting(const std::string& bytes, double width) {
  const std::string text = shown(std::string_view(bytes));
  const auto room = static_cast<std::size_t>(std::max(width / kTextWidth, 0.0));
  if (columns(text) <= room) return text;
  if (room < 4) return {};
  return cut(text, room - 1) + "\u2026";
}

std::string amount(const admin::Sum& sum) {
  return formatted("{} in {} {}", format_bytes(sum.bytes), sum.files,
                   sum.files == 1 ? "file" : "files");
}

double part_of(std::uint64_t part, std::uint64_t whole) {
  return whole == 0 ? 0 : static_cast<double>(part) / static_cast<double>(whole);
}

// ---- the tree map ------------------------------------------------------------------------------

std::vector<Box> boxes_in(const Box& box, const SpaceNode& node) {
  std::vector<std::uint64_t> weights;
  for (const SpaceNode& child : node.children) weights.push_back(child.sum.bytes);
  return divide(box, weights);
}

std::string name_of_node(const SpaceNode& node, std::string (*name)(const std::string&),
                         const char* what) {
  return node.merged == 0 ? name(node.name) : formatted("{} more {}", node.merged, what);
}

Json place_of(const Box& box) {
  return {{"x", at(box.x)}, {"y", at(box.y)}, {"width", at(box.width)}, {"height", at(box.height)}};
}

/// Null if there is no room for it.
Json label_in(const Box& box, double down, const std::string& text) {
  const std::string label = box.height < down + 4 ? "" : fitting(text, box.width - 8);
  if (label.empty()) return nullptr;
  return {{"x", at(box.x + 5)}, {"y", at(box.y + down)}, {"text", label}};
}

Json shades_in(const Box& box, const SpaceNode& owner) {
  Json shades = Json::array();
  const std::vector<Box> boxes = boxes_in(box, owner);
  for (std::size_t i = 0; i < owner.children.size(); ++i) {
    const Box piece = boxes[i].inset(0.5);
    if (piece.width < 0.5 || piece.height < 0.5) continue;
    const SpaceNode& child = owner.children[i];
    Json& shade = shades.push_back(place_of(piece));
    shade["shade"] = i;
    shade["label"] = label_in(
        piece, 14,
        child.merged == 0 ? name_of_extension(child.name) : formatted("{} more", child.merged));
  }
  return shades;
}

Json owner_figures(const SpaceNode& area, const SpaceNode& owner, const Box& box) {
  constexpr double kHead = 17;
  const std::string name = name_of_node(owner, name_of_owner, "owners");
  std::string title = formatted("{}, {}: {}", area.name, name, amount(owner.sum));
  for (const SpaceNode& child : owner.children) {
    title += formatted("; {} {}", name_of_node(child, name_of_extension, "extensions"),
                       format_bytes(child.sum.bytes));
  }
  Json figures = place_of(box);
  figures["title"] = title;
  figures["rest"] = owner.merged == 0 ? Json() : place_of(box.inset(1.5));
  const bool has_head = box.height > 2.2 * kHead && box.width > 40;
  figures["shades"] = shades_in(box.inset(1.5, has_head ? kHead : 0), owner);
  figures["head"] =
      has_head ? label_in(box, 13, formatted("{}  {}", name, format_bytes(owner.sum.bytes)))
               : Json();
  return figures;
}

struct Plot {
  double left;
  double right;
  double top;
  double bottom;

  double x(std::size_t i, std::size_t count) const {
    return left + (right - left) * (static_cast<double>(i) + 0.5) / static_cast<double>(count);
  }
  double y(double part) const { return bottom - (bottom - top) * part; }
};

std::string line_of(const Plot& plot, const Curve& curve, std::uint64_t Loss::*what) {
  std::string points;
  for (std::size_t i = 0; i < curve.losses.size(); ++i) {
    append_formatted(points, "{}{:.1f},{:.1f}", i == 0 ? "" : " ", plot.x(i, curve.losses.size()),
                     plot.y(part_of(curve.losses[i].*what, curve.there.*what)));
  }
  return points;
}

}  // namespace

Box Box::inset(double margin, double top) const {
  return {x + margin, y + margin + top, std::max(width - 2 * margin, 0.0),
          std::max(height - 2 * margin - top, 0.0)};
}

std::vector<Box> divide(const Box& box, const std::vector<std::uint64_t>& weights) {
  std::vector<Box> pieces;
  const double total =
      static_cast<double>(std::accumulate(weights.begin(), weights.end(), std::uint64_t{0}));
  const double scale = total > 0 ? box.width * box.height / total : 0;
  const auto area = [&](std::size_t i) { return static_cast<double>(weights[i]) * scale; };
  Box rest = box;
  std::size_t next = 0;
  while (next < weights.size()) {
    // A row along the shorter side takes more pieces while that makes them squarer.
    const double side = std::min(rest.width, rest.height);
    std::size_t end = next + 1;
    double sum = area(next);
    while (end < weights.size()) {
      const double larger = sum + area(end);
      if (worst_ratio(larger, area(next), area(end), side) >
          worst_ratio(sum, area(next), area(end - 1), side))
        break;
      sum = larger;
      ++end;
    }
    const double thickness = side > 0 ? sum / side : 0;
    double at = 0;
    for (; next < end; ++next) {
      const double length = thickness > 0 ? area(next) / thickness : 0;
      pieces.push_back(rest.width < rest.height ? Box{rest.x + at, rest.y, length, thickness}
                                                : Box{rest.x, rest.y + at, thickness, length});
      at += length;
    }
    if (rest.width < rest.height) {
      rest.y += thickness;
      rest.height = std::max(rest.height - thickness, 0.0);
    } else {
      rest.x += thickness;
      rest.width = std::max(rest.width - thickness, 0.0);
    }
  }
  return pieces;
}

// ---- what the charts show ----------------------------------------------------------------------

std::string name_of_owner(const std::string& owner) { return owner.empty() ? "(no owner)" : owner; }
std::string name_of_extension(const std::string& extension) {
  return extension.empty() ? "(none)" : extension;
}

Json treemap_figures(const SpaceNode& all) {
  constexpr double kWidth = 1080;
  constexpr double kHeight = 480;
  constexpr double kHead = 20;
  Json map = Json::array();
  const std::vector<Box> areas = boxes_in({0, 0, kWidth, kHeight}, all);
  for (std::size_t i = 0; i < all.children.size(); ++i) {
    const SpaceNode& area = all.children[i];
    const Box box = areas[i].inset(1.5);
    if (box.width < 1 || box.height < 1) continue;
    Json& figures = map.push_back(place_of(box));
    figures["name"] = area.name;
    figures["title"] = formatted("{}: {}", area.name, amount(area.sum));
    const bool has_head = box.height > 3 * kHead && box.width > 60;
    figures["head"] =
        has_head ? label_in(box, 15, formatted("{}  {}", area.name, format_bytes(area.sum.bytes)))
                 : Json();
    const std::vector<Box> owners = boxes_in(box.inset(2, has_head ? kHead - 2 : 0), area);
    figures["owners"] = Json::array();
    for (std::size_t j = 0; j < area.children.size(); ++j) {
      const Box piece = owners[j].inset(1);
      if (piece.width >= 1 && piece.height >= 1)
        figures["owners"].push_back(owner_figures(area, area.children[j], piece));
    }
  }
  return map;
}

// ---- ages --------------------------------------------------------------------------------------

Json age_figures(const std::vector<StatsGroup>& ages) {
  constexpr double kWidth = 640;
  constexpr double kTop = 34;
  constexpr double kBottom = 226;
  std::uint64_t most = 0;
  for (const StatsGroup& group : ages) most = std::max(most, group.sum.bytes);
  const double step = kWidth / static_cast<double>(std::max<std::size_t>(ages.size(), 1));
  Json bars = Json::array();
  for (std::size_t i = 0; i < ages.size(); ++i) {
    const StatsGroup& group = ages[i];
    const double part = part_of(group.sum.bytes, most);
    const double height = std::max(part * (kBottom - kTop), group.sum.bytes == 0 ? 0.0 : 1.5);
    const double middle = (static_cast<double>(i) + 0.5) * step;
    Json& bar =
        bars.push_back(place_of({middle - step * 0.34, kBottom - height, step * 0.68, height}));
    bar["title"] = formatted("{}: {}", group.name, amount(group.sum));
    bar["left"] = at(middle - step / 2 + 2);
    bar["step"] = at(step - 4);
    bar["middle"] = at(middle);
    bar["above"] = at(kBottom - height - 7);
    bar["space"] = format_bytes(group.sum.bytes);
    bar["name"] = group.name;
    // "up to three years" takes two lines.
    constexpr std::string_view kUpTo = "up to ";
    bar["up_to"] = group.name.starts_with(kUpTo) ? Json(group.name.substr(kUpTo.size())) : Json();
  }
  return bars;
}

// ---- curves ------------------------------------------------------------------------------------

Json curve_figures(const Curve& curve) {
  const Plot plot{44, 634, 16, 250};
  const std::size_t count = curve.losses.size();
  Json figures = {{"freed_line", line_of(plot, curve, &Loss::bytes)},
                  {"lost_line", line_of(plot, curve, &Loss::documents)}};
  figures["points"] = Json::array();
  const double half = (plot.right - plot.left) / static_cast<double>(count) / 2;
  for (std::size_t i = 0; i < count; ++i) {
    const Loss& loss = curve.losses[i];
    const double x = plot.x(i, count);
    const std::string_view limit = admin::age_limits()[i].name;
    figures["points"].push_back(
        {{"limit", limit},
         {"versions", loss.versions},
         {"documents", loss.documents},
         {"bytes", loss.bytes},
         {"space", format_bytes(loss.bytes)},
         {"title", formatted("older than {}: {} freed, {} versions removed, {} documents lost",
                             limit, format_bytes(loss.bytes), loss.versions, loss.documents)},
         {"left", at(x - half + 1)},
         {"step", at(2 * half - 2)},
         {"x", at(x)},
         {"freed_y", at(plot.y(part_of(loss.bytes, curve.there.bytes)))},
         {"dot_x", at(x - 3.5)},
         {"lost_y", at(plot.y(part_of(loss.documents, curve.there.documents)) - 3.5)}});
  }
  return figures;
}

std::string spark_line(const Curve& curve) { return line_of({0, 96, 2, 20}, curve, &Loss::bytes); }

}  // namespace stgctl
