// Parts of documents: written, read, made stale, refreshed from a preload copy, to be regenerated.
#include <chrono>

#include "demo.h"

namespace demo {

namespace {

using std::chrono::seconds;

/// The parts of one document; every operation ends with what the file's state says.
class Parts {
 public:
  Parts(Demo& demo, Version document)
      : m_demo(demo),
        m_document(std::move(document)),
        m_path(path_of_version(m_storage, m_document)) {}

  void write(const std::string& rendition, const std::string& id, const std::string& bytes);
  /// Checks that the part is served with these bytes.
  void expect(const std::string& rendition, const std::string& id, const std::string& bytes,
              const std::string& why);
  /// Checks that the client is told to generate the part.
  void expect_none(const std::string& rendition, const std::string& id, const std::string& why);
  /// Keeps a part in the list that the manifest is made of.
  void keep(const std::string& rendition, const std::string& id, const std::string& bytes);
  /// The document's file as it lies on disk.
  std::filesystem::path document_file() const { return native(m_path); }
  std::filesystem::path root() const {
    return native(m_path + "_" + vu_storage::getTdcTimeStamp());
  }
  const Version& document() const { return m_document; }

 private:
  bool read(const std::string& rendition, const std::string& id, std::string& bytes);

  Demo& m_demo;
  Version m_document;
  vu_storage m_storage;
  std::string m_path;
};

void Parts::write(const std::string& rendition, const std::string& id, const std::string& bytes) {
  vu_file file;
  m_storage.OpenWriteSubPart(file, m_document.owner, m_document.entry, rendition, id,
                             m_document.stamp);
  if (m_demo.report.check(file.is_open(), rendition + " " + id + " opens for writing"))
    m_storage.Write(file, bytes);
  m_storage.Close(file);
}

bool Parts::read(const std::string& rendition, const std::string& id, std::string& bytes) {
  vu_file file;
  unsigned long size = 0;
  m_storage.OpenReadSubPartEx(file, "reader", m_document.owner, m_document.entry, rendition, id,
                              m_document.stamp, size);
  if (!file.is_open()) return false;
  m_storage.Read(file, bytes, 0);
  m_storage.Close(file);
  return m_demo.report.check(size == bytes.size(), rendition + " " + id + " has the size told");
}

void Parts::expect(const std::string& rendition, const std::string& id, const std::string& bytes,
                   const std::string& why) {
  std::string back;
  m_demo.report.check(read(rendition, id, back) && back == bytes,
                      rendition + " " + id + " is served " + why);
}

void Parts::expect_none(const std::string& rendition, const std::string& id,
                        const std::string& why) {
  std::string back;
  m_demo.report.check(!read(rendition, id, back), rendition + " " + id + " is not served " + why);
}

void Parts::keep(const std::string& rendition, const std::string& id, const std::string& bytes) {
  m_demo.parts.push_back({m_document.owner, m_document.entry, rendition, id, m_document.stamp,
                          bytes.size(), fnv1a(bytes)});
}

/// One part of each rendition through its whole life.
void live(Parts& parts, const std::string& rendition, const std::filesystem::path& type_folder,
          const std::filesystem::path& part_folder, const std::string& id) {
  namespace fs = std::filesystem;
  const std::string first = "made from the first document\n";
  const std::string preloaded = "made elsewhere, ahead of time\n";
  const std::string anew = "made anew by the client\n";
  const fs::path document = parts.document_file();
  const fs::file_time_type written = fs::last_write_time(document);
  parts.expect_none(rendition, id, "before it was made");
  parts.write(rendition, id, first);
  parts.expect(rendition, id, first, "as written");

  const fs::path preload = type_folder / "preload" / id;
  fs::create_directories(preload.parent_path());
  write_whole(preload, preloaded);
  const fs::path part = part_folder / id;
  set_time_from(preload, part, seconds(-60));
  parts.expect(rendition, id, first, "while the preload copy is older");
  set_time_from(part, document, seconds(-30));
  set_time_from(preload, document, seconds(20));
  parts.expect(rendition, id, preloaded, "from the newer preload copy");
  parts.expect(rendition, id, preloaded, "again: the copy kept its time");

  set_time_from(document, part, seconds(40));
  parts.expect_none(rendition, id, "since the document is newer than part and preload copy");
  parts.write(rendition, id, anew);
  set_time_from(part, document, seconds(0));
  parts.expect(rendition, id, anew, "once it was generated again");
  // The document serves for other renditions too.
  fs::last_write_time(document, written);
  parts.expect(rendition, id, anew, "while it is newer than its document");
  parts.keep(rendition, id, anew);
}

/// Corporate "kdf" documents: whatever their parts' times.
void live_of_kdf(Demo& demo) {
  const std::size_t at = add_version(demo, "anna.schmidt", STG::CorporateRepository,
                                     "parts versioned.kdf", 1700000000, "a versioned document\n");
  Parts parts(demo, demo.versions[at]);
  parts.expect_none("html@p1", "page.html", "before it was made");
  parts.write("html@p1", "page.html", "a page\n");
  set_time_from(parts.document_file(), parts.root() / "html" / "p1" / "page.html", seconds(100));
  parts.expect("html@p1", "page.html", "a page\n", "although its document is newer");
  parts.expect_none("html@p1", "other.html", "when there is no such part");
  parts.keep("html@p1", "page.html", "a page\n");
}

void replace_with_parts(Demo& demo, Parts& parts, const std::string& bytes) {
  vu_storage storage;
  demo.report.check(std::filesystem::is_directory(parts.root()),
                    "the document has a sub-part folder");
  demo.report.check(write_version(storage, parts.document(), bytes, true),
                    "the document is replaced");
  demo.report.check(!std::filesystem::exists(parts.root()), "its parts went with the old bytes");
}

}  // namespace

void use_parts(Demo& demo) {
  demo.report.begin("Parts of documents and the update decision");
  const std::string bytes = "the yearly report\n";
  Parts parts(demo, demo.versions[add_version(demo, "anna.schmidt", STG::CorporateRepository,
                                              "parts yearly.kdb", 0, bytes)]);
  parts.expect_none("html@p1", "page.html", "before any part was made");
  parts.write("html@p1", "page.html", "to be replaced");
  replace_with_parts(demo, parts, bytes);

  parts.write("txt", "notes.txt", "some notes\n");
  const std::filesystem::path root = parts.root();
  live(parts, "html@p1", root / "html", root / "html" / "p1", "page one.html");
  live(parts, "pdf@book", root / "pdf", root / "pdf" / "book", "book.pdf");
  live(parts, "xls", root, root / "xls", "sheet.xls");
  live_of_kdf(demo);

  vu_storage::setTdcTimeStamp("2024");
  parts.expect_none("xls", "sheet.xls", "under another stamp");
  parts.write("xls", "sheet.xls", "stamped\n");
  parts.expect("xls", "sheet.xls", "stamped\n", "under its stamp");
  vu_storage::setTdcTimeStamp("");

  vu_storage storage;
  vu_file file;
  storage.OpenWriteSubPart(file, "anna.schmidt", "unknown.kdb", "xls", "sheet.xls", 0);
  demo.report.check(!file.is_open(), "a part needs its document");
  ++demo.expected_errors;
  demo.report.say("html, pdf and xls parts: written, served, refreshed from a preload copy, found");
  demo.report.say(
      "stale, generated again; a kdf document's; parts under a stamp; replaced documents");
}

}  // namespace demo
