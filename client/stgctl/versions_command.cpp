#include "client/stgctl/look.h"

namespace stgctl {

namespace {

/// The file that a read returns for this version's name and timestamp, or empty.
std::string served_for(Context& context, const FoundEntry& version) {
  admin::Request request;
  request.area = version.folder.area;
  request.owner = version.folder.owner;
  request.entry = version.name;
  request.timestamp = version.timestamp;
  // Ignores the required age, which depends on the reader.
  if (!version.name.ends_with(".kdf") || request.area != admin::Area::kDocs) request.timestamp = 0;
  return admin::explain_lookup(context.tree(), request, context.locking()).path;
}

Exit run_versions(Context& context, EntryOptions& options) {
  options.take_apart(context);
  admin::EntryFailures failures;
  const std::vector<FoundEntry> all = versions_of(context, options, failures);
  for (const FoundEntry& version : all) {
    const bool keeps_documents = admin::expects_index(version.folder.area);
    const bool served = keeps_documents && served_for(context, version) == version.path();
    Json fields = fields_of(version.view());
    put_info(fields, version.info);
    fields["served"] = served;
    context.out().result("stgctl.versions/1", fields, "{}  {:>10}  {}  {}{}\n",
                         subject_text(version.view()), format_bytes(version.info.size),
                         format_time(version.info.modify_time), shown(version.file),
                         served ? "" : context.out().styled(Style::kYellow, "  (never read)"));
  }
  return exit_of(context, failures, !all.empty(), options.name);
}

}  // namespace

Commands versions_command() {
  return {{"versions", Group::kLook, Effect::kLooks, "List the versions of a document",
           run_versions,
           "Lists all areas and owners unless --area and --owner limit it. Marks a version that\n"
           "readers never find."}};
}

}  // namespace stgctl
