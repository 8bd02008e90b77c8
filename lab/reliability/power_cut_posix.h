#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/reliability/kills.h"
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

// ------------------------------------------------------------------------------------------------
// The process whose power is cut.

/// The file systems that are tried: how many, and what each is called.
std::size_t kinds_of_disk();
std::string name_of_disk(std::size_t number);

/// When the power goes, and what of the file system happens to be written by then.
struct CutPlan {
  /// 0: the other process chooses the moment. Otherwise the call of the system with this number
  /// does, among those that change something, after the first operation returned.
  std::uint64_t call = 0;
  bool after = false;  ///< after the call, not before it
  std::uint32_t write_back =
      0;  ///< bits: 1 some pages of the index, 2 the journal, 4 the other order
  std::uint64_t seed = 0;
  bool flushes = true;  ///< faulty when not: no flush does anything
};

/// Told to the process that stays alive.
struct Progress {
  std::atomic<std::uint32_t> begun = 0;
  std::atomic<std::uint32_t> returned = 0;
  std::atomic<std::uint32_t> returned_at_cut = 0;
  std::atomic<bool> is_cut = false;
};

/// What is done: operations one after the other.
using Work = std::vector<std::function<void()>>;

/// An operation of the kill suites on the storage of this process.
void carry_out(const std::string& folder, const std::string& owner, const Operation& operation);

/// Starts a process that does the work, and ends it when the power is off. @p disk is where the
/// file system is mounted, @p index the path of the index. @return how many operations had returned
/// before, and how many had begun.
struct CutOff {
  std::uint32_t returned = 0;
  std::uint32_t begun = 0;
  std::string failure;
};
CutOff work_until_cut(const std::string& disk, const std::string& index, const CutPlan& plan,
                      const Work& work);

}  // namespace reliability
