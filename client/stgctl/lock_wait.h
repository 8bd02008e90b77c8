#pragma once

#include <string>

#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"

namespace stgctl {

/// Waits until nobody holds the files that an operation of the library is going to lock: the
/// library itself would wait without limit. A lock waited for longer than two seconds is told once,
/// with its holder.
///
/// What remains is the moment between this and the operation: somebody who takes the lock then
/// makes the operation wait, also beyond the time limit.
///
/// @param folder the folder of an index, in the system's form. @param file another file in it that
/// the operation locks, empty for none.
/// @throws Failure kLockTimeout when the time is over, kInterrupted after Ctrl-C.
void wait_until_free(Context& context, const std::string& folder, const std::string& file = {});

/// What a lock that was not obtained in time is told as, with its holder.
Failure lock_missed(Context& context, const std::string& path);

/// Who holds a file locked, as far as the system tells: "process 4711 (client)".
std::string holder_of(Context& context, const std::string& path);
/// Tells that a lock is being waited for.
void tell_waiting(Context& context, const std::string& path);

}  // namespace stgctl
