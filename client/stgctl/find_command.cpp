#include <ctime>

#include "client/stgctl/look.h"

namespace stgctl {

namespace {

constexpr Type kBytes{
    "SIZE", [](const std::string& text) {
      return parse_size(text) ? std::string() : "'" + text + "' is not a size; use 500, 64K or 10M";
    }};

struct Options : Arguments {
  TextOption pattern{*this, "pattern", "PATTERN", kPatternHelp};
  TextOption name{*this, "--name", "NAME", "Only this logical name"};
  TextOption extension{*this, "--ext", "EXT", "The extension of the logical name"};
  TextOption timestamp{*this, "--timestamp", kStamp, "Only this timestamp"};
  TextOption state{*this, "--state", "WORD",
                   "Only indexed (valid), unindexed (orphan) or missing (dangling) entries",
                   one_of({admin::kEntryStates.begin(), admin::kEntryStates.end()})};
  TextOption least_size{*this, "--min-size", kBytes, "At least this many bytes"};
  TextOption most_size{*this, "--max-size", kBytes, "At most this many bytes"};
  TextOption older{*this, "--older-than", kAge, "Last changed longer ago than this"};
  TextOption newer{*this, "--newer-than", kAge, "Last changed more recently than this"};
  Flag with_sizes{*this, "-l,--long", kLongHelp};
  NoLock no_lock{*this};
};

Exit run_find(Context& context, Options& options) {
  context.take_apart(options.pattern, options.timestamp);
  context.take_apart(options.name, options.timestamp);
  admin::EntryQuery query = query_of(context, options.pattern, options.timestamp);
  query.with_info = options.with_sizes;
  if (!options.name.empty()) query.logical = options.name;
  if (!options.extension.empty()) {
    query.extension =
        options.extension.starts_with('.') ? options.extension.substr(1) : options.extension;
  }
  query.state = value_named<admin::EntryState>(admin::kEntryStates, options.state);
  if (!options.least_size.empty()) query.least_size = parse_size(options.least_size);
  if (!options.most_size.empty()) query.most_size = parse_size(options.most_size);
  const std::int64_t now = std::time(nullptr);
  if (!options.older.empty()) query.modified_before = now - *parse_age(options.older);
  if (!options.newer.empty()) query.modified_after = now - *parse_age(options.newer);
  return list_entries(context, query, "stgctl.find/1");
}

}  // namespace

Commands find_command() {
  return {{"find", Group::kLook, Effect::kLooks, "Find entries by name, time, size or state",
           run_find, "An entry must match all options. The output is that of ls."}};
}

}  // namespace stgctl
