#pragma once

#include <vector>

#include "lab/reliability/operations.h"

namespace reliability {

/// Operations with a defect each: what the suites must find.
const std::vector<PublicOperation>&
operations_that_cut_first();  ///< a save that empties the index first
const std::vector<PublicOperation>&
operations_that_leak();  ///< a handle or memory, after a failure
const std::vector<PublicOperation>& operations_that_say_nothing();  ///< a failure without a trace
const std::vector<PublicOperation>&
operations_that_let_out();  ///< an exception that none may let out

}  // namespace reliability
