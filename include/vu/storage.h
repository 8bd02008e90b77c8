/**
 * @file
 * The C interface of the storage library, in C99. No C++ type or exception crosses it.
 *
 * The rules in this comment apply to every call. docs/glossary.md defines the terms.
 *
 * Read first
 * - A process has one storage. vu_open_store() initialises it; all handles refer to the same one.
 * - An open stream holds a lock, and other programs wait for that lock. Close streams early.
 * - A child process made by fork() must not use the handles of its parent. Run programs with exec.
 * - Locks on network file systems have limits: see docs/network-shares.md.
 *
 * Results. A call that can fail returns a vu_status. Only 0 means success. Output arguments are
 * written only on success, unless the call says otherwise. vu_last_error() returns the result of
 * the calling thread's last call, with the reason. No call ends the program. Any thread may make
 * any call, unless its description says otherwise.
 *
 * Handles are opaque numbers. A handle that is closed, of another kind or invalid yields
 * VU_BAD_HANDLE. Any number of threads may use one store at once. Any thread may use a stream, but
 * one at a time: a second one gets VU_BUSY.
 *
 * Memory. The caller owns what it passes in, and may release it when the call returns; only
 * vu_set_trace() keeps pointers. Only vu_read_whole() allocates memory for the caller, who releases
 * it with vu_free(). What a callback receives is valid until that callback returns.
 *
 * Callbacks run on the thread of the call and without a lock; they may call the library. (The trace
 * sink is different: see vu_trace_sink.) A callback must return: after a longjmp() or an exception
 * out of it, locks and handles stay in use forever.
 *
 * Texts are UTF-8 on every system and end with a NUL. A call that returns a text or bytes takes
 * `buffer`, its size `room` in bytes, and `size`. With VU_DONE and VU_TOO_SHORT, `size` receives
 * the number of bytes. For a text this number does not include the NUL, which needs one more byte
 * of room. With a null `buffer` and a `room` of 0 the call returns VU_DONE and only this number.
 * Returned paths have the system's separators. Paths passed in may have "/" or "\".
 *
 * On Windows the library converts owners, paths and the extensions of documents to the code page of
 * the process. A name that does not fit there yields VU_NO_NAME; the library never alters a name. A
 * program with the UTF-8 manifest (docs/host-guide.md) has no such names. The rest of a document's
 * name is stored in the index only, and may be any text.
 *
 * Structures begin with `struct_size`, their size when the caller was compiled. The INIT macros set
 * it. A later library accepts the smaller structure of an earlier header. An earlier library
 * accepts a larger structure if the fields that it does not know are zero; otherwise it returns
 * VU_USAGE.
 *
 * Units. Times are seconds since 1970-01-01 UTC, sizes are bytes, time limits are milliseconds.
 *
 * Waiting. Calls wait for locks that other handles hold, in this process and in others: without
 * limit, unless vu_settings::wait_ms sets one. The time runs from the start of the call, also while
 * the call works or its callback runs. After that time a lock that is not free is refused at once.
 * Two waits for the index have no limit, not even with VU_NO_WAIT. After their save, vu_put(),
 * vu_copy_in() and vu_rename() wait for its writers, to check what the save has left. A call that
 * fails and removes what it has made waits for its readers and writers.
 *
 * There are two kinds of locks:
 * - The index of a folder, with its counter. Readers find and list versions; writers change
 *   entries. A call releases the lock before it returns, and before it calls a callback.
 * - The file of a document. Readers are vu_read(), vu_read_whole(), vu_key_get(), vu_key_each() and
 *   streams that read. Writers are streams that write, writes in place, vu_key_set(),
 *   vu_key_delete(), and calls that remove lines from category files. A stream keeps the lock until
 *   vu_stream_close(); a call releases it before it returns.
 *
 * "Waits for writers" means: until nobody holds the lock exclusively. "Waits for readers and
 * writers" means: until nobody holds it at all. A reader that creates a missing index, or adopts
 * orphans, waits as a writer does. VU_LOCK_TIMEOUT means that the requested change was not made.
 * docs/api.md (Time limits) lists the exceptions, for example vu_clean(). If a lock is refused
 * after the change is made, the call returns VU_PARTLY_DONE.
 *
 * Crash safety. When a process is killed or the power fails, the system releases its locks. Calls
 * that returned VU_DONE are not affected, except for what a description calls "not flushed". An
 * interrupted call leaves:
 * - vu_put(), vu_copy_in(): the old version (or none) or the new one, complete. An orphan can
 *   remain, and an entry that begins with ".vu-storing-", with its file.
 * - The same with VU_IN_PLACE, and a stream that writes: an empty version, or the first bytes of
 *   the new one.
 * - vu_key_set(), vu_key_delete() and the same for profiles: an empty file, or the first bytes of
 *   the new one.
 * - vu_remove(), vu_clean(): each version as it was or removed; possibly a dangling entry, or,
 *   after a power failure, the file as an orphan.
 * - vu_rename(): the complete version under its old name or its new one, between two folders
 *   possibly under both; possibly also what vu_copy_in() leaves.
 * - vu_open_part() with a newer preload copy: an empty part, or the first bytes of the preload
 *   copy. It counts as up to date: remove it, and the next call copies again.
 *
 * A version or key file that was written in place must be written again. The rest needs no action.
 * The next save of the index drops dangling entries. The next call that lists or changes the folder
 * adopts orphans as versions; with VU_NO_ADOPTION, the next vu_clean() sweeps them. vu_clean()
 * removes entries with ".vu-storing-" and adopted orphans when they are old enough.
 */
#ifndef VU_STORAGE_C_H
#define VU_STORAGE_C_H

#include <stddef.h>
#include <stdint.h>

/** Marks every function. A program that links the library as objects defines VU_STORAGE_STATIC. */
#if defined(VU_STORAGE_STATIC)
#define VU_C_API
#elif defined(_WIN32)
#if defined(VU_STORAGE_BUILDING)
#define VU_C_API __declspec(dllexport)
#else
#define VU_C_API __declspec(dllimport)
#endif
#else
#define VU_C_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- version -------------------------------------------------------------------------------- */

/** The version of this header. */
#define VU_VERSION_MAJOR 1
#define VU_VERSION_MINOR 0 /**< see VU_VERSION_MAJOR */
#define VU_VERSION_PATCH 0 /**< see VU_VERSION_MAJOR */
/** The same as one number: 10203 is 1.2.3. */
#define VU_VERSION_NUMBER (VU_VERSION_MAJOR * 10000 + VU_VERSION_MINOR * 100 + VU_VERSION_PATCH)

/** The version of the loaded library, for example "1.0.0". The text is static. Never fails. */
VU_C_API const char* vu_version(void);
/** The same as a number, to compare with VU_VERSION_NUMBER. Never fails. */
VU_C_API int32_t vu_version_number(void);

/* ---- results -------------------------------------------------------------------------------- */

/** The result of a call. Numbers below 20, and 130, are also the exit codes of `stgctl`. */
typedef int32_t vu_status;

enum {
  VU_DONE = 0,            /**< success */
  VU_FAILED = 1,          /**< the system refused something; see vu_last_error() */
  VU_USAGE = 2,           /**< an argument is invalid: null, out of range, an unknown flag */
  VU_NOTHING_MATCHED = 3, /**< nothing in the storage matches the request */
  VU_PARTLY_DONE = 5,     /**< done, except for what vu_last_error() reports */
  VU_NO_TREE = 10,        /**< the root folder does not exist, or no storage is open yet */
  VU_LOCK_TIMEOUT = 11,   /**< a lock was not obtained in time; see "Waiting" above */
  VU_REFUSED = 12,        /**< the guard refuses the request (see vu_open_store()) */
  VU_ALREADY = 20,        /**< it exists already */
  VU_TOO_SHORT = 21,      /**< the buffer is too short; `size` receives the required size */
  VU_BAD_HANDLE = 22,     /**< the handle is invalid, closed, or of another kind */
  VU_BUSY = 23,           /**< another call is using the handle */
  VU_NO_MEMORY = 24,      /**< out of memory */
  VU_NO_NAME = 25,        /**< the code page of the process cannot represent the name */
  VU_OUTDATED = 26,       /**< it exists, but is older than requested */
  VU_INTERRUPTED = 130    /**< a callback of the caller ended the call */
};

/** The name of a status, for example "VU_REFUSED"; "?" for an unknown number. The text is static.
 *  Never fails. */
VU_C_API const char* vu_status_name(vu_status status);

/** Why a call failed. Texts are never null; an unknown one is empty. */
typedef struct vu_error {
  size_t struct_size;      /**< set by the caller */
  vu_status status;        /**< the result of the call */
  int32_t system_code;     /**< the system's error code; 0 if the failure is not the system's */
  const char* operation;   /**< the call, for example "vu_read" */
  const char* text;        /**< what happened */
  const char* path;        /**< the file or folder concerned */
  const char* system_text; /**< the system's text for its code */
} vu_error;

/** Initialises a vu_error. */
#define VU_ERROR_INIT \
  { sizeof(vu_error), 0, 0, NULL, NULL, NULL, NULL }

/**
 * Reports the result of the calling thread's last call, successful or not. vu_version(),
 * vu_version_number(), vu_status_name(), vu_free() and vu_last_error() do not count as calls.
 * @param error receives the result. Its texts belong to the library and are valid until the
 *   thread's next call. Each has at most 1,023 bytes; a longer one is cut between two characters.
 * @return VU_DONE; VU_USAGE for a null pointer or a wrong `struct_size`.
 */
VU_C_API vu_status vu_last_error(vu_error* error);

/** Releases memory that the library allocated. Null is allowed. Never fails. */
VU_C_API void vu_free(void* memory);

/* ---- the store ------------------------------------------------------------------------------ */

/** A handle of the process's storage, with the settings of its vu_open_store(). */
typedef struct vu_store vu_store;

enum {
  VU_MAKE_ROOT = 1,      /**< creates a missing root and its missing parents */
  VU_SHARED_FOLDERS = 2, /**< all owners share the area folders; otherwise each has its own */
  VU_NO_ADOPTION = 4,    /**< orphans are not adopted; the call that initialises decides */
  VU_NO_GUARD = 8        /**< names are used unchecked */
};

/** For vu_settings::wait_ms: a lock that another handle holds is refused at once. "Waiting" above
 *  names two exceptions. */
#define VU_NO_WAIT ((int64_t)-1)

/** How to open a store. All fields except `struct_size` may be zero. */
typedef struct vu_settings {
  size_t struct_size; /**< set by the caller */
  const char* root;   /**< the parent of the folder "storage"; null: the storage that is open */
  uint32_t flags;     /**< VU_MAKE_ROOT, VU_SHARED_FOLDERS, VU_NO_ADOPTION, VU_NO_GUARD */
  uint32_t reserved;  /**< 0 */
  int64_t wait_ms;    /**< time limit of each call for locks; 0: none; or VU_NO_WAIT */
} vu_settings;

/** Initialises a vu_settings. */
#define VU_SETTINGS_INIT \
  { sizeof(vu_settings), NULL, 0, 0, 0 }

/**
 * Initialises the storage of this process, or returns another handle of it with its own settings.
 * Waits while another thread initialises the storage.
 *
 * The guard is on unless VU_NO_GUARD is set. It refuses with VU_REFUSED every text that is not a
 * plain name:
 * - empty names, "." and "..", names with a separator, "*", "?", a line feed or a carriage return;
 * - "index.dat" and "index", and names that begin with ".vu-storing-";
 * - the physical name of another document in the same folder;
 * - on Windows also names with ":", "<", ">" or a quotation mark, with a dot or a blank at the
 *   end, and devices such as "NUL". There the guard compares names without regard to letter case.
 *
 * Where owners share folders the owner may be null. Without the guard an empty owner (where owners
 * have folders), an empty document name or one with a line feed yields VU_USAGE.
 *
 * @param settings null yields VU_USAGE. With a null root the flag VU_SHARED_FOLDERS is ignored.
 * @param store receives the handle with VU_DONE and VU_ALREADY, otherwise null. The caller closes
 *   it with vu_close_store().
 * @return VU_DONE: this call initialised the storage. VU_ALREADY: the storage was open with this
 *   root already; the handle is valid. VU_REFUSED: it is open with another root or layout. In both
 *   cases the path in vu_last_error() is the folder "storage" in use. VU_NO_TREE: the root is not a
 *   folder, or it is null and no storage is open. VU_FAILED: a folder of the storage cannot be
 *   created; the process keeps this root, and a later call tries again.
 */
VU_C_API vu_status vu_open_store(const vu_settings* settings, vu_store** store);

/**
 * Closes a handle. The storage stays initialised until the process ends. Streams stay open and
 * usable.
 * @return VU_DONE, VU_BAD_HANDLE, or VU_BUSY while a call uses the handle: on another thread, or
 *   around the callback that calls this function.
 */
VU_C_API vu_status vu_close_store(vu_store* store);

/** What a document belongs to. */
enum {
  VU_AREA_USER = 1, /**< an owner's own files */
  VU_AREA_DOCS = 2, /**< corporate documents */
  VU_AREA_MAIL = 3  /**< mail */
};

/**
 * The path of the folder "storage" below the root, or of an area folder in it.
 * @param area VU_AREA_..., or 0 for the folder "storage".
 * @param buffer,room,size receive the path; see the head of this file.
 * @return VU_TOO_SHORT: the buffer is too short. Waits for nobody.
 */
VU_C_API vu_status vu_folder(vu_store* store, int32_t area, char* buffer, size_t room,
                             size_t* size);

/* ---- documents ------------------------------------------------------------------------------ */

/** For vu_document::version: the latest version, which has the greatest number. vu_open_part(),
 *  VU_READ_SERVED and calls that create a version do not accept it. */
#define VU_LATEST ((int64_t)-1)

/** Names a document and one version of it. */
typedef struct vu_document {
  size_t struct_size; /**< set by the caller */
  int32_t area;       /**< VU_AREA_... */
  uint32_t reserved;  /**< 0 */
  const char* owner;  /**< a user or a domain; may be null where owners share folders */
  const char* name;   /**< the logical name, with its extension */
  int64_t version;    /**< 0 to 2147483647, any number that the caller chooses; or VU_LATEST */
} vu_document;

/** Initialises a vu_document. */
#define VU_DOCUMENT_INIT \
  { sizeof(vu_document), VU_AREA_DOCS, 0, NULL, NULL, 0 }

/** Size and times of a version. */
typedef struct vu_info {
  size_t struct_size; /**< set by the caller */
  int64_t version;    /**< the version; never VU_LATEST */
  int64_t size;       /**< in bytes; -1 if not requested, or unknown to the system */
  int64_t modified;   /**< time of the last change of the bytes; -1 as above */
  int64_t accessed;   /**< time of the last access that the system recorded; -1 as above */
} vu_info;

/** Initialises a vu_info. */
#define VU_INFO_INIT \
  { sizeof(vu_info), 0, -1, -1, -1 }

/** Checks whether a version exists. Waits for writers of the index.
 *  @return VU_DONE: it exists. VU_NOTHING_MATCHED: it does not. */
VU_C_API vu_status vu_exists(vu_store* store, const vu_document* document);

/** Returns size and times of a version.
 *  @param info receives them.
 *  @return VU_NOTHING_MATCHED: there is no such version. Waits as vu_exists(). */
VU_C_API vu_status vu_describe(vu_store* store, const vu_document* document, vu_info* info);

/**
 * Returns the path of the file of a version. No lock protects the file: a later call may replace or
 * remove it, and the library does not notice changes made by others.
 * @return VU_NOTHING_MATCHED: there is no such version. Waits as vu_exists().
 */
VU_C_API vu_status vu_file_path(vu_store* store, const vu_document* document, char* buffer,
                                size_t room, size_t* size);

/**
 * Reads a whole version: exactly the one that is named. Waits for writers of the index and for
 * writers of the document.
 * @param buffer,room,size receive the bytes; see the head of this file. No NUL is added.
 * @return VU_NOTHING_MATCHED: there is no such version. VU_TOO_SHORT: nothing was read.
 */
VU_C_API vu_status vu_read(vu_store* store, const vu_document* document, void* buffer, size_t room,
                           size_t* size);

/**
 * As vu_read(), into memory that the library allocates.
 * @param bytes receives the memory, with a NUL after the last byte; null on failure. The caller
 *   releases it with vu_free().
 * @param size receives the number of bytes without that NUL.
 */
VU_C_API vu_status vu_read_whole(vu_store* store, const vu_document* document, void** bytes,
                                 size_t* size);

enum {
  VU_REPLACE = 1, /**< an existing target is replaced; without this flag: VU_ALREADY */
  VU_IN_PLACE = 2 /**< the file is emptied and written: half the work, but not atomic */
};

/** How a version was stored. */
enum {
  VU_STORED_AT_ONCE = 1, /**< atomic: readers get the old version or the new one */
  VU_STORED_IN_PLACE = 2 /**< not atomic: an interruption can leave a part */
};

/**
 * Stores bytes as a version. After VU_DONE they are on the device.
 *
 * Storing is atomic: the bytes go to a new file, then one save of the index gives this file to the
 * version. Until that save readers get the old version. A call that fails leaves the old version
 * unchanged; VU_FAILED below has exceptions. For interruptions see the head of this file.
 *
 * With VU_IN_PLACE the file is emptied and written instead. The same happens if the folder contains
 * a file with exactly the name of the document. A failure then leaves a part of the new bytes; the
 * old ones are lost.
 *
 * Replacing a version removes what was derived from it: its parts (VU_AREA_DOCS), its line in each
 * category file (VU_AREA_USER). What belongs to a version that another program stores during the
 * call can stay; vu_clean() sweeps such parts.
 *
 * @param document the version must not be VU_LATEST.
 * @param bytes may be null when `size` is 0.
 * @param size their number.
 * @param flags VU_REPLACE, VU_IN_PLACE.
 * @param how may be null; receives VU_STORED_AT_ONCE or VU_STORED_IN_PLACE, also with
 *   VU_PARTLY_DONE.
 * @return VU_ALREADY: the version exists, and VU_REPLACE is not set. Of several programs that store
 *   the same new version at once without VU_REPLACE, also by vu_open() or vu_rename(), one gets
 *   VU_DONE and the others VU_ALREADY.
 *   VU_PARTLY_DONE: the version is stored, but something beside it failed, for example removing old
 *   parts or, on Windows, an old file that is open. While an old file stays, another program can
 *   make it the version again: see docs/api.md. VU_FAILED: the old version is unchanged.
 *   Exception: if the system does not tell whether the index was saved, the new version can have
 *   replaced it. In both cases the version is complete, unless it was written in place.
 *
 * Waits for readers and writers of the index; in place also for those of the document. Replacing a
 * version of VU_AREA_USER also waits for those of the category files in its folder.
 */
VU_C_API vu_status vu_put(vu_store* store, const vu_document* document, const void* bytes,
                          size_t size, uint32_t flags, int32_t* how);

/**
 * Stores a file as a version, with its modification time. Otherwise as vu_put().
 * @param path the file, which is only read. If a writer has locked it, the call fails at once.
 * @return VU_NOTHING_MATCHED: there is no such file. VU_FAILED: also if `path` is a folder, or, in
 *   place, the file of this version; then the version is unchanged.
 */
VU_C_API vu_status vu_copy_in(vu_store* store, const vu_document* document, const char* path,
                              uint32_t flags, int32_t* how);

/**
 * Copies a version to a file outside the storage, with its modification time.
 *
 * The copy is not atomic and not flushed. An existing file is emptied first: when the copy then
 * fails, the old file is lost and the incomplete one is removed. A failure before that leaves the
 * old file as it was. After an interruption the target can be incomplete.
 *
 * @param path the target file.
 * @param flags VU_REPLACE; without it VU_ALREADY if the file exists.
 * @return VU_NOTHING_MATCHED: there is no such version. VU_FAILED: also, at once, if the target is
 *   a folder or locked, or a writer has locked the document. Waits as vu_exists().
 */
VU_C_API vu_status vu_copy_out(vu_store* store, const vu_document* document, const char* path,
                               uint32_t flags);

/**
 * Removes a version, its file, and its line in each category file of the folder (VU_AREA_USER: also
 * in "attribut.txt"). vu_storage::RemoveFile() says which line this is. Streams that have the
 * version open do not delay the call. Its parts stay until vu_clean() sweeps them. Waits for
 * readers and writers of the index and of the files with such lines.
 * @return VU_NOTHING_MATCHED: there is no such version. VU_FAILED: the system keeps the file, as
 *   Windows can do while it is open; the version stays. VU_REFUSED: another file in the folder
 *   bears the document's name and hides the version; both stay. VU_PARTLY_DONE: the version is
 *   removed; a dangling entry or a line that names it stays.
 */
VU_C_API vu_status vu_remove(vu_store* store, const vu_document* document);

/**
 * Changes the name, version, owner or area of a version. Its parts stay until vu_clean() sweeps
 * them. Within one folder one save of the index changes the name; lines in category files keep the
 * old name. To another folder, and where a file bears the new name, the version is copied as by
 * vu_copy_in(), and then the old one is removed as by vu_remove(). Documents of VU_AREA_DOCS are
 * spread over folders by name: a new name nearly always means another folder.
 *
 * Another program may store the version `from` during the call. Before the copy, the call renames
 * the new version. After it, a version with another file than the copied one stays, and the call
 * returns VU_DONE. Bytes that another program writes in place into the copied file are lost.
 *
 * @param flags VU_REPLACE; without it VU_ALREADY if a version `to` exists. If `from` and `to` are
 *   the same version, nothing changes and the call returns VU_DONE.
 * @return VU_NOTHING_MATCHED: there is no version `from`. VU_PARTLY_DONE: the version has its new
 *   name, but the old version or something derived from the replaced one stays. The old version
 *   stays also if a step after the change fails, for example if the system keeps a file that the
 *   new one replaces: see vu_put(). VU_ALREADY: both versions are unchanged. VU_REFUSED:
 *   also if another file hides the version, see vu_remove(). VU_FAILED: the version has its old
 *   name. Exception: if the system does not tell whether the index was saved, it is complete under
 *   one of the two names, or both. Waits as vu_put() and vu_remove().
 */
VU_C_API vu_status vu_rename(vu_store* store, const vu_document* from, const vu_document* to,
                             uint32_t flags);

/** Returns the latest version of a name, see VU_LATEST. `document->version` is ignored.
 *  @param version receives it.
 *  @return VU_NOTHING_MATCHED: the name has no version. Waits as vu_exists(). */
VU_C_API vu_status vu_latest(vu_store* store, const vu_document* document, int64_t* version);

/* ---- streams -------------------------------------------------------------------------------- */

/** An open file of the storage. It holds the lock of the file until vu_stream_close(). */
typedef struct vu_stream vu_stream;

/** How a stream is opened. */
enum {
  VU_READ_EXACT = 1,  /**< read exactly the named version */
  VU_READ_SERVED = 2, /**< read under the rules of age, see vu_open() */
  VU_WRITE_NEW = 3,   /**< write a version that must not exist */
  VU_WRITE_OVER = 4   /**< write a version; an existing one is emptied first */
};

/**
 * Opens a version for reading or writing. Streams that read share the lock of the file; a stream
 * that writes has it exclusively.
 *
 * VU_READ_SERVED follows the rules of vu_storage::OpenRead():
 * - VU_AREA_DOCS with the extension "kdf": exactly the named version.
 * - Other documents of VU_AREA_DOCS: version 0, if its file was modified at the time
 *   `document->version` or later; otherwise VU_OUTDATED.
 * - All others: version 0, whatever its age.
 * A file with the modification time 0 is never served: VU_OUTDATED.
 *
 * A stream that writes is not atomic: other programs wait for it, an interruption leaves the bytes
 * written so far, and only vu_stream_close() flushes them. Prefer vu_put().
 *
 * If a call fails after it has created the version, the version stays, empty: another program may
 * have opened it already. Then VU_WRITE_NEW returns VU_ALREADY; open it with VU_WRITE_OVER.
 *
 * @param mode one of the four.
 * @param stream receives the handle; null on failure. The caller closes it with vu_stream_close().
 * @return VU_NOTHING_MATCHED: there is nothing to read. VU_ALREADY: with VU_WRITE_NEW, it exists,
 *   or another program has written it during the call. VU_OUTDATED: see above.
 *
 * To read it waits for writers of the index, then for writers of the document. To write it waits
 * for writers of the index, and for a new version also for readers of the index. Then it waits for
 * readers and writers of the document and, to replace a version of VU_AREA_USER, of the category
 * files with its line. With a time limit it takes all these locks before it changes anything.
 */
VU_C_API vu_status vu_open(vu_store* store, const vu_document* document, int32_t mode,
                           vu_stream** stream);

/**
 * Opens a part ("sub-part" in the glossary) of a document of VU_AREA_DOCS, for example one page.
 *
 * Reading opens a part that is up to date. A newer preload copy (vu_storage::OpenReadSubPart())
 * is first copied over the part. After VU_OUTDATED the caller generates the part and writes it.
 *
 * @param rendition "html@" + name, "pdf@" + name, or another name without "@". The guard refuses
 *   any other "@", and the name "preload": the folder of the preload copies.
 * @param part the part's name.
 * @param mode VU_READ_SERVED or VU_WRITE_OVER.
 * @param stream receives the handle; null on failure. The caller closes it with vu_stream_close().
 * @return VU_NOTHING_MATCHED: there is no such version of the document. VU_OUTDATED: the part is
 *   missing or too old. VU_FAILED: also, at once, if a newer preload copy cannot be copied over the
 *   part, for example while another stream has the part open. Otherwise waits for writers of the
 *   index, then for writers of the part; to write it, also for its readers.
 */
VU_C_API vu_status vu_open_part(vu_store* store, const vu_document* document, const char* rendition,
                                const char* part, int32_t mode, vu_stream** stream);

/**
 * Reads from the position.
 * @param buffer the caller's; not null unless `room` is 0.
 * @param room the size of the buffer in bytes.
 * @param size receives the number of bytes read: less than `room` only at the end of the file, 0
 *   when nothing is left.
 * @return VU_USAGE: the stream writes.
 */
VU_C_API vu_status vu_stream_read(vu_stream* stream, void* buffer, size_t room, size_t* size);

/**
 * Writes at the position. The bytes are not flushed before vu_stream_close().
 * @param bytes may be null when `size` is 0.
 * @return VU_FAILED: not all bytes were written, for example because the disk is full. VU_USAGE:
 *   the stream reads.
 */
VU_C_API vu_status vu_stream_write(vu_stream* stream, const void* bytes, size_t size);

/** The origin of vu_stream_seek(). */
enum { VU_FROM_START = 0, VU_FROM_POSITION = 1, VU_FROM_END = 2 };

/**
 * Moves the position. A position before the start of the file is not reported; the position then
 * stays as it was.
 * @param distance in bytes, from -2147483648 to 2147483647.
 * @param origin VU_FROM_START, VU_FROM_POSITION or VU_FROM_END.
 * @return VU_USAGE: the distance or the origin is out of range.
 */
VU_C_API vu_status vu_stream_seek(vu_stream* stream, int64_t distance, int32_t origin);

/** Returns the size of the stream's file in bytes. */
VU_C_API vu_status vu_stream_size(vu_stream* stream, int64_t* size);

/** Closes a stream: flushes what was written to the device, then releases the lock.
 *  @return VU_FAILED: the system did not write all bytes to the device. After VU_BUSY the stream is
 *    still open; after any other result it is closed. */
VU_C_API vu_status vu_stream_close(vu_stream* stream);

/* ---- lists ---------------------------------------------------------------------------------- */

/** For lists: also returns sizes and times, at the cost of one system call for each entry. */
enum { VU_WITH_INFO = 1 };

/** One version in a list. Its texts are valid until the callback returns. */
typedef struct vu_entry {
  size_t struct_size; /**< set by the library */
  int32_t area;       /**< VU_AREA_... */
  uint32_t reserved;  /**< 0 */
  const char* owner;  /**< empty where owners share folders */
  const char* name;   /**< the logical name */
  const char* file;   /**< the name of its file in the folder */
  vu_info info;       /**< the version; size and times only with VU_WITH_INFO */
} vu_entry;

/** A callback of the caller, called once for each entry.
 *  @param context as passed to the call.
 *  @return 0 to continue; any other number ends the call with VU_INTERRUPTED. */
typedef int32_t (*vu_entry_visitor)(void* context, const vu_entry* entry);
/** As vu_entry_visitor, for names. */
typedef int32_t (*vu_name_visitor)(void* context, const char* name);

/**
 * Calls `visit` for each version of an owner's documents in one area: folder by folder, within a
 * folder in byte-wise order of the keys: `a.b_0000000001` comes before `a_0000000001`. Each folder
 * is read once, when its turn comes; later changes are not seen.
 * @param owner may be null where owners share folders.
 * @param flags VU_WITH_INFO.
 * @return VU_DONE, also when there are no documents. VU_PARTLY_DONE: a folder cannot be listed, so
 *   its orphans are not adopted. Waits for writers of each index.
 */
VU_C_API vu_status vu_each_document(vu_store* store, int32_t area, const char* owner,
                                    uint32_t flags, vu_entry_visitor visit, void* context);

/** As vu_each_document(), for the versions of one name, the oldest first. `document->version` is
 *  ignored. */
VU_C_API vu_status vu_each_version(vu_store* store, const vu_document* document, uint32_t flags,
                                   vu_entry_visitor visit, void* context);

/** Calls `visit` for each owner that has a folder in an area, in the order of the system. Where
 *  owners share folders there are none. Waits for nobody.
 *  @param area VU_AREA_... */
VU_C_API vu_status vu_each_owner(vu_store* store, int32_t area, vu_name_visitor visit,
                                 void* context);

/* ---- key files ------------------------------------------------------------------------------ */

/**
 * Key files contain lines NAME=VALUE. `document` names one; its version is ignored, because key
 * files have none. A change holds the lock of the file from reading to writing, so concurrent
 * changes do not overwrite each other. It empties the file and writes it: a failed write loses
 * lines.
 *
 * Line feeds, carriage returns and tabs end lines. A change keeps all other lines in their order,
 * also those without "=", for example comments. It writes one line feed after each line, and no
 * empty line except at the start of the file.
 *
 * The guard refuses with VU_REFUSED what the format cannot store. A line name must not be empty or
 * contain "=". Names and values must not contain a line feed, a carriage return or a tab.
 *
 * vu_key_get() returns the value of the first line with that name. VU_NOTHING_MATCHED: there is no
 * such line or file. Waits for writers of the index and for writers of the file.
 */
VU_C_API vu_status vu_key_get(vu_store* store, const vu_document* document, const char* line,
                              char* buffer, size_t room, size_t* size);
/** Sets the value of the first line with that name and removes the others. Creates a missing file
 *  or line. Waits for readers and writers of the index and of the file. */
VU_C_API vu_status vu_key_set(vu_store* store, const vu_document* document, const char* line,
                              const char* value);
/** Removes the lines with that name. VU_NOTHING_MATCHED: no such line. Waits as vu_key_set(). */
VU_C_API vu_status vu_key_delete(vu_store* store, const vu_document* document, const char* line);

/** As vu_entry_visitor, for lines. */
typedef int32_t (*vu_line_visitor)(void* context, const char* name, const char* value);
/** Calls `visit` for each line in file order. VU_NOTHING_MATCHED: there is no such file. Waits as
 *  vu_key_get(). */
VU_C_API vu_status vu_key_each(vu_store* store, const vu_document* document, vu_line_visitor visit,
                               void* context);

/**
 * Profiles are key files in a fixed place. An owner's profile is in VU_AREA_USER. The master
 * profile is in the configuration folder (docs/host-guide.md), which must exist. The calls behave
 * as those for key files.
 *
 * @param owner null for the master profile.
 * @param file null means "profile.txt", or "master.txt" if the master profile has no "profile.txt".
 *   A change then goes to "master.txt", too; a "profile.txt" that appears later hides it.
 */
VU_C_API vu_status vu_profile_get(vu_store* store, const char* owner, const char* file,
                                  const char* line, char* buffer, size_t room, size_t* size);
/** As vu_key_set(). */
VU_C_API vu_status vu_profile_set(vu_store* store, const char* owner, const char* file,
                                  const char* line, const char* value);
/** As vu_key_delete(). */
VU_C_API vu_status vu_profile_delete(vu_store* store, const char* owner, const char* file,
                                     const char* line);
/** As vu_key_each(). */
VU_C_API vu_status vu_profile_each(vu_store* store, const char* owner, const char* file,
                                   vu_line_visitor visit, void* context);

/* ---- owners and upkeep ---------------------------------------------------------------------- */

/**
 * Renames an owner's folders of mail, lists and own files. Corporate documents keep the old owner.
 * Takes and waits for no lock: nobody else may use these folders during the call. Not atomic: after
 * an interruption or VU_PARTLY_DONE some folders have the new name; a new call returns VU_ALREADY.
 * @return VU_ALREADY: a folder with the new name exists. VU_NOTHING_MATCHED: the old name has no
 *   folder. VU_PARTLY_DONE: a folder keeps the old name, on Windows for example because a file in
 *   it is open. VU_USAGE: owners share folders.
 */
VU_C_API vu_status vu_rename_owner(vu_store* store, const char* from, const char* to);

/**
 * Removes an owner's folders of mail, lists and own files with all files. Corporate documents stay.
 * Takes and waits for no lock: other programs lose the files that they use.
 * @return VU_NOTHING_MATCHED: the owner has no folder. VU_PARTLY_DONE: some files stay. VU_USAGE:
 *   owners share folders.
 */
VU_C_API vu_status vu_remove_owner(vu_store* store, const char* owner);

enum {
  VU_DRY_RUN = 1,   /**< only reports, removes nothing */
  VU_BY_ACCESS = 2, /**< age is the time since the last access, not since the last change */
  VU_CLEAN_ALL = 4  /**< allows `older_than` 0, which removes all versions */
};

/**
 * Removes the versions of an area that are older than a limit, with their parts. Then it sweeps
 * each folder: it removes orphans, and parts without a document, whatever their age. With adoption,
 * the call first adopts orphans: it then removes them by age, as versions. There is no sweep with
 * VU_DRY_RUN or with `older_than` 0.
 * @param owner null for every owner.
 * @param older_than in seconds, 0 to 4294967295.
 * @param flags VU_DRY_RUN, VU_BY_ACCESS, VU_CLEAN_ALL.
 * @param visit may be null; called for each version that is too old, before its folder is cleaned.
 *   After VU_INTERRUPTED that folder and all later ones are unchanged; earlier ones stay cleaned.
 *   The same is true after VU_LOCK_TIMEOUT for the folder with the lock.
 * @param count may be null; receives the number of versions removed (with VU_DRY_RUN: to remove),
 *   also when the call ends early.
 * @return VU_REFUSED: `older_than` is 0 without VU_CLEAN_ALL. VU_NO_NAME: the folder's name is not
 *   the same in UTF-8 and in the code page. VU_PARTLY_DONE: the system refused something. Waits for
 *   readers and writers of each index, not for streams.
 */
VU_C_API vu_status vu_clean(vu_store* store, int32_t area, const char* owner, int64_t older_than,
                            uint32_t flags, vu_entry_visitor visit, void* context, int64_t* count);

/**
 * Migrates an owner's mail folder: escaped file names become entries of the index and of the read
 * list. Not atomic: another call continues the work. The read list is written last. After an
 * interruption it can keep escaped names, which another call does not repair.
 * @return VU_DONE, with adoption also for a folder that is migrated already. VU_NOTHING_MATCHED:
 *   the owner has no mail folder. VU_REFUSED: the storage was opened with VU_NO_ADOPTION, and the
 *   migration needs adoption. VU_USAGE: owners share folders. Waits for readers and writers of the
 *   index and the read list. It keeps the lock of the list until the list is written, so a line
 *   that another program appends meanwhile stays.
 */
VU_C_API vu_status vu_migrate_inbox(vu_store* store, const char* owner);

/* ---- traces --------------------------------------------------------------------------------- */

/** The kind of a trace record. */
enum {
  VU_KIND_SCOPE_BEGIN = 1, /**< an operation begins; the text is its label */
  VU_KIND_SCOPE_END = 2,   /**< the operation ends */
  VU_KIND_MESSAGE = 3,     /**< a message of the operation */
  VU_KIND_RECORD = 4,      /**< a record with a level */
  VU_KIND_DONE = 5,        /**< an event: something was done */
  VU_KIND_MISSING = 6,     /**< an event: something was missing or refused */
  VU_KIND_FAILURE = 7      /**< an event: something failed */
};

/** One trace record. Valid until the sink returns. */
typedef struct vu_trace {
  size_t struct_size;    /**< set by the library */
  int32_t kind;          /**< VU_KIND_... */
  int32_t level;         /**< 0 (most important) to 4 (most detailed); -1: no level */
  const char* source;    /**< name of the source */
  int32_t line;          /**< line number in the source */
  uint32_t reserved;     /**< 0 */
  const char* signature; /**< signature of the operation */
  const char* text;      /**< bytes in the encoding of vu_host::trace_sink, and a NUL */
  size_t text_size;      /**< number of bytes without the NUL */
} vu_trace;

/** Receives traces, from any thread and from several at once. The library may hold locks: the sink
 *  must not call the library, and calls wait for it. */
typedef void (*vu_trace_sink)(void* context, const vu_trace* record);

/**
 * Sends every trace of the library to a callback, which replaces the sink of a C++ host. Call it
 * while no other thread is inside the library.
 * @param sink null for silence. It and `context` must stay valid until the next vu_set_trace()
 *   returns.
 * @param level the most detailed level to send: -1 (only events) to 4.
 */
VU_C_API vu_status vu_set_trace(vu_trace_sink sink, void* context, int32_t level);

#ifdef __cplusplus
}
#endif

#endif
