#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

#include "file/lock_limit.h"
#include "platform/host/trace.h"
#include "vu/storage.h"

/// @file
/// The frame of every call of the C interface: nothing leaves it but a status, and the reason stays
/// behind for vu_last_error().
namespace api {

/// Ends a call with a status and a reason. Thrown and caught inside this room alone.
struct Refusal {
  vu_status status;
  std::string text;  ///< empty to keep what was heard
  std::string path;
  std::int32_t code = 0;  ///< the system's
};

/// What the calling thread's last call came to. Fixed memory, so that a lack of it can be told.
class Problem {
 public:
  static constexpr std::size_t kRoom = 1024;

  void clear(const char* operation) noexcept;
  void set_text(std::string_view text) noexcept { copy(m_text, text); }
  void set_path(std::string_view path) noexcept { copy(m_path, path); }
  void set_system(std::int32_t code, std::string_view words) noexcept;
  bool has_text() const { return m_text[0] != '\0'; }
  const char* path() const { return m_path; }
  void tell(vu_error& error) const noexcept;

  vu_status status = VU_DONE;

 private:
  using Text = char[kRoom];
  static void copy(Text& to, std::string_view from) noexcept;

  const char* m_operation = "";
  std::int32_t m_code = 0;
  Text m_text = "";
  Text m_path = "";
  Text m_words = "";
};

/// The calling thread's.
Problem& last_problem() noexcept;

/// The thread's last problem, and its innermost call.
struct ThreadState;

/// One call: hears what the library traces on this thread meanwhile.
class Call final : public trace::Listener {
 public:
  explicit Call(const char* operation) noexcept;
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  void hear(vu_host::trace_event event, std::string_view text) noexcept override;
  void hear_failure(std::string_view path, std::int32_t code) noexcept override;

  const char* operation() const { return m_operation; }
  /// The innermost call of this thread.
  static Call& current() noexcept;
  /// From here to the end of the call its waits take so long at most, not 0; see vu_settings.
  void limit_waiting(std::int64_t wait_ms) noexcept;
  /// Ends that limit: what became of the call is known, whatever was not obtained.
  void wait_no_more() noexcept;
  /// Whether something failed that the operation did not answer for.
  bool heard_failure() const { return m_failures != 0; }
  unsigned failures() const { return m_failures; }
  /// The same, or the system has refused something that the operation went on without.
  bool heard_refusal() const { return m_failures != 0 || m_refusals != 0; }
  /// What was heard so far counts no more.
  void forget() noexcept;
  /// Keeps the status of the call, and a reason where nothing was heard.
  vu_status end(vu_status status) noexcept;
  vu_status end(const Refusal& refusal) noexcept;
  /// For the exception that is being handled.
  vu_status end_by_exception() noexcept;

 private:
  void set_system(std::int32_t code) noexcept;

  ThreadState& m_state;
  Call* m_outer;
  trace::Listener* m_before;
  const char* m_operation;
  unsigned m_failures = 0;
  unsigned m_refusals = 0;
  bool m_has_error = false;
  std::optional<LockLimit> m_limit;
};

/// While a callback runs: what the calls that it may make come to is theirs, and forgotten with
/// this object. What was heard before is kept.
class Pause {
 public:
  Pause() noexcept {
    if (last_problem().has_text()) m_heard = last_problem();
  }
  ~Pause();
  Pause(const Pause&) = delete;
  Pause& operator=(const Pause&) = delete;

 private:
  std::optional<Problem> m_heard;
};

/// Runs the body of a call, which gives back a status or throws, and may take the call.
template <class Body>
vu_status run(const char* operation, Body&& body) noexcept {
  Call call(operation);
  try {
    if constexpr (std::is_invocable_v<Body, Call&>) {
      return call.end(std::forward<Body>(body)(call));
    } else {
      return call.end(std::forward<Body>(body)());
    }
  } catch (...) {
    return call.end_by_exception();
  }
}

/// Throws unless a pointer that has to lead somewhere does.
inline void require(const void* pointer, const char* what) {
  if (pointer == nullptr) throw Refusal{VU_USAGE, std::string(what) + " is null", {}};
}
inline void require(bool condition, const char* why) {
  if (!condition) throw Refusal{VU_USAGE, why, {}};
}
template <class Function>
void require_callback(Function* callback) {
  if (callback == nullptr) throw Refusal{VU_USAGE, "the callback is null", {}};
}

/// Checks the size that a caller has set in a structure, and that what this library does not know
/// of it is zero.
void check_size(const void* structure, std::size_t told, std::size_t known);

/// VU_DONE, or what went wrong on the way although the operation did not say so.
vu_status done_unless_told();
/// The status of an operation that has said no: out of time, failed, or @p otherwise with @p text.
vu_status failed_or(vu_status otherwise, const char* text, const std::string& path = {});

/// Gives a text out by the rule of all texts.
vu_status give_text(std::string_view text, char* buffer, std::size_t room, std::size_t* size);

}  // namespace api
