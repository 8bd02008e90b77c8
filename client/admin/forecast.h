#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "client/admin/inventory.h"

/// @file
/// What a cleaning would free: the versions of a tree by their ages.
namespace admin {

/// What goes when every version older than a limit is removed.
struct Loss {
  std::uint64_t versions = 0;
  std::uint64_t documents = 0;  ///< of which no version is left
  std::uint64_t bytes = 0;      ///< parts included
};

/// The limits that curves are drawn at, from short to long, and how they are typed.
struct AgeLimit {
  std::int64_t seconds;
  std::string_view name;  ///< "30d"
};
std::span<const AgeLimit> age_limits();

/// The curve of one owner, or of all.
struct Curve {
  std::string owner;  ///< the owner folder's name; empty for all
  Loss there;         ///< what there is
  /// What goes, limit by limit.
  std::vector<Loss> losses;
};

struct ForecastOptions {
  Scope scope;  ///< one area: "docs" when none is said
  bool by_access = false;
  std::int64_t now = 0;
  sys::Locking locking;
  const std::atomic<bool>* stop = nullptr;
  std::function<void(const DocumentFolder&)> on_folder;
};

/// The age limit that brings the size down to a target.
struct LimitFor {
  /// The longest limit in whole days that does, or in hours or seconds below two days; nothing when
  /// none is needed, or when the youngest versions alone are too large.
  std::optional<std::int64_t> limit;
  Loss loss;                 ///< what goes then
  std::uint64_t kept = 0;    ///< the bytes that stay
  bool is_needless = false;  ///< the size is below the target as it is
};

class Forecast {
 public:
  /// Takes one version, or a part of the last one.
  void add(const Holding& holding, const ForecastOptions& options);
  /// After the last one.
  void finish();

  const Curve& all() const { return m_all; }
  /// By size, largest first.
  const std::vector<Curve>& owners() const { return m_owners; }
  LimitFor limit_for(std::uint64_t target) const;

 private:
  struct Aged {
    std::int64_t age;
    std::uint64_t bytes;
  };
  static void count(Curve& curve, std::int64_t age, std::uint64_t Loss::*what,
                    std::uint64_t amount);
  void end_version();
  void end_document();
  Loss loss_beyond(std::int64_t limit) const;

  std::vector<Curve> m_owners;
  Curve m_all;
  std::vector<Aged> m_versions;           ///< from old to young once finished
  std::vector<std::int64_t> m_documents;  ///< the age of the youngest version of each
  std::optional<Holding> m_version;
  std::int64_t m_age = 0;
  std::uint64_t m_bytes = 0;
  std::int64_t m_youngest = 0;
};

/// Looks at every version of the scope.
EntryFailures forecast_cleaning(const Tree& tree, const ForecastOptions& options,
                                const FailureSink& failed, Forecast& forecast);

}  // namespace admin
