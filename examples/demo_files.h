#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace demo {

/// @return a path of the library ("\" separates) as one for std::filesystem.
std::filesystem::path native(const std::string& path);
/// @return the path as UTF-8 bytes (on Linux its bytes as they are).
std::string utf8(const std::filesystem::path& path);

/// @return whether every byte is ASCII.
bool is_ascii(std::string_view text);
/// Whether narrow strings are UTF-8 for this process: always on Linux; on Windows when the code
/// page that the program's manifest asks for is granted. Tried with a file in the temporary folder.
bool narrow_names_are_utf8();

/// @return the file's bytes. @throws std::runtime_error naming the file.
std::string read_whole(const std::filesystem::path& path);
/// Makes or replaces a file. @throws std::runtime_error naming the file.
void write_whole(const std::filesystem::path& path, std::string_view bytes);
/// FNV-1a, 64 bits.
std::uint64_t fnv1a(std::string_view bytes);

/// Sets the modification time of @p path to that of @p base plus @p shift.
void set_time_from(const std::filesystem::path& path, const std::filesystem::path& base,
                   std::chrono::seconds shift);
/// Removes a folder with everything in it, read-only files included.
void remove_tree(const std::filesystem::path& folder);

/// What a folder holds, files and bytes.
struct Volume {
  std::size_t files = 0;
  std::size_t folders = 0;
  std::uint64_t bytes = 0;
};
Volume volume_of(const std::filesystem::path& folder);

/// A number that changes when any file below @p folder appears, disappears or changes its size,
/// time or, where it is an index, its bytes.
std::uint64_t fingerprint(const std::filesystem::path& folder);

}  // namespace demo
