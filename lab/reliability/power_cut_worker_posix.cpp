#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>

#include "lab/reliability/loop_disk_posix.h"
#include "lab/reliability/power_cut_posix.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

namespace reliability {
namespace {

using os::faults::Call;

constexpr std::size_t kPage = 4096;

/// A part of what the system has not written yet gets written.
void write_back(const std::string& disk, const std::string& index, std::uint32_t what,
                std::mt19937_64& random) {
  const auto pages = [&] {
    const int file = ::open(index.c_str(), O_RDWR | O_CLOEXEC);
    if (file < 0) return;
    const auto count = static_cast<std::uint64_t>(::lseek(file, 0, SEEK_END)) / kPage + 1;
    for (std::uint64_t i = 0; i < count; ++i) {
      if (count < 40 ? random() % 2 == 0 : random() % 20 != 0) continue;
      const auto at = static_cast<::off_t>(random() % count * kPage);
      ::sync_file_range(
          file, at, kPage,
          SYNC_FILE_RANGE_WAIT_BEFORE | SYNC_FILE_RANGE_WRITE | SYNC_FILE_RANGE_WAIT_AFTER);
    }
    ::close(file);
  };
  const auto journal = [&] {
    // Flushing one file takes what the journal holds of the others with it.
    const int file = ::open((disk + "/journal").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0) return;
    static_cast<void>(::ftruncate(file, static_cast<::off_t>(random() % 1000)));
    ::fsync(file);
    ::close(file);
  };
  if ((what & 1U) != 0 && (what & 4U) == 0) pages();
  if ((what & 2U) != 0) journal();
  if ((what & 1U) != 0 && (what & 4U) != 0) pages();
}

/// The memory that both processes see.
class Shared {
 public:
  Shared()
      : m_memory(::mmap(nullptr, sizeof(Progress), PROT_READ | PROT_WRITE,
                        MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {
    if (m_memory == MAP_FAILED) throw std::runtime_error("no memory for two processes");
    m_progress = new (m_memory) Progress;
  }
  ~Shared() { ::munmap(m_memory, sizeof(Progress)); }
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  Progress& operator*() const { return *m_progress; }

 private:
  void* m_memory;
  Progress* m_progress;
};

/// Cuts the power from within the process that works.
class Cutter {
 public:
  Cutter(const std::string& disk, const std::string& index, const CutPlan& plan, Progress& progress)
      : m_disk(disk), m_index(index), m_plan(plan), m_progress(progress), m_random(plan.seed) {
    for (const Call call : {Call::write, Call::set_end, Call::flush, Call::close, Call::reserve,
                            Call::remove_file, Call::rename, Call::copy, Call::unlock}) {
      const auto hook = [this] { count(); };
      // Required: made in place, since a rule cannot be moved.
      m_hooks.emplace_back(new os::faults::Fault(
          plan.after ? os::faults::after(call, hook, 1, os::faults::Times::kLasting)
                     : os::faults::before(call, hook, 1, os::faults::Times::kLasting)));
    }
  }

 private:
  void count() {
    if (m_progress.returned == 0 || ++m_calls != m_plan.call) return;
    write_back(m_disk, m_index, m_plan.write_back, m_random);
    m_progress.returned_at_cut = m_progress.returned.load();
    m_progress.is_cut = cut_power(m_disk);
    ::_exit(0);
  }

  const std::string m_disk;
  const std::string m_index;
  const CutPlan m_plan;
  Progress& m_progress;
  std::mt19937_64 m_random;
  std::uint64_t m_calls = 0;
  std::vector<std::unique_ptr<os::faults::Fault>> m_hooks;
};

[[noreturn]] void work_for_ever(const std::string& disk, const std::string& index,
                                const CutPlan& plan, const Work& work, Progress& progress) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
  const auto lazy = os::faults::fail(Call::flush, os::Status(), plan.flushes ? kNever : 1,
                                     os::faults::Times::kLasting);
  std::unique_ptr<Cutter> cutter;
  if (plan.call != 0) cutter = std::make_unique<Cutter>(disk, index, plan, progress);
  for (const auto& operation : work) {
    ++progress.begun;
    try {
      operation();
    } catch (...) {
      // The power is off: nothing is possible any more.
      break;
    }
    ++progress.returned;
  }
  for (;;) ::pause();
}

/// From outside, at a random moment.
void cut_from_outside(const std::string& disk, const std::string& index, const CutPlan& plan,
                      std::size_t operations, Progress& progress) {
  std::mt19937_64 random(plan.seed);
  const std::uint64_t wanted = 1 + random() % (operations - 1);
  for (int i = 0; i < 200'000 && progress.returned < wanted; ++i) ::usleep(50);
  ::usleep(static_cast<unsigned>(random() % 3 == 0 ? random() % 5'000 : random() % 400));
  write_back(disk, index, plan.write_back, random);
  progress.returned_at_cut = progress.returned.load();
  progress.is_cut = cut_power(disk);
}

}  // namespace

void carry_out(const std::string& folder, const std::string& owner, const Operation& operation) {
  switch (operation.kind) {
    case Kind::kCreate:
      STGIndex::create(folder, operation.name, operation.stamp);
      return;
    case Kind::kRemove:
      STGIndex::remove(folder, operation.name, operation.stamp);
      return;
    case Kind::kRename:
      STGIndex::rename(folder, operation.name, operation.stamp, operation.new_name,
                       operation.new_stamp);
      return;
    case Kind::kClean: {
      STGIndex::AgeMap kept;
      STGIndex::cleanOutOfDateOutput(folder, 100'000UL, kept, false);
      return;
    }
    case Kind::kWrite: {
      vu_storage storage;
      vu_file file;
      storage.OpenWrite(file, owner, operation.name, STG::UserRepository, true, operation.stamp);
      if (!file.is_open()) throw std::runtime_error("the document is not open");
      storage.Write(file, operation.text());
      storage.Close(file);
      return;
    }
    default:
      throw std::logic_error("not an operation of this suite");
  }
}

CutOff work_until_cut(const std::string& disk, const std::string& index, const CutPlan& plan,
                      const Work& work) {
  const Shared shared;
  Progress& progress = *shared;
  const ::pid_t worker = ::fork();
  if (worker < 0) return {0, 0, std::string("fork: ") + std::strerror(errno)};
  if (worker == 0) work_for_ever(disk, index, plan, work, progress);
  if (plan.call == 0) {
    cut_from_outside(disk, index, plan, work.size(), progress);
  } else {
    // A plan may name more calls than are made: then it is over when all is done.
    for (int i = 0; i < 200'000 && !progress.is_cut && progress.returned < work.size(); ++i) {
      ::usleep(50);
    }
    if (!progress.is_cut) {
      ::usleep(1'000);
      if (!progress.is_cut) {
        progress.returned_at_cut = progress.returned.load();
        progress.is_cut = cut_power(disk);
      }
    }
  }
  ::kill(worker, SIGKILL);
  ::waitpid(worker, nullptr, 0);
  CutOff result{progress.returned_at_cut, progress.begun, {}};
  if (!progress.is_cut) result.failure = "the file system knows no shutdown";
  return result;
}

}  // namespace reliability
