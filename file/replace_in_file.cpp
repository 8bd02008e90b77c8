#include "file/replace_in_file.h"

#include <cstddef>
#include <optional>
#include <utility>

#include "file/replacement.h"

namespace replacement {

namespace {

constexpr std::int16_t kFromStart = 0;

}  // namespace

os::Status write_at(os::Handle handle, std::uint64_t offset, std::string_view bytes) {
  if (!std::in_range<std::int32_t>(offset + bytes.size())) return {0, os::Failure::kOther};
  os::Status status = os::seek(handle, static_cast<std::int32_t>(offset), kFromStart);
  if (!status.ok()) return status;
  std::size_t done = 0;
  status = os::write(handle, bytes.data(), bytes.size(), done);
  // What was not written is a failure, whatever the system says.
  if (status.ok() && done < bytes.size()) return {os::last_error(), os::Failure::kOther};
  return status;
}

namespace {

os::Status cut_at(os::Handle handle, std::uint64_t size) {
  if (!std::in_range<std::int32_t>(size)) return {0, os::Failure::kOther};
  const os::Status status = os::seek(handle, static_cast<std::int32_t>(size), kFromStart);
  return status.ok() ? os::set_end(handle) : status;
}

/// Writes and flushes one stage. @return whether it is complete.
bool carry_out(os::Handle handle, const Stage& stage, Outcome& outcome) {
  for (const Write& write : stage) {
    outcome.written = write_at(handle, write.offset, write.bytes);
    if (!outcome.written.ok()) return false;
  }
  outcome.flushed = os::flush(handle);
  return outcome.flushed.ok();
}

/// Leaves the old text after a stage that failed: what stands behind it goes. Where even that
/// fails, what stands there means nothing without a whole trailer. @return whether the file is cut.
bool take_back(os::Handle handle, std::string_view old_bytes, const Plan& plan) {
  // A replacement in place wrote over the old text itself.
  if (plan.first_over_old == 0) static_cast<void>(write_at(handle, 0, old_bytes));
  return cut_at(handle, old_bytes.size()).ok();
}

Outcome carry_out(os::Handle handle, std::string_view old_bytes, const Plan& plan, Holds before) {
  Outcome outcome;
  outcome.holds = before;
  if (plan.reserve > old_bytes.size()) outcome.written = os::reserve(handle, plan.reserve);
  if (!outcome.written.ok()) return outcome;
  for (std::size_t i = 0; i < plan.stages.size(); ++i) {
    if (i == plan.first_over_old && i > 0) outcome.holds = Holds::kNewText;
    if (carry_out(handle, plan.stages[i], outcome)) continue;
    const bool is_whole = outcome.written.ok() && i + 1 == plan.first_over_old;
    const bool is_taken_back =
        outcome.holds == Holds::kNewText || take_back(handle, old_bytes, plan);
    // A whole copy that could be neither flushed nor cut off stands for the new text.
    if (!is_taken_back && is_whole) outcome.holds = Holds::kNewText;
    return outcome;
  }
  outcome.holds = Holds::kNewText;
  if (plan.reserve > plan.size) outcome.cut = cut_at(handle, plan.size);
  return outcome;
}

}  // namespace

Outcome carry_out(os::Handle handle, std::string_view old_bytes, std::string_view new_text) {
  const std::optional<Interrupted> found = interrupted_in(old_bytes);
  if (!found) return carry_out(handle, old_bytes, plan(old_bytes, new_text), Holds::kOldText);

  // A copy of the next text must not take the place of one that is still needed.
  Outcome completed = carry_out(handle, old_bytes, completion(old_bytes, *found), Holds::kNewText);
  if (!completed.ok()) {
    completed.holds = Holds::kOldText;
    return completed;
  }
  return carry_out(handle, found->text, plan(found->text, new_text), Holds::kOldText);
}

}  // namespace replacement
