#include "api/call.h"

#include <algorithm>
#include <cstring>
#include <exception>
#include <new>
#include <type_traits>

#include "platform/os/os.h"
#include "vu_file_except.h"

namespace api {
namespace {

/// The start of the warning for a save that could not begin. Here it is a failure.
constexpr std::string_view kNotSaved = "STGIndex::~STGIndex(): Unable to create/update index.dat";

std::string_view without_line_end(std::string_view text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
  return text;
}

}  // namespace

struct ThreadState {
  Problem problem;
  Call* call = nullptr;
  trace::Listener** listener = nullptr;  ///< the place of the thread's listener
};
static_assert(std::is_trivially_destructible_v<ThreadState>);

namespace {

constinit thread_local ThreadState t_state;

}  // namespace

Problem& last_problem() noexcept { return t_state.problem; }

void Problem::copy(Text& to, std::string_view from) noexcept {
  std::size_t size = std::min(from.size(), kRoom - 1);
  // Never cut within a UTF-8 character.
  if (size < from.size()) {
    while (size != 0 && (static_cast<unsigned char>(from[size]) & 0xC0U) == 0x80U) --size;
  }
  std::copy_n(from.data(), size, to);
  to[size] = '\0';
}

void Problem::clear(const char* operation) noexcept {
  status = VU_DONE;
  m_operation = operation;
  m_code = 0;
  m_text[0] = m_path[0] = m_words[0] = '\0';
}

void Problem::set_system(std::int32_t code, std::string_view words) noexcept {
  m_code = code;
  copy(m_words, without_line_end(words));
}

void Problem::tell(vu_error& error) const noexcept {
  error.status = status;
  error.system_code = m_code;
  error.operation = m_operation;
  error.text = m_text;
  error.path = m_path;
  error.system_text = m_words;
}

Call::Call(const char* operation) noexcept
    : m_state(t_state),
      m_outer(std::exchange(m_state.call, this)),
      m_before(nullptr),
      m_operation(operation) {
  if (m_state.listener == nullptr) m_state.listener = &trace::listener_place();
  m_before = std::exchange(*m_state.listener, this);
  m_state.problem.clear(operation);
}

Call::~Call() {
  m_limit.reset();
  *m_state.listener = m_before;
  m_state.call = m_outer;
}

Call& Call::current() noexcept { return *t_state.call; }

void Call::limit_waiting(std::int64_t wait_ms) noexcept {
  if (m_limit) return;
  m_limit.emplace(std::chrono::milliseconds(wait_ms == VU_NO_WAIT ? 0 : wait_ms));
}

void Call::hear(vu_host::trace_event event, std::string_view text) noexcept {
  const bool is_error = event == vu_host::trace_event::error;
  if (is_error || text.starts_with(kNotSaved)) ++m_failures;
  // The first error is the cause of all others. The first warning is kept until an error comes.
  if (m_has_error || (!is_error && m_state.problem.has_text())) return;
  m_has_error = is_error;
  m_state.problem.set_text(without_line_end(text));
}

void Call::hear_failure(std::string_view path, std::int32_t code) noexcept {
  ++m_refusals;
  if (m_has_error) return;
  try {
    m_failed_path = path;
    m_state.problem.set_path(os::native_form(m_failed_path));
  } catch (...) {
    // Reported without the path.
  }
  set_system(code);
}

void Call::set_system(std::int32_t code) noexcept {
  try {
    m_state.problem.set_system(code, vu_utf8string(os::error_text_wide(code)).str());
  } catch (...) {
    // Reported without the text of the code.
    m_state.problem.set_system(code, {});
  }
}

void Call::forget() noexcept {
  m_failures = 0;
  m_refusals = 0;
  m_failed_path.clear();
  m_has_error = false;
  m_state.problem.clear(m_operation);
}

Pause::~Pause() {
  if (m_heard) {
    last_problem() = *m_heard;
  } else {
    last_problem().clear(Call::current().operation());
  }
}

vu_status Call::end(vu_status status) noexcept {
  // An operation may report the refused lock as something else.
  if (m_limit && LockLimit::passed() && !m_is_changed) status = VU_LOCK_TIMEOUT;
  if (m_is_changed && status != VU_DONE) status = VU_PARTLY_DONE;
  if (status == VU_DONE) {
    m_state.problem.clear(m_operation);
  } else if (!m_state.problem.has_text()) {
    m_state.problem.set_text("the library gives no reason");
  }
  m_state.problem.status = status;
  return status;
}

vu_status Call::end(const Refusal& refusal) noexcept {
  // A refusal without a text keeps the text of the trace.
  if (!refusal.text.empty()) {
    m_state.problem.clear(m_operation);
    m_state.problem.set_text(refusal.text);
  }
  if (!refusal.path.empty() && *m_state.problem.path() == '\0')
    m_state.problem.set_path(refusal.path);
  if (refusal.code != 0) set_system(refusal.code);
  return end(refusal.status);
}

vu_status Call::end_by_exception() noexcept {
  const auto ends_with = [&](vu_status status, const char* text) {
    if (!m_state.problem.has_text()) m_state.problem.set_text(text);
    return end(status);
  };
  try {
    throw;
  } catch (const Refusal& refusal) {
    return end(refusal);
  } catch (const std::bad_alloc&) {
    m_state.problem.clear(m_operation);
    return ends_with(VU_NO_MEMORY, "out of memory");
  } catch (const vu_file_except& error) {
    try {
      return ends_with(VU_FAILED, error.what().c_str());
    } catch (...) {
      return ends_with(VU_FAILED, "the file layer failed");
    }
  } catch (const std::exception& error) {
    return ends_with(VU_FAILED, error.what());
  } catch (...) {
    return ends_with(VU_FAILED, "unknown exception");
  }
}

void check_size(const void* structure, std::size_t told, std::size_t known) {
  require(told >= known, "struct_size is not set; use the INIT macro");
  const auto* const bytes = static_cast<const unsigned char*>(structure);
  // No later structure is that much larger, so the caller did not set this size.
  require(told <= known + 4096, "struct_size is not set; use the INIT macro");
  require(std::all_of(bytes + known, bytes + told, [](unsigned char byte) { return byte == 0; }),
          "a structure has fields that this library does not know; use a later library");
}

vu_status done_unless_told() { return Call::current().heard_refusal() ? VU_PARTLY_DONE : VU_DONE; }

vu_status failed_or(vu_status otherwise, const char* text, const std::string& path) {
  if (Call::current().heard_failure()) return VU_FAILED;
  throw Refusal{otherwise, text, path};
}

vu_status give_text(std::string_view text, char* buffer, std::size_t room, std::size_t* size) {
  const bool asks_for_size = buffer == nullptr && room == 0;
  if (asks_for_size) {
    require(size, "size");
  } else {
    require(buffer, "buffer");
  }
  if (size != nullptr) *size = text.size();
  if (asks_for_size) return VU_DONE;
  if (room < text.size() + 1)
    throw Refusal{VU_TOO_SHORT, "the buffer is too short; size receives the required size", {}};
  std::copy(text.begin(), text.end(), buffer);
  buffer[text.size()] = '\0';
  return VU_DONE;
}

}  // namespace api
