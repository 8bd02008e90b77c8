#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace demo {

/// @return a path of the library (separator "\") as a path for std::filesystem.
std::filesystem::path native(const std::string& path);
/// @return the path in UTF-8; on Linux its bytes without conversion.
std::string utf8(const std::filesystem::path& path);

/// @return whether every byte is ASCII.
bool is_ascii(std::string_view text);
/// Whether narrow strings are UTF-8 in this process. Always on Linux; on Windows when the system
/// supports the code page in demo.manifest. Tests it with a file in the temporary folder.
bool narrow_names_are_utf8();

/// @return the file's bytes. @throws std::runtime_error with the name of the file.
std::string read_whole(const std::filesystem::path& path);
/// Creates or replaces a file. @throws std::runtime_error with the name of the file.
void write_whole(const std::filesystem::path& path, std::string_view bytes);
/// FNV-1a, 64 bits.
std::uint64_t fnv1a(std::string_view bytes);

/// Sets the modification time of @p path to that of @p base plus @p shift.
void set_time_from(const std::filesystem::path& path, const std::filesystem::path& base,
                   std::chrono::seconds shift);
/// Removes a folder with everything in it, read-only files included.
void remove_tree(const std::filesystem::path& folder);

/// The size of a folder's content.
struct Volume {
  std::size_t files = 0;
  std::size_t folders = 0;
  std::uint64_t bytes = 0;
};
Volume volume_of(const std::filesystem::path& folder);

/// @return a number that changes when a file below @p folder is created or removed, or changes its
/// size or time. For an index also its bytes count.
std::uint64_t fingerprint(const std::filesystem::path& folder);

}  // namespace demo
