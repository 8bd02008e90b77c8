#include "lab/reliability/kill_model.h"

#include <algorithm>
#include <cstdio>

namespace reliability {

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::kCreate:
      return "create";
    case Kind::kRemove:
      return "remove";
    case Kind::kRename:
      return "rename";
    case Kind::kClean:
      return "clean";
    case Kind::kWrite:
      return "write";
    case Kind::kCopy:
      return "copy";
    case Kind::kSaveKeys:
      return "save keys";
    case Kind::kForget:
      return "remove with category line";
    case Kind::kPlainRewrite:
      return "plain rewrite";
  }
  return "?";
}

std::string text_number(std::uint64_t id, std::size_t size) {
  const std::string piece = "<" + std::to_string(id) + ">";
  std::string text;
  text.reserve(size + piece.size());
  while (text.size() < size) text += piece;
  text.resize(size);
  return text;
}

std::string Operation::text() const {
  if (category_lines.empty()) return text_number(text_id, text_size);
  std::string text;
  for (const std::string& each : category_lines) text += each + "=1\n";
  return text;
}

std::string without_line_of(const std::string& text, const std::string& entry) {
  const std::size_t at = text.find(entry);
  if (at == std::string::npos) return text;
  const std::size_t end = text.find('\n', at);
  return text.substr(0, at) + (end == std::string::npos ? "" : text.substr(end + 1));
}

Lines Model::lines() const {
  Lines result;
  for (const auto& [key, entry] : entries) result.emplace(key, entry.stored);
  return result;
}

std::string Model::next_number() const {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%08lld", static_cast<long long>(counter + 1));
  return digits;
}

void Model::adopt() {
  if (adoption == Adoption::kOff) return;
  for (const auto& [file, content] : strays) entries[key_for(file, 0)] = {file, content};
  strays.clear();
}

void Model::make(const std::string& key, const std::string& content) {
  if (const auto known = entries.find(key); known != entries.end()) {
    known->second.content = content;
    return;
  }
  adopt();
  entries[key] = {next_number(), content};
  ++counter;
}

std::string Model::apply(const Operation& operation) {
  switch (operation.kind) {
    case Kind::kCreate:
      make(operation.key(), "");
      return file_of(operation.key(), entries[operation.key()].stored);
    case Kind::kWrite:
    case Kind::kCopy:
    case Kind::kSaveKeys:
      make(operation.key(), operation.text());
      return {};
    case Kind::kRemove:
      adopt();
      entries.erase(operation.key());
      return {};
    case Kind::kForget: {
      adopt();
      entries.erase(operation.key());
      const auto category = entries.find(key_for(kCategory, 0));
      if (category != entries.end()) {
        category->second.content = without_line_of(category->second.content, operation.name);
      }
      return {};
    }
    case Kind::kRename: {
      adopt();
      const std::string content = entries[operation.key()].content;
      entries.erase(operation.key());
      entries.erase(operation.new_key());
      make(operation.new_key(), content);
      return {};
    }
    case Kind::kClean:
      adopt();
      strays.clear();
      std::erase_if(entries, [&](const auto& each) {
        return operation.out_of_date.count(file_of(each.first, each.second.stored)) != 0;
      });
      return {};
    case Kind::kPlainRewrite:
      return {};
  }
  return {};
}

}  // namespace reliability
