#include "client/stgctl/look.h"

namespace stgctl {

void take_key_file(Context& context, std::string& name) {
  const std::string typed = name;
  std::string timestamp;
  context.take_apart(name, timestamp);
  if (!timestamp.empty() && timestamp != "0")
    misused("{}: key files are read only at timestamp 0", shown(typed));
}

admin::Area document_area(Context& context, admin::Area fallback) {
  const admin::Area area = context.scope().area.value_or(fallback);
  if (admin::expects_index(area)) return area;
  misused("the library keeps no documents in the area {}; use --area docs, user or mail",
          admin::name_of(area));
}

std::string owner_or_none(Context& context) { return context.scope().owner.value_or(""); }

admin::FailureSink warn_of_failures(Context& context) {
  return [&context](const std::string& path, const std::string& why) {
    context.out().warning(formatted("{}: {}", shown(path), shown(why)));
  };
}

Exit exit_of(Context& context, const admin::EntryFailures& failures, bool any,
             const std::string& wanted) {
  if (failures.was_stopped || Context::interrupted()) return Exit::kInterrupted;
  if (failures.lock_missed) return Exit::kLockTimeout;
  if (failures.folders != 0) return any ? Exit::kPartlyDone : Exit::kFailed;
  if (!any) none_matches(context, wanted);
  return Exit::kDone;
}

void append_name(std::string& line, std::string_view name) {
  const bool plain =
      std::all_of(name.begin(), name.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
  if (plain) {
    line.append(name);
  } else {
    line.append(shown(name));
  }
}

void append_subject(std::string& line, const admin::EntryView& entry) {
  line.append(admin::name_of(entry.folder->area)).push_back('/');
  if (!entry.folder->owner.empty()) {
    append_name(line, entry.folder->owner);
    line.push_back('/');
  }
  append_name(line, entry.logical);
  line.push_back('@');
  append_formatted(line, "{}", entry.timestamp);
}

std::string subject_text(const admin::EntryView& entry) {
  std::string text;
  append_subject(text, entry);
  return text;
}

Json fields_of(const admin::EntryView& entry) {
  return {{"area", admin::name_of(entry.folder->area)},
          {"owner", entry.folder->owner},
          {"name", entry.logical},
          {"timestamp", entry.timestamp},
          {"state", admin::name_of(entry.state)},
          {"physical", entry.stored},
          {"file", entry.file},
          {"folder", entry.folder->path}};
}

void put_info(Json& object, const sys::Info& info) {
  object["bytes"] = info.size;
  object["modified"] = info.modify_time;
}

std::string place_of(const admin::Finding& finding) {
  return finding.name.empty() ? finding.folder : sys::join(finding.folder, finding.name);
}

Style style_of(std::string_view severity) {
  if (severity == "error") return Style::kRed;
  return severity == "warning" ? Style::kYellow : Style::kBlue;
}

void print_finding(Output& out, std::string_view severity, std::string_view code,
                   std::string_view where, std::string_view detail) {
  out.print("{} {}  {}{}{}\n", out.styled(style_of(severity), formatted("{:<7}", severity)),
            out.styled(Style::kBold, code), where, detail.empty() ? "" : ": ", shown(detail));
}

std::string_view name_of(sys::Knowledge known) {
  return admin::word_of(known, {"complete", "partial", "none"});
}

admin::EntryQuery query_of(Context& context, const std::string& pattern,
                           const std::string& timestamp) {
  auto query = context.walk<admin::EntryQuery>();
  if (!pattern.empty()) query.pattern = pattern;
  if (!timestamp.empty()) query.timestamp = parse_stamp(timestamp);
  return query;
}

Exit list_entries(Context& context, const admin::EntryQuery& query, const char* schema) {
  Output& out = context.out();
  bool any = false;
  std::string line;  // its memory is reused
  const auto show = [&](const admin::EntryView& entry) {
    any = true;
    if (out.json()) {
      Json fields = fields_of(entry);
      if (query.with_info) put_info(fields, entry.info);
      out.json_line(schema, fields);
      return !Context::interrupted();
    }
    line.clear();
    if (query.with_info) {
      append_formatted(line, "{:>10}  {}  ", format_bytes(entry.info.size),
                       format_time(entry.info.modify_time));
    }
    append_subject(line, entry);
    line += "  ";
    append_name(line, entry.file);
    if (entry.state == admin::EntryState::kUnindexed) line += "  (orphan)";
    if (entry.state == admin::EntryState::kMissing) line += "  (dangling)";
    line += '\n';
    out.write(line);
    return !Context::interrupted();
  };
  const admin::EntryFailures failures =
      admin::for_each_entry(context.tree(), query, show, warn_of_failures(context));
  return exit_of(context, failures, any, query.logical.value_or(query.pattern.value_or("")));
}

std::vector<FoundEntry> versions_of(Context& context, const EntryOptions& options,
                                    admin::EntryFailures& failures) {
  admin::EntryQuery query = query_of(context, "", options.timestamp);
  query.logical = options.name;
  query.with_info = true;
  std::vector<FoundEntry> found;
  failures = admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        found.emplace_back(entry);
        return true;
      },
      warn_of_failures(context));
  std::ranges::sort(found, {}, [](const FoundEntry& entry) {
    return std::tie(entry.folder.area, entry.folder.owner, entry.name, entry.timestamp);
  });
  return found;
}

// ---- what a clean would free -------------------------------------------------------------------

admin::Forecast forecast_of(Context& context, const admin::Scope& scope, bool by_access,
                            std::int64_t now) {
  auto asked = context.walk<admin::ForecastOptions>();
  asked.scope = scope;
  asked.by_access = by_access;
  asked.now = now;
  Progress progress(context.out(), "counting", asked);
  admin::Forecast forecast;
  walk_whole([&](const admin::FailureSink& failed) {
    return admin::forecast_cleaning(context.tree(), asked, failed, forecast);
  });
  return forecast;
}

std::string sentence_for(std::uint64_t target, const admin::LimitFor& limit) {
  if (limit.is_needless) {
    return formatted("to reach {} nothing must be removed: the size is {}", format_bytes(target),
                     format_bytes(limit.kept));
  }
  if (!limit.limit) {
    return formatted("to reach {} no age limit is enough: the youngest versions alone are larger",
                     format_bytes(target));
  }
  const ExactAge age = exact_age(*limit.limit);
  return formatted(
      "to reach {} the limit is {} (--older-than {}): {} in {} versions are removed, {} documents "
      "are lost, {} stay",
      format_bytes(target), age.in_words, age.typed, format_bytes(limit.loss.bytes),
      limit.loss.versions, limit.loss.documents, format_bytes(limit.kept));
}

}  // namespace stgctl
