
#include <memory>

#include "tools/stgctl/command.h"
#include "tools/stgctl/operations.h"
#include "tools/stgctl/progress.h"
#include "tools/stgctl/stamp.h"
#include "tools/stgctl/text.h"

namespace stgctl {

namespace {

struct Options {
  std::vector<std::string> names;
  std::string match;
  std::string timestamp;
  bool all_versions = false;
};

/// The versions that are meant.
class Selection {
 public:
  Selection(Context& context, const Options& options, const Target& target)
      : m_context(context), m_options(options), m_target(target) {}

  std::vector<FoundEntry> run() {
    std::vector<FoundEntry> chosen;
    for (const std::string& name : m_options.names) {
      check_name("the name", name);
      append(chosen, versions_of(name));
    }
    if (!m_options.match.empty()) append(chosen, matching());
    return chosen;
  }

 private:
  static void append(std::vector<FoundEntry>& all, std::vector<FoundEntry> more) {
    all.insert(all.end(), std::make_move_iterator(more.begin()),
               std::make_move_iterator(more.end()));
  }

  void keep_wanted(std::vector<FoundEntry>& versions) const {
    if (m_options.timestamp.empty()) return;
    const std::int32_t wanted = parse_stamp(m_options.timestamp).value_or(0);
    std::erase_if(versions, [&](const FoundEntry& entry) { return entry.timestamp != wanted; });
  }

  std::vector<FoundEntry> versions_of(const std::string& name) {
    std::vector<FoundEntry> versions = find_versions(m_context, m_target, name);
    keep_wanted(versions);
    if (versions.size() > 1 && !m_options.all_versions) {
      throw Failure(Exit::kRefused,
                    formatted("{} has {} versions; say --timestamp or --all-versions", shown(name),
                              versions.size()));
    }
    return versions;
  }

  std::vector<FoundEntry> matching() {
    admin::EntryQuery query;
    query.scope.area = m_target.area;
    if (m_context.tree().layout == admin::Layout::kOwner) query.scope.owner = m_target.owner;
    query.pattern = m_options.match;
    query.state = admin::EntryState::kIndexed;
    std::vector<FoundEntry> found = find_entries(m_context, query);
    keep_wanted(found);
    return found;
  }

  Context& m_context;
  const Options& m_options;
  const Target& m_target;
};

class Removing {
 public:
  Removing(Context& context, ChangeReport& report) : m_context(context), m_report(report) {}

  std::uint64_t run(const std::vector<FoundEntry>& entries) {
    Progress progress(m_context.out(), m_context.options().progress, "removing", entries.size());
    std::uint64_t bytes = 0;
    for (const FoundEntry& entry : entries) {
      if (Context::interrupted()) break;
      if (remove(entry)) bytes += entry.info.size;
      progress.advance(1, entry.name);
    }
    return bytes;
  }

 private:
  bool remove(const FoundEntry& entry) {
    try {
      check_name("the name", entry.name);
      check_no_link(m_context, entry.path());
      const std::vector<std::string> parts = part_folders(entry);
      const std::vector<std::string> at_risk = key_files_at_risk(m_context, entry);
      for (const std::string& file : at_risk) {
        m_context.out().warning(formatted(
            "{}: no key line is removed, since the library would cut another line of {}; see "
            "'stgctl keys unset'",
            shown(subject_of(entry)), shown(file)));
      }
      if (!m_context.options().dry_run) {
        remove_version(m_context, entry, at_risk.empty() ? KeyLines::kRemove : KeyLines::kLeave);
      }
      std::string tail = format_bytes(entry.info.size);
      if (!parts.empty()) tail += formatted(", {} folders of parts", parts.size());
      m_report.done(subject_of(entry),
                    {{"bytes", entry.info.size},
                     {"part_folders", parts.size()},
                     {"key_lines", at_risk.empty()}},
                    tail);
      return true;
    } catch (const Failure& failure) {
      if (failure.code() == Exit::kInterrupted || failure.code() == Exit::kLockTimeout) throw;
      m_report.failed(subject_of(entry), failure.what());
      return false;
    }
  }

  Context& m_context;
  ChangeReport& m_report;
};

Exit run_rm(Context& context, const Options& options) {
  context.tree();
  if (options.names.empty() == options.match.empty()) {
    throw Failure(Exit::kUsage, "say what to remove: names, or --match PATTERN");
  }
  const Target target = target_of(context, admin::Area::kDocs);
  const std::vector<FoundEntry> entries = Selection(context, options, target).run();
  if (entries.empty()) throw Failure(Exit::kNothingMatched, "nothing matches; nothing was removed");
  std::uint64_t bytes = 0;
  for (const FoundEntry& entry : entries) bytes += entry.info.size;
  if (!context.options().dry_run) {
    context.confirm(formatted("Remove {} {}, {}?", entries.size(),
                              entries.size() == 1 ? "version" : "versions", format_bytes(bytes)));
    context.open_library();
  }
  ChangeReport report(context, "stgctl.rm/1", "removed");
  bytes = report.guarded([&] { return Removing(context, report).run(entries); });
  return report.finish({{"bytes", bytes}}, format_bytes(bytes));
}

}  // namespace

void add_rm_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto options = std::make_shared<Options>();
    app.add_option("name", options->names, "Logical names").type_name("NAME");
    app.add_option("--match", options->match,
                   "Every document of this pattern; * and ? as in a shell")
        .type_name("PATTERN");
    app.add_option("--timestamp", options->timestamp, "This version only")
        .type_name("STAMP")
        .check(is_stamp);
    app.add_flag("--all-versions", options->all_versions, "Every version of each name");
    return [options](Context& context) {
      for (std::string& name : options->names) context.take_apart(name, &options->timestamp);
      return run_rm(context, *options);
    };
  };
  commands.push_back(
      {"rm", Group::kChange, Effect::kChanges, "Remove documents with their parts", declare,
       "The area is docs unless --area says another one. The lines of a document in the\n"
       "category files of its folder, and in attribut.txt of the user area, go with it."});
}

}  // namespace stgctl
