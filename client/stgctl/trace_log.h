#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "vu_host.h"

namespace stgctl {

/// Writes what the library traces, one line each, to a file or to the standard error output, when
/// that is asked for; and keeps the last warning or error, for the messages of the client itself.
class TraceLog : public vu_host::trace_sink {
 public:
  /// @param most the widest circle of records; nothing is written without one. @param file empty
  /// for the standard error output. @throws Failure when the file cannot be written.
  TraceLog(std::optional<vu_host::trace_level> most, const std::string& file);
  ~TraceLog() override;
  TraceLog(const TraceLog&) = delete;
  TraceLog& operator=(const TraceLog&) = delete;

  /// The last warning or error since forget_trouble(), in one line; empty without one.
  std::string trouble() const;
  void forget_trouble();

  bool wants(vu_host::trace_level level) const noexcept override {
    return m_most && level <= *m_most;
  }
  bool wants(vu_host::trace_event event) const noexcept override {
    return m_most || event != vu_host::trace_event::success;
  }
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override;
  void scope_end(const vu_host::trace_site& site, vu_host::trace_level level) noexcept override;
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override;
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override;
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override;

 private:
  void keep(std::string_view text) noexcept;
  void line(const vu_host::trace_site& site, const char* kind, std::string_view text) noexcept;

  std::optional<vu_host::trace_level> m_most;
  mutable std::mutex m_mutex;
  std::string m_trouble;
  std::FILE* m_file;
  bool m_owned;
};

}  // namespace stgctl
