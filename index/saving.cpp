#include "index/saving.h"

#include <algorithm>
#include <exception>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/index_source.h"
#include "platform/host/trace.h"

// The way of a changed index back to its file, from top to bottom: open, read, merge, judge, write,
// and remove what was replaced.

namespace {

using NameMap = IndexState::NameMap;

/// So many lines at most are asked for one by one: beyond, a listing of the folder costs less.
constexpr std::size_t kAskedSingly = 4;
/// So many unknown lines are named.
constexpr std::size_t kNamed = 8;

/// The entries of a text, the first line of each key.
std::vector<IndexLine> entries_of(const IndexReading& reading) {
  std::vector<IndexLine> entries;
  entries.reserve(reading.lines.size());
  for (const IndexLine& line : reading.lines) {
    if (line.state == LineState::kValid) entries.push_back(line);
  }
  if (reading.ascending) return entries;
  const auto by_key = [](const IndexLine& a, const IndexLine& b) { return a.key < b.key; };
  const auto same_key = [](const IndexLine& a, const IndexLine& b) { return a.key == b.key; };
  std::stable_sort(entries.begin(), entries.end(), by_key);
  entries.erase(std::unique(entries.begin(), entries.end(), same_key), entries.end());
  return entries;
}

}  // namespace

void report_unknown_line(const std::string& folder, std::string_view key, std::string_view stored) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  VU_ERROR("STGIndex: a line stays, for the system does not tell whether its file is there: ",
           folder, "\\", kIndexFile, ": ", key, "/", stored);
}

void report_unknown_lines(const IndexReading& reading, const std::string& folder) {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  std::size_t named = 0;
  for (const IndexLine& line : reading.lines) {
    if (line.state != LineState::kUnknown) continue;
    if (named++ == kNamed) break;
    report_unknown_line(folder, line.key, line.stored);
  }
  if (reading.unknown > kNamed)
    VU_ERROR("STGIndex: more lines stay for the same reason: ", reading.unknown - kNamed);
}

class IndexSave {
 public:
  IndexSave(vu_file& index, IndexState& state)
      : m_index(index), m_state(state), m_files(state.folder()) {}

  Saved run() {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    VU_TRACE_M(" STGIndex: (begin) updating index.dat ...");
    VU_TRACE_M("  folder : ", m_state.folder());
    if (!open()) return Saved::kNotOpened;
    Saved saved = replace();
    std::exception_ptr raised;
    if (saved == Saved::kYes) {
      // Nobody else may merge before these files have gone: their lines would be valid for him.
      const IndexState::Removal removal = m_state.remove_replaced_files();
      raised = removal.raised;
      // A file that the system keeps makes its line valid again.
      if (!removal.are_gone) {
        IndexSave again(m_index, m_state);
        m_index.rewind();
        saved = again.replace();
        m_outcome = again.m_outcome;
      }
    }
    close_replaced(m_index, m_outcome);
    VU_TRACE_M(" STGIndex: (end) index.dat is uptodate");  // sic
    VU_TRACE_M("  folder : ", m_state.folder());
    if (raised) std::rethrow_exception(raised);
    return saved;
  }

 private:
  // ---- open and read -------------------------------------------------------------------------

  bool open() {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    try {
      m_index.open(vu_file::o_append);
      return true;
    } catch (const vu_file_except& e) {
      VU_WARNING(
          "STGIndex::~STGIndex(): Unable to create/update index.dat - "
          "please verify that you have write access and disk is not full."
          "\n Reason: ",
          e.what());
      return false;
    }
  }

  FileText read() {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    try {
      return read_to_end(m_index);
    } catch (const vu_file_except&) {
      VU_ERROR("STGIndex: index.dat is left as it is, for it cannot be read to its end: ",
               m_state.folder());
      throw;
    }
  }

  // ---- replace -------------------------------------------------------------------------------

  Saved replace() {
    const FileText bytes = read();
    std::string storage;
    find_doubtful();
    make_swept_files_again();
    merge(std::string(replacement::text_of(bytes.view(), storage)));
    m_outcome = replace_text(m_index, bytes.view(), text());
    return m_outcome.holds == replacement::Holds::kNewText ? Saved::kYes : Saved::kNotWritten;
  }

  // ---- what was swept --------------------------------------------------------------------------

  /// A clean that did not find an entry of this operation in the index may have swept its file.
  /// Now nobody sweeps, for the index is locked: so the file is made again, and stays.
  void make_swept_files_again() {
    m_made = std::exchange(m_state.m_made, {});
    for (const auto& [key, how] : m_made) {
      const std::string* const stored = m_state.find(key);
      if (stored == nullptr) continue;
      if (judge(key, *stored) == LineState::kMissing && !make_again(key, *stored, how.source)) {
        m_state.keep_file(how.source);
        m_state.keep_file(how.replaced);
        m_state.withdraw(key);
      } else {
        m_sure.insert(key);
      }
    }
  }

  /// @return whether the file is there.
  bool make_again(const std::string& key, const std::string& stored, const std::string& source) {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    const std::string file = index_format::file_name_of(key, stored);
    VU_WARNING("STGIndex: made again, for it was removed before the index named it: ",
               m_state.folder(), "\\", file);
    if (source.empty()) {
      try {
        vu_file empty(m_state.folder(), file);
        empty.open(vu_file::o_append);
        empty.close();
      } catch (const vu_file_except&) {
        return false;  // traced by the handle
      }
      return true;
    }
    if (copy_and_flush(m_state.folder(), source, file)) return true;
    VU_ERROR("STGIndex: rename: copy failed: ", m_state.folder(), "\\", source);
    return false;
  }

  // ---- merge ---------------------------------------------------------------------------------

  /// Takes over what others wrote since the loading.
  void merge(std::string text) {
    const IndexReading* loaded = m_state.loaded();
    // Out of order, a text may have two lines of one key, of which the second one may count by now.
    if (loaded != nullptr && loaded->ascending && text == loaded->text) {
      merge_what_was_dropped(*loaded);
      return;
    }
    m_on_disk.emplace(std::move(text), m_files);
    if (m_on_disk->unknown != 0) report_unknown_lines(*m_on_disk, m_state.folder());
    m_judges_all = true;
    m_is_listed = !m_on_disk->lines.empty();
    take_out_what_leads_to_files_to_remove();
    const NameMap& lp = m_state.lp();
    auto mine = lp.begin();
    for (const IndexLine& line : entries_of(*m_on_disk)) {
      while (mine != lp.end() && mine->first < line.key) ++mine;
      const bool is_known =
          mine != lp.end() && mine->first == line.key && mine->second == line.stored;
      if (!is_known) merge_entry(line);
    }
  }

  /// A file that goes behind the new text is there yet: its lines must not keep out the next ones
  /// of their keys.
  void take_out_what_leads_to_files_to_remove() {
    if (m_state.m_files_to_remove.empty()) return;
    for (IndexLine& line : m_on_disk->lines) {
      if (line.state == LineState::kValid && leads_to_a_file_to_remove(line))
        line.state = judge(line.key, line.stored);
    }
  }

  bool leads_to_a_file_to_remove(const IndexLine& line) const {
    const auto& files = m_state.m_files_to_remove;
    return files.contains(std::string(line.stored)) ||
           files.contains(index_format::file_name_of(line.key, line.stored));
  }

  /// The file holds the very text that was loaded. So only a line that is no entry any more, or was
  /// none then, can be new: its file may be there by now.
  void merge_what_was_dropped(const IndexReading& loaded) {
    std::vector<IndexState::Entry>& erased = m_state.m_erased;
    std::sort(erased.begin(), erased.end());
    m_is_listed = erased.size() + loaded.missing > kAskedSingly;
    for (const IndexLine& line : loaded.lines) {
      if (line.state == LineState::kUnknown) continue;
      if (line.state == LineState::kValid) {
        // Most operations erase no entry or one.
        if (erased.empty()) continue;
        const auto at = std::lower_bound(
            erased.begin(), erased.end(), line, [](const auto& entry, const IndexLine& wanted) {
              return std::pair<std::string_view, std::string_view>(entry.first, entry.second) <
                     std::pair(wanted.key, wanted.stored);
            });
        if (at == erased.end() || at->first != line.key || at->second != line.stored) continue;
      }
      switch (judge(line.key, line.stored)) {
        case LineState::kValid:
          merge_entry(line);
          break;
        case LineState::kUnknown:
          m_unknown.push_back(line);
          break;
        default:
          break;
      }
    }
  }

  void merge_entry(const IndexLine& line) {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    IndexState::Maps& maps = m_state.maps();
    const auto [mine, is_new] = maps.lp.emplace(line.key, line.stored);
    if (!is_new) {
      if (mine->second == line.stored) return;
      // Somebody may have removed the entry since it was loaded here, and made it anew: a line of
      // mine whose file is gone must not keep the new one out. Where nobody knows both stay.
      const LineState state = judge(line.key, mine->second);
      if (state == LineState::kUnknown) m_unknown.push_back(line);
      if (state != LineState::kMissing) return;
      maps.pl.erase(mine->second);
      mine->second = line.stored;
    }
    VU_TRACE_M(" add in my maps ", line.key, "/", line.stored);
    maps.pl.emplace(line.stored, line.key);
  }

  // ---- judge ---------------------------------------------------------------------------------

  LineState judge(std::string_view key, std::string_view stored) {
    const LineState state = !m_state.m_files_to_remove.empty()
                                ? judge_without_files_to_remove(key, stored)
                            : m_is_listed ? state_by_listing(key, stored, m_files)
                                          : state_by_probing(key, stored, m_files);
    if (state == LineState::kUnknown && m_named++ < kNamed)
      report_unknown_line(m_state.folder(), key, stored);
    return state;
  }

  /// The keys whose lines are judged again though the loading did: those of the operation itself,
  /// and those that may lead to a file that it has changed.
  void find_doubtful() {
    m_doubtful.insert(m_state.m_doubtful.begin(), m_state.m_doubtful.end());
    const IndexReading* loaded = m_state.loaded();
    if (loaded == nullptr || m_state.m_changed.empty()) return;
    for (const IndexLine& line : loaded->lines) {
      const bool may_lead_there =
          line.entry == FolderFiles::kNone || m_state.m_changed.contains(line.entry);
      if (may_lead_there && line.state == LineState::kValid) m_doubtful.insert(line.key);
    }
  }

  LineState judge_without_files_to_remove(std::string_view key, std::string_view stored) {
    if (key.size() < index_format::kStampLength) return LineState::kNone;
    const std::string_view extension = index_format::extension_of(index_format::logical_of(key));
    LineState state = LineState::kMissing;
    for (const std::string& name : {std::string(stored), std::string(stored).append(extension)}) {
      if (m_state.m_files_to_remove.contains(name)) continue;
      const Presence presence = m_is_listed ? m_files.find(name).presence : m_files.probe(name);
      if (presence == Presence::kThere) return LineState::kValid;
      if (presence == Presence::kUnknown) state = LineState::kUnknown;
    }
    return state;
  }

  /// Whether the save writes an entry of mine. Most were judged by the loading.
  bool is_written(std::string_view key, std::string_view stored) {
    const bool is_judged = m_sure.contains(key) || (!m_judges_all && !m_doubtful.contains(key));
    return is_judged || judge(key, stored) != LineState::kMissing;
  }

  // ---- write ---------------------------------------------------------------------------------

  /// The lines that stay though nobody knows whether their files are there, by their keys.
  std::vector<IndexLine> unknown_lines() {
    std::vector<IndexLine> lines = std::move(m_unknown);
    const IndexReading* reading = m_on_disk ? &*m_on_disk : m_state.loaded();
    if (reading != nullptr && reading->unknown != 0) {
      for (const IndexLine& line : reading->lines) {
        if (line.state == LineState::kUnknown && !is_mine(line)) lines.push_back(line);
      }
    }
    std::stable_sort(lines.begin(), lines.end(),
                     [](const IndexLine& a, const IndexLine& b) { return a.key < b.key; });
    return lines;
  }

  std::string text() {
    const std::vector<IndexLine> unknown = unknown_lines();
    if (!unknown.empty()) find_first_valid();
    std::string text;
    const auto append = [&](std::string_view key, std::string_view stored) {
      text.append(key).append("/").append(stored).append("\n");
    };
    auto next = unknown.begin();
    m_state.visit([&](std::string_view key, std::string_view stored) {
      for (; next != unknown.end() && stands_before(*next, key); ++next)
        append(next->key, next->stored);
      if (is_written(key, stored)) append(key, stored);
    });
    for (; next != unknown.end(); ++next) append(next->key, next->stored);
    return text.empty() ? " " : text;
  }

  /// The loading knew of its file.
  bool is_mine(const IndexLine& line) const {
    const std::string* stored = m_state.find(std::string(line.key));
    return stored != nullptr && *stored == line.stored;
  }

  /// Of two lines with one key the first one counts, once its file is known to be there: so they
  /// keep their order.
  bool stands_before(const IndexLine& unknown, std::string_view key) const {
    if (unknown.key != key) return unknown.key < key;
    const auto first = m_first_valid.find(key);
    return first == m_first_valid.end() || unknown.key.data() < first->second;
  }
  void find_first_valid() {
    for (const IndexLine& line : (m_on_disk ? *m_on_disk : *m_state.loaded()).lines) {
      if (line.state == LineState::kValid) m_first_valid.emplace(line.key, line.key.data());
    }
  }

  vu_file& m_index;
  IndexState& m_state;
  replacement::Outcome m_outcome;
  FolderFiles m_files;                    ///< as they are now
  std::optional<IndexReading> m_on_disk;  ///< where it is not the text that was loaded
  bool m_judges_all = false;
  bool m_is_listed = false;  ///< the listing of m_files is worth its cost
  std::vector<IndexLine> m_unknown;
  std::size_t m_named = 0;
  std::set<std::string_view> m_doubtful;
  std::map<std::string, IndexState::Making> m_made;
  std::set<std::string_view> m_sure;  ///< those of m_made whose files are there
  std::map<std::string_view, const char*> m_first_valid;  ///< key -> where its line stands
};

Saved save_index(vu_file& index, IndexState& state) {
  return IndexSave(index, state).run();
}
