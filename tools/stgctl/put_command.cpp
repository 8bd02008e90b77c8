
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include "tools/stgctl/command.h"
#include "tools/stgctl/operations.h"
#include "tools/stgctl/paths.h"
#include "tools/stgctl/progress.h"
#include "tools/stgctl/stamp.h"
#include "tools/stgctl/text.h"

namespace stgctl {

namespace fs = std::filesystem;
namespace sys = admin::sys;

namespace {

struct Options {
  std::vector<std::string> sources;
  std::string as;
  std::string timestamp = "0";
  bool replace = false;
};

/// A file to store.
struct Item {
  std::string source;
  std::string name;
  std::uint64_t size = 0;
  std::int32_t timestamp = 0;
};

/// What is to be stored, and what is left out and why.
struct Plan {
  std::vector<Item> items;
  std::vector<std::pair<std::string, std::string>> left_out;
  std::uint64_t bytes = 0;
};

class Planner {
 public:
  Planner(Context& context, const Options& options) : m_context(context), m_options(options) {}

  Plan run() {
    for (const std::string& source : m_options.sources) add(source);
    for (const Item& item : m_plan.items) m_plan.bytes += item.size;
    return std::move(m_plan);
  }

 private:
  void add(const std::string& source) {
    const sys::Info info = sys::describe(source);
    switch (info.kind) {
      case sys::Kind::kFile:
        return add_file(source,
                        m_options.as.empty() ? from_path(to_path(source).filename()) : m_options.as,
                        info);
      case sys::Kind::kFolder:
        if (!m_options.as.empty()) {
          throw Failure(Exit::kRefused, shown(source) + " is a folder; --as names a single file");
        }
        return add_folder(source);
      case sys::Kind::kMissing:
        return leave_out(source, "there is no such file");
      case sys::Kind::kLink:
        return leave_out(source, "it is a link; name what it leads to");
      default:
        return leave_out(source, "it is no plain file");
    }
  }

  void add_folder(const std::string& path) {
    Context::stop_if_interrupted();
    sys::Folder folder;
    if (const auto opened = folder.open(path); !opened.ok())
      return leave_out(path, sys::text_of(opened));
    std::vector<std::string> names;
    sys::Entry entry;
    while (folder.next(entry)) names.emplace_back(entry.name);
    // One order on every system.
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) add(sys::join(path, name));
  }

  void add_file(const std::string& source, const std::string& name, const sys::Info& info) {
    if (source.find('\\') != std::string::npos && sys::kSeparator != '\\') {
      return leave_out(source,
                       "its path holds a backslash, which the library takes for a separator");
    }
    try {
      check_name("the name", name);
    } catch (const Failure& failure) {
      return leave_out(source, failure.what());
    }
    if (is_inside_tree(source)) return leave_out(source, "it lies in the tree itself");
    const auto [first, is_new] = m_seen.try_emplace(name, source);
    if (!is_new) return leave_out(source, "its name is that of " + shown(first->second));
    m_plan.items.push_back(
        {source, name, info.size, stamp_of(m_options.timestamp, info.modify_time)});
  }

  bool is_inside_tree(const std::string& source) {
    const std::string tree = sys::absolute(m_context.tree().storage);
    const std::string path = sys::absolute(source);
    return path.starts_with(tree + sys::kSeparator);
  }

  void leave_out(const std::string& source, const std::string& why) {
    m_plan.left_out.emplace_back(source, why);
  }

  Context& m_context;
  const Options& m_options;
  Plan m_plan;
  std::map<std::string, std::string> m_seen;
};

void warn_of_stamps(Context& context, const Target& target, const Plan& plan) {
  if (target.area != admin::Area::kDocs) return;
  const bool any = std::any_of(plan.items.begin(), plan.items.end(), [](const Item& item) {
    return item.timestamp != 0 && !item.name.ends_with(".kdf");
  });
  if (any) {
    context.out().warning(
        "readers look for corporate documents other than .kdf at timestamp 0 only");
  }
}

class Storing {
 public:
  Storing(Context& context, const Options& options, const Target& target, ChangeReport& report)
      : m_context(context), m_options(options), m_target(target), m_report(report) {}

  /// @return the bytes that were stored, or would be.
  std::uint64_t run(const Plan& plan) {
    Progress progress(m_context.out(), m_context.options().progress, "storing", plan.items.size());
    std::uint64_t bytes = 0;
    for (const Item& item : plan.items) {
      if (Context::interrupted()) break;
      if (store(item)) bytes += item.size;
      progress.advance(1, item.name);
    }
    return bytes;
  }

 private:
  bool store(const Item& item) {
    const Subject subject = {std::string(admin::name_of(m_target.area)), m_target.owner, item.name,
                             item.timestamp};
    try {
      const admin::DocumentFolder folder =
          admin::folder_for(m_context.tree(), m_target.area, m_target.owner, item.name);
      check_no_link(m_context, folder.path);
      check_not_shadowed(m_context, m_target, item.name, item.timestamp);
      const bool exists = has_version(item);
      if (exists && !m_options.replace) {
        m_report.failed(subject, "it exists already; say --replace");
        return false;
      }
      if (!m_context.options().dry_run) {
        store_file(m_context, m_target, item.source, item.size, item.name, item.timestamp);
      }
      Json fields = {{"replaced", exists}, {"bytes", item.size}};
      put_name(fields, "source", item.source);
      m_report.done_as(exists ? "replaced" : "stored", subject, fields, format_bytes(item.size));
      return true;
    } catch (const Failure& failure) {
      if (failure.code() == Exit::kInterrupted || failure.code() == Exit::kLockTimeout) throw;
      m_report.failed(subject, failure.what());
      return false;
    }
  }

  bool has_version(const Item& item) {
    for (const FoundEntry& entry : find_versions(m_context, m_target, item.name)) {
      if (entry.timestamp == item.timestamp) return true;
    }
    return false;
  }

  Context& m_context;
  const Options& m_options;
  const Target& m_target;
  ChangeReport& m_report;
};

Exit run_put(Context& context, const Options& options) {
  context.tree();
  if (!options.as.empty() && options.sources.size() > 1) {
    throw Failure(Exit::kUsage, "--as names a single file, and several sources are given");
  }
  const Target target = target_of(context, admin::Area::kDocs);
  if (!options.as.empty()) check_name("the name", options.as);
  const Plan plan = Planner(context, options).run();
  warn_of_stamps(context, target, plan);
  ChangeReport report(context, "stgctl.put/1", "stored");
  if (!context.options().dry_run && !plan.items.empty()) {
    context.confirm(formatted("Store {} {}, {}?", plan.items.size(),
                              plan.items.size() == 1 ? "file" : "files", format_bytes(plan.bytes)));
    context.open_library();
  }
  for (const auto& [source, why] : plan.left_out) report.failed({"", "", source, {}}, why);
  const std::uint64_t bytes =
      report.guarded([&] { return Storing(context, options, target, report).run(plan); });
  return report.finish({{"bytes", bytes}}, format_bytes(bytes));
}

}  // namespace

void add_put_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto options = std::make_shared<Options>();
    app.add_option("source", options->sources, "Files, or folders with everything below them")
        .type_name("SOURCE")
        .required();
    app.add_option("--as", options->as, "The logical name, instead of the file's own")
        .type_name("NAME");
    app.add_option("--timestamp", options->timestamp,
                   "The version: a number, or 'mtime' for the file's time (0)")
        .type_name("STAMP")
        .check(is_stamp_or_mtime);
    app.add_flag("--replace", options->replace, "Replace versions that exist");
    return [options](Context& context) { return run_put(context, *options); };
  };
  commands.push_back(
      {"put", Group::kChange, Effect::kChanges, "Store files, or whole folders, as documents",
       declare,
       "The area is docs unless --area says another one. Every file keeps its modification\n"
       "time. Files of a folder are stored under their own names; links are left out."});
}

}  // namespace stgctl
