#include "platform/host/trace.h"

#include <utility>

namespace trace {

std::atomic<vu_host::trace_sink*> g_sink = nullptr;

void deliver(const vu_host::trace_site& site, vu_host::trace_level level, const std::string& text) {
  if (vu_host::trace_sink* const s = sink()) s->record(site, level, text);
}

namespace {

constinit thread_local Listener* t_listener = nullptr;

}  // namespace

Listener* listener() noexcept { return t_listener; }
Listener*& listener_place() noexcept { return t_listener; }

void deliver(const vu_host::trace_site& site, vu_host::trace_event event, const std::string& text) {
  if (event != vu_host::trace_event::success && t_listener != nullptr) {
    t_listener->hear(event, text);
    // Perhaps only the listener wanted the text.
    if (!host_wants(event)) return;
  }
  if (vu_host::trace_sink* const s = sink()) s->event(site, event, text);
}

void deliver_beginning(vu_host::trace_event event, std::string_view text) noexcept {
  if (event != vu_host::trace_event::success && t_listener != nullptr)
    t_listener->hear(event, text);
}

void deliver_message(const vu_host::trace_site& site, const std::string& text) {
  if (vu_host::trace_sink* const s = sink()) s->scope_message(site, text);
}

void Scope::begin_with(const std::string& label) noexcept {
  if (vu_host::trace_sink* const s = sink()) {
    s->scope_begin(m_where.site, m_where.level, label);
    m_begun = true;
  }
}

void Scope::end() noexcept {
  if (vu_host::trace_sink* const s = sink()) s->scope_end(m_where.site, m_where.level);
}

}  // namespace trace
