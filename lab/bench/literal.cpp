#include "lab/bench/literal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "vu_file.h"

namespace literal {
namespace {

constexpr std::size_t kStamp = 11;

std::string key_of(const std::string& logical, long timestamp) {
  char stamp[16];
  std::snprintf(stamp, sizeof stamp, "_%.10u", static_cast<unsigned>(timestamp));
  return logical + stamp;
}

std::string logical_of(const std::string& key) {
  return key.size() < kStamp ? std::string() : key.substr(0, key.size() - kStamp);
}

long timestamp_of(const std::string& key) {
  return key.size() < kStamp ? 0 : std::atol(key.c_str() + key.size() - kStamp + 1);
}

std::string extension_of(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? std::string() : name.substr(dot);
}

std::string file_name_of(const std::string& key, const std::string& stored) {
  const std::string logical = logical_of(key);
  const bool own_name = timestamp_of(key) == 0 && stored == logical;
  return own_name ? stored : stored + extension_of(logical);
}

bool is_valid(const std::string& folder, const std::string& key, const std::string& stored) {
  const std::string path = folder + "\\" + stored;
  return vu_file::exists(path) || vu_file::exists(path + extension_of(logical_of(key)));
}

void parse(const std::string& folder, const std::string& text, NameMap& lp, NameMap& pl) {
  std::size_t start = 0;
  std::size_t end = text.find('\n');
  std::size_t separator = text.find('/');
  while (separator != std::string::npos) {
    const std::string key = text.substr(start, separator - start);
    const std::string stored = end == std::string::npos
                                   ? text.substr(separator + 1)
                                   : text.substr(separator + 1, end - separator - 1);
    if (is_valid(folder, key, stored)) {
      lp.emplace(key, stored);
      pl.emplace(stored, key);
    }
    if (end == std::string::npos) return;
    start = end + 1;
    end = text.find('\n', start);
    separator = text.find('/', start);
  }
}

class Index {
 public:
  Index(const std::string& folder, Synchronize synchronize)
      : m_folder(folder), m_file(folder, "index.dat") {
    vu_file::is_dir(folder);
    if (vu_file::exists(folder + "\\index.dat")) {
      std::string text;
      m_file.open(vu_file::o_read);
      m_file.read(text, 0);
      parse(m_folder, text, m_lp, m_pl);
    }
    if (synchronize == Synchronize::kOn) adopt_unknown_files();
  }

  /// Ends the operation: saves the index if it was changed.
  void finish() {
    m_file.close();
    if (!m_changed) return;
    std::string text;
    m_file.open(vu_file::o_append);
    m_file.read(text, 0);
    NameMap lp;
    NameMap pl;
    parse(m_folder, text, lp, pl);
    for (const auto& [key, stored] : lp) {
      if (m_lp.emplace(key, stored).second) m_pl.emplace(stored, key);
    }
    std::string result;
    for (const auto& [key, stored] : m_lp) {
      if (is_valid(m_folder, key, stored)) result += key + "/" + stored + "\n";
    }
    if (result.empty()) result = " ";
    m_file.clear();
    m_file.write(result);
    m_file.close();
  }

  std::string create(const std::string& logical, long timestamp) {
    const std::string key = key_of(logical, timestamp);
    auto it = m_lp.find(key);
    if (it == m_lp.end()) {
      it = m_lp.emplace(key, next_number()).first;
      m_pl.emplace(it->second, key);
    }
    const std::string name = it->second + extension_of(logical);
    if (!vu_file::exists(m_folder + "\\" + name)) {
      vu_file file(m_folder, name);
      file.open(vu_file::o_append);
      file.close();
    }
    m_changed = true;
    return name;
  }

  void remove(const std::string& logical, long timestamp) {
    const auto it = m_lp.find(key_of(logical, timestamp));
    if (it == m_lp.end()) return;
    const std::string path = m_folder + "\\" + file_name_of(it->first, it->second);
    m_pl.erase(it->second);
    m_lp.erase(it);
    if (vu_file::exists(path)) {
      vu_file::chmodW(path);
      vu_file::remove(path);
      static_cast<void>(vu_file::exists(path));
    }
    m_changed = true;
  }

  void rename(const std::string& old_logical, long old_timestamp, const std::string& new_logical,
              long new_timestamp) {
    const auto it = m_lp.find(key_of(old_logical, old_timestamp));
    if (it == m_lp.end()) return;
    const std::string made = create(new_logical, new_timestamp);
    const std::string path = m_folder + "\\" + file_name_of(it->first, it->second);
    vu_file::copyFile(path, m_folder + "\\" + made, true);
    vu_file::chmodW(path);
    vu_file::remove(path);
  }

  void set_changed() { m_changed = true; }
  const NameMap& lp() const { return m_lp; }

 private:
  void adopt_unknown_files() {
    for (const std::string& name : vu_file::filenames(m_folder)) {
      if (vu_file::is_dir(m_folder + "\\" + name) || name == "index.dat" || name == "index")
        continue;
      if (is_known(name)) continue;
      m_lp.emplace(key_of(name, 0), name);
      m_pl.emplace(name, key_of(name, 0));
      m_changed = true;
    }
  }

  bool is_known(const std::string& name) const {
    const auto it = m_pl.find(name);
    if (it != m_pl.end() && timestamp_of(it->second) == 0 && logical_of(it->second) == name)
      return true;
    return m_pl.contains(name.substr(0, name.rfind('.')));
  }

  std::string next_number() {
    vu_file counter(m_folder, "index");
    std::string text;
    counter.open(vu_file::o_append);
    counter.read(text, 0);
    char name[24];
    long number = std::atol(text.c_str());
    do {
      std::snprintf(name, sizeof name, "%.8ld", ++number);
    } while (m_pl.contains(name));
    counter.clear();
    counter.write(std::string(name));
    counter.close();
    return name;
  }

  std::string m_folder;
  vu_file m_file;
  NameMap m_lp;
  NameMap m_pl;
  bool m_changed = false;
};

}  // namespace

bool exists(const std::string& folder, const std::string& logical, long timestamp,
            std::string& physical) {
  if (vu_file::exists(folder + "\\" + logical)) {
    physical = logical;
    return true;
  }
  if (!vu_file::exists(folder + "\\index.dat")) update(folder, Synchronize::kOff);
  vu_file file(folder, "index.dat");
  std::string text;
  file.open(vu_file::o_read);
  file.read(text, 0);
  file.close();
  NameMap lp;
  NameMap pl;
  parse(folder, text, lp, pl);
  const auto it = lp.find(key_of(logical, timestamp));
  if (it == lp.end()) return false;
  physical = file_name_of(it->first, it->second);
  return vu_file::exists(folder + "\\" + physical);
}

std::string create(const std::string& folder, const std::string& logical, long timestamp,
                   Synchronize synchronize) {
  std::string physical;
  if (exists(folder, logical, timestamp, physical)) return physical;
  Index index(folder, synchronize);
  physical = index.create(logical, timestamp);
  index.finish();
  return physical;
}

void remove(const std::string& folder, const std::string& logical, long timestamp,
            Synchronize synchronize) {
  Index index(folder, synchronize);
  index.remove(logical, timestamp);
  index.finish();
}

void rename(const std::string& folder, const std::string& old_logical, long old_timestamp,
            const std::string& new_logical, long new_timestamp, Synchronize synchronize) {
  Index index(folder, synchronize);
  index.rename(old_logical, old_timestamp, new_logical, new_timestamp);
  index.finish();
}

void update(const std::string& folder, Synchronize synchronize) {
  Index index(folder, synchronize);
  index.set_changed();
  index.finish();
}

bool last_version(const std::string& folder, const std::string& logical, long& timestamp,
                  Synchronize synchronize) {
  Index index(folder, synchronize);
  timestamp = 0;
  bool found = false;
  for (const auto& [key, stored] : index.lp()) {
    if (logical_of(key) != logical) continue;
    found = true;
    timestamp = std::max(timestamp, timestamp_of(key));
  }
  index.finish();
  return found;
}

void pl_values(const std::string& folder, NameMap& out, std::string_view extensions,
               Synchronize synchronize) {
  Index index(folder, synchronize);
  out.clear();
  for (const auto& [key, stored] : index.lp()) {
    const std::string logical = logical_of(key);
    if (!extensions.empty() && extensions.find(extension_of(logical)) == std::string_view::npos)
      continue;
    out.emplace(file_name_of(key, stored), logical);
  }
  index.finish();
}

}  // namespace literal
