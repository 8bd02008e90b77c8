
#include <memory>

#include "stg_index.h"
#include "tools/stgctl/command.h"
#include "tools/stgctl/lock_wait.h"
#include "tools/stgctl/operations.h"
#include "tools/stgctl/stamp.h"
#include "tools/stgctl/text.h"
#include "vu_file.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

struct Options {
  std::string from;
  std::string to;
  std::string timestamp;
  std::string new_timestamp;
  bool replace = false;
};

FoundEntry find_source(Context& context, const Target& target, const Options& options) {
  std::vector<FoundEntry> versions = find_versions(context, target, options.from);
  if (!options.timestamp.empty()) {
    const std::int32_t wanted = parse_stamp(options.timestamp).value_or(0);
    std::erase_if(versions, [&](const FoundEntry& entry) { return entry.timestamp != wanted; });
  }
  if (versions.empty()) {
    throw Failure(Exit::kNothingMatched, "there is no such version of " + shown(options.from));
  }
  if (versions.size() > 1) {
    throw Failure(Exit::kRefused, formatted("{} has {} versions; say --timestamp",
                                            shown(options.from), versions.size()));
  }
  return versions.front();
}

bool has_version(Context& context, const Target& target, const std::string& name,
                 std::int32_t timestamp) {
  for (const FoundEntry& entry : find_versions(context, target, name)) {
    if (entry.timestamp == timestamp) return true;
  }
  return false;
}

/// The new name's folder may be another one, since documents are spread by their names: then the
/// document is stored anew and removed where it was.
void move_entry(Context& context, const Target& target, const FoundEntry& from,
                const std::string& name, std::int32_t timestamp) {
  const std::string folder =
      admin::folder_for(context.tree(), target.area, target.owner, name).path;
  if (folder != from.folder.path) {
    store_file(context, target, from.path(), from.info.size, name, timestamp);
    remove_version(context, from, KeyLines::kLeave);
    return;
  }
  const std::vector<std::string> parts = part_folders(from);
  wait_until_free(context, folder, from.file);
  STGIndex::rename(folder, from.name, from.timestamp, name, timestamp);
  if (!has_version(context, target, name, timestamp) ||
      sys::describe(from.path()).kind != sys::Kind::kMissing) {
    throw Failure(Exit::kFailed, "it could not be renamed; --trace m tells why");
  }
  for (const std::string& part : parts) vu_file::recurseRemoveDir(sys::join(folder, part));
}

Exit run_mv(Context& context, const Options& options) {
  check_name("the name", options.from);
  check_name("the new name", options.to);
  const Target target = target_of(context, admin::Area::kDocs);
  const FoundEntry from = find_source(context, target, options);
  const std::int32_t timestamp = options.new_timestamp.empty()
                                     ? from.timestamp
                                     : parse_stamp(options.new_timestamp).value_or(0);
  if (from.name == options.to && from.timestamp == timestamp) {
    throw Failure(Exit::kRefused, "the new name and version are the old ones");
  }
  check_no_link(context, from.path());
  check_no_link(context,
                admin::folder_for(context.tree(), target.area, target.owner, options.to).path);
  check_not_shadowed(context, target, options.from, from.timestamp);
  check_not_shadowed(context, target, options.to, timestamp);
  const bool replaces = has_version(context, target, options.to, timestamp);
  const Subject to = {std::string(admin::name_of(target.area)), target.owner, options.to,
                      timestamp};
  if (replaces && !options.replace) {
    throw Failure(Exit::kRefused, shown(to) + " exists already; say --replace");
  }
  ChangeReport report(context, "stgctl.mv/1", "moved");
  if (!context.options().dry_run) {
    context.confirm(formatted("Move {} to {}?", shown(subject_of(from)), shown(to)));
    context.open_library();
    try {
      move_entry(context, target, from, options.to, timestamp);
    } catch (const Failure& failure) {
      if (failure.code() != Exit::kFailed) throw;
      report.failed(subject_of(from), failure.what());
      return report.finish();
    }
  }
  Json fields;
  put_name(fields, "new_name", options.to);
  fields["new_timestamp"] = timestamp;
  fields["replaced"] = replaces;
  report.done(subject_of(from), fields, "to " + shown(to));
  return report.finish();
}

}  // namespace

void add_mv_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto options = std::make_shared<Options>();
    app.add_option("name", options->from, "The logical name").type_name("NAME").required();
    app.add_option("new-name", options->to, "The new one").type_name("NEW-NAME").required();
    app.add_option("--timestamp", options->timestamp, "The version, when there are several")
        .type_name("STAMP")
        .check(is_stamp);
    app.add_option("--new-timestamp", options->new_timestamp,
                   "The version it becomes; the same otherwise")
        .type_name("STAMP")
        .check(is_stamp);
    app.add_flag("--replace", options->replace, "Replace a version that exists");
    return [options](Context& context) {
      context.take_apart(options->from, &options->timestamp);
      context.take_apart(options->to, &options->new_timestamp);
      return run_mv(context, *options);
    };
  };
  commands.push_back(
      {"mv", Group::kChange, Effect::kChanges, "Give a document another name or version", declare,
       "The area is docs unless --area says another one. The document keeps its modification\n"
       "time; its parts are dropped, since they are generated anew. Key lines that name it stay."});
}

}  // namespace stgctl
