#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/system.h"

/// @file
/// A storage tree: its place, its layout, and a walk over its document folders.
namespace admin {

enum class Area : std::uint8_t { kDocs, kUser, kMail, kList, kSemlets };
inline constexpr std::array<Area, 5> kAreas = {Area::kDocs, Area::kUser, Area::kMail, Area::kList,
                                               Area::kSemlets};

/// The name of an area and of its folder, for example "docs".
std::string_view name_of(Area area);
std::optional<Area> area_named(std::string_view name);
/// Whether each document folder of the area has an index. Files in other areas are addressed by
/// path and need none.
bool expects_index(Area area);

enum class Layout : std::uint8_t {
  kAuto,
  kOwner,  ///< one sub-folder per owner in each area
  kFlat,   ///< all owners share the area folder
};
constexpr std::string_view name_of(Layout layout) {
  return word_of(layout, {"auto", "owner", "flat"});
}

/// Where to look for a tree.
struct Place {
  std::string root;     ///< as in the initialisation: the tree is its sub-folder "storage"
  std::string storage;  ///< the tree itself; takes precedence over `root`
  Layout layout = Layout::kAuto;
};

struct Tree {
  std::string storage;  ///< without a trailing separator
  Layout layout = Layout::kOwner;
  bool layout_was_guessed = false;
  std::array<bool, kAreas.size()> has_area{};

  std::string folder_of(Area area) const { return sys::join(storage, name_of(area)); }
  /// Whether the area has a folder for each owner.
  bool has_owners(Area area) const { return layout != Layout::kFlat && area != Area::kSemlets; }
};

/// Finds the tree. Returns nothing if the folder does not exist or has no area folder.
/// @param why receives the reason when nothing is returned.
std::optional<Tree> locate(const Place& place, std::string& why);

/// Guesses the layout from the names in a tree. Flat: an area folder itself contains an index, or
/// "docs" contains buckets. All others are by owner.
Layout guess_layout(const std::string& storage);

/// Whether the name has the form of a bucket: eight to ten digits.
bool is_bucket_name(std::string_view name);
/// The bucket for a logical name.
std::string bucket_of(std::string_view name);
/// The number of the bucket for an entry. Faster than the library's function for ASCII names.
std::uint32_t bucket_number(std::string_view entry);
/// The name of an owner's folder: "_" for the empty name.
std::string owner_folder_name(std::string_view owner);

/// A folder with documents and perhaps an index.
struct DocumentFolder {
  Area area = Area::kDocs;
  std::string
      owner;  ///< the owner folder's name, may be "_"; empty in a flat tree and in "semlets"
  std::string bucket;  ///< of "docs" only
  std::string path;
};

/// The folder for an entry. It need not exist.
DocumentFolder folder_for(const Tree& tree, Area area, std::string_view owner,
                          std::string_view entry);

/// The part of a tree to walk.
struct Scope {
  std::optional<Area> area;
  std::optional<std::string> owner;  ///< the empty name means the folder "_"
};

struct WalkOptions {
  Scope scope;
  /// How the visitor reads indexes.
  sys::Locking locking = {};
  /// If set to true, the walk ends at the next folder.
  const std::atomic<bool>* stop = nullptr;
  /// Called for each document folder before it is visited.
  std::function<void(const DocumentFolder&)> on_folder = {};

  bool is_stopped() const { return stop != nullptr && stop->load(); }
};

/// Receives what a walk finds.
class Visitor {
 public:
  virtual ~Visitor() = default;
  /// A document folder. @return whether to continue.
  virtual bool folder(const DocumentFolder& folder) = 0;
  /// An item that does not belong between the area folder and the document folders.
  virtual void stray(Area, const std::string& /*path*/, sys::Kind) {}
  /// A folder that could not be listed.
  virtual void failed(const std::string& /*path*/, const os::Status&) {}
};

/// Visits the document folders one at a time. Owners, and the folders of an owner, are sorted byte
/// by byte.
/// @return false if the visitor or WalkOptions::stop ended the walk.
bool walk(const Tree& tree, const WalkOptions& options, Visitor& visitor);

/// A path in the tree, split into its document folder and the rest.
struct Located {
  DocumentFolder folder;
  std::string rest;  ///< below the folder; empty for the folder itself
};
/// @param path absolute, or relative to the storage folder: "docs/anna/00000042". On Windows the
/// letter case of the tree's path and of the area do not matter.
/// @return nothing for a path outside the tree or above its document folders.
std::optional<Located> locate_in(const Tree& tree, const std::string& path);
/// The same for a path below the storage folder, with the system's separator.
std::optional<Located> locate_below(const Tree& tree, std::string_view path);

}  // namespace admin
