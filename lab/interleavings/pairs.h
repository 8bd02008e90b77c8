#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/deeds.h"
#include "lab/interleavings/meeting.h"

/// @file
/// Which operations meet, on what.
namespace interleavings {

enum class Names : std::uint8_t {
  kSame,         ///< both are about one entry that is there
  kSameNew,      ///< about one that is not
  kOther,        ///< about two that are there
  kOtherNew,     ///< about two that are not
  kOtherFolder,  ///< about entries of one name, of two owners
};

/// Two operations, or three, and where they meet.
struct Gathering {
  std::vector<const MeetingOperation*> operations;
  Names names = Names::kSame;
  Ground ground = Ground::kTidy;
  bool synchronize = false;

  Cast cast_of(std::size_t who, const std::string& root) const;
  std::vector<Operation> ready(const std::string& root) const;
};

/// "create + remove, same, tidy, off"
std::string in_text(const Gathering& gathering);
/// Throws std::invalid_argument.
Gathering gathering_from(const std::string& text);

/// Every pair in every setting in which it may differ from another one.
std::vector<Gathering> all_pairs();
/// Two that change and a third one that only looks.
std::vector<Gathering> all_trios();

}  // namespace interleavings
