#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "demo_files.h"
#include "demo_host.h"
#include "demo_options.h"
#include "demo_report.h"
#include "demo_sources.h"
#include "stg_types.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace demo {

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

// ---- one document, in demo_versions.cpp
// ----------------------------------------------------------

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

// ---- the steps
// -----------------------------------------------------------------------------------

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
