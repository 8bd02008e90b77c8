// One file system that is shut down again and again: its operations and their checks.

#include <fcntl.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <ctime>
#include <filesystem>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <stdexcept>
#include <utility>

#include "lab/reader/index_reader.h"
#include "lab/reliability/power_cut_posix.h"
#include "lab/reliability/power_work.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/process.h"
#include "tests/support/storage_peer.h"
#include "vu_storage.h"

namespace reliability {
namespace {

using namespace std::string_literals;

struct Share {
  std::size_t entries;
  unsigned weight;  ///< percent
};
constexpr Share kShares[] = {{1, 24}, {60, 30}, {400, 26}, {5'000, 6}, {20'000, 2}};
constexpr std::size_t kMails = 12;
/// In larger folders only the documents that the operations name are read.
constexpr std::size_t kReadWhole = 1000;
constexpr std::int64_t kOld = 1'000'000;

const DiskKind kKinds[] = {{"ext4, data=ordered", "ext4", "data=ordered", 64U << 20U,
                            "mkfs.ext4 -q -F -J size=4 -I 128 -N 40000", "e2fsprogs"},
                           {"ext4, data=writeback", "ext4", "data=writeback", 64U << 20U,
                            "mkfs.ext4 -q -F -J size=4 -I 128 -N 40000", "e2fsprogs"},
                           {"xfs", "xfs", "", 320U << 20U, "mkfs.xfs -q -f", "xfsprogs"}};

/// A folder of entries.
struct Place {
  std::string owner;
  std::size_t size = 0;
  Model model;
  reader::Lines dead;  ///< dangling entries on the disk
};

class Bench {
 public:
  Bench(const LoopDisk& disk, std::uint64_t seed, bool flushes)
      : m_disk(disk), m_random(seed), m_flushes(flushes) {}

  /// Runs operations until the shutdown. judge() checks the result.
  void until_the_power_goes();
  /// Call it after the new mount.
  void judge();
  /// Call it when the file system was created again.
  void forget() { m_places.clear(); }

  std::vector<Harm> harm;
  std::uint64_t operations = 0;  ///< returned before the shutdown

 private:
  std::uint64_t below(std::uint64_t end) { return m_random() % end; }
  std::string root() const { return m_disk.path() + "/root"; }
  std::string folder() const {
    return root() + "\\storage\\" +
           (m_place == nullptr ? "mail\\" + m_user : "user\\" + m_place->owner);
  }
  std::string index() const { return native(folder() + "\\index.dat").string(); }
  void wrong(const std::string& kind, const std::string& what) {
    const std::string where =
        m_place == nullptr ? "mails" : std::to_string(m_place->size) + " entries";
    harm.push_back({kind, where + ": " + what});
  }

  CutPlan some_plan();
  Place& place_of(std::size_t size);
  std::string some_key(const Model& model);
  void prepare_strays_and_age();
  Operation some_operation(const Model& model);
  void plan_operations();
  void fill_mails();

  void judge_entries();
  void judge_files(const Model& now, std::uint32_t done);
  void judge_mails();
  void take_what_is_there();
  void begin_anew();

  const LoopDisk& m_disk;
  std::mt19937_64 m_random;
  const bool m_flushes;
  std::vector<std::unique_ptr<Place>> m_places;
  std::uint64_t m_names = 0;

  Place* m_place = nullptr;  ///< the folder of this crash; null: a mail folder
  std::string m_user;
  std::vector<Operation> m_planned;
  std::set<std::string> m_aged;  ///< files that a clean removes
  CutOff m_cut;
};

// ---- what is done -------------------------------------------------------------------------------

CutPlan Bench::some_plan() {
  CutPlan plan;
  plan.seed = m_random();
  plan.flushes = m_flushes;
  if (below(4) != 0) {
    plan.call = 1 + below(below(2) == 0 ? 12 : 40);
    plan.after = below(2) == 0;
  }
  plan.write_back = static_cast<std::uint32_t>(below(3) == 0 ? 0 : below(8));
  return plan;
}

Place& Bench::place_of(std::size_t size) {
  for (const auto& each : m_places) {
    if (each->size == size) return *each;
  }
  Place& place = *m_places.emplace_back(std::make_unique<Place>());
  place.size = size;
  place.owner = "owner" + std::to_string(size);
  m_place = &place;
  make_folder(folder());
  for (std::size_t i = 0; i < size; ++i) {
    const std::string key = reader::key_for("kept " + std::to_string(i) + ".kdb", 1);
    place.model.entries[key] = {place.model.next_number(),
                                text_number(i, size > kReadWhole ? 0 : below(300))};
    ++place.model.counter;
  }
  for (const auto& [key, entry] : place.model.entries) {
    write_file(folder() + "\\" + reader::file_of(key, entry.stored), entry.content);
  }
  char counter[32];
  std::snprintf(counter, sizeof counter, "%08lld", static_cast<long long>(place.model.counter));
  write_file(folder() + "\\index", counter);
  write_file(folder() + "\\index.dat", reader::index_text_of(place.model.lines()));
  return place;
}

std::string Bench::some_key(const Model& model) {
  if (model.entries.empty()) return {};
  // Often at the end, where the text grows.
  auto it = model.entries.end();
  const auto size = model.entries.size();
  std::advance(it, -static_cast<std::ptrdiff_t>(
                       1 + below(below(2) == 0 ? std::min<std::uint64_t>(size, 20) : size)));
  return m_aged.count(reader::file_of(it->first, it->second.stored)) == 0 ? it->first
                                                                          : std::string();
}

/// The next operation adopts the orphans, or a clean sweeps them and removes the old files.
void Bench::prepare_strays_and_age() {
  m_aged.clear();
  Model& model = m_place->model;
  model.adoption = below(5) == 0 ? Adoption::kOn : Adoption::kOff;
  const bool cleans = below(4) == 0;
  if (model.adoption == Adoption::kOn || cleans) {
    for (std::uint64_t left = 1 + below(12); left != 0; --left) {
      const std::string name = "stray" + std::to_string(++m_names) + ".kdb";
      model.strays[name] = text_number(m_names, below(500));
      write_file(folder() + "\\" + name, model.strays[name]);
    }
  }
  if (!cleans) return;
  for (std::uint64_t left = 1 + below(5); left != 0; --left) {
    const std::string key = some_key(model);
    if (key.empty()) continue;
    const std::string file = reader::file_of(key, model.entries.at(key).stored);
    set_modify_time(folder() + "\\" + file, static_cast<std::int64_t>(std::time(nullptr)) - kOld);
    m_aged.insert(file);
  }
}

Operation Bench::some_operation(const Model& model) {
  Operation operation;
  const std::string known = some_key(model);
  const auto new_name = [&] {
    return std::string(1, static_cast<char>('a' + below(26))) + "ame " + std::to_string(++m_names) +
           std::string(below(8) == 0 ? below(700) : below(20), 'x') + ".kdb";
  };
  operation.text_id = ++m_names;
  operation.text_size = below(4) == 0 ? below(9000) : below(400);
  const bool is_full = model.entries.size() > m_place->size;
  const std::uint64_t chance = below(10);
  if (known.empty() || chance < 3) {
    const bool removes = !known.empty() && is_full;
    operation.kind = removes ? Kind::kRemove : Kind::kCreate;
    operation.name = new_name();
    operation.stamp = 2;
    if (removes) std::tie(operation.name, operation.stamp) = reader::parts_of_key(known);
    return operation;
  }
  std::tie(operation.name, operation.stamp) = reader::parts_of_key(known);
  if (chance < 6) {
    operation.kind = Kind::kWrite;
    if (below(2) == 0 && !is_full) operation.name = new_name();
  } else if (chance < 9) {
    operation.kind = Kind::kRename;
    operation.new_name = new_name();
    operation.new_stamp = 3;
    const std::string target = some_key(model);
    if (below(3) == 0 && !target.empty() && target != known) {
      std::tie(operation.new_name, operation.new_stamp) = reader::parts_of_key(target);
    }
  } else {
    operation.kind = Kind::kRemove;
  }
  return operation;
}

void Bench::plan_operations() {
  m_planned.clear();
  Model model = m_place->model;
  const std::size_t count = m_place->size > kReadWhole ? 6 : 20;
  const std::size_t clean = m_aged.empty() ? count : below(3);
  for (std::size_t i = 0; i < count; ++i) {
    Operation next;
    if (i == clean) {
      next.kind = Kind::kClean;
      next.out_of_date = m_aged;
    } else {
      next = some_operation(model);
    }
    model.apply(next);
    m_planned.push_back(std::move(next));
  }
}

void Bench::fill_mails() {
  m_user = "mail" + std::to_string(++m_names);
  make_folder(folder());
  std::string list;
  for (std::size_t mail = 0; mail < kMails; ++mail) {
    const std::string number = std::to_string(100 + mail);
    write_file(folder() + "\\f4#f5#from#subject%20" + number + ".kdb",
               text_number(mail, 90 * mail));
    list += "from\tsubject%20" + number + "\tB\tf4\tf5\tf6\t\n";
  }
  write_file(folder() + "\\read.txt", list);
}

void Bench::until_the_power_goes() {
  std::uint64_t chance = below(100);
  m_place = nullptr;
  bool is_mail = true;
  for (const Share& share : kShares) {
    if (is_mail && chance < share.weight) {
      m_place = &place_of(share.entries);
      is_mail = false;
    }
    chance -= std::min<std::uint64_t>(chance, share.weight);
    if (!is_mail) break;
  }
  const CutPlan plan = some_plan();
  Work work;
  // Without adoption no mail becomes an entry.
  bool adopts = true;
  if (is_mail) {
    fill_mails();
    // A first operation that returns: calls only count after it.
    const std::string mails = folder();
    work.emplace_back([] { vu_storage::getMailPath(); });
    work.emplace_back([this] { STGIndex::migrateInboxRead(m_user); });
    work.emplace_back([mails] { STGIndex::create(mails, "after.kdb", 1); });
  } else {
    prepare_strays_and_age();
    plan_operations();
    adopts = m_place->model.adoption == Adoption::kOn;
    const std::string place = folder();
    for (const Operation& each : m_planned) {
      work.emplace_back([this, place, &each] { carry_out(place, m_place->owner, each); });
    }
  }
  const initialised_storage storage(root(), true, adopts);
  m_disk.settle();
  m_cut = work_until_cut(m_disk.path(), index(), plan, work);
  // The first operation on mails changes nothing.
  operations += is_mail && m_cut.returned != 0 ? m_cut.returned - 1 : m_cut.returned;
  if (!m_cut.failure.empty()) throw std::runtime_error(m_cut.failure);
}

// ---- what is found ------------------------------------------------------------------------------

void Bench::judge() {
  if (m_place == nullptr) return judge_mails();
  judge_entries();
  if (harm.empty()) take_what_is_there();
  if (!harm.empty()) begin_anew();
}

void Bench::judge_entries() {
  const std::string bytes =
      file_exists(folder() + "\\index.dat") ? read_file(folder() + "\\index.dat") : "";
  reader::Lines found = reader::all_lines(reader::text_of_index(bytes));
  for (const auto& [key, stored] : m_place->dead) {
    const auto line = found.find(key);
    if (line != found.end() && line->second == stored) found.erase(line);
  }
  // All returned operations are done. Of the others that began, any number in order may be done.
  Model now = m_place->model;
  for (std::uint32_t i = 0; i < m_cut.returned; ++i) now.apply(m_planned[i]);
  const reader::Lines before = now.lines();
  reader::Lines after = before;
  for (std::uint32_t done = m_cut.returned;; ++done) {
    if (found == (done == m_cut.returned ? before : after)) return judge_files(now, done);
    if (done == m_cut.begun) break;
    now.apply(m_planned[done]);
    after = now.lines();
  }
  const Harm harm_of_lines = difference(views_of(found), views_of(before), views_of(after));
  const char* const kind =
      m_cut.begun == m_cut.returned ? "" : name_of(m_planned[m_cut.returned].kind);
  wrong(harm_of_lines.kind, harm_of_lines.what + " (" + kind + " under way)");
}

/// Every entry has its file, and every closed document its bytes. The entries are those after @p
/// done operations. More may have begun: some without a change of entries, then one with a change.
void Bench::judge_files(const Model& now, std::uint32_t done) {
  std::set<std::string> in_removal;
  std::set<std::string> in_writing;
  for (std::uint32_t i = m_cut.returned; i < m_cut.begun; ++i) {
    if (m_planned[i].kind == Kind::kWrite) in_writing.insert(m_planned[i].key());
  }
  for (std::uint32_t i = done; i < m_cut.begun; ++i) {
    const Operation& next = m_planned[i];
    if (next.kind == Kind::kWrite && now.entries.count(next.key()) != 0) continue;
    if (next.kind == Kind::kRemove) in_removal.insert(next.key());
    for (const auto& [key, entry] : now.entries) {
      if (next.out_of_date.count(reader::file_of(key, entry.stored)) != 0) in_removal.insert(key);
    }
    break;
  }
  std::set<std::string> read;
  for (const Operation& each : m_planned) {
    read.insert(each.key());
    if (each.kind == Kind::kRename) read.insert(each.new_key());
  }
  for (const auto& [key, entry] : now.entries) {
    if (in_removal.count(key) != 0) continue;
    const std::string path = folder() + "\\" + reader::file_of(key, entry.stored);
    struct ::stat info = {};
    if (::stat(native(path).c_str(), &info) != 0) {
      wrong("lost", "the file of " + shortened(key));
    } else if (in_writing.count(key) != 0) {
      continue;
    } else if (static_cast<std::uint64_t>(info.st_size) != entry.content.size() ||
               ((now.entries.size() <= kReadWhole || read.count(key) != 0) &&
                read_file(path) != entry.content)) {
      wrong("other bytes", shortened(key) + " has " + std::to_string(info.st_size) + " of " +
                               std::to_string(entry.content.size()));
    }
  }
}

void Bench::judge_mails() {
  const std::string path = folder();
  const auto bytes_of = [&](const std::string& name) {
    return file_exists(path + "\\" + name) ? std::optional(read_file(path + "\\" + name))
                                           : std::nullopt;
  };
  const reader::Lines lines =
      reader::all_lines(reader::text_of_index(bytes_of("index.dat").value_or("")));
  std::size_t converted = 0;
  for (std::size_t mail = 0; mail < kMails; ++mail) {
    const std::string number = std::to_string(100 + mail);
    const std::string text = text_number(mail, 90 * mail);
    const std::string old_name = "f4#f5#from#subject%20" + number + ".kdb";
    const std::string key = reader::key_for("f4#f5#from#subject " + number + ".kdb", 0);
    const auto line = lines.find(key);
    if (line != lines.end()) {
      ++converted;
      if (bytes_of(reader::file_of(key, line->second)) != text)
        wrong("lost", "the bytes of " + shortened(key));
    } else if (bytes_of(old_name) != text) {
      wrong("neither name", old_name);
    }
  }
  const bool has_returned = m_cut.returned >= 2;
  if (converted != 0 && converted != kMails) {
    wrong("between", std::to_string(converted) + " mails of " + std::to_string(kMails));
  }
  if (has_returned && converted == 0) wrong("lost", "a migration that had returned");
  for (const auto& [key, stored] : lines) {
    const std::string name = reader::parts_of_key(key).first;
    const bool is_known = name.starts_with("f4#f5#from#subject") || name == "read.txt" ||
                          name == "k1mailboxcompliant" || name == "after.kdb";
    if (!is_known) wrong("invented", shortened(key));
  }
  std::filesystem::remove_all(native(path));
}

/// Uses the folder for the next operations. Removes orphans, and sets old times to now.
void Bench::take_what_is_there() {
  const reader::FolderState state = reader::look_at(folder());
  Model model;
  std::set<std::string> named;
  for (const auto& [key, stored] : state.lines) {
    const std::string file = reader::file_of(key, stored);
    named.insert(file);
    const auto old = m_place->model.entries.find(key);
    const bool is_known = state.files.size() > kReadWhole && old != m_place->model.entries.end() &&
                          old->second.stored == stored && old->second.content.empty() &&
                          state.files.count(file) != 0 && state.files.at(file) == 0;
    model.entries[key] = {stored, is_known ? std::string() : read_file(folder() + "\\" + file)};
  }
  m_place->dead.clear();
  for (const auto& [key, stored] : reader::all_lines(reader::text_of_index(state.index_text))) {
    if (state.lines.count(key) == 0) m_place->dead.emplace(key, stored);
  }
  for (const auto& [file, size] : state.files) {
    if (named.count(file) == 0) std::filesystem::remove(native(folder() + "\\" + file));
  }
  for (const std::string& file : m_aged) {
    if (named.count(file) != 0) set_modify_time(folder() + "\\" + file, std::time(nullptr));
  }
  const std::string& counter = state.counter_text;
  if (counter.size() < 8 || counter.find_first_not_of("0123456789") != std::string::npos) {
    wrong("counter", "it reads \"" + counter + "\"");
    write_file(folder() + "\\index", "50000000");
    model.counter = 50'000'000;
  } else {
    model.counter = std::stoll(counter);
  }
  m_place->model = std::move(model);
}

/// Otherwise the same corruption would be found again and again.
void Bench::begin_anew() {
  std::filesystem::remove_all(native(folder()));
  std::erase_if(m_places, [&](const auto& each) { return each.get() == m_place; });
}

/// args: the number of the file system; a seed; the number of crashes; seconds or 0; "flushes" or
/// "faulty". Prints "refused WHY", or for each crash any number of "harm KIND<tab>WHAT" and then
/// "crash OPERATIONS", or "unmountable WHY".
int power_cut_bench(const std::vector<std::string>& args) {
  ::prctl(PR_SET_PDEATHSIG, SIGKILL);
  LoopDisk disk(kKinds[std::stoul(args.at(0))]);
  if (!disk.refusal().empty()) {
    say("refused " + disk.name() + ": " + disk.refusal());
    return 0;
  }
  const auto deadline = Clock::now() + std::chrono::seconds(std::stol(args.at(3)));
  Bench bench(disk, std::stoull(args.at(1)), args.at(4) == "flushes");
  try {
    for (std::uint64_t left = std::stoull(args.at(2)); left != 0; --left) {
      if (args.at(3) != "0" && Clock::now() > deadline) break;
      bench.operations = 0;
      bench.until_the_power_goes();
      const std::string failure = disk.start_again();
      if (!failure.empty()) {
        // A defect of the kernel or the file system; its content cannot be checked.
        say("unmountable " + failure);
        const std::string failed = disk.make_anew();
        if (!failed.empty()) throw std::runtime_error(failed);
        bench.forget();
        continue;
      }
      bench.harm.clear();
      bench.judge();
      for (const Harm& each : bench.harm) say("harm " + each.kind + "\t" + each.what);
      say("crash " + std::to_string(bench.operations));
    }
  } catch (const std::exception& e) {
    say("failed "s + e.what());
  }
  return 0;
}
REGISTER_ROLE(power_cut_bench, power_cut_bench)

}  // namespace

std::size_t kinds_of_disk() { return std::size(kKinds); }
std::string name_of_disk(std::size_t number) { return kKinds[number].name; }

}  // namespace reliability
