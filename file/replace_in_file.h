#pragma once

#include <cstdint>
#include <string_view>

#include "platform/os/os.h"

namespace replacement {

/// What a file holds after a replacement.
enum class Holds : std::uint8_t {
  kOldText,  ///< the replacement failed and left no trace that means anything
  kNewText,  ///< in its place or, where a later step failed, in the copy behind it
};

/// What became of a replacement: what the file holds, and the failures on the way, which may go
/// with either.
struct Outcome {
  Holds holds = Holds::kOldText;
  os::Status written;
  os::Status flushed;
  os::Status cut;  ///< asked for only after all was written and flushed

  bool ok() const { return written.ok() && flushed.ok() && cut.ok(); }
};

/// Writes to a place of an open file. A place past 2 GB is refused: the system's file position
/// moves by 32-bit distances, and would come out near the start.
os::Status write_at(os::Handle handle, std::uint64_t offset, std::string_view bytes);

/// Replaces the text of an open file by the plan of replacement.h, and flushes it. The handle may
/// write; @p old_bytes is what the file holds, whole. An interrupted replacement is completed
/// first. Nothing is traced.
Outcome carry_out(os::Handle handle, std::string_view old_bytes, std::string_view new_text);

}  // namespace replacement
