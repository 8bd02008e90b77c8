#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace demo {

/// A real file whose bytes the demo stores.
struct SourceFile {
  std::filesystem::path path;
  std::string name;  ///< the file name, UTF-8
  std::uint64_t size = 0;
};

/// The files that were found in the source folders.
struct Collection {
  std::vector<SourceFile> files;  ///< the chosen ones, in the order of choice
  std::size_t folders_seen = 0;   ///< searched folders
  std::size_t files_seen = 0;     ///< files in these folders
  // Omitted files.
  std::size_t not_storable = 0;     ///< name that Windows, Linux or an index line does not allow
  std::size_t not_in_codepage = 0;  ///< name beyond ASCII, and narrow strings are not UTF-8
  std::size_t too_large = 0;        ///< more than 8 MB
};

/// @return the default source folders that exist on this system.
std::vector<std::string> default_sources();

/// Chooses up to @p max_files files below @p folders. The choice is spread over folders, sizes and
/// kinds of names (with blanks, several dots, beyond ASCII, without extension). The same folders
/// give the same choice.
/// @param beyond_ascii whether names beyond ASCII may be chosen.
Collection collect(const std::vector<std::string>& folders, std::size_t max_files,
                   bool beyond_ascii);

}  // namespace demo
