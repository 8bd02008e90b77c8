// Measures how many entries several processes create in one folder, and how long its index is
// locked:
//
//   storage_crowd FOLDER [ENTRIES [PROCESSES [SECONDS]]]
//
// Creates the folder with ENTRIES entries (default 1,000) and removes it at the end. PROCESSES
// processes (8) create entries in it for SECONDS seconds (5). During that time the program probes
// the lock of "index.dat" repeatedly, without waiting. The share of probes that find it locked is
// the share of time in which it is locked.

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "lab/bench/bare.h"
#include "lab/bench/folder.h"
#include "stg_index.h"

namespace {

using Clock = std::chrono::steady_clock;

/// Creates entries until @p end, and writes their number to the pipe.
[[noreturn]] void create_until(Clock::time_point end, const std::string& folder, int number,
                               int pipe) {
  STGIndex::setSynchronizeMode(false);
  std::uint64_t created = 0;
  while (Clock::now() < end) {
    const std::string logical =
        "Crowd " + std::to_string(number) + " " + std::to_string(created) + ".kdb";
    STGIndex::create(folder, logical, 1);
    ++created;
  }
  if (::write(pipe, &created, sizeof created) != sizeof created) std::_Exit(1);
  std::_Exit(0);
}

struct Shares {
  std::size_t looks = 0;
  std::size_t exclusive = 0;
  std::size_t shared = 0;
};

Shares look_until(Clock::time_point end, const std::string& index) {
  Shares shares;
  const int descriptor = ::open(index.c_str(), O_RDWR | O_CLOEXEC);
  if (descriptor < 0) bare::broken("cannot open", index);
  for (; Clock::now() < end; ++shares.looks) {
    struct ::flock request {};
    request.l_type = F_WRLCK;
    request.l_whence = SEEK_SET;
    if (::fcntl(descriptor, F_OFD_GETLK, &request) != 0) bare::broken("cannot ask for", index);
    shares.exclusive += request.l_type == F_WRLCK ? 1U : 0U;
    shares.shared += request.l_type == F_RDLCK ? 1U : 0U;
    ::usleep(100);
  }
  ::close(descriptor);
  return shares;
}

std::size_t number_of(int argc, char** argv, int which, std::size_t otherwise) {
  return argc > which ? std::strtoul(argv[which], nullptr, 10) : otherwise;
}

}  // namespace

int main(int argc, char** argv) {
  const std::size_t entries = number_of(argc, argv, 2, 1000);
  const std::size_t processes = number_of(argc, argv, 3, 8);
  const std::size_t seconds = number_of(argc, argv, 4, 5);
  if (argc < 2 || argc > 5 || entries == 0 || processes == 0 || seconds == 0) {
    std::fputs("usage: storage_crowd FOLDER [ENTRIES [PROCESSES [SECONDS]]]\n", stderr);
    return 2;
  }
  const bench::Folder folder(argv[1], entries);
  std::array<int, 2> pipe{};
  if (::pipe2(pipe.data(), O_CLOEXEC) != 0) bare::broken("no pipe for", folder.path());
  const auto end = Clock::now() + std::chrono::seconds(seconds);
  for (std::size_t i = 0; i < processes; ++i) {
    const ::pid_t child = ::fork();
    if (child < 0) bare::broken("no process for", folder.path());
    if (child == 0) create_until(end, folder.path(), static_cast<int>(i), pipe[1]);
  }
  const Shares shares = look_until(end, folder.path("index.dat"));
  std::uint64_t sum = 0;
  for (std::size_t i = 0; i < processes; ++i) {
    std::uint64_t created = 0;
    int status = 0;
    if (::read(pipe[0], &created, sizeof created) != sizeof created || ::wait(&status) < 0 ||
        status != 0)
      bare::broken("a process failed in", folder.path());
    sum += created;
  }
  const auto percent = [&](std::size_t found) {
    return 100.0 * static_cast<double>(found) / static_cast<double>(shares.looks);
  };
  std::printf(
      "%zu processes, %zu entries: %.0f created a second; index held exclusively %.0f %%, "
      "shared %.0f %% of the time\n",
      processes, entries, static_cast<double>(sum) / static_cast<double>(seconds),
      percent(shares.exclusive), percent(shares.shared));
  return 0;
}
