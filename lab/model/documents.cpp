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
    if (type == 2 && !versioned && found < stamp && planted != Planted::kAgeIsIgnored) return;
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

}  // namespace model
