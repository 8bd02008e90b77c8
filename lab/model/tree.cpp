#include "lab/model/tree.h"

#include <algorithm>

namespace model {
namespace {

bool is_separator(char c) { return c == '\\' || c == '/'; }

bool covers_plainly(const std::string& pattern, std::size_t p, const std::string& name,
                    std::size_t n) {
  if (p == pattern.size()) return n == name.size();
  if (pattern[p] == '*') {
    for (std::size_t i = n; i <= name.size(); ++i) {
      if (covers_plainly(pattern, p + 1, name, i)) return true;
    }
    return false;
  }
  if (n == name.size()) return false;
  if (pattern[p] != '?' && pattern[p] != name[n]) return false;
  return covers_plainly(pattern, p + 1, name, n + 1);
}

std::string without_end(std::string pattern) {
  while (!pattern.empty() && (pattern.back() == '.' || pattern.back() == ' ')) pattern.pop_back();
  return pattern;
}

}  // namespace

bool covers(const std::string& pattern, const std::string& name) {
  std::string shorter = without_end(pattern);
  for (;;) {
    if (covers_plainly(shorter, 0, name, 0)) return true;
    if (shorter.size() < 2 || shorter.substr(shorter.size() - 2) != ".*") return false;
    shorter = without_end(shorter.substr(0, shorter.size() - 2));
  }
}

// ---- the way along a path ------------------------------------------------------------------

Tree::Place Tree::place_of(const std::string& path) {
  Place place;
  if (path.compare(0, m_root_path.size(), m_root_path) != 0) return place;
  std::size_t at = m_root_path.size();
  if (at < path.size() && !is_separator(path[at])) return place;

  Names parts;
  std::string part;
  for (; at <= path.size(); ++at) {
    if (at < path.size() && !is_separator(path[at])) {
      part += path[at];
      continue;
    }
    if (!part.empty()) parts.push_back(part);
    part.clear();
  }
  std::vector<Node*> way = {&m_root};
  for (std::size_t i = 0; i + 1 < parts.size(); ++i) {
    Node& here = *way.back();
    if (!here.is_folder) return place;
    if (parts[i] == ".") continue;
    if (parts[i] == "..") {
      if (way.size() == 1) return place;
      way.pop_back();
      continue;
    }
    const auto found = here.names.find(parts[i]);
    if (found == here.names.end()) return place;
    way.push_back(&found->second);
  }
  if (!way.back()->is_folder) return place;
  std::string last = parts.empty() ? "." : parts.back();
  if (last == "..") {
    if (way.size() == 1) return place;
    way.pop_back();
    last = ".";
  }
  place.folder = way.back();
  place.name = last;
  place.wants_folder = !path.empty() && is_separator(path.back());
  return place;
}

Node* Tree::at(const std::string& path) {
  const Place place = place_of(path);
  if (place.folder == nullptr) return nullptr;
  if (place.name == ".") return place.folder;
  const auto found = place.folder->names.find(place.name);
  if (found == place.folder->names.end()) return nullptr;
  if (place.wants_folder && !found->second.is_folder) return nullptr;
  return &found->second;
}

// ---- questions -----------------------------------------------------------------------------

bool Tree::exists(const std::string& path) {
  // "name\." and "name\" are found like "name".
  std::string bare = path;
  for (;;) {
    const std::size_t size = bare.size();
    while (!bare.empty() && is_separator(bare.back())) bare.pop_back();
    if (bare.size() > 1 && bare.back() == '.' && is_separator(bare[bare.size() - 2]))
      bare.pop_back();
    if (bare.size() == size) break;
  }
  const Place place = place_of(bare);
  if (place.folder == nullptr) return false;
  if (place.name.find_first_of("*?") == std::string::npos) return at(bare) != nullptr;
  if (covers(place.name, ".") || covers(place.name, "..")) return true;
  for (const auto& [name, node] : place.folder->names) {
    if (covers(place.name, name)) return true;
  }
  return false;
}

bool Tree::is_folder(const std::string& path) {
  const Node* const node = at(path);
  return node != nullptr && node->is_folder;
}

std::int64_t Tree::time(const std::string& path) {
  const Node* const node = at(path);
  return node == nullptr ? 0 : node->time;
}

std::size_t Tree::size(const std::string& path) {
  const Node* const node = at(path);
  return node == nullptr ? 0 : node->bytes.size();
}

Names Tree::names(const std::string& path) {
  Names result;
  const Node* const node = at(path);
  if (node == nullptr || !node->is_folder) return result;
  for (const auto& [name, child] : node->names) {
    // No index line can contain such a name, so listings omit it.
    if (name.find('\n') == std::string::npos) result.push_back(name);
  }
  return result;
}

Names Tree::names_in_order(const std::string& path) {
  Names result = names(path);
  if (result.size() < 2 || !real_order) return result;
  const Names real = real_order(path);
  const auto rank = [&](const std::string& name) {
    return std::find(real.begin(), real.end(), name) - real.begin();
  };
  std::stable_sort(result.begin(), result.end(),
                   [&](const std::string& a, const std::string& b) { return rank(a) < rank(b); });
  return result;
}

// ---- changes -------------------------------------------------------------------------------

Node* Tree::open_to_write(const std::string& path) {
  const Place place = place_of(path);
  if (place.folder == nullptr || place.name == "." || place.wants_folder) return nullptr;
  const auto found = place.folder->names.find(place.name);
  if (found != place.folder->names.end()) {
    Node& node = found->second;
    return node.is_folder || node.is_read_only ? nullptr : &node;
  }
  Node& made = place.folder->names[place.name];
  made.is_fresh = true;
  return &made;
}

bool Tree::make_folder(const std::string& path) {
  const Place place = place_of(path);
  if (place.folder == nullptr || place.name == "." || place.folder->names.count(place.name) != 0)
    return false;
  Node& made = place.folder->names[place.name];
  made.is_folder = true;
  made.time = kTimeOfFolders;
  return true;
}

bool Tree::remove_folder(const std::string& path) {
  const Place place = place_of(path);
  if (place.folder == nullptr || place.name == ".") return false;
  const auto found = place.folder->names.find(place.name);
  if (found == place.folder->names.end() || !found->second.is_folder ||
      !found->second.names.empty())
    return false;
  place.folder->names.erase(found);
  return true;
}

bool Tree::remove_file(const std::string& path) {
  const Node* const node = at(path);
  if (node == nullptr || node->is_folder || node->is_read_only) return false;
  const Place place = place_of(path);
  place.folder->names.erase(place.name);
  return true;
}

bool Tree::rename(const std::string& from, const std::string& to) {
  Node* const node = at(from);
  if (node == nullptr) return false;
  if (at(to) == node) return true;
  const Place target = place_of(to);
  const Place source = place_of(from);
  if (target.folder == nullptr || target.name == "." || source.name == ".") return false;
  if (target.folder->names.count(target.name) != 0) return false;
  if (target.wants_folder && !node->is_folder) return false;
  std::vector<const Node*> below = {node};
  for (std::size_t i = 0; i < below.size(); ++i) {
    if (below[i] == target.folder) return false;
    for (const auto& [name, child] : below[i]->names) below.push_back(&child);
  }
  auto taken = source.folder->names.extract(source.name);
  taken.key() = target.name;
  target.folder->names.insert(std::move(taken));
  return true;
}

bool Tree::copy(const std::string& from, const std::string& to, bool replace) {
  const Node* const source = at(from);
  if (source == nullptr || source->is_folder) return false;
  const Node original = *source;
  const Node* const before = at(to);
  if (before != nullptr && (!replace || before == source)) return false;
  Node* const target = open_to_write(to);
  if (target == nullptr) return false;
  *target = original;
  return true;
}

bool Tree::make_writable(const std::string& path) {
  Node* const node = at(path);
  if (node == nullptr) return false;
  if (!node->is_folder) node->is_read_only = false;
  return true;
}

}  // namespace model
