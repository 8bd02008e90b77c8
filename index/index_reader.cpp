#include "index/index_reader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

#include "index/scan.h"

namespace {

using index_format::extension_of;
using index_format::logical_of;

/// Longer than any name that a system accepts (32,767 characters on Windows, 4,095 bytes on Linux).
constexpr std::size_t kBeyondAnyName = 32768;

bool is_key(std::string_view key) { return key.size() >= index_format::kStampLength; }

/// The extension of a key's logical name; empty if the key is too short.
std::string_view extension_of_key(std::string_view key) {
  return is_key(key) ? extension_of(logical_of(key)) : std::string_view();
}

LineState state_of(Presence presence) {
  if (presence == Presence::kThere) return LineState::kValid;
  return presence == Presence::kUnknown ? LineState::kUnknown : LineState::kMissing;
}

/// Checks the physical name and that name with the extension, the likelier one first.
LineState probe(std::string_view stored, std::string_view extension, bool is_own_name,
                FolderFiles& files) {
  const auto plain = [&] { return state_of(files.probe(stored)); };
  if (extension.empty()) return plain();
  const auto extended = [&] {
    return state_of(files.probe(std::string(stored).append(extension)));
  };
  const LineState first = is_own_name ? plain() : extended();
  if (first == LineState::kValid) return first;
  const LineState second = is_own_name ? extended() : plain();
  // A line is missing only if both names are missing.
  return second == LineState::kMissing ? first : second;
}

LineState probe(std::string_view key, std::string_view stored, FolderFiles& files) {
  return probe(stored, extension_of_key(key), logical_of(key) == stored, files);
}

/// Judges a line whose likelier file name is not in the listing. That is the physical name with the
/// extension if has_extension is set, otherwise without.
void find_otherwise(IndexLine& line, FolderFiles& files) {
  if (line.has_extension) line.file = files.listed(line.stored, files.ask(line.stored));
  line.has_extension = false;
  if (line.file == FolderFiles::kNone) line.state = probe(line.key, line.stored, files);
}

}  // namespace

LineState state_by_listing(std::string_view key, std::string_view stored, FolderFiles& files) {
  if (!is_key(key)) return LineState::kNone;
  const auto is_listed = [&](std::string_view name) {
    return files.listed(name, files.ask(name)) != FolderFiles::kNone;
  };
  const auto is_extended_listed = [&] {
    return is_listed(std::string(stored).append(extension_of_key(key)));
  };
  // The likelier name first.
  const bool is_own_name = logical_of(key) == stored;
  const bool found = is_own_name ? is_listed(stored) || is_extended_listed()
                                 : is_extended_listed() || is_listed(stored);
  return found ? LineState::kValid : probe(key, stored, files);
}

LineState state_by_probing(std::string_view key, std::string_view stored, FolderFiles& files) {
  return is_key(key) ? probe(key, stored, files) : LineState::kNone;
}

LineState state_by_probing(const index_format::Line& line, FolderFiles& files) {
  if (!line.runs_on) return state_by_probing(line.key, line.stored, files);
  if (!is_key(line.key) || line.stored.size() >= kBeyondAnyName) return LineState::kNone;
  const LineState state = probe(line.stored, extension_of_key(line.key), false, files);
  return state == LineState::kValid ? state : LineState::kNone;
}

inline std::string_view IndexReader::file_name(FileName& room, std::string_view stored,
                                               std::string_view extension) {
  if (extension.empty()) return stored;
  const std::size_t size = stored.size() + extension.size();
  if (size <= room.bytes.size()) {
    std::copy(extension.begin(), extension.end(),
              std::copy(stored.begin(), stored.end(), room.bytes.data()));
    return {room.bytes.data(), size};
  }
  room.longer.assign(stored).append(extension);
  return room.longer;
}

std::span<const IndexLine> IndexReader::next_lines() {
  std::array<std::string_view, kTogether> names;
  std::array<std::uint64_t, kTogether> hashes;
  std::size_t count = 0;
  bool any_runs_on = false;
  index_format::Line parsed;
  for (; count < kTogether && m_lines.next(parsed); ++count) {
    IndexLine& line = m_some[count];
    line = {parsed.key, parsed.stored, LineState::kNone, parsed.runs_on};
    any_runs_on = any_runs_on || parsed.runs_on;
    hashes[count] = 0;
    if (!is_key(line.key) || line.runs_on) continue;
    names[count] = file_name(m_names[count], line.stored, extension_of(logical_of(line.key)));
    hashes[count] = m_files.ask(names[count]);
  }
  for (std::size_t i = 0; i < count; ++i) m_files.fetch(hashes[i]);
  for (std::size_t i = 0; i < count; ++i) {
    IndexLine& line = m_some[i];
    if (!is_key(line.key)) continue;
    if (any_runs_on && line.runs_on) {
      judge_running_on(line);
    } else {
      line.has_extension = names[i].data() != line.stored.data();
      line.file = m_files.listed(names[i], hashes[i]);
      line.state = LineState::kValid;
      if (line.file == FolderFiles::kNone) find_otherwise(line, m_files);
    }
  }
  return {m_some.data(), count};
}

void IndexReader::judge_running_on(IndexLine& line) {
  if (line.stored.size() >= kBeyondAnyName) return;
  // Required: such a line is an entry if the rest of the text is the name of a file. Only the end
  // of the key is searched for a dot: no file name ends in a longer extension.
  std::string_view logical = logical_of(line.key);
  if (logical.size() > kBeyondAnyName) logical.remove_prefix(logical.size() - kBeyondAnyName);

  // Lines that share one "/" come one after the other, and each is shorter than the one before:
  //
  //     a.b\n\nc_0000000001/x   has the keys "a.b\n\nc...", "\nc..." and "c..."
  //
  // So all of them end in the extension of the first one, as long as they contain its dot. A line
  // that begins after this dot has no extension.
  RunningOn& last = m_last_running_on;
  const auto separator = static_cast<std::size_t>(line.stored.data() - m_text.data());
  const bool same_rest = last.separator == separator;
  const std::size_t extension_length = !same_rest ? extension_of(logical).size()
                                       : last.extension_length <= logical.size()
                                           ? last.extension_length
                                           : 0;
  if (!same_rest || last.extension_length != extension_length) {
    const std::string_view extension = logical.substr(logical.size() - extension_length);
    last = {separator, extension_length, probe(line.stored, extension, false, m_files)};
  }
  // This line cannot be an unknown entry: a line without its own "/" cannot be written back.
  if (last.state != LineState::kValid) return;
  line.state = LineState::kValid;
  line.file = m_files.listed(line.stored, m_files.ask(line.stored));
}

IndexReading::IndexReading(std::string_view index_text, FolderFiles& files) : text(index_text) {
  IndexReader reader(text, files, read_plain_lines(files));
  for (auto some = reader.next_lines(); !some.empty(); some = reader.next_lines()) {
    for (const IndexLine& line : some) {
      any_runs_on = any_runs_on || line.runs_on;
      if (line.state == LineState::kNone) continue;
      lines.push_back(line);
      count(line);
    }
  }
}

IndexReading::IndexReading(std::string_view index_text, FolderFiles& files,
                           const IndexReading& before, const FileSet& changed)
    : text(index_text) {
  lines.reserve(before.lines.size() + before.lines.size() / 8);
  std::vector<std::size_t> doubtful;
  auto earlier = before.lines.begin();
  const auto was_valid = [&](const IndexLine& line) {
    // Both texts are in order, or nearly so. A line that is not found here is judged.
    while (earlier != before.lines.end() && earlier->key < line.key) ++earlier;
    return earlier != before.lines.end() && earlier->key == line.key &&
           earlier->stored == line.stored && earlier->file != FolderFiles::kNone &&
           !changed.contains(earlier->file);
  };
  index_format::Lines all(text);
  index_format::Line parsed;
  while (all.next(parsed)) {
    any_runs_on = any_runs_on || parsed.runs_on;
    if (any_runs_on) return;
    if (!is_key(parsed.key)) continue;
    lines.push_back({parsed.key, parsed.stored, LineState::kValid});
    if (!was_valid(lines.back())) doubtful.push_back(lines.size() - 1);
  }
  // A few checks cost less than the listing of a large folder.
  is_listed = doubtful.size() > 8 + lines.size() / 8;
  for (const std::size_t i : doubtful) {
    IndexLine& line = lines[i];
    line.state = is_listed ? state_by_listing(line.key, line.stored, files)
                           : state_by_probing(line.key, line.stored, files);
  }
  for (const IndexLine& line : lines) count(line);
}

inline void IndexReading::count(const IndexLine& line) {
  if (line.state == LineState::kValid) {
    // At the first line the last key is empty, and no key is.
    ascending = ascending && scan::stands_before(m_last_key, line.key);
    m_last_key = line.key;
    return;
  }
  if (line.state == LineState::kMissing) ++missing;
  if (line.state == LineState::kUnknown) ++unknown;
}

void IndexReading::revise(IndexLine& line, LineState state) {
  line.state = state;
  if (state != LineState::kValid) count(line);
}

/// An estimate: one line for each file, but at most as many lines as the text can contain.
std::size_t IndexReading::likely_lines(FolderFiles& files) const {
  constexpr std::size_t kShortest = index_format::kStampLength + 2;
  return std::min(files.listing().size(), text.size() / kShortest) + 1;
}

/// Reads the plain lines at the start: with their own "/", a key, and short names. Nearly all lines
/// are plain. Several are looked up together, so that the processor waits for memory once.
/// @return where the first other line begins.
std::size_t IndexReading::read_plain_lines(FolderFiles& files) {
  constexpr std::size_t kTogether = 16;
  constexpr std::size_t kPiece = 16;
  std::array<std::array<char, 2 * kPiece>, kTogether> names;
  std::array<std::uint8_t, kTogether> sizes;
  std::array<std::uint64_t, kTogether> hashes;
  const char* at = text.data();
  // From any line that begins before this place, two pieces of a fixed size can be copied.
  const char* const last = text.data() + text.size() - std::min(text.size(), 2 * kPiece);
  for (bool is_plain = true; is_plain;) {
    const std::size_t first = lines.size();
    std::size_t together = 0;
    for (; together < kTogether; ++together) {
      is_plain = false;
      const char* const slash = scan::first_of(at, last, '/', '\n');
      if (slash == nullptr || *slash != '/') break;
      const char* const end = scan::first_of(slash + 1, last, '\n', '\n');
      if (end == nullptr) break;
      const std::string_view key(at, static_cast<std::size_t>(slash - at));
      const std::string_view stored(slash + 1, static_cast<std::size_t>(end - slash - 1));
      if (!is_key(key) || stored.size() > kPiece) break;
      const std::string_view extension = extension_of(logical_of(key));
      if (extension.size() > kPiece) break;
      is_plain = true;
      if (lines.capacity() == 0) lines.reserve(likely_lines(files));

      char* const name = names[together].data();
      std::memcpy(name, stored.data(), kPiece);
      if (!extension.empty()) std::memcpy(name + stored.size(), extension.data(), kPiece);
      sizes[together] = static_cast<std::uint8_t>(stored.size() + extension.size());
      hashes[together] = files.ask({name, sizes[together]});
      lines.push_back({key, stored, LineState::kValid, false, !extension.empty()});
      at = end + 1;
    }
    for (std::size_t i = 0; i < together; ++i) files.fetch(hashes[i]);
    for (std::size_t i = 0; i < together; ++i) {
      IndexLine& line = lines[first + i];
      line.file = files.listed({names[i].data(), sizes[i]}, hashes[i]);
      if (line.file == FolderFiles::kNone) find_otherwise(line, files);
      count(line);
    }
  }
  return static_cast<std::size_t>(at - text.data());
}

EntriesByKey::EntriesByKey(const IndexReading& reading) {
  if (reading.ascending && reading.missing == 0 && reading.unknown == 0) {
    m_entries = reading.lines;
    return;
  }
  m_sorted.reserve(reading.lines.size());
  for (const IndexLine& line : reading.lines) {
    if (line.state == LineState::kValid) m_sorted.push_back(line);
  }
  if (!reading.ascending) {
    const auto by_key = [](const IndexLine& a, const IndexLine& b) { return a.key < b.key; };
    const auto same_key = [](const IndexLine& a, const IndexLine& b) { return a.key == b.key; };
    std::stable_sort(m_sorted.begin(), m_sorted.end(), by_key);
    m_sorted.erase(std::unique(m_sorted.begin(), m_sorted.end(), same_key), m_sorted.end());
  }
  m_entries = m_sorted;
}
