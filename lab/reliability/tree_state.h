#pragma once

#include <map>
#include <string>
#include <vector>

#include "lab/reliability/index_reader.h"

/// @file
/// Everything below a folder, and what an operation that was disturbed may have made of it.
namespace reliability {

/// Path -> bytes; relative, with "/" between the parts. A folder's path ends in "/".
using Tree = std::map<std::string, std::string>;

Tree tree_of(const std::string& root);

/// The lines of an index that count, with the files beside it.
Lines lines_in(const Tree& tree, const std::string& index);

/// What disturbed the operation, as far as that decides what it may leave.
enum class Disturbance : std::uint8_t {
  kKill,   ///< it went no further
  kFault,  ///< it was told of a failure and went on
  /// The same, of a lock, a cut or a move in a file: what it writes may go over old bytes.
  kMisplaced,
  kTorn,   ///< the device took the beginning of a write only
  kNoAge,  ///< it was not told how old a file is, and takes it for one of 1970
  kLie,    ///< it was told that something is not there, or ends earlier, which is not so
};

struct TreeFindings {
  std::vector<std::string> wrong;
  std::vector<std::string> windows;  ///< states between the old one and the new one
  bool index_is_old = true;          ///< every index.dat has its old text
  bool index_is_new = true;          ///< every index.dat has its new text
};

/// Compares what is there now with what was there before the operation and what is there after it
/// when nothing disturbs it:
///
/// * what the operation leaves alone is as it was;
/// * a file that it changes has its old bytes, its new ones, or the first part of the new ones;
/// * of a file that it moves, the bytes are at the old or at the new place, whole;
/// * a line of an index that is in the old and in the new text is there, and there is none that is
/// in neither;
/// * an index that had a text has one;
/// * a counter has its old number or its new one.
///
/// After a fault a file may also hold the new bytes over the old ones, where it could not be cut.
/// An entry may also have got another number than it would have, or the one for counters in
/// trouble.
TreeFindings compare(const Tree& before, const Tree& after, const Tree& now, Disturbance by);

}  // namespace reliability
