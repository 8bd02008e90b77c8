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
/// A model of a disk after a power failure.
///
/// After a flush of a file, its earlier writes and truncations are certain. So are its name and the
/// folders above it. Every other change may be on the disk or not, in any order:
///
/// * Each sector of 512 bytes has its old bytes, the bytes after any later write, or zeros.
/// * Each file has one of the sizes that it had.
/// * Each change of a name is there or not.
///
/// Old bytes become zeros only in a sector in which a write replaces bytes. The counter never
/// becomes zeros: that would only waste numbers.
namespace reliability {

inline constexpr std::size_t kSector = 512;
/// A file may have the size of a part of a write. Such a part ends at a multiple of this size.
inline constexpr std::size_t kBlock = 4096;

/// A sector with old bytes that a write replaced, if that write did not reach the disk.
enum class Missing : std::uint8_t { kIsOld, kMayBeZeros };

/// A file, and the changes of it that are not certain.
class LooseFile {
 public:
  explicit LooseFile(std::string bytes = {}) : m_certain(std::move(bytes)), m_seen(m_certain) {}

  void write(std::uint64_t offset, std::string_view bytes);
  void cut(std::uint64_t size);
  void flush();

  /// The content for readers before the power failure.
  const std::string& seen() const { return m_seen; }
  bool is_certain() const { return m_sectors.empty() && m_sizes.empty(); }
  /// One content that the disk may have.
  std::string image(std::mt19937_64& random, Missing missing = Missing::kMayBeZeros) const;

 private:
  /// One sector with its changes since the last flush.
  struct Sector {
    std::vector<std::string> versions;  ///< its content after each change
    bool is_replaced = false;           ///< a write replaced bytes in it
  };

  void change(std::uint64_t begin, std::uint64_t end);

  std::string m_certain;
  std::string m_seen;
  std::map<std::uint64_t, Sector> m_sectors;
  std::vector<std::uint64_t> m_sizes;  ///< after each change since the last flush
};

class DiskModel {
 public:
  using Change = os::faults::Change;

  /// @param before the content of the disk; it is certain.
  explicit DiskModel(const Tree& before);

  void apply(const Change& change);
  /// Null if there is no file with that name.
  const LooseFile* file(const std::string& path) const;
  /// One tree that the disk may contain.
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
  std::map<std::string, std::size_t> m_now;  ///< names before the power failure
  std::vector<Naming> m_namings;
};

/// Changes a folder from @p there to @p tree.
void put_tree(const Tree& tree, const std::string& root, const Tree& there);

}  // namespace reliability
