#pragma once

// The seam with fault injection. The unit tests, and the library sources that are built for them,
// find this header before the product's os.h. os::open() is then the fault layer, and
// os::sys::open() is the system.

#define VU_OS_LAYER 1
#include "../../../../../platform/os/os.h"
#include "tests/support/os_faults.h"
