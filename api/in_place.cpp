#include "api/in_place.h"

#include <cstddef>
#include <list>
#include <memory>
#include <set>
#include <string>

#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "stg_index.h"
#include "storage/key_text.h"
#include "storage/layout.h"
#include "storage/roots.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace api {
namespace {

constexpr const char* kLockedSource = "a writer has locked the file";

/// A locked category file, with its text after the removal of a line.
struct Category {
  vu_file file;
  std::string text;
};

/// Locks a category file exclusively if an entry has a line in it. @return whether it has.
bool lock_if_named(const std::string& folder, const std::string& file, const std::string& entry,
                   Category& category) {
  // Required: no missing file is created. Between the two opens another program may have removed
  // the category file, and a file without an entry would become a document by adoption.
  const auto opens_with_line = [&](vu_file_base::type_access mode) {
    static_cast<void>(open_existing(category.file, folder, file, mode));
    category.text = read_to_end(category.file).view();
    return key_text::cut_line(category.text, entry);
  };
  try {
    // First with a shared lock: a file without the line may be in use by readers.
    const bool is_named = opens_with_line(vu_file_base::o_read);
    category.file.close();
    return is_named && opens_with_line(vu_file_base::o_append);
  } catch (const vu_file_except&) {
    if (LockLimit::passed()) throw;
    // The failure was traced. The line stays, as it does without a limit.
    return false;
  }
}

/// All category files that have a line of the entry, locked. @throws Refusal, vu_file_except
std::list<Category> lock_categories(const Place& place, const std::string& entry) {
  STGIndex::NameMap names;
  STGIndex::getCategories(place.folder, names);
  // The document can be a category file itself. It is locked already.
  std::set<std::string> seen = {place.file};
  std::list<Category> locked;
  for (const auto& [name, stored] : names) {
    std::string file;
    if (!STGIndex::exists(place.folder, name, 0, file) || !seen.insert(file).second) continue;
    if (!lock_if_named(place.folder, file, entry, locked.emplace_back())) locked.pop_back();
  }
  // STGIndex::exists() returns false if the index is locked.
  if (LockLimit::passed()) throw Refusal{VU_LOCK_TIMEOUT, {}, {}};
  return locked;
}

/// Removes what was derived from a version, and empties it, within a time limit: takes all locks
/// first. Required: the document is locked already. Its lock can be kept for long, and nothing else
/// is locked while this call waits for it.
void empty_in_time(vu_file& file, const Address& address, const Place& place) {
  std::list<Category> categories;
  if (address.type == STG::UserFilesRepository) categories = lock_categories(place, address.name);
  for (Category& category : categories) {
    const unsigned failures_before = Call::current().failures();
    const Rewritten rewritten = rewrite(category.file, category.text);
    const std::string path = category.file.getFilePath();
    category.file.close();
    if (rewritten == Rewritten::kNotAtAll) throw Refusal{VU_FAILED, {}, told_path(path)};
    if (rewritten != Rewritten::kWhole || Call::current().failures() != failures_before)
      throw Refusal{VU_FAILED, "not all lines of a category file were written", told_path(path)};
  }
  if (address.is_corporate())
    vu_file::recurseRemoveDir(layout::root_of_parts(place.path(), vu_storage::getTdcTimeStamp()));
  file.clear();
}

/// Removes what was derived from a version that is to be replaced. With a time limit all locks come
/// first: see empty_in_time().
void drop_derived_at_once(const Address& address, const Place& place) {
  if (LockLimit::is_set()) return;
  if (address.type == STG::UserFilesRepository)
    StorageGate::remove_from_categories(place.folder, address.name);
  if (address.is_corporate())
    vu_file::recurseRemoveDir(layout::root_of_parts(place.path(), vu_storage::getTdcTimeStamp()));
}

/// Finds a version, or creates it. @return whether it existed.
bool find_or_create_anywhere(const Address& address, Place& place) {
  place.version = address.version;
  if (!find_folder(address, true, place.folder)) throw Refusal{VU_FAILED, {}, {}};
  const bool exists = STGIndex::exists(place.folder, address.name, place.version, place.file);
  if (LockLimit::passed()) throw Refusal{VU_LOCK_TIMEOUT, {}, {}};
  // An index that cannot be opened looks empty; find() throws then.
  return exists || !find_or_create(address, place);
}

}  // namespace

SourceFile::SourceFile(const std::string& path, const Address& address) : m_path(path) {
  const os::Status opened = os::open(path, os::Access::kReadExisting, m_handle);
  if (opened.failure() == os::Failure::kNotFound)
    throw Refusal{VU_NOTHING_MATCHED, "there is no such file", told_path(path)};
  check(opened, "the file cannot be opened");
  try {
    check(lock_at_once(), kLockedSource);
    static_cast<void>(os::unlock(m_handle));
    Place target;
    if (!find(address, target)) return;
    bool is_same = false;
    const os::Status compared = os::same_file(path, target.path(), is_same);
    // If the version is gone now, nothing can be lost.
    if (compared.failure() != os::Failure::kNotFound)
      check(compared, "the file cannot be compared");
    if (is_same)
      throw Refusal{VU_FAILED, "the file is that of the version itself", told_path(path)};
  } catch (...) {
    close_read(m_handle);
    throw;
  }
}

SourceFile::~SourceFile() { close_read(m_handle); }

os::Status SourceFile::lock_at_once() const {
  vu_file_base::lock_desc_t lock{};
  return os::lock(m_handle, {os::kLockFailAtOnce, 0, 0xFFFFFFFFU, 0xFFFFFFFFU, lock.region});
}

void SourceFile::check(const os::Status& status, const char* text) const {
  if (!status.ok()) throw Refusal{VU_FAILED, text, told_path(m_path), status.code()};
}

bool SourceFile::copy_to(vu_file& version) const {
  constexpr std::size_t kRoom = std::size_t{1} << 18U;
  try {
    check(lock_at_once(), kLockedSource);
    const std::unique_ptr<char[]> buffer(new char[kRoom]);
    for (;;) {
      std::size_t size = 0;
      check(os::read(m_handle, buffer.get(), kRoom, size), "the file cannot be read");
      if (size == 0) break;
      if (!write_from(version, {buffer.get(), size})) {
        version.clear();
        return false;
      }
    }
    os::CopiedTime time = os::CopiedTime::kKept;
    check(take_time(version, m_handle, time), "the version cannot get the time of the file");
    return true;
  } catch (...) {
    // A part of a document looks like a document. Nobody takes an empty one for it.
    version.clear();
    throw;
  }
}

void open_to_write(vu_file& file, const Address& address, bool replaces) {
  bool existed = false;
  const auto look = [&] {
    Place found;
    existed = find_or_create_anywhere(address, found);
    return found;
  };
  // Required: no missing file is created. Another program may have replaced or removed the version
  // since the look, and a file without an entry would become a document by adoption. Nothing is
  // emptied before the version is known to have this file.
  const Place place = at_place(address, look, [&](const Place& found) {
    if (existed && !replaces) return found;
    if (existed) drop_derived_at_once(address, found);
    open_of(file, address, found, vu_file_base::o_write);
    return found;
  });
  if (!file.is_open() || !file.is_locked()) return;
  if (existed && LockLimit::is_set()) return empty_in_time(file, address, place);
  // Since this call entered the version, another program can have opened and written it.
  if (!existed && !replaces && size_of(file) != 0) return file.close();
  file.clear();
}

bool is_opened_anew(const Address& address, vu_file& file) {
  if (!Call::current().heard_failure()) return true;
  const std::string path = file.getFilePath();
  const bool is_cut = size_of(file) == 0;
  const unsigned troubles_before = Call::current().troubles();
  Place place;
  const bool is_named = vu_storage().IsFileExist(address.owner, address.name, address.type,
                                                 address.version, &place.folder, &place.file) &&
                        place.path() == path;
  if (is_named && is_cut) return true;
  const bool is_nobodys = !is_named && Call::current().troubles() == troubles_before;
  file.close();
  // A file stays if the system cannot tell which entry names it.
  if (is_nobodys && is_cut) vu_file::remove(path);
  return false;
}

}  // namespace api
