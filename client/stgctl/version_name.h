#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "client/admin/tree.h"

namespace stgctl {

/// A version as every line prints it: "AREA/OWNER/NAME@STAMP", without the owner in a tree that has
/// none. The stamp may be left out.
struct VersionName {
  std::string area;
  std::string owner;  ///< empty in a tree without owners
  std::string name;
  std::optional<std::int32_t> timestamp;
};

/// Takes such a text apart. @return nothing for any other text, which is then a name by itself.
/// @throws Failure kUsage for a number behind the "@" that is no timestamp: taken for a part of the
/// name, or for no timestamp at all, it would lead to another version.
std::optional<VersionName> parse_version_name(const std::string& text, admin::Layout layout);

}  // namespace stgctl
