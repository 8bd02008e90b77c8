// clean, with --what-if: what each age limit would free.

#include <ctime>
#include <deque>

#include "client/stgctl/look.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/terminal.h"

namespace stgctl {

namespace {

using admin::Curve;
using admin::LimitFor;
using admin::Loss;

constexpr const char* kWhatIfSchema = "stgctl.what-if/1";

Json json_of(const Loss& loss) {
  return {{"versions", loss.versions}, {"documents", loss.documents}, {"bytes", loss.bytes}};
}

Json json_of(const Curve& curve) {
  Json fields = json_of(curve.there);
  fields["points"] = Json::array();
  for (std::size_t i = 0; i < curve.losses.size(); ++i) {
    Json point = {{"limit", admin::age_limits()[i].name},
                  {"limit_seconds", admin::age_limits()[i].seconds}};
    point.update(json_of(curve.losses[i]));
    point["kept_bytes"] = curve.there.bytes - curve.losses[i].bytes;
    fields["points"].push_back(std::move(point));
  }
  return fields;
}

Json json_of(std::uint64_t target, const LimitFor& limit) {
  Json fields = {{"bytes", target}, {"reached", limit.is_needless || limit.limit.has_value()}};
  if (limit.limit) {
    fields["limit"] = exact_age(*limit.limit).typed;
    fields["limit_seconds"] = *limit.limit;
  }
  fields["lost"] = json_of(limit.loss);
  fields["kept_bytes"] = limit.kept;
  return fields;
}

/// Which time an age is counted from.
const char* age_by(bool by_access) { return by_access ? "age: last access" : "age: last change"; }

void show_json(Context& context, const admin::Forecast& forecast, bool by_access, std::int64_t now,
               std::optional<std::uint64_t> target) {
  for (const Curve& curve : forecast.owners()) {
    Json fields = {{"record", "owner"}};
    fields["owner"] = curve.owner;
    fields.update(json_of(curve));
    context.out().json_line(kWhatIfSchema, fields);
  }
  Json fields = {{"record", "summary"}, {"by", by_access ? "atime" : "mtime"}, {"now", now}};
  fields.update(json_of(forecast.all()));
  if (target) fields["target"] = json_of(*target, forecast.limit_for(*target));
  context.out().json_line(kWhatIfSchema, fields);
}

void show_curve(Context& context, const std::string& title, const Curve& curve) {
  Output& out = context.out();
  out.print("{}  {} in {} versions of {} documents\n", out.styled(Style::kBold, title),
            format_bytes(curve.there.bytes), curve.there.versions, curve.there.documents);
  constexpr std::size_t kFigures = 56;
  const auto width = static_cast<std::size_t>(std::max(terminal::width(terminal::Stream::kOut), 0));
  const std::size_t room = std::min<std::size_t>(width > kFigures + 10 ? width - kFigures : 10, 40);
  for (std::size_t i = 0; i < curve.losses.size(); ++i) {
    const Loss& loss = curve.losses[i];
    out.print("  older than {:>4}  {:>10}  {:>9} versions  {:>9} lost  {}\n",
              admin::age_limits()[i].name, format_bytes(loss.bytes), loss.versions, loss.documents,
              out.styled(Style::kCyan, bar(loss.bytes, curve.there.bytes, room)));
    // Longer limits free nothing either.
    if (loss.versions == 0) break;
  }
}

void show_text(Context& context, const admin::Forecast& forecast, bool by_access,
               std::optional<std::uint64_t> target) {
  Output& out = context.out();
  out.print("What would be removed ({}); 'lost' counts documents that would lose every version.\n",
            age_by(by_access));
  show_curve(context, "all", forecast.all());
  if (forecast.owners().size() > 1) {
    for (const Curve& curve : forecast.owners())
      show_curve(context, shown(std::string_view(curve.owner)), curve);
  }
  if (target)
    out.print("{}\n", out.styled(Style::kBold, sentence_for(*target, forecast.limit_for(*target))));
}

/// Shows for each age limit what a clean frees and loses. Changes nothing.
/// @param target the size to reach, if given.
Exit run_what_if(Context& context, bool by_access, std::optional<std::uint64_t> target) {
  const admin::Scope scope = context.scope();
  if (scope.area && !admin::expects_index(*scope.area))
    refuse("the area {} has no versions; use --area docs, user or mail",
           admin::name_of(*scope.area));
  const std::int64_t now = std::time(nullptr);
  const admin::Forecast forecast = forecast_of(context, scope, by_access, now);
  if (context.out().json()) {
    show_json(context, forecast, by_access, now, target);
  } else {
    show_text(context, forecast, by_access, target);
  }
  return forecast.all().there.versions == 0 ? Exit::kNothingMatched : Exit::kDone;
}

// ---- clean -------------------------------------------------------------------------------------

struct Options : Arguments {
  TextOption older_than{*this, "--older-than", kAge, "The age limit: 90s, 15m, 12h, 30d, 4w, 1y"};
  TextOption by{*this,
                "--by",
                "WORD",
                "Which time decides: that of the last change, or of the last access",
                initially("mtime"),
                one_of({"mtime", "atime"})};
  TextOption max_size{*this, "--max-size", kSize,
                      "Then remove the oldest until the rest is at most this large: 500M, 20G"};
  Flag what_if{*this, "--what-if",
               "Remove nothing: show what each age limit would free, for every owner",
               excludes("--older-than"), excludes("--max-size")};
  TextOption target_size{*this, "--target-size", kSize,
                         "With --what-if: find the age limit that reduces the size to this",
                         needs("--what-if")};

  bool by_access() const { return by == "atime"; }
  std::int64_t time_of(const sys::Info& info) const {
    return by_access() ? info.access_time : info.modify_time;
  }
};

struct Candidate {
  FoundEntry entry;
  std::int64_t time = 0;
  std::uint64_t bytes = 0;  ///< with its sub-parts
  std::size_t parts = 0;
  bool is_old = false;  ///< removed by its age, otherwise by the size

  const std::string& name() const { return entry.name; }
};

/// The versions to remove, and the rest.
struct Plan {
  std::int64_t now = 0;
  std::vector<Candidate> going;
  std::uint64_t going_bytes = 0;
  std::uint64_t kept = 0;
  std::uint64_t kept_bytes = 0;
};

std::vector<Candidate> candidates(Context& context, const Options& options) {
  admin::EntryQuery query;
  query.scope = context.scope();
  if (!query.scope.area) query.scope.area = admin::Area::kDocs;
  query.state = admin::EntryState::kIndexed;
  std::vector<Candidate> all;
  for (FoundEntry& entry : find_entries(context, query)) {
    Context::stop_if_interrupted();
    Candidate& each = all.emplace_back();
    each.time = options.time_of(entry.info);
    each.bytes = entry.info.size;
    for (const std::string& part : part_folders(entry)) {
      const std::string folder = sys::join(entry.folder.path, part);
      each.bytes += count_below(folder, Context::stop_if_interrupted).bytes;
      ++each.parts;
    }
    each.entry = std::move(entry);
  }
  // Oldest first. Versions with equal times have the same order on every system.
  std::ranges::sort(all, {}, [](const Candidate& each) {
    return std::tie(each.time, each.entry.folder.path, each.entry.name, each.entry.timestamp);
  });
  return all;
}

Plan plan_of(Context& context, const Options& options) {
  using namespace std::chrono;
  Plan plan;
  plan.now = duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
  const std::optional<std::int64_t> limit = parse_age(options.older_than);
  const std::optional<std::uint64_t> most = parse_size(options.max_size);
  std::vector<Candidate> all = candidates(context, options);
  for (const Candidate& each : all) plan.kept_bytes += each.bytes;
  for (Candidate& each : all) {
    each.is_old = limit && plan.now - each.time > *limit;
    if (!each.is_old && !(most && plan.kept_bytes > *most)) {
      ++plan.kept;
      continue;
    }
    plan.kept_bytes -= each.bytes;
    plan.going_bytes += each.bytes;
    plan.going.push_back(std::move(each));
  }
  return plan;
}

void tell(const Candidate& each, const admin::OldVersion& version, const Options& options,
          std::int64_t now, ChangeReport& report) {
  using Fate = admin::OldVersion::Fate;
  const Subject subject = subject_of(each.entry);
  switch (version.fate) {
    case Fate::kMeanwhile: return report.skipped(subject, "used or changed since it was examined");
    case Fate::kInUse: return report.skipped(subject, "another process has it open");
    case Fate::kFailed: return report.failed(subject, version.reason);
    case Fate::kRemoved: break;
    default: return;
  }
  const std::int64_t age = now - each.time;
  const Json fields = {{"by", options.by},    {"time", each.time},
                       {"age", age},          {"reason", each.is_old ? "age" : "size"},
                       {"bytes", each.bytes}, {"part_folders", each.parts}};
  report.done(
      subject, fields,
      formatted("{} {} ago, {}{}", options.by_access() ? "read" : "changed", format_age(age),
                format_bytes(each.bytes), each.is_old ? "" : ", to reach --max-size"));
  report.add_bytes(each.bytes);
}

/// The most versions in a batch. A batch loads and saves each index once.
constexpr std::size_t kMostAtOnce = 1000;

/// @return how many of the versions it took.
std::size_t clean_batch(Context& context, const Options& options, std::int64_t now,
                        std::span<const Candidate> rest, ChangeReport& report) {
  using Fate = admin::OldVersion::Fate;
  const std::span<const Candidate> batch = rest.first(std::min(rest.size(), kMostAtOnce));
  std::deque<Removal> all;
  std::vector<Removal*> wanted;
  for (const Candidate& each : batch) {
    const auto is_same = [&](admin::LockedFile&) {
      const sys::Info info = sys::describe(each.entry.path());
      return info.kind == sys::Kind::kFile && info.size == each.entry.info.size &&
             info.change_mark == each.entry.info.change_mark && options.time_of(info) == each.time;
    };
    Removal& removal = all.emplace_back(each.entry, is_same);
    try {
      check_name("the name", each.entry.name);
      check_no_link(context, each.entry.path());
      wanted.push_back(&removal);
      if (context.is_dry_run()) removal.version.fate = Fate::kRemoved;
    } catch (const Failure& failure) {
      removal.version.fate = Fate::kFailed;
      removal.version.reason = failure.what();
    }
  }
  std::optional<Failure> end;
  if (!context.is_dry_run()) end = remove_together(context, wanted);
  for (std::size_t i = 0; i < batch.size(); ++i)
    tell(batch[i], all[i].version, options, now, report);
  if (end) throw Failure(*end);
  return batch.size();
}

Exit run_clean(Context& context, const Options& options) {
  context.tree();
  if (options.what_if)
    return run_what_if(context, options.by_access(), parse_size(options.target_size));
  if (options.older_than.empty() && options.max_size.empty())
    misused("nothing says what to remove; use --older-than AGE, --max-size SIZE, or both");
  if (!context.options().owner.empty()) check_name("the owner", context.options().owner);
  const Plan plan = plan_of(context, options);
  Json sums = {
      {"by", options.by}, {"now", plan.now}, {"kept", plan.kept}, {"kept_bytes", plan.kept_bytes}};
  const char* const age = age_by(options.by_access());
  ChangeReport report(context, "stgctl.clean/1", "removed");
  if (plan.going.empty()) {
    context.out().note(formatted("stgctl: nothing to remove; {} kept ({})", plan.kept, age));
    return report.finish(sums, format_bytes(0));
  }
  context.begin_changes(formatted("Remove {} versions, {}, and keep {}, {} ({})?",
                                  plan.going.size(), format_bytes(plan.going_bytes), plan.kept,
                                  format_bytes(plan.kept_bytes), age));
  const auto clean = [&](std::span<const Candidate> rest) {
    return clean_batch(context, options, plan.now, rest, report);
  };
  report.in_batches("cleaning", std::span(plan.going), &Candidate::name, clean);
  sums["bytes"] = report.bytes();
  return report.finish(
      sums, formatted("{} freed, {} kept ({})", format_bytes(report.bytes()), plan.kept, age));
}

}  // namespace

Commands clean_command() {
  return {{"clean", Group::kChange, Effect::kChanges,
           "Remove documents that were not used for a long time", run_clean,
           "Removes versions of the area docs, or of --area, with their sub-parts. --dry-run\n"
           "lists exactly what would be removed. Orphans stay, unlike in the library's own\n"
           "sweep, and key lines stay too. A file system mounted with noatime or relatime does\n"
           "not record the time of every access."}};
}

}  // namespace stgctl
