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

#include "lab/reader/index_reader.h"
#include "lab/reliability/reliability.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

/// @file
/// A model of a folder, and the check of the folder after finished operations and a killed one.
namespace reliability {

enum class Kind : std::uint8_t {
  kCreate,        ///< STGIndex::create
  kRemove,        ///< STGIndex::remove
  kRename,        ///< STGIndex::rename
  kClean,         ///< STGIndex::cleanOutOfDateOutput
  kWrite,         ///< vu_storage::OpenWrite, Write, Close
  kCopy,          ///< vu_storage::copyToStorage
  kSaveKeys,      ///< vu_storage::saveUserOrMasterProfile
  kForget,        ///< vu_storage::RemoveFile, which also changes the category file
  kPlainRewrite,  ///< faulty: truncates the index, then writes the same text
};
const char* name_of(Kind kind);

/// Whether operations adopt orphans (synchronisation).
enum class Adoption : std::uint8_t { kOff, kOn };

/// Text number @p id with @p size bytes. Different texts differ from their first bytes on.
std::string text_number(std::uint64_t id, std::size_t size);

/// The key file from which the removal of an entry removes a line.
inline constexpr const char* kCategory = "list.ctg";

struct Operation {
  Kind kind = Kind::kCreate;
  std::string name;
  long stamp = 0;
  std::string new_name;  ///< for a rename
  long new_stamp = 0;
  std::uint64_t text_id = 0;  ///< for a write; for a copy the number of the source
  std::size_t text_size = 0;
  std::vector<std::string> category_lines;  ///< for kSaveKeys on the category file
  std::set<std::string> out_of_date;        ///< for a clean: the files that are too old

  std::string key() const { return reader::key_for(name, stamp); }
  std::string new_key() const { return reader::key_for(new_name, new_stamp); }
  /// The text that it writes.
  std::string text() const;
};

struct Entry {
  std::string stored;
  std::string content;
};

/// The content of a folder.
struct Model {
  std::map<std::string, Entry> entries;       ///< by key
  std::map<std::string, std::string> strays;  ///< orphans with their content
  std::int64_t counter = 0;
  Adoption adoption = Adoption::kOff;
  /// The entries that a reader of plain lines last found. It can miss a save until the next one.
  reader::Lines plain;

  /// Applies a finished operation. @return the result of a create, otherwise empty.
  std::string apply(const Operation& operation);
  reader::Lines lines() const;
  /// The next physical name, as the index stores it.
  std::string next_number() const;

 private:
  void adopt();
  void make(const std::string& key, const std::string& content);
};

/// The text of a key file without the line of @p entry.
std::string without_line_of(const std::string& text, const std::string& entry);

/// How much is compared of each file that the operation cannot have changed.
enum class Depth : std::uint8_t { kSizes, kEveryByte };

struct Findings {
  std::vector<std::string> wrong;
  std::vector<std::string> windows;  ///< states that a kill may leave
  /// The text of the index is not that of the old entries, and not that of the current ones.
  bool index_is_in_the_middle = false;
  Model now;  ///< the content of the folder
};

/// Compares a folder with its state @p before the killed operation.
/// @param killed null if no operation was killed.
Findings check(const Model& before, const Operation* killed, const std::string& folder,
               Depth depth);

// ------------------------------------------------------------------------------------------------

/// The results of a series of kills, over all folders.
struct Tally {
  std::map<std::string, std::uint64_t> kills_by_kind;
  std::map<std::string, std::uint64_t> windows;
  std::uint64_t operations = 0;     ///< finished operations; each was checked
  std::uint64_t in_the_middle = 0;  ///< kills while the index was being rewritten
};

/// Whether the killed operation is one of the library, or a faulty one that corrupts the index.
enum class Victim : std::uint8_t { kLibrary, kFaulty };

/// A worker prints this line before the write that it announces.
inline constexpr const char* kWriteBegins = "a write begins";

/// The moment of a kill.
enum class Aim : std::uint8_t {
  kAnyMoment,  ///< after a random part of the operation's usual time
  /// Shortly after the beginning of a write. Most moments of a rewrite are between its writes.
  kWrites,
};

/// A folder whose operations are killed. The next operation works on what the kill left.
class KillFolder {
 public:
  /// @param index_size the index stays near this size, in bytes.
  KillFolder(Run& run, std::size_t index_size, Adoption adoption, Aim aim = Aim::kAnyMoment);

  /// Starts a process. Its first operation finishes, a later one is killed. Then checks the folder
  /// and reports defects to the run.
  void kill_once(Tally& tally, Victim victim = Victim::kLibrary);
  /// Runs some operations without a kill. Then compares the folder byte by byte. The index must
  /// have exactly the text of its entries.
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
  /// Reads one answer. @return false if the worker has ended.
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
      m_left_over;  ///< the text of an index that a kill left half written, until the next save
  std::vector<std::string> m_early_answers;  ///< answers that arrived before the announced write
  std::uint64_t m_names = 0;
  std::uint64_t m_texts = 0;
  std::uint64_t m_kills = 0;
  std::map<Kind, double> m_microseconds;  ///< the usual time of an operation
};

}  // namespace reliability
