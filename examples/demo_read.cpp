// Reads every version back, and checks that unknown and too old versions are not served.
#include <map>
#include <tuple>

#include "demo.h"

namespace demo {

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
