#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "client/admin/check.h"
#include "client/admin/stats.h"

namespace stgctl {

/// What a report tells of a tree.
struct ReportData {
  std::string tree;      ///< the storage folder
  std::string narrowed;  ///< what the report was narrowed to, in words; may be empty
  std::int64_t now = 0;
  admin::Layout layout = admin::Layout::kOwner;
  admin::Space space;
  /// The forecast of a cleaning, and the area that it is of; or why there is none.
  std::optional<admin::Forecast> forecast;
  std::string forecast_area;
  std::string no_forecast;
  std::optional<std::uint64_t> target;
  admin::CheckSummary check;
  /// Some findings of each kind, in the order in which they were met.
  std::vector<admin::Finding> samples;
};

/// The page: complete in itself, so that it opens without a network and without a program in it. It
/// is well formed as XML, too. Its size depends on the number of groups that are shown, not on the
/// tree.
std::string report_page(const ReportData& data);

}  // namespace stgctl
