// Runs the steps on the library.

#include <algorithm>

#include "lab/reliability/sequences.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/storage_peer.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_storage.h"

namespace reliability::sequences {
namespace {

using Texts = std::vector<std::string>;

vu_utf8string utf8(const std::string& text) { return vu_utf8string(text); }

STG::RepositoryType type_of(const SequenceStep& step) {
  return static_cast<STG::RepositoryType>(step.type);
}

/// If `long` is wider than a timestamp, the largest one is sometimes passed as a larger number.
long wide(std::int32_t stamp, const SequenceStep& step) {
  if (sizeof(long) > 4 && stamp == 2147483647 && step.way == 3) return static_cast<long>(1LL << 40);
  return stamp;
}

STG::NameValueSeq sequence_of(const SequenceStep& step) {
  STG::NameValueSeq seq;
  for (const auto& [name, value] : model::key_pairs(step.bytes, false))
    seq.push_back({name, value});
  return seq;
}

std::string text_of_sequence(const STG::NameValueSeq& seq) {
  model::Pairs pairs;
  for (const STG::NameValue& each : seq) pairs.emplace_back(each.name, each.value);
  return text_of(pairs);
}

std::string text_of_map(const STGIndex::NameMap& map) {
  return text_of(model::Pairs(map.begin(), map.end()));
}

template <class Handle>
std::string handle(Handle& file, const SequenceStep& step, const BothSides& sides) {
  static const vu_file_base::type_access modes[] = {vu_file_base::o_read, vu_file_base::o_write,
                                                    vu_file_base::o_append,
                                                    vu_file_base::o_truncate};
  std::string said;
  const auto attempt = [&](auto work) {
    try {
      said += work() + ",";
    } catch (const vu_file_except& failed) {
      said += "throws " + failed.what() + ",";
    }
  };
  attempt([&] {
    file.open(modes[static_cast<std::size_t>(step.type & 3)]);
    return std::string();
  });
  if (sides.skip_rest) return said;
  if (step.flag) attempt([&] { return std::to_string(file.write(step.bytes)); });
  file.seek(step.place - 3, static_cast<short>(step.way % 3));
  std::string out;
  attempt([&] {
    const int count = file.read(out, count_of(step));
    return std::to_string(count) + out;
  });
  if (step.second_flag) file.clear();
  attempt([&] { return std::to_string(file.write("tail")); });
  file.rewind();
  attempt([&] {
    const int count = file.read(out, 0);
    return std::to_string(count) + out;
  });
  file.close();
  return said;
}

std::string ask_path(const SequenceStep& step, const BothSides& sides) {
  if (sides.skip_rest) return "";
  const std::string path = sides.folder + "\\" + step.name;
  const bool in_utf8 = step.flag;
  Texts names;
  switch (step.way % 8) {
    case 0: return text_of(in_utf8 ? vu_fileutf8::exists(utf8(path)) : vu_file::exists(path));
    case 1:
      return in_utf8 ? std::to_string(vu_fileutf8::size(utf8(path)))
                     : std::to_string(vu_file::size(path));
    case 2:
      return in_utf8 ? std::to_string(vu_fileutf8::modify_time(utf8(path)))
                     : std::to_string(vu_file::modify_time(path));
    case 3: return text_of(in_utf8 ? vu_fileutf8::is_dir(utf8(path)) : vu_file::is_dir(path));
    case 4:
      if (in_utf8) {
        for (const vu_utf8string& each : vu_fileutf8::filenames(utf8(sides.folder)))
          names.push_back(each.str());
      } else {
        names = vu_file::filenames(sides.folder);
      }
      std::sort(names.begin(), names.end());
      return text_of(names);
    case 5:
      if (in_utf8) {
        std::vector<vu_utf8string> lines;
        vu_fileutf8::linesNotEmpty(utf8(sides.folder), utf8(step.name), lines);
        for (const vu_utf8string& each : lines) names.push_back(each.str());
      } else {
        vu_file::linesNotEmpty(sides.folder, step.name, names);
      }
      return text_of(names);
    default: return std::to_string(vu_fileutf8::getFolderSizeInKb(utf8(sides.folder)));
  }
}

std::string change_path(const SequenceStep& step, const BothSides& sides) {
  const std::string path = sides.folder + "\\" + step.name;
  const std::string other = sides.folder + "\\" + step.other_name;
  const bool in_utf8 = step.flag;
  switch (step.way % 6) {
    case 0: return text_of(in_utf8 ? vu_fileutf8::createDir(utf8(path)) : vu_file::createDir(path));
    case 1:
      if (in_utf8) {
        vu_fileutf8::remove(utf8(path));
      } else {
        vu_file::remove(path);
      }
      return "";
    case 2:
      return text_of(in_utf8 ? vu_fileutf8::rename(utf8(path), utf8(other))
                             : vu_file::rename(path, other));
    case 3:
      return text_of(in_utf8 ? vu_fileutf8::copyFile(utf8(path), utf8(other), step.second_flag)
                             : vu_file::copyFile(path, other, step.second_flag));
    case 4:
      return text_of(in_utf8 ? vu_fileutf8::recurseRemoveDir(utf8(path), step.second_flag)
                             : vu_file::recurseRemoveDir(path));
    default: return text_of(in_utf8 ? vu_fileutf8::chmodW(utf8(path)) : vu_file::chmodW(path));
  }
}

std::string clean(const SequenceStep& step, const BothSides& sides) {
  const auto clock = os::faults::set_now(sides.now);
  STGIndex::AgeMap kept;
  const unsigned long count =
      STGIndex::cleanOutOfDateOutput(sides.folder, limit_of(step), kept, by_access(step));
  Texts texts;
  for (const auto& [age, path] : kept)
    texts.push_back((sides.ages_unknown ? "?" : std::to_string(age)) + " " + path);
  std::sort(texts.begin(), texts.end());
  return std::to_string(count) + " " + text_of(texts);
}

std::string store(const SequenceStep& step) {
  vu_storage storage;
  vu_file file;
  bool result = true;
  const long stamp = wide(step.stamp, step);
  // An odd step.way uses the form without a result, or the form with UTF-8 names.
  if (step.way % 2 == 0) {
    result = storage.OpenWrite2(file, step.owner, step.name, type_of(step), step.flag, stamp);
  } else if (step.way % 4 == 1) {
    storage.OpenWrite(file, step.owner, step.name, type_of(step), step.flag, stamp);
  } else {
    storage.OpenWrite(file, utf8(step.owner), utf8(step.name), type_of(step), step.flag, stamp);
  }
  const bool is_open = file.is_open();
  storage.Write(file, step.bytes);
  storage.Close(file);
  return text_of(result) + text_of(is_open);
}

std::string document(const SequenceStep& step, const BothSides& sides) {
  vu_storage storage;
  vu_file file;
  std::string out = "untouched";
  std::string folder = "untouched";
  const long stamp = wide(step.stamp, step);
  const bool in_utf8 = step.second_flag;
  switch (step.kind) {
    case Kind::kFetch: {
      if (in_utf8) {
        storage.OpenRead(file, utf8(step.owner), utf8(step.name), type_of(step), stamp);
      } else {
        storage.OpenRead(file, step.owner, step.name, type_of(step), stamp);
      }
      const bool is_open = file.is_open();
      if (!sides.skip_rest) storage.Read(file, out, step.flag ? 0 : count_of(step));
      storage.Close(file);
      return text_of(is_open) + out;
    }
    case Kind::kIsFileExist: {
      std::string* const wants_folder = step.flag ? &folder : nullptr;
      const bool result = in_utf8 ? storage.IsFileExist(utf8(step.owner), utf8(step.name),
                                                        type_of(step), stamp, wants_folder, &out)
                                  : storage.IsFileExist(step.owner, step.name, type_of(step), stamp,
                                                        wants_folder, &out);
      return text_of(result) + folder + out;
    }
    case Kind::kLatest:
      return std::to_string(vu_storage::getLattestTimestamp(step.owner, step.name, type_of(step)));
    case Kind::kIndexName:
      folder = text_of(vu_storage::getIndexNameFromDocName(sides.folder, step.name, stamp, out));
      return folder + out;
    case Kind::kRemoveFile:
      return text_of(
          in_utf8 ? vu_storage::RemoveFile(utf8(step.owner), utf8(step.name), type_of(step), stamp)
                  : vu_storage::RemoveFile(step.owner, step.name, type_of(step), stamp));
    case Kind::kCopyTo:
      return text_of(vu_storage::copyToStorage(sides.places.source + "\\a.kdb", step.owner,
                                               step.name, type_of(step), step.flag, stamp));
    case Kind::kCopyFrom:
      return text_of(vu_storage::copyFromStorage(sides.places.work + "\\out", step.owner, step.name,
                                                 type_of(step), stamp));
    default:
      if (step.flag)
        return text_of(storage.copyFileToUserPath(sides.places.source, step.name, step.owner));
      return text_of(in_utf8 ? storage.copyFileToStorage(sides.places.source, step.name,
                                                         utf8(step.owner), type_of(step))
                             : storage.copyFileToStorage(sides.places.source, step.name, step.owner,
                                                         type_of(step)));
  }
}

std::string read_part(const SequenceStep& step) {
  vu_storage storage;
  vu_file file;
  unsigned long size = 77;
  const std::string part = part_of(step);
  if (step.flag && step.second_flag) {
    storage.OpenReadSubPartEx(file, utf8("who"), utf8(step.owner), utf8(step.name), step.selector,
                              part, step.stamp, size);
  } else if (step.flag) {
    storage.OpenReadSubPartEx(file, "who", step.owner, step.name, step.selector, part, step.stamp,
                              size);
  } else if (step.second_flag) {
    storage.OpenReadSubPart(file, utf8("who"), utf8(step.owner), utf8(step.name), step.selector,
                            part, step.stamp);
  } else {
    storage.OpenReadSubPart(file, "who", step.owner, step.name, step.selector, part, step.stamp);
  }
  const bool is_open = file.is_open();
  std::string out = "untouched";
  if (is_open) storage.Read(file, out, 0);
  storage.Close(file);
  return text_of(is_open) + out + (step.flag ? std::to_string(size) : "");
}

std::string keys_and_parts(const SequenceStep& step, const BothSides& sides) {
  STG::NameValueSeq seq;
  std::string result;
  switch (step.kind) {
    case Kind::kSaveProfile:
      return std::to_string(
          vu_storage::saveUserOrMasterProfile(step.owner, step.name, sequence_of(step)));
    case Kind::kLoadProfile:
      result = std::to_string(vu_storage::loadUserOrMasterProfile(step.owner, step.name, seq));
      return result + text_of_sequence(seq);
    case Kind::kReadKeys:
      result = std::to_string(vu_storage::readKeysFile(sides.folder, step.name, seq, step.flag));
      return result + text_of_sequence(seq);
    case Kind::kWriteKeys:
      return text_of(vu_storage::writeKeysFile(sides.folder, step.name, step.bytes, step.flag));
    case Kind::kWritePart: {
      vu_storage storage;
      vu_file file;
      if (step.flag) {
        storage.OpenWriteSubPart(file, utf8(step.owner), utf8(step.name), step.selector,
                                 part_of(step), step.stamp);
      } else {
        storage.OpenWriteSubPart(file, step.owner, step.name, step.selector, part_of(step),
                                 step.stamp);
      }
      const bool is_open = file.is_open();
      if (is_open) storage.Write(file, step.bytes);
      storage.Close(file);
      return text_of(is_open);
    }
    default: return read_part(step);
  }
}

std::string lists(const SequenceStep& step, const BothSides& sides) {
  Texts physical = {"before"};
  Texts logical;
  const Texts wanted = {step.name, "a.kdb"};
  switch (step.kind) {
    case Kind::kRenameUser:
      return text_of(vu_storage::RenameUserStorage(step.owner, step.other_owner));
    case Kind::kRemoveUser:
      if (step.flag) {
        vu_storage::RemoveUsersStorage({utf8(step.owner), utf8("nobody")});
      } else {
        vu_storage::RemoveUserStorage(utf8(step.owner));
      }
      return "";
    case Kind::kAllFiles:
      logical = vu_storage::getAllFileListFromIndexFile(sides.folder, physical);
      return text_of(logical) + text_of(physical);
    case Kind::kDocuments:
      try {
        logical = vu_storage::getFileListFromIndexFile(sides.folder, physical,
                                                       step.flag ? &wanted : nullptr);
      } catch (const vu_file_except&) {
        return "throws";  // Its text is not stated.
      }
      return text_of(logical) + text_of(physical);
    default: {
      std::multimap<std::string, std::string> map;
      vu_storage_test_peer::AddExistVUFilesToMap(sides.folder, map);
      return text_of(model::Pairs(map.begin(), map.end()));
    }
  }
}

std::string index(const SequenceStep& step, const BothSides& sides) {
  std::string out = "untouched";
  std::string result;
  STGIndex::NameMap map;
  long last = 77;
  unsigned long counter = 77;
  const long stamp = wide(step.stamp, step);
  switch (step.kind) {
    case Kind::kExists:
      result = text_of(STGIndex::exists(sides.folder, step.name, stamp, out));
      return result + out;
    case Kind::kCreate: return STGIndex::create(sides.folder, step.name, stamp);
    case Kind::kRemove: STGIndex::remove(sides.folder, step.name, stamp); return "";
    case Kind::kRename:
      STGIndex::rename(sides.folder, step.name, stamp, step.other_name, step.other_stamp);
      return "";
    case Kind::kLastVersion:
      result = text_of(STGIndex::lastVersion(sides.folder, step.name, last));
      return result + std::to_string(last);
    case Kind::kValues:
      switch (step.way % 4) {
        case 0: STGIndex::plValues(sides.folder, map); break;
        case 1: STGIndex::lpValues(sides.folder, map); break;
        case 2: STGIndex::getCategories(sides.folder, map); break;
        default: STGIndex::getVUDocs(sides.folder, map); break;
      }
      return text_of_map(map);
    case Kind::kPhysicalPath: return STGIndex::getPhysicalPath(sides.folder, step.name);
    case Kind::kUpdate:
      if (step.flag) {
        vu_storage().update_IndexDat(sides.folder);
      } else {
        STGIndex::updateIndexFile(sides.folder);
      }
      return "";
    case Kind::kClean: return clean(step, sides);
    case Kind::kCleanDirectories:
      STGIndex::cleanOutputDirectories(sides.folder, "00000001.kdb",
                                       step.flag ? &counter : nullptr);
      return std::to_string(counter);
    default: STGIndex::migrateInboxRead(step.owner); return "";
  }
}

std::string process(const SequenceStep& step, const BothSides& sides) {
  switch (step.kind) {
    case Kind::kNewProcess: {
      vu_storage_test_peer::reset();
      if (step.way == 0) return "";
      std::string result =
          text_of(vu_storage::initRootStorage(sides.places.work, step.flag, step.second_flag));
      if (step.way == 1)
        result += text_of(
            vu_storage::initRootStorage(sides.places.source, !step.flag, !step.second_flag));
      return result;
    }
    case Kind::kSwitch: STGIndex::setSynchronizeMode(step.flag); return "";
    default: vu_storage::setTdcTimeStamp(step.flag ? "2024" : ""); return "";
  }
}

std::string run(const SequenceStep& step, const BothSides& sides) {
  if (step.kind == Kind::kStore) return store(step);
  if (step.kind <= Kind::kCopyFile) return document(step, sides);
  if (step.kind <= Kind::kReadPart) return keys_and_parts(step, sides);
  if (step.kind <= Kind::kExistingFiles) return lists(step, sides);
  if (step.kind <= Kind::kMigrate) return index(step, sides);
  if (step.kind == Kind::kPath) return ask_path(step, sides);
  if (step.kind == Kind::kChangePath) return change_path(step, sides);
  if (step.kind >= Kind::kNewProcess) return process(step, sides);
  if (step.kind != Kind::kHandle) return "";
  if (step.way < 12) {
    vu_file file(sides.folder, step.name);
    return handle(file, step, sides);
  }
  vu_fileutf8 file(utf8(sides.folder), utf8(step.name));
  return handle(file, step, sides);
}

}  // namespace

std::string run_on_library(const SequenceStep& step, const BothSides& sides) {
  if (is_senseless(step)) return "";
  try {
    return run(step, sides);
  } catch (const vu_file_except& failed) {
    return "throws " + failed.what();
  } catch (const std::exception& other) {
    return std::string("throws another exception: ") + other.what();
  }
}

}  // namespace reliability::sequences
