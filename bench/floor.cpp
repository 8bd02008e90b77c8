#include "bench/floor.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <optional>
#include <vector>

#include "bench/folder.h"

namespace floor_of {
namespace {

using bare::File;
using bare::Text;

constexpr auto kNone = std::string_view::npos;
constexpr std::size_t kStamp = 11;
constexpr std::size_t kPage = 4096;

std::string_view extension_of(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? std::string_view() : name.substr(dot);
}

std::size_t find(std::string_view text, std::string_view wanted) {
  const void* const found = ::memmem(text.data(), text.size(), wanted.data(), wanted.size());
  return found == nullptr ? kNone
                          : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

/// The stored name of a key; nothing when no line has it.
std::optional<std::string_view> stored_of(std::string_view text, const std::string& key) {
  const std::string wanted = "\n" + key + "/";
  std::size_t at = wanted.size() - 1;
  if (!text.starts_with(std::string_view(wanted).substr(1))) {
    const std::size_t found = find(text, wanted);
    if (found == kNone) return std::nullopt;
    at = found + wanted.size();
  }
  text.remove_prefix(at);
  return text.substr(0, text.find('\n'));
}

/// A loaded index: the open handle keeps its lock.
struct Index {
  explicit Index(const std::string& path) : folder(path) {
    if (!bare::is_folder(folder) || !bare::entry_exists(folder + "/index.dat"))
      bare::broken("no index in", folder);
    file.emplace(folder + "/index.dat", File::Mode::kRead);
    text = file->read();
    bare::list(folder);
  }

  void build_maps() {
    const std::string_view lines = text.view();
    for (std::size_t start = 0; start < lines.size();) {
      const std::size_t separator = lines.find('/', start);
      const std::size_t end = lines.find('\n', separator);
      const std::string_view key = lines.substr(start, separator - start);
      const std::string_view stored = lines.substr(separator + 1, end - separator - 1);
      lp.emplace_hint(lp.end(), key, stored);
      pl.emplace(stored, key);
      start = end + 1;
    }
  }

  std::string folder;
  std::optional<File> file;
  Text text;
  bare::NameMap lp;
  bare::NameMap pl;
};

/// Gives the shared lock back and replaces the text; the texts differ from @p base on.
void save(Index& index, std::string_view new_text, std::size_t base) {
  index.file.reset();
  const std::string_view old_text = index.text.view();
  const File file(index.folder + "/index.dat", File::Mode::kReadWriteCreate);
  const Text on_disk = file.read();
  if (on_disk.view() != old_text) bare::broken("somebody else changed", index.folder);
  bare::list(index.folder);

  const std::string_view tail = new_text.substr(base);
  const bool twice = new_text != old_text && std::max(old_text.size(), new_text.size()) > kPage;
  const std::size_t behind = std::max(old_text.size(), new_text.size());
  if (twice) {
    file.reserve(behind + tail.size());
    file.write_at(behind, tail);
  }
  file.write_at(base, tail);
  file.cut(new_text.size());
  file.flush();
}

std::string next_number(const std::string& folder) {
  const File counter(folder + "/index", File::Mode::kReadWriteCreate);
  const Text last = counter.read();
  const std::string name =
      bench::stored_name(static_cast<std::size_t>(std::atol(std::string(last.view()).c_str())) + 1);
  counter.write_at(0, name);
  counter.cut(name.size());
  counter.flush();
  return name;
}

/// The new entry's number, its empty file and its line; the text is complete then but not saved.
std::string add_entry(Index& index, const std::string& logical, long timestamp, std::string& text,
                      std::size_t& base) {
  const std::string key = bench::key_of(logical, timestamp);
  const std::string stored = next_number(index.folder);
  const auto [at, is_new] = index.lp.emplace(key, stored);
  index.pl.emplace(stored, key);
  const std::string name = stored + std::string(extension_of(logical));
  const std::string path = index.folder + "/" + name;
  if (!is_new || bare::entry_exists(path)) bare::broken("already there:", path);
  {
    const File file(path, File::Mode::kReadWriteCreate);
    file.flush();
  }
  const auto next = std::next(at);
  base = next == index.lp.end() ? text.size() : find(text, next->first + "/");
  text.insert(base, key + "/" + stored + "\n");
  return name;
}

/// Takes the entry out of the maps and the text, and removes its file.
void drop_entry(Index& index, const std::string& key, std::string& text, std::size_t& base) {
  const auto entry = index.lp.find(key);
  if (entry == index.lp.end()) bare::broken("no entry", key);
  const std::string logical = key.substr(0, key.size() - kStamp);
  const std::string path = index.folder + "/" + entry->second + std::string(extension_of(logical));
  base = find(text, key + "/");
  text.erase(base, text.find('\n', base) + 1 - base);
  index.pl.erase(entry->second);
  index.lp.erase(entry);
  if (!bare::entry_exists(path)) bare::broken("no file", path);
  bare::make_writable(path);
  bare::remove_file(path);
  if (bare::entry_exists(path)) bare::broken("still there:", path);
}

}  // namespace

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical) {
  if (bare::entry_exists(folder + "/" + logical)) {
    physical = logical;
    return true;
  }
  const std::string index = folder + "/index.dat";
  if (!bare::entry_exists(index)) bare::broken("no index in", folder);
  const Text text = bare::read_locked(index);
  const auto stored = stored_of(text.view(), bench::key_of(logical, timestamp));
  if (!stored) return false;
  physical.assign(*stored).append(extension_of(logical));
  return bare::entry_exists(folder + "/" + physical);
}

std::string create(const std::string& folder, const std::string& logical, long timestamp) {
  std::string physical;
  if (exists(folder, logical, timestamp, physical)) return physical;
  Index index(folder);
  index.build_maps();
  std::string text(index.text.view());
  std::size_t base = 0;
  const std::string name = add_entry(index, logical, timestamp, text, base);
  save(index, text, base);
  return name;
}

void remove(const std::string& folder, const std::string& logical, long timestamp) {
  Index index(folder);
  index.build_maps();
  std::string text(index.text.view());
  std::size_t base = 0;
  drop_entry(index, bench::key_of(logical, timestamp), text, base);
  save(index, text, base);
}

void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp) {
  Index index(folder);
  index.build_maps();
  std::string text(index.text.view());
  std::size_t added = 0;
  const std::string name = add_entry(index, new_logical, new_timestamp, text, added);
  const std::string key = bench::key_of(old_logical, old_timestamp);
  const auto old_entry = index.lp.find(key);
  const std::string old_path =
      folder + "/" + old_entry->second + std::string(extension_of(old_logical));
  if (!bare::entry_exists(old_path)) bare::broken("no file", old_path);
  bare::copy_onto(old_path, folder + "/" + name);
  bare::make_writable(old_path);
  bare::remove_file(old_path);
  const std::size_t removed = find(text, key + "/");
  text.erase(removed, text.find('\n', removed) + 1 - removed);
  save(index, text, std::min(added, removed));
}

void update(const std::string& folder) {
  Index index(folder);
  index.build_maps();
  save(index, index.text.view(), 0);
}

bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Maps maps) {
  Index index(folder);
  if (maps == Maps::kBuilt) index.build_maps();
  const std::string_view text = index.text.view();
  const std::string wanted = "\n" + logical + "_";
  timestamp = 0;
  bool found = false;
  const auto take = [&](std::size_t at) {
    const long stamp = std::atol(std::string(text.substr(at, kStamp - 1)).c_str());
    timestamp = std::max(timestamp, stamp);
    found = true;
  };
  if (text.starts_with(std::string_view(wanted).substr(1))) take(wanted.size() - 1);
  for (std::size_t from = 0; from < text.size();) {
    const std::size_t at = find(text.substr(from), wanted);
    if (at == kNone) break;
    from += at + wanted.size();
    take(from);
  }
  return found;
}

void pl_values(const std::string& folder, bare::NameMap& out, std::string_view extensions,
               Maps maps) {
  out.clear();
  Index index(folder);
  if (maps == Maps::kBuilt) index.build_maps();
  const std::string_view lines = index.text.view();
  std::string name;
  for (std::size_t start = 0; start < lines.size();) {
    const std::size_t separator = lines.find('/', start);
    const std::size_t end = lines.find('\n', separator);
    const std::string_view logical = lines.substr(start, separator - start - kStamp);
    const std::string_view extension = extension_of(logical);
    if (extensions.empty() || extensions.find(extension) != kNone) {
      name.assign(lines.substr(separator + 1, end - separator - 1)).append(extension);
      out.emplace(name, logical);
    }
    start = end + 1;
  }
}

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
