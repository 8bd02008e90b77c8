#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/interleavings/interleaving.h"
#include "lab/interleavings/tree.h"

/// @file
/// The operations that run against each other: public operations of the library on one owner's
/// folder, called as programs call them.
namespace interleavings {

/// What an operation may do to its entry, or to others.
enum Effect : std::uint32_t {
  kAsks = 0,
  kMakes = 1U << 0U,       ///< creates the entry if it is missing
  kRemoves = 1U << 1U,     ///< removes the entry
  kRenames = 1U << 2U,     ///< renames the entry
  kWrites = 1U << 3U,      ///< writes the bytes of the entry's document
  kReads = 1U << 4U,       ///< reads the bytes of the entry's document
  kCleans = 1U << 5U,      ///< removes old entries or all, and orphans
  kCleansAll = 1U << 6U,   ///< removes entries of any age
  kSweeps = 1U << 7U,      ///< removes orphans
  kCuts = 1U << 8U,        ///< removes the entry's lines in category files
  kMovesOwner = 1U << 9U,  ///< moves or removes the whole folder
  kConverts = 1U << 10U,   ///< migrates the owner's mails
  kCopies = 1U << 11U,     ///< copies into the document, without a lasting lock
  kSaves = 1U << 12U,      ///< saves the index in any case
  kClient = 1U << 13U,     ///< an operation of the client, see client_put and the others
  kBegins = 1U << 14U,     ///< initialises the storage; only for processes
};

/// The arguments of an operation.
struct Target {
  std::string root;
  std::string owner;
  std::string entry;
  std::string to;    ///< for a rename
  std::string mark;  ///< what it writes

  std::string folder() const { return root + "\\storage\\user\\" + owner; }
};

struct Operation {
  std::string name;
  std::uint32_t effects = kAsks;
  std::string (*call)(const Target& target) = nullptr;
  bool is_about_entry = true;  ///< false: it concerns the whole folder, whatever the entry
  /// The folder below the tree that its results concern.
  const char* area = "user";

  bool does(std::uint32_t effect) const { return (effects & effect) != 0; }
};

/// All operations. all_pairs() includes a new one automatically.
const std::vector<Operation>& operations();
/// @throws std::invalid_argument for an unknown name.
const Operation& operation_called(const std::string& name);

/// What else is in the folder, and whether it has an index.
enum class Setup : std::uint8_t { kTidy, kStray, kNoIndex };
const char* name_of(Setup setup);

/// The tree before a run.
Tree tree_for(Setup setup);

// The entries of each owner before a run, all at the timestamp 0.
inline constexpr const char* kOld = "report.kdb";       ///< older than the limit of a clean
inline constexpr const char* kYoung = "second.kdb";     ///< younger
inline constexpr const char* kBystander = "other.kdc";  ///< younger; no operation names it
inline constexpr const char* kList = "list.ctg";        ///< a category file with lines of both
inline constexpr const char* kStray = "stray.txt";      ///< an orphan

// ------------------------------------------------------------------------------------------------
// Operations of the client that are not operations of the library. They lock the index, and repeat
// a refused lock. (The client's rm, and its mv within a folder, are operations of the library.)
//
// They also look at files without the OS seam. The scheduler does not see that: it happens together
// with the call before. So it is unknown what their calls touch.

std::string client_put(const Target& target);
std::string client_restore(const Target& target);
/// Removes an entry after its bytes were copied to another place.
std::string client_move_out(const Target& target);
std::string client_repair(const Target& target);

// ------------------------------------------------------------------------------------------------
// The combinations of operations that are explored.

enum class Names : std::uint8_t {
  kSame,         ///< one existing entry for both
  kSameNew,      ///< one missing entry for both
  kOther,        ///< two existing entries
  kOtherNew,     ///< two missing entries
  kOtherFolder,  ///< entries of the same name, of two owners
};

/// Two or three operations, and the entries and the tree that they run on.
struct Combination {
  std::vector<const Operation*> operations;
  Names names = Names::kSame;
  Setup setup = Setup::kTidy;
  bool synchronize = false;

  Target target_of(std::size_t who, const std::string& root) const;
  std::vector<Task> tasks(const std::string& root) const;
};

/// "create + remove, same, tidy, off"
std::string in_text(const Combination& combination);
/// @throws std::invalid_argument if the text is not a combination.
Combination combination_from(const std::string& text);

/// Every pair, in every setting that can make a difference.
std::vector<Combination> all_pairs();
/// Two operations that change something, and a third one that only reads.
std::vector<Combination> all_trios();

// ------------------------------------------------------------------------------------------------
// Runs a combination with processes. A process waits for permission over a pipe before each call,
// and reports the result. Here a thread represents it, and passes its calls to the scheduler.

/// Starts a process for each operation. Each task represents one of them.
std::vector<Task> process_tasks(const Combination& combination, const std::string& root,
                                Interleaving& interleaving);

}  // namespace interleavings
