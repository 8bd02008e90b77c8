#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>

#include "client/admin/tree.h"
#include "vu_host.h"

namespace stgctl {

/// When colours or a progress bar are shown.
enum class When { kAuto, kAlways, kNever };

/// What every command understands.
struct GlobalOptions {
  std::string root;     ///< the folder above "storage", as given to the library's initialisation
  std::string storage;  ///< the storage folder itself
  admin::Layout layout = admin::Layout::kAuto;
  std::string area;   ///< "docs", "user", "mail", "list", "semlets"; empty: not said
  std::string owner;  ///< empty: not said
  bool json = false;
  /// How long to wait for a lock; nothing for ever.
  std::optional<std::chrono::milliseconds> lock_timeout = std::chrono::seconds(30);
  When color = When::kAuto;
  When progress = When::kAuto;
  std::optional<vu_host::trace_level> trace;
  std::string trace_file;  ///< empty: the standard error output

  // Changing commands only.
  bool dry_run = false;
  bool yes = false;
};

}  // namespace stgctl
