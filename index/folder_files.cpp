#include "index/folder_files.h"

#include "file/folder_entries.h"

namespace {

/// Longer than any name that a system takes (32,767 characters on Windows, 4,095 bytes on Linux).
constexpr std::size_t kBeyondAnyName = 32768;

/// The extension of a key's logical name; empty also for what is too short to be a key.
std::string_view extension_of_line(std::string_view key) {
  if (key.size() < index_format::kStampLength) return {};
  return index_format::extension_of(index_format::logical_of(key));
}

}  // namespace

const std::vector<os::Entry>& FolderFiles::entries() {
  if (!m_listed) {
    m_entries = folder_entries(m_folder);
    m_names = EntryTable(m_entries);
    m_claims.resize(m_entries.size());
    m_listed = true;
  }
  return m_entries;
}

void FolderFiles::judge(std::span<const IndexEntry> lines, std::array<Match, kTogether>& found) {
  entries();
  std::array<std::uint64_t, kTogether> hashes{};
  for (std::size_t i = 0; i < lines.size(); ++i) {
    m_candidates[i].assign(lines[i].stored).append(extension_of_line(lines[i].key));
    hashes[i] = m_names.ask(m_candidates[i]);
  }
  for (std::size_t i = 0; i < lines.size(); ++i) m_names.fetch(hashes[i]);
  for (std::size_t i = 0; i < lines.size(); ++i)
    found[i] = match(lines[i], m_candidates[i], hashes[i]);
}

FolderFiles::Match FolderFiles::match(const IndexEntry& line, std::string_view candidate,
                                      std::uint64_t hash) {
  if (line.key.size() < index_format::kStampLength) return {};
  const std::string_view extension = extension_of_line(line.key);
  std::size_t entry = m_names.find(candidate, hash);
  if (entry != EntryTable::kNone) return {true, entry, !extension.empty()};
  if (!extension.empty()) entry = m_names.find(line.stored, m_names.ask(line.stored));
  if (entry != EntryTable::kNone) return {true, entry, false};
  return {probe_is_valid(line.stored, extension), EntryTable::kNone, false};
}

bool FolderFiles::is_valid(std::string_view key, std::string_view stored) {
  const IndexEntry line{key, stored};
  std::array<Match, kTogether> found;
  judge({&line, 1}, found);
  return found.front().valid;
}

bool FolderFiles::runs_on_into_a_name(const index_format::Line& line) {
  if (line.key.size() < index_format::kStampLength || line.stored.size() >= kBeyondAnyName)
    return false;
  // Required: such a line counts when a file bears the rest of the text as its name. Only the end of
  // the key is searched for its dot: an extension that reaches further back is no name's end.
  std::string_view logical = index_format::logical_of(line.key);
  if (logical.size() > kBeyondAnyName) logical.remove_prefix(logical.size() - kBeyondAnyName);

  // Lines that share their "/" are asked for in order and get shorter: the dot found for the first of
  // them stays the last one until a line begins behind it, and from there on there is none.
  RunningOn& last = m_last_running_on;
  const bool same_rest = last.separator == line.separator;
  const std::size_t extension_length = !same_rest ? index_format::extension_of(logical).size()
                                       : last.extension_length <= logical.size()
                                           ? last.extension_length
                                           : 0;
  if (!same_rest || last.extension_length != extension_length) {
    last = {line.separator, extension_length,
            probe_is_valid(line.stored, logical.substr(logical.size() - extension_length))};
  }
  return last.valid;
}

bool FolderFiles::probe_is_valid(std::string_view stored, std::string_view extension) {
  m_buffer.assign(m_folder).append("\\").append(stored);
  if (probe(m_buffer)) return true;
  if (extension.empty()) return false;
  m_buffer.append(extension);
  return probe(m_buffer);
}

bool FolderFiles::probe(const std::string& path) {
  const os::Status status = find_entry(path);
  if (status.failure() == os::Failure::kOther) m_is_sure = false;
  return status.ok();
}

void FolderFiles::load(LoadedIndex& index) {
  index_format::Lines lines(index.text);
  std::array<index_format::Line, kTogether> some;
  std::size_t count = 0;
  while (lines.next(some[count])) {
    if (++count < kTogether) continue;
    add(index, some);
    count = 0;
  }
  add(index, std::span(some).first(count));
  if (!index.ascending) index.complete = false;
}

void FolderFiles::add(LoadedIndex& index, std::span<const index_format::Line> lines) {
  if (lines.empty()) return;
  std::array<IndexEntry, kTogether> entries_of_lines;
  std::array<Match, kTogether> found;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    // A line that runs on is asked for in a way of its own: its stored name may be the whole text.
    if (!lines[i].runs_on) entries_of_lines[i] = {lines[i].key, lines[i].stored};
  }
  judge(std::span(entries_of_lines).first(lines.size()), found);
  if (index.entries.empty()) index.entries.reserve(m_entries.size());

  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].runs_on) found[i] = {runs_on_into_a_name(lines[i])};
    // It is left to whoever reads the text again.
    if (!found[i].valid || lines[i].runs_on) index.complete = false;
    if (!found[i].valid) continue;

    const IndexEntry entry{lines[i].key, lines[i].stored};
    if (!index.entries.empty() && index.entries.back().key >= entry.key) index.ascending = false;
    index.entries.push_back(entry);
    if (found[i].entry != EntryTable::kNone) claim(found[i], entry);
  }
}

void FolderFiles::claim(const Match& found, const IndexEntry& line) {
  Claim& claim = m_claims[found.entry];
  if (found.has_extension) {
    claim = Claim::kAccountedFor;
    m_has_dotted_stem = m_has_dotted_stem || line.stored.find('.') != std::string_view::npos;
    return;
  }
  // Of several lines with one stored name the first one counts; where that may have been found under
  // another entry, nothing is said.
  const bool is_adopted = index_format::timestamp_of(line.key) == 0 &&
                          index_format::logical_of(line.key) == line.stored;
  if (claim == Claim::kNone) {
    claim = is_adopted && !m_has_dotted_stem ? Claim::kAccountedFor : Claim::kByAnother;
  }
}
