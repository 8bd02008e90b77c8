#pragma once

#include <cstddef>
#include <fstream>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "vu_host.h"

namespace demo {

/// The services of this program for the library: a trace sink that collects errors and can write
/// the whole trace to a file, and the product's binary folder.
class Host final : public vu_host::trace_sink, public vu_host::configuration {
 public:
  /// Installs this object; it must outlive the last call into the library.
  void install();
  /// Writes the whole trace to @p file. @return whether the file could be created.
  bool trace_to(const std::string& file);
  /// @param folder the product's binary folder; its folder "config" contains the master profile.
  void set_binary_folder(const std::string& folder) { m_binary_folder = folder; }
  /// @return the texts of the error events since the last call.
  std::vector<std::string> take_errors();

  bool wants(vu_host::trace_level level) const noexcept override;
  bool wants(vu_host::trace_event event) const noexcept override;
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override;
  void scope_end(const vu_host::trace_site& site, vu_host::trace_level level) noexcept override;
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override;
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override;
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override;

  ucs2string binary_folder() override;

 private:
  void write(const char* kind, const vu_host::trace_site& site, std::string_view text) noexcept;

  std::mutex m_mutex;
  std::ofstream m_file;
  std::vector<std::string> m_errors;
  std::string m_binary_folder;
};

}  // namespace demo
