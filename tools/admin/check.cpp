#include "tools/admin/check.h"

#include "tools/admin/folder_check.h"

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
    std::string what = "neither a file nor a folder";
    if (kind == sys::Kind::kFile) what = "a file where only folders are expected";
    if (kind == sys::Kind::kFolder) what = "a folder whose name is no bucket's";
    tell(is_link ? Code::kLinkInTree : Code::kStrayItem, area, path, is_link ? "" : what);
  }

  void failed(const std::string& path, const os::Status& status) override {
    tell(Code::kUnreadableFolder, std::nullopt, path, sys::text_of(status));
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
  CheckVisitor visitor(options, summary, sink);
  walk(tree, options.scope, visitor);
  return summary;
}

}  // namespace admin
