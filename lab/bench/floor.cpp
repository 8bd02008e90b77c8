#include "lab/bench/floor.h"

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <unordered_set>
#include <vector>

#include "lab/bench/floor_index.h"
#include "lab/bench/folder.h"

namespace floor_of {
namespace {

using bare::File;
using bare::Text;
using bench::Listed;

/// Binary search. @return the position in the sorted text where a line of the key is inserted.
std::size_t place_for(std::string_view text, std::string_view key) {
  std::size_t low = 0;
  std::size_t high = text.size();
  while (low < high) {
    const std::size_t before = text.rfind('\n', low + (high - low) / 2);
    std::size_t line = before == kNone || before < low ? low : before + 1;
    const std::size_t end = end_of_line(text, line);
    if (text.substr(line, end - line) < key) {
      low = end + 1;
    } else {
      high = line;
    }
  }
  return std::min(low, text.size());
}

/// Creates the file of a new entry and inserts its line into the text. @return the file name.
std::string add_entry(const std::string& folder, const std::string& logical, long timestamp,
                      std::string& text, std::size_t& base) {
  const std::string key = bench::key_of(logical, timestamp);
  const std::string stored = next_number(folder);
  std::string name = make_file(folder, stored, logical);
  base = place_for(text, key);
  text.insert(base, key + "/" + stored + "\n");
  return name;
}

/// Removes the line of a key from the text. @return the path of its file.
std::string cut_line(const std::string& folder, const std::string& key, std::string& text,
                     std::size_t& base) {
  base = line_of(text, key);
  if (base == kNone) bare::broken("no entry", key);
  const std::string_view logical = std::string_view(key).substr(0, key.size() - kStamp);
  const std::string path = folder + "/" + file_of(stored_at(text, base, key), logical);
  text.erase(base, end_of_line(text, base) + 1 - base);
  return path;
}

// ---- lists --------------------------------------------------------------------------------------

/// An element of a list; head is the sort key.
struct Name {
  std::uint64_t head = 0;
  std::string_view stored;
  std::string_view extension;
  std::string_view logical;
};

std::uint64_t head_of(std::string_view text) {
  std::uint64_t head = 0;
  std::memcpy(&head, text.data(), std::min(text.size(), sizeof head));
  static_assert(std::endian::native == std::endian::little);
  return __builtin_bswap64(head);
}

std::vector<Name> names_of(const Index& index, std::string_view extensions) {
  const Listed files(index.folder);
  std::vector<Name> names;
  names.reserve(files.size());
  judge(index.text.view(), files,
        [&](std::string_view logical, std::string_view stored, std::string_view extension) {
          if (extensions.empty() || extensions.find(extension) != kNone)
            names.push_back({head_of(stored), stored, extension, logical});
        });
  return names;
}

/// Sorts by physical name. The names of this tree have eight digits, so the head is the whole name.
void sort(std::vector<Name>& names) {
  std::sort(names.begin(), names.end(),
            [](const Name& one, const Name& other) { return one.head < other.head; });
}

}  // namespace

// ---- questions ----------------------------------------------------------------------------------

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical) {
  if (bare::entry_exists(folder + "/" + logical)) {
    physical = logical;
    return true;
  }
  const std::string index = folder + "/index.dat";
  if (!bare::entry_exists(index)) bare::broken("no index in", folder);
  const Text text = bare::read_locked(index);
  const std::string key = bench::key_of(logical, timestamp);
  const std::size_t line = line_of(text.view(), key);
  if (line == kNone) return false;
  physical = file_of(stored_at(text.view(), line, key), logical);
  return bare::entry_exists(folder + "/" + physical);
}

bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Adoption adoption) {
  const Index index(folder);
  const std::string_view text = index.text.view();
  if (adoption == Adoption::kOn) {
    // To find orphans, all lines must be checked.
    judge_for_save(text, Listed(folder));
  }
  const std::string wanted = "\n" + logical + "_";
  timestamp = 0;
  bool found = false;
  const auto take = [&](std::size_t at) {
    const std::size_t separator = at + kStamp - 1;
    if (separator >= text.size() || text[separator] != '/') return;
    const std::string_view stored =
        text.substr(separator + 1, end_of_line(text, separator) - separator - 1);
    if (!bare::entry_exists(folder + "/" + file_of(stored, logical))) return;
    const long stamp = std::atol(std::string(text.substr(at, kStamp - 1)).c_str());
    timestamp = std::max(timestamp, stamp);
    found = true;
  };
  if (text.starts_with(std::string_view(wanted).substr(1))) take(wanted.size() - 1);
  for (std::size_t at = find(text, wanted); at != kNone; at = find(text, wanted, at + 1))
    take(at + wanted.size());
  return found;
}

void list(const std::string& folder, bare::NameMap& out, std::string_view extensions, List way) {
  out.clear();
  const Index index(folder);
  std::vector<Name> names = names_of(index, extensions);
  std::string file;
  if (way == List::kByPhysicalName) sort(names);
  for (const Name& name : names) {
    file.assign(name.stored).append(name.extension);
    if (way == List::kByPhysicalName) {
      out.emplace_hint(out.end(), file, name.logical);
    } else {
      out.emplace_hint(out.end(), name.logical, file);
    }
  }
}

void file_list(const std::string& folder, const std::vector<std::string>* wanted,
               std::vector<std::string>& logical, std::vector<std::string>& physical) {
  const Index index(folder);
  std::vector<Name> names = names_of(index, "");
  sort(names);
  std::unordered_set<std::string_view> kept;
  if (wanted != nullptr) kept.insert(wanted->begin(), wanted->end());
  logical.reserve(names.size());
  physical.reserve(names.size());
  for (const Name& name : names) {
    if (wanted != nullptr && !kept.contains(name.logical)) continue;
    logical.emplace_back(name.logical);
    physical.emplace_back(name.stored).append(name.extension);
  }
}

// ---- changes ------------------------------------------------------------------------------------

std::string create(const std::string& folder, const std::string& logical, long timestamp) {
  std::string physical;
  if (exists(folder, logical, timestamp, physical)) return physical;
  Index index(folder);
  judge_for_save(index.text.view(), Listed(folder));
  std::string text(index.text.view());
  std::size_t base = 0;
  std::string name = add_entry(folder, logical, timestamp, text, base);
  const File file = lock_for_save(index);
  replace(file, index.text.view(), text, base);
  return name;
}

void remove(const std::string& folder, const std::string& logical, long timestamp) {
  Index index(folder);
  judge_for_save(index.text.view(), Listed(folder));
  std::string text(index.text.view());
  std::size_t base = 0;
  remove_file(cut_line(folder, bench::key_of(logical, timestamp), text, base));
  const File file = lock_for_save(index);
  replace(file, index.text.view(), text, base);
}

void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp) {
  Index index(folder);
  judge_for_save(index.text.view(), Listed(folder));
  std::string text(index.text.view());
  std::size_t added = 0;
  const std::string name = add_entry(folder, new_logical, new_timestamp, text, added);
  std::size_t removed = 0;
  const std::string old_path =
      cut_line(folder, bench::key_of(old_logical, old_timestamp), text, removed);
  copy_for_good(folder, old_path.substr(folder.size() + 1), name);
  const File file = lock_for_save(index);
  replace(file, index.text.view(), text, std::min(added, removed));
  remove_file(old_path);
}

void update(const std::string& folder) {
  Index index(folder);
  judge_for_save(index.text.view(), Listed(folder));
  // The text is unchanged, so nothing is written.
  const File file = lock_for_save(index);
}
bool has_categories(const std::string& folder, Adoption adoption) {
  const Index index(folder);
  if (adoption == Adoption::kOn) judge_for_save(index.text.view(), Listed(folder));
  return find(index.text.view(), ".ctg_") != kNone;
}

// ---- documents ----------------------------------------------------------------------------------

void read_document(const std::string& path, std::string& out) {
  const File file(path, File::Mode::kRead);
  out.resize(file.size());
  file.read_into(out.data(), out.size());
}

void write_document(const std::string& path, std::string_view bytes) {
  const File file(path, File::Mode::kReadWriteCreate);
  file.cut(0);
  file.write_at(0, bytes);
  file.flush();
}

}  // namespace floor_of
