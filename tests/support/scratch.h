#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

/// @file
/// Folders and files for tests, made and looked at without the library under test.
///
/// Paths are std::string with "\" or "/" as separators, in UTF-8 (on Linux any bytes). Everything
/// that cannot be done throws std::filesystem::filesystem_error, which fails the test.

/// A fresh folder of its own for one test, below the folder that the environment variable
/// VU_TEST_TMP names or else the system's folder for temporary files. It goes with everything in
/// it, read-only things included, when the object goes.
class scratch_folder {
 public:
  scratch_folder();
  ~scratch_folder();
  scratch_folder(const scratch_folder&) = delete;
  scratch_folder& operator=(const scratch_folder&) = delete;

  /// The folder, absolute, without a trailing separator.
  const std::string& path() const { return m_path; }
  /// The folder + "\" + @p name; nothing is made.
  std::string path(const std::string& name) const { return m_path + "\\" + name; }

 private:
  std::string m_path;
};

/// The form of a path that std::filesystem takes; on Windows an absolute path gets the prefix for
/// names beyond the classic limit.
std::filesystem::path native(const std::string& path);

/// The system's folder for temporary files, without a trailing separator.
std::string system_temporary_folder();

/// Makes or replaces a file.
void write_file(const std::string& path, const std::string& bytes);
/// The bytes of a file.
std::string read_file(const std::string& path);
/// Whether the path leads to something whose last name is spelled exactly so: no patterns, no other
/// letter case, no dropped dots. A dangling link counts, as a name that is taken.
bool file_exists(const std::string& path);
/// Whether the path is a folder.
bool folder_exists(const std::string& path);
/// Seconds since 1970-01-01 UTC; the last access is set to the same time.
void set_modify_time(const std::string& path, std::int64_t seconds);
/// Seconds since 1970-01-01 UTC.
std::int64_t get_modify_time(const std::string& path);
/// Sets the last access alone.
void set_access_time(const std::string& path, std::int64_t seconds);
/// The names of everything in a folder but "." and "..", sorted byte by byte.
std::vector<std::string> list_folder(const std::string& path);
/// Makes a folder and its missing parents.
void make_folder(const std::string& path);
/// Takes the owner's (and everybody's) write permission away; on Windows sets the read-only
/// attribute.
void make_read_only(const std::string& path);
/// The opposite, for the owner.
void make_writable(const std::string& path);
/// Whether the owner may write; on Windows whether the read-only attribute is clear.
bool is_writable(const std::string& path);
