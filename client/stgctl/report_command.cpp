
#include <array>
#include <ctime>
#include <filesystem>
#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/progress.h"
#include "client/stgctl/report_page.h"
#include "client/stgctl/text.h"
#include "client/stgctl/what_if.h"

namespace stgctl {

namespace fs = std::filesystem;
namespace sys = admin::sys;

namespace {

struct Options {
  std::string html;
  std::string target_size;
  bool quick = false;
  bool no_lock = false;
};

/// How many findings of one kind the page names.
constexpr std::uint64_t kSamplesOfAKind = 5;

void survey(Context& context, ReportData& data) {
  Progress progress(context.out(), context.options().progress, "adding up", 0);
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
    data.no_forecast = formatted("The area {} keeps no versions.", data.forecast_area);
    return;
  }
  try {
    data.forecast = forecast_of(context, scope, false, data.now);
  } catch (const Failure& failure) {
    if (failure.code() == Exit::kInterrupted) throw;
    data.no_forecast = formatted("It could not be worked out: {}", failure.what());
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
    throw Failure(Exit::kRefused, shown(options.html) + " is no plain file; name another place");
  }
  const fs::path above = fs::absolute(to_path(options.html)).parent_path();
  if (!fs::is_directory(above))
    throw Failure(Exit::kRefused, shown(from_path(above)) + " is no folder; name another place");
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
    Json fields;
    put_name(fields, "file", options.html);
    fields["dry_run"] = dry;
    fields["page_bytes"] = page.size();
    fields["files"] = data.space.stats.all.files;
    fields["bytes"] = data.space.stats.all.bytes;
    fields["errors"] = count(admin::Severity::kError);
    fields["warnings"] = count(admin::Severity::kWarning);
    fields["infos"] = count(admin::Severity::kInfo);
    fields["whole"] = data.space.stats.failures == 0 && data.no_forecast.empty();
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

void add_report_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto options = std::make_shared<Options>();
    app.add_option("--html", options->html, "The file to write, outside of the tree")
        .type_name("FILE")
        .required();
    app.add_option("--target-size", options->target_size,
                   "Also say which age limit brings the size down to this: 500M, 20G")
        .type_name("SIZE")
        .check([](const std::string& text) {
          return parse_size(text) ? std::string()
                                  : "'" + text + "' is no size; say 500M, 20G or a number";
        });
    app.add_flag("--quick", options->quick, "Check names and indexes only");
    add_no_lock(app, options->no_lock);
    return [options](Context& context) { return run_report(context, *options); };
  };
  commands.push_back(
      {"report", Group::kLook, Effect::kChanges, "Write a page about a tree: space, ages, findings",
       declare,
       "One file that opens in every browser, without a network: where the space goes, how old\n"
       "it is, what a cleaning would free, and what check finds. Nothing of the tree changes.\n"
       "Only a file that would be overwritten is asked about."});
}

}  // namespace stgctl
