#pragma once

#include <algorithm>
#include <filesystem>
#include <string>
#include <string_view>

/// @file
/// Paths as bytes (UTF-8 on Windows) and as the C++ library takes them.
namespace stgctl {

namespace fs = std::filesystem;

#if defined(_WIN32)
inline fs::path to_path(std::string_view bytes) {
  return std::u8string(bytes.begin(), bytes.end());
}
inline std::string from_path(const fs::path& path) {
  const std::u8string text = path.u8string();
  return {text.begin(), text.end()};
}
#else
inline fs::path to_path(std::string_view bytes) { return bytes; }
inline std::string from_path(const fs::path& path) { return path.native(); }
#endif

/// A folder and a name in it.
inline std::string joined(std::string_view folder, std::string_view name) {
  return from_path(to_path(folder) / to_path(name));
}

}  // namespace stgctl
