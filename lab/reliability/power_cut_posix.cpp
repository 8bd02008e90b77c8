#include "lab/reliability/power_cut_posix.h"

#include <fcntl.h>
#include <linux/loop.h>
#include <sched.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace reliability {
namespace {

/// The request for a shutdown on ext4 and xfs, and its argument "without flushing the journal".
constexpr unsigned long kShutdown = 0x8004587d;
constexpr std::uint32_t kWithoutJournal = 2;

/// The space that one file system needs at most.
constexpr std::uintmax_t kRoom = 200U << 20U;

std::string failure(const char* what) { return std::string(what) + ": " + std::strerror(errno); }

}  // namespace

LoopDisk::LoopDisk(DiskKind kind)
    : m_kind(std::move(kind)), m_path(native(m_scratch.path("mounted")).string()) {
  m_refusal = attach();
  if (m_refusal.empty()) m_refusal = mount();
}

LoopDisk::~LoopDisk() {
  ::umount2(m_path.c_str(), MNT_DETACH);
  if (m_device >= 0) ::close(m_device);
}

std::string LoopDisk::attach() {
  std::filesystem::create_directories(m_path);
  if (std::filesystem::space(m_path).available < kRoom) return "too little space for a disk";
  if (::unshare(CLONE_NEWNS) != 0 ||
      ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) {
    return failure("a private mount");
  }
  const std::string image = native(m_scratch.path("image")).string();
  const int file = ::open(image.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  if (file < 0 || ::ftruncate(file, static_cast<::off_t>(m_kind.size)) != 0) {
    return failure("a file in memory");
  }
  if (std::string failed = make(image); !failed.empty()) {
    ::close(file);
    return failed;
  }
  const int control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
  if (control < 0) {
    ::close(file);
    return failure("/dev/loop-control");
  }
  ::loop_config config = {};
  config.fd = static_cast<std::uint32_t>(file);
  // The kernel releases the device with its last mount and handle.
  config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
  // Another process may take the free device first.
  for (int attempt = 0; attempt < 50 && m_device < 0; ++attempt) {
    const int number = ::ioctl(control, LOOP_CTL_GET_FREE);
    m_device_path = "/dev/loop" + std::to_string(number);
    const int device = number < 0 ? -1 : ::open(m_device_path.c_str(), O_RDWR | O_CLOEXEC);
    if (device < 0) break;
    if (::ioctl(device, LOOP_CONFIGURE, &config) == 0) {
      m_device = device;
    } else {
      ::close(device);
    }
  }
  const std::string refusal = m_device < 0 ? failure("a loop device") : std::string();
  ::close(control);
  ::close(file);
  // The name is not needed any more.
  ::unlink(image.c_str());
  return refusal;
}

std::string LoopDisk::make(const std::string& path) const {
  const std::string command =
      "PATH=\"$PATH:/usr/sbin:/sbin\" " + m_kind.maker + " '" + path + "' >/dev/null 2>&1";
  if (std::system(command.c_str()) == 0) return {};
  return "'" + m_kind.maker + "' failed (it is in the package " + m_kind.packaged + ")";
}

std::string LoopDisk::make_anew() const {
  std::string failed = make(m_device_path);
  return failed.empty() ? mount() : failed;
}

std::string LoopDisk::mount() const {
  const bool is_mounted = ::mount(m_device_path.c_str(), m_path.c_str(), m_kind.type.c_str(),
                                  MS_NOATIME, m_kind.options.c_str()) == 0;
  return is_mounted ? std::string() : failure(("mounting " + m_kind.name).c_str());
}

void LoopDisk::settle() const {
  const int folder = ::open(m_path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  ::syncfs(folder);
  ::close(folder);
}

std::string LoopDisk::start_again() {
  for (int attempt = 0; ::umount2(m_path.c_str(), 0) != 0; ++attempt) {
    if (errno != EBUSY || attempt == 200) return failure("unmounting");
    ::usleep(5'000);
  }
  return mount();
}

bool cut_power(const std::string& path) {
  const int folder = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (folder < 0) return false;
  std::uint32_t how = kWithoutJournal;
  const bool is_cut = ::ioctl(folder, kShutdown, &how) == 0;
  ::close(folder);
  return is_cut;
}

// ------------------------------------------------------------------------------------------------

namespace {

using os::faults::Call;

constexpr std::size_t kPage = 4096;

/// Writes some of the pages that the kernel has not written yet.
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
    // A flush of one file also flushes the journal entries of the others.
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

/// Memory that both processes see.
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

void cut(const std::string& disk, Progress& progress) {
  progress.returned_at_cut = progress.returned.load();
  progress.is_cutting = true;
  progress.is_cut = cut_power(disk);
}

/// The text of the current exception.
std::string text_of_exception() {
  try {
    throw;
  } catch (const vu_file_except& e) {
    return e.what();
  } catch (const std::exception& e) {
    return e.what();
  } catch (...) {
    return "an exception of an unknown type";
  }
}

/// Shuts the file system down from within the working process.
class Cutter {
 public:
  Cutter(const std::string& disk, const std::string& index, const CutPlan& plan, Progress& progress)
      : m_disk(disk), m_index(index), m_plan(plan), m_progress(progress), m_random(plan.seed) {
    for (const Call call : {Call::write, Call::set_end, Call::flush, Call::close, Call::reserve,
                            Call::remove_file, Call::rename, Call::copy, Call::unlock}) {
      const auto hook = [this] { count(); };
      // Required: constructed in place, because a fault cannot be moved.
      m_hooks.emplace_back(new os::faults::Fault(
          plan.after ? os::faults::after(call, hook, 1, os::faults::Times::kLasting)
                     : os::faults::before(call, hook, 1, os::faults::Times::kLasting)));
    }
  }

 private:
  void count() {
    if (m_progress.returned == 0 || ++m_calls != m_plan.call) return;
    write_back(m_disk, m_index, m_plan.write_back, m_random);
    cut(m_disk, m_progress);
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
      // After the shutdown every operation fails; before it none may.
      if (!progress.is_cutting) {
        text_of_exception().copy(progress.thrown.data(), progress.thrown.size() - 1);
        progress.has_thrown = true;
      }
      break;
    }
    ++progress.returned;
  }
  for (;;) ::pause();
}

/// Waits up to ten seconds until the worker has returned from this many operations, was shut down
/// or has failed. @return whether one of these happened.
bool comes_to(std::uint64_t operations, const Progress& progress) {
  for (int i = 0; i < 200'000; ++i) {
    if (progress.is_cut || progress.returned >= operations || progress.has_thrown) return true;
    ::usleep(50);
  }
  return false;
}

/// Shuts down from outside, at a random moment. @return whether the worker came that far.
bool cut_from_outside(const std::string& disk, const std::string& index, const CutPlan& plan,
                      std::size_t operations, Progress& progress) {
  std::mt19937_64 random(plan.seed);
  const bool came = comes_to(1 + random() % (operations - 1), progress);
  ::usleep(static_cast<unsigned>(random() % 3 == 0 ? random() % 5'000 : random() % 400));
  write_back(disk, index, plan.write_back, random);
  cut(disk, progress);
  return came;
}

/// What is wrong with the end of the worker, or empty. It waits for its kill, or ends at its cut.
std::string failure_of_end(int status) {
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL) return {};
  if (WIFEXITED(status) && WEXITSTATUS(status) == 0) return {};
  return "the worker ended by itself, with the wait status " + std::to_string(status);
}

}  // namespace

void carry_out(const std::string& folder, const std::string& owner, const Operation& operation) {
  switch (operation.kind) {
    case Kind::kCreate: STGIndex::create(folder, operation.name, operation.stamp); return;
    case Kind::kRemove: STGIndex::remove(folder, operation.name, operation.stamp); return;
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
    default: throw std::logic_error("not an operation of this suite");
  }
}

CutOff work_until_cut(const std::string& disk, const std::string& index, const CutPlan& plan,
                      const Work& work) {
  const Shared shared;
  Progress& progress = *shared;
  const ::pid_t worker = ::fork();
  if (worker < 0) return {0, 0, std::string("fork: ") + std::strerror(errno)};
  if (worker == 0) work_for_ever(disk, index, plan, work, progress);
  bool came = true;
  if (plan.call == 0) {
    came = cut_from_outside(disk, index, plan, work.size(), progress);
  } else {
    // The plan may name a call that never comes. Then the shutdown follows the last operation.
    came = comes_to(work.size(), progress);
    if (!progress.is_cut) {
      ::usleep(1'000);
      if (!progress.is_cut) cut(disk, progress);
    }
  }
  ::kill(worker, SIGKILL);
  int end = 0;
  ::waitpid(worker, &end, 0);
  CutOff result{progress.returned_at_cut, progress.begun, failure_of_end(end)};
  if (!came && result.failure.empty()) result.failure = "an operation does not end";
  if (!progress.is_cut) result.failure = "the file system does not support a shutdown";
  if (progress.has_thrown)
    result.failure =
        std::string("an operation threw before the shutdown: ") + progress.thrown.data();
  return result;
}

// ------------------------------------------------------------------------------------------------
// Power failures on real file systems: the kernel must discard what it has not written.

namespace {

struct Found {
  std::map<std::string, std::uint64_t> crashes;  ///< by file system
  std::map<std::string, std::uint64_t> harm;     ///< by kind
  std::map<std::string, std::string> examples;
  std::uint64_t operations = 0;
  std::uint64_t unmountable = 0;
  std::string why_unmountable;
  std::vector<std::string> refusals;

  std::uint64_t of(const std::string& kind) const {
    const auto found = harm.find(kind);
    return found == harm.end() ? 0 : found->second;
  }
  bool has_harmed_entries() const {
    return of("lost") + of("invented") + of("redirected") + of("between") != 0;
  }
};

void take(const std::string& line, const std::string& disk, Run& run, Found& found) {
  const auto rest = [&](const std::string& word) { return line.substr(word.size()); };
  if (line.starts_with("crash ")) {
    run.counted(1);
    ++found.crashes[disk];
    found.operations += std::stoull(rest("crash "));
  } else if (line.starts_with("harm ")) {
    const std::size_t tab = line.find('\t');
    const std::string kind = line.substr(5, tab - 5);
    ++found.harm[kind];
    found.examples.emplace(kind, disk + ", " + line.substr(tab + 1));
  } else if (line.starts_with("unmountable ")) {
    ++found.unmountable;
    found.why_unmountable = disk + ", " + rest("unmountable ");
  } else if (line.starts_with("refused ")) {
    found.refusals.push_back(rest("refused "));
  } else {
    run.fail(disk + ": " + line);
  }
}

enum class Flushes : std::uint8_t { kDone, kFaulty };

/// Tests all file systems at the same time. Faulty flushes: stops when an entry is lost or corrupt.
Found cut_many(Run& run, std::uint64_t count, const std::string& budget, Flushes flushes) {
  Found found;
  struct Bench {
    std::string disk;
    child_process process;
    bool is_over;
  };
  // Contains the folders of the processes. A process that is ended leaves its folder.
  const scratch_folder scratch;
  std::vector<Bench> benches;
  const std::size_t kinds = kinds_of_disk();
  for (std::size_t kind = 0; kind < kinds; ++kind) {
    const std::uint64_t share = count / kinds + (kind < count % kinds ? 1 : 0);
    if (share == 0) continue;
    // The helper has no alarm: everything that it waits for has its own time limit.
    benches.push_back(
        {name_of_disk(kind),
         child_process("power_cut_bench",
                       {std::to_string(kind), std::to_string(run.random()()), std::to_string(share),
                        budget, flushes == Flushes::kDone ? "flushes" : "faulty"},
                       {{"VU_TEST_ALARM", "0"}, {"VU_TEST_TMP", native(scratch.path()).string()}}),
         false});
  }
  for (std::size_t left = benches.size(); left != 0;) {
    if (flushes == Flushes::kFaulty && run.reached() != 0 && found.has_harmed_entries()) break;
    for (Bench& bench : benches) {
      if (bench.is_over) continue;
      const auto line = bench.process.next_line(std::chrono::milliseconds(20));
      if (line) {
        take(*line, bench.disk, run, found);
      } else if (bench.process.wait(std::chrono::milliseconds(0))) {
        while (const auto last = bench.process.next_line(std::chrono::milliseconds(0))) {
          take(*last, bench.disk, run, found);
        }
        expect_normal_end(run, bench.process, "the bench on " + bench.disk);
        bench.is_over = true;
        --left;
      }
    }
  }
  return found;
}

bool may_run(Run& run) {
  if (machine::is_superuser()) return true;
  run.not_run("mounting file systems on loop devices needs the superuser");
  return false;
}

void tell(Run& run, const Found& found) {
  for (const auto& [disk, crashes] : found.crashes) run.figure("crashes on " + disk, crashes);
  run.figure("operations that had returned before a crash", found.operations);
  for (const char* kind : {"lost", "invented", "redirected", "between", "other bytes"}) {
    run.figure(kind, found.of(kind));
  }
  if (found.unmountable != 0) {
    run.figure("file systems that could not be mounted again, not checked",
               std::to_string(found.unmountable) + " (" + found.why_unmountable + ")");
  }
  std::string reasons;
  for (const std::string& each : found.refusals) reasons += (reasons.empty() ? "" : "; ") + each;
  if (!reasons.empty()) run.not_run(reasons);
}

void power_cut(Run& run) {
  if (!may_run(run)) return;
  const Found found =
      cut_many(run, run.wanted(), std::to_string(run.budget().count()), Flushes::kDone);
  tell(run, found);
  for (const auto& [kind, example] : found.examples) {
    run.fail(std::to_string(found.of(kind)) + " times " + kind + ", first on " + example);
  }
  if (run.reached() != 0 && found.operations == 0)
    run.fail("no operation returned before a crash: nothing was promised");
  if (found.unmountable * 10 > run.reached())
    run.fail("more than one file system in ten could not be mounted again");
}
REGISTER_SUITE(power_cut, "power-cut", "file systems that are shut down during operations",
               "crashes", 10'000, Scratch::kMemory)

void power_cut_noticed(Run& run) {
  if (!may_run(run)) return;
  const Found found = cut_many(run, run.wanted(), "0", Flushes::kFaulty);
  tell(run, found);
  for (const auto& [kind, example] : found.examples) run.figure("first " + kind, example);
  if (!found.has_harmed_entries() && found.refusals.empty()) {
    run.fail("operations without a flush lost no entry");
  }
}
REGISTER_SUITE(power_cut_noticed, "power-cut-noticed",
               "operations without a flush are seen to lose entries", "crashes", 200,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
