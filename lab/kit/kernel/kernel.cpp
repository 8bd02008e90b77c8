#include "lab/kit/kernel/kernel.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <utility>

#include "tests/support/process.h"
#include "vu_file.h"

bool is_emulated() {
  return ::GetProcAddress(::GetModuleHandleA("ntdll.dll"), "wine_get_version") != nullptr;
}

// Also printed, because a crashed program leaves no report.
void settles(int number, const char* what) {
  std::printf("number: %d\nsettles: %s\n", number, what);
  std::fflush(stdout);
  testing::Test::RecordProperty("number", std::to_string(number));
  testing::Test::RecordProperty("settles", what);
}
void found(const std::string& what) {
  std::printf("found: %s\n", what.c_str());
  std::fflush(stdout);
  testing::Test::RecordProperty("found", what);
}

bool is_administrator() {
  HANDLE token = nullptr;
  if (!::OpenProcessToken(::GetCurrentProcess(), TOKEN_QUERY, &token)) return false;
  TOKEN_ELEVATION elevation = {};
  DWORD size = 0;
  const bool is_told =
      ::GetTokenInformation(token, TokenElevation, &elevation, sizeof elevation, &size) != FALSE;
  ::CloseHandle(token);
  return is_told && elevation.TokenIsElevated != 0;
}

std::string file_system_of(const std::string& folder) {
  char root[MAX_PATH + 1] = "";
  char name[MAX_PATH + 1] = "";
  if (!::GetVolumePathNameA(folder.c_str(), root, MAX_PATH) ||
      !::GetVolumeInformationA(root, nullptr, 0, nullptr, nullptr, nullptr, name, MAX_PATH))
    return {};
  return name;
}

// ---- files --------------------------------------------------------------------------------------

RawFile::RawFile(const std::string& path, DWORD access, DWORD sharing, DWORD disposition)
    : m_handle(::CreateFileA(path.c_str(), access, sharing, nullptr, disposition,
                             FILE_ATTRIBUTE_NORMAL, nullptr)),
      m_code(is_open() ? 0 : ::GetLastError()) {}

RawFile::~RawFile() {
  if (is_open()) ::CloseHandle(m_handle);
}

DWORD RawFile::read_a_byte() const {
  char byte = 0;
  DWORD done = 0;
  return ::ReadFile(m_handle, &byte, 1, &done, nullptr) ? 0 : ::GetLastError();
}

bool is_one_lock(const std::string& one, const std::string& other) {
  vu_file writer(one);
  writer.open(vu_file::o_append);
  vu_file reader(other);
  bool is_refused = false;
  reader.try_open(vu_file::o_read, is_refused, true);
  return is_refused;
}

// ---- documents ----------------------------------------------------------------------------------

namespace {

std::int32_t collect(void* names, const vu_entry* entry) {
  static_cast<std::vector<std::string>*>(names)->push_back(entry->name);
  return 0;
}

/// Keeps the first defect.
class Findings {
 public:
  void expect(vu_status status, const std::string& what) {
    if (status != VU_DONE) add(what + ": " + vu_status_name(status));
  }
  void expect(const std::string& seen, const std::string& wanted, const std::string& what) {
    if (seen != wanted) add(what + ": '" + seen + "' instead of '" + wanted + "'");
  }
  std::string told() const { return m_first.empty() ? "all right" : m_first; }

 private:
  void add(const std::string& what) {
    if (m_first.empty()) m_first = what;
  }
  std::string m_first;
};

}  // namespace

const std::string& program_root() {
  static const scratch_folder root;
  return root.path();
}

Store::Store(const std::string& root, std::string owner) : m_owner(std::move(owner)) {
  vu_settings settings = VU_SETTINGS_INIT;
  settings.root = root.c_str();
  settings.flags = VU_MAKE_ROOT;
  const vu_status status = vu_open_store(&settings, &m_store);
  if (status != VU_DONE && status != VU_ALREADY)
    throw std::runtime_error("no storage in " + root + ": " + vu_status_name(status));
}
Store::~Store() { vu_close_store(m_store); }

vu_document Store::document(const std::string& name) const {
  vu_document result = VU_DOCUMENT_INIT;
  result.owner = m_owner.c_str();
  result.name = name.c_str();
  return result;
}

vu_status Store::put(const std::string& name, const std::string& bytes) {
  const vu_document where = document(name);
  return vu_put(m_store, &where, bytes.data(), bytes.size(), VU_REPLACE, nullptr);
}

vu_status Store::remove(const std::string& name) {
  const vu_document which = document(name);
  return vu_remove(m_store, &which);
}

vu_status Store::rename(const std::string& name, const std::string& to) {
  const vu_document from = document(name);
  const vu_document target = document(to);
  return vu_rename(m_store, &from, &target, VU_REPLACE);
}

std::string Store::content(const std::string& name) {
  const vu_document which = document(name);
  void* bytes = nullptr;
  std::size_t size = 0;
  const vu_status status = vu_read_whole(m_store, &which, &bytes, &size);
  if (status != VU_DONE) return "[" + std::string(vu_status_name(status)) + "]";
  std::string result(static_cast<const char*>(bytes), size);
  vu_free(bytes);
  return result;
}

std::vector<std::string> Store::names() {
  std::vector<std::string> result;
  const vu_status status =
      vu_each_document(m_store, VU_AREA_DOCS, m_owner.c_str(), 0, collect, &result);
  if (status != VU_DONE && status != VU_NOTHING_MATCHED)
    result.push_back("[" + std::string(vu_status_name(status)) + "]");
  std::sort(result.begin(), result.end());
  return result;
}

std::string Store::path(const std::string& name) {
  const vu_document which = document(name);
  std::string text(32768, '\0');
  if (vu_file_path(m_store, &which, text.data(), text.size(), nullptr) != VU_DONE) return {};
  text.resize(text.find('\0'));
  return text;
}

std::string work_in(Store& store) {
  constexpr int kDocuments = 12;
  Findings findings;
  const auto name = [](int number) { return "document " + std::to_string(number) + ".kdc"; };
  const std::string large(100'000, 'x');
  for (int i = 0; i < kDocuments; ++i)
    findings.expect(store.put(name(i), "old " + std::to_string(i)), "put");
  for (int i = 0; i < kDocuments; i += 2) findings.expect(store.put(name(i), large), "replace");
  for (int i = 0; i < kDocuments; ++i) {
    const std::string wanted = i % 2 == 0 ? large : "old " + std::to_string(i);
    findings.expect(store.content(name(i)), wanted, "content");
  }
  findings.expect(store.rename(name(0), "other.kdc"), "rename");
  findings.expect(store.content("other.kdc"), large, "content of the renamed one");
  findings.expect(store.remove(name(1)), "remove");
  findings.expect(store.content(name(1)), "[VU_NOTHING_MATCHED]", "the removed one");
  findings.expect(std::to_string(store.names().size()), std::to_string(kDocuments - 1), "list");
  for (const std::string& each : store.names()) findings.expect(store.remove(each), "remove");
  findings.expect(std::to_string(store.names().size()), "0", "the empty list");
  return findings.told();
}

namespace {

int work_in_a_tree(const std::vector<std::string>& args) {
  try {
    Store store(args.at(0));
    say(work_in(store));
  } catch (const std::exception& reason) {
    say(reason.what());
  }
  return 0;
}
REGISTER_ROLE(work_in_a_tree, work_in_a_tree)

}  // namespace

std::string work_of_a_process_in(const std::string& root) {
  child_process child("work_in_a_tree", {root});
  const auto line = child.next_line();
  child.wait();
  return line.value_or("the process ended without output");
}
