// Power failures on a model of a disk. From the recorded writes and flushes it builds the disks
// that a power failure could leave, and reads them.

#include <algorithm>
#include <array>
#include <ctime>
#include <filesystem>
#include <limits>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/disk_model.h"
#include "lab/reliability/kills.h"
#include "lab/reliability/power_work.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/os_calls.h"
#include "tests/support/os_faults.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"

namespace reliability {
namespace {

using Change = os::faults::Change;
using Changes = std::vector<Change>;

/// Interruptions in a row: an operation, the next one, and the one after that.
constexpr std::size_t kDepths = 3;
/// Images per moment, by number of earlier interruptions: of the index alone, of the whole tree.
constexpr std::array<std::size_t, kDepths> kOfIndex = {24, 8, 6};
constexpr std::array<std::size_t, kDepths> kOfTree = {2, 1, 1};
/// One of so many images of whole trees is written to a real folder, and the library reads it.
constexpr std::uint64_t kAsked = 12;

/// The injected defect of the save.
enum class Mutation : std::uint8_t {
  kNone,
  kNoFlush,       ///< flushes do nothing
  kNoFirstFlush,  ///< the first flush of a save does nothing
  kFrontFirst,    ///< the text is overwritten before its copy is written
  kCutFirst,
};

/// One save of an index: from its first change to the close.
struct Span {
  std::size_t begin;
  std::size_t end;
};

std::vector<Span> saves_in(const Changes& changes, const std::string& index) {
  std::vector<Span> saves;
  constexpr std::size_t kNone = static_cast<std::size_t>(-1);
  std::size_t begin = kNone;
  for (std::size_t i = 0; i < changes.size(); ++i) {
    if (changes[i].path != index) continue;
    if (changes[i].what != Change::What::kClose) {
      if (begin == kNone) begin = i;
    } else if (begin != kNone) {
      saves.push_back({begin, i});
      begin = kNone;
    }
  }
  return saves;
}

/// The changes of a faulty save.
Changes mutated(Changes changes, const std::string& index, Mutation mutation) {
  if (mutation == Mutation::kNone || mutation == Mutation::kNoFlush) return changes;
  for (const Span& save : saves_in(changes, index)) {
    const auto begin = changes.begin() + static_cast<std::ptrdiff_t>(save.begin);
    const auto end = changes.begin() + static_cast<std::ptrdiff_t>(save.end);
    const auto is = [&](Change::What what) {
      return [&index, what](const Change& each) { return each.path == index && each.what == what; };
    };
    if (mutation == Mutation::kCutFirst) {
      const auto cut = std::find_if(begin, end, is(Change::What::kCut));
      if (cut != end) std::rotate(begin, cut, cut + 1);
      continue;
    }
    const auto first = std::find_if(begin, end, is(Change::What::kFlush));
    const auto second = first == end ? end : std::find_if(first + 1, end, is(Change::What::kFlush));
    if (second == end) continue;
    if (mutation == Mutation::kNoFirstFlush) first->path.clear();
    if (mutation == Mutation::kFrontFirst) std::rotate(begin, first + 1, second + 1);
  }
  return changes;
}

/// Recorded operations, and the disk before them.
struct History {
  Tree before;
  Changes changes;
  std::vector<PowerStep> steps;
  Known known;  ///< before the first step
};

/// What the runs found.
struct Found {
  std::uint64_t histories = 0;
  std::array<std::uint64_t, kDepths> saving{};  ///< images within a save, by earlier interruptions
  std::uint64_t quiet = 0;
  std::uint64_t asked = 0;
  std::uint64_t large = 0;  ///< images of an index of 10 MB
  std::map<std::string, std::uint64_t> harm;
  std::map<std::string, std::string> examples;

  std::uint64_t of(const std::string& kind) const {
    const auto found = harm.find(kind);
    return found == harm.end() ? 0 : found->second;
  }
};

class PowerLoss {
 public:
  PowerLoss(Run& run, Mutation mutation) : m_run(run), m_mutation(mutation) {}

  Found run() {
    for (std::uint64_t round = 0; m_run.goes_on(); ++round) {
      const PowerScenario scenario = power_scene(round, m_run.random());
      const History history = record(m_root[0].path("root"), scenario);
      ++m_found.histories;
      examine(history, scenario, 0);
    }
    return m_found;
  }

 private:
  /// Fills a folder and runs some operations on it.
  History record(const std::string& root, const PowerScenario& scenario) {
    std::filesystem::remove_all(native(root));
    PowerWork work(root, scenario, m_run.random());
    return record(root, scenario, work, scenario.operations);
  }

  History record(const std::string& root, const PowerScenario& scenario, PowerWork& work,
                 std::size_t operations) {
    const initialised_storage storage(root, true, scenario.synchronize);
    History history;
    history.before = tree_of(root);
    history.known = work.known();
    // A faulty flush does nothing and reports success.
    constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
    const auto lazy = os::faults::fail(os::faults::Call::flush, os::Status(),
                                       m_mutation == Mutation::kNoFlush ? 1 : kNever,
                                       os::faults::Times::kLasting);
    const os::faults::Recorder recorder(root);
    for (std::size_t i = 0; i < operations; ++i) {
      PowerStep& step = history.steps.emplace_back(work.operate());
      step.end = recorder.changes().size();
    }
    history.changes = mutated(recorder.changes(), scenario.index(), m_mutation);
    return history;
  }

  /// The texts of the index between its saves, each with the number of its last change.
  static std::vector<std::pair<std::size_t, IndexText>> checkpoints(const History& history,
                                                                    const std::string& index) {
    std::vector<std::pair<std::size_t, IndexText>> all;
    const auto first = history.before.find(index);
    LooseFile file(first == history.before.end() ? "" : first->second);
    all.emplace_back(0, IndexText(reader::text_of_index(file.seen())));
    for (std::size_t i = 0; i < history.changes.size(); ++i) {
      const Change& change = history.changes[i];
      if (change.path != index) continue;
      if (change.what == Change::What::kWrite) file.write(change.offset, change.bytes);
      if (change.what == Change::What::kCut) file.cut(change.offset);
      if (change.what != Change::What::kClose) continue;
      std::string text = reader::text_of_index(file.seen());
      if (text == *all.back().second.text) {
        all.back().first = i + 1;
      } else {
        all.emplace_back(i + 1, IndexText(std::move(text)));
      }
      file.flush();
    }
    return all;
  }

  /// Builds some images for every moment.
  void examine(const History& history, const PowerScenario& scenario, std::size_t depth) {
    const std::string index = scenario.index();
    const auto texts = checkpoints(history, index);
    DiskModel disk(history.before);
    std::size_t text = 0;      // the last complete text
    bool is_begun = false;     // whether the save of the next text has begun
    std::size_t returned = 0;  // number of returned steps
    Promise promise(history.known);
    if (!history.steps.empty()) promise.begin(history.steps[0]);
    for (std::size_t i = 0; i < history.changes.size() && m_run.goes_on(); ++i) {
      const Change& change = history.changes[i];
      disk.apply(change);
      if (change.path == index && change.what != Change::What::kClose) is_begun = true;
      if (text + 1 < texts.size() && texts[text + 1].first == i + 1) {
        ++text;
        is_begun = false;
      }
      while (returned < history.steps.size() && history.steps[returned].end <= i + 1) {
        promise.end(history.steps[returned++]);
        if (returned < history.steps.size()) promise.begin(history.steps[returned]);
      }
      const bool is_saving = is_begun && text + 1 < texts.size();
      const IndexText& next = is_saving ? texts[text + 1].second : texts[text].second;
      images(disk, scenario, {texts[text].second, next, promise, is_saving, depth});
    }
  }

  struct Moment {
    const IndexText& before;
    const IndexText& after;
    const Promise& promise;
    bool is_saving;
    std::size_t depth;
  };

  void images(const DiskModel& disk, const PowerScenario& scenario, const Moment& moment) {
    const LooseFile* const index = disk.file(scenario.index());
    if (index != nullptr && !index->is_certain()) {
      const std::size_t count = kOfIndex[moment.depth] / (moment.is_saving ? 1 : 4);
      for (std::size_t i = 0; i < (scenario.is_large ? 2 : count) && m_run.goes_on(); ++i) {
        note(moment, judge_index(index->image(m_run.random()), moment.before, moment.after));
        if (scenario.is_large) ++m_found.large;
      }
    }
    if (scenario.is_large) return;
    for (std::size_t i = 0; i < kOfTree[moment.depth] && m_run.goes_on(); ++i) {
      const Tree image = disk.image(m_run.random());
      Harm harm = judge_index(bytes_of(image, scenario.index()), moment.before, moment.after);
      if (harm.kind.empty()) harm = moment.promise.judge(image, scenario.folder);
      const bool is_sound = harm.kind.empty();
      note(moment, harm);
      if (is_sound && m_run.below(kAsked) == 0) go_on_from(image, scenario, moment);
    }
  }

  static std::string bytes_of(const Tree& tree, const std::string& path) {
    const auto found = tree.find(path);
    return found == tree.end() ? std::string() : found->second;
  }

  void note(const Moment& moment, const Harm& harm) {
    m_run.counted(1);
    ++(moment.is_saving ? m_found.saving[moment.depth] : m_found.quiet);
    if (harm.kind.empty()) return;
    ++m_found.harm[harm.kind];
    m_found.examples.emplace(
        harm.kind, harm.what + (moment.is_saving ? ", within a save" : ", outside of a save") +
                       " after interruption " + std::to_string(moment.depth + 1));
  }

  /// Writes the image to a folder, which the library must read; then interrupts the next operation.
  void go_on_from(const Tree& image, const PowerScenario& scenario, const Moment& moment) {
    const std::size_t depth = moment.depth + 1;
    const std::string root = m_root[depth].path("root");
    put_tree(image, root, m_on_disk[depth]);
    ++m_found.asked;
    PowerWork work(root, scenario, m_run.random(), image);
    const std::string missing = work.ask_the_library();
    if (!missing.empty()) note(moment, {"not found by the library", missing});
    if (depth == kDepths) {
      m_on_disk[depth] = image;
      return;
    }
    const History history = record(root, scenario, work, 1);
    m_on_disk[depth] = tree_of(root);
    examine(history, scenario, depth);
  }

  Run& m_run;
  const Mutation m_mutation;
  const std::array<scratch_folder, kDepths + 1> m_root;
  std::array<Tree, kDepths + 1> m_on_disk;
  Found m_found;
};

void power_loss(Run& run) {
  const Found found = PowerLoss(run, Mutation::kNone).run();
  std::uint64_t saving = 0;
  for (const std::uint64_t each : found.saving) saving += each;
  run.figure("histories", found.histories);
  run.figure("images within a save of the index", saving);
  run.figure("of these, within the save after a first interruption", found.saving[1]);
  run.figure("of these, within the save after a second one", found.saving[2]);
  run.figure("images at other moments", found.quiet);
  run.figure("images of an index of 10 MB", found.large);
  run.figure("images written to a folder and read by the library", found.asked);
  for (const char* kind : {"lost", "invented", "redirected", "between"}) {
    run.figure(kind, found.of(kind));
  }
  for (const auto& [kind, example] : found.examples) {
    run.fail(std::to_string(found.of(kind)) + " images: " + kind + ", first: " + example);
  }
}
REGISTER_SUITE(power_loss, "power-loss", "the disks that a power failure could leave", "images",
               1'000'000, Scratch::kMemory)

void power_loss_noticed(Run& run) {
  const std::pair<Mutation, const char*> mutations[] = {
      {Mutation::kNoFlush, "flushes that do nothing"},
      {Mutation::kNoFirstFlush, "a save without its first flush"},
      {Mutation::kFrontFirst, "a save that overwrites the text before it writes the copy"},
      {Mutation::kCutFirst, "a save that truncates first"}};
  for (const auto& [mutation, what] : mutations) {
    Run inner(run.seed(), {8'000, std::chrono::seconds(0)});
    const Found found = PowerLoss(inner, mutation).run();
    run.counted(inner.reached());
    std::uint64_t harm = 0;
    for (const auto& [kind, count] : found.harm) harm += count;
    run.figure(std::string("corrupt images by ") + what, harm);
    if (harm == 0) run.fail(std::string("not detected: ") + what);
  }
}
REGISTER_SUITE(power_loss_noticed, "power-loss-noticed",
               "saves with an injected defect are detected", "images", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
