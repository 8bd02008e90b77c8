#pragma once

#include <string>

#include "lab/interleavings/deeds.h"

/// @file
/// What the client does by itself, without an operation of the library: each under the lock of the
/// index, for which it asks again and again. (Its rm, and its mv inside a folder, are operations of
/// the library.)
///
/// What it looks at it asks the system for on ways of its own, which no conductor sees: that is
/// done at once with the call before. So nothing is known of what those calls touch.
namespace interleavings {

std::string client_put(const Cast& cast);
std::string client_restore(const Cast& cast);
/// Takes an entry away whose bytes were copied to another place before.
std::string client_move_out(const Cast& cast);
std::string client_repair(const Cast& cast);

}  // namespace interleavings
