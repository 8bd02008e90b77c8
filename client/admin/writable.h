#pragma once

#include <string>
#include <vector>

#include "client/admin/system.h"

/// @file
/// Whether the calling user could store something in a document folder, asked without changing
/// anything. What a writer meets is met in this order: the folder, its index, its counter.
namespace admin {

/// Something that keeps a writer out.
struct Obstacle {
  enum class Kind { kFolder, kIndex, kCounter };
  Kind kind = Kind::kFolder;
  std::string path;
  std::string why;  ///< "it is read-only", or the system's words
};

/// What keeps a new document out of a folder, which need not be there yet; empty when nothing does.
std::vector<Obstacle> obstacles_to_writing(const std::string& folder);
/// The same in one sentence for the first obstacle; empty without one.
std::string why_not_storable(const std::string& folder);

/// Why a file cannot be used, in words: what stands in its place, or what the system says.
std::string why_not_usable(const std::string& path, const os::Status& status);

}  // namespace admin
