#pragma once

#include <string>

/// The root of the mail area; initialises the storage first.
///
/// The index uses nothing else of the room above it. The facade defines this function.
const std::string& initialised_mail_root();
