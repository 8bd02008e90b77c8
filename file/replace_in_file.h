#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "file/replacement.h"
#include "platform/os/os.h"

namespace replacement {

/// The text that a file contains after a replacement.
enum class Holds : std::uint8_t {
  kOldText,  ///< the replacement failed; readers ignore what follows the old text
  kNewText,  ///< over the old text or, if a later step failed, in the copy
};

/// The result of a replacement. A failure can occur with either text.
struct Outcome {
  Holds holds = Holds::kOldText;
  os::Status written;
  os::Status flushed;
  os::Status cut;  ///< the cut is tried only after all stages are written and flushed

  bool ok() const { return written.ok() && flushed.ok() && cut.ok(); }
};

/// Writes at an offset of an open file. Fails if the bytes end past 2 GB: os::seek() moves the file
/// position by 32-bit distances, so a replacement could not cut the file there.
os::Status write_at(os::Handle handle, std::uint64_t offset, std::string_view bytes);

/// Replaces the text of an open file in the stages of replacement.h. The caller flushes, so it can
/// flush several files together. An interrupted replacement in the file is completed first.
///
/// Order of calls: while write() returns true, flush the file and pass the result to flushed().
/// Then outcome().
///
/// Errors: outcome() reports them; nothing is traced. Threads: one at a time.
class StagedReplacement {
 public:
  /// @param handle open for writing. @param old_bytes all bytes of the file. Both texts must
  /// outlive this object.
  StagedReplacement(os::Handle handle, std::string_view old_bytes, std::string_view new_text);
  StagedReplacement(const StagedReplacement&) = delete;
  StagedReplacement& operator=(const StagedReplacement&) = delete;

  /// Writes the next stage. @return true if the file has to be flushed now; false at the end.
  bool write();
  void flushed(const os::Status& status);
  /// After write() has returned false.
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
  bool m_completes = false;  ///< m_plan completes m_found
  Plan m_plan;
  std::size_t m_stage = 0;
  bool m_is_over = false;
  Outcome m_outcome;
};

/// Replaces the text of one file, with the flushes.
Outcome carry_out(os::Handle handle, std::string_view old_bytes, std::string_view new_text);

}  // namespace replacement
