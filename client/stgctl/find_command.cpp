#include <ctime>
#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

struct Options {
  ListingOptions listing;
  std::string name;
  std::string extension;
  std::string state;
  std::string least_size;
  std::string most_size;
  std::string older;
  std::string newer;
};

Exit run_find(Context& context, const Options& options) {
  admin::EntryQuery query = query_of(context, options.listing);
  if (!options.name.empty()) query.logical = options.name;
  if (!options.extension.empty()) {
    query.extension =
        options.extension.starts_with('.') ? options.extension.substr(1) : options.extension;
  }
  if (options.state == "indexed") query.state = admin::EntryState::kIndexed;
  if (options.state == "unindexed") query.state = admin::EntryState::kUnindexed;
  if (options.state == "missing") query.state = admin::EntryState::kMissing;
  if (!options.least_size.empty()) query.least_size = parse_size(options.least_size);
  if (!options.most_size.empty()) query.most_size = parse_size(options.most_size);
  const std::int64_t now = std::time(nullptr);
  if (!options.older.empty()) query.modified_before = now - *parse_age(options.older);
  if (!options.newer.empty()) query.modified_after = now - *parse_age(options.newer);
  return list_entries(context, query, "stgctl.find/1");
}

std::string is_size(const std::string& text) {
  return parse_size(text) ? std::string() : "'" + text + "' is not a size; use 500, 64K or 10M";
}

Run declare(Arguments& app) {
  auto options = std::make_shared<Options>();
  app.add_option("pattern", options->listing.pattern, "Logical names: \"*\" and \"?\" match")
      .type_name("PATTERN");
  app.add_option("--name", options->name, "Only this logical name").type_name("NAME");
  app.add_option("--ext", options->extension, "The extension of the logical name").type_name("EXT");
  app.add_option("--timestamp", options->listing.timestamp, "Only this timestamp")
      .type_name("STAMP")
      .check(is_stamp);
  app.add_option("--state", options->state, "Only entries in this state")
      .type_name("WORD")
      .one_of({"indexed", "unindexed", "missing"});
  app.add_option("--min-size", options->least_size, "At least this many bytes")
      .type_name("SIZE")
      .check(is_size);
  app.add_option("--max-size", options->most_size, "At most this many bytes")
      .type_name("SIZE")
      .check(is_size);
  app.add_option("--older-than", options->older, "Last changed longer ago than this")
      .type_name("AGE")
      .check(is_age);
  app.add_option("--newer-than", options->newer, "Last changed more recently than this")
      .type_name("AGE")
      .check(is_age);
  app.add_flag("-l,--long", options->listing.with_sizes, "Also show sizes and times");
  add_no_lock(app, options->listing.no_lock);
  return [options](Context& context) {
    context.take_apart(options->listing.pattern, options->listing.timestamp);
    context.take_apart(options->name, options->listing.timestamp);
    return run_find(context, *options);
  };
}

}  // namespace

void add_find_command(Commands& commands) {
  commands.push_back({"find", Group::kLook, Effect::kLooks,
                      "Find entries by name, time, size or state", declare,
                      "An entry must match all options. The output is that of ls."});
}

}  // namespace stgctl
