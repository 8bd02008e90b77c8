#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "file/replacement.h"
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

/// Replaces the text of an open file by the plan of replacement.h, stage by stage, so that those of
/// several files can be flushed together. The handle may write. An interrupted replacement is
/// completed first. Nothing is traced.
///
/// As long as write() says true, the file is flushed and flushed() told how that went. Both texts
/// outlive it.
class StagedReplacement {
 public:
  /// @p old_bytes is what the file holds, whole.
  StagedReplacement(os::Handle handle, std::string_view old_bytes, std::string_view new_text);
  StagedReplacement(const StagedReplacement&) = delete;
  StagedReplacement& operator=(const StagedReplacement&) = delete;

  /// Writes the next stage. @return whether one was written, which wants a flush now.
  bool write();
  void flushed(const os::Status& status);
  /// Once write() has said false.
  const Outcome& outcome() const { return m_outcome; }

 private:
  void begin(std::string_view old_bytes, Plan plan, Holds before);
  void finish_plan();
  void give_up();
  void end();

  os::Handle m_handle;
  std::string_view m_old_bytes;
  std::string_view m_new_text;
  std::optional<Interrupted> m_found;
  bool m_completes = false;  ///< the plan is the one that completes m_found
  Plan m_plan;
  std::size_t m_stage = 0;
  bool m_is_over = false;
  Outcome m_outcome;
};

/// The same of one file, with the flushes.
Outcome carry_out(os::Handle handle, std::string_view old_bytes, std::string_view new_text);

}  // namespace replacement
