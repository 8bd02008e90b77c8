#include "client/stgctl/trace_log.h"

#include <array>
#include <exception>

#include "client/stgctl/exit_codes.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

constexpr std::array<const char*, 5> kLevels = {"XS", "S", "M", "L", "XL"};
constexpr std::array<const char*, 3> kEvents = {"Success", "Warning", "Error"};

const char* name_of(vu_host::trace_level level) {
  return kLevels.at(static_cast<std::size_t>(level));
}

}  // namespace

TraceLog::TraceLog(std::optional<vu_host::trace_level> most, const std::string& file)
    : m_most(most), m_file(stderr), m_owned(most && !file.empty()) {
  if (!m_owned) return;
  m_file = std::fopen(file.c_str(), "ab");
  if (m_file == nullptr) {
    throw Failure(Exit::kFailed,
                  "the trace file " + shown(file) + " cannot be written; name another one");
  }
}

TraceLog::~TraceLog() {
  if (m_owned) std::fclose(m_file);
}

void TraceLog::scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                           std::string_view label) noexcept {
  line(site, name_of(level), label.empty() ? site.signature : label);
}

void TraceLog::scope_end(const vu_host::trace_site&, vu_host::trace_level) noexcept {}

void TraceLog::scope_message(const vu_host::trace_site& site, std::string_view text) noexcept {
  line(site, "scope", text);
}

void TraceLog::record(const vu_host::trace_site& site, vu_host::trace_level level,
                      std::string_view text) noexcept {
  line(site, name_of(level), text);
}

void TraceLog::event(const vu_host::trace_site& site, vu_host::trace_event event,
                     std::string_view text) noexcept {
  if (event != vu_host::trace_event::success) keep(text);
  if (m_most) line(site, kEvents.at(static_cast<std::size_t>(event)), text);
}

void TraceLog::keep(std::string_view text) noexcept {
  const std::scoped_lock guard(m_mutex);
  try {
    m_trouble.clear();
    bool gap = false;
    // In one line: the system's texts end in CR LF.
    for (const char c : text) {
      const bool is_blank = static_cast<unsigned char>(c) <= ' ';
      if (!is_blank && gap && !m_trouble.empty()) m_trouble += ' ';
      if (!is_blank) m_trouble += c;
      gap = is_blank;
    }
  } catch (const std::exception&) {
    m_trouble.clear();
  }
}

std::string TraceLog::trouble() const {
  const std::scoped_lock guard(m_mutex);
  return m_trouble;
}

void TraceLog::forget_trouble() {
  const std::scoped_lock guard(m_mutex);
  m_trouble.clear();
}

void TraceLog::line(const vu_host::trace_site& site, const char* kind,
                    std::string_view text) noexcept {
  const std::scoped_lock guard(m_mutex);
  try {
    std::fprintf(m_file, "%s:%d %s %s\n", site.source, site.line, kind, shown(text).c_str());
  } catch (const std::exception&) {
    // No memory for the text: the record is lost, the operation goes on.
    std::fprintf(m_file, "%s:%d %s\n", site.source, site.line, kind);
  }
}

}  // namespace stgctl
