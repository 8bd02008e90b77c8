// Sub-parts of documents: written, read, made stale, refreshed from a preload copy, regenerated.
#include <chrono>

#include "demo.h"

namespace demo {

namespace {

using std::chrono::seconds;

/// The sub-parts of one document.
class Parts {
 public:
  Parts(Demo& demo, Version document)
      : m_demo(demo),
        m_document(std::move(document)),
        m_path(path_of_version(m_storage, m_document)) {}

  void write(const std::string& rendition, const std::string& id, const std::string& bytes);
  /// Checks that the sub-part is served with these bytes.
  void expect(const std::string& rendition, const std::string& id, const std::string& bytes,
              const std::string& why);
  /// Checks that the sub-part is not served, so that a client generates it.
  void expect_none(const std::string& rendition, const std::string& id, const std::string& why);
  /// Adds a sub-part to Demo::parts, from which the manifest is written.
  void keep(const std::string& rendition, const std::string& id, const std::string& bytes);
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
  return m_demo.report.check(size == bytes.size(), rendition + " " + id + " has the returned size");
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

/// Writes, refreshes and regenerates one sub-part and checks it after each change of a file time.
void live(Parts& parts, const std::string& rendition, const std::filesystem::path& type_folder,
          const std::filesystem::path& part_folder, const std::string& id) {
  namespace fs = std::filesystem;
  const std::string first = "generated from the first document\n";
  const std::string preloaded = "a preload copy, generated elsewhere\n";
  const std::string anew = "generated again by the client\n";
  const fs::path document = parts.document_file();
  const fs::file_time_type written = fs::last_write_time(document);
  parts.expect_none(rendition, id, "before it is written");
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
  parts.expect(rendition, id, preloaded, "again: the copy keeps its time");

  set_time_from(document, part, seconds(40));
  parts.expect_none(rendition, id, "when the document is newer than sub-part and preload copy");
  parts.write(rendition, id, anew);
  set_time_from(part, document, seconds(0));
  parts.expect(rendition, id, anew, "after it is generated again");
  // The next rendition uses the same document.
  fs::last_write_time(document, written);
  parts.expect(rendition, id, anew, "while it is newer than its document");
  parts.keep(rendition, id, anew);
}

/// Sub-parts of corporate "kdf" documents are served whatever their times.
void live_of_kdf(Demo& demo) {
  const std::size_t at = add_version(demo, "anna.schmidt", STG::CorporateRepository,
                                     "parts versioned.kdf", 1700000000, "a versioned document\n");
  Parts parts(demo, demo.versions[at]);
  parts.expect_none("html@p1", "page.html", "before it is written");
  parts.write("html@p1", "page.html", "a page\n");
  set_time_from(parts.document_file(), parts.root() / "html" / "p1" / "page.html", seconds(100));
  parts.expect("html@p1", "page.html", "a page\n", "although its document is newer");
  parts.expect_none("html@p1", "other.html", "when there is no such sub-part");
  parts.keep("html@p1", "page.html", "a page\n");
}

void replace_with_parts(Demo& demo, Parts& parts, const std::string& bytes) {
  vu_storage storage;
  demo.report.check(std::filesystem::is_directory(parts.root()),
                    "the document has a sub-part folder");
  demo.report.check(write_version(storage, parts.document(), bytes, true),
                    "the document is replaced");
  demo.report.check(!std::filesystem::exists(parts.root()), "its old sub-parts are removed");
}

}  // namespace

void use_parts(Demo& demo) {
  demo.report.begin("Sub-parts of documents");
  const std::string bytes = "the yearly report\n";
  Parts parts(demo, demo.versions[add_version(demo, "anna.schmidt", STG::CorporateRepository,
                                              "parts yearly.kdb", 0, bytes)]);
  parts.expect_none("html@p1", "page.html", "before any sub-part is written");
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
  demo.report.check(!file.is_open(), "a sub-part cannot be written without its document");
  ++demo.expected_errors;
  demo.report.say(
      "sub-parts in html, pdf and xls: written, served, refreshed from a preload copy,");
  demo.report.say("stale, generated again; also of a kdf document, with a stamp, and replaced");
}

}  // namespace demo
