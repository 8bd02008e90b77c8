#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace demo {

/// A real file whose bytes are to be stored.
struct SourceFile {
  std::filesystem::path path;
  std::string name;  ///< its own name, UTF-8
  std::uint64_t size = 0;
};

/// What the source folders gave.
struct Collection {
  std::vector<SourceFile> files;  ///< the chosen ones, in the order of choice
  std::size_t folders_seen = 0;   ///< folders that were looked into
  std::size_t files_seen = 0;     ///< files found there
  std::size_t not_storable = 0;   ///< left out: a name that one of the systems cannot hold
  std::size_t not_in_codepage =
      0;                      ///< left out: a name beyond ASCII where narrow strings are not UTF-8
  std::size_t too_large = 0;  ///< left out: larger than a few MB
};

/// The folders to look into when none is named: those of the usual ones that exist.
std::vector<std::string> default_sources();

/// Chooses up to @p max_files files below @p folders, the same ones for the same folders: spread
/// over folders, sizes and kinds of names (with blanks, several dots, beyond ASCII, without
/// extension).
/// @param beyond_ascii whether names beyond ASCII may be chosen.
Collection collect(const std::vector<std::string>& folders, std::size_t max_files,
                   bool beyond_ascii);

}  // namespace demo
