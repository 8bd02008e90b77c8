// Key files, profiles and users.

#include <utility>

#include "demo.h"

namespace demo {

namespace {

using Pairs = std::vector<std::pair<std::string, std::string>>;

Pairs pairs_of(const STG::NameValueSeq& lines) {
  Pairs pairs;
  for (const STG::NameValue& line : lines) pairs.emplace_back(line.name, line.value);
  return pairs;
}

STG::NameValueSeq lines_of(const Pairs& pairs) {
  STG::NameValueSeq lines;
  for (const auto& [name, value] : pairs) lines.push_back({name, value});
  return lines;
}

/// Reads a key file. @return its lines; one line "unreadable" when the file cannot be read.
Pairs read_keys(const std::string& folder, const std::string& file, bool last_separator) {
  STG::NameValueSeq lines;
  if (vu_storage::readKeysFile(folder, file, lines, last_separator) != 0)
    return {{"unreadable", ""}};
  return pairs_of(lines);
}

}  // namespace

void use_key_files(Demo& demo) {
  demo.report.begin("Key files");
  Report& report = demo.report;
  const std::string folder = demo.below_root("keys");
  const std::string file = "settings.txt";
  report.check(vu_file::createDir(folder), "a folder for key files");

  const Pairs pairs{{"language", "de"},
                    {"path", "a=b"},
                    {"empty", ""},
                    {" blank ", " kept "},
                    {"language", "fr"}};
  const std::string text = vu_storage::getStringFromNameValueSeq(lines_of(pairs));
  report.check(text == "language=de\npath=a=b\nempty=\n blank = kept \nlanguage=fr\n",
               "the lines are converted to text");
  report.check(vu_storage::writeKeysFile(folder, file, text, true), "the text is written");
  report.check(read_keys(folder, file, false) == pairs, "the same lines are read back, in order");
  report.check(
      read_keys(folder, file, true)[1] == std::make_pair(std::string("path=a"), std::string("b")),
      "with last_separator the last '=' separates name and value");

  report.check(vu_storage::writeKeysFile(folder, file, "more=1\r\n\tno separator\nz=\n", false),
               "lines are appended");
  Pairs longer = pairs;
  longer.insert(longer.end(), {{"more", "1"}, {"z", ""}});
  report.check(read_keys(folder, file, false) == longer,
               "appended lines follow, invalid lines are ignored");
  report.check(
      vu_storage::writeKeysFile(folder, file, "", true) && read_keys(folder, file, false) == longer,
      "an empty text changes nothing");

  vu_file open(folder, file);
  open.open(vu_file_base::o_read);
  STG::NameValueSeq lines = lines_of({{"first", "stays"}});
  report.check(vu_storage::Read(open, lines, false) && lines.size() == longer.size() + 1,
               "reading an open file appends its lines to the sequence");
  open.close();

  report.check(vu_storage::writeKeysFile(folder, file, "only=1\n", true) &&
                   read_keys(folder, file, false) == Pairs{{"only", "1"}},
               "a replacing text removes the old text");
  STG::NameValueSeq none;
  report.check(vu_storage::readKeysFile(folder, "missing.txt", none, false) == 1 && none.empty(),
               "a missing key file is reported");
  report.say("written, appended, replaced; read with the first and the last separator");
}

namespace {

void save_user_profile(Demo& demo, const std::string& owner, const std::string& name) {
  const Pairs pairs{{"user", owner}, {"theme", "dark=blue"}, {"rows", "25"}};
  const STG::NameValueSeq lines = lines_of(pairs);
  demo.report.check(vu_storage::saveUserOrMasterProfile(owner, name, lines) == 0,
                    owner + "'s profile is saved");
  // An empty name saves the profile as profile.txt; only that name loads it again.
  const std::string saved_as = name.empty() ? "profile.txt" : name;
  STG::NameValueSeq back;
  demo.report.check(
      vu_storage::loadUserOrMasterProfile(owner, saved_as, back) == 0 && pairs_of(back) == pairs,
      owner + "'s profile is loaded again");
  demo.profiles.push_back({owner, saved_as, fnv1a(vu_storage::getStringFromNameValueSeq(lines))});
}

void use_master_profile(Demo& demo) {
  const std::string& config = vu_storage::getConfigDirPath();
  const Pairs master{{"server", "storage.example"}, {"port", "8080"}};
  const Pairs factory{{"server", "factory"}};
  Report& report = demo.report;

  STG::NameValueSeq lines;
  report.check(vu_storage::loadUserOrMasterProfile("", "", lines) == 1,
               "no master profile at first");
  report.check(vu_storage::writeKeysFile(config, "master.txt", "server=factory\n", true) &&
                   vu_storage::loadUserOrMasterProfile("", "", lines) == 0 &&
                   pairs_of(lines) == factory,
               "master.txt is loaded while there is no profile.txt");
  report.check(vu_storage::saveUserOrMasterProfile("", "", lines_of(master)) == 0,
               "the master profile is saved");
  lines.clear();
  report.check(vu_storage::loadUserOrMasterProfile("", "", lines) == 0 && pairs_of(lines) == master,
               "the master profile is loaded again");
  lines.clear();
  report.check(vu_storage::saveUserOrMasterProfile("", "", {}) == 0 &&
                   vu_storage::loadUserOrMasterProfile("", "", lines) == 0 &&
                   pairs_of(lines) == master,
               "saving no lines does not change the master profile");
}

}  // namespace

void use_profiles(Demo& demo) {
  demo.report.begin("Profiles");
  save_user_profile(demo, "anna.schmidt", "");
  save_user_profile(demo, "bernd", "charts.txt");
  save_user_profile(demo, "Sales Team", "");
  STG::NameValueSeq lines;
  demo.report.check(vu_storage::loadUserOrMasterProfile("bernd", "", lines) == 1,
                    "a user's profile is not found without its name");
  demo.report.check(vu_storage::loadUserOrMasterProfile("nobody", "profile.txt", lines) == 1,
                    "an unknown user has no profile");
  use_master_profile(demo);
  demo.report.say(text_of(demo.profiles.size(), " user profiles and the master profile"));
}

void remove_document(Demo& demo) {
  demo.report.begin("Removing a document with its key lines");
  Report& report = demo.report;
  const std::string owner = "carmen";
  const STG::RepositoryType type = STG::UserFilesRepository;
  const std::string gone = "march.kdb";
  vu_storage storage;
  const std::size_t at = add_version(demo, owner, type, gone, 0, "the March report\n");
  const std::string gone_path = path_of_version(storage, demo.versions[at]);
  add_version(demo, owner, type, "april.kdb", 0, "the April report\n");

  const Pairs lines{{"april.kdb", "1"}, {gone, "2"}};
  const std::vector<std::string> files{"reports.ctg", "archive.ctg", "attribut.txt"};
  for (const std::string& file : files)
    report.check(vu_storage::saveUserOrMasterProfile(owner, file, lines_of(lines)) == 0,
                 file + " names both documents");

  report.check(vu_storage::RemoveFile(owner, gone, type, 0), "the document is removed");
  report.check(!storage.IsFileExist(owner, gone, type, 0, nullptr, nullptr),
               "it is no longer found");
  report.check(!gone_path.empty() && !vu_file::exists(gone_path), "its file is removed");
  for (const std::string& file : files) {
    STG::NameValueSeq back;
    report.check(vu_storage::loadUserOrMasterProfile(owner, file, back) == 0 &&
                     pairs_of(back) == Pairs{{"april.kdb", "1"}},
                 file + " names only the other document");
    demo.profiles.push_back({owner, file, fnv1a(vu_storage::getStringFromNameValueSeq(back))});
  }
  forget_versions(demo, owner, gone);
  report.check(vu_storage::RemoveFile(owner, gone, type, 0), "removing it again is no error");
  report.check(vu_storage::RemoveFile("", "april.kdb", type, 0) &&
                   storage.IsFileExist(owner, "april.kdb", type, 0, nullptr, nullptr),
               "without an owner nothing is removed");
  report.say("one document, its lines in two category files and in attribut.txt");
}

// ------------------------------------------------------------------------------------------------
// Renames and removes users with all their files.

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
