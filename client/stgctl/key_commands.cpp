// keys and profile: show, set, unset.

#include <algorithm>
#include <memory>

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

struct EditOptions {
  std::string file = "profile.txt";
  std::vector<std::string> lines;
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

Exit run_edit(Context& context, const EditOptions& options, Change change, const char* schema) {
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

/// Declares any of the edit commands. They differ only in where the file name comes from.
Run declare_edit(Arguments& app, Change change, const char* schema, bool is_profile) {
  const auto options = std::make_shared<EditOptions>();
  if (is_profile) {
    app.add_option("--file", options->file, "The profile's name (profile.txt)").type_name("NAME");
  } else {
    app.add_option("file", options->file, "The key file's logical name")
        .type_name("NAME")
        .required();
  }
  app.add_option(
         "line", options->lines,
         change == Change::kSet ? "Keys with their values" : "Keys; all their lines are removed")
      .type_name(change == Change::kSet ? "KEY=VALUE" : "KEY")
      .required();
  return [=](Context& context) {
    EditOptions edit = *options;
    take_key_file(context, edit.file);
    const bool is_elsewhere = document_area(context, admin::Area::kUser) != admin::Area::kUser;
    if (is_profile && is_elsewhere)
      throw Failure(Exit::kUsage, "profiles are in the area user; omit --area");
    return run_edit(context, edit, change, schema);
  };
}

}  // namespace

void add_key_commands(Commands& commands) {
  commands.push_back(
      {"keys set", Group::kChange, Effect::kChanges,
       "Set lines of a key file; create the file if it is missing",
       [](Arguments& app) { return declare_edit(app, Change::kSet, "stgctl.keys.set/1", false); },
       "The area is user unless --area names another one. Other lines of the file do not\n"
       "change. If a key has several lines, the first gets the value and the others are\n"
       "removed."});
  commands.push_back({"keys unset", Group::kChange, Effect::kChanges, "Remove lines of a key file",
                      [](Arguments& app) {
                        return declare_edit(app, Change::kUnset, "stgctl.keys.unset/1", false);
                      },
                      "The area is user unless --area names another one. All lines of a key are\n"
                      "removed. Other lines of the file do not change."});
  commands.push_back(
      {"profile set", Group::kChange, Effect::kChanges, "Set lines of an owner's profile",
       [](Arguments& app) { return declare_edit(app, Change::kSet, "stgctl.profile.set/1", true); },
       "This command does not change the master profile, which is outside every tree."});
}

// ---- showing -----------------------------------------------------------------------------------

namespace {

struct ShowOptions {
  std::string name;
  std::string config;
  bool no_lock = false;
};

/// The place and owner of a key file.
struct Place {
  std::string area;
  std::string owner;
  std::string name;
  std::string path;
};

Exit show(Context& context, const char* schema, const Place& place, const ShowOptions& options) {
  admin::KeyFile file;
  const os::Status read =
      admin::read_key_file(place.path, locking_for(context, options.no_lock), file);
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

Place find(Context& context, admin::Area area, const ShowOptions& options) {
  admin::Request request;
  request.area = area;
  request.owner = owner_or_none(context);
  request.entry = options.name;
  const admin::Lookup found =
      admin::look_up(context.tree(), request, locking_for(context, options.no_lock));
  if (found.found)
    return {std::string(admin::name_of(area)), found.folder.owner, options.name, found.path};
  if (found.lock_missed)
    throw Failure(Exit::kLockTimeout,
                  "the index of " + shown(found.folder.path) + " is locked by another process");
  throw Failure(Exit::kNothingMatched, formatted("there is no {} in {}: {}", shown(options.name),
                                                 shown(found.folder.path), found.why));
}

Exit run_keys(Context& context, ShowOptions options) {
  take_key_file(context, options.name);
  const Place place = find(context, document_area(context, admin::Area::kUser), options);
  return show(context, "stgctl.keys/1", place, options);
}

Exit run_profile(Context& context, ShowOptions options) {
  take_key_file(context, options.name);
  if (context.scope().area.value_or(admin::Area::kUser) != admin::Area::kUser)
    throw Failure(Exit::kUsage, "profiles are in the area user; omit --area");
  if (context.scope().owner) {
    if (options.name.empty()) options.name = "profile.txt";
    const Place place = find(context, admin::Area::kUser, options);
    return show(context, "stgctl.profile/1", place, options);
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
  return show(context, "stgctl.profile/1", {"", "", name, path}, options);
}

Run declare_keys(Arguments& app) {
  auto options = std::make_shared<ShowOptions>();
  app.add_option("name", options->name, "The key file's logical name").type_name("NAME").required();
  add_no_lock(app, options->no_lock);
  return [options](Context& context) { return run_keys(context, *options); };
}

Run declare_profile(Arguments& app) {
  auto options = std::make_shared<ShowOptions>();
  app.add_option("name", options->name, "The profile's name (profile.txt)").type_name("NAME");
  app.add_option("--config", options->config, "The folder of the master profile").type_name("DIR");
  add_no_lock(app, options->no_lock);
  return [options](Context& context) { return run_profile(context, *options); };
}

}  // namespace

void add_show_commands(Commands& commands) {
  commands.push_back(
      {"keys show", Group::kLook, Effect::kLooks, "Show the lines of a key file", declare_keys,
       "The area is user unless --area names another one. Lines without \"=\" are skipped, as\n"
       "the library does."});
  commands.push_back(
      {"profile show", Group::kLook, Effect::kLooks, "Show a user's profile, or the master profile",
       declare_profile,
       "Shows the profile of the user that --owner names, or the master profile of --config:\n"
       "profile.txt if it exists, otherwise master.txt."});
}

}  // namespace stgctl
