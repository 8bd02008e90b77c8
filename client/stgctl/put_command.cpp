#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "client/admin/system.h"
#include "client/stgctl/command.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/output.h"
#include "client/stgctl/paths.h"
#include "client/stgctl/report.h"
#include "client/stgctl/target.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace fs = std::filesystem;
namespace sys = admin::sys;

namespace {

/// Whether to replace existing versions.
enum class IfThere : std::uint8_t { kKeep, kReplace };

/// Stores files batch by batch, and reports each. Skips versions that exist with the same bytes: a
/// repeated command completes an interrupted one.
class Storing {
 public:
  Storing(Context& context, const Target& target, IfThere if_there, ChangeReport& report)
      : m_context(context),
        m_target(target),
        m_if_there(if_there),
        m_report(report),
        m_entries(context) {}

  /// If one batch cannot take all items, they are sorted by folder: each index is then loaded and
  /// saved once per batch.
  /// @throws Failure kLockTimeout, kInterrupted, after it reported what was stored.
  void run(std::vector<StoreItem>& items);
  std::uint64_t bytes() const { return m_bytes; }

 private:
  enum class What : std::uint8_t { kNew, kReplace, kEqual, kFailed };
  /// What to do with an item.
  struct Work {
    const StoreItem* item = nullptr;
    What what = What::kFailed;
    std::string reason;
    const admin::NewVersion* version = nullptr;  ///< of kNew and kReplace, in a batch
  };

  std::size_t run_batch(std::span<const StoreItem> items);
  Work judge(const StoreItem& item);
  void stage(StoreBatch& batch, Work& work);
  What judge_existing(const StoreItem& item, const FoundEntry& found) const;
  std::optional<FoundEntry> find(const StoreItem& item, const admin::DocumentFolder& folder);
  std::string why_not(const StoreItem& item, What what, const admin::DocumentFolder& folder);
  void finish(const Work& work);
  /// Reports a stored version; in a dry run the expected one.
  void tell_stored(const Work& work);
  Subject subject_of(const StoreItem& item) const;

  Context& m_context;
  const Target& m_target;
  IfThere m_if_there;
  ChangeReport& m_report;
  std::uint64_t m_bytes = 0;
  KnownEntries m_entries;  ///< for one batch
};

namespace sys = admin::sys;

bool is_equal(Context& context, const StoreItem& item, const FoundEntry& found) {
  if (found.info.size != item.size) return false;
  sys::Locking unlocked;
  unlocked.mode = sys::Locking::Mode::kNone;
  return read_content(item.source, unlocked).checksum ==
         read_content(found.path(), context.locking()).checksum;
}

Subject Storing::subject_of(const StoreItem& item) const {
  return {std::string(admin::name_of(m_target.area)), m_target.owner, item.name, item.timestamp};
}

void Storing::run(std::vector<StoreItem>& items) {
  if (items.size() > StoreBatch::kMostFiles) {
    std::vector<std::pair<std::string, StoreItem>> sorted;
    for (StoreItem& item : items) {
      std::string folder =
          admin::folder_for(m_context.tree(), m_target.area, m_target.owner, item.name).path;
      sorted.emplace_back(std::move(folder), std::move(item));
    }
    std::stable_sort(sorted.begin(), sorted.end(),
                     [](const auto& one, const auto& other) { return one.first < other.first; });
    for (std::size_t i = 0; i < items.size(); ++i) items[i] = std::move(sorted[i].second);
  }
  Progress progress(m_context.out(), m_context.options().progress, "storing", items.size());
  for (std::span<const StoreItem> rest = items; !rest.empty() && !Context::interrupted();) {
    const std::size_t done = run_batch(rest);
    progress.advance(done, rest[done - 1].name);
    rest = rest.subspan(done);
  }
}

/// @return how many items it took, at least one.
std::size_t Storing::run_batch(std::span<const StoreItem> items) {
  StoreBatch batch(m_context);
  std::vector<Work> all;
  std::optional<Failure> end;
  std::uint64_t bytes = 0;
  m_entries.forget();
  for (const StoreItem& item : items) {
    if (all.size() == StoreBatch::kMostFiles || bytes > StoreBatch::kMostBytes ||
        (!all.empty() && Context::interrupted()))
      break;
    try {
      Work work = judge(item);
      stage(batch, work);
      if (work.version != nullptr) bytes += item.size;
      all.push_back(std::move(work));
    } catch (const Failure& failure) {
      if (ends_work(failure)) {
        end = failure;
        break;
      }
      all.push_back({&item, What::kFailed, failure.what(), nullptr});
    }
  }
  batch.run();
  for (const Work& work : all) {
    // After a lock timeout the command waits for no other lock.
    if (end && work.version != nullptr && work.version->fate == admin::NewVersion::Fate::kInPlace)
      continue;
    try {
      finish(work);
    } catch (const Failure& failure) {
      if (!ends_work(failure)) throw;
      // The other items of the batch must be reported too.
      if (!end) end = failure;
    }
  }
  if (end) throw Failure(*end);
  return all.size();
}

void Storing::stage(StoreBatch& batch, Work& work) {
  if (m_context.options().dry_run) return;
  const StoreItem& item = *work.item;
  if (work.what == What::kNew) work.version = &batch.add(m_target, item);
  if (work.what == What::kReplace) {
    const admin::DocumentFolder folder =
        admin::folder_for(m_context.tree(), m_target.area, m_target.owner, item.name);
    work.version = &batch.add_replacing(m_target, item, find(item, folder).value());
  }
}

Storing::Work Storing::judge(const StoreItem& item) {
  const admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), m_target.area, m_target.owner, item.name);
  check_no_link(m_context, folder.path);
  check_not_shadowed(m_context, m_target, item.name, item.timestamp);
  Work work{&item, What::kNew, "", nullptr};
  if (const std::optional<FoundEntry> found = find(item, folder))
    work.what = judge_existing(item, *found);
  if (work.what == What::kFailed) work.reason = "it exists with different content; use --replace";
  if (m_context.options().dry_run) {
    if (std::string why = why_not(item, work.what, folder); !why.empty()) {
      work.what = What::kFailed;
      work.reason = std::move(why);
    }
  }
  return work;
}

Storing::What Storing::judge_existing(const StoreItem& item, const FoundEntry& found) const {
  const bool is_same = is_equal(m_context, item, found);
  if (m_if_there == IfThere::kKeep) return is_same ? What::kEqual : What::kFailed;
  const bool is_dated = found.info.modify_time == sys::describe(item.source).modify_time;
  return is_same && is_dated ? What::kEqual : What::kReplace;
}

/// The version in the tree now. The save checks again, under the index's lock.
std::optional<FoundEntry> Storing::find(const StoreItem& item,
                                        const admin::DocumentFolder& folder) {
  return m_entries.find(folder, item.name, item.timestamp);
}

/// For a dry run: why the item could not be stored; empty if it could.
std::string Storing::why_not(const StoreItem& item, What what,
                             const admin::DocumentFolder& folder) {
  if (what != What::kNew && what != What::kReplace) return {};
  if (const os::Status readable = sys::probe_readable(item.source); !readable.ok())
    return shown(item.source) + ": " + sys::text_of(readable);
  if (std::string why = admin::why_not_storable(folder.path); !why.empty()) return why;
  if (what == What::kNew) return {};
  const std::optional<FoundEntry> found = find(item, folder);
  const os::Status status = sys::probe_writable(found->path());
  return status.ok() ? std::string()
                     : formatted("its file {} cannot be written: {}", shown(found->path()),
                                 admin::why_not_usable(found->path(), status));
}

void Storing::finish(const Work& work) {
  const Subject subject = subject_of(*work.item);
  switch (work.what) {
    case What::kFailed:
      return m_report.failed(subject, work.reason);
    case What::kEqual:
      return m_report.skipped(subject, "it already exists");
    default:
      break;
  }
  using Fate = admin::NewVersion::Fate;
  try {
    if (work.version != nullptr && work.version->fate == Fate::kInPlace) {
      overwrite_file(m_context, m_target, *work.item);
    } else if (work.version != nullptr && work.version->fate != Fate::kStored) {
      throw failure_of(m_context, *work.version);
    }
    tell_stored(work);
  } catch (const Failure& failure) {
    if (ends_work(failure)) throw;
    m_report.failed(subject, failure.what());
  }
}

void Storing::tell_stored(const Work& work) {
  const StoreItem& item = *work.item;
  const bool is_replaced = work.what == What::kReplace;
  Json fields = {{"replaced", is_replaced}, {"bytes", item.size}};
  put_name(fields, "source", item.source);
  m_report.done_as(is_replaced ? "replaced" : "stored", subject_of(item), fields,
                   format_bytes(item.size));
  m_bytes += item.size;
}

constexpr const char* kSeparators = sys::kSeparator == '\\' ? "\\/" : "/";

struct Options {
  Arguments app;
  ListOption sources{
      app, "source", "SOURCE", "Files, or folders with all their content", {kRequired}};
  TextOption as{app, "--as", "NAME", "The logical name, instead of the file's own"};
  TextOption timestamp{app,
                       "--timestamp",
                       {"STAMP", is_stamp_or_mtime},
                       "The version: a number, or 'mtime' for the file's time (0)"};
  Flag replace{app, "--replace", "Replace versions that exist"};
  Flag keep_paths{app, "--keep-paths",
                  "Name files by their paths below the folder, with \"~\" for each separator"};
};

/// The sources to store; the skipped ones with the reason.
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
  /// The file's own name. With --keep-paths its path below the named folder, with "~" for each
  /// separator.
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
        return add_file(source, m_options.as.empty() ? name_of(source) : std::string(m_options.as),
                        info);
      case sys::Kind::kFolder:
        if (!m_options.as.empty()) {
          throw Failure(Exit::kRefused, shown(source) + " is a folder; --as names a single file");
        }
        return add_folder(source);
      case sys::Kind::kMissing:
        return leave_out(source, "there is no such file");
      case sys::Kind::kLink:
        return leave_out(source, "it is a link; name its target");
      default:
        return leave_out(source, "it is not a plain file");
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
    // Sorted, for the same order on every system.
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) add(sys::join(path, name));
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
    if (is_inside_tree(source)) return leave_out(source, "it is in the tree itself");
    const auto [first, is_new] = m_seen.try_emplace(name, source);
    if (!is_new) return leave_out(source, "it has the same name as " + shown(first->second));
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
  std::string m_base;  ///< the source of the current walk
  std::map<std::string, std::string> m_seen;
};

void warn_of_stamps(Context& context, const Target& target, const Plan& plan) {
  if (target.area != admin::Area::kDocs) return;
  const bool any = std::any_of(plan.items.begin(), plan.items.end(), [](const StoreItem& item) {
    return item.timestamp != 0 && !item.name.ends_with(".kdf");
  });
  if (any) {
    context.out().warning(
        "readers look only at timestamp 0 for corporate documents other than .kdf");
  }
}

Exit run_put(Context& context, Options& options) {
  context.take_apart(options.as, options.timestamp);
  if (options.timestamp.empty()) options.timestamp = "0";
  if (const std::string wrong = is_stamp_or_mtime(options.timestamp); !wrong.empty())
    throw Failure(Exit::kUsage, wrong);
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

Commands put_command() {
  return {{"put", Group::kChange, Effect::kChanges, "Store files, or whole folders, as documents",
           run_put,
           "The area is docs unless --area names another one. Every file keeps its modification\n"
           "time. Files of a folder are stored under their own names. Links are skipped."}};
}

}  // namespace stgctl
