#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <random>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "lab/reliability/tree_state.h"
#include "tests/support/os_calls.h"

/// @file
/// What a disk may hold after the power went off, as far as the recorded changes tell.
///
/// On the disk for certain is what was flushed: every write and cut of a file before a flush of it,
/// and the file's name with the folders above it. Of everything else each piece may be there or
/// not, in any order: each sector of 512 bytes as any of the writes since then has made it, each
/// size that the file has had, each change of a name. A sector that is missing is its old bytes, or
/// zeros. Old bytes become zeros only where a write has replaced some of them, and never those of a
/// counter: a lost number costs nothing but numbers.
namespace reliability {

inline constexpr std::size_t kSector = 512;
/// A file may be found with the size of a part of a write, at an edge of these.
inline constexpr std::size_t kBlock = 4096;

/// What a sector is that held bytes, of which a write has replaced some without reaching the disk.
enum class Missing : std::uint8_t { kIsOld, kMayBeZeros };

/// One file, and what of it is not certain.
class LooseFile {
 public:
  explicit LooseFile(std::string bytes = {}) : m_certain(std::move(bytes)), m_seen(m_certain) {}

  void write(std::uint64_t offset, std::string_view bytes);
  void cut(std::uint64_t size);
  void flush();

  /// What its readers see while the power is on.
  const std::string& seen() const { return m_seen; }
  bool is_certain() const { return m_sectors.empty() && m_sizes.empty(); }
  /// Some content that the disk may hold.
  std::string image(std::mt19937_64& random, Missing missing = Missing::kMayBeZeros) const;

 private:
  /// One sector, and the changes of it since the flush.
  struct Sector {
    std::vector<std::string> versions;  ///< its content after each of them
    bool is_replaced = false;           ///< bytes in it, by a write
  };

  void change(std::uint64_t begin, std::uint64_t end);

  std::string m_certain;
  std::string m_seen;
  std::map<std::uint64_t, Sector> m_sectors;
  std::vector<std::uint64_t> m_sizes;  ///< since the flush, in their order
};

class DiskModel {
 public:
  using Change = os::faults::Change;

  /// @param before what is on the disk for certain.
  explicit DiskModel(const Tree& before);

  void apply(const Change& change);
  /// Null when nothing bears that name.
  const LooseFile* file(const std::string& path) const;
  /// Some tree that the disk may hold.
  Tree image(std::mt19937_64& random) const;

 private:
  struct Naming {
    Change::What what;
    std::string path;
    std::string to;
    std::size_t file;
    bool is_certain;
  };

  void name(const Change& change, std::size_t file);
  void flush(const std::string& path, std::size_t file);

  std::vector<LooseFile> m_files;
  std::map<std::string, std::size_t> m_first;  ///< names that are certain from the beginning
  std::set<std::string> m_folders;
  std::map<std::string, std::size_t> m_now;  ///< names as they are seen
  std::vector<Naming> m_namings;
};

/// Makes a folder hold a tree; @p there is what it holds already.
void put_tree(const Tree& tree, const std::string& root, const Tree& there);

}  // namespace reliability
