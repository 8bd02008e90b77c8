#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/trial.h"

/// @file
/// The faults of the suite `faults`, and what the headers state about an operation that meets one.
namespace reliability {

/// One way in which a call can go wrong.
struct Way {
  enum class Kind : std::uint8_t {
    kStatus,        ///< it does nothing and reports a failure
    kException,     ///< it does nothing and throws
    kShort,         ///< a read or write that ends early, as at the end of a file
    kShortFailure,  ///< a read or write that ends early and reports a failure
  };

  Kind kind = Kind::kStatus;
  machine::Trouble trouble = machine::Trouble::kBroken;
  os::faults::Times times = os::faults::Times::kOnce;
};
std::string in_words(const Way& way);

/// Every way for one call.
std::vector<Way> ways_for(os::faults::Call call);
/// Puts a way into force for the call number @p at (from 0) of @p calls.
os::faults::Fault plan(const Way& way, const std::vector<os::faults::Call>& calls, std::size_t at);
/// What the way of going wrong lets an operation leave.
Disturbance disturbance_of(const std::string& operation, const Way& way, os::faults::Call call);

/// What an operation must not have done after this fault: let an exception out that its header does
/// not name, or failed without a word.
std::vector<std::string> complaints(const std::string& operation, const Way& way,
                                    os::faults::Call call, const Undisturbed& usual,
                                    const Outcome& outcome);

}  // namespace reliability
