#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "lab/reliability/kill_model.h"

/// @file
/// The process whose power is cut.
namespace reliability {

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
  bool flushes = true;  ///< planted when not: no flush does anything
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
