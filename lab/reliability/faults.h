#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/trial.h"

/// @file
/// The faults of the suite `faults`, and what the headers promise about an operation with a fault.
namespace reliability {

/// How a system call fails.
struct Way {
  enum class Kind : std::uint8_t {
    kStatus,        ///< does nothing and returns a failure
    kException,     ///< does nothing and throws
    kShort,         ///< transfers only the first bytes and returns success
    kShortFailure,  ///< transfers only the first bytes and returns a failure
  };

  Kind kind = Kind::kStatus;
  machine::Trouble trouble = machine::Trouble::kBroken;
  os::faults::Times times = os::faults::Times::kOnce;
};
std::string in_words(const Way& way);

/// All faults that are possible for this call.
std::vector<Way> ways_for(os::faults::Call call);
/// Makes call number @p at (from 0) of @p calls fail.
os::faults::Fault plan(const Way& way, const std::vector<os::faults::Call>& calls, std::size_t at);
/// Which states of the tree are allowed after this fault.
Disturbance disturbance_of(const std::string& operation, const Way& way, os::faults::Call call);

/// Checks the promises of the header after a fault. Examples of a complaint: an exception that the
/// header does not name, a failure without a trace.
std::vector<std::string> complaints(const std::string& operation, const Way& way,
                                    os::faults::Call call, const Undisturbed& usual,
                                    const Outcome& outcome);

}  // namespace reliability
