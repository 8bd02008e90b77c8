#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/os_faults.h"

/// @file
/// What a call of the OS seam touches, and which calls touch each other.
namespace interleavings {

enum class Aspect : std::uint8_t {
  kName,     ///< whether the path exists, and as what
  kListing,  ///< the names in a folder
  kContent,  ///< bytes and size of a file
  kLock,     ///< the locks of a file
};
enum class AccessKind : std::uint8_t { kReads, kChanges };

struct Access {
  Aspect aspect = Aspect::kName;
  AccessKind kind = AccessKind::kReads;
  std::string path = {};

  bool operator==(const Access&) const = default;
};
using Footprint = std::vector<Access>;

/// Whether the order of two calls matters: they touch the same thing, and one of them changes it.
/// The name of a folder includes everything below it.
bool are_dependent(const Footprint& one, const Footprint& other);
/// Whether the call changes anything.
bool changes_anything(const Footprint& footprint);

/// A system call. Paths are relative to the tree and separated by "/".
struct SeenCall {
  os::faults::Call function = os::faults::Call::any;
  std::string path = {};
  std::string to = {};        ///< for a rename and a copy
  bool is_making = false;     ///< an open that creates a missing file
  bool is_exclusive = false;  ///< an exclusive lock, or a call on a handle that has one
  bool waits = false;         ///< a lock call that waits
  bool is_locked = false;     ///< a call on a handle with any lock
};

/// "open user/anna/index.dat"
std::string in_words(const SeenCall& call);
/// What the call touches.
/// @param is_there whether a path of the tree exists now.
template <class IsThere>
Footprint footprint_of(const SeenCall& call, const IsThere& is_there);

/// The folder of a path; empty for the tree itself.
std::string parent_of(const std::string& path);

// ------------------------------------------------------------------------------------------------

namespace detail {

class FootprintBuilder {
 public:
  void reads(Aspect aspect, const std::string& path) { add(aspect, AccessKind::kReads, path); }
  void changes(Aspect aspect, const std::string& path) { add(aspect, AccessKind::kChanges, path); }
  /// A name is created or removed.
  void changes_name(const std::string& path) {
    changes(Aspect::kName, path);
    changes(Aspect::kListing, parent_of(path));
  }
  Footprint take() { return std::move(m_footprint); }

 private:
  void add(Aspect aspect, AccessKind kind, const std::string& path) {
    m_footprint.push_back({aspect, kind, path});
  }

  Footprint m_footprint;
};

void add_handle_call(const SeenCall& call, FootprintBuilder& builder);
void add_question(const SeenCall& call, FootprintBuilder& builder);

}  // namespace detail

template <class IsThere>
Footprint footprint_of(const SeenCall& call, const IsThere& is_there) {
  using os::faults::Call;
  detail::FootprintBuilder builder;
  // Creating a name only matters if it is missing, removing it only if it exists.
  const auto comes = [&](const std::string& path) {
    is_there(path) ? builder.reads(Aspect::kName, path) : builder.changes_name(path);
  };
  const auto goes = [&](const std::string& path) {
    is_there(path) ? builder.changes_name(path) : builder.reads(Aspect::kName, path);
  };
  switch (call.function) {
    case Call::open:
      call.is_making ? comes(call.path) : builder.reads(Aspect::kName, call.path);
      break;
    case Call::create_directory: comes(call.path); break;
    case Call::remove_directory:
      goes(call.path);
      builder.reads(Aspect::kListing, call.path);
      break;
    case Call::remove_file: goes(call.path); break;
    case Call::rename:
      if (call.path == call.to) {
        builder.reads(Aspect::kName, call.path);
      } else {
        goes(call.path);
        comes(call.to);
      }
      break;
    case Call::copy:
      builder.reads(Aspect::kName, call.path);
      builder.reads(Aspect::kContent, call.path);
      builder.reads(Aspect::kLock, call.path);
      comes(call.to);
      builder.changes(Aspect::kContent, call.to);
      builder.changes(Aspect::kLock, call.to);
      break;
    default:
      detail::add_question(call, builder);
      detail::add_handle_call(call, builder);
      break;
  }
  return builder.take();
}

// ------------------------------------------------------------------------------------------------
// One run. Each operation has its own thread, and only one thread runs at a time.
//
// Before each call of the OS seam, the running thread asks the scheduler which thread continues. No
// thread waits for a lock in the system: if another operation holds the lock, the thread is stopped
// until the lock is free. If no thread can continue and one has not ended, there is a deadlock.

using Task = std::function<std::string()>;

/// The result of an operation, or its exception as text.
std::string answer_of(const Task& operation);

class Interleaving;

/// During its lifetime, the current thread repeats a refused lock, which counts as waiting.
class [[nodiscard]] RetriesLocks {
 public:
  RetriesLocks();
  ~RetriesLocks();
  RetriesLocks(const RetriesLocks&) = delete;
  RetriesLocks& operator=(const RetriesLocks&) = delete;
};

/// Which operation continues.
struct Choice {
  int who = 0;
  bool is_killed = false;  ///< its process ends here

  bool operator==(const Choice&) const = default;
};

class Scheduler {
 public:
  virtual ~Scheduler() = default;
  /// @param current the operation that ran last and can continue, or -1.
  /// @param able the operations that can continue, at least one.
  virtual Choice choose(const Interleaving& interleaving, int current,
                        const std::vector<int>& able) = 0;
};

/// A call that was made, or the end of a process.
struct Event {
  int who = 0;
  bool is_kill = false;
  SeenCall call = {};
  Footprint footprint = {};
};

struct RunResult {
  std::vector<std::string> answers;
  std::vector<bool> killed;
  std::string deadlock;  ///< which operation waits for which; empty if all ended
};

enum class Participants : std::uint8_t {
  kThreads,
  kProcesses,  ///< each represented by a thread, which also ends the process
};

class Interleaving final : public os::faults::Conductor {
 public:
  /// @param root the folder of the tree, without a trailing separator.
  Interleaving(const std::string& root, Scheduler& scheduler,
               Participants participants = Participants::kThreads);
  ~Interleaving() override;
  Interleaving(const Interleaving&) = delete;
  Interleaving& operator=(const Interleaving&) = delete;

  /// Runs all operations to their end.
  RunResult run(const std::vector<Task>& operations);

  /// Handles a call of one of the operations. Calls of other threads are made at once.
  os::Status conduct(const os::faults::Arriving& arriving,
                     const std::function<os::Status()>& make) override;

  // ---- for the scheduler ----------------------------------------------------------------------

  const std::vector<Event>& events() const { return m_events; }
  /// The next call of an operation.
  const SeenCall& next_call(int who) const { return m_participants[index(who)]->next; }
  const Footprint& next_footprint(int who) const { return m_participants[index(who)]->footprint; }
  int size() const { return static_cast<int>(m_participants.size()); }
  bool has_ended(int who) const { return m_participants[index(who)]->state == State::kEnded; }
  /// Whether it waits for a lock that another operation holds.
  bool waits(int who) const { return !has_ended(who) && !can_go_on(who); }
  /// Whether it has made a call.
  bool has_begun(int who) const { return m_participants[index(who)]->has_begun; }

 private:
  enum class State : std::uint8_t { kStands, kEnded };

  /// Lets one thread wait for another. (The semaphore of the Windows build can miss a release.)
  class Turn {
   public:
    void give();
    void take();

   private:
    std::mutex m_mutex;
    std::condition_variable m_given;
    bool m_is_given = false;
  };

  struct Participant {
    State state = State::kStands;
    bool has_begun = false;
    bool is_killed = false;
    SeenCall next;
    Footprint footprint;
    /// The system refused the lock when refused_at releases had happened.
    bool is_refused = false;
    std::uint64_t refused_at = 0;
    std::string answer;
    Turn turn;
  };
  struct OpenHandle {
    std::string path = {};
    bool is_locked = false;
    bool is_exclusive = false;
  };
  using Key = std::pair<int, os::Handle>;

  static std::size_t index(int who) { return static_cast<std::size_t>(who); }

  void play(int who, const Task& operation);
  void stand_at_point(Participant& me, int who);
  void hand_on(int from);
  int choose_next(int from);
  bool can_go_on(int who) const;
  bool is_free(const SeenCall& lock) const;
  void kill(int who);
  void end_deadlock();
  std::string waits_told() const;

  SeenCall seen(int who, const os::faults::Arriving& arriving) const;
  Footprint footprint(const SeenCall& call) const;
  os::Status make_call(int who, const os::faults::Arriving& arriving,
                       const std::function<os::Status()>& make);
  void take_note(int who, const os::faults::Arriving& arriving, const os::Status& status);
  void forget_name(const std::string& path);
  void move_names(const std::string& from, const std::string& to);
  std::string relative(const os::Path& path) const;

  std::string m_root;  ///< separated by "/", with "/" at its end
  Scheduler& m_scheduler;
  const Participants m_kind;
  std::vector<std::unique_ptr<Participant>> m_participants;
  Turn m_main;
  bool m_is_starting = true;  ///< all threads run to their first call, one after the other
  bool m_is_over = false;     ///< a deadlock is being resolved
  std::map<Key, OpenHandle> m_handles;
  std::uint64_t m_given_back = 0;
  std::uint64_t m_removed = 0;
  std::vector<Event> m_events;
  RunResult m_result;
};

}  // namespace interleavings
