#include "storage/key_text.h"

#include <algorithm>
#include <cstddef>
#include <limits>

namespace key_text {
namespace {

// An object, so that the searches inline it: they ask for every byte of a file.
constexpr auto kEndsLine = [](char c) { return c == '\n' || c == '\r' || c == '\t'; };

/// The elements that count: their number is 32 bits wide.
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

bool Lines::next(std::string_view& line) {
  if (m_pos >= m_text.size()) return false;
  const char* const start = m_text.data() + m_pos;
  const char* const stop = m_text.data() + m_text.size();
  const char* const end = std::find_if(start, stop, kEndsLine);
  line = std::string_view(start, static_cast<std::size_t>(end - start));
  m_pos = static_cast<std::size_t>(std::find_if_not(end, stop, kEndsLine) - m_text.data());
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
