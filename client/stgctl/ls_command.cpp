#include "client/stgctl/look.h"

namespace stgctl {

namespace {

struct Options : Arguments {
  TextOption pattern{*this, "pattern", "PATTERN", kPatternHelp};
  Flag with_sizes{*this, "-l,--long", kLongHelp};
  Flag with_missing{*this, "--missing", "Also list dangling entries"};
  NoLock no_lock{*this};
};

Exit run_ls(Context& context, Options& options) {
  std::string timestamp;
  context.take_apart(options.pattern, timestamp);
  admin::EntryQuery query = query_of(context, options.pattern, timestamp);
  query.with_info = options.with_sizes;
  query.with_missing = options.with_missing;
  return list_entries(context, query, "stgctl.ls/1");
}

}  // namespace

Commands ls_command() {
  return {{"ls", Group::kLook, Effect::kLooks, "List the entries of the tree", run_ls,
           "One line per version: its area, owner, logical name and timestamp, and its file.\n"
           "Orphans are marked. --area and --owner limit the list."}};
}

}  // namespace stgctl
