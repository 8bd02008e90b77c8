#include <algorithm>
#include <ctime>
#include <iterator>
#include <optional>
#include <thread>

#include "lab/reliability/kills.h"

namespace reliability {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kSourceSizes[] = {700, 20'000, 300'000};
/// Seconds. A clean removes files that are older.
constexpr long kOldAge = 100'000;
/// From this size on, entries have long names. A large index then needs fewer files.
constexpr std::size_t kLargeIndex = 100'000;

std::string source_name(std::size_t number) { return "source" + std::to_string(number); }

std::string tabbed(const std::vector<std::string>& words) {
  std::string line;
  for (const std::string& each : words) line += (line.empty() ? "" : "\t") + each;
  return line;
}

}  // namespace

KillFolder::KillFolder(Run& run, std::size_t index_size, Adoption adoption, Aim aim)
    : m_run(run), m_index_size(index_size), m_adoption(adoption), m_aim(aim) {
  make_folder(folder());
  for (std::size_t i = 0; i < std::size(kSourceSizes); ++i) {
    write_file(m_scratch.path(source_name(i)), text_number(i, kSourceSizes[i]));
  }
  m_texts = std::size(kSourceSizes);
  fill(index_size);
}

std::string KillFolder::name() const {
  return std::to_string(m_index_size / 1000) + " KB, synchronisation " +
         (m_adoption == Adoption::kOn ? "on" : "off");
}

std::string KillFolder::new_name() {
  static const char* const kWords[] = {"sales", "minutes", "of the", "report old", "k", "00000001"};
  static const char* const kExtensions[] = {".kda", ".kdb", ".kdc", ".kdf", ".old.txt", ""};
  const std::size_t longest = m_index_size >= kLargeIndex ? 300 : 40;
  // A fixed width, so that no name is part of another one.
  const std::string number = std::to_string(10'000'000 + ++m_names);
  std::string name = "n" + number + " ";
  const std::size_t length = m_run.below(longest);
  while (name.size() < length) name += std::string(kWords[m_run.below(std::size(kWords))]) + " ";
  return name + "x" + kExtensions[m_run.below(std::size(kExtensions))];
}

void KillFolder::fill(std::size_t index_size) {
  m_model = Model();
  m_model.adoption = m_adoption;
  std::size_t size = 0;
  while (size < index_size) {
    const std::string key = reader::key_for(new_name(), static_cast<long>(m_run.below(100'000)));
    const std::string content = text_number(++m_texts, m_run.below(300));
    m_model.entries[key] = {m_model.next_number(), content};
    size += key.size() + 10;
    ++m_model.counter;
  }
  for (const auto& [key, entry] : m_model.entries) {
    write_file(folder() + "\\" + reader::file_of(key, entry.stored), entry.content);
  }
  char counter[32];
  std::snprintf(counter, sizeof counter, "%08lld", static_cast<long long>(m_model.counter));
  write_file(folder() + "\\index", counter);
  write_file(folder() + "\\index.dat", reader::index_text_of(m_model.lines()));
  m_text_size = size;
}

// ---- what is done -----------------------------------------------------------------------------

/// Any key except that of the category file; empty if there is no other.
std::string KillFolder::some_key(const Model& model) {
  if (model.entries.empty()) return {};
  auto it = std::next(model.entries.begin(),
                      static_cast<std::ptrdiff_t>(m_run.below(model.entries.size())));
  if (it->first == reader::key_for(kCategory, 0)) ++it;
  return it == model.entries.end() ? std::string() : it->first;
}

Kind KillFolder::some_kind(const Model& model) {
  std::size_t size = 0;
  for (const auto& [key, entry] : model.entries) size += key.size() + entry.stored.size() + 2;
  const std::uint64_t chance = m_run.below(100);
  if (chance < 12) return Kind::kWrite;
  if (chance < 20) return Kind::kCopy;
  if (chance < 26) return Kind::kSaveKeys;
  if (chance < 45) return Kind::kRename;
  const bool grow =
      size < m_index_size * 95 / 100 || (size < m_index_size * 105 / 100 && chance < 75);
  if (grow) return Kind::kCreate;
  return chance % 4 == 0 ? Kind::kForget : Kind::kRemove;
}

Operation KillFolder::some_operation(const Model& model) {
  Operation operation;
  operation.kind = some_kind(model);
  const std::string known = some_key(model);
  const bool needs_known = operation.kind == Kind::kRename || operation.kind == Kind::kRemove ||
                           operation.kind == Kind::kForget;
  if (known.empty() && needs_known) operation.kind = Kind::kCreate;

  const bool new_one =
      operation.kind == Kind::kCreate || known.empty() || (!needs_known && m_run.below(3) == 0);
  if (new_one) {
    operation.name = new_name();
    operation.stamp = static_cast<long>(m_run.below(100'000));
  } else {
    std::tie(operation.name, operation.stamp) = reader::parts_of_key(known);
  }
  operation.text_id = ++m_texts;
  operation.text_size = m_run.below(4) == 0 ? m_run.below(200'000) : m_run.below(5000);
  if (operation.kind == Kind::kCopy) {
    operation.text_id = m_run.below(std::size(kSourceSizes));
    operation.text_size = kSourceSizes[operation.text_id];
  } else if (operation.kind == Kind::kSaveKeys) {
    operation.name = kCategory;
    operation.stamp = 0;
    const std::size_t lines = 1 + m_run.below(30);
    for (std::size_t i = 0; i < lines; ++i) {
      const std::string key = some_key(model);
      operation.category_lines.push_back(key.empty() ? "nobody" : reader::parts_of_key(key).first);
    }
  } else if (operation.kind == Kind::kRename) {
    const std::string target = some_key(model);
    if (m_run.below(3) == 0 && !target.empty() && target != known) {
      std::tie(operation.new_name, operation.new_stamp) = reader::parts_of_key(target);
    } else {
      operation.new_name = new_name();
      operation.new_stamp = static_cast<long>(m_run.below(100'000));
    }
  }
  return operation;
}

/// Makes some files old. The clean removes these, and the old ones that earlier cleans left.
Operation KillFolder::clean_operation(const Model& model) {
  Operation operation;
  operation.kind = Kind::kClean;
  const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr));
  for (std::uint64_t left = 1 + m_run.below(4); left != 0; --left) {
    const std::string key = some_key(model);
    if (key.empty()) continue;
    const std::string path = folder() + "\\" + reader::file_of(key, model.entries.at(key).stored);
    if (file_exists(path)) set_modify_time(path, now - 10 * kOldAge);
  }
  const auto is_old = [&](const std::string& file) {
    const std::string path = folder() + "\\" + file;
    return file_exists(path) && now - get_modify_time(path) > kOldAge;
  };
  for (const auto& [key, entry] : model.entries) {
    const std::string file = reader::file_of(key, entry.stored);
    if (is_old(file)) operation.out_of_date.insert(file);
  }
  for (const auto& [file, bytes] : model.strays) {
    if (is_old(file)) operation.out_of_date.insert(file);
  }
  return operation;
}

std::vector<Operation> KillFolder::plan(std::size_t count, Victim victim) {
  std::vector<Operation> operations;
  Model model = m_model;
  const bool cleans = victim == Victim::kLibrary && m_run.below(10) == 0;
  for (std::size_t i = 0; i < count; ++i) {
    Operation next;
    if (victim == Victim::kFaulty) {
      next.kind = Kind::kPlainRewrite;
    } else if (cleans && i == 1) {
      next = clean_operation(m_model);
    } else {
      next = some_operation(model);
    }
    if (cleans && i == 0) {
      // The first operation must not touch the files that become old.
      next = Operation();
      next.name = new_name();
    }
    model.apply(next);
    operations.push_back(std::move(next));
  }
  return operations;
}

std::string KillFolder::command_for(const Operation& operation) const {
  const std::string stamp = std::to_string(operation.stamp);
  switch (operation.kind) {
    case Kind::kCreate: return tabbed({"create", operation.name, stamp});
    case Kind::kRemove: return tabbed({"remove", operation.name, stamp});
    case Kind::kRename:
      return tabbed({"rename", operation.name, stamp, operation.new_name,
                     std::to_string(operation.new_stamp)});
    case Kind::kClean: return tabbed({"clean", std::to_string(kOldAge)});
    case Kind::kWrite:
      return tabbed({"write", operation.name, stamp, std::to_string(operation.text_id),
                     std::to_string(operation.text_size)});
    case Kind::kCopy:
      return tabbed({"copy", operation.name, stamp,
                     m_scratch.path(source_name(static_cast<std::size_t>(operation.text_id)))});
    case Kind::kSaveKeys: {
      std::vector<std::string> words = {"keys", operation.name};
      words.insert(words.end(), operation.category_lines.begin(), operation.category_lines.end());
      return tabbed(words);
    }
    case Kind::kForget: return tabbed({"forget", operation.name, stamp});
    case Kind::kPlainRewrite: return "plain";
  }
  return {};
}

// ---- the killing --------------------------------------------------------------------------------

child_process KillFolder::start() {
  return child_process("kill_worker", {m_scratch.path(), m_adoption == Adoption::kOn ? "on" : "off",
                                       std::to_string(some_write())});
}

bool KillFolder::take_answer(child_process& worker, const Operation& operation,
                             std::chrono::milliseconds limit) {
  std::optional<std::string> answer;
  if (!m_early_answers.empty()) {
    answer = m_early_answers.front();
    m_early_answers.erase(m_early_answers.begin());
  } else {
    answer = worker.next_line(limit);
  }
  while (answer == kWriteBegins) answer = worker.next_line(limit);
  if (!answer) return false;
  const std::string expected = "done " + m_model.apply(operation);
  if (*answer != expected) {
    m_run.fail(name() + ": " + name_of(operation.kind) + " returned \"" + *answer +
               "\" instead of \"" + expected + "\"");
  }
  return true;
}

void KillFolder::sleep_for_a_part_of(Kind kind) {
  const auto known = m_microseconds.find(kind);
  const double whole = known == m_microseconds.end() ? 1000.0 : known->second;
  const double part = std::uniform_real_distribution<double>(0.0, 1.3)(m_run.random());
  std::this_thread::sleep_for(std::chrono::duration<double, std::micro>(whole * part));
}

/// The number of the write to announce; 0 for none. Saves of a large index make hundreds of writes.
std::uint64_t KillFolder::some_write() {
  if (m_aim == Aim::kAnyMoment) return 0;
  const std::uint64_t most = m_index_size >= kLargeIndex ? 9 : m_index_size >= 10'000 ? 6 : 3;
  return 1 + m_run.below(std::uint64_t{1} << m_run.below(most + 1));
}

void KillFolder::wait_for_a_write(child_process& worker, std::size_t operations) {
  while (m_early_answers.size() + 1 < operations) {
    const auto line = worker.next_line();
    if (!line || line == kWriteBegins) break;
    m_early_answers.push_back(*line);
  }
  std::this_thread::sleep_for(std::chrono::microseconds(m_run.below(400)));
}

void KillFolder::take(Findings findings, const std::string& what) {
  for (const std::string& each : findings.wrong) {
    m_run.fail(name() + ", " + what + ": " + each);
  }
  m_model = std::move(findings.now);
}

void KillFolder::kill_once(Tally& tally, Victim victim) {
  m_early_answers.clear();
  const std::vector<Operation> operations = plan(4, victim);
  child_process worker = start();
  if (worker.next_line() != "ready") return m_run.fail(name() + ": the worker does not start");
  const auto begin = Clock::now();
  std::string commands;
  for (const Operation& each : operations)
    commands += (commands.empty() ? "" : "\n") + command_for(each);
  worker.tell(commands);
  if (!take_answer(worker, operations[0], child_process::kPatience)) {
    return m_run.fail(name() + ": " + name_of(operations[0].kind) + " did not finish");
  }
  const double taken = std::chrono::duration<double, std::micro>(Clock::now() - begin).count();
  double& average = m_microseconds.emplace(operations[0].kind, taken).first->second;
  average += (taken - average) / 8;

  if (m_aim == Aim::kWrites) {
    wait_for_a_write(worker, operations.size());
  } else {
    sleep_for_a_part_of(operations[1].kind);
  }
  worker.kill();
  // Any other exit code is that of a crash before the kill.
  if (const auto code = worker.wait(); code != child_process::kKilled) {
    return m_run.fail(name() + ": " + name_of(operations[1].kind) + " and its successors: " +
                      (code ? "exit code " + std::to_string(*code) + " instead of the kill"
                            : "the worker cannot be killed"));
  }
  std::size_t ended = 1;
  while (ended < operations.size() && take_answer(worker, operations[ended], 0ms)) ++ended;
  tally.operations += ended;
  if (ended == operations.size()) return;

  const Operation& killed = operations[ended];
  // A small folder is compared completely every time, a large one every 40th time.
  const bool whole = m_index_size < 10'000 || ++m_kills % 40 == 0;
  Findings findings = check(m_model, &killed, folder(), whole ? Depth::kEveryByte : Depth::kSizes);
  ++tally.kills_by_kind[name_of(killed.kind)];
  for (const std::string& each : findings.windows) ++tally.windows[each];
  const std::string text = read_file(folder() + "\\index.dat");
  if (findings.index_is_in_the_middle && text != m_left_over) ++tally.in_the_middle;
  m_left_over = text;
  take(std::move(findings), std::string("killed ") + name_of(killed.kind));
  m_run.counted(1);
}

void KillFolder::work_undisturbed() {
  std::vector<Operation> operations = plan(3, Victim::kLibrary);
  // This one writes the index in any case.
  Operation last;
  last.name = new_name();
  operations.push_back(last);
  child_process worker = start();
  if (worker.next_line() != "ready") return m_run.fail(name() + ": the worker does not start");
  for (const Operation& each : operations) {
    worker.tell(command_for(each));
    if (!take_answer(worker, each, child_process::kPatience)) {
      return m_run.fail(name() + ": " + name_of(each.kind) + " did not finish");
    }
  }
  worker.close_input();
  expect_normal_end(m_run, worker, name() + ": an undisturbed worker");
  take(check(m_model, nullptr, folder(), Depth::kEveryByte), "undisturbed");
  if (read_file(folder() + "\\index.dat") != reader::index_text_of(m_model.lines())) {
    m_run.fail(name() + ": index.dat contains more than its entries");
  }
}

}  // namespace reliability
