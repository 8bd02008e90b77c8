#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "client/admin/system.h"
#include "client/admin/tree.h"

/// @file
/// "Why was this document not served?": repeats the library's decisions step by step, with the
/// values that they depend on. Unlike the library, it changes nothing.
namespace admin {

enum class Answer : std::uint8_t {
  kYes,   ///< the step succeeds
  kNo,    ///< the step fails, and the request with it
  kNote,  ///< a value; it decides nothing
};

struct ExplainStep {
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
  // Of a sub-part:
  std::string stamp;      ///< what follows the "_" of sub-part folders
  std::string rendition;  ///< "html@NAME", "pdf@NAME" or any other
  std::string part;       ///< the sub-part's file name
};

struct Explanation {
  std::vector<ExplainStep> steps;
  bool would_succeed = false;
  DocumentFolder folder;  ///< of the entry, as far as the steps got
  /// The file that would be opened, as far as the steps got.
  std::string path;
  /// Of a sub-part: the decision code, a PartState.
  int code = 0;
  bool lock_missed = false;  ///< an index was locked, so the rest is unknown

  /// The first step that failed; null if none did.
  const ExplainStep* first_no() const;
};

/// Explains the search for an entry at exactly one timestamp, before its file is opened.
Explanation explain_lookup(const Tree& tree, const Request& request, const sys::Locking& locking);
/// Explains opening a document for reading.
Explanation explain_read(const Tree& tree, const Request& request, const sys::Locking& locking);
/// Explains opening a document for writing.
Explanation explain_write(const Tree& tree, const Request& request, const sys::Locking& locking);
/// Explains opening a sub-part of a corporate document for reading.
Explanation explain_part(const Tree& tree, const Request& request, const sys::Locking& locking);

/// A time as a number and as a date.
std::string shown_time(std::int64_t seconds);

// ---- the parts of a document -------------------------------------------------------------------

/// What a reader of a sub-part would find: the library's decision codes.
enum class PartState : int {
  kForceRetrieve = -1,  ///< the document's time is 0
  kUpToDate = 0,
  kFromPreload = 1,  ///< the preload copy first replaces the sub-part
  kRegenerate = 2,
};
constexpr std::string_view name_of(PartState state) {
  return word_of(static_cast<int>(state) + 1,
                 {"force-retrieve", "up-to-date", "from-preload", "regenerate"});
}
/// The state by the modification times of the three files; 0: missing.
PartState state_of(std::int32_t part, std::int32_t preload, std::int32_t document);

/// A sub-part of a document, or a preload copy without its sub-part.
struct Part {
  std::string stamp;      ///< what follows the "_" in the sub-part folder's name
  std::string rendition;  ///< the selector for reading it: "html@NAME", "xls"
  std::string name;
  std::string path;
  sys::Info info;     ///< kMissing if only the preload copy exists
  sys::Info preload;  ///< kMissing if there is no preload copy
  PartState state = PartState::kUpToDate;
  /// Written with a selector that contains "@", into a folder where readers do not look.
  bool is_unreachable = false;
};

/// The sub-parts of a document, sorted by stamp, rendition and name.
/// @param document the path of the document's file.
std::vector<Part> parts_of(const std::string& document);

}  // namespace admin
