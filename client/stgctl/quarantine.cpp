#include "client/stgctl/quarantine.h"

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <memory>
#include <system_error>

#include "client/admin/name_snapshot.h"
#include "client/stgctl/command.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace fs = std::filesystem;
namespace sys = admin::sys;
using admin::LockedFile;

namespace {

constexpr const char* kEnding = ".quarantine";
constexpr const char* kManifest = "manifest.jsonl";
constexpr const char* kSchema = "stgctl.quarantine/1";
constexpr std::string_view kPlan = "plan-";

std::string plan_name(std::uint64_t number) { return formatted("{}{:04}", kPlan, number); }

void check(const os::Status& status, const std::string& path) {
  if (status.ok()) return;
  if (status.failure() == os::Failure::kLocked) {
    throw Failure(Exit::kLockTimeout,
                  shown(path) + " is used by another repair or undo (--lock-timeout)");
  }
  throw Failure(Exit::kFailed, formatted("{}: {}", shown(path), sys::text_of(status)));
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
  if (sys::describe(manifest).kind != sys::Kind::kFile) return false;
  std::string text;
  sys::Locking no_lock;
  no_lock.mode = sys::Locking::Mode::kNone;
  const os::Status read = sys::read_file(manifest, no_lock, text);
  return !read.ok() || text.find('\n') != std::string::npos;
}

}  // namespace

std::string quarantine_folder(Context& context, const std::string& option) {
  const std::string storage = sys::absolute(context.storage());
  if (option.empty()) return storage + kEnding;
  std::error_code error;
  const fs::path folder = fs::absolute(to_path(option), error).lexically_normal();
  const fs::path named = folder.has_filename() ? folder : folder.parent_path();
  const std::string parent = sys::absolute(from_path(named.parent_path()));
  if (error || parent == storage || parent.starts_with(storage + sys::kSeparator) ||
      sys::join(parent, from_path(named.filename())) == storage) {
    throw Failure(Exit::kRefused, shown(option) + " is in the tree; name a place outside the tree");
  }
  return sys::join(parent, from_path(named.filename()));
}

QuarantineOption::QuarantineOption(Arguments app)
    : TextOption(app, "--quarantine", "DIR",
                 "The folder for what repairs move away (beside the storage folder: "
                 "'storage.quarantine')") {}

std::string digest_of(std::string_view bytes) {
  const admin::names_format::Digest digest = admin::names_format::digest_of(bytes);
  return formatted("{:016x}{:016x}", digest.high, digest.low);
}

std::vector<std::uint64_t> applied_plans(const std::string& quarantine) {
  std::vector<std::uint64_t> numbers;
  sys::Folder listing;
  const os::Status opened = listing.open(quarantine);
  if (opened.failure() == os::Failure::kNotFound) return numbers;
  check(opened, quarantine);
  sys::Entry entry;
  while (listing.next(entry)) {
    if (entry.kind != sys::Kind::kFolder || !entry.name.starts_with(kPlan)) continue;
    const std::string_view digits = entry.name.substr(kPlan.size());
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool is_number = error == std::errc() && end == digits.data() + digits.size();
    if (is_number && is_begun(sys::join(quarantine, std::string(entry.name))))
      numbers.push_back(number);
  }
  std::sort(numbers.begin(), numbers.end());
  return numbers;
}

std::uint64_t remove_plan(const std::string& quarantine, std::uint64_t number) {
  const std::string folder = sys::join(quarantine, plan_name(number));
  std::error_code error;
  std::uint64_t bytes = 0;
  for (const fs::directory_entry& entry :
       fs::recursive_directory_iterator(to_path(folder), error)) {
    std::error_code ignored;
    if (entry.is_regular_file(ignored) && !entry.is_symlink(ignored))
      bytes += entry.file_size(ignored);
  }
  std::vector<fs::path> items;
  for (const fs::directory_entry& entry : fs::directory_iterator(to_path(folder), error)) {
    if (entry.path().filename() != kManifest) items.push_back(entry.path());
  }
  items.push_back(to_path(sys::join(folder, kManifest)));
  items.push_back(to_path(folder));
  for (const fs::path& item : items) {
    fs::remove_all(item, error);
    if (error) {
      throw Failure(Exit::kFailed,
                    formatted("{} cannot be removed: {}", shown(from_path(item)), error.message()));
    }
  }
  return bytes;
}

// ---- one plan ----------------------------------------------------------------------------------

std::string AppliedPlan::folder() const { return sys::join(m_quarantine, plan_name(m_number)); }

std::string AppliedPlan::item(const Step& step) const {
  return sys::join(folder(), formatted("{:04}", step.number));
}

AppliedPlan AppliedPlan::open(Context& context, const std::string& folder, std::uint64_t number,
                              LockedFile::For purpose) {
  AppliedPlan plan;
  plan.m_quarantine = folder;
  plan.m_number = number;
  plan.m_manifest = std::make_unique<LockedFile>();
  const std::string path = sys::join(plan.folder(), kManifest);
  check(plan.m_manifest->open(path, purpose, LockedFile::IfMissing::kFail, context.locking()),
        path);
  std::string text;
  check(plan.m_manifest->read_all(text), path);
  plan.read(text);
  return plan;
}

AppliedPlan AppliedPlan::begin(Context& context, const std::string& folder,
                               const std::string& digest, std::int64_t keep) {
  make_folder(folder);
  AppliedPlan plan;
  plan.m_quarantine = folder;
  const std::vector<std::uint64_t> numbers = applied_plans(folder);
  plan.m_number = numbers.empty() ? 1 : numbers.back() + 1;
  make_folder(plan.folder());
  plan.m_manifest = std::make_unique<LockedFile>();
  const std::string path = sys::join(plan.folder(), kManifest);
  check(plan.m_manifest->open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kMake,
                              context.locking()),
        path);
  std::string text;
  check(plan.m_manifest->read_all(text), path);
  if (text.find('\n') != std::string::npos) {
    throw Failure(Exit::kFailed,
                  shown(path) + " was just created by another repair; run the command again");
  }
  plan.m_storage = context.tree().storage;
  plan.m_digest = digest;
  plan.m_time = os::now();
  plan.m_expires = plan.m_time + keep;
  Json record = {{"schema", kSchema}, {"record", "begin"}, {"plan", digest}};
  put_name(record, "storage", plan.m_storage);
  record["time"] = plan.m_time;
  record["expires"] = plan.m_expires;
  plan.append(record);
  return plan;
}

void AppliedPlan::read(const std::string& text) {
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = text.find('\n', at);
    // A line without an end is unfinished: its writer was stopped. It is ignored.
    if (end == std::string::npos) break;
    const Json record = Json::parse_or_null(std::string_view(text).substr(at, end - at));
    if (!record.is_object()) {
      throw Failure(Exit::kFailed, shown(sys::join(folder(), kManifest)) + " is damaged");
    }
    const std::string kind = record.value("record", "");
    if (kind == "begin") {
      m_storage = name_in(record, "storage");
      m_digest = record.value("plan", "");
      m_time = record.value("time", std::int64_t{0});
      m_expires = record.value("expires", std::int64_t{0});
    } else if (kind == "step") {
      Step step;
      step.number = record.value("step", std::size_t{0});
      step.repair = repair_of(record);
      step.after = record.value("after", "");
      step.was_missing = record.value("was_missing", false);
      m_steps.push_back(std::move(step));
    } else if (kind == "done") {
      for (Step& step : m_steps)
        step.is_done = step.is_done || step.number == record.value("step", std::size_t{0});
    } else if (kind == "complete") {
      m_is_complete = true;
    } else if (kind == "undone") {
      m_is_undone = true;
    }
    at = end + 1;
    m_end = at;
  }
}

void AppliedPlan::append(const Json& record) {
  const std::string line = record.dump() + "\n";
  const std::string path = sys::join(folder(), kManifest);
  // First removes what a stopped writer left after the last whole line, because it would join the
  // next line.
  if (m_manifest->size() != m_end) check(m_manifest->cut_at(m_end), path);
  os::Status status = m_manifest->write_at(m_end, line);
  if (status.ok()) status = m_manifest->flush();
  if (!status.ok()) static_cast<void>(m_manifest->cut_at(m_end));
  check(status, path);
  m_end += line.size();
}

const Step* AppliedPlan::unfinished(const Repair& repair) const {
  for (auto step = m_steps.rbegin(); step != m_steps.rend(); ++step) {
    if (!step->is_done && step->repair.kind == repair.kind && step->repair.path == repair.path)
      return &*step;
  }
  return nullptr;
}

const Step& AppliedPlan::note(const Repair& repair, const std::string* before,
                              const std::string& after, bool was_missing) {
  Step step;
  step.number = m_steps.empty() ? 1 : m_steps.back().number + 1;
  step.repair = repair;
  step.after = after;
  step.was_missing = was_missing;
  if (before != nullptr) {
    const std::string path = item(step);
    LockedFile file;
    os::Status status =
        file.open(path, LockedFile::For::kChanging, LockedFile::IfMissing::kMake, {});
    if (status.ok()) status = file.cut_at(0);
    if (status.ok()) status = file.write_at(0, *before);
    if (status.ok()) status = file.flush();
    check(status, path);
  }
  Json record = {{"schema", kSchema}, {"record", "step"}, {"step", step.number}};
  record.update(fields_of(repair));
  if (!after.empty()) record["after"] = after;
  if (was_missing) record["was_missing"] = true;
  append(record);
  return m_steps.emplace_back(std::move(step));
}

void AppliedPlan::note_done(const Step& step) {
  const std::size_t number = step.number;
  append({{"schema", kSchema}, {"record", "done"}, {"step", number}});
  for (Step& each : m_steps) each.is_done = each.is_done || each.number == number;
}

void AppliedPlan::note_complete() {
  if (m_is_complete) return;
  append({{"schema", kSchema}, {"record", "complete"}, {"time", os::now()}});
  m_is_complete = true;
}

void AppliedPlan::note_undone() {
  append({{"schema", kSchema}, {"record", "undone"}, {"time", os::now()}});
  m_is_undone = true;
}

}  // namespace stgctl
