// Stores the planned versions.
#include <cstdint>
#include <limits>
#include <set>

#include "demo.h"

namespace demo {

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

}  // namespace demo
