#pragma once

#include <string>
#include <string_view>

#include "client/admin/forecast.h"
#include "client/admin/space.h"

/// @file
/// The pieces of a report page: text for HTML, and charts as SVG. Colours are those of the style
/// sheet.
namespace stgctl {

/// Bytes as text for HTML: what is no UTF-8 and control characters become U+FFFD.
std::string html(std::string_view bytes);

/// What a group without a name is called.
std::string name_of_owner(const std::string& owner);
std::string name_of_extension(const std::string& extension);

/// The style sheet.
std::string_view report_style();

/// Space by area, owner and extension, as nested rectangles.
std::string treemap_svg(const admin::SpaceNode& all);
/// Bytes by age.
std::string ages_svg(const std::vector<admin::StatsGroup>& ages);
/// What each age limit would free and lose, in parts of the whole.
std::string curve_svg(const admin::Curve& curve);
/// The same, of bytes alone and as small as a word.
std::string spark_svg(const admin::Curve& curve);

}  // namespace stgctl
