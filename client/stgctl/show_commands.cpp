// keys show and profile show.

#include <memory>

#include "client/admin/lookup.h"
#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

struct Options {
  std::string name;
  std::string config;
  bool no_lock = false;
};

/// Where a key file is, and whose it is.
struct Place {
  std::string area;
  std::string owner;
  std::string name;
  std::string path;
};

Exit show(Context& context, const char* schema, const Place& place, const Options& options) {
  admin::KeyFile file;
  const os::Status read =
      admin::read_key_file(place.path, locking_for(context, options.no_lock), file);
  if (read.failure() == os::Failure::kLocked)
    throw Failure(Exit::kLockTimeout,
                  shown(place.path) + " is held locked; wait, or say --no-lock");
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

Place find(Context& context, admin::Area area, const Options& options) {
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
                  "the index of " + shown(found.folder.path) + " is held locked");
  throw Failure(Exit::kNothingMatched, formatted("there is no {} in {}: {}", shown(options.name),
                                                 shown(found.folder.path), found.why));
}

Exit run_keys(Context& context, Options options) {
  take_key_file(context, options.name);
  const Place place = find(context, document_area(context, admin::Area::kUser), options);
  return show(context, "stgctl.keys/1", place, options);
}

Exit run_profile(Context& context, Options options) {
  take_key_file(context, options.name);
  if (context.scope().area.value_or(admin::Area::kUser) != admin::Area::kUser)
    throw Failure(Exit::kUsage, "profiles lie in the area user");
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
  auto options = std::make_shared<Options>();
  app.add_option("name", options->name, "The key file's logical name").type_name("NAME").required();
  add_no_lock(app, options->no_lock);
  return [options](Context& context) { return run_keys(context, *options); };
}

Run declare_profile(Arguments& app) {
  auto options = std::make_shared<Options>();
  app.add_option("name", options->name, "The profile's name (profile.txt)").type_name("NAME");
  app.add_option("--config", options->config, "The folder of the master profile").type_name("DIR");
  add_no_lock(app, options->no_lock);
  return [options](Context& context) { return run_profile(context, *options); };
}

}  // namespace

void add_show_commands(Commands& commands) {
  commands.push_back(
      {"keys show", Group::kLook, Effect::kLooks, "Show the lines of a key file", declare_keys,
       "In the user area unless --area says otherwise. Lines without \"=\" are passed\n"
       "over, as the library does."});
  commands.push_back({"profile show", Group::kLook, Effect::kLooks,
                      "Show a user's profile, or the master profile", declare_profile,
                      "The user's that --owner names, else the master profile of --config:\n"
                      "profile.txt when it is there, else master.txt."});
}

}  // namespace stgctl
