#include "client/stgctl/target.h"

#include <type_traits>

namespace stgctl {

namespace {

/// Whether the text is a timestamp after "@" in a printed line. Programs may have stored negative
/// ones, too.
bool is_number(const std::string& text) {
  const std::size_t first = text.starts_with('-') ? 1 : 0;
  return text.size() > first && text.find_first_not_of("0123456789", first) == std::string::npos;
}

STG::RepositoryType type_of(admin::Area area) {
  switch (area) {
    case admin::Area::kDocs: return STG::CorporateRepository;
    case admin::Area::kMail: return STG::MailRepository;
    default:
      // The type whose removals also remove the lines of the name in "attribut.txt".
      return STG::UserFilesRepository;
  }
}

/// Owners become folder names. Windows gives some of these a special meaning.
const char* why_no_folder_name(std::string_view name) {
  if constexpr (sys::kSeparator == '\\') {
    if (name.find(':') != std::string_view::npos) return "it contains a colon";
    if (name.ends_with('.') || name.ends_with(' ')) return "it ends with a dot or a blank";
  }
  return nullptr;
}

/// @param owner empty if none is named.
Target target_at(Context& context, admin::Area area, const std::string& owner) {
  Target target;
  target.area = area;
  if (!admin::expects_index(area))
    refuse("the area {} keeps no documents; use --area docs, user or mail", admin::name_of(area));
  target.type = type_of(target.area);
  if (context.tree().layout == admin::Layout::kOwner) {
    if (owner.empty()) refuse("no owner is named; use --owner NAME");
    target.owner = owner;
  }
  if (!owner.empty()) {
    check_name("the owner", owner);
    if (const char* const why = why_no_folder_name(owner))
      refuse("the owner '{}' is not allowed: {}", shown(owner), why);
  }
  // Some operations do nothing for an empty owner, even in a flat tree.
  target.library_owner = owner.empty() ? "_" : owner;
  return target;
}

std::vector<FoundEntry> only_wanted(std::vector<FoundEntry> versions,
                                    const std::optional<std::int32_t>& timestamp) {
  if (timestamp)
    std::erase_if(versions, [&](const auto& each) { return each.timestamp != *timestamp; });
  return versions;
}

}  // namespace

std::optional<Subject> parse_version_name(const std::string& text, admin::Layout layout) {
  const std::vector<std::string_view> names = split(text, '/');
  const bool has_owner = layout == admin::Layout::kOwner;
  // No name contains a separator.
  if (names.size() != (has_owner ? 3 : 2) || !admin::area_named(names.front())) return std::nullopt;
  Subject version;
  version.area = names.front();
  if (has_owner) version.owner = names[1];
  version.name = names.back();
  const std::size_t at = version.name.rfind('@');
  if (at == std::string::npos) return version;
  const std::string stamp = version.name.substr(at + 1);
  if (!is_number(stamp)) return version;
  version.timestamp = parse_stamp(stamp);
  if (!version.timestamp) misused("{}: {} is not a timestamp", shown(text), stamp);
  version.name.resize(at);
  return version;
}

void check_name(std::string_view what, std::string_view name) {
  const char* why = admin::why_not_safe(name);
  if (why == nullptr && name.find('\r') != std::string_view::npos)
    why = "it contains a carriage return";
  if (why != nullptr) refuse("{} '{}' is not allowed: {}", what, shown(name), why);
}

Target target_of(Context& context, admin::Area fallback) {
  const GlobalOptions& options = context.options();
  const admin::Area area =
      options.area.empty() ? fallback : admin::area_named(options.area).value();
  return target_at(context, area, options.owner);
}

NamedVersion named_version(Context& context, const std::string& text,
                           const std::string& timestamp) {
  Subject named = {context.options().area, context.options().owner, text, parse_stamp(timestamp)};
  const auto take = [&text](auto& value, const auto& said, const char* what) {
    const std::remove_cvref_t<decltype(value)> none;
    if (said == none) return;
    if (value != none && value != said)
      misused("{} names another {} than the options", shown(text), what);
    value = said;
  };
  if (const auto version = parse_version_name(text, context.tree().layout)) {
    take(named.area, version->area, "area");
    take(named.owner, version->owner, "owner");
    take(named.timestamp, version->timestamp, "timestamp");
    named.name = version->name;
  }
  return named_version_at(context, named);
}

NamedVersion named_version_at(Context& context, const Subject& version) {
  const admin::Area area =
      version.area.empty() ? admin::Area::kDocs : admin::area_named(version.area).value();
  return {target_at(context, area, version.owner), version.name, version.timestamp};
}

void check_owner_exists(Context& context) {
  const admin::Scope scope = context.scope();
  const admin::Tree& tree = context.tree();
  if (!scope.owner || tree.layout == admin::Layout::kFlat) return;
  const auto is_there = [&](admin::Area area) {
    const std::string folder = sys::join(tree.folder_of(area), *scope.owner);
    return scope.area.value_or(area) == area && sys::describe(folder).kind != sys::Kind::kMissing;
  };
  if (std::ranges::any_of(admin::kAreas, is_there)) return;
  not_found("there is no owner '{}' in {}", shown(*scope.owner),
            scope.area ? admin::name_of(*scope.area) : "any area");
}

void none_matches(Context& context, const std::string& wanted) {
  check_owner_exists(context);
  const auto& [area, owner] = context.scope();
  std::string where = area ? std::string(admin::name_of(*area)) : "all areas";
  if (owner) {
    where += (area ? "/" : " of ") + shown(*owner);
  } else if (context.tree().layout == admin::Layout::kFlat) {
    where += " of a tree without owners";
  } else {
    where += area ? ", all owners" : " and owners";
  }
  not_found("no entry matches{} ({})", wanted.empty() ? "" : " '" + shown(wanted) + "'", where);
}

void no_version(const NamedVersion& named) {
  const auto& [target, name, timestamp] = named;
  not_found("{} has no {}{}; 'stgctl find --name {}' searches everywhere",
            shown(subject_in(target.area, target.owner)), shown(name),
            timestamp ? formatted("@{}", *timestamp) : "", shown(name));
}

Target target_of(Context& context, const admin::DocumentFolder& folder) {
  Target target;
  target.area = folder.area;
  target.type = type_of(folder.area);
  if (context.tree().layout == admin::Layout::kOwner) target.owner = folder.owner;
  target.library_owner = folder.owner.empty() ? "_" : folder.owner;
  return target;
}

admin::DocumentFolder folder_for(Context& context, const Target& target, const std::string& name) {
  return admin::folder_for(context.tree(), target.area, target.owner, name);
}

void check_no_link(Context& context, const std::string& path) {
  const std::string& storage = context.tree().storage;
  for (std::size_t at = path.find(sys::kSeparator, storage.size() + 1);;
       at = path.find(sys::kSeparator, at + 1)) {
    const std::string part = path.substr(0, at);
    if (sys::describe(part).kind == sys::Kind::kLink)
      refuse("{} is a link and can lead out of the tree; replace it by its target", shown(part));
    if (at == std::string::npos) return;
  }
}

FoundEntry::FoundEntry(const admin::EntryView& entry)
    : folder(*entry.folder),
      state(entry.state),
      name(entry.logical),
      timestamp(entry.timestamp),
      stored(entry.stored),
      file(entry.file),
      info(entry.info) {}

Subject subject_of(const FoundEntry& entry) {
  return subject_in(entry.folder.area, entry.folder.owner, entry.name, entry.timestamp);
}

void walk_whole(const std::function<admin::EntryFailures(const admin::FailureSink& failed)>& walk) {
  std::string problem;
  const admin::EntryFailures failures = walk([&](const std::string& path, const std::string& why) {
    if (problem.empty()) problem = formatted("{}: {}", shown(path), why);
  });
  Context::stop_if_interrupted();
  if (failures.folders > 0)
    throw Failure(failures.lock_missed ? Exit::kLockTimeout : Exit::kFailed, problem);
}

std::map<std::string, std::vector<std::string>> owners_in(Context& context,
                                                          const admin::Scope& scope) {
  std::map<std::string, std::vector<std::string>> owners;
  for (const admin::Area area : admin::kAreas) {
    if (area == admin::Area::kSemlets || scope.area.value_or(area) != area) continue;
    std::vector<sys::Child> children;
    static_cast<void>(sys::list_sorted(context.tree().folder_of(area), children));
    for (const auto& [name, kind] : children) {
      if (kind == sys::Kind::kFolder && scope.owner.value_or(name) == name)
        owners[name].emplace_back(admin::name_of(area));
    }
  }
  return owners;
}

std::vector<FoundEntry> find_entries(Context& context, admin::EntryQuery query) {
  query.with_info = true;
  query.locking = context.locking();
  query.stop = &Context::interrupt_flag();
  std::vector<FoundEntry> found;
  walk_whole([&](const admin::FailureSink& failed) {
    const auto keep = [&](const admin::EntryView& entry) {
      found.emplace_back(entry);
      return true;
    };
    return admin::for_each_entry(context.tree(), query, keep, failed);
  });
  return found;
}

std::vector<FoundEntry> entries_of_folder(Context& context, const admin::DocumentFolder& folder) {
  admin::FolderView view;
  view.load(folder, context.locking());
  Context::stop_if_interrupted();
  if (view.index_state() != admin::IndexState::kMissing)
    check_read(view.path_of(index_format::kIndexFile), view.index_status());
  std::vector<FoundEntry> found;
  for (const admin::LintedLine& line : admin::IndexLint(view)) {
    if (line.verdict != admin::Verdict::kEntry || !line.has_file) continue;
    FoundEntry& entry = found.emplace_back();
    entry.folder = folder;
    entry.name = line.logical;
    entry.timestamp = line.timestamp;
    entry.stored = line.stored;
    entry.file = line.file;
    entry.info = sys::describe(entry.path());
  }
  return found;
}

std::optional<FoundEntry> KnownEntries::find(const admin::DocumentFolder& folder,
                                             const std::string& name, std::int32_t timestamp) {
  if (m_folder != folder.path) {
    m_entries.clear();
    for (FoundEntry& entry : entries_of_folder(m_context, folder)) {
      std::string key = index_format::key_of(entry.name, entry.timestamp);
      m_entries.emplace(std::move(key), std::move(entry));
    }
    m_folder = folder.path;
  }
  const auto at = m_entries.find(index_format::key_of(name, timestamp));
  return at == m_entries.end() ? std::nullopt : std::optional(at->second);
}

std::vector<FoundEntry> find_versions(Context& context, const NamedVersion& named) {
  // Searches only where the library searches: it never finds entries in a wrong bucket.
  std::vector<FoundEntry> found =
      entries_of_folder(context, folder_for(context, named.target, named.name));
  std::erase_if(found, [&](const FoundEntry& entry) { return entry.name != named.name; });
  std::ranges::sort(found, {}, &FoundEntry::timestamp);
  return only_wanted(std::move(found), named.timestamp);
}

std::vector<FoundEntry> find_matching(Context& context, const NamedVersion& pattern) {
  admin::EntryQuery query;
  query.scope.area = pattern.target.area;
  if (context.tree().layout == admin::Layout::kOwner) query.scope.owner = pattern.target.owner;
  query.pattern = pattern.name;
  query.state = admin::EntryState::kIndexed;
  return only_wanted(find_entries(context, query), pattern.timestamp);
}

void check_not_shadowed(Context& context, const Target& target, const std::string& name,
                        std::int32_t timestamp) {
  const std::string folder = folder_for(context, target, name).path;
  const sys::Info info = sys::describe(sys::join(folder, name));
  if (info.kind == sys::Kind::kMissing) return;
  if (timestamp == 0) {
    const std::vector<FoundEntry> versions = find_versions(context, {target, name, 0});
    if (!versions.empty() && versions.front().file == name) return;
  }
  refuse(
      "{} contains a file named '{}' itself, which the library would serve for every version of "
      "that name; give it an entry with 'stgctl sync', or rename it",
      shown(folder), shown(name));
}

}  // namespace stgctl
