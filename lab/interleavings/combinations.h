#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/interleaving.h"
#include "lab/interleavings/operations.h"

/// @file
/// The combinations of operations that are explored.
namespace interleavings {

enum class Names : std::uint8_t {
  kSame,         ///< one existing entry for both
  kSameNew,      ///< one missing entry for both
  kOther,        ///< two existing entries
  kOtherNew,     ///< two missing entries
  kOtherFolder,  ///< entries of the same name, of two owners
};

/// Two or three operations, and the entries and the tree that they run on.
struct Combination {
  std::vector<const Operation*> operations;
  Names names = Names::kSame;
  Setup setup = Setup::kTidy;
  bool synchronize = false;

  Target target_of(std::size_t who, const std::string& root) const;
  std::vector<Task> tasks(const std::string& root) const;
};

/// "create + remove, same, tidy, off"
std::string in_text(const Combination& combination);
/// @throws std::invalid_argument if the text is not a combination.
Combination combination_from(const std::string& text);

/// Every pair, in every setting that can make a difference.
std::vector<Combination> all_pairs();
/// Two operations that change something, and a third one that only reads.
std::vector<Combination> all_trios();

// ------------------------------------------------------------------------------------------------
// Runs a combination with processes. A process waits for permission over a pipe before each call,
// and reports the result. Here a thread represents it, and passes its calls to the scheduler.

/// Starts a process for each operation. Each task represents one of them.
std::vector<Task> process_tasks(const Combination& combination, const std::string& root,
                                Interleaving& interleaving);

}  // namespace interleavings
