#include "client/stgctl/version_name.h"

#include "client/stgctl/exit_codes.h"
#include "client/stgctl/stamp.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

/// Whether the text is what lines print behind the "@". Programs may have stored below 0, too.
bool is_number(const std::string& text) {
  const std::size_t first = text.starts_with('-') ? 1 : 0;
  return text.size() > first && text.find_first_not_of("0123456789", first) == std::string::npos;
}

}  // namespace

std::optional<VersionName> parse_version_name(const std::string& text, admin::Layout layout) {
  const std::size_t slash = text.find('/');
  if (slash == std::string::npos || !admin::area_named(text.substr(0, slash))) return std::nullopt;
  const bool has_owner = layout == admin::Layout::kOwner;
  const std::size_t before_name = has_owner ? text.find('/', slash + 1) : slash;
  // No name holds a separator.
  if (before_name == std::string::npos || text.find('/', before_name + 1) != std::string::npos)
    return std::nullopt;
  VersionName version;
  version.area = text.substr(0, slash);
  if (has_owner) version.owner = text.substr(slash + 1, before_name - slash - 1);
  version.name = text.substr(before_name + 1);
  const std::size_t at = version.name.rfind('@');
  if (at == std::string::npos) return version;
  const std::string stamp = version.name.substr(at + 1);
  if (!is_number(stamp)) return version;
  version.timestamp = parse_stamp(stamp);
  if (!version.timestamp)
    throw Failure(Exit::kUsage, formatted("{}: {} is no timestamp", shown(text), stamp));
  version.name.resize(at);
  return version;
}

}  // namespace stgctl
