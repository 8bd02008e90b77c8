#include "lab/reliability/ground.h"

#include <filesystem>

#include "tests/support/scratch.h"

namespace reliability::ground {
namespace {

std::string walk(const std::string& path, const model::Node* expected, After after) {
  std::string result;
  std::size_t met = 0;
  for (const std::string& name : list_folder(path)) {
    const std::string inner = path + "\\" + name;
    const model::Node* node = nullptr;
    if (expected != nullptr) {
      const auto found = expected->names.find(name);
      if (found != expected->names.end()) node = &found->second;
      if (node == nullptr && result.empty()) result = inner + " should not be there";
      if (node != nullptr) ++met;
    }
    if (folder_exists(inner)) {
      if (node != nullptr && !node->is_folder && result.empty()) result = inner + " is a folder";
      const std::string below = walk(inner, node, after);
      if (result.empty()) result = below;
    } else if (node != nullptr && result.empty()) {
      const std::string bytes = node->is_folder ? "" : read_file(inner);
      if (node->is_folder) {
        result = inner + " is a file";
      } else if (bytes != node->bytes) {
        result = inner + " holds " + shown(bytes) + " instead of " + shown(node->bytes);
      } else if (get_modify_time(inner) != node->time) {
        result = inner + " has another time";
      } else if (is_writable(inner) == node->is_read_only) {
        result = inner + " is marked otherwise";
      }
    }
    if (after == After::kEmpty) remove(inner);
  }
  if (expected != nullptr && result.empty() && met != expected->names.size())
    result = path + " lacks something";
  return result;
}

}  // namespace

void write(const std::string& path, const std::string& bytes) { write_file(path, bytes); }
void make_folder(const std::string& path) { ::make_folder(path); }
void remove(const std::string& path) { std::filesystem::remove(native(path)); }
void set_time(const std::string& path, std::int64_t seconds) { set_modify_time(path, seconds); }
void set_read_only(const std::string& path, bool read_only) {
  if (read_only) {
    make_read_only(path);
  } else {
    make_writable(path);
  }
}
std::vector<std::string> listing(const std::string& path) {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(native(path)))
    names.push_back(entry.path().filename().string());
  return names;
}

std::string difference(const std::string& path, const model::Node& expected, After after) {
  return walk(path, &expected, after);
}

}  // namespace reliability::ground
