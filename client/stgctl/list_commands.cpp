// ls and find: the entries of a tree, in a stream.

#include <ctime>
#include <memory>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/stamp.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

struct Options {
  std::string pattern;
  bool with_sizes = false;
  bool with_missing = false;
  bool no_lock = false;
  std::string timestamp;  ///< of ls: in the pattern alone
  // find only
  std::string name;
  std::string extension;
  std::string state;
  std::string least_size;
  std::string most_size;
  std::string older;
  std::string newer;
};

/// Writes entries one by one; the line's memory is used again and again.
class Lister {
 public:
  Lister(Context& context, const char* schema, bool with_sizes)
      : m_context(context), m_schema(schema), m_with_sizes(with_sizes) {}

  bool show(const admin::EntryView& entry) {
    ++m_count;
    if (m_context.out().json()) {
      Json fields = fields_of(entry);
      if (m_with_sizes) put_info(fields, entry.info);
      m_context.out().json_line(m_schema, fields);
    } else {
      m_line.clear();
      if (m_with_sizes) {
        append_formatted(m_line, "{:>10}  {}  ", format_bytes(entry.info.size),
                         format_time(entry.info.modify_time));
      }
      append_subject(m_line, entry);
      m_line += "  ";
      append_name(m_line, entry.file);
      if (entry.state == admin::EntryState::kUnindexed) m_line += "  (no line)";
      if (entry.state == admin::EntryState::kMissing) m_line += "  (no file)";
      m_line += '\n';
      m_context.out().write(m_line);
    }
    return !Context::interrupted();
  }

  std::uint64_t count() const { return m_count; }

 private:
  Context& m_context;
  const char* m_schema;
  bool m_with_sizes;
  std::uint64_t m_count = 0;
  std::string m_line;
};

Exit list(Context& context, const admin::EntryQuery& query, const char* schema) {
  Lister lister(context, schema, query.with_info);
  const admin::EntryFailures failures = admin::for_each_entry(
      context.tree(), query, [&](const admin::EntryView& entry) { return lister.show(entry); },
      warn_of_failures(context));
  return exit_of(failures, lister.count() != 0);
}

admin::EntryQuery query_of(Context& context, const Options& options) {
  admin::EntryQuery query;
  query.scope = context.scope();
  query.locking = locking_for(context, options.no_lock);
  query.stop = &Context::interrupt_flag();
  query.with_info = options.with_sizes;
  query.with_missing = options.with_missing;
  if (!options.pattern.empty()) query.pattern = options.pattern;
  if (!options.timestamp.empty()) query.timestamp = parse_stamp(options.timestamp);
  return query;
}

Exit run_ls(Context& context, const Options& options) {
  return list(context, query_of(context, options), "stgctl.ls/1");
}

Exit run_find(Context& context, const Options& options) {
  admin::EntryQuery query = query_of(context, options);
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
  return list(context, query, "stgctl.find/1");
}

std::string is_size(const std::string& text) {
  return parse_size(text) ? std::string() : "'" + text + "' is no size, such as 500, 64K or 10M";
}

Run declare_ls(Arguments& app) {
  auto options = std::make_shared<Options>();
  app.add_option("pattern", options->pattern, "Logical names: \"*\" and \"?\" match")
      .type_name("PATTERN");
  app.add_flag("-l,--long", options->with_sizes, "Sizes and times as well");
  app.add_flag("--missing", options->with_missing, "Also lines whose file is not there");
  add_no_lock(app, options->no_lock);
  return [options](Context& context) {
    context.take_apart(options->pattern, options->timestamp);
    return run_ls(context, *options);
  };
}

Run declare_find(Arguments& app) {
  auto options = std::make_shared<Options>();
  app.add_option("pattern", options->pattern, "Logical names: \"*\" and \"?\" match")
      .type_name("PATTERN");
  app.add_option("--name", options->name, "Exactly this logical name").type_name("NAME");
  app.add_option("--ext", options->extension, "The logical name's extension").type_name("EXT");
  app.add_option("--timestamp", options->timestamp, "Exactly this timestamp")
      .type_name("STAMP")
      .check(is_stamp);
  app.add_option("--state", options->state, "indexed, unindexed or missing")
      .type_name("WORD")
      .one_of({"indexed", "unindexed", "missing"});
  app.add_option("--min-size", options->least_size, "At least so many bytes")
      .type_name("SIZE")
      .check(is_size);
  app.add_option("--max-size", options->most_size, "At most so many bytes")
      .type_name("SIZE")
      .check(is_size);
  app.add_option("--older-than", options->older, "Changed longer ago")
      .type_name("AGE")
      .check(is_age);
  app.add_option("--newer-than", options->newer, "Changed less long ago")
      .type_name("AGE")
      .check(is_age);
  app.add_flag("-l,--long", options->with_sizes, "Sizes and times as well");
  add_no_lock(app, options->no_lock);
  return [options](Context& context) {
    context.take_apart(options->pattern, options->timestamp);
    context.take_apart(options->name, options->timestamp);
    return run_find(context, *options);
  };
}

}  // namespace

void add_list_commands(Commands& commands) {
  commands.push_back(
      {"ls", Group::kLook, Effect::kLooks, "List the entries of the tree", declare_ls,
       "One line per version: its area, owner, logical name and timestamp, and the file that\n"
       "holds it. Files that no line of an index names are marked. --area and --owner narrow\n"
       "the listing down."});
  commands.push_back({"find", Group::kLook, Effect::kLooks,
                      "Find entries by name, time, size or state", declare_find,
                      "All that is asked for has to hold together. The output is that of ls."});
}

}  // namespace stgctl
