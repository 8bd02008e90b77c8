#pragma once

#include <array>
#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "vu_host.h"

/// One item that the library traced.
struct traced {
  enum class kind_t { scope, scope_end, record, event, message };

  kind_t kind = kind_t::record;
  vu_host::trace_level level = vu_host::trace_level::xs;       ///< of scopes and records
  vu_host::trace_event event = vu_host::trace_event::success;  ///< of events
  std::string source;
  int line = 0;
  std::string signature;
  std::string text;  ///< a scope's label; empty at its end
  std::thread::id thread;
};

/// Records everything that the library traces during its lifetime. By default it wants every level
/// and event. Any thread may call any member.
///
///    recording_sink sink;
///    vu_file::size(missing);
///    EXPECT_EQ(sink.count(vu_host::trace_event::warning), 1U);
class recording_sink final : public vu_host::trace_sink {
 public:
  /// Installs this sink. @param others the other services to install; their sink is ignored.
  explicit recording_sink(vu_host::services others = {});
  /// Restores the default of every service.
  ~recording_sink() override;
  recording_sink(const recording_sink&) = delete;
  recording_sink& operator=(const recording_sink&) = delete;

  std::vector<traced> all() const;
  std::vector<std::string> events(vu_host::trace_event event) const;
  std::vector<std::string> records(vu_host::trace_level level) const;
  /// The labels of the scopes that began.
  std::vector<std::string> scopes() const;
  std::vector<std::string> scopes(vu_host::trace_level level) const;
  /// The texts of the messages of scopes.
  std::vector<std::string> messages() const;

  std::size_t count() const;
  std::size_t count(traced::kind_t kind) const;
  std::size_t count(vu_host::trace_event event) const;
  std::size_t count(vu_host::trace_event event, const std::string& text) const;
  std::size_t count(vu_host::trace_level level) const;
  std::size_t count(vu_host::trace_level level, const std::string& text) const;
  /// How often the library called wants().
  std::size_t questions() const;

  /// Drops everything recorded.
  void clear();

  void want(vu_host::trace_level level, bool wanted);
  void want(vu_host::trace_event event, bool wanted);
  void want_everything(bool wanted = true);

  bool wants(vu_host::trace_level level) const noexcept override;
  bool wants(vu_host::trace_event event) const noexcept override;
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override;
  void scope_end(const vu_host::trace_site& site, vu_host::trace_level level) noexcept override;
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override;
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override;
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override;

 private:
  template <class Condition>
  std::vector<std::string> texts_where(Condition condition) const;
  template <class Condition>
  std::size_t count_where(Condition condition) const;
  void keep(traced::kind_t kind, const vu_host::trace_site& site, vu_host::trace_level level,
            vu_host::trace_event event, std::string_view text);

  mutable std::mutex m_mutex;
  std::vector<traced> m_traced;
  std::array<bool, 5> m_levels;
  std::array<bool, 3> m_events;
  mutable std::size_t m_questions = 0;
};
