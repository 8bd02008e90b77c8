#pragma once

#include <atomic>
#include <memory>

#include "client/stgctl/exit_codes.h"
#include "client/stgctl/output.h"

namespace stgctl {

namespace sys = admin::sys;

class CommandLine;
class LibraryHost;

/// What a command runs in: the common options, the output, the named tree, and the library, which
/// changing commands open on that tree.
///
/// Paths are bytes, UTF-8 on Windows, with the system's separator. The library gets them unchanged.
class Context {
 public:
  Context(const CommandLine& line, Output& output);
  ~Context();

  const GlobalOptions& options() const noexcept { return m_options; }
  bool is_dry_run() const noexcept { return m_options.dry_run; }
  Output& out() noexcept { return m_output; }
  const CommandLine& command_line() const noexcept { return m_line; }

  /// The storage folder that the command line or STG_ROOT names, absolute. It need not exist.
  /// @throws Failure kNoTree if nothing names one.
  const std::string& storage();
  /// The tree at storage(), with the layout that was given or that its folder names suggest.
  /// Changes nothing.
  /// @throws Failure kNoTree if there is no tree.
  const admin::Tree& tree();
  /// Splits the printed form of a version into --area, --owner and --timestamp.
  /// Leaves any other text unchanged. For commands with one name; commands with several names use a
  /// NamedVersion for each.
  /// @throws Failure kUsage if the text contradicts the options; as tree().
  void take_apart(std::string& name, std::string& timestamp);
  /// The scope of --area and --owner.
  admin::Scope scope() const;
  /// The options of a walk over the tree: scope(), locking(), until Ctrl-C.
  template <class Options = admin::WalkOptions>
  Options walk() {
    Options options;
    options.scope = scope();
    options.locking = locking();
    options.stop = &interrupt_flag();
    return options;
  }
  /// How to read files of the tree: under a lock, with a wait of at most --lock-timeout. A wait of
  /// more than two seconds is reported with the holder. With --no-lock without a lock.
  sys::Locking locking();

  /// Whether the library adopts orphans.
  enum class Adoption { kOff, kOn };
  /// Before changes: asks for confirmation, then opens the library on the tree. This creates
  /// missing area folders, so it does nothing in a dry run.
  /// @throws as confirm() and tree(); Failure kRefused if the library does not accept the storage
  /// folder, kFailed if the tree or the trace file cannot be opened.
  void begin_changes(std::string_view question, Adoption adoption = Adoption::kOff);
  /// Opens the library on a storage folder below an existing root. The folder itself need not
  /// exist.
  void create_tree();

  /// The library's last complaint since forget_trouble(), as " (text)", or empty.
  std::string trouble() const;
  void forget_trouble();

  /// Whether Ctrl-C was pressed. If so, finish the current entry and stop.
  static bool interrupted() noexcept;
  /// The same, for callers that poll.
  static const std::atomic<bool>& interrupt_flag() noexcept;
  /// @throws Failure kInterrupted after Ctrl-C.
  static void stop_if_interrupted();

  /// Asks for confirmation; --yes answers. @param question "Remove 3 documents?"
  /// @throws Failure kRefused if the answer is no, or without a terminal.
  void confirm(std::string_view question);

 private:
  void open_library(admin::Layout layout, Adoption adoption);

  const CommandLine& m_line;
  GlobalOptions m_options;
  Output& m_output;
  std::string m_storage;
  std::optional<admin::Tree> m_tree;
  std::unique_ptr<LibraryHost> m_host;
};

// ---- locks that are waited for -----------------------------------------------------------------

/// Waits until no process holds the files that an operation of the library will lock. The library
/// itself would wait without limit. A wait of more than two seconds is reported once, with the
/// holder.
///
/// A short race remains: if another process takes the lock after this call, the operation waits for
/// it, even beyond the time limit.
///
/// @param folder the folder of an index, in the system's form. @param file another file in it that
/// the operation locks, or empty.
/// @throws Failure kLockTimeout after the time limit, kInterrupted after Ctrl-C.
void wait_until_free(Context& context, const std::string& folder, const std::string& file = {});

/// The error for a lock that was not obtained in time; names the holder.
Failure lock_missed(Context& context, const std::string& path);

/// Checks whether a file could be opened and locked. Does not throw for any other failure.
/// @throws Failure kLockTimeout with the holder, kInterrupted after Ctrl-C.
void check_locked(Context& context, const std::string& path, const os::Status& status);
/// Checks whether a file could be read.
/// @throws Failure kLockTimeout, kFailed with the reason, kInterrupted after Ctrl-C.
void check_read(const std::string& path, const os::Status& status);

}  // namespace stgctl
