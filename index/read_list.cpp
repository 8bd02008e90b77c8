#include "index/read_list.h"

#include <array>
#include <optional>
#include <utility>

#include "file/handle_core.h"
#include "file/lock_limit.h"
#include "file/path_text.h"
#include "index/folder_files.h"
#include "index/index_format.h"
#include "index/index_source.h"
#include "platform/host/trace.h"

namespace {

constexpr std::size_t kFields = 6;

/// The positions of the six tabs of a line.
using Tabs = std::array<std::size_t, kFields>;

/// Required: the search begins at position 1, and for each further tab two positions after the last
/// one. So no field is empty, and a tab at the start of a field belongs to the field.
std::optional<Tabs> tabs_of(std::string_view line) {
  Tabs tabs{};
  std::size_t from = 1;
  for (std::size_t& tab : tabs) {
    tab = line.find('\t', from);
    if (tab == std::string_view::npos) return std::nullopt;
    from = tab + 2;
  }
  return tabs;
}

std::string_view extension_for(char kind) {
  switch (kind) {
    case 'A': return ".kda";
    case 'B': return ".kdb";
    case 'H':
    case 'R':
    case 'T': return ".kdc";
    case 'N': return ".kdd";
    case 'U': return ".kde";
    case 'Z': return ".kdf";
    default: return ".kdg";
  }
}

constinit thread_local bool t_keeps_lock = false;

}  // namespace

KeepsListLock::KeepsListLock() noexcept : m_before(std::exchange(t_keeps_lock, true)) {}
KeepsListLock::~KeepsListLock() { t_keeps_lock = m_before; }
bool KeepsListLock::is_set() noexcept { return t_keeps_lock; }

std::string ReadList::name_of(std::string_view line) {
  const std::optional<Tabs> tabs = tabs_of(line);
  if (!tabs) return std::string();
  const auto field = [&](std::size_t number) {
    const std::size_t begin = number == 1 ? 0 : (*tabs)[number - 2] + 1;
    return line.substr(begin, (*tabs)[number - 1] - begin);
  };
  std::string name;
  name.reserve(line.size());
  name.append(field(4)).append("#").append(field(5)).append("#");
  name.append(field(1)).append("#").append(field(2)).append(extension_for(field(3).front()));
  return name;
}

ReadList::ReadList(const std::string& folder, const std::string& file_name)
    : m_folder(folder), m_file_name(file_name), m_file(folder, file_name) {}

void ReadList::load() {
  // If the system cannot tell whether the list exists, open() fails with the reason.
  if (presence_of(path_text::join(m_folder, m_file_name)) == Presence::kMissing) return;
  const bool keeps_lock = KeepsListLock::is_set() || LockLimit::is_set();
  m_file.open(keeps_lock ? vu_file::o_append : vu_file::o_read);
  const FileText text = read_to_end(m_file);
  if (!keeps_lock) m_file.close();

  // Required: the text after the last line feed is a line, but loses its last character. A text
  // without a line feed contains no line.
  const auto enter = [this](std::string_view line) {
    std::string name = name_of(line);
    // The end is the right place in a list that was saved before.
    if (!name.empty()) m_lines.emplace_hint(m_lines.end(), std::move(name), line);
  };
  const std::string_view all = text.view();
  std::size_t begin = 0;
  for (std::size_t end = all.find('\n'); end != std::string_view::npos;
       end = all.find('\n', begin)) {
    enter(all.substr(begin, end - begin));
    begin = end + 1;
  }
  if (begin != 0 && begin < all.size()) enter(all.substr(begin, all.size() - begin - 1));
}

void ReadList::save() {
  VU_TRACE_SCOPE(kIndexSource, vu_host::trace_level::xl);
  std::string text;
  for (const auto& [name, line] : m_lines) text.append(line).append("\n");
  if (m_file.is_open()) {
    // A failure is traced.
    static_cast<void>(rewrite(m_file, text));
  } else {
    m_file.open(vu_file::o_truncate);
    m_file.write(text);
  }
  m_file.close();
}

void ReadList::unescape_line_of(const std::string& name) {
  const auto it = m_lines.find(name);
  if (it == m_lines.end()) return;
  std::string& line = it->second;
  // If an earlier call has emptied the field, the search skips the tab after it.
  const std::size_t begin = line.find('\t', 1) + 1;
  const std::size_t end = line.find('\t', begin + 1);
  if (end == std::string::npos) return;
  const std::string_view field = std::string_view(line).substr(begin, end - begin);
  line.replace(begin, end - begin, index_format::unescape(field));
}
