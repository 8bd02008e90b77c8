#include "tests/support/os_faults.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults_plan.h"

namespace os::faults {

Plan& plan() {
  static auto* const the_plan = new Plan;
  return *the_plan;
}

namespace {

// clang-format off
constexpr std::array<const char*, kFunctions + 2> kNames = {
    "open", "close", "read", "write", "seek", "set_end", "size", "reserve",
    "take_time", "flush", "lock", "unlock",
    "probe_attributes", "probe_search", "list", "stat", "same_file", "open_folder", "make_writable",
    "create_directory", "remove_directory", "remove_file", "rename", "copy", "flush_file",
    "short_path",
    "current_directory", "full_path", "program_folder", "temporary_folder", "environment",
    "to_narrow", "narrow_of", "utf8_of", "native_form", "is_lead_byte", "last_error", "error_text",
    "error_text_wide", "now", "nt_family", "locks_belong_to_handles",
    "any", "system"};
// clang-format on

std::shared_ptr<Rule> rule_for(Call call, std::uint64_t nth, Times times) {
  auto rule = std::make_shared<Rule>();
  rule->call = call;
  rule->nth = nth;
  rule->times = times;
  return rule;
}

}  // namespace

const char* name(Call call) { return kNames.at(index_of(call)); }

Fault::Fault(std::shared_ptr<Rule> rule) : m_rule(std::move(rule)) {
  const std::scoped_lock guard(plan().mutex);
  plan().rules.push_back(m_rule);
}

Fault::~Fault() {
  const std::scoped_lock guard(plan().mutex);
  std::erase(plan().rules, m_rule);
}

std::uint64_t Fault::hits() const {
  const std::scoped_lock guard(plan().mutex);
  return m_rule->hits;
}

Fault fail(Call call, Status status, std::uint64_t nth, Times times) {
  auto rule = rule_for(call, nth, times);
  rule->status = status;
  return Fault(std::move(rule));
}

Fault fail_with(Call call, std::exception_ptr exception, std::uint64_t nth, Times times) {
  auto rule = rule_for(call, nth, times);
  rule->exception = std::move(exception);
  return Fault(std::move(rule));
}

Fault cut_transfer(Call call, std::size_t bytes, Status status, std::uint64_t nth, Times times) {
  auto rule = rule_for(call, nth, times);
  rule->most_bytes = bytes;
  rule->status = status;
  return Fault(std::move(rule));
}

Fault before(Call call, std::function<void()> hook, std::uint64_t nth, Times times) {
  auto rule = rule_for(call, nth, times);
  rule->before = std::move(hook);
  return Fault(std::move(rule));
}

Fault after(Call call, std::function<void()> hook, std::uint64_t nth, Times times) {
  auto rule = rule_for(call, nth, times);
  rule->after = std::move(hook);
  return Fault(std::move(rule));
}

Fault end_process_before(Call call, std::uint64_t nth) {
  return before(
      call, [] { std::_Exit(kEnded); }, nth);
}

Fault end_process_after(Call call, std::uint64_t nth) {
  return after(
      call, [] { std::_Exit(kEnded); }, nth);
}

Fault set_now(std::int64_t seconds) {
  auto rule = rule_for(Call::now, 1, Times::kLasting);
  rule->now = seconds;
  return Fault(std::move(rule));
}

Fault set_lead_bytes(std::string bytes) {
  auto rule = rule_for(Call::is_lead_byte, 1, Times::kLasting);
  rule->lead_bytes = std::move(bytes);
  return Fault(std::move(rule));
}

Fault set_nt_family(bool answer) {
  auto rule = rule_for(Call::nt_family, 1, Times::kLasting);
  rule->nt_family = answer;
  return Fault(std::move(rule));
}

std::uint64_t calls(Call call) {
  const std::scoped_lock guard(plan().mutex);
  if (call < Call::any) return plan().counters[index_of(call)];
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < kFunctions; ++i) {
    if (concerns(call, static_cast<Call>(i))) sum += plan().counters[i];
  }
  return sum;
}

void reset() {
  const std::scoped_lock guard(plan().mutex);
  plan().counters.fill(0);
}

void begin_sequence() {
  const std::scoped_lock guard(plan().mutex);
  plan().sequence.emplace();
}

std::vector<Call> end_sequence() {
  const std::scoped_lock guard(plan().mutex);
  return *std::exchange(plan().sequence, std::nullopt);
}

Watch::Watch(std::function<void(const Made&)> watcher) {
  const std::scoped_lock guard(plan().mutex);
  plan().watcher = std::move(watcher);
  plan().is_watched = true;
}

Watch::~Watch() {
  const std::scoped_lock guard(plan().mutex);
  plan().is_watched = false;
  plan().watcher = nullptr;
}

Conducted::Conducted(Conductor& conductor) { plan().conductor = &conductor; }
Conducted::~Conducted() { plan().conductor = nullptr; }

void sort_by_name(Listing& entries) {
  std::vector<Entry> sorted;
  for (const Entry entry : entries) sorted.push_back(entry);
  std::sort(sorted.begin(), sorted.end(),
            [](const Entry& one, const Entry& other) { return one.name < other.name; });
  Listing result;
  for (const Entry& entry : sorted) result.append(entry.name, entry.kind);
  entries = std::move(result);
}

}  // namespace os::faults
