#include "lab/interleavings/operations.h"

#include <ctime>
#include <set>
#include <stdexcept>
#include <utility>

#include "client/admin/folder_view.h"
#include "client/admin/locked_file.h"
#include "client/admin/name_restore.h"
#include "client/admin/repair_text.h"
#include "client/admin/versions.h"
#include "lab/interleavings/interleaving.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace interleavings {
namespace {

/// Seconds; a clean by age removes older files.
constexpr unsigned long kLimit = 100'000;
/// The age of old files in seconds.
constexpr std::int64_t kAge = 1'000'000;

constexpr auto kUser = STG::UserRepository;
constexpr auto kUserFiles = STG::UserFilesRepository;

std::string yes_or_no(bool answer) { return answer ? "yes" : "no"; }

std::string in_text(const STGIndex::NameMap& names) {
  std::string text;
  for (const auto& [one, other] : names) text += one + "=" + other + " ";
  return text;
}

// ---- the index ----------------------------------------------------------------------------------

std::string create(const Target& c) { return STGIndex::create(c.folder(), c.entry, 0); }

std::string remove(const Target& c) {
  STGIndex::remove(c.folder(), c.entry, 0);
  return "";
}

std::string rename(const Target& c) {
  STGIndex::rename(c.folder(), c.entry, 0, c.to, 0);
  return "";
}

/// Renames onto an existing entry.
std::string rename_onto(const Target& c) {
  const std::string to = c.entry == kYoung ? kOld : kYoung;
  STGIndex::rename(c.folder(), c.entry, 0, to, 0);
  return "";
}

std::string exists(const Target& c) {
  std::string name;
  return STGIndex::exists(c.folder(), c.entry, 0, name) ? "yes: " + name : "no";
}

std::string last_version(const Target& c) {
  long stamp = 0;
  const bool found = STGIndex::lastVersion(c.folder(), c.entry, stamp);
  return yes_or_no(found) + " " + std::to_string(stamp);
}

std::string names(const Target& c) {
  STGIndex::NameMap names;
  STGIndex::lpValues(c.folder(), names);
  return in_text(names);
}

std::string categories(const Target& c) {
  STGIndex::NameMap names;
  STGIndex::getCategories(c.folder(), names);
  return in_text(names);
}

std::string documents(const Target& c) {
  STGIndex::NameMap names;
  STGIndex::getVUDocs(c.folder(), names);
  return in_text(names);
}

std::string file_list(const Target& c) {
  std::vector<std::string> files;
  std::string text;
  for (const std::string& each : vu_storage::getAllFileListFromIndexFile(c.folder(), files))
    text += each + " ";
  for (const std::string& each : files) text += each + " ";
  return text;
}

std::string update(const Target& c) {
  STGIndex::updateIndexFile(c.folder());
  return "";
}

std::string clean(const Target& c) {
  STGIndex::AgeMap kept;
  return std::to_string(STGIndex::cleanOutOfDateOutput(c.folder(), kLimit, kept, false));
}

std::string clean_all(const Target& c) {
  STGIndex::cleanAllOutput(c.folder());
  return "";
}

std::string clean_parts(const Target& c) {
  std::string name;
  if (!STGIndex::exists(c.folder(), c.entry, 0, name)) return "no";
  unsigned long size = 0;
  STGIndex::cleanOutputDirectories(c.folder(), name, &size);
  return std::to_string(size);
}

std::string migrate(const Target& c) {
  STGIndex::migrateInboxRead(c.owner);
  return "";
}

// ---- documents ----------------------------------------------------------------------------------

std::string read_as(const Target& c, STG::RepositoryType type) {
  vu_storage storage;
  vu_file file;
  storage.OpenRead(file, c.owner, c.entry, type, 0);
  if (!file.is_open()) return "closed";
  std::string text;
  storage.Read(file, text, 0);
  storage.Close(file);
  return "read " + text;
}

std::string write_as(const Target& c, STG::RepositoryType type, bool replace) {
  vu_storage storage;
  vu_file file;
  const bool done = storage.OpenWrite2(file, c.owner, c.entry, type, replace, 0);
  if (!file.is_open()) return yes_or_no(done) + ", closed";
  storage.Write(file, c.mark);
  storage.Close(file);
  return yes_or_no(done) + ", written";
}

std::string read(const Target& c) { return read_as(c, kUser); }
std::string read_mail(const Target& c) { return read_as(c, STG::MailRepository); }
std::string write(const Target& c) { return write_as(c, kUser, true); }
std::string write_new(const Target& c) { return write_as(c, kUser, false); }
std::string write_listed(const Target& c) { return write_as(c, kUserFiles, true); }
std::string write_mail(const Target& c) { return write_as(c, STG::MailRepository, true); }

std::string copy_in(const Target& c) {
  return yes_or_no(
      vu_storage::copyToStorage(c.root + "\\plain\\one.txt", c.owner, c.entry, kUser, true, 0));
}

std::string copy_out(const Target& c) {
  return yes_or_no(
      vu_storage::copyFromStorage(c.root + "\\plain\\out-" + c.mark, c.owner, c.entry, kUser, 0));
}

std::string is_there(const Target& c) {
  std::string name;
  const bool found = vu_storage().IsFileExist(c.owner, c.entry, kUser, 0, nullptr, &name);
  return found ? "yes: " + name : "no";
}

std::string remove_file(const Target& c) {
  return yes_or_no(vu_storage::RemoveFile(c.owner, c.entry, kUserFiles, 0));
}

// ---- key files, parts, owners -------------------------------------------------------------------

std::string save_keys(const Target& c) {
  STG::NameValueSeq lines;
  lines.push_back({c.mark, "1"});
  return std::to_string(vu_storage::saveUserOrMasterProfile(c.owner, c.entry, lines));
}

std::string load_keys(const Target& c) {
  STG::NameValueSeq lines;
  std::string text = std::to_string(vu_storage::loadUserOrMasterProfile(c.owner, c.entry, lines));
  for (const STG::NameValue& each : lines) text += " " + each.name + "=" + each.value;
  return text;
}

constexpr const char* kCorporate = "corp.kdf";
constexpr long kStamp = 5;

std::string write_part(const Target& c) {
  vu_storage storage;
  vu_file file;
  storage.OpenWriteSubPart(file, c.owner, kCorporate, "html@x", "part", kStamp);
  if (!file.is_open()) return "closed";
  storage.Write(file, c.mark);
  storage.Close(file);
  return "written";
}

std::string read_part(const Target& c) {
  vu_storage storage;
  vu_file file;
  storage.OpenReadSubPart(file, c.owner, c.owner, kCorporate, "html@x", "part", kStamp);
  if (!file.is_open()) return "closed";
  std::string text;
  storage.Read(file, text, 0);
  storage.Close(file);
  return "read " + text;
}

std::string write_corporate(const Target& c) {
  vu_storage storage;
  vu_file file;
  storage.OpenWrite2(file, c.owner, kCorporate, STG::CorporateRepository, true, kStamp);
  if (!file.is_open()) return "closed";
  storage.Write(file, c.mark);
  storage.Close(file);
  return "written";
}

std::string rename_owner(const Target& c) {
  return yes_or_no(vu_storage::RenameUserStorage(c.owner, "carl"));
}

std::string remove_owner(const Target& c) {
  return yes_or_no(vu_storage::RemoveUserStorage(vu_utf8string(c.owner)));
}

std::string begin(const Target& c) {
  return yes_or_no(vu_storage::initRootStorage(c.root + "\\fresh", true, false));
}

}  // namespace

const std::vector<Operation>& operations() {
  static const std::vector<Operation> all = {
      {"create", kMakes, create},
      {"remove", kRemoves, remove},
      {"rename", kRenames, rename},
      {"rename-onto", kRenames | kRemoves, rename_onto},
      {"exists", kAsks, exists},
      {"last-version", kAsks, last_version},
      {"names", kAsks, names, false},
      {"categories", kAsks, categories, false},
      {"documents", kAsks, documents, false},
      {"file-list", kAsks, file_list, false},
      {"update", kSaves, update, false},
      {"clean", kCleans | kSweeps, clean, false},
      {"clean-all", kCleans | kCleansAll, clean_all, false},
      {"clean-parts", kAsks, clean_parts},
      {"migrate", kConverts | kSaves, migrate, false, "mail"},
      {"read", kReads, read},
      {"read-mail", kReads, read_mail, true, "mail"},
      {"write", kMakes | kWrites, write},
      {"write-new", kMakes | kWrites, write_new},
      {"write-listed", kMakes | kWrites | kCuts, write_listed},
      {"write-mail", kMakes | kWrites, write_mail, true, "mail"},
      {"copy-in", kMakes | kWrites | kCopies, copy_in},
      {"copy-out", kReads | kCopies, copy_out},
      {"is-there", kAsks, is_there},
      {"remove-file", kRemoves | kCuts, remove_file},
      {"save-keys", kMakes | kWrites, save_keys},
      {"load-keys", kReads, load_keys},
      {"write-part", kWrites, write_part, false, "docs"},
      {"read-part", kReads, read_part, false, "docs"},
      {"write-corporate", kMakes | kWrites, write_corporate, false, "docs"},
      {"rename-owner", kMovesOwner, rename_owner, false},
      {"put", kMakes | kClient, client_put},
      {"move-out", kRemoves | kClient, client_move_out},
      {"restore", kSaves | kClient, client_restore},
      {"repair", kSaves | kClient, client_repair, false},
      {"remove-owner", kMovesOwner, remove_owner, false},
      {"begin", kBegins, begin, false, "fresh"},
  };
  return all;
}

const Operation& operation_called(const std::string& name) {
  for (const Operation& each : operations()) {
    if (each.name == name) return each;
  }
  throw std::invalid_argument("unknown operation '" + name + "'");
}

const char* name_of(Setup setup) {
  switch (setup) {
    case Setup::kTidy: return "tidy";
    case Setup::kStray: return "stray";
    case Setup::kNoIndex: return "no-index";
  }
  return "?";
}

namespace {

/// A folder without an index, with files that somebody copied into it.
void add_files_by_hand(Tree& tree, const std::string& folder, const std::string& owner,
                       std::int64_t now) {
  add_file(tree, folder + kOld, "old of " + owner, now - kAge);
  add_file(tree, folder + kBystander, "other of " + owner, now);
}

void add_owner(Tree& tree, const std::string& owner, Setup setup, std::int64_t now) {
  const std::string folder = "storage/user/" + owner + "/";
  if (setup == Setup::kNoIndex) return add_files_by_hand(tree, folder, owner, now);
  add_file(tree, folder + "00000001.kdb", "old of " + owner, now - kAge);
  add_folder(tree, folder + "00000001.kdb_/html/");
  add_file(tree, folder + "00000002.kdb", "second of " + owner, now);
  add_file(tree, folder + "00000003.ctg", "report.kdb=1\nsecond.kdb=2\n", now);
  add_file(tree, folder + "00000004.kdc", "other of " + owner, now);
  if (setup == Setup::kStray) add_file(tree, folder + kStray, "put in by hand", now);
  // A dangling entry, which the next save drops.
  const std::string gone = setup == Setup::kStray ? "gone.kdb_0000000000/00000009\n" : "";
  add_file(tree, folder + "index.dat",
           gone +
               "list.ctg_0000000000/00000003\nother.kdc_0000000000/00000004\n"
               "report.kdb_0000000000/00000001\nsecond.kdb_0000000000/00000002\n",
           now);
  add_file(tree, folder + "index", "00000004", now);
}

}  // namespace

Tree tree_for(Setup setup) {
  static const std::int64_t now = std::time(nullptr);
  Tree tree;
  for (const char* const area : {"docs", "list", "mail", "semlets", "user"})
    add_folder(tree, std::string("storage/") + area + "/");
  add_owner(tree, "anna", setup, now);
  add_owner(tree, "bert", setup, now);
  const std::string bucket = "storage/docs/anna/00000046/";
  add_file(tree, bucket + "00000001.kdf", "corporate", now - 1);
  add_file(tree, bucket + "00000001.kdf_/html/x/part", "part", now);
  add_file(tree, bucket + "index.dat", "corp.kdf_0000000005/00000001\n", now);
  add_file(tree, bucket + "index", "00000001", now);
  const std::string mail = "storage/mail/anna/";
  add_file(tree, mail + "a%20b.kdb", "mail", now);
  add_file(tree, mail + "f4#f5#x#A%20B.kdb", "another mail", now);
  add_file(tree, mail + "read.txt", "x\tA%20B\tB\tf4\tf5\tf6\t\n", now);
  add_file(tree, "plain/one.txt", "one", now);
  return tree;
}

// ------------------------------------------------------------------------------------------------

namespace {

namespace sys = admin::sys;

std::string native_path(std::string path) {
  for (char& c : path) {
    if (c == '\\' || c == '/') c = sys::kSeparator;
  }
  return path;
}

admin::DocumentFolder folder_of(const Target& target) {
  return {admin::Area::kUser, target.owner, "", native_path(target.folder())};
}

const char* name_of(admin::ChangedVersion::Fate fate) {
  using Fate = admin::ChangedVersion::Fate;
  switch (fate) {
    case Fate::kPending: return "pending";
    case Fate::kStored: return "stored";
    case Fate::kRemoved: return "removed";
    case Fate::kMeanwhile: return "meanwhile";
    case Fate::kInUse: return "in use";
    case Fate::kFailed: return "failed";
    case Fate::kLocked: return "locked";
    case Fate::kInPlace: return "in place";
  }
  return "?";
}

}  // namespace

std::string client_put(const Target& target) {
  const RetriesLocks asks_again;
  admin::NewVersion version;
  version.source = native_path(target.root + "\\plain\\one.txt");
  version.logical = target.entry;
  {
    admin::NewVersions versions(folder_of(target), {});
    if (!versions.stage(version)) return name_of(version.fate);
    admin::NewVersions::enter({&versions});
  }
  return std::string(name_of(version.fate)) + " " + version.file;
}

std::string client_restore(const Target& target) {
  const RetriesLocks asks_again;
  // A saved list of the folder's names, in which the entry had its file.
  const std::string saved = target.entry + "_0000000000/00000001\n";
  admin::RestorePlan plan;
  const os::Status status = admin::restore_names(folder_of(target), saved, {}, plan);
  return status.ok() ? std::to_string(plan.count(admin::NameFate::kRestored)) : "failed";
}

std::string client_move_out(const Target& target) {
  const RetriesLocks asks_again;
  const admin::DocumentFolder folder = folder_of(target);
  admin::FolderView view;
  view.load(folder, {});
  admin::OldVersion old;
  old.logical = target.entry;
  for (const admin::LintedLine& line : admin::IndexLint(view)) {
    if (line.verdict == admin::Verdict::kEntry && line.key == target.entry + "_0000000000")
      old.file = line.file;
  }
  if (old.file.empty()) return "nothing";
  const std::string path = view.path_of(old.file);
  const std::string elsewhere = native_path(target.root + "\\plain\\moved-" + target.mark);
  const os::Status copied = os::copy(path, elsewhere, os::IfExists::kReplace);
  if (!copied.ok()) return "not copied";
  old.is_same = [&](admin::LockedFile& file) { return file.is_equal_to(elsewhere); };
  admin::remove_old_versions({{folder, {&old}}}, {});
  return name_of(old.fate);
}

/// Removes lines that readers skip.
std::string client_repair(const Target& target) {
  const RetriesLocks asks_again;
  const admin::DocumentFolder folder = folder_of(target);
  admin::LockedFile index;
  const os::Status opened =
      index.open(sys::join(folder.path, "index.dat"), admin::LockedFile::For::kChanging, {});
  if (!opened.ok()) return "no index";
  admin::FolderView view;
  if (!view.load_locked(folder, index).ok()) return "failed";
  std::set<admin::BadLine> unwanted;
  for (auto& [number, line] : admin::bad_lines(view)) unwanted.insert(std::move(line));
  if (unwanted.empty()) return "sound";
  std::size_t removed = 0;
  const std::string better = admin::without_bad_lines(view, unwanted, removed);
  return index.replace_lines(view.index_text(), better).ok() ? "repaired" : "failed";
}

}  // namespace interleavings
