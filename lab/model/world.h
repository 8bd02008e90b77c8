#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/model/text.h"
#include "lab/model/tree.h"

/// @file
/// The library's rules, written a second time over a tree in memory: step by step, without caches,
/// and without any code of the library.
namespace model {

/// The only exception of the file layer.
struct FileError {
  std::string text;
};

/// How a file is opened.
enum class Mode { kNone, kRead, kWrite, kAppend, kTruncate };

/// A changed rule, which the comparison must detect.
enum class Mutation {
  kNone,
  kLowercaseWholeName,  ///< adoption changes the whole name to lower case
  kOldestVersion,       ///< lastVersion returns the smallest timestamp
  kLastLineWins,        ///< of two lines with one key the last one is used
  kCounterSkipsTwo,     ///< the counter increases by two
  kEmptyIndexIsEmpty,   ///< an index without entries is an empty file
  kPlainHash,           ///< a negative hash loses its sign
  kAgeIsIgnored,        ///< a document that is too old is read
  kTabIsNoLineEnd,      ///< a tab does not end a line of a key file
  kCount
};

class World;

/// A file handle.
class File {
 public:
  explicit File(World& world) : m_world(world) {}
  File(World& world, std::string folder, std::string name)
      : m_world(world), m_folder(std::move(folder)), m_name(std::move(name)) {}

  bool is_open() const { return m_open; }
  std::string path() const { return m_folder + "\\" + m_name; }

  void open(Mode mode);
  void open(const std::string& folder, const std::string& name, Mode mode);
  int read(std::string& out, int count);
  int write(const std::string& data);
  void seek(int offset, int origin);
  void clear();
  void close() { m_open = false; }

 private:
  World& m_world;
  std::string m_folder;
  std::string m_name;
  Mode m_mode = Mode::kNone;
  bool m_open = false;
  std::size_t m_position = 0;
};

/// The index of a folder during one operation.
class Index {
 public:
  Index(World& world, const std::string& folder);
  /// Acts as the library's destructor: at the end of each operation, also after an exception.
  /// @return false if there is a change that cannot be saved.
  bool let_go();

  bool contains(const std::string& logical, std::int32_t stamp) const;
  std::string create(const std::string& logical, std::int32_t stamp);
  void remove(const std::string& logical, std::int32_t stamp);
  /// @return false if the copy failed.
  bool rename(const std::string& old_logical, std::int32_t old_stamp,
              const std::string& new_logical, std::int32_t new_stamp);

  Map lp;  ///< key -> stored name
  Map pl;  ///< stored name -> key
  bool needs_update = false;

 private:
  std::string new_name();
  bool goes(const std::string& name) const;
  bool is_valid(const std::string& its_key, const std::string& stored) const;
  bool is_anothers(const std::string& its_key, const std::string& stored) const;
  void take_back(const std::string& its_key, bool removes_file);
  bool already_in_maps(const std::string& name) const;
  void adopt(const std::string& name);
  void adopt_unknown();
  bool merge_and_save();
  bool remove_what_goes();

  World& m_world;
  const std::string m_folder;
  /// Files to remove after the save, and whether a failed removal is an error.
  std::map<std::string, bool> m_going;
  bool m_has_made_file = false;  ///< the last create()
};

class World {
 public:
  explicit World(const std::string& root, Mutation rule = Mutation::kNone)
      : tree(root), mutation(rule) {}

  Tree tree;
  const Mutation mutation;
  /// The traced errors; the caller clears them. "*" at the end means any text of the system.
  std::vector<std::string> errors;
  /// Seconds; ages are relative to it.
  std::int64_t now = 0;

  void error(const std::string& text) { errors.push_back(text); }

  // ---- the process ---------------------------------------------------------------------

  std::string server_folder;  ///< as the host returns it
  std::string binary_folder;
  bool initialised = false;
  bool use_domain = true;
  bool synchronises = true;
  std::string storage, docs, semlets, user, list, mail, config, part_stamp;

  /// Resets everything to the state of a new process.
  void forget();
  bool init_root(const std::string& root, bool domain, bool synchronise);
  void check_init();

  // ---- files (files.cpp) -----------------------------------------------------------------

  bool create_dir(const std::string& path);
  void make_if_missing(const std::string& path);
  bool chmod(const std::string& path);
  void remove(const std::string& path);
  bool copy_file(const std::string& from, const std::string& to, bool overwrite);
  bool recurse_remove(const std::string& path);
  /// The UTF-8 form, which reports failures.
  void remove_loudly(const std::string& path);
  std::uint64_t folder_size_in_kb(const std::string& path);
  std::string read_whole(const std::string& folder, const std::string& name);

  // ---- index (index.cpp, operations.cpp) ---------------------------------------------------

  bool valid_line(const std::string& folder, const std::string& key, const std::string& stored);
  void string_to_maps(const std::string& folder, const std::string& text, Map& lp, Map& pl);

  bool index_exists(const std::string& folder, const std::string& logical, std::int32_t stamp,
                    std::string& physical);
  std::string index_create(const std::string& folder, const std::string& logical,
                           std::int32_t stamp);
  void index_remove(const std::string& folder, const std::string& logical, std::int32_t stamp);
  void index_rename(const std::string& folder, const std::string& old_logical,
                    std::int32_t old_stamp, const std::string& new_logical, std::int32_t new_stamp);
  bool last_version(const std::string& folder, const std::string& logical, long& stamp);
  enum class Values { kPhysical, kLogical, kCategories, kDocuments };
  Map values(const std::string& folder, Values which);
  std::string physical_path(const std::string& folder, const std::string& logical);
  void update_index(const std::string& folder);

  // ---- cleaning and mail (index.cpp, owners.cpp) ------------------------------------------------

  /// Ages and paths of the kept documents. The age is -1 if it depends on the machine's clock.
  using Kept = std::vector<std::pair<std::int64_t, std::string>>;
  std::uint32_t clean(const std::string& folder, std::uint32_t limit, Kept& kept, bool by_access);
  void clean_directories(const std::string& folder, const std::string& name,
                         std::uint64_t* counter);
  void migrate(const std::string& owner);

  // ---- the facade (documents.cpp, owners.cpp) ---------------------------------------------

  bool owner_folder(const std::string& owner, const std::string& entry, int type, std::string& dir,
                    bool create);
  void open_read(File& file, const std::string& owner, const std::string& entry, int type,
                 std::int32_t stamp);
  bool open_write(File& file, const std::string& owner, const std::string& entry, int type,
                  bool replace, std::int32_t stamp);
  void read(File& file, std::string& buffer, int length);
  void write(File& file, const std::string& data);
  bool is_file_exist(const std::string& owner, const std::string& entry, int type,
                     std::int32_t stamp, std::string* folder, std::string* physical);
  long latest(const std::string& owner, const std::string& entry, int type);
  bool index_name(const std::string& folder, const std::string& entry, std::int32_t stamp,
                  std::string& physical);
  bool copy_to_storage(const std::string& source, const std::string& owner,
                       const std::string& entry, int type, bool replace, std::int32_t stamp);
  bool copy_from_storage(const std::string& target, const std::string& owner,
                         const std::string& entry, int type, std::int32_t stamp);
  bool copy_file_to_storage(const std::string& folder, const std::string& name,
                            const std::string& owner, int type);

  bool read_keys(File& file, Pairs& pairs, bool last_separator);
  long read_keys_file(const std::string& folder, const std::string& name, Pairs& pairs,
                      bool last_separator);
  bool write_keys_file(const std::string& folder, const std::string& name, const std::string& text,
                       bool replace);
  long save_profile(const std::string& owner, const std::string& name, const Pairs& pairs);
  long load_profile(const std::string& owner, const std::string& name, Pairs& pairs);

  void open_write_part(File& file, const std::string& owner, const std::string& entry,
                       const std::string& selector, const std::string& part, std::int32_t stamp);
  void open_read_part(File& file, const std::string& owner, const std::string& entry,
                      const std::string& selector, const std::string& part, std::int32_t stamp);

  bool rename_user(const std::string& old_name, const std::string& new_name);
  void remove_user(const std::string& name);
  bool remove_file(const std::string& owner, const std::string& entry, int type,
                   std::int32_t stamp);
  std::vector<std::string> all_files(const std::string& folder, std::vector<std::string>& physical);
  std::vector<std::string> documents(const std::string& folder, std::vector<std::string>& physical,
                                     const std::vector<std::string>* wanted);
  std::vector<Pair> existing_files(const std::string& folder);

 private:
  friend class File;
  friend class Index;

  void init_path();
  void delete_key_line(const std::string& folder, const std::string& logical,
                       const std::string& entry);
  void remove_from_categories(const std::string& folder, const std::string& entry);
  long save_key(const std::string& owner, const std::string& name, int type, const Pairs& pairs);
  long load_key(const std::string& owner, const std::string& name, int type, Pairs& pairs);
  int best_update_way(const std::string& owner, const std::string& entry,
                      const std::string& selector, const std::string& part, std::string& part_dir,
                      std::string& preload_dir, std::int32_t stamp);
};

}  // namespace model
