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
/// What the suites share that work on one file system through two mounts, which stand for two
/// hosts.
///
/// The environment names the mounts: VU_SHARED_A and VU_SHARED_B. VU_SHARED_CONTROL names a program
/// that ends and starts parts of the system below them (lab/volume/volume.sh). ./dev shared
/// sets all three.
namespace reliability {

enum class Host : std::uint8_t { kA, kB };

/// Whether there are two mounts; else the run is told that it cannot be.
bool two_hosts(Run& run);
/// Whether there is a control program as well.
bool two_hosts_and_control(Run& run);
/// Runs the control program with these words. @return what it said.
/// @throws std::runtime_error when it fails.
std::string control(const std::string& words);
/// Whether it succeeds.
bool control_succeeds(const std::string& words);

/// A fresh folder of both mounts, with the same name. It goes with the object.
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
/// Lets every lock be granted and none be taken, in this process.
struct LocksTakenOut {
  os::faults::Fault lock =
      os::faults::fail(os::faults::Call::lock, {}, 1, os::faults::Times::kLasting);
  os::faults::Fault unlock =
      os::faults::fail(os::faults::Call::unlock, {}, 1, os::faults::Times::kLasting);
};

/// Through which mount a worker looks at what it did.
enum class Look : std::uint8_t { kFromTheOther, kFromItsOwn };

/// Workers on both mounts. Each makes an entry with bytes of its own, reads it back, and in every
/// second round removes one that it made before and asks for it.
struct Shape {
  std::size_t processes = 4;  ///< of each mount
  std::size_t rounds = 0;     ///< of each process
  std::size_t folders = 1;
  Locks locks = Locks::kTaken;
  Look look = Look::kFromTheOther;
};

/// The longest of each kind, in microseconds.
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

  /// All begin at once.
  void start();
  /// Waits for the workers of one mount. What went wrong with them counts as wrong for the run.
  void wait(Host host);
  /// The same for workers that are expected to fail: each ends at its first failure, in time.
  void wait_for_failures(Host host);
  /// Compares what both mounts show with what was acknowledged.
  void check();
  void check_from(Host host);

  std::uint64_t creates() const { return m_creates; }
  std::uint64_t removals() const { return m_removals; }
  const Longest& longest() const { return m_longest; }
  /// The failures that the workers met, and how often.
  const std::map<std::string, std::size_t>& failures() const { return m_failures; }
  /// How many rounds have ended by now, of all workers.
  std::size_t rounds_so_far() const;

 private:
  struct Worker {
    std::unique_ptr<child_process> process;
    std::string report;
    Host host;
  };
  /// physical name -> logical name, of one folder
  struct Made {
    std::map<std::string, std::string> there;
    std::map<std::string, std::string> removed;
    /// Begun, and never acknowledged: each may be there or not.
    std::map<std::string, std::string> unsure;
  };

  std::string folder(Host host, std::size_t number) const;
  void read_report(const Worker& worker);
  void check_folder(Host host, std::size_t number);

  Run& m_run;
  const Shape m_shape;
  scratch_folder m_local;  ///< the reports: not on the mounts
  SharedFolder m_shared;
  std::vector<Worker> m_workers;
  std::vector<Made> m_made;
  std::uint64_t m_creates = 0;
  std::uint64_t m_removals = 0;
  Longest m_longest;
  std::map<std::string, std::size_t> m_failures;
};

/// Creates an entry and stores its bytes. @return the physical name.
/// @throws vu_file_except as the handle does; std::runtime_error when the bytes were not taken.
std::string create_document(const std::string& folder, const std::string& logical);
/// The bytes that belong to a name.
std::string content_of(const std::string& logical);
/// Reads an entry. @return what is wrong with it; empty when nothing is.
std::string read_document(const std::string& folder, const std::string& logical);

}  // namespace reliability
