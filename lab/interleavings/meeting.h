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

#include "lab/interleavings/footprint.h"
#include "tests/support/os_faults.h"

/// @file
/// One meeting: some operations, each on a thread of its own, of which one alone runs at any time.
///
/// Each call of the seam is a point: there the thread that runs asks the guide who goes on. A lock
/// that another one holds is never waited for in the system: who asks for it stands still, and is
/// not among those who can go on, until its holder has given it back. So when nobody can go on and
/// somebody has not ended, they wait for each other.
namespace interleavings {

using Operation = std::function<std::string()>;

/// What an operation answers, or the exception that came out of it.
std::string answer_of(const Operation& operation);

class Meeting;

/// As long as it lives, the operation of this thread asks for a lock again and again until it gets
/// it: to the meeting that is waiting.
class [[nodiscard]] AsksAgain {
 public:
  AsksAgain();
  ~AsksAgain();
  AsksAgain(const AsksAgain&) = delete;
  AsksAgain& operator=(const AsksAgain&) = delete;
};

/// Who goes on.
struct Step {
  int who = 0;
  bool dies = false;  ///< it goes on no more: its process ends here

  bool operator==(const Step&) const = default;
};

class Guide {
 public:
  virtual ~Guide() = default;
  /// @param current who ran last and could go on; -1 when it has ended or waits, or nobody has.
  /// @param able those who can go on, at least one.
  virtual Step choose(const Meeting& meeting, int current, const std::vector<int>& able) = 0;
};

/// A call that was made, or the end of a process.
struct Made {
  int who = 0;
  bool is_death = false;
  SeenCall call = {};
  Footprint footprint = {};
};

struct Ending {
  std::vector<std::string> answers;
  std::vector<bool> died;
  std::string deadlock;  ///< who waits for whom; empty when all have ended
};

enum class Played : std::uint8_t {
  kByThreads,
  kByProcesses,  ///< for each of which a thread stands; a death is the thread's to carry out
};

class Meeting final : public os::faults::Conductor {
 public:
  /// @param root the folder of the tree, without a trailing separator.
  Meeting(const std::string& root, Guide& guide, Played played = Played::kByThreads);
  ~Meeting() override;
  Meeting(const Meeting&) = delete;
  Meeting& operator=(const Meeting&) = delete;

  /// Runs the operations to their ends.
  Ending run(const std::vector<Operation>& operations);

  /// A call of one of them; on any other thread it is simply made.
  os::Status conduct(const os::faults::Arriving& arriving,
                     const std::function<os::Status()>& make) override;

  // ---- for the guide -------------------------------------------------------------------------

  const std::vector<Made>& made() const { return m_made; }
  /// The call at which somebody stands.
  const SeenCall& next_call(int who) const { return m_parties[index(who)]->next; }
  const Footprint& next_footprint(int who) const { return m_parties[index(who)]->footprint; }
  int size() const { return static_cast<int>(m_parties.size()); }
  bool has_ended(int who) const { return m_parties[index(who)]->state == State::kEnded; }
  /// Whether it waits for a lock that another one holds.
  bool waits(int who) const { return !has_ended(who) && !can_go_on(who); }
  /// Whether any call of it was made.
  bool has_begun(int who) const { return m_parties[index(who)]->has_begun; }

 private:
  enum class State : std::uint8_t { kStands, kEnded };

  /// Taken by the one who waits for it. (The semaphore of the Windows build's library can sleep
  /// through a release.)
  class Turn {
   public:
    void give();
    void take();

   private:
    std::mutex m_mutex;
    std::condition_variable m_given;
    bool m_is_given = false;
  };

  struct Party {
    State state = State::kStands;
    bool has_begun = false;
    bool is_dead = false;
    SeenCall next;
    Footprint footprint;
    /// The system has refused the lock since this many others were given back.
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

  void play(int who, const Operation& operation);
  void stand_at_point(Party& me, int who);
  void hand_on(int from);
  int choose_next(int from);
  bool can_go_on(int who) const;
  bool is_free(const SeenCall& lock) const;
  void die(int who);
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

  std::string m_root;  ///< with "/" between its parts and at its end
  Guide& m_guide;
  const Played m_played;
  std::vector<std::unique_ptr<Party>> m_parties;
  Turn m_main;
  bool m_is_overture = true;  ///< all go to their first points, one after the other
  bool m_is_over = false;     ///< a deadlock is being ended
  std::map<Key, OpenHandle> m_handles;
  std::uint64_t m_given_back = 0;
  std::uint64_t m_removed = 0;
  std::vector<Made> m_made;
  Ending m_ending;
};

}  // namespace interleavings
