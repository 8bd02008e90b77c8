// Key files, category files and profiles.

#include "lab/model/world.h"

namespace model {

bool World::read_keys(File& file, Pairs& pairs, bool last_separator) {
  std::string text;
  try {
    file.read(text, 0);
  } catch (const FileError&) {
    return false;
  }
  if (planted == Planted::kTabIsNoLineEnd) {
    for (char& c : text) {
      if (c == '\t') c = ' ';
    }
  }
  for (const Pair& each : key_pairs(text, last_separator)) pairs.push_back(each);
  return true;
}

long World::read_keys_file(const std::string& folder, const std::string& name, Pairs& pairs,
                           bool last_separator) {
  try {
    check_init();
    if (!tree.exists(folder + "\\" + name)) return 1;
    File file(*this);
    file.open(folder, name, Mode::kRead);
    return read_keys(file, pairs, last_separator) ? 0 : 1;
  } catch (const FileError& failed) {
    error("vu_storage::readKeysFile " + failed.text);
    return 1;
  }
}

bool World::write_keys_file(const std::string& folder, const std::string& name,
                            const std::string& text, bool replace) {
  try {
    check_init();
    if (text.empty()) return true;
    File file(*this);
    file.open(folder, name, replace ? Mode::kTruncate : Mode::kAppend);
    file.write(text);
    return true;
  } catch (const FileError& failed) {
    error("vu_storage::writeKeysFile : " + failed.text);
    return false;
  }
}

void World::delete_key_line(const std::string& folder, const std::string& logical,
                            const std::string& entry) {
  try {
    std::string physical;
    if (!index_exists(folder, logical, 0, physical)) return;
    File file(*this);
    file.open(folder, physical, Mode::kRead);
    std::string text;
    file.read(text, 0);
    file.close();
    if (!cut_line(text, entry)) return;
    file.open(folder, physical, Mode::kTruncate);
    file.write(text);
  } catch (const FileError& failed) {
    error("vu_storage::DeleteKeyLineFromFile " + failed.text);
  }
}

void World::remove_from_categories(const std::string& folder, const std::string& entry) {
  for (const auto& [category, physical] : values(folder, Values::kCategories))
    delete_key_line(folder, category, entry);
}

long World::save_key(const std::string& owner, const std::string& name, int type,
                     const Pairs& pairs) {
  try {
    std::string dir;
    owner_folder(owner, name, type, dir, true);
    const std::string physical = index_create(dir, name, 0);
    write_keys_file(dir, physical, key_text(pairs), true);
    return 0;
  } catch (const FileError& failed) {
    error("vu_storage::saveKey : " + failed.text);
    return 1;
  }
}

long World::load_key(const std::string& owner, const std::string& name, int type, Pairs& pairs) {
  try {
    std::string dir;
    if (!owner_folder(owner, name, type, dir, false)) return 1;
    std::string physical;
    if (!index_exists(dir, name, 0, physical)) return 1;
    read_keys_file(dir, physical, pairs, false);
    return 0;
  } catch (const FileError& failed) {
    error("vu_storage::loadKey : " + failed.text);
    return 1;
  }
}

long World::save_profile(const std::string& owner, const std::string& name, const Pairs& pairs) {
  check_init();
  const std::string file = name.empty() ? "profile.txt" : name;
  if (!owner.empty()) {
    save_key(owner, file, 1, pairs);
  } else {
    write_keys_file(config + "\\", file, key_text(pairs), true);
  }
  return 0;
}

long World::load_profile(const std::string& owner, const std::string& name, Pairs& pairs) {
  check_init();
  if (!owner.empty()) {
    const long result = load_key(owner, name, 1, pairs);
    return name.empty() ? 1 : result;
  }
  std::string file = name;
  if (file.empty()) file = tree.exists(config + "\\profile.txt") ? "profile.txt" : "master.txt";
  return read_keys_file(config, file, pairs, false);
}

}  // namespace model
