#include <malloc.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <iterator>

#include "lab/reliability/machine.h"
#include "tests/support/process.h"

namespace reliability::machine {

os::Status status_of(Trouble trouble) {
  switch (trouble) {
    case Trouble::kNotFound:
      return {ENOENT, os::Failure::kNotFound};
    case Trouble::kDenied:
      return {EACCES, os::Failure::kOther};
    case Trouble::kDiskFull:
      return {ENOSPC, os::Failure::kOther};
    case Trouble::kLocked:
      return {EAGAIN, os::Failure::kLocked};
    case Trouble::kNoName:
      return {ENAMETOOLONG, os::Failure::kNoName};
    case Trouble::kBroken:
      return {EIO, os::Failure::kOther};
  }
  return {};
}

void prepare_process() {
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  std::signal(SIGPIPE, SIG_IGN);
}

void set_variable(const std::string& name, const std::string& value) {
  ::setenv(name.c_str(), value.c_str(), 1);
}

std::string memory_folder() {
  const std::string folder = "/dev/shm";
  return ::access(folder.c_str(), W_OK) == 0 ? folder : std::string();
}

std::uint64_t open_handles() {
  const std::filesystem::directory_iterator all("/proc/self/fd");
  // The listing's own is among them.
  return static_cast<std::uint64_t>(std::distance(begin(all), end(all))) - 1;
}

std::uint64_t memory_in_use() {
  const struct ::mallinfo2 info = ::mallinfo2();
  return info.uordblks + info.hblkhd;
}

std::uint64_t memory_slack() { return 4096; }

bool large_folders_are_slow() { return false; }

bool stale_copies_are_harmless() { return true; }

void stop(child_process& helper) { helper.stop(); }

void resume(child_process& helper) { helper.resume(); }

int run_apart(const std::string& role, const std::vector<std::string>& args) {
  std::fflush(nullptr);
  const ::pid_t child = ::fork();
  if (child == 0) {
    std::vector<std::string> words = {"reliability", "--role=" + role};
    words.insert(words.end(), args.begin(), args.end());
    std::vector<char*> pointers;
    for (std::string& each : words) pointers.push_back(each.data());
    std::_Exit(run_role(static_cast<int>(pointers.size()), pointers.data()).value_or(2));
  }
  int status = 0;
  while (::waitpid(child, &status, 0) < 0 && errno == EINTR) {
  }
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

bool handles_and_allocations_are_exact() { return true; }

bool sees_the_sources() { return true; }

bool is_superuser() { return ::geteuid() == 0; }

}  // namespace reliability::machine
