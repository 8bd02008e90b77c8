#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "client/admin/formatted.h"
#include "client/admin/tree.h"
#include "client/stgctl/json.h"
#include "vu_host.h"

namespace stgctl {

/// When colours or a progress bar are shown.
enum class When { kAuto, kAlways, kNever };

/// What every command understands.
struct GlobalOptions {
  std::string root;     ///< the folder above "storage", as given to the library's initialisation
  std::string storage;  ///< the storage folder itself
  admin::Layout layout = admin::Layout::kAuto;
  std::string area;   ///< "docs", "user", "mail", "list", "semlets"; empty: not said
  std::string owner;  ///< empty: not said
  bool json = false;
  /// How long to wait for a lock; nothing for ever.
  std::optional<std::chrono::milliseconds> lock_timeout = std::chrono::seconds(30);
  When color = When::kAuto;
  When progress = When::kAuto;
  std::optional<vu_host::trace_level> trace;
  std::string trace_file;  ///< empty: the standard error output

  // Changing commands only.
  bool dry_run = false;
  bool yes = false;
};

enum class Style { kPlain, kBold, kDim, kRed, kGreen, kYellow, kBlue, kCyan };

/// The program's two streams. Results go to the standard output, through a large buffer, as text or
/// as JSON; everything else goes to the standard error output, at once.
class Output {
 public:
  Output();
  ~Output();
  Output(const Output&) = delete;
  Output& operator=(const Output&) = delete;

  /// Takes over --json and --color.
  void configure(const GlobalOptions& options);
  /// What a reader who went away ("head") means to a command that only looks: its end, in silence.
  /// One that changes things goes on.
  void end_when_closed() noexcept { m_ends_when_closed = true; }
  /// Whether any result was written.
  bool has_results() const noexcept { return m_has_results; }
  /// Whether results are wanted as JSON.
  bool json() const noexcept { return m_json; }

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
  /// Writes one JSON object on a line of its own: {"schema": schema, ...fields}.
  void json_line(const char* schema, const Json& fields);
  /// Writes out what is buffered. @throws Failure when nobody takes it any more, or the disk is
  /// full.
  void flush();

  /// Text in a style on the standard output; as it is when colours are off.
  std::string styled(Style style, std::string_view text) const;
  /// Whether styled() has any effect.
  bool colors() const noexcept { return m_colors; }

  // ---- everything else ----

  /// A line about what is going on.
  void note(std::string_view text);
  /// "stgctl: warning: text"
  void warning(std::string_view text);
  /// "stgctl: text"
  void error(std::string_view text);
  /// Text without a line end, such as a question.
  void prompt(std::string_view text);
  /// Whether a line that is redrawn in place stands on the standard error output (see Progress):
  /// the next message clears it first.
  void set_transient(bool shown) noexcept { m_transient = shown; }
  /// Writes to the standard error output as it is.
  void raw_error(std::string_view bytes);

 private:
  void message(Style style, std::string_view label, std::string_view text);

  std::string m_buffer;
  std::string m_scratch;
  bool m_json = false;
  bool m_colors = false;
  bool m_error_colors = false;
  bool m_transient = false;
  bool m_broken = false;
  bool m_is_closed = false;
  bool m_ends_when_closed = false;
  bool m_has_results = false;
};

/// Puts a name of any bytes into an object: as text under @p key, with U+FFFD for what is no UTF-8,
/// and then with its bytes under @p key + "_hex" as well.
void put_name(Json& object, const std::string& key, std::string_view bytes);

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
