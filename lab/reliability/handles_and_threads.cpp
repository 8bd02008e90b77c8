// Copied, twice closed and reopened handles; threads that work at the same time.

#include <algorithm>
#include <array>
#include <atomic>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_file.h"
#include "vu_file_except.h"
#include "vu_fileutf8.h"
#include "vu_host.h"
#include "vu_storage.h"

namespace reliability {
namespace {

class HandleCycles {
 public:
  explicit HandleCycles(Run& run) : m_run(run), m_storage(m_scratch.path()) {
    write_file(m_scratch.path("one"), "text of one");
    write_file(m_scratch.path("two"), "text of two");
  }

  void cycle() {
    handles<vu_file, std::string>();
    handles<vu_fileutf8, vu_utf8string>();
    if (machine::stale_copies_are_harmless()) {
      stale_copy<vu_file, std::string>();
      stale_copy<vu_fileutf8, vu_utf8string>();
    }
    document();
    index();
    failures();
  }

 private:
  /// Closes a copy and the original, each twice.
  template <class File, class Text>
  void handles() {
    File file{Text(m_scratch.path("one"))};
    file.open(File::o_read);
    {
      File copy(file);
      copy.close();
      copy.close();
    }
    file.close();
    File other{Text(m_scratch.path("two"))};
    other.open(File::o_append);
    other.close();
    other.close();
    bool refused = false;
    if (!other.try_open(File::o_write, refused, true) || refused) {
      m_run.fail("a closed file is still locked");
    }
    // The destructor closes it.
  }

  /// Closes the original, opens another file, closes the old copy. The other file must stay open.
  template <class File, class Text>
  void stale_copy() {
    File file{Text(m_scratch.path("one"))};
    file.open(File::o_read);
    File copy(file);
    file.close();
    File other{Text(m_scratch.path("two"))};
    other.open(File::o_read);
    copy.close();
    std::string text;
    other.read(text, 0);
    if (text != "text of two") m_run.fail("closing an old copy closed another file");
    File writer{Text(m_scratch.path("two"))};
    bool refused = false;
    writer.try_open(File::o_write, refused, true);
    if (!refused) m_run.fail("closing an old copy released another file's lock");
    ++m_stale;
  }

  void document() {
    vu_storage storage;
    vu_file file;
    storage.OpenWrite(file, std::string("anna"), "a.kdb", STG::UserRepository, true, 0);
    storage.Write(file, "text");
    vu_file copy(file);
    storage.Close(file);
    storage.Close(copy);
    storage.OpenRead(file, std::string("anna"), "a.kdb", STG::UserRepository, 0);
    std::string text;
    storage.Read(file, text, 0);
    storage.Close(file);
    storage.Close(file);
    if (text != "text") m_run.fail("a document reads as \"" + text + "\"");
  }

  void index() {
    const std::string folder = vu_storage::getUserPath() + "\\anna";
    STGIndex::create(folder, "b.kdb", 1);
    STGIndex::rename(folder, "b.kdb", 1, "c.kdb", 2);
    STGIndex::remove(folder, "c.kdb", 2);
  }

  /// Failures must release everything too.
  void failures() {
    vu_file missing(m_scratch.path("missing"));
    try {
      missing.open(vu_file::o_read);
      m_run.fail("a missing file was opened");
    } catch (const vu_file_except&) {
    }
    vu_file folder(m_scratch.path());
    bool refused = false;
    if (folder.try_open(vu_file::o_read, refused, true)) m_run.fail("a folder was opened");
  }

  Run& m_run;
  const scratch_folder m_scratch;
  const initialised_storage m_storage;
  std::uint64_t m_stale = 0;

 public:
  std::uint64_t stale_copies() const { return m_stale; }
};

void handles(Run& run) {
  const test_alarm alarm("handles", std::chrono::seconds(3000));
  HandleCycles cycles(run);
  // The first cycles allocate what is kept: buffers and the table of handles.
  const int first = machine::stale_copies_are_harmless() ? 300 : 10;
  for (int i = 0; i < first; ++i) cycles.cycle();
  const std::uint64_t handles_before = machine::open_handles();
  const std::uint64_t memory_before = machine::memory_in_use();
  while (run.goes_on()) {
    cycles.cycle();
    run.counted(1);
  }
  const std::uint64_t handles_after = machine::open_handles();
  const std::uint64_t memory_after = machine::memory_in_use();
  run.figure("open handles before and after",
             std::to_string(handles_before) + ", " + std::to_string(handles_after));
  run.figure("bytes of memory before and after",
             memory_after == 0
                 ? std::string("unknown on this system")
                 : std::to_string(memory_before) + ", " + std::to_string(memory_after));
  run.figure("old copies whose close did no harm", cycles.stale_copies());
  if (!machine::stale_copies_are_harmless()) {
    run.figure("old copies", "not tried: the library returns the system's own handles here");
  }
  if (handles_after > handles_before) run.fail("handles are left open");
  if (memory_after > memory_before + machine::memory_slack()) run.fail("memory is not freed");
}
REGISTER_SUITE(handles, "handles", "copies, double closes and failures leave nothing open",
               "cycles", 10'000, Scratch::kMemory)

// ------------------------------------------------------------------------------------------------
// Threads of one process: operations, and the first initialisation. Also run it under
// ThreadSanitizer (./dev reliability threads linux-tsan).

constexpr std::size_t kThreads = 8;

// ---- operations ---------------------------------------------------------------------------------

/// The documents of one thread. It creates, reads, renames and lists them, and removes some.
class Worker {
 public:
  Worker(Run& run, std::string owner, std::size_t number)
      : m_run(run), m_owner(std::move(owner)), m_number(number) {}

  void work(std::size_t round) {
    const std::string name = document(round);
    write(name, "first " + name);
    expect(name, "first " + name);
    write(name, "second " + name);
    expect(name, "second " + name);
    if (round % 3 == 0) {
      STGIndex::rename(folder(), name, 0, "renamed " + name, 0);
      expect("renamed " + name, "second " + name);
    }
    if (round % 4 == 1) {
      vu_storage::RemoveFile(m_owner, name, STG::UserRepository, 0);
      expect_none(name);
    }
    STGIndex::NameMap all;
    STGIndex::plValues(folder(), all);
    long stamp = 0;
    STGIndex::lastVersion(folder(), name, stamp);
  }

  /// Logical name and bytes of every document that exists after @p rounds rounds.
  std::vector<std::pair<std::string, std::string>> left_after(std::size_t rounds) const {
    std::vector<std::pair<std::string, std::string>> left;
    for (std::size_t round = 0; round < rounds; ++round) {
      const std::string name = document(round);
      // A renamed document is not removed.
      if (round % 3 == 0) {
        left.emplace_back("renamed " + name, "second " + name);
      } else if (round % 4 != 1) {
        left.emplace_back(name, "second " + name);
      }
    }
    return left;
  }

 private:
  std::string folder() const { return vu_storage::getUserPath() + "\\" + m_owner; }
  std::string document(std::size_t round) const {
    return "t" + std::to_string(m_number) + " " + std::to_string(round) + ".kdb";
  }

  void write(const std::string& name, const std::string& text) {
    vu_storage storage;
    vu_file file;
    storage.OpenWrite(file, m_owner, name, STG::UserRepository, true, 0);
    if (!file.is_open()) m_run.fail("cannot be written: " + name);
    storage.Write(file, text);
    storage.Close(file);
  }

  void expect(const std::string& name, const std::string& text) {
    vu_storage storage;
    vu_file file;
    storage.OpenRead(file, m_owner, name, STG::UserRepository, 0);
    std::string read = "nothing";
    if (file.is_open()) storage.Read(file, read, 0);
    storage.Close(file);
    if (read != text) m_run.fail(name + " reads as \"" + read + "\"");
  }

  void expect_none(const std::string& name) {
    vu_storage storage;
    if (storage.IsFileExist(m_owner, name, STG::UserRepository, 0, nullptr, nullptr)) {
      m_run.fail("removed and still there: " + name);
    }
  }

  Run& m_run;
  const std::string m_owner;
  const std::size_t m_number;
};

void run_threads(const std::function<void(std::size_t)>& function) {
  std::vector<std::thread> threads;
  for (std::size_t number = 0; number < kThreads; ++number) threads.emplace_back(function, number);
  for (std::thread& each : threads) each.join();
}

enum class Folders : std::uint8_t { kOfTheirOwn, kOneForAll };

/// @return the number of rounds of each thread.
std::size_t work_at_once(Run& run, Folders folders, std::size_t rounds) {
  const scratch_folder scratch;
  const initialised_storage storage(scratch.path());
  const auto owner_of = [&](std::size_t number) {
    return folders == Folders::kOneForAll ? std::string("all") : "owner" + std::to_string(number);
  };
  std::atomic<std::size_t> waiting = 0;
  run_threads([&](std::size_t number) {
    ++waiting;
    while (waiting < kThreads) std::this_thread::yield();
    try {
      Worker worker(run, owner_of(number), number);
      for (std::size_t round = 0; round < rounds; ++round) worker.work(round);
    } catch (const vu_file_except& e) {
      run.fail("an operation threw: " + e.what());
    }
  });

  std::map<std::string, reader::Lines> expected;
  for (std::size_t number = 0; number < kThreads; ++number) {
    const std::string folder = scratch.path() + "\\storage\\user\\" + owner_of(number);
    const reader::FolderState state = reader::look_at(folder);
    for (const auto& [name, text] : Worker(run, owner_of(number), number).left_after(rounds)) {
      const std::string key = reader::key_for(name, 0);
      const auto line = state.lines.find(key);
      if (line == state.lines.end()) {
        run.fail("lost: " + key);
      } else if (read_file(folder + "\\" + reader::file_of(key, line->second)) != text) {
        run.fail("foreign bytes: " + key);
      } else {
        expected[folder].insert(*line);
      }
    }
  }
  for (const auto& [folder, lines] : expected) {
    const reader::FolderState state = reader::look_at(folder);
    if (state.lines != lines) run.fail("an entry that no thread left");
    // Every file has an entry, so no document was created twice.
    if (state.files.size() != lines.size()) run.fail("an orphan");
  }
  return rounds;
}

void threads(Run& run) {
  const test_alarm alarm("threads", std::chrono::seconds(3000));
  const std::size_t rounds = static_cast<std::size_t>(run.wanted() / kThreads / 2);
  for (const Folders folders : {Folders::kOfTheirOwn, Folders::kOneForAll}) {
    run.counted(kThreads * work_at_once(run, folders, std::max<std::size_t>(1, rounds)));
  }
  run.figure("threads", kThreads);
}
REGISTER_SUITE(
    threads, "threads",
    "8 threads write, read, rename, remove and list; each in its own folder, and all in one",
    "documents", 3200, Scratch::kMemory)

// ---- the first initialisation -------------------------------------------------------------------

/// Answers slowly, in the middle of the initialisation, so that other threads arrive during it.
class SlowTemporaryFiles final : public vu_host::temporary_files {
 public:
  explicit SlowTemporaryFiles(const std::string& folder) : m_folder(vu_utf8string(folder)) {}
  void initialise(const char*, const char*) override { wait(); }
  ucs2string server_folder() override { return wait(), m_folder; }
  ucs2string framework_root_folder() override { return wait(), m_folder; }

 private:
  static void wait() {
    for (int i = 0; i < 3; ++i) std::this_thread::yield();
  }
  const ucs2string m_folder;
};

class SlowConfiguration final : public vu_host::configuration {
 public:
  ucs2string binary_folder() override {
    for (int i = 0; i < 5; ++i) std::this_thread::yield();
    return {};
  }
};

/// A barrier for kThreads threads. Not std::barrier: on a system that cannot wait for a value, the
/// one of GCC 12 can miss a wake-up.
class Rendezvous {
 public:
  /// @param last the last thread calls it while the others still wait.
  explicit Rendezvous(std::function<void()> last = {}) : m_last(std::move(last)) {}

  void arrive_and_wait() {
    std::unique_lock lock(m_mutex);
    const std::uint64_t round = m_round;
    if (++m_arrived < kThreads) {
      m_over.wait(lock, [&] { return m_round != round; });
      return;
    }
    if (m_last) m_last();
    m_arrived = 0;
    ++m_round;
    m_over.notify_all();
  }

 private:
  const std::function<void()> m_last;
  std::mutex m_mutex;
  std::condition_variable m_over;
  std::size_t m_arrived = 0;
  std::uint64_t m_round = 0;
};

/// What one thread saw in a race.
struct Seen {
  bool came_first = false;  ///< no initialisation had finished
  bool won = false;
  std::string storage;
  std::string user;
};

/// The threads stay. Between two races everything is reset to the state before the first call.
class Races {
 public:
  explicit Races(Run& run) : m_run(run), m_temporary(m_scratch.path("temp")) {
    make_folder(m_scratch.path("temp"));
    for (std::size_t i = 0; i < kThreads; ++i) {
      m_roots.push_back(m_scratch.path("root" + std::to_string(i)));
      make_folder(m_roots.back());
    }
    vu_host::services services;
    services.temp = &m_temporary;
    services.config = &m_configuration;
    vu_host::install(services);
  }
  ~Races() {
    vu_storage_test_peer::reset();
    vu_host::install({});
  }
  Races(const Races&) = delete;
  Races& operator=(const Races&) = delete;

  void run() {
    vu_storage_test_peer::reset();
    Rendezvous begin;
    Rendezvous end([this] { judge(); });
    run_threads([&](std::size_t number) {
      while (!m_over) {
        begin.arrive_and_wait();
        // The barrier wakes one thread after the other. This loop makes them start together.
        ++m_arrived;
        while (m_arrived < kThreads) std::this_thread::yield();
        m_seen[number] = race(number);
        end.arrive_and_wait();
      }
    });
    m_run.figure("races that an explicit initialisation won", m_explicit);
    m_run.figure("races that another operation won", m_implicit);
    m_run.figure("races in which several threads arrived during the first initialisation",
                 m_contended);
    if (m_contended == 0) m_run.fail("no two threads arrived at the same time: nothing was tested");
  }

 private:
  /// In every other race, half of the threads call another operation first.
  Seen race(std::size_t number) const {
    Seen seen;
    const bool initialises = m_race % 2 == 0 || (number + m_race / 2) % 2 == 0;
    seen.came_first = vu_storage_test_peer::init_done() == 0;
    if (initialises) {
      seen.won = vu_storage::initRootStorage(m_roots[number], number % 4 < 2, number % 3 == 0);
    } else if (number % 4 < 2) {
      const vu_storage storage;
    } else {
      std::string folder;
      vu_storage::createUserOrDomainNameDirectory("anna", "a.kdb", STG::UserRepository, folder,
                                                  false);
    }
    seen.storage = vu_storage::getStoragePath();
    seen.user = vu_storage::getUserPath();
    return seen;
  }

  /// Called between two races, while every thread waits.
  void judge() {
    std::size_t winners = 0;
    std::string root = m_scratch.path("temp");
    std::string storage = root;
    for (std::size_t i = 0; i < kThreads; ++i) {
      if (!m_seen[i].won) continue;
      ++winners;
      storage = m_roots[i] + "\\storage";
    }
    if (winners > 1) m_run.fail("two threads initialised");
    if (winners == 0 && m_race % 2 == 0) m_run.fail("no thread initialised");
    ++(winners == 0 ? m_implicit : m_explicit);
    std::size_t first = 0;
    for (const Seen& each : m_seen) {
      if (each.came_first) ++first;
      if (each.storage != storage || each.user != storage + "\\user") {
        m_run.fail("a thread saw \"" + each.storage + "\" and \"" + each.user + "\" instead of \"" +
                   storage + "\"");
      }
    }
    if (first > 1) ++m_contended;
    vu_storage_test_peer::reset();
    m_arrived = 0;
    ++m_race;
    m_run.counted(1);
    if (!m_run.goes_on()) m_over = true;
  }

  Run& m_run;
  const scratch_folder m_scratch;
  SlowTemporaryFiles m_temporary;
  SlowConfiguration m_configuration;
  std::vector<std::string> m_roots;
  std::array<Seen, kThreads> m_seen;
  std::uint64_t m_race = 0;
  std::uint64_t m_explicit = 0;
  std::uint64_t m_implicit = 0;
  std::uint64_t m_contended = 0;
  std::atomic<std::size_t> m_arrived = 0;
  bool m_over = false;
};

void first_initialisation(Run& run) {
  const test_alarm alarm("first-initialisation", std::chrono::seconds(3000));
  Races(run).run();
}
REGISTER_SUITE(first_initialisation, "first-initialisation",
               "8 threads race for the first call into the library", "races", 10'000,
               Scratch::kMemory)

}  // namespace
}  // namespace reliability
