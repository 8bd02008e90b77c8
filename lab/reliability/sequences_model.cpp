// Runs the steps on the model.

#include <algorithm>

#include "lab/reliability/machine.h"
#include "lab/reliability/sequences.h"

namespace reliability::sequences {

std::string text_of(bool value) { return value ? "true" : "false"; }

std::string text_of(const model::Pairs& pairs) {
  std::string result;
  for (const auto& [name, value] : pairs) result += name + "=>" + value + ";";
  return result;
}

std::string text_of(const std::vector<std::string>& texts) {
  std::string result;
  for (const std::string& each : texts) result += each + ";";
  return result;
}

bool is_senseless(const SequenceStep& step) {
  if (step.kind == Kind::kRemoveUser) return step.owner == "..";
  if (step.kind != Kind::kChangePath && step.kind != Kind::kPath) return false;
  return step.name.empty() || step.name == "." || step.name == "..";
}

std::string part_of(const SequenceStep& step) {
  if (step.way == 0) return step.other_name;
  return step.second_flag ? "part" : "p.htm";
}

int count_of(const SequenceStep& step) {
  static const int counts[] = {0, 3, 100, -5};
  return counts[step.way % 4];
}

std::uint32_t limit_of(const SequenceStep& step) {
  static const std::uint32_t limits[] = {0, 1, 15, 3600, 4000000000U};
  return by_access(step) ? (step.flag ? 0 : 4000000000U)
                         : limits[static_cast<std::size_t>(step.way) % std::size(limits)];
}

bool by_access(const SequenceStep& step) { return step.way == 23; }

namespace {

using model::File;
using model::FileError;
using model::Mode;
using model::Node;
using model::Pairs;
using model::World;

Pairs pairs_of(const model::Map& map) { return {map.begin(), map.end()}; }

Pairs pairs_of(const SequenceStep& step) { return model::key_pairs(step.bytes, false); }

/// Opens a file, uses all of its operations, and closes it.
std::string handle(const SequenceStep& step, World& world, BothSides& sides) {
  static const Mode modes[] = {Mode::kRead, Mode::kWrite, Mode::kAppend, Mode::kTruncate};
  std::string said;
  const auto attempt = [&](auto work) {
    try {
      said += work() + ",";
    } catch (const FileError& failed) {
      said += "throws " + failed.text + ",";
    }
  };
  File file(world, sides.folder, step.name);
  attempt([&] {
    file.open(modes[static_cast<std::size_t>(step.type & 3)]);
    return std::string();
  });
  // The rest of the step would read the size of a folder, see BothSides.
  sides.skip_rest = !file.is_open() && (step.name.empty() || world.tree.is_folder(file.path()));
  if (sides.skip_rest) return said;
  if (step.flag) attempt([&] { return std::to_string(file.write(step.bytes)); });
  file.seek(step.place - 3, step.way % 3);
  std::string out;
  attempt([&] { return std::to_string(file.read(out, count_of(step))) + out; });
  if (step.second_flag) file.clear();
  attempt([&] { return std::to_string(file.write("tail")); });
  file.seek(0, 0);
  attempt([&] { return std::to_string(file.read(out, 0)) + out; });
  return said;
}

std::string ask_path(const SequenceStep& step, World& world, BothSides& sides) {
  const std::string path = sides.folder + "\\" + step.name;
  const bool is_folder = world.tree.is_folder(path);
  sides.skip_rest = is_folder && (step.way % 8 == 1 || step.way % 8 == 2);
  if (sides.skip_rest) return "";
  switch (step.way % 8) {
    case 0: return text_of(world.tree.exists(path));
    case 1: return std::to_string(world.tree.size(path));
    case 2: return std::to_string(world.tree.time(path));
    case 3: return text_of(is_folder);
    case 4: return text_of(world.tree.names(sides.folder));
    case 5: return text_of(model::lines_not_empty(world.read_whole(sides.folder, step.name)));
    default: return std::to_string(world.folder_size_in_kb(sides.folder));
  }
}

std::string change_path(const SequenceStep& step, World& world, BothSides& sides) {
  const std::string path = sides.folder + "\\" + step.name;
  const std::string other = sides.folder + "\\" + step.other_name;
  switch (step.way % 6) {
    case 0: return text_of(world.create_dir(path));
    case 1: world.remove(path); return "";
    case 2: return text_of(world.tree.rename(path, other));
    case 3: return text_of(world.copy_file(path, other, step.second_flag));
    case 4: return text_of(world.recurse_remove(path));
    default: return text_of(world.chmod(path));
  }
}

std::string clean(const SequenceStep& step, World& world, BothSides& sides) {
  world.now = sides.now;
  World::Kept kept;
  const std::uint32_t count = world.clean(sides.folder, limit_of(step), kept, by_access(step));
  for (const auto& [age, path] : kept) {
    if (age < 0) sides.ages_unknown = true;
  }
  std::vector<std::string> texts;
  for (const auto& [age, path] : kept)
    texts.push_back((sides.ages_unknown ? "?" : std::to_string(age)) + " " + path);
  std::sort(texts.begin(), texts.end());
  return std::to_string(count) + " " + text_of(texts);
}

// ---- changes by other programs, in memory and on disk -------------------------------------------

/// Creates a folder and the missing folders above it.
void ensure(World& world, const std::string& path) {
  if (world.tree.at(path) != nullptr || path.size() <= world.tree.root_path().size()) return;
  ensure(world, path.substr(0, path.rfind('\\')));
  if (world.tree.make_folder(path)) ground::make_folder(path);
}

void write_file(World& world, const std::string& path, const std::string& bytes) {
  Node* const node = world.tree.open_to_write(path);
  if (node == nullptr) return;
  node->bytes = bytes;
  node->is_fresh = true;
  ground::write(path, bytes);
}

/// Creates the files of an index's entries, if their names are plain.
void write_files_of(const SequenceStep& step, World& world, const BothSides& sides) {
  for (const auto& [key, stored] : model::index_pairs(step.bytes)) {
    if (key.size() < 11 || stored.empty()) continue;
    const std::string name = model::file_of(key, stored);
    if (name.find_first_of("\\/*?\r\n") != std::string::npos || name.front() == '.') continue;
    write_file(world, sides.folder + "\\" + name, "file of a line");
  }
}

std::string preload_path(const SequenceStep& step, const World& world, const BothSides& sides) {
  std::string root =
      sides.folder + "\\00000001" + model::extension_with_dot(step.name) + "_" + world.part_stamp;
  if (step.selector[0] == 'h') root += "\\html";
  if (step.selector[0] == 'p') root += "\\pdf";
  return root + "\\preload";
}

void others(const SequenceStep& step, World& world, BothSides& sides) {
  static const std::int64_t times[] = {
      0, 1, 1000000000, kFirstTime - 5, kFirstTime + 15, kFirstTime + 40};
  const bool may_make = step.place != 6 || step.second_flag;
  const std::string path = sides.folder + "\\" + step.name;
  Node* const node = world.tree.at(path);
  const bool is_file = node != nullptr && !node->is_folder;
  switch (step.kind) {
    case Kind::kWriteIndex:
    case Kind::kWriteCounter:
    case Kind::kWriteMails: {
      if (may_make) ensure(world, sides.folder);
      const char* const name = step.kind == Kind::kWriteIndex     ? "index.dat"
                               : step.kind == Kind::kWriteCounter ? "index"
                                                                  : "read.txt";
      write_file(world, sides.folder + "\\" + name, step.bytes);
      if (step.kind == Kind::kWriteIndex && step.flag) write_files_of(step, world, sides);
      break;
    }
    case Kind::kWriteFile:
      if (may_make) ensure(world, sides.folder);
      if (step.way < 5) {
        const std::string folder = preload_path(step, world, sides);
        if (may_make) ensure(world, folder);
        write_file(world, folder + "\\" + part_of(step), step.bytes);
      } else if (!step.name.empty()) {
        write_file(world, path, step.bytes);
      }
      break;
    case Kind::kMakeFolder:
      if (may_make) ensure(world, path);
      break;
    case Kind::kErase:
      if (node == nullptr || step.name.empty() || (node->is_folder && !node->names.empty())) break;
      node->is_read_only = false;
      if (node->is_folder ? world.tree.remove_folder(path) : world.tree.remove_file(path))
        ground::remove(path);
      break;
    case Kind::kSetTime:
      if (!is_file) break;
      node->time = times[static_cast<std::size_t>(step.way) % std::size(times)];
      ground::set_time(path, node->time);
      break;
    case Kind::kReadOnly:
      if (!is_file) break;
      node->is_read_only = !node->is_read_only;
      ground::set_read_only(path, node->is_read_only);
      break;
    default: break;
  }
}

// ---- the library's operations -------------------------------------------------------------------

std::string document(const SequenceStep& step, World& world, BothSides& sides) {
  std::string out = "untouched";
  std::string folder = "untouched";
  switch (step.kind) {
    case Kind::kStore: {
      File file(world);
      const bool result =
          world.open_write(file, step.owner, step.name, step.type, step.flag, step.stamp);
      const bool is_open = file.is_open();
      world.write(file, step.bytes);
      return text_of(result || step.way % 2 == 1) + text_of(is_open);
    }
    case Kind::kFetch: {
      File file(world);
      world.open_read(file, step.owner, step.name, step.type, step.stamp);
      const bool is_open = file.is_open();
      sides.skip_rest = !is_open && world.tree.is_folder(file.path());
      if (!sides.skip_rest) world.read(file, out, step.flag ? 0 : count_of(step));
      return text_of(is_open) + out;
    }
    case Kind::kIsFileExist: {
      const bool result = world.is_file_exist(step.owner, step.name, step.type, step.stamp,
                                              step.flag ? &folder : nullptr, &out);
      return text_of(result) + folder + out;
    }
    case Kind::kLatest: return std::to_string(world.latest(step.owner, step.name, step.type));
    case Kind::kIndexName:
      folder = text_of(world.index_name(sides.folder, step.name, step.stamp, out));
      return folder + out;
    case Kind::kRemoveFile:
      return text_of(world.remove_file(step.owner, step.name, step.type, step.stamp));
    case Kind::kCopyTo:
      return text_of(world.copy_to_storage(sides.places.source + "\\a.kdb", step.owner, step.name,
                                           step.type, step.flag, step.stamp));
    case Kind::kCopyFrom:
      return text_of(world.copy_from_storage(sides.places.work + "\\out", step.owner, step.name,
                                             step.type, step.stamp));
    default:
      return text_of(world.copy_file_to_storage(sides.places.source, step.name, step.owner,
                                                step.flag ? 1 : step.type));
  }
}

std::string keys_and_parts(const SequenceStep& step, World& world, BothSides& sides) {
  Pairs pairs;
  std::string result;
  std::string out = "untouched";
  switch (step.kind) {
    case Kind::kSaveProfile:
      return std::to_string(world.save_profile(step.owner, step.name, pairs_of(step)));
    case Kind::kLoadProfile:
      result = std::to_string(world.load_profile(step.owner, step.name, pairs));
      return result + text_of(pairs);
    case Kind::kReadKeys:
      result = std::to_string(world.read_keys_file(sides.folder, step.name, pairs, step.flag));
      return result + text_of(pairs);
    case Kind::kWriteKeys:
      return text_of(world.write_keys_file(sides.folder, step.name, step.bytes, step.flag));
    case Kind::kWritePart: {
      File file(world);
      world.open_write_part(file, step.owner, step.name, step.selector, part_of(step), step.stamp);
      const bool is_open = file.is_open();
      if (is_open) world.write(file, step.bytes);
      return text_of(is_open);
    }
    default: {
      File file(world);
      world.open_read_part(file, step.owner, step.name, step.selector, part_of(step), step.stamp);
      const bool is_open = file.is_open();
      const std::size_t size = is_open ? world.tree.size(file.path()) : 0;
      if (is_open) world.read(file, out, 0);
      return text_of(is_open) + out + (step.flag ? std::to_string(size) : "");
    }
  }
}

std::string lists(const SequenceStep& step, World& world, BothSides& sides) {
  std::vector<std::string> physical = {"before"};
  std::vector<std::string> logical;
  const std::vector<std::string> wanted = {step.name, "a.kdb"};
  switch (step.kind) {
    case Kind::kRenameUser: return text_of(world.rename_user(step.owner, step.other_owner));
    case Kind::kRemoveUser:
      world.remove_user(step.owner);
      if (step.flag) world.remove_user("nobody");
      return "";
    case Kind::kAllFiles:
      logical = world.all_files(sides.folder, physical);
      return text_of(logical) + text_of(physical);
    case Kind::kDocuments:
      if (!world.tree.is_folder(sides.folder)) {
        world.check_init();
        return "throws";
      }
      logical = world.documents(sides.folder, physical, step.flag ? &wanted : nullptr);
      return text_of(logical) + text_of(physical);
    default: return text_of(world.existing_files(sides.folder));
  }
}

std::string index(const SequenceStep& step, World& world, BothSides& sides) {
  static const World::Values which[] = {World::Values::kPhysical, World::Values::kLogical,
                                        World::Values::kCategories, World::Values::kDocuments};
  std::string out = "untouched";
  std::string result;
  long stamp = 77;
  std::uint64_t counter = 77;
  switch (step.kind) {
    case Kind::kExists:
      result = text_of(world.index_exists(sides.folder, step.name, step.stamp, out));
      return result + out;
    case Kind::kCreate: return world.index_create(sides.folder, step.name, step.stamp);
    case Kind::kRemove: world.index_remove(sides.folder, step.name, step.stamp); return "";
    case Kind::kRename:
      world.index_rename(sides.folder, step.name, step.stamp, step.other_name, step.other_stamp);
      return "";
    case Kind::kLastVersion:
      result = text_of(world.last_version(sides.folder, step.name, stamp));
      return result + std::to_string(stamp);
    case Kind::kValues: return text_of(pairs_of(world.values(sides.folder, which[step.way % 4])));
    case Kind::kPhysicalPath: return world.physical_path(sides.folder, step.name);
    case Kind::kUpdate:
      if (step.flag) world.check_init();
      world.update_index(sides.folder);
      return "";
    case Kind::kClean: return clean(step, world, sides);
    case Kind::kCleanDirectories:
      world.clean_directories(sides.folder, "00000001.kdb", step.flag ? &counter : nullptr);
      return std::to_string(counter);
    default: world.migrate(step.owner); return "";
  }
}

std::string process(const SequenceStep& step, World& world, const BothSides& sides) {
  switch (step.kind) {
    case Kind::kNewProcess: {
      world.forget();
      if (step.way == 0) return "";
      std::string result = text_of(world.init_root(sides.places.work, step.flag, step.second_flag));
      if (step.way == 1)
        result += text_of(world.init_root(sides.places.source, !step.flag, !step.second_flag));
      return result;
    }
    case Kind::kSwitch: world.synchronises = step.flag; return "";
    default: world.part_stamp = step.flag ? "2024" : ""; return "";
  }
}

}  // namespace

std::string run_on_model(const SequenceStep& step, World& world, BothSides& sides) {
  try {
    if (is_senseless(step)) return "";
    if (step.kind <= Kind::kCopyFile) return document(step, world, sides);
    if (step.kind <= Kind::kReadPart) return keys_and_parts(step, world, sides);
    if (step.kind <= Kind::kExistingFiles) return lists(step, world, sides);
    if (step.kind <= Kind::kMigrate) return index(step, world, sides);
    if (step.kind == Kind::kHandle) return handle(step, world, sides);
    if (step.kind == Kind::kPath) return ask_path(step, world, sides);
    if (step.kind == Kind::kChangePath) return change_path(step, world, sides);
    if (step.kind >= Kind::kNewProcess) return process(step, world, sides);
    others(step, world, sides);
    return "";
  } catch (const FileError& failed) {
    return "throws " + failed.text;
  }
}

}  // namespace reliability::sequences
