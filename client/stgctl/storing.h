#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/stgctl/operations.h"
#include "client/stgctl/report.h"
#include "client/stgctl/target.h"

namespace stgctl {

/// Whether versions that exist are replaced.
enum class IfThere : std::uint8_t { kKeep, kReplace };

/// Stores files batch by batch, and tells of each. What is there with the same bytes is skipped, so
/// that an interrupted work is completed by the same command.
class Storing {
 public:
  Storing(Context& context, const Target& target, IfThere if_there, ChangeReport& report)
      : m_context(context),
        m_target(target),
        m_if_there(if_there),
        m_report(report),
        m_entries(context) {}

  /// More items than one batch holds are sorted by their folders, so that each index is loaded and
  /// saved once per batch. @throws Failure kLockTimeout, kInterrupted; what was stored is told.
  void run(std::vector<StoreItem>& items);
  /// What was stored, or would be.
  std::uint64_t bytes() const { return m_bytes; }

 private:
  enum class What : std::uint8_t { kNew, kReplace, kEqual, kFailed };
  /// What is to be done with an item.
  struct Work {
    const StoreItem* item = nullptr;
    What what = What::kFailed;
    std::string reason;
    const admin::NewVersion* version = nullptr;  ///< of kNew and kReplace, in a batch
  };

  std::size_t run_batch(std::span<const StoreItem> items);
  Work judge(const StoreItem& item);
  void stage(StoreBatch& batch, Work& work);
  What judge_existing(const StoreItem& item, const FoundEntry& found) const;
  std::optional<FoundEntry> find(const StoreItem& item, const admin::DocumentFolder& folder);
  std::string why_not(const StoreItem& item, What what, const admin::DocumentFolder& folder);
  void finish(const Work& work);
  void tell_stored(const Work& work);
  Subject subject_of(const StoreItem& item) const;

  Context& m_context;
  const Target& m_target;
  IfThere m_if_there;
  ChangeReport& m_report;
  std::uint64_t m_bytes = 0;
  KnownEntries m_entries;  ///< for a batch
};

}  // namespace stgctl
