// The process: initialisation, and the folder of an owner.

#include "lab/model/world.h"

namespace model {

void World::forget() {
  initialised = false;
  use_domain = true;
  synchronises = true;
  storage = docs = semlets = user = list = mail = config = part_stamp = "";
}

void World::init_path() {
  docs = storage + "\\docs";
  semlets = storage + "\\semlets";
  user = storage + "\\user";
  list = storage + "\\list";
  mail = storage + "\\mail";
  config = binary_folder + "\\config";
  make_if_missing(storage);
  make_if_missing(docs);
  make_if_missing(semlets);
  make_if_missing(user);
  make_if_missing(list);
  make_if_missing(mail);
  initialised = true;
}

bool World::init_root(const std::string& root, bool domain, bool synchronise) {
  if (initialised) {
    error("**ERROR:ztVuStorage:root storage already initialized [vu_storage;*");
    return false;
  }
  use_domain = domain;
  storage = root + "\\storage";
  init_path();
  synchronises = synchronise;
  return true;
}

void World::check_init() {
  if (initialised) return;
  storage = server_folder;
  if (!storage.empty() && storage.back() == '\\') storage.pop_back();
  init_path();
}

bool World::owner_folder(const std::string& owner, const std::string& entry, int type,
                         std::string& dir, bool create) {
  check_init();
  dir = user;
  if (type == 2) dir = docs;
  if (type == 3 || type == 4) dir = mail;
  make_if_missing(dir);
  if (use_domain) dir += "\\" + (owner.empty() ? "_" : owner);
  if (!tree.exists(dir)) {
    if (!create) return false;
    create_dir(dir);
  }
  if (type == 2) {
    std::string name = bucket(entry);
    if (planted == Planted::kPlainHash && hash(entry, 101) < 0)
      name = bucket(std::string(1, static_cast<char>(-hash(entry, 101))));
    dir += "\\" + name;
    if (!tree.exists(dir)) {
      if (!create) return false;
      create_dir(dir);
    }
  }
  return true;
}

}  // namespace model
