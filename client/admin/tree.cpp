#include "client/admin/tree.h"

#include <algorithm>

#include "client/admin/text.h"
#include "index/index_format.h"
#include "storage/layout.h"

namespace admin {

namespace {

constexpr std::array<std::string_view, kAreas.size()> kNames = {"docs", "user", "mail", "list",
                                                                "semlets"};

std::size_t number_of(Area area) { return static_cast<std::size_t>(area); }

std::string without_trailing_separators(std::string path) {
  const auto is_separator = [](char c) { return c == sys::kSeparator || c == '/'; };
  while (path.size() > 1 && is_separator(path.back()) && path[path.size() - 2] != ':')
    path.pop_back();
  return path;
}

/// Whether the folder contains an index or a counter.
bool has_index(const std::string& folder) {
  const auto has = [&](std::string_view name) {
    return sys::describe(sys::join(folder, name)).kind == sys::Kind::kFile;
  };
  return has(index_format::kIndexFile) || has(index_format::kCounterFile);
}

/// The folder with these names, of which some are empty.
DocumentFolder folder_at(const Tree& tree, Area area, const std::string& owner,
                         const std::string& bucket) {
  DocumentFolder folder{area, owner, bucket, tree.folder_of(area)};
  if (!owner.empty()) folder.path = sys::join(folder.path, owner);
  if (!bucket.empty()) folder.path = sys::join(folder.path, bucket);
  return folder;
}

/// Walks one area, level by level.
class AreaWalk {
 public:
  AreaWalk(const Tree& tree, Area area, const WalkOptions& options, Visitor& visitor)
      : m_tree(tree), m_area(area), m_options(options), m_visitor(visitor) {}

  bool run() {
    const DocumentFolder area{m_area, "", "", m_tree.folder_of(m_area)};
    if (!m_tree.has_owners(m_area)) return go(area);
    if (!m_options.scope.owner) return go_below(area, &DocumentFolder::owner);
    const std::string owner = owner_folder_name(*m_options.scope.owner);
    const DocumentFolder only = folder_at(m_tree, m_area, owner, "");
    return sys::describe(only.path).kind != sys::Kind::kFolder || go(only);
  }

 private:
  bool go(const DocumentFolder& folder) {
    if (m_area == Area::kDocs && folder.bucket.empty())
      return go_below(folder, &DocumentFolder::bucket);
    if (m_options.is_stopped()) return false;
    if (m_options.on_folder) m_options.on_folder(folder);
    return m_visitor.folder(folder);
  }

  /// @param part what the names of the sub-folders are.
  bool go_below(const DocumentFolder& folder, std::string DocumentFolder::*part) {
    std::vector<sys::Child> children;
    const os::Status listed = sys::list_sorted(folder.path, children);
    // A missing folder is not a failure: it was just removed, or the area was never created.
    if (!listed.ok() && listed.failure() != os::Failure::kNotFound)
      m_visitor.failed(folder.path, listed);
    for (const sys::Child& child : children) {
      DocumentFolder below = folder;
      below.path = sys::join(folder.path, child.name);
      below.*part = child.name;
      if (child.kind != sys::Kind::kFolder ||
          (part == &DocumentFolder::bucket && !is_bucket_name(child.name))) {
        m_visitor.stray(m_area, below.path, child.kind);
      } else if (!go(below)) {
        return false;
      }
    }
    return true;
  }

  const Tree& m_tree;
  Area m_area;
  const WalkOptions& m_options;
  Visitor& m_visitor;
};

}  // namespace

std::string_view name_of(Area area) { return kNames[number_of(area)]; }

std::optional<Area> area_named(std::string_view name) {
  const auto found = std::find(kNames.begin(), kNames.end(), name);
  if (found == kNames.end()) return std::nullopt;
  return kAreas[static_cast<std::size_t>(found - kNames.begin())];
}

bool expects_index(Area area) {
  return area == Area::kDocs || area == Area::kUser || area == Area::kMail;
}

bool is_bucket_name(std::string_view name) {
  const auto is_digit = [](char c) { return c >= '0' && c <= '9'; };
  return name.size() >= 8 && name.size() <= 10 && std::all_of(name.begin(), name.end(), is_digit);
}

std::uint32_t bucket_number(std::string_view entry) {
  const bool is_ascii = std::all_of(entry.begin(), entry.end(),
                                    [](char c) { return static_cast<unsigned char>(c) < 0x80; });
  if (!is_ascii || entry.size() < 2)
    return static_cast<std::uint32_t>(layout::hash_of(entry, layout::kBuckets));
  // If no byte is negative, it is enough to reduce after every eight steps.
  constexpr auto kModulus = static_cast<std::uint64_t>(layout::kBuckets);
  std::uint64_t h = 0;
  for (std::size_t i = 0; i < entry.size(); ++i) {
    h = h * 31 + static_cast<unsigned char>(entry[i]);
    if (i % 8 == 7) h %= kModulus;
  }
  return static_cast<std::uint32_t>(h % kModulus);
}

std::string bucket_of(std::string_view name) {
  return layout::bucket_name(layout::hash_of(name, layout::kBuckets));
}

std::string owner_folder_name(std::string_view owner) {
  return std::string(owner.empty() ? layout::kNoOwner : owner);
}

Layout guess_layout(const std::string& storage) {
  for (const Area area : {Area::kUser, Area::kMail}) {
    const std::string folder = sys::join(storage, name_of(area));
    if (has_index(folder)) return Layout::kFlat;
  }
  // An owner's name can look like a bucket's. But only a bucket contains an index.
  const std::string docs = sys::join(storage, name_of(Area::kDocs));
  sys::Folder listing;
  if (!listing.open(docs).ok()) return Layout::kOwner;
  sys::Entry entry;
  while (listing.next(entry)) {
    if (entry.kind != sys::Kind::kFolder) continue;
    if (!is_bucket_name(entry.name)) return Layout::kOwner;
    const std::string bucket = sys::join(docs, entry.name);
    if (has_index(bucket)) return Layout::kFlat;
  }
  return Layout::kOwner;
}

std::optional<Tree> locate(const Place& place, std::string& why) {
  if (place.root.empty() && place.storage.empty()) {
    why = "no storage tree was named";
    return std::nullopt;
  }
  Tree tree;
  tree.storage = place.storage.empty()
                     ? sys::join(without_trailing_separators(place.root), layout::kStorageFolder)
                     : without_trailing_separators(place.storage);
  // The storage folder itself may be a link; links inside the tree are not followed.
  tree.storage = sys::absolute(tree.storage);
  if (const sys::Kind kind = sys::describe(tree.storage).kind; kind != sys::Kind::kFolder) {
    // Unknown to a user who may not look it up. The open tells the reason.
    sys::Folder listing;
    const bool is_hidden = kind == sys::Kind::kUnknown && !listing.open(tree.storage).ok();
    why = tree.storage + (is_hidden ? " cannot be read: " + sys::text_of(listing.status())
                                    : std::string(" is not a folder"));
    return std::nullopt;
  }
  std::size_t areas = 0;
  for (const Area area : kAreas) {
    const bool is_there = sys::describe(tree.folder_of(area)).kind == sys::Kind::kFolder;
    tree.has_area[number_of(area)] = is_there;
    areas += is_there ? 1U : 0U;
  }
  if (areas == 0) {
    why = tree.storage + " contains none of the folders docs, user, mail, list and semlets";
    return std::nullopt;
  }
  tree.layout_was_guessed = place.layout == Layout::kAuto;
  tree.layout = tree.layout_was_guessed ? guess_layout(tree.storage) : place.layout;
  return tree;
}

DocumentFolder folder_for(const Tree& tree, Area area, std::string_view owner,
                          std::string_view entry) {
  return folder_at(tree, area, tree.has_owners(area) ? owner_folder_name(owner) : "",
                   area == Area::kDocs ? bucket_of(entry) : "");
}

bool walk(const Tree& tree, const WalkOptions& options, Visitor& visitor) {
  const Scope& scope = options.scope;
  for (const Area area : kAreas) {
    if (scope.area && *scope.area != area) continue;
    if (scope.owner && area == Area::kSemlets && !scope.area) continue;
    if (sys::describe(tree.folder_of(area)).kind != sys::Kind::kFolder) continue;
    if (!AreaWalk(tree, area, options, visitor).run()) return false;
  }
  return true;
}

std::optional<Located> locate_below(const Tree& tree, std::string_view path) {
  const auto take = [&path] {
    const std::size_t end = std::min(path.find(sys::kSeparator), path.size());
    const std::string_view part = path.substr(0, end);
    path.remove_prefix(std::min(end + 1, path.size()));
    return std::string(part);
  };
  const std::optional<Area> area = area_named(take());
  if (!area) return std::nullopt;
  const std::string owner = tree.has_owners(*area) ? take() : "";
  const std::string bucket = *area == Area::kDocs ? take() : "";
  if (owner.empty() && tree.has_owners(*area)) return std::nullopt;
  if (*area == Area::kDocs && !is_bucket_name(bucket)) return std::nullopt;
  return Located{folder_at(tree, *area, owner, bucket), std::string(path)};
}

std::optional<Located> locate_in(const Tree& tree, const std::string& path) {
  const auto native = [](std::string text) {
    if (sys::kSeparator == '\\') std::replace(text.begin(), text.end(), '/', '\\');
    return text;
  };
  const auto locate = [&tree](std::string below) {
    // The areas are the only names that are compared with fixed ones.
    const std::string first = below.substr(0, below.find(sys::kSeparator));
    const auto area =
        std::ranges::find_if(kNames, [&](auto name) { return are_same_to_system(name, first); });
    if (area != kNames.end()) below.replace(0, first.size(), *area);
    return locate_below(tree, below);
  };
  std::string full = native(path);
  const std::string prefix = sys::join(tree.storage, "");
  const auto is_below = [&] {
    return full.size() >= prefix.size() &&
           are_same_to_system(std::string_view(full).substr(0, prefix.size()), prefix);
  };
  if (!is_below()) full = sys::absolute(full);
  if (is_below()) return locate(full.substr(prefix.size()));
  // Reports name folders relative to the storage folder.
  if (path.find("..") != std::string::npos) return std::nullopt;
  return locate(native(path));
}

}  // namespace admin
