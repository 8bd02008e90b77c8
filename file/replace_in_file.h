#pragma once

#include <string_view>

#include "platform/os/os.h"

namespace replacement {

/// What became of a replacement.
struct Outcome {
  /// A failure leaves the old lines or, where the new ones were complete already, both.
  os::Status written;
  os::Status cut;  ///< of the cut at the end of the new text; asked for only after all was written
};

/// Replaces the text of an open file by the plan of replacement.h. The handle may write, and @p old_text is
/// what the file holds. Nothing is traced and nothing is flushed.
Outcome carry_out(os::Handle handle, std::string_view old_text, std::string_view new_text);

}  // namespace replacement
