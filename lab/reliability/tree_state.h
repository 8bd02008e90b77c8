#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/reader/index_reader.h"

/// @file
/// The content of a folder with its sub-folders, and the states that a disturbance may leave.
namespace reliability {

/// Path -> bytes. Paths are relative and separated by "/". The path of a folder ends in "/".
using Tree = std::map<std::string, std::string>;

Tree tree_of(const std::string& root);

/// The valid entries of an index of @p tree.
reader::Lines lines_in(const Tree& tree, const std::string& index);

/// What disturbed the operation. It decides which states are allowed.
enum class Disturbance : std::uint8_t {
  kKill,   ///< the process ended
  kFault,  ///< a call failed; the operation continued
  /// A lock, a truncation or a seek failed: the operation may write over old bytes.
  kMisplaced,
  kTorn,   ///< the device wrote only the first bytes
  kNoAge,  ///< the age of a file was unknown; the operation uses 1970
  kLie,    ///< an existing file was reported as missing, or as shorter than it is
};

struct TreeFindings {
  std::vector<std::string> wrong;
  std::vector<std::string> windows;  ///< intermediate states
  bool index_is_old = true;          ///< every index.dat has its old text
  bool index_is_new = true;          ///< every index.dat has its new text
};

/// Checks the tree @p now. @p before is the tree before the operation, @p after the tree after a
/// run without a fault:
///
/// * A file that the operation does not change is as before.
/// * A changed file has its old bytes, its new ones, or the beginning of the new ones.
/// * A moved file is complete in its old or its new place.
/// * An index entry that is in the old and the new text is there.
/// * No index entry is there that is in neither text.
/// * An index that had a text is not empty.
/// * A counter has its old number or its new one.
///
/// Faults allow two more states. If the truncation failed, a file may have its new bytes over its
/// old ones. An entry may have another number; 99999999 means that the counter failed.
TreeFindings compare(const Tree& before, const Tree& after, const Tree& now, Disturbance by);

/// The first item of @p expected that is missing or different in @p found; empty if there is none.
std::string missing_in(const Tree& found, const Tree& expected);
/// The first difference; empty if the trees are equal.
std::string difference(const Tree& expected, const Tree& found);

}  // namespace reliability
