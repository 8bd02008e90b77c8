// The index of a folder: loading, adopting, naming, changing, merging and saving.

#include "tests/model/world.h"

#include <cstdio>

namespace model {

bool World::valid_line(const std::string& folder, const std::string& key,
                       const std::string& stored) {
  // Too short to be a key: skipped like a line whose file is gone.
  if (key.size() < 11) return false;
  if (tree.exists(folder + "\\" + stored)) return true;
  return tree.exists(folder + "\\" + stored + extension_with_dot(logical_of(key)));
}

void World::string_to_maps(const std::string& folder, const std::string& text, Map& lp, Map& pl) {
  for (const auto& [key, stored] : index_pairs(text)) {
    if (!valid_line(folder, key, stored)) continue;
    if (planted == Planted::kLastLineWins) lp.erase(key);
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
  // With several the order decides: one may make another known.
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
    if (m_world.planted == Planted::kLowercaseWholeName) {
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
    n += m_world.planted == Planted::kCounterSkipsTwo ? 2 : 1;
    if (n > 2147483647LL) continue;
    char digits[24];
    std::snprintf(digits, sizeof digits, "%08lld", n);
    name = digits;
    if (pl.count(name) == 0) break;
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
  if (!m_world.tree.exists(m_folder + "\\" + name)) {
    File file(m_world, m_folder, name);
    file.open(Mode::kAppend);
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

bool Index::rename(const std::string& old_logical, std::int32_t old_stamp,
                   const std::string& new_logical, std::int32_t new_stamp) {
  if (!contains(old_logical, old_stamp)) return true;
  if (contains(new_logical, new_stamp)) remove(new_logical, new_stamp);
  const std::string new_file = create(new_logical, new_stamp);
  const std::string old_key = key(old_logical, old_stamp);
  const std::string old_path = m_folder + "\\" + file_of(old_key, lp[old_key]);
  if (!m_world.copy_file(old_path, m_folder + "\\" + new_file, true)) {
    // Nothing is lost: the old entry stays, the new one goes.
    m_world.error("STGIndex: rename: copy failed: " + old_path);
    remove(new_logical, new_stamp);
    return false;
  }
  m_world.chmod(old_path);
  m_world.remove(old_path);
  needs_update = true;
  return true;
}

// ---- saving --------------------------------------------------------------------------------

void Index::let_go() {
  if (needs_update) merge_and_save();
}

void Index::merge_and_save() {
  File file(m_world, m_folder, "index.dat");
  try {
    file.open(Mode::kAppend);
  } catch (const FileError&) {
    return;  // a warning; the index on disk stays as it was
  }
  std::string text;
  file.read(text, 0);
  Map disk_lp;
  Map disk_pl;
  m_world.string_to_maps(m_folder, text, disk_lp, disk_pl);
  for (const auto& [its_key, stored] : disk_lp) {
    const auto mine = lp.find(its_key);
    if (mine != lp.end()) {
      // A line of mine whose file is gone does not keep out one whose file is there.
      if (mine->second == stored || m_world.valid_line(m_folder, its_key, mine->second)) continue;
      pl.erase(mine->second);
      lp.erase(mine);
    }
    lp.insert({its_key, stored});
    pl.insert({stored, its_key});
  }
  Map valid;
  for (const auto& [its_key, stored] : lp) {
    if (m_world.valid_line(m_folder, its_key, stored)) valid.insert({its_key, stored});
  }
  std::string saved = index_text(valid);
  if (m_world.planted == Planted::kEmptyIndexIsEmpty && valid.empty()) saved = "";
  file.clear();
  file.write(saved);
}

}  // namespace model
