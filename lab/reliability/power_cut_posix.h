#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/reliability/kills.h"
#include "tests/support/scratch.h"

/// @file
/// A file system on a loop device over a file in memory. A shutdown acts like a power failure.
namespace reliability {

/// How a file system is created and mounted.
struct DiskKind {
  std::string name;      ///< for the report: "ext4, data=ordered"
  std::string type;      ///< "ext4"
  std::string options;   ///< of the mount
  std::uint64_t size;    ///< of the device, in bytes
  std::string maker;     ///< the command that creates it, without the file
  std::string packaged;  ///< the Debian package of that command
};

/// Only this process and its children see the mount. The device is released when they have ended.
class LoopDisk {
 public:
  explicit LoopDisk(DiskKind kind);
  ~LoopDisk();
  LoopDisk(const LoopDisk&) = delete;
  LoopDisk& operator=(const LoopDisk&) = delete;

  /// Why there is no disk; empty if it is mounted.
  const std::string& refusal() const { return m_refusal; }
  const std::string& name() const { return m_kind.name; }
  /// The mount point.
  const std::string& path() const { return m_path; }
  /// Writes everything to the device.
  void settle() const;
  /// Mounts the device again after cut_power(); the kernel replays the journal. @return the error.
  std::string start_again();
  /// Creates an empty file system on the device. @return the error, or empty.
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

/// Shuts the file system of @p path down. It writes nothing more and does not flush its journal.
/// @return whether the kernel did that.
bool cut_power(const std::string& path);

// ------------------------------------------------------------------------------------------------
// The process that works until the shutdown.

/// The tested file systems.
std::size_t kinds_of_disk();
std::string name_of_disk(std::size_t number);

/// The moment of the shutdown, and what the kernel writes just before.
struct CutPlan {
  /// 0: the other process shuts down at a random moment. Otherwise the shutdown is at the call with
  /// this number, from 1. Only changing calls after the end of the first operation count.
  std::uint64_t call = 0;
  bool after = false;  ///< after the call, not before it
  /// Bits: 1 some pages of the index, 2 the journal, 4 the journal before the pages.
  std::uint32_t write_back = 0;
  std::uint64_t seed = 0;
  bool flushes = true;  ///< false: flushes do nothing (faulty)
};

/// Shared with the process that survives.
struct Progress {
  std::atomic<std::uint32_t> begun = 0;
  std::atomic<std::uint32_t> returned = 0;
  std::atomic<std::uint32_t> returned_at_cut = 0;
  std::atomic<bool> is_cutting = false;  ///< the shutdown has begun: any operation may fail now
  std::atomic<bool> is_cut = false;
  std::atomic<bool> has_thrown = false;  ///< an operation threw before the shutdown
  std::array<char, 300> thrown{};        ///< its text
};

/// The operations, one after the other.
using Work = std::vector<std::function<void()>>;

/// Runs an operation of the kill suites in this process.
void carry_out(const std::string& folder, const std::string& owner, const Operation& operation);

/// Runs the work in a child process until the shutdown.
/// @param disk the mount point.
/// @param index the path of the index.
/// @return how many operations had begun and returned at the shutdown.
struct CutOff {
  std::uint32_t returned = 0;
  std::uint32_t begun = 0;
  std::string failure;
};
CutOff work_until_cut(const std::string& disk, const std::string& index, const CutPlan& plan,
                      const Work& work);

}  // namespace reliability
