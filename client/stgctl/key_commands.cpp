// keys and profile: show, set, unset.

#include "client/admin/key_files.h"
#include "client/admin/locked_file.h"
#include "client/stgctl/look.h"
#include "stg_index.h"
#include "vu_storage.h"

namespace stgctl {

// ---- changing ----------------------------------------------------------------------------------

namespace {

using admin::KeyEdit;

enum class Change { kSet, kUnset };

struct KeysSetOptions : Arguments {
  static constexpr Change kChange = Change::kSet;
  static constexpr const char* kSchema = "stgctl.keys.set/1";
  TextOption file{*this, "file", "ENTRY", "The key file's logical name", kRequired};
  ListOption lines{*this, "line", "NAME=VALUE", "Names of lines, with their values", kRequired};
};

struct KeysUnsetOptions : Arguments {
  static constexpr Change kChange = Change::kUnset;
  static constexpr const char* kSchema = "stgctl.keys.unset/1";
  TextOption file{*this, "file", "ENTRY", "The key file's logical name", kRequired};
  ListOption lines{*this, "line", "LINE", "Names of lines; all lines of these names are removed",
                   kRequired};
};

struct ProfileSetOptions : Arguments {
  static constexpr Change kChange = Change::kSet;
  static constexpr const char* kSchema = "stgctl.profile.set/1";
  TextOption file{*this, "--file", "NAME", "The profile's name (profile.txt)",
                  initially("profile.txt")};
  ListOption lines{*this, "line", "NAME=VALUE", "Names of lines, with their values", kRequired};
};

/// One change of a key. The value is empty for kUnset.
struct Edit {
  std::string key;
  std::string value;
};

Edit parse_edit(const std::string& text, Change change) {
  const std::size_t separator = text.find('=');
  const bool has_value = separator != std::string::npos;
  if (change == Change::kSet && !has_value)
    misused("'{}' is not of the form NAME=VALUE", shown(text));
  if (change == Change::kUnset && has_value)
    misused("'{}' is not the name of a line: it contains '='", shown(text));
  Edit edit = {text.substr(0, separator), has_value ? text.substr(separator + 1) : ""};
  if (edit.key.empty()) misused("a line without a name cannot be changed");
  // Each of these ends a line in a key file, and there is no way to escape them.
  if (text.find_first_of("\r\n\t") != std::string::npos)
    refuse("'{}' is not allowed: it contains a tab or a line end", shown(text));
  return edit;
}

/// Changes the text. @return the result of each edit.
std::vector<KeyEdit> apply(const std::vector<Edit>& edits, Change change, std::string& text) {
  std::vector<KeyEdit> results;
  for (const Edit& edit : edits) {
    results.push_back(change == Change::kSet ? admin::set_key(text, edit.key, edit.value)
                                             : admin::unset_key(text, edit.key));
  }
  return results;
}

void tell(const std::vector<Edit>& edits, const std::vector<KeyEdit>& results, Change change,
          const Subject& file, ChangeReport& report) {
  const bool is_set = change == Change::kSet;
  for (std::size_t i = 0; i < edits.size(); ++i) {
    const auto& [key, value] = edits[i];
    const std::string line = is_set ? formatted("{}={}", shown(key), shown(value)) : shown(key);
    if (results[i] == KeyEdit::kUnchanged) {
      report.skipped(file, is_set ? line + " is already in the file"
                                  : "there is no line with the name " + line);
      continue;
    }
    Json fields;
    fields["key"] = key;
    if (is_set) fields["value"] = value;
    report.done(file, fields, line);
  }
}

/// Writes a new text in place. If both texts are within one page of 4 KiB, a process that is killed
/// leaves the old lines or the new ones, perhaps with line feeds after them, which are no lines. In
/// a longer text it can leave new pages before old ones.
///
/// A new file under the same name would lose lines: a program that waits for the lock has opened
/// the old file, and would write to it.
os::Status write_in_place(admin::LockedFile& file, std::string_view old_text,
                          std::string_view new_text) {
  const std::size_t size = std::max(old_text.size(), new_text.size());
  std::string changed(new_text);
  changed.resize(size, '\n');
  const std::size_t same =
      static_cast<std::size_t>(std::ranges::mismatch(old_text, changed).in1 - old_text.begin());
  os::Status status;
  // A full disk refuses this, before a line is overwritten.
  if (size > old_text.size())
    status = file.write_at(old_text.size(), std::string(size - old_text.size(), '\n'));
  // One write: the system completes each page of it, even if the process is killed.
  if (status.ok()) status = file.write_at(same, std::string_view(changed).substr(same));
  if (status.ok() && size > new_text.size()) status = file.cut_at(new_text.size());
  return status.ok() ? file.flush() : status;
}

/// Reads, changes and writes under one exclusive lock, so that no line of another process is lost.
std::vector<KeyEdit> rewrite(Context& context, const std::string& path,
                             const std::vector<Edit>& edits, Change change) {
  admin::LockedFile file;
  const os::Status opened = file.open(path, admin::LockedFile::For::kChanging, context.locking());
  check_locked(context, path, opened);
  check_read(path, opened);
  std::string text;
  check_read(path, file.read_all(text));
  std::string changed = text;
  const std::vector<KeyEdit> results = apply(edits, change, changed);
  if (changed == text || write_in_place(file, text, changed).ok()) return results;
  // Restores the old text. If the disk does not allow that, the rest of the new text stays.
  if (file.write_at(0, text).ok()) static_cast<void>(file.cut_at(text.size()));
  fail("{} cannot be written; check the free space", shown(path));
}

std::optional<FoundEntry> find_key_file(Context& context, const Target& target,
                                        const std::string& name) {
  return KnownEntries(context).find(folder_for(context, target, name), name, 0);
}

/// The path of a key file. Creates a missing file, except in a dry run.
std::string make_key_file(Context& context, const Target& target, const std::string& name) {
  if (const auto entry = find_key_file(context, target, name)) return entry->path();
  // If the counter is not usable, the library would give every new name the same file.
  const std::string place = folder_for(context, target, name).path;
  if (const std::string why = admin::why_not_storable(place); !why.empty())
    fail("{} cannot be created: {}", shown(name), why);
  if (context.is_dry_run()) return {};
  std::string folder;
  if (vu_storage::createUserOrDomainNameDirectory(target.library_owner, name, target.type, folder,
                                                  true))
    STGIndex::create(folder, name, 0);
  if (const auto entry = find_key_file(context, target, name)) return entry->path();
  fail("the key file {} could not be created; run again with --trace m to see the reason",
       shown(name));
}

template <class Options>
Exit run_edit(Context& context, Options& options) {
  constexpr Change change = Options::kChange;
  take_key_file(context, options.file);
  const bool is_elsewhere = document_area(context, admin::Area::kUser) != admin::Area::kUser;
  if (std::is_same_v<Options, ProfileSetOptions> && is_elsewhere)
    misused("profiles are in the area user; omit --area");
  check_name("the key file", options.file);
  std::vector<Edit> edits;
  for (const std::string& line : options.lines) edits.push_back(parse_edit(line, change));
  const Target target = target_of(context, admin::Area::kUser);
  const std::string folder = folder_for(context, target, options.file).path;
  check_no_link(context, folder);
  check_not_shadowed(context, target, options.file, 0);
  const auto check_there = [&] {
    if (change == Change::kUnset && !find_key_file(context, target, options.file))
      not_found("there is no key file {}", shown(options.file));
  };
  check_there();
  const Subject subject = subject_in(target.area, target.owner, options.file, 0);
  ChangeReport report(context, Options::kSchema, change == Change::kSet ? "set" : "unset");
  context.begin_changes(formatted("Change {} {} of {}?", edits.size(),
                                  edits.size() == 1 ? "line" : "lines", shown(subject)));
  if (!context.is_dry_run()) wait_until_free(context, folder);
  // Another process can have removed it meanwhile.
  check_there();
  const std::string path = make_key_file(context, target, options.file);
  std::vector<KeyEdit> results;
  if (!context.is_dry_run()) {
    check_no_link(context, path);
    wait_until_free(context, folder, path.substr(folder.size() + 1));
    results = rewrite(context, path, edits, change);
  } else {
    std::string text;
    if (!path.empty() && !sys::read_file(path, context.locking(), text).ok())
      fail("{} cannot be read", shown(path));
    results = apply(edits, change, text);
  }
  tell(edits, results, change, subject, report);
  return report.finish();
}

// ---- showing -----------------------------------------------------------------------------------

struct ShowKeysOptions : Arguments {
  TextOption name{*this, "name", "ENTRY", "The key file's logical name", kRequired};
  NoLock no_lock{*this};
};

struct ShowProfileOptions : Arguments {
  TextOption name{*this, "name", "NAME", "The profile's name (profile.txt)"};
  TextOption config{*this, "--config", "DIR", "The folder of the master profile"};
  NoLock no_lock{*this};
};

/// The place and owner of a key file.
struct Place {
  std::string area;
  std::string owner;
  std::string name;
  std::string path;
};

Exit show(Context& context, const char* schema, const Place& place) {
  admin::KeyFile file;
  check_read(place.path, admin::read_key_file(place.path, context.locking(), file));
  if (!context.out().json()) {
    for (const auto& [name, value] : file.lines)
      context.out().print("{}={}\n", shown(name), shown(value));
    return Exit::kDone;
  }
  Json fields;
  if (!place.area.empty()) fields["area"] = place.area;
  fields.update({{"owner", place.owner},
                 {"name", place.name},
                 {"path", place.path},
                 {"passed_over", file.passed_over},
                 {"lines", Json::array()}});
  for (const auto& [name, value] : file.lines)
    fields["lines"].push_back({{"name", name}, {"value", value}});
  context.out().json_line(schema, fields);
  return Exit::kDone;
}

Place find(Context& context, admin::Area area, const std::string& name) {
  admin::Request request;
  request.area = area;
  request.owner = owner_or_none(context);
  request.entry = name;
  const admin::Explanation found =
      admin::explain_lookup(context.tree(), request, context.locking());
  if (found.would_succeed)
    return {std::string(admin::name_of(area)), found.folder.owner, name, found.path};
  if (found.lock_missed)
    throw lock_missed(context, sys::join(found.folder.path, index_format::kIndexFile));
  const bool lacks_owner = request.owner.empty() && context.tree().layout == admin::Layout::kOwner;
  not_found("there is no {} in {}: {}{}", shown(name), shown(found.folder.path),
            found.first_no()->text, lacks_owner ? "; use --owner NAME" : "");
}

Exit run_keys(Context& context, ShowKeysOptions& options) {
  take_key_file(context, options.name);
  const Place place = find(context, document_area(context, admin::Area::kUser), options.name);
  return show(context, "stgctl.keys/1", place);
}

Exit run_profile(Context& context, ShowProfileOptions& options) {
  take_key_file(context, options.name);
  if (context.scope().area.value_or(admin::Area::kUser) != admin::Area::kUser)
    misused("profiles are in the area user; omit --area");
  if (context.scope().owner) {
    if (options.name.empty()) options.name = "profile.txt";
    const Place place = find(context, admin::Area::kUser, options.name);
    return show(context, "stgctl.profile/1", place);
  }
  if (options.config.empty())
    misused("name a user by --owner, or the folder of the master profile by --config");
  const std::string path = options.name.empty() ? admin::master_profile(options.config)
                                                : sys::join(options.config, options.name);
  if (path.empty() || sys::describe(path).kind == sys::Kind::kMissing)
    not_found("there is no master profile in {}", shown(options.config));
  const std::string name = path.substr(path.rfind(sys::kSeparator) + 1);
  return show(context, "stgctl.profile/1", {"", "", name, path});
}

}  // namespace

Commands key_commands() {
  return {{"keys set", Group::kChange, Effect::kChanges,
           "Set lines of a key file; create the file if it is missing", run_edit<KeysSetOptions>,
           "The area is user unless --area names another one. Other lines of the file do not\n"
           "change. If several lines have the name, the first gets the value and the others are\n"
           "removed."},
          {"keys unset", Group::kChange, Effect::kChanges, "Remove lines of a key file",
           run_edit<KeysUnsetOptions>,
           "The area is user unless --area names another one. All lines of a name are\n"
           "removed. Other lines of the file do not change."},
          {"profile set", Group::kChange, Effect::kChanges, "Set lines of an owner's profile",
           run_edit<ProfileSetOptions>,
           "This command does not change the master profile, which is outside every tree."}};
}

Commands show_commands() {
  return {{"keys show", Group::kLook, Effect::kLooks, "Show the lines of a key file", run_keys,
           "The area is user unless --area names another one. Lines without \"=\" are skipped, as\n"
           "the library does."},
          {"profile show", Group::kLook, Effect::kLooks,
           "Show a user's profile, or the master profile", run_profile,
           "Shows the profile of the user that --owner names, or the master profile of --config:\n"
           "profile.txt if it exists, otherwise master.txt."}};
}

}  // namespace stgctl
