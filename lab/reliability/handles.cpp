// Handles that are copied, closed twice and opened again, thousands of times.

#include <string>

#include "lab/reliability/machine.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_file.h"
#include "vu_file_except.h"
#include "vu_fileutf8.h"
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
  /// A copy, closed by whoever comes first, twice.
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

  /// The original is closed, another file opened, and the copy closed late: that one must not
  /// notice.
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
    if (text != "text of two") m_run.fail("a late copy closed another file");
    File writer{Text(m_scratch.path("two"))};
    bool refused = false;
    writer.try_open(File::o_write, refused, true);
    if (!refused) m_run.fail("a late copy took another file's lock");
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

  /// What fails must give back what it took as well.
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
  // Whatever is made once (buffers, the table of handles) is made in the first cycles.
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
                 ? std::string("not known here")
                 : std::to_string(memory_before) + ", " + std::to_string(memory_after));
  run.figure("late copies that did no harm", cycles.stale_copies());
  if (!machine::stale_copies_are_harmless()) {
    run.figure("late copies", "not tried: the system's own numbers are handed out here");
  }
  if (handles_after > handles_before) run.fail("handles are left open");
  if (memory_after > memory_before + machine::memory_slack()) run.fail("memory is not given back");
}
REGISTER_SUITE(handles, "handles", "copies, double closes and failures leave nothing open",
               "cycles", 10'000, Scratch::kMemory)

}  // namespace
}  // namespace reliability
