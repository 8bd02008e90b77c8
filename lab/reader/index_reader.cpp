#include "lab/reader/index_reader.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <utility>

#include <xxhash.h>

#include "tests/support/scratch.h"

namespace reader {
namespace {

constexpr std::string_view kMark = "\nvu-index-save 1 ";
constexpr std::size_t kDigits = 16;
constexpr auto kNone = std::string_view::npos;
constexpr char kEscape = 0x1B;

/// Takes sixteen digits and the byte after them.
bool take_number(std::string_view& rest, char end, std::uint64_t& number) {
  if (rest.size() < kDigits + 1 || rest[kDigits] != end) return false;
  number = 0;
  for (const char digit : rest.substr(0, kDigits)) {
    const std::size_t value = std::string_view("0123456789abcdef").find(digit);
    if (value == kNone) return false;
    number = number * 16 + value;
  }
  rest.remove_prefix(kDigits + 1);
  return true;
}

/// Empty if an escape is invalid.
std::optional<std::string> decoded(std::string_view copy) {
  std::string text;
  text.reserve(copy.size());
  for (std::size_t i = 0; i < copy.size(); ++i) {
    if (copy[i] != kEscape) {
      text.push_back(copy[i]);
      continue;
    }
    if (++i == copy.size() || (copy[i] != 's' && copy[i] != 'e')) return std::nullopt;
    text.push_back(copy[i] == 's' ? '/' : kEscape);
  }
  return text;
}

std::optional<std::string> vouched_for(std::string_view bytes) {
  Trailer trailer;
  if (!ends_in_trailer(bytes, trailer)) return std::nullopt;
  const std::size_t end = bytes.size() - kTrailerSize;
  if (trailer.copied > end || trailer.base > end - trailer.copied) return std::nullopt;
  const auto copy = decoded(bytes.substr(end - trailer.copied, trailer.copied));
  if (!copy || trailer.base + copy->size() != trailer.size) return std::nullopt;
  std::string text(bytes.substr(0, trailer.base));
  text += *copy;
  // The checksum is seeded with the hash of the numbers before it.
  const std::string_view numbers = bytes.substr(end, kTrailerSize - kDigits - 1);
  const std::uint64_t seed = XXH3_64bits(numbers.data(), numbers.size());
  if (XXH3_64bits_withSeed(text.data(), text.size(), seed) != trailer.checksum) return std::nullopt;
  return text;
}

}  // namespace

bool ends_in_trailer(std::string_view bytes, Trailer& trailer) {
  if (bytes.size() < kTrailerSize) return false;
  std::string_view rest = bytes.substr(bytes.size() - kTrailerSize);
  if (!rest.starts_with(kMark)) return false;
  rest.remove_prefix(kMark.size());
  return take_number(rest, ' ', trailer.base) && take_number(rest, ' ', trailer.size) &&
         take_number(rest, ' ', trailer.copied) && take_number(rest, '\n', trailer.checksum);
}

std::string text_of_index(std::string_view bytes, Reader reader) {
  if (reader == Reader::kWhole) {
    if (auto text = vouched_for(bytes)) return std::move(*text);
    // After a power failure a file can have its new size without the bytes.
    while (bytes.ends_with('\0')) bytes.remove_suffix(1);
  }
  return std::string(bytes);
}

bool is_interrupted(std::string_view bytes) { return vouched_for(bytes).has_value(); }

Lines all_lines(std::string_view text) {
  Lines lines;
  visit_lines(text,
              [&](std::string_view key, std::string_view stored) { lines.emplace(key, stored); });
  return lines;
}

// ------------------------------------------------------------------------------------------------

namespace {

constexpr std::size_t kStamp = 11;

bool leads_elsewhere(const std::string& name) {
  return name.empty() || name == "." || name == ".." ||
         name.find_first_of("*?/\\") != std::string::npos;
}

bool counts(const std::string& key, const std::string& stored, const Files& files) {
  if (key.size() < kStamp) return false;
  if (leads_elsewhere(stored)) return stored.find('\n') == std::string::npos;
  return files.count(stored) != 0 || files.count(stored + extension_of_key(key)) != 0;
}

}  // namespace

std::string extension_of_key(const std::string& key) {
  const std::string logical = key.substr(0, key.size() - kStamp);
  const std::size_t dot = logical.rfind('.');
  return dot == std::string::npos ? std::string() : logical.substr(dot);
}

std::string key_for(const std::string& logical, long stamp) {
  char digits[32];
  std::snprintf(digits, sizeof digits, "_%010lu", static_cast<unsigned long>(stamp));
  return logical + digits;
}

std::pair<std::string, long> parts_of_key(const std::string& key) {
  const std::size_t cut = key.size() - kStamp;
  return {key.substr(0, cut), std::strtol(key.c_str() + cut + 1, nullptr, 10)};
}

std::string file_of(const std::string& key, const std::string& stored) {
  const auto [logical, stamp] = parts_of_key(key);
  return stamp == 0 && logical == stored ? stored : stored + extension_of_key(key);
}

Lines read_index(std::string_view text, const Files& files) {
  // Of equal keys the first valid line is used, so each line is checked before it is inserted.
  Lines lines;
  visit_lines(text, [&](std::string_view key, std::string_view stored) {
    std::string key_text(key);
    std::string name(stored);
    if (counts(key_text, name, files)) lines.emplace(std::move(key_text), std::move(name));
  });
  return lines;
}

FolderState look_at(const std::string& folder) {
  FolderState state;
  for (const auto& entry : std::filesystem::directory_iterator(native(folder))) {
    const std::string name = entry.path().filename().string();
    if (name == "index.dat") {
      state.has_index = true;
    } else if (name != "index") {
      state.files.emplace(name, entry.is_regular_file() ? entry.file_size() : 0);
    }
  }
  if (state.has_index) state.index_text = read_file(folder + "\\index.dat");
  if (file_exists(folder + "\\index")) state.counter_text = read_file(folder + "\\index");
  state.lines = read_index(text_of_index(state.index_text), state.files);
  state.plain_lines = read_index(state.index_text, state.files);
  return state;
}

std::string index_text_of(const Lines& lines) {
  std::string text;
  for (const auto& [key, stored] : lines) text.append(key).append("/").append(stored).append("\n");
  return text.empty() ? " " : text;
}

}  // namespace reader
