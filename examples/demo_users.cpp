// Renames and removes users with all their files.
#include "demo.h"

namespace demo {

namespace {

const std::vector<STG::RepositoryType>& areas() {
  static const std::vector<STG::RepositoryType> all{STG::UserRepository, STG::MailRepository};
  return all;
}

/// Creates a user with a document in each area and a folder for lists.
void make_user(Demo& demo, const std::string& user) {
  for (const STG::RepositoryType type : areas())
    add_version(demo, user, type, "own.kdc", 0, text_of(area_of(type), " of ", user, "\n"));
  const std::string lists = vu_storage::getListPath() + "\\" + user;
  demo.report.check(vu_file::createDir(lists), user + " gets a folder for lists");
  write_whole(native(lists + "\\favourites.txt"), "own.kdc\n");
}

bool has_anything(const std::string& user) {
  for (const std::string& area :
       {vu_storage::getMailPath(), vu_storage::getListPath(), vu_storage::getUserPath()})
    if (vu_file::exists(text_of(area, "\\", user))) return true;
  return false;
}

void rename_user(Demo& demo) {
  Report& report = demo.report;
  const std::string from = "dora";
  const std::string to = "dora.meier";
  make_user(demo, from);
  report.check(!vu_storage::RenameUserStorage(from, "bernd") && has_anything(from),
               "a user cannot take another user's name");
  report.check(vu_storage::RenameUserStorage(from, to), "the user is renamed");
  report.check(!has_anything(from), "no file is left under the old name");
  report.check(vu_file::exists(vu_storage::getListPath() + "\\" + to + "\\favourites.txt"),
               "the lists moved with the user");
  vu_storage storage;
  for (Version& version : demo.versions) {
    if (version.owner != from) continue;
    const Version old = version;
    version.owner = to;
    std::string bytes;
    report.check(!read_version(storage, old, bytes), name_of(old) + " is no longer found");
    report.check(read_version(storage, version, bytes) && fnv1a(bytes) == version.hash,
                 name_of(version) + " is found under the new name");
  }
}

}  // namespace

void manage_users(Demo& demo) {
  demo.report.begin("Renaming and removing users");
  Report& report = demo.report;
  rename_user(demo);

  for (const std::string user : {"emil", "fred", "gerda"}) make_user(demo, user);
  report.check(vu_storage::RemoveUserStorage(vu_utf8string("emil")), "a user is removed");
  report.check(!has_anything("emil"), "no file of emil is left");
  report.check(has_anything("fred") && has_anything("gerda"), "the other users keep their files");
  report.check(vu_storage::RemoveUsersStorage({vu_utf8string("fred"), vu_utf8string("gerda")}),
               "two users are removed");
  report.check(!has_anything("fred") && !has_anything("gerda"),
               "no file of fred and gerda is left");
  report.check(vu_storage::RemoveUserStorage(vu_utf8string("nobody")),
               "removing an unknown user is no error");
  for (const std::string user : {"emil", "fred", "gerda"}) {
    report.check(vu_storage::getLattestTimestamp(user, "own.kdc", STG::MailRepository) == -1,
                 user + "'s documents are removed");
    forget_versions(demo, user, "own.kdc");
  }
  report.say("one user renamed, three removed, with mail, lists and documents");
}

}  // namespace demo
