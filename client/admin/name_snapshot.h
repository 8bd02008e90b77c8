#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "client/admin/entries.h"
#include "client/admin/system.h"
#include "client/admin/tree.h"

/// @file
/// Reads and writes the bytes of a file of saved names, without file access. docs/formats.md
/// describes the format.
namespace admin::names_format {

/// A 128-bit hash that identifies a text.
struct Digest {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  bool operator==(const Digest&) const = default;
};
Digest digest_of(std::string_view bytes);
std::uint64_t checksum_of(std::string_view bytes);

/// The first bytes of the file.
inline constexpr std::string_view kHead = "stgctl-names/1\r\n";

/// A saved index: the position of its text in the file, and the properties to check.
struct SavedIndex {
  std::uint64_t at = 0;
  std::uint64_t size = 0;     ///< of the text
  std::uint64_t entries = 0;  ///< lines with the form of an entry
  Digest digest;
  bool operator==(const SavedIndex&) const = default;
};
/// The indexes of a tree by their folders, for example "docs/anna/00000097".
using SavedIndexes = std::map<std::string, SavedIndex, std::less<>>;

/// All properties of a text except its position.
SavedIndex measure(std::string_view text);
std::uint64_t checksum_of(const SavedIndexes& indexes);

/// The head of a saved text. Only the bytes that differ from an earlier text are stored.
struct TextHead {
  std::uint64_t base = 0;   ///< position of the earlier text; 0: none
  std::uint32_t depth = 0;  ///< number of earlier texts to read
  std::uint32_t front = 0;  ///< number of shared bytes at the start
  std::uint32_t back = 0;   ///< number of shared bytes at the end
  std::uint32_t own = 0;    ///< number of bytes that follow this head
};
inline constexpr std::size_t kTextHeadSize = 24;
std::string encode(const TextHead& head);
std::optional<TextHead> decode_text_head(std::string_view bytes);

/// The description of a snapshot.
struct Snapshot {
  std::uint64_t number = 0;  ///< from 1
  std::int64_t time = 0;     ///< seconds since 1970 UTC
  std::string storage;       ///< the storage folder
  Layout layout = Layout::kOwner;
  std::uint64_t folders = 0;  ///< number of indexes
  std::uint64_t entries = 0;
  std::uint64_t bytes = 0;  ///< of the indexes
  std::uint64_t changed = 0;
  std::uint64_t added = 0;
  std::uint64_t removed = 0;
  std::uint64_t unread = 0;    ///< indexes that could not be read; the snapshot contains their
                               ///< previous state
  std::uint64_t checksum = 0;  ///< of all indexes together
  /// Whether the list contains all indexes; else only the changes since the previous snapshot.
  bool is_whole = true;
};

/// A snapshot and its list. A folder whose index was removed has no value.
struct Manifest {
  Snapshot snapshot;
  std::map<std::string, std::optional<SavedIndex>, std::less<>> list;
};
std::string encode(const Manifest& manifest);
/// Nothing if the bytes are not a manifest.
std::optional<Manifest> decode_manifest(std::string_view bytes);

/// The end of a snapshot. It is written last: without it the snapshot is not valid.
struct Trailer {
  std::uint64_t number = 0;
  std::uint64_t manifest_at = 0;
  std::uint64_t manifest_size = 0;
  std::uint64_t manifest_checksum = 0;
  std::uint64_t previous = 0;  ///< position of the previous trailer; 0: none
};
inline constexpr std::size_t kTrailerSize = 56;
inline constexpr std::string_view kTrailerMark = "\x89nam\r\n\x1a\n";
/// @param at the position in the file. The checksum includes it, so a copy elsewhere is not valid.
std::string encode(const Trailer& trailer, std::uint64_t at);
std::optional<Trailer> decode_trailer(std::string_view bytes, std::uint64_t at);

}  // namespace admin::names_format

namespace admin {

// ---- taking a snapshot -------------------------------------------------------------------------

/// The name of a folder in a snapshot: its path below the storage folder, with "/".
std::string saved_name_of(const Tree& tree, std::string_view folder);
/// The folder with such a name; it need not exist. Nothing if the name is invalid, or not possible
/// in the tree's layout.
std::optional<DocumentFolder> folder_of_saved_name(const Tree& tree, std::string_view name);

/// Saves a text that differs from all earlier ones.
/// @param earlier the previous index of the same folder, or null.
using KeepText = std::function<names_format::SavedIndex(std::string_view text,
                                                        const names_format::SavedIndex* earlier)>;

/// The indexes of a tree. Each was read once, under a shared lock, at a different moment.
struct TakenIndexes {
  names_format::SavedIndexes indexes;
  std::uint64_t unread = 0;  ///< could not be read: their previous state was kept
  bool lock_missed = false;  ///< at least one because of a lock
  bool was_stopped = false;
};
TakenIndexes take_indexes(const Tree& tree, const names_format::SavedIndexes& before,
                          const WalkOptions& options, const KeepText& keep,
                          const FailureSink& failed);

}  // namespace admin
