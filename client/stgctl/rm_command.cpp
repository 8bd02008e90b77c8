
#include <set>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/output.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

struct Options {
  Arguments app;
  ListOption names{app, "name", "NAME", "Logical names"};
  TextOption match{app, "--match", "PATTERN",
                   "All documents that match this pattern; * and ? as in a shell"};
  TextOption timestamp{app, "--timestamp", kStamp, "Only this version"};
  Flag all_versions{app, "--all-versions", "Every version of each name"};
};

/// The versions to remove, each once.
class Selection {
 public:
  Selection(Context& context, const Options& options) : m_context(context), m_options(options) {}

  std::vector<FoundEntry> run() {
    for (const std::string& text : m_options.names) {
      const NamedVersion named = this->named(text);
      check_name("the name", named.name);
      add(versions_of(named));
    }
    if (!m_options.match.empty()) add(find_matching(m_context, named(m_options.match)));
    return std::move(m_chosen);
  }

 private:
  NamedVersion named(const std::string& text) {
    return named_version(m_context, text, m_options.timestamp, admin::Area::kDocs);
  }

  void add(std::vector<FoundEntry> more) {
    for (FoundEntry& entry : more) {
      std::string version =
          entry.folder.path + '\n' + index_format::key_of(entry.name, entry.timestamp);
      if (m_seen.insert(std::move(version)).second) m_chosen.push_back(std::move(entry));
    }
  }

  std::vector<FoundEntry> versions_of(const NamedVersion& named) {
    std::vector<FoundEntry> versions = find_versions(m_context, named.target, named.name);
    keep_wanted(versions, named);
    if (versions.size() > 1 && !m_options.all_versions) {
      throw Failure(Exit::kRefused,
                    formatted("{} has {} versions; use --timestamp or --all-versions",
                              shown(named.name), versions.size()));
    }
    return versions;
  }

  Context& m_context;
  const Options& m_options;
  std::set<std::string> m_seen;
  std::vector<FoundEntry> m_chosen;
};

class Removing {
 public:
  Removing(Context& context, ChangeReport& report) : m_context(context), m_report(report) {}

  void run(const std::vector<FoundEntry>& entries) {
    Progress progress(m_context.out(), m_context.options().progress, "removing", entries.size());
    for (const FoundEntry& entry : entries) {
      if (Context::interrupted()) break;
      if (remove(entry)) m_report.add_bytes(entry.info.size);
      progress.advance(1, entry.name);
    }
  }

 private:
  bool remove(const FoundEntry& entry) {
    try {
      check_name("the name", entry.name);
      check_no_link(m_context, entry.path());
      const std::vector<std::string> parts = part_folders(entry);
      const std::vector<std::string> at_risk = key_files_at_risk(m_context, entry);
      for (const std::string& file : at_risk) {
        m_context.out().warning(
            formatted("{}: no key line is removed, because the library would damage another line "
                      "of {}; see 'stgctl keys unset'",
                      shown(subject_of(entry)), shown(file)));
      }
      if (!m_context.options().dry_run) {
        remove_version(m_context, entry, at_risk.empty() ? KeyLines::kRemove : KeyLines::kLeave);
      }
      std::string tail = format_bytes(entry.info.size);
      if (!parts.empty()) tail += formatted(", {} folders of sub-parts", parts.size());
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
    throw Failure(Exit::kUsage, "nothing says what to remove; use names, or --match PATTERN");
  }
  const std::vector<FoundEntry> entries = Selection(context, options).run();
  if (entries.empty()) throw Failure(Exit::kNothingMatched, "nothing matches: nothing was removed");
  std::uint64_t bytes = 0;
  for (const FoundEntry& entry : entries) bytes += entry.info.size;
  if (!context.options().dry_run) {
    context.confirm(formatted("Remove {} {}, {}?", entries.size(),
                              entries.size() == 1 ? "version" : "versions", format_bytes(bytes)));
    context.open_library();
  }
  ChangeReport report(context, "stgctl.rm/1", "removed");
  report.guarded([&] {
    Removing(context, report).run(entries);
    return 0;
  });
  return report.finish({{"bytes", report.bytes()}}, format_bytes(report.bytes()));
}

}  // namespace

Commands rm_command() {
  return {{"rm", Group::kChange, Effect::kChanges, "Remove documents with their sub-parts", run_rm,
           "The area is docs unless --area names another one. A name with several versions needs\n"
           "--timestamp or --all-versions. The command also removes the lines of the document in\n"
           "the category files of its folder, and in attribut.txt of the user area."}};
}

}  // namespace stgctl
