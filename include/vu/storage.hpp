/// @file
/// The storage in C++17: a header over the C interface. Only C crosses the interface, so the
/// program may use any compiler and any standard library, linked in any way.
///
///     vu::store store("/srv/data", vu::make_root);
///     const vu::key report{vu::area::docs, "anna", "report.kdf", 20240501};
///     store.put(report, "Hello");
///     if (const auto text = store.read(report)) std::cout << *text;
///
/// Failures are exceptions of type vu::error. Two cases are results instead. For a missing document
/// the result is an empty std::optional, false or a closed file. For an existing one that must not
/// be replaced it is false, stored::not_stored or a closed file. VU_PARTLY_DONE is an exception as
/// well, although the main change of the call is made: see code().
///
/// Any number of threads may use one store; only one at a time may use a file. Each member behaves
/// as the C function that it calls: for locks, waits and crash safety see vu/storage.h.
#ifndef VU_STORAGE_HPP
#define VU_STORAGE_HPP

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "vu/storage.h"

namespace vu {

/// A point in time, in whole seconds.
using time_point = std::chrono::time_point<std::chrono::system_clock, std::chrono::seconds>;

/// A failed call. what() contains the call, the reason, the path, the system's text and the status.
class error : public std::runtime_error {
 public:
  /// The error of the calling thread's last call.
  static error last() {
    vu_error told = VU_ERROR_INIT;
    vu_last_error(&told);
    return error(told);
  }
  /// Copies the texts of a vu_error.
  explicit error(const vu_error& told)
      : std::runtime_error(sentence(told)),
        m_code(told.status),
        m_system_code(told.system_code),
        m_text(told.text),
        m_path(told.path) {}

  /// The vu_status, for example VU_LOCK_TIMEOUT.
  vu_status code() const noexcept { return m_code; }
  /// The system's error code; 0 if the failure is not the system's.
  std::int32_t system_code() const noexcept { return m_system_code; }
  /// What happened, without the path.
  const std::string& text() const noexcept { return m_text; }
  /// The file or folder concerned, UTF-8; may be empty.
  const std::string& path() const noexcept { return m_path; }

 private:
  static std::string sentence(const vu_error& told) {
    std::string text = std::string(told.operation) + ": " + told.text;
    if (*told.path != '\0') text += std::string(" (") + told.path + ")";
    if (*told.system_text != '\0') text += std::string(": ") + told.system_text;
    return text + " [" + vu_status_name(told.status) + "]";
  }

  vu_status m_code;
  std::int32_t m_system_code;
  std::string m_text;
  std::string m_path;
};

/// Throws unless the status is VU_DONE.
inline void check(vu_status status) {
  if (status != VU_DONE) throw error::last();
}
/// As check(), but returns false for the status `answer`.
inline bool check_unless(vu_status status, vu_status answer) {
  if (status == answer) return false;
  check(status);
  return true;
}

/// A path in UTF-8, for the C interface.
inline std::string utf8_of(const std::filesystem::path& path) {
  const auto text = path.u8string();
  return std::string(text.begin(), text.end());
}
/// The path for a UTF-8 text of the C interface.
inline std::filesystem::path path_of(std::string_view utf8) {
#if defined(__cpp_char8_t)
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
#else
  return std::filesystem::u8path(utf8.begin(), utf8.end());
#endif
}
/// The path for a text that an exported class returned: those have backslashes on every system. On
/// Windows use it for narrow paths only in the UTF-8 code page.
inline std::filesystem::path native_path(std::string_view path) {
  std::string text(path);
  if constexpr (std::filesystem::path::preferred_separator != '\\') {
    for (char& c : text) {
      if (c == '\\') c = '/';
    }
  }
  return path_of(text);
}

/// The version of the loaded library, for example "1.0.0".
inline std::string version() { return vu_version(); }
/// The same as a number, to compare with VU_VERSION_NUMBER.
inline std::int32_t version_number() { return vu_version_number(); }

/// The area of a document.
enum class area : std::int32_t { user = VU_AREA_USER, docs = VU_AREA_DOCS, mail = VU_AREA_MAIL };

/// For key::version: the greatest version, where VU_LATEST is accepted.
inline constexpr std::int64_t latest = VU_LATEST;

/// Names a document and one version of it.
struct key {
  vu::area area = vu::area::docs;  ///< its area
  std::string owner;               ///< a user or a domain; empty where owners share folders
  std::string name;                ///< the logical name, with its extension
  std::int64_t version = 0;        ///< 0 to 2147483647, as the caller chooses; or vu::latest

  friend bool operator==(const key& a, const key& b) {
    return a.area == b.area && a.owner == b.owner && a.name == b.name && a.version == b.version;
  }
  friend bool operator!=(const key& a, const key& b) { return !(a == b); }
};

/// The key as the C interface takes it. The result refers to the texts of the key: keep the key.
inline vu_document document_of(const key& of) {
  vu_document document = VU_DOCUMENT_INIT;
  document.area = static_cast<std::int32_t>(of.area);
  document.owner = of.owner.c_str();
  document.name = of.name.c_str();
  document.version = of.version;
  return document;
}

/// Size and times of a version.
struct info {
  std::int64_t version = 0;  ///< the version
  std::int64_t size = -1;    ///< in bytes; -1, as both times, if the system does not tell it
  time_point modified;       ///< the last change of its bytes
  time_point accessed;       ///< the last access that the system recorded

  /// The time since the last change.
  std::chrono::seconds age() const {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - modified;
  }
};

/// One version in a list.
struct entry : key {
  std::string file;              ///< the name of its file in the folder
  std::optional<vu::info> info;  ///< if it was requested and the system knows the size
};

/// The error VU_PARTLY_DONE of a list: the system refused something, for example to list a folder.
class partly_listed : public error {
 public:
  partly_listed(const error& reason, std::vector<entry> listed)
      : error(reason), m_entries(std::make_shared<const std::vector<entry>>(std::move(listed))) {}

  /// What was listed.
  const std::vector<entry>& entries() const noexcept { return *m_entries; }

 private:
  std::shared_ptr<const std::vector<entry>> m_entries;  // the copy of an exception must not throw
};

/// What to do with a version or file that exists already.
enum class if_there : std::uint32_t { keep = 0, replace = VU_REPLACE };

/// How a version was stored.
enum class stored : std::int32_t {
  not_stored = 0,                ///< it existed, and was kept
  at_once = VU_STORED_AT_ONCE,   ///< atomic: readers get the old version or the new one
  in_place = VU_STORED_IN_PLACE  ///< not atomic: an interruption can leave a part
};

/// In place of an owner: the master profile in calls on profiles, every owner in calls that clean.
inline constexpr std::nullopt_t nobody = std::nullopt;

/// What a clean removes. Values can be combined with "|".
enum class cleaning : std::uint32_t {
  by_change = 0,              ///< versions not changed for longer than the limit
  by_access = VU_BY_ACCESS,   ///< versions not read for longer than the limit
  everything = VU_CLEAN_ALL,  ///< allows a limit of 0, which removes all versions
};
/// Combines both.
constexpr cleaning operator|(cleaning a, cleaning b) {
  return static_cast<cleaning>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

/// How to open a store. Values can be combined with "|".
enum options : std::uint32_t {
  make_root = VU_MAKE_ROOT,            ///< creates a missing root
  shared_folders = VU_SHARED_FOLDERS,  ///< all owners share the area folders
  no_adoption = VU_NO_ADOPTION,        ///< orphans are not adopted
  no_guard = VU_NO_GUARD               ///< names are used unchecked
};
/// Combines both.
constexpr options operator|(options a, options b) {
  return static_cast<options>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

/// An open file of the storage; it holds the lock of the file. The destructor closes it and ignores
/// errors: call close() to learn whether everything is on the device. Every other member throws
/// VU_BAD_HANDLE if the file is closed, also after a move.
class file {
 public:
  /// A closed file.
  file() = default;
  /// Takes ownership of an open stream.
  explicit file(vu_stream* stream) noexcept : m_stream(stream) {}
  /// Takes the stream of @p other, which is closed afterwards.
  file(file&& other) noexcept : m_stream(std::exchange(other.m_stream, nullptr)) {}
  /// The same; closes the stream that this object had.
  file& operator=(file&& other) noexcept {
    file taken(std::move(other));
    std::swap(m_stream, taken.m_stream);
    return *this;
  }
  /// Closes the stream. Errors are ignored.
  ~file() {
    if (m_stream != nullptr) vu_stream_close(m_stream);
  }

  /// Whether it is open.
  explicit operator bool() const noexcept { return m_stream != nullptr; }
  /// The handle; this object remains its owner.
  vu_stream* handle() const noexcept { return m_stream; }

  /// Reads @p room bytes; fewer only at the end of the file.
  std::size_t read(void* buffer, std::size_t room) {
    std::size_t size = 0;
    check(vu_stream_read(m_stream, buffer, room, &size));
    return size;
  }
  /// Reads from the position to the end of the file.
  std::string read() {
    std::string bytes;
    constexpr std::size_t piece = 65536;
    for (std::size_t size = 0;;) {
      bytes.resize(size + piece);
      const std::size_t got = read(&bytes[size], piece);
      bytes.resize(size += got);
      if (got < piece) return bytes;
    }
  }
  /// Writes all bytes at the position. They are not flushed before close().
  void write(std::string_view bytes) {
    check(vu_stream_write(m_stream, bytes.data(), bytes.size()));
  }
  /// Moves the position; @p origin is VU_FROM_START, VU_FROM_POSITION or VU_FROM_END.
  void seek(std::int64_t distance, std::int32_t origin = VU_FROM_START) {
    check(vu_stream_seek(m_stream, distance, origin));
  }
  /// The size in bytes.
  std::int64_t size() const {
    std::int64_t bytes = 0;
    check(vu_stream_size(m_stream, &bytes));
    return bytes;
  }
  /// Flushes what was written, releases the lock and closes. Does nothing if it is closed. After
  /// VU_BUSY it is still open.
  void close() {
    if (m_stream == nullptr) return;
    const vu_status status = vu_stream_close(m_stream);
    if (status != VU_BUSY) m_stream = nullptr;
    check(status);
  }

 private:
  vu_stream* m_stream = nullptr;
};

namespace detail {

struct freed {
  void operator()(void* memory) const { vu_free(memory); }
};

inline const char* c_text(const std::optional<std::string>& text) {
  return text ? text->c_str() : nullptr;
}

/// A C++ function as a callback of C. It keeps an exception until the C call has returned.
template <class Function>
struct callback {
  Function& function;
  std::exception_ptr raised;

  /// @param make returns the arguments for the function; it may throw.
  template <class Make>
  std::int32_t call_with(Make make) noexcept {
    try {
      return std::apply(function, make()) ? 0 : 1;
    } catch (...) {
      raised = std::current_exception();
      return 1;
    }
  }
  /// @return whether the list was completed.
  bool finish(vu_status status) const {
    if (raised) std::rethrow_exception(raised);
    return check_unless(status, VU_INTERRUPTED);
  }
};

inline vu::info info_of(const vu_info& told) {
  return {told.version, told.size, time_point(std::chrono::seconds(told.modified)),
          time_point(std::chrono::seconds(told.accessed))};
}
inline entry entry_of(const vu_entry& told) {
  entry result;
  result.area = static_cast<vu::area>(told.area);
  result.owner = told.owner;
  result.name = told.name;
  result.version = told.info.version;
  result.file = told.file;
  if (told.info.size >= 0) result.info = info_of(told.info);
  return result;
}
template <class Function>
std::int32_t visit_entry(void* context, const vu_entry* told) {
  return static_cast<callback<Function>*>(context)->call_with(
      [&] { return std::tuple<entry>(entry_of(*told)); });
}

/// The entries that @p list passes to its argument. @throws partly_listed
template <class List>
std::vector<entry> list_of(List list) {
  std::vector<entry> all;
  auto add = [&](entry&& one) { return all.push_back(std::move(one)), true; };
  callback<decltype(add)> back{add, nullptr};
  const vu_status status = list(visit_entry<decltype(add)>, &back);
  if (status == VU_PARTLY_DONE && !back.raised) throw partly_listed(error::last(), std::move(all));
  back.finish(status);
  return all;
}

}  // namespace detail

/// A handle of the process's storage. The destructor closes the handle, not the storage. After a
/// move every member of the other object throws VU_BAD_HANDLE.
class store {
 public:
  /// Whether the constructor initialised the storage or joined it.
  enum class start { initialised, joined };

  /// Initialises the storage below a root, or joins it if this process has opened it already.
  /// @param wait the time limit of each call for locks, see vu_settings::wait_ms; without a value
  /// there is no limit, 0 means VU_NO_WAIT.
  /// @throws error VU_REFUSED if this process has opened another root, VU_NO_TREE if the folder
  /// does not exist.
  explicit store(const std::filesystem::path& root, options how = options{},
                 std::optional<std::chrono::milliseconds> wait = std::nullopt)
      : store(utf8_of(root).c_str(), how, wait) {}
  /// Joins the storage that this process has opened. @throws error VU_NO_TREE if there is none.
  store() : store(nullptr, options{}, std::nullopt) {}
  /// Takes the handle of @p other, which has none afterwards.
  store(store&& other) noexcept
      : m_store(std::exchange(other.m_store, nullptr)), m_start(other.m_start) {}
  /// Swaps handles with @p other.
  store& operator=(store&& other) noexcept {
    std::swap(m_store, other.m_store);
    std::swap(m_start, other.m_start);
    return *this;
  }
  ~store() {
    if (m_store != nullptr) vu_close_store(m_store);
  }

  /// Whether this object has initialised the storage.
  start how_started() const noexcept { return m_start; }
  /// The handle; this object remains its owner.
  vu_store* handle() const noexcept { return m_store; }
  /// The folder "storage" below the root.
  std::filesystem::path folder() const { return folder_of(0); }
  /// The folder of an area.
  std::filesystem::path folder(area of) const { return folder_of(static_cast<std::int32_t>(of)); }

  // ---- documents -------------------------------------------------------------------------------

  /// Whether the version exists.
  bool exists(const key& of) const {
    const vu_document document = document_of(of);
    return check_unless(vu_exists(m_store, &document), VU_NOTHING_MATCHED);
  }
  /// The bytes of exactly this version; empty optional if it does not exist.
  std::optional<std::string> read(const key& of) const {
    const vu_document document = document_of(of);
    void* bytes = nullptr;
    std::size_t size = 0;
    if (!check_unless(vu_read_whole(m_store, &document, &bytes, &size), VU_NOTHING_MATCHED))
      return std::nullopt;
    const std::unique_ptr<void, detail::freed> owned(bytes);
    return std::string(static_cast<const char*>(bytes), size);
  }
  /// The same into the caller's buffer. @return the number of bytes. With a null buffer and no room
  /// it does nothing else. @throws error VU_TOO_SHORT
  std::optional<std::size_t> read(const key& of, void* buffer, std::size_t room) const {
    const vu_document document = document_of(of);
    std::size_t size = 0;
    if (!check_unless(vu_read(m_store, &document, buffer, room, &size), VU_NOTHING_MATCHED))
      return std::nullopt;
    return size;
  }
  /// Stores a version atomically: see vu_put().
  stored put(const key& as, std::string_view bytes, if_there there = if_there::replace) {
    return put(as, bytes, static_cast<std::uint32_t>(there));
  }
  /// Stores a version by emptying its file and writing it: half the work, but not atomic.
  stored put_in_place(const key& as, std::string_view bytes, if_there there = if_there::replace) {
    return put(as, bytes, static_cast<std::uint32_t>(there) | VU_IN_PLACE);
  }
  /// Stores a file as a version, with its modification time: see vu_copy_in(). @throws error
  /// VU_NOTHING_MATCHED if there is no such file.
  stored copy_in(const key& as, const std::filesystem::path& path,
                 if_there there = if_there::replace) {
    const vu_document document = document_of(as);
    std::int32_t how = 0;
    check_unless(vu_copy_in(m_store, &document, utf8_of(path).c_str(),
                            static_cast<std::uint32_t>(there), &how),
                 VU_ALREADY);
    return static_cast<stored>(how);
  }
  /// Copies a version to a file, not atomically: see vu_copy_out(). @return false if the file
  /// exists and is kept.
  bool copy_out(const key& of, const std::filesystem::path& path,
                if_there there = if_there::replace) const {
    const vu_document document = document_of(of);
    return check_unless(
        vu_copy_out(m_store, &document, utf8_of(path).c_str(), static_cast<std::uint32_t>(there)),
        VU_ALREADY);
  }
  /// Removes a version. @return false if it does not exist.
  bool remove(const key& what) {
    const vu_document document = document_of(what);
    return check_unless(vu_remove(m_store, &document), VU_NOTHING_MATCHED);
  }
  /// Changes the name, version, owner or area of a version. @return false if the new one exists and
  /// is kept. @throws error VU_NOTHING_MATCHED if there is no @p from.
  bool rename(const key& from, const key& to, if_there there = if_there::keep) {
    const vu_document old_document = document_of(from);
    const vu_document document = document_of(to);
    return check_unless(
        vu_rename(m_store, &old_document, &document, static_cast<std::uint32_t>(there)),
        VU_ALREADY);
  }
  /// Size and times; empty optional if the version does not exist.
  std::optional<vu::info> describe(const key& of) const {
    const vu_document document = document_of(of);
    vu_info told = VU_INFO_INIT;
    if (!check_unless(vu_describe(m_store, &document, &told), VU_NOTHING_MATCHED))
      return std::nullopt;
    return detail::info_of(told);
  }
  /// The path of the version's file. @throws error VU_NOTHING_MATCHED if it does not exist.
  std::filesystem::path file_path(const key& of) const {
    const vu_document document = document_of(of);
    return path_of(text([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_file_path(m_store, &document, buffer, room, size);
    }));
  }
  /// The greatest version of a name; empty optional if there is none.
  std::optional<std::int64_t> latest_version(const key& of) const {
    const vu_document document = document_of(of);
    std::int64_t version = 0;
    if (!check_unless(vu_latest(m_store, &document, &version), VU_NOTHING_MATCHED))
      return std::nullopt;
    return version;
  }

  // ---- files -----------------------------------------------------------------------------------

  /// Opens exactly this version for reading. @return a closed file if it does not exist.
  file open(const key& of) const { return opened(of, VU_READ_EXACT, VU_NOTHING_MATCHED); }
  /// Opens for reading under the rules of VU_READ_SERVED. @return a closed file if nothing matches.
  /// @throws error VU_OUTDATED
  file open_served(const key& of) const { return opened(of, VU_READ_SERVED, VU_NOTHING_MATCHED); }
  /// Opens a version for writing. @return a closed file if the version exists and is kept.
  file create(const key& as, if_there there = if_there::keep) {
    return opened(as, there == if_there::keep ? VU_WRITE_NEW : VU_WRITE_OVER, VU_ALREADY);
  }
  /// Opens a part for reading. @return a closed file if the caller has to generate the part.
  /// @throws error VU_NOTHING_MATCHED if the version of the document does not exist.
  file open_part(const key& of, const std::string& rendition, const std::string& part) const {
    return part_of(of, rendition, part, VU_READ_SERVED);
  }
  /// Opens a part for writing; an existing one is emptied first.
  file create_part(const key& of, const std::string& rendition, const std::string& part) {
    return part_of(of, rendition, part, VU_WRITE_OVER);
  }

  // ---- lists -----------------------------------------------------------------------------------

  /// Calls @p visit(const entry&) for each document of an owner until it returns false. It runs
  /// without a lock and may call the library; its exceptions reach the caller. @return whether all
  /// were visited. @throws error VU_PARTLY_DONE after the last one, if a folder cannot be listed.
  template <class Visit>
  bool each_document(area of, const std::string& owner, Visit visit, bool with_info = false) const {
    detail::callback<Visit> back{visit, nullptr};
    return back.finish(vu_each_document(m_store, static_cast<std::int32_t>(of), owner.c_str(),
                                        with_info ? VU_WITH_INFO : 0, detail::visit_entry<Visit>,
                                        &back));
  }
  /// The documents of an owner, as a list. @throws partly_listed if a folder cannot be listed.
  std::vector<entry> documents(area of, const std::string& owner, bool with_info = false) const {
    return detail::list_of([&](vu_entry_visitor visit, void* context) {
      return vu_each_document(m_store, static_cast<std::int32_t>(of), owner.c_str(),
                              with_info ? VU_WITH_INFO : 0, visit, context);
    });
  }
  /// The versions of a name, the oldest first. @throws partly_listed if a folder cannot be listed.
  std::vector<entry> versions(const key& of, bool with_info = false) const {
    const vu_document document = document_of(of);
    return detail::list_of([&](vu_entry_visitor visit, void* context) {
      return vu_each_version(m_store, &document, with_info ? VU_WITH_INFO : 0, visit, context);
    });
  }
  /// The owners that have a folder in an area.
  std::vector<std::string> owners(area of) const {
    std::vector<std::string> all;
    const auto add = [&](const char* name) { return all.emplace_back(name), true; };
    detail::callback<decltype(add)> back{add, nullptr};
    back.finish(vu_each_owner(
        m_store, static_cast<std::int32_t>(of),
        [](void* context, const char* name) {
          return static_cast<detail::callback<decltype(add)>*>(context)->call_with(
              [&] { return std::make_tuple(name); });
        },
        &back));
    return all;
  }

  // ---- key files and profiles ------------------------------------------------------------------

  /// The value of a line; empty optional if the line or the file does not exist.
  std::optional<std::string> key_value(const key& of, const std::string& line) const {
    const vu_document document = document_of(of);
    return value([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_key_get(m_store, &document, line.c_str(), buffer, room, size);
    });
  }
  /// Sets the value of a line; creates a missing line or file.
  void set_key(const key& of, const std::string& line, const std::string& value) {
    const vu_document document = document_of(of);
    check(vu_key_set(m_store, &document, line.c_str(), value.c_str()));
  }
  /// @return false if the line does not exist.
  bool remove_key(const key& of, const std::string& line) {
    const vu_document document = document_of(of);
    return check_unless(vu_key_delete(m_store, &document, line.c_str()), VU_NOTHING_MATCHED);
  }
  /// The lines in file order; empty if the file does not exist.
  std::vector<std::pair<std::string, std::string>> keys(const key& of) const {
    const vu_document document = document_of(of);
    return lines([&](vu_line_visitor visit, void* context) {
      return vu_key_each(m_store, &document, visit, context);
    });
  }
  /// The value of a line of an owner's profile or of the master profile. @p file: see
  /// vu_profile_get().
  std::optional<std::string> profile_value(
      const std::optional<std::string>& owner, const std::string& line,
      const std::optional<std::string>& file = std::nullopt) const {
    return value([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_profile_get(m_store, detail::c_text(owner), detail::c_text(file), line.c_str(),
                            buffer, room, size);
    });
  }
  /// Sets the value of a line of a profile.
  void set_profile(const std::optional<std::string>& owner, const std::string& line,
                   const std::string& value,
                   const std::optional<std::string>& file = std::nullopt) {
    check(vu_profile_set(m_store, detail::c_text(owner), detail::c_text(file), line.c_str(),
                         value.c_str()));
  }
  /// @return false if the line does not exist.
  bool remove_profile(const std::optional<std::string>& owner, const std::string& line,
                      const std::optional<std::string>& file = std::nullopt) {
    return check_unless(
        vu_profile_delete(m_store, detail::c_text(owner), detail::c_text(file), line.c_str()),
        VU_NOTHING_MATCHED);
  }
  /// The lines of a profile in file order; empty if the file does not exist.
  std::vector<std::pair<std::string, std::string>> profile(
      const std::optional<std::string>& owner,
      const std::optional<std::string>& file = std::nullopt) const {
    return lines([&](vu_line_visitor visit, void* context) {
      return vu_profile_each(m_store, detail::c_text(owner), detail::c_text(file), visit, context);
    });
  }

  // ---- owners and upkeep -----------------------------------------------------------------------

  /// @return false if a folder with the new name exists.
  /// @throws error VU_NOTHING_MATCHED if the owner @p from has no folder.
  bool rename_owner(const std::string& from, const std::string& to) {
    return check_unless(vu_rename_owner(m_store, from.c_str(), to.c_str()), VU_ALREADY);
  }
  /// @return false if the owner has no folders.
  bool remove_owner(const std::string& owner) {
    return check_unless(vu_remove_owner(m_store, owner.c_str()), VU_NOTHING_MATCHED);
  }
  /// The versions that clean() would remove. @throws partly_listed if a folder cannot be listed, or
  /// the time of a file is not known.
  std::vector<entry> outdated(area of, const std::optional<std::string>& owner,
                              std::chrono::seconds older_than,
                              cleaning how = cleaning::by_change) const {
    return detail::list_of([&](vu_entry_visitor visit, void* context) {
      return vu_clean(m_store, static_cast<std::int32_t>(of), detail::c_text(owner),
                      older_than.count(), static_cast<std::uint32_t>(how) | VU_DRY_RUN, visit,
                      context, nullptr);
    });
  }
  /// Removes the versions that are older than a limit, and sweeps: see vu_clean(). Without an owner
  /// it cleans every owner. @return the number of versions removed. An exception does not tell it;
  /// vu_clean() does.
  std::int64_t clean(area of, const std::optional<std::string>& owner,
                     std::chrono::seconds older_than, cleaning how = cleaning::by_change) {
    std::int64_t count = 0;
    check(vu_clean(m_store, static_cast<std::int32_t>(of), detail::c_text(owner),
                   older_than.count(), static_cast<std::uint32_t>(how), nullptr, nullptr, &count));
    return count;
  }
  /// Migrates an owner's mail folder. @return false if the owner has none.
  bool migrate_inbox(const std::string& owner) {
    return check_unless(vu_migrate_inbox(m_store, owner.c_str()), VU_NOTHING_MATCHED);
  }

 private:
  store(const char* root, options how, std::optional<std::chrono::milliseconds> wait) {
    vu_settings settings = VU_SETTINGS_INIT;
    settings.root = root;
    settings.flags = how;
    if (wait) settings.wait_ms = wait->count() > 0 ? wait->count() : VU_NO_WAIT;
    m_start = check_unless(vu_open_store(&settings, &m_store), VU_ALREADY) ? start::initialised
                                                                           : start::joined;
  }

  stored put(const key& as, std::string_view bytes, std::uint32_t flags) {
    const vu_document document = document_of(as);
    std::int32_t how = 0;
    check_unless(vu_put(m_store, &document, bytes.data(), bytes.size(), flags, &how), VU_ALREADY);
    return static_cast<stored>(how);
  }
  file opened(const key& of, std::int32_t mode, vu_status answer) const {
    const vu_document document = document_of(of);
    vu_stream* stream = nullptr;
    check_unless(vu_open(m_store, &document, mode, &stream), answer);
    return file(stream);
  }
  file part_of(const key& of, const std::string& rendition, const std::string& part,
               std::int32_t mode) const {
    const vu_document document = document_of(of);
    vu_stream* stream = nullptr;
    check_unless(vu_open_part(m_store, &document, rendition.c_str(), part.c_str(), mode, &stream),
                 VU_OUTDATED);
    return file(stream);
  }
  std::filesystem::path folder_of(std::int32_t area) const {
    return path_of(text([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_folder(m_store, area, buffer, room, size);
    }));
  }

  /// A text of any length: repeats the call with more room while the text grows.
  template <class Ask>
  static std::optional<std::string> value(Ask ask) {
    std::string result(256, '\0');
    for (;;) {
      std::size_t size = 0;
      const vu_status status = ask(&result[0], result.size(), &size);
      if (status == VU_NOTHING_MATCHED) return std::nullopt;
      if (status != VU_TOO_SHORT) check(status);
      const bool is_whole = status == VU_DONE;
      result.resize(is_whole ? size : size + 1);
      if (is_whole) return result;
    }
  }
  template <class Ask>
  static std::string text(Ask ask) {
    std::optional<std::string> result = value(ask);
    if (!result) throw error::last();
    return *std::move(result);
  }
  template <class Each>
  static std::vector<std::pair<std::string, std::string>> lines(Each each) {
    std::vector<std::pair<std::string, std::string>> all;
    const auto add = [&](const char* name, const char* value) {
      return all.emplace_back(name, value), true;
    };
    using Callback = detail::callback<decltype(add)>;
    Callback back{add, nullptr};
    const vu_status status = each(
        [](void* context, const char* name, const char* value) {
          return static_cast<Callback*>(context)->call_with(
              [&] { return std::make_tuple(name, value); });
        },
        &back);
    if (status != VU_NOTHING_MATCHED) back.finish(status);
    return all;
  }

  vu_store* m_store = nullptr;
  start m_start = start::joined;
};

/// One trace record. Its texts are valid until the function returns.
struct trace {
  std::int32_t kind = 0;       ///< VU_KIND_...
  std::int32_t level = -1;     ///< 0 to 4; -1: no level
  std::string_view source;     ///< name of the source
  std::int32_t line = 0;       ///< line number in the source
  std::string_view signature;  ///< signature of the operation
  std::string_view text;       ///< see vu_trace::text
};

/// Sends every trace of the library to a function during the life of this object. Afterwards the
/// library traces nothing, even if it had another sink before. Any thread may call the function,
/// several at once. It must not call the library; its exceptions are dropped. Only one object may
/// exist at a time. Construct and destroy it while no other thread is inside the library.
class trace_listener {
 public:
  /// @param level the most detailed level to send: -1 (only events) to 4.
  explicit trace_listener(std::function<void(const trace&)> tell, std::int32_t level = 4)
      : m_tell(std::move(tell)) {
    check(vu_set_trace(hear, this, level));
  }
  ~trace_listener() { vu_set_trace(nullptr, nullptr, 0); }
  trace_listener(const trace_listener&) = delete;
  trace_listener& operator=(const trace_listener&) = delete;

 private:
  static void hear(void* context, const vu_trace* told) {
    try {
      static_cast<trace_listener*>(context)->m_tell({told->kind,
                                                     told->level,
                                                     told->source,
                                                     told->line,
                                                     told->signature,
                                                     {told->text, told->text_size}});
    } catch (...) {
      // A sink cannot report a failure.
    }
  }

  std::function<void(const trace&)> m_tell;
};

}  // namespace vu

#endif
