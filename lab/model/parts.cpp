// Parts of corporate documents, and whether they are up to date.

#include "lab/model/world.h"

namespace model {

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
