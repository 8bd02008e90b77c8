#include "tools/stgctl/storing.h"

#include <algorithm>
#include <utility>

#include "tools/admin/writable.h"
#include "tools/stgctl/exit_codes.h"
#include "tools/stgctl/new_file.h"
#include "tools/stgctl/progress.h"
#include "tools/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

/// A batch ends after so many files, or so many bytes.
constexpr std::size_t kMostFiles = 100;
constexpr std::uint64_t kMostBytes = std::uint64_t{256} * 1024 * 1024;

bool ends_work(const Failure& failure) {
  return failure.code() == Exit::kInterrupted || failure.code() == Exit::kLockTimeout;
}

bool is_equal(Context& context, const StoreItem& item, const FoundEntry& found) {
  if (found.info.size != item.size) return false;
  sys::Locking unlocked;
  unlocked.mode = sys::Locking::Mode::kNone;
  return read_content(item.source, unlocked).checksum ==
         read_content(found.path(), context.locking()).checksum;
}

}  // namespace

Subject Storing::subject_of(const StoreItem& item) const {
  return {std::string(admin::name_of(m_target.area)), m_target.owner, item.name, item.timestamp};
}

void Storing::run(std::vector<StoreItem>& items) {
  if (items.size() > kMostFiles) {
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

/// @return how many items it took, one at least.
std::size_t Storing::run_batch(std::span<const StoreItem> items) {
  StoreBatch batch(m_context);
  std::vector<Work> all;
  std::optional<Failure> end;
  std::uint64_t bytes = 0;
  m_folder.clear();
  for (const StoreItem& item : items) {
    if (all.size() == kMostFiles || bytes > kMostBytes || (!all.empty() && Context::interrupted()))
      break;
    try {
      Work work = judge(item);
      if (work.what == What::kNew && !m_context.options().dry_run) {
        work.version = &batch.add(m_target, item.source, item.size, item.name, item.timestamp);
        bytes += item.size;
      }
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
    try {
      finish(work);
    } catch (const Failure& failure) {
      if (!ends_work(failure)) throw;
      // The others of the batch are to be told of as well.
      if (!end) end = failure;
      if (work.what == What::kReplace) break;
    }
  }
  if (end) throw Failure(*end);
  return all.size();
}

Storing::Work Storing::judge(const StoreItem& item) {
  const admin::DocumentFolder folder =
      admin::folder_for(m_context.tree(), m_target.area, m_target.owner, item.name);
  check_no_link(m_context, folder.path);
  check_not_shadowed(m_context, m_target, item.name, item.timestamp);
  Work work{&item, What::kNew, "", nullptr};
  if (const std::optional<FoundEntry> found = find(item, folder))
    work.what = judge_existing(item, *found);
  if (work.what == What::kFailed) work.reason = "it exists with other content; say --replace";
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

/// Each folder's index is read once for the batch; entering asks again, under its lock.
std::optional<FoundEntry> Storing::find(const StoreItem& item,
                                        const admin::DocumentFolder& folder) {
  if (m_folder != folder.path) {
    m_entries.clear();
    for (FoundEntry& entry : entries_of_folder(m_context, folder)) {
      std::string key = index_format::key_of(entry.name, entry.timestamp);
      m_entries.emplace(std::move(key), std::move(entry));
    }
    m_folder = folder.path;
  }
  const auto at = m_entries.find(index_format::key_of(item.name, item.timestamp));
  return at == m_entries.end() ? std::nullopt : std::optional(at->second);
}

/// Of a dry run: what the work itself would meet.
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
      return m_report.skipped(subject, "it is there already");
    case What::kNew:
      if (work.version == nullptr || work.version->fate == admin::NewVersion::Fate::kStored)
        return tell_stored(work, "stored");
      break;
    case What::kReplace:
      break;
  }
  try {
    if (work.what == What::kNew) throw failure_of(m_context, *work.version);
    if (!m_context.options().dry_run) {
      const StoreItem& item = *work.item;
      store_file(m_context, m_target, item.source, item.size, item.name, item.timestamp);
    }
    tell_stored(work, "replaced");
  } catch (const Failure& failure) {
    if (ends_work(failure)) throw;
    m_report.failed(subject, failure.what());
  }
}

void Storing::tell_stored(const Work& work, const char* action) {
  const StoreItem& item = *work.item;
  Json fields = {{"replaced", work.what == What::kReplace}, {"bytes", item.size}};
  put_name(fields, "source", item.source);
  m_report.done_as(action, subject_of(item), fields, format_bytes(item.size));
  m_bytes += item.size;
}

}  // namespace stgctl
