#pragma once

#include <string>
#include <vector>

#include "client/stgctl/usage.h"

namespace stgctl {

/// The shells for which completion_script() knows what to write.
const std::vector<std::string>& completion_shells();
/// A script that teaches a shell to complete the program's command line.
std::string completion_script(const std::string& shell, const std::vector<CommandUsage>& usage);

}  // namespace stgctl
