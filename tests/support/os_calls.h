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
/// System calls seen by tests: stopped by a barrier before they are made, or recorded.
namespace os::faults {

/// Stops the thread that makes a call, before the call, until the test releases it.
///
///     Barrier barrier("the entry's file is made", Call::lock, 2);
///     std::thread other([&] { STGIndex::create(folder, "a.kdb", 0); });
///     ASSERT_TRUE(barrier.is_reached());
///     ...                              // what must happen in between
///     barrier.let_go();
///
/// The name is for messages, and for waiting().
class [[nodiscard]] Barrier {
 public:
  Barrier(std::string name, Call call, std::uint64_t nth = 1);
  /// Calls let_go().
  ~Barrier();
  Barrier(const Barrier&) = delete;
  Barrier& operator=(const Barrier&) = delete;

  const std::string& name() const;
  /// Waits until a thread is stopped here. @return false if none is stopped after @p patience.
  bool is_reached(std::chrono::milliseconds patience = std::chrono::seconds(20)) const;
  /// Releases the stopped threads. From now on no thread is stopped.
  void let_go();

  /// The names of the barriers that stop a thread now, in order of arrival.
  static std::vector<std::string> waiting();

 private:
  struct Gate;

  const std::shared_ptr<Gate> m_gate;
  const Fault m_fault;
};

/// One change of a file or folder, or one flush. Paths are relative to the recorded folder, with
/// "/" between their parts.
struct Change {
  enum class What : std::uint8_t {
    kCreate,  ///< an empty file was created
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

/// Records all changes below a folder during its lifetime: each change with its file, offset and
/// bytes, and each flush. A copy is recorded as creating and writing its target.
class [[nodiscard]] Recorder {
 public:
  /// @param root a folder without a trailing separator. Files that it contains now are not recorded
  /// as created.
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
  /// The path relative to the root; empty outside of it.
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
