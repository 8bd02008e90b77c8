// Owners as a whole, single documents that go, and lists of files.

#include "lab/model/world.h"

#include <algorithm>

namespace model {

bool World::rename_user(const std::string& old_name, const std::string& new_name) {
  check_init();
  for (const std::string& area : {mail, list, user}) {
    if (tree.exists(area + "\\" + new_name)) return false;
  }
  for (const std::string& area : {mail, list, user})
    tree.rename(area + "\\" + old_name, area + "\\" + new_name);
  return true;
}

void World::remove_user(const std::string& name) {
  check_init();
  for (const std::string& area : {mail, list, user}) recurse_remove(area + "\\" + name);
}

bool World::remove_file(const std::string& owner, const std::string& entry, int type,
                        std::int32_t its_stamp) {
  try {
    check_init();
    if (owner.empty()) return true;
    std::string dir;
    if (!owner_folder(owner, entry, type, dir, false)) return true;
    index_remove(dir, entry, its_stamp);
    if (type == 1) delete_key_line(dir, "attribut.txt", entry);
    remove_from_categories(dir, entry);
    return true;
  } catch (const FileError& failed) {
    error("Error : vu_storage::RemoveFile : " + failed.text);
    return false;
  }
}

std::vector<std::string> World::all_files(const std::string& folder,
                                          std::vector<std::string>& physical) {
  check_init();
  std::vector<std::string> result;
  if (!tree.is_folder(folder)) return result;
  try {
    for (const auto& [file, logical] : values(folder, Values::kPhysical)) {
      result.push_back(logical);
      physical.push_back(file);
    }
  } catch (const FileError&) {
    error("vu_storage::getAllFileListFromIndexFile : " + folder + " isn't a directory");
  }
  return result;
}

std::vector<std::string> World::documents(const std::string& folder,
                                          std::vector<std::string>& physical,
                                          const std::vector<std::string>* wanted) {
  check_init();
  if (!tree.is_folder(folder)) throw FileError{"not a folder"};
  std::vector<std::string> result;
  try {
    for (const auto& [file, logical] : values(folder, Values::kPhysical)) {
      if (!is_document(extension(logical))) continue;
      if (wanted != nullptr && std::find(wanted->begin(), wanted->end(), logical) == wanted->end())
        continue;
      result.push_back(logical);
      physical.push_back(file);
    }
  } catch (const FileError&) {
    error("vu_storage::getFileListFromIndexFile : " + folder + " isn't a directory");
  }
  return result;
}

std::vector<Pair> World::existing_files(const std::string& folder) {
  std::vector<Pair> result;
  for (const std::string& name : tree.names(folder)) {
    const std::string tail = extension_with_dot(name);
    result.push_back({key(name, 0), name.substr(0, name.size() - tail.size())});
  }
  std::sort(result.begin(), result.end());
  return result;
}

}  // namespace model
