#pragma once

#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "vu_export.h"
#include "vu_file.h"
#include "vu_i18n.h"

class IndexState;

VU_STORAGE_TYPES_BEGIN

/// The index of a storage folder: the file "index.dat". It maps a logical name and a timestamp to
/// the file that contains that version.
///
/// Programs call the public static operations, in any order, and never create an object. Each
/// operation loads the index of its folder, and holds a shared lock on an existing "index.dat"
/// while it runs. After a change it takes an exclusive lock, merges its entries with the current
/// text of "index.dat" and saves the result. Unless the save fails (see Errors), the change is on
/// disk when the operation returns. No index, open file or lock outlives an operation.
///
/// Arguments: `folder` is a path without a trailing separator, `logical` a logical name with its
/// extension. A physical name is that of a file in the folder, with its extension: "00000001.kdc".
/// `ts` is a timestamp: any number from 0 to 2147483647 that the caller chooses; greater
/// ones are clamped, and negative ones are not supported. The library appends names to paths
/// unchecked. The caller has to refuse separators, "..", wildcards, line feeds, NULs and the names
/// of the index's own files.
///
/// Errors: a missing folder is traced and treated as empty. An operation throws vu_file_except if
/// an existing "index.dat" cannot be opened or read to its end. If it cannot be opened for writing,
/// that is traced as a warning. The save can also fail before the new text is on the device, for
/// example on a full disk. That is traced as an error ("write file : " or "Can't flush buffers",
/// source "vu_file"). In both cases the index keeps its old entries, the change is lost, and the
/// operation returns normally. All other traces have the source name "stg_index".
///
/// Unknown entries: error traces name the first eight. A save keeps them, reads skip them, remove()
/// and rename() leave them alone, and create() returns the stored physical name. As long as a
/// folder has one, nothing is adopted, swept or migrated there. All other changes are saved.
///
/// Crash safety: an operation that is interrupted by the end of its process or a power failure
/// changes no other entry. Readers then find either the entries from before the operation or those
/// from after it. The next save completes an interrupted save and drops dangling entries. Orphans
/// can remain: with synchronisation on, the next operation that loads the index adopts them;
/// otherwise cleanOutOfDateOutput() sweeps them. docs/reliability.md has the whole list.
///
/// Blocking and threads: vu_file explains the words. "The index" is "index.dat"; its counter is the
/// file "index". An operation that creates a missing "index.dat" or adopts orphans writes the
/// index, and waits for its readers too. The merge reconciles changes that other threads and
/// processes make in the folder; docs/concurrency.md lists the exceptions.
///
/// @all_blocking{for writers of the index}
/// @all_threads{any; one at a time on one object}
class VU_STORAGE_API STGIndex : public vu_file {
 public:
  /// A map of names, in byte-wise order.
  using NameMap = std::map<std::string, std::string>;
  /// Ages in seconds, oldest first, each with folder + `\` + key.
  using AgeMap = std::multimap<unsigned long, std::string, std::greater<unsigned long>>;

  /// Copies the loaded entries.
  /// @param other the source.
  /// @blocking{no}
  STGIndex(const STGIndex& other);
  /// Copies the loaded entries.
  /// @param other the source.
  /// @return this object.
  /// @blocking{no}
  STGIndex& operator=(const STGIndex& other);
  /// Saves the index if it changed.
  /// @throws what reading, merging and writing throw. If an exception that was thrown after the
  /// construction is unwinding, the destructor traces an error instead.
  /// @blocking{for readers and writers of the index, if it changed}
  ~STGIndex() noexcept(false);

  // ---- operations ----------------------------------------------------------------------------

  /// Checks whether a version exists. A file that is named exactly like the logical name is found
  /// as every version of it. A missing "index.dat" is created (with synchronisation on, orphans are
  /// adopted); an existing one is only read.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts its timestamp.
  /// @param physical receives the physical name if the key is found.
  /// @return whether the key is found and its file exists. False, with a warning, if "index.dat"
  /// cannot be opened.
  /// @throws vu_file_except if it cannot be read.
  static bool exists(const std::string& folder, const std::string& logical, long ts,
                     std::string& physical);
  /// Makes sure that a version exists; a new one gets an empty file. A file that is named exactly
  /// like the logical name is that version. If the system cannot tell whether such a file exists,
  /// the version is looked up in the index or created. If a clean sweeps the new file before the
  /// index names it, the save creates it again, with a warning.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts its timestamp.
  /// @return the physical name, also if the save failed (see the class).
  /// @throws vu_file_except as the class says, and if the file of a new version cannot be created.
  /// @blocking{for writers of the index; for a new version also for its readers and its counter}
  static std::string create(const std::string& folder, const std::string& logical, long ts);
  /// Removes a version, its file, and all other entries with the same file. Does nothing if the
  /// version does not exist. If the system refuses to remove the file, that is traced as an error
  /// and the version stays.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts its timestamp.
  /// @blocking{for writers of the index; if there is something to remove, also for its readers}
  static void remove(const std::string& folder, const std::string& logical, long ts);
  /// Changes the name and the timestamp of a version; an existing version with the new name and
  /// timestamp is replaced. Does nothing if both are equal or the old version does not exist.
  ///
  /// The bytes are copied to a new file first. If that copy fails, both versions stay unchanged,
  /// and an error is traced. The save then removes the old version's file and that of the replaced
  /// version, under its lock. Until then readers find the old versions, complete. Bytes that
  /// another program writes to these files after the copy are lost. Other entries with one of these
  /// files are removed, too. If the system refuses to remove the replaced version's file, an error
  /// is traced, and the renamed version also stays under its old name.
  /// @param folder the folder.
  /// @param oldLogical,oldTs the version to rename.
  /// @param newLogical,newTs its new name and timestamp.
  /// @throws vu_file_except as create().
  /// @blocking{for writers of the index; if the old version exists, also for its readers and its
  /// counter}
  static void rename(const std::string& folder, const std::string& oldLogical, long oldTs,
                     const std::string& newLogical, long newTs);
  /// Finds the latest version of a name.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts receives its timestamp; 0 if there is none.
  /// @return whether there is one.
  static bool lastVersion(const std::string& folder, const std::string& logical, long& ts);
  /// Lists the valid entries of the folder by physical name.
  /// @param folder the folder.
  /// @param out receives physical name -> logical name; cleared first.
  static void plValues(const std::string& folder, NameMap& out);
  /// Lists the valid entries of the folder by logical name.
  /// @param folder the folder.
  /// @param out receives logical name -> physical name (of the smallest timestamp); cleared first.
  static void lpValues(const std::string& folder, NameMap& out);
  /// Lists the category files: names with the extension "ctg".
  /// @param folder the folder.
  /// @param out as with lpValues().
  static void getCategories(const std::string& folder, NameMap& out);
  /// Lists the documents: names with an extension from "kda" to "kdg".
  /// @param folder the folder.
  /// @param out as with plValues().
  static void getVUDocs(const std::string& folder, NameMap& out);
  /// Calls create() with timestamp 0, for names without versions.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @return the physical name.
  /// @throws vu_file_except as create().
  /// @blocking{as create()}
  static std::string getPhysicalName(const std::string& folder, const std::string& logical);
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @return folder + `\` + getPhysicalName().
  /// @throws vu_file_except as create().
  /// @blocking{as create()}
  static std::string getPhysicalPath(const std::string& folder, const std::string& logical);
  /// Saves the index, or creates it, even if no entry changes: dangling entries are dropped and,
  /// with synchronisation on, orphans are adopted.
  /// @param folder the folder.
  /// @blocking{for readers and writers of the index}
  static void updateIndexFile(const std::string& folder);

  // ---- cleaning and migration ----------------------------------------------------------------

  /// Cleans a folder: removes the versions that are older than a limit, with their sub-part
  /// folders. Then sweeps the folder: removes the files and folders that belong to no entry.
  /// @param folder taken as UTF-8 bytes; without a trailing separator.
  /// @param maxAge the limit in seconds, 32 bits; 0 removes every version and sweeps nothing.
  /// @param kept receives an element for each version that stays: its age in seconds, and folder +
  /// `\` + key. Never cleared.
  /// @param useAccessTime whether age is the time since the last access, not since the last change.
  /// @return the number of versions removed. It includes versions whose file the system refused to
  /// remove. An unknown entry stays and is not counted, also with @p maxAge 0.
  /// @throws what loading and saving the index throw; vu_i18n_except if @p folder is not valid
  /// UTF-8.
  ///
  /// Ages: a version written after the operation began, one whose age the system cannot tell, and
  /// one whose file name is not valid UTF-8 have the age 0. The age of a missing file is the time
  /// since 1970. If the limit is not 0, the age is checked again directly before the removal: a
  /// version that was just written stays.
  ///
  /// The sweep compares the time of an orphan (seconds since 1970), not its age, with @p maxAge.
  /// With a realistic limit it therefore removes every orphan, also a new one. It keeps an orphan
  /// whose time the system cannot tell, or whose name is not valid UTF-8. It can remove a file that
  /// another process has created but not yet entered in the index. That process creates the file
  /// again when it saves. For folders without "index.dat" see docs/concurrency.md.
  /// @blocking{for writers of the index; if a version is removed, also for its readers}
  static unsigned long cleanOutOfDateOutput(const std::string& folder, const unsigned long& maxAge,
                                            AgeMap& kept, bool useAccessTime);
  /// Removes every version of a folder, with its file and its sub-part folders.
  /// @param folder as with cleanOutOfDateOutput().
  /// @throws as cleanOutOfDateOutput().
  /// @blocking{as cleanOutOfDateOutput()}
  static void cleanAllOutput(const std::string& folder);
  /// Removes the sub-part folders of one document: every folder whose name begins with @p name +
  /// "_".
  /// @param folder the folder, taken as UTF-8 bytes; without a trailing separator.
  /// @param name the document's physical name.
  /// @param counter may be null; receives the size in KB of what is to be removed.
  /// @throws vu_i18n_except if a path is not valid UTF-8. A folder that cannot be removed is traced
  /// as an error.
  /// @blocking{no}
  static void cleanOutputDirectories(const std::string& folder, const std::string& name,
                                     unsigned long* counter);
  /// Migrates a user's mail folder and its read list ("read.txt"): escaped names become entries of
  /// the index. The entry "k1mailboxcompliant" marks a migrated folder, which is left alone.
  /// Initialises the storage (vu_storage) if necessary. An empty user is refused with a warning.
  /// @param user the owner of the mail folder.
  /// @throws vu_file_except if the index cannot be read, a file cannot be created, or the read list
  /// cannot be read or written. What was done stays done; another call continues.
  ///
  /// A migration is not begun if the index cannot be written. A mail is left as it is, with a
  /// warning, if the index or the system cannot have its unescaped name. If another mail cannot be
  /// renamed, the folder is not marked.
  ///
  /// The read list is written last, when the folder is already marked. If the index could not be
  /// saved, it is left alone. If it cannot be opened for writing, it keeps the escaped names. If
  /// the write fails, it is left empty. Another call does not repair the last two.
  /// @blocking{for writers of the mail folder's index; for a migration also for its readers, its
  /// counter, and readers and writers of the read list}
  static void migrateInboxRead(const std::string& user);

  /// Switches synchronisation on or off. It is on at the start; vu_storage::initRootStorage() sets
  /// it once.
  /// @param synchronize whether orphans are adopted. A new file is an orphan, too, until the
  /// process that created it saves its entry: docs/concurrency.md (story 21).
  /// @blocking{no} @threads{any, at any time; operations that have begun keep what they found}
  static void setSynchronizeMode(bool synchronize);

  // ---- names ---------------------------------------------------------------------------------

  /// @param name a logical name.
  /// @return whether @p name contains only digits, ASCII letters and the characters - _ + % . / #
  /// @blocking{no}
  static bool iSsambaOrT101(const std::string& name);
  /// Decodes %XY and + in @p name up to its last ".". It does not check hexadecimal digits, and
  /// drops an incomplete %XY at the end.
  /// @param name changed in place.
  /// @blocking{no}
  static void UnescapeVU(std::string& name);

 protected:
  /// As the public function, on a listing of the folder.
  /// @param folder ends in a separator.
  /// @param names the listing.
  /// @param name as above.
  /// @param counter as above.
  static void cleanOutputDirectories(const vu_utf8string& folder,
                                     const std::vector<vu_utf8string>& names,
                                     const std::string& name, unsigned long* counter);

 private:
  friend struct IndexGate;

  STGIndex();
  explicit STGIndex(const std::string& folder);

  bool _contains(const std::string& logical, long ts) const;
  std::string _create(const std::string& logical, long ts);
  void _remove(const std::string& logical, long ts);
  bool _rename(const std::string& oldLogical, long oldTs, const std::string& newLogical,
               long newTs);
  std::string newIndex();
  bool alreadyInMaps(const std::string& fileName) const;
  void add_not_referenced_entry(const std::string& fileName);
  void synchronizeToFolder();
  void saveIndexFile();

  static bool synchronizes();
  static void checkIndexFile(const std::string& folder);
  static std::string entryAndTS(const std::string& logical, long ts);
  static std::string entryOnly(const std::string& key);
  static long tsOnly(const std::string& key);
  static std::string extension(const std::string& name);
  static bool validIndexLine(const std::string& folder, const std::string& key,
                             const std::string& physical);
  static void string2Maps(const std::string& folder, std::string text, NameMap& lp, NameMap& pl);
  static std::string lName(NameMap::const_iterator it);
  static long ts(NameMap::const_iterator it);
  static std::string pName(NameMap::const_iterator it);

  std::string m_folder;
  bool m_needUpdate = false;
  std::unique_ptr<IndexState> m_state;  // both maps of names, and what was loaded

  static bool m_autoSynchronizeToFolder;
};

VU_STORAGE_TYPES_END
