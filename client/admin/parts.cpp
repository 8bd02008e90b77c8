// The parts of a document.

#include <algorithm>
#include <map>
#include <tuple>

#include "client/admin/explain.h"
#include "client/admin/locked_file.h"
#include "index/index_format.h"
#include "storage/layout.h"

namespace admin {

namespace {

/// The items of a folder; empty if it cannot be listed.
std::vector<sys::Child> children_of(const std::string& folder) {
  std::vector<sys::Child> children;
  static_cast<void>(sys::list_sorted(folder, children));
  std::erase_if(children, [](const sys::Child& each) { return is_unfinished(each.name); });
  return children;
}

std::int32_t low_time(const sys::Info& info) {
  return info.kind == sys::Kind::kMissing ? 0 : static_cast<std::int32_t>(info.modify_time);
}

/// Collects the sub-parts below one sub-part folder.
class Collector {
 public:
  Collector(const std::string& document, std::string stamp, std::vector<Part>& parts)
      : m_info(sys::describe(document)),
        m_is_served_as_is(index_format::extension_of(document) == ".kdf"),
        m_stamp(std::move(stamp)),
        m_parts(parts) {}

  void run(const std::string& root) {
    kind(root, "", true);
    kind(sys::join(root, "html"), "html@", false);
    kind(sys::join(root, "pdf"), "pdf@", false);
  }

 private:
  void kind(const std::string& folder, const std::string& prefix, bool is_root) {
    std::map<std::string, sys::Info> preload;
    const std::string copies = sys::join(folder, layout::kPreloadFolder);
    for (const auto& [name, found] : children_of(copies)) {
      if (found == sys::Kind::kFile) preload[name] = sys::describe(sys::join(copies, name));
    }
    for (const auto& [name, found] : children_of(folder)) {
      const bool is_kind = is_root && (name == "html" || name == "pdf");
      if (found != sys::Kind::kFolder || name == layout::kPreloadFolder || is_kind) continue;
      rendition(sys::join(folder, name), prefix + name, preload);
    }
  }

  void rendition(const std::string& folder, const std::string& selector,
                 const std::map<std::string, sys::Info>& preload) {
    std::map<std::string, sys::Info> names;
    for (const auto& [name, info] : preload) names[name] = sys::Info();
    for (const auto& [name, found] : children_of(folder)) {
      if (found == sys::Kind::kFile) names[name] = sys::describe(sys::join(folder, name));
      if (found == sys::Kind::kFolder) written_only(sys::join(folder, name), selector + "@" + name);
    }
    for (const auto& [name, info] : names) {
      Part part{m_stamp, selector, name, sys::join(folder, name), info, {}};
      if (const auto copy = preload.find(name); copy != preload.end()) part.preload = copy->second;
      part.state = decide(part);
      m_parts.push_back(std::move(part));
    }
  }

  void written_only(const std::string& folder, const std::string& selector) {
    for (const auto& [name, found] : children_of(folder)) {
      if (found != sys::Kind::kFile) continue;
      Part part{m_stamp, selector, name, sys::join(folder, name), {}, {}};
      part.info = sys::describe(part.path);
      part.state = PartState::kRegenerate;
      part.is_unreachable = true;
      m_parts.push_back(std::move(part));
    }
  }

  PartState decide(const Part& part) const {
    const std::int32_t document = low_time(m_info);
    if (document != 0 && m_is_served_as_is) return PartState::kUpToDate;
    return state_of(low_time(part.info), low_time(part.preload), document);
  }

  sys::Info m_info;
  bool m_is_served_as_is;
  std::string m_stamp;
  std::vector<Part>& m_parts;
};

}  // namespace

PartState state_of(std::int32_t part, std::int32_t preload, std::int32_t document) {
  if (document == 0) return PartState::kForceRetrieve;
  if (part < preload) return PartState::kFromPreload;
  return part >= document ? PartState::kUpToDate : PartState::kRegenerate;
}

std::vector<Part> parts_of(const std::string& document) {
  std::vector<Part> parts;
  const std::size_t at = document.rfind(sys::kSeparator);
  const std::string folder = document.substr(0, at);
  const std::string prefix = layout::root_of_parts(document.substr(at + 1), "");
  for (const auto& [name, kind] : children_of(folder)) {
    if (kind != sys::Kind::kFolder || !name.starts_with(prefix)) continue;
    Collector(document, name.substr(prefix.size()), parts).run(sys::join(folder, name));
  }
  std::ranges::sort(
      parts, {}, [](const Part& each) { return std::tie(each.stamp, each.rendition, each.name); });
  return parts;
}

}  // namespace admin
