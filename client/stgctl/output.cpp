#include "client/stgctl/output.h"

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "client/stgctl/exit_codes.h"
#include "client/stgctl/terminal.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

constexpr std::size_t kBufferSize = std::size_t{256} * 1024;
constexpr std::string_view kClearLine = "\r\x1b[K";

/// The escape sequences of the styles.
constexpr std::array<std::string_view, 8> kStyles = {
    "", "\x1b[1m", "\x1b[2m", "\x1b[31m", "\x1b[32m", "\x1b[33m", "\x1b[34m", "\x1b[36m"};

/// Windows reports a closed pipe as EINVAL.
bool is_reader_gone(int code) { return code == EPIPE || code == EINVAL; }

std::string in_style(bool colors, Style style, std::string_view text) {
  if (!colors || style == Style::kPlain) return std::string(text);
  return formatted("{}{}\x1b[0m", kStyles[static_cast<std::size_t>(style)], text);
}

bool wants_colors(When when, terminal::Stream stream) {
  if (when == When::kAlways) return true;
  if (when == When::kNever) return false;
  // https://no-color.org: any value that is not empty.
  const char* const refused = std::getenv("NO_COLOR");
  return (refused == nullptr || *refused == '\0') && terminal::understands_colors(stream);
}

using namespace std::chrono_literals;

constexpr auto kPatience = 500ms;
constexpr auto kBetweenDrawings = 100ms;

}  // namespace

Output::Output() { m_buffer.reserve(kBufferSize); }

Output::~Output() {
  try {
    flush();
  } catch (const Failure&) {
    // A caller that needs the error calls flush() first.
  }
}

void Output::configure(const GlobalOptions& options) {
  m_json = options.json;
  m_progress = options.progress;
  m_colors = wants_colors(options.color, terminal::Stream::kOut) && !m_json;
  m_error_colors = wants_colors(options.color, terminal::Stream::kErr);
}

void Output::write(std::string_view bytes) {
  m_has_results = m_has_results || !bytes.empty();
  if (m_buffer.size() + bytes.size() > kBufferSize) flush();
  if (bytes.size() > kBufferSize) {
    m_buffer = bytes;
    flush();
    return;
  }
  m_buffer += bytes;
}

void Output::json_line(const char* schema, const Json& fields) {
  Json line = {{"schema", schema}};
  line.update(fields);
  write(line.dump() + "\n");
}

void Output::flush() {
  const std::string pending = std::exchange(m_buffer, {});
  m_buffer.reserve(kBufferSize);
  if (m_is_closed) return;
  const bool all = std::fwrite(pending.data(), 1, pending.size(), stdout) == pending.size();
  const bool is_whole = all && std::fflush(stdout) == 0;
  if (!is_whole && is_reader_gone(errno)) {
    m_is_closed = true;
    if (m_ends_when_closed) throw Failure(Exit::kDone, "");
    return;
  }
  if (!is_whole || m_broken) {
    // Reported once: later writes would fail too.
    if (std::exchange(m_broken, true)) return;
    fail("the standard output cannot be written; check the disk and the program that reads it");
  }
}

std::string Output::styled(Style style, std::string_view text) const {
  return in_style(m_colors, style, text);
}

void Output::note(std::string_view text) { message(Style::kPlain, "", text); }
void Output::warning(std::string_view text) { message(Style::kYellow, "warning: ", text); }
void Output::error(std::string_view text) { message(Style::kRed, "", text); }

void Output::prompt(std::string_view text) {
  flush();
  raw_error(text);
}

void Output::raw_error(std::string_view bytes) {
  std::fwrite(bytes.data(), 1, bytes.size(), stderr);
  std::fflush(stderr);
}

void Output::message(Style style, std::string_view label, std::string_view text) {
  // Earlier results come first, also if both streams are one terminal.
  if (!m_broken) {
    try {
      flush();
    } catch (const Failure&) {
      m_broken = true;
    }
  }
  if (std::exchange(m_transient, false)) raw_error(kClearLine);
  if (style == Style::kPlain) {
    raw_error(formatted("{}\n", text));
  } else {
    raw_error(
        formatted("{}\n", in_style(m_error_colors, style, formatted("stgctl: {}{}", label, text))));
  }
}

// ---- progress ----------------------------------------------------------------------------------

Progress::Progress(Output& output, std::string what, std::uint64_t total)
    : m_output(output),
      m_what(std::move(what)),
      m_total(total),
      m_wanted(output.progress() == When::kAlways ||
               (output.progress() == When::kAuto && terminal::is_terminal(terminal::Stream::kErr))),
      m_next(Clock::now() + (output.progress() == When::kAlways ? 0ms : kPatience)) {}

Progress::Progress(Output& output, std::string what, admin::WalkOptions& walk)
    : Progress(output, std::move(what)) {
  walk.on_folder = [this](const admin::DocumentFolder& folder) { advance(1, folder.path); };
}

Progress::~Progress() {
  if (!m_drawn) return;
  m_output.raw_error(kClearLine);
  m_output.set_transient(false);
}

void Progress::advance(std::uint64_t steps, std::string_view item) {
  m_done += steps;
  if (!m_wanted) return;
  const Clock::time_point now = Clock::now();
  if (now < m_next) return;
  m_next = now + kBetweenDrawings;
  draw(item);
}

void Progress::draw(std::string_view item) {
  // Results on the same terminal come first; the bar is below them.
  m_output.flush();
  const auto width =
      static_cast<std::size_t>(std::max(terminal::width(terminal::Stream::kErr), 20));
  std::string line;
  if (m_total > 0) {
    constexpr std::size_t kBar = 24;
    const double part = std::min(1.0, static_cast<double>(m_done) / static_cast<double>(m_total));
    const auto full = static_cast<std::size_t>(part * kBar);
    line = formatted("{} [{}{}] {:3.0f} % {}/{} ", m_what, std::string(full, '#'),
                     std::string(kBar - full, '.'), part * 100, m_done, m_total);
  } else {
    line = formatted("{} {} ", m_what, m_done);
  }
  line += shown(item);
  m_output.raw_error(formatted("{}{}", kClearLine, cut(line, width - 1)));
  m_output.set_transient(true);
  m_drawn = true;
}

}  // namespace stgctl
