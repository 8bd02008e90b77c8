// A minimal host program: it receives warnings and errors, and chooses its configuration folder.
// host_minimal_storage [FOLDER]
#include <filesystem>
#include <iostream>
#include <mutex>
#include <string>
#include <string_view>

#include "vu_host.h"
#include "vu_storage.h"

class Host final : public vu_host::trace_sink, public vu_host::configuration {
 public:
  explicit Host(std::string folder) : m_folder(std::move(folder)) {}

  // Only warnings and errors are wanted. The library does not even build the text of other records.
  bool wants(vu_host::trace_level) const noexcept override { return false; }
  bool wants(vu_host::trace_event event) const noexcept override {
    return event != vu_host::trace_event::success;
  }
  void event(const vu_host::trace_site& site, vu_host::trace_event,
             std::string_view text) noexcept override {
    const std::scoped_lock lock(m_mutex);  // the library calls this from any thread
    std::cerr << site.source << ": " << text << "\n";
  }
  void scope_begin(const vu_host::trace_site&, vu_host::trace_level,
                   std::string_view) noexcept override {}
  void scope_end(const vu_host::trace_site&, vu_host::trace_level) noexcept override {}
  void scope_message(const vu_host::trace_site&, std::string_view) noexcept override {}
  void record(const vu_host::trace_site&, vu_host::trace_level,
              std::string_view) noexcept override {}

  // The folder "config" below it contains the master profile.
  ucs2string binary_folder() override { return ucs2string(vu_utf8string(m_folder)); }

 private:
  std::mutex m_mutex;
  std::string m_folder;
};

int main(int argc, char** argv) {
  const std::filesystem::path folder = argc > 1 ? argv[1] : "host-minimal";
  std::error_code error;
  std::filesystem::create_directories(folder / "config", error);
  if (error) {
    std::cerr << "cannot create " << folder << ": " << error.message() << "\n";
    return 1;
  }

  // Install the host before the first call into the library. It must outlive the last call.
  static Host host(folder.string());
  vu_host::services services;
  services.trace = &host;
  services.config = &host;
  vu_host::install(services);
  if (!vu_storage::initRootStorage(folder.string(), true, false))
    return 1;  // event() has printed the reason

  // Without an owner this is the master profile, in the host's configuration folder.
  STG::NameValueSeq profile;
  profile.push_back({"language", "en"});
  if (vu_storage::saveUserOrMasterProfile("", "", profile) != 0) return 1;
  STG::NameValueSeq loaded;
  if (vu_storage::loadUserOrMasterProfile("", "", loaded) != 0 || loaded.size() != 1) {
    std::cerr << "cannot read the profile back: is " << folder << " writable?\n";
    return 1;
  }
  std::cout << vu_storage::getConfigDirPath() << ": " << loaded[0].name << " = " << loaded[0].value
            << "\n";
  return std::cout.flush() ? 0 : 1;
}
