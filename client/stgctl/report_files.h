#pragma once

#include <string_view>

namespace stgctl {

/// A file of the folder report/, which is built into the program (report/embed.cmake).
/// @throws std::logic_error for a name that none bears.
std::string_view report_file(std::string_view name);

}  // namespace stgctl
