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
/// The bytes of a file of saved names, as pure functions. docs/formats.md tells them one by one.
namespace admin::names_format {

/// A text is known by 128 bits of its bytes.
struct Digest {
  std::uint64_t low = 0;
  std::uint64_t high = 0;
  bool operator==(const Digest&) const = default;
};
Digest digest_of(std::string_view bytes);
std::uint64_t checksum_of(std::string_view bytes);

/// Stands at the begin of the file.
inline constexpr std::string_view kHead = "stgctl-names/1\r\n";

/// A saved index: where its text lies in the file, and what it has to be.
struct SavedIndex {
  std::uint64_t at = 0;
  std::uint64_t size = 0;     ///< of the index
  std::uint64_t entries = 0;  ///< lines that can be entries
  Digest digest;
  bool operator==(const SavedIndex&) const = default;
};
/// The indexes of a tree, by the folders they lie in: "docs/anna/00000097".
using SavedIndexes = std::map<std::string, SavedIndex, std::less<>>;

/// What is known about the text of an index; where it lies is left open.
SavedIndex measure(std::string_view text);
/// The digest of all indexes together.
std::uint64_t checksum_of(const SavedIndexes& indexes);

/// Text that a saved text shares with an earlier one is not stored again.
struct TextHead {
  std::uint64_t base = 0;   ///< where the earlier text lies; 0 for none
  std::uint32_t depth = 0;  ///< how many earlier texts have to be read
  std::uint32_t front = 0;  ///< bytes that its beginning shares
  std::uint32_t back = 0;   ///< bytes that its end shares
  std::uint32_t own = 0;    ///< bytes that follow here
};
inline constexpr std::size_t kTextHeadSize = 24;
std::string encode(const TextHead& head);
std::optional<TextHead> decode_text_head(std::string_view bytes);

/// What a snapshot says about itself.
struct Snapshot {
  std::uint64_t number = 0;  ///< from 1
  std::int64_t time = 0;     ///< seconds since 1970 UTC
  std::string storage;       ///< the storage folder
  Layout layout = Layout::kOwner;
  std::uint64_t folders = 0;  ///< indexes
  std::uint64_t entries = 0;
  std::uint64_t bytes = 0;  ///< of the indexes
  std::uint64_t changed = 0;
  std::uint64_t added = 0;
  std::uint64_t removed = 0;
  std::uint64_t unread = 0;    ///< indexes that could not be read and stand as they were before
  std::uint64_t checksum = 0;  ///< of all indexes together
  /// Whether the list is whole, or tells what changed since the snapshot before.
  bool is_whole = true;
};

/// A snapshot and its list: an index, or nothing for a folder that has none any more.
struct Manifest {
  Snapshot snapshot;
  std::map<std::string, std::optional<SavedIndex>, std::less<>> list;
};
std::string encode(const Manifest& manifest);
/// Nothing when the bytes are not those of a manifest.
std::optional<Manifest> decode_manifest(std::string_view bytes);

/// What ends a snapshot in the file. It comes last: without it nothing before counts.
struct Trailer {
  std::uint64_t number = 0;
  std::uint64_t manifest_at = 0;
  std::uint64_t manifest_size = 0;
  std::uint64_t manifest_checksum = 0;
  std::uint64_t previous = 0;  ///< where the trailer before lies; 0 for none
};
inline constexpr std::size_t kTrailerSize = 56;
inline constexpr std::string_view kTrailerMark = "\x89nam\r\n\x1a\n";
/// @param at where it lies in the file: elsewhere its bytes are no trailer.
std::string encode(const Trailer& trailer, std::uint64_t at);
std::optional<Trailer> decode_trailer(std::string_view bytes, std::uint64_t at);

}  // namespace admin::names_format

namespace admin {

// ---- taking a snapshot -------------------------------------------------------------------------

/// The name under which a snapshot keeps the index of a folder: its path below the storage folder,
/// with "/".
std::string saved_name_of(const Tree& tree, std::string_view folder);
/// The folder of such a name in a tree, whether it exists there or not. Nothing for a name that is
/// none, or that the tree's layout does not have.
std::optional<DocumentFolder> folder_of_saved_name(const Tree& tree, std::string_view name);

/// Hands the text of an index that differs from all earlier ones on to whoever keeps it.
/// @param earlier the index of the same folder before, or null.
using KeepText = std::function<names_format::SavedIndex(std::string_view text,
                                                        const names_format::SavedIndex* earlier)>;

struct SnapshotOptions {
  sys::Locking locking;
  /// Ends the walk at the next folder once it is set.
  const std::atomic<bool>* stop = nullptr;
  /// Told of each folder before its index is read.
  std::function<void(const DocumentFolder&)> on_folder;
};

/// The indexes of a tree at this moment, folder after folder: each is read once, under a shared
/// lock.
struct TakenIndexes {
  names_format::SavedIndexes indexes;
  std::uint64_t unread = 0;  ///< could not be read, and stand as they were before
  bool lock_missed = false;  ///< at least one of them for a lock
  bool was_stopped = false;
};
TakenIndexes take_indexes(const Tree& tree, const names_format::SavedIndexes& before,
                          const SnapshotOptions& options, const KeepText& keep,
                          const FailureSink& failed);

}  // namespace admin
