#pragma once

#include <atomic>
#include <concepts>
#include <cstdint>
#include <string>
#include <string_view>

#include "vu_host.h"

/// @file
/// Tracing by the library's own code.
///
/// An operation opens its scope with VU_TRACE_SCOPE and traces its decisions with the record
/// macros. A record is one statement with its pieces in order; the scope is a few declarations:
///
///     VU_TRACE_SCOPE(kSource, vu_host::trace_level::m, "vu_storage::OpenWrite: ", owner, entry);
///     VU_WARNING("vu_file::size : '", path, "' not exists");
///
/// Without a sink, a scope and a record at a level cost one load and one branch each. A macro uses
/// its pieces only if the sink or the listener wants the text. No macro throws. A text for which
/// there is no memory is dropped; the listener receives the beginning of an event in any case.
namespace trace {

// Keeps the code that builds texts separate from operations that trace nothing.
#if defined(__GNUC__)
#define VU_TRACE_COLD [[gnu::noinline, gnu::cold]]
#else
#define VU_TRACE_COLD
#endif

/// The host's sink, or null. Only vu_host::install() writes it.
extern std::atomic<vu_host::trace_sink*> g_sink;

inline vu_host::trace_sink* sink() { return g_sink.load(std::memory_order_acquire); }

/// Receives the warnings and errors of one thread, in addition to the host's sink.
class Listener {
 public:
  /// @param text only the first piece if there is no memory for all of them.
  virtual void hear(vu_host::trace_event event, std::string_view text) noexcept = 0;
  /// The system's code and the file of a failure. Its record comes directly before or after this.
  virtual void hear_failure(std::string_view path, std::int32_t code) noexcept = 0;

 protected:
  ~Listener() = default;
};

/// The calling thread's listener, or null.
Listener* listener() noexcept;
/// The variable with that pointer, for callers that need it often. Valid until the thread ends.
Listener*& listener_place() noexcept;

inline bool wanted(vu_host::trace_level level) {
  const vu_host::trace_sink* const s = sink();
  return s != nullptr && s->wants(level);
}
inline bool host_wants(vu_host::trace_event event) {
  const vu_host::trace_sink* const s = sink();
  return s != nullptr && s->wants(event);
}
inline bool wanted(vu_host::trace_event event) {
  return host_wants(event) || (event != vu_host::trace_event::success && listener() != nullptr);
}

inline void append(std::string& text, std::string_view piece) { text += piece; }
inline void append(std::string& text, std::integral auto number) { text += std::to_string(number); }
inline void append(std::string& text, const vu_utf8string& piece) { text += piece.str(); }

void deliver(const vu_host::trace_site& site, vu_host::trace_level level, const std::string& text);
void deliver(const vu_host::trace_site& site, vu_host::trace_event event, const std::string& text);
void deliver_message(const vu_host::trace_site& site, const std::string& text);

/// The first piece of a text, if it is a text itself. Needs no memory.
template <class First, class... Rest>
std::string_view beginning_of(const First& first, const Rest&...) noexcept {
  if constexpr (std::convertible_to<const First&, std::string_view>) return first;
  return {};
}
void deliver_beginning(vu_host::trace_event event, std::string_view text) noexcept;
inline void deliver_beginning(vu_host::trace_level, std::string_view) noexcept {}

/// The place of a scope in the code; a constant of the operation.
struct ScopeSite {
  vu_host::trace_site site;
  vu_host::trace_level level;
};

/// The scope of one operation, on the stack frame of that operation. VU_TRACE_SCOPE constructs it
/// and calls begin() once. The destructor ends the scope if the sink received its begin. Errors:
/// nothing throws. Threads: that of the operation.
class Scope {
 public:
  /// @param where must outlive the scope.
  explicit Scope(const ScopeSite& where) : m_where(where) {}
  ~Scope() {
    if (m_begun) end();
  }
  Scope(const Scope&) = delete;
  Scope& operator=(const Scope&) = delete;

  template <class... Pieces>
  void begin(const Pieces&... pieces) noexcept {
    if (wanted(m_where.level)) [[unlikely]]
      begin_wanted(pieces...);
  }

  /// The operation's site, with another line.
  vu_host::trace_site at(int line) const {
    return {m_where.site.source, line, m_where.site.signature};
  }

 private:
  template <class... Pieces>
  VU_TRACE_COLD void begin_wanted(const Pieces&... pieces) noexcept {
    try {
      std::string label;
      (append(label, pieces), ...);
      begin_with(label);
    } catch (...) {
      // There is no memory for the label: the operation continues without its scope.
    }
  }
  void begin_with(const std::string& label) noexcept;
  void end() noexcept;

  const ScopeSite& m_where;
  bool m_begun = false;
};

template <class Kind, class... Pieces>
void emit(const vu_host::trace_site& site, Kind kind, const Pieces&... pieces) noexcept {
  try {
    std::string text;
    try {
      (append(text, pieces), ...);
    } catch (...) {
      // There is no memory for the text. A call that counts its failures must not miss this one.
      return deliver_beginning(kind, beginning_of(pieces...));
    }
    deliver(site, kind, text);
  } catch (...) {
    // A sink that throws loses its record.
  }
}

template <class... Pieces>
void emit_message(const vu_host::trace_site& site, const Pieces&... pieces) noexcept {
  try {
    std::string text;
    (append(text, pieces), ...);
    deliver_message(site, text);
  } catch (...) {
    // As in emit().
  }
}

}  // namespace trace

#if defined(_MSC_VER)
#define VU_SIGNATURE __FUNCSIG__
#else
#define VU_SIGNATURE __PRETTY_FUNCTION__
#endif

/// Opens the operation's scope at a level, with the pieces of its label (none for no label). It is
/// the first line of an operation. The scope is the object vu_trace_scope: the record macros below
/// use it, and the operation can pass it to its helpers.
#define VU_TRACE_SCOPE(source, level, ...)                                                      \
  static constexpr trace::ScopeSite vu_trace_site{{(source), __LINE__, VU_SIGNATURE}, (level)}; \
  trace::Scope vu_trace_scope(vu_trace_site);                                                   \
  vu_trace_scope.begin(__VA_ARGS__)

/// A record at a level, or an event, in the given scope.
#define VU_RECORD_IN(scope, kind, ...)                                \
  do {                                                                \
    const auto vu_record_kind = (kind);                               \
    if (trace::wanted(vu_record_kind)) [[unlikely]]                   \
      trace::emit((scope).at(__LINE__), vu_record_kind, __VA_ARGS__); \
  } while (false)
#define VU_TRACE_XS_IN(scope, ...) VU_RECORD_IN(scope, vu_host::trace_level::xs, __VA_ARGS__)
#define VU_WARNING_IN(scope, ...) VU_RECORD_IN(scope, vu_host::trace_event::warning, __VA_ARGS__)
#define VU_SUCCESS_IN(scope, ...) VU_RECORD_IN(scope, vu_host::trace_event::success, __VA_ARGS__)
#define VU_ERROR_IN(scope, ...) VU_RECORD_IN(scope, vu_host::trace_event::error, __VA_ARGS__)

/// The same in the scope that this operation has opened.
#define VU_RECORD(kind, ...) VU_RECORD_IN(vu_trace_scope, kind, __VA_ARGS__)

#define VU_TRACE_XS(...) VU_RECORD(vu_host::trace_level::xs, __VA_ARGS__)
#define VU_TRACE_S(...) VU_RECORD(vu_host::trace_level::s, __VA_ARGS__)
#define VU_TRACE_M(...) VU_RECORD(vu_host::trace_level::m, __VA_ARGS__)
#define VU_TRACE_XL(...) VU_RECORD(vu_host::trace_level::xl, __VA_ARGS__)

#define VU_SUCCESS(...) VU_RECORD(vu_host::trace_event::success, __VA_ARGS__)
#define VU_WARNING(...) VU_RECORD(vu_host::trace_event::warning, __VA_ARGS__)
#define VU_ERROR(...) VU_RECORD(vu_host::trace_event::error, __VA_ARGS__)

/// Attaches a message to the operation's scope.
#define VU_SCOPE_MESSAGE(...)                                        \
  do {                                                               \
    if (trace::sink() != nullptr) [[unlikely]]                       \
      trace::emit_message(vu_trace_scope.at(__LINE__), __VA_ARGS__); \
  } while (false)
