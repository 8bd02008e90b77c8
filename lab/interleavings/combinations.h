#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/interleaving.h"
#include "lab/interleavings/operations.h"

/// @file
/// Which operations explore_all, on what.
namespace interleavings {

enum class Names : std::uint8_t {
  kSame,         ///< both are about one entry that is there
  kSameNew,      ///< about one that is not
  kOther,        ///< about two that are there
  kOtherNew,     ///< about two that are not
  kOtherFolder,  ///< about entries of one name, of two owners
};

/// Two operations, or three, and where they meet.
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
/// Throws std::invalid_argument.
Combination combination_from(const std::string& text);

/// Every pair in every setting in which it may differ from another one.
std::vector<Combination> all_pairs();
/// Two that change and a third one that only looks.
std::vector<Combination> all_trios();

// ------------------------------------------------------------------------------------------------
// The same combinations, run by processes. Each asks over a pipe before each of its calls, and
// tells what came of it; here a thread stands for it, and hands its calls to the scheduler.

/// The operations of a combination, each for a process of its own that is started with it.
std::vector<Task> process_tasks(const Combination& combination, const std::string& root,
                                Interleaving& interleaving);

}  // namespace interleavings
