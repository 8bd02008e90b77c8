#include "client/admin/space.h"

#include <algorithm>
#include <map>
#include <utility>

namespace admin {

namespace {

using ByName = std::map<std::string, Sum, std::less<>>;

void add(Sum& sum, const Sum& more) {
  sum.files += more.files;
  sum.bytes += more.bytes;
}

GroupedSpace grouped(const ByName& sums, std::size_t top) {
  GroupedSpace result;
  for (const auto& [name, sum] : sums) result.groups.push_back({name, sum});
  std::sort(result.groups.begin(), result.groups.end(), is_larger);
  while (top != 0 && result.groups.size() > top) {
    ++result.other_groups;
    add(result.others, result.groups.back().sum);
    result.groups.pop_back();
  }
  return result;
}

/// Sorts the children and counts the small ones together.
void settle(SpaceNode& node, std::size_t most) {
  std::sort(node.children.begin(), node.children.end(),
            [](const SpaceNode& one, const SpaceNode& other) {
              return is_larger({one.name, one.sum}, {other.name, other.sum});
            });
  for (const SpaceNode& child : node.children) add(node.sum, child.sum);
  if (node.children.size() <= most) return;
  SpaceNode rest;
  rest.merged = node.children.size() - most + 1;
  for (std::size_t i = most - 1; i < node.children.size(); ++i) add(rest.sum, node.children[i].sum);
  node.children.resize(most - 1);
  node.children.push_back(std::move(rest));
}

class Survey {
 public:
  void count(const CountedFile& file) {
    ByOwner& owners = m_areas[file.area];
    auto owner = owners.find(file.owner);
    if (owner == owners.end()) owner = owners.emplace(std::string(file.owner), ByName()).first;
    auto extension = owner->second.find(file.extension);
    if (extension == owner->second.end())
      extension = owner->second.emplace(std::string(file.extension), Sum()).first;
    extension->second.add(file.size);
  }

  void finish(const SpaceOptions& options, Space& space) const {
    ByName areas;
    ByName by_owner;
    ByName by_extension;
    for (const auto& [area, owners] : m_areas) {
      SpaceNode of_area;
      of_area.name = name_of(area);
      for (const auto& [owner, extensions] : owners) {
        SpaceNode of_owner;
        of_owner.name = owner;
        for (const auto& [extension, sum] : extensions) {
          of_owner.children.push_back({extension, sum, 0, {}});
          add(areas[of_area.name], sum);
          add(by_owner[owner], sum);
          add(by_extension[extension], sum);
        }
        settle(of_owner, options.extensions);
        of_area.children.push_back(std::move(of_owner));
      }
      settle(of_area, options.owners);
      space.all.children.push_back(std::move(of_area));
    }
    settle(space.all, kAreas.size());
    space.areas = grouped(areas, 0);
    space.owners = grouped(by_owner, options.top);
    space.extensions = grouped(by_extension, options.top);
  }

 private:
  using ByOwner = std::map<std::string, ByName, std::less<>>;
  std::map<Area, ByOwner> m_areas;
};

}  // namespace

Space survey_space(const Tree& tree, const SpaceOptions& options) {
  Space space;
  Survey survey;
  StatsOptions asked = options.stats;
  asked.by = GroupBy::kAge;
  asked.on_file = [&](const CountedFile& file) { survey.count(file); };
  space.stats = collect_stats(tree, asked);
  survey.finish(options, space);
  return space;
}

}  // namespace admin
