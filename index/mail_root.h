#pragma once

#include <string>

/// The root of the mail area; initialises the storage first.
///
/// This is all that the index uses of the layer above it. storage/storage_roots.cpp defines it.
const std::string& initialised_mail_root();
