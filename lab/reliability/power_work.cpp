#include "lab/reliability/power_work.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>

#include "lab/reliability/folder_state.h"
#include "lab/reliability/kill_model.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "vu_storage.h"

namespace reliability {
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

PowerScene power_scene(std::uint64_t round, std::mt19937_64& random) {
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
  PowerScene scene;
  scene.operations = 5;
  scene.synchronize = random() % 3 == 0;
  scene.folder = "storage/user/owner/";
  if (round % kLargeTurn == kLargeTurn - 1) {
    scene.kind = IndexKind::kLongLines;
    scene.size = 10'000'000;
    scene.operations = 3;
    scene.is_large = true;
  } else if (round % kMailTurn == kMailTurn - 1) {
    scene.folder = "storage/mail/anna/";
    scene.kind = round % 2 == 0 ? IndexKind::kNone : IndexKind::kLines;
    scene.size = round % 2 == 0 ? 0 : 400;
    scene.operations = 2;
    scene.is_mail = true;
  } else {
    const auto& [kind, size] = kScenes[round % kScenes.size()];
    scene.kind = kind;
    scene.size = size;
    static constexpr std::size_t kStrays[] = {0, 3, 0, 14};
    scene.strays = kStrays[random() % 4];
  }
  return scene;
}

PowerWork::PowerWork(const std::string& root, const PowerScene& scene, std::mt19937_64& random)
    : m_root(root), m_scene(scene), m_random(random) {
  make_folder(folder());
  fill();
  if (scene.is_mail) fill_mails();
}

PowerWork::PowerWork(const std::string& root, const PowerScene& scene, std::mt19937_64& random,
                     const Tree& tree)
    : m_root(root), m_scene(scene), m_random(random) {
  const auto file_called = [&](const std::string& name) {
    const auto found = tree.find(scene.folder + name);
    return found == tree.end() ? nullptr : &found->second;
  };
  const std::string* const index = file_called("index.dat");
  if (index != nullptr) m_lines = all_lines(text_of_index(*index));
  for (auto line = m_lines.begin(); line != m_lines.end();) {
    const std::string* file = file_called(file_of(line->first, line->second));
    if (file == nullptr) file = file_called(line->second);
    const bool counts = file != nullptr && !line->second.empty();
    if (counts) m_known[line->first] = *file;
    line = counts ? std::next(line) : m_lines.erase(line);
  }
  for (std::size_t mail = 0; scene.is_mail && mail < kMails; ++mail) {
    const std::string* const file = file_called(escaped(mail));
    if (file != nullptr) m_mails.emplace_back(escaped(mail), *file);
  }
}

std::string PowerWork::folder() const {
  std::string path = m_root + "\\" + m_scene.folder.substr(0, m_scene.folder.size() - 1);
  std::replace(path.begin(), path.end(), '/', '\\');
  return path;
}

std::string PowerWork::some_text() {
  return text_number(m_random() % 1'000'000'000,
                     m_random() % 4 == 0 ? m_random() % 4000 : m_random() % 150);
}

/// No two are alike, whoever asks.
std::string PowerWork::new_name() {
  std::size_t length = m_random() % 40;
  if (m_scene.kind == IndexKind::kLongLines && m_random() % 2 == 0)
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
  const IndexKind kind = m_scene.kind;
  Lines lines;
  std::uint64_t number = 0;
  const auto add = [&](const std::string& name, long stamp) {
    const std::string key = key_for(name, stamp);
    lines[key] = numbered(++number);
    m_known[key] = some_text();
    write_file(folder() + "\\" + numbered(number) + ".kdb", m_known[key]);
    return key.size() + 10;
  };
  const bool has_one = kind == IndexKind::kOneLine || kind == IndexKind::kForeignTail ||
                       kind == IndexKind::kJunkTail;
  if (has_one) add("kept.kdb", 1);
  for (std::size_t written = 0, i = 1; written < m_scene.size; ++i) {
    std::size_t length = i % 7 == 0 ? m_random() % 400 : m_random() % 20;
    if (kind == IndexKind::kLongLines) length = 450 + m_random() % 3000;
    written += add("kept " + std::to_string(i) + std::string(length, 'x') + ".kdb", 1);
  }
  std::string text = index_text_of(lines);
  if (kind == IndexKind::kForeignTail) text.pop_back();
  if (kind == IndexKind::kJunkTail) text += "junk";
  if (kind == IndexKind::kNoBytes) text.clear();
  if (kind != IndexKind::kNone) write_file(folder() + "\\index.dat", text);
  if (number != 0) write_file(folder() + "\\index", numbered(number));
  for (std::size_t i = 0; i < m_scene.strays; ++i) {
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
  if (m_scene.is_mail && !m_is_converted && (m_lines.empty() || m_random() % 2 == 0)) {
    return convert();
  }
  PowerStep step;
  switch (m_random() % (m_known.empty() ? 4 : 10)) {
    case 0:
      step = write(key_for(new_name(), 2));
      break;
    case 1:
      step = save_keys();
      break;
    case 2:
      step = adopt();
      break;
    case 3:
    case 4:
      step = make();
      break;
    case 5:
      step = write(some_key());
      break;
    case 6:
      step = clean();
      break;
    case 7:
      step = rename();
      break;
    default:
      step = remove();
      break;
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
  return {{{key_for(name, 3), std::string()}}, {}, 0};
}

PowerStep PowerWork::write(const std::string& key) {
  const auto [name, stamp] = parts_of_key(key);
  PowerStep step{{{key, some_text()}}, {}, 0};
  vu_storage storage;
  vu_file file;
  const bool is_mail = m_scene.is_mail;
  storage.OpenWrite(file, is_mail ? "anna" : "owner", name,
                    is_mail ? STG::MailRepository : STG::UserRepository, true, stamp);
  storage.Write(file, *step.result[key]);
  storage.Close(file);
  return step;
}

PowerStep PowerWork::remove() {
  const std::string key = some_key();
  const auto [name, stamp] = parts_of_key(key);
  STGIndex::remove(folder(), name, stamp);
  return {{{key, std::nullopt}}, {}, 0};
}

PowerStep PowerWork::rename() {
  const std::string from = some_key();
  const std::string text = m_known[from];
  std::string to = some_key();
  if (to == from || m_random() % 3 != 0) to = key_for(new_name(), 5);
  const auto [old_name, old_stamp] = parts_of_key(from);
  const auto [name, stamp] = parts_of_key(to);
  STGIndex::rename(folder(), old_name, old_stamp, name, stamp);
  return {{{from, std::nullopt}, {to, text}}, {{from, to, text}}, 0};
}

PowerStep PowerWork::save_keys() {
  if (m_scene.is_mail) return make();
  STG::NameValueSeq lines;
  lines.push_back({"line " + std::to_string(m_random() % 1'000'000), "1"});
  vu_storage::saveUserOrMasterProfile("owner", "list.ctg", lines);
  return {{{key_for("list.ctg", 0), vu_storage::getStringFromNameValueSeq(lines)}}, {}, 0};
}

/// All files that no line names, whatever the switch says otherwise.
PowerStep PowerWork::adopt() {
  STGIndex::setSynchronizeMode(true);
  STGIndex::updateIndexFile(folder());
  STGIndex::setSynchronizeMode(m_scene.synchronize);
  return {};
}

PowerStep PowerWork::clean() {
  PowerStep step;
  const std::int64_t now = static_cast<std::int64_t>(std::time(nullptr));
  const Lines lines = all_lines(text_of_index(read_file(folder() + "\\index.dat")));
  for (std::uint64_t left = 1 + m_random() % 4; left != 0; --left) {
    const std::string key = some_key();
    const auto line = lines.find(key);
    if (line == lines.end()) continue;
    set_modify_time(folder() + "\\" + file_of(key, line->second), now - 10 * kOldAge);
  }
  // What was made old before goes as well.
  for (const auto& [key, text] : m_known) {
    const auto line = lines.find(key);
    if (line == lines.end()) continue;
    const std::string path = folder() + "\\" + file_of(key, line->second);
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
      step.moves.push_back({key_for(name, 0), key_for(unescaped(mail), 0), text});
      step.result[key_for(name, 0)] = std::nullopt;
    }
  }
  STGIndex::migrateInboxRead("anna");
  // The list of read mails is written anew.
  const std::string list = key_for("read.txt", 0);
  const Lines lines = all_lines(text_of_index(read_file(folder() + "\\index.dat")));
  if (lines.count(list) != 0) {
    step.result[list] = read_file(folder() + "\\" + file_of(list, lines.at(list)));
  }
  return step;
}

// ---- questions ----------------------------------------------------------------------------------

std::string PowerWork::ask_the_library() const {
  std::size_t asked = 0;
  for (auto it = m_lines.rbegin(); it != m_lines.rend() && asked < 8; ++it, ++asked) {
    const auto [name, stamp] = parts_of_key(it->first);
    std::string physical;
    const bool is_there = STGIndex::exists(folder(), name, stamp, physical);
    // The file that a rename replaced is found by its very name while its removal is not on the
    // disk.
    if (is_there && physical == name) continue;
    if (!is_there || (physical != file_of(it->first, it->second) && physical != it->second)) {
      return it->first;
    }
  }
  return {};
}

}  // namespace reliability
