#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"

namespace stgctl {

namespace {

Run declare(Arguments& app) {
  auto options = std::make_shared<ListingOptions>();
  app.add_option("pattern", options->pattern, "Logical names: \"*\" and \"?\" match")
      .type_name("PATTERN");
  app.add_flag("-l,--long", options->with_sizes, "Also show sizes and times");
  app.add_flag("--missing", options->with_missing, "Also list dangling entries");
  add_no_lock(app, options->no_lock);
  return [options](Context& context) {
    context.take_apart(options->pattern, options->timestamp);
    return list_entries(context, query_of(context, *options), "stgctl.ls/1");
  };
}

}  // namespace

void add_ls_command(Commands& commands) {
  commands.push_back(
      {"ls", Group::kLook, Effect::kLooks, "List the entries of the tree", declare,
       "One line per version: its area, owner, logical name and timestamp, and its file.\n"
       "Orphans are marked. --area and --owner limit the list."});
}

}  // namespace stgctl
