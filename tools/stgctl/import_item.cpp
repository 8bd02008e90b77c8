#include "tools/stgctl/import_item.h"

#include <algorithm>
#include <utility>

#include "tools/admin/text.h"
#include "tools/stgctl/exit_codes.h"
#include "tools/stgctl/operations.h"
#include "tools/stgctl/paths.h"
#include "tools/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

[[noreturn]] void fail(const std::string& text) { throw Failure(Exit::kFailed, text); }

/// Names that only this system refuses.
void check_name_here(const std::string& what, const std::string& name) {
  if (sys::kSeparator != '\\') return;
  if (const char* const why = admin::why_not_portable(name))
    throw Failure(Exit::kRefused, formatted("{} '{}' is refused: {}", what, shown(name), why));
}

void check_path_here(const std::string& path) {
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    check_name_here("the path's name", path.substr(at, end - at));
    at = end + 1;
  }
}

/// The file of the export, found to be the one that the manifest describes.
void check_source(const ManifestItem& item, const std::string& source) {
  if (sys::describe(source).kind != sys::Kind::kFile)
    fail(shown(source) + " is missing from the export");
  sys::Locking unlocked;
  unlocked.mode = sys::Locking::Mode::kNone;
  const Content content = read_content(source, unlocked);
  if (content.bytes != item.what.info.size || content.checksum != item.checksum)
    fail(shown(source) + " is not what the manifest says; export it again");
}

std::string system_form(std::string path) {
  std::replace(path.begin(), path.end(), '/', sys::kSeparator);
  return path;
}

constexpr const char* kOtherContent = "it exists with other content; say --replace";

}  // namespace

const char* name_of(Imported what) {
  switch (what) {
    case Imported::kReplaced:
      return "replaced";
    case Imported::kCompleted:
      return "completed";
    case Imported::kTimeSet:
      return "time restored";
    default:
      return "imported";
  }
}

Importer::Importer(Context& context, std::string folder, Existing existing, ImportJournal& journal)
    : m_context(context),
      m_folder(std::move(folder)),
      m_existing(existing),
      m_journal(journal),
      m_is_dry(context.options().dry_run) {}

Imported Importer::run(const ManifestItem& item) {
  const std::string source = location_in(m_folder, item.file);
  if (item.what.kind != admin::HoldingKind::kVersion) {
    const std::string place = place_of(item);
    check_owner(item.what);
    check_source(item, source);
    return import_by_path(item, source, place);
  }
  m_document.reset();
  m_document_is_planned = false;
  check_owner(item.what);
  check_source(item, source);
  return import_version(item, source);
}

void Importer::check_owner(const admin::Holding& what) {
  if (what.owner.empty() || m_owners.contains({what.area, what.owner})) return;
  check_name("the owner", what.owner);
  check_name_here("the owner", what.owner);
  // A system that is blind to letter case would mix two owners.
  const std::string area = m_context.tree().folder_of(what.area);
  const bool is_there = sys::describe(sys::join(area, what.owner)).kind != sys::Kind::kMissing;
  if (is_there) {
    const std::vector<std::string> owners = names_of_folder(area);
    if (!std::binary_search(owners.begin(), owners.end(), what.owner)) {
      throw Failure(Exit::kRefused,
                    formatted("the owner '{}' is refused: the tree has one that this system "
                              "takes for the same",
                              shown(what.owner)));
    }
  }
  m_owners.emplace(what.area, what.owner);
}

// ---- versions ----------------------------------------------------------------------------------

Imported Importer::import_version(const ManifestItem& item, const std::string& source) {
  const admin::Holding& what = item.what;
  check_name("the name", what.name);
  // The file gets a name of its own, but keeps the extension.
  const std::size_t dot = std::min(what.name.rfind('.'), what.name.size());
  check_name_here("the extension of", "x" + what.name.substr(dot));
  admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), what.area, what.owner, what.name);
  const Target target = target_of(m_context, folder);
  check_no_link(m_context, folder.path);
  check_not_shadowed(m_context, target, what.name, what.timestamp);
  const std::vector<FoundEntry> versions = find_versions(m_context, target, what.name);
  const auto found = std::find_if(versions.begin(), versions.end(), [&](const FoundEntry& entry) {
    return entry.timestamp == what.timestamp;
  });
  Imported result = Imported::kNew;
  if (found != versions.end()) {
    const Content content = read_content(found->path(), m_context.locking());
    m_document = found->path();
    if (content.bytes == what.info.size && content.checksum == item.checksum) {
      const bool is_exact = found->info.modify_time == what.info.modify_time;
      if (!m_is_dry) {
        if (!is_exact) set_modify_time(found->path(), what.info.modify_time);
        // An import that was killed had completed it without saying so.
        if (m_journal.is_pending(what)) m_journal.end(what);
      }
      return is_exact ? Imported::kThere : Imported::kTimeSet;
    }
    m_document.reset();
    const bool is_ours = m_journal.is_pending(what);
    if (!is_ours && m_existing == Existing::kKeep) fail(kOtherContent);
    result = is_ours ? Imported::kCompleted : Imported::kReplaced;
  }
  if (m_is_dry) {
    m_document_is_planned = true;
    return result;
  }
  store(item, source, target);
  return result;
}

void Importer::store(const ManifestItem& item, const std::string& source, const Target& target) {
  const admin::Holding& what = item.what;
  const auto look_up = [&]() -> std::optional<FoundEntry> {
    for (FoundEntry& entry : find_versions(m_context, target, what.name)) {
      if (entry.timestamp == what.timestamp) return std::move(entry);
    }
    return std::nullopt;
  };
  m_journal.begin(what);
  try {
    store_file(m_context, target, source, what.info.size, what.name, what.timestamp);
  } catch (const Failure&) {
    if (!look_up()) m_journal.end(what);
    throw;
  }
  const std::optional<FoundEntry> stored = look_up();
  if (!stored) fail("it is gone again; another process works on it");
  const Content content = read_content(stored->path(), m_context.locking());
  if (content.checksum != item.checksum)
    fail("what was stored differs from the manifest; is another process writing to it?");
  if (stored->info.modify_time != what.info.modify_time)
    set_modify_time(stored->path(), what.info.modify_time);
  m_journal.end(what);
  m_document = stored->path();
}

// ---- parts, and files by path ------------------------------------------------------------------

std::string Importer::place_of(const ManifestItem& item) const {
  const admin::Holding& what = item.what;
  check_path_here(what.path);
  if (what.kind == admin::HoldingKind::kPart) {
    if (m_document_is_planned) return {};
    if (!m_document) fail("its document was not imported");
    return *m_document + system_form(what.path);
  }
  std::string folder = m_context.tree().folder_of(what.area);
  if (!what.owner.empty()) folder = sys::join(folder, what.owner);
  return sys::join(folder, system_form(what.path));
}

Imported Importer::import_by_path(const ManifestItem& item, const std::string& source,
                                  const std::string& place) {
  if (place.empty()) return Imported::kNew;
  check_no_link(m_context, place);
  const sys::Info info = sys::describe(place);
  Imported result = Imported::kNew;
  if (info.kind == sys::Kind::kFile) {
    const Content content = read_content(place, m_context.locking());
    if (content.bytes == item.what.info.size && content.checksum == item.checksum) {
      if (info.modify_time == item.what.info.modify_time) return Imported::kThere;
      if (!m_is_dry) set_modify_time(place, item.what.info.modify_time);
      return Imported::kTimeSet;
    }
    if (m_existing == Existing::kKeep) fail(kOtherContent);
    result = Imported::kReplaced;
  } else if (info.kind != sys::Kind::kMissing) {
    fail(shown(place) + " is there and is no plain file");
  }
  if (m_is_dry) return result;
  NewFile file(place);
  sys::Locking unlocked;
  unlocked.mode = sys::Locking::Mode::kNone;
  if (read_content(source, unlocked, &file).checksum != item.checksum)
    fail(shown(source) + " changes while it is read");
  file.commit(item.what.info.modify_time);
  return result;
}

}  // namespace stgctl
