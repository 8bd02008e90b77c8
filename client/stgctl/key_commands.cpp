// keys and profile: show, set, unset.

#include <algorithm>

#include "client/admin/lookup.h"
#include "client/admin/system.h"
#include "client/stgctl/command.h"
#include "client/stgctl/context.h"
#include "client/stgctl/look.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/text.h"
#include "stg_index.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace stgctl {

namespace sys = admin::sys;

// ---- changing ----------------------------------------------------------------------------------

namespace {

using admin::KeyEdit;

struct KeysSetOptions {
  Arguments app;
  TextOption file{app, "file", "NAME", "The key file's logical name", {kRequired}};
  ListOption lines{app, "line", "KEY=VALUE", "Keys with their values", {kRequired}};
};

struct KeysUnsetOptions {
  Arguments app;
  TextOption file{app, "file", "NAME", "The key file's logical name", {kRequired}};
  ListOption lines{app, "line", "KEY", "Keys; all their lines are removed", {kRequired}};
};

struct ProfileSetOptions {
  Arguments app;
  TextOption file{
      app, "--file", "NAME", "The profile's name (profile.txt)", {initially("profile.txt")}};
  ListOption lines{app, "line", "KEY=VALUE", "Keys with their values", {kRequired}};
};

enum class Change { kSet, kUnset };

/// One change of a key. The value is empty for kUnset.
struct Edit {
  std::string key;
  std::string value;
};

Edit parse_edit(const std::string& text, Change change) {
  const std::size_t separator = text.find('=');
  if (change == Change::kSet && separator == std::string::npos) {
    throw Failure(Exit::kUsage, formatted("'{}' is not of the form KEY=VALUE", shown(text)));
  }
  Edit edit = {text.substr(0, separator), ""};
  if (separator != std::string::npos) {
    if (change == Change::kUnset) {
      throw Failure(Exit::kUsage, formatted("'{}' is not a key: it contains '='", shown(text)));
    }
    edit.value = text.substr(separator + 1);
  }
  if (edit.key.empty()) throw Failure(Exit::kUsage, "an empty key cannot be changed");
  // Each of these ends a line in a key file, and there is no way to escape them.
  if (text.find_first_of("\r\n\t") != std::string::npos) {
    throw Failure(Exit::kRefused,
                  formatted("'{}' is not allowed: it contains a tab or a line end", shown(text)));
  }
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
  for (std::size_t i = 0; i < edits.size(); ++i) {
    const Edit& edit = edits[i];
    Json fields;
    put_name(fields, "key", edit.key);
    if (change == Change::kSet) put_name(fields, "value", edit.value);
    const std::string line = change == Change::kSet
                                 ? formatted("{}={}", shown(edit.key), shown(edit.value))
                                 : shown(edit.key);
    if (results[i] == KeyEdit::kUnchanged) {
      report.skipped(file, change == Change::kSet ? line + " is already in the file"
                                                  : "there is no line with the key " + line);
    } else {
      report.done(file, fields, line);
    }
  }
}

/// Reads, changes and writes under one exclusive lock, so that no line of another process is lost.
std::vector<KeyEdit> rewrite(const FoundEntry& file, const std::vector<Edit>& edits,
                             Change change) {
  vu_file handle(file.folder.path, file.file);
  handle.open(vu_file::o_append);
  std::string text;
  handle.read(text, 0);
  std::string changed = text;
  const std::vector<KeyEdit> results = apply(edits, change, changed);
  if (changed != text) {
    handle.clear();
    if (handle.write(changed) != static_cast<int>(changed.size())) {
      // Restores the old text, as far as the disk allows.
      handle.clear();
      handle.write(text);
      throw Failure(Exit::kFailed, shown(file.path()) + " cannot be written; check the free space");
    }
  }
  handle.close();
  return results;
}

FoundEntry find_or_make(Context& context, const Target& target, const std::string& name,
                        Change change) {
  const auto find = [&]() -> std::optional<FoundEntry> {
    for (const FoundEntry& entry : find_versions(context, target, name)) {
      if (entry.timestamp == 0) return entry;
    }
    return std::nullopt;
  };
  if (const std::optional<FoundEntry> entry = find()) return *entry;
  if (change == Change::kUnset) {
    throw Failure(Exit::kNothingMatched, "there is no key file " + shown(name));
  }
  const admin::DocumentFolder place =
      admin::folder_for(context.tree(), target.area, target.owner, name);
  // If the counter is not usable, the library would give every new name the same file.
  if (const std::string why = admin::why_not_storable(place.path); !why.empty())
    throw Failure(Exit::kFailed, formatted("{} cannot be created: {}", shown(name), why));
  if (context.options().dry_run) return {};
  std::string folder;
  if (vu_storage::createUserOrDomainNameDirectory(target.library_owner, name, target.type, folder,
                                                  true)) {
    STGIndex::create(folder, name, 0);
  }
  if (const std::optional<FoundEntry> entry = find()) return *entry;
  throw Failure(Exit::kFailed,
                "the key file " + shown(name) +
                    " could not be created; run again with --trace m to see the reason");
}

template <class Options>
Exit run_edit(Context& context, Options& options, Change change, const char* schema) {
  take_key_file(context, options.file);
  const bool is_elsewhere = document_area(context, admin::Area::kUser) != admin::Area::kUser;
  if (std::is_same_v<Options, ProfileSetOptions> && is_elsewhere)
    throw Failure(Exit::kUsage, "profiles are in the area user; omit --area");
  check_name("the key file", options.file);
  std::vector<Edit> edits;
  for (const std::string& line : options.lines) edits.push_back(parse_edit(line, change));
  const Target target = target_of(context, admin::Area::kUser);
  const std::string folder =
      admin::folder_for(context.tree(), target.area, target.owner, options.file).path;
  check_no_link(context, folder);
  check_not_shadowed(context, target, options.file, 0);
  const Subject subject = {std::string(admin::name_of(target.area)), target.owner, options.file, 0};
  ChangeReport report(context, schema, change == Change::kSet ? "set" : "unset");
  if (context.options().dry_run) {
    const FoundEntry file = find_or_make(context, target, options.file, change);
    std::string text;
    if (!file.file.empty() && !sys::read_file(file.path(), context.locking(), text).ok()) {
      throw Failure(Exit::kFailed, shown(file.path()) + " cannot be read");
    }
    tell(edits, apply(edits, change, text), change, subject, report);
    return report.finish();
  }
  if (change == Change::kUnset) find_or_make(context, target, options.file, change);
  context.confirm(formatted("Change {} {} of {}?", edits.size(),
                            edits.size() == 1 ? "line" : "lines", shown(subject)));
  context.open_library();
  wait_until_free(context, folder);
  const FoundEntry file = find_or_make(context, target, options.file, change);
  check_no_link(context, file.path());
  wait_until_free(context, folder, file.file);
  tell(edits, rewrite(file, edits, change), change, subject, report);
  return report.finish();
}

Exit run_keys_set(Context& context, KeysSetOptions& options) {
  return run_edit(context, options, Change::kSet, "stgctl.keys.set/1");
}

Exit run_keys_unset(Context& context, KeysUnsetOptions& options) {
  return run_edit(context, options, Change::kUnset, "stgctl.keys.unset/1");
}

Exit run_profile_set(Context& context, ProfileSetOptions& options) {
  return run_edit(context, options, Change::kSet, "stgctl.profile.set/1");
}

}  // namespace

Commands key_commands() {
  return {
      {"keys set", Group::kChange, Effect::kChanges,
       "Set lines of a key file; create the file if it is missing", run_keys_set,
       "The area is user unless --area names another one. Other lines of the file do not\n"
       "change. If a key has several lines, the first gets the value and the others are\n"
       "removed."},
      {"keys unset", Group::kChange, Effect::kChanges, "Remove lines of a key file", run_keys_unset,
       "The area is user unless --area names another one. All lines of a key are\n"
       "removed. Other lines of the file do not change."},
      {"profile set", Group::kChange, Effect::kChanges, "Set lines of an owner's profile",
       run_profile_set,
       "This command does not change the master profile, which is outside every tree."}};
}

// ---- showing -----------------------------------------------------------------------------------

namespace {

struct ShowKeysOptions {
  Arguments app;
  TextOption name{app, "name", "NAME", "The key file's logical name", {kRequired}};
  NoLock no_lock{app};
};

struct ShowProfileOptions {
  Arguments app;
  TextOption name{app, "name", "NAME", "The profile's name (profile.txt)"};
  TextOption config{app, "--config", "DIR", "The folder of the master profile"};
  NoLock no_lock{app};
};

/// The place and owner of a key file.
struct Place {
  std::string area;
  std::string owner;
  std::string name;
  std::string path;
};

Exit show(Context& context, const char* schema, const Place& place, bool no_lock) {
  admin::KeyFile file;
  const os::Status read = admin::read_key_file(place.path, locking_for(context, no_lock), file);
  if (read.failure() == os::Failure::kLocked)
    throw Failure(Exit::kLockTimeout,
                  shown(place.path) + " is locked by another process; wait, or use --no-lock");
  if (!read.ok())
    throw Failure(Exit::kFailed, shown(place.path) + ": " + admin::sys::text_of(read));
  if (!context.out().json()) {
    for (const auto& [name, value] : file.lines)
      context.out().print("{}={}\n", shown(name), shown(value));
    return Exit::kDone;
  }
  Json fields;
  if (!place.area.empty()) fields["area"] = place.area;
  put_name(fields, "owner", place.owner);
  put_name(fields, "name", place.name);
  put_name(fields, "path", place.path);
  fields["passed_over"] = file.passed_over;
  fields["lines"] = Json::array();
  for (const auto& [name, value] : file.lines) {
    Json line;
    put_name(line, "name", name);
    put_name(line, "value", value);
    fields["lines"].push_back(std::move(line));
  }
  context.out().json_line(schema, fields);
  return Exit::kDone;
}

Place find(Context& context, admin::Area area, const std::string& name, bool no_lock) {
  admin::Request request;
  request.area = area;
  request.owner = owner_or_none(context);
  request.entry = name;
  const admin::Lookup found =
      admin::look_up(context.tree(), request, locking_for(context, no_lock));
  if (found.found) return {std::string(admin::name_of(area)), found.folder.owner, name, found.path};
  if (found.lock_missed)
    throw Failure(Exit::kLockTimeout,
                  "the index of " + shown(found.folder.path) + " is locked by another process");
  throw Failure(Exit::kNothingMatched, formatted("there is no {} in {}: {}", shown(name),
                                                 shown(found.folder.path), found.why));
}

Exit run_keys(Context& context, ShowKeysOptions& options) {
  take_key_file(context, options.name);
  const Place place =
      find(context, document_area(context, admin::Area::kUser), options.name, options.no_lock);
  return show(context, "stgctl.keys/1", place, options.no_lock);
}

Exit run_profile(Context& context, ShowProfileOptions& options) {
  take_key_file(context, options.name);
  if (context.scope().area.value_or(admin::Area::kUser) != admin::Area::kUser)
    throw Failure(Exit::kUsage, "profiles are in the area user; omit --area");
  if (context.scope().owner) {
    if (options.name.empty()) options.name = "profile.txt";
    const Place place = find(context, admin::Area::kUser, options.name, options.no_lock);
    return show(context, "stgctl.profile/1", place, options.no_lock);
  }
  if (options.config.empty()) {
    throw Failure(Exit::kUsage,
                  "name a user by --owner, or the folder of the master profile by --config");
  }
  const std::string path = options.name.empty() ? admin::master_profile(options.config)
                                                : admin::sys::join(options.config, options.name);
  if (path.empty() || admin::sys::describe(path).kind == admin::sys::Kind::kMissing)
    throw Failure(Exit::kNothingMatched, "there is no master profile in " + shown(options.config));
  const std::string name = path.substr(path.rfind(admin::sys::kSeparator) + 1);
  return show(context, "stgctl.profile/1", {"", "", name, path}, options.no_lock);
}

}  // namespace

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
