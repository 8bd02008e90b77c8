#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/stage.h"

/// @file
/// The operations that meet: public operations of the library on one owner's folder, each as its
/// callers use it.
namespace interleavings {

/// What an operation may do to the entry that it is about, or to others.
enum Deed : std::uint32_t {
  kAsks = 0,
  kMakes = 1U << 0U,       ///< the entry, when it is missing
  kRemoves = 1U << 1U,     ///< the entry
  kRenames = 1U << 2U,     ///< the entry, to another name
  kWrites = 1U << 3U,      ///< the bytes of the entry's document
  kReads = 1U << 4U,       ///< the bytes of the entry's document
  kCleans = 1U << 5U,      ///< entries by age, or all, and what no line names
  kCleansAll = 1U << 6U,   ///< whatever its age
  kSweeps = 1U << 7U,      ///< what no line names
  kCuts = 1U << 8U,        ///< the entry's lines in category files
  kMovesOwner = 1U << 9U,  ///< the whole folder goes away
  kConverts = 1U << 10U,   ///< the mails of the owner
  kCopies = 1U << 11U,     ///< into the document, without a lock that lasts
  kSaves = 1U << 12U,      ///< the index, whatever else it does
  kClient = 1U << 13U,     ///< on ways of its own, see client_deeds.h
  kBegins = 1U << 14U,     ///< as the first one of a process: for processes only
};

/// Who does it, and to what.
struct Cast {
  std::string root;
  std::string owner;
  std::string entry;
  std::string to;    ///< of a rename
  std::string mark;  ///< what it writes

  std::string folder() const { return root + "\\storage\\user\\" + owner; }
};

struct MeetingOperation {
  std::string name;
  std::uint32_t deeds = kAsks;
  std::string (*call)(const Cast& cast) = nullptr;
  bool is_about_entry = true;  ///< else about the whole folder: the entry makes no difference
  /// The folder that its answers are about, below the tree.
  const char* area = "user";

  bool does(std::uint32_t deed) const { return (deeds & deed) != 0; }
};

const std::vector<MeetingOperation>& operations();
/// Throws std::invalid_argument.
const MeetingOperation& operation_called(const std::string& name);

/// What the folder holds besides its entries, and whether it has an index.
enum class Ground : std::uint8_t { kTidy, kStray, kNoIndex };
const char* name_of(Ground ground);

/// The tree before a meeting.
Tree tree_for(Ground ground);

// The entries of each owner before a meeting, all at the timestamp 0.
inline constexpr const char* kOld = "report.kdb";       ///< older than the limit of a clean
inline constexpr const char* kYoung = "second.kdb";     ///< younger
inline constexpr const char* kBystander = "other.kdc";  ///< younger; nobody touches it by name
inline constexpr const char* kList = "list.ctg";        ///< a category file with lines of both
inline constexpr const char* kStray = "stray.txt";      ///< a file that no line names

}  // namespace interleavings
