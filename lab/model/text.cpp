#include "lab/model/text.h"

namespace model {
namespace {

/// The last position of the character; -1 if there is none.
long last_place(const std::string& text, char what) {
  for (long i = static_cast<long>(text.size()) - 1; i >= 0; --i) {
    if (text[static_cast<std::size_t>(i)] == what) return i;
  }
  return -1;
}

/// The first position of the character from @p from on; the text's length if there is none.
std::size_t place(const std::string& text, char what, std::size_t from) {
  while (from < text.size() && text[from] != what) ++from;
  return from;
}

std::string piece(const std::string& text, std::size_t begin, std::size_t end) {
  if (end > text.size()) end = text.size();
  return begin < end ? text.substr(begin, end - begin) : "";
}

std::string digits(std::uint64_t value, std::size_t width) {
  std::string result;
  while (value != 0 || result.empty()) {
    result.insert(result.begin(), static_cast<char>('0' + value % 10));
    value /= 10;
  }
  while (result.size() < width) result.insert(result.begin(), '0');
  return result;
}

int small_value(char character) {
  const int code = static_cast<signed char>(character);
  if (code < 65) return code - 48;
  return (code & ~0x20) - 55;
}

}  // namespace

// ---- entries of an index -----------------------------------------------------------------------

std::int32_t number(const std::string& text) {
  std::size_t i = 0;
  while (i < text.size() && (text[i] == ' ' || (text[i] >= 9 && text[i] <= 13))) ++i;
  bool minus = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) {
    minus = text[i] == '-';
    ++i;
  }
  const long long largest = minus ? 2147483648LL : 2147483647LL;
  long long value = 0;
  while (i < text.size() && text[i] >= '0' && text[i] <= '9') {
    value = value * 10 + (text[i] - '0');
    if (value > largest) value = largest;
    ++i;
  }
  return static_cast<std::int32_t>(minus ? -value : value);
}

std::string key(const std::string& logical, std::int32_t stamp) {
  std::uint64_t value = 0;
  if (stamp >= 0) {
    value = static_cast<std::uint64_t>(stamp);
  } else {
    value = static_cast<std::uint64_t>(4294967296LL + stamp);
  }
  return logical + "_" + digits(value, 10);
}

std::string logical_of(const std::string& key) { return piece(key, 0, key.size() - 11); }

std::int32_t stamp_of(const std::string& key) {
  return number(piece(key, key.size() - 10, key.size()));
}

std::string extension_with_dot(const std::string& name) {
  const long dot = last_place(name, '.');
  if (dot < 0) return "";
  return piece(name, static_cast<std::size_t>(dot), name.size());
}

std::string extension(const std::string& name) {
  const std::string all = extension_with_dot(name);
  return all.empty() ? "" : piece(all, 1, all.size());
}

std::string file_of(const std::string& key, const std::string& stored) {
  if (stamp_of(key) == 0 && stored == logical_of(key)) return stored;
  return stored + extension_with_dot(logical_of(key));
}

Pairs index_pairs(const std::string& text) {
  Pairs result;
  const std::size_t none = text.size();
  std::size_t start = 0;
  std::size_t feed = place(text, '\n', start);
  std::size_t slash = place(text, '/', start);
  while (slash != none) {
    const std::string key = piece(text, start, slash);
    if (feed == none) {
      result.emplace_back(key, piece(text, slash + 1, none));
      break;
    }
    // The slash is after the end of the line: the name is the rest of the text.
    const std::size_t stored_end = feed < slash + 1 ? none : feed;
    result.emplace_back(key, piece(text, slash + 1, stored_end));
    start = feed + 1;
    feed = place(text, '\n', start);
    slash = place(text, '/', start);
  }
  return result;
}

std::string index_text(const Map& entries) {
  std::string text;
  for (const auto& [key, stored] : entries) text += key + "/" + stored + "\n";
  if (text.empty()) text = " ";
  return text;
}

// ---- names -------------------------------------------------------------------------------------

bool is_escaped(const std::string& name) {
  for (const char c : name) {
    const bool digit = c >= '0' && c <= '9';
    const bool letter = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    const bool other =
        c == '-' || c == '_' || c == '+' || c == '%' || c == '.' || c == '/' || c == '#';
    if (!digit && !letter && !other) return false;
  }
  return true;
}

std::string unescaped(const std::string& name) {
  const std::string tail = extension_with_dot(name);
  const std::string head = piece(name, 0, name.size() - tail.size());
  std::string result;
  std::size_t i = 0;
  while (i < head.size()) {
    if (head[i] == '%') {
      if (i + 2 >= head.size()) break;
      const int first = (small_value(head[i + 1]) * 16) % 256;
      const int kept = first < 0 ? first + 256 : first;
      result.push_back(
          static_cast<char>(static_cast<unsigned char>(kept | small_value(head[i + 2]))));
      i += 3;
    } else {
      result.push_back(head[i] == '+' ? ' ' : head[i]);
      i += 1;
    }
  }
  return result + tail;
}

std::string with_small_extension(const std::string& name) {
  std::string result = name;
  const long dot = last_place(name, '.');
  if (dot < 0) return result;
  for (std::size_t i = static_cast<std::size_t>(dot); i < result.size(); ++i) {
    if (result[i] >= 'A' && result[i] <= 'Z') result[i] = static_cast<char>(result[i] + 32);
  }
  return result;
}

std::int32_t hash(const std::string& name, std::int32_t modulus) {
  if (modulus < 1) modulus = 101;
  std::int32_t h = 0;
  for (std::size_t i = 0; i < name.size(); ++i) {
    const long long byte = static_cast<signed char>(name[i]);
    if (i == 0) {
      h = static_cast<std::int32_t>(byte);
      continue;
    }
    long long sum = byte + 31LL * h;
    // Wrapped to 32 bits.
    while (sum > 2147483647LL) sum -= 4294967296LL;
    while (sum < -2147483648LL) sum += 4294967296LL;
    h = static_cast<std::int32_t>(sum % modulus);
  }
  return h;
}

std::string bucket(const std::string& name) {
  const long long h = hash(name, 101);
  return digits(static_cast<std::uint64_t>(h < 0 ? h + 4294967296LL : h), 8);
}

bool is_document(const std::string& bare_extension) {
  if (bare_extension.size() != 3) return false;
  return bare_extension[0] == 'k' && bare_extension[1] == 'd' && bare_extension[2] >= 'a' &&
         bare_extension[2] <= 'g';
}

// ---- key files ---------------------------------------------------------------------------------

Pairs key_pairs(const std::string& text, bool last_separator) {
  Pairs result;
  std::string line;
  for (std::size_t i = 0; i <= text.size(); ++i) {
    const bool ends = i == text.size() || text[i] == '\r' || text[i] == '\n' || text[i] == '\t';
    if (!ends) {
      line.push_back(text[i]);
      continue;
    }
    const std::size_t first = place(line, '=', 0);
    const long last = last_place(line, '=');
    if (last >= 0) {
      const std::size_t at = last_separator ? static_cast<std::size_t>(last) : first;
      result.emplace_back(piece(line, 0, at), piece(line, at + 1, line.size()));
    }
    line.clear();
  }
  return result;
}

std::string key_text(const Pairs& pairs) {
  std::string text;
  for (const auto& [name, value] : pairs) text += name + "=" + value + "\n";
  return text;
}

bool cut_line(std::string& text, const std::string& what) {
  std::size_t at = 0;
  while (at <= text.size() && piece(text, at, at + what.size()) != what) ++at;
  if (at > text.size()) return false;
  const std::size_t end = place(text, '\n', at);
  text = piece(text, 0, at) + piece(text, end + 1, text.size());
  return true;
}

// ---- the list of read mails --------------------------------------------------------------------

std::string mail_name(const std::string& line) {
  std::vector<std::string> fields;
  std::size_t begin = 0;
  std::size_t from = 1;
  for (int i = 0; i < 6; ++i) {
    const std::size_t tab = place(line, '\t', from);
    if (tab >= line.size()) return "";
    fields.push_back(piece(line, begin, tab));
    begin = tab + 1;
    from = tab + 2;
  }
  char last = 'g';
  switch (fields[2].empty() ? ' ' : fields[2][0]) {
    case 'A': last = 'a'; break;
    case 'B': last = 'b'; break;
    case 'H':
    case 'R':
    case 'T': last = 'c'; break;
    case 'N': last = 'd'; break;
    case 'U': last = 'e'; break;
    case 'Z': last = 'f'; break;
    default: break;
  }
  return fields[3] + "#" + fields[4] + "#" + fields[0] + "#" + fields[1] + ".kd" + last;
}

Map mail_lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t begin = 0;
  while (place(text, '\n', begin) < text.size()) {
    const std::size_t feed = place(text, '\n', begin);
    lines.push_back(piece(text, begin, feed));
    begin = feed + 1;
  }
  // Text after the last line feed loses its last character. Without a line feed there is no line.
  if (begin != 0 && begin < text.size()) lines.push_back(piece(text, begin, text.size() - 1));

  Map result;
  for (const std::string& line : lines) {
    const std::string name = mail_name(line);
    if (!name.empty() && result.count(name) == 0) result[name] = line;
  }
  return result;
}

std::string mail_line_unescaped(const std::string& line) {
  const std::size_t first = place(line, '\t', 1);
  const std::size_t second = place(line, '\t', first + 2);
  if (second >= line.size()) return line;
  return piece(line, 0, first + 1) + unescaped(piece(line, first + 1, second)) +
         piece(line, second, line.size());
}

// ---- lines of any file -------------------------------------------------------------------------

std::vector<std::string> lines_not_empty(const std::string& text) {
  std::vector<std::string> result;
  std::string line;
  for (const char c : text) {
    if (c != '\n') {
      line.push_back(c);
      continue;
    }
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (!line.empty()) result.push_back(line);
    line.clear();
  }
  if (!line.empty()) result.push_back(line);
  return result;
}

}  // namespace model
