#pragma once

#include <string>

/// The root of the mail area, after making sure that the storage is initialised.
///
/// The one thing that the index asks of the room above it; the facade defines it.
const std::string& initialised_mail_root();
