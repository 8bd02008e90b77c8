#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "lab/reliability/index_reader.h"
#include "lab/reliability/reliability.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

/// @file
/// What a folder must hold after operations that ended, and what it may hold after one that was
/// killed.
namespace reliability {

enum class Kind : std::uint8_t {
  kCreate,        ///< STGIndex::create
  kRemove,        ///< STGIndex::remove
  kRename,        ///< STGIndex::rename
  kClean,         ///< STGIndex::cleanOutOfDateOutput
  kWrite,         ///< vu_storage::OpenWrite, Write, Close
  kCopy,          ///< vu_storage::copyToStorage
  kSaveKeys,      ///< vu_storage::saveUserOrMasterProfile
  kForget,        ///< vu_storage::RemoveFile, which edits the category file as well
  kPlainRewrite,  ///< faulty: the index is cut, then written again as it was
};
const char* name_of(Kind kind);

/// Whether loading an index adopts files that no line names.
enum class Adoption : std::uint8_t { kOff, kOn };

/// The text number @p id of @p size bytes. Two of them differ from their first bytes on.
std::string text_number(std::uint64_t id, std::size_t size);

/// The key file whose lines an entry's removal edits.
inline constexpr const char* kCategory = "list.ctg";

struct Operation {
  Kind kind = Kind::kCreate;
  std::string name;
  long stamp = 0;
  std::string new_name;  ///< of a rename
  long new_stamp = 0;
  std::uint64_t text_id = 0;  ///< of a write; of a copy the source's
  std::size_t text_size = 0;
  std::vector<std::string> category_lines;  ///< of kSaveKeys on the category file
  std::set<std::string> out_of_date;        ///< of a clean: the files that are too old

  std::string key() const { return key_for(name, stamp); }
  std::string new_key() const { return key_for(new_name, new_stamp); }
  /// What it writes.
  std::string text() const;
};

struct Entry {
  std::string stored;
  std::string content;
};

/// Everything that a folder holds.
struct Model {
  std::map<std::string, Entry> entries;       ///< by key
  std::map<std::string, std::string> strays;  ///< files in no line, with their content
  std::int64_t counter = 0;
  Adoption adoption = Adoption::kOff;
  /// What a reader of lines alone found last; it may miss what was saved, until the next save.
  Lines plain;

  /// Carries out an operation that ended. @return what a create answers, else nothing.
  std::string apply(const Operation& operation);
  Lines lines() const;
  /// The physical name that comes next, as it is stored.
  std::string next_number() const;

 private:
  void adopt();
  void make(const std::string& key, const std::string& content);
};

/// The text of a key file without the line that names @p entry.
std::string without_line_of(const std::string& text, const std::string& entry);

/// How much of what an operation cannot have touched is read.
enum class Depth : std::uint8_t { kSizes, kEveryByte };

struct Findings {
  std::vector<std::string> wrong;
  std::vector<std::string> windows;  ///< what the kill left behind that the promise allows
  bool index_is_in_the_middle =
      false;  ///< its text is neither that of the old lines nor of those it has
  Model now;  ///< what the folder holds
};

/// Compares a folder with what it held before an operation that was killed; null when none was
/// under way.
Findings check(const Model& before, const Operation* killed, const std::string& folder,
               Depth depth);

// ------------------------------------------------------------------------------------------------

/// What a run of kills found, over all folders.
struct Tally {
  std::map<std::string, std::uint64_t> kills_by_kind;
  std::map<std::string, std::uint64_t> windows;
  std::uint64_t operations = 0;     ///< that ended, each checked
  std::uint64_t in_the_middle = 0;  ///< kills in the middle of a rewrite of the index
};

/// Whether the operation that is killed is one of the library, or a faulty one that does harm.
enum class Victim : std::uint8_t { kLibrary, kFaulty };

/// What a worker says before the write that it is to announce.
inline constexpr const char* kWriteBegins = "a write begins";

/// When the kills come.
enum class Aim : std::uint8_t {
  kAnyMoment,  ///< a random part of an operation's time
  /// Shortly after one of its writes begins: most of a rewrite's moments are between those.
  kWrites,
};

/// One folder of documents under operations that are killed. The folder keeps what the kills make
/// of it: the next operation works on that.
class KillFolder {
 public:
  /// @param index_size of the index, around which it stays, in bytes.
  KillFolder(Run& run, std::size_t index_size, Adoption adoption, Aim aim = Aim::kAnyMoment);

  /// One killed process: its first operation ends, and a later one is killed at a random moment of
  /// its time. Everything is checked then. What is wrong goes to the run.
  void kill_once(Tally& tally, Victim victim = Victim::kLibrary);
  /// Some operations that nobody kills; the folder is compared byte by byte afterwards, and the
  /// index's text must be that of its lines alone.
  void work_undisturbed();

  std::string name() const;

 private:
  std::string folder() const { return m_scratch.path() + "\\storage\\user\\owner"; }
  void fill(std::size_t index_size);
  std::string new_name();
  std::string some_key(const Model& model);
  Kind some_kind(const Model& model);
  Operation some_operation(const Model& model);
  Operation clean_operation(const Model& model);
  std::vector<Operation> plan(std::size_t count, Victim victim);
  std::string command_for(const Operation& operation) const;
  child_process start();
  /// Reads one answer; false when none comes any more.
  bool take_answer(child_process& worker, const Operation& operation,
                   std::chrono::milliseconds limit);
  void sleep_for_a_part_of(Kind kind);
  std::uint64_t some_write();
  void wait_for_a_write(child_process& worker, std::size_t operations);
  void take(Findings findings, const std::string& what);

  Run& m_run;
  const std::size_t m_index_size;
  const Adoption m_adoption;
  const Aim m_aim;
  scratch_folder m_scratch;
  Model m_model;
  std::size_t m_text_size = 0;
  std::string
      m_left_over;  ///< text of an index that a kill left in the middle, until the next save
  std::vector<std::string> m_early_answers;  ///< read while waiting for a write
  std::uint64_t m_names = 0;
  std::uint64_t m_texts = 0;
  std::uint64_t m_kills = 0;
  std::map<Kind, double> m_microseconds;  ///< that an operation takes, about
};

}  // namespace reliability
