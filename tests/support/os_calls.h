#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include "tests/support/os_faults.h"

/// @file
/// Calls of the system as tests look at them: held before they are made, and recorded.
namespace os::faults {

/// Stops the thread that makes a call, before it is made, until the test lets it go on.
///
///     Barrier barrier("the entry's file is made", Call::lock, 2);
///     std::thread other([&] { STGIndex::create(folder, "a.kdb", 0); });
///     ASSERT_TRUE(barrier.is_reached());
///     ...                              // whatever is to happen meanwhile
///     barrier.let_go();
///
/// The name is for messages, and for waiting().
class [[nodiscard]] Barrier {
 public:
  Barrier(std::string name, Call call, std::uint64_t nth = 1);
  /// Lets go.
  ~Barrier();
  Barrier(const Barrier&) = delete;
  Barrier& operator=(const Barrier&) = delete;

  const std::string& name() const;
  /// Waits until a thread stands here. @return whether one does, after @p patience at the latest.
  bool is_reached(std::chrono::milliseconds patience = std::chrono::seconds(20)) const;
  /// Whoever stands here goes on, and nobody is stopped any more.
  void let_go();

  /// The names of the barriers at which threads stand now, in the order of their coming.
  static std::vector<std::string> waiting();

 private:
  struct Gate;

  const std::shared_ptr<Gate> m_gate;
  const Fault m_fault;
};

// ------------------------------------------------------------------------------------------------

/// One change of a file or folder, or one flush. Paths are relative to the recorded folder, with
/// "/" between their parts.
struct Change {
  enum class What : std::uint8_t {
    kCreate,  ///< an empty file came into being
    kWrite,   ///< `bytes` at `offset`
    kCut,     ///< the file's size became `offset`
    kFlush,   ///< everything written to the file so far is on the device
    kClose,   ///< of a handle
    kRename,  ///< to `to`
    kRemove,  ///< a file or link
    kMakeFolder,
    kRemoveFolder,
  };

  What what = What::kCreate;
  std::string path;
  std::string to = {};
  std::uint64_t offset = 0;
  std::string bytes = {};

  bool operator==(const Change&) const = default;
};

/// The change in words: "write 10 at 4: user/anna/index.dat".
std::string in_words(const Change& change);

/// Records, as long as it lives, what is done below a folder: each change with its file, offset and
/// bytes, and each flush. A copy is recorded as the making and writing of its target.
class [[nodiscard]] Recorder {
 public:
  /// @param root a folder without a trailing separator; its files of now are known to exist.
  explicit Recorder(const std::string& root);

  std::vector<Change> changes() const;
  /// The same in words.
  std::vector<std::string> words() const;

 private:
  struct OpenFile {
    std::string path;
    std::uint64_t position = 0;
  };

  void take(const Made& made);
  void take_on_handle(const Made& made);
  void take_open(const Made& made);
  void take_copy(const Made& made);
  /// Below the root; empty for anything else.
  std::string relative(const Path& path) const;
  std::uint64_t size_of(const std::string& path) const;

  const std::string m_root;
  mutable std::mutex m_mutex;
  std::set<std::string> m_known;
  std::map<Handle, OpenFile> m_open;
  std::vector<Change> m_changes;
  const Watch m_watch;
};

}  // namespace os::faults
