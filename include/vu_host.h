#pragma once

#include <cstdio>
#include <string>
#include <string_view>

#include "vu_export.h"
#include "vu_i18n.h"

/// @file
/// What a program that uses the library (the host) can supply: a receiver of traces, the product's
/// folders, and the log-history component.
///
/// Everything here is optional. Without a host's services the library traces nothing, keeps no log
/// history and takes its folders from the environment (see vu_host::services). The host owns the
/// objects that it passes to install(), and destroys them after the last call into the library.
/// These objects must not call the library.
namespace vu_host {

/// The detail of a trace record: the most important records have `xs`, the most detailed `xl`.
enum class trace_level : int {
  xs,  ///< the most important records
  s,   ///< less important than xs
  m,   ///< less important than s
  l,   ///< less important than m
  xl   ///< the most detailed records
};

/// The kind of an event.
enum class trace_event : int {
  success,  ///< something was done
  warning,  ///< something was missing or refused, and the operation goes on
  error     ///< something failed
};

/// The place in the library that traces. The texts are constants of the library and stay valid.
struct trace_site {
  const char* source;     ///< the source's name: "vu_file", "stg_index" or "vu_storage"
  int line;               ///< line number in that source
  const char* signature;  ///< full signature of the operation
};

/// Receives the traces of the library. The library calls wants() first, and does not build a text
/// that is not wanted.
///
/// A sink needs its own lock. The operation waits for the sink, and may hold locks on files while
/// it waits. Members must not throw.
///
/// A text is valid only during the call. It may contain any byte, NUL included; one more NUL
/// follows its end. The texts of vu_fileutf8 are UTF-8 on every system. All others are UTF-8 on
/// Linux and in the process's ANSI code page on Windows.
///
/// @all_blocking{as long as the sink takes; the operation waits for it}
/// @all_threads{any, several at once}
class VU_STORAGE_API trace_sink {
 public:
  /// For derived classes.
  /// @blocking{no}
  trace_sink() = default;
  /// The library never destroys the object: the host owns it.
  /// @blocking{no}
  virtual ~trace_sink();

  /// @param level the level.
  /// @return whether the sink wants records and scopes of @p level.
  virtual bool wants(trace_level level) const noexcept = 0;
  /// @param event the kind.
  /// @return whether the sink wants events of the kind @p event.
  virtual bool wants(trace_event event) const noexcept = 0;

  /// An operation begins.
  /// @param site the place in the library; valid only during the call.
  /// @param level its level.
  /// @param label its label; may be empty.
  virtual void scope_begin(const trace_site& site, trace_level level,
                           std::string_view label) noexcept = 0;
  /// An operation ends: on this thread, the last one that began and has not ended.
  /// @param site the place in the library; valid only during the call.
  /// @param level its level.
  virtual void scope_end(const trace_site& site, trace_level level) noexcept = 0;
  /// A message of the operation.
  /// @param site the place in the library; valid only during the call.
  /// @param text the message.
  virtual void scope_message(const trace_site& site, std::string_view text) noexcept = 0;
  /// A record with a level.
  /// @param site the place in the library; valid only during the call.
  /// @param level its level.
  /// @param text the record.
  virtual void record(const trace_site& site, trace_level level,
                      std::string_view text) noexcept = 0;
  /// An event.
  /// @param site the place in the library; valid only during the call.
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

/// A sink that wants nothing: derive from it and override what you need. It is compiled into the
/// program, not into the library.
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

/// A complete sink: it writes warnings and errors to the standard error output, one line each. It
/// also keeps the last one of each thread, so that the program can report why an operation failed.
/// Not every refusal is traced: see docs/host-guide.md for a document that is missing, too old, or
/// exists already.
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
  /// @param to_stderr false: it only keeps them and writes nothing.
  explicit problem_sink(bool to_stderr = true) noexcept : m_to_stderr(to_stderr) {}

  /// @param event the kind.
  /// @return whether it is a warning or an error.
  bool wants(trace_event event) const noexcept override { return event != trace_event::success; }
  /// Keeps and writes a warning or an error.
  /// @param event its kind.
  /// @param text what happened.
  /// @blocking{for the standard error output}
  void event(const trace_site&, trace_event event, std::string_view text) noexcept override {
    try {
      // The system's error texts end in CR LF.
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

  /// @return the last warning or error of the calling thread since clear(); empty if there was
  /// none. Valid until the thread's next warning, error or clear().
  static const std::string& last() noexcept { return kept(); }
  /// Forgets it. Call this before an operation whose failure you want to report.
  static void clear() noexcept { kept().clear(); }

 private:
  static std::string& kept() noexcept {
    static thread_local std::string text;
    return text;
  }

  bool m_to_stderr;
};

/// Returns the folders of the product's installation.
///
/// @all_blocking{as long as it takes; the initialisation waits for it}
/// @all_threads{one at a time}
class VU_STORAGE_API configuration {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  configuration() = default;
  /// The library never destroys the object: the host owns it.
  /// @blocking{no}
  virtual ~configuration();

  /// Called by the initialisation. An exception is traced. The next operation then initialises
  /// again, below the server temporary folder.
  /// @return the product's binary folder, without a trailing separator; the configuration folder is
  /// "config" in it.
  virtual ucs2string binary_folder() = 0;

 protected:
  /// For derived classes.
  configuration(const configuration&) = default;
  /// @copydoc trace_sink::operator=
  configuration& operator=(const configuration&) = default;
};

/// Returns the folders for temporary files.
///
/// @all_blocking{as long as it takes; the initialisation waits for it}
/// @all_threads{one at a time}
class VU_STORAGE_API temporary_files {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  temporary_files() = default;
  /// The library never destroys the object: the host owns it.
  /// @blocking{no}
  virtual ~temporary_files();

  /// Called before server_folder(), with the labels of the library.
  /// @param process "MY_PROCESS". @param component "MY_COMP".
  virtual void initialise(const char* process, const char* component) = 0;
  /// @return the server temporary folder: the root of the storage if the host never called
  /// vu_storage::initRootStorage(). The library removes one trailing `\`. An exception leaves the
  /// operation that initialises.
  virtual ucs2string server_folder() = 0;
  /// @return the framework's root temporary folder, for getTempRootPath(). The library removes one
  /// trailing `\`.
  /// @blocking{as long as it takes; the library waits for it} @threads{any, several at once}
  virtual ucs2string framework_root_folder() = 0;

 protected:
  /// For derived classes.
  temporary_files(const temporary_files&) = default;
  /// @copydoc trace_sink::operator=
  temporary_files& operator=(const temporary_files&) = default;
};

/// A component that a factory created. The library ends its use with release().
///
/// @all_blocking{as long as it takes; the library waits for it}
/// @all_threads{the one that requested the component}
class VU_STORAGE_API component {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  component() = default;
  /// Ends the use of the component.
  virtual void release() noexcept = 0;

 protected:
  /// The library never destroys the object: the host owns it.
  virtual ~component();
  /// For derived classes.
  component(const component&) = default;
  /// @copydoc trace_sink::operator=
  component& operator=(const component&) = default;
};

/// The log-history component: class "CLSID_ZTLogHistory", interface "IID_ILogHistory".
///
/// Each record has a text and three numbers. The library writes two: the root storage that it uses,
/// with 1, 4 and 0; and a refused second initialisation, with 4, 0 and 0.
///
/// @all_blocking{as long as it takes; the library waits for it}
/// @all_threads{the one that requested the component}
class VU_STORAGE_API log_history : public component {
 public:
  /// For derived classes.
  /// @blocking{no} @threads{any}
  log_history() = default;
  /// @param first,second,third the numbers.
  /// @return whether the settings of the component enable records with these numbers.
  virtual bool enabled(int first, int second, int third) noexcept = 0;
  /// Writes one record.
  /// @param text valid only during the call.
  /// @param first,second,third the numbers.
  virtual void record(const char* text, int first, int second, int third) noexcept = 0;

 protected:
  /// The library never destroys the object: it calls release().
  ~log_history() override;
  /// For derived classes.
  log_history(const log_history&) = default;
  /// @copydoc trace_sink::operator=
  log_history& operator=(const log_history&) = default;
};

/// Creates components by class and interface name.
///
/// @all_blocking{as long as it takes; the library waits for it}
/// @all_threads{any, several at once}
class VU_STORAGE_API component_factory {
 public:
  /// For derived classes.
  /// @blocking{no}
  component_factory() = default;
  /// The library never destroys the object: the host owns it.
  /// @blocking{no}
  virtual ~component_factory();

  /// Called again for every record; the library keeps no component.
  /// @param class_id the class, "CLSID_ZTLogHistory".
  /// @param interface_id the interface, "IID_ILogHistory".
  /// @return the component, or null if it is not available, which is not an error. It must have the
  /// type that @p interface_id names (log_history for "IID_ILogHistory"). The library ends its use
  /// with component::release().
  virtual component* create(const char* class_id, const char* interface_id) noexcept = 0;

 protected:
  /// For derived classes.
  component_factory(const component_factory&) = default;
  /// @copydoc trace_sink::operator=
  component_factory& operator=(const component_factory&) = default;
};

/// What a host supplies. A null member selects the default:
///
/// | member | default |
/// |---|---|
/// | trace | no traces |
/// | config | binary folder: VU_STORAGE_BINARY_DIR, or the folder of the running program |
/// | temp, server folder | VU_STORAGE_SERVER_TEMP, or "vu_storage" in the temporary folder |
/// | temp, framework root | VU_STORAGE_FRAMEWORK_TEMP, or the system's temporary folder |
/// | components | no log history |
///
/// The names in capitals are environment variables.
struct services {
  trace_sink* trace = nullptr;              ///< receives traces
  configuration* config = nullptr;          ///< the product's folders
  temporary_files* temp = nullptr;          ///< folders for temporary files
  component_factory* components = nullptr;  ///< the log history
};

/// Installs the host's services. Call it once, before any other call into the library; another call
/// replaces all four.
/// @param supplied the structure is copied. The host owns the objects, which must stay valid until
/// the last call into the library has returned.
/// @blocking{no} @threads{one, while no other thread is inside the library}
VU_STORAGE_API void install(const services& supplied) noexcept;

}  // namespace vu_host
