// versions, which, cat and parts: the commands that look at one document.

#include <tuple>

#include "client/admin/explain.h"
#include "client/stgctl/look.h"
#include "client/stgctl/new_file.h"

namespace stgctl {

namespace {

struct EntryOptions : Arguments {
  const char* what = "The logical name";
  TextOption name{*this, "entry", "ENTRY", what, kRequired};
  TextOption timestamp{*this, "--timestamp", kStamp, "Only the version of this timestamp"};
  NoLock no_lock{*this};

  /// Splits the name if it has the printed form of a version.
  void take_apart(Context& context) { context.take_apart(name, timestamp); }
};

/// All versions of the name within --area, --owner and the options, sorted by area, owner, name and
/// timestamp. Warns about folders that could not be read.
std::vector<FoundEntry> versions_of(Context& context, const EntryOptions& options,
                                    admin::EntryFailures& failures) {
  admin::EntryQuery query = query_of(context, "", options.timestamp, options.no_lock);
  query.logical = options.name;
  query.with_info = true;
  std::vector<FoundEntry> found;
  failures = admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        found.emplace_back(entry);
        return true;
      },
      warn_of_failures(context));
  std::ranges::sort(found, {}, [](const FoundEntry& entry) {
    return std::tie(entry.folder.area, entry.folder.owner, entry.name, entry.timestamp);
  });
  return found;
}

// ---- versions ----------------------------------------------------------------------------------

/// The file that a read returns for this version's name and timestamp, or empty.
std::string served_for(Context& context, const FoundEntry& version, bool no_lock) {
  admin::Request request;
  request.area = version.folder.area;
  request.owner = version.folder.owner;
  request.entry = version.name;
  request.timestamp = version.timestamp;
  // Ignores the required age, which depends on the reader.
  if (!version.name.ends_with(".kdf") || request.area != admin::Area::kDocs) request.timestamp = 0;
  return admin::look_up(context.tree(), request, locking_for(context, no_lock)).path;
}

Exit run_versions(Context& context, EntryOptions& options) {
  options.take_apart(context);
  admin::EntryFailures failures;
  const std::vector<FoundEntry> all = versions_of(context, options, failures);
  for (const FoundEntry& version : all) {
    const bool keeps_documents = admin::expects_index(version.folder.area);
    const bool served =
        keeps_documents && served_for(context, version, options.no_lock) == version.path();
    Json fields = fields_of(version.view());
    put_info(fields, version.info);
    fields["served"] = served;
    context.out().result("stgctl.versions/1", fields, "{}  {:>10}  {}  {}{}\n",
                         subject_text(version.view()), format_bytes(version.info.size),
                         format_time(version.info.modify_time), shown(version.file),
                         served ? "" : context.out().styled(Style::kYellow, "  (never read)"));
  }
  return exit_of(failures, !all.empty());
}

// ---- which -------------------------------------------------------------------------------------

/// The document's file for a path in its folder: the file itself, or the file of a sub-part.
std::string document_file(const admin::DocumentFolder& folder, const std::string& rest) {
  const std::string first = rest.substr(0, rest.find(sys::kSeparator));
  if (sys::describe(sys::join(folder.path, first)).kind != sys::Kind::kFolder) return first;
  for (std::size_t at = first.find('_'); at != std::string::npos; at = first.find('_', at + 1)) {
    const std::string document = first.substr(0, at);
    if (sys::describe(sys::join(folder.path, document)).kind == sys::Kind::kFile) return document;
  }
  return first;
}

Exit show_logical(Context& context, const EntryOptions& options, const admin::Located& located) {
  const std::string file = document_file(located.folder, located.rest);
  admin::EntryQuery query;
  query.scope.area = located.folder.area;
  if (!located.folder.owner.empty()) query.scope.owner = located.folder.owner;
  query.with_missing = true;
  query.locking = locking_for(context, options.no_lock);
  bool any = false;
  const admin::EntryFailures failures = admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        if (entry.file != file || entry.folder->path != located.folder.path) return true;
        any = true;
        Json fields = fields_of(entry);
        fields["direction"] = "logical";
        context.out().result("stgctl.which/1", fields, "{}{}\n", subject_text(entry),
                             entry.state == admin::EntryState::kUnindexed ? "  (orphan)" : "");
        return true;
      },
      warn_of_failures(context));
  return exit_of(failures, any);
}

Exit show_physical(Context& context, const EntryOptions& options) {
  admin::EntryFailures failures;
  const std::vector<FoundEntry> all = versions_of(context, options, failures);
  for (const FoundEntry& version : all) {
    Json fields = fields_of(version.view());
    fields["path"] = version.path();
    fields["direction"] = "physical";
    context.out().result("stgctl.which/1", fields, "{}\n", shown(version.path()));
  }
  return exit_of(failures, !all.empty());
}

struct WhichOptions : Arguments {
  EntryOptions entry{*this, "A logical name, or the path of a file in the tree"};
};

Exit run_which(Context& context, WhichOptions& which) {
  EntryOptions& options = which.entry;
  // Text in the form of a version is a path if something exists there.
  if (sys::describe(options.name).kind == sys::Kind::kMissing) options.take_apart(context);
  const bool is_path = options.name.find_first_of("/\\") != std::string::npos;
  if (!is_path) return show_physical(context, options);
  const auto located = admin::locate_in(context.tree(), options.name);
  if (!located || located->rest.empty())
    not_found("{} is not a file in a document folder of this tree", shown(options.name));
  return show_logical(context, options, *located);
}

// ---- cat ---------------------------------------------------------------------------------------

FoundEntry only_one(const std::vector<FoundEntry>& all, const EntryOptions& options) {
  if (all.empty()) not_found("no document in the tree has the name {}", shown(options.name));
  if (all.size() > 1)
    misused(
        "{} versions match; name one by --area, --owner and --timestamp "
        "('stgctl versions' lists them)",
        all.size());
  return all.front();
}

Exit run_cat(Context& context, EntryOptions& options) {
  options.take_apart(context);
  if (context.out().json()) misused("cat has no JSON output; omit --json");
  admin::EntryFailures failures;
  const std::vector<FoundEntry> all = versions_of(context, options, failures);
  if (all.empty() && failures.lock_missed) return Exit::kLockTimeout;
  const std::string path = only_one(all, options).path();
  const os::Status read = write_out(context, path, locking_for(context, options.no_lock));
  if (read.failure() == os::Failure::kLocked)
    locked_out("{} is locked by another process; wait, or read it with --no-lock", shown(path));
  if (!read.ok()) fail("{}: {}", shown(path), sys::text_of(read));
  return Context::interrupted() ? Exit::kInterrupted : Exit::kDone;
}

// ---- parts -------------------------------------------------------------------------------------

struct PartsOptions : Arguments {
  EntryOptions entry{*this};
  TextOption stamp{*this, "--stamp", "TEXT", "Only sub-parts in the folder of this stamp"};
  Flag why{*this, "--why", "Show why the library would decide so"};
};

std::string time_or_dash(const sys::Info& info) {
  return info.kind == sys::Kind::kMissing ? "-" : format_time(info.modify_time);
}

std::string why_text(const FoundEntry& version, const admin::Part& part) {
  if (part.is_unreachable)
    return "written under a selector with \"@\": readers look in another folder";
  switch (part.state) {
    case admin::PartState::kForceRetrieve: return "the document's time is 0: fetch it again";
    case admin::PartState::kFromPreload:
      return formatted("the preload copy of {} is newer than the part", time_or_dash(part.preload));
    case admin::PartState::kRegenerate:
      return formatted("the document of {} is newer than the part", time_or_dash(version.info));
    default: break;
  }
  if (version.file.ends_with(".kdf")) return "sub-parts of .kdf documents are served as they are";
  return formatted("at least as new as the document of {}", time_or_dash(version.info));
}

void show_part(Context& context, const FoundEntry& version, const admin::Part& part, bool why) {
  if (context.out().json()) {
    Json fields = fields_of(version.view());
    fields["stamp"] = part.stamp;
    fields["rendition"] = part.rendition;
    fields["part"] = part.name;
    fields["path"] = part.path;
    fields["decision"] = admin::name_of(part.state);
    fields["code"] = static_cast<int>(part.state);
    fields["unreachable"] = part.is_unreachable;
    fields["document_modified"] = version.info.modify_time;
    const auto put_time = [&](const char* key, const sys::Info& info) {
      if (info.kind != sys::Kind::kMissing) fields[key] = info.modify_time;
    };
    put_time("part_modified", part.info);
    put_time("preload_modified", part.preload);
    if (part.info.kind != sys::Kind::kMissing) fields["bytes"] = part.info.size;
    if (why) fields["why"] = why_text(version, part);
    context.out().json_line("stgctl.parts/1", fields);
    return;
  }
  const bool good = part.state == admin::PartState::kUpToDate;
  context.out().print(
      "  {}{}{}  {}  {:>19}  preload {:>19}  {}\n", shown(part.stamp),
      part.stamp.empty() ? "" : ":", shown(part.rendition), shown(part.name),
      time_or_dash(part.info), time_or_dash(part.preload),
      context.out().styled(good ? Style::kGreen : Style::kYellow, admin::name_of(part.state)));
  if (why) context.out().print("      {}\n", why_text(version, part));
}

Exit run_parts(Context& context, PartsOptions& options) {
  options.entry.take_apart(context);
  if (context.scope().area && *context.scope().area != admin::Area::kDocs)
    misused("only corporate documents have sub-parts; use --area docs");
  admin::EntryFailures failures;
  bool any = false;
  for (const FoundEntry& version : versions_of(context, options.entry, failures)) {
    if (version.folder.area != admin::Area::kDocs) continue;
    std::vector<admin::Part> parts = admin::parts_of(version.path());
    if (!options.stamp.empty())
      std::erase_if(parts, [&](const admin::Part& part) { return part.stamp != options.stamp; });
    if (parts.empty()) continue;
    any = true;
    if (!context.out().json())
      context.out().print("{}  {}\n", subject_text(version.view()),
                          format_time(version.info.modify_time));
    for (const admin::Part& part : parts) show_part(context, version, part, options.why);
  }
  return exit_of(failures, any);
}

}  // namespace

Commands document_commands() {
  return {
      {"versions", Group::kLook, Effect::kLooks, "List the versions of a document", run_versions,
       "Lists all areas and owners unless --area and --owner limit it. Marks a version that\n"
       "readers never find."},
      {"which", Group::kLook, Effect::kLooks, "Show the file of an entry, or the entry of a file",
       run_which,
       "An argument with a separator is a path. The path of a sub-part leads to its document."},
      {"cat", Group::kLook, Effect::kLooks, "Write a document to the standard output", run_cat,
       "Reads under a shared lock, so it never sees a half-written document. The name must\n"
       "lead to exactly one version."},
      {"parts", Group::kLook, Effect::kLooks, "List the sub-parts of a corporate document",
       run_parts,
       "Shows the times of sub-part and preload copy, and what a read would decide:\n"
       "up-to-date, from-preload, regenerate or force-retrieve."}};
}

}  // namespace stgctl
