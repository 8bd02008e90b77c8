#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// @file
/// Folders and files for tests, created and read without the library under test.
///
/// Paths are std::string in UTF-8 (on Linux any bytes), with "\" or "/" as separators. Every
/// failure throws std::filesystem::filesystem_error, which fails the test.

/// A fresh folder for one test, below the folder in the environment variable VU_TEST_TMP or else
/// the system's folder for temporary files. The destructor removes it with its content, including
/// read-only files.
class scratch_folder {
 public:
  scratch_folder();
  ~scratch_folder();
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;

  /// The folder, absolute, without a trailing separator.
  const std::string& path() const { return m_path; }
  /// The folder + "\" + @p name. Creates nothing.
  std::string path(const std::string& name) const { return m_path + "\\" + name; }

 private:
  std::string m_path;
};

/// A path for std::filesystem. On Windows an absolute path gets the prefix for long paths.
std::filesystem::path native(const std::string& path);

/// The system's folder for temporary files, without a trailing separator.
std::string system_temporary_folder();

/// Creates or replaces a file.
void write_file(const std::string& path, const std::string& bytes);
std::string read_file(const std::string& path);
/// Whether something exists whose last name has exactly this spelling: no patterns, no other letter
/// case, no dropped dots. A dangling link counts as existing.
bool file_exists(const std::string& path);
bool folder_exists(const std::string& path);
/// @p seconds since 1970-01-01 UTC. Also sets the last access to this time.
void set_modify_time(const std::string& path, std::int64_t seconds);
/// Seconds since 1970-01-01 UTC.
std::int64_t get_modify_time(const std::string& path);
/// Sets only the last access.
void set_access_time(const std::string& path, std::int64_t seconds);
/// All names in a folder except "." and "..", sorted by bytes.
std::vector<std::string> list_folder(const std::string& path);
/// Creates a folder and its missing parents.
void make_folder(const std::string& path);
/// Removes all write permissions; on Windows sets the read-only attribute.
void make_read_only(const std::string& path);
/// Adds the owner's write permission; on Windows clears the read-only attribute.
void make_writable(const std::string& path);
/// Whether the owner may write; on Windows whether the read-only attribute is clear.
bool is_writable(const std::string& path);
