#include "client/admin/check.h"

#include "client/admin/folder_check.h"

namespace admin {

namespace {

class CheckVisitor final : public Visitor {
 public:
  CheckVisitor(const CheckOptions& options, CheckSummary& summary, const FindingSink& sink)
      : m_options(options), m_folders(options, summary, sink), m_summary(summary) {}

  bool folder(const DocumentFolder& folder) override {
    if (m_options.stop != nullptr && m_options.stop->load()) {
      m_summary.was_stopped = true;
      return false;
    }
    if (m_options.on_folder) m_options.on_folder(folder);
    m_folders.run(folder);
    return true;
  }

  void stray(Area area, const std::string& path, sys::Kind kind) override {
    const bool is_link = kind == sys::Kind::kLink;
    const std::string_view name = std::string_view(path).substr(path.rfind(sys::kSeparator) + 1);
    if (kind == sys::Kind::kFile && area == Area::kDocs && is_bucket_name(name))
      return tell(Code::kFolderReplaced, area, path, "");
    std::string what = "neither a file nor a folder";
    if (kind == sys::Kind::kFile) what = "a file where only folders are expected";
    if (kind == sys::Kind::kFolder) what = "a folder whose name is no bucket's";
    tell(is_link ? Code::kLinkInTree : Code::kStrayItem, area, path, is_link ? "" : what);
  }

  void failed(const std::string& path, const os::Status& status) override {
    tell(Code::kUnreadableFolder, std::nullopt, path, sys::text_of(status));
  }

  void missing_area(const Tree& tree, Area area) {
    tell(Code::kMissingArea, area, tree.folder_of(area), "");
  }
  void read_only(const std::string& storage) {
    tell(Code::kNotWritable, std::nullopt, storage, "the file system is read-only");
  }

 private:
  void tell(Code code, std::optional<Area> area, const std::string& path, std::string detail) {
    const std::size_t at = path.rfind(sys::kSeparator);
    m_folders.report(
        {code, area, "", path.substr(0, at), path.substr(at + 1), 0, std::move(detail)});
  }

  const CheckOptions& m_options;
  FolderCheck m_folders;
  CheckSummary& m_summary;
};

}  // namespace

std::uint64_t CheckSummary::count(Severity severity) const {
  std::uint64_t sum = 0;
  for (const FindingKind& kind : finding_kinds()) {
    if (kind.severity == severity) sum += findings[static_cast<std::size_t>(kind.code)];
  }
  return sum;
}

CheckSummary check(const Tree& tree, const CheckOptions& options, const FindingSink& sink) {
  CheckSummary summary;
  CheckOptions asked = options;
  const bool is_read_only = sys::file_system_of(tree.storage).is_read_only;
  // Told once, instead of for each folder.
  if (is_read_only) asked.ask_writable = false;
  CheckVisitor visitor(asked, summary, sink);
  if (is_read_only && options.ask_writable) visitor.read_only(tree.storage);
  for (const Area area : kAreas) {
    const bool is_meant = !options.scope.area || *options.scope.area == area;
    if (is_meant && expects_index(area) && !tree.has_area[static_cast<std::size_t>(area)])
      visitor.missing_area(tree, area);
  }
  walk(tree, options.scope, visitor);
  return summary;
}

}  // namespace admin
