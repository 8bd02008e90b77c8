#include "file/replace_in_file.h"

#include <cstddef>
#include <cstdint>
#include <utility>

#include "file/replacement.h"

namespace replacement {

namespace {

constexpr std::int16_t kFromStart = 0;

os::Status write_at(os::Handle handle, std::uint64_t offset, std::string_view bytes,
                    std::size_t& done) {
  done = 0;
  // The system's file position moves by 32-bit distances.
  if (!std::in_range<std::int32_t>(offset + bytes.size())) return {0, os::Failure::kOther};
  os::Status status = os::seek(handle, static_cast<std::int32_t>(offset), kFromStart);
  if (!status.ok()) return status;
  status = os::write(handle, bytes.data(), bytes.size(), done);
  // What was not written is a failure, whatever the system says: nothing may be cut behind it.
  if (status.ok() && done < bytes.size()) return {os::last_error(), os::Failure::kOther};
  return status;
}

os::Status cut_at(os::Handle handle, std::uint64_t size) {
  const os::Status status = os::seek(handle, static_cast<std::int32_t>(size), kFromStart);
  return status.ok() ? os::set_end(handle) : status;
}

/// Puts the beginning of the old text back over a write of which the device took the beginning only.
void take_back(os::Handle handle, std::string_view old_text, std::size_t taken) {
  // One that could not be read counts as none.
  if (taken == 0 || old_text.empty()) return;
  std::size_t done = 0;
  static_cast<void>(write_at(handle, 0, old_text.substr(0, taken), done));
  if (taken > old_text.size()) static_cast<void>(cut_at(handle, old_text.size()));
}

}  // namespace

Outcome carry_out(os::Handle handle, std::string_view old_text, std::string_view new_text) {
  const Plan steps = plan(old_text, new_text);
  Outcome outcome;
  if (steps.reserve > old_text.size()) outcome.written = os::reserve(handle, steps.reserve);
  std::size_t written = 0;
  std::size_t taken = 0;
  while (outcome.written.ok() && written < steps.steps.size()) {
    const Step& step = steps.steps[written];
    outcome.written = write_at(handle, step.offset, step.bytes, taken);
    if (outcome.written.ok()) ++written;
  }
  if (!outcome.written.ok()) {
    // The old text stands untouched before what was appended.
    if (written < steps.appended) static_cast<void>(cut_at(handle, old_text.size()));
    if (steps.steps.size() == 1) take_back(handle, old_text, taken);
    return outcome;
  }
  // An old text that could not be read counts as none, and may be longer than the new one.
  if (steps.reserve > steps.size || old_text.empty()) outcome.cut = cut_at(handle, steps.size);
  return outcome;
}

}  // namespace replacement
