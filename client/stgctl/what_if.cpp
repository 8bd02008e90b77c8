#include "client/stgctl/what_if.h"

#include <ctime>

#include "client/stgctl/target.h"
#include "client/stgctl/terminal.h"

namespace stgctl {

namespace {

using admin::Curve;
using admin::LimitFor;
using admin::Loss;

constexpr const char* kSchema = "stgctl.what-if/1";
constexpr std::int64_t kHour = 3600;
constexpr std::int64_t kDay = 24 * kHour;

/// The number in the largest unit that measures it: "37d", and in words "37 days".
std::pair<std::string, std::string> limit_texts(std::int64_t seconds) {
  const bool in_days = seconds >= kDay && seconds % kDay == 0;
  const bool in_hours = seconds >= kHour && seconds % kHour == 0;
  const std::string unit = in_days ? "day" : in_hours ? "hour" : "second";
  const std::int64_t number = seconds / (in_days ? kDay : in_hours ? kHour : 1);
  return {formatted("{}{}", number, unit[0]),
          formatted("{} {}{}", number, unit, number == 1 ? "" : "s")};
}

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
    fields["limit"] = limit_texts(*limit.limit).first;
    fields["limit_seconds"] = *limit.limit;
  }
  fields["lost"] = json_of(limit.loss);
  fields["kept_bytes"] = limit.kept;
  return fields;
}

void show_json(Context& context, const admin::Forecast& forecast, bool by_access, std::int64_t now,
               std::optional<std::uint64_t> target) {
  for (const Curve& curve : forecast.owners()) {
    Json fields = {{"record", "owner"}};
    fields["owner"] = curve.owner;
    fields.update(json_of(curve));
    context.out().json_line(kSchema, fields);
  }
  Json fields = {{"record", "summary"}, {"by", by_access ? "atime" : "mtime"}, {"now", now}};
  fields.update(json_of(forecast.all()));
  if (target) fields["target"] = json_of(*target, forecast.limit_for(*target));
  context.out().json_line(kSchema, fields);
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
  out.print("What would be removed, {}; 'lost' counts documents that would lose every version.\n",
            by_access ? "by the time of the last access" : "by the time of the last change");
  show_curve(context, "all", forecast.all());
  if (forecast.owners().size() > 1) {
    for (const Curve& curve : forecast.owners())
      show_curve(context, shown(std::string_view(curve.owner)), curve);
  }
  if (target)
    out.print("{}\n", out.styled(Style::kBold, sentence_for(*target, forecast.limit_for(*target))));
}

}  // namespace

std::string sentence_for(std::uint64_t target, const LimitFor& limit) {
  if (limit.is_needless) {
    return formatted("to reach {} nothing must be removed: the size is {}", format_bytes(target),
                     format_bytes(limit.kept));
  }
  if (!limit.limit) {
    return formatted("to reach {} no age limit is enough: the youngest versions alone are larger",
                     format_bytes(target));
  }
  const auto [typed, in_words] = limit_texts(*limit.limit);
  return formatted(
      "to reach {} the limit is {} (--older-than {}): {} in {} versions are removed, {} documents "
      "are lost, {} stay",
      format_bytes(target), in_words, typed, format_bytes(limit.loss.bytes), limit.loss.versions,
      limit.loss.documents, format_bytes(limit.kept));
}

admin::Forecast forecast_of(Context& context, const admin::Scope& scope, bool by_access,
                            std::int64_t now) {
  auto asked = context.walk<admin::ForecastOptions>();
  asked.scope = scope;
  asked.by_access = by_access;
  asked.now = now;
  const Progress progress(context.out(), "counting", asked);
  admin::Forecast forecast;
  walk_whole([&](const admin::FailureSink& failed) {
    return admin::forecast_cleaning(context.tree(), asked, failed, forecast);
  });
  return forecast;
}

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

}  // namespace stgctl
