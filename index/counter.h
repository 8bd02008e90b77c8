#pragma once

#include <string>

#include "index/index_state.h"
#include "platform/host/trace.h"

/// Draws the next number of a folder's counter as the physical name of a new file: STGIndex's
/// newIndex(). It skips the names that the index uses.
/// @param own_extension null, or the file's extension: then names of files that exist are skipped,
/// too, and a counter that cannot be used is an exception instead of kTroubleName.
/// @throws the exception of the counter's handle if a lock limit has passed, or with @p
/// own_extension.
/// @param operation the scope of the caller's records.
std::string draw_name(IndexState& state, const std::string* own_extension,
                      const trace::Scope& operation);
