#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <map>
#include <mutex>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "stg_types.h"
#include "vu_file.h"
#include "vu_host.h"
#include "vu_storage.h"

/// @file
/// The steps of the demo, and what they share.
namespace demo {

/// The reason why the program does not start: one line with the cause and the remedy.
class Refusal : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// The command line.
struct Options {
  std::string root;                  ///< folder for the storage and the other files of a run
  std::vector<std::string> sources;  ///< source folders; none: default_sources()
  std::string verify_only;           ///< manifest of an earlier run to compare the storage with
  std::string trace;                 ///< file for the library's trace
  std::size_t max_files = 400;       ///< the most source files to store
  bool fresh = false;                ///< remove the files of an earlier run from the root
  bool help = false;
};

/// @throws Refusal for an invalid command line.
Options read_options(const std::vector<std::string>& arguments);

/// The text of --help.
const char* usage();

// ---- the run in words --------------------------------------------------------------------------

/// Joins values into one text.
template <class... Values>
std::string text_of(const Values&... values) {
  std::ostringstream out;
  (out << ... << values);
  return out.str();
}

/// "617 bytes", "12.3 KB", "4.5 MB".
std::string size_text(std::uint64_t bytes);

/// Prints the run in sections and counts the checks.
class Report {
 public:
  /// Begins a section; ends the previous one first.
  void begin(const std::string& title);
  /// Ends the section and prints its number of checks and its time.
  void end();
  void say(const std::string& line);
  /// Counts a check. A failed check is printed at once and makes the run fail. @return @p good.
  bool check(bool good, const std::string& what);
  /// Prints the result. @return the program's exit code: 0 when there were checks and all passed.
  int finish();

 private:
  using Clock = std::chrono::steady_clock;

  bool m_open = false;
  std::size_t m_sections = 0;
  std::size_t m_checks = 0;
  std::size_t m_failures = 0;
  std::size_t m_section_checks = 0;
  std::size_t m_section_failures = 0;
  Clock::time_point m_start = Clock::now();
  Clock::time_point m_section_start;
  std::vector<std::string> m_failed;
};

// ---- files -------------------------------------------------------------------------------------

/// @return a path of the library (separator "\") as a path for std::filesystem.
std::filesystem::path native(const std::string& path);
/// @return the path in UTF-8; on Linux its bytes without conversion.
std::string utf8(const std::filesystem::path& path);

/// @return whether every byte is ASCII.
bool is_ascii(std::string_view text);
/// Whether narrow strings are UTF-8 in this process. Always on Linux; on Windows when the system
/// supports the code page in demo.manifest. Tests it with a file in the temporary folder.
bool narrow_names_are_utf8();

/// @return the file's bytes. @throws std::runtime_error with the name of the file.
std::string read_whole(const std::filesystem::path& path);
/// Creates or replaces a file. @throws std::runtime_error with the name of the file.
void write_whole(const std::filesystem::path& path, std::string_view bytes);
/// FNV-1a, 64 bits.
std::uint64_t fnv1a(std::string_view bytes);

/// Sets the modification time of @p path to that of @p base plus @p shift.
void set_time_from(const std::filesystem::path& path, const std::filesystem::path& base,
                   std::chrono::seconds shift);
/// Removes a folder with everything in it, read-only files included.
void remove_tree(const std::filesystem::path& folder);

/// The size of a folder's content.
struct Volume {
  std::size_t files = 0;
  std::size_t folders = 0;
  std::uint64_t bytes = 0;
};
Volume volume_of(const std::filesystem::path& folder);

/// @return a number that changes when a file below @p folder is created or removed, or changes its
/// size or time. For an index, the number also depends on its bytes.
std::uint64_t fingerprint(const std::filesystem::path& folder);

// ---- the host ----------------------------------------------------------------------------------

/// The services of this program for the library: a trace sink that collects errors and can write
/// the whole trace to a file, and the product's binary folder.
class Host final : public vu_host::trace_sink, public vu_host::configuration {
 public:
  /// Installs this object; it must outlive the last call into the library.
  void install();
  /// Writes the whole trace to @p file. @return whether the file could be created.
  bool trace_to(const std::string& file);
  /// @param folder the product's binary folder; its folder "config" contains the master profile.
  void set_binary_folder(const std::string& folder) { m_binary_folder = folder; }
  /// @return the texts of the error events since the last call.
  std::vector<std::string> take_errors();

  bool wants(vu_host::trace_level level) const noexcept override;
  bool wants(vu_host::trace_event event) const noexcept override;
  void scope_begin(const vu_host::trace_site& site, vu_host::trace_level level,
                   std::string_view label) noexcept override;
  void scope_end(const vu_host::trace_site& site, vu_host::trace_level level) noexcept override;
  void scope_message(const vu_host::trace_site& site, std::string_view text) noexcept override;
  void record(const vu_host::trace_site& site, vu_host::trace_level level,
              std::string_view text) noexcept override;
  void event(const vu_host::trace_site& site, vu_host::trace_event event,
             std::string_view text) noexcept override;

  ucs2string binary_folder() override;

 private:
  void write(const char* kind, const vu_host::trace_site& site, std::string_view text) noexcept;

  std::mutex m_mutex;
  std::ofstream m_file;
  std::vector<std::string> m_errors;
  std::string m_binary_folder;
};

// ---- the source files --------------------------------------------------------------------------

/// A real file whose bytes the demo stores.
struct SourceFile {
  std::filesystem::path path;
  std::string name;  ///< the file name, UTF-8
  std::uint64_t size = 0;
};

/// The files that were found in the source folders.
struct Collection {
  std::vector<SourceFile> files;  ///< the chosen ones, in the order of choice
  std::size_t folders_seen = 0;   ///< searched folders
  std::size_t files_seen = 0;     ///< files in these folders
  // Omitted files.
  std::size_t not_storable = 0;     ///< name that Windows, Linux or an index line does not allow
  std::size_t not_in_codepage = 0;  ///< name beyond ASCII, and narrow strings are not UTF-8
  std::size_t too_large = 0;        ///< more than 8 MB
};

/// @return the default source folders that exist on this system.
std::vector<std::string> default_sources();

/// Chooses up to @p max_files files below @p folders. The choice is spread over folders, sizes and
/// kinds of names (with blanks, several dots, beyond ASCII, without extension). The choice is the
/// same for the same folders.
/// @param beyond_ascii whether names beyond ASCII may be chosen.
Collection collect(const std::vector<std::string>& folders, std::size_t max_files,
                   bool beyond_ascii);

// ---- what the steps share ----------------------------------------------------------------------

/// One version of a document in the storage.
struct Version {
  std::string owner;
  STG::RepositoryType type = STG::CorporateRepository;
  std::string entry;
  long stamp = 0;
  std::string source;  ///< the file with the same bytes; empty when this program wrote the text
  std::uint64_t size = 0;
  std::uint64_t hash = 0;   ///< FNV-1a of its bytes
  long not_older_than = 0;  ///< for a corporate document: the timestamp argument for reading
};

/// A sub-part of a document that is up to date at the end of the run.
struct Part {
  std::string owner;
  std::string entry;
  std::string rendition;
  std::string id;
  long stamp = 0;
  std::uint64_t size = 0;
  std::uint64_t hash = 0;
};

struct Profile {
  std::string owner;
  std::string name;
  std::uint64_t hash = 0;  ///< of its text
};

/// An index as the manifest describes it.
struct IndexRecord {
  std::uint64_t size = 0;
  std::uint64_t hash = 0;                                 ///< of "index.dat"
  std::set<std::pair<std::string, std::string>> entries;  ///< physical and logical names
};

/// The state that the steps share.
struct Demo {
  Options options;
  Report report;
  Host host;
  bool beyond_ascii = false;  ///< whether narrow names may contain more than ASCII
  std::string root;           ///< absolute path for the library
  Collection sources;
  std::vector<Version> versions;
  std::vector<Part> parts;
  std::vector<Profile> profiles;
  std::map<std::string, IndexRecord> indexes;  ///< of a manifest; key: folder below the storage
  std::size_t expected_errors = 0;             ///< error events that the step provokes on purpose

  /// A path below the root, for the library.
  std::string below_root(const std::string& name) const { return root + "\\" + name; }
};

// ---- one document ------------------------------------------------------------------------------

/// @return whether vu_storage::OpenRead() serves this version: a corporate "kdf" document by its
/// exact timestamp, everything else from timestamp 0.
bool is_served(const Version& version);
/// Opens a version for reading with OpenRead(). Opens a version that OpenRead() does not serve with
/// the path that IsFileExist() returns.
bool open_version(vu_storage& storage, vu_file& file, const Version& version);
/// @param[out] bytes the bytes of the version. @return whether the version could be opened.
bool read_version(vu_storage& storage, const Version& version, std::string& bytes);
/// Writes a version with OpenWrite2(), in pieces. @return whether the file could be opened.
bool write_version(vu_storage& storage, const Version& version, const std::string& bytes,
                   bool replace);
/// Writes a new document, checks that it can be read, and adds it to Demo::versions, from which the
/// manifest is written. @return its position there.
std::size_t add_version(Demo& demo, const std::string& owner, STG::RepositoryType type,
                        const std::string& entry, long stamp, const std::string& bytes);
/// Removes all versions of a document from Demo::versions.
void forget_versions(Demo& demo, const std::string& owner, const std::string& entry);
/// For messages: "'a b.kdf' of anna in docs at 17".
std::string name_of(const Version& version);
/// The name of the area's folder: "docs", "mail" or "user".
const char* area_of(STG::RepositoryType type);
/// @return the path of a version's file for the library; empty when there is none.
std::string path_of_version(vu_storage& storage, const Version& version);

// ---- the steps ---------------------------------------------------------------------------------

void plan_versions(Demo& demo);
void store_versions(Demo& demo);
void read_back(Demo& demo);
void refuse_others(Demo& demo);
void ask_latest(Demo& demo);
void list_indexes(Demo& demo);
void copy_in_and_out(Demo& demo);
void use_key_files(Demo& demo);
void use_profiles(Demo& demo);
void use_parts(Demo& demo);
void manage_users(Demo& demo);
void remove_document(Demo& demo);
void clean_output(Demo& demo);
void migrate_mail(Demo& demo);
void use_utf8_handle(Demo& demo);

/// Writes root\manifest.tsv.
void write_manifest(Demo& demo);
/// Reads a manifest. @throws Refusal when it does not exist or is invalid.
void read_manifest(Demo& demo);
/// Compares the storage with the manifest.
void verify(Demo& demo);
/// Prints the tree and some lines of an index.
void show_tree(Demo& demo);

}  // namespace demo
