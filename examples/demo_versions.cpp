// Names, writes and reads one version of a document.
#include <algorithm>

#include "demo.h"

namespace demo {

namespace {

// Large documents are written in pieces, like those that a client receives from a network.
constexpr std::size_t kPiece = 256U << 10U;

bool is_corporate_kdf(const Version& version) {
  return version.type == STG::CorporateRepository && vu_file::getExtension(version.entry) == "kdf";
}

}  // namespace

bool is_served(const Version& version) { return is_corporate_kdf(version) || version.stamp == 0; }

bool open_version(vu_storage& storage, vu_file& file, const Version& version) {
  if (is_served(version)) {
    const long stamp = is_corporate_kdf(version) ? version.stamp : version.not_older_than;
    if (is_ascii(version.owner) && is_ascii(version.entry)) {
      storage.OpenRead(file, version.owner, version.entry, version.type, stamp);
    } else {
      storage.OpenRead(file, vu_utf8string(version.owner), vu_utf8string(version.entry),
                       version.type, stamp);
    }
    return file.is_open();
  }
  std::string folder;
  std::string physical;
  if (!storage.IsFileExist(version.owner, version.entry, version.type, version.stamp, &folder,
                           &physical))
    return false;
  try {
    file.open(folder, physical, vu_file_base::o_read);
  } catch (const vu_file_except&) {
    // Removed or unreadable: the file is not open.
  }
  return file.is_open();
}

bool read_version(vu_storage& storage, const Version& version, std::string& bytes) {
  vu_file file;
  bytes.clear();
  if (!open_version(storage, file, version)) return false;
  storage.Read(file, bytes, 0);
  storage.Close(file);
  return !file.is_open();
}

bool write_version(vu_storage& storage, const Version& version, const std::string& bytes,
                   bool replace) {
  vu_file file;
  if (!storage.OpenWrite2(file, version.owner, version.entry, version.type, replace, version.stamp))
    return false;
  if (!file.is_open()) return false;
  for (std::size_t at = 0; at < bytes.size(); at += kPiece)
    storage.Write(file, bytes.substr(at, kPiece));
  storage.Close(file);
  return !file.is_open();
}

std::size_t add_version(Demo& demo, const std::string& owner, STG::RepositoryType type,
                        const std::string& entry, long stamp, const std::string& bytes) {
  Version version{owner, type, entry, stamp, {}, bytes.size(), fnv1a(bytes), 0};
  vu_storage storage;
  std::string back;
  demo.report.check(write_version(storage, version, bytes, true), name_of(version) + " is written");
  demo.report.check(read_version(storage, version, back) && back == bytes,
                    name_of(version) + " reads back");
  demo.versions.push_back(std::move(version));
  return demo.versions.size() - 1;
}

void forget_versions(Demo& demo, const std::string& owner, const std::string& entry) {
  std::erase_if(demo.versions, [&](const Version& version) {
    return version.owner == owner && version.entry == entry;
  });
}

std::string name_of(const Version& version) {
  return text_of("'", version.entry, "' of ", version.owner, " in ", area_of(version.type), " at ",
                 version.stamp);
}

const char* area_of(STG::RepositoryType type) {
  switch (type) {
    case STG::CorporateRepository:
      return "docs";
    case STG::MailRepository:
    case STG::MailFilesRepository:
      return "mail";
    default:
      return "user";
  }
}

std::string path_of_version(vu_storage& storage, const Version& version) {
  std::string folder;
  std::string physical;
  if (!storage.IsFileExist(version.owner, version.entry, version.type, version.stamp, &folder,
                           &physical))
    return {};
  return folder + "\\" + physical;
}

}  // namespace demo
