#pragma once

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "vu_host.h"

namespace stgctl {

/// Writes what the library traces, one line each, to a file or to the standard error output.
class TraceLog : public vu_host::trace_sink {
 public:
  /// @param most the widest circle of records. @param file empty for the standard error output.
  /// @throws Failure when the file cannot be written.
  TraceLog(vu_host::trace_level most, const std::string& file);
  ~TraceLog() override;
  TraceLog(const TraceLog&) = delete;
  TraceLog& operator=(const TraceLog&) = delete;

  bool wants(vu_host::trace_level level) const noexcept override { return level <= m_most; }
  bool wants(vu_host::trace_event) const noexcept override { return true; }
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override;
  void scope_end(const vu_host::trace_site& site, vu_host::trace_level level) noexcept override;
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override;
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override;
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override;

 private:
  void line(const vu_host::trace_site& site, const char* kind, std::string_view text) noexcept;

  vu_host::trace_level m_most;
  std::mutex m_mutex;
  std::FILE* m_file;
  bool m_owned;
};

}  // namespace stgctl
