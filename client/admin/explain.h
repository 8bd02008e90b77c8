#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/system.h"
#include "client/admin/tree.h"

/// @file
/// "Why was this document not served?": the library's decisions, walked step by step with the
/// values that they depend on, without the side effects that asking the library would have.
namespace admin {

enum class Answer : std::uint8_t {
  kYes,   ///< the step lets it pass
  kNo,    ///< the step ends it
  kNote,  ///< a value that decides nothing by itself
};

struct Step {
  std::string name;  ///< stable: "owner-folder"
  Answer answer = Answer::kNote;
  std::string text;                                              ///< one sentence
  std::vector<std::pair<std::string, std::string>> values = {};  ///< bytes; names are stable
};

/// A request to the library.
struct Request {
  Area area = Area::kDocs;  ///< kDocs, kUser or kMail
  std::string owner;
  std::string entry;
  std::int32_t timestamp = 0;
  bool replace = true;  ///< of a write
  // Of a part.
  std::string stamp;      ///< what follows the "_" of sub-part folders
  std::string rendition;  ///< "html@NAME", "pdf@NAME" or any other
  std::string part;       ///< the part's file name
};

struct Explanation {
  std::vector<Step> steps;
  bool would_succeed = false;
  /// What would be opened, for as long as it goes through.
  std::string path;
  /// Of a part: the decision code, -1, 0, 1 or 2.
  int code = 0;
  bool lock_missed = false;  ///< an index was held locked, so the rest is unknown

  /// The first step that said no; nothing when none did.
  const Step* first_no() const;
};

/// Opening a document for reading.
Explanation explain_read(const Tree& tree, const Request& request, const sys::Locking& locking);
/// Opening a document for writing.
Explanation explain_write(const Tree& tree, const Request& request, const sys::Locking& locking);
/// Opening a part of a corporate document for reading.
Explanation explain_part(const Tree& tree, const Request& request, const sys::Locking& locking);

// ---- the parts of a document -------------------------------------------------------------------

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
