#include "api/store.h"

#include <cstddef>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "file/folder_entries.h"
#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "index/index_format.h"
#include "index/index_gate.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "storage/layout.h"
#include "storage/roots.h"
#include "vu_fileutf8.h"
#include "vu_storage.h"

// Opening and closing a store; finding folders and versions in it.

namespace api {

void refuse_handle(handles::Found found) {
  if (found == handles::Found::kBusy)
    throw Refusal{VU_BUSY, "another call is using the handle", {}};
  throw Refusal{VU_BAD_HANDLE, "the handle is closed, invalid, or of another kind", {}};
}

void check_locked(const vu_file& file) {
  if (!file.is_locked())
    throw Refusal{VU_FAILED, "the lock was not granted", told_path(file.getFilePath())};
}

StoreUse::StoreUse(const vu_store* handle) : m_use(handle, Kind::kStore, Sharing::kShared) {
  check_found(m_use.found());
  if ((**this).wait_ms != 0) Call::current().limit_waiting((**this).wait_ms);
}

const std::string& area_folder(STG::RepositoryType type) {
  switch (type) {
    case STG::CorporateRepository: return vu_storage::getCorpPath();
    case STG::MailRepository: return vu_storage::getMailPath();
    default: return vu_storage::getUserPath();
  }
}

bool is_there(const std::string& path) {
  if (vu_file::exists(path)) return true;
  os::FileStat found;
  const os::Status status = os::stat(path, found, os::Links::kKeep);
  if (status.ok()) return true;
  const bool is_missing =
      status.failure() == os::Failure::kNotFound || status.failure() == os::Failure::kNoName;
  if (is_missing) return false;
  throw Refusal{VU_FAILED, "the system cannot tell whether the file exists", told_path(path),
                status.code()};
}

bool find_folder(const Address& address, bool create, std::string& folder) {
  for (int tries = 0; tries < 2; ++tries) {
    if (vu_storage::createUserOrDomainNameDirectory(address.owner, address.name, address.type,
                                                    folder, create))
      return true;
    if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
    // `folder` is now the first folder that the operation did not find.
    if (!is_there(folder)) return false;
  }
  throw Refusal{VU_FAILED, "the folder appeared and disappeared during the call; call again",
                told_path(folder)};
}

void wait_for_index(const std::string& folder) {
  if (!LockLimit::is_set() || !vu_file::exists(folder + "\\" + index_format::kIndexFile)) return;
  vu_file index(folder, index_format::kIndexFile);
  index.open(vu_file_base::o_append);
}

bool find(const Address& address, Place& place) {
  place.version = address.version;
  const auto look = [&] {
    if (address.version < 0) {
      place.version = vu_storage::getLattestTimestamp(address.owner, address.name, address.type);
      if (place.version < 0) return false;
    }
    vu_storage facade;
    return facade.IsFileExist(address.owner, address.name, address.type, place.version,
                              &place.folder, &place.file);
  };
  if (look()) return true;
  if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
  // If the system could not tell, the folder looked missing: check it and try again.
  std::string folder;
  if (!find_folder(address, false, folder)) return false;
  const unsigned troubles_before = Call::current().troubles();
  if (look()) return true;
  if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
  // An index that cannot be opened, for example while a scanner has it open, is only a warning,
  // and the version looks missing.
  if (Call::current().troubles() != troubles_before &&
      vu_file::exists(folder + "\\" + index_format::kIndexFile))
    throw Refusal{VU_FAILED, {}, {}};
  return false;
}

Place place_of(const Address& address) {
  Place place;
  if (!find(address, place)) throw Refusal{VU_NOTHING_MATCHED, "there is no such version", {}};
  return place;
}

namespace {

Answer is_entered_now(const std::string& folder, const std::string& name, long version,
                      const std::string& path) {
  const LockLimit none(std::nullopt);
  const unsigned troubles_before = Call::current().troubles();
  std::string entered;
  if (STGIndex::exists(folder, name, version, entered)) {
    if (folder + "\\" + entered == path) return Answer::kYes;
    // A file with the name of the document hides the entry.
    return entered == name ? Answer::kUnknown : Answer::kNo;
  }
  return Call::current().troubles() == troubles_before ? Answer::kNo : Answer::kUnknown;
}

}  // namespace

Answer is_entered(const std::string& folder, const std::string& name, long version,
                  const std::string& path) noexcept {
  constexpr int kTries = 2;
  for (int tries = 0; tries < kTries; ++tries) {
    try {
      const Answer answer = is_entered_now(folder, name, version, path);
      if (answer != Answer::kUnknown) return answer;
    } catch (...) {
      // An error is not an answer.
    }
  }
  return Answer::kUnknown;
}

NewFile::~NewFile() {
  if (!m_is_kept && is_made() && is_entered() == Answer::kNo) remove_new_file(path());
}

bool create_entry(const std::string& name, Place& place) {
  NewFile made(place.folder, name, place.version, IfEntered::kYield);
  const unsigned failures_before = Call::current().failures();
  try {
    place.file = STGIndex::create(place.folder, name, place.version);
  } catch (...) {
    // The entry may be saved, and another program may use it already.
    if (!made.is_made() || made.is_entered() != Answer::kYes) throw;
    place.file = made.path().substr(place.folder.size() + 1);
  }
  if (made.has_yielded()) return false;
  // A save that failed is only traced.
  if (Call::current().failures() != failures_before &&
      is_entered(place.folder, name, place.version, place.path()) != Answer::kYes)
    throw Refusal{LockLimit::passed() ? VU_LOCK_TIMEOUT : VU_FAILED, {}, {}};
  made.keep();
  return made.is_made();
}

bool find_or_create(const Address& address, Place& place) {
  constexpr int kTries = 3;
  for (int tries = 0; tries < kTries; ++tries) {
    if (find(address, place)) return false;
    // Otherwise another program has just created it.
    if (create_entry(address.name, place)) return true;
  }
  throw Refusal{VU_FAILED, "the entry of the version has no file; 'stgctl check' says what to do",
                told_path(place.path())};
}

namespace {

/// So often an operation looks up a version that other programs replace.
constexpr int kMost = 1000;

/// Whether a version has another file now, or none. False if the system cannot tell.
bool is_elsewhere(const Address& address, const Place& place) {
  const unsigned troubles_before = Call::current().troubles();
  Place now;
  if (vu_storage().IsFileExist(address.owner, address.name, address.type, place.version,
                               &now.folder, &now.file))
    return now.path() != place.path();
  return Call::current().troubles() == troubles_before;
}

}  // namespace

void open_of(vu_file& file, const Address& address, const Place& place,
             vu_file_base::type_access mode) {
  const bool waited = open_existing(file, place.folder, place.file, mode);
  if (!waited || !file.is_locked()) return;
  const bool is_moved = is_elsewhere(address, place);
  if (LockLimit::passed()) throw Refusal{VU_LOCK_TIMEOUT, {}, {}};
  if (!is_moved) return;
  file.close();
  throw Moved();
}

void look_again(int tries) {
  if (tries == kMost)
    throw Refusal{VU_FAILED, "other programs replace the version again and again; call again", {}};
  Call::current().forget();
}

bool has_moved(const Address& address, const Place& place, int tries) {
  if (tries == kMost || LockLimit::passed()) return false;
  // On Windows a removed file is found, but cannot be opened, until all its handles are closed.
  const bool was_refused = Call::current().failed_path() == place.path();
  if (vu_file::exists(place.path()) && !(was_refused && is_elsewhere(address, place))) return false;
  Call::current().forget();
  return true;
}

void refuse_if_hidden(const Address& address, const Place& place) {
  if (place.file != address.name) return;
  const auto entered = IndexGate::file_of(place.folder, address.name, place.version);
  if (entered && *entered != place.file)
    throw Refusal{VU_REFUSED,
                  "another file bears the document's name and hides the version; rename that file",
                  told_path(place.path())};
}

bool is_removed(const Address& address, const Place& old) {
  // After the deadline the index may be locked.
  if (LockLimit::passed()) return !vu_file::exists(old.path());
  Place left;
  return !find(address, left);
}

vu_status status_of_removal() {
  Call::current().note_change();
  if (!LockLimit::passed()) return done_unless_told();
  const std::string& path = Call::current().failed_path();
  throw Refusal{VU_PARTLY_DONE,
                path.ends_with(index_format::kIndexFile)
                    ? "the file is removed, but the index was locked: its entry or its lines in "
                      "category files stay"
                    : "the file and its entry are removed, but its line in a locked file stays",
                told_path(path)};
}

namespace {

constexpr std::uint32_t kSettingsFlags =
    VU_MAKE_ROOT | VU_SHARED_FOLDERS | VU_NO_ADOPTION | VU_NO_GUARD;

/// Creates a folder and its missing parents. Required: without createDirR(). It puts the folders of
/// a network path into the current folder, and fails with the prefix for long paths.
void make_folders(const std::string& path) {
  std::vector<std::string> missing;
  std::string folder = path;
  while (!folder.empty() && folder.back() != '\\' && !vu_fileutf8::is_dir(vu_utf8string(folder))) {
    missing.push_back(folder);
    const std::size_t end = folder.find_last_of('\\');
    folder.resize(end == std::string::npos ? 0 : end);
  }
  // The caller checks the result.
  for (auto each = missing.rbegin(); each != missing.rend(); ++each)
    vu_fileutf8::createDir(vu_utf8string(*each));
}

/// The absolute form of the root, with backslashes.
std::string root_of(const vu_settings& settings) {
  vu_utf8string root(settings.root);
  require(!root.empty(), "the root is empty");
  if (!vu_fileutf8::rel2abs(root))
    throw Refusal{VU_NO_TREE, "the root has no absolute path", settings.root};
  std::string path = root.str();
  while (path.size() > 1 && path.back() == '\\') path.pop_back();
  if ((settings.flags & VU_MAKE_ROOT) != 0 && !vu_fileutf8::is_dir(vu_utf8string(path)))
    make_folders(path);
  if (!vu_fileutf8::is_dir(vu_utf8string(path)))
    throw Refusal{VU_NO_TREE, "the root folder does not exist; create it or set VU_MAKE_ROOT",
                  settings.root};
  Call::current().forget();
  return path_of(path.c_str());
}

/// Creates again what an earlier call could not create, or what was removed since; never the root.
/// @throws Refusal if an area has no folder
void require_areas() {
  for (const auto type :
       {STG::CorporateRepository, STG::UserFilesRepository, STG::MailRepository}) {
    const std::string& folder = area_folder(type);
    if (vu_file::is_dir(folder)) continue;
    vu_file::createDir(vu_storage::getStoragePath());
    vu_file::createDir(folder);
    if (!vu_file::is_dir(folder))
      throw Refusal{VU_FAILED, "the folder does not exist and cannot be created",
                    told_path(folder)};
  }
  Call::current().forget();
}

/// Joins the storage that is open. @throws Refusal if its root or layout is another.
vu_status join(const vu_settings& settings, const std::string& root) {
  if (!StorageGate::initialised())
    throw Refusal{VU_NO_TREE, "no storage is open; open one with a root", {}};
  const std::string& in_force = vu_storage::getStoragePath();
  if (settings.root != nullptr) {
    const bool has_shared_folders = (settings.flags & VU_SHARED_FOLDERS) != 0;
    if (in_force != root + "\\storage")
      throw Refusal{VU_REFUSED, "this process has opened another root", told_path(in_force)};
    if (has_shared_folders == StorageGate::owners_have_folders())
      throw Refusal{VU_REFUSED, "this process has opened the root with another VU_SHARED_FOLDERS",
                    told_path(in_force)};
  }
  require_areas();
  last_problem().set_text("the storage is open already; use this handle, and close it too");
  last_problem().set_path(told_path(in_force));
  return VU_ALREADY;
}

vu_status start(const vu_settings& settings) {
  if (settings.root == nullptr) return join(settings, {});
  const std::string root = root_of(settings);
  if (StorageGate::initialised()) return join(settings, root);
  const bool is_mine = vu_storage::initRootStorage(root, (settings.flags & VU_SHARED_FOLDERS) == 0,
                                                   (settings.flags & VU_NO_ADOPTION) == 0);
  if (!StorageGate::initialised()) return failed_or(VU_FAILED, "the storage cannot be initialised");
  if (!is_mine) return join(settings, root);
  // Required: initRootStorage() returns true also if it could not create a folder.
  if (Call::current().heard_failure()) throw Refusal{VU_FAILED, {}, {}};
  return VU_DONE;
}

vu_status open_store(const vu_settings* settings, vu_store** store) {
  clear_result(store, "store");
  require(settings, "settings");
  check_size(settings, settings->struct_size, sizeof *settings);
  require((settings->flags & ~kSettingsFlags) == 0 && settings->reserved == 0, "unknown flags");
  require(settings->wait_ms >= VU_NO_WAIT, "the time limit is out of range");
  auto object = std::make_unique<Store>();
  const vu_status status = start(*settings);
  object->guard = (settings->flags & VU_NO_GUARD) != 0 ? Guard::kOff : Guard::kOn;
  object->owners_have_folders = StorageGate::owners_have_folders();
  object->wait_ms = settings->wait_ms;
  *store = static_cast<vu_store*>(handles::add(Kind::kStore, std::move(object)));
  return status;
}

}  // namespace
}  // namespace api

using api::run;

vu_status vu_open_store(const vu_settings* settings, vu_store** store) {
  return run("vu_open_store", [&]() -> vu_status { return api::open_store(settings, store); });
}

vu_status vu_close_store(vu_store* store) {
  return run("vu_close_store", [&]() -> vu_status {
    std::unique_ptr<api::Object> object;
    api::check_found(api::handles::take_out(store, api::Kind::kStore, object));
    return VU_DONE;
  });
}

vu_status vu_folder(vu_store* store, int32_t area, char* buffer, size_t room, size_t* size) {
  return run("vu_folder", [&]() -> vu_status {
    const api::StoreUse use(store);
    const std::string& folder =
        area == 0 ? vu_storage::getStoragePath() : api::area_folder(api::type_of(area));
    return api::give_text(api::told_path(folder), buffer, room, size);
  });
}
