#include "index/index_state.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "file/folder_entries.h"
#include "file/path_text.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "platform/host/trace.h"
#include "platform/os/os.h"
#include "vu_file.h"

IndexState::IndexState(const std::string& folder)
    : m_exceptions_at_construction(std::uncaught_exceptions()),
      m_files(std::make_shared<FolderFiles>(folder)),
      m_texts(
          std::make_shared<std::pmr::monotonic_buffer_resource>(std::pmr::new_delete_resource())) {}

void IndexState::begins_to_live() { m_exceptions_at_construction = std::uncaught_exceptions(); }

void IndexState::take_over(const IndexState& other) {
  IndexState copy(other);  // the only step that needs memory
  copy.m_exceptions_at_construction = m_exceptions_at_construction;
  *this = std::move(copy);
}

bool IndexState::is_unwound() const {
  return std::uncaught_exceptions() > m_exceptions_at_construction;
}

void IndexState::load(FileText bytes) {
  m_loaded = std::make_shared<const Loaded>(std::move(bytes), *m_files);
  m_entries = m_loaded->entries.get();
  m_lines = m_loaded->reading.lines;
}

// ---- entries -----------------------------------------------------------------------------------

const IndexLine* IndexState::loaded_entry(std::string_view key) const {
  // A clean and a migration look up each entry a few times, then the next one. And the key of a new
  // entry is often in the same place.
  const auto is_before = [&](std::size_t entry) { return m_entries[entry].key < key; };
  std::size_t& place = m_last_place;
  if (place != m_entries.size() && is_before(place)) ++place;
  const bool is_here =
      (place == 0 || is_before(place - 1)) && (place == m_entries.size() || !is_before(place));
  if (!is_here) place = lines_before(m_entries, key);
  return place != m_entries.size() && m_entries[place].key == key ? &m_entries[place] : nullptr;
}

const IndexLine* IndexState::loaded_line(std::string_view stored) const {
  constexpr std::size_t kSearches = 4;
  if (m_searches < kSearches) {
    ++m_searches;
    const auto bears = [stored](const IndexLine& line) {
      // Cheap tests first: most names have the same length, but different last characters.
      return line.stored.size() == stored.size() &&
             (stored.empty() || line.stored.back() == stored.back()) &&
             line.state == LineState::kValid && line.stored == stored;
    };
    const auto at = std::find_if(m_lines.begin(), m_lines.end(), bears);
    return at == m_lines.end() ? nullptr : &*at;
  }
  const auto name_at = [this](std::size_t line) { return m_lines[line].stored; };
  if (!m_lines_by_stored_name) {
    NameIndex index(m_lines.size());
    for (std::size_t i = 0; i < m_lines.size(); ++i) {
      if (m_lines[i].state != LineState::kValid) continue;
      const std::uint64_t hash = index.ask(m_lines[i].stored);
      if (index.find(m_lines[i].stored, hash, name_at) == NameIndex::kNone) index.add(hash, i);
    }
    m_lines_by_stored_name = std::move(index);
  }
  const NameIndex& index = *m_lines_by_stored_name;
  const std::size_t line = index.find(stored, index.ask(stored), name_at);
  return line == NameIndex::kNone ? nullptr : &m_lines[line];
}

std::optional<std::string_view> IndexState::find(std::string_view key) const {
  if (const std::size_t change = m_by_key.find(key); change != Changes::kNone)
    return m_by_key[change].value;
  const IndexLine* const line = loaded_entry(key);
  return line != nullptr ? std::optional(line->stored) : std::nullopt;
}

std::optional<std::string_view> IndexState::way_back_of(std::string_view stored) const {
  if (const std::size_t change = m_by_stored_name.find(stored); change != Changes::kNone)
    return m_by_stored_name[change].value;
  const IndexLine* const line = loaded_line(stored);
  return line != nullptr ? std::optional(line->key) : std::nullopt;
}

bool IndexState::knows_file(std::string_view name) const {
  const std::optional<std::string_view> key = way_back_of(name);
  if (key && index_format::timestamp_of(*key) == 0 && index_format::logical_of(*key) == name)
    return true;
  return way_back_of(index_format::stem_of(name)).has_value();
}

IndexState::NameMap IndexState::by_key() const {
  NameMap result;
  visit([&](std::string_view key, std::string_view stored) { result.emplace(key, stored); });
  return result;
}

IndexState::NameMap IndexState::by_stored_name() const {
  NameMap result;
  const auto enter = [&](std::string_view stored) {
    if (const auto key = way_back_of(stored)) result.emplace(stored, *key);
  };
  for (const IndexLine& line : m_lines) {
    if (line.state == LineState::kValid) enter(line.stored);
  }
  for (const Changes::Change& change : m_by_stored_name.all()) enter(change.name);
  return result;
}

const IndexLine* IndexState::unknown_line(const std::string& key) const {
  if (!has_unknown_lines() || find(key)) return nullptr;
  if (std::find(m_erased.begin(), m_erased.end(), key) != m_erased.end()) return nullptr;
  const auto it = std::find_if(
      m_loaded->reading.lines.begin(), m_loaded->reading.lines.end(),
      [&](const IndexLine& line) { return line.state == LineState::kUnknown && line.key == key; });
  return it == m_loaded->reading.lines.end() ? nullptr : &*it;
}

// ---- changes -----------------------------------------------------------------------------------

std::string_view IndexState::kept(std::string_view text) {
  auto* const bytes = static_cast<char*>(m_texts->allocate(text.size(), 1));
  std::copy(text.begin(), text.end(), bytes);
  return {bytes, text.size()};
}

std::size_t IndexState::change_of_key(std::string_view key) {
  if (const std::size_t change = m_by_key.find(key); change != Changes::kNone) return change;
  const IndexLine* const line = loaded_entry(key);
  return line != nullptr ? m_by_key.add(line->key, line->stored)
                         : m_by_key.add(kept(key), std::nullopt);
}

std::size_t IndexState::change_of_stored_name(std::string_view stored) {
  const std::size_t change = m_by_stored_name.find(stored);
  if (change != Changes::kNone) return change;
  const IndexLine* const line = loaded_line(stored);
  return line != nullptr ? m_by_stored_name.add(line->stored, line->key)
                         : m_by_stored_name.add(kept(stored), std::nullopt);
}

void IndexState::insert(std::string_view key, std::string_view stored) {
  enter(key, stored).is_doubtful = true;
}

Changes::Change& IndexState::enter(std::string_view key, std::string_view stored) {
  const std::size_t back = change_of_stored_name(stored);
  Changes::Change& name = m_by_key[change_of_key(key)];
  if (!name.value) name.value = m_by_stored_name[back].name;
  if (std::optional<std::string_view>& way = m_by_stored_name[back].value; !way) way = name.name;
  return name;
}

IndexState::Taken IndexState::take(std::string_view key) {
  const std::size_t by_key = change_of_key(key);
  const std::string_view stored = *m_by_key[by_key].value;
  const std::size_t by_stored_name = change_of_stored_name(stored);
  m_erased.push_back(m_by_key[by_key].name);
  return take_out(by_key, by_stored_name);
}

IndexState::Taken IndexState::withdraw(std::string_view key) noexcept {
  const std::size_t by_key = m_by_key.find(key);
  if (by_key == Changes::kNone || !m_by_key[by_key].value) return {};
  const std::size_t back = m_by_stored_name.find(*m_by_key[by_key].value);
  const bool leads_here = back != Changes::kNone && m_by_stored_name[back].value == key;
  return take_out(by_key, leads_here ? back : Changes::kNone);
}

void IndexState::keep_files_of(std::size_t making) noexcept {
  for (; making != Changes::kNone; making = m_makings[making].before) {
    keep_file(m_makings[making].source);
    keep_file(m_makings[making].replaced);
  }
}

void IndexState::withdraw_dependent() {
  const Taken entry = withdraw(m_dependent);
  // A file that this operation did not make may be another entry's.
  if (entry.making != Changes::kNone)
    remove_after_save(m_makings[entry.making].file, IfItStays::kNothing);
}

IndexState::Taken IndexState::take_out(std::size_t by_key, std::size_t by_stored_name) noexcept {
  Taken entry;
  entry.stored = *std::exchange(m_by_key[by_key].value, std::nullopt);
  entry.making = std::exchange(m_by_key[by_key].making, Changes::kNone);
  if (by_stored_name != Changes::kNone)
    entry.way_back = std::exchange(m_by_stored_name[by_stored_name].value, std::nullopt);
  entry.by_key = by_key;
  entry.by_stored_name = by_stored_name;
  return entry;
}

void IndexState::put_back(const Taken& entry) noexcept {
  if (!entry) return;
  if (entry.way_back) m_by_stored_name[entry.by_stored_name].value = entry.way_back;
  m_by_key[entry.by_key].value = entry.stored;
  m_by_key[entry.by_key].making = entry.making;
}

void IndexState::replace(std::string_view key, std::string_view stored) {
  const std::size_t back = change_of_stored_name(stored);
  Changes::Change& name = m_by_key[change_of_key(key)];
  m_by_stored_name[change_of_stored_name(*name.value)].value.reset();
  name.value = m_by_stored_name[back].name;
  if (std::optional<std::string_view>& way = m_by_stored_name[back].value; !way) way = name.name;
}

void IndexState::file_is_made(const std::string& key, Making how) {
  // Creates both changes now, so that withdraw() needs no memory.
  Changes::Change& change = m_by_key[change_of_key(key)];
  if (change.value) change_of_stored_name(*change.value);
  m_makings.push_back(std::move(how));
  change.making = m_makings.size() - 1;
}

std::size_t IndexState::making_of(std::string_view key) const {
  const std::size_t change = m_by_key.find(key);
  return change != Changes::kNone ? m_by_key[change].making : Changes::kNone;
}

void IndexState::remove_after_save(const std::string& file, IfItStays if_it_stays) {
  file_changes(file);
  // A migration renames in this order.
  m_files_to_remove.emplace_hint(m_files_to_remove.end(), file, if_it_stays);
}

bool IndexState::is_anothers(const std::string& key, const std::string& stored) const {
  const std::string file = index_format::file_name_of(key, stored);
  // A line is also valid by a file that has its physical name alone.
  bool is_found = false;
  const auto compare = [&](std::string_view other, std::string_view name) {
    is_found = is_found || name == file || index_format::file_name_of(other, name) == file;
  };
  const auto is_others_name = [&](const std::string& name) {
    const std::optional<std::string_view> back = way_back_of(name);
    return back && *back != key;
  };
  if (is_others_name(file)) return true;
  // Several entries can have one number and different files: 99999999.kdb and 99999999.txt.
  if (is_others_name(stored)) {
    visit([&](std::string_view other, std::string_view name) {
      if (other != key && name == stored) compare(other, name);
    });
  }
  visit_unknown(compare);
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
  // Replaced files first. If one stays, another process can write its old line again. That line has
  // the key of the new entry and hides it, so the sources have to stay, too.
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
    const std::string path = path_text::join(folder(), file);
    if (!remove_plain_file(path)) {
      // Another process may have replaced the same entry.
      if (presence_of(path) == Presence::kMissing) return true;
      vu_file::chmodW(path);
      vu_file::remove(path);
    }
    if (presence_of(path) == Presence::kMissing) return true;
    if (if_it_stays == IfItStays::kError) VU_ERROR("STGIndex: removal of file failed: ", path);
  } catch (...) {
    if (!raised) raised = std::current_exception();
  }
  return false;
}

void IndexState::file_changes(const std::string& name) {
  if (!m_loaded || m_loaded->reading.lines.empty()) return;
  // kNone represents all files that are not in the listing.
  m_changed.insert(m_files->listed(name, m_files->ask(name)));
}

void IndexState::file_is_gone(const std::string& name) {
  if (!m_loaded || m_loaded->reading.lines.empty()) return;
  const std::size_t file = m_files->listed(name, m_files->ask(name));
  if (file != FolderFiles::kNone) m_gone.insert(file);
}

void IndexState::set_maps(const NameMap& by_key, const NameMap& by_stored_name) {
  m_entries = {};
  m_last_place = 0;
  m_lines = {};
  m_lines_by_stored_name.reset();
  m_by_key = {};
  m_by_stored_name = {};
  for (const auto& [key, stored] : by_key)
    m_by_key[m_by_key.add(kept(key), kept(stored))].is_doubtful = true;
  for (const auto& [stored, key] : by_stored_name) m_by_stored_name.add(kept(stored), kept(key));
}
