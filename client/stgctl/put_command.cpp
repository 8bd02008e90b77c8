
#include <algorithm>
#include <filesystem>
#include <map>
#include <memory>
#include <system_error>

#include "client/stgctl/command.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/stamp.h"
#include "client/stgctl/storing.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace fs = std::filesystem;
namespace sys = admin::sys;

namespace {

constexpr const char* kSeparators = sys::kSeparator == '\\' ? "\\/" : "/";

struct Options {
  std::vector<std::string> sources;
  std::string as;
  std::string timestamp;
  bool replace = false;
  bool keep_paths = false;
};

/// What is to be stored, and what is left out and why.
struct Plan {
  std::vector<StoreItem> items;
  std::vector<std::pair<std::string, std::string>> left_out;
  std::uint64_t bytes = 0;
};

class Planner {
 public:
  Planner(Context& context, const Options& options) : m_context(context), m_options(options) {}

  Plan run() {
    for (const std::string& source : m_options.sources) {
      m_base = source;
      add(source);
    }
    for (const StoreItem& item : m_plan.items) m_plan.bytes += item.size;
    return std::move(m_plan);
  }

 private:
  /// The file's own name or, with --keep-paths, its path below the folder that was named, with a
  /// "~" for each separator.
  std::string name_of(const std::string& source) const {
    if (!m_options.keep_paths || source == m_base) return from_path(to_path(source).filename());
    std::string name = source.substr(m_base.size());
    name.erase(0, name.find_first_not_of(kSeparators));
    for (char& c : name) {
      if (std::string_view(kSeparators).find(c) != std::string_view::npos) c = '~';
    }
    return name;
  }

  void add(const std::string& source) {
    const sys::Info info = sys::describe(source);
    switch (info.kind) {
      case sys::Kind::kFile:
        return add_file(source, m_options.as.empty() ? name_of(source) : m_options.as, info);
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
  std::string m_base;  ///< the source that is being walked
  std::map<std::string, std::string> m_seen;
};

void warn_of_stamps(Context& context, const Target& target, const Plan& plan) {
  if (target.area != admin::Area::kDocs) return;
  const bool any = std::any_of(plan.items.begin(), plan.items.end(), [](const StoreItem& item) {
    return item.timestamp != 0 && !item.name.ends_with(".kdf");
  });
  if (any) {
    context.out().warning(
        "readers look for corporate documents other than .kdf at timestamp 0 only");
  }
}

Exit run_put(Context& context, const Options& options) {
  context.tree();
  if (!options.as.empty() && options.sources.size() > 1) {
    throw Failure(Exit::kUsage, "--as names a single file, and several sources are given");
  }
  const Target target = target_of(context, admin::Area::kDocs);
  if (!options.as.empty()) check_name("the name", options.as);
  Plan plan = Planner(context, options).run();
  warn_of_stamps(context, target, plan);
  ChangeReport report(context, "stgctl.put/1", "stored");
  if (!context.options().dry_run && !plan.items.empty()) {
    context.confirm(formatted("Store {} {}, {}?", plan.items.size(),
                              plan.items.size() == 1 ? "file" : "files", format_bytes(plan.bytes)));
    context.open_library();
  }
  for (const auto& [source, why] : plan.left_out) report.failed({"", "", source, {}}, why);
  Storing storing(context, target, options.replace ? IfThere::kReplace : IfThere::kKeep, report);
  report.guarded([&] {
    storing.run(plan.items);
    return 0;
  });
  return report.finish({{"bytes", storing.bytes()}, {"seconds", report.seconds()}},
                       format_bytes(storing.bytes()) + report.speed());
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
    app.add_flag("--keep-paths", options->keep_paths,
                 "Name files by their paths below the folder, with \"~\" for each separator");
    return [options](Context& context) {
      context.take_apart(options->as, options->timestamp);
      if (options->timestamp.empty()) options->timestamp = "0";
      if (const std::string wrong = is_stamp_or_mtime(options->timestamp); !wrong.empty())
        throw Failure(Exit::kUsage, wrong);
      return run_put(context, *options);
    };
  };
  commands.push_back(
      {"put", Group::kChange, Effect::kChanges, "Store files, or whole folders, as documents",
       declare,
       "The area is docs unless --area says another one. Every file keeps its modification\n"
       "time. Files of a folder are stored under their own names; links are left out."});
}

}  // namespace stgctl
