#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"

namespace stgctl {

namespace {

Run declare(Arguments& app) {
  auto options = std::make_shared<ListingOptions>();
  app.add_option("pattern", options->pattern, "Logical names: \"*\" and \"?\" match")
      .type_name("PATTERN");
  app.add_flag("-l,--long", options->with_sizes, "Sizes and times as well");
  app.add_flag("--missing", options->with_missing, "Also lines whose file is not there");
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
       "One line per version: its area, owner, logical name and timestamp, and the file that\n"
       "holds it. Files that no line of an index names are marked. --area and --owner narrow\n"
       "the listing down."});
}

}  // namespace stgctl
