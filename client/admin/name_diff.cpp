#include "client/admin/name_diff.h"

#include <algorithm>
#include <array>

namespace admin {

std::vector<NameLine> names_in(std::string_view text) {
  std::vector<NameLine> names;
  bool ascends = true;
  index_format::Lines lines(text);
  index_format::Line line;
  while (lines.next(line)) {
    if (line.runs_on || line.key.size() < index_format::kStampLength) continue;
    ascends = ascends && (names.empty() || names.back().key < line.key);
    names.push_back({line.key, line.stored});
  }
  if (ascends) return names;
  const auto by_key = [](const NameLine& one, const NameLine& other) {
    return one.key < other.key;
  };
  const auto same_key = [](const NameLine& one, const NameLine& other) {
    return one.key == other.key;
  };
  std::stable_sort(names.begin(), names.end(), by_key);
  names.erase(std::unique(names.begin(), names.end(), same_key), names.end());
  return names;
}

std::string_view name_of(NameDifference::What what) {
  constexpr std::array<std::string_view, 3> kNames = {"added", "removed", "moved"};
  return kNames[static_cast<std::size_t>(what)];
}

void compare_names(std::string_view before, std::string_view after,
                   const std::function<void(const NameDifference&)>& sink) {
  using What = NameDifference::What;
  const std::vector<NameLine> old_names = names_in(before);
  const std::vector<NameLine> new_names = names_in(after);
  auto old_name = old_names.begin();
  auto new_name = new_names.begin();
  while (old_name != old_names.end() || new_name != new_names.end()) {
    const bool is_old = new_name == new_names.end() ||
                        (old_name != old_names.end() && old_name->key < new_name->key);
    const bool is_new = old_name == old_names.end() ||
                        (new_name != new_names.end() && new_name->key < old_name->key);
    if (is_old) {
      sink({What::kRemoved, old_name->key, old_name->stored, {}});
    } else if (is_new) {
      sink({What::kAdded, new_name->key, {}, new_name->stored});
    } else if (old_name->stored != new_name->stored) {
      sink({What::kMoved, old_name->key, old_name->stored, new_name->stored});
    }
    if (!is_new) ++old_name;
    if (!is_old) ++new_name;
  }
}

}  // namespace admin
