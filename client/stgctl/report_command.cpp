#include <array>
#include <ctime>

#include "client/stgctl/look.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/report_charts.h"
#include "client/stgctl/template_text.h"

namespace stgctl {

namespace {

using admin::Curve;
using admin::Finding;
using admin::FindingKind;
using admin::GroupedSpace;
using admin::Severity;
using admin::StatsGroup;
using admin::Sum;

struct Options : Arguments {
  TextOption html{*this, "--html", "FILE", "The file to write, outside the tree", kRequired};
  TextOption target_size{*this, "--target-size", kSize,
                         "Also show the age limit that reduces the size to this: 500M, 20G"};
  Flag quick{*this, "--quick", "Check names and indexes only"};
  NoLock no_lock{*this};
};

// ---- space -------------------------------------------------------------------------------------

/// The fields "files", "bytes" and "space" after the given ones.
Json with_sum(Json fields, const Sum& sum) {
  fields.update({{"files", sum.files}, {"bytes", sum.bytes}, {"space", format_bytes(sum.bytes)}});
  return fields;
}

Json totals_of(const admin::Stats& stats) {
  Json totals = Json::array();
  const auto add = [&](const char* name, const char* label, const Sum& sum) {
    totals.push_back(with_sum({{"total", name}, {"label", label}}, sum));
  };
  add("all", "Everything", stats.all);
  add("documents", "Documents", stats.documents);
  add("parts", "Sub-parts", stats.parts);
  add("indexes", "Indexes", stats.indexes);
  if (stats.unfinished.files != 0) add("unfinished", "Unfinished copies", stats.unfinished);
  if (stats.strays.files != 0) add("strays", "Strays", stats.strays);
  return totals;
}

Json grouping(const std::string& table, const char* caption, const char* first,
              const GroupedSpace& groups, const Sum& all,
              std::string (*label_of)(const std::string&)) {
  Json rows = Json::array();
  const auto add = [&](const std::string& in_table, const std::string& name,
                       const std::string& label, const Sum& sum) -> Json& {
    const double part = static_cast<double>(sum.bytes) / static_cast<double>(all.bytes);
    const double percent = all.bytes == 0 ? 0 : 100 * part;
    return rows.push_back(with_sum({{"table", in_table},
                                    {"name", name},
                                    {"label", label},
                                    {"percent", formatted("{:.1f}", percent)}},
                                   sum));
  };
  for (const StatsGroup& group : groups.groups) {
    Json& row = add(table, group.name, label_of(group.name), group.sum);
    if (table == "area") row["swatch"] = group.name;
  }
  if (groups.other_groups != 0) {
    add(table + "-others", std::to_string(groups.other_groups),
        formatted("{} more", groups.other_groups), groups.others);
  }
  return {{"caption", caption}, {"first", first}, {"rows", rows}};
}

/// Adds what uses the space of the tree.
admin::Stats survey(Context& context, std::int64_t now, Json& page) {
  auto asked = context.walk<admin::StatsOptions>();
  asked.now = now;
  Progress progress(context.out(), "counting", asked);
  admin::Space space = admin::survey_space(context.tree(), asked);
  Context::stop_if_interrupted();
  admin::Stats& stats = space.stats;
  const auto as_it_is = [](const std::string& name) { return name; };
  page["totals"] = totals_of(stats);
  page["folders"] = stats.folders;
  if (stats.failures != 0) page["unlisted"] = stats.failures;
  page["map"] = treemap_figures(space.all);
  Json& tables = page["groupings"] = Json::array();
  tables.push_back(grouping("area", "By area", "Area", space.areas, stats.all, as_it_is));
  tables.push_back(grouping("owner", "By owner", "Owner", space.owners, stats.all, name_of_owner));
  tables.push_back(
      grouping("ext", "By extension", "Extension", space.extensions, stats.all, name_of_extension));
  GroupedSpace ages;
  ages.groups = stats.groups;
  page["ages"] = grouping("age", "By age", "Changed", ages, stats.all, as_it_is);
  page["ages"]["bars"] = age_figures(stats.groups);
  return std::move(stats);
}

// ---- cleaning ----------------------------------------------------------------------------------

/// Null if there is nothing to compare.
Json owners_of(const std::vector<Curve>& curves) {
  if (curves.size() < 2) return nullptr;
  constexpr std::size_t kOwnersShown = 20;
  constexpr std::array<std::string_view, 4> kShown = {"30d", "90d", "1y", "3y"};
  Json result = {{"limits", Json::array()}, {"owners", Json::array()}};
  for (const std::string_view limit : kShown) result["limits"].push_back({{"limit", limit}});
  for (const Curve& curve : std::span(curves).first(std::min(curves.size(), kOwnersShown))) {
    Json& owner = result["owners"].push_back({{"name", curve.owner},
                                              {"bytes", curve.there.bytes},
                                              {"label", name_of_owner(curve.owner)},
                                              {"space", format_bytes(curve.there.bytes)},
                                              {"line", spark_line(curve)},
                                              {"freed", Json::array()}});
    for (std::size_t i = 0; i < curve.losses.size(); ++i) {
      if (std::ranges::find(kShown, admin::age_limits()[i].name) != kShown.end())
        owner["freed"].push_back({{"space", format_bytes(curve.losses[i].bytes)}});
    }
  }
  if (curves.size() > kOwnersShown) result["more_owners"] = curves.size() - kOwnersShown;
  return result;
}

/// Adds what a clean would free, or why that is not known.
/// @return whether it is not known although the area has versions.
bool forecast(Context& context, const Options& options, std::int64_t now, Json& page) {
  admin::Scope scope = context.scope();
  if (!scope.area) scope.area = admin::Area::kDocs;
  const std::string_view area = admin::name_of(*scope.area);
  if (!admin::expects_index(*scope.area)) {
    page["no_cleaning"] = formatted("The area {} has no versions.", area);
    return false;
  }
  try {
    const admin::Forecast forecast = forecast_of(context, scope, false, now);
    const Curve& all = forecast.all();
    Json& cleaning = page["cleaning"] = curve_figures(all);
    cleaning["area"] = area;
    cleaning["space"] = format_bytes(all.there.bytes);
    cleaning["versions"] = all.there.versions;
    cleaning["documents"] = all.there.documents;
    if (const auto target = parse_size(options.target_size))
      cleaning["target"] = sentence_for(*target, forecast.limit_for(*target));
    cleaning["by_owner"] = owners_of(forecast.owners());
    return false;
  } catch (const Failure& failure) {
    if (failure.code() == Exit::kInterrupted) throw;
    page["no_cleaning"] = formatted("It could not be calculated: {}", failure.what());
    context.out().warning(failure.what());
    return true;
  }
}

// ---- findings ----------------------------------------------------------------------------------

/// Adds the findings of a check.
admin::CheckSummary check(Context& context, const Options& options, Json& page) {
  /// The most findings of one kind on the page.
  constexpr std::uint64_t kSamplesOfAKind = 5;
  auto asked = context.walk<admin::CheckOptions>();
  Progress progress(context.out(), "checking", asked);
  asked.depth = options.quick ? admin::Depth::kQuick : admin::Depth::kFull;
  Json found = {{"kinds", Json::array()}, {"samples", Json::array()}};
  std::array<std::uint64_t, admin::kCodes> seen{};
  const auto add = [&](const Finding& finding) {
    if (++seen[static_cast<std::size_t>(finding.code)] > kSamplesOfAKind) return;
    const FindingKind& kind = admin::kind_of(finding.code);
    std::string where = place_of(finding);
    if (finding.line != 0) where += formatted(" (line {})", finding.line);
    found["samples"].push_back({{"code", kind.name},
                                {"severity", admin::name_of(kind.severity)},
                                {"where", where},
                                {"detail", finding.detail}});
  };
  const admin::CheckSummary summary = admin::check(context.tree(), asked, add);
  Context::stop_if_interrupted();
  page["checked_folders"] = summary.folders;
  page["entries"] = summary.entries;
  for (const FindingKind& kind : admin::finding_kinds()) {
    const std::uint64_t count = summary.findings[static_cast<std::size_t>(kind.code)];
    if (count == 0) continue;
    found["kinds"].push_back({{"code", kind.name},
                              {"severity", admin::name_of(kind.severity)},
                              {"count", count},
                              {"meaning", kind.meaning},
                              {"remedy", kind.remedy}});
  }
  if (!found["kinds"].is_empty()) page["found"] = std::move(found);
  return summary;
}

// ---- the page ----------------------------------------------------------------------------------

/// The limits of the report; can be empty.
std::string narrowed(const GlobalOptions& options) {
  std::string text;
  if (!options.area.empty()) text = "the area " + options.area;
  if (!options.owner.empty())
    text += formatted("{}the owner {}", text.empty() ? "" : " and ", shown(options.owner));
  return text;
}

Exit run_report(Context& context, const Options& options) {
  const admin::Tree& tree = context.tree();
  check_outside_tree(context, options.html);
  const bool overwrites = is_file_at(options.html);
  const fs::path above = fs::absolute(to_path(options.html)).parent_path();
  if (!fs::is_directory(above))
    refuse("{} is not a folder; name another place", shown(from_path(above)));
  const bool dry = context.is_dry_run();
  if (!dry && overwrites) context.confirm(formatted("Overwrite {}?", shown(options.html)));

  // The page is complete: it opens without a network, contains no script, and is well-formed XML.
  // Its size depends on the number of groups, not on the tree.
  const std::int64_t now = std::time(nullptr);
  Json figures = {
      {"version", VU_STGCTL_VERSION},
      {"tree", tree.storage},
      {"time", format_time(now)},
      {"layout", tree.layout == admin::Layout::kFlat ? "a tree without owners"
                                                     : "a tree with a folder per owner"},
      {"narrowed", narrowed(context.options())}};
  const admin::Stats stats = survey(context, now, figures);
  const bool lacks_forecast = forecast(context, options, now, figures);
  const admin::CheckSummary summary = check(context, options, figures);
  const Json counts = {{"errors", summary.count(Severity::kError)},
                       {"warnings", summary.count(Severity::kWarning)},
                       {"infos", summary.count(Severity::kInfo)}};
  figures.update(counts);
  const std::string page = filled(embedded_file("page.html"), figures, embedded_file);
  if (!dry) write_file(from_path(fs::absolute(to_path(options.html))), page);

  Json fields = {{"file", options.html},
                 {"dry_run", dry},
                 {"page_bytes", page.size()},
                 {"files", stats.all.files},
                 {"bytes", stats.all.bytes}};
  fields.update(counts);
  fields["whole"] = stats.failures == 0 && figures.find("no_cleaning") == nullptr;
  context.out().result("stgctl.report/1", fields,
                       "{}  {} in {} files, {} errors, {} warnings: {} {}\n", shown(options.html),
                       format_bytes(stats.all.bytes), stats.all.files,
                       summary.count(Severity::kError), summary.count(Severity::kWarning),
                       format_bytes(page.size()), dry ? "would be written" : "written");
  return stats.failures != 0 || lacks_forecast ? Exit::kPartlyDone : Exit::kDone;
}

}  // namespace

Commands report_command() {
  return {{"report", Group::kLook, Effect::kChanges,
           "Write a report about a tree: space, ages, findings", run_report,
           "Writes one HTML file that every browser opens, also without a network. It shows what\n"
           "uses the space, how old the files are, what a clean would free, and what check\n"
           "finds. The tree does not change. The command asks only before it overwrites a file."}};
}

}  // namespace stgctl
