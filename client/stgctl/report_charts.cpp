
#include <algorithm>
#include <iterator>

#include "client/stgctl/report_parts.h"
#include "client/stgctl/text.h"
#include "client/stgctl/treemap.h"

namespace stgctl {

namespace {

using admin::Curve;
using admin::Loss;
using admin::SpaceNode;
using admin::StatsGroup;

constexpr double kTextWidth = 6.8;  ///< of one character at the size of labels

template <class... Args>
void append(std::string& text, admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
  append_formatted(text, pattern, args...);
}

/// As much of a text as there is room for; nothing when that is hardly anything.
std::string fitting(const std::string& bytes, double width) {
  const std::string text = shown(std::string_view(bytes));
  const auto room = static_cast<std::size_t>(std::max(width / kTextWidth, 0.0));
  if (columns(text) <= room) return html(text);
  if (room < 4) return {};
  std::size_t end = 0;
  for (std::size_t count = 0; end < text.size(); ++end) {
    const bool begins = (static_cast<unsigned char>(text[end]) & 0xC0U) != 0x80U;
    if (begins && ++count == room) break;
  }
  return html(text.substr(0, end)) + "\u2026";
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

void draw_box(std::string& svg, const char* style, const Box& box) {
  append(svg, R"(<rect class="{}" x="{:.1f}" y="{:.1f}" width="{:.1f}" height="{:.1f}"/>)", style,
         box.x, box.y, box.width, box.height);
}

void draw_label(std::string& svg, const char* style, const Box& box, double down,
                const std::string& text) {
  if (box.height < down + 4) return;
  const std::string label = fitting(text, box.width - 8);
  if (!label.empty())
    append(svg, R"(<text class="{}" x="{:.1f}" y="{:.1f}">{}</text>)", style, box.x + 5,
           box.y + down, label);
}

void draw_owner(std::string& svg, const SpaceNode& area, const SpaceNode& owner, const Box& box) {
  constexpr double kHead = 17;
  const std::string name = name_of_node(owner, name_of_owner, "owners");
  std::string title = formatted("{}, {}: {}", area.name, name, amount(owner.sum));
  for (const SpaceNode& child : owner.children) {
    title += formatted("; {} {}", name_of_node(child, name_of_extension, "extensions"),
                       format_bytes(child.sum.bytes));
  }
  append(svg, R"(<g class="owner" tabindex="0" role="img" aria-label="{0}"><title>{0}</title>)",
         html(title));
  draw_box(svg, "frame", box);
  if (owner.merged != 0) draw_box(svg, "rest", box.inset(1.5));
  const bool has_head = box.height > 2.2 * kHead && box.width > 40;
  const Box inner = box.inset(1.5, has_head ? kHead : 0);
  const std::vector<Box> boxes = boxes_in(inner, owner);
  for (std::size_t i = 0; i < owner.children.size(); ++i) {
    const Box piece = boxes[i].inset(0.5);
    if (piece.width < 0.5 || piece.height < 0.5) continue;
    const SpaceNode& child = owner.children[i];
    draw_box(svg, formatted("shade{}", i).c_str(), piece);
    draw_label(
        svg, "small", piece, 14,
        child.merged == 0 ? name_of_extension(child.name) : formatted("{} more", child.merged));
  }
  if (has_head)
    draw_label(svg, "name", box, 13, formatted("{}  {}", name, format_bytes(owner.sum.bytes)));
  svg += "</g>";
}

}  // namespace

std::string treemap_svg(const SpaceNode& all) {
  constexpr double kWidth = 1080;
  constexpr double kHeight = 480;
  constexpr double kHead = 20;
  std::string svg = formatted(
      R"(<svg class="chart" viewBox="0 0 {} {}" role="group" aria-labelledby="space-heading">)",
      kWidth, kHeight);
  const std::vector<Box> areas = boxes_in({0, 0, kWidth, kHeight}, all);
  for (std::size_t i = 0; i < all.children.size(); ++i) {
    const SpaceNode& area = all.children[i];
    const Box box = areas[i].inset(1.5);
    if (box.width < 1 || box.height < 1) continue;
    append(svg, R"(<g class="area-{0}"><title>{0}: {1}</title>)", html(area.name),
           amount(area.sum));
    draw_box(svg, "area", box);
    const bool has_head = box.height > 3 * kHead && box.width > 60;
    if (has_head)
      draw_label(svg, "heading", box, 15,
                 formatted("{}  {}", area.name, format_bytes(area.sum.bytes)));
    const std::vector<Box> owners = boxes_in(box.inset(2, has_head ? kHead - 2 : 0), area);
    for (std::size_t j = 0; j < area.children.size(); ++j) {
      const Box piece = owners[j].inset(1);
      if (piece.width >= 1 && piece.height >= 1) draw_owner(svg, area, area.children[j], piece);
    }
    svg += "</g>\n";
  }
  return svg + "</svg>";
}

// ---- ages --------------------------------------------------------------------------------------

std::string ages_svg(const std::vector<StatsGroup>& ages) {
  constexpr double kWidth = 640;
  constexpr double kHeight = 270;
  constexpr double kTop = 34;
  constexpr double kBottom = 226;
  std::uint64_t most = 0;
  for (const StatsGroup& group : ages) most = std::max(most, group.sum.bytes);
  std::string svg = formatted(
      R"(<svg class="chart" viewBox="0 0 {} {}" role="group" aria-labelledby="age-heading">)",
      kWidth, kHeight);
  const double step = kWidth / static_cast<double>(std::max<std::size_t>(ages.size(), 1));
  for (std::size_t i = 0; i < ages.size(); ++i) {
    const StatsGroup& group = ages[i];
    const double part = part_of(group.sum.bytes, most);
    const double height = std::max(part * (kBottom - kTop), group.sum.bytes == 0 ? 0.0 : 1.5);
    const double middle = (static_cast<double>(i) + 0.5) * step;
    append(
        svg,
        R"(<g class="bar" tabindex="0" role="img" aria-label="{0}: {1}"><title>{0}: {1}</title>)",
        html(group.name), amount(group.sum));
    append(svg, R"(<rect class="target" x="{:.1f}" y="4" width="{:.1f}" height="{:.1f}"/>)",
           middle - step / 2 + 2, step - 4, kHeight - 8);
    draw_box(svg, "fill", {middle - step * 0.34, kBottom - height, step * 0.68, height});
    append(svg, R"(<text class="value" x="{:.1f}" y="{:.1f}">{}</text>)", middle,
           kBottom - height - 7, format_bytes(group.sum.bytes));
    // "up to three years" stands in two lines.
    const std::size_t cut = group.name.starts_with("up to ") ? 6 : 0;
    if (cut != 0)
      append(svg, R"(<text class="tick" x="{:.1f}" y="{:.1f}">up to</text>)", middle, kBottom + 17);
    append(svg, R"(<text class="tick" x="{:.1f}" y="{:.1f}">{}</text></g>)", middle,
           kBottom + (cut != 0 ? 32 : 17), html(group.name.substr(cut)));
    svg += '\n';
  }
  append(svg, R"(<line class="axis" x1="0" y1="{0}" x2="{1}" y2="{0}"/></svg>)", kBottom, kWidth);
  return svg;
}

// ---- curves ------------------------------------------------------------------------------------

namespace {

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

void draw_line(std::string& svg, const char* style, const Plot& plot, const Curve& curve,
               std::uint64_t Loss::*what) {
  append(svg, R"(<polyline class="{}" points=")", style);
  for (std::size_t i = 0; i < curve.losses.size(); ++i) {
    append(svg, "{}{:.1f},{:.1f}", i == 0 ? "" : " ", plot.x(i, curve.losses.size()),
           plot.y(part_of(curve.losses[i].*what, curve.there.*what)));
  }
  svg += "\"/>";
}

}  // namespace

std::string curve_svg(const Curve& curve) {
  constexpr double kWidth = 640;
  constexpr double kHeight = 300;
  const Plot plot{44, kWidth - 6, 16, 250};
  const std::size_t count = curve.losses.size();
  std::string svg = formatted(
      R"(<svg class="chart" viewBox="0 0 {} {}" role="group" aria-labelledby="cleaning-heading">)",
      kWidth, kHeight);
  for (const int percent : {0, 25, 50, 75, 100}) {
    const double y = plot.y(percent / 100.0);
    append(svg, R"(<line class="grid" x1="{:.0f}" y1="{:.1f}" x2="{:.0f}" y2="{:.1f}"/>)",
           plot.left, y, plot.right, y);
    append(svg, R"(<text class="scale" x="{:.0f}" y="{:.1f}">{} %</text>)", plot.left - 6, y + 4,
           percent);
  }
  draw_line(svg, "freed", plot, curve, &Loss::bytes);
  draw_line(svg, "lost", plot, curve, &Loss::documents);
  for (std::size_t i = 0; i < count; ++i) {
    const Loss& loss = curve.losses[i];
    const double x = plot.x(i, count);
    const std::string_view limit = admin::age_limits()[i].name;
    append(svg, R"(<g class="point" tabindex="0" role="img" aria-label="{0}"><title>{0}</title>)",
           formatted("older than {}: {} freed, {} versions go, {} documents lost", limit,
                     format_bytes(loss.bytes), loss.versions, loss.documents));
    const double half = (plot.right - plot.left) / static_cast<double>(count) / 2;
    append(svg, R"(<rect class="target" x="{:.1f}" y="6" width="{:.1f}" height="{:.0f}"/>)",
           x - half + 1, 2 * half - 2, kHeight - 30);
    append(svg, R"(<circle class="freed-dot" cx="{:.1f}" cy="{:.1f}" r="4"/>)", x,
           plot.y(part_of(loss.bytes, curve.there.bytes)));
    append(svg, R"(<rect class="lost-dot" x="{:.1f}" y="{:.1f}" width="7" height="7"/>)", x - 3.5,
           plot.y(part_of(loss.documents, curve.there.documents)) - 3.5);
    append(svg, R"(<text class="tick" x="{:.1f}" y="{:.0f}">{}</text></g>)", x, plot.bottom + 18,
           limit);
    svg += '\n';
  }
  append(svg, R"(<text class="tick" x="{:.0f}" y="{:.0f}">age limit</text></svg>)",
         (plot.left + plot.right) / 2, kHeight - 10);
  return svg;
}

std::string spark_svg(const Curve& curve) {
  const Plot plot{0, 96, 2, 20};
  std::string svg = R"(<svg class="spark" viewBox="0 0 96 22" aria-hidden="true">)";
  append(svg, R"(<line class="grid" x1="0" y1="{0}" x2="96" y2="{0}"/>)", plot.bottom);
  draw_line(svg, "freed", plot, curve, &Loss::bytes);
  return svg + "</svg>";
}

}  // namespace stgctl
