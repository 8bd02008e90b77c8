// How many entries several processes create in one folder, and who holds its index meanwhile:
//
//   storage_crowd FOLDER [ENTRIES [PROCESSES [SECONDS]]]
//
// The folder is made with so many entries (1,000) and removed at the end. So many processes (8)
// create entries of their own in it for so many seconds (5). Meanwhile the lock of "index.dat" is
// looked at again and again, without waiting for it: the share of the looks that found it held is
// the share of the time.

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

/// Creates entries until the end, and writes their number into the pipe.
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
