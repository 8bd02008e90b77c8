#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "vu_export.h"
#include "vu_i18n.h"

/// @file
/// What a program that uses the library (the host) may supply: where traces go, which folders are
/// the product's, and the log-history component.
///
/// Everything here is optional. Without a host's services the library is silent, keeps no log
/// history and takes its folders from the environment (see vu_host::services). Objects handed to
/// install() stay the host's own: they must outlive the last call into the library, and the library
/// never deletes them. None of them may call the library.
namespace vu_host {

/// How verbose a trace record is; `xs` is the smallest circle of records, `xl` the widest.
enum class trace_level : int {
  xs,  ///< the smallest circle
  s,   ///< wider than xs
  m,   ///< wider than s
  l,   ///< wider than m
  xl   ///< the widest circle
};

/// What an event says: something was done, something was missing or refused, something failed.
enum class trace_event : int {
  success,  ///< something was done
  warning,  ///< something was missing or refused, and the operation goes on
  error     ///< something failed
};

/// Where in the library a trace comes from. All texts are constants of the library and stay valid.
struct trace_site {
  const char* source;     ///< the source's name: "vu_file", "stg_index" or "vu_storage"
  int line;               ///< line number in that source
  const char* signature;  ///< full signature of the operation
};

/// Receives what the library traces.
///
/// A sink brings its own lock; an operation waits for it with the locks that it holds. Members must
/// not throw. A text is valid only during the call; a name in it may hold any byte, NUL included,
/// and data() is ended by a NUL beyond size(). Texts are bytes as the library has them: those of
/// vu_fileutf8 are UTF-8 everywhere, all others on Windows in the process's ANSI code page and
/// UTF-8 on Linux. The library asks wants() first and builds no text that is not wanted.
///
/// @all_blocking{as it likes; the operation waits for it}
/// @all_threads{any, several at once}
class VU_STORAGE_API trace_sink {
 public:
  /// For derived classes.
  /// @blocking{no}
  trace_sink() = default;
  /// The library never calls it: the object is the host's own.
  /// @blocking{no} @threads{any, after the last call into the library}
  virtual ~trace_sink();

  /// @param level the level asked about.
  /// @return whether records and scopes of @p level are to be delivered.
  virtual bool wants(trace_level level) const noexcept = 0;
  /// @param event the kind asked about.
  /// @return whether events of the kind @p event are to be delivered.
  virtual bool wants(trace_event event) const noexcept = 0;

  /// An operation begins.
  /// @param site where in the library; valid only during the call.
  /// @param level its level.
  /// @param label its label, empty when it has none.
  virtual void scope_begin(const trace_site& site, trace_level level,
                           std::string_view label) noexcept = 0;
  /// The operation whose beginning was delivered last on this thread and has not ended yet, ends.
  /// @param site where in the library; valid only during the call.
  /// @param level its level.
  virtual void scope_end(const trace_site& site, trace_level level) noexcept = 0;
  /// The operation's scope gets a message of its own.
  /// @param site where in the library; valid only during the call.
  /// @param text the message.
  virtual void scope_message(const trace_site& site, std::string_view text) noexcept = 0;
  /// A record at a level.
  /// @param site where in the library; valid only during the call.
  /// @param level its level.
  /// @param text the record.
  virtual void record(const trace_site& site, trace_level level,
                      std::string_view text) noexcept = 0;
  /// An event.
  /// @param site where in the library; valid only during the call.
  /// @param event its kind.
  /// @param text what happened.
  virtual void event(const trace_site& site, trace_event event, std::string_view text) noexcept = 0;

 protected:
  /// For derived classes.
  trace_sink(const trace_sink&) = default;
  /// For derived classes.
  /// @return this object.
  trace_sink& operator=(const trace_sink&) = default;
};

/// A sink that takes nothing: derive from it, and override what is wanted. It lies in the program
/// that uses it, not in the library.
///
/// @all_blocking{no}
/// @all_threads{any, several at once}
class sink : public trace_sink {
 public:
  /// @return false.
  bool wants(trace_level) const noexcept override { return false; }
  /// @return false.
  bool wants(trace_event) const noexcept override { return false; }
  /// Does nothing.
  void scope_begin(const trace_site&, trace_level, std::string_view) noexcept override {}
  /// Does nothing.
  void scope_end(const trace_site&, trace_level) noexcept override {}
  /// Does nothing.
  void scope_message(const trace_site&, std::string_view) noexcept override {}
  /// Does nothing.
  void record(const trace_site&, trace_level, std::string_view) noexcept override {}
  /// Does nothing.
  void event(const trace_site&, trace_event, std::string_view) noexcept override {}
};

/// A ready sink: warnings and errors go to the standard error output, one line each, and the last
/// one of each thread is kept for whoever wants to say why an operation failed. What is missing,
/// too old, there already or refused is traced by nobody: see docs/host-guide.md.
///
///     static vu_host::problem_sink problems;
///     vu_host::install({&problems, nullptr, nullptr, nullptr});
///     ...
///     vu_host::problem_sink::clear();
///     storage.OpenWrite(file, ...);
///     if (!file.is_open()) std::cerr << vu_host::problem_sink::last() << "\n";
///
/// @all_blocking{no}
/// @all_threads{any, several at once}
class problem_sink final : public sink {
 public:
  using sink::wants;
  /// @param to_stderr whether they go to the standard error output, or are kept only.
  explicit problem_sink(bool to_stderr = true) noexcept : m_to_stderr(to_stderr) {}

  /// @param event the kind asked about.
  /// @return whether it is a warning or an error.
  bool wants(trace_event event) const noexcept override { return event != trace_event::success; }
  /// Keeps and writes it.
  /// @param event its kind.
  /// @param text what happened.
  /// @blocking{for the standard error output}
  void event(const trace_site&, trace_event event, std::string_view text) noexcept override {
    try {
      // The system's own words end in CR LF.
      while (!text.empty() && (text.back() == '\n' || text.back() == '\r')) text.remove_suffix(1);
      kept().assign(text.data(), text.size());
      if (!m_to_stderr) return;
      const std::string line =
          std::string(event == trace_event::error ? "error: " : "warning: ") + kept() + "\n";
      std::fwrite(line.data(), 1, line.size(), stderr);
    } catch (...) {
      // No memory for the text: the operation goes on without it.
    }
  }

  /// @return the last warning or error of the calling thread since clear(); empty for none.
  static const std::string& last() noexcept { return kept(); }
  /// Forgets it, before the operation that is asked about.
  static void clear() noexcept { kept().clear(); }

 private:
  static std::string& kept() noexcept {
    static thread_local std::string text;
    return text;
  }

  bool m_to_stderr;
};

/// Answers the library's questions about the product's installation.
///
/// @all_blocking{as it likes; the initialisation waits for it}
/// @all_threads{one at a time}
class VU_STORAGE_API configuration {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  configuration() = default;
  /// The library never calls it: the object is the host's own.
  /// @blocking{no} @threads{any, after the last call into the library}
  virtual ~configuration();

  /// Asked by the initialisation. What it throws is traced, and the next operation initialises
  /// anew.
  /// @return the product's binary folder, without a trailing separator; the configuration folder is
  /// "config" below it.
  virtual ucs2string binary_folder() = 0;

 protected:
  /// For derived classes.
  configuration(const configuration&) = default;
  /// For derived classes.
  /// @return this object.
  configuration& operator=(const configuration&) = default;
};

/// Names the folders for temporary files.
///
/// @all_blocking{as it likes; the initialisation waits for it}
/// @all_threads{one at a time}
class VU_STORAGE_API temporary_files {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  temporary_files() = default;
  /// The library never calls it: the object is the host's own.
  /// @blocking{no} @threads{any, after the last call into the library}
  virtual ~temporary_files();

  /// Called before server_folder(), with the labels under which the library asks.
  /// @param process "MY_PROCESS". @param component "MY_COMP".
  virtual void initialise(const char* process, const char* component) = 0;
  /// @return the server temporary folder: the default root storage of a host that never called
  /// vu_storage::initRootStorage(). One trailing `\` is removed by the library. What it throws
  /// counts as an exception of the operation that initialises.
  virtual ucs2string server_folder() = 0;
  /// @return the framework's root temporary folder, for getTempRootPath(). One trailing `\` is
  /// removed by the library.
  /// @blocking{as it likes; the library waits for it} @threads{any, several at once}
  virtual ucs2string framework_root_folder() = 0;

 protected:
  /// For derived classes.
  temporary_files(const temporary_files&) = default;
  /// For derived classes.
  /// @return this object.
  temporary_files& operator=(const temporary_files&) = default;
};

/// A component created on demand. Whoever received it gives it back with release().
///
/// @all_blocking{as it likes; the library waits for it}
/// @all_threads{the one that asked for the component}
class VU_STORAGE_API component {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  component() = default;
  /// Gives the component back; it must not be used afterwards.
  virtual void release() noexcept = 0;

 protected:
  /// The library never calls it: the object is the host's own.
  virtual ~component();
  /// For derived classes.
  component(const component&) = default;
  /// For derived classes.
  /// @return this object.
  component& operator=(const component&) = default;
};

/// The log-history component: class "CLSID_ZTLogHistory", interface "IID_ILogHistory".
///
/// Each record is a text and three numbers. The library writes two: the root storage it uses, with
/// the numbers 1, 4 and 0, and the refusal of a second initialisation, with 4, 0 and 0.
///
/// @all_blocking{as it likes; the library waits for it}
/// @all_threads{the one that asked for the component}
class VU_STORAGE_API log_history : public component {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  log_history() = default;
  /// @param first the first number.
  /// @param second the second.
  /// @param third the third.
  /// @return whether the component's settings have recording enabled for a record with these
  /// numbers.
  virtual bool enabled(int first, int second, int third) noexcept = 0;
  /// Writes one record.
  /// @param text valid only during the call.
  /// @param first the first number.
  /// @param second the second.
  /// @param third the third.
  virtual void record(const char* text, int first, int second, int third) noexcept = 0;

 protected:
  /// The library never calls it: it gives the component back with release().
  ~log_history() override;
  /// For derived classes.
  log_history(const log_history&) = default;
  /// For derived classes.
  /// @return this object.
  log_history& operator=(const log_history&) = default;
};

/// Creates components by class and interface name.
///
/// @all_blocking{as it likes; the library waits for it}
/// @all_threads{any, several at once}
class VU_STORAGE_API component_factory {
 public:
  /// For derived classes.
  /// @blocking{no}
  component_factory() = default;
  /// The library never calls it: the object is the host's own.
  /// @blocking{no} @threads{any, after the last call into the library}
  virtual ~component_factory();

  /// @param class_id the class, "CLSID_ZTLogHistory".
  /// @param interface_id the interface, "IID_ILogHistory".
  /// @return the component, or null when it is not available, which is no error. The result must be
  /// of the type that @p interface_id names (log_history for "IID_ILogHistory"); the library gives
  /// it back with component::release(). It is asked anew for every record and nothing is kept.
  virtual component* create(const char* class_id, const char* interface_id) noexcept = 0;

 protected:
  /// For derived classes.
  component_factory(const component_factory&) = default;
  /// For derived classes.
  /// @return this object.
  component_factory& operator=(const component_factory&) = default;
};

/// What a host supplies; a null member means the library's default:
///
/// | member | default |
/// |---|---|
/// | trace | silence |
/// | config | binary folder: VU_STORAGE_BINARY_DIR, else the running program's folder |
/// | temp, server folder | VU_STORAGE_SERVER_TEMP, else "vu_storage" in the temporary folder |
/// | temp, framework root | VU_STORAGE_FRAMEWORK_TEMP, else the system's temporary folder |
/// | components | none: no log history |
///
/// The names in capitals are environment variables.
struct services {
  trace_sink* trace = nullptr;              ///< where traces go
  configuration* config = nullptr;          ///< the product's folders
  temporary_files* temp = nullptr;          ///< folders for temporary files
  component_factory* components = nullptr;  ///< the log history
};

/// Installs the host's services. Call it once, before the first other call into the library; a
/// later call replaces all four.
/// @param supplied the objects stay the host's and must outlive the library's last call.
/// @blocking{no} @threads{one, while no other one is inside the library}
VU_STORAGE_API void install(const services& supplied) noexcept;

}  // namespace vu_host
