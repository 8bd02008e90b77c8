#include "lab/interleavings/meeting.h"

#include <algorithm>
#include <exception>
#include <thread>

#include "platform/os/os.h"
#include "vu_i18n.h"

namespace interleavings {
namespace {

using os::faults::Arriving;
using os::faults::Call;

/// Who runs on this thread; -1 on all others.
thread_local int t_who = -1;

thread_local bool t_asks_again = false;

/// What a process finds that has ended: nothing.
const os::Status kGone{5, os::Failure::kOther};

/// The others move within a handle, or make sure of what is there already: nobody else sees that.
bool is_point(Call call) {
  switch (call) {
    case Call::seek:
    case Call::reserve:
    case Call::flush:
    case Call::flush_file:
      return false;
    default:
      return true;
  }
}

}  // namespace

AsksAgain::AsksAgain() { t_asks_again = true; }
AsksAgain::~AsksAgain() { t_asks_again = false; }

std::string answer_of(const Operation& operation) {
  try {
    return operation();
  } catch (const std::exception& e) {
    return std::string("exception: ") + e.what();
  } catch (...) {
    return "another exception";
  }
}

Meeting::Meeting(const std::string& root, Guide& guide, Played played)
    : m_guide(guide), m_played(played) {
  m_root = relative(root) + "/";
}
Meeting::~Meeting() = default;

void Meeting::Turn::give() {
  const std::scoped_lock guard(m_mutex);
  m_is_given = true;
  m_given.notify_one();
}

void Meeting::Turn::take() {
  std::unique_lock guard(m_mutex);
  m_given.wait(guard, [this] { return m_is_given; });
  m_is_given = false;
}

Ending Meeting::run(const std::vector<Operation>& operations) {
  const os::faults::Conducted conducted(*this);
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < operations.size(); ++i) {
    m_parties.push_back(std::make_unique<Party>());
    threads.emplace_back([this, i, &operations] { play(static_cast<int>(i), operations[i]); });
    m_main.take();
  }
  m_is_overture = false;
  const int first = choose_next(-1);
  if (first >= 0) {
    m_parties[index(first)]->turn.give();
    m_main.take();
  }
  for (std::thread& each : threads) each.join();
  for (const auto& party : m_parties) {
    m_ending.answers.push_back(party->answer);
    m_ending.died.push_back(party->is_dead);
  }
  return std::move(m_ending);
}

void Meeting::play(int who, const Operation& operation) {
  t_who = who;
  Party& me = *m_parties[index(who)];
  me.answer = answer_of(operation);
  me.state = State::kEnded;
  hand_on(who);
}

// ---- points -------------------------------------------------------------------------------------

os::Status Meeting::conduct(const Arriving& arriving, const std::function<os::Status()>& make) {
  if (t_who < 0) return make();
  const int who = t_who;
  Party& me = *m_parties[index(who)];
  if (me.is_dead) return kGone;
  if (!is_point(arriving.call)) return make();
  const bool waits = arriving.call == Call::lock &&
                     (t_asks_again || (arriving.request->flags & os::kLockFailAtOnce) == 0);
  for (;;) {
    me.next = seen(who, arriving);
    me.next.waits = waits;
    me.footprint = footprint(me.next);
    stand_at_point(me, who);
    if (me.is_dead) return kGone;
    if (waits) arriving.request->flags |= os::kLockFailAtOnce;
    const os::Status status = make_call(who, arriving, make);
    if (!me.is_refused) return status;
    me.refused_at = m_given_back;
  }
}

os::Status Meeting::make_call(int who, const Arriving& arriving,
                              const std::function<os::Status()>& make) {
  // Others may have been here since the footprint was looked up.
  Made made{who, false, seen(who, arriving), {}};
  made.footprint = footprint(made.call);
  const os::Status status = make();
  Party& me = *m_parties[index(who)];
  me.is_refused = me.next.waits && status.failure() == os::Failure::kLocked;
  if (!me.is_refused) {
    me.has_begun = true;
    m_made.push_back(std::move(made));
  }
  take_note(who, arriving, status);
  return status;
}

void Meeting::stand_at_point(Party& me, int who) {
  if (m_is_overture) {
    m_main.give();
    me.turn.take();
  } else {
    hand_on(who);
  }
}

/// Returns when @p from is to go on, or has ended.
void Meeting::hand_on(int from) {
  Party& me = *m_parties[index(from)];
  const int next = m_is_overture ? -1 : choose_next(from);
  if (next == from) return;
  (next < 0 ? m_main : m_parties[index(next)]->turn).give();
  if (me.state != State::kEnded) me.turn.take();
}

/// @return -1 when all have ended.
int Meeting::choose_next(int from) {
  std::vector<int> able;
  bool is_anybody_left = false;
  for (std::size_t i = 0; i < m_parties.size(); ++i) {
    if (m_parties[i]->state == State::kEnded) continue;
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
  const Step step = m_guide.choose(*this, goes_on ? from : -1, able);
  // What it does from here on reaches nobody; it comes to its end at once.
  if (step.dies) die(step.who);
  return step.who;
}

bool Meeting::can_go_on(int who) const {
  const Party& party = *m_parties[index(who)];
  if (party.is_dead || !party.next.waits) return true;
  if (party.is_refused && party.refused_at == m_given_back) return false;
  return is_free(party.next);
}

bool Meeting::is_free(const SeenCall& lock) const {
  return std::none_of(m_handles.begin(), m_handles.end(), [&](const auto& each) {
    const OpenHandle& held = each.second;
    return held.is_locked && held.path == lock.path && (held.is_exclusive || lock.is_exclusive);
  });
}

// ---- ends ---------------------------------------------------------------------------------------

void Meeting::die(int who) {
  Made death{who, true, {}, {}};
  for (auto it = m_handles.begin(); it != m_handles.end();) {
    if (it->first.first != who) {
      ++it;
      continue;
    }
    if (it->second.is_locked)
      death.footprint.push_back({Aspect::kLock, Touch::kChanges, it->second.path});
    if (m_played == Played::kByThreads) static_cast<void>(os::sys::close(it->first.second));
    it = m_handles.erase(it);
  }
  ++m_given_back;
  m_parties[index(who)]->is_dead = true;
  m_made.push_back(std::move(death));
}

void Meeting::end_deadlock() {
  m_ending.deadlock = waits_told();
  m_is_over = true;
  const std::size_t made = m_made.size();
  for (std::size_t i = 0; i < m_parties.size(); ++i) {
    if (m_parties[i]->state != State::kEnded) die(static_cast<int>(i));
  }
  // That was not theirs.
  m_made.resize(made);
}

std::string Meeting::waits_told() const {
  const auto name = [](int who) { return std::string(1, static_cast<char>('A' + who)); };
  std::string told;
  for (std::size_t i = 0; i < m_parties.size(); ++i) {
    const Party& party = *m_parties[i];
    if (party.state == State::kEnded) continue;
    if (!told.empty()) told += "; ";
    told += name(static_cast<int>(i)) + " waits at: " + in_words(party.next) + ", held by";
    for (const auto& [key, handle] : m_handles) {
      if (handle.is_locked && handle.path == party.next.path)
        told += " " + name(key.first) + (handle.is_exclusive ? " (exclusive)" : " (shared)");
    }
  }
  return told;
}

// ---- what is known of handles and names ---------------------------------------------------------

SeenCall Meeting::seen(int who, const Arriving& arriving) const {
  SeenCall call;
  call.function = arriving.call;
  if (arriving.path != nullptr) call.path = relative(*arriving.path);
  if (arriving.to != nullptr) call.to = relative(*arriving.to);
  call.is_making = arriving.access == os::Access::kReadWriteCreate;
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

Footprint Meeting::footprint(const SeenCall& call) const {
  return footprint_of(call, [&](const std::string& path) {
    const std::string whole = m_root + path;
    return os::sys::probe_search(whole).ok();
  });
}

void Meeting::take_note(int who, const Arriving& arriving, const os::Status& status) {
  if (!status.ok()) return;
  const Key key{who, arriving.handle};
  switch (arriving.call) {
    case Call::open:
    case Call::open_folder:
      m_handles[{who, *arriving.opened}] = {relative(*arriving.path)};
      break;
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
    case Call::remove_file:
      forget_name(relative(*arriving.path));
      break;
    case Call::rename:
      move_names(relative(*arriving.path), relative(*arriving.to));
      break;
    case Call::list:
      // The same schedule is to meet the same order.
      os::faults::sort_by_name(*arriving.entries);
      break;
    default:
      break;
  }
}

/// Handles that are open on the file are open on it still, and on none that gets its name.
void Meeting::forget_name(const std::string& path) {
  ++m_removed;
  for (auto& [key, handle] : m_handles) {
    if (handle.path == path) handle.path += " (removed, " + std::to_string(m_removed) + ")";
  }
}

void Meeting::move_names(const std::string& from, const std::string& to) {
  for (auto& [key, handle] : m_handles) {
    if (handle.path == from || handle.path.starts_with(from + "/"))
      handle.path.replace(0, from.size(), to);
  }
}

std::string Meeting::relative(const os::Path& path) const {
  std::string text;
  if (path.is_wide()) {
    text = vu_utf8string(ucs2string(path.wide())).c_str();
  } else {
    text = path.narrow();
  }
  std::replace(text.begin(), text.end(), '\\', '/');
  if (text.starts_with("//?/")) text.erase(0, 4);
  // Two separators in a row are one.
  text.erase(
      std::unique(text.begin(), text.end(), [](char a, char b) { return a == '/' && b == '/'; }),
      text.end());
  if (!m_root.empty() && text.starts_with(m_root)) text.erase(0, m_root.size());
  while (text.ends_with('/')) text.pop_back();
  return text;
}

}  // namespace interleavings
