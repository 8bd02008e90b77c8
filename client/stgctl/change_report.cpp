#include "client/stgctl/change_report.h"

namespace stgctl {

Subject subject_in(admin::Area area, std::string owner, std::string name,
                   std::optional<std::int32_t> timestamp) {
  return {std::string(admin::name_of(area)), std::move(owner), std::move(name), timestamp};
}

std::string shown(const Subject& subject) {
  std::string text;
  for (const std::string* part : {&subject.area, &subject.owner, &subject.name}) {
    if (part->empty()) continue;
    if (!text.empty()) text += '/';
    text += shown(std::string_view(*part));
  }
  if (subject.timestamp) text += formatted("@{}", *subject.timestamp);
  return text;
}

void put_subject(Json& object, const Subject& subject) {
  if (!subject.area.empty()) object["area"] = subject.area;
  if (!subject.owner.empty()) object["owner"] = subject.owner;
  if (!subject.name.empty()) object["name"] = subject.name;
  if (subject.timestamp) object["timestamp"] = *subject.timestamp;
}

ChangeReport::ChangeReport(Context& context, const char* schema, std::string done)
    : m_context(context), m_schema(schema), m_verb(std::move(done)) {}

void ChangeReport::line(const char* action, const Subject& subject, Json fields,
                        std::string_view text, Style style) {
  Output& out = m_context.out();
  Json record = {{"record", "entry"}, {"action", action}};
  put_subject(record, subject);
  record.update(fields);
  out.result(m_schema, record, "{}{}  {}{}{}\n", m_context.is_dry_run() ? "would be " : "",
             out.styled(style, action), shown(subject), text.empty() ? "" : "  ", text);
}

void ChangeReport::done(const Subject& subject, const Json& fields, std::string_view tail) {
  done_as(m_verb.c_str(), subject, fields, tail);
}

void ChangeReport::done_as(const char* action, const Subject& subject, const Json& fields,
                           std::string_view tail) {
  ++m_done;
  line(action, subject, fields, tail, Style::kGreen);
}

void ChangeReport::also_done(const char* action, const Subject& subject, std::string_view tail) {
  ++m_also_done;
  line(action, subject, Json::object(), tail, Style::kGreen);
}

void ChangeReport::skipped(const Subject& subject, const std::string& reason) {
  ++m_skipped;
  line("skipped", subject, {{"reason", reason}}, reason, Style::kYellow);
}

void ChangeReport::failed(const Subject& subject, const std::string& reason) {
  ++m_failed;
  Output& out = m_context.out();
  if (out.json()) line("failed", subject, {{"reason", reason}}, reason, Style::kRed);
  out.error(formatted("{}: {}", shown(subject), reason));
}

std::string ChangeReport::speed() const {
  if (seconds() < 1) return {};
  return formatted(", {:.0f} files/s", static_cast<double>(m_done) / seconds());
}

bool ChangeReport::guarded(const std::function<void()>& work) {
  const auto begin = std::chrono::steady_clock::now();
  std::optional<Failure> end;
  try {
    work();
  } catch (const Failure& failure) {
    if (!failure.ends_work()) throw;
    end = failure;
  }
  m_seconds = std::chrono::steady_clock::now() - begin;
  if (end && end->code() == Exit::kLockTimeout) {
    m_lock_missed = true;
    m_context.out().error(end->what());
  }
  return !end;
}

bool ChangeReport::guarded(const char* what, std::uint64_t total,
                           const std::function<void(Progress& progress)>& work) {
  return guarded([&] {
    Progress progress(m_context.out(), what, total);
    work(progress);
  });
}

Exit ChangeReport::finish(const Json& sums, std::string_view tail) {
  Output& out = m_context.out();
  const bool interrupted = Context::interrupted();
  const bool dry = m_context.is_dry_run();
  Json record = {{"record", "summary"},  {"dry_run", dry},     {"done", m_done},
                 {"skipped", m_skipped}, {"failed", m_failed}, {"interrupted", interrupted}};
  record.update(sums);
  std::string text = formatted("{} {}{}", m_done, dry ? "would be " : "", m_verb);
  if (m_skipped > 0) text += formatted(", {} skipped", m_skipped);
  if (m_failed > 0) text += formatted(", {} failed", m_failed);
  if (!tail.empty()) text += formatted(", {}", tail);
  if (dry) text += "; nothing was changed";
  if (interrupted) text += "; interrupted";
  out.result(m_schema, record, "{}\n", out.styled(Style::kBold, text));
  if (interrupted) return Exit::kInterrupted;
  const bool any_done = m_done + m_also_done > 0;
  if (m_lock_missed) return any_done ? Exit::kPartlyDone : Exit::kLockTimeout;
  if (m_failed > 0) return any_done ? Exit::kPartlyDone : Exit::kFailed;
  return any_done || m_skipped > 0 ? Exit::kDone : Exit::kNothingMatched;
}

}  // namespace stgctl
