#include <array>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <mutex>

#include "client/stgctl/command_line.h"
#include "client/stgctl/context.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/target.h"
#include "client/stgctl/terminal.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_host.h"
#include "vu_storage.h"

namespace stgctl {

namespace {

constexpr std::array<const char*, 5> kLevels = {"XS", "S", "M", "L", "XL"};
constexpr std::array<const char*, 3> kEvents = {"Success", "Warning", "Error"};

const char* name_of(vu_host::trace_level level) {
  return kLevels.at(static_cast<std::size_t>(level));
}

/// Writes the library's traces, one line each, to a file or to standard error, if --trace is given.
/// It also keeps the last warning or error, for the client's own messages.
class TraceLog : public vu_host::trace_sink {
 public:
  /// @param most the highest level to write; empty writes nothing. @param file empty for standard
  /// error.
  /// @throws Failure if the file cannot be written.
  TraceLog(std::optional<vu_host::trace_level> most, const std::string& file)
      : m_most(most), m_file(stderr), m_owned(most && !file.empty()) {
    if (!m_owned) return;
    m_file = std::fopen(file.c_str(), "ab");
    if (m_file == nullptr)
      fail("the trace file {} cannot be written; name another file", shown(file));
  }
  ~TraceLog() override {
    if (m_owned) std::fclose(m_file);
  }

  /// The last warning or error since forget_trouble(), in one line, or empty.
  std::string trouble() const {
    const std::scoped_lock guard(m_mutex);
    return m_trouble;
  }
  void forget_trouble() {
    const std::scoped_lock guard(m_mutex);
    m_trouble.clear();
  }

  bool wants(vu_host::trace_level level) const noexcept override {
    return m_most && level <= *m_most;
  }
  bool wants(vu_host::trace_event event) const noexcept override {
    return m_most || event != vu_host::trace_event::success;
  }
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override {
    line(site, name_of(level), label.empty() ? site.signature : label);
  }
  void scope_end(const vu_host::trace_site&, vu_host::trace_level) noexcept override {}
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override {
    line(site, "scope", text);
  }
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override {
    line(site, name_of(level), text);
  }
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override {
    if (event != vu_host::trace_event::success) keep(text);
    if (m_most) line(site, kEvents.at(static_cast<std::size_t>(event)), text);
  }

 private:
  void keep(std::string_view text) noexcept {
    const std::scoped_lock guard(m_mutex);
    try {
      m_trouble.clear();
      bool gap = false;
      // In one line: the system's texts end in CR LF.
      for (const char c : text) {
        const bool is_blank = static_cast<unsigned char>(c) <= ' ';
        if (!is_blank && gap && !m_trouble.empty()) m_trouble += ' ';
        if (!is_blank) m_trouble += c;
        gap = is_blank;
      }
    } catch (const std::exception&) {
      m_trouble.clear();
    }
  }

  void line(const vu_host::trace_site& site, const char* kind, std::string_view text) noexcept {
    const std::scoped_lock guard(m_mutex);
    try {
      std::fprintf(m_file, "%s:%d %s %s\n", site.source, site.line, kind, shown(text).c_str());
    } catch (const std::exception&) {
      // Out of memory: the record is lost, the operation continues.
      std::fprintf(m_file, "%s:%d %s\n", site.source, site.line, kind);
    }
  }

  std::optional<vu_host::trace_level> m_most;
  mutable std::mutex m_mutex;
  std::string m_trouble;
  std::FILE* m_file;
  bool m_owned;
};

constexpr const char* kStorageFolder = "storage";

/// The library's storage folder, in the system's form.
std::string library_folder() {
  std::string path = vu_storage::getStoragePath();
  if (sys::kSeparator == '/') std::ranges::replace(path, '\\', '/');
  return path;
}

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

/// Asks once for an exclusive lock on the file. A file that is missing or cannot be opened counts
/// as free: the operation itself reports the problem.
os::Status ask_for(const std::string& folder, const std::string& name) {
  std::error_code error;
  if (!fs::is_regular_file(to_path(joined(folder, name)), error)) return {};
  for (const vu_file::type_access mode : {vu_file::o_write, vu_file::o_read}) {
    vu_file file(folder, name);
    bool refused = false;
    // A read-only file opens only for reading. A shared lock at least detects writers.
    if (!file.try_open(mode, refused, true)) continue;
    return refused ? os::Status(0, os::Failure::kLocked) : os::Status();
  }
  return {};
}

void wait_for_one(Context& context, const std::string& folder, const std::string& name) {
  const std::string path = joined(folder, name);
  const os::Status status =
      sys::wait_for_lock(path, context.locking(), [&] { return ask_for(folder, name); });
  if (status.ok()) return;
  Context::stop_if_interrupted();
  throw lock_missed(context, path);
}

/// The holder of a file's lock, as far as the system reports it: "process 4711 (client)".
std::string holder_of(Context& context, const std::string& path) {
  const std::string& storage = context.storage();
  std::vector<sys::HeldLock> locks;
  sys::find_locks(storage, locks);
  std::string holders;
  for (const sys::HeldLock& lock : locks) {
    if (lock.path != path) continue;
    if (!holders.empty()) holders += ", ";
    holders += formatted("process {}", lock.process);
    if (!lock.command.empty()) holders += formatted(" ({})", shown(lock.command));
  }
  return holders.empty() ? "another process" : holders;
}

void tell_waiting(Context& context, const std::string& path) {
  context.out().note(
      formatted("stgctl: waiting for {}, locked by {}", shown(path), holder_of(context, path)));
}

}  // namespace

/// The library's host, for the time in which the library is used. It gives the library a storage
/// folder with another name than "storage".
class LibraryHost : public TraceLog, private vu_host::temporary_files {
 public:
  /// @param storage the folder for an initialisation by the library itself; empty for its default.
  LibraryHost(const GlobalOptions& options, const std::string& storage)
      : TraceLog(options.trace, options.trace_file), m_storage(storage) {
    vu_host::services services;
    services.trace = this;
    if (!storage.empty()) services.temp = this;
    vu_host::install(services);
  }
  ~LibraryHost() override { vu_host::install({}); }

 private:
  void initialise(const char*, const char*) override {}
  ucs2string server_folder() override { return ucs2string(vu_utf8string(m_storage)); }
  ucs2string framework_root_folder() override { return server_folder(); }

  std::string m_storage;
};

Context::Context(const CommandLine& line, Output& output)
    : m_line(line), m_options(line.options()), m_output(output) {}

Context::~Context() = default;

const std::string& Context::storage() {
  if (!m_storage.empty()) return m_storage;
  std::string root = m_options.root;
  if (root.empty() && m_options.storage.empty()) root = environment("STG_ROOT");
  const fs::path named =
      root.empty() ? to_path(m_options.storage) : to_path(root) / to_path(kStorageFolder);
  if (named.empty()) {
    throw Failure(Exit::kNoTree,
                  "no storage tree is named; use --root DIR or --storage DIR, or set STG_ROOT");
  }
  std::error_code error;
  fs::path absolute = fs::absolute(named, error).lexically_normal();
  if (error) throw Failure(Exit::kNoTree, shown(from_path(named)) + ": " + error.message());
  if (!absolute.has_filename()) absolute = absolute.parent_path();
  m_storage = from_path(absolute);
  return m_storage;
}

const admin::Tree& Context::tree() {
  if (m_tree) return *m_tree;
  std::string why;
  m_tree = admin::locate({{}, storage(), m_options.layout}, why);
  if (m_tree) return *m_tree;
  throw Failure(
      Exit::kNoTree,
      "there is no storage tree at {} ({}); create one with 'stgctl init', or name another "
      "by --root or --storage",
      shown(storage()), shown(why));
}

void Context::take_apart(std::string& name, std::string& timestamp) {
  // A plain name needs no tree, so it does not load one.
  if (name.find('/') == std::string::npos) return;
  const std::optional<Subject> version = parse_version_name(name, tree().layout);
  if (!version) return;
  const auto set = [&](std::string& option, const std::string& value, const char* what) {
    if (!option.empty() && option != value)
      misused("{} names another {} than '{}'", shown(name), what, shown(option));
    option = value;
  };
  if (version->timestamp) set(timestamp, std::to_string(*version->timestamp), "timestamp");
  set(m_options.area, version->area, "area");
  if (!version->owner.empty()) set(m_options.owner, version->owner, "owner");
  name = version->name;
}

admin::Scope Context::scope() const {
  admin::Scope scope;
  if (!m_options.area.empty()) scope.area = admin::area_named(m_options.area);
  if (!m_options.owner.empty()) scope.owner = m_options.owner;
  return scope;
}

sys::Locking Context::locking() {
  sys::Locking locking;
  if (m_options.no_lock) locking.mode = sys::Locking::Mode::kNone;
  // A hundred years mean "without limit".
  locking.time_out = m_options.lock_timeout.value_or(std::chrono::hours(24 * 36500));
  locking.on_wait = [this](const std::string& path) { tell_waiting(*this, path); };
  locking.stop = &interrupt_flag();
  return locking;
}

void Context::begin_changes(std::string_view question, Adoption adoption) {
  if (is_dry_run()) return;
  confirm(question);
  open_library(tree().layout, adoption);
}

void Context::create_tree() { open_library(m_options.layout, Adoption::kOff); }

void Context::open_library(admin::Layout layout, Adoption adoption) {
  if (m_host) return;
  const fs::path folder = to_path(storage());
  const bool usual = from_path(folder.filename()) == kStorageFolder;
  if (!usual && layout == admin::Layout::kFlat)
    refuse(
        "{}: a tree without owners can be changed only in a folder named 'storage'; rename it, "
        "then "
        "use --root",
        shown(storage()));
  if (!usual && !admin::is_utf8(storage()))
    refuse("{}: the path is not UTF-8; use another path to it", shown(storage()));
  m_host = std::make_unique<LibraryHost>(m_options, usual ? "" : storage());
  // The library must use only the named tree. Adoption also stays off when the library initialises
  // itself.
  STGIndex::setSynchronizeMode(adoption == Adoption::kOn);
  if (usual) {
    vu_storage::initRootStorage(from_path(folder.parent_path()), layout != admin::Layout::kFlat,
                                adoption == Adoption::kOn);
  }
  std::error_code error;
  if (!fs::equivalent(to_path(library_folder()), folder, error))
    fail("{}: the library cannot open the tree there", shown(storage()));
}

void Context::forget_trouble() {
  if (m_host) m_host->forget_trouble();
}

std::string Context::trouble() const {
  const std::string text = m_host ? m_host->trouble() : std::string();
  return text.empty() ? text : " (" + shown(text) + ")";
}

bool Context::interrupted() noexcept { return interrupt_flag().load(); }

const std::atomic<bool>& Context::interrupt_flag() noexcept { return terminal::interrupt_seen; }

void Context::stop_if_interrupted() {
  if (interrupted()) throw Failure(Exit::kInterrupted, "interrupted");
}

void Context::confirm(std::string_view question) {
  if (m_options.yes) return;
  if (!terminal::is_terminal(terminal::Stream::kIn) ||
      !terminal::is_terminal(terminal::Stream::kErr)) {
    refuse(
        "{} There is no terminal to answer: use --yes to do it, or --dry-run to see what would be "
        "done",
        question);
  }
  m_output.prompt(formatted("{} [y/N] ", question));
  const std::string answer = terminal::read_line();
  stop_if_interrupted();
  if (answer != "y" && answer != "Y" && answer != "yes")
    refuse("not confirmed: nothing was changed");
}

Failure lock_missed(Context& context, const std::string& path) {
  const std::chrono::duration<double> limit =
      context.options().lock_timeout.value_or(std::chrono::milliseconds(0));
  return {Exit::kLockTimeout, formatted("{} is locked by {}; waited {:.1f} s; {}", shown(path),
                                        holder_of(context, path), limit.count(), sys::kLockAdvice)};
}

void check_locked(Context& context, const std::string& path, const os::Status& status) {
  Context::stop_if_interrupted();
  if (status.failure() == os::Failure::kLocked) throw lock_missed(context, path);
}

void check_read(const std::string& path, const os::Status& status) {
  Context::stop_if_interrupted();
  if (status.ok()) return;
  const bool is_locked = status.failure() == os::Failure::kLocked;
  throw Failure(is_locked ? Exit::kLockTimeout : Exit::kFailed, "{}: {}", shown(path),
                sys::reason_of(status));
}

void wait_until_free(Context& context, const std::string& folder, const std::string& file) {
  wait_for_one(context, folder, "index.dat");
  wait_for_one(context, folder, "index");
  if (!file.empty()) wait_for_one(context, folder, file);
}

}  // namespace stgctl
