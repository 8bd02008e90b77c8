#include "index/index_state.h"

#include <algorithm>
#include <cstdint>
#include <exception>
#include <utility>

#include "index/index_source.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "vu_file.h"

namespace {

using NameMap = IndexState::NameMap;

/// An entry's place among the others by its stored name. The first bytes decide nearly always, and
/// comparing them as one number costs a fraction of comparing two texts.
struct Place {
  std::uint64_t head = 0;
  std::size_t line = 0;
};

/// The first eight bytes in such an order that numbers compare as the texts do.
std::uint64_t head_of(std::string_view text) {
  std::uint64_t head = 0;
  for (std::size_t i = 0; i < sizeof head; ++i) {
    head = head << 8U | (i < text.size() ? static_cast<unsigned char>(text[i]) : 0U);
  }
  return head;
}

/// Stored name -> key, where the first line of a name stays.
void fill_by_stored_name(const std::vector<IndexLine>& lines, NameMap& pl) {
  std::vector<Place> places;
  places.reserve(lines.size());
  for (std::size_t i = 0; i < lines.size(); ++i) {
    if (lines[i].state == LineState::kValid) places.push_back({head_of(lines[i].stored), i});
  }
  // In sorted order each name goes behind the last one: no search, no comparison down the tree.
  std::sort(places.begin(), places.end(), [&](const Place& a, const Place& b) {
    if (a.head != b.head) return a.head < b.head;
    const int order = lines[a.line].stored.compare(lines[b.line].stored);
    return order != 0 ? order < 0 : a.line < b.line;
  });
  for (const Place& place : places)
    pl.emplace_hint(pl.end(), lines[place.line].stored, lines[place.line].key);
}

}  // namespace

IndexState::IndexState(const std::string& folder)
    : m_exceptions_at_construction(std::uncaught_exceptions()),
      m_files(std::make_shared<FolderFiles>(folder)) {}

void IndexState::begins_to_live() { m_exceptions_at_construction = std::uncaught_exceptions(); }

void IndexState::take_over(const IndexState& other) {
  const int exceptions = m_exceptions_at_construction;
  *this = other;
  m_exceptions_at_construction = exceptions;
}

bool IndexState::is_unwound() const {
  return std::uncaught_exceptions() > m_exceptions_at_construction;
}

void IndexState::load(std::string text) {
  m_loaded = std::make_shared<const IndexReading>(std::move(text), *m_files);
}

IndexState::Maps& IndexState::maps() const {
  if (!m_maps) {
    Maps maps;
    if (m_loaded) {
      for (const IndexLine& line : m_loaded->lines) {
        if (line.state == LineState::kValid)
          maps.lp.emplace_hint(maps.lp.end(), line.key, line.stored);
      }
      fill_by_stored_name(m_loaded->lines, maps.pl);
    }
    m_maps = std::move(maps);
  }
  return *m_maps;
}

const std::string* IndexState::find(const std::string& key) const {
  const auto it = lp().find(key);
  return it == lp().end() ? nullptr : &it->second;
}

const IndexLine* IndexState::unknown_line(const std::string& key) const {
  if (!has_unknown_lines() || find(key) != nullptr) return nullptr;
  const auto has_key = [&](const Entry& entry) { return entry.first == key; };
  if (std::any_of(m_erased.begin(), m_erased.end(), has_key)) return nullptr;
  const auto it = std::find_if(
      m_loaded->lines.begin(), m_loaded->lines.end(),
      [&](const IndexLine& line) { return line.state == LineState::kUnknown && line.key == key; });
  return it == m_loaded->lines.end() ? nullptr : &*it;
}

void IndexState::insert(const std::string& key, const std::string& stored) {
  m_doubtful.insert(key);
  maps().lp.emplace(key, stored);
  maps().pl.emplace(stored, key);
}

IndexState::Taken IndexState::take(const std::string& key) {
  Maps& maps = this->maps();
  const auto it = maps.lp.find(key);
  // Noted first: without memory for that nothing has changed.
  m_erased.emplace_back(it->first, it->second);
  Taken entry;
  entry.by_stored_name = maps.pl.extract(it->second);
  entry.by_key = maps.lp.extract(it);
  m_made.erase(key);
  return entry;
}

void IndexState::file_is_made(const std::string& key, Making how) {
  m_made.insert_or_assign(key, std::move(how));
}

IndexState::Taken IndexState::withdraw(const std::string& key) noexcept {
  Taken entry;
  m_made.erase(key);
  if (!m_maps) return entry;
  const auto it = m_maps->lp.find(key);
  if (it == m_maps->lp.end()) return entry;
  const auto named = m_maps->pl.find(it->second);
  if (named != m_maps->pl.end() && named->second == key)
    entry.by_stored_name = m_maps->pl.extract(named);
  entry.by_key = m_maps->lp.extract(it);
  return entry;
}

void IndexState::put_back(Taken&& entry) noexcept {
  if (!entry) return;
  m_maps->lp.insert(std::move(entry.by_key));
  if (!entry.by_stored_name.empty()) m_maps->pl.insert(std::move(entry.by_stored_name));
}

void IndexState::remove_after_save(const std::string& file, IfItStays if_it_stays) {
  file_changes(file);
  m_files_to_remove.emplace(file, if_it_stays);
}

bool IndexState::is_anothers(const std::string& key, const std::string& stored) const {
  const std::string file = index_format::file_name_of(key, stored);
  const auto bears = [&](const std::string& name) {
    const auto it = pl().find(name);
    return it != pl().end() && it->second != key;
  };
  // A stored name is the file's, or lacks the extension.
  bool is_found = bears(file) || bears(stored);
  visit_unknown([&](std::string_view other, std::string_view name) {
    is_found = is_found || name == file || index_format::file_name_of(other, name) == file;
  });
  return is_found;
}

bool IndexState::is_to_be_removed(const std::string& name) const {
  auto it = m_files_to_remove.lower_bound(name);
  for (; it != m_files_to_remove.end() && it->first.starts_with(name); ++it) {
    if (it->first.size() == name.size() || it->first[name.size()] == '.') return true;
  }
  return false;
}

IndexState::Removal IndexState::remove_replaced_files() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  const auto files = std::exchange(m_files_to_remove, {});
  Removal result;
  // What was replaced first: a file that stays may bear the very name of the new entry, and hide
  // it. Then the sources stay, too.
  for (const IfItStays kind : {IfItStays::kError, IfItStays::kNothing}) {
    if (!result.are_gone) break;
    for (const auto& [file, if_it_stays] : files) {
      if (if_it_stays != kind || remove_for_good(file, kind, result.raised)) continue;
      result.are_gone = false;
    }
  }
  return result;
}

bool IndexState::remove_for_good(const std::string& file, IfItStays if_it_stays,
                                 std::exception_ptr& raised) const {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  try {
    const std::string path = folder() + "\\" + file;
    vu_file::chmodW(path);
    vu_file::remove(path);
    if (presence_of(path) == Presence::kMissing) return true;
    if (if_it_stays == IfItStays::kError) VU_ERROR("STGIndex: removal of file failed: ", path);
  } catch (...) {
    if (!raised) raised = std::current_exception();
  }
  return false;
}

void IndexState::file_changes(const std::string& name) {
  if (!m_loaded || m_loaded->lines.empty()) return;
  // A file that the listing does not show stands for all of that kind.
  m_changed.insert(m_files->listed(name, m_files->ask(name)));
}

void IndexState::set_maps(NameMap lp, NameMap pl) {
  for (const auto& [key, stored] : lp) m_doubtful.insert(key);
  m_maps = Maps{std::move(lp), std::move(pl)};
}

bool copy_and_flush(const std::string& folder, const std::string& from, const std::string& to) {
  constexpr int kAttempts = 3;
  const std::string target = folder + "\\" + to;
  for (int i = 0; i < kAttempts && vu_file::copyFile(folder + "\\" + from, target, true); ++i) {
    const os::Status flushed = os::flush_file(target);
    if (flushed.failure() != os::Failure::kNotFound) return flushed.ok();
  }
  return false;
}

void add_physical_names(const IndexState& state, NameMap& out) {
  state.visit([&](std::string_view key, std::string_view stored) {
    out.emplace(index_format::file_name_of(key, stored), index_format::logical_of(key));
  });
}
