#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tests/reliability/tree_state.h"
#include "tests/support/os_recorder.h"

/// @file
/// What a disk may hold after the power went off, as far as the recorded changes tell.
///
/// On the disk for certain is what was flushed: every write and cut of a file before a flush of it, and the
/// file's name with the folders above it. Of everything else each piece may be there or not: each sector of
/// 512 bytes of a write, each cut, each change of a name. A sector that is missing before one that is there
/// reads as zero bytes.
namespace reliability {

inline constexpr std::size_t kSector = 512;

class DiskModel {
 public:
  using Changes = std::vector<os::faults::Change>;

  /// @param before what was on the disk for certain. @param changes in their order.
  DiskModel(Tree before, Changes changes);

  /// How many pieces of the first @p end changes are not certain.
  std::size_t loose_pieces(std::size_t end) const;
  /// The tree after the first @p end changes. @p keeps says of each piece that is not certain, numbered in the
  /// order of their writing, whether it is there.
  Tree image(std::size_t end, const std::function<bool(std::size_t)>& keeps) const;
  /// Whether the changes of a file from number @p begin on are not all certain after the first @p end.
  bool is_loose(std::size_t begin, std::size_t end, const std::string& path) const;

 private:
  struct State;

  bool is_certain(std::size_t change, std::size_t end) const;
  void apply(State& state, std::size_t change, const std::function<bool()>& keeps_next) const;

  const Tree m_before;
  const Changes m_changes;
  std::vector<std::size_t> m_file;  ///< of each change: which file it concerns
  std::map<std::size_t, std::set<std::size_t>>
      m_flushes;  ///< of each file: the changes that flush it
  std::size_t m_files = 0;
  std::map<std::string, std::size_t> m_first;  ///< the files of `m_before`
};

/// Makes a folder hold a tree; @p there is what it holds already.
void put_tree(const Tree& tree, const std::string& root, const Tree& there);

}  // namespace reliability
