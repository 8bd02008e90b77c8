#pragma once

#include <string_view>

namespace stgctl {

/// A file of the folders report/ and completion/, which are built into the program (embed.cmake).
/// @throws std::logic_error for a name that none bears.
std::string_view embedded_file(std::string_view name);

}  // namespace stgctl
