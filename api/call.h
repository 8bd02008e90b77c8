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
/// The frame of every call of the C interface. A call returns only a status; the frame keeps the
/// reason for vu_last_error().
namespace api {

/// Ends a call with a status and a reason. Thrown and caught only in this folder.
struct Refusal {
  vu_status status;
  std::string text;  ///< empty to keep the text of a trace
  std::string path;
  std::int32_t code = 0;  ///< the system's error code
};

/// The result of the calling thread's last call. It allocates nothing, and so can report
/// VU_NO_MEMORY. Longer texts are cut. Each thread has its own, see last_problem().
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

Problem& last_problem() noexcept;

struct ThreadState;

/// One call, from its construction by run() to end(). During its life it receives what the library
/// traces on its thread. A callback can make calls: then the inner one is current() until its end.
/// Nothing throws. current() requires a call on this thread.
class Call final : public trace::Listener {
 public:
  explicit Call(const char* operation) noexcept;
  ~Call();
  Call(const Call&) = delete;
  Call& operator=(const Call&) = delete;

  void hear(vu_host::trace_event event, std::string_view text) noexcept override;
  void hear_failure(std::string_view path, std::int32_t code) noexcept override;

  const char* operation() const { return m_operation; }
  static Call& current() noexcept;
  /// Limits how long this call waits for locks. @param wait_ms not 0; see vu_settings.
  void limit_waiting(std::int64_t wait_ms) noexcept;
  /// Call it when the requested change is made. After it every failure is VU_PARTLY_DONE, whatever
  /// ends the call. A refused lock no longer changes the status to VU_LOCK_TIMEOUT, but the limit
  /// still applies.
  void note_change() noexcept { m_is_changed = true; }
  bool is_changed() const { return m_is_changed; }
  /// Whether a failure was traced; the operation may have returned success.
  bool heard_failure() const { return m_failures != 0; }
  unsigned failures() const { return m_failures; }
  /// The failures, and the refusals of the system that were only warnings.
  unsigned troubles() const { return m_failures + m_refusals; }
  /// The same, or the system refused something and the operation continued.
  bool heard_refusal() const { return m_failures != 0 || m_refusals != 0; }
  /// The path of the file that vu_last_error() reports, in the encoding of paths and never cut.
  /// Empty if no failure of a file was heard.
  const std::string& failed_path() const { return m_failed_path; }
  /// Drops all failures and refusals so far.
  void forget() noexcept;
  /// Stores the status of the call, and a reason if there is none yet. @return the final status.
  vu_status end(vu_status status) noexcept;
  vu_status end(const Refusal& refusal) noexcept;
  /// The same for the exception that is being handled.
  vu_status end_by_exception() noexcept;

 private:
  void set_system(std::int32_t code) noexcept;

  ThreadState& m_state;
  Call* m_outer;
  trace::Listener* m_before;
  const char* m_operation;
  unsigned m_failures = 0;
  unsigned m_refusals = 0;
  std::string m_failed_path;
  bool m_has_error = false;
  bool m_is_changed = false;
  std::optional<LockLimit> m_limit;
};

/// Exists while a callback runs. The callback can make calls. Their results do not replace the
/// problem of the outer call, and the limit of the outer call does not apply to them.
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
  LockLimit m_none{std::nullopt};
};

/// Runs the body of a call. The body returns a status or throws; it may take the Call&.
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

inline void require(const void* pointer, const char* what) {
  if (pointer == nullptr) throw Refusal{VU_USAGE, std::string(what) + " is null", {}};
}
inline void require(bool condition, const char* why) {
  if (!condition) throw Refusal{VU_USAGE, why, {}};
}
/// Sets a result to null. Call it first: such a result is null after every failure.
template <class Result>
void clear_result(Result** result, const char* what) {
  require(result, what);
  *result = nullptr;
}
template <class Function>
void require_callback(Function* callback) {
  if (callback == nullptr) throw Refusal{VU_USAGE, "the callback is null", {}};
}

/// Checks the `struct_size` of a caller, and that the bytes that this library does not know are
/// zero. @throws Refusal
void check_size(const void* structure, std::size_t told, std::size_t known);

/// VU_DONE; VU_PARTLY_DONE if something was refused although the operation returned success.
vu_status done_unless_told();
/// The status of an operation that returned no success: VU_FAILED if a failure was traced.
/// @throws Refusal with @p otherwise and @p text if no failure was traced.
vu_status failed_or(vu_status otherwise, const char* text, const std::string& path = {});

/// Returns a text in the caller's buffer, as the head of vu/storage.h says.
vu_status give_text(std::string_view text, char* buffer, std::size_t room, std::size_t* size);

}  // namespace api
