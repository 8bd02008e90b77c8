#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/tree.h"

/// @file
/// The operations that meet: public operations of the library on one owner's folder, each as its
/// callers use it.
namespace interleavings {

/// What an operation may do to the entry that it is about, or to others.
enum Effect : std::uint32_t {
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
  kClient = 1U << 13U,     ///< on ways of its own, see client_put and its kin
  kBegins = 1U << 14U,     ///< as the first one of a process: for processes only
};

/// Who does it, and to what.
struct Target {
  std::string root;
  std::string owner;
  std::string entry;
  std::string to;    ///< of a rename
  std::string mark;  ///< what it writes

  std::string folder() const { return root + "\\storage\\user\\" + owner; }
};

struct Operation {
  std::string name;
  std::uint32_t effects = kAsks;
  std::string (*call)(const Target& target) = nullptr;
  bool is_about_entry = true;  ///< else about the whole folder: the entry makes no difference
  /// The folder that its answers are about, below the tree.
  const char* area = "user";

  bool does(std::uint32_t effect) const { return (effects & effect) != 0; }
};

const std::vector<Operation>& operations();
/// Throws std::invalid_argument.
const Operation& operation_called(const std::string& name);

/// What the folder holds besides its entries, and whether it has an index.
enum class Setup : std::uint8_t { kTidy, kStray, kNoIndex };
const char* name_of(Setup setup);

/// The tree before a run.
Tree tree_for(Setup setup);

// The entries of each owner before a run, all at the timestamp 0.
inline constexpr const char* kOld = "report.kdb";       ///< older than the limit of a clean
inline constexpr const char* kYoung = "second.kdb";     ///< younger
inline constexpr const char* kBystander = "other.kdc";  ///< younger; nobody touches it by name
inline constexpr const char* kList = "list.ctg";        ///< a category file with lines of both
inline constexpr const char* kStray = "stray.txt";      ///< a file that no line names

// ------------------------------------------------------------------------------------------------
// What the client does by itself, without an operation of the library: each under the lock of the
// index, for which it asks again and again. (Its rm, and its mv inside a folder, are operations of
// the library.)
//
// What it looks at it asks the system for on ways of its own, which no conductor sees: that is
// done at once with the call before. So nothing is known of what those calls touch.

std::string client_put(const Target& target);
std::string client_restore(const Target& target);
/// Takes an entry away whose bytes were copied to another place before.
std::string client_move_out(const Target& target);
std::string client_repair(const Target& target);

}  // namespace interleavings
