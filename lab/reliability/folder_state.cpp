#include "lab/reliability/folder_state.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "tests/support/scratch.h"

namespace reliability {
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
  // Of equal keys the first line that counts: so every line is judged before it is taken.
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

}  // namespace reliability
