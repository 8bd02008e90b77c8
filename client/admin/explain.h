#pragma once

#include <cstdint>
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

}  // namespace admin
