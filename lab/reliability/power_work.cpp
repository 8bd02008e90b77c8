#include "lab/reliability/power_work.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <utility>

#include "lab/reader/index_reader.h"
#include "lab/reliability/kills.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

namespace reliability {
namespace {

constexpr auto kNone = std::string_view::npos;

/// Whether @p text is @p other, followed by bytes that no reader treats as an entry.
bool is_text_and_junk(std::string_view text, std::string_view other) {
  return text.starts_with(other) && (other.empty() || other.back() == '\n') &&
         text.find('/', other.size()) == kNone;
}

const std::string* stored_in(const reader::Lines& lines, const std::string& key) {
  const auto found = lines.find(key);
  return found == lines.end() ? nullptr : &found->second;
}

bool has(const LineViews& lines, std::string_view key, std::string_view stored) {
  const auto found = lines.find(key);
  return found != lines.end() && found->second == stored;
}

LineViews views_in(std::string_view text) {
  LineViews lines;
  reader::visit_lines(
      text, [&](std::string_view key, std::string_view stored) { lines.emplace(key, stored); });
  return lines;
}

}  // namespace

IndexText::IndexText(std::string whole)
    : text(std::make_shared<const std::string>(std::move(whole))), lines(views_in(*text)) {}

LineViews views_of(const reader::Lines& lines) { return {lines.begin(), lines.end()}; }

std::string shortened(std::string_view name) {
  std::string text(name.substr(0, 60));
  if (name.size() > 60) {
    text = std::string(name.substr(0, 30)) + "..." + std::string(name.substr(name.size() - 27));
  }
  std::replace_if(
      text.begin(), text.end(), [](char c) { return c >= 0 && c < ' '; }, '?');
  return text;
}

Harm difference(const LineViews& found, const LineViews& before, const LineViews& after) {
  for (const auto& [key, stored] : found) {
    if (has(before, key, stored) || has(after, key, stored)) continue;
    const bool is_known = before.count(key) != 0 || after.count(key) != 0;
    return {is_known ? "redirected" : "invented", shortened(key) + " / " + shortened(stored)};
  }
  for (const auto& [key, stored] : before) {
    if (has(after, key, stored) && found.count(key) == 0) return {"lost", shortened(key)};
  }
  return {"between", std::to_string(found.size()) + " lines, " + std::to_string(before.size()) +
                         " before and " + std::to_string(after.size()) + " after"};
}

Harm judge_index(std::string_view bytes, const IndexText& before, const IndexText& after) {
  const std::string text = reader::text_of_index(bytes);
  for (const IndexText* each : {&before, &after}) {
    if (text == *each->text || is_text_and_junk(text, *each->text)) return {};
  }
  const LineViews lines = views_in(text);
  if (lines == before.lines || lines == after.lines) return {};
  return difference(lines, before.lines, after.lines);
}

void Promise::begin(const PowerStep& step) {
  for (const auto& [key, text] : step.result) m_in_motion.insert(key);
  m_moves = step.moves;
}

void Promise::end(const PowerStep& step) {
  for (const auto& [key, text] : step.result) {
    m_in_motion.erase(key);
    if (text) {
      m_kept[key] = *text;
    } else {
      m_kept.erase(key);
    }
  }
  m_moves.clear();
}

Harm Promise::judge(const Tree& tree, const std::string& folder) const {
  const auto index = tree.find(folder + "index.dat");
  const reader::Lines lines = index == tree.end()
                                  ? reader::Lines()
                                  : reader::all_lines(reader::text_of_index(index->second));
  const auto file_called = [&](const std::string& name) -> const std::string* {
    const auto found = tree.find(folder + name);
    return found == tree.end() ? nullptr : &found->second;
  };
  const auto file_behind = [&](const std::string& key) -> const std::string* {
    const std::string* const stored = stored_in(lines, key);
    if (stored == nullptr) return nullptr;
    const std::string* const file = file_called(reader::file_of(key, *stored));
    return file != nullptr ? file : file_called(*stored);
  };
  for (const auto& [key, text] : m_kept) {
    if (m_in_motion.count(key) != 0) continue;
    const std::string* const file = file_behind(key);
    if (file == nullptr) {
      return {"lost", (lines.count(key) == 0 ? "the line of " : "the file of ") + shortened(key)};
    }
    if (*file != text) return {"other bytes", shortened(key)};
  }
  for (const PowerStep::Move& move : m_moves) {
    const auto [logical, stamp] = reader::parts_of_key(move.from);
    bool is_there = false;
    for (const std::string* file : {stamp == 0 ? file_called(logical) : nullptr,
                                    file_behind(move.from), file_behind(move.to)}) {
      is_there = is_there || (file != nullptr && *file == move.text);
    }
    if (!is_there) return {"neither name", shortened(move.from) + " to " + shortened(move.to)};
  }
  return {};
}

// ------------------------------------------------------------------------------------------------

namespace {

constexpr std::uint64_t kMailTurn = 7;
constexpr std::uint64_t kLargeTurn = 64;
constexpr std::size_t kMails = 6;
constexpr long kOldAge = 100'000;

std::string numbered(std::uint64_t number) {
  char digits[24];
  std::snprintf(digits, sizeof digits, "%08llu", static_cast<unsigned long long>(number));
  return digits;
}

std::string escaped(std::size_t mail) {
  return "f4#f5#from#subject%20" + std::to_string(100 + mail) + ".kdb";
}
std::string unescaped(std::size_t mail) {
  return "f4#f5#from#subject " + std::to_string(100 + mail) + ".kdb";
}

}  // namespace

PowerScenario power_scene(std::uint64_t round, std::mt19937_64& random) {
  static constexpr std::array<std::pair<IndexKind, std::size_t>, 13> kScenes = {
      {{IndexKind::kLines, 1500},
       {IndexKind::kLines, 300},
       {IndexKind::kOneLine, 0},
       {IndexKind::kLines, 6000},
       {IndexKind::kLongLines, 5000},
       {IndexKind::kForeignTail, 1000},
       {IndexKind::kNone, 0},
       {IndexKind::kLines, 2500},
       {IndexKind::kBlank, 0},
       {IndexKind::kLongLines, 20'000},
       {IndexKind::kForeignTail, 0},
       {IndexKind::kNoBytes, 0},
       {IndexKind::kJunkTail, 900}}};
  PowerScenario scenario;
  scenario.operations = 5;
  scenario.synchronize = random() % 3 == 0;
  scenario.folder = "storage/user/owner/";
  if (round % kLargeTurn == kLargeTurn - 1) {
    scenario.kind = IndexKind::kLongLines;
    scenario.size = 10'000'000;
    scenario.operations = 3;
    scenario.is_large = true;
  } else if (round % kMailTurn == kMailTurn - 1) {
    scenario.folder = "storage/mail/anna/";
    scenario.kind = round % 2 == 0 ? IndexKind::kNone : IndexKind::kLines;
    scenario.size = round % 2 == 0 ? 0 : 400;
    scenario.operations = 2;
    scenario.is_mail = true;
  } else {
    const auto& [kind, size] = kScenes[round % kScenes.size()];
    scenario.kind = kind;
    scenario.size = size;
    static constexpr std::size_t kStrays[] = {0, 3, 0, 14};
    scenario.strays = kStrays[random() % 4];
  }
  return scenario;
}

PowerWork::PowerWork(const std::string& root, const PowerScenario& scenario,
                     std::mt19937_64& random)
    : m_root(root), m_scenario(scenario), m_random(random) {
  make_folder(folder());
  fill();
  if (scenario.is_mail) fill_mails();
}

PowerWork::PowerWork(const std::string& root, const PowerScenario& scenario,
                     std::mt19937_64& random, const Tree& tree)
    : m_root(root), m_scenario(scenario), m_random(random) {
  const auto file_called = [&](const std::string& name) {
    const auto found = tree.find(scenario.folder + name);
    return found == tree.end() ? nullptr : &found->second;
  };
  const std::string* const index = file_called("index.dat");
  if (index != nullptr) m_lines = reader::all_lines(reader::text_of_index(*index));
  for (auto line = m_lines.begin(); line != m_lines.end();) {
    const std::string* file = file_called(reader::file_of(line->first, line->second));
    if (file == nullptr) file = file_called(line->second);
    const bool counts = file != nullptr && !line->second.empty();
    if (counts) m_known[line->first] = *file;
    line = counts ? std::next(line) : m_lines.erase(line);
  }
  for (std::size_t mail = 0; scenario.is_mail && mail < kMails; ++mail) {
    const std::string* const file = file_called(escaped(mail));
    if (file != nullptr) m_mails.emplace_back(escaped(mail), *file);
  }
}

std::string PowerWork::folder() const {
  std::string path = m_root + "\\" + m_scenario.folder.substr(0, m_scenario.folder.size() - 1);
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

std::string PowerWork::some_text() {
  return text_number(m_random() % 1'000'000'000,
                     m_random() % 4 == 0 ? m_random() % 4000 : m_random() % 150);
}

/// Names are unique; no state is needed for that.
std::string PowerWork::new_name() {
  std::size_t length = m_random() % 40;
  if (m_scenario.kind == IndexKind::kLongLines && m_random() % 2 == 0)
    length = 500 + m_random() % 3000;
  if (m_random() % 20 == 0) length = 511;
  return "n" + std::to_string(m_random() % 1'000'000'000'000) + std::string(length, 'y') + ".kdb";
}

std::string PowerWork::some_key() {
  if (m_known.empty()) return {};
  auto it = m_known.begin();
  std::advance(it, static_cast<std::ptrdiff_t>(m_random() % m_known.size()));
  return it->first;
}

void PowerWork::fill() {
  const IndexKind kind = m_scenario.kind;
  reader::Lines lines;
  std::uint64_t number = 0;
  const auto add = [&](const std::string& name, long stamp) {
    const std::string key = reader::key_for(name, stamp);
    lines[key] = numbered(++number);
    m_known[key] = some_text();
    write_file(folder() + "\\" + numbered(number) + ".kdb", m_known[key]);
    return key.size() + 10;
  };
  const bool has_one = kind == IndexKind::kOneLine || kind == IndexKind::kForeignTail ||
                       kind == IndexKind::kJunkTail;
  if (has_one) add("kept.kdb", 1);
  for (std::size_t written = 0, i = 1; written < m_scenario.size; ++i) {
    std::size_t length = i % 7 == 0 ? m_random() % 400 : m_random() % 20;
    if (kind == IndexKind::kLongLines) length = 450 + m_random() % 3000;
    written += add("kept " + std::to_string(i) + std::string(length, 'x') + ".kdb", 1);
  }
  std::string text = reader::index_text_of(lines);
  if (kind == IndexKind::kForeignTail) text.pop_back();
  if (kind == IndexKind::kJunkTail) text += "junk";
  if (kind == IndexKind::kNoBytes) text.clear();
  if (kind != IndexKind::kNone) write_file(folder() + "\\index.dat", text);
  if (number != 0) write_file(folder() + "\\index", numbered(number));
  for (std::size_t i = 0; i < m_scenario.strays; ++i) {
    write_file(folder() + "\\stray" + std::to_string(i) + ".kdb", some_text());
  }
}

void PowerWork::fill_mails() {
  std::string list;
  for (std::size_t mail = 0; mail < kMails; ++mail) {
    m_mails.emplace_back(escaped(mail), text_number(mail, 100 + 300 * mail));
    write_file(folder() + "\\" + escaped(mail), m_mails.back().second);
    list += "from\tsubject%20" + std::to_string(100 + mail) + "\tB\tf4\tf5\tf6\t\n";
  }
  write_file(folder() + "\\read.txt", list);
}

// ---- operations ---------------------------------------------------------------------------------

PowerStep PowerWork::operate() {
  if (m_scenario.is_mail && !m_is_converted && (m_lines.empty() || m_random() % 2 == 0)) {
    return convert();
  }
  PowerStep step;
  switch (m_random() % (m_known.empty() ? 4 : 10)) {
    case 0: step = write(reader::key_for(new_name(), 2)); break;
    case 1: step = save_keys(); break;
    case 2: step = adopt(); break;
    case 3:
    case 4: step = make(); break;
    case 5: step = write(some_key()); break;
    case 6: step = clean(); break;
    case 7: step = rename(); break;
    default: step = remove(); break;
  }
  for (const auto& [key, text] : step.result) {
    if (text) {
      m_known[key] = *text;
    } else {
      m_known.erase(key);
    }
  }
  return step;
}

PowerStep PowerWork::make() {
  const std::string name = new_name();
  STGIndex::create(folder(), name, 3);
  return {{{reader::key_for(name, 3), std::string()}}, {}, 0};
}

PowerStep PowerWork::write(const std::string& key) {
  const auto [name, stamp] = reader::parts_of_key(key);
  PowerStep step{{{key, some_text()}}, {}, 0};
  vu_storage storage;
  vu_file file;
  const bool is_mail = m_scenario.is_mail;
  storage.OpenWrite(file, is_mail ? "anna" : "owner", name,
                    is_mail ? STG::MailRepository : STG::UserRepository, true, stamp);
  storage.Write(file, *step.result[key]);
  storage.Close(file);
  return step;
}

PowerStep PowerWork::remove() {
  const std::string key = some_key();
  const auto [name, stamp] = reader::parts_of_key(key);
  STGIndex::remove(folder(), name, stamp);
  return {{{key, std::nullopt}}, {}, 0};
}

PowerStep PowerWork::rename() {
  const std::string from = some_key();
  const std::string text = m_known[from];
  std::string to = some_key();
  if (to == from || m_random() % 3 != 0) to = reader::key_for(new_name(), 5);
  const auto [old_name, old_stamp] = reader::parts_of_key(from);
  const auto [name, stamp] = reader::parts_of_key(to);
  STGIndex::rename(folder(), old_name, old_stamp, name, stamp);
  return {{{from, std::nullopt}, {to, text}}, {{from, to, text}}, 0};
}

PowerStep PowerWork::save_keys() {
  if (m_scenario.is_mail) return make();
  STG::NameValueSeq lines;
  lines.push_back({"line " + std::to_string(m_random() % 1'000'000), "1"});
  vu_storage::saveUserOrMasterProfile("owner", "list.ctg", lines);
  return {{{reader::key_for("list.ctg", 0), vu_storage::getStringFromNameValueSeq(lines)}}, {}, 0};
}

/// Adopts all orphans, also with synchronisation off.
PowerStep PowerWork::adopt() {
  STGIndex::setSynchronizeMode(true);
  STGIndex::updateIndexFile(folder());
  STGIndex::setSynchronizeMode(m_scenario.synchronize);
  return {};
}

PowerStep PowerWork::clean() {
  PowerStep step;
  const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr));
  const reader::Lines lines =
      reader::all_lines(reader::text_of_index(read_file(folder() + "\\index.dat")));
  for (std::uint64_t left = 1 + m_random() % 4; left != 0; --left) {
    const std::string key = some_key();
    const auto line = lines.find(key);
    if (line == lines.end()) continue;
    set_modify_time(folder() + "\\" + reader::file_of(key, line->second), now - 10 * kOldAge);
  }
  // The clean also removes what was already old.
  for (const auto& [key, text] : m_known) {
    const auto line = lines.find(key);
    if (line == lines.end()) continue;
    const std::string path = folder() + "\\" + reader::file_of(key, line->second);
    if (file_exists(path) && now - get_modify_time(path) > kOldAge) step.result[key] = std::nullopt;
  }
  STGIndex::AgeMap kept;
  STGIndex::cleanOutOfDateOutput(folder(), static_cast<unsigned long>(kOldAge), kept, false);
  return step;
}

PowerStep PowerWork::convert() {
  m_is_converted = true;
  PowerStep step;
  for (std::size_t mail = 0; mail < kMails; ++mail) {
    for (const auto& [name, text] : m_mails) {
      if (name != escaped(mail)) continue;
      step.moves.push_back({reader::key_for(name, 0), reader::key_for(unescaped(mail), 0), text});
      step.result[reader::key_for(name, 0)] = std::nullopt;
    }
  }
  STGIndex::migrateInboxRead("anna");
  // The migration writes the read list again.
  const std::string list = reader::key_for("read.txt", 0);
  const reader::Lines lines =
      reader::all_lines(reader::text_of_index(read_file(folder() + "\\index.dat")));
  if (lines.count(list) != 0) {
    step.result[list] = read_file(folder() + "\\" + reader::file_of(list, lines.at(list)));
  }
  return step;
}

// ---- lookups ------------------------------------------------------------------------------------

std::string PowerWork::ask_the_library() const {
  std::size_t asked = 0;
  for (auto it = m_lines.rbegin(); it != m_lines.rend() && asked < 8; ++it, ++asked) {
    const auto [name, stamp] = reader::parts_of_key(it->first);
    std::string physical;
    const bool is_there = STGIndex::exists(folder(), name, stamp, physical);
    // The removal of a replaced file may be missing on the disk. The library then finds that file.
    if (is_there && physical == name) continue;
    if (!is_there ||
        (physical != reader::file_of(it->first, it->second) && physical != it->second)) {
      return it->first;
    }
  }
  return {};
}

}  // namespace reliability
