#include "client/stgctl/lock_wait.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <system_error>
#include <thread>
#include <vector>

#include "client/admin/system.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/text.h"
#include "vu_file.h"

namespace stgctl {

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 2s;
constexpr std::chrono::milliseconds kShortest = 5ms;
constexpr std::chrono::milliseconds kLongest = 100ms;

/// Whether an exclusive lock on the file could be had right now. What cannot be opened, or is not
/// there, is held by nobody: the operation itself will find out what is wrong.
bool is_free(const std::string& folder, const std::string& name) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(to_path(joined(folder, name)), error)) return true;
  for (const vu_file::type_access mode : {vu_file::o_write, vu_file::o_read}) {
    vu_file file(folder, name);
    bool refused = false;
    // A read-only file opens for reading only; a shared lock tells of writers at least.
    if (file.try_open(mode, refused, true)) return !refused;
  }
  return true;
}

void wait_for_one(Context& context, const std::string& folder, const std::string& name) {
  if (is_free(folder, name)) return;
  const Clock::time_point begin = Clock::now();
  const auto limit = context.options().lock_timeout;
  bool told = false;
  for (std::chrono::milliseconds pause = kShortest;; pause = std::min(2 * pause, kLongest)) {
    Context::stop_if_interrupted();
    const auto waited = Clock::now() - begin;
    if (limit && waited >= *limit) {
      throw lock_missed(context, joined(folder, name));
    }
    if (!told && waited >= kPatience) {
      told = true;
      tell_waiting(context, joined(folder, name));
    }
    std::this_thread::sleep_for(pause);
    if (is_free(folder, name)) return;
  }
}

}  // namespace

Failure lock_missed(Context& context, const std::string& path) {
  const std::chrono::duration<double> limit = context.options().lock_timeout.value_or(0ms);
  return {Exit::kLockTimeout,
          formatted("{} is locked by {}; not obtained within {:.1f} s (--lock-timeout)",
                    shown(path), holder_of(context, path), limit.count())};
}

std::string holder_of(Context& context, const std::string& path) {
  const std::string& storage = context.storage();
  std::vector<admin::sys::HeldLock> locks;
  admin::sys::find_locks(storage, locks);
  std::string holders;
  for (const admin::sys::HeldLock& lock : locks) {
    if (lock.path != path) continue;
    if (!holders.empty()) holders += ", ";
    holders += formatted("process {}", lock.process);
    if (!lock.command.empty()) holders += formatted(" ({})", shown(lock.command));
  }
  return holders.empty() ? "another process" : holders;
}

void tell_waiting(Context& context, const std::string& path) {
  context.out().note(
      formatted("stgctl: waiting for {}, locked by {}", shown(path), holder_of(context, path)));
}

void wait_until_free(Context& context, const std::string& folder, const std::string& file) {
  wait_for_one(context, folder, "index.dat");
  wait_for_one(context, folder, "index");
  if (!file.empty()) wait_for_one(context, folder, file);
}

}  // namespace stgctl
