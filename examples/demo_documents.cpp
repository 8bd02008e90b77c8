// Documents: planned, stored and read back.

#include <algorithm>
#include <array>
#include <cstdint>
#include <limits>
#include <map>
#include <set>
#include <tuple>

#include "demo.h"

namespace demo {

namespace {

// 2008-01-01 00:00 UTC; each further version is a day later.
constexpr long kFirstStamp = 1199145600;
constexpr long kDay = 86400;

constexpr std::array kAreas{STG::CorporateRepository, STG::UserRepository,
                            STG::CorporateRepository, STG::MailRepository,
                            STG::CorporateRepository, STG::UserFilesRepository,
                            STG::MailFilesRepository};

/// A document without its timestamps.
struct Document {
  std::string owner;
  STG::RepositoryType type;
  std::string entry;
};

class Planner {
 public:
  explicit Planner(Demo& demo)
      : m_demo(demo),
        m_owners{"anna.schmidt", "bernd", "Sales Team", demo.beyond_ascii ? "zoë" : "zoe"} {}

  void plan() {
    Document document{};
    for (std::size_t i = 0; i < m_demo.sources.files.size(); ++i) {
      const SourceFile& file = m_demo.sources.files[i];
      // Of each five files, the last three are versions of one document.
      if (i % 5 < 3) document = new_document(file);
      add(document, file);
    }
  }

 private:
  Document new_document(const SourceFile& file);
  void add(const Document& document, const SourceFile& file);

  Demo& m_demo;
  std::array<std::string, 4> m_owners;
  std::size_t m_documents = 0;
  std::map<std::tuple<std::string, std::string, std::string>, long> m_known;
};

Document Planner::new_document(const SourceFile& file) {
  const std::size_t number = m_documents++;
  Document document{m_owners[number % m_owners.size()], kAreas[number % kAreas.size()], file.name};
  switch (number % 4) {
    case 1:
      document.entry += ".kd";
      document.entry += static_cast<char>('a' + number / 4 % 7);
      break;
    case 2: document.entry += ".kdf"; break;
    default: break;
  }
  return document;
}

void Planner::add(const Document& document, const SourceFile& file) {
  Version version;
  version.owner = document.owner;
  version.type = document.type;
  version.entry = document.entry;
  version.source = utf8(file.path);
  version.size = file.size;
  // A file of the same name from another folder is a further version of the same document.
  const long number = m_known[{area_of(document.type), document.owner, document.entry}]++;
  const bool exact =
      document.type == STG::CorporateRepository && vu_file::getExtension(document.entry) == "kdf";
  if (exact || number > 0) version.stamp = kFirstStamp + number * kDay;
  m_demo.versions.push_back(std::move(version));
}

}  // namespace

void plan_versions(Demo& demo) {
  demo.report.begin("Choosing real files");
  for (const std::string& folder : demo.options.sources) demo.report.say("from " + folder);
  demo.sources = collect(demo.options.sources, demo.options.max_files, demo.beyond_ascii);
  const Collection& found = demo.sources;
  if (found.files.empty())
    throw Refusal("there is no file to store below " + demo.options.sources.front() +
                  ": name folders with files by --source DIR");

  std::uint64_t bytes = 0;
  std::uint64_t largest = 0;
  std::array<std::size_t, 5> kinds{};
  for (const SourceFile& file : found.files) {
    bytes += file.size;
    largest = std::max(largest, file.size);
    if (file.name.find(' ') != std::string::npos) ++kinds[0];
    if (std::count(file.name.begin(), file.name.end(), '.') > 1) ++kinds[1];
    if (!is_ascii(file.name)) ++kinds[2];
    if (file.name.find('.') == std::string::npos) ++kinds[3];
    if (file.size == 0) ++kinds[4];
  }
  demo.report.say(text_of(found.files.size(), " of ", found.files_seen, " files in ",
                          found.folders_seen, " folders: ", size_text(bytes), ", the largest ",
                          size_text(largest), ", ", kinds[4], " empty"));
  demo.report.say(text_of("names: ", kinds[0], " with blanks, ", kinds[1], " with several dots, ",
                          kinds[2], " beyond ASCII, ", kinds[3], " without a dot"));
  demo.report.say(text_of("omitted: ", found.not_storable,
                          " with a name that Windows or an index line does not allow, ",
                          found.not_in_codepage, " with letters that the code page lacks, ",
                          found.too_large, " of more than 8 MB"));
  Planner(demo).plan();
}

// ------------------------------------------------------------------------------------------------
// Names, writes and reads one version of a document.

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
    // The file was removed or is unreadable, so it is not open.
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
    case STG::CorporateRepository: return "docs";
    case STG::MailRepository:
    case STG::MailFilesRepository: return "mail";
    default: return "user";
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

// ------------------------------------------------------------------------------------------------
// Stores the planned versions.

namespace {

class Storing {
 public:
  explicit Storing(Demo& demo) : m_demo(demo) {}

  void store(Version& version, std::size_t number, const std::string& other);
  void say() const;

 private:
  bool by_copy(Version& version);
  bool by_utf8(const Version& version, const std::string& bytes);

  Demo& m_demo;
  vu_storage m_storage;
  std::size_t m_written = 0;
  std::size_t m_copied = 0;
  std::size_t m_in_utf8 = 0;
  std::size_t m_replaced = 0;
};

/// copyToStorage() keeps the modification time of the file. Readers use it as the timestamp.
bool Storing::by_copy(Version& version) {
  const std::int64_t time = vu_file::modify_time(version.source);
  if (time <= 0 || time > std::numeric_limits<std::int32_t>::max()) return false;
  ++m_copied;
  version.not_older_than = static_cast<long>(time);
  return vu_storage::copyToStorage(version.source, version.owner, version.entry, version.type, true,
                                   version.stamp);
}

bool Storing::by_utf8(const Version& version, const std::string& bytes) {
  ++m_in_utf8;
  vu_file file;
  m_storage.OpenWrite(file, vu_utf8string(version.owner), vu_utf8string(version.entry),
                      version.type, false, version.stamp);
  if (!file.is_open()) return false;
  m_storage.Write(file, bytes);
  m_storage.Close(file);
  return true;
}

void Storing::store(Version& version, std::size_t number, const std::string& other) {
  const std::string bytes = read_whole(native(version.source));
  version.size = bytes.size();
  version.hash = fnv1a(bytes);
  Report& report = m_demo.report;
  const std::string name = name_of(version);
  report.check(!m_storage.IsFileExist(version.owner, version.entry, version.type, version.stamp,
                                      nullptr, nullptr),
               name + " is new");

  bool stored = false;
  if (number % 6 == 0) {
    stored = by_copy(version);
  } else if (number % 6 == 1 || !is_ascii(version.owner) || !is_ascii(version.entry)) {
    stored = by_utf8(version, bytes);
  } else {
    // Some documents first get other text of another length, which must be replaced completely.
    if (number % 5 == 4) {
      ++m_replaced;
      report.check(write_version(m_storage, version, other, false),
                   name + " is stored with other bytes first");
    }
    ++m_written;
    stored = write_version(m_storage, version, bytes, number % 5 == 4);
  }
  report.check(stored, name + " is stored");

  if (number % 8 != 3) return;
  vu_file file;
  const bool answer =
      m_storage.OpenWrite2(file, version.owner, version.entry, version.type, false, version.stamp);
  report.check(answer && !file.is_open(), name + " is kept with replace = false");
}

void Storing::say() const {
  m_demo.report.say(text_of(m_written, " written by OpenWrite2 (", m_replaced,
                            " of them replace other bytes), ", m_in_utf8,
                            " by OpenWrite with UTF-8 names, ", m_copied, " by copyToStorage"));
}

}  // namespace

void store_versions(Demo& demo) {
  demo.report.begin("Storing these files as documents");
  std::set<std::string> documents;
  std::set<std::string> owners;
  std::size_t per_area[3] = {};
  std::size_t unversioned = 0;
  std::string other = "old bytes";
  Storing storing(demo);
  for (std::size_t i = 0; i < demo.versions.size(); ++i) {
    Version& version = demo.versions[i];
    storing.store(version, i, other);
    if (version.size != 0) other = read_whole(native(version.source));
    const std::string area = area_of(version.type);
    documents.insert(area + "\t" + version.owner + "\t" + version.entry);
    owners.insert(version.owner);
    ++per_area[area == "docs" ? 0 : area == "user" ? 1 : 2];
    if (version.stamp == 0) ++unversioned;
  }
  demo.report.say(text_of(demo.versions.size(), " versions of ", documents.size(), " documents of ",
                          owners.size(), " owners: ", per_area[0], " corporate, ", per_area[1],
                          " user, ", per_area[2], " mail; ", unversioned, " at timestamp 0"));
  storing.say();
}

// ------------------------------------------------------------------------------------------------
// Reads every version back, and checks that unknown and too old versions are not served.

void read_back(Demo& demo) {
  demo.report.begin("Reading every version back");
  vu_storage storage;
  std::size_t served = 0;
  std::size_t by_index = 0;
  std::uint64_t bytes_compared = 0;
  std::string bytes;
  for (const Version& version : demo.versions) {
    ++(is_served(version) ? served : by_index);
    if (!demo.report.check(read_version(storage, version, bytes), name_of(version) + " opens"))
      continue;
    demo.report.check(bytes == read_whole(native(version.source)),
                      name_of(version) + " has the bytes of " + version.source);
    bytes_compared += bytes.size();
  }
  demo.report.say(
      text_of(served, " through OpenRead, ", by_index, " through IsFileExist and a vu_file"));
  demo.report.say(text_of(size_text(bytes_compared), " compared with their sources, byte by byte"));
}

namespace {

bool opens(vu_storage& storage, const Version& version, long stamp) {
  vu_file file;
  storage.OpenRead(file, version.owner, version.entry, version.type, stamp);
  return file.is_open();
}

}  // namespace

void refuse_others(Demo& demo) {
  demo.report.begin("Reading versions that must not be served");
  vu_storage storage;
  std::size_t by_age = 0;
  std::size_t by_stamp = 0;
  std::size_t ageless = 0;
  for (const Version& version : demo.versions) {
    if (!is_served(version)) continue;
    const std::string name = name_of(version);
    if (version.type != STG::CorporateRepository) {
      ++ageless;
      demo.report.check(opens(storage, version, 2147483647), name + " is served whatever its age");
    } else if (version.stamp != 0) {
      ++by_stamp;
      demo.report.check(!opens(storage, version, version.stamp + 1),
                        name + " is not served for another timestamp");
    } else {
      ++by_age;
      const long time = static_cast<long>(vu_file::modify_time(path_of_version(storage, version)));
      demo.report.check(opens(storage, version, time),
                        name + " is served for the time of its file");
      demo.report.check(!opens(storage, version, time + 1),
                        name + " is too old for a timestamp one second later");
    }
  }
  demo.report.say(text_of(by_age, " corporate documents, served by the age of their file"));
  demo.report.say(
      text_of(by_stamp, " versions of corporate kdf documents, served by exact timestamp"));
  demo.report.say(text_of(ageless, " user and mail documents, served at any age"));

  vu_file file;
  storage.OpenRead(file, "anna.schmidt", "no such document.kda", STG::CorporateRepository, 0);
  demo.report.check(!file.is_open(), "an unknown document is not served");
  demo.report.check(
      !storage.IsFileExist("", "x.kda", STG::CorporateRepository, 0, nullptr, nullptr),
      "no document exists without an owner");
}

void ask_latest(Demo& demo) {
  demo.report.begin("Finding the latest versions");
  std::map<std::tuple<std::string, std::string, std::string>, Version> latest;
  for (const Version& version : demo.versions) {
    Version& known = latest[{area_of(version.type), version.owner, version.entry}];
    if (known.entry.empty() || version.stamp > known.stamp) known = version;
  }
  for (const auto& [key, version] : latest) {
    const long stamp = vu_storage::getLattestTimestamp(version.owner, version.entry, version.type);
    demo.report.check(stamp == version.stamp,
                      text_of(name_of(version), " is the latest version; returned: ", stamp));
  }
  demo.report.check(vu_storage::getLattestTimestamp("nobody", "x.kda", STG::MailRepository) == -1,
                    "an unknown owner has no latest version");
  demo.report.say(text_of("the latest version of ", latest.size(), " documents"));
}

}  // namespace demo
