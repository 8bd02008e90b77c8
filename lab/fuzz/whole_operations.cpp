// Names of any bytes through whole operations: nothing breaks, and entries that no name touches
// stay.

#include <exception>
#include <map>
#include <string>
#include <string_view>

#include "lab/fuzz/target.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_storage.h"

namespace fuzz {
namespace {

constexpr std::string_view kBystander = "bystander.kdb";
constexpr std::string_view kBytes = "bytes of a bystander";
constexpr long kStamp = 7;
constexpr const char* kOwner = "ann";

/// Whether a name, by itself, may lead to what others have: patterns, separators, and the names of
/// files that the library makes.
bool may_touch_others(const std::string& name) {
  if (name.empty() || name.find_first_of("*?\\/") != std::string::npos) return true;
  if (name.find('\0') != std::string::npos) return true;
  for (const char* const part : {"bystander", "index", "0000", ".."}) {
    if (name.find(part) != std::string::npos) return true;
  }
  // The folder itself, and what a search takes for it.
  return name.find_first_not_of(". ") == std::string::npos;
}

/// A storage with one document and one key file of somebody who has nothing to do with the names.
class Stage {
 public:
  Stage(bool use_domain, bool synchronise) : m_storage(m_scratch.path(), use_domain, synchronise) {
    vu_storage storage;
    for (const STG::RepositoryType type : {STG::MailRepository, STG::UserFilesRepository}) {
      vu_file file;
      storage.OpenWrite2(file, kOwner, std::string(kBystander), type, true, kStamp);
      storage.Write(file, std::string(kBytes));
      storage.Close(file);
    }
  }

  bool bystanders_are_there() const {
    vu_storage storage;
    for (const STG::RepositoryType type : {STG::MailRepository, STG::UserFilesRepository}) {
      std::string folder;
      std::string physical;
      if (!storage.IsFileExist(kOwner, std::string(kBystander), type, kStamp, &folder, &physical))
        return false;
      if (read_file(folder + "\\" + physical) != kBytes) return false;
    }
    return true;
  }

 private:
  scratch_folder m_scratch;
  initialised_storage m_storage;
};

struct Names {
  std::string owner;
  std::string name;
  std::string other;
  STG::RepositoryType type;
  long stamp;
};

void documents(unsigned char what, const Names& n) {
  vu_storage storage;
  vu_file file;
  std::string out;
  switch (what % 6) {
    case 0:
      storage.OpenWrite2(file, n.owner, n.name, n.type, (what & 64U) != 0, n.stamp);
      storage.Write(file, n.other);
      storage.Close(file);
      break;
    case 1:
      storage.OpenRead(file, n.owner, n.name, n.type, n.stamp);
      storage.Read(file, out, 0);
      storage.Close(file);
      break;
    case 2:
      vu_storage::RemoveFile(n.owner, n.name, n.type, n.stamp);
      break;
    case 3:
      storage.OpenWrite(file, vu_utf8string(n.owner), vu_utf8string(n.name), n.type, true, n.stamp);
      storage.Close(file);
      break;
    case 4:
      vu_storage::getLattestTimestamp(n.owner, n.name, n.type);
      break;
    default:
      storage.IsFileExist(n.owner, n.name, n.type, n.stamp, nullptr, &out);
      break;
  }
}

void keys_and_parts(unsigned char what, const Names& n) {
  vu_storage storage;
  vu_file file;
  STG::NameValueSeq seq;
  switch (what % 5) {
    case 0:
      seq.push_back({n.other, n.name});
      vu_storage::saveUserOrMasterProfile(n.owner, n.name, seq);
      break;
    case 1:
      vu_storage::loadUserOrMasterProfile(n.owner, n.name, seq);
      break;
    case 2:
      storage.OpenWriteSubPart(file, n.owner, n.name, n.other, n.other, n.stamp);
      storage.Close(file);
      break;
    case 3:
      storage.OpenReadSubPart(file, n.owner, n.owner, n.name, n.other, n.other, n.stamp);
      storage.Close(file);
      break;
    default:
      STGIndex::migrateInboxRead(n.owner);
      break;
  }
}

void index(unsigned char what, const Names& n, const std::string& folder) {
  STGIndex::NameMap map;
  STGIndex::AgeMap kept;
  std::string out;
  long stamp = 0;
  switch (what % 7) {
    case 0:
      STGIndex::create(folder, n.name, n.stamp);
      break;
    case 1:
      STGIndex::exists(folder, n.name, n.stamp, out);
      break;
    case 2:
      STGIndex::rename(folder, n.name, n.stamp, n.other, n.stamp + 1);
      break;
    case 3:
      STGIndex::lastVersion(folder, n.name, stamp);
      break;
    case 4:
      STGIndex::remove(folder, n.name, n.stamp);
      break;
    case 5:
      STGIndex::plValues(folder, map);
      break;
    default:
      STGIndex::cleanOutOfDateOutput(folder, 4000000000UL, kept, false);
      break;
  }
}

void files(unsigned char what, const Names& n, const std::string& folder) {
  const std::string path = folder + "\\" + n.name;
  const std::string other = folder + "\\" + n.other;
  const bool wide = (what & 128U) != 0;
  switch (what % 5) {
    case 0: {
      vu_file file(folder, n.name);
      bool locked = false;
      if (file.try_open(vu_file_base::o_append, locked, true)) file.write(n.other);
      break;
    }
    case 1:
      vu_file::copyFile(path, other, true);
      break;
    case 2:
      if (wide) {
        vu_fileutf8::rename(vu_utf8string(path), vu_utf8string(other));
      } else {
        vu_file::rename(path, other);
      }
      break;
    case 3:
      if (wide) {
        vu_fileutf8::createDir(vu_utf8string(path));
      } else {
        vu_file::createDir(path);
      }
      break;
    default:
      if (wide) {
        vu_fileutf8::remove(vu_utf8string(path));
      } else {
        vu_file::remove(path);
      }
      break;
  }
}

/// One operation; what it throws as it is stated is no finding.
void operation(Source& source, const std::string& folder, bool& touches_others) {
  static const STG::RepositoryType types[] = {STG::UserRepository, STG::UserFilesRepository,
                                              STG::CorporateRepository, STG::MailRepository};
  const unsigned char what = source.byte();
  const unsigned char how = source.byte();
  Names n;
  n.type = types[how % 4];
  n.stamp = how / 4;
  n.name = source.text();
  n.other = source.text();
  n.owner = (how & 128U) != 0 ? kOwner : source.text();
  // Out of the folder that this run may touch.
  for (const std::string* const each : {&n.name, &n.other, &n.owner}) {
    if (each->find("..") != std::string::npos) return;
    touches_others = touches_others || may_touch_others(*each);
  }
  try {
    switch (what % 4) {
      case 0:
        documents(what / 4, n);
        break;
      case 1:
        keys_and_parts(what / 4, n);
        break;
      case 2:
        index(what / 4, n, folder);
        break;
      default:
        files(what / 4, n, folder);
        break;
    }
  } catch (const vu_file_except&) {
    // As stated for a file that cannot be opened.
  } catch (const vu_i18n_except&) {
    // As stated for bytes that are no text.
  }
}

void whole_operations(std::string_view bytes) {
  Source source(bytes);
  const unsigned char first = source.byte();
  const Stage stage((first & 1U) != 0, (first & 2U) != 0);
  bool touches_others = false;
  const std::string folder = vu_storage::getUserPath() + ((first & 1U) != 0 ? "\\ann" : "");
  for (int i = 0; i < 6 && !source.is_empty(); ++i) operation(source, folder, touches_others);
  require(touches_others || stage.bystanders_are_there(), "an entry that no name touches stays");
}

REGISTER_FUZZ_TARGET(whole_operations, "whole-operations")

}  // namespace
}  // namespace fuzz
