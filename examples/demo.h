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

/// One version of a document that the storage holds.
struct Version {
  std::string owner;
  STG::RepositoryType type = STG::CorporateRepository;
  std::string entry;
  long stamp = 0;
  std::string source;  ///< the file whose bytes it has; empty when this program made them
  std::uint64_t size = 0;
  std::uint64_t hash = 0;   ///< FNV-1a of its bytes
  long not_older_than = 0;  ///< for a corporate document: what a client asks for when it reads
};

/// A part of a document that is up to date when the run ends.
struct Part {
  std::string owner;
  std::string entry;
  std::string rendition;
  std::string id;
  long stamp = 0;
  std::uint64_t size = 0;
  std::uint64_t hash = 0;
};

/// A user's profile.
struct Profile {
  std::string owner;
  std::string name;
  std::uint64_t hash = 0;  ///< of its text
};

/// An index as a manifest tells it.
struct IndexRecord {
  std::uint64_t size = 0;
  std::uint64_t hash = 0;                                 ///< of "index.dat"
  std::set<std::pair<std::string, std::string>> entries;  ///< physical and logical names
};

/// What the steps share.
struct Demo {
  Options options;
  Report report;
  Host host;
  bool beyond_ascii = false;  ///< whether narrow names may hold more than ASCII
  std::string root;           ///< absolute, as the library takes it
  Collection sources;
  std::vector<Version> versions;
  std::vector<Part> parts;
  std::vector<Profile> profiles;
  std::map<std::string, IndexRecord> indexes;  ///< by folder below the storage; of a manifest
  std::size_t expected_errors = 0;             ///< error events that the step provokes on purpose

  /// A path below the root, as the library takes it.
  std::string below_root(const std::string& name) const { return root + "\\" + name; }
};

// ---- one document, in demo_versions.cpp
// ----------------------------------------------------------

/// @return whether vu_storage::OpenRead() serves this version: a corporate "kdf" document by its
/// exact timestamp, everything else from timestamp 0.
bool is_served(const Version& version);
/// Opens for reading as a client does: with OpenRead(), or, for a version that it does not serve,
/// through the answers of IsFileExist().
bool open_version(vu_storage& storage, vu_file& file, const Version& version);
/// @return whether the version could be opened; its bytes are in @p bytes then.
bool read_version(vu_storage& storage, const Version& version, std::string& bytes);
/// Writes a version with OpenWrite2(), large ones in pieces. @return whether the file opened.
bool write_version(vu_storage& storage, const Version& version, const std::string& bytes,
                   bool replace);
/// Writes a document that this program makes, checks that it can be read, and keeps it in the list
/// that the manifest is made of. @return its place there.
std::size_t add_version(Demo& demo, const std::string& owner, STG::RepositoryType type,
                        const std::string& entry, long stamp, const std::string& bytes);
/// Removes versions from that list.
void forget_versions(Demo& demo, const std::string& owner, const std::string& entry);
/// "kdf 'a b.kdf' of anna in docs at 17", for messages.
std::string name_of(const Version& version);
/// The name of the area's folder: "docs", "mail" or "user".
const char* area_of(STG::RepositoryType type);
/// @return the path of a version's file as the library takes it, empty when there is none.
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
/// Takes what a manifest tells. @throws Refusal when there is none or it is not usable.
void read_manifest(Demo& demo);
/// Compares the storage with it.
void verify(Demo& demo);
/// Prints the tree and some lines of an index.
void show_tree(Demo& demo);

}  // namespace demo
