#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/system.h"

/// @file
/// A storage tree: where it is, how it is laid out, and a walk over its document folders.
namespace admin {

enum class Area : std::uint8_t { kDocs, kUser, kMail, kList, kSemlets };
inline constexpr std::array<Area, 5> kAreas = {Area::kDocs, Area::kUser, Area::kMail, Area::kList,
                                               Area::kSemlets};

/// The name of an area and of its folder: "docs".
std::string_view name_of(Area area);
std::optional<Area> area_named(std::string_view name);
/// Whether the library keeps an index in every document folder of the area. The others are
/// addressed by path only and may do without.
bool expects_index(Area area);

enum class Layout : std::uint8_t {
  kAuto,
  kOwner,  ///< one sub-folder per owner in each area
  kFlat,   ///< all owners share the area folder
};
std::string_view name_of(Layout layout);

/// Where a tree is looked for.
struct Place {
  std::string root;     ///< as given to the initialisation: the tree is its sub-folder "storage"
  std::string storage;  ///< the tree itself; counts before `root`
  Layout layout = Layout::kAuto;
};

/// A tree that was found.
struct Tree {
  std::string storage;  ///< without a trailing separator
  Layout layout = Layout::kOwner;
  bool layout_was_guessed = false;
  std::array<bool, kAreas.size()> has_area{};

  std::string folder_of(Area area) const { return sys::join(storage, name_of(area)); }
};

/// Finds the tree. Nothing when the folder does not exist or does not look like one: at least one
/// of the areas has to be there. @p why tells then.
std::optional<Tree> locate(const Place& place, std::string& why);

/// The layout that the names in a tree suggest: flat when an area folder itself holds an index, or
/// "docs" holds buckets; by owner otherwise.
Layout guess_layout(const std::string& storage);

/// Whether a name is one of a hash bucket: eight to ten digits.
bool is_bucket_name(std::string_view name);
/// The number in the name of the bucket that the library keeps an entry in. Quick for names of
/// ASCII.
std::uint32_t bucket_number(std::string_view entry);
/// The owner's folder in an area: "_" stands for the empty name.
std::string owner_folder_name(std::string_view owner);

/// A folder that holds documents and, maybe, their index.
struct DocumentFolder {
  Area area = Area::kDocs;
  std::string
      owner;  ///< the owner folder's name, "_" included; empty in a flat tree and in "semlets"
  std::string bucket;  ///< of "docs" only
  std::string path;
};

/// The folder that the library keeps an entry in, whether it exists or not.
DocumentFolder folder_for(const Tree& tree, Area area, std::string_view owner,
                          std::string_view entry);

/// What of a tree is looked at.
struct Scope {
  std::optional<Area> area;
  std::optional<std::string> owner;  ///< the empty name means the folder "_"
};

/// What is told about a tree while it is walked.
class Visitor {
 public:
  virtual ~Visitor() = default;
  /// A document folder. @return whether to go on.
  virtual bool folder(const DocumentFolder& folder) = 0;
  /// Something on the way to the document folders that the layout does not have there.
  virtual void stray(Area area, const std::string& path, sys::Kind kind);
  /// A folder that could not be listed.
  virtual void failed(const std::string& path, const os::Status& status);
};

/// Visits the document folders one at a time: an area's owners, and an owner's folders, in
/// byte-wise order of their names.
/// @return false when the visitor ended the walk.
bool walk(const Tree& tree, const Scope& scope, Visitor& visitor);

/// A path in the tree taken apart: the document folder it lies in and what follows.
struct Located {
  DocumentFolder folder;
  std::string rest;  ///< below the folder; empty for the folder itself
};
/// @param path also from the storage folder on: "docs/anna/00000042". @return nothing for a path
/// outside of the tree or above its document folders.
std::optional<Located> locate_in(const Tree& tree, const std::string& path);

}  // namespace admin
