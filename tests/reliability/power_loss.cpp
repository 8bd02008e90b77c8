// The power goes off: what may be on the disk by then is built from the recorded writes and flushes, and read.

#include <filesystem>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "stg_index.h"
#include "tests/reliability/disk_model.h"
#include "tests/reliability/folder_state.h"
#include "tests/reliability/kill_model.h"
#include "tests/reliability/reliability.h"
#include "tests/support/os_faults.h"
#include "tests/support/os_recorder.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_storage.h"

namespace reliability {
namespace {

const std::string kFolder = "storage/user/owner/";
const std::string kIndex = kFolder + "index.dat";
constexpr std::size_t kOperations = 6;
constexpr std::size_t kSubsets = 4;

/// What an operation that returned has promised.
struct Promise {
  std::string key;
  std::optional<std::string>
      text;  ///< of the document that was closed; nothing for an entry that went
};

/// One operation, and where its changes end among all.
struct Step {
  Promise promise;
  std::size_t end = 0;
};

class PowerLoss {
 public:
  PowerLoss(Run& run, bool flushes) : m_run(run), m_flushes(flushes) {}

  void run() {
    while (m_run.goes_on()) {
      for (const std::size_t size : {300U, 1500U, 6000U}) one_history(size);
    }
    m_run.figure("histories", m_histories);
    m_run.figure("moments", m_moments);
    m_run.figure("images while no save was under way", m_quiet);
    m_run.figure("images in the middle of a save of the index", m_saving);
    m_run.figure("of those, with an entry that an earlier operation had made lost", m_torn);
  }

 private:
  std::string root() const { return m_scratch.path("root"); }
  std::string folder() const { return root() + "\\storage\\user\\owner"; }

  std::string some_text() {
    return text_number(++m_texts, m_run.below(4) == 0 ? m_run.below(6000) : m_run.below(200));
  }

  /// A folder with an index of about @p size bytes, as on the disk.
  void fill(std::size_t size) {
    std::filesystem::remove_all(native(root()));
    make_folder(folder());
    Lines lines;
    m_known.clear();
    std::size_t written = 0;
    for (int i = 1; written < size; ++i) {
      const std::string name = "kept " + std::to_string(i) + ".kdb";
      char number[16];
      std::snprintf(number, sizeof number, "%08d", i);
      lines[key_for(name, 1)] = number;
      const std::string text = some_text();
      write_file(folder() + "\\" + number + ".kdb", text);
      m_known[key_for(name, 1)] = text;
      written += name.size() + 22;
      write_file(folder() + "\\index", number);
    }
    write_file(folder() + "\\index.dat", index_text_of(lines));
  }

  std::string some_key() {
    auto it = m_known.begin();
    std::advance(it, static_cast<std::ptrdiff_t>(m_run.below(m_known.size())));
    return it->first;
  }

  Promise write_document(const std::string& key) {
    const auto [name, stamp] = parts_of_key(key);
    Promise promise{key, some_text()};
    vu_storage storage;
    vu_file file;
    storage.OpenWrite(file, "owner", name, STG::UserRepository, true, stamp);
    storage.Write(file, *promise.text);
    storage.Close(file);
    return promise;
  }

  Promise operate() {
    switch (m_run.below(5)) {
      case 0:
        return write_document(some_key());
      case 1: {
        const std::string name = "made " + std::to_string(++m_names) + ".kdc";
        STGIndex::create(folder(), name, 3);
        return {key_for(name, 3), std::string()};
      }
      case 2: {
        const std::string key = some_key();
        const auto [name, stamp] = parts_of_key(key);
        STGIndex::remove(folder(), name, stamp);
        return {key, std::nullopt};
      }
      case 3: {
        STG::NameValueSeq lines;
        lines.push_back({"line " + std::to_string(++m_names), "1"});
        vu_storage::saveUserOrMasterProfile("owner", "list.ctg", lines);
        return {key_for("list.ctg", 0), vu_storage::getStringFromNameValueSeq(lines)};
      }
      default:
        return write_document(key_for("new " + std::to_string(++m_names) + ".kdb", 2));
    }
  }

  void one_history(std::size_t size) {
    fill(size);
    const initialised_storage storage(root(), true, m_run.below(2) == 0);
    const Tree before = tree_of(root());
    const std::map<std::string, std::string> known_before = m_known;
    std::vector<Step> steps;
    DiskModel::Changes changes;
    {
      // A planted flush says that it is done, and does nothing.
      constexpr std::uint64_t kNever = std::numeric_limits<std::uint64_t>::max();
      const auto lazy = os::faults::fail(os::faults::Call::flush, os::Status(),
                                         m_flushes ? kNever : 1, os::faults::Times::kLasting);
      const os::faults::Recorder recorder(root());
      for (std::size_t i = 0; i < kOperations; ++i) {
        Step& step = steps.emplace_back();
        step.promise = operate();
        step.end = recorder.changes().size();
        if (step.promise.text) {
          m_known[step.promise.key] = *step.promise.text;
        } else {
          m_known.erase(step.promise.key);
        }
      }
      changes = recorder.changes();
    }
    ++m_histories;
    examine(DiskModel(before, changes), steps, known_before, changes.size());
  }

  /// Every moment, and of each the images of every prefix (few, where there are many) and of some subsets.
  void examine(const DiskModel& disk, const std::vector<Step>& steps,
               const std::map<std::string, std::string>& known_before, std::size_t changes) {
    for (std::size_t end = 1; end <= changes && m_run.goes_on(); ++end) {
      ++m_moments;
      const std::size_t pieces = disk.loose_pieces(end);
      std::map<std::string, std::string> kept = known_before;
      std::set<std::string> in_motion;
      const std::size_t returned = promised(steps, end, kept, in_motion);
      const bool is_saving = disk.is_loose(returned, end, kIndex);
      const std::size_t stride = 1 + pieces / 12;
      for (std::size_t prefix = 0; prefix <= pieces; prefix += stride) {
        judge(disk, end, is_saving, kept, in_motion,
              [&](std::size_t piece) { return piece < prefix; });
      }
      for (std::size_t i = 0; pieces > 1 && i < kSubsets; ++i) {
        const std::uint64_t chance = 1 + m_run.below(9);
        judge(disk, end, is_saving, kept, in_motion,
              [&](std::size_t) { return m_run.below(10) < chance; });
      }
    }
  }

  /// What the operations that returned by then have promised, and what the one under way works on.
  /// @return where the changes of that one begin.
  static std::size_t promised(const std::vector<Step>& steps, std::size_t end,
                              std::map<std::string, std::string>& kept,
                              std::set<std::string>& in_motion) {
    std::size_t returned = 0;
    for (const Step& step : steps) {
      if (step.end > end) {
        in_motion.insert(step.promise.key);
        return returned;
      }
      returned = step.end;
      if (step.promise.text) {
        kept[step.promise.key] = *step.promise.text;
        in_motion.erase(step.promise.key);
      } else {
        // What was removed may come back: a removal is not flushed.
        in_motion.insert(step.promise.key);
      }
    }
    return returned;
  }

  template <class Keeps>
  void judge(const DiskModel& disk, std::size_t end, bool is_saving,
             const std::map<std::string, std::string>& kept, const std::set<std::string>& in_motion,
             const Keeps& keeps) {
    const Tree image = disk.image(end, keeps);
    const Lines lines = lines_in(image, kIndex);
    std::string missing;
    for (const auto& [key, text] : kept) {
      if (in_motion.count(key) != 0) continue;
      const auto line = lines.find(key);
      const auto file =
          line == lines.end() ? image.end() : image.find(kFolder + file_of(key, line->second));
      if (file == image.end()) {
        missing = "lost: " + key;
      } else if (file->second != text) {
        missing = "other bytes: " + key;
      }
    }
    if (missing.empty() && m_run.reached() % 8 == 0) missing = ask_the_library(image, lines);
    ++(is_saving ? m_saving : m_quiet);
    if (is_saving && !missing.empty()) ++m_torn;
    if (!is_saving && !missing.empty()) {
      m_run.fail("power lost after change " + std::to_string(end) + ": " + missing);
    }
    m_run.counted(1);
  }

  /// Whether the library finds what is there by the independent reader.
  std::string ask_the_library(const Tree& image, const Lines& lines) {
    put_tree(image, m_image.path(), m_on_disk);
    m_on_disk = image;
    const std::string place = m_image.path() + "\\storage\\user\\owner";
    std::size_t asked = 0;
    for (auto it = lines.rbegin(); it != lines.rend() && asked < 8; ++it, ++asked) {
      const auto [name, stamp] = parts_of_key(it->first);
      std::string physical;
      if (!STGIndex::exists(place, name, stamp, physical) ||
          physical != file_of(it->first, it->second)) {
        return "the library does not find " + it->first;
      }
    }
    return {};
  }

  Run& m_run;
  const bool m_flushes;
  const scratch_folder m_scratch;
  const scratch_folder m_image;
  Tree m_on_disk;                              ///< what m_image holds
  std::map<std::string, std::string> m_known;  ///< the text of every entry
  std::uint64_t m_names = 0;
  std::uint64_t m_texts = 0;
  std::uint64_t m_histories = 0;
  std::uint64_t m_moments = 0;
  std::uint64_t m_quiet = 0;
  std::uint64_t m_saving = 0;
  std::uint64_t m_torn = 0;
};

void power_loss(Run& run) { PowerLoss(run, true).run(); }
REGISTER_SUITE(power_loss, "power-loss", "what the disk may hold after the power went off",
               "images", 100'000, Scratch::kMemory)

void power_loss_noticed(Run& run) {
  Run inner(run.seed(), {20'000, std::chrono::seconds(0)});
  PowerLoss(inner, false).run();
  run.counted(inner.reached());
  run.figure("losses found of closes that do not flush", inner.failures());
  if (inner.failures() == 0) run.fail("closes that do not flush were not found");
}
REGISTER_SUITE(power_loss_noticed, "power-loss-noticed", "a close that does not flush is found",
               "images", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
