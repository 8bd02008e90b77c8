#pragma once

#include <string>
#include <vector>

#include "client/stgctl/usage.h"

namespace stgctl {

/// The page stgctl(1) as roff.
std::string manual_page(const std::vector<CommandUsage>& usage);

}  // namespace stgctl
