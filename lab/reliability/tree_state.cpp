#include "lab/reliability/tree_state.h"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <set>

#include "tests/support/scratch.h"

namespace reliability {
namespace {

/// If the owner's folder cannot be created, a writing operation continues in the area's folder.
constexpr const char* kAreaIndex = "storage/user/index.dat";

/// A torn write writes at most this number of bytes.
constexpr std::size_t kTornBytes = 5;

/// A migration truncates this file, and then writes the same bytes.
constexpr const char* kReadList = "read.txt";

std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash + 1);
}
std::string name_of(const std::string& path) { return path.substr(parent_of(path).size()); }

bool is_folder(const std::string& path) { return path.back() == '/'; }

/// Whether a name is a number of a counter, with or without an extension.
bool is_number(const std::string& name) {
  const std::string stem = name.substr(0, name.find('.'));
  return stem.size() >= 8 && stem.find_first_not_of("0123456789") == std::string::npos;
}

/// Compares two numbers that are texts of digits.
bool is_lower(const std::string& one, const std::string& other) {
  return one.size() != other.size() ? one.size() < other.size() : one < other;
}

const std::string* find(const Tree& tree, const std::string& path) {
  const auto found = tree.find(path);
  return found == tree.end() ? nullptr : &found->second;
}

bool same(const std::string* one, const std::string* other) {
  return one == nullptr || other == nullptr ? one == other : *one == *other;
}

reader::Files files_in(const Tree& tree, const std::string& folder) {
  reader::Files files;
  for (auto it = tree.upper_bound(folder); it != tree.end() && it->first.starts_with(folder);
       ++it) {
    std::string name = it->first.substr(folder.size());
    if (is_folder(name)) name.pop_back();
    if (name.find('/') == std::string::npos && name != "index.dat" && name != "index") {
      files[name] = it->second.size();
    }
  }
  return files;
}

class Comparison {
 public:
  Comparison(const Tree& before, const Tree& after, const Tree& now, Disturbance by)
      : m_before(before), m_after(after), m_now(now), m_by(by) {}

  TreeFindings run() {
    std::set<std::string> paths;
    for (const Tree* tree : {&m_before, &m_after, &m_now}) {
      for (const auto& [path, bytes] : *tree) paths.insert(path);
    }
    for (const std::string& path : paths) {
      if (is_folder(path)) {
        check_folder(path);
      } else if (name_of(path) == "index.dat") {
        check_index(path);
      } else if (name_of(path) == "index") {
        check_counter(path);
      } else {
        check_file(path);
      }
    }
    check_moved();
    return std::move(m_found);
  }

 private:
  void wrong(const std::string& what) { m_found.wrong.push_back(what); }
  void window(const std::string& what) { m_found.windows.push_back(what); }

  /// Whether the operation may have treated files as missing, or may have removed them.
  bool may_miss_files() const { return m_by == Disturbance::kLie || m_by == Disturbance::kNoAge; }

  void check_folder(const std::string& path) {
    const bool was = m_before.count(path) != 0;
    const bool will_be = m_after.count(path) != 0;
    const bool is = m_now.count(path) != 0;
    if (is && !was && !will_be) wrong("a folder that no operation creates: " + path);
    if (!is && was && will_be && m_by == Disturbance::kNoAge) {
      return window("a folder of a document that was removed");
    }
    if (!is && was && will_be) wrong("a folder is gone: " + path);
  }

  void check_file(const std::string& path) {
    const std::string* const was = find(m_before, path);
    const std::string* const will_be = find(m_after, path);
    const std::string* const is = find(m_now, path);
    if (same(is, was) || same(is, will_be)) return;
    if (same(was, will_be) && was != nullptr) {
      if (m_by == Disturbance::kNoAge && is == nullptr) {
        return window("removed as too old, because its age is unknown");
      }
      if (name_of(path) == kReadList && is != nullptr && was->starts_with(*is)) {
        return window("the read list of mails, empty or cut short");
      }
      wrong((is == nullptr ? "gone, but the operation does not concern it: "
                           : "changed, but the operation does not concern it: ") +
            path);
    } else if (is == nullptr) {
      wrong("gone: " + path);
    } else if (will_be != nullptr && will_be->starts_with(*is)) {
      window(was == nullptr ? "a new file, empty or cut short" : "a file, empty or cut short");
    } else if (was == nullptr && m_by != Disturbance::kKill && is_number(name_of(path))) {
      window("a file under another number");
      if (!is->empty() && !is_beginning_of_any(*is)) wrong("foreign bytes in " + path);
    } else if (was != nullptr && will_be != nullptr && m_by != Disturbance::kKill &&
               is_written_over(*is, *was, *will_be)) {
      window("new bytes over the old ones");
    } else {
      wrong((was == nullptr ? "a file that no operation creates: " : "foreign bytes in ") + path);
    }
  }

  /// Whether a file was written from its start without a truncation before. It then begins with a
  /// part of the new text or of the text to append. The rest of the old bytes follows.
  bool is_written_over(const std::string& is, const std::string& was,
                       const std::string& will_be) const {
    if (m_by == Disturbance::kFault || is.size() < was.size()) return false;
    const std::string appended = will_be.starts_with(was) ? will_be.substr(was.size()) : will_be;
    for (const std::string& text : {will_be, appended}) {
      for (std::size_t length = 0; length <= text.size(); ++length) {
        const std::string over = text.substr(0, length);
        const std::string begun = over + (length < was.size() ? was.substr(length) : "");
        if (is.starts_with(begun) && appended.starts_with(is.substr(begun.size()))) return true;
      }
    }
    return false;
  }

  bool is_beginning_of_any(const std::string& bytes) const {
    for (const Tree* tree : {&m_before, &m_after}) {
      for (const auto& [path, content] : *tree) {
        if (content.starts_with(bytes)) return true;
      }
    }
    return false;
  }

  void check_counter(const std::string& path) {
    const std::string* const was = find(m_before, path);
    const std::string* const will_be = find(m_after, path);
    const std::string* const is = find(m_now, path);
    if (same(is, was) || same(is, will_be)) {
      return;
    }
    if (is == nullptr) return wrong("the counter is gone: " + path);
    const bool is_cut = m_by == Disturbance::kTorn && is->size() <= kTornBytes;
    if ((is->empty() || is_cut) && was == nullptr) return window("a new counter, empty or cut");
    if (!is_number(*is)) return wrong("the counter " + path + " reads \"" + *is + "\"");
    const bool is_on_the_way =
        will_be != nullptr && is_lower(*is, *will_be) && (was == nullptr || is_lower(*was, *is));
    if (is_on_the_way) return window("one of several numbers drawn");
    if (m_by == Disturbance::kKill) return wrong("the counter jumped to " + *is + ": " + path);
    if (was != nullptr && is_lower(*is, *was) && m_by != Disturbance::kLie)
      wrong("the counter went back to " + *is + ": " + path);
    window("another number drawn");
  }

  void check_index(const std::string& path) {
    const std::string* const was = find(m_before, path);
    const std::string* const will_be = find(m_after, path);
    const std::string* const is = find(m_now, path);
    if (!same(is, was)) m_found.index_is_old = false;
    if (!same(is, will_be)) m_found.index_is_new = false;
    if (is != nullptr && same(is, will_be)) return;
    if (is == nullptr && was != nullptr && will_be != nullptr) return wrong("gone: " + path);
    if (is != nullptr && is->empty() && was != nullptr) return wrong("empty: " + path);
    if (is != nullptr && is->empty()) window("a new index without a text");
    if (is == nullptr) return;
    if (was == nullptr && will_be == nullptr && m_by == Disturbance::kKill) {
      wrong("an index that no operation creates: " + path);
    }
    if (was == nullptr && will_be == nullptr && path == kAreaIndex) {
      return window("an entry in the area's folder, because the owner's could not be determined");
    }
    if (m_by == Disturbance::kTorn && was == nullptr && is->size() <= kTornBytes) {
      return window("a new index with its first bytes only");
    }
    const reader::Lines old_lines = lines_in(m_before, path);
    const reader::Lines new_lines = lines_in(m_after, path);
    const reader::Lines lines = lines_in(m_now, path);
    check_lines(path, old_lines, new_lines, lines);
    if (m_by == Disturbance::kKill) check_set(path, *is);
    if (same(is, was)) return;
    if (reader::is_interrupted(*is))
      return window("an interrupted save that the next one completes");
    window(m_by == Disturbance::kKill ? "an index after the first of several saves"
                                      : "an index between the old entries and the new ones");
  }

  /// After a kill the entries are exactly the old or the new ones, except those whose file is gone.
  /// A reader that knows only plain lines finds no other entry.
  void check_set(const std::string& path, const std::string& is) {
    const reader::Files files = files_in(m_now, parent_of(path));
    const auto lines_of = [&](const std::string* bytes) {
      return bytes == nullptr ? reader::Lines()
                              : reader::read_index(reader::text_of_index(*bytes), files);
    };
    const reader::Lines old_lines = lines_of(find(m_before, path));
    const reader::Lines new_lines = lines_of(find(m_after, path));
    const reader::Lines lines = lines_of(&is);
    // An operation that saves twice adopts all files with the first save.
    reader::Lines adopted = old_lines;
    std::set<std::string> named;
    for (const auto& [key, stored] : old_lines) named.insert(reader::file_of(key, stored));
    for (const auto& [file, size] : files_in(m_before, parent_of(path))) {
      const bool is_stray = named.count(file) == 0 && files.count(file) != 0 &&
                            m_before.count(parent_of(path) + file + "/") == 0;
      if (is_stray) adopted.emplace(reader::key_for(file, 0), file);
    }
    if (lines != old_lines && lines != new_lines && lines != adopted) {
      wrong("neither the old entries nor the new ones in " + path);
    }
    for (const auto& [key, stored] : reader::read_index(is, files)) {
      const auto is_in = [&, &line_key = key, &line_stored = stored](const reader::Lines& all) {
        const auto found = all.find(line_key);
        return found != all.end() && found->second == line_stored;
      };
      if (!is_in(old_lines) && !is_in(new_lines) && !is_in(adopted)) {
        wrong("invented, for a reader that knows only plain lines: " + key + " in " + path);
      }
    }
  }

  void check_lines(const std::string& path, const reader::Lines& old_lines,
                   const reader::Lines& new_lines, const reader::Lines& lines) {
    for (const auto& [key, stored] : old_lines) {
      const auto kept = new_lines.find(key);
      const auto found = lines.find(key);
      const bool stays = kept != new_lines.end() && kept->second == stored;
      if (found == lines.end()) {
        if (stays && !may_miss_files()) wrong("lost: " + key + " in " + path);
      } else if (stays && found->second != stored && !may_miss_files()) {
        wrong("redirected: " + key + " to " + found->second + " in " + path);
      }
    }
    for (const auto& [key, stored] : lines) {
      const auto old_line = old_lines.find(key);
      const auto new_line = new_lines.find(key);
      const bool is_known = (old_line != old_lines.end() && old_line->second == stored) ||
                            (new_line != new_lines.end() && new_line->second == stored);
      if (is_known) continue;
      const bool has_another_number = m_by != Disturbance::kKill && is_number(stored) &&
                                      (new_line != new_lines.end() || old_line != old_lines.end());
      // With synchronisation on, an orphan becomes an entry under its own name.
      const bool is_adopted =
          key == reader::key_for(stored, 0) &&
          (m_by != Disturbance::kKill || m_before.count(parent_of(path) + stored) != 0);
      // The file of this entry was reported as missing, so the operation gave the entry a new file.
      const bool seemed_missing =
          m_by != Disturbance::kKill && is_number(stored) &&
          m_before.count(parent_of(path) + reader::parts_of_key(key).first) != 0;
      if (seemed_missing) {
        window("a new file for an entry whose file seemed to be missing");
      } else if (!has_another_number && !is_adopted) {
        wrong("invented: " + key + "/" + stored + " in " + path);
      }
    }
  }

  /// The bytes of a moved file are always in one of the two places.
  void check_moved() {
    for (const auto& [path, bytes] : m_before) {
      if (bytes.empty() || m_after.count(path) != 0 || same(find(m_now, path), &bytes)) continue;
      if (name_of(path) == "index.dat" || name_of(path) == "index") continue;
      bool is_moved = false;
      bool is_there = false;
      for (const auto& [place, content] : m_after) {
        if (content != bytes || m_before.count(place) != 0) continue;
        is_moved = true;
        is_there = is_there || same(find(m_now, place), &bytes);
      }
      if (!is_moved || is_there) continue;
      if (m_by != Disturbance::kKill && is_under_another_number(path, bytes)) continue;
      wrong("moved, but in neither place: " + path);
    }
  }

  bool is_under_another_number(const std::string& path, const std::string& bytes) const {
    return std::any_of(m_now.begin(), m_now.end(), [&](const auto& each) {
      return each.second == bytes && parent_of(each.first) == parent_of(path) &&
             is_number(name_of(each.first));
    });
  }

  const Tree& m_before;
  const Tree& m_after;
  const Tree& m_now;
  const Disturbance m_by;
  TreeFindings m_found;
};

}  // namespace

reader::Lines lines_in(const Tree& tree, const std::string& index) {
  const std::string* const text = find(tree, index);
  if (text == nullptr) return {};
  return reader::read_index(reader::text_of_index(*text), files_in(tree, parent_of(index)));
}

Tree tree_of(const std::string& root) {
  Tree tree;
  const std::filesystem::path top = native(root);
  const std::string prefix = top.generic_string();
  for (const auto& each : std::filesystem::recursive_directory_iterator(top)) {
    std::string path = each.path().generic_string().substr(prefix.size() + 1);
    if (each.is_directory()) {
      tree.emplace(path + "/", std::string());
    } else {
      tree.emplace(std::move(path), read_file(each.path().string()));
    }
  }
  return tree;
}

TreeFindings compare(const Tree& before, const Tree& after, const Tree& now, Disturbance by) {
  return Comparison(before, after, now, by).run();
}

std::string missing_in(const Tree& found, const Tree& expected) {
  for (const auto& [path, bytes] : expected) {
    const auto other = found.find(path);
    if (other == found.end()) return "without " + path;
    if (other->second != bytes) return "with other bytes in " + path + ": " + other->second;
  }
  return {};
}

std::string difference(const Tree& expected, const Tree& found) {
  std::string wrong = missing_in(found, expected);
  if (!wrong.empty()) return wrong;
  for (const auto& [path, bytes] : found) {
    if (expected.count(path) == 0) return "with " + path;
  }
  return {};
}

}  // namespace reliability
