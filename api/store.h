#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "api/call.h"
#include "api/handles.h"
#include "index/own_files.h"
#include "platform/os/os.h"
#include "stg_types.h"
#include "vu/storage.h"
#include "vu_file.h"

namespace api {

enum class Guard : std::uint8_t { kOn, kOff };

/// The object of a store handle: the settings of its vu_open_store().
struct Store final : Object {
  Guard guard = Guard::kOn;
  bool owners_have_folders = true;
  std::int64_t wait_ms = 0;
};

// ---- streams -----------------------------------------------------------------------------------

enum class Direction : std::uint8_t { kReads, kWrites };

/// The object of a stream handle. Its destructor closes the file. One call at a time uses it.
struct Stream final : Object {
  vu_file file;
  Direction direction = Direction::kReads;
};

/// Returns a handle for an open stream. @throws Refusal if it did not get its lock.
void give_stream(std::unique_ptr<Stream> opened, vu_stream** stream);

// ---- versions ----------------------------------------------------------------------------------

/// A version, in the terms of the exported classes.
struct Address {
  STG::RepositoryType type = STG::UserFilesRepository;
  std::string owner;  ///< never empty: some operations do nothing for an empty owner
  std::string name;
  long version = 0;  ///< -1 for the latest one

  bool is_corporate() const { return type == STG::CorporateRepository; }
};

/// Uses a store during one call. @throws Refusal for an invalid handle.
class StoreUse {
 public:
  explicit StoreUse(const vu_store* handle);
  const Store& operator*() const { return static_cast<const Store&>(m_use.object()); }
  const Store* operator->() const { return &**this; }

 private:
  Use m_use;
};

/// Closes a handle that has written nothing, so a failure loses nothing. Nothing throws.
inline void close_read(os::Handle handle) noexcept {
  try {
    static_cast<void>(os::close(handle));
  } catch (...) {
    // The system has closed it, or keeps it until the end of the process.
  }
}

/// vu_file can be open without its lock: if the lock was refused. @throws Refusal then.
void check_locked(const vu_file& file);

[[noreturn]] void refuse_handle(handles::Found found);
inline void check_found(handles::Found found) {
  if (found != handles::Found::kYes) refuse_handle(found);
}

// ---- names -------------------------------------------------------------------------------------

/// Whether two names may be the same file. On Windows case is ignored, and all characters that are
/// not ASCII are taken as equal.
bool may_be_one_file(std::string_view a, std::string_view b);
/// The area for VU_AREA_... @throws Refusal
STG::RepositoryType type_of(std::int32_t area);
/// Names for the exported classes. @throws Refusal for null, for a name that the guard refuses, and
/// for one that the narrow encoding cannot represent.
std::string owner_of(const Store& store, const char* owner);
std::string entry_of(const Store& store, const char* text);
/// @throws Refusal VU_USAGE if the name of an entry contains a line feed
void require_one_line(std::string_view name);
/// A name that becomes the name of a file, unchanged.
std::string file_name_of(const Store& store, const char* what, const char* name);
/// The rendition of a part. The guard also refuses one that is not in a folder of its own.
std::string rendition_of(const Store& store, const char* text);
/// A path; not guarded.
std::string path_of(const char* path);
/// Refuses a document name that is already the name of another document's file or of a folder. A
/// lookup would find that file instead. @throws Refusal VU_REFUSED
void refuse_anothers_file(const Store& store, const Address& address);
enum class Version : std::uint8_t {
  kAny,      ///< VU_LATEST is accepted
  kNamed,    ///< VU_LATEST is not accepted
  kNoneIs0,  ///< the version is ignored
};
Address address_of(const Store& store, const vu_document* document, Version version);
/// The prefix of the temporary names of versions that are being stored; lists skip them.
inline constexpr std::string_view kStagedPrefix = ".vu-storing-";
/// Such a name that no other writer has, with the extension of @p name.
std::string staged_name(const std::string& name);
/// A name or path for the caller: UTF-8.
std::string told_name(std::string_view name);
/// The same, stored in @p text to reuse its memory.
const char* told_name(std::string_view name, std::string& text);
std::string told_path(const std::string& path);

// ---- folders -----------------------------------------------------------------------------------

const std::string& area_folder(STG::RepositoryType type);

/// Whether a file or folder exists. @throws Refusal if the system cannot tell
bool is_there(const std::string& path);

/// Finds the folder of a document. @return false if it does not exist and @p create is false.
bool find_folder(const Address& address, bool create, std::string& folder);

/// Waits within the limit until the index of a folder can be locked exclusively. Call it before an
/// operation whose first step cannot be undone. @throws vu_file_except after the limit:
/// VU_LOCK_TIMEOUT
void wait_for_index(const std::string& folder);

/// Where a version is: its folder, and the name of its file in there.
struct Place {
  std::string folder;
  std::string file;
  long version = 0;

  std::string path() const { return folder + "\\" + file; }
};
/// Sets version, size and times of a version's file; -1 where the system cannot tell.
inline os::Status describe_file(const std::string& path, std::int64_t version, vu_info& info) {
  info = VU_INFO_INIT;
  info.version = version;
  os::FileStat found;
  const os::Status status = os::stat(path, found);
  if (!status.ok()) return status;
  info.size = static_cast<std::int64_t>(found.size);
  info.modified = found.modify_time;
  info.accessed = found.access_time;
  return status;
}

/// Finds a version. @return false if it does not exist. @throws Refusal if that is unknown.
bool find(const Address& address, Place& place);
/// As find(). @throws Refusal VU_NOTHING_MATCHED if it does not exist.
Place place_of(const Address& address);
enum class Answer : std::uint8_t { kYes, kNo, kUnknown };
/// Whether the index has a version with the file @p path. The result is kUnknown if the system
/// cannot tell, and if a file with the name of the document hides the entry. A check that fails is
/// made once more. Nothing throws.
///
/// Required: it waits for the index without a limit. After a save the status must say what
/// happened. And another program can find a saved entry and use it at once, so only the index can
/// say whether there is something to remove.
Answer is_entered(const std::string& folder, const std::string& name, long version,
                  const std::string& path) noexcept;
/// Creates the entry of a version and its empty file; sets the file of @p place.
/// @return false if the entry exists already. @throws Refusal, vu_file_except; then there is no
/// entry, and no file, unless the system cannot tell
bool create_entry(const std::string& name, Place& place);
/// The file that an operation makes for a new entry. Without the entry it would be an orphan, which
/// becomes a document when it is adopted. So the destructor removes it, unless the index has the
/// entry, or cannot be read.
///
/// Order of calls: construct it, then run the operation; then keep(), if it reported no failure.
/// Errors: none; a file that the destructor cannot remove is traced, and stays an orphan. Threads:
/// one.
class NewFile {
 public:
  NewFile(std::string folder, std::string name, long version, IfEntered if_entered)
      : m_folder(std::move(folder)),
        m_name(std::move(name)),
        m_version(version),
        m_own(if_entered) {}
  ~NewFile();
  NewFile(const NewFile&) = delete;
  NewFile& operator=(const NewFile&) = delete;

  /// Whether the operation has made a file. If the entry existed, it has not.
  bool is_made() const { return !path().empty(); }
  const std::string& path() const { return m_own.last(); }
  /// Whether the entry gave way to that of another program.
  bool has_yielded() const { return m_own.has_yielded(); }
  /// Whether the index has the entry with the file that was made.
  Answer is_entered() const noexcept {
    return api::is_entered(m_folder, m_name, m_version, path());
  }
  void keep() { m_is_kept = true; }

 private:
  std::string m_folder;
  std::string m_name;
  long m_version;
  OwnFiles m_own;
  bool m_is_kept = false;
};
/// Finds a version, or creates it in the folder of @p place. @return whether it was created.
/// @throws like create_entry(), and Refusal if the version has an entry that find() does not find
bool find_or_create(const Address& address, Place& place);
/// For a version whose file could not be used: whether another program has replaced or removed the
/// version. The caller then looks the version up again.
bool has_moved(const Address& address, const Place& place, int tries);
/// Ends the use of a place of which the version has moved. Thrown and caught by at_place() only.
struct Moved {};
/// Opens the file of a version to change it; for at_place(). No missing file is created, and none
/// is emptied: @p mode is o_write or o_append. A writer that had to wait for the lock looks the
/// version up again: the holder, or another program, can have replaced it. Example: a reader keeps
/// this call waiting; meanwhile vu_put() gives the version a new file and removes this one. What
/// would now be written here would be lost.
/// @throws Moved, Refusal, and like open_existing()
void open_of(vu_file& file, const Address& address, const Place& place,
             vu_file_base::type_access mode);
/// A lookup finds the file that bears the document's name; an operation of the index takes the file
/// of the entry. @throws Refusal VU_REFUSED if these are two files
void refuse_if_hidden(const Address& address, const Place& place);
/// Whether a removal has removed the file of a version.
bool is_removed(const Address& address, const Place& old);
/// The status of a call that has removed the file of a version: VU_DONE or VU_PARTLY_DONE.
/// @throws Refusal VU_PARTLY_DONE if a lock was not obtained in time.
vu_status status_of_removal();
/// Prepares another look after Moved. @throws Refusal after a great number of them
void look_again(int tries);
/// Calls @p use with the place that @p look finds, again if the version has moved.
template <class Look, class Use>
auto at_place(const Address& address, const Look& look, const Use& use) {
  for (int tries = 0;; ++tries) {
    const Place place = look();
    try {
      return use(place);
    } catch (const Moved&) {
      look_again(tries);
    } catch (...) {
      if (!has_moved(address, place, tries)) throw;
    }
  }
}
/// The same for a version that exists.
template <class Use>
auto at_place_of(const Address& address, const Use& use) {
  return at_place(
      address, [&] { return place_of(address); }, use);
}

}  // namespace api
