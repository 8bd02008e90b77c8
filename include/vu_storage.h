#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "stg_types.h"
#include "vu_export.h"
#include "vu_file.h"
#include "vu_i18n.h"

VU_STORAGE_TYPES_BEGIN

/// The facade of the local repository storage: documents, key files and folders by owner, logical
/// name, version and area.
///
/// Order of calls: initRootStorage() once, before anything else (the constructor and the getters
/// included). Every other operation first makes sure that the storage is initialised, and does so
/// under the server temporary folder (vu_host::temporary_files) when nobody has. Then any
/// operation, in any order: each leaves the folder and its index as the next one needs them. What
/// OpenRead(), OpenWrite2() and the operations on parts open, the caller reads or writes through
/// Read() and Write() and ends with Close().
///
///     vu_storage::initRootStorage("/srv/data", true, false);
///     vu_storage storage;
///     vu_file file;
///     if (storage.OpenWrite2(file, "alice", "letter.kdc", STG::UserRepository, true, 0)) {
///       if (file.is_open()) storage.Write(file, "text");
///       storage.Close(file);
///     }
///
/// The objects carry no data: the state is the process's, so one object serves as well as many.
///
/// Arguments that recur: `userOrDomain` is the owner's name and selects the owner's folder unless
/// all owners share one (initRootStorage()); `entry` is the document's logical name, extension
/// included; `type` the area; `timestamp` the version, seconds since 1970-01-01 UTC, 32 bits in
/// meaning on every platform. Names are used by plain concatenation: separators, ".." and wildcards
/// are the caller's to refuse. The overloads for vu_utf8string copy the UTF-8 bytes unchanged, up
/// to their first NUL, and call the narrow form.
///
/// Errors: failures are traced under the source name "vu_storage", and an operation answers false,
/// 1 (0 is success), -1 or a file that is not open; the exceptions that do leave an operation are
/// named with it. "Those of the initialisation" are what vu_host::temporary_files throws, and can
/// be met only while nobody has initialised the storage. What opens a file leaves the caller's
/// handle closed when it opens nothing, also one that came open. Where the index of a folder cannot
/// be opened for writing or rewritten, as on a full disk, the change is lost and traced (STGIndex),
/// and the operation goes on: success says nothing about the save of an index.
///
/// Paths that the library gives out have backslashes, on Linux as well ("/srv/data\storage\docs"):
/// every operation of the library takes them so; other libraries there want "/"
/// (docs/host-guide.md).
///
/// Blocking and threads are told as with vu_file; "the index" is that of the document's folder, as
/// with STGIndex. While one thread initialises the storage the operations of all others wait for
/// it; "no" leaves that aside.
///
/// @all_blocking{no}
/// @all_threads{any, each with a handle of its own; one at a time on one handle}
class VU_STORAGE_API vu_storage {
 public:
  /// Initialises the storage when nobody has. The object carries no data.
  /// @throws those of the initialisation (see the class).
  vu_storage();
  /// Does nothing.
  ~vu_storage();
  /// Copies nothing.
  vu_storage(const vu_storage&) = default;
  /// Copies nothing.
  /// @param other any.
  /// @return this object.
  vu_storage& operator=(const vu_storage& other);

  // ---- roots ---------------------------------------------------------------------------------

  /// Initialises the storage below @p root: the folder "storage" with one folder per area, made
  /// when missing (@p root itself must exist).
  /// @param root an existing folder, without a trailing separator.
  /// @param useDomain whether every owner gets a folder of its own in each area.
  /// @param synchronize whether files that appear in a folder behind the index are adopted into it.
  /// @return true when this call initialised; false, with an error trace, when the storage was
  /// initialised already, and without one when another thread initialised it while this one waited.
  /// True also when a folder could not be made, and when an exception left the storage not
  /// initialised, as one of the host's configuration does; both are traced. After such an exception
  /// the next operation initialises anew, below the server temporary folder, and true from a
  /// further call may mean another root than an operation took in between: getStoragePath() tells
  /// the one in force.
  /// @blocking{while another thread initialises the storage}
  static bool initRootStorage(const std::string& root, bool useDomain, bool synchronize);

  /// @return the root storage folder; as all getters a reference that stays valid, to a string
  /// that, but for getTdcTimeStamp(), does not change.
  /// @throws those of the initialisation (see the class), as all getters.
  static const std::string& getStoragePath();
  /// @return the folder of the corporate area.
  static const std::string& getCorpPath();
  /// @return the folder of the user area.
  static const std::string& getUserPath();
  /// @return the folder for lists.
  static const std::string& getListPath();
  /// @return the configuration folder: "config" in the product's binary folder; never made here.
  static const std::string& getConfigDirPath();
  /// @return the folder of the mail area.
  static const std::string& getMailPath();
  /// @return the folder for semlets.
  static const std::string& getSemletPath();
  /// @return the stamp set by setTdcTimeStamp(), empty before.
  /// @threads{any, while none calls setTdcTimeStamp()}
  static const std::string& getTdcTimeStamp();
  /// Sets the stamp that is part of the names of documents' sub-part folders.
  /// @param value the stamp.
  /// @threads{one, while no other one uses the storage}
  static void setTdcTimeStamp(const std::string& value);

  /// Computes the folder of a document, and makes it when asked to. The area folder is made in any
  /// case.
  /// @param userOrDomain,entry,type the document (see the class).
  /// @param dir receives the folder, without a trailing separator.
  /// @param create whether the owner's folder and the hash bucket are made when missing.
  /// @return false when a folder is missing and @p create is false, or after an exception, which is
  /// traced; true with @p create also when a folder could not be made, which is traced as well.
  /// @throws those of the initialisation (see the class), and what the system raises while the area
  /// folder is asked for or made: no memory, in practice.
  static bool createUserOrDomainNameDirectory(const std::string& userOrDomain,
                                              const std::string& entry, STG::RepositoryType type,
                                              std::string& dir, bool create);
  /// @param ext the extension.
  /// @return whether @p ext, without its dot, is one of the seven document extensions "kda" to
  /// "kdg".
  /// @throws those of the initialisation (see the class).
  static bool isVuDocExt(const std::string& ext);

  // ---- documents -----------------------------------------------------------------------------

  /// Opens a document for reading; tell success by vu_file::is_open(). Corporate documents with the
  /// extension "kdf" must match @p timestamp exactly. Everything else is served only when it was
  /// stored with timestamp 0: other corporate documents when their file is at least as new as @p
  /// timestamp, mail and user documents whatever their age. No exception leaves it.
  /// @param file receives the open handle; closed when there is nothing to serve. The caller's,
  /// closed by Close() or its destructor.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @blocking{for writers of the index, then for writers of the document}
  void OpenRead(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                STG::RepositoryType type, long timestamp);
  /// @copydoc OpenRead(vu_file&, const std::string&, const std::string&, STG::RepositoryType, long)
  void OpenRead(vu_file& file, const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                STG::RepositoryType type, long timestamp);
  /// Opens a version of a document for writing, making it and its folders when missing; an existing
  /// one is emptied when @p replace is true and left closed otherwise. Replacing takes away what
  /// was made for the old content: for type 1 the document's lines in the folder's category files,
  /// for type 2 the folder with its parts. When the owner's folder cannot be resolved it goes on,
  /// and fails when the file is to be made. No exception leaves it.
  /// @param file receives the open handle; closed when nothing was opened. The caller's, closed by
  /// Close() or its destructor.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param replace whether an existing version is emptied.
  /// @return true when no error occurred, also when the file was left closed, and when the entry of
  /// a new version could not be saved (see the class); false for an empty entry and after another
  /// traced error.
  /// @blocking{for writers of the index, for a new version for its readers and its counter, too;
  /// then for writers and readers of the document, and with @p replace and type 1 of the category
  /// files, too}
  bool OpenWrite2(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                  STG::RepositoryType type, bool replace, long timestamp);
  /// As OpenWrite2(), without its result.
  /// @param file receives the open handle; tell success by vu_file::is_open().
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param replace whether an existing version is emptied.
  /// @blocking{as OpenWrite2()}
  void OpenWrite(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                 STG::RepositoryType type, bool replace, long timestamp);
  /// @copydoc OpenWrite(vu_file&, const std::string&, const std::string&, STG::RepositoryType,
  /// bool, long)
  void OpenWrite(vu_file& file, const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                 STG::RepositoryType type, bool replace, long timestamp);
  /// Reads from an open file. No exception leaves it.
  /// @param file open for reading.
  /// @param buffer receives the bytes, none on an error.
  /// @param length bytes to read, 0 for the whole file.
  void Read(vu_file& file, std::string& buffer, long length);
  /// Writes to an open file; errors are traced only, and no exception leaves it.
  /// @param file open for writing.
  /// @param data the bytes.
  void Write(vu_file& file, const std::string& data);
  /// Closes a file. If it was open for writing it is on the device when this returns, unless the
  /// system refused to write it: that is traced as an error ("Can't flush buffers") and nothing
  /// else, so a program that has to know needs a sink for errors.
  /// @param file open or closed; closed afterwards, whatever happens.
  /// @throws those of the initialisation (see the class) but for vu_file_except, which is traced.
  /// @blocking{while the system writes the file to the device; for no lock}
  void Close(vu_file& file);
  /// Whether a version exists. No exception leaves it.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param folderOut, physicalOut receive its folder and physical file name when it does; either
  /// may be null.
  /// @return whether it does; false also for an empty owner.
  /// @blocking{for writers of the index}
  bool IsFileExist(const std::string& userOrDomain, const std::string& entry,
                   STG::RepositoryType type, long timestamp, std::string* folderOut,
                   std::string* physicalOut);
  /// @copydoc IsFileExist(const std::string&, const std::string&, STG::RepositoryType, long,
  /// std::string*, std::string*)
  bool IsFileExist(const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                   STG::RepositoryType type, long timestamp, std::string* folderOut,
                   std::string* physicalOut);
  /// @param userOrDomain,entry,type the document (see the class).
  /// @return the latest timestamp of a document, -1 when the entry is empty or the folder missing,
  /// 0 when the folder holds no version.
  /// @throws what STGIndex::lastVersion() throws, and as createUserOrDomainNameDirectory().
  /// @blocking{for writers of the index}
  static long getLattestTimestamp(const std::string& userOrDomain, const std::string& entry,
                                  STG::RepositoryType type);
  /// STGIndex::exists() with its exceptions turned into false.
  /// @param folder the folder, without a trailing separator.
  /// @param entry the logical name.
  /// @param timestamp its timestamp.
  /// @param physical receives the physical file name when it is found.
  /// @return whether it is found.
  /// @blocking{for writers of the index}
  static bool getIndexNameFromDocName(const std::string& folder, const std::string& entry,
                                      long timestamp, std::string& physical);
  /// STGIndex::updateIndexFile().
  /// @param folder the folder, without a trailing separator.
  /// @throws what that throws, and those of the initialisation (see the class).
  /// @blocking{for writers and readers of the index}
  void update_IndexDat(const std::string& folder);
  /// Copies a file into the storage as a version of a document.
  /// @param source the path of the file that is copied.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param replace whether an existing version is replaced.
  /// @return whether the copy succeeded, though the entry of a new version may not have been saved
  /// (see the class); after a copy that failed the version is empty or gone. Always false with @p
  /// replace false, which makes a missing version, empty, and leaves another alone.
  /// @throws those of the initialisation (see the class), and std::bad_alloc; a vu_file_except
  /// never.
  /// @blocking{as OpenWrite2(); the copy itself for nobody: it fails at once when a lock is in its
  /// way}
  static bool copyToStorage(const std::string& source, const std::string& userOrDomain,
                            const std::string& entry, STG::RepositoryType type, bool replace,
                            long timestamp);
  /// Copies a document that OpenRead() would serve to an ordinary path, overwriting.
  /// @param destination the path of the copy.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @return whether the copy succeeded.
  /// @throws as copyToStorage().
  /// @blocking{as OpenRead(); the copy itself for nobody: it fails at once when a lock is in its
  /// way}
  static bool copyFromStorage(const std::string& destination, const std::string& userOrDomain,
                              const std::string& entry, STG::RepositoryType type, long timestamp);
  /// Stores a file under its own name with timestamp 0, replacing an earlier one, and writes the
  /// index. When the owner's folder cannot be resolved it goes on, and the index throws.
  /// @param sourceFolder where the file is, without a trailing separator.
  /// @param name its name, and the document's.
  /// @param userOrDomain,type the owner and the area.
  /// @return whether the copy succeeded, though its entry may not have been saved (see the class).
  /// @throws what STGIndex::remove(), create() and updateIndexFile() throw, and as
  /// createUserOrDomainNameDirectory().
  /// @blocking{for writers and readers of the index and for its counter}
  bool copyFileToStorage(const std::string& sourceFolder, const std::string& name,
                         const std::string& userOrDomain, STG::RepositoryType type);
  /// @copydoc copyFileToStorage(const std::string&, const std::string&, const std::string&,
  /// STG::RepositoryType)
  bool copyFileToStorage(const std::string& sourceFolder, const std::string& name,
                         const vu_utf8string& userOrDomain, STG::RepositoryType type);
  /// copyFileToStorage() into the user area (type 1).
  /// @param sourceFolder,name,userOrDomain as with copyFileToStorage().
  /// @return whether the copy succeeded.
  /// @throws what STGIndex::remove(), create() and updateIndexFile() throw, and as
  /// createUserOrDomainNameDirectory().
  /// @blocking{as copyFileToStorage()}
  bool copyFileToUserPath(const std::string& sourceFolder, const std::string& name,
                          const std::string& userOrDomain);

  // ---- key files -----------------------------------------------------------------------------

  /// @param seq the lines.
  /// @return the text of a key file: name + "=" + value + line feed for each line. No exception
  /// leaves it; without memory for it the text is empty, which is traced.
  /// @threads{any, while none changes @p seq}
  static std::string getStringFromNameValueSeq(const STG::NameValueSeq& seq);
  /// Reads key lines from an open file.
  /// @param file open for reading.
  /// @param seq the lines are appended.
  /// @param lastSeparator whether the last "=" of a line separates, instead of the first.
  /// @return false when an exception occurred, after which lines read so far stay.
  static bool Read(vu_file& file, STG::NameValueSeq& seq, bool lastSeparator);
  /// Reads a key file; as Read(vu_file&, STG::NameValueSeq&, bool).
  /// @param folder the folder, without a trailing separator.
  /// @param fileName the file's name in it.
  /// @param seq the lines are appended.
  /// @param lastSeparator as with Read().
  /// @return 0, or 1 on failure.
  /// @blocking{for writers of the file}
  static long readKeysFile(const std::string& folder, const std::string& fileName,
                           STG::NameValueSeq& seq, bool lastSeparator);
  /// Writes a text to a key file, as it stands. An empty text changes nothing and is a success.
  /// @param folder the folder, without a trailing separator.
  /// @param fileName the file's name in it; made when missing.
  /// @param text the lines, as getStringFromNameValueSeq() gives them.
  /// @param replace whether it replaces the file's content, instead of being appended.
  /// @return false, with an error trace, when the file cannot be opened; true also when the
  /// system's write fails, which is traced and leaves the file cut short.
  /// @blocking{for writers and readers of the file}
  static bool writeKeysFile(const std::string& folder, const std::string& fileName,
                            const std::string& text, bool replace);

  // ---- profiles ------------------------------------------------------------------------------

  /// Saves a profile: a user's as a key file in the user area, or, without a user, the master
  /// profile as a plain file in the configuration folder.
  /// @param userOrDomain the owner, or empty for the master profile.
  /// @param fileName "profile.txt" when empty.
  /// @param seq the lines.
  /// @return 0, also when nothing could be written, which is traced; 1 after a vu_file_except.
  /// @throws those of the initialisation (see the class) but for vu_file_except, and
  /// std::bad_alloc.
  /// @blocking{for a user as STGIndex::create(); then for writers and readers of the profile's
  /// file}
  static long saveUserOrMasterProfile(const std::string& userOrDomain, const std::string& fileName,
                                      const STG::NameValueSeq& seq);
  /// Loads a profile.
  /// @param userOrDomain the owner, or empty for the master profile.
  /// @param fileName for a user the name it was saved under (an empty one is never found); for the
  /// master profile, when empty, "profile.txt" or, where that is missing, "master.txt".
  /// @param seq the lines are appended.
  /// @return 0, or 1 when there is no such profile; when its file cannot be read, 0 for a user and
  /// 1 for the master profile.
  /// @throws as saveUserOrMasterProfile().
  /// @blocking{for a user for writers of the index; then for writers of the profile's file}
  static long loadUserOrMasterProfile(const std::string& userOrDomain, const std::string& fileName,
                                      STG::NameValueSeq& seq);

  // ---- sub-parts of documents ----------------------------------------------------------------

  /// Opens a part of a corporate document for writing, emptied; tell success by vu_file::is_open().
  /// The part lies in the folder of the document's file + "_" + stamp (setTdcTimeStamp()). No
  /// exception leaves it. The parts of an empty owner are written below `docs\_` like those of any
  /// other, but never read back: OpenReadSubPart() finds no document without an owner.
  /// @param file receives the open handle; closed when nothing was opened.
  /// @param userOrDomain,entry the document (see the class).
  /// @param strType the rendition: "html@" + name, "pdf@" + name, or another text; written to a
  /// folder per side of its first "@".
  /// @param strPartId the part's file name.
  /// @param docTime the document's timestamp, under which it must be in the index.
  /// @blocking{for writers of the index, then for writers and readers of the part}
  void OpenWriteSubPart(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                        const std::string& strType, const std::string& strPartId, long docTime);
  /// @copydoc OpenWriteSubPart(vu_file&, const std::string&, const std::string&,
  /// const std::string&, const std::string&, long)
  void OpenWriteSubPart(vu_file& file, const vu_utf8string& userOrDomain,
                        const vu_utf8string& entry, const std::string& strType,
                        const std::string& strPartId, long docTime);
  /// Opens a part of a corporate document for reading when it is up to date, after refreshing it
  /// from its preload copy when that is newer. A file that is not open afterwards tells the caller
  /// to generate the part and store it with OpenWriteSubPart(). No exception leaves it.
  ///
  /// The preload copy of a part bears its name and lies in the folder `preload`: of `html` and
  /// `pdf` beside the renditions of that kind, for every other rendition beside its folder. No
  /// operation of the library writes there. A part is up to date when it is as new as its preload
  /// copy and as the document; parts of a document with the extension "kdf" always are, and their
  /// preload copies are not looked at.
  ///
  /// While it reads it makes folders: in a document's folder of parts that exists, those of the
  /// kind and of the rendition, when they are missing.
  /// @param file receives the open handle; closed when nothing was opened.
  /// @param strUser the requesting user, traced only.
  /// @param strRepo the owner of the document.
  /// @param strEntry the document.
  /// @param strType the rendition; read from `html\` or `pdf\` + name for those two, from one
  /// folder of that whole name otherwise.
  /// @param strPartID the part's file name.
  /// @param docTime the document's timestamp.
  /// @blocking{for writers of the index, then for writers of the part}
  void OpenReadSubPart(vu_file& file, const std::string& strUser, const std::string& strRepo,
                       const std::string& strEntry, const std::string& strType,
                       const std::string& strPartID, long docTime);
  /// @copydoc OpenReadSubPart(vu_file&, const std::string&, const std::string&, const std::string&,
  /// const std::string&, const std::string&, long)
  void OpenReadSubPart(vu_file& file, const vu_utf8string& strUser, const vu_utf8string& strRepo,
                       const vu_utf8string& strEntry, const std::string& strType,
                       const std::string& strPartID, long docTime);
  /// As OpenReadSubPart(). No exception leaves it.
  /// @param file,strUser,strRepo,strEntry,strType,strPartID,docTime as with OpenReadSubPart().
  /// @param size receives the part's size in bytes (its low 32 bits), 0 when the file is not open.
  /// @blocking{as OpenReadSubPart()}
  void OpenReadSubPartEx(vu_file& file, const std::string& strUser, const std::string& strRepo,
                         const std::string& strEntry, const std::string& strType,
                         const std::string& strPartID, long docTime, unsigned long& size);
  /// @copydoc OpenReadSubPartEx(vu_file&, const std::string&, const std::string&,
  /// const std::string&, const std::string&, const std::string&, long, unsigned long&)
  void OpenReadSubPartEx(vu_file& file, const vu_utf8string& strUser, const vu_utf8string& strRepo,
                         const vu_utf8string& strEntry, const std::string& strType,
                         const std::string& strPartID, long docTime, unsigned long& size);

  // ---- users and removal ---------------------------------------------------------------------

  /// Renames a user's folders in the mail, list and user areas. No other call may use them
  /// meanwhile.
  /// @param oldName the user.
  /// @param newName the new name.
  /// @return false, with nothing renamed, when one of the new names exists; true otherwise, also
  /// when a folder could not be renamed or does not exist. On Windows a folder cannot be renamed
  /// while a file below it is open, by whomever.
  /// @threads{any, while nobody else uses these folders}
  static bool RenameUserStorage(const std::string& oldName, const std::string& newName);
  /// Removes a user's folders in the mail, list and user areas with everything in them. An empty
  /// name stands for the area folders themselves.
  /// @param user the user.
  /// @return true.
  /// @threads{any; the folders go beneath whoever uses them}
  static bool RemoveUserStorage(const vu_utf8string& user);
  /// RemoveUserStorage() for each name.
  /// @param names the users.
  /// @return true.
  /// @threads{any; the folders go beneath whoever uses them}
  static bool RemoveUsersStorage(const Sequence<vu_utf8string>& names);
  /// Removes a version of a document, its lines in the folder's category files and, for type 1, in
  /// "attribut.txt". The folder with its parts stays, until cleanOutOfDateOutput() sweeps it. An
  /// empty entry is found at the start of each of these files, so that their first lines go. No
  /// exception leaves it.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @return true also when there was nothing to remove, the owner is empty, the system refused to
  /// remove the file, or one of the category files or "attribut.txt" could not be opened, read or
  /// written: all of these refusals are traced, and the line stays or the file is left empty. False
  /// when the index cannot be read or anything else raised, which is traced as well.
  /// @blocking{for writers of the index, for its readers, too, when there is something to remove;
  /// then for writers and readers of the category files and, for type 1, of "attribut.txt"; not of
  /// the document}
  static bool RemoveFile(const std::string& userOrDomain, const std::string& entry,
                         STG::RepositoryType type, long timestamp);
  /// @copydoc RemoveFile(const std::string&, const std::string&, STG::RepositoryType, long)
  static bool RemoveFile(const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                         STG::RepositoryType type, long timestamp);

  // ---- file lists ----------------------------------------------------------------------------

  /// Lists a folder's index in the order of the physical file names.
  /// @param folder the folder, without a trailing separator.
  /// @param physicalNames the physical file names are appended.
  /// @return the logical names, element by element; empty when @p folder is no folder, and as far
  /// as they got after a traced error.
  /// @blocking{for writers of the index}
  static std::vector<std::string> getAllFileListFromIndexFile(
      const std::string& folder, std::vector<std::string>& physicalNames);
  /// As getAllFileListFromIndexFile(), documents only (isVuDocExt()).
  /// @param folder the folder, without a trailing separator.
  /// @param physicalNames as there.
  /// @param wanted the names to keep; null keeps every document.
  /// @return the logical names, element by element.
  /// @throws vu_file_except, untraced, when @p folder is no folder; nothing else.
  /// @blocking{for writers of the index}
  static std::vector<std::string> getFileListFromIndexFile(const std::string& folder,
                                                           std::vector<std::string>& physicalNames,
                                                           const std::vector<std::string>* wanted);

 private:
  friend struct StorageGate;
  struct Roots;

  static const Roots& roots();
  static void initPath(Roots begun);
  static void checkInit();
  static const std::string& areaPath(const Roots& roots, STG::RepositoryType type);
  static long HashCode_asJava(const std::string& s, int modulus);
  static std::string getLogicalName(const std::string& name, long timestamp);
  static bool getLastVersion(const std::string& folder, const std::string& entry, long& timestamp);
  static bool LoadKeyLine(const std::string& line, STG::NameValue& out, bool lastSeparator);
  static void DeleteKeyLineFromFile(const std::string& folder, const std::string& logicalName,
                                    const std::string& entry);
  static long saveKey(const std::string& userOrDomain, const std::string& name,
                      STG::RepositoryType type, const STG::NameValueSeq& seq);
  static long loadKey(const std::string& userOrDomain, const std::string& name,
                      STG::RepositoryType type, STG::NameValueSeq& seq);
  static void RemoveFromCategFiles(const std::string& folder, const std::string& entry);
  static std::string getBuffer(const vu_utf8string& s);
  int getBestUpdateWay(const std::string& strRepo, const std::string& strEntry,
                       const std::string& strType, const std::string& strPartID,
                       std::string& partDir, std::string& preloadDir, long docTime);
  static void AddExistVUFilesToMap(const std::string& folder,
                                   std::multimap<std::string, std::string>& map);

  static std::int32_t s_initDone;
  static std::string s_sTdcTimeStamp;
};

VU_STORAGE_TYPES_END
