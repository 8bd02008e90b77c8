// Many processes on two mounts of one file system, and a writer that is killed while it has a lock.

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <thread>

#include "lab/reliability/shared_posix.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace reliability {
namespace {

std::string as_milliseconds(std::int64_t microseconds) {
  return reliability::as_milliseconds(std::chrono::microseconds(microseconds));
}

// ---- the crowd ----------------------------------------------------------------------------------

void run_crowd(Run& run, const Shape& shape) {
  const auto begin = Clock::now();
  SharedWork work(run, shape);
  work.start();
  work.wait(Host::kA);
  work.wait(Host::kB);
  const auto end = Clock::now();
  work.check();
  run.counted(work.creates());
  const std::string what = "2 x " + std::to_string(shape.processes) + " processes, folders " +
                           std::to_string(shape.folders);
  run.figure(what + ", creates", work.creates());
  run.figure(what + ", removals", work.removals());
  run.figure(what + ", longest create", as_milliseconds(work.longest().create));
  run.figure(what + ", longest read", as_milliseconds(work.longest().read));
  run.figure(what + ", longest removal", as_milliseconds(work.longest().remove));
  const double seconds = std::chrono::duration<double>(end - begin).count();
  run.figure(what + ", took", reliability::as_milliseconds(end - begin));
  run.figure(what + ", creates per second",
             std::to_string(static_cast<double>(work.creates()) / seconds));
}

void crowd_in(std::size_t folders, Run& run) {
  if (!two_hosts(run)) return;
  constexpr std::size_t kProcesses = 4;
  const std::size_t rounds =
      static_cast<std::size_t>(std::max<std::uint64_t>(1, run.wanted() / (2 * kProcesses)));
  run_crowd(run, {kProcesses, rounds, folders, Locks::kTaken, Look::kFromTheOther});
}

void shared_crowd(Run& run) { crowd_in(1, run); }
REGISTER_SUITE(shared_crowd, "shared-crowd",
               "2 mounts x 4 processes create, read from the other mount and remove; 1 folder",
               "creates", 4'000, Scratch::kMemory)

void shared_crowd_spread(Run& run) { crowd_in(4, run); }
REGISTER_SUITE(shared_crowd_spread, "shared-crowd-spread", "the same in 4 folders", "creates",
               4'000, Scratch::kMemory)

/// The same without locks. Passes if a corruption is found before the count is reached.
void shared_crowd_noticed(Run& run) {
  if (!two_hosts(run)) return;
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  while (inner.failures() == 0 && run.goes_on()) {
    run_crowd(inner, {2, 12, 1, Locks::kTakenOut, Look::kFromTheOther});
    run.counted(1);
  }
  if (inner.failures() == 0) {
    run.fail("the corruption by a crowd without locks was not detected");
  } else {
    run.figure("found after the last crowd", inner.first_failures().front());
  }
}
REGISTER_SUITE(shared_crowd_noticed, "shared-crowd-noticed",
               "the corruption by a crowd on two mounts without locks is detected",
               "crowds at most", 50, Scratch::kMemory)

// ---- a killed writer ----------------------------------------------------------------------------

/// args: a folder; a file in it; "locked" or "unlocked". Keeps the file open until it is killed.
int shared_holder(const std::vector<std::string>& args) {
  std::unique_ptr<LocksTakenOut> unlocked;
  if (args.at(2) == "unlocked") unlocked = std::make_unique<LocksTakenOut>();
  vu_file file(args.at(0), args.at(1));
  file.open(vu_file::o_append);
  say("holding");
  hear();
  return 0;
}
REGISTER_ROLE(shared_holder, shared_holder)

/// Kills a lock holder on one mount while a process on the other mount waits for its lock. @return
/// how long the wait continued after the kill.
Clock::duration kill_a_holder(Run& run, Host holder_on, const std::string& name, Locks locks) {
  const SharedFolder shared;
  const Host other = holder_on == Host::kA ? Host::kB : Host::kA;
  const auto before = Clock::now();
  create_document(shared.seen_by(other), "before.kdb");
  // An operation that need not wait for a lock takes far less time.
  const Clock::duration patience =
      std::max<Clock::duration>(std::chrono::milliseconds(400), (Clock::now() - before) * 6);
  child_process holder("shared_holder", {shared.seen_by(holder_on), name,
                                         locks == Locks::kTaken ? "locked" : "unlocked"});
  if (holder.next_line() != "holding") {
    run.fail("the holder does not start");
    return {};
  }
  auto waiting = std::async(std::launch::async, [&] {
    create_document(shared.seen_by(other), "while held.kdb");
    return Clock::now();
  });
  if (waiting.wait_for(patience) == std::future_status::ready) {
    run.fail("the other mount did not wait while " + name + " was held");
    holder.kill();
    waiting.get();
    return {};
  }
  const auto killed = Clock::now();
  holder.kill();
  const Clock::duration taken = waiting.get() - killed;
  for (const Host host : {Host::kA, Host::kB}) {
    for (const char* const logical : {"before.kdb", "while held.kdb"}) {
      const std::string wrong = read_document(shared.seen_by(host), logical);
      if (!wrong.empty()) run.fail(std::string(logical) + ": " + wrong);
    }
  }
  return taken;
}

void shared_killed_writer(Run& run) {
  if (!two_hosts(run)) return;
  Clock::duration longest{};
  Clock::duration sum{};
  while (run.goes_on()) {
    const Host host = run.reached() % 2 == 0 ? Host::kA : Host::kB;
    // Every create locks the index and the counter exclusively.
    const char* const name = run.reached() % 4 < 2 ? "index.dat" : "index";
    const Clock::duration taken = kill_a_holder(run, host, name, Locks::kTaken);
    longest = std::max(longest, taken);
    sum += taken;
    run.counted(1);
  }
  run.figure("the other mount continues after a kill, on average",
             reliability::as_milliseconds(sum / std::max<std::uint64_t>(1, run.reached())));
  run.figure("at most", reliability::as_milliseconds(longest));
}
REGISTER_SUITE(shared_killed_writer, "shared-killed-writer",
               "a writer is killed while it holds a lock; the other mount continues", "kills", 40,
               Scratch::kMemory)

void shared_killed_writer_noticed(Run& run) {
  if (!two_hosts(run)) return;
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  kill_a_holder(inner, Host::kA, "index.dat", Locks::kTakenOut);
  run.counted(1);
  if (inner.failures() == 0) run.fail("a holder without a lock was not detected");
}
REGISTER_SUITE(shared_killed_writer_noticed, "shared-killed-writer-noticed",
               "a holder without a lock is detected", "holders", 1, Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// A part of the file system stops during the work: a brick, a mount, the network or the server.

constexpr std::size_t kProcesses = 2;  ///< of each mount

/// Waits until the workers have done this number of further rounds.
void let_them_work(const SharedWork& work, std::size_t rounds) {
  const std::size_t goal = work.rounds_so_far() + rounds;
  const auto end = Clock::now() + std::chrono::minutes(5);
  while (work.rounds_so_far() < goal && Clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

// ---- a brick ------------------------------------------------------------------------------------

/// Stops one brick during the work, and starts it again. @return the longest operations.
Longest lose_a_brick(Run& run, const std::string& brick, std::size_t rounds) {
  SharedWork work(run, {kProcesses, rounds, 4, Locks::kTaken, Look::kFromTheOther});
  work.start();
  const std::size_t part = rounds * kProcesses * 2 / 4;
  let_them_work(work, part);
  control("kill-brick " + brick);
  const std::size_t before = work.rounds_so_far();
  let_them_work(work, part);
  // Without this the comparison at the end would prove nothing.
  if (control_succeeds("compare-bricks")) run.fail("a brick with missing changes was not detected");
  const std::size_t without = work.rounds_so_far() - before;
  if (without == 0) run.fail("nothing was done while a brick was missing");
  control("start-bricks");
  work.wait(Host::kA);
  work.wait(Host::kB);
  const auto begin = Clock::now();
  control("wait-healed");
  run.figure("brick " + brick + ", rounds without it", std::uint64_t{without});
  run.figure("brick " + brick + ", healed after the end of the work",
             reliability::as_milliseconds(Clock::now() - begin));
  work.check();
  run.figure("brick " + brick + ", compared", control("compare-bricks"));
  run.counted(work.creates());
  return work.longest();
}

void shared_brick(Run& run) {
  if (!two_hosts_and_control(run)) return;
  const std::size_t rounds =
      static_cast<std::size_t>(std::max<std::uint64_t>(4, run.wanted() / 3 / (2 * kProcesses)));
  for (const char* const brick : {"1", "2", "3"}) {
    if (run.failures() != 0 || run.time_is_over()) return;
    const Longest longest = lose_a_brick(run, brick, rounds);
    run.figure(std::string("brick ") + brick + ", longest create, read, removal",
               as_milliseconds(longest.create) + ", " + as_milliseconds(longest.read) + ", " +
                   as_milliseconds(longest.remove));
  }
}
REGISTER_SUITE(shared_brick, "shared-brick",
               "each brick of the volume in turn stops during the work and starts again", "creates",
               600, Scratch::kMemory)

// ---- a mount ------------------------------------------------------------------------------------

/// Whether the text reports a failure that the handle's header names, or an entry not found.
bool is_stated(const std::string& text) { return text.rfind("unexpected exception", 0) != 0; }

/// Cuts off the mount of B. A continues; the callers on B fail. A new mount of B shows everything.
void lose_a_mount(Run& run, std::size_t rounds) {
  // Each worker checks through its own mount, so that the other mount cannot fail it.
  SharedWork work(run, {kProcesses, rounds, 1, Locks::kTaken, Look::kFromItsOwn});
  work.start();
  let_them_work(work, rounds * kProcesses * 2 / 4);
  const auto cut = Clock::now();
  control("cut-off b");
  work.wait_for_failures(Host::kB);
  run.figure("longest time until the callers of the cut-off mount failed",
             reliability::as_milliseconds(Clock::now() - cut));
  std::size_t failed = 0;
  for (const auto& [text, count] : work.failures()) {
    failed += count;
    run.figure("  " + text, std::uint64_t{count});
    if (!is_stated(text)) run.fail("a caller got an unknown failure: " + text);
  }
  if (failed != kProcesses) run.fail("callers on a lost mount succeeded");
  const std::size_t before = work.rounds_so_far();
  work.wait(Host::kA);
  if (work.rounds_so_far() == before)
    run.fail("the other mount had finished before: nothing was tested");
  work.check_from(Host::kA);
  control("unmount b");
  control("mount b");
  work.check_from(Host::kB);
  run.figure("the other mount's longest create, read, removal",
             as_milliseconds(work.longest().create) + ", " + as_milliseconds(work.longest().read) +
                 ", " + as_milliseconds(work.longest().remove));
  run.counted(work.creates());
}

void shared_cut_off(Run& run) {
  if (!two_hosts_and_control(run)) return;
  constexpr std::uint64_t kTimes = 3;
  const std::size_t rounds = static_cast<std::size_t>(
      std::max<std::uint64_t>(8, run.wanted() / kTimes / (2 * kProcesses)));
  for (std::uint64_t i = 0; i < kTimes; ++i) {
    if (run.failures() != 0 || run.time_is_over()) return;
    lose_a_mount(run, rounds);
  }
}
REGISTER_SUITE(shared_cut_off, "shared-cut-off",
               "a mount is lost during the work; its callers fail, the other mount continues",
               "creates", 600, Scratch::kMemory)

// ---- a network, and a server --------------------------------------------------------------------

/// The callers that may fail.
enum class MayFail : std::uint8_t { kNobody, kHostB };

/// Causes a disturbance during the work. Workers without a failure continue and lose nothing.
void interrupt(Run& run, const std::string& event, MayFail who) {
  const std::size_t rounds =
      static_cast<std::size_t>(std::max<std::uint64_t>(4, run.wanted() / (2 * kProcesses)));
  SharedWork work(run, {kProcesses, rounds, 1, Locks::kTaken, Look::kFromItsOwn});
  work.start();
  let_them_work(work, rounds * kProcesses * 2 / 4);
  control(event);
  if (work.rounds_so_far() >= rounds * kProcesses * 2)
    run.fail("the work had finished before: nothing was tested");
  const auto over = Clock::now();
  work.wait(Host::kA);
  if (who == MayFail::kNobody) {
    work.wait(Host::kB);
  } else {
    work.wait_for_failures(Host::kB);
  }
  for (const auto& [text, count] : work.failures()) {
    run.figure("  " + text, std::uint64_t{count});
    if (!is_stated(text)) run.fail("a caller got an unknown failure: " + text);
  }
  run.figure("all workers finished after", reliability::as_milliseconds(Clock::now() - over));
  work.check();
  run.figure("longest create, read, removal", as_milliseconds(work.longest().create) + ", " +
                                                  as_milliseconds(work.longest().read) + ", " +
                                                  as_milliseconds(work.longest().remove));
  run.counted(work.creates());
}

/// Example: "cut b 5". @param leases the time as a multiple of the server's lease for locks.
std::string cut_for(double leases) {
  const double seconds = std::stod(control("lease")) * leases;
  return "cut b " + std::to_string(static_cast<int>(seconds));
}

void shared_cut_short(Run& run) {
  if (two_hosts_and_control(run)) interrupt(run, cut_for(0.4), MayFail::kNobody);
}
REGISTER_SUITE(shared_cut_short, "shared-cut-short",
               "a host loses its network for less than a lease; no caller fails", "creates", 120,
               Scratch::kMemory)

void shared_cut_long(Run& run) {
  if (two_hosts_and_control(run)) interrupt(run, cut_for(2.5), MayFail::kHostB);
}
REGISTER_SUITE(shared_cut_long, "shared-cut-long",
               "a host loses its network for longer than a lease; the other one continues",
               "creates", 120, Scratch::kMemory)

void shared_server_restart(Run& run) {
  if (two_hosts_and_control(run)) interrupt(run, "restart-server", MayFail::kNobody);
}
REGISTER_SUITE(shared_server_restart, "shared-server-restart",
               "the server of the share restarts; no caller fails", "creates", 120,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
