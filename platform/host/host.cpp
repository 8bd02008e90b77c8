#include "platform/host/host.h"

#include <atomic>
#include <memory>
#include <string>
#include <utility>

#include "platform/host/trace.h"
#include "platform/os/os.h"

namespace vu_host {

trace_sink::~trace_sink() = default;
configuration::~configuration() = default;
temporary_files::~temporary_files() = default;
component::~component() = default;
log_history::~log_history() = default;
component_factory::~component_factory() = default;

}  // namespace vu_host

namespace host {
namespace {

/// An environment variable replaces the system's answer if it is set and contains a valid text.
bool from_environment(const char* variable, ucs2string& folder) {
  ucs2string value;
  if (!os::environment(variable, value).ok() || value.empty()) return false;
  folder = std::move(value);
  return true;
}

ucs2string system_temporary_folder() {
  ucs2string folder;
  if (!os::temporary_folder(folder).ok()) folder = ucs2string(u".");
  return folder;
}

class DefaultConfiguration final : public vu_host::configuration {
 public:
  ucs2string binary_folder() override {
    ucs2string folder;
    if (from_environment("VU_STORAGE_BINARY_DIR", folder)) return folder;
    if (!os::program_folder(folder).ok()) folder = ucs2string(u".");
    return folder;
  }
};

class DefaultTemporaryFiles final : public vu_host::temporary_files {
 public:
  void initialise(const char*, const char*) override {}

  ucs2string server_folder() override {
    ucs2string folder;
    if (from_environment("VU_STORAGE_SERVER_TEMP", folder)) return folder;
    return system_temporary_folder() + ucs2string(u"\\vu_storage");
  }

  ucs2string framework_root_folder() override {
    ucs2string folder;
    if (from_environment("VU_STORAGE_FRAMEWORK_TEMP", folder)) return folder;
    return system_temporary_folder();
  }
};

DefaultConfiguration g_default_config;
DefaultTemporaryFiles g_default_temp;

std::atomic<vu_host::configuration*> g_config = nullptr;
std::atomic<vu_host::temporary_files*> g_temp = nullptr;
std::atomic<vu_host::component_factory*> g_components = nullptr;

struct Release {
  void operator()(vu_host::component* c) const { c->release(); }
};

}  // namespace

vu_host::configuration& config() {
  vu_host::configuration* const supplied = g_config.load(std::memory_order_acquire);
  return supplied != nullptr ? *supplied : g_default_config;
}

vu_host::temporary_files& temp() {
  vu_host::temporary_files* const supplied = g_temp.load(std::memory_order_acquire);
  return supplied != nullptr ? *supplied : g_default_temp;
}

void record_history(const std::string& text, int first, int second, int third) noexcept {
  vu_host::component_factory* const factory = g_components.load(std::memory_order_acquire);
  if (factory == nullptr) return;
  const std::unique_ptr<vu_host::component, Release> created(
      factory->create("CLSID_ZTLogHistory", "IID_ILogHistory"));
  if (created == nullptr) return;
  auto& history = static_cast<vu_host::log_history&>(*created);
  if (history.enabled(first, second, third)) history.record(text.c_str(), first, second, third);
}

}  // namespace host

namespace vu_host {

void install(const services& supplied) noexcept {
  trace::g_sink.store(supplied.trace, std::memory_order_release);
  host::g_config.store(supplied.config, std::memory_order_release);
  host::g_temp.store(supplied.temp, std::memory_order_release);
  host::g_components.store(supplied.components, std::memory_order_release);
}

}  // namespace vu_host
