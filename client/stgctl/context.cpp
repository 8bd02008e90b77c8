#include "client/stgctl/context.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include "client/stgctl/command_line.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/lock_wait.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/terminal.h"
#include "client/stgctl/text.h"
#include "client/stgctl/trace_log.h"
#include "client/stgctl/version_name.h"
#include "stg_index.h"
#include "vu_host.h"
#include "vu_storage.h"

namespace stgctl {

namespace fs = std::filesystem;

namespace {

constexpr const char* kStorageFolder = "storage";

/// Gives the library a storage folder that does not bear the usual name.
class NamedStorage : public vu_host::temporary_files {
 public:
  explicit NamedStorage(const std::string& storage) : m_storage(storage) {}
  void initialise(const char*, const char*) override {}
  ucs2string server_folder() override { return ucs2string(vu_utf8string(m_storage)); }
  ucs2string framework_root_folder() override { return server_folder(); }

 private:
  std::string m_storage;
};

std::string environment(const char* name) {
  const char* const value = std::getenv(name);
  return value == nullptr ? std::string() : value;
}

}  // namespace

/// The library's host, for as long as the library is used.
class LibraryHost {
 public:
  explicit LibraryHost(const GlobalOptions& options) : m_trace(options.trace, options.trace_file) {}
  ~LibraryHost() { vu_host::install({}); }
  LibraryHost(const LibraryHost&) = delete;
  LibraryHost& operator=(const LibraryHost&) = delete;

  /// @param storage the folder to use when the library initialises by itself; empty for its
  /// default.
  void install(const std::string& storage) {
    if (!storage.empty()) m_named = std::make_unique<NamedStorage>(storage);
    vu_host::services services;
    services.trace = &m_trace;
    services.temp = m_named.get();
    vu_host::install(services);
  }
  TraceLog& trace() { return m_trace; }

 private:
  TraceLog m_trace;
  std::unique_ptr<NamedStorage> m_named;
};

Context::Context(const CommandLine& line, Output& output)
    : m_line(line), m_options(line.options()), m_output(output) {}

Context::~Context() = default;

void Context::resolve() {
  std::string root = m_options.root;
  if (root.empty() && m_options.storage.empty()) root = environment("STG_ROOT");
  const fs::path named =
      root.empty() ? to_path(m_options.storage) : to_path(root) / to_path(kStorageFolder);
  if (named.empty()) {
    throw Failure(Exit::kNoTree,
                  "no storage tree is named; say --root DIR or --storage DIR, or set STG_ROOT");
  }
  std::error_code error;
  fs::path absolute = fs::absolute(named, error).lexically_normal();
  if (error) throw Failure(Exit::kNoTree, shown(from_path(named)) + ": " + error.message());
  if (!absolute.has_filename()) absolute = absolute.parent_path();
  m_storage = from_path(absolute);
}

const std::string& Context::storage() {
  if (m_storage.empty()) resolve();
  return m_storage;
}

const admin::Tree& Context::tree() {
  if (m_tree) return *m_tree;
  std::string why;
  m_tree = admin::locate({{}, storage(), m_options.layout}, why);
  if (m_tree) return *m_tree;
  throw Failure(
      Exit::kNoTree,
      formatted("there is no storage tree at {} ({}); 'stgctl init' makes one, --root or --storage "
                "names another",
                shown(storage()), shown(why)));
}

void Context::take_apart(std::string& name, std::string& timestamp) {
  // Asking for the tree needs one, which a name by itself does not.
  if (name.find('/') == std::string::npos) return;
  const std::optional<VersionName> version = parse_version_name(name, tree().layout);
  if (!version) return;
  const auto set = [&](std::string& option, const std::string& value, const char* what) {
    if (!option.empty() && option != value)
      throw Failure(Exit::kUsage,
                    formatted("{} says another {} than '{}'", shown(name), what, shown(option)));
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

admin::sys::Locking Context::locking() {
  admin::sys::Locking locking;
  // A hundred years stand for ever.
  locking.time_out = m_options.lock_timeout.value_or(std::chrono::hours(24 * 36500));
  locking.on_wait = [this](const std::string& path) { tell_waiting(*this, path); };
  locking.stop = &interrupt_flag();
  return locking;
}

void Context::open_library(Adoption adoption) {
  if (m_host) return;
  initialise(tree().layout, adoption);
}

void Context::create_tree() {
  if (m_host) return;
  initialise(m_options.layout, Adoption::kOff);
}

void Context::initialise(admin::Layout layout, Adoption adoption) {
  const fs::path folder = to_path(storage());
  const bool usual = from_path(folder.filename()) == kStorageFolder;
  if (!usual && layout == admin::Layout::kFlat) {
    throw Failure(
        Exit::kRefused,
        formatted("{}: a tree without owners can be changed only in a folder called 'storage'; "
                  "rename it, then say --root",
                  shown(storage())));
  }
  if (!usual && !admin::is_utf8(storage())) {
    throw Failure(Exit::kRefused,
                  shown(storage()) + ": the path is no UTF-8; reach it by another path");
  }
  m_host = std::make_unique<LibraryHost>(m_options);
  m_host->install(usual ? "" : storage());
  // The library must never use what is not named: adoption stays off also when it initialises by
  // itself.
  STGIndex::setSynchronizeMode(adoption == Adoption::kOn);
  if (usual) {
    vu_storage::initRootStorage(from_path(folder.parent_path()), layout != admin::Layout::kFlat,
                                adoption == Adoption::kOn);
  }
  std::error_code error;
  if (!fs::equivalent(to_path(from_library(vu_storage::getStoragePath())), folder, error)) {
    throw Failure(Exit::kFailed, shown(storage()) + ": the library cannot open the tree there");
  }
}

void Context::forget_trouble() {
  if (m_host) m_host->trace().forget_trouble();
}

std::string Context::trouble() const {
  const std::string text = m_host ? m_host->trace().trouble() : std::string();
  return text.empty() ? text : " (" + shown(text) + ")";
}

bool Context::interrupted() noexcept { return interrupt_flag().load(); }

const std::atomic<bool>& Context::interrupt_flag() noexcept { return terminal::interrupt_flag(); }

void Context::stop_if_interrupted() {
  if (interrupted()) throw Failure(Exit::kInterrupted, "interrupted");
}

void Context::confirm(std::string_view question) {
  if (m_options.yes) return;
  if (!terminal::is_terminal(terminal::Stream::kIn) ||
      !terminal::is_terminal(terminal::Stream::kErr)) {
    throw Failure(
        Exit::kRefused,
        formatted("{} Nobody is here to answer: say --yes to do it, or --dry-run to see what "
                  "would be done",
                  question));
  }
  m_output.prompt(formatted("{} [y/N] ", question));
  const std::string answer = terminal::read_line();
  stop_if_interrupted();
  if (answer != "y" && answer != "Y" && answer != "yes") {
    throw Failure(Exit::kRefused, "not confirmed; nothing was changed");
  }
}

}  // namespace stgctl
