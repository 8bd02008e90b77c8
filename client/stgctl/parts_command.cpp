#include "client/stgctl/look.h"

namespace stgctl {

namespace {

struct Options : Arguments {
  EntryOptions entry{*this};
  TextOption stamp{*this, "--stamp", "STAMP", "Only sub-parts in the folder of this stamp"};
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

Exit run_parts(Context& context, Options& options) {
  options.entry.take_apart(context);
  if (context.scope().area && *context.scope().area != admin::Area::kDocs)
    misused("only corporate documents have sub-parts; use --area docs");
  admin::EntryFailures failures;
  bool any = false;
  bool is_found = false;
  for (const FoundEntry& version : versions_of(context, options.entry, failures)) {
    if (version.folder.area != admin::Area::kDocs) continue;
    is_found = true;
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
  if (is_found && !any && failures.folders == 0)
    not_found("{} has no such sub-parts", shown(options.entry.name));
  return exit_of(context, failures, any, options.entry.name);
}

}  // namespace

Commands parts_command() {
  return {{"parts", Group::kLook, Effect::kLooks, "List the sub-parts of a corporate document",
           run_parts,
           "Shows the times of sub-part and preload copy, and what a read would decide:\n"
           "up-to-date, from-preload, regenerate or force-retrieve."}};
}

}  // namespace stgctl
