#include "client/admin/check.h"

#include <algorithm>
#include <charconv>
#include <deque>
#include <unordered_set>
#include <vector>

#include "client/admin/folder_view.h"
#include "client/admin/key_files.h"
#include "client/admin/locked_file.h"
#include "client/admin/repair_text.h"
#include "client/admin/text.h"
#include "index/index_format.h"
#include "storage/key_text.h"
#include "storage/layout.h"

namespace admin {

namespace {

std::string_view extension_without_dot(std::string_view name) {
  const std::string_view extension = index_format::extension_of(name);
  return extension.empty() ? extension : extension.substr(1);
}

std::string in_quotes(std::string_view text) { return "\"" + printable(text) + "\""; }

/// Checks one document folder.
class FolderCheck {
 public:
  /// @param view has loaded the folder.
  FolderCheck(const FolderView& view, const CheckOptions& options, CheckSummary& summary,
              const FindingSink& sink)
      : m_view(view), m_options(options), m_summary(summary), m_sink(sink), m_lint(view) {}

  void run() {
    ++m_summary.folders;
    // A folder with another name is not a bucket; the walk has already reported it.
    const std::string& bucket = m_view.folder().bucket;
    std::from_chars(bucket.data(), bucket.data() + bucket.size(), m_bucket);
    if (!m_view.status().ok()) {
      if (m_view.status().failure() == os::Failure::kNotFound) return;
      found(Code::kUnreadableFolder, "", sys::text_of(m_view.status()));
      return;
    }
    if (!check_index_state()) return;
    check_lines();
    check_names();
    if (expects_index(m_view.folder().area) && check_writable()) check_counter();
    if (m_options.depth == Depth::kFull) check_key_files();
  }

 private:
  void found(Code code, std::string_view name, std::string detail = {}, std::size_t line = 0) {
    const DocumentFolder& folder = m_view.folder();
    m_sink(
        {code, folder.area, folder.owner, folder.path, std::string(name), line, std::move(detail)});
  }

  /// A finding about the version that the line names.
  void found(Code code, const LintedLine& line, std::string detail) {
    const DocumentFolder& folder = m_view.folder();
    m_sink({code, folder.area, folder.owner, folder.path, std::string(line.logical), line.number,
            std::move(detail), line.timestamp});
  }

  /// A finding about the key of a line, which may lead to no version.
  void found_key(Code code, const LintedLine& line, const std::string& detail) {
    const DocumentFolder& folder = m_view.folder();
    m_sink({code, folder.area, folder.owner, folder.path, index_format::kIndexFile, line.number,
            "key " + in_quotes(line.key) + ", " + detail, std::nullopt, std::string(line.key)});
  }

  /// @return whether check_counter() can read the counter.
  bool check_writable() {
    if (!m_options.ask_writable) return true;
    bool has_counter = true;
    for (const Obstacle& each : obstacles_to_writing(m_view.folder().path)) {
      const bool is_told =
          each.kind == Obstacle::Kind::kIndex && m_view.index_state() == IndexState::kFailed;
      if (each.kind == Obstacle::Kind::kCounter) {
        has_counter = false;
        found(Code::kCounterUnusable, index_format::kCounterFile, each.why);
      } else if (!is_told) {
        found(Code::kNotWritable,
              each.kind == Obstacle::Kind::kIndex ? index_format::kIndexFile : "", each.why);
      }
    }
    return has_counter;
  }

  bool check_index_state() {
    switch (m_view.index_state()) {
      case IndexState::kLocked:
        found(Code::kLockNotObtained, index_format::kIndexFile,
              "waited " + std::to_string(m_options.locking.time_out.count()) + " ms");
        return false;
      case IndexState::kFailed:
        // check_name() reports a link.
        if (m_view.kind_of(index_format::kIndexFile) != sys::Kind::kLink)
          found(Code::kUnreadableIndex, index_format::kIndexFile,
                sys::text_of(m_view.index_status()));
        return true;
      case IndexState::kNoBytes: found(Code::kEmptyIndex, index_format::kIndexFile); return true;
      default:
        if (m_view.has_interrupted_save())
          found(Code::kInterruptedSave, index_format::kIndexFile,
                std::to_string(m_view.index_text().size()) + " bytes of text in a file of " +
                    std::to_string(m_view.index_bytes().size()) + " bytes");
        return true;
    }
  }

  // ---- lines -----------------------------------------------------------------------------------

  void check_lines() {
    for (const LintedLine& line : m_lint) check_line(line);
    if (const std::size_t count = m_lint.unordered_lines(); count != 0)
      found(Code::kUnorderedLines, index_format::kIndexFile,
            std::to_string(count) + " out of order");
  }

  void check_line(const LintedLine& line) {
    const auto malformed = [&](const char* before, const char* after) {
      constexpr std::size_t kShown = 80;
      const std::size_t end = std::min(kShown, line.raw.find('\0'));
      found(Code::kMalformedLine, index_format::kIndexFile,
            before + in_quotes(line.raw.substr(0, end)) + after, line.number);
    };
    if (line.has_zeros && line.verdict != Verdict::kUnknown)
      return malformed("zeros, possibly in place of other lines, follow ", "");
    switch (line.verdict) {
      case Verdict::kEntry: check_entry(line); break;
      case Verdict::kNoFile:
        ++m_summary.unserved;
        found(Code::kLineWithoutFile, line, "physical name " + in_quotes(line.stored));
        break;
      case Verdict::kUnknown:
        found(Code::kUnknownLine, line, "physical name " + in_quotes(line.stored));
        break;
      case Verdict::kDuplicateKey:
        found_key(Code::kDuplicateKey, line,
                  "physical name " + in_quotes(line.stored) + ", same key as line " +
                      std::to_string(line.same_key_as));
        break;
      case Verdict::kNoSeparator: malformed("", " contains no \"/\""); break;
      case Verdict::kShortKey: malformed("the key in ", " is too short"); break;
    }
  }

  void check_entry(const LintedLine& line) {
    ++m_summary.entries;
    if (line.has_odd_stamp) found_key(Code::kOddTimestamp, line, "file " + in_quotes(line.file));
    const bool is_replaced = line.listed != FolderView::kNone &&
                             (m_view.names()[line.listed].kind == sys::Kind::kFolder ||
                              m_view.names()[line.listed].kind == sys::Kind::kOther);
    if (is_replaced) found(Code::kDocumentReplaced, line, "file " + in_quotes(line.file));
    if (is_replaced || !line.has_file) ++m_summary.unserved;
    if (!line.has_file)
      found(Code::kEntryWithoutFile, line,
            "physical name " + in_quotes(line.stored) + ", file " + in_quotes(line.file));
    if (line.same_stored_as != 0)
      found_key(Code::kDuplicatePhysicalName, line,
                "physical name " + in_quotes(line.stored) + " in lines " +
                    std::to_string(line.same_stored_as) + " and " + std::to_string(line.number));
    if (const char* why = why_not_safe(line.logical)) found(Code::kUnsafeName, line, why);
    check_reach(line);
    const bool is_own_name = line.timestamp == 0 && line.stored == line.logical;
    if (!is_own_name) {
      note_number(line.stored);
      if (m_options.depth == Depth::kFull) check_case(m_folded_keys, line.key, line.logical);
    }
    const std::string_view extension = extension_without_dot(line.logical);
    if (extension == "ctg") m_category_files.emplace_back(line.file);
    if (line.logical == "attribut.txt") m_key_files.emplace_back(line.file);
    if (m_options.depth != Depth::kFull || !index_format::is_document_extension(extension)) return;
    const sys::Info info = sys::describe(m_view.path_of(line.file));
    if (info.kind == sys::Kind::kFile && info.size == 0)
      found(Code::kEmptyDocument, line, "file " + in_quotes(line.file));
  }

  void check_reach(const LintedLine& line) {
    const DocumentFolder& folder = m_view.folder();
    if (!expects_index(folder.area)) return;
    const bool in_docs = folder.area == Area::kDocs;
    if (in_docs && bucket_number(line.logical) != m_bucket) {
      ++m_summary.unserved;
      found(Code::kWrongBucket, line, "it belongs in " + bucket_of(line.logical));
    }
    if (const std::uint32_t at = m_view.find(line.logical);
        at != FolderView::kNone && at != line.listed) {
      found(Code::kShadowedName, line,
            "timestamp " + std::to_string(line.timestamp) + ", physical name " +
                in_quotes(line.stored));
      return;
    }
    const bool is_versioned = in_docs && extension_without_dot(line.logical) == "kdf";
    if (line.timestamp != 0 && !is_versioned)
      found(Code::kUnreachableTimestamp, line, "timestamp " + std::to_string(line.timestamp));
  }

  /// Reports a name that differs from an earlier name of @p table only in letter case. @p shown is
  /// the name in the report.
  void check_case(FirstLines& table, std::string_view name, std::string_view shown) {
    std::string& folded = m_folded.emplace_back();
    fold_case(name, folded);
    if (table.insert(folded, m_folded.size()) != m_folded.size())
      found(Code::kCaseCollision, shown);
  }

  // ---- names -----------------------------------------------------------------------------------

  void check_names() {
    std::uint32_t number = 0;
    for (const Name& name : m_view.names()) check_name(name, number++);
    if (m_view.index_state() == IndexState::kMissing && m_data_files != 0 &&
        expects_index(m_view.folder().area))
      found(Code::kMissingIndex, index_format::kIndexFile, std::to_string(m_data_files) + " files");
    const auto cased = [](const Name& name) { return has_case(name.text); };
    if (m_options.depth != Depth::kFull || std::ranges::none_of(m_view.names(), cased)) return;
    for (const Name& name : m_view.names()) check_case(m_folded_names, name.text, name.text);
  }

  /// Reports files in sub-folders that a killed client left.
  void check_unfinished(const std::string& sub_folder) {
    sys::Folder listing;
    if (!listing.open(m_view.path_of(sub_folder)).ok()) return;
    sys::Entry entry;
    while (listing.next(entry)) {
      const std::string name = sys::join(sub_folder, entry.name);
      if (is_unfinished(entry.name)) {
        check_leftover(name);
      } else if (entry.kind == sys::Kind::kFolder) {
        check_unfinished(name);
      }
    }
  }

  void check_leftover(const std::string& name) {
    if (is_leftover(m_view.path_of(name))) found(Code::kUnfinishedFile, name);
  }

  void check_name(const Name& name, std::uint32_t number) {
    if (is_unfinished(name.text)) return check_leftover(std::string(name.text));
    check_file_name(name);
    switch (name.kind) {
      case sys::Kind::kFile:
        if (index_format::is_index_file(name.text)) break;
        ++m_summary.files;
        ++m_data_files;
        if (!m_lint.is_claimed(number)) check_unclaimed(name);
        break;
      case sys::Kind::kFolder: check_sub_folder(name); break;
      case sys::Kind::kLink: found(Code::kLinkInTree, name.text); break;
      default: found(Code::kStrayItem, name.text, "neither a file nor a folder"); break;
    }
  }

  void check_unclaimed(const Name& name) {
    note_number(name.text.substr(0, name.text.find('.')));
    if (m_view.index_state() != IndexState::kRead && m_view.index_state() != IndexState::kNoBytes)
      return;
    found(is_key_file(name) ? Code::kKeyFileWithoutLine : Code::kFileWithoutLine, name.text);
  }

  /// Whether the file is a key file. Programs write key files by path, so no entry names them.
  bool is_key_file(const Name& name) const {
    if (m_view.folder().area != Area::kUser) return false;
    if (name.text == "attribut.txt" || name.text == "profile.txt" || name.text.ends_with(".ctg"))
      return true;
    const std::string_view stem = name.text.substr(0, name.text.find('.'));
    if (m_options.depth != Depth::kFull || index_format::is_generated_name(stem)) return false;
    KeyFile file;
    const os::Status read = read_key_file(m_view.path_of(name.text), m_options.locking, file);
    return read.ok() && file.passed_over == 0 && !file.lines.empty();
  }

  void check_file_name(const Name& name) {
    if (const char* why = why_not_portable(name.text))
      found(Code::kNotPortableName, name.text, why);
    const std::size_t length = m_view.folder().path.size() + 1 + name.text.size();
    if (length * 10 > m_options.path_limit * 9)
      found(Code::kPathNearLimit, name.text, std::to_string(length) + " bytes");
    else if (name.text.size() * 10 > sys::kNameLimit * 9)
      found(Code::kPathNearLimit, name.text,
            "the name alone has " + std::to_string(name.text.size()) + " bytes");
  }

  void check_sub_folder(const Name& name) {
    if (m_options.depth == Depth::kFull) check_unfinished(std::string(name.text));
    const Area area = m_view.folder().area;
    if (!expects_index(area)) return;
    if (area != Area::kDocs) {
      found(Code::kStrayItem, name.text, "a folder where only documents are expected");
      return;
    }
    const std::uint32_t document = m_view.document_of(name.text);
    if (document != FolderView::kNone) {
      const std::string_view file = m_view.names()[document].text;
      // Sub-parts of .kdf documents are served as they are.
      if (m_options.depth != Depth::kFull || extension_without_dot(file) == "kdf") return;
      const std::string root = m_view.path_of(name.text);
      check_renditions(root, true);
      check_renditions(sys::join(root, "html"), false);
      check_renditions(sys::join(root, "pdf"), false);
      return;
    }
    if (name.text.find('_') == std::string_view::npos) {
      found(Code::kStrayItem, name.text, "a folder that belongs to no document");
    } else if (!belongs_to_entry(m_view, name.text)) {
      found(Code::kPartsWithoutDocument, name.text);
    }
  }

  void note_number(std::string_view name) {
    m_highest_number = std::max(m_highest_number, number_drawn_for(name));
  }

  void check_counter() {
    if (m_highest_number <= 0) return;
    const std::optional<std::string> text = m_view.read_counter(m_options.locking);
    const std::int32_t counter = text ? index_format::parse_decimal(*text) : 0;
    if (counter < 0) {
      found(Code::kCounterUnreadable, index_format::kCounterFile,
            "it contains " + in_quotes(*text));
    } else if (counter < m_highest_number) {
      found(Code::kCounterBehind, index_format::kCounterFile,
            (text ? "it contains " + in_quotes(*text)
                  : std::string("it is missing or cannot be read")) +
                ", the highest number is " + std::to_string(m_highest_number));
    }
  }

  // ---- what only a full check reads: key files, and the times of sub-parts

  void check_key_files() {
    if (m_key_files.empty() && m_category_files.empty()) return;
    std::unordered_set<std::string_view> names;
    for (const LintedLine& line : IndexLint(m_view)) {
      if (line.verdict == Verdict::kEntry || line.verdict == Verdict::kUnknown)
        names.insert(line.logical);
    }
    for (const std::string& file : m_key_files) check_key_file(file, names, Code::kDanglingKeyLine);
    for (const std::string& file : m_category_files)
      check_key_file(file, names, Code::kDanglingCategoryLine);
  }

  void check_key_file(const std::string& file, const std::unordered_set<std::string_view>& names,
                      Code code) {
    std::string text;
    if (!sys::read_file(m_view.path_of(file), m_options.locking, text).ok()) return;
    const auto is_known = [&](std::string_view name) {
      return names.contains(name) || m_view.find(name) != FolderView::kNone;
    };
    key_text::Lines lines(text);
    std::string_view line;
    std::size_t number = 0;
    while (lines.next(line)) {
      if (!line.empty()) ++number;
      const auto pair = key_text::split(line, key_text::Separator::kFirst);
      // A program may store the document's name on either side of the "=".
      if (!pair || is_known(pair->name) || is_known(pair->value)) continue;
      found(code, file, "\"" + printable(line.substr(0, 120)) + "\"", number);
    }
  }

  void check_renditions(const std::string& type_folder, bool is_root) {
    const std::string preload = sys::join(type_folder, layout::kPreloadFolder);
    sys::Folder copies;
    // Most documents have no preload copies.
    if (!copies.open(preload).ok()) return;
    sys::Entry copy;
    while (copies.next(copy)) {
      if (copy.kind != sys::Kind::kFile) continue;
      const std::int64_t copy_time = copies.describe(copy).modify_time;
      sys::Folder renditions;
      if (!renditions.open(type_folder).ok()) return;
      sys::Entry rendition;
      while (renditions.next(rendition)) {
        const bool is_type = is_root && (rendition.name == "html" || rendition.name == "pdf");
        if (rendition.kind != sys::Kind::kFolder || is_type ||
            rendition.name == layout::kPreloadFolder)
          continue;
        const std::string part = sys::join(sys::join(type_folder, rendition.name), copy.name);
        const sys::Info info = sys::describe(part);
        if (info.kind == sys::Kind::kFile && info.modify_time < copy_time)
          found(Code::kPreloadNewer, part.substr(m_view.folder().path.size() + 1),
                std::to_string(copy_time - info.modify_time) + " seconds");
      }
    }
  }

  const FolderView& m_view;
  const CheckOptions& m_options;
  CheckSummary& m_summary;
  const FindingSink& m_sink;
  IndexLint m_lint;
  FirstLines m_folded_keys;
  FirstLines m_folded_names;
  std::deque<std::string> m_folded;  ///< the texts in both
  std::vector<std::string> m_key_files;
  std::vector<std::string> m_category_files;
  std::uint32_t m_bucket = 0;  ///< the number in the folder's name
  std::int32_t m_highest_number = 0;
  std::uint64_t m_data_files = 0;
};

class CheckVisitor final : public Visitor {
 public:
  CheckVisitor(const CheckOptions& options, CheckSummary& summary, const FindingSink& sink)
      : m_options(options), m_summary(summary), m_sink(sink) {}

  bool folder(const DocumentFolder& folder) override {
    m_view.load(folder, m_options.locking);
    FolderCheck(m_view, m_options, m_summary, m_sink).run();
    return true;
  }

  void stray(Area area, const std::string& path, sys::Kind kind) override {
    const bool is_link = kind == sys::Kind::kLink;
    const std::string_view name = std::string_view(path).substr(path.rfind(sys::kSeparator) + 1);
    if (kind == sys::Kind::kFile && area == Area::kDocs && is_bucket_name(name))
      return tell(Code::kFolderReplaced, area, path, "");
    std::string what = "neither a file nor a folder";
    if (kind == sys::Kind::kFile) what = "a file where only folders belong";
    if (kind == sys::Kind::kFolder) what = "a folder whose name is not the name of a bucket";
    tell(is_link ? Code::kLinkInTree : Code::kStrayItem, area, path, is_link ? "" : what);
  }

  void failed(const std::string& path, const os::Status& status) override {
    tell(Code::kUnreadableFolder, std::nullopt, path, sys::text_of(status));
  }

  /// A finding that is not in a document folder.
  void tell(Code code, std::optional<Area> area, const std::string& path, std::string detail) {
    const std::size_t at = path.rfind(sys::kSeparator);
    m_sink({code, area, "", path.substr(0, at), path.substr(at + 1), 0, std::move(detail)});
  }

 private:
  const CheckOptions& m_options;
  CheckSummary& m_summary;
  const FindingSink& m_sink;
  FolderView m_view;
};

}  // namespace

CheckSummary check(const Tree& tree, const CheckOptions& options, const FindingSink& sink) {
  CheckSummary summary;
  CheckOptions asked = options;
  const bool is_read_only = sys::file_system_of(tree.storage).is_read_only;
  // Reported once for the tree, not for each folder.
  if (is_read_only) asked.ask_writable = false;
  const FindingSink counted = [&](const Finding& finding) {
    ++summary.findings[static_cast<std::size_t>(finding.code)];
    sink(finding);
  };
  CheckVisitor visitor(asked, summary, counted);
  if (is_read_only && options.ask_writable)
    visitor.tell(Code::kNotWritable, std::nullopt, tree.storage, "the file system is read-only");
  for (const Area area : kAreas) {
    const bool is_meant = !options.scope.area || *options.scope.area == area;
    if (is_meant && expects_index(area) && !tree.has_area[static_cast<std::size_t>(area)])
      visitor.tell(Code::kMissingArea, area, tree.folder_of(area), "");
  }
  summary.was_stopped = !walk(tree, options, visitor);
  return summary;
}

}  // namespace admin
