// Documents: opened by owner, name, area and version.

#include "lab/model/world.h"

namespace model {

void World::open_read(File& file, const std::string& owner, const std::string& entry, int type,
                      std::int32_t stamp) {
  try {
    check_init();
    if (entry.empty()) return;
    std::string dir;
    if (!owner_folder(owner, entry, type, dir, false)) return;
    const bool versioned = type == 2 && extension(entry) == "kdf";
    std::string physical;
    if (!index_exists(dir, entry, versioned ? stamp : 0, physical)) return;
    const auto found = static_cast<std::int32_t>(tree.time(dir + "\\" + physical));
    if (found == 0) return;
    if (type == 2 && !versioned && found < stamp && mutation != Mutation::kAgeIsIgnored) return;
    file.open(dir, physical, Mode::kRead);
  } catch (const FileError& failed) {
    error("vu_storage::OpenRead : " + failed.text);
  }
}

bool World::open_write(File& file, const std::string& owner, const std::string& entry, int type,
                       bool replace, std::int32_t stamp) {
  try {
    check_init();
    if (entry.empty()) return false;
    std::string dir;
    owner_folder(owner, entry, type, dir, true);
    std::string physical;
    const bool existed = index_exists(dir, entry, stamp, physical);
    if (!existed) physical = index_create(dir, entry, stamp);
    if (replace && existed) {
      if (type == 1) remove_from_categories(dir, entry);
      if (type == 2) recurse_remove(dir + "\\" + physical + "_" + part_stamp);
    }
    if (replace || !existed) file.open(dir, physical, Mode::kTruncate);
    return true;
  } catch (const FileError& failed) {
    error("vu_storage::OpenWrite : " + failed.text);
    return false;
  }
}

void World::read(File& file, std::string& buffer, int length) {
  try {
    check_init();
    file.read(buffer, length);
  } catch (const FileError& failed) {
    buffer.clear();
    error("vu_storage::Read: " + failed.text);
  }
}

void World::write(File& file, const std::string& data) {
  try {
    check_init();
    file.write(data);
  } catch (const FileError& failed) {
    error("vu_storage::Write : " + failed.text);
  }
}

bool World::is_file_exist(const std::string& owner, const std::string& entry, int type,
                          std::int32_t stamp, std::string* folder, std::string* physical) {
  try {
    check_init();
    if (owner.empty()) return false;
    std::string dir;
    if (!owner_folder(owner, entry, type, dir, false)) return false;
    if (!tree.is_folder(dir)) return false;
    std::string found;
    if (!index_exists(dir, entry, stamp, found)) return false;
    if (physical != nullptr) *physical = found;
    if (folder != nullptr) *folder = dir;
    return true;
  } catch (const FileError& failed) {
    error("Error : vu_storage::IsFileExist : " + failed.text);
    return false;
  }
}

long World::latest(const std::string& owner, const std::string& entry, int type) {
  check_init();
  long result = -1;
  if (entry.empty()) return result;
  std::string dir;
  if (owner_folder(owner, entry, type, dir, false)) last_version(dir, entry, result);
  return result;
}

bool World::index_name(const std::string& folder, const std::string& entry, std::int32_t stamp,
                       std::string& physical) {
  try {
    check_init();
    return index_exists(folder, entry, stamp, physical);
  } catch (const FileError&) {
    error("Error : vu_storage::getIndexNameFromFileName");
    return false;
  }
}

bool World::copy_to_storage(const std::string& source, const std::string& owner,
                            const std::string& entry, int type, bool replace, std::int32_t stamp) {
  check_init();
  File file(*this);
  open_write(file, owner, entry, type, replace, stamp);
  if (!file.is_open()) return false;
  const std::string target = file.path();
  file.close();
  return copy_file(source, target, replace);
}

bool World::copy_from_storage(const std::string& target, const std::string& owner,
                              const std::string& entry, int type, std::int32_t stamp) {
  check_init();
  File file(*this);
  open_read(file, owner, entry, type, stamp);
  if (!file.is_open()) return false;
  return copy_file(file.path(), target, true);
}

bool World::copy_file_to_storage(const std::string& folder, const std::string& name,
                                 const std::string& owner, int type) {
  check_init();
  std::string dir;
  owner_folder(owner, name, type, dir, true);
  index_remove(dir, name, 0);
  const std::string physical = index_create(dir, name, 0);
  const bool copied = copy_file(folder + "\\" + name, dir + "\\" + physical, true);
  update_index(dir);
  return copied;
}

// ------------------------------------------------------------------------------------------------
// Key files, category files and profiles.

bool World::read_keys(File& file, Pairs& pairs, bool last_separator) {
  std::string text;
  try {
    file.read(text, 0);
  } catch (const FileError&) {
    return false;
  }
  if (mutation == Mutation::kTabIsNoLineEnd) {
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

// ------------------------------------------------------------------------------------------------
// Sub-parts of documents, and whether they are up to date.

void World::open_write_part(File& file, const std::string& owner, const std::string& entry,
                            const std::string& selector, const std::string& part,
                            std::int32_t its_stamp) {
  try {
    check_init();
    if (entry.empty()) return;
    std::string dir;
    if (!owner_folder(owner, entry, 2, dir, true)) return;
    std::string physical;
    if (!index_exists(dir, entry, its_stamp, physical)) {
      error("OpenWriteSubPart : entry not found ! entry=" + entry +
            " TS=" + std::to_string(its_stamp));
      return;
    }
    dir = dir + "\\" + physical + "_" + part_stamp;
    make_if_missing(dir);
    const std::size_t at = selector.find('@');
    if (at == std::string::npos) {
      dir += "\\" + selector;
    } else {
      dir += "\\" + selector.substr(0, at);
      make_if_missing(dir);
      dir += "\\" + selector.substr(at + 1);
    }
    make_if_missing(dir);
    file.open(dir, part, Mode::kTruncate);
  } catch (const FileError& failed) {
    error("vu_storage::OpenWriteSubPart :" + failed.text);
  }
}

int World::best_update_way(const std::string& owner, const std::string& entry,
                           const std::string& selector, const std::string& part,
                           std::string& part_dir, std::string& preload_dir,
                           std::int32_t its_stamp) {
  try {
    std::string folder;
    std::string physical;
    if (!is_file_exist(owner, entry, 2, its_stamp, &folder, &physical)) return 2;
    const auto document_time = static_cast<std::int32_t>(tree.time(folder + "\\" + physical));
    if (document_time == 0) return -1;
    const std::string root = folder + "\\" + physical + "_" + part_stamp;
    if (!tree.exists(root)) return 2;
    std::string type_dir = root;
    std::string rest = selector;
    if (selector.substr(0, 5) == "html@") {
      type_dir = root + "\\html";
      rest = selector.substr(5);
    } else if (selector.substr(0, 4) == "pdf@") {
      type_dir = root + "\\pdf";
      rest = selector.substr(4);
    }
    if (type_dir != root) make_if_missing(type_dir);
    make_if_missing(type_dir + "\\" + rest);
    part_dir = type_dir + "\\" + rest;
    if (extension(entry) == "kdf") return 0;
    preload_dir = type_dir + "\\preload";
    const auto preload_time = static_cast<std::int32_t>(tree.time(preload_dir + "\\" + part));
    const auto part_time = static_cast<std::int32_t>(tree.time(part_dir + "\\" + part));
    if (part_time < preload_time) return 1;
    if (part_time >= document_time) return 0;
    return 2;
  } catch (const FileError& failed) {
    error("vu_storage::getBestUpdateWay : " + failed.text);
    return 0;
  }
}

void World::open_read_part(File& file, const std::string& owner, const std::string& entry,
                           const std::string& selector, const std::string& part,
                           std::int32_t its_stamp) {
  try {
    check_init();
    if (entry.empty()) return;
    std::string part_dir;
    std::string preload_dir;
    const int way = best_update_way(owner, entry, selector, part, part_dir, preload_dir, its_stamp);
    if (way == -1)
      error("case -1 : vu_storage::OpenReadSubPart : unknown error, force retrieve doc");
    if (way == 0) file.open(part_dir, part, Mode::kRead);
    if (way == 1 && copy_file(preload_dir + "\\" + part, part_dir + "\\" + part, true))
      file.open(part_dir, part, Mode::kRead);
  } catch (const FileError&) {
    // A warning.
  }
}

}  // namespace model
