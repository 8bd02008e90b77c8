#include "index/saving.h"

#include <algorithm>
#include <cstddef>
#include <exception>
#include <iterator>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "file/folder_entries.h"
#include "file/handle_core.h"
#include "file/replacement.h"
#include "index/index_source.h"
#include "index/own_files.h"
#include "platform/host/trace.h"

namespace {

/// Up to this number of lines are checked one by one. For more lines a listing costs less.
constexpr std::size_t kAskedSingly = 4;
/// Most operations add at most this number of bytes to a text.
constexpr std::size_t kRoom = 1024;
/// At most this number of unknown entries are named.
constexpr std::size_t kNamed = 8;

constinit thread_local SaveWatch* t_watch = nullptr;

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

/// One save.
///
/// Order of calls: run(), once. The members below follow in the order in which it uses them.
///
/// Errors: see save_index().
///
/// Threads: one. Other threads and processes wait in open() until the file is closed.
class IndexSave {
 public:
  IndexSave(vu_file& index, IndexState& state)
      : m_index(index), m_state(state), m_files(state.folder()) {}

  Saved run() {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    VU_TRACE_M(" STGIndex: (begin) updating index.dat ...");
    VU_TRACE_M("  folder : ", m_state.folder());
    if (!open()) return {};
    replace();
    if (m_saved.is_written) {
      // Another save must not merge before these files are gone: it would find their lines valid.
      const IndexState::Removal removal = m_state.remove_replaced_files();
      m_saved.raised = removal.raised;
      if (!removal.are_gone) replace_again();
    }
    close_replaced(m_index, m_outcome);
    VU_TRACE_M(" STGIndex: (end) index.dat is uptodate");  // sic
    VU_TRACE_M("  folder : ", m_state.folder());
    return std::move(m_saved);
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

  void replace() {
    m_bytes = read();
    find_doubtful();
    make_swept_files_again();
    merge(replacement::text_of(m_bytes.view(), m_saved_text));
    m_outcome = replace_text(m_index, m_bytes.view(), text());
    m_saved.is_written = m_outcome.holds == replacement::Holds::kNewText;
  }

  /// If the system keeps a file, its line is valid again. If this second replacement fails, also by
  /// an exception, the text of the first one stays, and the save has written it.
  void replace_again() {
    try {
      IndexSave again(m_index, m_state);
      m_index.rewind();
      again.replace();
      m_outcome = again.m_outcome;
      std::vector<std::string>& withdrawn = again.m_saved.withdrawn;
      std::move(withdrawn.begin(), withdrawn.end(), std::back_inserter(m_saved.withdrawn));
      std::sort(m_saved.withdrawn.begin(), m_saved.withdrawn.end());
    } catch (...) {
      if (!m_saved.raised) m_saved.raised = std::current_exception();
      m_outcome.flushed = {0, os::Failure::kOther};  // the close flushes
    }
  }

  // ---- swept files ---------------------------------------------------------------------------

  /// A clean that found no entry in index.dat for a new file of this operation may have swept it.
  /// No clean can sweep while index.dat is locked, so a file that is created again now stays.
  void make_swept_files_again() {
    for (const NameOrder<2>::Element& element : m_state.m_by_key.in_order()) {
      const Changes::Change& entry = m_state.m_by_key[element.position];
      if (entry.making == Changes::kNone || !entry.value) continue;
      const IndexState::Making& how = m_state.m_makings[entry.making];
      // Not the line: another file can make that valid. Example: 00000002 for 00000002.kdb.
      const Presence presence = m_is_listed ? m_files.find(how.file) : m_files.probe(how.file);
      if (presence == Presence::kUnknown && m_named++ < kNamed)
        report_unknown_line(m_state.folder(), entry.name, *entry.value);
      if (presence != Presence::kMissing || make_again(how)) {
        m_sure.push_back(entry.name);
      } else {
        m_saved.withdrawn.emplace_back(entry.name);
        m_state.keep_files_of(entry.making);
        m_state.withdraw(entry.name);
      }
    }
    if (!m_saved.withdrawn.empty()) m_state.withdraw_dependent();
  }

  /// @return whether the file exists.
  bool make_again(const IndexState::Making& how) {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    VU_WARNING("STGIndex: made again, for it was removed before the index named it: ",
               m_state.folder(), "\\", how.file);
    if (how.source.empty()) {
      try {
        vu_file empty(m_state.folder(), how.file);
        empty.open(vu_file::o_append);
        empty.close();
      } catch (const vu_file_except&) {
        return false;  // traced by the handle
      }
      return true;
    }
    const std::string folder = m_state.folder() + "\\";
    if (copy_and_flush(folder + how.source, folder + how.file)) return true;
    VU_ERROR("STGIndex: rename: copy failed: ", m_state.folder(), "\\", how.source);
    return false;
  }

  // ---- merge ---------------------------------------------------------------------------------

  /// Takes over what others wrote since the load.
  void merge(std::string_view text) {
    const IndexReading* loaded = m_state.loaded();
    // A text out of order may have two lines with one key, and the second one may be valid now. A
    // line that runs on may become an entry when somebody creates a file.
    if (loaded != nullptr && loaded->ascending && !loaded->any_runs_on && text == loaded->text) {
      merge_what_was_dropped(*loaded);
      return;
    }
    read_what_is_on_disk(text, loaded);
    if (m_on_disk->unknown != 0) report_unknown_lines(*m_on_disk, m_state.folder());
    m_is_listed = m_is_listed || (m_on_disk->is_listed && !m_on_disk->lines.empty());
    take_out_what_leads_to_files_to_remove();
    const EntriesByKey on_disk(*m_on_disk);
    for (const IndexLine* line : new_lines(on_disk.get())) merge_entry(*line);
    // The file of an unknown entry may be the same.
    if (m_on_disk->unknown == 0) remove_files_of(m_superseded);
  }

  /// Other processes wait for the lock. To keep this short, lines that were valid at the load are
  /// not judged again.
  void read_what_is_on_disk(std::string_view text, const IndexReading* loaded) {
    if (loaded != nullptr) {
      m_on_disk.emplace(text, m_files, *loaded, m_state.m_changed);
      if (!m_on_disk->any_runs_on) return;
    }
    m_on_disk.emplace(text, m_files);
  }

  /// The entries on disk that are not the same in memory. Entries in memory that are not on disk
  /// become doubtful.
  std::vector<const IndexLine*> new_lines(std::span<const IndexLine> on_disk) {
    std::vector<const IndexLine*> result;
    std::vector<std::string_view> not_on_disk;
    auto theirs = on_disk.begin();
    m_state.visit([&](std::string_view key, std::string_view stored) {
      for (; theirs != on_disk.end() && theirs->key < key; ++theirs) result.push_back(&*theirs);
      if (theirs != on_disk.end() && theirs->key == key) {
        const IndexLine& line = *theirs++;
        if (line.stored == stored) return;
        result.push_back(&line);
      }
      not_on_disk.push_back(key);
    });
    for (; theirs != on_disk.end(); ++theirs) result.push_back(&*theirs);
    std::vector<std::string_view> before = std::exchange(m_doubtful, {});
    std::set_union(before.begin(), before.end(), not_on_disk.begin(), not_on_disk.end(),
                   std::back_inserter(m_doubtful));
    return result;
  }

  /// The files to remove still exist. Their lines must not hide the next lines with the same keys.
  void take_out_what_leads_to_files_to_remove() {
    if (m_state.m_files_to_remove.empty()) return;
    for (IndexLine& line : m_on_disk->lines) {
      if (line.state == LineState::kValid && leads_to_a_file_to_remove(line))
        m_on_disk->revise(line, judge(line.key, line.stored));
    }
  }

  bool leads_to_a_file_to_remove(const IndexLine& line) const {
    const auto& files = m_state.m_files_to_remove;
    return files.contains(line.stored) ||
           files.contains(index_format::file_name_of(line.key, line.stored));
  }

  /// The file still contains the loaded text. Only two kinds of lines can be valid that are not in
  /// memory: entries that the operation removed, and dangling entries. Their files may exist now.
  void merge_what_was_dropped(const IndexReading& loaded) {
    std::vector<const IndexLine*> dropped;
    for (const std::string_view key : m_state.m_erased) {
      if (const IndexLine* const line = m_state.loaded_entry(key)) dropped.push_back(line);
    }
    if (loaded.missing != 0) {
      for (const IndexLine& line : loaded.lines) {
        if (line.state == LineState::kMissing) dropped.push_back(&line);
      }
    }
    // In the order of the text, each once.
    std::sort(dropped.begin(), dropped.end(), [](const IndexLine* one, const IndexLine* other) {
      return one->key.data() < other->key.data();
    });
    const auto same_line = [](const IndexLine* one, const IndexLine* other) {
      return one->key.data() == other->key.data();
    };
    dropped.erase(std::unique(dropped.begin(), dropped.end(), same_line), dropped.end());

    m_is_listed = m_is_listed || dropped.size() > kAskedSingly;
    for (const IndexLine* const line : dropped) {
      // A rename that failed has put its entry back.
      if (is_mine(*line) || is_gone_still(*line)) continue;
      const LineState state = judge(line->key, line->stored);
      if (state == LineState::kValid) merge_entry(*line);
      if (state == LineState::kUnknown) m_unknown.push_back(*line);
    }
  }

  /// Whether the file of a removed entry is still gone. The operation checked that after the
  /// removal. If another process has created the file again, the listing of this save shows its
  /// name. A file with only the physical name would make the line valid, too. That name is a number
  /// here, so the listing shows it exactly. (The empty name is that of the folder itself.)
  bool is_gone_still(const IndexLine& line) {
    if (!m_is_listed || !m_state.is_gone(line.file) || !line.has_extension) return false;
    const auto is_shown = [&](std::string_view name) {
      return m_files.listed(name, m_files.ask(name)) != FolderFiles::kNone;
    };
    const bool is_number = !line.stored.empty() &&
                           line.stored.find_first_not_of("0123456789") == std::string_view::npos;
    return is_number && is_shown(kIndexFile) && !is_shown(line.stored) &&
           !is_shown(m_state.files().name_of(line.file));
  }

  /// Takes over a valid line that is not the same in memory.
  void merge_entry(const IndexLine& line) {
    VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
    const auto mine = m_state.find(line.key);
    if (mine) {
      // Another process may have removed this entry since the load and created it again. If the
      // file of the line in memory is gone, the new line wins. If it is unknown, both lines stay.
      const LineState state = judge(line.key, *mine);
      if (state == LineState::kUnknown) m_unknown.push_back(line);
      if (state == LineState::kMissing) {
        m_state.replace(line.key, line.stored);
      } else if (state == LineState::kUnknown || !yields_to(line)) {
        return;
      }
    } else {
      m_state.add(line.key, line.stored);
    }
    VU_TRACE_M(" add in my maps ", line.key, "/", line.stored);
  }

  /// Applies the rule of OwnFiles to an entry in memory whose key has another valid line on disk.
  /// @return whether that line has taken the place of the entry.
  bool yields_to(const IndexLine& line) {
    const std::optional<IfEntered> rule = OwnFiles::if_entered();
    const std::size_t making = m_state.making_of(line.key);
    if (!rule || making == Changes::kNone) return false;
    // With synchronisation on, another program can have adopted the new file under the same name.
    // And a line can be valid by a file without extension, which no reader opens.
    const std::string file = index_format::file_name_of(line.key, line.stored);
    if (file == m_state.m_makings[making].file || m_files.probe(file) != Presence::kThere)
      return false;
    if (*rule == IfEntered::kReplace) {
      // A second line of the loaded text is not another program's.
      if (m_state.loaded_line(line.stored) == nullptr) m_superseded.push_back(line);
      return false;
    }
    OwnFiles::note_yield();
    m_state.keep_files_of(making);
    m_state.withdraw(line.key);
    m_state.add(line.key, line.stored);
    return true;
  }

  /// Removes the files after the save, like those of loaded entries that are replaced. While such a
  /// file exists, another process that has loaded its line would write that line again.
  void remove_files_of(const std::vector<IndexLine>& superseded) {
    for (const IndexLine& line : superseded) {
      const std::string key(line.key);
      const std::string stored(line.stored);
      if (!m_state.is_anothers(key, stored))
        m_state.remove_after_save(index_format::file_name_of(key, stored),
                                  IndexState::IfItStays::kError);
    }
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

  /// Collects the keys whose lines are judged again after the load. These are the keys of the
  /// operation, and the keys of lines that may lead to a changed file.
  void find_doubtful() {
    for (const NameOrder<2>::Element& element : m_state.m_by_key.in_order()) {
      const Changes::Change& change = m_state.m_by_key[element.position];
      if (change.is_doubtful) m_doubtful.push_back(change.name);
    }
    // Example: after an adoption one listing costs less than a check of each file.
    m_is_listed = m_doubtful.size() > kAskedSingly;
    const IndexReading* loaded = m_state.loaded();
    if (loaded == nullptr || m_state.m_changed.empty()) return;
    const auto of_changes = static_cast<std::ptrdiff_t>(m_doubtful.size());
    for (const IndexLine& line : loaded->lines) {
      const bool may_lead_there =
          line.file == FolderFiles::kNone || m_state.m_changed.contains(line.file);
      if (may_lead_there && line.state == LineState::kValid) m_doubtful.push_back(line.key);
    }
    const auto of_lines = m_doubtful.begin() + of_changes;
    if (!std::is_sorted(of_lines, m_doubtful.end())) std::sort(of_lines, m_doubtful.end());
    std::inplace_merge(m_doubtful.begin(), of_lines, m_doubtful.end());
    m_doubtful.erase(std::unique(m_doubtful.begin(), m_doubtful.end()), m_doubtful.end());
  }

  LineState judge_without_files_to_remove(std::string_view key, std::string_view stored) {
    if (key.size() < index_format::kStampLength) return LineState::kNone;
    const std::string_view extension = index_format::extension_of(index_format::logical_of(key));
    const auto presence_of_file = [&](std::string_view name) {
      if (m_state.m_files_to_remove.contains(name)) return Presence::kMissing;
      return m_is_listed ? m_files.find(name) : m_files.probe(name);
    };
    // The likelier name comes first: if it exists, the other one is not checked.
    std::string name;
    name.reserve(stored.size() + extension.size());
    const Presence with_extension = presence_of_file(name.append(stored).append(extension));
    if (with_extension == Presence::kThere) return LineState::kValid;
    const Presence without = presence_of_file(stored);
    if (without == Presence::kThere) return LineState::kValid;
    return with_extension == Presence::kUnknown || without == Presence::kUnknown
               ? LineState::kUnknown
               : LineState::kMissing;
  }

  /// Whether the keys contain this one. Drops those before it: call it for ascending keys.
  static bool reaches(std::span<const std::string_view>& keys, std::string_view key) {
    while (!keys.empty() && keys.front() < key) keys = keys.subspan(1);
    return !keys.empty() && keys.front() == key;
  }

  /// Whether the save writes an entry from memory. Most entries were judged by the load, or when
  /// the text on disk was read. Call it for keys in ascending order.
  bool is_written(std::string_view key, std::string_view stored) {
    return reaches(m_sure_left, key) || !reaches(m_doubtful_left, key) ||
           judge(key, stored) != LineState::kMissing;
  }

  // ---- write ---------------------------------------------------------------------------------

  /// The unknown entries that stay, by their keys.
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
    m_unknown_left = unknown;
    m_doubtful_left = m_doubtful;
    m_sure_left = m_sure;
    if (const IndexReading* loaded = m_state.loaded()) m_text.reserve(loaded->text.size() + kRoom);
    m_state.walk([&](std::span<const IndexLine> lines) { write_lines(lines); },
                 [&](std::string_view key, std::string_view stored) { write_entry(key, stored); });
    for (const IndexLine& line : m_unknown_left) append(line.key, line.stored);
    return m_text.empty() ? " " : std::move(m_text);
  }

  /// Writes loaded entries, a few of which are doubtful.
  void write_lines(std::span<const IndexLine> lines) {
    if (!m_unknown_left.empty()) {
      for (const IndexLine& line : lines) write_entry(line.key, line.stored);
      return;
    }
    reaches(m_doubtful_left, lines.front().key);
    for (std::span<const std::string_view> doubtful = m_doubtful_left;
         !doubtful.empty() && !lines.empty(); doubtful = doubtful.subspan(1)) {
      const std::size_t before = IndexState::lines_before(lines, doubtful.front());
      append_as_they_stand(lines.first(before));
      lines = lines.subspan(before);
      if (lines.empty() || lines.front().key != doubtful.front()) continue;
      write_entry(lines.front().key, lines.front().stored);
      lines = lines.subspan(1);
    }
    append_as_they_stand(lines);
  }

  void write_entry(std::string_view key, std::string_view stored) {
    while (!m_unknown_left.empty() && stands_before(m_unknown_left.front(), key)) {
      append(m_unknown_left.front().key, m_unknown_left.front().stored);
      m_unknown_left = m_unknown_left.subspan(1);
    }
    if (is_written(key, stored)) append(key, stored);
  }

  void append(std::string_view key, std::string_view stored) {
    m_text.append(key).append("/").append(stored).append("\n");
  }

  /// Consecutive lines of the loaded text are copied as one piece.
  void append_as_they_stand(std::span<const IndexLine> lines) {
    const auto end_of = [](const IndexLine& line) {
      return line.stored.data() + line.stored.size();
    };
    while (!lines.empty()) {
      const char* const begin = lines.front().key.data();
      const char* end = end_of(lines.front());
      std::size_t count = 1;
      for (; count < lines.size() && lines[count].key.data() == end + 1; ++count)
        end = end_of(lines[count]);
      m_text.append(begin, end).push_back('\n');
      lines = lines.subspan(count);
    }
  }

  /// Whether this entry is in memory as well.
  bool is_mine(const IndexLine& line) const { return m_state.find(line.key) == line.stored; }

  /// Of two lines with one key the first one with an existing file is the entry. An unknown line
  /// may turn out to be that one, so the save keeps the order.
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
  Saved m_saved;
  replacement::Outcome m_outcome;
  FolderFiles m_files;                    ///< the folder as it is now
  FileText m_bytes;                       ///< of index.dat
  std::string m_saved_text;               ///< the text of an interrupted save
  std::optional<IndexReading> m_on_disk;  ///< if it differs from the loaded text
  bool m_is_listed = false;               ///< a listing of m_files is worth its cost
  std::vector<IndexLine> m_superseded;    ///< other programs' lines of keys that were made here
  std::vector<IndexLine> m_unknown;
  std::size_t m_named = 0;
  std::vector<std::string_view> m_doubtful;  ///< keys whose lines are judged again, in order
  std::vector<std::string_view> m_sure;  ///< keys of files that were just seen or made, in order
  std::map<std::string_view, const char*> m_first_valid;  ///< key -> where its line begins
  std::string m_text;                                     ///< to be written
  std::span<const IndexLine> m_unknown_left;              ///< those not in m_text yet
  std::span<const std::string_view> m_doubtful_left;      ///< those not before the last key
  std::span<const std::string_view> m_sure_left;          ///< those not before the last key
};

Saved save_index(vu_file& index, IndexState& state) { return IndexSave(index, state).run(); }

SaveWatch::SaveWatch() noexcept : m_before(std::exchange(t_watch, this)) {}

SaveWatch::~SaveWatch() { t_watch = m_before; }

void SaveWatch::note(Saved saved) noexcept {
  if (t_watch == nullptr) return;
  t_watch->m_has_begun = true;
  t_watch->m_saved = std::move(saved);
}
