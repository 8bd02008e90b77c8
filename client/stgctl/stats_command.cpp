#include <ctime>

#include "client/stgctl/look.h"
#include "client/stgctl/report_charts.h"
#include "client/stgctl/terminal.h"

namespace stgctl {

namespace {

using admin::GroupBy;
using admin::Stats;
using admin::Sum;

const std::vector<std::string> kGroupNames = {"area", "owner", "ext", "age", "folder"};

struct Options : Arguments {
  TextOption by{
      *this, "--by", "WORD", "How to group (area)", initially("area"), one_of(kGroupNames)};
  NumberOption top{*this, "--top", "N", "How many groups, the largest first; 0 for all (20)", 20};
};

Json json_of(const Sum& sum) { return {{"files", sum.files}, {"bytes", sum.bytes}}; }

std::string shown_group(const std::string& name, GroupBy by) {
  return shown(by == GroupBy::kExtension ? name_of_extension(name) : name_of_owner(name));
}

void show_json(Context& context, const Stats& stats, const Options& options) {
  Json fields = {{"by", options.by},
                 {"files", stats.all.files},
                 {"bytes", stats.all.bytes},
                 {"documents", json_of(stats.documents)},
                 {"parts", json_of(stats.parts)},
                 {"indexes", json_of(stats.indexes)},
                 {"unfinished", json_of(stats.unfinished)},
                 {"strays", json_of(stats.strays)},
                 {"folders", stats.folders},
                 {"failures", stats.failures},
                 {"groups", Json::array()}};
  for (const admin::StatsGroup& group : stats.groups) {
    fields["groups"].push_back(
        {{"name", group.name}, {"files", group.sum.files}, {"bytes", group.sum.bytes}});
  }
  fields["other_groups"] = stats.other_groups;
  fields["others"] = json_of(stats.others);
  context.out().json_line("stgctl.stats/1", fields);
}

void show_groups(Context& context, const Stats& stats, GroupBy by) {
  std::uint64_t largest = stats.others.bytes;
  std::size_t width = 6;
  for (const admin::StatsGroup& group : stats.groups) {
    largest = std::max(largest, group.sum.bytes);
    width = std::max(width, columns(shown_group(group.name, by)));
  }
  const int terminal_width = terminal::width(terminal::Stream::kOut);
  constexpr std::size_t kFigures = 30;
  const std::size_t left = static_cast<std::size_t>(std::max(terminal_width, 40));
  const std::size_t room = left > width + kFigures + 10 ? left - width - kFigures : 10;
  const auto line = [&](const std::string& name, const Sum& sum) {
    context.out().print("{}  {:>10}  {:>12}  {}\n", padded(name, width), format_bytes(sum.bytes),
                        formatted("{} files", sum.files),
                        context.out().styled(Style::kCyan, bar(sum.bytes, largest,
                                                               std::min<std::size_t>(room, 50))));
  };
  for (const admin::StatsGroup& group : stats.groups) line(shown_group(group.name, by), group.sum);
  if (stats.other_groups != 0) line(formatted("{} more", stats.other_groups), stats.others);
}

void show_text(Context& context, const Stats& stats, GroupBy by) {
  show_groups(context, stats, by);
  const auto part = [&](const char* what, const Sum& sum) {
    if (sum.files != 0)
      context.out().print("  {:<10} {:>10}  {:>12}\n", what, format_bytes(sum.bytes),
                          formatted("{} files", sum.files));
  };
  context.out().print(
      "{}\n", context.out().styled(Style::kBold, formatted("{} in {} files, {} document folders",
                                                           format_bytes(stats.all.bytes),
                                                           stats.all.files, stats.folders)));
  part("documents", stats.documents);
  part("parts", stats.parts);
  part("indexes", stats.indexes);
  part("unfinished", stats.unfinished);
  part("strays", stats.strays);
}

Exit run_stats(Context& context, const Options& options) {
  auto asked = context.walk<admin::StatsOptions>();
  asked.by = *value_named<GroupBy>(kGroupNames, options.by);
  asked.top = options.top;
  asked.now = std::time(nullptr);
  const admin::Tree& tree = context.tree();
  Stats stats;
  {
    Progress progress(context.out(), "counting", asked);
    stats = admin::collect_stats(tree, asked);
  }
  const bool is_any = stats.folders != 0 || stats.all.files != 0 || stats.failures != 0;
  if (asked.scope.owner && !is_any && !stats.was_stopped) return Exit::kNothingMatched;
  if (context.out().json()) {
    show_json(context, stats, options);
  } else {
    show_text(context, stats, asked.by);
  }
  if (stats.failures != 0)
    context.out().warning(formatted("{} folders could not be listed", stats.failures));
  if (stats.was_stopped) return Exit::kInterrupted;
  return stats.failures != 0 ? Exit::kPartlyDone : Exit::kDone;
}

}  // namespace

Commands stats_command() {
  return {{"stats", Group::kLook, Effect::kLooks, "Count files and bytes", run_stats,
           "Groups by area, owner, extension, age of the last change, or folder. Includes\n"
           "everything in the tree: documents, their sub-parts, indexes. Sizes are those of the\n"
           "contents."}};
}

}  // namespace stgctl
