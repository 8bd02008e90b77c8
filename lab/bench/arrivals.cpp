#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "lab/bench/bare.h"
#include "lab/bench/floor.h"
#include "lab/bench/stage.h"
#include "stg_index.h"

// Adoption of orphans, and migration of mails with escaped names.

namespace bench {
namespace {

std::string numbered(const char* form, std::size_t number) {
  char text[64];
  std::snprintf(text, sizeof text, form, number);
  return text;
}

void make_files(const std::string& folder, const std::vector<std::string>& names) {
  std::filesystem::create_directories(folder);
  for (const std::string& name : names)
    const bare::File file(folder + "/" + name, bare::File::Mode::kReadWriteCreate);
}

// ---- adoption ----------------------------------------------------------------------------------

Jobs adoption_jobs(Stage& stage, Place place, std::size_t files) {
  const std::string path = stage.room(place, "dropped") + "/" + std::to_string(files);
  const std::string index = path + "/index.dat";
  if (!std::filesystem::exists(path)) {
    std::vector<std::string> names;
    for (std::size_t i = 0; i < files; ++i) names.push_back(numbered("Dropped %06zu.kdb", i));
    make_files(path, names);
  }
  const auto restore = [index] { std::filesystem::remove(index); };
  Jobs jobs;
  jobs[Who::kLibrary] = {[path] {
                           STGIndex::setSynchronizeMode(true);
                           STGIndex::updateIndexFile(path);
                         },
                         restore};
  jobs[Who::kFloor] = {[path] { floor_of::adopt(path); }, restore};
  return jobs;
}

// ---- migration ---------------------------------------------------------------------------------

/// How many folders of a size each contender migrates. A flush on a disk takes long.
std::size_t supply_for(Place place, std::size_t mails) {
  const std::size_t enough = place == Place::kMemory ? 30000 : 3000;
  return std::clamp<std::size_t>(enough / mails, 1, 5);
}

std::string escaped_mail(std::size_t mail) { return numbered("4#5#M%06zu#A%%20mail.kdb", mail); }

/// Creates a mail folder with @p mails files under escaped names, each with a line in a read list.
void make_mails(const std::string& folder, std::size_t mails) {
  constexpr const char* kReadList = "00000001.txt";
  std::vector<std::string> names = {kReadList};
  std::string text;
  std::string list;
  for (std::size_t i = 0; i < mails; ++i) {
    names.push_back(escaped_mail(i));
    text += key_of(names.back(), 0) + "/" + names.back() + "\n";
    list += numbered("M%06zu\tA%%20mail\tB\t4\t5\tsix\t\n", i);
  }
  make_files(folder, names);
  put_file(folder + "/" + kReadList, list);
  put_file(folder + "/index.dat", text + key_of("read.txt", 0) + "/00000001\n");
  put_file(folder + "/index", "00000001");
}

/// Owners of mail folders; each folder is migrated once.
class Mailboxes {
 public:
  Mailboxes(Stage& stage, Place place, std::size_t mails, const std::string& contender) {
    const std::string room = stage.room(place, "mails");
    const StorageRoot& root = StorageRoot::of(stage);
    for (std::size_t i = 0; i < supply_for(place, mails); ++i) {
      const std::string owner =
          contender + "-" + name(place) + std::to_string(mails) + "-" + std::to_string(i);
      make_mails(room + "/" + owner, mails);
      m_owners.push_back(root.mailbox(room + "/" + owner, owner));
      m_paths.push_back(room + "/" + owner);
    }
  }
  ~Mailboxes() {
    for (const std::string& path : m_paths) std::filesystem::remove_all(path);
  }
  Mailboxes(const Mailboxes&) = delete;
  Mailboxes& operator=(const Mailboxes&) = delete;

  const std::string& next() { return m_owners.at(m_used++); }

 private:
  std::vector<std::string> m_owners;
  std::vector<std::string> m_paths;
  std::size_t m_used = 0;
};

void expect_migrated(const std::string& folder, std::size_t mails) {
  const bare::Text text = bare::read_locked(folder + "/index.dat");
  const std::string_view lines = text.view();
  if (static_cast<std::size_t>(std::count(lines.begin(), lines.end(), '\n')) != mails + 2 ||
      lines.find("%20") != std::string_view::npos)
    bare::broken("a wrong migration of", folder);
}

Jobs migration_jobs(Stage& stage, Place place, std::size_t mails) {
  const std::string area = StorageRoot::of(stage).area("mail") + "/";
  Jobs jobs;
  const auto add = [&](Who who, const char* contender, auto migrate) {
    const auto boxes = std::make_shared<Mailboxes>(stage, place, mails, contender);
    jobs[who].supply = supply_for(place, mails);
    jobs[who].run = [boxes, area, mails, migrate] {
      const std::string& owner = boxes->next();
      migrate(owner, area + owner);
      expect_migrated(area + owner, mails);
    };
  };
  add(Who::kLibrary, "library", [](const std::string& owner, const std::string&) {
    STGIndex::setSynchronizeMode(true);
    STGIndex::migrateInboxRead(owner);
  });
  add(Who::kFloor, "floor",
      [](const std::string&, const std::string& folder) { floor_of::migrate(folder); });
  return jobs;
}

}  // namespace

std::vector<Contest> arrivals(Stage& stage) {
  std::vector<Contest> contests;
  const auto add = [&](const char* workload, Place place, std::size_t files, auto prepare) {
    contests.push_back(folder_contest(workload, place, files, [&stage, place, files, prepare] {
      return prepare(stage, place, files);
    }));
  };
  for (const std::size_t files : kSizes) {
    for (const Place place : {Place::kDisk, Place::kMemory}) {
      add("adoption", place, files, adoption_jobs);
      // Each mail needs three flushes, so more mails on a disk would take minutes.
      if (files <= 10000 || place == Place::kMemory) add("migration", place, files, migration_jobs);
    }
  }
  return contests;
}

}  // namespace bench
