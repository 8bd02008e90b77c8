#include "client/stgctl/storing.h"

#include <algorithm>
#include <utility>

#include "client/admin/system.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/new_file.h"
#include "client/stgctl/progress.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace sys = admin::sys;

namespace {

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

/// @return how many items it took, one at least.
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
    // Once a lock was waited for in vain no other one is.
    if (end && work.version != nullptr && work.version->fate == admin::NewVersion::Fate::kInPlace)
      continue;
    try {
      finish(work);
    } catch (const Failure& failure) {
      if (!ends_work(failure)) throw;
      // The others of the batch are to be told of as well.
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

/// Entering asks again, under the index's lock.
std::optional<FoundEntry> Storing::find(const StoreItem& item,
                                        const admin::DocumentFolder& folder) {
  return m_entries.find(folder, item.name, item.timestamp);
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

}  // namespace stgctl
