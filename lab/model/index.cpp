// The index of a folder: loading, adopting, naming, changing, merging and saving.

#include <cstdio>

#include "lab/model/world.h"

namespace model {

bool World::valid_line(const std::string& folder, const std::string& key,
                       const std::string& stored) {
  // Too short for a key: skipped, like a dangling entry.
  if (key.size() < 11) return false;
  if (tree.exists(folder + "\\" + stored)) return true;
  return tree.exists(folder + "\\" + stored + extension_with_dot(logical_of(key)));
}

void World::string_to_maps(const std::string& folder, const std::string& text, Map& lp, Map& pl) {
  for (const auto& [key, stored] : index_pairs(text)) {
    if (!valid_line(folder, key, stored)) continue;
    if (mutation == Mutation::kLastLineWins) lp.erase(key);
    lp.insert({key, stored});
    pl.insert({stored, key});
  }
}

// ---- loading -------------------------------------------------------------------------------

Index::Index(World& world, const std::string& folder) : m_world(world), m_folder(folder) {
  if (!world.tree.is_folder(folder))
    world.error("STGIndex::STGIndex() : the folder " + folder + " doesn't exist !!!");
  if (world.tree.exists(folder + "\\index.dat"))
    world.string_to_maps(folder, world.read_whole(folder, "index.dat"), lp, pl);
  if (world.synchronises) adopt_unknown();
}

void Index::adopt_unknown() {
  Names unknown;
  for (const std::string& name : m_world.tree.names(m_folder)) {
    if (m_world.tree.is_folder(m_folder + "\\" + name)) continue;
    if (name == "index.dat" || name == "index") continue;
    if (!already_in_maps(name)) unknown.push_back(name);
  }
  // The order of several orphans matters: the adoption of one can make another one known.
  if (unknown.size() > 1) {
    unknown.clear();
    for (const std::string& name : m_world.tree.names_in_order(m_folder)) {
      if (!m_world.tree.is_folder(m_folder + "\\" + name) && name != "index.dat" && name != "index")
        unknown.push_back(name);
    }
  }
  try {
    for (const std::string& name : unknown) {
      if (!already_in_maps(name)) adopt(name);
    }
  } catch (const FileError& failed) {
    m_world.error("synchronizeToFolder : " + failed.text);
  }
}

bool Index::already_in_maps(const std::string& name) const {
  const auto found = pl.find(name);
  if (found != pl.end() && stamp_of(found->second) == 0 && logical_of(found->second) == name)
    return true;
  const std::string tail = extension_with_dot(name);
  return pl.count(name.substr(0, name.size() - tail.size())) != 0;
}

void Index::adopt(const std::string& found) {
  std::string name = found;
  if (name.find('.') != std::string::npos) {
    name = with_small_extension(name);
    if (m_world.mutation == Mutation::kLowercaseWholeName) {
      for (char& c : name) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + 32);
      }
    }
    if (!m_world.tree.rename(m_folder + "\\" + found, m_folder + "\\" + name)) name = found;
  }
  const std::string its_key = key(name, 0);
  std::string physical = name;
  if (lp.count(its_key) != 0) physical = lp[its_key];
  lp.insert({its_key, physical});
  pl.insert({physical, its_key});
  m_world.chmod(m_folder + "\\" + physical);
  needs_update = true;
}

// ---- changing ------------------------------------------------------------------------------

bool Index::contains(const std::string& logical, std::int32_t stamp) const {
  return lp.count(key(logical, stamp)) != 0;
}

std::string Index::new_name() {
  File counter(m_world, m_folder, "index");
  std::string content;
  try {
    counter.open(Mode::kAppend);
    counter.read(content, 0);
  } catch (const FileError&) {
    m_world.error("STGIndex::newIndex : return 99999999");
    return "99999999";
  }
  if (content.empty()) content = "00000000";
  long long n = number(content);
  std::string name;
  for (;;) {
    if (n > 2147483647LL) n = -2147483648LL;
    if (n < 0) {
      name = "00000000";
      break;
    }
    n += m_world.mutation == Mutation::kCounterSkipsTwo ? 2 : 1;
    if (n > 2147483647LL) continue;
    char digits[24];
    std::snprintf(digits, sizeof digits, "%08lld", n);
    name = digits;
    if (pl.count(name) == 0 && !goes(name)) break;
  }
  counter.clear();
  counter.write(name);
  return name;
}

std::string Index::create(const std::string& logical, std::int32_t stamp) {
  const std::string its_key = key(logical, stamp);
  if (lp.count(its_key) == 0) {
    const std::string drawn = new_name();
    lp.insert({its_key, drawn});
    pl.insert({drawn, its_key});
  }
  const std::string name = lp[its_key] + extension_with_dot(logical);
  m_has_made_file = false;
  if (!m_world.tree.exists(m_folder + "\\" + name)) {
    File file(m_world, m_folder, name);
    file.open(Mode::kAppend);
    m_has_made_file = true;
  }
  needs_update = true;
  return name;
}

void Index::remove(const std::string& logical, std::int32_t stamp) {
  const std::string its_key = key(logical, stamp);
  if (lp.count(its_key) == 0) return;
  const std::string physical = lp[its_key];
  const std::string path = m_folder + "\\" + file_of(its_key, physical);
  lp.erase(its_key);
  pl.erase(physical);
  if (m_world.tree.exists(path)) {
    m_world.chmod(path);
    m_world.remove(path);
    if (m_world.tree.exists(path)) m_world.error("STGIndex: removal of file failed: " + path);
  }
  needs_update = true;
}

/// Whether the name is that of a file that will be removed.
bool Index::goes(const std::string& name) const {
  for (const auto& [file, is_error] : m_going) {
    if (file == name || file.rfind(name + ".", 0) == 0) return true;
  }
  return false;
}

/// Whether another entry has the same file.
bool Index::is_anothers(const std::string& its_key, const std::string& stored) const {
  const std::string file = file_of(its_key, stored);
  for (const auto& [other, name] : lp) {
    // A line is also valid by a file that has its physical name alone.
    if (other != its_key && (name == file || file_of(other, name) == file)) return true;
  }
  return false;
}

/// Undoes create() for a rename.
void Index::take_back(const std::string& its_key, bool removes_file) {
  const std::string stored = lp[its_key];
  lp.erase(its_key);
  const auto found = pl.find(stored);
  if (found != pl.end() && found->second == its_key) pl.erase(found);
  const std::string path = m_folder + "\\" + file_of(its_key, stored);
  const bool is_kept = !m_has_made_file && is_anothers(its_key, stored);
  if (!removes_file || is_kept || !m_world.tree.exists(path)) return;
  m_world.chmod(path);
  m_world.remove(path);
  if (m_world.tree.exists(path)) m_world.error("STGIndex: removal of file failed: " + path);
}

bool Index::rename(const std::string& old_logical, std::int32_t old_stamp,
                   const std::string& new_logical, std::int32_t new_stamp) {
  if (!contains(old_logical, old_stamp)) return true;
  const std::string old_key = key(old_logical, old_stamp);
  const std::string new_key = key(new_logical, new_stamp);
  const std::string old_file = file_of(old_key, lp[old_key]);
  m_going.insert({old_file, false});
  std::string replaced;
  std::string replaced_file;
  const bool replaces = contains(new_logical, new_stamp);
  if (replaces) {
    replaced = lp[new_key];
    replaced_file = file_of(new_key, replaced);
    m_going.insert({replaced_file, true});
    lp.erase(new_key);
    pl.erase(replaced);
  }
  const std::string new_file = create(new_logical, new_stamp);
  const std::string old_path = m_folder + "\\" + old_file;
  const bool is_free = new_file != replaced_file && !is_anothers(new_key, lp[new_key]);
  if (!is_free || !m_world.copy_file(old_path, m_folder + "\\" + new_file, true)) {
    // Nothing is lost: the old entry stays, the new one is removed.
    m_world.error("STGIndex: rename: copy failed: " + old_path);
    m_going.erase(old_file);
    m_going.erase(replaced_file);
    take_back(new_key, new_file != replaced_file);
    if (replaces) {
      lp.insert({new_key, replaced});
      pl.insert({replaced, new_key});
    }
    return false;
  }
  needs_update = true;
  return true;
}

// ---- saving --------------------------------------------------------------------------------

bool Index::let_go() { return !needs_update || merge_and_save(); }

/// Whether the entry is valid once the files in m_going are removed.
bool Index::is_valid(const std::string& its_key, const std::string& stored) const {
  if (its_key.size() < 11) return false;
  for (const std::string& name : {stored, stored + extension_with_dot(logical_of(its_key))}) {
    if (m_going.count(name) == 0 && m_world.tree.exists(m_folder + "\\" + name)) return true;
  }
  return false;
}

/// @return false if a file could not be removed; its entries are then valid again.
bool Index::remove_what_goes() {
  bool all_gone = true;
  for (const auto& [file, is_error] : m_going) {
    const std::string path = m_folder + "\\" + file;
    m_world.chmod(path);
    m_world.remove(path);
    if (!m_world.tree.exists(path)) continue;
    if (is_error) m_world.error("STGIndex: removal of file failed: " + path);
    all_gone = false;
  }
  m_going.clear();
  return all_gone;
}

bool Index::merge_and_save() {
  File file(m_world, m_folder, "index.dat");
  try {
    file.open(Mode::kAppend);
  } catch (const FileError&) {
    return false;  // a warning; the index on disk stays as it was
  }
  std::string text;
  file.read(text, 0);
  Map disk_lp;
  for (const auto& [its_key, stored] : index_pairs(text)) {
    if (!is_valid(its_key, stored)) continue;
    if (m_world.mutation == Mutation::kLastLineWins) disk_lp.erase(its_key);
    disk_lp.insert({its_key, stored});
  }
  for (const auto& [its_key, stored] : disk_lp) {
    const auto mine = lp.find(its_key);
    if (mine != lp.end()) {
      // A dangling entry of this index does not replace a valid one on disk.
      if (mine->second == stored || is_valid(its_key, mine->second)) continue;
      pl.erase(mine->second);
      lp.erase(mine);
    }
    lp.insert({its_key, stored});
    pl.insert({stored, its_key});
  }
  Map valid;
  for (const auto& [its_key, stored] : lp) {
    if (is_valid(its_key, stored)) valid.insert({its_key, stored});
  }
  std::string saved = index_text(valid);
  if (m_world.mutation == Mutation::kEmptyIndexIsEmpty && valid.empty()) saved = "";
  file.clear();
  file.write(saved);
  file.close();
  if (!remove_what_goes()) merge_and_save();
  return true;
}

// ------------------------------------------------------------------------------------------------
// The clean.

namespace {

bool begins_with(const std::string& text, const std::string& head) {
  return text.size() >= head.size() && text.substr(0, head.size()) == head;
}

/// The time of a file is also found with separators after its name.
std::string trimmed(std::string path) {
  while (!path.empty() && (path.back() == '\\' || path.back() == '/')) path.pop_back();
  return path;
}

}  // namespace

std::uint32_t World::clean(const std::string& folder, std::uint32_t limit, Kept& kept,
                           bool by_access) {
  Index index(*this, folder);
  std::vector<Pair> out_of_date;
  for (const auto& [its_key, stored] : index.lp) {
    std::string on_disk = stored;
    if (stored.find('.') == std::string::npos) on_disk += extension_with_dot(logical_of(its_key));
    const Node* const node = tree.at(trimmed(folder + "\\" + on_disk));
    const std::int64_t time = node == nullptr ? 0 : node->time;
    // A file that was written after the beginning of the clean is new.
    const std::uint32_t age =
        time > now ? 0 : static_cast<std::uint32_t>(now) - static_cast<std::uint32_t>(time);
    // These times come from the machine's clock, which is years away from the model's.
    const bool unknown = node != nullptr && (by_access || node->is_folder);
    if (limit == 0 || (unknown ? limit < 4000000000U : age > limit)) {
      out_of_date.push_back({its_key, stored});
    } else {
      kept.push_back({unknown ? -1 : static_cast<std::int64_t>(age), folder + "\\" + its_key});
    }
  }
  const Names listing = tree.names_in_order(folder + "\\");

  for (const auto& [its_key, stored] : out_of_date) {
    std::string on_disk = stored;
    if (stored.find('.') == std::string::npos) on_disk += extension_with_dot(logical_of(its_key));
    index.remove(logical_of(its_key), stamp_of(its_key));
    for (const std::string& name : listing) {
      const std::string path = folder + "\\" + name;
      if (!begins_with(name, on_disk + "_") || !tree.is_folder(path)) continue;
      recurse_remove(path);
      if (tree.is_folder(path)) error("STGIndex: removal of output directory failed: " + path);
    }
  }

  try {
    // In the library, the second index blocks all creators until the sweep ends.
    Index look(*this, folder);
    Map physical;
    for (const auto& [its_key, stored] : look.lp)
      physical.insert({file_of(its_key, stored), logical_of(its_key)});
    for (const std::string& name : listing) {
      if (name == "index" || name == "index.dat") continue;
      bool is_covered = false;
      for (const auto& [file, logical] : physical) {
        if (begins_with(name, file)) is_covered = true;
      }
      if (is_covered) continue;
      const std::string path = folder + "\\" + name;
      // Required: compares a point in time with a duration.
      const std::int64_t time = tree.time(path);
      if (time <= 0 || limit == 0 || time <= static_cast<std::int64_t>(limit)) continue;
      if (tree.is_folder(path)) {
        error("removing orphan directory: " + path);
        recurse_remove(path);
      } else {
        error("removing orphan file: " + path);
        remove_loudly(path);
      }
    }
    look.let_go();
  } catch (const FileError&) {
    index.let_go();
    throw;
  }
  index.let_go();
  return static_cast<std::uint32_t>(out_of_date.size());
}

void World::clean_directories(const std::string& folder, const std::string& name,
                              std::uint64_t* counter) {
  if (counter != nullptr) *counter = 0;
  for (const std::string& each : tree.names(folder + "\\")) {
    const std::string path = folder + "\\" + each;
    if (!begins_with(each, name + "_") || !tree.is_folder(path)) continue;
    if (counter != nullptr) *counter += folder_size_in_kb(path);
    recurse_remove(path);
    if (tree.is_folder(path)) error("STGIndex: removal of output directory failed: " + path);
  }
}

}  // namespace model
