#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "client/admin/check.h"
#include "client/admin/stats.h"
#include "client/stgctl/command.h"
#include "client/stgctl/json.h"
#include "client/stgctl/look.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/output.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/report_charts.h"
#include "client/stgctl/template_text.h"
#include "client/stgctl/text.h"
#include "client/stgctl/what_if.h"

namespace stgctl {

namespace fs = std::filesystem;
namespace sys = admin::sys;

namespace {

/// The content of a report.
struct ReportData {
  std::string tree;      ///< the storage folder
  std::string narrowed;  ///< the limits of the report, in words; can be empty
  std::int64_t now = 0;
  admin::Layout layout = admin::Layout::kOwner;
  admin::Space space;
  /// The forecast of a clean and its area, or why there is none.
  std::optional<admin::Forecast> forecast;
  std::string forecast_area;
  std::string no_forecast;
  std::optional<std::uint64_t> target;
  admin::CheckSummary check;
  /// Some findings of each kind, in the order of the check.
  std::vector<admin::Finding> samples;
};

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
  totals.push_back(total("parts", "Sub-parts", stats.parts));
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

/// Null if there is nothing to compare.
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
      curves.size() > kOwnersShown ? Json(curves.size() - kOwnersShown) : Json();
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
                  : Json();
  cleaning["by_owner"] = owners_of(data.forecast->owners());
  return cleaning;
}

// ---- findings ----------------------------------------------------------------------------------

/// Null if there are none.
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

/// The page is complete: it opens without a network, contains no script, and is well-formed XML.
/// Its size depends on the number of groups, not on the tree.
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
               {"unlisted", stats.failures == 0 ? Json() : Json(stats.failures)},
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

struct Options {
  Arguments app;
  TextOption html{app, "--html", "FILE", "The file to write, outside the tree", {kRequired}};
  TextOption target_size{app, "--target-size", kSize,
                         "Also show the age limit that reduces the size to this: 500M, 20G"};
  Flag quick{app, "--quick", "Check names and indexes only"};
  NoLock no_lock{app};
};

/// The most findings of one kind on the page.
constexpr std::uint64_t kSamplesOfAKind = 5;

void survey(Context& context, ReportData& data) {
  Progress progress(context.out(), context.options().progress, "counting", 0);
  admin::SpaceOptions asked;
  asked.stats.scope = context.scope();
  asked.stats.now = data.now;
  asked.stats.stop = &Context::interrupt_flag();
  asked.stats.on_folder = [&](const admin::DocumentFolder& folder) {
    progress.advance(1, folder.path);
  };
  data.space = admin::survey_space(context.tree(), asked);
  Context::stop_if_interrupted();
}

void forecast(Context& context, ReportData& data) {
  admin::Scope scope = context.scope();
  if (!scope.area) scope.area = admin::Area::kDocs;
  data.forecast_area = admin::name_of(*scope.area);
  if (!admin::expects_index(*scope.area)) {
    data.no_forecast = formatted("The area {} has no versions.", data.forecast_area);
    return;
  }
  try {
    data.forecast = forecast_of(context, scope, false, data.now);
  } catch (const Failure& failure) {
    if (failure.code() == Exit::kInterrupted) throw;
    data.no_forecast = formatted("It could not be calculated: {}", failure.what());
    context.out().warning(failure.what());
  }
}

void check(Context& context, const Options& options, ReportData& data) {
  Progress progress(context.out(), context.options().progress, "checking", 0);
  admin::CheckOptions asked;
  asked.scope = context.scope();
  asked.depth = options.quick ? admin::Depth::kQuick : admin::Depth::kFull;
  asked.locking = locking_for(context, options.no_lock);
  asked.stop = &Context::interrupt_flag();
  asked.on_folder = [&](const admin::DocumentFolder& folder) { progress.advance(1, folder.path); };
  std::array<std::uint64_t, admin::kCodes> seen{};
  data.check = admin::check(context.tree(), asked, [&](const admin::Finding& finding) {
    if (++seen[static_cast<std::size_t>(finding.code)] <= kSamplesOfAKind)
      data.samples.push_back(finding);
  });
  Context::stop_if_interrupted();
}

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
  const sys::Kind there = sys::describe(options.html).kind;
  if (there != sys::Kind::kMissing && there != sys::Kind::kFile) {
    throw Failure(Exit::kRefused, shown(options.html) + " is not a plain file; name another place");
  }
  const fs::path above = fs::absolute(to_path(options.html)).parent_path();
  if (!fs::is_directory(above))
    throw Failure(Exit::kRefused, shown(from_path(above)) + " is not a folder; name another place");
  const bool dry = context.options().dry_run;
  if (!dry && there == sys::Kind::kFile)
    context.confirm(formatted("Overwrite {}?", shown(options.html)));

  ReportData data;
  data.tree = tree.storage;
  data.narrowed = narrowed(context.options());
  data.now = std::time(nullptr);
  data.layout = tree.layout;
  data.target = parse_size(options.target_size);
  survey(context, data);
  forecast(context, data);
  check(context, options, data);
  const std::string page = report_page(data);
  if (!dry) {
    NewFile file(from_path(fs::absolute(to_path(options.html))));
    file.write(page);
    file.commit();
  }

  const auto count = [&](admin::Severity severity) { return data.check.count(severity); };
  if (context.out().json()) {
    Json fields = {{"file", options.html},
                   {"dry_run", dry},
                   {"page_bytes", page.size()},
                   {"files", data.space.stats.all.files},
                   {"bytes", data.space.stats.all.bytes},
                   {"errors", count(admin::Severity::kError)},
                   {"warnings", count(admin::Severity::kWarning)},
                   {"infos", count(admin::Severity::kInfo)},
                   {"whole", data.space.stats.failures == 0 && data.no_forecast.empty()}};
    context.out().json_line("stgctl.report/1", fields);
  } else {
    context.out().print("{}  {} in {} files, {} errors, {} warnings: {} {}\n", shown(options.html),
                        format_bytes(data.space.stats.all.bytes), data.space.stats.all.files,
                        count(admin::Severity::kError), count(admin::Severity::kWarning),
                        format_bytes(page.size()), dry ? "would be written" : "written");
  }
  const bool has_gap = data.space.stats.failures != 0 ||
                       (!data.forecast && context.scope().area != admin::Area::kList &&
                        context.scope().area != admin::Area::kSemlets);
  return has_gap ? Exit::kPartlyDone : Exit::kDone;
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
