#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "api/call.h"
#include "api/handles.h"
#include "stg_types.h"
#include "vu/storage.h"

namespace api {

enum class Guard : std::uint8_t { kOn, kOff };

/// What a handle of a store leads to: the settings of whoever opened it.
struct Store final : Object {
  Guard guard = Guard::kOn;
  bool owners_have_folders = true;
  std::int64_t wait_ms = 0;
};

/// A version, in the library's own terms.
struct Address {
  STG::RepositoryType type = STG::UserFilesRepository;
  std::string owner;  ///< for the library, which does nothing for an empty one
  std::string name;
  long version = 0;  ///< -1 for the latest one

  bool is_corporate() const { return type == STG::CorporateRepository; }
};

/// The use of a store during one call. @throws Refusal for a handle that is none.
class StoreUse {
 public:
  explicit StoreUse(const vu_store* handle);
  const Store& operator*() const { return static_cast<const Store&>(m_use.object()); }
  const Store* operator->() const { return &**this; }

 private:
  Use m_use;
};

/// Throws for what was not found.
[[noreturn]] void refuse_handle(handles::Found found);
inline void check_found(handles::Found found) {
  if (found != handles::Found::kYes) refuse_handle(found);
}

// ---- names -------------------------------------------------------------------------------------

/// An area's number as the library counts. @throws Refusal
STG::RepositoryType type_of(std::int32_t area);
/// Names as the library takes them. @throws Refusal for null, for what the guard refuses, and for
/// what has no place in the narrow encoding.
std::string owner_of(const Store& store, const char* owner);
std::string entry_of(const Store& store, const char* text);
/// The name of a file that the library puts into a folder as it is.
std::string file_name_of(const Store& store, const char* what, const char* name);
/// A path; not guarded.
std::string path_of(const char* path);
/// A file in a folder answers for the name that it bears: one that holds another document, or the
/// parts of one, must not. address_of() asks. @throws Refusal VU_REFUSED
void refuse_anothers_file(const Store& store, const Address& address);
enum class Version : std::uint8_t {
  kAny,      ///< VU_LATEST as well
  kNamed,    ///< a version of its own
  kNoneIs0,  ///< it is not looked at
};
Address address_of(const Store& store, const vu_document* document, Version version);
/// What the library tells, for the caller: UTF-8.
std::string told_name(std::string_view name);
/// The same, put into @p text, whose memory is used again.
const char* told_name(std::string_view name, std::string& text);
std::string told_path(const std::string& path);

// ---- folders -----------------------------------------------------------------------------------

const std::string& area_folder(STG::RepositoryType type);

/// Whether a file or folder is there. @throws Refusal when the system does not tell
bool is_there(const std::string& path);

/// The folder of a document. False when it does not exist, without @p create.
bool find_folder(const Address& address, bool create, std::string& folder);

/// Waits within the limit in force until the index of a folder can be had alone: for operations
/// that begin with what cannot be undone. @throws Refusal VU_LOCK_TIMEOUT
void wait_for_index(const std::string& folder);

/// Where a version is.
struct Place {
  std::string folder;
  std::string file;
  long version = 0;

  std::string path() const { return folder + "\\" + file; }
};
/// Finds a version. False when it does not exist; @throws Refusal when that could not be told.
bool find(const Address& address, Place& place);
/// The same; @throws Refusal VU_NOTHING_MATCHED.
Place place_of(const Address& address);
/// Whether to look a version up again, after something has failed at the place where it was: one
/// that is stored anew meanwhile has another file.
bool has_moved(const Place& place, int tries);
/// Does something with the file of a version.
template <class Use>
auto at_place_of(const Address& address, const Use& use) {
  for (int tries = 0;; ++tries) {
    const Place place = place_of(address);
    try {
      return use(place);
    } catch (...) {
      if (!has_moved(place, tries)) throw;
    }
  }
}

}  // namespace api
