#include "client/stgctl/repair.h"

#include <nlohmann/json.hpp>

#include "client/stgctl/names_file.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/paths.h"

namespace stgctl {

using admin::LockedFile;

namespace {

constexpr const char* kEnding = ".quarantine";
constexpr const char* kManifest = "manifest.jsonl";
constexpr const char* kSchema = "stgctl.quarantine/1";
constexpr std::string_view kPlan = "plan-";

std::string plan_name(std::uint64_t number) { return formatted("{}{:04}", kPlan, number); }

void check(const os::Status& status, const std::string& path) {
  if (status.ok()) return;
  if (status.failure() == os::Failure::kLocked)
    locked_out("{} is used by another repair or undo; {}", shown(path), sys::kLockAdvice);
  fail("{}: {}", shown(path), sys::text_of(status));
}

void make_folder(const std::string& path) {
  const os::Status made = os::create_directory(path);
  if (made.failure() == os::Failure::kAlreadyExists &&
      sys::describe(path).kind == sys::Kind::kFolder)
    return;
  check(made, path);
}

/// Whether a plan has its first line: a process may have been stopped before it wrote one.
bool is_begun(const std::string& plan) {
  const std::string manifest = sys::join(plan, kManifest);
  if (sys::describe(plan).kind != sys::Kind::kFolder) return false;
  if (sys::describe(manifest).kind != sys::Kind::kFile) return false;
  std::string text;
  const os::Status read = sys::read_file(manifest, sys::Locking::none(), text);
  return !read.ok() || text.find('\n') != std::string::npos;
}

}  // namespace

std::string quarantine_folder(Context& context, const std::string& option) {
  const std::string storage = sys::absolute(context.storage());
  if (option.empty()) return storage + kEnding;
  std::error_code error;
  fs::path named = fs::absolute(to_path(option), error).lexically_normal();
  if (!named.has_filename()) named = named.parent_path();
  const std::string folder = place_outside(context, from_path(named));
  if (folder == storage) refuse("{} is in the tree; name a place outside the tree", shown(option));
  return folder;
}

std::vector<std::uint64_t> applied_plans(const std::string& quarantine) {
  std::vector<std::uint64_t> numbers;
  std::vector<sys::Child> plans;
  const os::Status listed = sys::list_sorted(quarantine, plans);
  if (listed.failure() == os::Failure::kNotFound) return numbers;
  check(listed, quarantine);
  for (const auto& [name, kind] : plans) {
    if (!name.starts_with(kPlan)) continue;
    const auto number = parse_number<std::uint64_t>(std::string_view(name).substr(kPlan.size()));
    if (number && is_begun(sys::join(quarantine, name))) numbers.push_back(*number);
  }
  std::ranges::sort(numbers);
  return numbers;
}

std::vector<std::uint64_t> plans_of_tree(Context& context, const std::string& quarantine,
                                         const std::function<bool(const PlanRecord&)>& wanted,
                                         std::uint64_t omitted) {
  std::vector<std::uint64_t> numbers;
  for (const std::uint64_t number : applied_plans(quarantine)) {
    if (number == omitted) continue;
    const AppliedPlan plan(context, quarantine, number, LockedFile::For::kReading);
    if (plan.record().storage == context.tree().storage && wanted(plan.record()))
      numbers.push_back(number);
  }
  return numbers;
}

std::uint64_t remove_plan(const std::string& quarantine, std::uint64_t number) {
  const std::string folder = sys::join(quarantine, plan_name(number));
  const std::uint64_t bytes = count_below(folder).bytes;
  std::vector<sys::Child> children;
  static_cast<void>(sys::list_sorted(folder, children));
  std::vector<std::string> items;
  for (const auto& [name, kind] : children) {
    if (name != kManifest) items.push_back(sys::join(folder, name));
  }
  items.push_back(sys::join(folder, kManifest));
  items.push_back(folder);
  for (const std::string& item : items) {
    std::error_code error;
    fs::remove_all(to_path(item), error);
    if (error) fail("{} cannot be removed: {}", shown(item), error.message());
  }
  return bytes;
}

// ---- one plan ----------------------------------------------------------------------------------

std::string AppliedPlan::folder() const {
  return sys::join(m_quarantine, plan_name(m_record.number));
}

std::string AppliedPlan::path() const { return sys::join(folder(), kManifest); }

std::string AppliedPlan::item(const RepairStep& step) const {
  return sys::join(folder(), formatted("{:04}", step.number));
}

AppliedPlan::AppliedPlan(Context& context, const std::string& folder, std::uint64_t number,
                         LockedFile::For purpose)
    : m_quarantine(folder), m_manifest(std::make_unique<LockedFile>()) {
  m_record.number = number;
  check(m_manifest->open(path(), purpose, context.locking()), path());
  std::string text;
  check(m_manifest->read_all(text), path());
  read(std::string_view(text));
}

AppliedPlan AppliedPlan::begin(Context& context, const std::string& folder,
                               const std::string& digest, std::int64_t keep) {
  make_folder(folder);
  const std::vector<std::uint64_t> numbers = applied_plans(folder);
  const std::uint64_t number = numbers.empty() ? 1 : numbers.back() + 1;
  make_folder(sys::join(folder, plan_name(number)));
  AppliedPlan plan(context, folder, number, LockedFile::For::kCreating);
  if (plan.m_end != 0)
    fail("{} was just created by another repair; run the command again", shown(plan.path()));
  const std::int64_t now = os::now();
  plan.append("begin", {{"plan", digest},
                        {"storage", context.tree().storage},
                        {"time", now},
                        {"expires", now + keep}});
  return plan;
}

void AppliedPlan::read(std::string_view text) {
  // A line without an end is unfinished: its writer was stopped. It is ignored.
  for (std::size_t end; (end = text.find('\n')) != std::string_view::npos;) {
    const auto record = nlohmann::json::parse(text.substr(0, end), nullptr, false);
    if (!record.is_object()) fail("{} is damaged", shown(path()));
    read(record);
    text.remove_prefix(end + 1);
    m_end += end + 1;
  }
}

void AppliedPlan::read(const nlohmann::json& record) {
  const std::string kind = record.value("record", "");
  const std::size_t number = record.value("step", std::size_t{0});
  if (kind == "begin") {
    m_record.storage = name_in(record, "storage");
    m_record.digest = record.value("plan", "");
    m_record.time = record.value("time", std::int64_t{0});
    m_record.expires = record.value("expires", std::int64_t{0});
  } else if (kind == "step") {
    m_record.steps.push_back({number, repair_of(record), false, record.value("after", ""),
                              record.value("was_missing", false)});
  } else if (kind == "done") {
    for (RepairStep& step : m_record.steps) step.is_done = step.is_done || step.number == number;
  } else if (kind == "complete") {
    m_record.is_complete = true;
  } else if (kind == "undone") {
    m_record.is_undone = true;
  }
}

/// Adds a line to the manifest, and reads it.
void AppliedPlan::append(const char* kind, const Json& fields) {
  Json record = {{"schema", kSchema}, {"record", kind}};
  record.update(fields);
  const std::string line = record.dump() + "\n";
  // First removes what a stopped writer left after the last whole line, because it would join the
  // next line.
  if (m_manifest->size() != m_end) check(m_manifest->cut_at(m_end), path());
  os::Status status = m_manifest->write_at(m_end, line);
  if (status.ok()) status = m_manifest->flush();
  if (!status.ok()) static_cast<void>(m_manifest->cut_at(m_end));
  check(status, path());
  read(std::string_view(line));
}

const RepairStep* AppliedPlan::unfinished(const Repair& repair) const {
  const auto is_it = [&](const RepairStep& step) {
    return !step.is_done && step.repair.kind == repair.kind && step.repair.path == repair.path;
  };
  const auto found = std::find_if(m_record.steps.rbegin(), m_record.steps.rend(), is_it);
  return found == m_record.steps.rend() ? nullptr : &*found;
}

RepairStep AppliedPlan::begin_step(const Repair& repair, const std::string* before,
                                   const std::string& after, bool was_missing) {
  if (const RepairStep* const step = unfinished(repair)) return *step;
  RepairStep step;
  step.number = m_record.steps.empty() ? 1 : m_record.steps.back().number + 1;
  if (before != nullptr) {
    LockedFile file;
    os::Status status = file.open(item(step), LockedFile::For::kCreating, {});
    if (status.ok()) status = file.cut_at(0);
    if (status.ok()) status = file.write_at(0, *before);
    if (status.ok()) status = file.flush();
    check(status, item(step));
  }
  Json fields = {{"step", step.number}};
  fields.update(fields_of(repair));
  if (!after.empty()) fields["after"] = after;
  if (was_missing) fields["was_missing"] = true;
  append("step", fields);
  return m_record.steps.back();
}

void AppliedPlan::note_done(const RepairStep& step) { append("done", {{"step", step.number}}); }

void AppliedPlan::note_complete() {
  if (!m_record.is_complete) append("complete", {{"time", os::now()}});
}

void AppliedPlan::note_undone() { append("undone", {{"time", os::now()}}); }

}  // namespace stgctl
