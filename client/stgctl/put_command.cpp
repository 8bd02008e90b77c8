#include <deque>

#include "client/stgctl/command.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/paths.h"

namespace stgctl {

namespace {

struct Options : Arguments {
  ListOption sources{*this, "source", "SOURCE", "Files, or folders with all their content",
                     kRequired};
  TextOption as{*this, "--as", "NAME", "The logical name, instead of the file's own"};
  TextOption timestamp{*this,
                       "--timestamp",
                       {"TIMESTAMP", is_stamp_or_mtime},
                       "The version: a number, or 'mtime' for the file's time (0)"};
  Flag replace{*this, "--replace", "Replace versions that exist"};
  Flag keep_paths{*this, "--keep-paths",
                  "Name files by their paths below the folder, with \"~\" for each separator"};
};

/// A file to store.
struct Source {
  std::string path;
  std::string name;
  std::uint64_t size = 0;
  std::int32_t timestamp = 0;
};

/// Stores files batch by batch, and reports each. Skips versions that exist with the same bytes: a
/// repeated command completes an interrupted one.
class Storing {
 public:
  Storing(Context& context, const Target& target, bool replaces, ChangeReport& report)
      : m_context(context),
        m_target(target),
        m_replaces(replaces),
        m_report(report),
        m_entries(context) {}

  /// @return how many of the files it took.
  std::size_t run(std::span<const Source> sources) {
    StoreBatch batch(m_context);
    std::deque<Item> items;
    m_entries.forget();
    for (const Source& source : sources) {
      Item& item = items.emplace_back(
          Item{{m_target, source.path, source.name, source.timestamp, source.size}});
      if (!batch.take(item, [&] { return judge(item); })) break;
    }
    batch.run();
    for (const Item& item : items) tell(item);
    batch.throw_end();
    return items.size();
  }

 private:
  struct Item : StoreItem {
    bool is_there = false;  ///< with the same bytes
  };

  /// Whether to store the item. The save checks again, under the index's lock.
  bool judge(Item& item) {
    const admin::DocumentFolder folder = folder_for(m_context, m_target, item.name);
    check_no_link(m_context, folder.path);
    check_not_shadowed(m_context, m_target, item.name, item.timestamp);
    item.old = m_entries.find(folder, item.name, item.timestamp);
    item.is_there = item.old && is_equal(item);
    if (item.is_there) return false;
    if (item.old && !m_replaces) fail("it exists with different content; use --replace");
    if (m_context.is_dry_run()) check_storable(m_context, item);
    return !m_context.is_dry_run();
  }

  /// Whether the version need not be stored again.
  bool is_equal(const StoreItem& item) {
    const FoundEntry& old = *item.old;
    if (old.info.size != item.size) return false;
    if (m_replaces && old.info.modify_time != sys::describe(item.source).modify_time) return false;
    return read_content(item.source, sys::Locking::none()).checksum ==
           read_content(old.path(), m_context.locking()).checksum;
  }

  void tell(const Item& item) {
    const Subject subject = subject_of(item);
    if (item.failure) return m_report.failed(subject, *item.failure);
    if (item.is_there) return m_report.skipped(subject, "it already exists");
    m_report.done_as(
        item.old ? "replaced" : "stored", subject,
        {{"replaced", item.old.has_value()}, {"bytes", item.size}, {"source", item.source}},
        format_bytes(item.size));
    m_report.add_bytes(item.size);
  }

  Context& m_context;
  const Target& m_target;
  bool m_replaces;
  ChangeReport& m_report;
  KnownEntries m_entries;  ///< for one batch
};

constexpr std::string_view kSeparators = sys::kSeparator == '\\' ? "\\/" : "/";

/// The files to store; the skipped ones with the reason.
struct Plan {
  std::vector<Source> sources;
  std::vector<std::pair<std::string, std::string>> left_out;
};

class Planner {
 public:
  Planner(Context& context, const Options& options) : m_context(context), m_options(options) {}

  Plan run() {
    for (const std::string& source : m_options.sources) {
      m_base = source;
      add(source);
    }
    return std::move(m_plan);
  }

 private:
  /// The file's own name. With --keep-paths its path below the named folder, with "~" for each
  /// separator.
  std::string name_of(const std::string& source) const {
    if (!m_options.keep_paths || source == m_base) return from_path(to_path(source).filename());
    std::string name = source.substr(m_base.size());
    name.erase(0, name.find_first_not_of(kSeparators));
    const auto is_separator = [](char c) { return kSeparators.find(c) != std::string_view::npos; };
    std::ranges::replace_if(name, is_separator, '~');
    return name;
  }

  void add(const std::string& source) {
    const sys::Info info = sys::describe(source);
    switch (info.kind) {
      case sys::Kind::kFile:
        return add_file(source, m_options.as.empty() ? name_of(source) : std::string(m_options.as),
                        info);
      case sys::Kind::kFolder:
        if (!m_options.as.empty())
          refuse("{} is a folder; --as names a single file", shown(source));
        return add_folder(source);
      case sys::Kind::kMissing: return leave_out(source, "there is no such file");
      case sys::Kind::kLink: return leave_out(source, "it is a link; name its target");
      case sys::Kind::kUnknown: return leave_out(source, "the system cannot examine it");
      default: return leave_out(source, "it is not a plain file");
    }
  }

  void add_folder(const std::string& path) {
    Context::stop_if_interrupted();
    std::vector<sys::Child> children;
    if (const os::Status listed = sys::list_sorted(path, children); !listed.ok())
      return leave_out(path, sys::text_of(listed));
    for (const auto& [name, kind] : children) add(sys::join(path, name));
  }

  void add_file(const std::string& source, const std::string& name, const sys::Info& info) {
    if (source.find('\\') != std::string::npos && sys::kSeparator != '\\') {
      return leave_out(source,
                       "its path contains a backslash, which the library treats as a separator");
    }
    try {
      check_name("the name", name);
    } catch (const Failure& failure) {
      return leave_out(source, failure.what());
    }
    if (is_in_tree(m_context, source)) return leave_out(source, "it is in the tree itself");
    const auto [first, is_new] = m_seen.try_emplace(name, source);
    const bool has_path = source != m_base && !m_options.keep_paths;
    if (!is_new)
      return leave_out(source,
                       formatted("it has the same name as {}; {}", shown(first->second),
                                 has_path ? "use --keep-paths" : "store it alone with --as NAME"));
    m_plan.sources.push_back(
        {source, name, info.size, stamp_of(m_options.timestamp, info.modify_time)});
  }

  void leave_out(const std::string& source, const std::string& why) {
    m_plan.left_out.emplace_back(source, why);
  }

  Context& m_context;
  const Options& m_options;
  Plan m_plan;
  std::string m_base;  ///< the source of the current walk
  std::map<std::string, std::string> m_seen;
};

Exit run_put(Context& context, Options& options) {
  context.take_apart(options.as, options.timestamp);
  if (options.timestamp.empty()) options.timestamp = "0";
  if (const std::string wrong = is_stamp_or_mtime(options.timestamp); !wrong.empty())
    misused("{}", wrong);
  context.tree();
  if (!options.as.empty() && options.sources.size() > 1)
    misused("--as names a single file, and several sources are given");
  const Target target = target_of(context, admin::Area::kDocs);
  if (!options.as.empty()) check_name("the name", options.as);
  Plan plan = Planner(context, options).run();
  std::vector<Source>& sources = plan.sources;
  const auto is_hidden = [&](const Source& source) {
    return target.area == admin::Area::kDocs && source.timestamp != 0 &&
           !source.name.ends_with(".kdf");
  };
  if (std::ranges::any_of(sources, is_hidden)) {
    context.out().warning(
        "readers look only at timestamp 0 for corporate documents other than .kdf");
  }
  std::uint64_t bytes = 0;
  for (const Source& source : sources) bytes += source.size;
  ChangeReport report(context, "stgctl.put/1", "stored");
  if (!sources.empty()) {
    context.begin_changes(formatted("Store {} {}, {}?", sources.size(),
                                    sources.size() == 1 ? "file" : "files", format_bytes(bytes)));
  }
  for (const auto& [source, why] : plan.left_out) report.failed(subject_named(source), why);
  // One batch needs no order.
  if (sources.size() > StoreBatch::kMostFiles) {
    sort_by_folder(sources, [&](const Source& source) {
      return folder_for(context, target, source.name).path;
    });
  }
  Storing storing(context, target, options.replace, report);
  report.in_batches("storing", std::span(sources), &Source::name,
                    [&](std::span<const Source> rest) { return storing.run(rest); });
  return report.finish_bytes();
}

}  // namespace

Commands put_command() {
  return {{"put", Group::kChange, Effect::kChanges, "Store files, or whole folders, as documents",
           run_put,
           "The area is docs unless --area names another one. Every file keeps its modification\n"
           "time. Files of a folder are stored under their own names. Links are skipped."}};
}

}  // namespace stgctl
