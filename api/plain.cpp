#include <cstdlib>
#include <list>
#include <mutex>

#include "api/call.h"
#include "platform/host/trace.h"
#include "vu/storage.h"

// Calls without a store: versions, the last error, memory, traces.

namespace {

#define VU_TEXT_OF(number) #number
#define VU_DOTTED(major, minor, patch) VU_TEXT_OF(major) "." VU_TEXT_OF(minor) "." VU_TEXT_OF(patch)

class CallbackSink final : public vu_host::trace_sink {
 public:
  CallbackSink(vu_trace_sink sink, void* context, std::int32_t level) noexcept
      : m_sink(sink), m_context(context), m_level(level) {}

  bool is_for(vu_trace_sink sink, void* context, std::int32_t level) const noexcept {
    return sink == m_sink && context == m_context && level == m_level;
  }
  bool wants(vu_host::trace_level level) const noexcept override {
    return static_cast<std::int32_t>(level) <= m_level;
  }
  bool wants(vu_host::trace_event) const noexcept override { return true; }
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override {
    tell(site, VU_KIND_SCOPE_BEGIN, static_cast<std::int32_t>(level), label);
  }
  void scope_end(const vu_host::trace_site& site, vu_host::trace_level level) noexcept override {
    tell(site, VU_KIND_SCOPE_END, static_cast<std::int32_t>(level), {});
  }
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override {
    tell(site, VU_KIND_MESSAGE, -1, text);
  }
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override {
    tell(site, VU_KIND_RECORD, static_cast<std::int32_t>(level), text);
  }
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override {
    tell(site, VU_KIND_DONE + static_cast<std::int32_t>(event), -1, text);
  }

 private:
  void tell(const vu_host::trace_site& site, std::int32_t kind, std::int32_t level,
            std::string_view text) const noexcept {
    const vu_trace record = {
        sizeof(vu_trace), kind, level,          site.source,
        site.line,        0,    site.signature, text.empty() ? "" : text.data(),
        text.size()};
    m_sink(m_context, &record);
  }

  vu_trace_sink m_sink;
  void* m_context;
  std::int32_t m_level;
};

/// Sinks are never freed: a thread may still be inside an earlier one. The same arguments get the
/// same sink again.
CallbackSink* kept_sink(vu_trace_sink sink, void* context, std::int32_t level) {
  static std::mutex mutex;
  static auto* const all = new std::list<CallbackSink>;
  const std::lock_guard lock(mutex);
  for (CallbackSink& one : *all) {
    if (one.is_for(sink, context, level)) return &one;
  }
  return &all->emplace_back(sink, context, level);
}

static_assert(VU_KIND_DONE + static_cast<int>(vu_host::trace_event::warning) == VU_KIND_MISSING);
static_assert(VU_KIND_DONE + static_cast<int>(vu_host::trace_event::error) == VU_KIND_FAILURE);

}  // namespace

const char* vu_version() { return VU_DOTTED(VU_VERSION_MAJOR, VU_VERSION_MINOR, VU_VERSION_PATCH); }

int32_t vu_version_number() { return VU_VERSION_NUMBER; }

const char* vu_status_name(vu_status status) {
  struct Name {
    vu_status status;
    const char* name;
  };
  static constexpr Name kNames[] = {{VU_DONE, "VU_DONE"},
                                    {VU_FAILED, "VU_FAILED"},
                                    {VU_USAGE, "VU_USAGE"},
                                    {VU_NOTHING_MATCHED, "VU_NOTHING_MATCHED"},
                                    {VU_PARTLY_DONE, "VU_PARTLY_DONE"},
                                    {VU_NO_TREE, "VU_NO_TREE"},
                                    {VU_LOCK_TIMEOUT, "VU_LOCK_TIMEOUT"},
                                    {VU_REFUSED, "VU_REFUSED"},
                                    {VU_ALREADY, "VU_ALREADY"},
                                    {VU_TOO_SHORT, "VU_TOO_SHORT"},
                                    {VU_BAD_HANDLE, "VU_BAD_HANDLE"},
                                    {VU_BUSY, "VU_BUSY"},
                                    {VU_NO_MEMORY, "VU_NO_MEMORY"},
                                    {VU_NO_NAME, "VU_NO_NAME"},
                                    {VU_OUTDATED, "VU_OUTDATED"},
                                    {VU_INTERRUPTED, "VU_INTERRUPTED"}};
  for (const Name& known : kNames) {
    if (known.status == status) return known.name;
  }
  return "?";
}

vu_status vu_last_error(vu_error* error) {
  // Not run() as a call: that would clear the result to report.
  if (error == nullptr || error->struct_size < sizeof *error) return VU_USAGE;
  api::last_problem().tell(*error);
  return VU_DONE;
}

void vu_free(void* memory) { std::free(memory); }

vu_status vu_set_trace(vu_trace_sink sink, void* context, int32_t level) {
  return api::run("vu_set_trace", [&]() -> vu_status {
    api::require(level >= -1 && level <= 4, "the level is out of range");
    trace::g_sink.store(sink != nullptr ? kept_sink(sink, context, level) : nullptr,
                        std::memory_order_release);
    return VU_DONE;
  });
}
