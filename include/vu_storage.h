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

/// The facade of the storage library: documents, key files and folders, addressed by area, owner,
/// logical name and version.
///
/// Order of calls: call initRootStorage() first and once, even before the constructor and the
/// getters. Any other operation that comes first initialises the storage below the server temporary
/// folder (vu_host::temporary_files). After that operations may follow in any order. OpenRead(),
/// OpenWrite2() and operations on sub-parts open a file. Use Read() and Write() on it, then
/// Close().
///
///     vu_storage::initRootStorage("/srv/data", true, false);
///     vu_storage storage;
///     vu_file file;
///     if (storage.OpenWrite2(file, "alice", "letter.kdc", STG::UserRepository, true, 0)) {
///       if (file.is_open()) storage.Write(file, "text");
///       storage.Close(file);
///     }
///
/// Objects of this class contain no data: all state belongs to the process.
///
/// Common arguments: `userOrDomain` is the owner; it selects the owner's folder, unless all owners
/// share one (initRootStorage()). `entry` is the logical name with its extension. `type` is the
/// area. `timestamp` is the version: a number of 32 bits on every platform, by convention seconds
/// since 1970-01-01 UTC. The library appends names to paths unchecked: the caller has to refuse
/// separators, ".." and wildcards. Overloads for vu_utf8string pass the UTF-8 bytes up to the first
/// NUL to the narrow form.
///
/// Errors: an operation traces a failure under the source name "vu_storage" and returns false, 1 (0
/// is success), -1 or a closed file. Each operation lists the exceptions that leave it. "Those
/// of the initialisation" are the exceptions of vu_host::temporary_files; they occur only while the
/// storage is not initialised. An operation that fails to open a file leaves the caller's handle
/// closed. If the index of a folder cannot be saved, for example on a full disk, the change is lost
/// and traced (STGIndex). The operation continues: its success does not prove the save.
///
/// Crash safety: a document or key file is emptied and then written. An interruption leaves it
/// empty or cut short, and the old bytes are lost. vu_put() in vu/storage.h is atomic. STGIndex
/// says what else can remain, and who removes it.
///
/// Returned paths have backslashes, on Linux too ("/srv/data\storage\docs"). All operations of the
/// library accept them; for other libraries convert them (docs/host-guide.md).
///
/// Blocking and threads: vu_file explains the words. "The index" is that of the document's folder
/// (STGIndex). While one thread initialises the storage, all other operations wait, also those
/// marked "no".
///
/// @all_blocking{no}
/// @all_threads{any, each with its own handle; one at a time on one handle}
class VU_STORAGE_API vu_storage {
 public:
  /// Initialises the storage if it is not initialised.
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

  /// Initialises the storage below @p root: the folder "storage" with one folder per area. Missing
  /// folders are created, but @p root must exist.
  /// @param root an existing folder, without a trailing separator.
  /// @param useDomain true: every owner has a folder in each area; false: all owners share the area
  /// folder.
  /// @param synchronize whether synchronisation is on: orphans are adopted.
  /// @return true: this call initialised the storage. False: it was initialised before (traced as
  /// an error), or by another thread while this call waited (not traced).
  ///
  /// True does not prove success. A folder that could not be created is traced only. An exception,
  /// for example of the host's configuration, is traced and leaves the storage not initialised.
  /// Then the next operation initialises it below the server temporary folder. getStoragePath()
  /// returns the root in use.
  /// @blocking{while another thread initialises the storage}
  static bool initRootStorage(const std::string& root, bool useDomain, bool synchronize);

  /// @return the folder "storage". The reference is valid until the process ends, and the string
  /// never changes. The same is true for all getters. Only the string of getTdcTimeStamp() changes,
  /// by setTdcTimeStamp().
  /// @throws those of the initialisation (see the class), as all getters.
  static const std::string& getStoragePath();
  /// @return the folder of the corporate area.
  static const std::string& getCorpPath();
  /// @return the folder of the user area.
  static const std::string& getUserPath();
  /// @return the folder for lists.
  static const std::string& getListPath();
  /// @return the configuration folder: "config" in the product's binary folder. The library never
  /// creates it.
  static const std::string& getConfigDirPath();
  /// @return the folder of the mail area.
  static const std::string& getMailPath();
  /// @return the folder for semlets.
  static const std::string& getSemletPath();
  /// @return the stamp set by setTdcTimeStamp(); empty before.
  /// @threads{any, while none calls setTdcTimeStamp()}
  static const std::string& getTdcTimeStamp();
  /// Sets the stamp: a part of the names of sub-part folders.
  /// @param value the stamp.
  /// @threads{one, while no other thread uses the storage}
  static void setTdcTimeStamp(const std::string& value);

  /// Returns the folder of a document. Creates the area folder in any case, the others on request.
  /// @param userOrDomain,entry,type the document (see the class).
  /// @param dir receives the folder, without a trailing separator.
  /// @param create whether a missing folder of the owner and a missing hash bucket are created.
  /// @return false if a folder is missing and @p create is false, or after an exception, which is
  /// traced. True otherwise, also if a folder could not be created, which is traced.
  /// @throws those of the initialisation (see the class), and std::bad_alloc while the area folder
  /// is checked or created.
  static bool createUserOrDomainNameDirectory(const std::string& userOrDomain,
                                              const std::string& entry, STG::RepositoryType type,
                                              std::string& dir, bool create);
  /// @param ext the extension, without its dot.
  /// @return whether @p ext is one of the seven document extensions "kda" to "kdg".
  /// @throws those of the initialisation (see the class).
  static bool isVuDocExt(const std::string& ext);

  // ---- documents -----------------------------------------------------------------------------

  /// Opens a document for reading. Which version it serves depends on the area:
  /// - Corporate documents with the extension "kdf": the version with exactly @p timestamp.
  /// - Other corporate documents: the version with timestamp 0, if its file was modified at the
  ///   time @p timestamp or later.
  /// - Mail and user documents: the version with timestamp 0, whatever its age.
  ///
  /// No exception leaves it.
  /// @param file receives the open handle; closed if there is nothing to serve (check
  /// vu_file::is_open()). The caller owns it; Close() or its destructor closes it.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @blocking{for writers of the index, then for writers of the document}
  void OpenRead(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                STG::RepositoryType type, long timestamp);
  /// @copydoc OpenRead(vu_file&, const std::string&, const std::string&, STG::RepositoryType, long)
  void OpenRead(vu_file& file, const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                STG::RepositoryType type, long timestamp);
  /// Opens a version for writing. Creates a missing version and its folders. An existing version is
  /// emptied if @p replace is true; otherwise the file stays closed. No exception leaves it.
  ///
  /// Replacing removes what was derived from the old content. UserFilesRepository: the document's
  /// line in each category file (see RemoveFile()). CorporateRepository: the folder with its
  /// sub-parts. If the owner's folder cannot be created, the creation of the file fails.
  /// @param file receives the open handle; closed if nothing was opened. The caller owns it;
  /// Close() or its destructor closes it.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param replace whether an existing version is emptied.
  /// @return false for an empty entry and after a traced error. True otherwise, also if the file
  /// stays closed, and if the entry of a new version was not saved (see the class).
  /// @blocking{for writers of the index. A new version: also for its readers and its counter. With
  /// @p replace and UserFilesRepository: then for readers and writers of the category files. Last
  /// for readers and writers of the document}
  bool OpenWrite2(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                  STG::RepositoryType type, bool replace, long timestamp);
  /// As OpenWrite2(), without its result.
  /// @param file receives the open handle; check success with vu_file::is_open().
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
  /// @param buffer receives the bytes; empty after an error.
  /// @param length number of bytes to read; 0 for the whole file.
  void Read(vu_file& file, std::string& buffer, long length);
  /// Writes to an open file. Errors are only traced. No exception leaves it.
  /// @param file open for writing.
  /// @param data the bytes.
  void Write(vu_file& file, const std::string& data);
  /// Closes a file. What was written to it is on the device when this returns, unless the system
  /// refused to write it. That failure is only traced, as an error ("Can't flush buffers"). To
  /// detect it, install a trace sink (vu_host::install()).
  /// @param file open or closed; always closed afterwards.
  /// @throws those of the initialisation (see the class) except vu_file_except, which is traced.
  /// @blocking{while the system writes the file to the device; for no lock}
  void Close(vu_file& file);
  /// Checks whether a version exists. No exception leaves it.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param folderOut, physicalOut receive the folder and the physical name ("00000001.kdc") if the
  /// version exists; either may be null.
  /// @return whether it exists; false also for an empty owner.
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
  /// @return the latest timestamp of a document; 0 if the folder contains no version, -1 if the
  /// folder is missing or the entry is empty.
  /// @throws what STGIndex::lastVersion() and createUserOrDomainNameDirectory() throw.
  /// @blocking{for writers of the index}
  static long getLattestTimestamp(const std::string& userOrDomain, const std::string& entry,
                                  STG::RepositoryType type);
  /// As STGIndex::exists(), but returns false instead of throwing.
  /// @param folder the folder, without a trailing separator.
  /// @param entry the logical name.
  /// @param timestamp its timestamp.
  /// @param physical receives the physical name if the version exists.
  /// @return whether it exists.
  /// @blocking{for writers of the index}
  static bool getIndexNameFromDocName(const std::string& folder, const std::string& entry,
                                      long timestamp, std::string& physical);
  /// Calls STGIndex::updateIndexFile().
  /// @param folder the folder, without a trailing separator.
  /// @throws what updateIndexFile() throws, and those of the initialisation (see the class).
  /// @blocking{for readers and writers of the index}
  void update_IndexDat(const std::string& folder);
  /// Copies a file into the storage as a version. The version is emptied first: if the copy fails,
  /// the old bytes are lost and the version is empty or gone. The copy is not flushed.
  /// @param source the path of the file.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @param replace pass true. With false the copy always fails: an existing version stays as it
  /// is, a missing one is created empty.
  /// @return whether the copy succeeded. The entry of a new version may still be unsaved (see the
  /// class).
  /// @throws those of the initialisation (see the class), and std::bad_alloc; never vu_file_except.
  /// @blocking{as OpenWrite2(); the copy itself does not wait: it fails at once if a file is
  /// locked}
  static bool copyToStorage(const std::string& source, const std::string& userOrDomain,
                            const std::string& entry, STG::RepositoryType type, bool replace,
                            long timestamp);
  /// Copies the document that OpenRead() would open. The target is a path outside the storage; an
  /// existing file is overwritten. A copy that fails half-way leaves no file: the old one is lost.
  /// @param destination the path of the copy.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @return whether the copy succeeded.
  /// @throws as copyToStorage().
  /// @blocking{as OpenRead(); the copy itself does not wait: it fails at once if a file is locked}
  static bool copyFromStorage(const std::string& destination, const std::string& userOrDomain,
                              const std::string& entry, STG::RepositoryType type, long timestamp);
  /// Stores a file under its own name with timestamp 0, and saves the index. An earlier version is
  /// removed first: if the copy fails, it is lost. If the owner's folder cannot be created,
  /// STGIndex::create() throws.
  /// @param sourceFolder the folder of the file, without a trailing separator.
  /// @param name the name of the file and of the document.
  /// @param userOrDomain,type the owner and the area.
  /// @return whether the copy succeeded. Its entry may still be unsaved (see the class).
  /// @throws what createUserOrDomainNameDirectory() and STGIndex::remove(), create() and
  /// updateIndexFile() throw.
  /// @blocking{for readers and writers of the index, and for its counter}
  bool copyFileToStorage(const std::string& sourceFolder, const std::string& name,
                         const std::string& userOrDomain, STG::RepositoryType type);
  /// @copydoc copyFileToStorage(const std::string&, const std::string&, const std::string&,
  /// STG::RepositoryType)
  bool copyFileToStorage(const std::string& sourceFolder, const std::string& name,
                         const vu_utf8string& userOrDomain, STG::RepositoryType type);
  /// Calls copyFileToStorage() for UserFilesRepository.
  /// @param sourceFolder,name,userOrDomain as with copyFileToStorage().
  /// @return whether the copy succeeded.
  /// @throws as copyFileToStorage().
  /// @blocking{as copyFileToStorage()}
  bool copyFileToUserPath(const std::string& sourceFolder, const std::string& name,
                          const std::string& userOrDomain);

  // ---- key files -----------------------------------------------------------------------------

  /// @param seq the lines.
  /// @return the text of a key file: name + "=" + value + line feed for each line. If
  /// there is no memory for it, it is empty, and an error is traced. No exception leaves it.
  /// @threads{any, while none changes @p seq}
  static std::string getStringFromNameValueSeq(const STG::NameValueSeq& seq);
  /// Reads the lines of a key file from an open file.
  /// @param file open for reading.
  /// @param seq the lines are appended.
  /// @param lastSeparator whether the last "=" of a line separates name and value, not the first.
  /// @return false after an exception; lines read before it stay in @p seq.
  static bool Read(vu_file& file, STG::NameValueSeq& seq, bool lastSeparator);
  /// Reads a key file, as Read(vu_file&, STG::NameValueSeq&, bool).
  /// @param folder the folder, without a trailing separator.
  /// @param fileName the name of the file in it.
  /// @param seq the lines are appended.
  /// @param lastSeparator as with Read().
  /// @return 0, or 1 on failure.
  /// @blocking{for writers of the file}
  static long readKeysFile(const std::string& folder, const std::string& fileName,
                           STG::NameValueSeq& seq, bool lastSeparator);
  /// Writes a text to a key file. An empty text changes nothing and is a success.
  /// @param folder the folder, without a trailing separator.
  /// @param fileName the name of the file in it; a missing file is created.
  /// @param text the lines, as returned by getStringFromNameValueSeq().
  /// @param replace true: the text replaces the content, which is emptied first; false: it is
  /// appended.
  /// @return false, with an error trace, if the file cannot be opened. True also if the system's
  /// write fails: that is traced and leaves the file cut short.
  /// @blocking{for readers and writers of the file}
  static bool writeKeysFile(const std::string& folder, const std::string& fileName,
                            const std::string& text, bool replace);

  // ---- profiles ------------------------------------------------------------------------------

  /// Saves a profile: a user's as a key file in the user area, the master profile as a file in the
  /// configuration folder. The file is emptied first.
  /// @param userOrDomain the owner, or empty for the master profile.
  /// @param fileName empty for "profile.txt".
  /// @param seq the lines.
  /// @return 1 after a vu_file_except. 0 otherwise, also if nothing could be written, which is
  /// traced.
  /// @throws those of the initialisation (see the class) except vu_file_except, and std::bad_alloc.
  /// @blocking{for a user as STGIndex::create(); then for readers and writers of the profile}
  static long saveUserOrMasterProfile(const std::string& userOrDomain, const std::string& fileName,
                                      const STG::NameValueSeq& seq);
  /// Loads a profile.
  /// @param userOrDomain the owner, or empty for the master profile.
  /// @param fileName for a user the name it was saved under; an empty one is never found. For the
  /// master profile empty means "profile.txt" or, if that is missing, "master.txt".
  /// @param seq the lines are appended.
  /// @return 1 if the profile does not exist, otherwise 0. If its file cannot be read: 0 for a
  /// user, 1 for the master profile.
  /// @throws as saveUserOrMasterProfile().
  /// @blocking{for a user for writers of the index; then for writers of the profile}
  static long loadUserOrMasterProfile(const std::string& userOrDomain, const std::string& fileName,
                                      STG::NameValueSeq& seq);

  // ---- sub-parts of documents ----------------------------------------------------------------

  /// Opens a sub-part of a corporate document for writing, and empties it. The sub-part is in a
  /// folder named after the document's file + "_" + stamp (setTdcTimeStamp()). No exception leaves
  /// it.
  ///
  /// With an empty owner sub-parts are written below `docs\_`, but OpenReadSubPart() never finds
  /// them.
  /// @param file receives the open handle; closed if nothing was opened (check vu_file::is_open()).
  /// @param userOrDomain,entry the document (see the class).
  /// @param strType the rendition: "html@" + name, "pdf@" + name, or another text. The first "@"
  /// separates two folders.
  /// @param strPartId the file name of the sub-part.
  /// @param docTime the timestamp of the document, which must be in the index.
  /// @blocking{for writers of the index, then for readers and writers of the sub-part}
  void OpenWriteSubPart(vu_file& file, const std::string& userOrDomain, const std::string& entry,
                        const std::string& strType, const std::string& strPartId, long docTime);
  /// @copydoc OpenWriteSubPart(vu_file&, const std::string&, const std::string&,
  /// const std::string&, const std::string&, long)
  void OpenWriteSubPart(vu_file& file, const vu_utf8string& userOrDomain,
                        const vu_utf8string& entry, const std::string& strType,
                        const std::string& strPartId, long docTime);
  /// Opens a sub-part of a corporate document for reading if it is up to date. A newer preload copy
  /// is first copied over it. If the file stays closed, the caller has to generate the sub-part and
  /// write it with OpenWriteSubPart(). No exception leaves it.
  ///
  /// The preload copy has the same file name. Its folder is `html\preload` for `html@NAME`,
  /// `pdf\preload` for `pdf@NAME`, otherwise `preload` beside the rendition's folder. Other
  /// programs write it. A sub-part is up to date if it is not older than its preload copy and the
  /// document. For "kdf" documents it is always up to date, and preload copies are ignored.
  ///
  /// Reading creates missing folders for the kind and the rendition, if the document has a folder
  /// of sub-parts.
  /// @param file receives the open handle; closed if nothing was opened.
  /// @param strUser the requesting user; only traced.
  /// @param strRepo the owner of the document.
  /// @param strEntry the document.
  /// @param strType the rendition. It is read from the folder `html\NAME` for `html@NAME`,
  /// `pdf\NAME` for `pdf@NAME`; otherwise the whole text is the name of the folder.
  /// @param strPartID the file name of the sub-part.
  /// @param docTime the timestamp of the document.
  /// @blocking{for writers of the index, then for writers of the sub-part}
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
  /// @param size receives the size of the sub-part in bytes (low 32 bits); 0 if the file is closed.
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

  /// Renames a user's folders in the mail, list and user areas.
  /// @param oldName the user.
  /// @param newName the new name.
  /// @return false if one of the new folders exists; then nothing is renamed. True otherwise, also
  /// if a folder is missing or could not be renamed. Windows refuses to rename a folder while a
  /// file below it is open in any program.
  /// @threads{any, while nobody else uses these folders}
  static bool RenameUserStorage(const std::string& oldName, const std::string& newName);
  /// Removes a user's folders in the mail, list and user areas with all files. An empty name
  /// removes the area folders themselves.
  /// @param user the user.
  /// @return true.
  /// @threads{any; other users of the folders lose them}
  static bool RemoveUserStorage(const vu_utf8string& user);
  /// Calls RemoveUserStorage() for each name.
  /// @param names the users.
  /// @return true.
  /// @threads{any; other users of the folders lose them}
  static bool RemoveUsersStorage(const Sequence<vu_utf8string>& names);
  /// Removes a version, its file, its line in each category file of the folder and, for
  /// UserFilesRepository, in "attribut.txt". Its sub-parts stay until cleanOutOfDateOutput() sweeps
  /// them. No exception leaves it.
  ///
  /// "Its line" is the text from the first occurrence of @p entry to the end of that line. Example:
  /// removing "a.kdc" cuts a line "ba.kdc=1" to "b", without a line end, if it is the first with
  /// "a.kdc". An empty entry removes the first line of each of these files.
  /// @param userOrDomain,entry,type,timestamp the document (see the class).
  /// @return false, traced, if the index cannot be read or something else throws. True otherwise:
  /// also if there is nothing to remove, the owner is empty, or the system refuses to remove the
  /// file. Also true if a category file or "attribut.txt" cannot be opened, read or written; then
  /// the line stays, or that file is left empty. All refusals are traced.
  /// @blocking{for writers of the index, for a removal also for its readers; then for any lock of
  /// files with such lines; never for the document}
  static bool RemoveFile(const std::string& userOrDomain, const std::string& entry,
                         STG::RepositoryType type, long timestamp);
  /// @copydoc RemoveFile(const std::string&, const std::string&, STG::RepositoryType, long)
  static bool RemoveFile(const vu_utf8string& userOrDomain, const vu_utf8string& entry,
                         STG::RepositoryType type, long timestamp);

  // ---- file lists ----------------------------------------------------------------------------

  /// Lists the index of a folder in the order of the physical names.
  /// @param folder the folder, without a trailing separator.
  /// @param physicalNames the physical names are appended.
  /// @return the logical names, in the same order. Empty if @p folder is not a folder; incomplete
  /// after an error, which is traced.
  /// @blocking{for writers of the index}
  static std::vector<std::string> getAllFileListFromIndexFile(
      const std::string& folder, std::vector<std::string>& physicalNames);
  /// As getAllFileListFromIndexFile(), for documents only (isVuDocExt()).
  /// @param folder the folder, without a trailing separator.
  /// @param physicalNames as there.
  /// @param wanted the names to keep; null keeps every document.
  /// @return the logical names, in the same order.
  /// @throws vu_file_except if @p folder is not a folder; nothing else.
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
