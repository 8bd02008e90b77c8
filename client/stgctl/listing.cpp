#include "client/stgctl/listing.h"

#include "client/stgctl/look.h"
#include "client/stgctl/stamp.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

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

}  // namespace

admin::EntryQuery query_of(Context& context, const ListingOptions& options) {
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

Exit list_entries(Context& context, const admin::EntryQuery& query, const char* schema) {
  Lister lister(context, schema, query.with_info);
  const admin::EntryFailures failures = admin::for_each_entry(
      context.tree(), query, [&](const admin::EntryView& entry) { return lister.show(entry); },
      warn_of_failures(context));
  return exit_of(failures, lister.count() != 0);
}

}  // namespace stgctl
