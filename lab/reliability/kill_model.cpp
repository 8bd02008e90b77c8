#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <optional>
#include <utility>

#include "lab/reliability/kills.h"
#include "tests/support/scratch.h"

namespace reliability {

const char* name_of(Kind kind) {
  switch (kind) {
    case Kind::kCreate: return "create";
    case Kind::kRemove: return "remove";
    case Kind::kRename: return "rename";
    case Kind::kClean: return "clean";
    case Kind::kWrite: return "write";
    case Kind::kCopy: return "copy";
    case Kind::kSaveKeys: return "save keys";
    case Kind::kForget: return "remove with category line";
    case Kind::kPlainRewrite: return "plain rewrite";
  }
  return "?";
}

std::string text_number(std::uint64_t id, std::size_t size) {
  const std::string piece = "<" + std::to_string(id) + ">";
  std::string text;
  text.reserve(size + piece.size());
  while (text.size() < size) text += piece;
  text.resize(size);
  return text;
}

std::string Operation::text() const {
  if (category_lines.empty()) return text_number(text_id, text_size);
  std::string text;
  for (const std::string& each : category_lines) text += each + "=1\n";
  return text;
}

std::string without_line_of(const std::string& text, const std::string& entry) {
  const std::size_t at = text.find(entry);
  if (at == std::string::npos) return text;
  const std::size_t end = text.find('\n', at);
  return text.substr(0, at) + (end == std::string::npos ? "" : text.substr(end + 1));
}

reader::Lines Model::lines() const {
  reader::Lines result;
  for (const auto& [key, entry] : entries) result.emplace(key, entry.stored);
  return result;
}

std::string Model::next_number() const {
  char digits[32];
  std::snprintf(digits, sizeof digits, "%08lld", static_cast<long long>(counter + 1));
  return digits;
}

void Model::adopt() {
  if (adoption == Adoption::kOff) return;
  for (const auto& [file, content] : strays) entries[reader::key_for(file, 0)] = {file, content};
  strays.clear();
}

void Model::make(const std::string& key, const std::string& content) {
  if (const auto known = entries.find(key); known != entries.end()) {
    known->second.content = content;
    return;
  }
  adopt();
  entries[key] = {next_number(), content};
  ++counter;
}

std::string Model::apply(const Operation& operation) {
  switch (operation.kind) {
    case Kind::kCreate:
      make(operation.key(), "");
      return reader::file_of(operation.key(), entries[operation.key()].stored);
    case Kind::kWrite:
    case Kind::kCopy:
    case Kind::kSaveKeys: make(operation.key(), operation.text()); return {};
    case Kind::kRemove:
      adopt();
      entries.erase(operation.key());
      return {};
    case Kind::kForget: {
      adopt();
      entries.erase(operation.key());
      const auto category = entries.find(reader::key_for(kCategory, 0));
      if (category != entries.end()) {
        category->second.content = without_line_of(category->second.content, operation.name);
      }
      return {};
    }
    case Kind::kRename: {
      adopt();
      const std::string content = entries[operation.key()].content;
      entries.erase(operation.key());
      entries.erase(operation.new_key());
      make(operation.new_key(), content);
      return {};
    }
    case Kind::kClean:
      adopt();
      strays.clear();
      std::erase_if(entries, [&](const auto& each) {
        return operation.out_of_date.count(reader::file_of(each.first, each.second.stored)) != 0;
      });
      return {};
    case Kind::kPlainRewrite: return {};
  }
  return {};
}

// ------------------------------------------------------------------------------------------------
// Compares the folder after a kill with the folder before it. Each difference must be one that the
// killed operation may leave, at exactly that place.

namespace {

class Check {
 public:
  Check(const Model& before, const Operation* killed, const std::string& folder, Depth depth)
      : m_before(before),
        m_killed(killed),
        m_folder(folder),
        m_depth(depth),
        m_state(reader::look_at(folder)) {}

  Findings run() {
    m_found.now.adoption = m_before.adoption;
    check_index_is_there();
    check_counter();
    if (m_killed != nullptr) check_killed();
    check_strays();
    check_untouched();
    check_nothing_else();
    check_set();
    return std::move(m_found);
  }

 private:
  void wrong(const std::string& what) { m_found.wrong.push_back(what); }
  void window(const std::string& what) { m_found.windows.push_back(what); }

  bool is_there(const std::string& file) const { return m_state.files.count(file) != 0; }
  std::string content(const std::string& file) const {
    return is_there(file) ? read_file(m_folder + "\\" + file) : std::string();
  }
  /// The physical name of a valid entry.
  std::optional<std::string> stored(const std::string& key) const {
    const auto found = m_state.lines.find(key);
    return found == m_state.lines.end() ? std::nullopt : std::optional(found->second);
  }

  const Entry* known(const std::string& key) const {
    const auto found = m_before.entries.find(key);
    return found == m_before.entries.end() ? nullptr : &found->second;
  }

  void holds(const std::string& key, const std::string& name, std::string bytes) {
    m_found.now.entries[key] = {name, std::move(bytes)};
  }
  void holds_stray(const std::string& file, std::string bytes) {
    m_found.now.strays[file] = std::move(bytes);
  }

  // ---- index and counter -----------------------------------------------------------------------

  void check_index_is_there() {
    if (!m_state.has_index) wrong("index.dat is gone");
    if (m_state.has_index && m_state.index_text.empty()) wrong("index.dat is empty");
  }

  bool draws_a_number() const {
    if (m_killed == nullptr) return false;
    switch (m_killed->kind) {
      case Kind::kCreate:
      case Kind::kWrite:
      case Kind::kCopy:
      case Kind::kSaveKeys: return known(m_killed->key()) == nullptr;
      case Kind::kRename: return true;
      default: return false;
    }
  }

  void check_counter() {
    const std::string& text = m_state.counter_text;
    m_found.now.counter = m_before.counter;
    if (text.size() < 8 || text.find_first_not_of("0123456789") != std::string::npos) {
      wrong("the counter reads \"" + text + "\"");
      return;
    }
    const long long number = std::stoll(text);
    m_found.now.counter = number;
    if (number < m_before.counter) wrong("the counter went back to " + text);
    if (number > m_before.counter + (draws_a_number() ? 1 : 0)) {
      wrong("the counter jumped to " + text);
    }
  }
  bool number_is_drawn() const { return m_found.now.counter > m_before.counter; }

  // ---- the killed operation ---------------------------------------------------------------------

  void check_killed() {
    switch (m_killed->kind) {
      case Kind::kCreate: check_made(""); break;
      case Kind::kWrite:
      case Kind::kCopy:
      case Kind::kSaveKeys:
        if (known(m_killed->key()) != nullptr) {
          check_overwritten();
        } else {
          check_made(m_killed->text());
        }
        break;
      case Kind::kRemove: check_removed(m_killed->key()); break;
      case Kind::kForget:
        check_removed(m_killed->key());
        check_category();
        break;
      case Kind::kRename: check_renamed(); break;
      case Kind::kClean: check_cleaned(); break;
      case Kind::kPlainRewrite: break;
    }
  }

  /// The order of a creation: number, empty file, line, content.
  void check_made(const std::string& text) {
    const std::string key = m_killed->key();
    const std::string number = m_before.next_number();
    const std::string file = reader::file_of(key, number);
    m_touched.insert(key);
    if (const auto name = stored(key)) {
      if (*name != number) wrong("the new " + key + " leads to " + *name);
      if (!number_is_drawn()) wrong("the new " + key + " has a number that is not drawn");
      const std::string bytes = content(file);
      if (!text.starts_with(bytes)) wrong("the new " + key + " contains foreign bytes");
      if (bytes != text) window("a new document, empty or cut short");
      holds(key, *name, bytes);
    } else if (is_there(file)) {
      if (!number_is_drawn()) wrong(file + " has a number that is not drawn");
      if (!content(file).empty()) wrong(file + " has no entry yet and is not empty");
      window("an empty file without an entry");
      holds_stray(file, content(file));
    } else if (number_is_drawn()) {
      window("a number drawn and not used");
    }
  }

  /// An existing document is truncated, then written.
  void check_overwritten() {
    const std::string key = m_killed->key();
    const Entry& entry = *known(key);
    m_touched.insert(key);
    if (!check_line(key, entry)) return;
    const std::string bytes = content(reader::file_of(key, entry.stored));
    const std::string text = m_killed->text();
    if (bytes != entry.content && !text.starts_with(bytes)) {
      wrong(key + " has neither its old bytes nor the beginning of the new ones");
    }
    if (bytes != entry.content && bytes != text) window("a document, empty or cut short");
    holds(key, entry.stored, bytes);
  }

  /// The file is removed first, then the line.
  void check_removed(const std::string& key) {
    m_touched.insert(key);
    const Entry* const entry = known(key);
    if (entry == nullptr) return;
    const std::string file = reader::file_of(key, entry->stored);
    if (is_there(file)) {
      if (!check_line(key, *entry)) return;
      if (content(file) != entry->content) wrong("the bytes of " + key + " have changed");
      holds(key, entry->stored, entry->content);
    } else if (m_state.index_text.find(key + "/" + entry->stored + "\n") != std::string::npos) {
      window("a dangling entry");
    }
  }

  void check_category() {
    const std::string key = reader::key_for(kCategory, 0);
    const Entry* const entry = known(key);
    if (entry == nullptr) return;
    m_touched.insert(key);
    if (!check_line(key, *entry)) return;
    const std::string bytes = content(reader::file_of(key, entry->stored));
    const std::string text = without_line_of(entry->content, m_killed->name);
    if (bytes != entry->content) {
      if (m_found.now.entries.count(m_killed->key()) != 0) {
        wrong("the category line of " + m_killed->key() + " was removed before the entry");
      }
      if (!text.starts_with(bytes)) wrong("the category file contains foreign bytes");
      if (bytes != text) window("a key file, empty or cut short");
    }
    holds(key, entry->stored, bytes);
  }

  /// The order of a rename: first the new file gets the bytes. Then the new line replaces the old
  /// one, and the line of a replaced entry. Then the old files are removed.
  void check_renamed() {
    const std::string from = m_killed->key();
    const std::string to = m_killed->new_key();
    const Entry& source = *known(from);
    const Entry* const replaced = known(to);
    m_touched.insert(from);
    m_touched.insert(to);
    const std::string number = m_before.next_number();
    const std::string new_file = reader::file_of(to, number);
    if (is_there(new_file) && !number_is_drawn()) {
      wrong(new_file + " has a number that is not drawn");
    }
    if (stored(to) == number) {
      if (content(new_file) != source.content) wrong("the bytes of " + from + " are gone");
      if (stored(from)) wrong(from + " and " + to + " are both there");
      holds(to, number, content(new_file));
      check_left_over(reader::file_of(from, source.stored), source.content);
      if (replaced != nullptr) {
        check_left_over(reader::file_of(to, replaced->stored), replaced->content);
        uncover(reader::file_of(to, replaced->stored), to);
      }
      return;
    }
    check_kept(from, source);
    if (replaced != nullptr) {
      check_kept(to, *replaced);
    } else if (stored(to)) {
      wrong("the new " + to + " leads to " + *stored(to));
    }
    if (is_there(new_file)) {
      if (!source.content.starts_with(content(new_file)))
        wrong(new_file + " contains foreign bytes");
      window("a copy without an entry, incomplete or complete");
      holds_stray(new_file, content(new_file));
    } else if (number_is_drawn()) {
      window("a number drawn and not used");
    }
  }

  /// The file of a removed entry may still be there.
  void check_left_over(const std::string& file, const std::string& bytes) {
    if (!is_there(file)) return;
    if (content(file) != bytes) wrong("the bytes of " + file + " have changed");
    window("the old file of a renamed entry");
    holds_stray(file, bytes);
  }

  /// Example: an adopted file "a.kdb" belonged to the replaced entry "a.kdb" with timestamp 0. Such
  /// a file hides the new entry of that name until the test, like an administrator, removes it.
  void uncover(const std::string& file, const std::string& key) {
    if (!is_there(file) || reader::parts_of_key(key) != std::pair(file, 0L)) return;
    window("a replaced file that hides the new entry by its name");
    std::filesystem::remove(native(m_folder + "\\" + file));
    m_found.now.strays.erase(file);
    m_uncovered = file;
  }

  void check_cleaned() {
    for (const auto& [key, entry] : m_before.entries) {
      if (m_killed->out_of_date.count(reader::file_of(key, entry.stored)) != 0) check_removed(key);
    }
    if (m_before.adoption == Adoption::kOn) return;
    // The sweep removes orphans.
    for (const auto& [file, bytes] : m_before.strays) {
      m_touched_strays.insert(file);
      if (!is_there(file)) continue;
      if (content(file) != bytes) wrong("the bytes of " + file + " have changed");
      holds_stray(file, bytes);
    }
  }

  // ---- everything else --------------------------------------------------------------------------

  bool loads_an_instance() const {
    if (m_killed == nullptr || m_killed->kind == Kind::kPlainRewrite) return false;
    const bool makes = m_killed->kind == Kind::kCreate || m_killed->kind == Kind::kWrite ||
                       m_killed->kind == Kind::kCopy || m_killed->kind == Kind::kSaveKeys;
    return !makes || known(m_killed->key()) == nullptr;
  }

  void check_strays() {
    const bool adopts = m_before.adoption == Adoption::kOn && loads_an_instance();
    for (const auto& [file, bytes] : m_before.strays) {
      if (m_touched_strays.count(file) != 0) continue;
      const std::string key = reader::key_for(file, 0);
      const bool too_old =
          adopts && m_killed->kind == Kind::kClean && m_killed->out_of_date.count(file) != 0;
      m_touched.insert(key);
      if (!is_there(file)) {
        if (!too_old) wrong(file + " is gone");
        continue;
      }
      if (m_state.files.at(file) != bytes.size()) wrong("the size of " + file + " has changed");
      const auto name = stored(key);
      if (name && adopts) {
        if (*name != file) wrong(key + " leads to " + *name);
        holds(key, file, bytes);
      } else {
        if (name) wrong(file + " was adopted, but the operation adopts nothing");
        holds_stray(file, bytes);
      }
    }
  }

  /// Whether the index still has the entry.
  bool check_line(const std::string& key, const Entry& entry) {
    const auto name = stored(key);
    if (!name) {
      wrong("lost: " + key);
    } else if (*name != entry.stored) {
      wrong("redirected: " + key + " from " + entry.stored + " to " + *name);
    }
    return name && *name == entry.stored;
  }

  void check_untouched() {
    for (const auto& [key, entry] : m_before.entries) {
      if (m_touched.count(key) == 0) check_kept(key, entry);
    }
  }

  void check_kept(const std::string& key, const Entry& entry) {
    if (!check_line(key, entry)) return;
    const std::string file = reader::file_of(key, entry.stored);
    if (!is_there(file)) {
      wrong("the file of " + key + " is gone");
    } else if (m_state.files.at(file) != entry.content.size() ||
               (m_depth == Depth::kEveryByte && content(file) != entry.content)) {
      wrong("the bytes of " + key + " have changed");
    }
    holds(key, entry.stored, entry.content);
  }

  void check_nothing_else() {
    reader::Files left = m_state.files;
    for (const auto& [key, entry] : m_found.now.entries)
      left.erase(reader::file_of(key, entry.stored));
    for (const auto& [file, bytes] : m_found.now.strays) left.erase(file);
    left.erase(m_uncovered);
    for (const auto& [file, size] : left) wrong("a file that no operation created: " + file);
    for (const auto& [key, name] : m_state.lines) {
      if (m_found.now.entries.count(key) == 0) wrong("invented: " + key + " / " + name);
    }
  }

  /// The entries are those from before or after the operation, also for readers of plain lines.
  void check_set() {
    Model after = m_before;
    if (m_killed != nullptr) after.apply(*m_killed);
    const reader::Lines then = m_before.lines();
    const reader::Lines next = after.lines();
    // Without the entries whose file the operation has already removed.
    const auto as_far_as_files_are_there = [&](const reader::Lines& lines) {
      reader::Lines result;
      for (const auto& [key, name] : lines) {
        if (is_there(reader::file_of(key, name))) result.emplace(key, name);
      }
      return result;
    };
    if (m_state.lines != as_far_as_files_are_there(then) &&
        m_state.lines != as_far_as_files_are_there(next)) {
      wrong("between: neither the entries from before nor those from after");
    }
    for (const auto& [key, name] : m_state.plain_lines) {
      if (!has(then, key, name) && !has(next, key, name) && !has(m_before.plain, key, name)) {
        wrong("invented, for a reader of plain lines: " + key + " / " + name);
      }
    }
    m_found.now.plain = m_state.plain_lines;
    m_found.index_is_in_the_middle = m_state.index_text != reader::index_text_of(then) &&
                                     m_state.index_text != reader::index_text_of(m_state.lines);
  }

  static bool has(const reader::Lines& lines, const std::string& key, const std::string& name) {
    const auto found = lines.find(key);
    return found != lines.end() && found->second == name;
  }

  const Model& m_before;
  const Operation* const m_killed;
  const std::string& m_folder;
  const Depth m_depth;
  const reader::FolderState m_state;
  std::set<std::string> m_touched;  ///< keys that are already checked
  std::set<std::string> m_touched_strays;
  std::string m_uncovered;
  Findings m_found;
};

}  // namespace

Findings check(const Model& before, const Operation* killed, const std::string& folder,
               Depth depth) {
  return Check(before, killed, folder, depth).run();
}

}  // namespace reliability
