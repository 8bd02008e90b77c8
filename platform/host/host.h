#pragma once

#include "vu_host.h"

/// @file
/// The services in use: those of the host program, or the defaults.
namespace host {

/// Never null: the host's configuration or the default one.
vu_host::configuration& config();
/// Never null: the host's temporary-files helper or the default one.
vu_host::temporary_files& temp();

/// Writes one record to the log-history component, if there is one and its settings select it.
void record_history(const std::string& text, int first, int second, int third) noexcept;

}  // namespace host
