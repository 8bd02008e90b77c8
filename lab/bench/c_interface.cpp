// Compares the C interface with the exported classes: storage_c_interface CALL c|class FOLDER
//
// scripts/bench-instructions.sh counts the instructions of measured(), which makes the call 100
// times in a storage with 100 documents of 4 KB. One earlier call is not counted.
//
//   exists   vu_exists             vu_storage::IsFileExist
//   served   vu_open, close        vu_storage::OpenRead, Close, with a new vu_file each time
//   over     vu_open, write, close vu_storage::OpenWrite2, Write, Close
//   read     vu_stream_read        vu_file::read into a buffer, of 4 KB
//   write    vu_stream_write       vu_file::write from a buffer, of 4 KB
//   text     vu_stream_write       vu_storage::Write of a string of 4 KB
//   whole    vu_read_whole         vu_storage::IsFileExist, vu_file::open, read, close, of 4 KB
//   list     vu_each_document      STGIndex::lpValues, of 100 entries
//   put      vu_put, in place      IsFileExist, then as "over"
//   latest   vu_latest             vu_storage::getLattestTimestamp, IsFileExist

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <string>
#include <utility>

#include "stg_index.h"
#include "vu/storage.h"
#include "vu_storage.h"

extern "C" [[gnu::noinline]] void measured(const std::function<void()>& operation) { operation(); }

namespace {

constexpr int kTimes = 100;
constexpr auto kArea = STG::CorporateRepository;

void repeat(const std::function<void()>& one) {
  for (int i = 0; i < kTimes; ++i) one();
}

class Calls {
 public:
  explicit Calls(const char* root) : m_store(opened(root)) {
    m_document.owner = "anna";
    m_document.version = 0;
    for (int i = 0; i < kTimes; ++i) {
      const std::string name = "document" + std::to_string(i) + ".kdc";
      m_document.name = name.c_str();
      check(vu_put(m_store, &m_document, m_bytes.data(), m_bytes.size(), VU_REPLACE | VU_IN_PLACE,
                   nullptr));
    }
    // For "list": in the user area one folder contains all documents of an owner.
    m_document.area = VU_AREA_USER;
    for (int i = 0; i < kTimes; ++i) {
      const std::string name = "document" + std::to_string(i) + ".kdc";
      m_document.name = name.c_str();
      check(vu_put(m_store, &m_document, "x", 1, VU_REPLACE | VU_IN_PLACE, nullptr));
    }
    m_document.area = VU_AREA_DOCS;
    m_document.name = "document7.kdc";
  }

  /// @return an empty function for an unknown call.
  std::function<void()> find(const std::string& call, const std::string& way) {
    const std::map<std::pair<std::string, std::string>, std::function<void()>> all = {
        {{"exists", "c"}, [this] { check(vu_exists(m_store, &m_document)); }},
        {{"exists", "class"},
         [this] { m_facade.IsFileExist("anna", m_document.name, kArea, 0, nullptr, nullptr); }},
        {{"served", "c"}, [this] { open(VU_READ_SERVED), check(vu_stream_close(m_stream)); }},
        {{"served", "class"},
         [this] {
           vu_file file;
           open_to_read(file);
           m_facade.Close(file);
         }},
        {{"over", "c"}, [this] { open(VU_WRITE_OVER), write(), check(vu_stream_close(m_stream)); }},
        {{"over", "class"},
         [this] {
           vu_file file;
           open_to_write(file);
           write_class(file);
           m_facade.Close(file);
         }},
        {{"read", "c"}, [this] { read(); }},
        {{"read", "class"}, [this] { read_class(m_file); }},
        {{"write", "c"}, [this] { write(); }},
        {{"write", "class"}, [this] { write_class(m_file); }},
        {{"text", "c"}, [this] { write(); }},
        {{"text", "class"}, [this] { m_facade.Write(m_file, m_bytes); }},
        {{"whole", "c"}, [this] { whole(); }},
        {{"whole", "class"}, [this] { whole_class(); }},
        {{"list", "c"}, [this] { list(); }},
        {{"list", "class"}, [this] { list_class(); }},
        {{"put", "c"}, [this] { put_in_place(); }},
        {{"put", "class"},
         [this] {
           exists_class();
           vu_file file;
           open_to_write(file);
           write_class(file);
           m_facade.Close(file);
         }},
        {{"latest", "c"}, [this] { check(vu_latest(m_store, &m_document, &m_version)); }},
        {{"latest", "class"}, [this] {
           const std::string name = m_document.name;
           const long version = vu_storage::getLattestTimestamp("anna", name, kArea);
           m_facade.IsFileExist("anna", name, kArea, version, nullptr, nullptr);
         }}};
    const auto found = all.find({call, way});
    if (found == all.end()) return nullptr;
    // The file is opened before the calls are counted.
    if (call == "read") way == "c" ? open(VU_READ_SERVED) : open_to_read(m_file);
    if (call == "write" || call == "text") way == "c" ? open(VU_WRITE_OVER) : open_to_write(m_file);
    return found->second;
  }

 private:
  static void check(vu_status status) {
    if (status == VU_DONE) return;
    std::fprintf(stderr, "error: %s\n", vu_status_name(status));
    std::exit(1);
  }
  /// Must run before the facade, which would initialise a storage in another folder.
  static vu_store* opened(const char* root) {
    vu_settings settings = VU_SETTINGS_INIT;
    settings.root = root;
    settings.flags = VU_MAKE_ROOT | VU_NO_ADOPTION;
    vu_store* store = nullptr;
    check(vu_open_store(&settings, &store));
    return store;
  }
  void open(std::int32_t mode) { check(vu_open(m_store, &m_document, mode, &m_stream)); }
  void open_to_read(vu_file& file) { m_facade.OpenRead(file, "anna", m_document.name, kArea, 0); }
  void open_to_write(vu_file& file) {
    m_facade.OpenWrite2(file, "anna", m_document.name, kArea, true, 0);
  }
  void exists_class() { m_facade.IsFileExist("anna", m_document.name, kArea, 0, nullptr, nullptr); }
  void put_in_place() {
    check(vu_put(m_store, &m_document, m_bytes.data(), m_bytes.size(), VU_REPLACE | VU_IN_PLACE,
                 nullptr));
  }
  void whole() {
    void* bytes = nullptr;
    std::size_t size = 0;
    check(vu_read_whole(m_store, &m_document, &bytes, &size));
    vu_free(bytes);
  }
  /// Reads a version by its path, because OpenRead() also applies the rules of the area.
  void whole_class() {
    std::string folder;
    std::string name;
    m_facade.IsFileExist("anna", m_document.name, kArea, 0, &folder, &name);
    vu_file file;
    file.open(folder, name, vu_file_base::o_read);
    std::string text;
    file.read(text, 0);
    file.close();
  }
  void list() {
    check(vu_each_document(
        m_store, VU_AREA_USER, "anna", 0, [](void*, const vu_entry*) -> std::int32_t { return 0; },
        nullptr));
  }
  static void list_class() {
    STGIndex::NameMap map;
    STGIndex::lpValues(vu_storage::getUserPath() + "\\anna", map);
  }
  void write() { check(vu_stream_write(m_stream, m_bytes.data(), m_bytes.size())); }
  void write_class(vu_file& file) { file.write(m_bytes.data(), static_cast<int>(m_bytes.size())); }
  void read() {
    std::size_t size = 0;
    check(vu_stream_read(m_stream, m_buffer, sizeof m_buffer, &size));
    check(vu_stream_seek(m_stream, 0, VU_FROM_START));
  }
  void read_class(vu_file& file) {
    file.read(m_buffer, sizeof m_buffer);
    file.seek(0, 0);
  }

  vu_store* m_store;
  vu_document m_document = VU_DOCUMENT_INIT;
  vu_stream* m_stream = nullptr;
  std::int64_t m_version = 0;
  vu_storage m_facade;
  vu_file m_file;
  std::string m_bytes = std::string(4096, 'x');
  char m_buffer[4096];
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fputs("usage: storage_c_interface CALL c|class FOLDER\n", stderr);
    return 2;
  }
  Calls calls(argv[3]);
  const std::function<void()> call = calls.find(argv[1], argv[2]);
  if (!call) {
    std::fprintf(stderr, "error: there is no call '%s' by '%s'\n", argv[1], argv[2]);
    return 2;
  }
  call();
  measured([&] { repeat(call); });
  return 0;
}
