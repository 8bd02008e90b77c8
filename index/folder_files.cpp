#include "index/folder_files.h"

#include "file/folder_entries.h"
#include "vu_file.h"

namespace {

/// Longer than any name that a system takes (32,767 characters on Windows, 4,095 bytes on Linux).
constexpr std::size_t kBeyondAnyName = 32768;

}  // namespace

const std::vector<os::Entry>& FolderFiles::entries() {
  if (!m_listed) {
    m_entries = folder_entries(m_folder);
    m_accounted_for.resize(m_entries.size());
    m_names.reserve(m_entries.size());
    for (std::size_t i = 0; i < m_entries.size(); ++i) m_names.emplace(m_entries[i].name, i);
    m_listed = true;
  }
  return m_entries;
}

std::size_t FolderFiles::listed(std::string_view name) {
  entries();
  const auto it = m_names.find(name);
  return it == m_names.end() ? kNotListed : it->second;
}

FolderFiles::Match FolderFiles::match(std::string_view key, std::string_view stored) {
  if (key.size() < index_format::kStampLength) return {};
  const std::string_view extension = index_format::extension_of(index_format::logical_of(key));
  if (!extension.empty()) {
    m_buffer.assign(stored).append(extension);
    if (const std::size_t entry = listed(m_buffer); entry != kNotListed) return {true, entry, true};
  }
  if (const std::size_t entry = listed(stored); entry != kNotListed) return {true, entry, false};
  return {probe_is_valid(stored, extension), kNotListed, false};
}

bool FolderFiles::is_valid(std::string_view key, std::string_view stored) {
  return match(key, stored).valid;
}

bool FolderFiles::runs_on_into_a_name(const index_format::Line& line) {
  if (line.key.size() < index_format::kStampLength || line.stored.size() >= kBeyondAnyName) return false;
  // Required: such a line counts when a file bears the rest of the text as its name. Only the end of
  // the key is searched for its dot: an extension that reaches further back is no name's end.
  std::string_view logical = index_format::logical_of(line.key);
  if (logical.size() > kBeyondAnyName) logical.remove_prefix(logical.size() - kBeyondAnyName);

  // Lines that share their "/" are asked for in order and get shorter: the dot found for the first of
  // them stays the last one until a line begins behind it, and from there on there is none.
  RunningOn& last = m_last_running_on;
  const bool same_rest = last.separator == line.separator;
  const std::size_t extension_length =
      !same_rest                                ? index_format::extension_of(logical).size()
      : last.extension_length <= logical.size() ? last.extension_length
                                                : 0;
  if (!same_rest || last.extension_length != extension_length) {
    last = {line.separator, extension_length,
            probe_is_valid(line.stored, logical.substr(logical.size() - extension_length))};
  }
  return last.valid;
}

bool FolderFiles::probe_is_valid(std::string_view stored, std::string_view extension) {
  m_buffer.assign(m_folder).append("\\").append(stored);
  if (vu_file::exists(m_buffer)) return true;
  if (extension.empty()) return false;
  m_buffer.append(extension);
  return vu_file::exists(m_buffer);
}

bool FolderFiles::load(std::string_view text, std::map<std::string, std::string>& lp,
                       std::map<std::string, std::string>& pl) {
  bool complete = true;
  index_format::Lines lines(text);
  index_format::Line line;
  while (lines.next(line)) {
    const Match found = line.runs_on ? Match{runs_on_into_a_name(line)} : match(line.key, line.stored);
    if (!found.valid) {
      complete = false;
      continue;
    }
    // Written in key order: the end is nearly always the place.
    const std::size_t known = lp.size() + pl.size();
    lp.emplace_hint(lp.end(), line.key, line.stored);
    const auto by_name = pl.emplace_hint(pl.end(), line.stored, line.key);
    if (lp.size() + pl.size() != known + 2) complete = false;

    if (found.entry == kNotListed) continue;
    const bool found_in_folder = by_name->second == line.key &&
                                 index_format::timestamp_of(line.key) == 0 &&
                                 index_format::logical_of(line.key) == line.stored;
    if (found.has_extension || found_in_folder) m_accounted_for[found.entry] = true;
  }
  return complete;
}
