/**
 * @file
 * The C interface of the storage library: C99, and nothing of C++ crosses it.
 *
 * Read this page once; it holds for every call.
 *
 * What to know first
 * - One process has one storage: vu_open_store() initialises it, and every later handle leads to
 *   the same one.
 * - The lock of an open stream keeps other programs waiting. Close streams early.
 * - A child made by fork() must not use the parent's handles; start programs by exec.
 * - What a network file system makes of locks is told in docs/network-shares.md.
 *
 * Results. Every call that can fail returns a vu_status: 0 is success, nothing else is. What a call
 * would write through a pointer is written on success only, unless its description says otherwise.
 * vu_last_error() tells the reason of the last call of the calling thread. No call ends the
 * program, and no C++ exception leaves one. A callback must return: one that lets an exception out,
 * or leaves by longjmp(), keeps locks and handles in use for ever.
 *
 * Handles are opaque numbers. A handle that is closed, of another kind, or no handle at all is
 * answered by VU_BAD_HANDLE. A stream is used by one thread at a time, by whichever: a second one
 * that comes meanwhile is answered by VU_BUSY. A store may be used by any number at once.
 *
 * Memory. What the library allocates, and says so, is given back by vu_free(). Everything else is
 * the caller's. Pointers that a callback is given are valid during that call alone.
 *
 * Texts are UTF-8 on every system and end with a NUL. A call that gives a text or bytes takes
 * `buffer`, its `room` in bytes, and `size`: that receives the length needed, for texts without the
 * NUL, also where the answer is VU_TOO_SHORT. With a null `buffer` and a `room` of 0 it tells the
 * length and is a success. Paths come with the system's own separators, and may be given with
 * either.
 *
 * On Windows names of owners, paths and extensions of documents go through the code page of the
 * process. One that has no place there is answered by VU_NO_NAME, never changed. A program with
 * the UTF-8 manifest (docs/host-guide.md) has no such names. Names of documents before their
 * extension are kept in the index, and may be anything.
 *
 * Structures begin with `struct_size`, which the caller sets to the size of the structure that it
 * was compiled with; the INIT macros do. A later library knows a smaller one. An earlier library
 * takes a larger one when what it does not know is zero, and else answers VU_USAGE.
 *
 * Times are seconds since 1970-01-01 UTC, sizes are bytes, limits of waiting milliseconds.
 *
 * Waiting. "Waits" in a description means for locks of other handles and programs, as long as
 * vu_settings::wait_ms says, all waits of one call together. VU_LOCK_TIMEOUT means that the change
 * was not made; vu_put() and its kin leave nothing behind then but what docs/api.md names.
 */
#ifndef VU_STORAGE_C_H
#define VU_STORAGE_C_H

#include <stddef.h>
#include <stdint.h>

/** Before every function. A program that links the library as objects defines VU_STORAGE_STATIC. */
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

/** The version of the library that is loaded, such as "1.0.0". Never fails; any thread. */
VU_C_API const char* vu_version(void);
/** The same as a number, to compare with VU_VERSION_NUMBER. Never fails; any thread. */
VU_C_API int32_t vu_version_number(void);

/* ---- results -------------------------------------------------------------------------------- */

/** What became of a call. Numbers below 20 and 130 are the exit codes of `stgctl`. */
typedef int32_t vu_status;

enum {
  VU_DONE = 0,            /**< done */
  VU_FAILED = 1,          /**< the system refused something; see vu_last_error() */
  VU_USAGE = 2,           /**< an argument makes no sense: null, out of range, an unknown flag */
  VU_NOTHING_MATCHED = 3, /**< the request is fine, but nothing in the storage matches it */
  VU_PARTLY_DONE = 5,     /**< done, but for what vu_last_error() tells */
  VU_NO_TREE = 10,        /**< there is no such root folder, or no storage was opened yet */
  VU_LOCK_TIMEOUT = 11,   /**< a lock was not obtained in time; nothing was changed */
  VU_REFUSED = 12,        /**< the guard refuses the request (see vu_open_store()) */
  VU_ALREADY = 20,        /**< it is there already */
  VU_TOO_SHORT = 21,      /**< the buffer is too short; `size` tells what is needed */
  VU_BAD_HANDLE = 22,     /**< no handle, a closed one, or one of another kind */
  VU_BUSY = 23,           /**< another thread uses the handle just now */
  VU_NO_MEMORY = 24,      /**< out of memory */
  VU_NO_NAME = 25,        /**< the name has no place in the code page of the process */
  VU_OUTDATED = 26,       /**< there is one, but older than was asked for */
  VU_INTERRUPTED = 130    /**< the caller's callback ended it */
};

/** The name of a status, "VU_REFUSED" say; "?" for what is none. Never fails; any thread. */
VU_C_API const char* vu_status_name(vu_status status);

/** Why a call failed. All texts are never null; empty where there is nothing to tell. */
typedef struct vu_error {
  size_t struct_size;      /**< set by the caller */
  vu_status status;        /**< what the call returned */
  int32_t system_code;     /**< the system's error code; 0 when it was not the system */
  const char* operation;   /**< the call, "vu_read" say */
  const char* text;        /**< what happened */
  const char* path;        /**< the file or folder that it happened to */
  const char* system_text; /**< the system's words for its code */
} vu_error;

/** For the declaration of a vu_error. */
#define VU_ERROR_INIT \
  { sizeof(vu_error), 0, 0, NULL, NULL, NULL, NULL }

/**
 * Tells what the calling thread's last call came to, be it a success or not. vu_version(),
 * vu_status_name(), vu_free() and this one do not count as calls.
 * @param error receives it. The texts are the library's, and valid until the thread's next call.
 *   Each is cut after 1,023 bytes, never within a character.
 * @return VU_DONE; VU_USAGE for a null pointer or a size that is unknown.
 */
VU_C_API vu_status vu_last_error(vu_error* error);

/** Gives back what the library has allocated. Null is fine. Never fails; any thread. */
VU_C_API void vu_free(void* memory);

/* ---- the store ------------------------------------------------------------------------------ */

/** The storage of this process, with the settings of whoever opened it. */
typedef struct vu_store vu_store;

enum {
  VU_MAKE_ROOT = 1,      /**< the root and its parents are made when they are missing */
  VU_SHARED_FOLDERS = 2, /**< all owners share the area folders; else each has folders of its own */
  VU_NO_ADOPTION = 4,    /**< files that appear behind the index are left alone, not adopted;
                              whoever initialises decides that for the process */
  VU_NO_GUARD = 8        /**< names go to the library as they are */
};

/** For vu_settings::wait_ms: a lock that is held elsewhere ends the call at once. */
#define VU_NO_WAIT ((int64_t)-1)

/** How a store is opened. All zero but for the size and the root is a good choice. */
typedef struct vu_settings {
  size_t struct_size; /**< set by the caller */
  const char* root;   /**< the folder in which the folder "storage" lies or is made; null for the
                           storage that this process has opened already */
  uint32_t flags;     /**< VU_MAKE_ROOT, VU_SHARED_FOLDERS, VU_NO_ADOPTION, VU_NO_GUARD */
  uint32_t reserved;  /**< 0 */
  int64_t wait_ms;    /**< how long a call waits for locks: 0 as long as it takes, VU_NO_WAIT not at
                           all */
} vu_settings;

/** For the declaration of a vu_settings. */
#define VU_SETTINGS_INIT \
  { sizeof(vu_settings), NULL, 0, 0, 0 }

/**
 * Initialises the storage of this process, or gives another handle of it, with settings of its own.
 *
 * The guard, which is on unless VU_NO_GUARD is given, answers VU_REFUSED to names that would mean
 * something else than a name: with a separator, "." or "..", with "*" or "?", with a line feed or a
 * carriage return, "index.dat" and "index", empty ones, those that begin with ".vu-storing-", and
 * that of the file in which the folder keeps another document. On Windows also those with a colon,
 * with a dot or a blank at their end, and those of devices ("NUL"); letters count as in file names
 * there. Where owners share folders the owner may be null. Without the guard an empty owner or name
 * is VU_USAGE.
 *
 * @param settings null is VU_USAGE.
 * @param store receives the handle, with VU_DONE and VU_ALREADY; null otherwise. Give it back by
 *   vu_close_store().
 * @return VU_DONE when this call has initialised the storage. VU_ALREADY when it was initialised
 *   with this root before: the handle is good. VU_REFUSED when it was initialised with another root
 *   or layout; the path of vu_last_error() is the one in force. VU_NO_TREE when the root is no
 *   folder, or null with no storage open. VU_FAILED when the folders cannot be made.
 *
 * Waits while another thread initialises. Any thread.
 */
VU_C_API vu_status vu_open_store(const vu_settings* settings, vu_store** store);

/**
 * Gives a handle back. The storage stays initialised until the process ends, and streams stay open.
 * @return VU_DONE; VU_BUSY while a call with it is under way, on another thread or around the
 *   callback that asks; VU_BAD_HANDLE.
 */
VU_C_API vu_status vu_close_store(vu_store* store);

/** What a document belongs to. */
enum {
  VU_AREA_USER = 1, /**< an owner's own files */
  VU_AREA_DOCS = 2, /**< corporate documents */
  VU_AREA_MAIL = 3  /**< mail */
};

/**
 * The folder "storage" below the root, or that of an area in it.
 * @param area 0 for the storage itself.
 * @param buffer,room,size receive the path; see the head of this file.
 */
VU_C_API vu_status vu_folder(vu_store* store, int32_t area, char* buffer, size_t room,
                             size_t* size);

/* ---- documents ------------------------------------------------------------------------------ */

/** For vu_document::version: the latest one that there is. Not for calls that make a version. */
#define VU_LATEST ((int64_t)-1)

/** Which document, and which version of it. */
typedef struct vu_document {
  size_t struct_size; /**< set by the caller */
  int32_t area;       /**< VU_AREA_... */
  uint32_t reserved;  /**< 0 */
  const char* owner;  /**< a user or a domain; may be null where owners share folders */
  const char* name;   /**< with its extension */
  int64_t version;    /**< 0 to 2147483647: any stamp of the caller's; or VU_LATEST */
} vu_document;

/** For the declaration of a vu_document. */
#define VU_DOCUMENT_INIT \
  { sizeof(vu_document), VU_AREA_DOCS, 0, NULL, NULL, 0 }

/** What is known of a version. */
typedef struct vu_info {
  size_t struct_size; /**< set by the caller */
  int64_t version;    /**< its version, also where VU_LATEST was asked for */
  int64_t size;       /**< in bytes; -1 where nobody asked, or the system does not tell */
  int64_t modified;   /**< the last change of its bytes; -1 as above */
  int64_t accessed;   /**< the last access, as far as the system counts; -1 as above */
} vu_info;

/** For the declaration of a vu_info. */
#define VU_INFO_INIT \
  { sizeof(vu_info), 0, -1, -1, -1 }

/**
 * Whether a version exists.
 * @return VU_DONE when it does, VU_NOTHING_MATCHED when not.
 *
 * Waits for writers of the index. Any thread.
 */
VU_C_API vu_status vu_exists(vu_store* store, const vu_document* document);

/**
 * Size and times of a version.
 * @param info receives them.
 * @return VU_NOTHING_MATCHED when there is none. Waits as vu_exists(). Any thread.
 */
VU_C_API vu_status vu_describe(vu_store* store, const vu_document* document, vu_info* info);

/**
 * The path of a version's file. What another program does to that file the library does not see.
 * @return VU_NOTHING_MATCHED when there is none. Waits as vu_exists(). Any thread.
 */
VU_C_API vu_status vu_file_path(vu_store* store, const vu_document* document, char* buffer,
                                size_t room, size_t* size);

/**
 * Reads a version as a whole: exactly the version that is named, whatever its age. The rules of
 * age of the stated interface are those of VU_READ_SERVED, see vu_open().
 * @param buffer,room,size receive the bytes; see the head of this file. No NUL is added.
 * @return VU_NOTHING_MATCHED when there is none, VU_TOO_SHORT with nothing read.
 *
 * Waits for writers of the index and of the document. Any thread.
 */
VU_C_API vu_status vu_read(vu_store* store, const vu_document* document, void* buffer, size_t room,
                           size_t* size);

/**
 * The same into memory that the library allocates.
 * @param bytes receives it, with one NUL behind the last byte; for vu_free(). Null on failure.
 * @param size receives the number of bytes, the NUL not counted.
 */
VU_C_API vu_status vu_read_whole(vu_store* store, const vu_document* document, void** bytes,
                                 size_t* size);

enum {
  VU_REPLACE = 1, /**< what is there already is replaced; else it is VU_ALREADY */
  VU_IN_PLACE = 2 /**< the file is cut and written: half the work, and not atomic */
};

/** How a version came to be stored. */
enum {
  VU_STORED_AT_ONCE = 1, /**< whoever reads, and an interruption, meet the old version or the new */
  VU_STORED_IN_PLACE = 2 /**< an interruption may have left a part of it */
};

/**
 * Stores bytes as a version, and has them on the device before it returns.
 *
 * It stores at once: the bytes go into a file of their own, and one save of the index puts that in
 * the place of the name. An interruption leaves the old version, or none, whole; a file and an
 * entry that begins with ".vu-storing-" may stay behind, which vu_clean() removes with age. With
 * VU_IN_PLACE, and where a file in the folder bears the very name of the document, the file is cut
 * and written instead, and `how` tells.
 *
 * Replacing takes away what was made for the old content: the parts of a document (VU_AREA_DOCS),
 * the lines of category files (VU_AREA_USER).
 *
 * @param document with a version, not VU_LATEST.
 * @param bytes may be null when `size` is 0.
 * @param size their number.
 * @param flags VU_REPLACE, VU_IN_PLACE.
 * @param how may be null; receives VU_STORED_AT_ONCE or VU_STORED_IN_PLACE.
 * @return VU_ALREADY when the version existed at the beginning of the call and VU_REPLACE is not
 *   given. VU_PARTLY_DONE when the version is stored, but something was refused beside that.
 *   VU_FAILED leaves the old version. Where the system refuses to tell which one is there, and on
 *   Windows while somebody has the old file open, it may be the new one: whole in either case.
 *
 * Waits for writers and readers of the index, and of the document when it is written in place. Any
 * thread.
 */
VU_C_API vu_status vu_put(vu_store* store, const vu_document* document, const void* bytes,
                          size_t size, uint32_t flags, int32_t* how);

/**
 * Stores a file as a version, with its modification time; as vu_put().
 * @param path the file; VU_NOTHING_MATCHED when there is none. A lock of somebody else on it is
 *   not waited for: VU_FAILED.
 */
VU_C_API vu_status vu_copy_in(vu_store* store, const vu_document* document, const char* path,
                              uint32_t flags, int32_t* how);

/**
 * Copies a version to a file outside, with its modification time.
 * @param path the file.
 * @param flags VU_REPLACE, without which a file that exists is VU_ALREADY.
 * @return VU_NOTHING_MATCHED when there is no such version. A copy that fails half-way leaves no
 *   file. Locks on the document are not waited for. Waits as vu_exists(). Any thread.
 */
VU_C_API vu_status vu_copy_out(vu_store* store, const vu_document* document, const char* path,
                               uint32_t flags);

/**
 * Removes a version, with the lines of category files that name it.
 * @return VU_NOTHING_MATCHED when there is none; VU_FAILED when the system keeps the file.
 *
 * Waits for writers and readers of the index. Any thread.
 */
VU_C_API vu_status vu_remove(vu_store* store, const vu_document* document);

/**
 * Gives a version another name, version, owner or area. Parts of a document stay behind.
 *
 * Within one folder of the storage that is one save. Otherwise the version is copied, and the old
 * one removed when the copy stands: an interruption may leave both. Documents of VU_AREA_DOCS with
 * another name lie in another folder nearly always.
 *
 * @param flags VU_REPLACE, without which a version `to` that exists is VU_ALREADY.
 * @return VU_NOTHING_MATCHED when there is no `from`. Waits as vu_remove(). Any thread.
 */
VU_C_API vu_status vu_rename(vu_store* store, const vu_document* from, const vu_document* to,
                             uint32_t flags);

/**
 * The latest version of a name. `document->version` is not looked at.
 * @param version receives it.
 * @return VU_NOTHING_MATCHED when there is none. Waits as vu_exists(). Any thread.
 */
VU_C_API vu_status vu_latest(vu_store* store, const vu_document* document, int64_t* version);

/* ---- streams -------------------------------------------------------------------------------- */

/** An open file of the storage, with its lock. */
typedef struct vu_stream vu_stream;

/** How a stream is opened. */
enum {
  VU_READ_EXACT = 1,  /**< read the version that is named, whatever its age */
  VU_READ_SERVED = 2, /**< read what the stated interface serves, see vu_open() */
  VU_WRITE_NEW = 3,   /**< write a version that must not exist */
  VU_WRITE_OVER = 4   /**< write a version; one that exists is cut first */
};

/**
 * Opens a version for reading or writing. Readers share a lock, a writer has it alone.
 *
 * VU_READ_SERVED serves a document of VU_AREA_DOCS with the extension "kdf" only in its very
 * version. Anything else is served when it was stored as version 0; of VU_AREA_DOCS only when its
 * file is as new as `document->version` at least, otherwise it is VU_OUTDATED.
 *
 * A stream that writes is no vu_put(): others wait for it, and an interruption leaves a part.
 *
 * @param mode one of the four.
 * @param stream receives the handle, for vu_stream_close(); null on failure.
 * @return VU_NOTHING_MATCHED, VU_ALREADY, VU_OUTDATED as above.
 *
 * Waits for writers of the index, then for writers of the document, and when it writes for the
 * readers of both. Any thread.
 */
VU_C_API vu_status vu_open(vu_store* store, const vu_document* document, int32_t mode,
                           vu_stream** stream);

/**
 * Opens a part of a document of VU_AREA_DOCS, a page of its rendition, say.
 *
 * Reading opens the part when it is up to date, after refreshing it from its preload copy where
 * that is newer. VU_OUTDATED tells the caller to make the part and write it.
 *
 * @param rendition "html@" + name, "pdf@" + name, or another name without "@".
 * @param part the part's name.
 * @param mode VU_READ_SERVED or VU_WRITE_OVER.
 * @param stream receives the handle, for vu_stream_close(); null on failure.
 * @return VU_NOTHING_MATCHED when there is no such version of the document. Waits as vu_open().
 *   Any thread.
 */
VU_C_API vu_status vu_open_part(vu_store* store, const vu_document* document, const char* rendition,
                                const char* part, int32_t mode, vu_stream** stream);

/**
 * Reads from the position on.
 * @param buffer room for `room` bytes; not null unless `room` is 0.
 * @param size receives the number of bytes read: fewer than `room` at the end of the file only, 0
 *   when nothing is left.
 * @return VU_USAGE for a stream that writes.
 */
VU_C_API vu_status vu_stream_read(vu_stream* stream, void* buffer, size_t room, size_t* size);

/**
 * Writes at the position.
 * @param bytes may be null when `size` is 0.
 * @return VU_FAILED when not all bytes were written, as on a full disk; VU_USAGE for a stream that
 *   reads.
 */
VU_C_API vu_status vu_stream_write(vu_stream* stream, const void* bytes, size_t size);

/** From where vu_stream_seek() counts. */
enum { VU_FROM_START = 0, VU_FROM_POSITION = 1, VU_FROM_END = 2 };

/**
 * Moves the position.
 * @param distance in bytes, between -2147483648 and 2147483647.
 * @return VU_USAGE for another distance or origin. That a position cannot be is not told.
 */
VU_C_API vu_status vu_stream_seek(vu_stream* stream, int64_t distance, int32_t origin);

/** The size of the stream's file in bytes. */
VU_C_API vu_status vu_stream_size(vu_stream* stream, int64_t* size);

/**
 * Closes a stream: what was written is on the device, and the lock is given back.
 * @return VU_FAILED when the system could not write all of it to the device. The stream is closed
 *   in any case but VU_BUSY and VU_BAD_HANDLE.
 */
VU_C_API vu_status vu_stream_close(vu_stream* stream);

/* ---- lists ---------------------------------------------------------------------------------- */

/** For lists: sizes and times as well, which costs a question to the system for each entry. */
enum { VU_WITH_INFO = 1 };

/** One version in a list. */
typedef struct vu_entry {
  size_t struct_size; /**< set by the library */
  int32_t area;       /**< VU_AREA_... */
  uint32_t reserved;  /**< 0 */
  const char* owner;  /**< empty where owners share folders */
  const char* name;   /**< the document's name */
  const char* file;   /**< the name of its file in the folder */
  vu_info info;       /**< its version; the rest with VU_WITH_INFO */
} vu_entry;

/**
 * Is called for each entry, with no lock held: it may call the library.
 * @param context as it was given.
 * @param entry valid during the call alone.
 * @return 0 to go on; anything else ends the list with VU_INTERRUPTED.
 */
typedef int32_t (*vu_entry_visitor)(void* context, const vu_entry* entry);
/** The same for names. */
typedef int32_t (*vu_name_visitor)(void* context, const char* name);

/**
 * Goes through the documents of an owner in one area, folder by folder, within each in the order of
 * the index (by name and version). Each folder is as it was when its turn came. Nothing is copied
 * into a list.
 * @param owner may be null where owners share folders.
 * @param flags VU_WITH_INFO.
 * @return VU_DONE, also when there is none. Waits for writers of each index. Any thread.
 */
VU_C_API vu_status vu_each_document(vu_store* store, int32_t area, const char* owner,
                                    uint32_t flags, vu_entry_visitor visit, void* context);

/** Goes through the versions of one name, the oldest first; `document->version` is not looked at.
 *  Otherwise as vu_each_document(). */
VU_C_API vu_status vu_each_version(vu_store* store, const vu_document* document, uint32_t flags,
                                   vu_entry_visitor visit, void* context);

/**
 * Goes through the owners that have a folder in an area, in the system's order; none where owners
 * share folders.
 * @param area VU_AREA_...
 */
VU_C_API vu_status vu_each_owner(vu_store* store, int32_t area, vu_name_visitor visit,
                                 void* context);

/* ---- key files ------------------------------------------------------------------------------ */

/**
 * Key files are small texts of lines NAME=VALUE. `document` names one; its version is not looked
 * at, since key files have none. A change locks the file from the read to the write, so that none
 * is lost. It cuts the file and writes it: an interruption may leave a part.
 *
 * With the guard on VU_REFUSED answers line names that are empty or hold "=", and names and values
 * that hold a line feed, a carriage return or a tab: the format cannot keep them.
 */

/** The value of the first line with that name. VU_NOTHING_MATCHED when there is no line or file.
 *  Waits for writers of the index and of the file. Any thread. */
VU_C_API vu_status vu_key_get(vu_store* store, const vu_document* document, const char* line,
                              char* buffer, size_t room, size_t* size);
/** Gives the first line of that name a value and drops the others; a missing file or line is made.
 *  Waits for writers and readers of the index and of the file. Any thread. */
VU_C_API vu_status vu_key_set(vu_store* store, const vu_document* document, const char* line,
                              const char* value);
/** Drops the lines of that name. VU_NOTHING_MATCHED when there is none. Waits as vu_key_set(). Any
 *  thread. */
VU_C_API vu_status vu_key_delete(vu_store* store, const vu_document* document, const char* line);

/** Is called for each line; see vu_entry_visitor. */
typedef int32_t (*vu_line_visitor)(void* context, const char* name, const char* value);
/** Goes through the lines in their order, with no lock held. VU_NOTHING_MATCHED when there is no
 *  such file. Waits as vu_key_get(). Any thread. */
VU_C_API vu_status vu_key_each(vu_store* store, const vu_document* document, vu_line_visitor visit,
                               void* context);

/**
 * Profiles are key files with a fixed place: an owner's lies in VU_AREA_USER, the master profile in
 * the configuration folder (docs/host-guide.md), which must exist.
 *
 * @param owner null for the master profile.
 * @param file null for "profile.txt", of the master profile "master.txt" where that is missing.
 *
 * Otherwise as the calls for key files.
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
 * Renames an owner's folders of mail, lists and own files; corporate documents stay. Nobody else
 * may use these folders meanwhile.
 * @return VU_ALREADY when the new name has one of these folders, VU_NOTHING_MATCHED when the old
 *   one has none, VU_PARTLY_DONE when one could not be renamed.
 */
VU_C_API vu_status vu_rename_owner(vu_store* store, const char* from, const char* to);

/**
 * Removes an owner's folders of mail, lists and own files with everything in them; corporate
 * documents stay.
 * @return VU_NOTHING_MATCHED when there is none, VU_PARTLY_DONE when something stays.
 */
VU_C_API vu_status vu_remove_owner(vu_store* store, const char* owner);

enum {
  VU_DRY_RUN = 1,   /**< only tell what would go */
  VU_BY_ACCESS = 2, /**< the last access counts, not the last change */
  VU_CLEAN_ALL = 4  /**< with `older_than` 0: everything goes. Without it 0 is VU_REFUSED. */
};

/**
 * Removes the versions of an area that have not been used for some time, with their parts, and
 * sweeps away files that no index accounts for (but not with `older_than` 0).
 * @param owner null for every owner.
 * @param older_than in seconds, 0 to 4294967295.
 * @param flags VU_DRY_RUN, VU_BY_ACCESS, VU_CLEAN_ALL.
 * @param visit may be null; is told each version that is out of date, before its folder is cleaned.
 *   What it ends with VU_INTERRUPTED leaves that folder and those after it as they are.
 * @param count may be null; receives the number of versions that went, or would.
 * @return VU_NO_NAME for an owner whose name needs another code page than UTF-8. VU_PARTLY_DONE
 *   when something was refused on the way. Waits for writers and readers of each index. Any thread.
 */
VU_C_API vu_status vu_clean(vu_store* store, int32_t area, const char* owner, int64_t older_than,
                            uint32_t flags, vu_entry_visitor visit, void* context, int64_t* count);

/**
 * Converts an owner's mail folder once from escaped names to index entries, with its read list.
 * @return VU_DONE, also for one that is converted already; VU_NOTHING_MATCHED when the owner has no
 *   mail folder; VU_REFUSED where files are not adopted: the escaped ones would stay for ever.
 *   Waits for writers and readers of the index and the read list. Any thread.
 */
VU_C_API vu_status vu_migrate_inbox(vu_store* store, const char* owner);

/* ---- traces --------------------------------------------------------------------------------- */

/** What a trace record is. */
enum {
  VU_KIND_SCOPE_BEGIN = 1, /**< an operation begins; the text is its label */
  VU_KIND_SCOPE_END = 2,   /**< it ends */
  VU_KIND_MESSAGE = 3,     /**< a message of the operation */
  VU_KIND_RECORD = 4,      /**< a record at a level */
  VU_KIND_DONE = 5,        /**< an event: something was done */
  VU_KIND_MISSING = 6,     /**< an event: something was missing or refused */
  VU_KIND_FAILURE = 7      /**< an event: something failed */
};

/** One trace record. */
typedef struct vu_trace {
  size_t struct_size;    /**< set by the library */
  int32_t kind;          /**< VU_KIND_... */
  int32_t level;         /**< 0 for the smallest circle of records to 4 for the widest; -1: none */
  const char* source;    /**< the source's name */
  int32_t line;          /**< line number in that source */
  uint32_t reserved;     /**< 0 */
  const char* signature; /**< of the operation */
  const char* text;      /**< bytes as the library has them, with a NUL behind the last one */
  size_t text_size;      /**< without that NUL */
} vu_trace;

/** Receives traces, from any thread, several at once. It must not call the library. */
typedef void (*vu_trace_sink)(void* context, const vu_trace* record);

/**
 * Has every trace of the library told to a callback. It takes the place of a sink that a C++ host
 * has installed. Call it while no other thread is inside the library.
 * @param sink null for silence.
 * @param level up to which level records and scopes are told: -1 (events alone) to 4.
 */
VU_C_API vu_status vu_set_trace(vu_trace_sink sink, void* context, int32_t level);

#ifdef __cplusplus
}
#endif

#endif
