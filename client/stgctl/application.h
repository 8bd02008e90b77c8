#pragma once

#include <memory>
#include <string>
#include <vector>

#include "client/stgctl/exit_codes.h"

namespace stgctl {

/// Reads the command line and runs the command that it names.
/// @param arguments without the program's name.
Exit run_application(const std::vector<std::string>& arguments);

}  // namespace stgctl
