#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "client/stgctl/options.h"
#include "client/stgctl/output.h"

namespace stgctl {

/// A progress bar on the standard error output. It appears on a terminal only, and only when the
/// work takes longer than half a second; with --progress always at once and everywhere, with never
/// not at all.
class Progress {
 public:
  /// @param what what is being done: "storing". @param total the number of steps, 0 when unknown.
  Progress(Output& output, When when, std::string what, std::uint64_t total);
  /// Takes the bar away.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// @p steps more are done. @param item what is being worked on, shown beside the bar.
  void advance(std::uint64_t steps, std::string_view item);

 private:
  using Clock = std::chrono::steady_clock;

  void draw(std::string_view item);

  Output& m_output;
  std::string m_what;
  std::uint64_t m_total;
  std::uint64_t m_done = 0;
  bool m_wanted;
  Clock::time_point m_next;
  bool m_drawn = false;
};

}  // namespace stgctl
