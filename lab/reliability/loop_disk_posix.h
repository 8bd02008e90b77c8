#pragma once

#include <cstdint>
#include <string>

#include "tests/support/scratch.h"

/// @file
/// A file system of its own on a loop device over a file in memory, whose power can be cut.
namespace reliability {

/// How it is made and mounted.
struct DiskKind {
  std::string name;      ///< for the report: "ext4, data=ordered"
  std::string type;      ///< "ext4"
  std::string options;   ///< of the mount
  std::uint64_t size;    ///< of the device, in bytes
  std::string maker;     ///< the command that makes it, but for the file
  std::string packaged;  ///< where that command is from
};

/// The mount is seen by this process and its children alone, and the device is let go with the last
/// of them: nothing stays, however they end.
class LoopDisk {
 public:
  explicit LoopDisk(DiskKind kind);
  ~LoopDisk();
  LoopDisk(const LoopDisk&) = delete;
  LoopDisk& operator=(const LoopDisk&) = delete;

  /// Why there is no disk; empty when there is one. It is mounted then.
  const std::string& refusal() const { return m_refusal; }
  const std::string& name() const { return m_kind.name; }
  /// Where it is mounted.
  const std::string& path() const { return m_path; }
  /// Everything that was written is on the device afterwards.
  void settle() const;
  /// After the power was cut: the device is mounted anew, and its journal replayed. @return what
  /// went wrong.
  std::string start_again();
  /// Makes an empty file system on the device. @return what went wrong.
  std::string make_anew() const;

 private:
  std::string attach();
  std::string make(const std::string& path) const;
  std::string mount() const;

  const DiskKind m_kind;
  const scratch_folder m_scratch;
  const std::string m_path;
  int m_device = -1;
  std::string m_device_path;
  std::string m_refusal;
};

/// Nothing more is written to the file system below @p path, and its journal is not flushed.
/// @return whether the system did that.
bool cut_power(const std::string& path);

}  // namespace reliability
