#include "tests/support/os_calls.h"

#include <algorithm>
#include <condition_variable>
#include <filesystem>
#include <mutex>
#include <utility>

#include "tests/support/scratch.h"
#include "vu_i18n.h"

namespace os::faults {

namespace {

/// The names of the barriers that stop a thread.
struct Waiting {
  std::mutex mutex;
  std::vector<std::string> names;
};

Waiting& all_waiting() {
  static auto* const waiting = new Waiting;
  return *waiting;
}

}  // namespace

struct Barrier::Gate {
  explicit Gate(std::string its_name) : name(std::move(its_name)) {}

  void pass() {
    note_arrival();
    {
      std::unique_lock guard(mutex);
      ++standing;
      changed.notify_all();
      changed.wait(guard, [this] { return is_open; });
      --standing;
    }
    note_departure();
  }
  void note_arrival() const {
    const std::scoped_lock guard(all_waiting().mutex);
    all_waiting().names.push_back(name);
  }
  void note_departure() const {
    const std::scoped_lock guard(all_waiting().mutex);
    auto& names = all_waiting().names;
    names.erase(std::find(names.begin(), names.end(), name));
  }

  const std::string name;
  std::mutex mutex;
  std::condition_variable changed;
  int standing = 0;
  bool is_open = false;
};

Barrier::Barrier(std::string name, Call call, std::uint64_t nth)
    : m_gate(std::make_shared<Gate>(std::move(name))),
      m_fault(before(
          call, [gate = m_gate] { gate->pass(); }, nth)) {}

Barrier::~Barrier() { let_go(); }

const std::string& Barrier::name() const { return m_gate->name; }

bool Barrier::is_reached(std::chrono::milliseconds patience) const {
  std::unique_lock guard(m_gate->mutex);
  return m_gate->changed.wait_for(guard, patience, [this] { return m_gate->standing > 0; });
}

void Barrier::let_go() {
  const std::scoped_lock guard(m_gate->mutex);
  m_gate->is_open = true;
  m_gate->changed.notify_all();
}

std::vector<std::string> Barrier::waiting() {
  const std::scoped_lock guard(all_waiting().mutex);
  return all_waiting().names;
}

namespace {

using What = Change::What;

std::string text_of(const Path& path) {
  std::string text =
      path.is_wide() ? vu_utf8string(ucs2string(path.wide())).c_str() : path.narrow();
  std::replace(text.begin(), text.end(), '\\', '/');
  return text.rfind("//?/", 0) == 0 ? text.substr(4) : text;
}

std::string with_slashes(std::string text) {
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

std::set<std::string> files_below(const std::string& root) {
  std::set<std::string> files;
  const std::filesystem::path top = native(root);
  for (const auto& each : std::filesystem::recursive_directory_iterator(top)) {
    if (!each.is_directory()) files.insert(each.path().lexically_relative(top).generic_string());
  }
  return files;
}

const char* verb(What what) {
  switch (what) {
    case What::kCreate: return "create";
    case What::kWrite: return "write";
    case What::kCut: return "cut";
    case What::kFlush: return "flush";
    case What::kClose: return "close";
    case What::kRename: return "rename";
    case What::kRemove: return "remove";
    case What::kMakeFolder: return "make folder";
    case What::kRemoveFolder: return "remove folder";
  }
  return "?";
}

}  // namespace

std::string in_words(const Change& change) {
  std::string words = verb(change.what);
  if (change.what == What::kWrite) words += " " + std::to_string(change.bytes.size());
  if (change.what == What::kWrite || change.what == What::kCut) {
    words += " at " + std::to_string(change.offset);
  }
  words += ": " + change.path;
  return change.to.empty() ? words : words + " to " + change.to;
}

Recorder::Recorder(const std::string& root)
    : m_root(with_slashes(root) + "/"),
      m_known(files_below(root)),
      m_watch([this](const Made& made) { take(made); }) {}

std::vector<Change> Recorder::changes() const {
  const std::scoped_lock guard(m_mutex);
  return m_changes;
}

std::vector<std::string> Recorder::words() const {
  std::vector<std::string> all;
  for (const Change& each : changes()) all.push_back(in_words(each));
  return all;
}

std::string Recorder::relative(const Path& path) const {
  std::string text = text_of(path);
  if (text.rfind(m_root, 0) != 0) return {};
  text.erase(0, m_root.size());
  while (!text.empty() && text.back() == '/') text.pop_back();
  return text;
}

std::uint64_t Recorder::size_of(const std::string& path) const {
  return std::filesystem::file_size(native(m_root + path));
}

void Recorder::take(const Made& made) {
  const std::scoped_lock guard(m_mutex);
  if (made.call == Call::open) return take_open(made);
  if (made.handle != kNoHandle) return take_on_handle(made);
  if (made.call == Call::copy) return take_copy(made);
  const std::string path = relative(*made.path);
  const std::string to = made.to != nullptr ? relative(*made.to) : std::string();
  if (path.empty()) return;
  switch (made.call) {
    case Call::rename:
      m_changes.push_back({What::kRename, path, to});
      if (m_known.erase(path) != 0) m_known.insert(to);
      break;
    case Call::remove_file:
      m_changes.push_back({What::kRemove, path});
      m_known.erase(path);
      break;
    case Call::flush_file: m_changes.push_back({What::kFlush, path}); break;
    case Call::create_directory: m_changes.push_back({What::kMakeFolder, path}); break;
    case Call::remove_directory: m_changes.push_back({What::kRemoveFolder, path}); break;
    default: break;
  }
}

void Recorder::take_open(const Made& made) {
  const std::string path = relative(*made.path);
  if (path.empty()) return;
  m_open[made.handle] = {path, 0};
  if (m_known.insert(path).second) m_changes.push_back({What::kCreate, path});
}

void Recorder::take_on_handle(const Made& made) {
  const auto found = m_open.find(made.handle);
  if (found == m_open.end()) return;
  OpenFile& file = found->second;
  switch (made.call) {
    case Call::read: file.position += static_cast<std::uint64_t>(made.number); break;
    case Call::write:
      file.position = made.offset.value_or(file.position);
      m_changes.push_back({What::kWrite, file.path, {}, file.position, std::string(made.bytes)});
      file.position += made.bytes.size();
      break;
    case Call::seek: {
      const std::uint64_t from = made.method == 0   ? 0
                                 : made.method == 1 ? file.position
                                                    : size_of(file.path);
      file.position = from + static_cast<std::uint64_t>(made.number);
      break;
    }
    case Call::set_end: m_changes.push_back({What::kCut, file.path, {}, file.position}); break;
    case Call::flush: m_changes.push_back({What::kFlush, file.path}); break;
    case Call::close:
      m_changes.push_back({What::kClose, file.path});
      m_open.erase(found);
      break;
    default: break;
  }
}

void Recorder::take_copy(const Made& made) {
  const std::string to = relative(*made.to);
  if (to.empty()) return;
  if (m_known.insert(to).second) {
    m_changes.push_back({What::kCreate, to});
  } else {
    m_changes.push_back({What::kCut, to});
  }
  const std::string bytes = read_file(m_root + to);
  if (!bytes.empty()) m_changes.push_back({What::kWrite, to, {}, 0, bytes});
}

}  // namespace os::faults
