#include "lab/interleavings/interleaving.h"

#include <algorithm>
#include <exception>
#include <thread>

#include "platform/os/os.h"
#include "vu_i18n.h"

namespace interleavings {
namespace {

using os::faults::Call;

bool is_below(const std::string& path, const std::string& folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool are_dependent(const Access& one, const Access& other) {
  if (one.kind == AccessKind::kReads && other.kind == AccessKind::kReads) return false;
  if (one.aspect == other.aspect && one.path == other.path) return true;
  const auto moves = [](const Access& folder, const Access& inside) {
    return folder.aspect == Aspect::kName && folder.kind == AccessKind::kChanges &&
           (is_below(inside.path, folder.path) ||
            (inside.path == folder.path && inside.aspect == Aspect::kListing));
  };
  return moves(one, other) || moves(other, one);
}

}  // namespace

std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool are_dependent(const Footprint& one, const Footprint& other) {
  return std::any_of(one.begin(), one.end(), [&](const Access& mine) {
    return std::any_of(other.begin(), other.end(),
                       [&](const Access& theirs) { return are_dependent(mine, theirs); });
  });
}

bool changes_anything(const Footprint& footprint) {
  return std::any_of(footprint.begin(), footprint.end(),
                     [](const Access& each) { return each.kind == AccessKind::kChanges; });
}

std::string in_words(const SeenCall& call) {
  std::string words = os::faults::name(call.function);
  if (call.function == Call::lock) words += call.is_exclusive ? " (exclusive)" : " (shared)";
  if (!call.path.empty()) words += " " + call.path;
  if (!call.to.empty()) words += " to " + call.to;
  return words;
}

namespace detail {

void add_question(const SeenCall& call, FootprintBuilder& builder) {
  switch (call.function) {
    case Call::probe_attributes:
    case Call::probe_search:
      if (call.path.find_first_of("*?") != std::string::npos) {
        builder.reads(Aspect::kListing, parent_of(call.path));
      } else {
        builder.reads(Aspect::kName, call.path);
      }
      break;
    case Call::list:
      builder.reads(Aspect::kName, call.path);
      builder.reads(Aspect::kListing, call.path);
      break;
    case Call::same_file:
      builder.reads(Aspect::kName, call.path);
      builder.reads(Aspect::kName, call.to);
      break;
    case Call::stat:
      builder.reads(Aspect::kName, call.path);
      builder.reads(Aspect::kContent, call.path);
      break;
    case Call::open_folder:
    // No file of these trees is read-only.
    case Call::make_writable: builder.reads(Aspect::kName, call.path); break;
    default: break;
  }
}

void add_handle_call(const SeenCall& call, FootprintBuilder& builder) {
  const auto lock = [&] {
    call.is_exclusive ? builder.changes(Aspect::kLock, call.path)
                      : builder.reads(Aspect::kLock, call.path);
  };
  switch (call.function) {
    case Call::lock:
    case Call::unlock: lock(); break;
    case Call::close:
      if (call.is_locked) lock();
      break;
    case Call::size: builder.reads(Aspect::kContent, call.path); break;
    case Call::take_time: builder.changes(Aspect::kContent, call.path); break;
    case Call::read:
      builder.reads(Aspect::kContent, call.path);
      if (!call.is_locked) builder.reads(Aspect::kLock, call.path);
      break;
    case Call::write:
    case Call::set_end:
      builder.changes(Aspect::kContent, call.path);
      if (!call.is_locked) builder.reads(Aspect::kLock, call.path);
      break;
    default: break;
  }
}

}  // namespace detail

// ------------------------------------------------------------------------------------------------

namespace {

using os::faults::Arriving;
using os::faults::Call;

/// The operation on this thread; -1 for other threads.
thread_local int t_who = -1;

thread_local bool t_retries_locks = false;

/// The result of each call after a kill.
const os::Status kGone{5, os::Failure::kOther};

/// Whether the turn can change before this call. No other operation notices an excluded call.
bool is_point(Call call) {
  switch (call) {
    case Call::seek:
    case Call::reserve:
    case Call::flush:
    case Call::flush_file: return false;
    default: return true;
  }
}

}  // namespace

RetriesLocks::RetriesLocks() { t_retries_locks = true; }
RetriesLocks::~RetriesLocks() { t_retries_locks = false; }

std::string answer_of(const Task& operation) {
  try {
    return operation();
  } catch (const std::exception& e) {
    return std::string("exception: ") + e.what();
  } catch (...) {
    return "another exception";
  }
}

Interleaving::Interleaving(const std::string& root, Scheduler& scheduler, Participants participants)
    : m_scheduler(scheduler), m_kind(participants) {
  m_root = relative(root) + "/";
}
Interleaving::~Interleaving() = default;

void Interleaving::Turn::give() {
  const std::scoped_lock guard(m_mutex);
  m_is_given = true;
  m_given.notify_one();
}

void Interleaving::Turn::take() {
  std::unique_lock guard(m_mutex);
  m_given.wait(guard, [this] { return m_is_given; });
  m_is_given = false;
}

RunResult Interleaving::run(const std::vector<Task>& operations) {
  const os::faults::Conducted conducted(*this);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    m_participants.push_back(std::make_unique<Participant>());
    threads.emplace_back([this, i, &operations] { play(static_cast<int>(i), operations[i]); });
    m_main.take();
  }
  m_is_starting = false;
  const int first = choose_next(-1);
  if (first >= 0) {
    m_participants[index(first)]->turn.give();
    m_main.take();
  }
  for (std::thread& each : threads) each.join();
  for (const auto& participant : m_participants) {
    m_result.answers.push_back(participant->answer);
    m_result.killed.push_back(participant->is_killed);
  }
  return std::move(m_result);
}

void Interleaving::play(int who, const Task& operation) {
  t_who = who;
  Participant& me = *m_participants[index(who)];
  me.answer = answer_of(operation);
  me.state = State::kEnded;
  hand_on(who);
}

// ---- points -------------------------------------------------------------------------------------

os::Status Interleaving::conduct(const Arriving& arriving,
                                 const std::function<os::Status()>& make) {
  if (t_who < 0) return make();
  const int who = t_who;
  Participant& me = *m_participants[index(who)];
  if (me.is_killed) return kGone;
  if (!is_point(arriving.call)) return make();
  const bool waits = arriving.call == Call::lock &&
                     (t_retries_locks || (arriving.request->flags & os::kLockFailAtOnce) == 0);
  for (;;) {
    me.next = seen(who, arriving);
    me.next.waits = waits;
    me.footprint = footprint(me.next);
    stand_at_point(me, who);
    if (me.is_killed) return kGone;
    if (waits) arriving.request->flags |= os::kLockFailAtOnce;
    const os::Status status = make_call(who, arriving, make);
    if (!me.is_refused) return status;
    me.refused_at = m_given_back;
  }
}

os::Status Interleaving::make_call(int who, const Arriving& arriving,
                                   const std::function<os::Status()>& make) {
  // Other operations may have run since the first footprint.
  Event event{who, false, seen(who, arriving), {}};
  event.footprint = footprint(event.call);
  const os::Status status = make();
  Participant& me = *m_participants[index(who)];
  me.is_refused = me.next.waits && status.failure() == os::Failure::kLocked;
  if (!me.is_refused) {
    me.has_begun = true;
    m_events.push_back(std::move(event));
  }
  take_note(who, arriving, status);
  return status;
}

void Interleaving::stand_at_point(Participant& me, int who) {
  if (m_is_starting) {
    m_main.give();
    me.turn.take();
  } else {
    hand_on(who);
  }
}

/// Returns when @p from continues, or has ended.
void Interleaving::hand_on(int from) {
  Participant& me = *m_participants[index(from)];
  const int next = m_is_starting ? -1 : choose_next(from);
  if (next == from) return;
  (next < 0 ? m_main : m_participants[index(next)]->turn).give();
  if (me.state != State::kEnded) me.turn.take();
}

/// @return -1 when all have ended.
int Interleaving::choose_next(int from) {
  std::vector<int> able;
  bool is_anybody_left = false;
  for (std::size_t i = 0; i < m_participants.size(); ++i) {
    if (m_participants[i]->state == State::kEnded) continue;
    is_anybody_left = true;
    if (can_go_on(static_cast<int>(i))) able.push_back(static_cast<int>(i));
  }
  if (!is_anybody_left) return -1;
  if (able.empty()) {
    end_deadlock();
    return choose_next(from);
  }
  if (m_is_over) return able.front();
  const bool goes_on = std::find(able.begin(), able.end(), from) != able.end();
  const Choice choice = m_scheduler.choose(*this, goes_on ? from : -1, able);
  // Its further calls have no effect, so it ends at once.
  if (choice.is_killed) kill(choice.who);
  return choice.who;
}

bool Interleaving::can_go_on(int who) const {
  const Participant& participant = *m_participants[index(who)];
  if (participant.is_killed || !participant.next.waits) return true;
  if (participant.is_refused && participant.refused_at == m_given_back) return false;
  return is_free(participant.next);
}

bool Interleaving::is_free(const SeenCall& lock) const {
  return std::none_of(m_handles.begin(), m_handles.end(), [&](const auto& each) {
    const OpenHandle& held = each.second;
    return held.is_locked && held.path == lock.path && (held.is_exclusive || lock.is_exclusive);
  });
}

// ---- ends ---------------------------------------------------------------------------------------

void Interleaving::kill(int who) {
  Event kill{who, true, {}, {}};
  for (auto it = m_handles.begin(); it != m_handles.end();) {
    if (it->first.first != who) {
      ++it;
      continue;
    }
    if (it->second.is_locked)
      kill.footprint.push_back({Aspect::kLock, AccessKind::kChanges, it->second.path});
    if (m_kind == Participants::kThreads) static_cast<void>(os::sys::close(it->first.second));
    it = m_handles.erase(it);
  }
  ++m_given_back;
  m_participants[index(who)]->is_killed = true;
  m_events.push_back(std::move(kill));
}

void Interleaving::end_deadlock() {
  m_result.deadlock = waits_told();
  m_is_over = true;
  const std::size_t made = m_events.size();
  for (std::size_t i = 0; i < m_participants.size(); ++i) {
    if (m_participants[i]->state != State::kEnded) kill(static_cast<int>(i));
  }
  // The operations did not make these calls.
  m_events.resize(made);
}

std::string Interleaving::waits_told() const {
  const auto name = [](int who) { return std::string(1, static_cast<char>('A' + who)); };
  std::string told;
  for (std::size_t i = 0; i < m_participants.size(); ++i) {
    const Participant& participant = *m_participants[i];
    if (participant.state == State::kEnded) continue;
    if (!told.empty()) told += "; ";
    told += name(static_cast<int>(i)) + " waits at: " + in_words(participant.next) + ", held by";
    for (const auto& [key, handle] : m_handles) {
      if (handle.is_locked && handle.path == participant.next.path)
        told += " " + name(key.first) + (handle.is_exclusive ? " (exclusive)" : " (shared)");
    }
  }
  return told;
}

// ---- what is known of handles and names ---------------------------------------------------------

SeenCall Interleaving::seen(int who, const Arriving& arriving) const {
  SeenCall call;
  call.function = arriving.call;
  if (arriving.path != nullptr) call.path = relative(*arriving.path);
  if (arriving.to != nullptr) call.to = relative(*arriving.to);
  call.is_making = arriving.access != os::Access::kReadExisting;
  if (arriving.handle != os::kNoHandle) {
    const auto found = m_handles.find({who, arriving.handle});
    if (found != m_handles.end()) {
      call.path = found->second.path;
      call.is_locked = found->second.is_locked;
      call.is_exclusive = found->second.is_exclusive;
    }
  }
  if (arriving.request != nullptr)
    call.is_exclusive = (arriving.request->flags & os::kLockExclusive) != 0;
  return call;
}

Footprint Interleaving::footprint(const SeenCall& call) const {
  return footprint_of(call, [&](const std::string& path) {
    const std::string whole = m_root + path;
    return os::sys::probe_search(whole).ok();
  });
}

void Interleaving::take_note(int who, const Arriving& arriving, const os::Status& status) {
  if (!status.ok()) return;
  const Key key{who, arriving.handle};
  switch (arriving.call) {
    case Call::open:
    case Call::open_folder: m_handles[{who, *arriving.opened}] = {relative(*arriving.path)}; break;
    case Call::lock:
      m_handles[key].is_locked = true;
      m_handles[key].is_exclusive = (arriving.request->flags & os::kLockExclusive) != 0;
      break;
    case Call::unlock:
      m_handles[key].is_locked = false;
      ++m_given_back;
      break;
    case Call::close:
      m_handles.erase(key);
      ++m_given_back;
      break;
    case Call::remove_file: forget_name(relative(*arriving.path)); break;
    case Call::rename: move_names(relative(*arriving.path), relative(*arriving.to)); break;
    case Call::list:
      // The order must be the same in each run of a schedule.
      os::faults::sort_by_name(*arriving.entries);
      break;
    default: break;
  }
}

/// An open handle stays on the removed file, not on a new one with its name.
void Interleaving::forget_name(const std::string& path) {
  ++m_removed;
  for (auto& [key, handle] : m_handles) {
    if (handle.path == path) handle.path += " (removed, " + std::to_string(m_removed) + ")";
  }
}

void Interleaving::move_names(const std::string& from, const std::string& to) {
  for (auto& [key, handle] : m_handles) {
    if (handle.path == from || handle.path.starts_with(from + "/"))
      handle.path.replace(0, from.size(), to);
  }
}

std::string Interleaving::relative(const os::Path& path) const {
  std::string text;
  if (path.is_wide()) {
    text = vu_utf8string(ucs2string(path.wide())).c_str();
  } else {
    text = path.narrow();
  }
  std::replace(text.begin(), text.end(), '\\', '/');
  if (text.starts_with("//?/")) text.erase(0, 4);
  text.erase(
      std::unique(text.begin(), text.end(), [](char a, char b) { return a == '/' && b == '/'; }),
      text.end());
  if (!m_root.empty() && text.starts_with(m_root)) text.erase(0, m_root.size());
  while (text.ends_with('/')) text.pop_back();
  return text;
}

}  // namespace interleavings
