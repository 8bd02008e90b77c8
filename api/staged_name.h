#pragma once

#include <string_view>

namespace api {

/// The prefix of the temporary names of versions that are being stored; lists skip them.
inline constexpr std::string_view kStagedPrefix = ".vu-storing-";

}  // namespace api
