#include "client/stgctl/import_item.h"

#include <algorithm>
#include <filesystem>
#include <sstream>
#include <system_error>
#include <utility>

#include "client/admin/text.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/text.h"
#include "vu_file_except.h"

namespace stgctl {

namespace fs = std::filesystem;

namespace {

constexpr char kBegun = '+';
constexpr char kEnded = '-';

/// The version as one word, because its names can contain any byte.
std::string word_for(const admin::Holding& version) {
  return formatted("{}/{}/{}/{}", admin::name_of(version.area), admin::to_hex(version.owner),
                   admin::to_hex(version.name), version.timestamp);
}

}  // namespace

ImportJournal::ImportJournal(Context& context, Use use) : m_path(context.storage() + ".import") {
  std::string text;
  if (use == Use::kWork) {
    text = open();
  } else {
    admin::sys::Locking unlocked;
    unlocked.mode = admin::sys::Locking::Mode::kNone;
    if (!admin::sys::read_file(m_path, unlocked, text).ok()) text.clear();
  }
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    // A line without an end belongs to an overwrite that never began.
    if (lines.eof()) break;
    if (line.empty()) continue;
    if (line[0] == kBegun) m_pending.insert(line.substr(1));
    if (line[0] == kEnded) m_pending.erase(line.substr(1));
  }
}

std::string ImportJournal::open() {
  const fs::path path = to_path(m_path);
  m_file = vu_file(from_path(path.parent_path()), from_path(path.filename()));
  bool is_locked_elsewhere = false;
  if (!m_file.try_open(vu_file::o_append, is_locked_elsewhere, true)) {
    throw Failure(Exit::kFailed, formatted("cannot create {}, the journal that lets a killed "
                                           "import continue; check the permissions there",
                                           shown(m_path)));
  }
  if (is_locked_elsewhere) {
    throw Failure(Exit::kLockTimeout,
                  shown(m_path) + " is locked: another import into this tree is running");
  }
  std::string text;
  try {
    m_file.read(text, 0);
  } catch (const vu_file_except& error) {
    throw Failure(Exit::kFailed, shown(m_path) + ": " + error.what());
  }
  return text;
}

bool ImportJournal::is_pending(const admin::Holding& version) const {
  return m_pending.contains(word_for(version));
}

void ImportJournal::begin(const admin::Holding& version) {
  const std::string word = word_for(version);
  // A line feed first, so that an unfinished line does not join this one.
  append('\n' + (kBegun + word) + '\n');
  m_pending.insert(word);
}

void ImportJournal::end(const admin::Holding& version) {
  const std::string word = word_for(version);
  // If this line is missing, the next import only checks the version again.
  m_pending.erase(word);
  m_file.write(kEnded + word + '\n');
}

void ImportJournal::append(const std::string& line) {
  if (m_file.write(line) == static_cast<int>(line.size())) return;
  throw Failure(Exit::kFailed, shown(m_path) + " cannot be written; check the free space");
}

void ImportJournal::close() {
  m_file.close();
  if (!m_pending.empty()) return;
  std::error_code ignored;
  fs::remove(to_path(m_path), ignored);
}

namespace sys = admin::sys;

namespace {

[[noreturn]] void fail(const std::string& text) { throw Failure(Exit::kFailed, text); }

/// Names that only this system does not allow.
void check_name_here(const std::string& what, const std::string& name) {
  if (sys::kSeparator != '\\') return;
  if (const char* const why = admin::why_not_portable(name))
    throw Failure(Exit::kRefused, formatted("{} '{}' is not allowed: {}", what, shown(name), why));
}

void check_path_here(const std::string& path) {
  for (std::size_t at = 0; at < path.size();) {
    const std::size_t end = std::min(path.find('/', at), path.size());
    check_name_here("the path's name", path.substr(at, end - at));
    at = end + 1;
  }
}

/// The export's file, checked against the manifest.
void check_source(const ManifestItem& item, const std::string& source) {
  if (sys::describe(source).kind != sys::Kind::kFile)
    fail(shown(source) + " is missing from the export");
  sys::Locking unlocked;
  unlocked.mode = sys::Locking::Mode::kNone;
  const Content content = read_content(source, unlocked);
  if (content.bytes != item.what.info.size || content.checksum != item.checksum)
    fail(shown(source) + " differs from the manifest; export it again");
}

std::string system_form(std::string path) {
  std::replace(path.begin(), path.end(), '/', sys::kSeparator);
  return path;
}

/// The path of a version that a dry run has not stored.
constexpr const char* kPlanned = "";

constexpr const char* kOtherContent = "it exists with different content; use --replace";

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
      m_is_dry(context.options().dry_run),
      m_entries(context) {}

void Importer::run(std::span<const ManifestItem> items, const Told& told) {
  StoreBatch batch(m_context);
  std::vector<Work> all;
  std::optional<Failure> end;
  m_entries.forget();
  for (const ManifestItem& item : items) {
    Work& work = all.emplace_back();
    work.item = &item;
    try {
      judge(work, batch);
    } catch (const Failure& failure) {
      if (ends_work(failure)) {
        end = failure;
        all.pop_back();
        break;
      }
      work.failure = failure;
    }
  }
  batch.run();
  for (Work& work : all) {
    try {
      finish(work);
    } catch (const Failure& failure) {
      work.failure = failure;
      if (ends_work(failure)) {
        if (!end) end = failure;
        continue;
      }
    }
    told(*work.item, work.result, work.failure ? &*work.failure : nullptr);
  }
  if (end) throw Failure(*end);
}

void Importer::judge(Work& work, StoreBatch& batch) {
  const ManifestItem& item = *work.item;
  work.source = location_in(m_folder, item.file);
  check_owner(item.what);
  check_source(item, work.source);
  if (item.what.kind == admin::HoldingKind::kVersion) judge_version(work, batch);
}

void Importer::finish(Work& work) {
  if (work.item->what.kind == admin::HoldingKind::kVersion) {
    m_document.reset();
    if (!work.failure) finish_version(work);
    m_document = work.place;
  } else if (!work.failure) {
    work.result = import_by_path(*work.item, work.source, place_of(*work.item));
  }
}

void Importer::check_owner(const admin::Holding& what) {
  if (what.owner.empty() || m_owners.contains({what.area, what.owner})) return;
  check_name("the owner", what.owner);
  check_name_here("the owner", what.owner);
  // A system that ignores letter case would mix two owners.
  const std::string area = m_context.tree().folder_of(what.area);
  const bool is_there = sys::describe(sys::join(area, what.owner)).kind != sys::Kind::kMissing;
  if (is_there) {
    const std::vector<std::string> owners = names_of_folder(area);
    if (!std::binary_search(owners.begin(), owners.end(), what.owner)) {
      throw Failure(Exit::kRefused, formatted("the owner '{}' is not allowed: this system does not "
                                              "distinguish it from an existing owner",
                                              shown(what.owner)));
    }
  }
  m_owners.emplace(what.area, what.owner);
}

// ---- versions ----------------------------------------------------------------------------------

void Importer::judge_version(Work& work, StoreBatch& batch) {
  const admin::Holding& what = work.item->what;
  check_name("the name", what.name);
  // The stored file gets a number as its name, with the extension of the logical name.
  const std::size_t dot = std::min(what.name.rfind('.'), what.name.size());
  check_name_here("the extension of", "x" + what.name.substr(dot));
  const admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), what.area, what.owner, what.name);
  const Target target = target_of(m_context, folder);
  check_no_link(m_context, folder.path);
  check_not_shadowed(m_context, target, what.name, what.timestamp);
  const std::optional<FoundEntry> found = m_entries.find(folder, what.name, what.timestamp);
  if (found) judge_existing(work, *found);
  if (work.place) return;
  if (m_is_dry) {
    work.place = kPlanned;
    return;
  }
  const StoreItem item = {work.source, what.name, what.info.size, what.timestamp};
  work.version = found ? &batch.add_replacing(target, item, *found) : &batch.add(target, item);
}

/// A version with the same bytes stays, in its place.
void Importer::judge_existing(Work& work, const FoundEntry& found) {
  const admin::Holding& what = work.item->what;
  const Content content = read_content(found.path(), m_context.locking());
  const bool is_ours = m_journal.is_pending(what);
  if (content.bytes == what.info.size && content.checksum == work.item->checksum) {
    const bool is_exact = found.info.modify_time == what.info.modify_time;
    if (!m_is_dry) {
      if (!is_exact) set_modify_time(found.path(), what.info.modify_time);
      // A killed import had completed it, but not recorded that.
      if (is_ours) m_journal.end(what);
    }
    work.result = is_exact ? Imported::kThere : Imported::kTimeSet;
    work.place = found.path();
    return;
  }
  if (!is_ours && m_existing == Existing::kKeep) fail(kOtherContent);
  work.result = is_ours ? Imported::kCompleted : Imported::kReplaced;
}

void Importer::finish_version(Work& work) {
  if (work.version == nullptr) return;
  const admin::Holding& what = work.item->what;
  const admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), what.area, what.owner, what.name);
  std::string file = work.version->file;
  if (work.version->fate == admin::NewVersion::Fate::kInPlace) {
    file = work.version->replaces;
    // A kill during the overwrite leaves a truncated file. The journal lists the version.
    m_journal.begin(what);
    overwrite_file(m_context, target_of(m_context, folder),
                   {work.source, what.name, what.info.size, what.timestamp});
  } else if (work.version->fate != admin::NewVersion::Fate::kStored) {
    throw failure_of(m_context, *work.version);
  }
  const std::string path = sys::join(folder.path, file);
  if (read_content(path, m_context.locking()).checksum != work.item->checksum)
    fail(
        "the stored version differs from the manifest; check whether another process writes to it");
  if (sys::describe(path).modify_time != what.info.modify_time)
    set_modify_time(path, what.info.modify_time);
  if (m_journal.is_pending(what)) m_journal.end(what);
  work.place = path;
}

// ---- parts, and files by path ------------------------------------------------------------------

std::string Importer::place_of(const ManifestItem& item) const {
  const admin::Holding& what = item.what;
  check_path_here(what.path);
  if (what.kind == admin::HoldingKind::kPart) {
    if (!m_document) fail("its document was not imported");
    if (*m_document == kPlanned) return {};
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
    fail(shown(place) + " exists and is not a plain file");
  }
  if (m_is_dry) return result;
  NewFile file(place);
  sys::Locking unlocked;
  unlocked.mode = sys::Locking::Mode::kNone;
  if (read_content(source, unlocked, &file).checksum != item.checksum)
    fail(shown(source) + " changed while it was read");
  file.commit(item.what.info.modify_time);
  return result;
}

}  // namespace stgctl
