// The public operations of an index. Each creates an Index, uses it, and ends it.

#include "lab/model/world.h"

namespace model {
namespace {

/// Ends the index in any case.
template <class Work>
void with_index(World& world, const std::string& folder, Work work) {
  Index index(world, folder);
  try {
    work(index);
  } catch (const FileError&) {
    index.let_go();
    throw;
  }
  index.let_go();
}

}  // namespace

bool World::index_exists(const std::string& folder, const std::string& logical, std::int32_t stamp,
                         std::string& physical) {
  if (tree.exists(folder + "\\" + logical)) {
    physical = logical;
    return true;
  }
  if (!tree.exists(folder + "\\index.dat")) update_index(folder);
  std::string text;
  File file(*this, folder, "index.dat");
  try {
    file.open(Mode::kRead);
  } catch (const FileError&) {
    return false;
  }
  file.read(text, 0);
  Map lp;
  Map pl;
  string_to_maps(folder, text, lp, pl);
  const auto found = lp.find(key(logical, stamp));
  if (found == lp.end()) return false;
  physical = file_of(found->first, found->second);
  return tree.exists(folder + "\\" + physical);
}

std::string World::index_create(const std::string& folder, const std::string& logical,
                                std::int32_t stamp) {
  std::string physical;
  if (index_exists(folder, logical, stamp, physical)) return physical;
  with_index(*this, folder, [&](Index& index) { physical = index.create(logical, stamp); });
  return physical;
}

void World::index_remove(const std::string& folder, const std::string& logical,
                         std::int32_t stamp) {
  with_index(*this, folder, [&](Index& index) { index.remove(logical, stamp); });
}

void World::index_rename(const std::string& folder, const std::string& old_logical,
                         std::int32_t old_stamp, const std::string& new_logical,
                         std::int32_t new_stamp) {
  if (old_logical == new_logical && old_stamp == new_stamp) return;
  with_index(*this, folder,
             [&](Index& index) { index.rename(old_logical, old_stamp, new_logical, new_stamp); });
}

bool World::last_version(const std::string& folder, const std::string& logical, long& stamp) {
  bool found = false;
  stamp = 0;
  with_index(*this, folder, [&](Index& index) {
    for (const auto& [its_key, stored] : index.lp) {
      if (logical_of(its_key) != logical) continue;
      const long its_stamp = stamp_of(its_key);
      if (mutation == Mutation::kOldestVersion) {
        if (!found || its_stamp < stamp) stamp = its_stamp;
      } else if (its_stamp > stamp) {
        stamp = its_stamp;
      }
      found = true;
    }
  });
  return found;
}

Map World::values(const std::string& folder, Values which) {
  Map result;
  with_index(*this, folder, [&](Index& index) {
    for (const auto& [its_key, stored] : index.lp) {
      const std::string logical = logical_of(its_key);
      const std::string physical = file_of(its_key, stored);
      switch (which) {
        case Values::kPhysical: result.insert({physical, logical}); break;
        case Values::kLogical: result.insert({logical, physical}); break;
        case Values::kCategories:
          if (extension(logical) == "ctg") result.insert({logical, physical});
          break;
        case Values::kDocuments:
          if (is_document(extension(logical))) result.insert({physical, logical});
          break;
      }
    }
  });
  return result;
}

std::string World::physical_path(const std::string& folder, const std::string& logical) {
  return folder + "\\" + index_create(folder, logical, 0);
}

void World::update_index(const std::string& folder) {
  with_index(*this, folder, [](Index& index) { index.needs_update = true; });
}

}  // namespace model
