#include <set>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "stg_index.h"
#include "vu_storage.h"

namespace stgctl {

namespace {

struct Options : Arguments {
  ListOption names{*this, "name", "NAME", "Logical names"};
  TextOption match{*this, "--match", "PATTERN",
                   "All documents that match this pattern; * and ? as in a shell"};
  TextOption timestamp{*this, "--timestamp", kStamp, "Only this version"};
  Flag all_versions{*this, "--all-versions", "Every version of each name"};
};

/// The versions to remove, each once.
std::vector<FoundEntry> chosen_versions(Context& context, const Options& options) {
  std::vector<FoundEntry> chosen;
  std::set<std::pair<std::string, std::string>> seen;
  const auto add = [&](std::vector<FoundEntry> more) {
    for (FoundEntry& entry : more) {
      const std::string key = index_format::key_of(entry.name, entry.timestamp);
      if (seen.emplace(entry.folder.path, key).second) chosen.push_back(std::move(entry));
    }
  };
  for (const std::string& text : options.names) {
    const NamedVersion named = named_version(context, text, options.timestamp);
    check_name("the name", named.name);
    std::vector<FoundEntry> versions = find_versions(context, named);
    if (versions.size() > 1 && !options.all_versions)
      refuse("{} has {} versions; use --timestamp or --all-versions", shown(named.name),
             versions.size());
    add(std::move(versions));
  }
  if (!options.match.empty())
    add(find_matching(context, named_version(context, options.match, options.timestamp)));
  return chosen;
}

/// The key files of the entry's folder in which the library would damage another line. The library
/// searches for the name anywhere in the text.
std::vector<std::string> key_files_at_risk(Context& context, const FoundEntry& entry) {
  std::vector<std::string> at_risk;
  for (const FoundEntry& each : entries_of_folder(context, entry.folder)) {
    const bool is_key_file =
        each.name.ends_with(".ctg") ||
        (entry.folder.area == admin::Area::kUser && each.name == "attribut.txt");
    if (!is_key_file || each.timestamp != 0) continue;
    std::string text;
    if (!sys::read_file(each.path(), context.locking(), text).ok()) continue;
    const std::size_t at = text.find(entry.name);
    if (at == std::string::npos) continue;
    const std::size_t end = at + entry.name.size();
    const bool starts_line = at == 0 || text[at - 1] == '\n';
    const bool ends_name =
        end == text.size() || text[end] == '=' || text[end] == '\n' || text[end] == '\r';
    if (!starts_line || !ends_name) at_risk.push_back(each.name);
  }
  return at_risk;
}

/// Whether the index still has the removed entry. Another line with its key, valid or unknown, has
/// another physical name, and the library keeps it.
bool has_line(Context& context, const FoundEntry& entry) {
  admin::FolderView view;
  view.load(entry.folder, context.locking());
  const std::string key = index_format::key_of(entry.name, entry.timestamp);
  for (const admin::LintedLine& line : admin::IndexLint(view)) {
    if (line.key == key && line.stored == entry.stored) return true;
  }
  return false;
}

/// Removes a version with its sub-parts. @throws Failure kFailed; as wait_until_free().
void remove_version(Context& context, const FoundEntry& entry, bool with_key_lines) {
  const Target target = target_of(context, entry.folder);
  const FoundParts parts(entry.folder.path);
  wait_until_free(context, entry.folder.path);
  // A check after the removal would be too late: the file would be gone, and its entry would stay.
  for (const admin::Obstacle& each : admin::obstacles_to_writing(entry.folder.path)) {
    if (each.kind != admin::Obstacle::Kind::kCounter)
      fail("it cannot be removed: {}: {}", shown(each.path), each.why);
  }
  context.forget_trouble();
  if (with_key_lines) {
    vu_storage::RemoveFile(target.library_owner, entry.name, target.type, entry.timestamp);
  } else {
    STGIndex::remove(entry.folder.path, entry.name, entry.timestamp);
  }
  const sys::Kind left = sys::describe(entry.path()).kind;
  if (left == sys::Kind::kUnknown)
    fail("the system cannot tell whether its file is removed{}", context.trouble());
  if (left != sys::Kind::kMissing) fail("its file could not be removed{}", context.trouble());
  if (has_line(context, entry))
    fail("its file is removed, but its entry is still in the index{}", context.trouble());
  parts.remove({entry.file});
}

void remove(Context& context, const FoundEntry& entry, ChangeReport& report) {
  const Subject subject = subject_of(entry);
  try {
    check_name("the name", entry.name);
    check_no_link(context, entry.path());
    const std::vector<std::string> parts = part_folders(entry);
    const std::vector<std::string> at_risk = key_files_at_risk(context, entry);
    for (const std::string& file : at_risk) {
      context.out().warning(
          formatted("{}: no key line is removed, because the library would damage another line "
                    "of {}; see 'stgctl keys unset'",
                    shown(subject), shown(file)));
    }
    if (!context.is_dry_run()) remove_version(context, entry, at_risk.empty());
    std::string tail = format_bytes(entry.info.size);
    if (!parts.empty()) tail += formatted(", {} folders of sub-parts", parts.size());
    report.done(subject,
                {{"bytes", entry.info.size},
                 {"part_folders", parts.size()},
                 {"key_lines", at_risk.empty()}},
                tail);
    report.add_bytes(entry.info.size);
  } catch (const Failure& failure) {
    if (failure.ends_work()) throw;
    report.failed(subject, failure);
  }
}

Exit run_rm(Context& context, const Options& options) {
  context.tree();
  if (options.names.empty() == options.match.empty())
    misused("nothing says what to remove; use names, or --match PATTERN");
  const std::vector<FoundEntry> entries = chosen_versions(context, options);
  if (entries.empty()) not_found("nothing matches: nothing was removed");
  std::uint64_t bytes = 0;
  for (const FoundEntry& entry : entries) bytes += entry.info.size;
  context.begin_changes(formatted("Remove {} {}, {}?", entries.size(),
                                  entries.size() == 1 ? "version" : "versions",
                                  format_bytes(bytes)));
  ChangeReport report(context, "stgctl.rm/1", "removed");
  report.for_each("removing", entries, [&](const FoundEntry& entry) {
    remove(context, entry, report);
    return entry.name;
  });
  return report.finish({{"bytes", report.bytes()}}, format_bytes(report.bytes()));
}

}  // namespace

Commands rm_command() {
  return {{"rm", Group::kChange, Effect::kChanges, "Remove documents with their sub-parts", run_rm,
           "The area is docs unless --area names another one. A name with several versions needs\n"
           "--timestamp or --all-versions. The command also removes the lines of the document in\n"
           "the category files of its folder, and in attribut.txt of the user area."}};
}

}  // namespace stgctl
