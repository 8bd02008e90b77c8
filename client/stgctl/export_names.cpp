#include "client/stgctl/export_names.h"
#include "client/stgctl/text.h"

namespace stgctl {

void PortablePaths::clear() {
  m_names.clear();
  m_folders.clear();
}

std::string PortablePaths::take(std::string_view path) {
  std::string result;
  std::size_t depth = 0;
  for (std::size_t end; (end = path.find('/')) != std::string_view::npos; ++depth) {
    const std::string_view name = path.substr(0, end);
    path.remove_prefix(end + 1);
    if (depth == m_folders.size() || m_folders[depth].name != name) {
      m_folders.resize(depth);
      admin::PortableNames& names = depth == 0 ? m_names : m_folders[depth - 1].names;
      m_folders.push_back({std::string(name), names.take(name), {}});
    }
    result += m_folders[depth].portable + '/';
  }
  m_folders.resize(depth);
  admin::PortableNames& names = depth == 0 ? m_names : m_folders[depth - 1].names;
  return result + names.take(path);
}

void ExportNames::enter(const admin::Holding& holding) {
  if (!m_has_begun || holding.area != m_area) {
    m_owners.clear();
  } else if (holding.owner == m_owner) {
    return;
  }
  m_has_begun = true;
  m_area = holding.area;
  m_owner = holding.owner;
  m_folder = admin::name_of(m_area);
  if (!m_owner.empty()) m_folder += '/' + m_owners.take(m_owner);
  m_documents.clear();
  m_paths.clear();
}

std::string ExportNames::take(const admin::Holding& holding) {
  enter(holding);
  switch (holding.kind) {
    case admin::HoldingKind::kVersion:
      m_paths.clear();
      m_document = m_documents[holding.timestamp].take(holding.name);
      return formatted("{}/{}/{}", m_folder, holding.timestamp, m_document);
    case admin::HoldingKind::kPart:
      return formatted("{}/{}.parts/{}/{}", m_folder, holding.timestamp, m_document,
                       m_paths.take(holding.path));
    default:
      return formatted("{}/{}", m_folder, m_paths.take(holding.path));
  }
}

}  // namespace stgctl
