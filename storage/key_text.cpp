#include "storage/key_text.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace key_text {
namespace {

constexpr std::string_view kBoundaries = "\n\r\t";

/// The number of elements that are written: at most 2^31 - 1.
std::size_t counted(const STG::NameValueSeq& seq) {
  constexpr std::size_t kMost = std::numeric_limits<std::int32_t>::max();
  return std::min(seq.size(), kMost);
}

}  // namespace

std::optional<Pair> split(std::string_view line, Separator separator) {
  const std::size_t at = separator == Separator::kLast ? line.rfind('=') : line.find('=');
  if (at == std::string_view::npos) return std::nullopt;
  return Pair{line.substr(0, at), line.substr(at + 1)};
}

std::size_t Lines::next_boundary() {
  std::size_t nearest = m_text.size();
  for (std::size_t kind = 0; kind < kBoundaries.size(); ++kind) {
    std::size_t& next = m_next[kind];
    // find() compares many bytes at a time for one character, but only one at a time for three.
    if (m_pos == 0 || next < m_pos) next = m_text.find(kBoundaries[kind], m_pos);
    nearest = std::min(nearest, next);
  }
  return nearest;
}

bool Lines::next(std::string_view& line) {
  if (m_pos >= m_text.size()) return false;
  const std::size_t end = next_boundary();
  line = m_text.substr(m_pos, end - m_pos);
  m_pos = std::min(m_text.find_first_not_of(kBoundaries, end), m_text.size());
  return true;
}

std::string join(const STG::NameValueSeq& seq) {
  const std::size_t count = counted(seq);
  std::size_t size = 0;
  for (std::size_t i = 0; i < count; ++i) size += seq[i].name.size() + seq[i].value.size() + 2;

  std::string text;
  text.reserve(size);
  for (std::size_t i = 0; i < count; ++i) {
    text += seq[i].name;
    text += '=';
    text += seq[i].value;
    text += '\n';
  }
  return text;
}

bool cut_line(std::string& text, const std::string& entry) {
  const std::size_t at = text.find(entry);
  if (at == std::string::npos) return false;
  const std::size_t end = std::min(text.find('\n', at), text.size());
  text.erase(at, end - at + 1);
  return true;
}

}  // namespace key_text
