// Cleaning of out-of-date output.

#include "lab/model/world.h"

namespace model {
namespace {

bool begins_with(const std::string& text, const std::string& head) {
  return text.size() >= head.size() && text.substr(0, head.size()) == head;
}

/// Times are asked for without the separators at the end, so that a file is found behind them, too.
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
    // What was written after the clean began is new.
    const std::uint32_t age =
        time > now ? 0 : static_cast<std::uint32_t>(now) - static_cast<std::uint32_t>(time);
    // The machine's own clock gives these times: of them is only known that they are years away.
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
    // The second look keeps whoever makes entries waiting, until the sweep is over.
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
      // A point in time beside a duration, as it is stated.
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
