#pragma once

#include <chrono>
#include <optional>
#include <utility>

#include "client/admin/formatted.h"
#include "client/admin/tree.h"
#include "client/stgctl/json.h"
#include "vu_host.h"

namespace stgctl {

/// When to show colours or a progress bar.
enum class When { kAuto, kAlways, kNever };

/// The options of every command.
struct GlobalOptions {
  std::string root;     ///< the folder above "storage", the root of the library
  std::string storage;  ///< the storage folder itself
  admin::Layout layout = admin::Layout::kAuto;
  std::string area;   ///< "docs", "user", "mail", "list", "semlets"; empty: not given
  std::string owner;  ///< empty: not given
  bool json = false;
  /// How long to wait for a lock; empty: without limit.
  std::optional<std::chrono::milliseconds> lock_timeout = std::chrono::seconds(30);
  When color = When::kAuto;
  When progress = When::kAuto;
  std::optional<vu_host::trace_level> trace;
  std::string trace_file;  ///< empty: standard error

  // Changing commands only.
  bool dry_run = false;
  bool yes = false;

  // Reading commands only.
  bool no_lock = false;
};

enum class Style { kPlain, kBold, kDim, kRed, kGreen, kYellow, kBlue, kCyan };

/// The program's two output streams. Results go to standard output as text or JSON, through a large
/// buffer. All other messages go to standard error at once.
class Output {
 public:
  Output();
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Applies --json, --color and --progress.
  void configure(const GlobalOptions& options);
  /// What to do when the reader of the output ends early ("head"): a reading command ends without a
  /// message, a changing command continues.
  void end_when_closed() noexcept { m_ends_when_closed = true; }
  /// Whether any result was written.
  bool has_results() const noexcept { return m_has_results; }
  /// Whether results are JSON.
  bool json() const noexcept { return m_json; }
  /// When to show a progress bar.
  When progress() const noexcept { return m_progress; }

  // ---- results ----

  /// Writes bytes as they are.
  void write(std::string_view bytes);
  /// Writes formatted text.
  template <class... Args>
  void print(admin::FormatPattern<sizeof...(Args)> pattern, const Args&... args) {
    m_scratch.clear();
    admin::append_formatted(m_scratch, pattern, args...);
    write(m_scratch);
  }
  /// Writes one JSON object on its own line: {"schema": schema, ...fields}.
  void json_line(const char* schema, const Json& fields);
  /// Writes a result: as JSON the fields, otherwise the formatted text.
  template <class... Args>
  void result(const char* schema, const Json& fields, admin::FormatPattern<sizeof...(Args)> pattern,
              const Args&... args) {
    if (m_json) return json_line(schema, fields);
    print(pattern, args...);
  }
  /// Writes the buffer. @throws Failure if the disk is full, or, after end_when_closed(), if the
  /// reader has ended.
  void flush();

  /// Text in a style for standard output; unchanged if colours are off.
  std::string styled(Style style, std::string_view text) const;

  // ---- everything else ----

  /// A line about the progress of the work.
  void note(std::string_view text);
  /// "stgctl: warning: text"
  void warning(std::string_view text);
  /// "stgctl: text"
  void error(std::string_view text);
  /// Text without a line end, such as a question.
  void prompt(std::string_view text);
  /// Whether standard error shows a line that is redrawn in place (see Progress). The next message
  /// clears it first.
  void set_transient(bool shown) noexcept { m_transient = shown; }
  /// Writes to standard error unchanged.
  void raw_error(std::string_view bytes);

 private:
  void message(Style style, std::string_view label, std::string_view text);

  std::string m_buffer;
  std::string m_scratch;
  When m_progress = When::kAuto;
  bool m_json = false;
  bool m_colors = false;
  bool m_error_colors = false;
  bool m_transient = false;
  bool m_broken = false;
  bool m_is_closed = false;
  bool m_ends_when_closed = false;
  bool m_has_results = false;
};

/// A progress bar on standard error. It appears only on a terminal, if the work takes longer than
/// half a second. With --progress always it appears at once and everywhere, with never it does not
/// appear.
class Progress {
 public:
  /// @param what the action: "storing". @param total the number of steps, 0 if unknown.
  Progress(Output& output, std::string what, std::uint64_t total = 0);
  /// Counts the folders of a walk.
  Progress(Output& output, std::string what, admin::WalkOptions& walk);
  /// Removes the bar.
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// Counts @p steps more. @param item the current item, shown beside the bar.
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
