#pragma once

#include <string>
#include <vector>

#include "lab/interleavings/meeting.h"
#include "lab/interleavings/pairs.h"

/// @file
/// The same meetings, held by processes. Each asks over a pipe before each of its calls, and tells
/// what came of it; here a thread stands for it, and hands its calls to the meeting.
namespace interleavings {

/// The operations of a gathering, each for a process of its own that is started with it.
std::vector<Operation> ready_as_processes(const Gathering& gathering, const std::string& root,
                                          Meeting& meeting);

}  // namespace interleavings
