#include "client/stgctl/report_page.h"

#include <algorithm>
#include <array>

#include "client/stgctl/json.h"
#include "client/stgctl/embedded.h"
#include "client/stgctl/report_parts.h"
#include "client/stgctl/template_text.h"
#include "client/stgctl/text.h"
#include "client/stgctl/what_if.h"

namespace stgctl {

namespace {

using admin::Curve;
using admin::Finding;
using admin::FindingKind;
using admin::GroupedSpace;
using admin::Severity;
using admin::StatsGroup;
using admin::Sum;

constexpr std::size_t kOwnersShown = 20;

Json total(const char* name, const char* label, const Sum& sum) {
  return {{"total", name},
          {"label", label},
          {"files", sum.files},
          {"bytes", sum.bytes},
          {"space", format_bytes(sum.bytes)}};
}

Json totals_of(const admin::Stats& stats) {
  Json totals = Json::array();
  totals.push_back(total("all", "Everything", stats.all));
  totals.push_back(total("documents", "Documents", stats.documents));
  totals.push_back(total("parts", "Parts", stats.parts));
  totals.push_back(total("indexes", "Indexes", stats.indexes));
  if (stats.unfinished.files != 0)
    totals.push_back(total("unfinished", "Unfinished copies", stats.unfinished));
  if (stats.strays.files != 0) totals.push_back(total("strays", "Strays", stats.strays));
  return totals;
}

// ---- space -------------------------------------------------------------------------------------

Json row(const std::string& table, const std::string& name, const std::string& label,
         const Sum& sum, std::uint64_t whole) {
  const double percent =
      whole == 0 ? 0 : 100.0 * static_cast<double>(sum.bytes) / static_cast<double>(whole);
  return {{"table", table},
          {"name", name},
          {"label", label},
          {"files", sum.files},
          {"bytes", sum.bytes},
          {"space", format_bytes(sum.bytes)},
          {"percent", formatted("{:.1f}", percent)}};
}

Json grouping(const std::string& table, const char* caption, const char* first,
              const GroupedSpace& groups, const Sum& all,
              std::string (*label)(const std::string&)) {
  Json rows = Json::array();
  for (const StatsGroup& group : groups.groups) {
    Json& added = rows.push_back(row(table, group.name, label(group.name), group.sum, all.bytes));
    if (table == "area") added["swatch"] = group.name;
  }
  if (groups.other_groups != 0) {
    rows.push_back(row(table + "-others", std::to_string(groups.other_groups),
                       formatted("{} more", groups.other_groups), groups.others, all.bytes));
  }
  return {{"caption", caption}, {"first", first}, {"rows", rows}};
}

Json groupings_of(const admin::Space& space) {
  const Sum& all = space.stats.all;
  const auto as_it_is = [](const std::string& name) { return name; };
  Json tables = Json::array();
  tables.push_back(grouping("area", "By area", "Area", space.areas, all, as_it_is));
  tables.push_back(grouping("owner", "By owner", "Owner", space.owners, all, name_of_owner));
  tables.push_back(
      grouping("ext", "By extension", "Extension", space.extensions, all, name_of_extension));
  return tables;
}

Json ages_of(const admin::Stats& stats) {
  GroupedSpace groups;
  groups.groups = stats.groups;
  Json ages = grouping("age", "By age", "Changed", groups, stats.all,
                       [](const std::string& name) { return name; });
  ages["bars"] = age_figures(stats.groups);
  return ages;
}

// ---- cleaning ----------------------------------------------------------------------------------

/// Null where there is nothing to compare.
Json owners_of(const std::vector<Curve>& curves) {
  if (curves.size() < 2) return nullptr;
  constexpr std::array<std::string_view, 4> kShown = {"30d", "90d", "1y", "3y"};
  Json result;
  result["limits"] = Json::array();
  for (const std::string_view limit : kShown) result["limits"].push_back({{"limit", limit}});
  result["owners"] = Json::array();
  for (const Curve& curve : std::span(curves).first(std::min(curves.size(), kOwnersShown))) {
    Json& owner = result["owners"].push_back({{"name", curve.owner},
                                              {"bytes", curve.there.bytes},
                                              {"label", name_of_owner(curve.owner)},
                                              {"space", format_bytes(curve.there.bytes)},
                                              {"line", spark_line(curve)}});
    owner["freed"] = Json::array();
    for (std::size_t i = 0; i < curve.losses.size(); ++i) {
      if (std::find(kShown.begin(), kShown.end(), admin::age_limits()[i].name) != kShown.end())
        owner["freed"].push_back({{"space", format_bytes(curve.losses[i].bytes)}});
    }
  }
  result["more_owners"] =
      curves.size() > kOwnersShown ? Json(curves.size() - kOwnersShown) : Json(nullptr);
  return result;
}

Json cleaning_of(const ReportData& data) {
  if (!data.forecast) return nullptr;
  const Curve& all = data.forecast->all();
  Json cleaning = curve_figures(all);
  cleaning["area"] = data.forecast_area;
  cleaning["space"] = format_bytes(all.there.bytes);
  cleaning["versions"] = all.there.versions;
  cleaning["documents"] = all.there.documents;
  cleaning["target"] =
      data.target ? Json(sentence_for(*data.target, data.forecast->limit_for(*data.target)))
                  : Json(nullptr);
  cleaning["by_owner"] = owners_of(data.forecast->owners());
  return cleaning;
}

// ---- findings ----------------------------------------------------------------------------------

/// Null where there are none.
Json found_of(const ReportData& data) {
  Json found;
  found["kinds"] = Json::array();
  for (const FindingKind& kind : admin::finding_kinds()) {
    const std::uint64_t count = data.check.findings[static_cast<std::size_t>(kind.code)];
    if (count == 0) continue;
    found["kinds"].push_back({{"code", kind.name},
                              {"severity", admin::name_of(kind.severity)},
                              {"count", count},
                              {"meaning", kind.meaning},
                              {"remedy", kind.remedy}});
  }
  if (found["kinds"].is_empty()) return nullptr;
  found["samples"] = Json::array();
  for (const Finding& finding : data.samples) {
    const FindingKind& kind = admin::kind_of(finding.code);
    std::string where = finding.folder;
    if (!finding.name.empty()) where = admin::sys::join(where, finding.name);
    if (finding.line != 0) where += formatted(" (line {})", finding.line);
    found["samples"].push_back({{"code", kind.name},
                                {"severity", admin::name_of(kind.severity)},
                                {"where", where},
                                {"detail", finding.detail}});
  }
  return found;
}

}  // namespace

std::string name_of_owner(const std::string& owner) { return owner.empty() ? "(no owner)" : owner; }
std::string name_of_extension(const std::string& extension) {
  return extension.empty() ? "(none)" : extension;
}

std::string report_page(const ReportData& data) {
  const admin::Stats& stats = data.space.stats;
  Json page = {{"version", VU_STGCTL_VERSION},
               {"tree", data.tree},
               {"time", format_time(data.now)},
               {"layout", data.layout == admin::Layout::kFlat ? "a tree without owners"
                                                              : "a tree with a folder per owner"},
               {"narrowed", data.narrowed},
               {"totals", totals_of(stats)},
               {"folders", stats.folders},
               {"unlisted", stats.failures == 0 ? Json(nullptr) : Json(stats.failures)},
               {"map", treemap_figures(data.space.all)},
               {"groupings", groupings_of(data.space)},
               {"ages", ages_of(stats)},
               {"cleaning", cleaning_of(data)},
               {"no_cleaning", data.no_forecast},
               {"checked_folders", data.check.folders},
               {"entries", data.check.entries},
               {"errors", data.check.count(Severity::kError)},
               {"warnings", data.check.count(Severity::kWarning)},
               {"infos", data.check.count(Severity::kInfo)},
               {"found", found_of(data)}};
  return filled(embedded_file("page.html"), page, embedded_file);
}

}  // namespace stgctl
