#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/tree.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/output.h"

namespace stgctl {

class Arguments;
class CommandLine;
class LibraryHost;

/// What a command runs in: the options that all commands share, the output, the tree that was
/// named, and the library, opened on that tree by the commands that change it.
///
/// Paths are bytes, UTF-8 on Windows, with the system's separator; the library takes them as they
/// are.
class Context {
 public:
  Context(const CommandLine& line, Output& output);
  ~Context();
  Context(const Context&) = delete;
  Context& operator=(const Context&) = delete;

  const GlobalOptions& options() const noexcept { return m_options; }
  Output& out() noexcept { return m_output; }
  const CommandLine& command_line() const noexcept { return m_line; }

  /// The storage folder that the command line or STG_ROOT names, absolute; it need not exist.
  /// @throws Failure kNoTree when nothing names one.
  const std::string& storage();
  /// The tree at storage(), with the layout as said or as its names suggest; nothing is changed.
  /// @throws Failure kNoTree when there is none.
  const admin::Tree& tree();
  /// Takes a version as every line prints it (version_name.h) apart into what --area, --owner and
  /// --timestamp say; any other text stays. For commands with one name; where there may be several
  /// each is a NamedVersion of its own.
  /// @throws Failure kUsage where it contradicts them.
  void take_apart(std::string& name, std::string& timestamp);
  /// What --area and --owner name.
  admin::Scope scope() const;
  /// How files of the tree are read: under a lock that is waited for as long as --lock-timeout
  /// says. A wait of more than two seconds is told, with the holder.
  admin::sys::Locking locking();

  /// Whether files that the index does not name are adopted.
  enum class Adoption { kOff, kOn };
  /// Opens the library on the tree. Folders of areas that are missing are made by that, so it has
  /// no place in a dry run. @throws as tree(), and Failure kRefused for a tree that the library
  /// cannot be given.
  void open_library(Adoption adoption = Adoption::kOff);
  /// As open_library(), on a storage folder that need not exist yet, below an existing root.
  void create_tree();

  /// What the library has complained of last since forget_trouble(), as " (text)"; empty for
  /// nothing.
  std::string trouble() const;
  void forget_trouble();

  /// Whether Ctrl-C was pressed: finish the current entry and stop.
  static bool interrupted() noexcept;
  /// The same for those who ask again and again.
  static const std::atomic<bool>& interrupt_flag() noexcept;
  /// @throws Failure kInterrupted when it was.
  static void stop_if_interrupted();

  /// Asks whether to go on; --yes answers. @param question "Remove 3 documents?"
  /// @throws Failure kRefused when the answer is no, or when there is nobody to ask.
  void confirm(std::string_view question);

 private:
  void resolve();
  void initialise(admin::Layout layout, Adoption adoption);

  const CommandLine& m_line;
  GlobalOptions m_options;
  Output& m_output;
  std::string m_storage;
  std::optional<admin::Tree> m_tree;
  std::unique_ptr<LibraryHost> m_host;
};

// ---- locks that are waited for -----------------------------------------------------------------

/// Waits until nobody holds the files that an operation of the library is going to lock: the
/// library itself would wait without limit. A lock waited for longer than two seconds is told once,
/// with its holder.
///
/// What remains is the moment between this and the operation: somebody who takes the lock then
/// makes the operation wait, also beyond the time limit.
///
/// @param folder the folder of an index, in the system's form. @param file another file in it that
/// the operation locks, empty for none.
/// @throws Failure kLockTimeout when the time is over, kInterrupted after Ctrl-C.
void wait_until_free(Context& context, const std::string& folder, const std::string& file = {});

/// What a lock that was not obtained in time is told as, with its holder.
Failure lock_missed(Context& context, const std::string& path);

/// Who holds a file locked, as far as the system tells: "process 4711 (client)".
std::string holder_of(Context& context, const std::string& path);
/// Tells that a lock is being waited for.
void tell_waiting(Context& context, const std::string& path);

}  // namespace stgctl
