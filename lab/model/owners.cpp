// The process: initialisation, and the folder of an owner.

#include <algorithm>

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
    if (mutation == Mutation::kPlainHash && hash(entry, 101) < 0)
      name = bucket(std::string(1, static_cast<char>(-hash(entry, 101))));
    dir += "\\" + name;
    if (!tree.exists(dir)) {
      if (!create) return false;
      create_dir(dir);
    }
  }
  return true;
}

// ------------------------------------------------------------------------------------------------
// Owners as a whole, removal of single documents, and lists of files.

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

// ------------------------------------------------------------------------------------------------
// The migration of an owner's mail folder.

namespace {

/// Of a file whose name begins with eight digits.
constexpr std::size_t kLongestExtension = 255 - 8;

}  // namespace

void World::migrate(const std::string& owner) {
  if (owner.empty()) return;
  check_init();
  const std::string folder = mail + "\\" + owner;
  if (!tree.is_folder(folder)) {
    create_dir(folder);
    return;
  }
  std::string list_file;
  Map lines;
  try {
    std::string marker;
    if (index_exists(folder, "k1mailboxcompliant", 0, marker)) return;
    Index index(*this, folder);
    index.needs_update = true;
    if (!index.let_go()) {
      error("STGIndex: migration: not begun, for its index cannot be written: " + folder);
      return;
    }
    list_file = index_create(folder, "read.txt", 0);
    if (tree.exists(folder + "\\" + list_file)) lines = mail_lines(read_whole(folder, list_file));
  } catch (const FileError&) {
    error(
        "STGIndex: migration: not begun, for its index or its read list cannot be read for "
        "certain: " +
        folder);
    throw;
  }

  // The list is saved at the end, unless the index could not be saved.
  bool is_saved = false;
  const auto save_list = [&] {
    if (!is_saved) return;
    File file(*this, folder, list_file);
    file.open(Mode::kTruncate);
    std::string text;
    for (const auto& [name, line] : lines) text += line + "\n";
    file.write(text);
  };

  try {
    Index index(*this, folder);
    try {
      bool complete = true;
      for (auto it = index.lp.begin(); it != index.lp.end(); ++it) {
        const std::string logical = logical_of(it->first);
        if (file_of(it->first, it->second) != logical || !is_escaped(logical)) continue;
        const std::string plain = unescaped(logical);
        if (plain == logical) continue;
        // No index line can contain such a key, and no file can have such an extension.
        if (plain.find('/') != std::string::npos || plain.find('\n') != std::string::npos) continue;
        const std::string tail = extension_with_dot(plain);
        if (tail.find('\\') != std::string::npos || tail.find('\0') != std::string::npos) continue;
        if (tail.size() > kLongestExtension) continue;
        if (!index.rename(logical, 0, plain, 0)) {
          complete = false;
          continue;
        }
        if (lines.count(logical) != 0) lines[logical] = mail_line_unescaped(lines[logical]);
      }
      if (complete) index.create("k1mailboxcompliant", 0);
    } catch (const FileError&) {
      is_saved = index.let_go();
      throw;
    }
    is_saved = index.let_go();
  } catch (const FileError& failed) {
    try {
      save_list();
    } catch (const FileError& second) {
      error(second.text);
    }
    throw;
  }
  save_list();
}

}  // namespace model
