#include "index/index_reader.h"

#include <utility>

namespace {

using index_format::extension_of;
using index_format::logical_of;

/// Longer than any name that a system takes (32,767 characters on Windows, 4,095 bytes on Linux).
constexpr std::size_t kBeyondAnyName = 32768;

bool is_key(std::string_view key) { return key.size() >= index_format::kStampLength; }

/// The extension of a key's logical name; empty also for what is too short to be a key.
std::string_view extension_of_key(std::string_view key) {
  return is_key(key) ? extension_of(logical_of(key)) : std::string_view();
}

LineState state_of(Presence presence) {
  if (presence == Presence::kThere) return LineState::kValid;
  return presence == Presence::kUnknown ? LineState::kUnknown : LineState::kMissing;
}

/// The stored name itself or that with the extension; asked of the system, the likelier one first.
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
  // Missing is a line only where both answers say so.
  return second == LineState::kMissing ? first : second;
}

LineState probe(std::string_view key, std::string_view stored, FolderFiles& files) {
  return probe(stored, extension_of_key(key), logical_of(key) == stored, files);
}

}  // namespace

LineState state_by_listing(std::string_view key, std::string_view stored, FolderFiles& files) {
  if (!is_key(key)) return LineState::kNone;
  const std::string_view extension = extension_of_key(key);
  const std::string extended = std::string(stored).append(extension);
  for (const std::string_view name : {std::string_view(extended), stored}) {
    if (files.listed(name, files.ask(name)) != FolderFiles::kNone) return LineState::kValid;
  }
  return probe(key, stored, files);
}

LineState state_by_probing(std::string_view key, std::string_view stored, FolderFiles& files) {
  return is_key(key) ? probe(key, stored, files) : LineState::kNone;
}

bool IndexReader::next(IndexLine& line) {
  if (m_next == m_count) read_some();
  if (m_next == m_count) return false;
  line = m_some[m_next++];
  return true;
}

void IndexReader::read_some() {
  std::array<std::size_t, kTogether> separators{};
  std::array<std::uint64_t, kTogether> hashes{};
  m_next = 0;
  index_format::Line parsed;
  for (m_count = 0; m_count < kTogether && m_lines.next(parsed); ++m_count) {
    IndexLine& line = m_some[m_count] = {};
    line.key = parsed.key;
    line.stored = parsed.stored;
    line.runs_on = parsed.runs_on;
    separators[m_count] = parsed.separator;
    if (line.runs_on || !is_key(line.key)) continue;
    m_candidates[m_count].assign(line.stored).append(extension_of_key(line.key));
    hashes[m_count] = m_files.ask(m_candidates[m_count]);
  }
  for (std::size_t i = 0; i < m_count; ++i) m_files.fetch(hashes[i]);

  for (std::size_t i = 0; i < m_count; ++i) {
    IndexLine& line = m_some[i];
    if (!is_key(line.key)) continue;
    if (line.runs_on) {
      judge_running_on(line, separators[i]);
      continue;
    }
    const std::string_view extension = extension_of_key(line.key);
    line.entry = m_files.listed(m_candidates[i], hashes[i]);
    line.has_extension = line.entry != FolderFiles::kNone && !extension.empty();
    if (line.entry == FolderFiles::kNone && !extension.empty())
      line.entry = m_files.listed(line.stored, m_files.ask(line.stored));
    line.state = line.entry != FolderFiles::kNone ? LineState::kValid
                                                  : probe(line.key, line.stored, m_files);
  }
}

void IndexReader::judge_running_on(IndexLine& line, std::size_t separator) {
  if (line.stored.size() >= kBeyondAnyName) return;
  // Required: such a line counts when a file bears the rest of the text as its name. Only the end
  // of the key is searched for its dot: an extension that reaches further back is no name's end.
  std::string_view logical = logical_of(line.key);
  if (logical.size() > kBeyondAnyName) logical.remove_prefix(logical.size() - kBeyondAnyName);

  // Lines that share one "/" are met in order, and each is shorter than the one before:
  //
  //     a.b\n\nc_0000000001/x   gives the keys "a.b\n\nc...", "\nc..." and "c..."
  //
  // So the last dot of the first one is the last dot of the others until a line begins behind it.
  RunningOn& last = m_last_running_on;
  const bool same_rest = last.separator == separator;
  const std::size_t extension_length = !same_rest ? extension_of(logical).size()
                                       : last.extension_length <= logical.size()
                                           ? last.extension_length
                                           : 0;
  if (!same_rest || last.extension_length != extension_length) {
    const std::string_view extension = logical.substr(logical.size() - extension_length);
    last = {separator, extension_length, probe(line.stored, extension, false, m_files)};
  }
  // What the system does not tell about is no entry here: the line has no "/" of its own to be
  // kept.
  if (last.state != LineState::kValid) return;
  line.state = LineState::kValid;
  line.entry = m_files.listed(line.stored, m_files.ask(line.stored));
}

IndexReading::IndexReading(std::string index_text, FolderFiles& files)
    : text(std::move(index_text)) {
  IndexReader reader(text, files);
  IndexLine line;
  std::string_view last_key;
  while (reader.next(line)) {
    // It may become an entry by a file that is made meanwhile, so its text is read again.
    ascending = ascending && !line.runs_on;
    if (line.state == LineState::kNone) continue;
    if (lines.empty()) lines.reserve(files.entries().size());
    if (line.state == LineState::kMissing) ++missing;
    if (line.state == LineState::kUnknown) ++unknown;
    if (line.state == LineState::kValid) {
      ascending = ascending && (last_key.data() == nullptr || last_key < line.key);
      last_key = line.key;
    }
    lines.push_back(line);
  }
}
