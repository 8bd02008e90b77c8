#pragma once

#include <algorithm>
#include <cstdint>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "lab/reliability/reliability.h"
#include "platform/os/os.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"

/// @file
/// Shared code of suites that use one file system through two mounts. Each mount acts as a host.
///
/// ./dev shared sets the environment variables: VU_SHARED_A and VU_SHARED_B name the mounts.
/// VU_SHARED_CONTROL is a program that stops and starts parts of the file system
/// (lab/volume/volume.sh).
namespace reliability {

enum class Host : std::uint8_t { kA, kB };

/// Whether there are two mounts. If not, the run is marked as not run.
bool two_hosts(Run& run);
/// Whether there is also a control program.
bool two_hosts_and_control(Run& run);
/// Runs the control program with these words. @return its output.
/// @throws std::runtime_error if it fails.
std::string control(const std::string& words);
/// Runs it too. @return whether it succeeds.
bool control_succeeds(const std::string& words);

/// A new folder, seen through both mounts. The destructor removes it.
class SharedFolder {
 public:
  SharedFolder();
  ~SharedFolder();
  SharedFolder(const SharedFolder&) = delete;
  SharedFolder& operator=(const SharedFolder&) = delete;

  const std::string& seen_by(Host host) const { return host == Host::kA ? m_a : m_b; }

 private:
  std::string m_a;
  std::string m_b;
};

enum class Locks : std::uint8_t { kTaken, kTakenOut };
/// Every lock of this process succeeds without being taken.
struct LocksTakenOut {
  os::faults::Fault lock =
      os::faults::fail(os::faults::Call::lock, {}, 1, os::faults::Times::kLasting);
  os::faults::Fault unlock =
      os::faults::fail(os::faults::Call::unlock, {}, 1, os::faults::Times::kLasting);
};

/// The mount through which a worker checks its work.
enum class Look : std::uint8_t { kFromTheOther, kFromItsOwn };

/// Workers on both mounts. In each round a worker creates an entry and reads it back. In every
/// second round it removes an earlier entry and checks that.
struct Shape {
  std::size_t processes = 4;  ///< on each mount
  std::size_t rounds = 0;     ///< of each process
  std::size_t folders = 1;
  Locks locks = Locks::kTaken;
  Look look = Look::kFromTheOther;
};

/// The longest times in microseconds.
struct Longest {
  std::int64_t create = 0;
  std::int64_t read = 0;
  std::int64_t remove = 0;
  std::int64_t any() const { return std::max({create, read, remove}); }
};

/// A crowd of workers, and what must be there afterwards.
class SharedWork {
 public:
  SharedWork(Run& run, const Shape& shape);

  /// All workers begin at the same time.
  void start();
  /// Waits for the workers of one mount. Their failures fail the run.
  void wait(Host host);
  /// The same for workers that must fail. Each must end in time, at its first failure.
  void wait_for_failures(Host host);
  /// Compares both mounts with what the finished operations returned.
  void check();
  void check_from(Host host);

  std::uint64_t creates() const { return m_creates; }
  std::uint64_t removals() const { return m_removals; }
  const Longest& longest() const { return m_longest; }
  /// The failures of the workers, with their number.
  const std::map<std::string, std::size_t>& failures() const { return m_failures; }
  /// The finished rounds of all workers.
  std::size_t rounds_so_far() const;

 private:
  struct Worker {
    std::unique_ptr<child_process> process;
    std::string report;
    Host host;
  };
  /// physical name -> logical name, for one folder
  struct Made {
    std::map<std::string, std::string> there;
    std::map<std::string, std::string> removed;
    /// Entries whose create or removal began without a result; each may exist or not.
    std::map<std::string, std::string> unsure;
  };

  std::string folder(Host host, std::size_t number) const;
  void read_report(const Worker& worker);
  void check_folder(Host host, std::size_t number);

  Run& m_run;
  const Shape m_shape;
  scratch_folder m_local;  ///< the reports; not on the mounts
  SharedFolder m_shared;
  std::vector<Worker> m_workers;
  std::vector<Made> m_made;
  std::uint64_t m_creates = 0;
  std::uint64_t m_removals = 0;
  Longest m_longest;
  std::map<std::string, std::size_t> m_failures;
};

/// Creates an entry and stores its bytes. @return the physical name.
/// @throws vu_file_except as the handle does; std::runtime_error if fewer bytes were written.
std::string create_document(const std::string& folder, const std::string& logical);
/// The bytes for a name.
std::string content_of(const std::string& logical);
/// Reads an entry. @return what is wrong, or empty.
std::string read_document(const std::string& folder, const std::string& logical);

}  // namespace reliability
