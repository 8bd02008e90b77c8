// Many processes on two mounts of one file system, and a writer that is killed while it holds a
// lock.

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
  run.figure(what + ", creates a second",
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

/// The same without locks. Passes when damage is noticed, at the latest after the count.
void shared_crowd_noticed(Run& run) {
  if (!two_hosts(run)) return;
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  while (inner.failures() == 0 && run.goes_on()) {
    run_crowd(inner, {2, 12, 1, Locks::kTakenOut, Look::kFromTheOther});
    run.counted(1);
  }
  if (inner.failures() == 0) {
    run.fail("a crowd without locks was never found to do damage");
  } else {
    run.figure("found after the last crowd", inner.first_failures().front());
  }
}
REGISTER_SUITE(shared_crowd_noticed, "shared-crowd-noticed",
               "a crowd on two mounts whose locks are taken out does damage", "crowds at most", 50,
               Scratch::kMemory)

// ---- a killed writer ----------------------------------------------------------------------------

/// args: a folder; the name of a file in it; "locked" or "unlocked". Holds the file for writing
/// until it is killed.
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

/// A holder on one mount is killed while somebody on the other one waits for its lock.
/// @return how long the waiting went on after the kill.
Clock::duration kill_a_holder(Run& run, Host holder_on, const std::string& name, Locks locks) {
  const SharedFolder shared;
  const Host other = holder_on == Host::kA ? Host::kB : Host::kA;
  const auto before = Clock::now();
  create_document(shared.seen_by(other), "before.kdb");
  // So much longer than it takes with nobody in the way has to be waiting.
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
    run.fail("the other mount went on while " + name + " was held");
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
    // The index and the counter are locked exclusively by every create.
    const char* const name = run.reached() % 4 < 2 ? "index.dat" : "index";
    const Clock::duration taken = kill_a_holder(run, host, name, Locks::kTaken);
    longest = std::max(longest, taken);
    sum += taken;
    run.counted(1);
  }
  run.figure("the other mount goes on after a kill, on average",
             reliability::as_milliseconds(sum / std::max<std::uint64_t>(1, run.reached())));
  run.figure("at most", reliability::as_milliseconds(longest));
}
REGISTER_SUITE(shared_killed_writer, "shared-killed-writer",
               "a writer is killed while it holds a lock; the other mount goes on", "kills", 40,
               Scratch::kMemory)

void shared_killed_writer_noticed(Run& run) {
  if (!two_hosts(run)) return;
  Run inner(run.random()(), {0, std::chrono::seconds(0)});
  kill_a_holder(inner, Host::kA, "index.dat", Locks::kTakenOut);
  run.counted(1);
  if (inner.failures() == 0) run.fail("a holder without a lock was not noticed");
}
REGISTER_SUITE(shared_killed_writer_noticed, "shared-killed-writer-noticed",
               "a holder that has no lock is noticed", "holders", 1, Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// A part of the file system below two mounts ends while they work: one of its bricks, a mount
// itself, its network or its server.

constexpr std::size_t kProcesses = 2;  ///< of each mount

/// Lets the workers do so many more rounds.
void let_them_work(const SharedWork& work, std::size_t rounds) {
  const std::size_t goal = work.rounds_so_far() + rounds;
  const auto end = Clock::now() + std::chrono::minutes(5);
  while (work.rounds_so_far() < goal && Clock::now() < end)
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
}

// ---- a brick ------------------------------------------------------------------------------------

/// One brick ends in the middle, and is started again in the middle. @return the longest operation.
Longest lose_a_brick(Run& run, const std::string& brick, std::size_t rounds) {
  SharedWork work(run, {kProcesses, rounds, 4, Locks::kTaken, Look::kFromTheOther});
  work.start();
  const std::size_t part = rounds * kProcesses * 2 / 4;
  let_them_work(work, part);
  control("kill-brick " + brick);
  const std::size_t before = work.rounds_so_far();
  let_them_work(work, part);
  // What is compared at the end must be able to differ.
  if (control_succeeds("compare-bricks")) run.fail("a brick that missed changes was not noticed");
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
               "each brick of the volume in turn ends in the middle of the work, and comes back",
               "creates", 600, Scratch::kMemory)

// ---- a mount ------------------------------------------------------------------------------------

/// Whether these are the texts of failures that the handle states, or of an entry that is not
/// found.
bool is_stated(const std::string& text) { return text.rfind("no stated failure", 0) != 0; }

/// The mount of B ends in the middle. A goes on; B's callers fail; B is mounted again and shows
/// everything.
void lose_a_mount(Run& run, std::size_t rounds) {
  // Each looks at its own mount: what the other one answers is not to fail it.
  SharedWork work(run, {kProcesses, rounds, 1, Locks::kTaken, Look::kFromItsOwn});
  work.start();
  let_them_work(work, rounds * kProcesses * 2 / 4);
  const auto cut = Clock::now();
  control("cut-off b");
  work.wait_for_failures(Host::kB);
  run.figure("the callers of the mount that was cut off have their failure at most after",
             reliability::as_milliseconds(Clock::now() - cut));
  std::size_t failed = 0;
  for (const auto& [text, count] : work.failures()) {
    failed += count;
    run.figure("  " + text, std::uint64_t{count});
    if (!is_stated(text)) run.fail("a caller was given no stated failure: " + text);
  }
  if (failed != kProcesses) run.fail("callers of a mount that is gone were given a success");
  const std::size_t before = work.rounds_so_far();
  work.wait(Host::kA);
  if (work.rounds_so_far() == before)
    run.fail("the other mount was done before, which shows nothing");
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
               "a mount ends in the middle of the work; its callers fail, the other one goes on",
               "creates", 600, Scratch::kMemory)

// ---- a network, and a server --------------------------------------------------------------------

/// Who is allowed to be told a failure.
enum class MayFail : std::uint8_t { kNobody, kHostB };

/// Something happens in the middle of the work, and is over again. Whoever was not told a failure
/// goes on, and everything acknowledged is there.
void interrupt(Run& run, const std::string& event, MayFail who) {
  const std::size_t rounds =
      static_cast<std::size_t>(std::max<std::uint64_t>(4, run.wanted() / (2 * kProcesses)));
  SharedWork work(run, {kProcesses, rounds, 1, Locks::kTaken, Look::kFromItsOwn});
  work.start();
  let_them_work(work, rounds * kProcesses * 2 / 4);
  control(event);
  if (work.rounds_so_far() >= rounds * kProcesses * 2)
    run.fail("the work was done before, which shows nothing");
  const auto over = Clock::now();
  work.wait(Host::kA);
  if (who == MayFail::kNobody) {
    work.wait(Host::kB);
  } else {
    work.wait_for_failures(Host::kB);
  }
  for (const auto& [text, count] : work.failures()) {
    run.figure("  " + text, std::uint64_t{count});
    if (!is_stated(text)) run.fail("a caller was given no stated failure: " + text);
  }
  run.figure("all had ended afterwards in", reliability::as_milliseconds(Clock::now() - over));
  work.check();
  run.figure("longest create, read, removal", as_milliseconds(work.longest().create) + ", " +
                                                  as_milliseconds(work.longest().read) + ", " +
                                                  as_milliseconds(work.longest().remove));
  run.counted(work.creates());
}

/// "cut b 5": a share of the time for which the server keeps a client's locks.
std::string cut_for(double leases) {
  const double seconds = std::stod(control("lease")) * leases;
  return "cut b " + std::to_string(static_cast<int>(seconds));
}

void shared_cut_short(Run& run) {
  if (two_hosts_and_control(run)) interrupt(run, cut_for(0.4), MayFail::kNobody);
}
REGISTER_SUITE(shared_cut_short, "shared-cut-short",
               "a host loses its network for less than a lease; nobody fails", "creates", 120,
               Scratch::kMemory)

void shared_cut_long(Run& run) {
  if (two_hosts_and_control(run)) interrupt(run, cut_for(2.5), MayFail::kHostB);
}
REGISTER_SUITE(shared_cut_long, "shared-cut-long",
               "a host loses its network for longer than a lease; the other one goes on", "creates",
               120, Scratch::kMemory)

void shared_server_restart(Run& run) {
  if (two_hosts_and_control(run)) interrupt(run, "restart-server", MayFail::kNobody);
}
REGISTER_SUITE(shared_server_restart, "shared-server-restart",
               "the server of the share ends and starts again; nobody fails", "creates", 120,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
