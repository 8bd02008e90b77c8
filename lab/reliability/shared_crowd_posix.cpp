// Many processes on two mounts of one file system, and a writer that is killed while it holds a
// lock.

#include <algorithm>
#include <chrono>
#include <future>
#include <memory>
#include <string>

#include "lab/reliability/shared_posix.h"
#include "vu_file.h"

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

}  // namespace
}  // namespace reliability
