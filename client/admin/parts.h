#pragma once

#include <functional>
#include <string>
#include <vector>

#include "client/admin/tree.h"

namespace admin {

/// What reading a part would find (the library's decision codes).
enum class PartState : int {
  kForceRetrieve = -1,  ///< the document's time is 0
  kUpToDate = 0,
  kFromPreload = 1,  ///< the preload copy replaces it first
  kRegenerate = 2,
};
std::string_view name_of(PartState state);

/// A part of a document, or a preload copy without one.
struct Part {
  std::string stamp;      ///< what follows the "_" of the folder of parts
  std::string rendition;  ///< the selector that reads it: "html@NAME", "xls"
  std::string name;       ///< its file name
  std::string path;
  sys::Info info;     ///< kMissing when only the preload copy is there
  sys::Info preload;  ///< kMissing when there is none
  PartState state = PartState::kUpToDate;
  /// In folders as only writing makes them: a selector with "@" that reading looks for elsewhere.
  bool is_unreachable = false;
};

/// Hands on the parts of a document's file, sorted by stamp, rendition and name.
/// @param document the path of the file that the index names.
std::vector<Part> parts_of(const std::string& document);

}  // namespace admin
