#include "tests/support/recording_sink.h"

#include <algorithm>

using vu_host::trace_event;
using vu_host::trace_level;
using vu_host::trace_site;

namespace {

std::size_t index_of(trace_level level) { return static_cast<std::size_t>(level); }
std::size_t index_of(trace_event event) { return static_cast<std::size_t>(event); }

}  // namespace

recording_sink::recording_sink(vu_host::services others) {
  want_everything();
  others.trace = this;
  vu_host::install(others);
}

recording_sink::~recording_sink() { vu_host::install({}); }

template <class Condition>
std::vector<std::string> recording_sink::texts_where(Condition condition) const {
  const std::scoped_lock guard(m_mutex);
  std::vector<std::string> texts;
  for (const traced& each : m_traced) {
    if (condition(each)) texts.push_back(each.text);
  }
  return texts;
}

template <class Condition>
std::size_t recording_sink::count_where(Condition condition) const {
  const std::scoped_lock guard(m_mutex);
  return static_cast<std::size_t>(std::count_if(m_traced.begin(), m_traced.end(), condition));
}

std::vector<traced> recording_sink::all() const {
  const std::scoped_lock guard(m_mutex);
  return m_traced;
}

std::vector<std::string> recording_sink::events(trace_event event) const {
  return texts_where([event](const traced& each) {
    return each.kind == traced::kind_t::event && each.event == event;
  });
}

std::vector<std::string> recording_sink::records(trace_level level) const {
  return texts_where([level](const traced& each) {
    return each.kind == traced::kind_t::record && each.level == level;
  });
}

std::vector<std::string> recording_sink::scopes() const {
  return texts_where([](const traced& each) { return each.kind == traced::kind_t::scope; });
}

std::vector<std::string> recording_sink::scopes(trace_level level) const {
  return texts_where([level](const traced& each) {
    return each.kind == traced::kind_t::scope && each.level == level;
  });
}

std::vector<std::string> recording_sink::messages() const {
  return texts_where([](const traced& each) { return each.kind == traced::kind_t::message; });
}

std::size_t recording_sink::count() const {
  return count_where([](const traced&) { return true; });
}

std::size_t recording_sink::count(traced::kind_t kind) const {
  return count_where([kind](const traced& each) { return each.kind == kind; });
}

std::size_t recording_sink::count(trace_event event) const { return events(event).size(); }

std::size_t recording_sink::count(trace_event event, const std::string& text) const {
  return count_where([&](const traced& each) {
    return each.kind == traced::kind_t::event && each.event == event && each.text == text;
  });
}

std::size_t recording_sink::count(trace_level level) const { return records(level).size(); }

std::size_t recording_sink::count(trace_level level, const std::string& text) const {
  return count_where([&](const traced& each) {
    return each.kind == traced::kind_t::record && each.level == level && each.text == text;
  });
}

std::size_t recording_sink::questions() const {
  const std::scoped_lock guard(m_mutex);
  return m_questions;
}

void recording_sink::clear() {
  const std::scoped_lock guard(m_mutex);
  m_traced.clear();
  m_questions = 0;
}

void recording_sink::want(trace_level level, bool wanted) {
  const std::scoped_lock guard(m_mutex);
  m_levels.at(index_of(level)) = wanted;
}

void recording_sink::want(trace_event event, bool wanted) {
  const std::scoped_lock guard(m_mutex);
  m_events.at(index_of(event)) = wanted;
}

void recording_sink::want_everything(bool wanted) {
  const std::scoped_lock guard(m_mutex);
  m_levels.fill(wanted);
  m_events.fill(wanted);
}

bool recording_sink::wants(trace_level level) const noexcept {
  const std::scoped_lock guard(m_mutex);
  ++m_questions;
  return m_levels.at(index_of(level));
}

bool recording_sink::wants(trace_event event) const noexcept {
  const std::scoped_lock guard(m_mutex);
  ++m_questions;
  return m_events.at(index_of(event));
}

void recording_sink::scope_begin(const trace_site& site, trace_level level,
                                 std::string_view label) noexcept {
  keep(traced::kind_t::scope, site, level, {}, label);
}

void recording_sink::scope_end(const trace_site& site, trace_level level) noexcept {
  keep(traced::kind_t::scope_end, site, level, {}, "");
}

void recording_sink::scope_message(const trace_site& site, std::string_view text) noexcept {
  keep(traced::kind_t::message, site, {}, {}, text);
}

void recording_sink::record(const trace_site& site, trace_level level,
                            std::string_view text) noexcept {
  keep(traced::kind_t::record, site, level, {}, text);
}

void recording_sink::event(const trace_site& site, trace_event event,
                           std::string_view text) noexcept {
  keep(traced::kind_t::event, site, {}, event, text);
}

void recording_sink::keep(traced::kind_t kind, const trace_site& site, trace_level level,
                          trace_event event, std::string_view text) {
  const std::scoped_lock guard(m_mutex);
  m_traced.push_back({kind, level, event, site.source, site.line, site.signature, std::string(text),
                      std::this_thread::get_id()});
}
