// Faults in a save of an index. A write takes only its first bytes, or another step fails. Each
// step fails once, or it and all later ones fail. A write is cut at many positions.

#include <algorithm>
#include <filesystem>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/disk_model.h"
#include "lab/reliability/machine.h"
#include "lab/reliability/power_work.h"
#include "lab/reliability/reliability.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_file.h"
#include "vu_file_except.h"

namespace reliability {
namespace {

using os::faults::Call;
using os::faults::Made;
using os::faults::Times;

/// One system call of a save. @p nth counts the calls of its kind in the operation.
struct Target {
  Call call;
  std::uint64_t nth;
  std::size_t size;  ///< the bytes of a write
};

/// Records the calls of an operation, and finds those on index.dat.
class Calls {
 public:
  std::vector<Target> take() const { return m_found; }
  std::size_t closes() const { return m_saves; }

 private:
  void see(const Made& made) {
    if (made.call == Call::open) {
      const std::string path = made.path->is_wide() ? std::string() : made.path->narrow();
      const bool is_index = path.ends_with("\\index.dat");
      m_is_index[made.handle] = is_index;
      m_has_written[made.handle] = false;
      return;
    }
    const bool counts = made.call == Call::write || made.call == Call::flush ||
                        made.call == Call::set_end || made.call == Call::reserve;
    if (made.call == Call::close && m_has_written[made.handle]) ++m_saves;
    if (!counts) return;
    const std::uint64_t nth = ++m_count[made.call];
    if (!m_is_index[made.handle]) return;
    m_has_written[made.handle] = true;
    m_found.push_back({made.call, nth, made.bytes.size()});
  }

  std::map<os::Handle, bool> m_is_index;
  std::map<os::Handle, bool> m_has_written;
  std::map<Call, std::uint64_t> m_count;
  std::vector<Target> m_found;
  std::size_t m_saves = 0;
  const os::faults::Watch m_watch{[this](const Made& made) { see(made); }};
};

/// A faulty save: truncates the index, then writes it with one line less.
void save_by_cutting(const std::string& folder) {
  vu_file file(folder, "index.dat");
  std::string text;
  file.open(vu_file::o_read);
  file.read(text, 0);
  file.close();
  file.open(vu_file::o_truncate);
  file.write(text.substr(text.find('\n') + 1) + " ");
  file.close();
}

enum class Victim : std::uint8_t { kLibrary, kFaulty };

class ShortWrites {
 public:
  ShortWrites(Run& run, Victim victim) : m_run(run), m_victim(victim) {}

  void run() {
    for (std::uint64_t round = 0; m_run.goes_on(); ++round) {
      PowerScenario scenario = power_scene(round, m_run.random());
      // An index of 10 MB would need a test run of its own. A migration makes several saves.
      if (scenario.is_large || scenario.is_mail || scenario.kind == IndexKind::kNone) continue;
      one_operation(scenario);
    }
    m_run.figure("operations", m_operations);
    m_run.figure("calls of their saves", m_targets);
    for (const auto& [what, count] : m_left) m_run.figure(what, count);
  }

 private:
  std::string root() const { return m_scratch.path("root"); }
  std::string folder() const { return root() + "\\storage\\user\\owner"; }
  std::string bytes() const { return read_file(folder() + "\\index.dat"); }

  void operate(const PowerScenario& scenario, std::uint64_t seed) {
    if (m_victim == Victim::kFaulty) return save_by_cutting(folder());
    Random random(seed);
    STGIndex::setSynchronizeMode(scenario.synchronize);
    PowerWork(root(), scenario, random, m_base).operate();
  }

  void one_operation(const PowerScenario& scenario) {
    std::filesystem::remove_all(native(root()));
    static_cast<void>(PowerWork(root(), scenario, m_run.random()));
    const initialised_storage storage(root(), true, scenario.synchronize);
    m_base = tree_of(root());
    const std::uint64_t seed = m_run.random()();
    const IndexText before(bytes());
    std::vector<Target> targets;
    try {
      const Calls calls;
      operate(scenario, seed);
      // An operation with two saves has three texts; the test compares only two.
      if (calls.closes() == 1 || m_victim == Victim::kFaulty) targets = calls.take();
    } catch (const vu_file_except& e) {
      m_run.fail("an operation threw without a fault: " + e.what());
    }
    const IndexText after(bytes());
    put_back();
    if (targets.empty() || after.lines == before.lines) return;
    ++m_operations;
    m_targets += targets.size();
    for (const Target& target : targets) {
      for (const Times times : {Times::kOnce, Times::kLasting}) {
        for (const bool is_told : {true, false}) {
          if (target.call == Call::write) {
            for (const std::size_t taken : places_in(target.size)) {
              disturb(scenario, seed, {before, after, target, taken, times, is_told});
            }
          } else if (is_told) {
            disturb(scenario, seed, {before, after, target, 0, times, is_told});
          }
        }
      }
    }
  }

  /// The numbers of bytes after which a write of @p size bytes ends.
  std::vector<std::size_t> places_in(std::size_t size) {
    std::set<std::size_t> places = {0, 1, size - 1, size / 2};
    for (int i = 0; i < 12; ++i) places.insert(m_run.below(size));
    places.erase(size);
    return {places.begin(), places.end()};
  }

  struct Disturbed {
    const IndexText& before;
    const IndexText& after;
    const Target& target;
    std::size_t taken;
    Times times;
    bool is_told;
  };

  void disturb(const PowerScenario& scenario, std::uint64_t seed, const Disturbed& how) {
    if (!m_run.goes_on()) return;
    {
      const os::Status status = machine::status_of(machine::Trouble::kDiskFull);
      const auto fault = how.target.call == Call::write
                             ? os::faults::cut_transfer(how.target.call, how.taken,
                                                        how.is_told ? status : os::Status(),
                                                        how.target.nth, how.times)
                             : os::faults::fail(how.target.call, status, how.target.nth, how.times);
      try {
        operate(scenario, seed);
      } catch (const vu_file_except&) {
        // A failed operation may throw. The test checks what it leaves.
      }
    }
    judge(how);
    m_run.counted(1);
    put_back();
  }

  void judge(const Disturbed& how) {
    const std::string what =
        std::string(os::faults::name(how.target.call)) + " " + std::to_string(how.target.nth) +
        (how.target.call == Call::write ? " ends after " + std::to_string(how.taken) + " of " +
                                              std::to_string(how.target.size) + " bytes"
                                        : " fails") +
        (how.times == Times::kLasting ? ", and all later ones" : "") +
        (how.is_told ? "" : ", without an error");
    const std::string left = bytes();
    const Harm harm = judge_index(left, how.before, how.after);
    if (!harm.kind.empty()) m_run.fail(what + ": " + harm.kind + " " + harm.what);
    const IndexText plain(left);
    for (const auto& [key, stored] : plain.lines) {
      const auto is_in = [&, &line_key = key, &line_stored = stored](const LineViews& lines) {
        const auto found = lines.find(line_key);
        return found != lines.end() && found->second == line_stored;
      };
      if (is_in(how.before.lines) || is_in(how.after.lines)) continue;
      // This is only guaranteed for kills.
      ++m_left["left a false line for readers of plain lines"];
      break;
    }
    const bool is_old = IndexText(reader::text_of_index(left)).lines == how.before.lines;
    ++m_left[is_old ? "left the old entries" : "left the new entries"];
    if (reader::is_interrupted(left))
      ++m_left["left an interrupted save that the next one completes"];
    if (m_victim == Victim::kLibrary) next_save(what);
  }

  /// The next save leaves exactly the valid entries.
  void next_save(const std::string& what) {
    const reader::Lines lines = reader::look_at(folder()).lines;
    STGIndex::setSynchronizeMode(false);
    STGIndex::updateIndexFile(folder());
    if (bytes() != reader::index_text_of(lines))
      m_run.fail(what + ": the next save leaves another text");
  }

  void put_back() {
    put_tree(m_base, root(), tree_of(root()));
    for (const auto& [path, text] : tree_of(root())) {
      if (m_base.count(path) == 0) std::filesystem::remove_all(native(root() + "/" + path));
    }
  }

  Run& m_run;
  const Victim m_victim;
  const scratch_folder m_scratch;
  Tree m_base;
  std::uint64_t m_operations = 0;
  std::uint64_t m_targets = 0;
  std::map<std::string, std::uint64_t> m_left;
};

void short_writes(Run& run) { ShortWrites(run, Victim::kLibrary).run(); }
REGISTER_SUITE(short_writes, "short-writes",
               "a save whose writes end early or fail, at every step and at many bytes", "faults",
               50'000, Scratch::kMemory)

void short_writes_noticed(Run& run) {
  Run inner(run.seed(), {2'000, std::chrono::seconds(0)});
  ShortWrites(inner, Victim::kFaulty).run();
  run.counted(inner.reached());
  run.figure("corruptions by a faulty save", inner.failures());
  if (inner.failures() == 0) run.fail("a save that truncates the index first was not detected");
}
REGISTER_SUITE(short_writes_noticed, "short-writes-noticed",
               "a save that truncates the index first is detected", "faults", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
