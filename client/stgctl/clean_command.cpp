
#include <algorithm>
#include <chrono>
#include <deque>
#include <span>

#include "client/stgctl/command.h"
#include "client/stgctl/operations.h"
#include "client/stgctl/output.h"
#include "client/stgctl/text.h"
#include "client/stgctl/what_if.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

struct Options {
  Arguments app;
  TextOption older_than{app, "--older-than", kAge, "The age limit: 90s, 15m, 12h, 30d, 4w, 1y"};
  TextOption by{app,
                "--by",
                "WORD",
                "Which time decides: that of the last change, or of the last access",
                {initially("mtime"), one_of({"mtime", "atime"})}};
  TextOption max_size{app, "--max-size", kSize,
                      "Then remove the oldest until the rest is at most this large: 500M, 20G"};
  Flag what_if{app,
               "--what-if",
               "Remove nothing: show what each age limit would free, for every owner",
               {excludes("--older-than"), excludes("--max-size")}};
  TextOption target_size{app,
                         "--target-size",
                         kSize,
                         "With --what-if: find the age limit that reduces the size to this",
                         {needs("--what-if")}};
};

std::int64_t seconds_now() {
  using namespace std::chrono;
  return duration_cast<seconds>(system_clock::now().time_since_epoch()).count();
}

/// The size of everything below a folder.
std::uint64_t size_below(const std::string& path) {
  sys::Folder folder;
  std::uint64_t bytes = 0;
  if (!folder.open(path).ok()) return 0;
  sys::Entry entry;
  while (folder.next(entry)) {
    bytes += entry.kind == sys::Kind::kFolder ? size_below(sys::join(path, entry.name))
                                              : folder.describe(entry).size;
  }
  return bytes;
}

/// Why a version is removed.
enum class Reason { kAge, kSize };

struct Candidate {
  FoundEntry entry;
  std::int64_t time = 0;
  std::uint64_t bytes = 0;  ///< with its sub-parts
  std::size_t parts = 0;
  Reason reason = Reason::kAge;
};

/// The versions to remove, and the rest.
struct Plan {
  std::vector<Candidate> going;
  std::uint64_t going_bytes = 0;
  std::uint64_t kept = 0;
  std::uint64_t kept_bytes = 0;
};

class Planner {
 public:
  Planner(Context& context, const Options& options)
      : m_context(context), m_by_access(options.by == "atime"), m_now(seconds_now()) {
    if (!options.older_than.empty()) m_limit = parse_age(options.older_than);
    if (!options.max_size.empty()) m_most = parse_size(options.max_size);
  }

  std::int64_t now() const { return m_now; }

  Plan run() {
    std::vector<Candidate> all = candidates();
    // Oldest first. Versions with equal times have the same order on every system.
    std::sort(all.begin(), all.end(), [](const Candidate& a, const Candidate& b) {
      return std::tie(a.time, a.entry.folder.path, a.entry.name, a.entry.timestamp) <
             std::tie(b.time, b.entry.folder.path, b.entry.name, b.entry.timestamp);
    });
    Plan plan;
    for (const Candidate& each : all) plan.kept_bytes += each.bytes;
    for (Candidate& each : all) {
      const bool by_age = m_limit && m_now - each.time > *m_limit;
      const bool by_size = m_most && plan.kept_bytes > *m_most;
      if (!by_age && !by_size) {
        ++plan.kept;
        continue;
      }
      each.reason = by_age ? Reason::kAge : Reason::kSize;
      plan.kept_bytes -= each.bytes;
      plan.going_bytes += each.bytes;
      plan.going.push_back(std::move(each));
    }
    return plan;
  }

  std::int64_t time_of(const sys::Info& info) const {
    return m_by_access ? info.access_time : info.modify_time;
  }

 private:
  std::vector<Candidate> candidates() {
    admin::EntryQuery query;
    query.scope = m_context.scope();
    if (!query.scope.area) query.scope.area = admin::Area::kDocs;
    query.state = admin::EntryState::kIndexed;
    std::vector<Candidate> all;
    for (FoundEntry& entry : find_entries(m_context, query)) {
      Context::stop_if_interrupted();
      Candidate each;
      each.time = time_of(entry.info);
      each.bytes = entry.info.size;
      for (const std::string& part : part_folders(entry)) {
        each.bytes += size_below(sys::join(entry.folder.path, part));
        ++each.parts;
      }
      each.entry = std::move(entry);
      all.push_back(std::move(each));
    }
    return all;
  }

  Context& m_context;
  bool m_by_access;
  std::int64_t m_now;
  std::optional<std::int64_t> m_limit;
  std::optional<std::uint64_t> m_most;
};

/// The most versions in a batch. A batch loads and saves each index once.
constexpr std::size_t kMostAtOnce = 1000;

class Cleaning {
 public:
  Cleaning(Context& context, const Options& options, const Planner& planner, ChangeReport& report)
      : m_context(context), m_options(options), m_planner(planner), m_report(report) {}

  /// @throws Failure kLockTimeout, kInterrupted, after it reported what was removed.
  void run(const Plan& plan) {
    Progress progress(m_context.out(), m_context.options().progress, "cleaning", plan.going.size());
    std::span<const Candidate> rest = plan.going;
    while (!rest.empty() && !Context::interrupted()) {
      const auto batch = rest.first(std::min(rest.size(), kMostAtOnce));
      remove(batch);
      progress.advance(batch.size(), batch.back().entry.name);
      rest = rest.subspan(batch.size());
    }
  }

 private:
  struct Work {
    const Candidate* candidate = nullptr;
    Removal removal;
    std::optional<Failure> failure;
  };

  void remove(std::span<const Candidate> batch) {
    std::deque<Work> works;
    std::vector<Removal*> removals;
    for (const Candidate& each : batch) {
      Work& work = works.emplace_back(Work{&each, removal_of(each.entry, still(each)), {}});
      try {
        check_name("the name", each.entry.name);
        check_no_link(m_context, each.entry.path());
        removals.push_back(&work.removal);
      } catch (const Failure& failure) {
        work.failure = failure;
      }
    }
    std::optional<Failure> end;
    if (!m_context.options().dry_run) end = remove_together(m_context, removals);
    for (const Work& work : works) tell(work);
    if (end) throw Failure(*end);
  }

  /// Whether a version is still in the state in which it was examined.
  std::function<bool(admin::LockedFile&)> still(const Candidate& each) const {
    return [this, &each](admin::LockedFile&) {
      const sys::Info now = sys::describe(each.entry.path());
      return now.kind == sys::Kind::kFile && now.size == each.entry.info.size &&
             now.change_mark == each.entry.info.change_mark && m_planner.time_of(now) == each.time;
    };
  }

  void tell(const Work& work) {
    using Fate = admin::OldVersion::Fate;
    const Candidate& each = *work.candidate;
    const Subject subject = subject_of(each.entry);
    const Fate fate = work.removal.version.fate;
    if (work.failure) {
      m_report.failed(subject, work.failure->what());
    } else if (m_context.options().dry_run || is_removed(work.removal)) {
      tell_removed(each, subject);
      m_report.add_bytes(each.bytes);
    } else if (fate == Fate::kMeanwhile) {
      m_report.skipped(subject, "used or changed since it was examined");
    } else if (fate == Fate::kInUse) {
      m_report.skipped(subject, "another process has it open");
    } else if (fate == Fate::kFailed) {
      m_report.failed(subject, work.removal.version.reason);
    }
  }

  void tell_removed(const Candidate& each, const Subject& subject) {
    const std::int64_t age = m_planner.now() - each.time;
    const char* const reason = each.reason == Reason::kAge ? "age" : "size";
    const Json fields = {{"by", m_options.by}, {"time", each.time},   {"age", age},
                         {"reason", reason},   {"bytes", each.bytes}, {"part_folders", each.parts}};
    m_report.done(subject, fields,
                  formatted("{} {} ago, {}{}", m_options.by == "atime" ? "read" : "changed",
                            format_age(age), format_bytes(each.bytes),
                            each.reason == Reason::kSize ? ", to reach --max-size" : ""));
  }

  Context& m_context;
  const Options& m_options;
  const Planner& m_planner;
  ChangeReport& m_report;
};

Exit run_clean(Context& context, const Options& options) {
  context.tree();
  if (options.what_if) {
    return run_what_if(context, options.by == "atime", parse_size(options.target_size));
  }
  if (options.older_than.empty() && options.max_size.empty()) {
    throw Failure(Exit::kUsage,
                  "nothing says what to remove; use --older-than AGE, --max-size SIZE, or both");
  }
  if (!context.options().owner.empty()) check_name("the owner", context.options().owner);
  Planner planner(context, options);
  const Plan plan = planner.run();
  const Json sums = {{"by", options.by},
                     {"now", planner.now()},
                     {"kept", plan.kept},
                     {"kept_bytes", plan.kept_bytes}};
  const char* const which =
      options.by == "atime" ? "by the time of the last access" : "by the time of the last change";
  ChangeReport report(context, "stgctl.clean/1", "removed");
  if (plan.going.empty()) {
    context.out().note(formatted("stgctl: {}, nothing to remove; {} kept", which, plan.kept));
    return report.finish(sums, format_bytes(0));
  }
  if (!context.options().dry_run) {
    context.confirm(formatted("{}: remove {} versions, {}, and keep {}, {}?", which,
                              plan.going.size(), format_bytes(plan.going_bytes), plan.kept,
                              format_bytes(plan.kept_bytes)));
    context.open_library();
  }
  report.guarded([&] {
    Cleaning(context, options, planner, report).run(plan);
    return 0;
  });
  Json all = sums;
  all["bytes"] = report.bytes();
  return report.finish(
      all, formatted("{} freed {}, {} kept", format_bytes(report.bytes()), which, plan.kept));
}

}  // namespace

Commands clean_command() {
  return {{"clean", Group::kChange, Effect::kChanges,
           "Remove documents that were not used for a long time", run_clean,
           "Removes versions of the area docs, or of --area, with their sub-parts. --dry-run\n"
           "lists exactly what would be removed. Orphans stay, unlike in the library's own\n"
           "sweep, and key lines stay too. A file system mounted with noatime or relatime does\n"
           "not record the time of every access."}};
}

}  // namespace stgctl
