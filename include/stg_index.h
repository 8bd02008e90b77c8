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

/// The index of a storage folder: "index.dat", which maps a logical name and a timestamp to the
/// physical file that holds that version.
///
/// Order of calls: none. Clients use the public static operations, in any order, and never make an
/// object. Each operation loads the index of the folder it is given, asks or changes it in memory
/// and, when it changed, merges it with what is on disk by then and writes it back, before it
/// returns: a change is on disk when the operation is over, unless the save has failed (see below),
/// and no index, handle or lock outlives a call. While an operation runs it holds a shared lock on
/// an existing "index.dat" and for the rewrite an exclusive one.
///
/// Arguments: `folder` is a path without a trailing separator; `logical` a logical name with its
/// extension; `ts` a timestamp, seconds or any other stamp of the caller's between 0 and 2147483647
/// (32 bits in meaning on every platform; values outside are clamped). Names are used by plain
/// concatenation: separators, "..", wildcards, line feeds, NULs and the index's own file names are
/// the caller's to refuse.
///
/// Errors: a folder that does not exist is traced and behaves as an empty one. vu_file_except
/// leaves an operation when an existing "index.dat" cannot be opened or read, or when the rewritten
/// one cannot be read to its end before it is merged; one that cannot be opened for writing is
/// traced as a warning, and the change is lost. It is lost as well when the rewrite fails before
/// the new text is on the device, as on a full disk: the index holds its old entries, an error
/// tells ("write file : " or "Can't flush buffers", of the source "vu_file"), and the operation
/// returns as if it had not failed. Other traces carry the source name "stg_index".
///
/// Lines whose files nobody knows of: where the system fails to tell whether the file of a line is
/// there (an I/O error, a folder that may not be searched), an error names the line. A save keeps
/// it as it stands, a question passes it over, remove() and rename() leave it, create() gives its
/// stored name. As long as there is one, nothing is adopted, swept or migrated in that folder. All
/// other changes are saved.
///
/// Interruptions: an operation that ends with its process, or with the power, leaves every other
/// entry as it was; the next reader finds the entries from before the operation or those from after
/// it. See docs/reliability.md for the files that may be left over.
///
/// Blocking and threads are told as with vu_file: "the index" is "index.dat", its counter the file
/// "index". An operation that makes a missing "index.dat" or adopts files writes the index, and
/// waits for its readers, too. What threads and processes do to one folder is reconciled by the
/// merge; see docs/concurrency.md for what that does not cover.
///
/// @all_blocking{for writers of the index}
/// @all_threads{any; one at a time on one object}
class VU_STORAGE_API STGIndex : public vu_file {
 public:
  /// A map of names, in byte-wise order.
  using NameMap = std::map<std::string, std::string>;
  /// Ages in seconds, oldest first, with what has that age.
  using AgeMap = std::multimap<unsigned long, std::string, std::greater<unsigned long>>;

  /// Copies the loaded lines.
  /// @param other what is copied.
  /// @blocking{no}
  STGIndex(const STGIndex& other);
  /// Copies the loaded lines.
  /// @param other what is copied.
  /// @return this object.
  /// @blocking{no}
  STGIndex& operator=(const STGIndex& other);
  /// Writes the index back when it changed.
  /// @throws whatever reading, merging and writing raise, unless an exception that began after the
  /// construction is under way; then it is traced as an error and swallowed.
  /// @blocking{for writers and readers of the index when it changed}
  ~STGIndex() noexcept(false);

  // ---- operations ----------------------------------------------------------------------------

  /// Whether a version exists. A file that bears the logical name itself answers for every
  /// timestamp. A missing "index.dat" is created (and unknown files adopted, with synchronisation
  /// on); an existing one is only read.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts its timestamp.
  /// @param physical receives the physical file name when the name is found.
  /// @return whether the name is found and its file exists; false, with a warning, when "index.dat"
  /// cannot be opened.
  /// @throws vu_file_except when it cannot be read.
  static bool exists(const std::string& folder, const std::string& logical, long ts,
                     std::string& physical);
  /// Makes sure that a version exists, with an empty file when it is new. A file that bears the
  /// logical name itself is that version, whatever the timestamp, also where the system fails to
  /// tell whether there is one. A new file that a clean sweeps before the index names it is made
  /// again, with a warning.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts its timestamp.
  /// @return the physical file name, also when the save has failed (see the class).
  /// @throws vu_file_except as the class says, and when the new version's file cannot be made.
  /// @blocking{for writers of the index; for a new version for its readers and its counter, too}
  static std::string create(const std::string& folder, const std::string& logical, long ts);
  /// Removes a version and its file, and any other entry that leads to the same file; nothing when
  /// there is none. When the system refuses to remove the file, which is traced as an error, the
  /// version stays.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts its timestamp.
  /// @blocking{for writers of the index; for its readers, too, when there is something to remove}
  static void remove(const std::string& folder, const std::string& logical, long ts);
  /// Gives a version another name and timestamp; an existing version of that name is replaced.
  /// Nothing when old and new are equal or the old one does not exist. When its bytes cannot be
  /// copied both versions stay what they were, and the failure is traced as an error.
  ///
  /// The old version's file and that of a replaced version go within the save, under its lock:
  /// until then whoever reads finds the old versions, whole. What somebody writes to one of these
  /// files after the copy goes with it. So does another entry that leads to one of them. Where the
  /// system refuses to remove the replaced version's file, which is traced as an error, the renamed
  /// one stays under its old name as well.
  /// @param folder the folder.
  /// @param oldLogical,oldTs the version that is renamed.
  /// @param newLogical,newTs its new name and timestamp.
  /// @throws vu_file_except as create().
  /// @blocking{for writers of the index; for its readers and its counter, too, when the old version
  /// exists}
  static void rename(const std::string& folder, const std::string& oldLogical, long oldTs,
                     const std::string& newLogical, long newTs);
  /// Finds the latest version of a name.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @param ts receives its timestamp, 0 when there is none.
  /// @return whether there is one.
  static bool lastVersion(const std::string& folder, const std::string& logical, long& ts);
  /// Lists the folder.
  /// @param folder the folder.
  /// @param out receives physical file name -> logical name; cleared first.
  static void plValues(const std::string& folder, NameMap& out);
  /// Lists the folder.
  /// @param folder the folder.
  /// @param out receives logical name -> physical file name (of the smallest timestamp); cleared
  /// first.
  static void lpValues(const std::string& folder, NameMap& out);
  /// Lists the category files, those with the extension "ctg".
  /// @param folder the folder.
  /// @param out as with lpValues().
  static void getCategories(const std::string& folder, NameMap& out);
  /// Lists the documents, those with an extension from "kda" to "kdg".
  /// @param folder the folder.
  /// @param out as with plValues().
  static void getVUDocs(const std::string& folder, NameMap& out);
  /// As create() with timestamp 0: the file of an unversioned name, made when missing.
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @return the physical file name.
  /// @throws vu_file_except as create().
  /// @blocking{as create()}
  static std::string getPhysicalName(const std::string& folder, const std::string& logical);
  /// @param folder the folder.
  /// @param logical the logical name.
  /// @return folder + `\` + getPhysicalName().
  /// @throws vu_file_except as create().
  /// @blocking{as create()}
  static std::string getPhysicalPath(const std::string& folder, const std::string& logical);
  /// Rewrites "index.dat", or creates it, from what the folder holds.
  /// @param folder the folder.
  /// @blocking{for writers and readers of the index}
  static void updateIndexFile(const std::string& folder);

  // ---- cleaning and migration ----------------------------------------------------------------

  /// Removes the versions of a folder whose files have not been used for longer than a limit, with
  /// their sub-part folders, and sweeps away files and folders that no line of the index accounts
  /// for.
  /// @param folder taken as UTF-8 bytes; without a trailing separator.
  /// @param maxAge in seconds, 32 bits in meaning; 0 removes every version and sweeps nothing.
  /// @param kept receives, for every version that stays, its age in seconds and folder + `\` + key;
  /// never cleared.
  /// @param useAccessTime whether the last access counts, instead of the last modification.
  /// @return the number of versions removed, those included whose files the system refused to
  /// remove. A version of which the system does not tell whether its file is there stays and does
  /// not count, also with @p maxAge 0.
  /// @throws what loading the index and writing it back raise; vu_i18n_except when a path is not
  /// valid UTF-8.
  ///
  /// The sweep compares a name's time itself with @p maxAge, not its age: with any realistic limit
  /// every name that the index does not account for goes; one whose time the system fails to tell
  /// stays. A file that another process has made and not yet indexed is such a name, too; that
  /// process makes it again when it saves the index. docs/concurrency.md tells what a folder
  /// without "index.dat" can lose.
  ///
  /// What was written since the operation began is of age 0, and so is what the system tells no age
  /// of. A file that is missing is as old as 1970. With a limit other than 0 the age is asked once
  /// more directly before a version goes: one that was written meanwhile stays.
  /// @blocking{for writers of the index; for its readers, too, when a version is removed}
  static unsigned long cleanOutOfDateOutput(const std::string& folder, const unsigned long& maxAge,
                                            AgeMap& kept, bool useAccessTime);
  /// Removes every version of a folder with its file and its sub-part folders.
  /// @param folder as with cleanOutOfDateOutput().
  /// @throws as cleanOutOfDateOutput().
  /// @blocking{as cleanOutOfDateOutput()}
  static void cleanAllOutput(const std::string& folder);
  /// Removes the sub-part folders of one document: every folder whose name begins with @p name +
  /// "_".
  /// @param folder the folder, taken as UTF-8 bytes; without a trailing separator.
  /// @param name the document's physical file name.
  /// @param counter may be null; receives the size of what is removed in KB, before the removal.
  /// @throws vu_i18n_except when a path is not valid UTF-8. A folder that stays is traced as an
  /// error.
  /// @blocking{no}
  static void cleanOutputDirectories(const std::string& folder, const std::string& name,
                                     unsigned long* counter);
  /// Converts a user's mail folder once from escaped names to index entries, and its read list
  /// ("read.txt") with it; an entry "k1mailboxcompliant" marks a converted folder, which is left
  /// alone. Initialises the storage (vu_storage) when nobody has. An empty user is refused with a
  /// warning.
  /// @param user the owner of the mail folder.
  /// @throws vu_file_except when the index cannot be read, the read list neither read nor written,
  /// or a file not be made; what was done so far is kept and a further call goes on from there. The
  /// read list is written last, when the folder is marked already: one that cannot be opened then
  /// keeps the escaped names, one whose write fails is left empty, and no further call mends it.
  /// @blocking{for writers of the mail folder's index; when it converts, also for the index's
  /// readers and counter, and for writers and readers of the read list}
  static void migrateInboxRead(const std::string& user);

  /// Sets the synchronisation switch: whether loading an index adopts the files of its folder that
  /// it does not name. On until set otherwise; vu_storage::initRootStorage() sets it once.
  /// @param synchronize whether unknown files are adopted.
  /// @blocking{no} @threads{any, at any time; operations that have begun keep what they found}
  static void setSynchronizeMode(bool synchronize);

  // ---- names ---------------------------------------------------------------------------------

  /// @param name a logical name.
  /// @return whether @p name holds nothing but digits, ASCII letters and the characters - _ + % . /
  /// #
  /// @blocking{no}
  static bool iSsambaOrT101(const std::string& name);
  /// Decodes %XY and + in @p name up to its last "."; hexadecimal digits are not checked, and a
  /// trailing incomplete %XY is dropped.
  /// @param name changed in place.
  /// @blocking{no}
  static void UnescapeVU(std::string& name);

 protected:
  /// The same on a listing of the folder.
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
