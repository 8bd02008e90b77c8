#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "lab/model/world.h"
#include "lab/reliability/reliability.h"
#include "vu_host.h"

/// @file
/// The differential test: random sequences of operations on the library and the model (lab/model).
namespace reliability::sequences {

enum class Kind : std::uint8_t {
  // documents
  kStore,
  kFetch,
  kIsFileExist,
  kLatest,
  kIndexName,
  kRemoveFile,
  kCopyTo,
  kCopyFrom,
  kCopyFile,
  // key files and profiles
  kSaveProfile,
  kLoadProfile,
  kReadKeys,
  kWriteKeys,
  // parts
  kWritePart,
  kReadPart,
  // owners and lists
  kRenameUser,
  kRemoveUser,
  kAllFiles,
  kDocuments,
  kExistingFiles,
  // the index of a folder
  kExists,
  kCreate,
  kRemove,
  kRename,
  kLastVersion,
  kValues,
  kPhysicalPath,
  kUpdate,
  kClean,
  kCleanDirectories,
  kMigrate,
  // plain files
  kHandle,
  kPath,
  kChangePath,
  // what others do
  kWriteIndex,
  kWriteCounter,
  kWriteFile,
  kMakeFolder,
  kErase,
  kSetTime,
  kReadOnly,
  kWriteMails,
  // the process
  kNewProcess,
  kSwitch,
  kPartStamp,
  kCount
};

/// One step: an operation, and its arguments.
struct SequenceStep {
  Kind kind = Kind::kStore;
  int place = 0;  ///< which folder, for operations on folders
  int type = 0;
  int way = 0;  ///< which form of the operation
  bool flag = false;
  bool second_flag = false;
  std::int32_t stamp = 0;
  std::int32_t other_stamp = 0;
  std::string owner;
  std::string other_owner;
  std::string name;
  std::string other_name;
  std::string selector;
  std::string bytes;
};

using Steps = std::vector<SequenceStep>;

/// Files that step number n writes get the time kFirstTime + kTimeOfStep * (n + 1).
constexpr std::int64_t kFirstTime = 2000000000;
constexpr std::int64_t kTimeOfStep = 10;

/// Whether names and marks are used that only one system knows.
enum class Alphabet : std::uint8_t { kPortable, kAny };

Steps random_steps(Random& random, Alphabet alphabet);
std::string described(const SequenceStep& step);

/// The folders of a sequence.
struct Places {
  explicit Places(std::string folder);
  std::string root;  ///< contains all others
  std::string work, source, index, binary, server;

  /// The folder of a step.
  std::string of(const SequenceStep& step, const model::World& world) const;
};

/// Records the traced errors, and nothing else.
class ErrorSink final : public vu_host::trace_sink {
 public:
  std::vector<std::string> errors;

  bool wants(vu_host::trace_level) const noexcept override { return false; }
  bool wants(vu_host::trace_event event) const noexcept override {
    return event == vu_host::trace_event::error;
  }
  void scope_begin(const vu_host::trace_site&, vu_host::trace_level,
                   std::string_view) noexcept override {}
  void scope_end(const vu_host::trace_site&, vu_host::trace_level) noexcept override {}
  void scope_message(const vu_host::trace_site&, std::string_view) noexcept override {}
  void record(const vu_host::trace_site&, vu_host::trace_level,
              std::string_view) noexcept override {}
  void event(const vu_host::trace_site&, vu_host::trace_event,
             std::string_view text) noexcept override {
    errors.emplace_back(text);
  }
};

/// What the model and the library share in a step.
struct BothSides {
  const Places& places;
  std::string folder;         ///< the folder of the step
  std::int64_t now = 0;       ///< for ages
  bool ages_unknown = false;  ///< the model sets it if an age depends on the machine's clock
  bool skip_rest =
      false;  ///< the model sets it if the rest of the step would read the size of a folder
};

/// Whether no document states the result of a step: the size of a folder, or the order of removals.
bool is_senseless(const SequenceStep& step);

/// Arguments that both sides derive from a step.
std::string part_of(const SequenceStep& step);
int count_of(const SequenceStep& step);
std::uint32_t limit_of(const SequenceStep& step);
bool by_access(const SequenceStep& step);

/// Results as text.
std::string text_of(bool value);
std::string text_of(const model::Pairs& pairs);
std::string text_of(const std::vector<std::string>& texts);

/// The result of a step as text. run_on_model() also makes the changes of others, in memory and in
/// the real folder; run_on_library() does nothing for these.
std::string run_on_model(const SequenceStep& step, model::World& world, BothSides& sides);
std::string run_on_library(const SequenceStep& step, const BothSides& sides);

}  // namespace reliability::sequences
