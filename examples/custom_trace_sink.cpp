// Writes the library's trace to rotating files, through POCO: custom_trace_sink_storage [FOLDER]
#include <Poco/AutoPtr.h>
#include <Poco/FileChannel.h>
#include <Poco/FormattingChannel.h>
#include <Poco/PatternFormatter.h>

#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "vu_host.h"
#include "vu_storage.h"

using vu_host::trace_event, vu_host::trace_level, vu_host::trace_site;

class PocoSink final : public vu_host::sink {
 public:
  explicit PocoSink(const std::string& path)
      : m_file(new Poco::FileChannel(path)),
        m_channel(new Poco::FormattingChannel(
            new Poco::PatternFormatter("%Y-%m-%d %H:%M:%S.%i %P:%I %p %s %t"), m_file)) {
    m_file->setProperty("rotation", "16 K");
    m_file->setProperty("archive", "number");
    m_file->setProperty("purgeCount", "3");
    m_channel->open();  // throws when the file cannot be created; POCO's channels are thread-safe
  }

  bool wants(trace_level level) const noexcept override { return level <= trace_level::l; }
  bool wants(trace_event) const noexcept override { return true; }
  void scope_begin(const trace_site& site, trace_level, std::string_view label) noexcept override {
    log(site, label.empty() ? site.signature : label, Poco::Message::PRIO_DEBUG);
  }
  void scope_message(const trace_site& site, std::string_view text) noexcept override {
    log(site, text, Poco::Message::PRIO_DEBUG);
  }
  void record(const trace_site& site, trace_level, std::string_view text) noexcept override {
    log(site, text, Poco::Message::PRIO_INFORMATION);
  }
  void event(const trace_site& site, trace_event event, std::string_view text) noexcept override {
    constexpr Poco::Message::Priority priorities[] = {
        Poco::Message::PRIO_NOTICE, Poco::Message::PRIO_WARNING, Poco::Message::PRIO_ERROR};
    log(site, text, priorities[static_cast<int>(event)]);
  }

 private:
  void log(const trace_site& site, std::string_view text, Poco::Message::Priority priority) noexcept
      try {
    m_channel->log(Poco::Message(site.source, std::string(text), priority));
  } catch (...) {
    // A sink must not throw: on a full disk the record is lost and the operation continues.
  }

  Poco::AutoPtr<Poco::FileChannel> m_file;
  Poco::AutoPtr<Poco::FormattingChannel> m_channel;
};

int main(int argc, char** argv) try {
  const std::string folder = argc > 1 ? argv[1] : "custom-trace-sink";
  std::filesystem::create_directories(folder);
  const std::string log = folder + "/storage.log";
  static PocoSink sink(log);
  vu_host::install({&sink, nullptr, nullptr, nullptr});
  if (!vu_storage::initRootStorage(folder, true, false)) throw std::runtime_error("see " + log);
  vu_storage storage;
  for (int n = 0; n < 30; ++n) {
    vu_file file;
    storage.OpenWrite(file, "anna", "note.kdf", STG::CorporateRepository, true, n);
    if (!file.is_open()) throw std::runtime_error("cannot write note.kdf; see " + log);
    storage.Write(file, "text");
    storage.Close(file);
  }
  std::cout << "traced to " << log << " and older files there\n";
  return std::cout.flush() && std::filesystem::exists(log + ".0") ? 0 : 1;
} catch (const std::exception& failure) {
  std::cerr << "custom_trace_sink: " << failure.what() << "\n";
  return 1;
}
