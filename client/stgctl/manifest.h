#pragma once

#include "client/admin/entries.h"
#include "client/admin/text.h"
#include "client/stgctl/change_report.h"
#include "client/stgctl/new_file.h"

/// @file
/// The manifest of an export: every file with its time and its checksum. One JSON object per line:
/// the tree, then the items in the order of an inventory, then the totals. The totals include the
/// checksum of all earlier lines. It is written last, so an unfinished export has no manifest.
namespace stgctl {

inline constexpr const char* kManifestSchema = "stgctl.manifest/1";
inline constexpr std::string_view kManifestName = "manifest.jsonl";
inline constexpr std::string_view kUnfinishedManifestName = "manifest.jsonl.part";

/// What was exported: the layout of the tree, and the limits of the export.
struct ManifestHead {
  admin::Layout layout = admin::Layout::kOwner;
  admin::Scope scope;
};

/// One file of the export. Its size and modification time are those of `what.info`.
struct ManifestItem {
  admin::Holding what;
  std::string file;  ///< in the export's folder: portable names between "/"
  std::string checksum;
};

struct ManifestSums {
  std::uint64_t versions = 0;
  std::uint64_t parts = 0;
  std::uint64_t files = 0;
  std::uint64_t bytes = 0;
  std::uint64_t failed = 0;  ///< items that could not be read for the export

  void add(const ManifestItem& item);
  std::uint64_t items() const { return versions + parts + files; }
  /// "3 versions, 2 sub-parts, 0 files by path"
  std::string in_words() const;
  /// The fields "versions", "parts", "files" and "bytes".
  Json fields() const;
};

/// Writes a manifest. Without end() it stays unfinished.
class ManifestWriter {
 public:
  /// @throws Failure kFailed, as do the other functions.
  ManifestWriter(const std::string& folder, const ManifestHead& head);

  void add(const ManifestItem& item);
  void end(std::uint64_t failed);

 private:
  void line(const std::string& text);

  NewFile m_file;
  admin::Checksum m_checksum;
  ManifestSums m_sums;
};

/// Reads a manifest item by item. It does not trust the text: an item whose file or path would
/// leave its folder counts as damage.
class ManifestReader {
 public:
  /// @throws Failure kFailed for a folder without a manifest and, as the other functions, for a
  /// damaged one.
  explicit ManifestReader(const std::string& folder);

  const ManifestHead& head() const { return m_head; }
  /// Reads the next item. After the last one it checks the totals and returns false.
  bool next(ManifestItem& item);
  /// After the last item: the totals in the manifest.
  const ManifestSums& sums() const { return m_sums; }

 private:
  bool read_line(std::string& text);
  void read_head();
  [[noreturn]] void damaged(const std::string& why) const;

  std::string m_path;
  std::ifstream m_stream;
  std::uint64_t m_line = 0;
  ManifestHead m_head;
  admin::Checksum m_checksum;
  std::optional<admin::Holding> m_last;
  ManifestSums m_sums;  ///< so far
};

/// The item as reports name it; a file by its path.
Subject subject_of(const admin::Holding& what);
/// The fields "kind", "path" of a sub-part, "file" and "bytes".
Json fields_of(const ManifestItem& item);
/// The same as text, without the file.
std::string tail_of(const ManifestItem& item);

/// The path of a file of an export.
std::string location_in(const std::string& folder, const std::string& file);

/// The intersection of both scopes, for an export with limits.
/// @throws Failure kNothingMatched if it is empty.
admin::Scope common_scope(const admin::Scope& one, const admin::Scope& other);
/// Whether an item is in a scope.
bool is_in_scope(const admin::Holding& what, const admin::Scope& scope);

}  // namespace stgctl
