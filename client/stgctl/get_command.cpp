#include "client/stgctl/command.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/target.h"
#include "vu_file.h"

namespace stgctl {

namespace {

struct Options : Arguments {
  TextOption name{*this, "name", "NAME", "The logical name", kRequired};
  TextOption timestamp{*this, "--timestamp", kStamp, "The version (the latest)"};
  TextOption output{*this, "-o,--output", "FILE",
                    "The file to write, a folder, or '-' for the standard output (NAME)"};
};

/// The named version, or the latest.
FoundEntry choose(Context& context, const NamedVersion& named) {
  std::vector<FoundEntry> versions = find_versions(context, named);
  if (versions.empty()) no_version(named);
  return std::move(versions.back());
}

/// The path of the copy; the name is appended to a folder.
std::string destination_of(Context& context, const Options& options) {
  std::string destination = options.output.empty() ? options.name : options.output;
  std::error_code error;
  if (fs::is_directory(to_path(destination), error))
    destination = joined(destination, options.name);
  check_outside_tree(context, destination);
  return destination;
}

/// Copies under a shared lock, so that the copy is never half-written.
void copy_out(Context& context, const FoundEntry& entry, const std::string& destination) {
  // A first read without output: waits for the lock within the limit, and finds read errors.
  vu_file source(entry.folder.path, entry.file);
  check_read(entry.path(), sys::read_pieces(entry.path(), context.locking(),
                                            [](std::string_view) { return false; }));
  bool refused = false;
  if (!source.try_open(vu_file::o_read, refused, true) || refused)
    fail("{} cannot be opened and locked for reading", shown(entry.path()));
  // Copies to another name in the same folder: an existing file stays until the copy is complete.
  const std::string part = destination + ".stgctl-part";
  const os::Status copied = os::copy(entry.path(), part, os::IfExists::kReplace);
  std::error_code error;
  if (copied.ok()) fs::rename(to_path(part), to_path(destination), error);
  if (copied.ok() && !error) return;
  std::error_code ignored;
  fs::remove(to_path(part), ignored);
  fail("{} cannot be written ({}); check the free space and the permissions", shown(destination),
       error ? error.message() : sys::text_of(copied));
}

Exit run_get(Context& context, Options& options) {
  context.take_apart(options.name, options.timestamp);
  check_name("the name", options.name);
  const Target target = target_of(context, admin::Area::kDocs);
  const FoundEntry entry = choose(context, {target, options.name, parse_stamp(options.timestamp)});
  check_no_link(context, entry.path());
  if (options.output == "-") {
    if (context.out().json())
      misused("--json and '--output -' both write to the standard output; use one of them");
    if (!context.is_dry_run())
      check_read(entry.path(), write_out(context, entry.path(), context.locking()));
    return Exit::kDone;
  }
  const std::string destination = destination_of(context, options);
  const bool overwrites = is_file_at(destination);
  ChangeReport report(context, "stgctl.get/1", "got");
  if (!context.is_dry_run()) {
    if (overwrites) context.confirm(formatted("Overwrite {}?", shown(destination)));
    copy_out(context, entry, destination);
  }
  Json fields = {{"bytes", entry.info.size}, {"modified", entry.info.modify_time}};
  fields["file"] = destination;
  report.done(subject_of(entry), fields,
              formatted("{} to {}", format_bytes(entry.info.size), shown(destination)));
  return report.finish({{"bytes", entry.info.size}});
}

}  // namespace

Commands get_command() {
  return {{"get", Group::kChange, Effect::kChanges, "Copy a document out of the tree", run_get,
           "The tree does not change. The area is docs unless --area names another one. The\n"
           "command asks only before it overwrites a file."}};
}

}  // namespace stgctl
