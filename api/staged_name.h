#pragma once

#include <string_view>

namespace api {

/// How names begin under which versions wait for their own; lists pass them over.
inline constexpr std::string_view kStagedPrefix = ".vu-storing-";

}  // namespace api
