#include <algorithm>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "file/file_internal.h"
#include "file/folder_entries.h"
#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "index/index_state.h"
#include "index/name_list.h"
#include "index/numbers.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "stg_index.h"
#include "vu_fileutf8.h"

// Cleaning: versions by age, their sub-part folders, and the sweep of orphans.

namespace {

using UtfNames = std::vector<vu_utf8string>;

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
  // Another program can give a file such a name. It must not end the clean.
  if (!path.is_valid()) return std::nullopt;
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

/// Which versions a clean removes.
struct Limit {
  std::int64_t now = 0;
  std::uint32_t age = 0;  ///< removes versions that are older; 0 removes all
  bool use_access_time = false;
};

/// The position of a name in the listing of the load, or kNone.
std::size_t position_of(const IndexState& index, std::string_view name) {
  FolderFiles& files = index.files();
  return files.listed(name, files.ask(name));
}

/// Decides which entries are removed, and reports the others with their ages. Order of calls:
/// out_of_date(); then keeps() for each of them again, directly before its removal.
class Selection {
 public:
  Selection(const IndexState& index, const vu_utf8string& base, Limit limit, STGIndex::AgeMap& kept)
      : m_index(index), m_base(base), m_limit(limit), m_kept(kept) {}

  /// The entries to remove, in the order of their keys.
  std::vector<IndexState::Entry> out_of_date() {
    std::vector<IndexState::Entry> result;
    m_index.visit([&](std::string_view key, std::string_view stored) {
      if (!keeps(key, name_on_disk(key, stored))) result.emplace_back(key, stored);
    });
    // An unknown entry stays, with the age 0.
    if (m_limit.age != 0)
      m_index.visit_unknown([&](std::string_view key, std::string_view) { keep(0, key); });
    return result;
  }

  /// Whether an entry stays. Checks the age of its file now, and reports an entry that stays.
  bool keeps(std::string_view key, std::string_view file) {
    // With the limit 0 an existing file is removed at any age.
    if (m_limit.age == 0 && position_of(m_index, file) != FolderFiles::kNone) return false;
    std::string path;
    path.reserve(m_base.size() + file.size());
    path.append(m_base.str()).append(file);
    const std::optional<std::uint64_t> time =
        time_of(vu_utf8string(std::move(path)), m_limit.use_access_time);
    const std::uint32_t age = age_of(time, m_limit.now);
    if (m_limit.age == 0 || age > m_limit.age) return false;
    keep(age, key);
    return true;
  }

 private:
  void keep(std::uint32_t age, std::string_view key) {
    m_kept.emplace(age, std::string(m_index.folder()).append("\\").append(key));
  }

  const IndexState& m_index;
  const vu_utf8string& m_base;
  Limit m_limit;
  STGIndex::AgeMap& m_kept;
};

/// The names in the folder, in UTF-8, from one listing before the first removal. The listing of the
/// load is used where its narrow names are the same bytes. Call orphans() after the removals.
class Names {
 public:
  /// @param is_loaded_stale whether the load has renamed files after its listing.
  Names(const IndexState& index, const vu_utf8string& folder, bool is_loaded_stale)
      : m_index(index) {
    const os::Listing& loaded = index.files().listing();
    m_is_loaded =
        !is_loaded_stale && !loaded.empty() && is_plain(index.folder()) && is_plain(loaded.text());
    if (!m_is_loaded) m_own = utf8_entries(folder);
    m_listing = m_is_loaded ? &loaded : &m_own;
  }
  Names(const Names&) = delete;
  Names& operator=(const Names&) = delete;

  /// The names that are not plain files, sorted. Sub-part folders are among them. A name that is
  /// not valid UTF-8 is left out, because a folder cannot be reached by it.
  UtfNames possible_folders() const {
    UtfNames result;
    for (const os::Entry found : *m_listing) {
      vu_utf8string name{std::string(found.name)};
      if (found.kind != os::EntryKind::kFile && name.is_valid()) result.push_back(std::move(name));
    }
    std::sort(result.begin(), result.end());
    return result;
  }

  /// The names that no entry of the index accounts for, except the index files and the files that
  /// this operation has removed.
  UtfNames orphans() const {
    std::vector<bool> is_known = files_of_entries();
    UtfNames result;
    std::optional<STGIndex::NameMap> physical_names;
    for (std::size_t i = 0; i < m_listing->size(); ++i) {
      const std::string_view name = (*m_listing)[i].name;
      if (is_known[i] || index_format::is_index_file(name)) continue;
      if (m_index.is_gone(m_is_loaded ? i : position_of(m_index, name))) continue;
      if (!physical_names) add_physical_names(m_index, physical_names.emplace());
      if (!is_accounted_for(*physical_names, std::string(name)))
        result.emplace_back(std::string(name));
    }
    return result;
  }

 private:
  /// Whether narrow names are the same bytes in UTF-8. A "?" is not plain: Windows lists it for a
  /// character that has no narrow form.
  static bool is_plain(std::string_view text) {
    return std::all_of(text.begin(), text.end(),
                       [](char c) { return static_cast<unsigned char>(c) < 0x80 && c != '?'; });
  }

  /// Whether the file that makes a line valid has the physical name of its entry.
  static bool has_physical_name(const IndexLine& line) {
    const std::string_view extension =
        index_format::extension_of(index_format::logical_of(line.key));
    return extension.empty() ||
           line.has_extension == index_format::bears_extension(line.key, line.stored);
  }

  /// For each name, whether the load found it as the file of an entry.
  std::vector<bool> files_of_entries() const {
    std::vector<bool> result(m_listing->size());
    if (!m_is_loaded) return result;
    m_index.walk(
        [&](std::span<const IndexLine> lines) {
          for (const IndexLine& line : lines) {
            if (line.file != FolderFiles::kNone && has_physical_name(line))
              result[line.file] = true;
          }
        },
        [](std::string_view, std::string_view) {});
    return result;
  }

  const IndexState& m_index;
  bool m_is_loaded = false;  ///< the listing of the load is used
  os::Listing m_own;
  const os::Listing* m_listing = nullptr;
};

/// The names in @p sorted that begin with @p prefix.
std::pair<UtfNames::const_iterator, UtfNames::const_iterator> with_prefix(const UtfNames& sorted,
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

/// Removes the orphans: names that neither index accounts for. @p own is the index as the operation
/// loaded it, @p now is the index as it is now.
/// @param orphans the names that @p own does not account for.
/// @param limit not 0: then nothing is swept.
void sweep_orphans(IndexState& own, const IndexState& now, const vu_utf8string& base,
                   const UtfNames& orphans, Limit limit) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  STGIndex::NameMap physical_names;
  add_physical_names(now, physical_names);

  const std::string index_file = path_text::join(own.folder(), kIndexFile);
  for (const vu_utf8string& name : orphans) {
    if (is_accounted_for(physical_names, name.str())) continue;
    // Without an index there was nothing to lock. If an index exists now, it may name these files.
    if (now.loaded() == nullptr && presence_of(index_file) != Presence::kMissing) return;
    const vu_utf8string path = base + name;
    const std::uint64_t time = time_of(path, limit.use_access_time).value_or(0);
    // Required: compares a point in time with a duration.
    if (time == 0 || time <= limit.age) continue;
    if (own.has_unknown_lines() || now.has_unknown_lines()) {
      // The files of unknown entries would be taken for orphans.
      VU_ERROR("STGIndex: orphans stay, for the system does not tell which files the index names: ",
               own.folder());
      return;
    }
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

/// Whether the removals have left a file without an entry, so that the second load adopts it.
/// Example: the file 00000001.kdc was known only by the stem that it shares with the physical name
/// of the entry `readme_0000000005/00000001`.
bool uncovers_file(const IndexState& index) {
  const os::Listing& listing = index.files().listing();
  for (std::size_t i = 0; i < listing.size(); ++i) {
    const os::Entry found = listing[i];
    if (found.kind == os::EntryKind::kFolder || index_format::is_index_file(found.name)) continue;
    if (!index.is_gone(i) && !index.knows_file(found.name)) return true;
  }
  return false;
}

void report_if_not_listed(FolderFiles& files) {
  const os::Status status = files.why_not_listed();
  if (status.ok()) return;
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  VU_ERROR("STGIndex: orphans stay, for the folder cannot be listed: ", files.folder(), ", error ",
           status.code());
}

}  // namespace

unsigned long STGIndex::cleanOutOfDateOutput(const std::string& folder, const unsigned long& maxAge,
                                             AgeMap& kept, bool useAccessTime) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const std::int64_t now = os::now();
  const std::uint32_t limit = clamp_unsigned32(maxAge);

  STGIndex index(folder);
  const bool has_adopted = index.m_needUpdate;
  VU_TRACE_XS("Cleaning folder: ", folder);
  const vu_utf8string base = with_separator(folder);
  Selection selection(*index.m_state, base, {now, limit, useAccessTime}, kept);
  const std::vector<IndexState::Entry> out_of_date = selection.out_of_date();

  const Names names(*index.m_state, base, has_adopted);
  const UtfNames folders = out_of_date.empty() ? UtfNames() : names.possible_folders();
  unsigned long removed = 0;
  for (const auto& [key, stored] : out_of_date) {
    const std::string logical(index_format::logical_of(key));
    const long timestamp = index_format::timestamp_of(key);
    const std::string file = name_on_disk(key, stored);
    // Another process may have written the document since the first check.
    if (limit != 0 && selection.keeps(key, file)) continue;
    ++removed;
    VU_TRACE_XS("          Removing entry=", logical, " ts=", timestamp, " nameOnFS=", file);
    index._remove(logical, timestamp);
    const auto [first, last] = with_prefix(folders, file + "_");
    for (auto it = first; it != last; ++it) index.m_state->file_changes(it->str());
    cleanOutputDirectories(base, UtfNames(first, last), file, nullptr);
  }

  // The second load changes nothing if there is no orphan and nothing to adopt. A missing folder is
  // reported by both loads.
  const UtfNames orphans = limit != 0 ? names.orphans() : UtfNames();
  if (limit != 0) report_if_not_listed(index.m_state->files());
  const bool is_needed = index.m_state->loaded() == nullptr || !orphans.empty() || has_adopted ||
                         (removed != 0 && synchronizes() && uncovers_file(*index.m_state));
  if (!is_needed) return removed;

  // Required: the sweep loads the index a second time. If that load adopts a file, its save waits
  // for all locks on the index. It would wait for this instance's lock for ever.
  index.close();
  {
    const STGIndex second_look(folder);
    sweep_orphans(*index.m_state, *second_look.m_state, base, orphans, {now, limit, useAccessTime});
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
