#include "demo_host.h"

#include <utility>

#include "demo_files.h"

namespace demo {

namespace {

const char* name_of(vu_host::trace_level level) {
  switch (level) {
    case vu_host::trace_level::xs:
      return "XS";
    case vu_host::trace_level::s:
      return "S";
    case vu_host::trace_level::m:
      return "M";
    case vu_host::trace_level::l:
      return "L";
    case vu_host::trace_level::xl:
      return "XL";
  }
  return "?";
}

const char* name_of(vu_host::trace_event event) {
  switch (event) {
    case vu_host::trace_event::success:
      return "Success";
    case vu_host::trace_event::warning:
      return "Warning";
    case vu_host::trace_event::error:
      return "Error";
  }
  return "?";
}

}  // namespace

void Host::install() {
  vu_host::services services;
  services.trace = this;
  services.config = this;
  vu_host::install(services);
}

bool Host::trace_to(const std::string& file) {
  m_file.open(native(file), std::ios::binary | std::ios::trunc);
  return m_file.is_open();
}

std::vector<std::string> Host::take_errors() {
  const std::scoped_lock lock(m_mutex);
  return std::exchange(m_errors, {});
}

bool Host::wants(vu_host::trace_level) const noexcept { return m_file.is_open(); }

bool Host::wants(vu_host::trace_event event) const noexcept {
  return event == vu_host::trace_event::error || m_file.is_open();
}

void Host::scope_begin(const vu_host::trace_site& site, vu_host::trace_level,
                       std::string_view label) noexcept {
  write("begin", site, label);
}

void Host::scope_end(const vu_host::trace_site& site, vu_host::trace_level) noexcept {
  write("end", site, "");
}

void Host::scope_message(const vu_host::trace_site& site, std::string_view text) noexcept {
  write("message", site, text);
}

void Host::record(const vu_host::trace_site& site, vu_host::trace_level level,
                  std::string_view text) noexcept {
  write(name_of(level), site, text);
}

void Host::event(const vu_host::trace_site& site, vu_host::trace_event event,
                 std::string_view text) noexcept {
  write(name_of(event), site, text);
  if (event != vu_host::trace_event::error) return;
  try {
    const std::scoped_lock lock(m_mutex);
    m_errors.emplace_back(text);
  } catch (...) {
    // A sink must not throw. Without memory for the text the run fails elsewhere.
  }
}

ucs2string Host::binary_folder() { return ucs2string(vu_utf8string(m_binary_folder)); }

void Host::write(const char* kind, const vu_host::trace_site& site,
                 std::string_view text) noexcept {
  try {
    const std::scoped_lock lock(m_mutex);
    if (m_file.is_open())
      m_file << kind << '\t' << site.source << ':' << site.line << '\t' << text << '\n';
  } catch (...) {
    // The run continues without the trace.
  }
}

}  // namespace demo
