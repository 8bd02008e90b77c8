#pragma once

#include <string>

#include "client/stgctl/exit_codes.h"

namespace stgctl {

class Context;

/// doctor --shared: tries on the real thing whether a file system that hosts share can hold a tree.
/// @param peer the same folder through another mount, or empty. @throws Failure kRefused for a
/// folder in the tree.
Exit run_doctor_shared(Context& context, const std::string& folder, const std::string& peer);

}  // namespace stgctl
