// versions, which, cat, parts: one document.

#include <algorithm>
#include <memory>
#include <tuple>
#include <vector>

#include "client/admin/lookup.h"
#include "client/admin/parts.h"
#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/stamp.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;

struct Options {
  std::string name;
  std::string timestamp;
  std::string stamp;
  bool why = false;
  bool no_lock = false;
};

/// An entry that was found, kept beyond the listing.
struct Version {
  admin::DocumentFolder folder;
  admin::EntryState state = admin::EntryState::kIndexed;
  std::string name;
  std::int32_t timestamp = 0;
  std::string stored;
  std::string file;
  sys::Info info;

  std::string path() const { return sys::join(folder.path, file); }
  admin::EntryView view() const { return {&folder, state, name, timestamp, stored, file, 0, info}; }
};

bool comes_before(const Version& one, const Version& other) {
  return std::tie(one.folder.area, one.folder.owner, one.name, one.timestamp) <
         std::tie(other.folder.area, other.folder.owner, other.name, other.timestamp);
}

/// All versions of the name that the options and --area and --owner leave.
std::vector<Version> versions_of(Context& context, const Options& options,
                                 admin::EntryFailures& failures) {
  admin::EntryQuery query;
  query.scope = context.scope();
  query.logical = options.name;
  if (!options.timestamp.empty()) query.timestamp = parse_stamp(options.timestamp);
  query.with_info = true;
  query.locking = locking_for(context, options.no_lock);
  query.stop = &Context::interrupt_flag();
  std::vector<Version> found;
  failures = admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        found.push_back({*entry.folder, entry.state, std::string(entry.logical), entry.timestamp,
                         std::string(entry.stored), std::string(entry.file), entry.info});
        return true;
      },
      warn_of_failures(context));
  std::sort(found.begin(), found.end(), comes_before);
  return found;
}

/// The file that reading serves for this version's name and timestamp; empty when none is.
std::string served_for(Context& context, const Version& version, bool no_lock) {
  admin::Request request;
  request.area = version.folder.area;
  request.owner = version.folder.owner;
  request.entry = version.name;
  request.timestamp = version.timestamp;
  // Whether its age would do is the asker's matter.
  if (!version.name.ends_with(".kdf") || request.area != admin::Area::kDocs) request.timestamp = 0;
  return admin::look_up(context.tree(), request, locking_for(context, no_lock)).path;
}

// ---- versions ----------------------------------------------------------------------------------

Exit run_versions(Context& context, const Options& options) {
  admin::EntryFailures failures;
  const std::vector<Version> all = versions_of(context, options, failures);
  for (const Version& version : all) {
    const bool keeps_documents = admin::expects_index(version.folder.area);
    const bool served =
        keeps_documents && served_for(context, version, options.no_lock) == version.path();
    if (context.out().json()) {
      Json fields = fields_of(version.view());
      put_info(fields, version.info);
      fields["served"] = served;
      context.out().json_line("stgctl.versions/1", fields);
      continue;
    }
    std::string subject;
    append_subject(subject, version.view());
    context.out().print("{}  {:>10}  {}  {}{}\n", subject, format_bytes(version.info.size),
                        format_time(version.info.modify_time), shown(version.file),
                        served ? "" : context.out().styled(Style::kYellow, "  (never read)"));
  }
  return exit_of(failures, !all.empty());
}

// ---- which -------------------------------------------------------------------------------------

/// The document's file that a path in its folder belongs to: the file itself, or that of a part.
std::string document_file(const admin::DocumentFolder& folder, const std::string& rest) {
  const std::string first = rest.substr(0, rest.find(sys::kSeparator));
  if (sys::describe(sys::join(folder.path, first)).kind != sys::Kind::kFolder) return first;
  for (std::size_t at = first.find('_'); at != std::string::npos; at = first.find('_', at + 1)) {
    const std::string document = first.substr(0, at);
    if (sys::describe(sys::join(folder.path, document)).kind == sys::Kind::kFile) return document;
  }
  return first;
}

Exit show_logical(Context& context, const Options& options, const admin::Located& located) {
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
        if (context.out().json()) {
          Json fields = fields_of(entry);
          fields["direction"] = "logical";
          context.out().json_line("stgctl.which/1", fields);
        } else {
          std::string subject;
          append_subject(subject, entry);
          context.out().print("{}{}\n", subject,
                              entry.state == admin::EntryState::kUnindexed ? "  (no line)" : "");
        }
        return true;
      },
      warn_of_failures(context));
  return exit_of(failures, any);
}

Exit show_physical(Context& context, const Options& options) {
  admin::EntryFailures failures;
  const std::vector<Version> all = versions_of(context, options, failures);
  for (const Version& version : all) {
    if (context.out().json()) {
      Json fields = fields_of(version.view());
      put_name(fields, "path", version.path());
      fields["direction"] = "physical";
      context.out().json_line("stgctl.which/1", fields);
    } else {
      context.out().print("{}\n", shown(version.path()));
    }
  }
  return exit_of(failures, !all.empty());
}

Exit run_which(Context& context, const Options& options) {
  const bool is_path = options.name.find_first_of("/\\") != std::string::npos;
  if (!is_path) return show_physical(context, options);
  const auto located = admin::locate_in(context.tree(), options.name);
  if (!located || located->rest.empty()) {
    throw Failure(Exit::kNothingMatched,
                  shown(options.name) + " is no file in a document folder of this tree");
  }
  return show_logical(context, options, *located);
}

// ---- cat ---------------------------------------------------------------------------------------

Version only_one(const std::vector<Version>& all, const Options& options) {
  if (all.empty()) {
    throw Failure(Exit::kNothingMatched, "nothing in the tree is called " + shown(options.name));
  }
  if (all.size() > 1) {
    throw Failure(Exit::kUsage,
                  formatted("{} versions match; name one by --area, --owner and --timestamp "
                            "('stgctl versions' lists them)",
                            all.size()));
  }
  return all.front();
}

Exit run_cat(Context& context, const Options& options) {
  if (context.out().json())
    throw Failure(Exit::kUsage, "cat has no JSON form: it writes the bytes");
  admin::EntryFailures failures;
  const std::vector<Version> all = versions_of(context, options, failures);
  if (all.empty() && failures.lock_missed) return Exit::kLockTimeout;
  const std::string path = only_one(all, options).path();
  const os::Status read =
      sys::read_pieces(path, locking_for(context, options.no_lock), [&](std::string_view piece) {
        context.out().write(piece);
        return !Context::interrupted();
      });
  if (read.failure() == os::Failure::kLocked) {
    throw Failure(Exit::kLockTimeout,
                  shown(path) + " is held locked; wait, or read it with --no-lock");
  }
  if (!read.ok()) throw Failure(Exit::kFailed, shown(path) + ": " + sys::text_of(read));
  return Context::interrupted() ? Exit::kInterrupted : Exit::kDone;
}

// ---- parts -------------------------------------------------------------------------------------

std::string time_or_dash(const sys::Info& info) {
  return info.kind == sys::Kind::kMissing ? "-" : format_time(info.modify_time);
}

std::string why_text(const Version& version, const admin::Part& part) {
  if (part.is_unreachable)
    return "written under a selector with \"@\" that reading looks for in another folder";
  switch (part.state) {
    case admin::PartState::kForceRetrieve:
      return "the document's time is 0: it has to be fetched";
    case admin::PartState::kFromPreload:
      return formatted("the preload copy of {} is newer than the part", time_or_dash(part.preload));
    case admin::PartState::kRegenerate:
      return formatted("the document of {} is newer than the part", time_or_dash(version.info));
    default:
      break;
  }
  if (version.file.ends_with(".kdf")) return "parts of .kdf documents are served as they are";
  return formatted("at least as new as the document of {}", time_or_dash(version.info));
}

void show_part(Context& context, const Version& version, const admin::Part& part, bool why) {
  if (context.out().json()) {
    Json fields = fields_of(version.view());
    put_name(fields, "stamp", part.stamp);
    put_name(fields, "rendition", part.rendition);
    put_name(fields, "part", part.name);
    put_name(fields, "path", part.path);
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

Exit run_parts(Context& context, const Options& options) {
  if (context.scope().area && *context.scope().area != admin::Area::kDocs)
    throw Failure(Exit::kUsage, "only corporate documents have parts: --area docs");
  admin::EntryFailures failures;
  bool any = false;
  for (const Version& version : versions_of(context, options, failures)) {
    if (version.folder.area != admin::Area::kDocs) continue;
    std::vector<admin::Part> parts = admin::parts_of(version.path());
    if (!options.stamp.empty())
      std::erase_if(parts, [&](const admin::Part& part) { return part.stamp != options.stamp; });
    if (parts.empty()) continue;
    any = true;
    if (!context.out().json()) {
      std::string subject;
      append_subject(subject, version.view());
      context.out().print("{}  {}\n", subject, format_time(version.info.modify_time));
    }
    for (const admin::Part& part : parts) show_part(context, version, part, options.why);
  }
  return exit_of(failures, any);
}

using RunEntry = Exit (*)(Context&, const Options&);

Run declare_with(Arguments& app, RunEntry run, const char* what) {
  auto options = std::make_shared<Options>();
  app.add_option("entry", options->name, what).type_name("ENTRY").required();
  app.add_option("--timestamp", options->timestamp, "Only the version of this timestamp")
      .type_name("STAMP")
      .check(is_stamp);
  add_no_lock(app, options->no_lock);
  if (run == run_parts) {
    app.add_option("--stamp", options->stamp, "Only parts below the folder of this stamp")
        .type_name("TEXT");
    app.add_flag("--why", options->why, "Say why the library would decide so");
  }
  return [options, run](Context& context) {
    Options asked = *options;
    // Where paths are taken as well, a path of that form is one when it leads to a file.
    if (run != run_which || sys::describe(asked.name).kind == sys::Kind::kMissing)
      context.take_apart(asked.name, asked.timestamp);
    return run(context, asked);
  };
}

}  // namespace

void add_entry_commands(Commands& commands) {
  commands.push_back(
      {"versions", Group::kLook, Effect::kLooks, "List the versions of a document",
       [](Arguments& app) { return declare_with(app, run_versions, "The logical name"); },
       "In all areas and of all owners unless --area and --owner say otherwise. A version that\n"
       "no reading finds is marked."});
  commands.push_back(
      {"which", Group::kLook, Effect::kLooks, "Tell the file of an entry, or the entry of a file",
       [](Arguments& app) {
         return declare_with(app, run_which, "A logical name, or the path of a file in the tree");
       },
       "What holds a separator is taken as a path. The path of a part leads to its document."});
  commands.push_back(
      {"cat", Group::kLook, Effect::kLooks, "Write a document to the output",
       [](Arguments& app) { return declare_with(app, run_cat, "The logical name"); },
       "Under a shared lock, so that no half-written document is seen. The name has\n"
       "to lead to one version."});
  commands.push_back(
      {"parts", Group::kLook, Effect::kLooks, "List the parts of a corporate document",
       [](Arguments& app) { return declare_with(app, run_parts, "The logical name"); },
       "With the times of part and preload copy, and what a reading would decide: up-to-date,\n"
       "from-preload, regenerate or force-retrieve."});
}

}  // namespace stgctl
