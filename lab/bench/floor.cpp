#include "lab/bench/floor.h"

#include <xxhash.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <vector>

#include "lab/bench/folder.h"
#include "lab/bench/listed.h"

namespace floor_of {
namespace {

using bare::File;
using bare::Text;
using bench::Listed;

constexpr auto kNone = std::string_view::npos;
constexpr std::size_t kStamp = 11;
constexpr std::size_t kPage = 4096;
constexpr std::size_t kSector = 512;

std::string_view extension_of(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? std::string_view() : name.substr(dot);
}

std::size_t find(std::string_view text, std::string_view wanted, std::size_t from = 0) {
  if (from >= text.size()) return kNone;
  const void* const found =
      ::memmem(text.data() + from, text.size() - from, wanted.data(), wanted.size());
  return found == nullptr ? kNone
                          : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

/// Where the line of a key begins, or kNone.
std::size_t line_of(std::string_view text, const std::string& key) {
  const std::string wanted = "\n" + key + "/";
  if (text.starts_with(std::string_view(wanted).substr(1))) return 0;
  const std::size_t found = find(text, wanted);
  return found == kNone ? kNone : found + 1;
}

std::size_t end_of_line(std::string_view text, std::size_t from) {
  return std::min(text.find('\n', from), text.size());
}

std::string_view stored_at(std::string_view text, std::size_t line, const std::string& key) {
  const std::size_t from = line + key.size() + 1;
  return text.substr(from, end_of_line(text, from) - from);
}

/// A file of the counter's numbers bears the name's extension.
std::string file_of(std::string_view stored, std::string_view logical) {
  return std::string(stored).append(extension_of(logical));
}

// ---- an index ----------------------------------------------------------------------------------

/// A loaded index: the open handle keeps its lock.
struct Index {
  explicit Index(const std::string& path) : folder(path) {
    if (!bare::is_folder(folder) || !bare::entry_exists(folder + "/index.dat"))
      bare::broken("no index in", folder);
    file.emplace(folder + "/index.dat", File::Mode::kRead);
    text = file->read();
  }

  std::string folder;
  std::optional<File> file;
  Text text;
};

/// Calls visit(logical, stored, extension) for each line whose file is there.
template <class Visit>
void judge(std::string_view text, const Listed& files, Visit visit) {
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = end_of_line(text, start);
    const std::size_t separator = text.find('/', start);
    if (separator >= end) break;
    const std::string_view logical = text.substr(start, separator - start - kStamp);
    const std::string_view stored = text.substr(separator + 1, end - separator - 1);
    const std::string_view extension = extension_of(logical);
    if (files.contains(stored, extension)) visit(logical, stored, extension);
    start = end + 1;
  }
}

/// The lines of a text that is going to be saved all count, which ends the program otherwise.
void judge_for_save(std::string_view text, const Listed& files) {
  std::size_t valid = 0;
  judge(text, files, [&](std::string_view, std::string_view, std::string_view) { ++valid; });
  // "index.dat" and its counter are no documents.
  if (valid + 2 != files.size()) bare::broken("lines and files differ in", "the benchmark's tree");
}

// ---- a save -------------------------------------------------------------------------------------

/// The separators of the lines at the page edges of a text that lies at @p offset.
std::vector<std::size_t> separators_at_edges(std::string_view text, std::size_t offset) {
  std::vector<std::size_t> result;
  for (std::size_t edge = (offset / kPage + 1) * kPage; edge < offset + text.size();
       edge += kPage) {
    const std::size_t before = text.rfind('\n', edge - offset - 1);
    const std::size_t separator = text.find('/', before == kNone ? 0 : before);
    if (separator != kNone && (result.empty() || result.back() != separator))
      result.push_back(separator);
  }
  return result;
}

std::string with_blanks(std::string_view text, const std::vector<std::size_t>& places) {
  std::string result(text);
  for (const std::size_t at : places) result[at] = ' ';
  return result;
}

std::string without_slashes(std::string_view text) {
  std::string result(text);
  for (std::size_t at = result.find('/'); at != kNone; at = result.find('/', at + 1))
    result[at] = '\x1b';
  return result;
}

/// Replaces the old text by @p text; they are the same up to @p base.
void replace(const File& file, std::string_view old_text, const std::string& text,
             std::size_t base) {
  const std::size_t sector = base / kSector * kSector;
  const std::size_t whole = std::max(old_text.size(), text.size());
  const std::size_t copy_at = (whole + kSector - 1) / kSector * kSector;
  std::string copy = without_slashes(std::string_view(text).substr(sector));
  copy += std::to_string(XXH3_64bits(copy.data(), copy.size()));
  file.reserve(copy_at + copy.size());
  file.write_at(copy_at, copy);
  file.flush();

  const std::string_view old_tail = old_text.substr(base);
  const std::vector<std::size_t> unmade = separators_at_edges(old_tail, base);
  if (!unmade.empty()) {
    const std::string bytes = with_blanks(old_tail, unmade);
    file.write_at(base + unmade.front(), std::string_view(bytes).substr(
                                             unmade.front(), unmade.back() - unmade.front() + 1));
  }
  std::string tail = text.substr(base);
  tail.resize(whole - base, ' ');
  const std::vector<std::size_t> late = separators_at_edges(tail, base);
  file.write_at(base, with_blanks(tail, late));
  if (!late.empty())
    file.write_at(base + late.front(),
                  std::string_view(tail).substr(late.front(), late.back() - late.front() + 1));
  file.flush();
  file.cut(text.size());
}

/// Gives the shared lock back, and takes the exclusive one: the text must be the same still.
File lock_for_save(Index& index) {
  index.file.reset();
  File file(index.folder + "/index.dat", File::Mode::kReadWriteCreate);
  if (file.read().view() != index.text.view()) bare::broken("somebody else changed", index.folder);
  return file;
}

std::string next_number(const std::string& folder) {
  const File counter(folder + "/index", File::Mode::kReadWriteCreate);
  const Text last = counter.read();
  const std::string name =
      bench::stored_name(static_cast<std::size_t>(std::atol(std::string(last.view()).c_str())) + 1);
  counter.write_at(0, name);
  counter.flush();
  return name;
}

/// Where a line of the key belongs in a text that is in order: between two lines, found by halves.
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

/// The file of a new entry, and its line in the text.
std::string add_entry(const std::string& folder, const std::string& logical, long timestamp,
                      std::string& text, std::size_t& base) {
  const std::string key = bench::key_of(logical, timestamp);
  const std::string stored = next_number(folder);
  const std::string name = file_of(stored, logical);
  const std::string path = folder + "/" + name;
  if (bare::entry_exists(path)) bare::broken("already there:", path);
  File(path, File::Mode::kReadWriteCreate).flush();
  base = place_for(text, key);
  text.insert(base, key + "/" + stored + "\n");
  return name;
}

/// Takes the line of a key out of the text. @return the path of its file.
std::string cut_line(const std::string& folder, const std::string& key, std::string& text,
                     std::size_t& base) {
  base = line_of(text, key);
  if (base == kNone) bare::broken("no entry", key);
  const std::string_view logical = std::string_view(key).substr(0, key.size() - kStamp);
  const std::string path = folder + "/" + file_of(stored_at(text, base, key), logical);
  text.erase(base, end_of_line(text, base) + 1 - base);
  return path;
}

void remove_file(const std::string& path) {
  if (!bare::entry_exists(path)) bare::broken("no file", path);
  bare::make_writable(path);
  bare::remove_file(path);
  if (bare::entry_exists(path)) bare::broken("still there:", path);
}

// ---- lists --------------------------------------------------------------------------------------

/// A name on its way into a list.
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

/// By their physical names: the numbers of this tree have eight digits, so their heads are all.
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
    // Which files no line names is known when every line has been judged.
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

void file_list(const std::string& folder, std::vector<std::string>& logical,
               std::vector<std::string>& physical) {
  const Index index(folder);
  std::vector<Name> names = names_of(index, "");
  sort(names);
  logical.reserve(names.size());
  physical.reserve(names.size());
  for (const Name& name : names) {
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
  bare::copy_onto(old_path, folder + "/" + name);
  File(folder + "/" + name, File::Mode::kReadWriteCreate).flush();
  const File file = lock_for_save(index);
  replace(file, index.text.view(), text, std::min(added, removed));
  remove_file(old_path);
}

void update(const std::string& folder) {
  Index index(folder);
  judge_for_save(index.text.view(), Listed(folder));
  // The text is as it was: nothing is written.
  const File file = lock_for_save(index);
}

void clean_nothing(const std::string& folder, Ages& kept) {
  const auto now = static_cast<unsigned long>(::time(nullptr));
  {
    const Index index(folder);
    const Listed files(folder);
    judge(index.text.view(), files,
          [&](std::string_view logical, std::string_view stored, std::string_view extension) {
            const long time =
                bare::modify_time(folder + "/" + std::string(stored).append(extension));
            // The key ends behind the logical name's stamp.
            kept.emplace(
                now - static_cast<unsigned long>(time),
                std::string(folder) + "/" + std::string(logical.data(), logical.size() + kStamp));
          });
    // What may be swept.
    const Listed names(folder);
  }
  // Required: a second look at the index, before something is swept.
  const Index second_look(folder);
  judge_for_save(second_look.text.view(), Listed(folder));
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
