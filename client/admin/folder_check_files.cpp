#include "client/admin/folder_check.h"
#include "client/admin/text.h"
#include "storage/key_text.h"
#include "storage/layout.h"

// What a full check reads beyond the index: key files, and the times of sub-parts.

namespace admin {

void FolderCheck::check_key_files() {
  if (m_key_files.empty() && m_category_files.empty()) return;
  m_logical_names.clear();
  m_lint.start(m_view);
  LintedLine line;
  while (m_lint.next(line)) {
    if (line.verdict == Verdict::kEntry || line.verdict == Verdict::kUnknown)
      m_logical_names.insert(line.logical, 1);
  }
  for (const std::string& file : m_key_files) check_key_file(file, Code::kDanglingKeyLine);
  for (const std::string& file : m_category_files)
    check_key_file(file, Code::kDanglingCategoryLine);
}

void FolderCheck::check_key_file(const std::string& file, Code code) {
  std::string text;
  if (!sys::read_file(m_view.path_of(file), m_options.locking, text).ok()) return;
  const auto is_known = [&](std::string_view name) {
    return m_logical_names.find(name) != NameTable::kNone || m_view.find(name) != FolderView::kNone;
  };
  key_text::Lines lines(text);
  std::string_view line;
  std::size_t number = 0;
  while (lines.next(line)) {
    if (!line.empty()) ++number;
    const auto pair = key_text::split(line, key_text::Separator::kFirst);
    // Which side names the document is the client's choice.
    if (!pair || is_known(pair->name) || is_known(pair->value)) continue;
    found(code, file, "\"" + printable(line.substr(0, 120)) + "\"", number);
  }
}

void FolderCheck::check_parts(const std::string& root) {
  check_renditions(root, true);
  check_renditions(sys::join(root, "html"), false);
  check_renditions(sys::join(root, "pdf"), false);
}

void FolderCheck::check_renditions(const std::string& type_folder, bool is_root) {
  const std::string preload = sys::join(type_folder, layout::kPreloadFolder);
  sys::Folder copies;
  // Most documents have none.
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

}  // namespace admin
