#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

#include "file/file_internal.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/name_list.h"
#include "index/width.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "vu_fileutf8.h"

// Cleaning: versions by age, their sub-part folders, and the sweep of orphans.

namespace {

using Names = std::vector<vu_utf8string>;

/// A folder as UTF-8 bytes, unchanged, with a separator at the end.
vu_utf8string with_separator(const std::string& folder) {
  vu_utf8string result(folder);
  vu_fileutf8::addFileSep(result);
  return result;
}

/// The file of an entry by this operation's own rule: a physical name with a dot is complete.
std::string name_on_disk(std::string_view key, std::string_view stored) {
  std::string name(stored);
  if (name.find('.') == std::string::npos)
    name += index_format::extension_of(index_format::logical_of(key));
  return name;
}

/// Last access or modification in seconds since 1970; 0 for a missing file, nothing on a failure.
std::optional<std::uint64_t> time_of(const vu_utf8string& path, bool use_access_time) {
  const std::uint64_t time =
      use_access_time ? vu_fileutf8::access_time(path) : vu_fileutf8::modify_time(path);
  if (time != 0) return time;
  // The file is missing, or the system failed. A failure is no reason to remove a document.
  os::FileStat found;
  const ucs2string wide = vu_file_internal::getLongPath(ucs2string(path));
  const os::Status status = os::stat(wide, found);
  if (status.failure() == os::Failure::kNotFound) return 0;
  if (!status.ok()) return std::nullopt;
  return static_cast<std::uint64_t>(use_access_time ? found.access_time : found.modify_time);
}

/// The age of a file with this time. It is 0 if the time is not known or not before @p now.
std::uint32_t age_of(std::optional<std::uint64_t> time, std::int64_t now) {
  // A time before 1970 is negative.
  if (!time || static_cast<std::int64_t>(*time) >= now) return 0;
  // Required: the low 32 bits.
  return static_cast<std::uint32_t>(now - static_cast<std::int64_t>(*time));
}

/// Whether @p name is a physical file name of the map or begins with one, like a sub-part folder.
bool is_accounted_for(const STGIndex::NameMap& physical_names, const std::string& name) {
  // Names are sorted, so all prefixes of `name` sort before it. Look at the last name that sorts at
  // or before it. If it is not a prefix of `name`, every prefix is also a prefix of the part that
  // both share.
  auto it = physical_names.upper_bound(name);
  while (it != physical_names.begin()) {
    const std::string& candidate = (--it)->first;
    const auto shared = std::mismatch(candidate.begin(), candidate.end(), name.begin(), name.end());
    if (shared.first == candidate.end()) return true;
    it = physical_names.upper_bound(std::string(name.begin(), shared.second));
  }
  return false;
}

/// The names in @p sorted that begin with @p prefix.
std::pair<Names::const_iterator, Names::const_iterator> with_prefix(const Names& sorted,
                                                                    std::string_view prefix) {
  const auto head = [prefix](const vu_utf8string& name) {
    return std::string_view(name.str()).substr(0, prefix.size());
  };
  const auto first = std::partition_point(
      sorted.begin(), sorted.end(), [&](const vu_utf8string& name) { return head(name) < prefix; });
  const auto last = std::partition_point(
      first, sorted.end(), [&](const vu_utf8string& name) { return head(name) == prefix; });
  return {first, last};
}

/// Removes the orphans: names that no entry accounts for, in @p own (the index as the operation
/// loaded it) or in @p now (the index as it is now).
void sweep_orphans(IndexState& own, const IndexState& now, const vu_utf8string& base,
                   const Names& names, std::uint32_t limit, bool use_access_time) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  if (own.has_unknown_lines() || now.has_unknown_lines()) {
    // The files of unknown entries would be taken for orphans.
    VU_ERROR("STGIndex: orphans stay, for the system does not tell which files the index names: ",
             own.folder());
    return;
  }
  STGIndex::NameMap physical_names;
  add_physical_names(now, physical_names);
  add_physical_names(own, physical_names);

  const std::string index_file = own.folder() + "\\" + kIndexFile;
  for (const vu_utf8string& name : names) {
    if (index_format::is_index_file(name.str())) continue;
    if (is_accounted_for(physical_names, name.str())) continue;
    // Without an index there was nothing to lock. If an index exists now, it may name these files.
    if (now.loaded() == nullptr && presence_of(index_file) != Presence::kMissing) return;
    const vu_utf8string path = base + name;
    const std::uint64_t time = time_of(path, use_access_time).value_or(0);
    // Required: compares a point in time with a duration.
    if (time == 0 || limit == 0 || time <= limit) continue;
    own.file_changes(name.str());
    if (vu_fileutf8::is_dir(path)) {
      VU_ERROR("removing orphan directory: ", path);
      vu_fileutf8::recurseRemoveDir(path, false);
    } else {
      VU_ERROR("removing orphan file: ", path);
      vu_fileutf8::remove(path, false);
    }
  }
}

}  // namespace

unsigned long STGIndex::cleanOutOfDateOutput(const std::string& folder, const unsigned long& maxAge,
                                             AgeMap& kept, bool useAccessTime) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const std::int64_t now = os::now();
  const std::uint32_t limit = clamp_unsigned32(maxAge);

  STGIndex index(folder);
  VU_TRACE_XS("Cleaning folder: ", folder);
  const vu_utf8string base = with_separator(folder);

  std::vector<std::pair<std::string, std::string>> out_of_date;
  const auto sort_out = [&](std::string_view key, std::string_view stored, std::uint32_t age) {
    if (limit == 0 || age > limit) {
      out_of_date.emplace_back(key, stored);
    } else {
      kept.emplace(age, std::string(folder).append("\\").append(key));
    }
  };
  index.m_state->visit([&](std::string_view key, std::string_view stored) {
    const vu_utf8string path = base + vu_utf8string(name_on_disk(key, stored));
    sort_out(key, stored, age_of(time_of(path, useAccessTime), now));
  });
  // An unknown entry stays, with the age 0.
  if (limit != 0) {
    index.m_state->visit_unknown(
        [&](std::string_view key, std::string_view stored) { sort_out(key, stored, 0); });
  }

  const Names names = vu_fileutf8::filenames(base);
  Names sorted = names;
  std::sort(sorted.begin(), sorted.end());
  unsigned long removed = 0;
  for (const auto& [key, stored] : out_of_date) {
    const std::string entry = entryOnly(key);
    const long timestamp = tsOnly(key);
    const std::string file = name_on_disk(key, stored);
    if (limit != 0) {
      // Another process may have written the document since the first check.
      const std::uint32_t age = age_of(time_of(base + vu_utf8string(file), useAccessTime), now);
      if (age <= limit) {
        kept.emplace(age, std::string(folder).append("\\").append(key));
        continue;
      }
    }
    ++removed;
    VU_TRACE_XS("          Removing entry=", entry, " ts=", timestamp, " nameOnFS=", file);
    index._remove(entry, timestamp);
    const auto [first, last] = with_prefix(sorted, file + "_");
    cleanOutputDirectories(base, Names(first, last), file, nullptr);
  }

  // Required: the sweep loads the index a second time. If that load adopts a file, its save waits
  // for all locks on the index. It would wait for this instance's lock for ever.
  index.close();
  {
    const STGIndex second_look(folder);
    sweep_orphans(*index.m_state, *second_look.m_state, base, names, limit, useAccessTime);
  }
  return removed;
}

void STGIndex::cleanAllOutput(const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  AgeMap kept;
  cleanOutOfDateOutput(folder, 0, kept, false);
}

void STGIndex::cleanOutputDirectories(const std::string& folder, const std::string& name,
                                      unsigned long* counter) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const vu_utf8string base = with_separator(folder);
  cleanOutputDirectories(base, vu_fileutf8::filenames(base), name, counter);
}

void STGIndex::cleanOutputDirectories(const vu_utf8string& folder,
                                      const std::vector<vu_utf8string>& names,
                                      const std::string& name, unsigned long* counter) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const std::string prefix = name + "_";
  if (counter != nullptr) *counter = 0;
  for (const vu_utf8string& candidate : names) {
    if (!candidate.str().starts_with(prefix)) continue;
    const vu_utf8string path = folder + candidate;
    if (!vu_fileutf8::is_dir(path)) continue;
    if (counter != nullptr)
      *counter += static_cast<unsigned long>(vu_fileutf8::getFolderSizeInKb(path));
    vu_fileutf8::recurseRemoveDir(path, false);
    if (vu_fileutf8::is_dir(path)) {
      VU_ERROR("STGIndex: removal of output directory failed: ", path);
    }
  }
}
