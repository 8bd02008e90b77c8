/// @file
/// The storage in C++17, over the C interface alone: any compiler, any standard library, linked as
/// the program likes, because nothing of C++ crosses the border.
///
///     vu::store store("/srv/data", vu::make_root);
///     const vu::key report{vu::area::docs, "anna", "report.kdf", 20240501};
///     store.put(report, "Hello");
///     if (const auto text = store.read(report)) std::cout << *text;
///
/// Failures are exceptions of the type vu::error. Answers are none: a document that is missing is
/// an empty std::optional or false, one that exists already is false.
///
/// Objects are used as the handles behind them: a store by any number of threads, a file by one at
/// a time. What a call waits for is told in vu/storage.h.
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

/// What a call failed with. what() is the reason, with the path and the system's words.
class error : public std::runtime_error {
 public:
  /// Of the calling thread's last call.
  static error last() {
    vu_error told = VU_ERROR_INIT;
    vu_last_error(&told);
    return error(told);
  }
  /// With the texts that the C interface has told.
  explicit error(const vu_error& told)
      : std::runtime_error(sentence(told)),
        m_code(told.status),
        m_system_code(told.system_code),
        m_text(told.text),
        m_path(told.path) {}

  /// A vu_status: VU_LOCK_TIMEOUT, say.
  vu_status code() const noexcept { return m_code; }
  /// The system's code; 0 when it was not the system.
  std::int32_t system_code() const noexcept { return m_system_code; }
  /// What happened, without the path.
  const std::string& text() const noexcept { return m_text; }
  /// The file or folder that it happened to, UTF-8; may be empty.
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

/// Throws unless a call is done.
inline void check(vu_status status) {
  if (status != VU_DONE) throw error::last();
}
/// The same, but for one answer, which is false.
inline bool check_unless(vu_status status, vu_status answer) {
  if (status == answer) return false;
  check(status);
  return true;
}

/// UTF-8 of a path, as the C interface takes it.
inline std::string utf8_of(const std::filesystem::path& path) {
  const auto text = path.u8string();
  return std::string(text.begin(), text.end());
}
/// A path of the C interface.
inline std::filesystem::path path_of(std::string_view utf8) {
#if defined(__cpp_char8_t)
  return std::filesystem::path(std::u8string(utf8.begin(), utf8.end()));
#else
  return std::filesystem::u8path(utf8.begin(), utf8.end());
#endif
}
/// A path that the stated classes have given out, whose separator is the backslash everywhere, as
/// the system writes it. Take narrow paths of Windows only in the UTF-8 code page.
inline std::filesystem::path native_path(std::string_view path) {
  std::string text(path);
  if constexpr (std::filesystem::path::preferred_separator != '\\') {
    for (char& c : text) {
      if (c == '\\') c = '/';
    }
  }
  return path_of(text);
}

/// The library that is loaded, such as "1.0.0".
inline std::string version() { return vu_version(); }
/// The same as a number, to compare with VU_VERSION_NUMBER.
inline std::int32_t version_number() { return vu_version_number(); }

/// What a document belongs to.
enum class area : std::int32_t { user = VU_AREA_USER, docs = VU_AREA_DOCS, mail = VU_AREA_MAIL };

/// The latest version that there is.
inline constexpr std::int64_t latest = VU_LATEST;

/// A document, in one of its versions.
struct key {
  vu::area area = vu::area::docs;  ///< what it belongs to
  std::string owner;               ///< a user or a domain
  std::string name;                ///< with its extension
  std::int64_t version = 0;        ///< any stamp from 0 to 2147483647, or vu::latest

  friend bool operator==(const key& a, const key& b) {
    return a.area == b.area && a.owner == b.owner && a.name == b.name && a.version == b.version;
  }
  friend bool operator!=(const key& a, const key& b) { return !(a == b); }
};

/// A key for a call of the C interface; lives as long as the key.
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
  std::int64_t version = 0;  ///< its version
  std::int64_t size = -1;    ///< in bytes
  time_point modified;       ///< the last change of its bytes
  time_point accessed;       ///< the last access, as far as the system counts

  /// How long ago it was changed.
  std::chrono::seconds age() const {
    return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()) - modified;
  }
};

/// One version in a list.
struct entry : key {
  std::string file;              ///< the name of its file in the folder
  std::optional<vu::info> info;  ///< where it was asked for
};

/// What happens to a version, or a file, that is there already.
enum class if_there : std::uint32_t { keep = 0, replace = VU_REPLACE };

/// How a version came to be stored.
enum class stored : std::int32_t {
  not_stored = 0,                ///< it was there already
  at_once = VU_STORED_AT_ONCE,   ///< readers and interruptions meet the old version or the new
  in_place = VU_STORED_IN_PLACE  ///< an interruption may have left a part of it
};

/// For calls about profiles: the master profile; for those about cleaning: every owner.
inline constexpr std::nullopt_t nobody = std::nullopt;

/// What a cleaning removes; can be combined with "|".
enum class cleaning : std::uint32_t {
  by_change = 0,              ///< what was not changed for longer than that
  by_access = VU_BY_ACCESS,   ///< what was not read for longer than that
  everything = VU_CLEAN_ALL,  ///< with an age of 0: all of it
};
/// Both.
constexpr cleaning operator|(cleaning a, cleaning b) {
  return static_cast<cleaning>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

/// How a store is opened; can be combined with "|".
enum options : std::uint32_t {
  make_root = VU_MAKE_ROOT,            ///< the root is made when it is missing
  shared_folders = VU_SHARED_FOLDERS,  ///< all owners share the folders
  no_adoption = VU_NO_ADOPTION,        ///< files that appear behind the index are left alone
  no_guard = VU_NO_GUARD               ///< names go to the library as they are
};
/// Both.
constexpr options operator|(options a, options b) {
  return static_cast<options>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}

/// An open file of the storage, with its lock; closes itself. To learn whether everything that was
/// written is on the device, call close().
class file {
 public:
  /// Closed.
  file() = default;
  /// Takes an open stream over.
  explicit file(vu_stream* stream) noexcept : m_stream(stream) {}
  /// Takes over what @p other has open, which is closed then.
  file(file&& other) noexcept : m_stream(std::exchange(other.m_stream, nullptr)) {}
  /// The same; what this object had open is closed.
  file& operator=(file&& other) noexcept {
    file taken(std::move(other));
    std::swap(m_stream, taken.m_stream);
    return *this;
  }
  /// A failure of the close is not told.
  ~file() {
    if (m_stream != nullptr) vu_stream_close(m_stream);
  }

  /// Whether it is open.
  explicit operator bool() const noexcept { return m_stream != nullptr; }
  /// The handle, which stays this object's.
  vu_stream* handle() const noexcept { return m_stream; }

  /// Reads up to @p room bytes; fewer at the end of the file only.
  std::size_t read(void* buffer, std::size_t room) {
    std::size_t size = 0;
    check(vu_stream_read(m_stream, buffer, room, &size));
    return size;
  }
  /// Reads what is left.
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
  /// Writes all bytes at the position.
  void write(std::string_view bytes) {
    check(vu_stream_write(m_stream, bytes.data(), bytes.size()));
  }
  /// Moves the position; @p origin is VU_FROM_START, VU_FROM_POSITION or VU_FROM_END.
  void seek(std::int64_t distance, std::int32_t origin = VU_FROM_START) {
    check(vu_stream_seek(m_stream, distance, origin));
  }
  /// In bytes.
  std::int64_t size() const {
    std::int64_t bytes = 0;
    check(vu_stream_size(m_stream, &bytes));
    return bytes;
  }
  /// Closes the file, with everything on the device. Nothing when it is closed.
  void close() {
    if (m_stream != nullptr) check(vu_stream_close(std::exchange(m_stream, nullptr)));
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

/// A callback of the caller behind one of C: an exception waits until C is left.
template <class Function>
struct callback {
  Function& function;
  std::exception_ptr raised;

  /// @param make gives back what the function is called with, and may throw as well.
  template <class Make>
  std::int32_t call_with(Make make) noexcept {
    try {
      return std::apply(function, make()) ? 0 : 1;
    } catch (...) {
      raised = std::current_exception();
      return 1;
    }
  }
  /// @return whether the list went to its end.
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

}  // namespace detail

/// The storage of this process. Closes its handle; the storage stays initialised.
class store {
 public:
  /// How the object came to be.
  enum class start { initialised, joined };

  /// Opens the storage below a root, or joins it when this process has opened it before.
  /// @param wait how long calls wait for locks: nothing for as long as it takes, 0 not at all.
  /// @throws error VU_REFUSED when this process has opened another root, VU_NO_TREE when there is
  /// no such folder.
  explicit store(const std::filesystem::path& root, options how = options{},
                 std::optional<std::chrono::milliseconds> wait = std::nullopt)
      : store(utf8_of(root).c_str(), how, wait) {}
  /// Joins the storage that this process has opened.
  store() : store(nullptr, options{}, std::nullopt) {}
  /// Takes the handle of @p other, which has none then.
  store(store&& other) noexcept
      : m_store(std::exchange(other.m_store, nullptr)), m_start(other.m_start) {}
  /// Changes handles with @p other.
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
  /// The handle, which stays this object's.
  vu_store* handle() const noexcept { return m_store; }
  /// The folder "storage" below the root.
  std::filesystem::path folder() const { return folder_of(0); }
  /// The folder of an area.
  std::filesystem::path folder(area of) const { return folder_of(static_cast<std::int32_t>(of)); }

  // ---- documents -------------------------------------------------------------------------------

  /// Whether there is such a version.
  bool exists(const key& of) const {
    const vu_document document = document_of(of);
    return check_unless(vu_exists(m_store, &document), VU_NOTHING_MATCHED);
  }
  /// The bytes of exactly that version; nothing when there is none.
  std::optional<std::string> read(const key& of) const {
    const vu_document document = document_of(of);
    void* bytes = nullptr;
    std::size_t size = 0;
    if (!check_unless(vu_read_whole(m_store, &document, &bytes, &size), VU_NOTHING_MATCHED))
      return std::nullopt;
    const std::unique_ptr<void, detail::freed> owned(bytes);
    return std::string(static_cast<const char*>(bytes), size);
  }
  /// The same into memory of the caller. @return how many bytes there are: without a buffer and
  /// room that is all that happens. @throws error VU_TOO_SHORT
  std::optional<std::size_t> read(const key& of, void* buffer, std::size_t room) const {
    const vu_document document = document_of(of);
    std::size_t size = 0;
    if (!check_unless(vu_read(m_store, &document, buffer, room, &size), VU_NOTHING_MATCHED))
      return std::nullopt;
    return size;
  }
  /// Stores a version at once: whoever reads, and an interruption, meet the old version or the new.
  /// (C++ keeps the name of the class for its constructors.)
  stored put(const key& as, std::string_view bytes, if_there there = if_there::replace) {
    return put(as, bytes, static_cast<std::uint32_t>(there));
  }
  /// Stores a version by cutting its file and writing it: half the work, and not atomic.
  stored put_in_place(const key& as, std::string_view bytes, if_there there = if_there::replace) {
    return put(as, bytes, static_cast<std::uint32_t>(there) | VU_IN_PLACE);
  }
  /// Stores a file at once, with its time.
  stored copy_in(const key& as, const std::filesystem::path& path,
                 if_there there = if_there::replace) {
    const vu_document document = document_of(as);
    std::int32_t how = 0;
    check_unless(vu_copy_in(m_store, &document, utf8_of(path).c_str(),
                            static_cast<std::uint32_t>(there), &how),
                 VU_ALREADY);
    return static_cast<stored>(how);
  }
  /// Copies a version to a file, with its time. @return false when the file is there already.
  bool copy_out(const key& of, const std::filesystem::path& path,
                if_there there = if_there::replace) const {
    const vu_document document = document_of(of);
    return check_unless(
        vu_copy_out(m_store, &document, utf8_of(path).c_str(), static_cast<std::uint32_t>(there)),
        VU_ALREADY);
  }
  /// @return false when there is no such version.
  bool remove(const key& what) {
    const vu_document document = document_of(what);
    return check_unless(vu_remove(m_store, &document), VU_NOTHING_MATCHED);
  }
  /// Gives a version another name, version, owner or area. @return false when the new one is there
  /// already.
  bool rename(const key& from, const key& to, if_there there = if_there::keep) {
    const vu_document old_document = document_of(from);
    const vu_document document = document_of(to);
    return check_unless(
        vu_rename(m_store, &old_document, &document, static_cast<std::uint32_t>(there)),
        VU_ALREADY);
  }
  /// Size and times; nothing when there is no such version.
  std::optional<vu::info> describe(const key& of) const {
    const vu_document document = document_of(of);
    vu_info told = VU_INFO_INIT;
    if (!check_unless(vu_describe(m_store, &document, &told), VU_NOTHING_MATCHED))
      return std::nullopt;
    return detail::info_of(told);
  }
  /// The path of a version's file; @throws error VU_NOTHING_MATCHED.
  std::filesystem::path file_path(const key& of) const {
    const vu_document document = document_of(of);
    return path_of(text([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_file_path(m_store, &document, buffer, room, size);
    }));
  }
  /// The latest version of a name; nothing when there is none.
  std::optional<std::int64_t> latest_version(const key& of) const {
    const vu_document document = document_of(of);
    std::int64_t version = 0;
    if (!check_unless(vu_latest(m_store, &document, &version), VU_NOTHING_MATCHED))
      return std::nullopt;
    return version;
  }

  // ---- files -----------------------------------------------------------------------------------

  /// Opens exactly that version for reading; closed when there is none.
  file open(const key& of) const { return opened(of, VU_READ_EXACT, VU_NOTHING_MATCHED); }
  /// Opens what the stated interface serves, see vu_open(). @throws error VU_OUTDATED
  file open_served(const key& of) const { return opened(of, VU_READ_SERVED, VU_NOTHING_MATCHED); }
  /// Opens a version for writing; closed when it is there already and is to be kept.
  file create(const key& as, if_there there = if_there::keep) {
    return opened(as, there == if_there::keep ? VU_WRITE_NEW : VU_WRITE_OVER, VU_ALREADY);
  }
  /// Opens a part for reading; closed when it has to be made.
  /// @throws error VU_NOTHING_MATCHED when there is no such version of the document.
  file open_part(const key& of, const std::string& rendition, const std::string& part) const {
    return part_of(of, rendition, part, VU_READ_SERVED);
  }
  /// Opens a part for writing; one that exists is cut first.
  file create_part(const key& of, const std::string& rendition, const std::string& part) {
    return part_of(of, rendition, part, VU_WRITE_OVER);
  }

  // ---- lists -----------------------------------------------------------------------------------

  /// Calls @p visit(const entry&) for each document of an owner, until it says false. No lock is
  /// held meanwhile, and no list is made. @return whether it went to the end.
  template <class Visit>
  bool each_document(area of, const std::string& owner, Visit visit, bool with_info = false) const {
    detail::callback<Visit> back{visit, nullptr};
    return back.finish(vu_each_document(m_store, static_cast<std::int32_t>(of), owner.c_str(),
                                        with_info ? VU_WITH_INFO : 0, detail::visit_entry<Visit>,
                                        &back));
  }
  /// The documents of an owner, as a list.
  std::vector<entry> documents(area of, const std::string& owner, bool with_info = false) const {
    std::vector<entry> all;
    each_document(
        of, owner, [&](entry&& one) { return all.push_back(std::move(one)), true; }, with_info);
    return all;
  }
  /// The versions of a name, the oldest first.
  std::vector<entry> versions(const key& of, bool with_info = false) const {
    const vu_document document = document_of(of);
    std::vector<entry> all;
    const auto add = [&](entry&& one) { return all.push_back(std::move(one)), true; };
    detail::callback<decltype(add)> back{add, nullptr};
    back.finish(vu_each_version(m_store, &document, with_info ? VU_WITH_INFO : 0,
                                detail::visit_entry<decltype(add)>, &back));
    return all;
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

  /// The value of a line; nothing when there is no such line or file.
  std::optional<std::string> key_value(const key& of, const std::string& line) const {
    const vu_document document = document_of(of);
    return value([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_key_get(m_store, &document, line.c_str(), buffer, room, size);
    });
  }
  /// Gives a line a value; makes what is missing.
  void set_key(const key& of, const std::string& line, const std::string& value) {
    const vu_document document = document_of(of);
    check(vu_key_set(m_store, &document, line.c_str(), value.c_str()));
  }
  /// @return false when there is no such line.
  bool remove_key(const key& of, const std::string& line) {
    const vu_document document = document_of(of);
    return check_unless(vu_key_delete(m_store, &document, line.c_str()), VU_NOTHING_MATCHED);
  }
  /// The lines in their order; none when there is no such file.
  std::vector<std::pair<std::string, std::string>> keys(const key& of) const {
    const vu_document document = document_of(of);
    return lines([&](vu_line_visitor visit, void* context) {
      return vu_key_each(m_store, &document, visit, context);
    });
  }
  /// Of an owner's profile, or of the master one, see vu_profile_get(); @p file for another one
  /// than the usual.
  std::optional<std::string> profile_value(
      const std::optional<std::string>& owner, const std::string& line,
      const std::optional<std::string>& file = std::nullopt) const {
    return value([&](char* buffer, std::size_t room, std::size_t* size) {
      return vu_profile_get(m_store, detail::c_text(owner), detail::c_text(file), line.c_str(),
                            buffer, room, size);
    });
  }
  /// Gives a line of a profile a value.
  void set_profile(const std::optional<std::string>& owner, const std::string& line,
                   const std::string& value,
                   const std::optional<std::string>& file = std::nullopt) {
    check(vu_profile_set(m_store, detail::c_text(owner), detail::c_text(file), line.c_str(),
                         value.c_str()));
  }
  /// @return false when there is no such line.
  bool remove_profile(const std::optional<std::string>& owner, const std::string& line,
                      const std::optional<std::string>& file = std::nullopt) {
    return check_unless(
        vu_profile_delete(m_store, detail::c_text(owner), detail::c_text(file), line.c_str()),
        VU_NOTHING_MATCHED);
  }
  /// The lines of a profile in their order; none when there is no such file.
  std::vector<std::pair<std::string, std::string>> profile(
      const std::optional<std::string>& owner,
      const std::optional<std::string>& file = std::nullopt) const {
    return lines([&](vu_line_visitor visit, void* context) {
      return vu_profile_each(m_store, detail::c_text(owner), detail::c_text(file), visit, context);
    });
  }

  // ---- owners and upkeep -----------------------------------------------------------------------

  /// @return false when the new name is taken.
  bool rename_owner(const std::string& from, const std::string& to) {
    return check_unless(vu_rename_owner(m_store, from.c_str(), to.c_str()), VU_ALREADY);
  }
  /// @return false when the owner has no folders.
  bool remove_owner(const std::string& owner) {
    return check_unless(vu_remove_owner(m_store, owner.c_str()), VU_NOTHING_MATCHED);
  }
  /// The versions that clean() would remove.
  std::vector<entry> outdated(area of, const std::optional<std::string>& owner,
                              std::chrono::seconds older_than,
                              cleaning how = cleaning::by_change) const {
    std::vector<entry> all;
    const auto add = [&](entry&& one) { return all.push_back(std::move(one)), true; };
    detail::callback<decltype(add)> back{add, nullptr};
    back.finish(vu_clean(m_store, static_cast<std::int32_t>(of), detail::c_text(owner),
                         older_than.count(), static_cast<std::uint32_t>(how) | VU_DRY_RUN,
                         detail::visit_entry<decltype(add)>, &back, nullptr));
    return all;
  }
  /// Removes the versions that have not been changed, or read, for longer than that; of every owner
  /// without one. @return how many.
  std::int64_t clean(area of, const std::optional<std::string>& owner,
                     std::chrono::seconds older_than, cleaning how = cleaning::by_change) {
    std::int64_t count = 0;
    check(vu_clean(m_store, static_cast<std::int32_t>(of), detail::c_text(owner),
                   older_than.count(), static_cast<std::uint32_t>(how), nullptr, nullptr, &count));
    return count;
  }
  /// Converts an owner's mail folder, once. @return false when there is none.
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

  /// A text of any length: asked for again while it grows.
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

/// One trace record; the texts are valid during the call alone.
struct trace {
  std::int32_t kind = 0;       ///< VU_KIND_...
  std::int32_t level = -1;     ///< 0 to 4; -1 for none
  std::string_view source;     ///< the source's name
  std::int32_t line = 0;       ///< line number in that source
  std::string_view signature;  ///< of the operation
  std::string_view text;       ///< as the library has it
};

/// Has every trace of the library told to a function, until the object goes. The function may be
/// called by any thread, by several at once, and must not call the library; what it throws is lost.
/// One object at a time, made and ended while no other thread is inside the library.
class trace_listener {
 public:
  /// @param level up to which level records and scopes are told: -1 (events alone) to 4.
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
      // A sink has nobody to tell.
    }
  }

  std::function<void(const trace&)> m_tell;
};

}  // namespace vu

#endif
