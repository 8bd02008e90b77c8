#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/reliability/kill_model.h"
#include "lab/reliability/reliability.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

namespace reliability {

/// What a run of kills found, over all folders.
struct Tally {
  std::map<std::string, std::uint64_t> kills_by_kind;
  std::map<std::string, std::uint64_t> windows;
  std::uint64_t operations = 0;     ///< that ended, each checked
  std::uint64_t in_the_middle = 0;  ///< kills in the middle of a rewrite of the index
};

/// Whether the operation that is killed is one of the library, or a planted one that does harm.
enum class Victim : std::uint8_t { kLibrary, kPlanted };

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
class KillField {
 public:
  /// @param index_size of the index, around which it stays, in bytes.
  KillField(Run& run, std::size_t index_size, Adoption adoption, Aim aim = Aim::kAnyMoment);

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
