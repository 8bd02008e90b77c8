// Migrates an old mail folder: its files have escaped names, and it has a read list.
#include "demo.h"
#include "stg_index.h"

namespace demo {

namespace {

constexpr const char* kOwner = "inbox";

struct Mail {
  std::string escaped;
  std::string unescaped;  ///< the same when the migration does not rename the file
};

std::vector<Mail> mails() {
  return {{"north#1#jo#Q1%20Sales+2024.kdb", "north#1#jo#Q1 Sales 2024.kdb"},
          {"north#2#jo#50%25+off.kda", "north#2#jo#50% off.kda"},
          {"south#1#ann#Gr%C3%B6%C3%9Fe.kdf", "south#1#ann#Größe.kdf"},
          {"south#2#ann#plain.kdc", "south#2#ann#plain.kdc"},
          // Not an escaped name, because it contains a blank. The migration does not rename it.
          {"south#3#ann#has blank%20.kdc", "south#3#ann#has blank%20.kdc"}};
}

// Tabs separate the fields. Fields 4, 5, 1 and 2 form the name of the mail; field 3 determines its
// extension.
const char* const kReadBefore =
    "jo\tQ1%20Sales+2024\tB\tnorth\t1\tread\t\n"
    "a line of another kind\n"
    "ann\tplain\tH\tsouth\t2\tread\t\n"
    "jo\t50%25+off\tA\tnorth\t2\tunread\t\n"
    "jo\t50%25+off\tA\tnorth\t2\tthe same once more\t\n";
const char* const kReadAfter =
    "jo\tQ1 Sales 2024\tB\tnorth\t1\tread\t\n"
    "jo\t50% off\tA\tnorth\t2\tunread\t\n"
    "ann\tplain\tH\tsouth\t2\tread\t\n";

std::string bytes_of(const Mail& mail) { return "the mail " + mail.unescaped + "\n"; }

void check_mails(Demo& demo, const std::string& folder) {
  vu_storage storage;
  for (const Mail& mail : mails()) {
    const std::string bytes = bytes_of(mail);
    Version version{kOwner, STG::MailRepository, mail.unescaped, 0,
                    {},     bytes.size(),        fnv1a(bytes),   0};
    std::string back;
    demo.report.check(read_version(storage, version, back) && back == bytes,
                      name_of(version) + " is found under its unescaped name");
    demo.versions.push_back(version);
    if (mail.escaped == mail.unescaped) continue;
    demo.report.check(!vu_file::exists(folder + "\\" + mail.escaped),
                      mail.escaped + " no longer exists");
  }
}

}  // namespace

void migrate_mail(Demo& demo) {
  demo.report.begin("Migrating a mail folder with escaped names");
  Report& report = demo.report;
  std::string folder;
  report.check(
      vu_storage::createUserOrDomainNameDirectory(kOwner, "", STG::MailRepository, folder, true),
      "a mail folder is created");
  for (const Mail& mail : mails())
    write_whole(native(folder + "\\" + mail.escaped), bytes_of(mail));
  write_whole(native(folder + "\\read.txt"), kReadBefore);

  STGIndex::migrateInboxRead(kOwner);
  check_mails(demo, folder);
  std::string list;
  report.check(STGIndex::exists(folder, "read.txt", 0, list) &&
                   read_whole(native(folder + "\\" + list)) == kReadAfter,
               "the read list contains each mail once, under its unescaped name, in order");
  std::string marker;
  report.check(STGIndex::exists(folder, "k1mailboxcompliant", 0, marker),
               "the folder has a marker");

  const std::string late = folder + "\\north#9#jo#late%20mail.kdb";
  write_whole(native(late), "late\n");
  STGIndex::migrateInboxRead(kOwner);
  report.check(vu_file::exists(late), "a folder with a marker is not changed");
  vu_file::remove(late);
  STGIndex::updateIndexFile(folder);

  STGIndex::migrateInboxRead("newcomer");
  const std::string newcomer = vu_storage::getMailPath() + "\\newcomer";
  report.check(vu_file::is_dir(newcomer) && !vu_file::exists(newcomer + "\\index.dat"),
               "a user without mail gets an empty folder");
  report.say(
      text_of(mails().size(), " mails, 3 of them with escaped names, and a read list of 5 lines"));
}

}  // namespace demo
