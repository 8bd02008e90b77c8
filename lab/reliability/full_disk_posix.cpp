// Operations on a full or nearly full disk: a small file system in memory, private to this process.

#include <fcntl.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "lab/reader/index_reader.h"
#include "lab/reliability/kills.h"
#include "lab/reliability/reliability.h"
#include "stg_index.h"
#include "tests/support/index_peer.h"
#include "tests/support/process.h"
#include "tests/support/recording_sink.h"
#include "tests/support/scratch.h"
#include "tests/support/storage_peer.h"
#include "vu_file_except.h"
#include "vu_storage.h"

namespace reliability {
namespace {

constexpr std::size_t kPage = 4096;
constexpr std::size_t kSteps = 17;  // 0 to 64 KB
/// With this number of free bytes and no other writer every new file has space.
constexpr std::size_t kEnough = 8 * kPage;

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? "" : value;
}

/// A small disk: the folder VU_SMALL_DISK, or else a file system in memory. Its mount is visible
/// only to this process and ends with it. If the folder is on a network share, VU_SMALL_DISK_SERVER
/// is the same disk on the server.
class SmallDisk {
 public:
  SmallDisk() : m_given(environment("VU_SMALL_DISK")) {
    if (!m_given.empty()) {
      struct ::statvfs disk {};
      constexpr std::uint64_t kLargest = 64ULL << 20U;
      if (::statvfs(m_given.c_str(), &disk) != 0)
        m_refusal = std::strerror(errno);
      else if (std::uint64_t{disk.f_blocks} * disk.f_frsize > kLargest)
        m_refusal = m_given + " has more than 64 MB, too much to fill";
      return;
    }
    if (::unshare(CLONE_NEWNS) != 0 ||
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        ::mount("tmpfs", path().c_str(), "tmpfs", 0, "size=3m,mode=0777") != 0) {
      m_refusal = std::strerror(errno);
    }
  }
  ~SmallDisk() {
    if (m_given.empty() && m_refusal.empty()) ::umount2(path().c_str(), MNT_DETACH);
  }
  SmallDisk(const SmallDisk&) = delete;
  SmallDisk& operator=(const SmallDisk&) = delete;

  /// Why there is no disk; empty if there is one.
  const std::string& refusal() const { return m_refusal; }
  /// The folder that the library uses.
  std::string path() const { return m_given.empty() ? native(m_scratch.path()).string() : m_given; }
  /// The folder in which the suite fills the disk and looks at the results.
  std::string on_the_server() const {
    const std::string server = environment("VU_SMALL_DISK_SERVER");
    return server.empty() ? path() : server;
  }

 private:
  scratch_folder m_scratch;
  const std::string m_given;
  std::string m_refusal;
};

/// A file that fills the disk and leaves a given number of bytes free.
class Ballast {
 public:
  Ballast(const std::string& path, std::size_t leave) : m_path(path) {
    m_file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (m_file < 0) throw std::runtime_error("cannot create a file that fills the disk");
    take_all();
    const ::off_t size = ::lseek(m_file, 0, SEEK_END);
    if (::ftruncate(m_file, std::max<::off_t>(0, size - static_cast<::off_t>(leave))) != 0)
      throw std::runtime_error("cannot free space again");
  }
  ~Ballast() {
    stop();
    ::close(m_file);
    ::unlink(m_path.c_str());
  }
  Ballast(const Ballast&) = delete;
  Ballast& operator=(const Ballast&) = delete;

  /// Fills each page that is or becomes free, until stop(). @param pause microseconds per page.
  void go_on(unsigned pause) {
    m_thread = std::thread([this, pause] {
      while (!m_stop) {
        take_page();
        if (pause != 0) ::usleep(pause);
      }
    });
  }
  void stop() {
    m_stop = true;
    if (m_thread.joinable()) m_thread.join();
  }

 private:
  bool take(std::size_t size) {
    const std::string bytes(size, 'x');
    return ::pwrite(m_file, bytes.data(), size, ::lseek(m_file, 0, SEEK_END)) ==
           static_cast<::ssize_t>(size);
  }
  bool take_page() { return take(kPage); }
  /// Large pieces first: on a network each write is a round trip.
  void take_all() {
    for (const std::size_t size : {kPage * 64, kPage}) {
      while (take(size)) {
      }
    }
  }

  const std::string m_path;
  int m_file = -1;
  std::thread m_thread;
  std::atomic<bool> m_stop = false;
};

/// The folder before and after an operation, and its result.
struct Seen {
  reader::FolderState before;
  reader::FolderState after;
  std::vector<std::string> errors;
  std::string answer;
  bool raised = false;  ///< it threw; its text is the answer

  /// The result and the errors.
  std::string told() const {
    std::string all = answer;
    for (const std::string& each : errors) all += "; " + each;
    return all;
  }
  bool says(const std::string& text) const {
    return std::any_of(errors.begin(), errors.end(), [&](const std::string& each) {
      return each.find(text) != std::string::npos;
    });
  }
};

class FullDisk {
  static constexpr const char* kFolder = "\\storage\\user\\owner";

 public:
  FullDisk(Run& run, const SmallDisk& disk)
      : m_run(run), m_root(disk.path()), m_disk(disk.on_the_server()), m_storage(disk.path()) {}

  void run() {
    const std::size_t sizes[] = {2000, 20'000, 300'000};
    std::uint64_t part = 0;
    for (const std::size_t index_size : sizes) {
      fill(index_size);
      part += m_run.wanted() / std::size(sizes);
      // Without a count, each step is done once. With a count, random steps are done.
      for (std::size_t step = 0; m_run.goes_on(); ++step) {
        if (m_run.wanted() == 0 ? step == kSteps : m_run.reached() >= part) break;
        const std::size_t pages = m_run.wanted() == 0 ? step : m_run.below(kSteps);
        for (const bool other_writer : {false, true}) one_step(pages * kPage, other_writer);
      }
      empty();
    }
    m_run.figure("saves without space that left the old text", m_old);
    m_run.figure("saves that were complete", m_new);
    m_run.figure("first entries of a folder that were saved", m_first);
    m_run.figure("documents and key files cut short, with a trace", m_cut);
    m_run.figure("renames without space that changed nothing", m_not_renamed);
    m_run.figure("creates and renames that threw, because no file could be created", m_refused);
    if (m_old == 0) m_run.fail("every save had space: nothing was tested");
    if (m_run.reached() < 100) return;
    if (m_new == 0) m_run.fail("no save was ever complete");
    if (m_first == 0) m_run.fail("no first entry was ever saved");
  }

 private:
  /// The same folder, as seen by the library and by the suite.
  std::string folder() const { return m_root + kFolder; }
  std::string ground() const { return m_disk + kFolder; }

  void fill(std::size_t index_size) {
    make_folder(ground());
    reader::Lines lines;
    std::size_t size = 0;
    m_counter = 0;
    while (size < index_size) {
      const std::string name =
          "n" + std::to_string(1000 + m_counter) + std::string(index_size / 2000, 'x') + ".kdb";
      char stored[16];
      std::snprintf(stored, sizeof stored, "%08d", ++m_counter);
      lines.emplace(reader::key_for(name, 0), stored);
      write_file(ground() + "\\" + stored + ".kdb", m_counter <= 20 ? text_number(1, 3000) : "");
      size += name.size() + 21;
    }
    char counter[16];
    std::snprintf(counter, sizeof counter, "%08d", m_counter);
    write_file(ground() + "\\index", counter);
    write_file(ground() + "\\index.dat", reader::index_text_of(lines));
  }
  void empty() { std::filesystem::remove_all(native(ground())); }

  Seen see(std::size_t leave, bool other_writer, const std::function<std::string()>& operation) {
    Seen seen;
    seen.before = reader::look_at(ground());
    {
      Ballast ballast(native(m_disk + "\\ballast").string(), leave);
      if (other_writer) ballast.go_on(static_cast<unsigned>(m_run.below(60)));
      const recording_sink sink;
      try {
        seen.answer = operation();
      } catch (const vu_file_except& e) {
        seen.answer = "exception " + e.what();
        seen.raised = true;
      }
      seen.errors = sink.events(vu_host::trace_event::error);
      ballast.stop();
      seen.after = reader::look_at(ground());
    }
    m_run.counted(1);
    return seen;
  }

  void one_step(std::size_t leave, bool other_writer) {
    const std::string what =
        std::to_string(leave) + " bytes free" + (other_writer ? ", another writer" : "") + ": ";
    create(what, leave, other_writer);
    adopt(what, leave, other_writer);
    rename(what, leave, other_writer);
    remove(what, leave, other_writer);
    write(what, leave, other_writer);
    save_keys(what, leave, other_writer);
    first_create(what, leave, other_writer);
    next_operation_works(what);
  }

  std::string new_name() {
    m_name = "m" + std::to_string(++m_names) + std::string(50, 'y') + ".kdb";
    return m_name;
  }

  void wrong(const std::string& what) { m_run.fail(what); }

  /// All entries except @p keys, which the operation changes, are as before.
  void expect_others(const std::string& what, const Seen& seen, const std::set<std::string>& keys) {
    if (seen.after.index_text.empty()) wrong(what + "the index is empty");
    for (const auto& [key, stored] : seen.before.lines) {
      if (keys.count(key) != 0) continue;
      const auto line = seen.after.lines.find(key);
      if (line == seen.after.lines.end()) {
        wrong(what + "lost " + key);
      } else if (line->second != stored) {
        wrong(what + "redirected " + key);
      }
    }
    for (const auto& [key, stored] : seen.after.lines) {
      if (keys.count(key) == 0 && seen.before.lines.count(key) == 0)
        wrong(what + "invented " + key);
    }
  }

  /// A save that failed is traced; a complete one is not. Neither ends the operation.
  void expect_trace_of_save(const std::string& what, const Seen& seen, bool saved) {
    if (seen.raised) wrong(what + "it threw: " + seen.answer);
    ++(saved ? m_new : m_old);
    const bool told = seen.says("write file : " + folder() + "\\index.dat");
    if (saved && !seen.errors.empty())
      wrong(what + "an error for a complete save: " + seen.errors[0]);
    if (!saved && !told) wrong(what + "a save without space is not traced");
  }

  /// A new file may be refused only while there is little space.
  void expect_refused_for_space(const std::string& what, const Seen& seen, std::size_t leave,
                                bool other_writer) {
    if (seen.raised && !other_writer && leave >= kEnough) wrong(what + "refused: " + seen.answer);
  }

  void create(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "create: ";
    const Seen seen =
        see(leave, other_writer, [&] { return STGIndex::create(folder(), new_name(), 0); });
    expect_refused_for_space(what, seen, leave, other_writer);
    const std::string key = reader::key_for(m_name, 0);
    expect_others(what, seen, {key});
    if (seen.raised) {
      // Even an empty file needed too much space.
      ++m_refused;
      if (seen.after.lines.count(key) != 0) wrong(what + "an entry although " + seen.answer);
      return;
    }
    if (seen.after.files.count(seen.answer) == 0) wrong(what + "no file " + seen.answer);
    expect_trace_of_save(what, seen, seen.after.lines.count(key) != 0);
  }

  /// Five files are adopted at once: all or none.
  void adopt(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "adopt: ";
    std::set<std::string> keys;
    for (int i = 0; i < 5; ++i) {
      const std::string name = new_name();
      write_file(ground() + "\\" + name, "");
      keys.insert(reader::key_for(name, 0));
    }
    const Seen seen = see(leave, other_writer, [&] {
      const synchronisation on(true);
      STGIndex::updateIndexFile(folder());
      return std::string();
    });
    // Files whose creation could not save the index are adopted as well.
    for (const auto& [key, stored] : seen.after.lines) {
      if (seen.before.lines.count(key) == 0 && reader::parts_of_key(key).first == stored)
        keys.insert(key);
    }
    expect_others(what, seen, keys);
    const auto adopted = std::count_if(keys.begin(), keys.end(), [&](const std::string& key) {
      return seen.after.lines.count(key) != 0;
    });
    if (adopted != 0 && adopted != static_cast<std::ptrdiff_t>(keys.size())) {
      wrong(what + "neither the old nor the new entries");
    }
    expect_trace_of_save(what, seen, adopted != 0);
  }

  std::pair<std::string, std::string> some_entry_with_bytes() const {
    const reader::FolderState state = reader::look_at(ground());
    for (const auto& [key, stored] : state.lines) {
      const std::string file = reader::file_of(key, stored);
      if (state.files.at(file) == 3000) return {key, file};
    }
    return {};
  }

  void rename(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "rename: ";
    const auto [key, file] = some_entry_with_bytes();
    if (key.empty()) return;
    const std::string to = reader::key_for(new_name(), 0);
    const std::string from = reader::parts_of_key(key).first;
    const Seen seen = see(leave, other_writer, [&] {
      STGIndex::rename(folder(), from, 0, m_name, 0);
      return std::string();
    });
    expect_refused_for_space(what, seen, leave, other_writer);
    expect_others(what, seen, {key, to});
    const auto holds_all = [&](const std::string& name) {
      return seen.after.files.count(name) != 0 &&
             read_file(ground() + "\\" + name) == text_number(1, 3000);
    };
    if (seen.after.lines.count(key) != 0) {
      // The copy or the save had no space.
      ++m_not_renamed;
      if (!holds_all(file)) wrong(what + "the old bytes are gone");
      if (seen.raised) ++m_refused;
      if (!seen.raised && !seen.says("STGIndex: rename: copy failed: ") &&
          !seen.says("write file : "))
        wrong(what + "a failure is not traced: " + seen.told());
      if (seen.after.lines.count(to) != 0) wrong(what + "both names are there");
    } else if (const auto line = seen.after.lines.find(to); line != seen.after.lines.end()) {
      if (!holds_all(reader::file_of(to, line->second))) wrong(what + "the new bytes are cut");
      expect_trace_of_save(what, seen, true);
    } else {
      wrong(what + "neither name is there");
    }
  }

  void remove(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "remove: ";
    const std::string key = std::prev(reader::look_at(ground()).lines.end())->first;
    const Seen seen = see(leave, other_writer, [&] {
      STGIndex::remove(folder(), reader::parts_of_key(key).first, 0);
      return std::string();
    });
    expect_others(what, seen, {key});
    if (seen.after.lines.count(key) != 0) wrong(what + "the entry is still there");
    const bool saved = seen.after.index_text == reader::index_text_of(seen.after.lines);
    expect_trace_of_save(what, seen, saved);
  }

  void write(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "write: ";
    const auto [key, file] = some_entry_with_bytes();
    if (key.empty()) return;
    const std::string name = reader::parts_of_key(key).first;
    const std::string text = text_number(++m_names, 30'000);
    const Seen seen = see(leave, other_writer, [&] {
      vu_storage storage;
      vu_file document;
      storage.OpenWrite(document, std::string("owner"), name, STG::UserRepository, true, 0);
      storage.Write(document, text);
      storage.Close(document);
      return std::string();
    });
    if (seen.raised) wrong(what + "it threw: " + seen.answer);
    expect_others(what, seen, {});
    expect_content(what, seen, file, text);
    write_file(ground() + "\\" + file, text_number(1, 3000));
  }

  void expect_content(const std::string& what, const Seen& seen, const std::string& file,
                      const std::string& text) {
    const std::string bytes =
        seen.after.files.count(file) != 0 ? read_file(ground() + "\\" + file) : "";
    const bool told = seen.says("write file : " + folder() + "\\" + file);
    if (!text.starts_with(bytes)) wrong(what + "foreign bytes");
    if (bytes == text && !seen.errors.empty()) wrong(what + "an error for a complete file");
    if (bytes != text && !told) wrong(what + "a file cut short is not traced");
    if (bytes != text) ++m_cut;
  }

  void save_keys(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "save keys: ";
    const auto [key, file] = some_entry_with_bytes();
    if (key.empty()) return;
    STG::NameValueSeq lines;
    std::string text;
    for (int i = 0; i < 1500; ++i) {
      lines.push_back({"name" + std::to_string(i), "value"});
      text += lines[lines.size() - 1].name + "=value\n";
    }
    const std::string name = reader::parts_of_key(key).first;
    const Seen seen = see(leave, other_writer, [&] {
      return std::to_string(vu_storage::saveUserOrMasterProfile("owner", name, lines));
    });
    expect_others(what, seen, {});
    if (seen.answer != "0") wrong(what + "the answer is " + seen.answer);
    expect_content(what, seen, file, text);
    write_file(ground() + "\\" + file, text_number(1, 3000));
  }

  /// Creates in another folder, which has no index and no counter yet.
  void first_create(const std::string& at, std::size_t leave, bool other_writer) {
    const std::string what = at + "first create: ";
    const std::string other = "\\storage\\user\\other";
    make_folder(m_disk + other);
    reader::FolderState after;
    const Seen seen = see(leave, other_writer, [&] {
      std::string name = STGIndex::create(m_root + other, "a.kdb", 0);
      after = reader::look_at(m_disk + other);
      return name;
    });
    expect_refused_for_space(what, seen, leave, other_writer);
    m_first += after.lines.size();
    if (after.lines.size() > 1) wrong(what + "more than one entry");
    for (const auto& [key, stored] : after.lines) {
      if (key != reader::key_for("a.kdb", 0)) wrong(what + "invented " + key);
    }
    if (!seen.raised && after.lines.empty() && seen.errors.empty())
      wrong(what + "a save without space is not traced");
    std::filesystem::remove_all(native(m_disk + other));
  }

  void next_operation_works(const std::string& what) {
    const reader::Lines lines = reader::look_at(ground()).lines;
    STGIndex::updateIndexFile(folder());
    const reader::FolderState state = reader::look_at(ground());
    if (state.lines != lines) wrong(what + "the next operation changes the entries");
    if (state.index_text != reader::index_text_of(lines))
      wrong(what + "the next save leaves more than entries");
  }

  Run& m_run;
  const std::string m_root;
  const std::string m_disk;
  const initialised_storage m_storage;
  std::string m_name;
  std::uint64_t m_names = 0;
  int m_counter = 0;
  std::uint64_t m_old = 0;
  std::uint64_t m_new = 0;
  std::uint64_t m_cut = 0;
  std::uint64_t m_not_renamed = 0;
  std::uint64_t m_refused = 0;
  std::uint64_t m_first = 0;  ///< saved entries of folders without an index
};

void full_disk(Run& run) {
  const test_alarm alarm("full-disk", std::chrono::seconds(3000));
  const SmallDisk disk;
  if (!disk.refusal().empty()) {
    return run.not_run("a small disk cannot be mounted here: " + disk.refusal() +
                       "; it needs the superuser");
  }
  FullDisk(run, disk).run();
}
REGISTER_SUITE(full_disk, "full-disk",
               "operations with 0 to 64 KB of free space, alone and with another writer",
               "operations", 0, Scratch::kMemory)

}  // namespace
}  // namespace reliability
