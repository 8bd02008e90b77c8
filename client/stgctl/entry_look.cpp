#include "client/stgctl/entry_look.h"

#include <algorithm>
#include <tuple>

#include "client/stgctl/stamp.h"

namespace stgctl {

void declare_entry(Arguments& app, EntryOptions& options, const char* what) {
  app.add_option("entry", options.name, what).type_name("ENTRY").required();
  app.add_option("--timestamp", options.timestamp, "Only the version of this timestamp")
      .type_name("STAMP")
      .check(is_stamp);
  add_no_lock(app, options.no_lock);
}

EntryOptions taken_apart(Context& context, const EntryOptions& options, Paths paths) {
  EntryOptions asked = options;
  // A path of that form is one when it leads to a file.
  const bool is_path =
      paths == Paths::kTaken && admin::sys::describe(asked.name).kind != admin::sys::Kind::kMissing;
  if (!is_path) context.take_apart(asked.name, asked.timestamp);
  return asked;
}

std::vector<FoundEntry> versions_of(Context& context, const EntryOptions& options,
                                    admin::EntryFailures& failures) {
  admin::EntryQuery query;
  query.scope = context.scope();
  query.logical = options.name;
  if (!options.timestamp.empty()) query.timestamp = parse_stamp(options.timestamp);
  query.with_info = true;
  query.locking = locking_for(context, options.no_lock);
  query.stop = &Context::interrupt_flag();
  std::vector<FoundEntry> found;
  failures = admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        found.emplace_back(entry);
        return true;
      },
      warn_of_failures(context));
  const auto order = [](const FoundEntry& entry) {
    return std::tie(entry.folder.area, entry.folder.owner, entry.name, entry.timestamp);
  };
  std::sort(found.begin(), found.end(), [&](const FoundEntry& one, const FoundEntry& other) {
    return order(one) < order(other);
  });
  return found;
}

}  // namespace stgctl
