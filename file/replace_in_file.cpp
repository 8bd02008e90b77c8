#include "file/replace_in_file.h"

#include <cstddef>
#include <utility>

namespace replacement {

os::Status write_at(os::Handle handle, std::uint64_t offset, std::string_view bytes) {
  if (!std::in_range<std::int32_t>(offset + bytes.size())) return {0, os::Failure::kOther};
  std::size_t done = 0;
  const os::Status status = os::write_at(handle, offset, bytes.data(), bytes.size(), done);
  // A short write is a failure, even if the system reports success.
  if (status.ok() && done < bytes.size()) return {os::last_error(), os::Failure::kOther};
  return status;
}

namespace {

os::Status cut_at(os::Handle handle, std::uint64_t size) {
  constexpr std::int16_t kFromStart = 0;
  if (!std::in_range<std::int32_t>(size)) return {0, os::Failure::kOther};
  const os::Status status = os::seek(handle, static_cast<std::int32_t>(size), kFromStart);
  return status.ok() ? os::set_end(handle) : status;
}

/// Restores the old text after a stage that failed: cuts off what follows it. If the cut fails,
/// readers ignore the rest, since it has no complete trailer. @return whether the file is cut.
bool take_back(os::Handle handle, std::string_view old_bytes, const Plan& plan) {
  // A replacement in place has overwritten the old text itself.
  if (plan.first_over_old == 0) static_cast<void>(write_at(handle, 0, old_bytes));
  return cut_at(handle, old_bytes.size()).ok();
}

}  // namespace

StagedReplacement::StagedReplacement(os::Handle handle, std::string_view old_bytes,
                                     std::string_view new_text)
    : m_handle(handle), m_new_text(new_text), m_found(interrupted_in(old_bytes)) {
  // The new copy must not overwrite the copy of an interrupted replacement, which is still needed.
  m_completes = m_found.has_value();
  if (m_completes) {
    begin(old_bytes, completion(old_bytes, *m_found), Holds::kNewText);
  } else {
    begin(old_bytes, plan(old_bytes, new_text), Holds::kOldText);
  }
}

void StagedReplacement::begin(std::string_view old_bytes, Plan plan, Holds before) {
  m_old_bytes = old_bytes;
  m_plan = std::move(plan);
  m_stage = 0;
  m_outcome = {};
  m_outcome.holds = before;
  if (m_plan.reserve > old_bytes.size()) m_outcome.written = os::reserve(m_handle, m_plan.reserve);
  if (!m_outcome.written.ok()) end();
}

bool StagedReplacement::write() {
  while (!m_is_over && m_stage == m_plan.stages.size()) finish_plan();
  if (m_is_over) return false;
  if (m_stage == m_plan.first_over_old && m_stage > 0) m_outcome.holds = Holds::kNewText;
  for (const Write& write : m_plan.stages[m_stage]) {
    m_outcome.written = write_at(m_handle, write.offset, write.bytes);
    if (m_outcome.written.ok()) continue;
    give_up();
    return false;
  }
  return true;
}

void StagedReplacement::flushed(const os::Status& status) {
  m_outcome.flushed = status;
  ++m_stage;
  if (!status.ok()) give_up();
}

void StagedReplacement::finish_plan() {
  m_outcome.holds = Holds::kNewText;
  if (m_plan.reserve > m_plan.size) m_outcome.cut = cut_at(m_handle, m_plan.size);
  if (!m_completes || !m_outcome.ok()) return end();
  m_completes = false;
  begin(m_found->text, plan(m_found->text, m_new_text), Holds::kOldText);
}

void StagedReplacement::give_up() {
  const bool is_whole = m_outcome.written.ok() && m_stage == m_plan.first_over_old;
  const bool is_taken_back =
      m_outcome.holds == Holds::kNewText || take_back(m_handle, m_old_bytes, m_plan);
  // The copy is complete, but could be neither flushed nor cut off: readers take the copy.
  if (!is_taken_back && is_whole) m_outcome.holds = Holds::kNewText;
  end();
}

void StagedReplacement::end() {
  m_is_over = true;
  // The file contains the text of the interrupted replacement, not the new text of this one.
  if (m_completes) m_outcome.holds = Holds::kOldText;
}

Outcome carry_out(os::Handle handle, std::string_view old_bytes, std::string_view new_text) {
  StagedReplacement staged(handle, old_bytes, new_text);
  while (staged.write()) staged.flushed(os::flush(handle));
  return staged.outcome();
}

}  // namespace replacement
