#include "lab/interleavings/tree.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <stdexcept>
#include <string_view>
#include <vector>

#include "lab/reader/index_reader.h"
#include "platform/os/os.h"
#include "tests/support/scratch.h"

namespace interleavings {
namespace {

void check(const os::Status& status, const char* what, const std::string& path) {
  if (status.ok()) return;
  throw std::runtime_error(std::string(what) + " " + path + ": " + std::to_string(status.code()));
}

std::string bytes_of(const std::string& path, std::uint64_t size) {
  os::Handle handle = os::kNoHandle;
  check(os::sys::open(path, os::Access::kReadExisting, handle), "open", path);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::size_t done = 0;
  const os::Status read = os::sys::read(handle, bytes.data(), bytes.size(), done);
  check(os::sys::close(handle), "close", path);
  check(read, "read", path);
  bytes.resize(done);
  return bytes;
}

}  // namespace

void add_folder(Tree& tree, const std::string& path) {
  for (std::size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    tree.emplace(path.substr(0, slash + 1), Item());
}

void add_file(Tree& tree, const std::string& path, const std::string& bytes, std::int64_t time) {
  add_folder(tree, path);
  tree[path] = {bytes, time};
}

TreeOnDisk::TreeOnDisk(const std::string& root) : m_root(root) {
  make_folder(root);
  look();
}

void TreeOnDisk::set(const Tree& tree) {
  // Backwards, so that a folder is empty before it is removed.
  for (auto it = m_now.rbegin(); it != m_now.rend(); ++it) {
    if (!tree.contains(it->first)) remove(it->first);
  }
  for (const auto& [path, item] : tree) {
    const auto found = m_now.find(path);
    if (found == m_now.end() || found->second != item) make(path, item);
  }
  m_now = tree;
}

const Tree& TreeOnDisk::look() {
  m_now.clear();
  walk("", m_now);
  return m_now;
}

void TreeOnDisk::walk(const std::string& folder, Tree& tree) const {
  os::Listing entries;
  check(os::sys::list(whole(folder), entries), "list", folder);
  for (const os::Entry entry : entries) {
    const std::string path = folder + std::string(entry.name);
    os::FileStat found;
    check(os::sys::stat(whole(path), found, os::Links::kKeep), "stat", path);
    if (found.is_directory) {
      tree.emplace(path + "/", Item());
      walk(path + "/", tree);
    } else {
      tree.emplace(path, Item{bytes_of(whole(path), found.size), found.modify_time});
    }
  }
}

void TreeOnDisk::remove(const std::string& path) const {
  check(path.ends_with('/') ? os::sys::remove_directory(whole(path))
                            : os::sys::remove_file(whole(path)),
        "remove", path);
}

void TreeOnDisk::make(const std::string& path, const Item& item) const {
  if (path.ends_with('/')) return check(os::sys::create_directory(whole(path)), "make", path);
  os::Handle handle = os::kNoHandle;
  check(os::sys::open(whole(path), os::Access::kReadWriteCreate, handle), "make", path);
  std::size_t done = 0;
  os::Status status = os::sys::set_end(handle);
  if (status.ok()) status = os::sys::write(handle, item.bytes.data(), item.bytes.size(), done);
  check(os::sys::close(handle), "close", path);
  check(status, "write", path);
  set_modify_time(whole(path), item.time);
}

// ------------------------------------------------------------------------------------------------

namespace {

constexpr const char* kIndex = "index.dat";
constexpr const char* kCounter = "index";

std::string folder_of(const std::string& path) {
  const std::size_t end = path.ends_with('/') ? path.size() - 1 : path.size();
  const std::size_t slash = path.rfind('/', end - 1);
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool is_number(std::string_view stem) {
  return stem.size() >= 8 && stem.find_first_not_of("0123456789") == std::string_view::npos;
}

bool may_end_a_name(char c) { return c == '.' || (c >= 'a' && c <= 'z'); }

std::string extension_of(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot);
}

/// The names in a folder: files with their bytes; names of sub-folders end in "/".
struct Folder {
  std::string path;
  std::map<std::string, std::string> names;

  bool has(const std::string& name) const { return names.contains(name); }
};

/// Whether the folder contains entries: the folder of an owner, or a bucket of documents.
bool holds_entries(const std::string& path) {
  const auto parts = std::count(path.begin(), path.end(), '/');
  if (path.starts_with("storage/docs/")) return parts == 3;
  return parts == 2 && (path.starts_with("storage/user/") || path.starts_with("storage/mail/") ||
                        path.starts_with("storage/list/"));
}

class FolderFacts {
 public:
  FolderFacts(const Folder& folder, Facts& facts) : m_folder(folder), m_facts(facts) {}

  void tell() {
    read_lines();
    tell_index();
    tell_entries();
    tell_counter();
    tell_loose();
  }

  /// The key of a file; empty if there is none.
  std::string key_of(const std::string& file) const {
    const auto found = m_key_of_file.find(file);
    return found == m_key_of_file.end() ? std::string() : found->second;
  }
  void read_lines() {
    if (!m_folder.has(kIndex)) return;
    reader::Files files;
    for (const auto& [name, bytes] : m_folder.names) {
      if (name != kIndex && name != kCounter) files.emplace(name, bytes.size());
    }
    m_bytes = m_folder.names.at(kIndex);
    const std::string text = reader::text_of_index(m_bytes);
    m_lines = reader::read_index(text, files);
    m_all_lines = reader::all_lines(text);
    for (const auto& [key, stored] : m_lines)
      m_key_of_file.emplace(reader::file_of(key, stored), key);
  }

 private:
  std::string fact(const std::string& what) const { return m_folder.path + ": " + what; }

  void tell_index() {
    const char* how = "none";
    if (m_folder.has(kIndex)) {
      how = m_bytes.empty()                                 ? "empty"
            : m_bytes == reader::index_text_of(m_all_lines) ? "whole"
                                                            : "interrupted";
    }
    m_facts[fact("index")] = how;
  }

  void tell_entries() {
    std::map<std::string, std::string> key_of_file;
    for (const auto& [key, stored] : m_lines) {
      const std::string file = reader::file_of(key, stored);
      const auto found = m_folder.names.find(file);
      m_facts[fact(key)] = found == m_folder.names.end() ? "(no file)" : found->second;
      const auto [other, is_new] = key_of_file.emplace(file, key);
      if (!is_new) m_facts[fact("two entries, one file")] += other->second + " and " + key + " ";
    }
  }

  /// If an entry has a higher number than the counter, a create could draw that number again.
  void tell_counter() {
    const auto found = m_folder.names.find(kCounter);
    const long last = found == m_folder.names.end() ? 0 : std::atol(found->second.c_str());
    for (const auto& [key, stored] : m_lines) {
      if (is_number(stored) && std::atol(stored.c_str()) > last)
        m_facts[fact("the counter is too low")] = std::to_string(last);
    }
  }

  void tell_loose() {
    for (const auto& [name, bytes] : m_folder.names) {
      if (name == kIndex || name == kCounter || m_key_of_file.contains(name)) continue;
      if (name.ends_with('/')) continue;
      const bool is_generated = is_number(name.substr(0, name.find('.')));
      const std::string called = is_generated ? extension_of(name) : name;
      std::string& count = m_facts[fact("loose " + called + " '" + shown(bytes) + "'")];
      count = std::to_string(std::atol(count.c_str()) + 1);
    }
  }

  const Folder& m_folder;
  Facts& m_facts;
  std::string m_bytes;
  reader::Lines m_lines;
  reader::Lines m_all_lines;
  std::map<std::string, std::string> m_key_of_file;
};

std::map<std::string, Folder> folders_of(const Tree& tree) {
  std::map<std::string, Folder> folders;
  for (const auto& [path, item] : tree) {
    if (path.ends_with('/')) {
      const std::string own = path.substr(0, path.size() - 1);
      folders[own].path = own;
    }
    const std::string folder = folder_of(path);
    Folder& place = folders[folder];
    place.path = folder;
    place.names[path.substr(folder.empty() ? 0 : folder.size() + 1)] = item.bytes;
  }
  return folders;
}

/// The fact of a path. Sub-part folders belong to the folder with the entry.
std::string fact_of_path(const std::string& path, const std::map<std::string, FolderFacts>& known) {
  for (const auto& [folder, facts] : known) {
    if (path.starts_with(folder + "/") && path != folder + "/")
      return folder + ": below " + path.substr(folder.size() + 1);
  }
  return path;
}

}  // namespace

Facts facts_of(const Tree& tree) {
  Facts facts;
  const std::map<std::string, Folder> folders = folders_of(tree);
  std::map<std::string, FolderFacts> known;
  for (const auto& [path, folder] : folders) {
    if (!holds_entries(path)) continue;
    known.emplace(path, FolderFacts(folder, facts)).first->second.tell();
  }
  for (const auto& [path, item] : tree) {
    const bool is_told = !path.ends_with('/') && known.contains(folder_of(path));
    if (!is_told) facts[fact_of_path(path, known)] = item.bytes;
  }
  return facts;
}

std::string without_numbers(const std::string& answer, const std::string& folder,
                            const Tree& before, const Tree& after) {
  const auto key_in = [&](const Tree& tree, const std::string& file) {
    Facts ignored;
    const auto folders = folders_of(tree);
    const auto found = folders.find(folder);
    if (found == folders.end()) return std::string();
    FolderFacts facts(found->second, ignored);
    facts.read_lines();
    return facts.key_of(file);
  };
  std::string told;
  for (std::size_t at = 0; at < answer.size();) {
    const std::size_t digits = answer.find_first_of("0123456789", at);
    const std::size_t begin = digits == std::string::npos ? answer.size() : digits;
    told += answer.substr(at, begin - at);
    std::size_t end = std::min(answer.find_first_not_of("0123456789", begin), answer.size());
    const std::size_t count = end - begin;
    if (count == 8 && (begin == 0 || answer[begin - 1] != '_')) {
      while (end < answer.size() && may_end_a_name(answer[end])) ++end;
      const std::string file = answer.substr(begin, end - begin);
      std::string key = key_in(before, file);
      if (key.empty()) key = key_in(after, file);
      told += "<" + (key.empty() ? std::string("nobody's") : key) + ">";
    } else {
      told += answer.substr(begin, count);
    }
    at = end;
  }
  return told;
}

std::string shown(const std::string& text) {
  constexpr std::size_t kMost = 60;
  std::string result;
  for (const char c : text.substr(0, kMost)) {
    if (c == '\n') {
      result += "\\n";
    } else {
      result += c >= ' ' && c != 0x7F ? c : '?';
    }
  }
  return text.size() > kMost ? result + "..." : result;
}

}  // namespace interleavings
