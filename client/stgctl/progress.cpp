#include "client/stgctl/progress.h"

#include <algorithm>
#include <utility>

#include "client/stgctl/terminal.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

using namespace std::chrono_literals;

constexpr auto kPatience = 500ms;
constexpr auto kBetweenDrawings = 100ms;
constexpr std::string_view kClearLine = "\r\x1b[K";

/// At most @p most columns of a text.
std::string cut(std::string_view text, std::size_t most) {
  std::size_t end = 0;
  std::size_t count = 0;
  while (end < text.size()) {
    std::size_t next = end + 1;
    while (next < text.size() && (static_cast<unsigned char>(text[next]) & 0xC0U) == 0x80U) ++next;
    if (++count > most) break;
    end = next;
  }
  return std::string(text.substr(0, end));
}

}  // namespace

Progress::Progress(Output& output, When when, std::string what, std::uint64_t total)
    : m_output(output),
      m_what(std::move(what)),
      m_total(total),
      m_wanted(when == When::kAlways ||
               (when == When::kAuto && terminal::is_terminal(terminal::Stream::kErr))),
      m_next(Clock::now() + (when == When::kAlways ? 0ms : kPatience)) {}

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
  // Results that share the terminal come first; the bar is below them.
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
