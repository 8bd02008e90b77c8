#include <algorithm>

#include "client/admin/text.h"
#include "client/stgctl/look.h"

namespace stgctl {

namespace {

/// The document's file for a path in its folder: the file itself, or the file of a sub-part.
std::string document_file(const admin::DocumentFolder& folder, const std::string& rest) {
  std::string first = rest.substr(0, rest.find(sys::kSeparator));
  admin::FolderView view;
  view.list(folder.path);
  const auto listed = std::ranges::find_if(view.names(), [&](const admin::Name& name) {
    return admin::are_same_to_system(name.text, first);
  });
  if (listed != view.names().end()) first = listed->text;
  if (view.kind_of(first) != sys::Kind::kFolder) return first;
  const std::uint32_t document = view.document_of(first);
  return document == admin::FolderView::kNone ? first : std::string(view.names()[document].text);
}

Exit show_logical(Context& context, const admin::Located& located, const std::string& path) {
  const std::string file = document_file(located.folder, located.rest);
  admin::EntryQuery query;
  query.scope.area = located.folder.area;
  if (!located.folder.owner.empty()) query.scope.owner = located.folder.owner;
  query.with_missing = true;
  query.locking = context.locking();
  bool any = false;
  const admin::EntryFailures failures = admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        if (!admin::are_same_to_system(entry.file, file) ||
            entry.folder->path != located.folder.path)
          return true;
        any = true;
        Json fields = fields_of(entry);
        fields["direction"] = "logical";
        context.out().result("stgctl.which/1", fields, "{}{}\n", subject_text(entry),
                             entry.state == admin::EntryState::kUnindexed ? "  (orphan)" : "");
        return true;
      },
      warn_of_failures(context));
  return exit_of(context, failures, any, path);
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
  return exit_of(context, failures, !all.empty(), options.name);
}

struct Options : Arguments {
  EntryOptions entry{*this, "A logical name, or the path of a file in the tree"};
};

Exit run_which(Context& context, Options& which) {
  EntryOptions& options = which.entry;
  // Text in the form of a version is a path if something exists there.
  if (sys::describe(options.name).kind == sys::Kind::kMissing) options.take_apart(context);
  const bool is_path = options.name.find_first_of("/\\") != std::string::npos;
  if (!is_path) return show_physical(context, options);
  const auto located = admin::locate_in(context.tree(), options.name);
  if (!located || located->rest.empty())
    not_found("{} is not a file in a document folder of this tree", shown(options.name));
  return show_logical(context, *located, options.name);
}

}  // namespace

Commands which_command() {
  return {
      {"which", Group::kLook, Effect::kLooks, "Show the file of an entry, or the entry of a file",
       run_which,
       "An argument with a separator is a path. The path of a sub-part leads to its document."}};
}

}  // namespace stgctl
