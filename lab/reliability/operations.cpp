#include "lab/reliability/operations.h"

#include <filesystem>
#include <memory>
#include <string>

#include "platform/os/os.h"
#include "stg_index.h"
#include "tests/support/scratch.h"
#include "vu_file.h"
#include "vu_file_except.h"
#include "vu_fileutf8.h"
#include "vu_path.h"
#include "vu_storage.h"

namespace reliability {
namespace {

const std::string kAnna = "anna";
const std::string kReport = "report.kdb";
const vu_utf8string kAnna8("anna");
const vu_utf8string kReport8("report.kdb");
constexpr STG::RepositoryType kUser = STG::UserRepository;
constexpr unsigned kIndexWriters = kForIndexWriter;
constexpr unsigned kIndexChange = kForIndexWriter | kForIndexReader;
constexpr unsigned kIndexNew = kIndexChange | kForCounter;
constexpr unsigned kIndexAndDocument = kForIndexWriter | kForDocument;

STG::NameValueSeq some_lines() {
  STG::NameValueSeq lines;
  lines.push_back({"report.kdb", "1"});
  return lines;
}

/// After vu_file_except the pointer is invalid; after another exception the caller must free it.
void read_into_a_buffer(vu_fileutf8& file) {
  unsigned char* bytes = nullptr;
  unsigned int length = 0;
  try {
    file.read(bytes, length);
  } catch (const vu_file_except&) {
    throw;
  } catch (...) {
    delete[] bytes;
    throw;
  }
  delete[] bytes;
}

void open_and(const Place& place, vu_file_base::type_access mode,
              const std::function<void(vu_file&)>& use) {
  vu_file file(place.document());
  file.open(mode);
  use(file);
  file.close();
}
void open8_and(const Place& place, vu_file_base::type_access mode,
               const std::function<void(vu_fileutf8&)>& use) {
  vu_fileutf8 file{vu_utf8string(place.document())};
  file.open(mode);
  use(file);
  file.close();
}
/// @return whether the document is open after @p use.
bool with_document(const std::function<void(vu_storage&, vu_file&)>& use) {
  vu_storage storage;
  vu_file file;
  use(storage, file);
  const bool is_open = file.is_open();
  storage.Close(file);
  return is_open;
}

/// @return whether Close closes a document that was open.
bool closes_a_document() {
  vu_storage storage;
  vu_file file;
  storage.OpenRead(file, kAnna, kReport, kUser, 0);
  const bool was_open = file.is_open();
  storage.Close(file);
  return was_open && !file.is_open();
}

using Operations = std::vector<PublicOperation>;

// One operation per line, as a table.
// clang-format off

void add_index(Operations& all) {
  all.insert(all.end(), {
    {"STGIndex::exists", kIndexWriters, [](const Place& p) { std::string name; return STGIndex::exists(p.folder(), kReport, 0, name); }},
    {"STGIndex::create", kIndexNew, [](const Place& p) { return STGIndex::create(p.folder(), "new.kdb", 3); }},
    {"STGIndex::remove", kIndexChange, [](const Place& p) { return STGIndex::remove(p.folder(), kReport, 0); }},
    {"STGIndex::rename", kIndexNew, [](const Place& p) { return STGIndex::rename(p.folder(), kReport, 0, "other.kdb", 1); }},
    {"STGIndex::lastVersion", kIndexWriters, [](const Place& p) { long stamp = 0; return STGIndex::lastVersion(p.folder(), kReport, stamp); }},
    {"STGIndex::plValues", kIndexWriters, [](const Place& p) { STGIndex::NameMap map; return STGIndex::plValues(p.folder(), map); }},
    {"STGIndex::lpValues", kIndexWriters, [](const Place& p) { STGIndex::NameMap map; return STGIndex::lpValues(p.folder(), map); }},
    {"STGIndex::getCategories", kIndexWriters, [](const Place& p) { STGIndex::NameMap map; return STGIndex::getCategories(p.folder(), map); }},
    {"STGIndex::getVUDocs", kIndexWriters, [](const Place& p) { STGIndex::NameMap map; return STGIndex::getVUDocs(p.folder(), map); }},
    {"STGIndex::getPhysicalName", kIndexWriters, [](const Place& p) { return STGIndex::getPhysicalName(p.folder(), kReport); }},
    {"STGIndex::getPhysicalPath", kIndexNew, [](const Place& p) { return STGIndex::getPhysicalPath(p.folder(), "new.kdb"); }},
    {"STGIndex::updateIndexFile", kIndexChange, [](const Place& p) { return STGIndex::updateIndexFile(p.folder()); }},
    {"STGIndex::cleanOutOfDateOutput", kIndexWriters, [](const Place& p) { STGIndex::AgeMap kept; return STGIndex::cleanOutOfDateOutput(p.folder(), 100'000, kept, false); }},
    {"STGIndex::cleanAllOutput", kIndexChange, [](const Place& p) { return STGIndex::cleanAllOutput(p.folder()); }},
    {"STGIndex::cleanOutputDirectories", kForNobody, [](const Place& p) { unsigned long size = 0; return STGIndex::cleanOutputDirectories(p.folder(), "00000001.kdb", &size); }},
    {"STGIndex::migrateInboxRead", kForNobody, [](const Place&) { return STGIndex::migrateInboxRead(kAnna); }},
    {"STGIndex::setSynchronizeMode", kForNobody, [](const Place& p) { return STGIndex::setSynchronizeMode(p.synchronize); }},
    {"STGIndex::iSsambaOrT101", kForNobody, [](const Place&) { return STGIndex::iSsambaOrT101("a%20b"); }},
    {"STGIndex::UnescapeVU", kForNobody, [](const Place&) { std::string name = "a%20b"; return STGIndex::UnescapeVU(name); }},
  });
}

void add_storage_roots(Operations& all) {
  all.insert(all.end(), {
    {"vu_storage::vu_storage", kForNobody, [](const Place&) { const vu_storage one; vu_storage other(one); other = one; }},
    {"vu_storage::initRootStorage", kForNobody, [](const Place& p) { return vu_storage::initRootStorage(p.root, true, true); }},
    {"vu_storage::getStoragePath", kForNobody, [](const Place&) { return vu_storage::getStoragePath(); }},
    {"vu_storage::getCorpPath", kForNobody, [](const Place&) { return vu_storage::getCorpPath(); }},
    {"vu_storage::getUserPath", kForNobody, [](const Place&) { return vu_storage::getUserPath(); }},
    {"vu_storage::getListPath", kForNobody, [](const Place&) { return vu_storage::getListPath(); }},
    {"vu_storage::getConfigDirPath", kForNobody, [](const Place&) { return vu_storage::getConfigDirPath(); }},
    {"vu_storage::getMailPath", kForNobody, [](const Place&) { return vu_storage::getMailPath(); }},
    {"vu_storage::getSemletPath", kForNobody, [](const Place&) { return vu_storage::getSemletPath(); }},
    {"vu_storage::getTdcTimeStamp", kForNobody, [](const Place&) { return vu_storage::getTdcTimeStamp(); }},
    {"vu_storage::setTdcTimeStamp", kForNobody, [](const Place&) { return vu_storage::setTdcTimeStamp("1"); }},
    {"vu_storage::createUserOrDomainNameDirectory", kForNobody, [](const Place&) { std::string folder; return vu_storage::createUserOrDomainNameDirectory(kAnna, kReport, kUser, folder, true); }},
    {"vu_storage::isVuDocExt", kForNobody, [](const Place&) { return vu_storage::isVuDocExt("kda"); }},
    {"vu_storage::getStringFromNameValueSeq", kForNobody, [](const Place&) { return vu_storage::getStringFromNameValueSeq(some_lines()); }},
  });
}

void add_documents(Operations& all) {
  all.insert(all.end(), {
    {"vu_storage::OpenRead", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenRead(f, kAnna, kReport, kUser, 0); }); }},
    {"vu_storage::OpenRead (UTF-8)", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenRead(f, kAnna8, kReport8, kUser, 0); }); }},
    {"vu_storage::OpenWrite2", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWrite2(f, kAnna, kReport, kUser, true, 0); }); }},
    {"vu_storage::OpenWrite", kIndexNew, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWrite(f, kAnna, "new.kdb", kUser, true, 0); }); }},
    {"vu_storage::OpenWrite (UTF-8)", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWrite(f, kAnna8, kReport8, kUser, true, 0); }); }},
    {"vu_storage::OpenWrite (category files)", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWrite(f, kAnna, kReport, STG::UserFilesRepository, true, 0); }); }},
    {"vu_storage::Read", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenRead(f, kAnna, kReport, kUser, 0); std::string text; s.Read(f, text, 0); }); }},
    {"vu_storage::Read (keys)", kIndexWriters, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenRead(f, kAnna, "list.ctg", kUser, 0); STG::NameValueSeq lines; vu_storage::Read(f, lines, false); }); }},
    {"vu_storage::Write", kIndexAndDocument, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWrite(f, kAnna, kReport, kUser, true, 0); s.Write(f, "text"); }); }},
    {"vu_storage::Close", kIndexAndDocument, [](const Place&) { return closes_a_document(); }},
    {"vu_storage::IsFileExist", kIndexWriters, [](const Place&) { return vu_storage().IsFileExist(kAnna, kReport, kUser, 0, nullptr, nullptr); }},
    {"vu_storage::IsFileExist (UTF-8)", kIndexWriters, [](const Place&) { return vu_storage().IsFileExist(kAnna8, kReport8, kUser, 0, nullptr, nullptr); }},
    {"vu_storage::getLattestTimestamp", kIndexWriters, [](const Place&) { return vu_storage::getLattestTimestamp(kAnna, kReport, kUser); }},
    {"vu_storage::getIndexNameFromDocName", kIndexWriters, [](const Place& p) { std::string name; return vu_storage::getIndexNameFromDocName(p.folder(), kReport, 0, name); }},
    {"vu_storage::update_IndexDat", kIndexChange, [](const Place& p) { return vu_storage().update_IndexDat(p.folder()); }},
    {"vu_storage::copyToStorage", kIndexAndDocument, [](const Place& p) { return vu_storage::copyToStorage(p.plain("one.txt"), kAnna, kReport, kUser, true, 0); }},
    {"vu_storage::copyFromStorage", kIndexAndDocument, [](const Place& p) { return vu_storage::copyFromStorage(p.plain("copy"), kAnna, kReport, kUser, 0); }},
    {"vu_storage::copyFileToStorage", kIndexNew, [](const Place& p) { return vu_storage().copyFileToStorage(p.root + "\\plain", "one.txt", kAnna, kUser); }},
    {"vu_storage::copyFileToStorage (UTF-8)", kIndexNew, [](const Place& p) { return vu_storage().copyFileToStorage(p.root + "\\plain", "one.txt", kAnna8, kUser); }},
    {"vu_storage::copyFileToUserPath", kIndexNew, [](const Place& p) { return vu_storage().copyFileToUserPath(p.root + "\\plain", "one.txt", kAnna); }},
    {"vu_storage::getAllFileListFromIndexFile", kIndexWriters, [](const Place& p) { std::vector<std::string> names; return vu_storage::getAllFileListFromIndexFile(p.folder(), names); }},
    {"vu_storage::getFileListFromIndexFile", kIndexWriters, [](const Place& p) { std::vector<std::string> names; return vu_storage::getFileListFromIndexFile(p.folder(), names, nullptr); }},
  });
}

void add_keys_parts_and_users(Operations& all) {
  all.insert(all.end(), {
    {"vu_storage::readKeysFile", kForDocument, [](const Place& p) { STG::NameValueSeq lines; return vu_storage::readKeysFile(p.folder(), "00000001.kdb", lines, false); }},
    {"vu_storage::writeKeysFile", kForDocument, [](const Place& p) { return vu_storage::writeKeysFile(p.folder(), "00000001.kdb", "a=1\n", true); }},
    {"vu_storage::saveUserOrMasterProfile", kIndexWriters, [](const Place&) { return vu_storage::saveUserOrMasterProfile(kAnna, "list.ctg", some_lines()); }},
    {"vu_storage::loadUserOrMasterProfile", kIndexWriters, [](const Place&) { STG::NameValueSeq lines; return vu_storage::loadUserOrMasterProfile(kAnna, "list.ctg", lines); }},
    {"vu_storage::OpenWriteSubPart", kForNobody, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWriteSubPart(f, kAnna, "page.kdc", "html@x", "part", 5); }); }},
    {"vu_storage::OpenWriteSubPart (UTF-8)", kForNobody, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenWriteSubPart(f, kAnna8, vu_utf8string("page.kdc"), "html@x", "part", 5); }); }},
    {"vu_storage::OpenReadSubPart", kForNobody, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenReadSubPart(f, kAnna, kAnna, "page.kdc", "html@x", "part", 5); }); }},
    {"vu_storage::OpenReadSubPart (UTF-8)", kForNobody, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { s.OpenReadSubPart(f, kAnna8, kAnna8, vu_utf8string("page.kdc"), "html@x", "part", 5); }); }},
    {"vu_storage::OpenReadSubPartEx", kForNobody, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { unsigned long size = 0; s.OpenReadSubPartEx(f, kAnna, kAnna, "page.kdc", "html@x", "current", 5, size); }); }},
    {"vu_storage::OpenReadSubPartEx (UTF-8)", kForNobody, [](const Place&) { return with_document([](vu_storage& s, vu_file& f) { unsigned long size = 0; s.OpenReadSubPartEx(f, kAnna8, kAnna8, vu_utf8string("page.kdc"), "html@x", "current", 5, size); }); }},
    {"vu_storage::RenameUserStorage", kForNobody, [](const Place&) { return vu_storage::RenameUserStorage(kAnna, "berta"); }},
    {"vu_storage::RemoveUserStorage", kForNobody, [](const Place&) { return vu_storage::RemoveUserStorage(kAnna8); }},
    {"vu_storage::RemoveUsersStorage", kForNobody, [](const Place&) { Sequence<vu_utf8string> names; names.push_back(kAnna8); return vu_storage::RemoveUsersStorage(names); }},
    {"vu_storage::RemoveFile", kIndexChange, [](const Place&) { return vu_storage::RemoveFile(kAnna, kReport, kUser, 0); }},
    {"vu_storage::RemoveFile (UTF-8)", kIndexChange, [](const Place&) { return vu_storage::RemoveFile(kAnna8, kReport8, STG::UserFilesRepository, 0); }},
  });
}

void add_narrow_files(Operations& all) {
  all.insert(all.end(), {
    {"vu_file::vu_file", kForNobody, [](const Place& p) { const vu_file one(p.folder(), "a"); vu_file other(one); other = vu_file(p.document()); }},
    {"vu_file::setPath", kForNobody, [](const Place& p) { return vu_file().setPath(p.document()); }},
    {"vu_file::getFilePath", kForNobody, [](const Place& p) { (void)vu_file(p.document()).getFilePath(); }},
    {"vu_file::getPath", kForNobody, [](const Place& p) { (void)vu_file(p.document()).getPath(); }},
    {"vu_file::try_open", kForNobody, [](const Place& p) { vu_file file(p.document()); bool refused = false; return file.try_open(vu_file::o_write, refused, true); }},
    {"vu_file::open", kForDocument, [](const Place& p) { vu_file file; return file.open(p.folder(), "00000001.kdb", vu_file::o_truncate); }},
    {"vu_file::read", kForDocument, [](const Place& p) { return open_and(p, vu_file::o_read, [](vu_file& f) { std::string text; f.read(text, 0); char one = 0; f.read(&one, 1); }); }},
    {"vu_file::write", kForDocument, [](const Place& p) { return open_and(p, vu_file::o_append, [](vu_file& f) { f.write("text"); f.write("text", 4); }); }},
    {"vu_file::seek", kForDocument, [](const Place& p) { return open_and(p, vu_file::o_write, [](vu_file& f) { f.seek(1, 0); }); }},
    {"vu_file::rewind", kForDocument, [](const Place& p) { return open_and(p, vu_file::o_write, [](vu_file& f) { f.rewind(); }); }},
    {"vu_file::clear", kForDocument, [](const Place& p) { return open_and(p, vu_file::o_write, [](vu_file& f) { f.clear(); }); }},
    {"vu_file::close", kForDocument, [](const Place& p) { return open_and(p, vu_file::o_write, [](vu_file& f) { f.close(); }); }},
    {"vu_file::is_open", kForNobody, [](const Place& p) { (void)vu_file(p.document()).is_open(); }},
    {"vu_file::is_locked", kForNobody, [](const Place& p) { (void)vu_file(p.document()).is_locked(); }},
    {"vu_file::linesNotEmpty", kForDocument, [](const Place& p) { std::vector<std::string> lines; return vu_file::linesNotEmpty(p.folder(), "00000001.kdb", lines); }},
    {"vu_file::exists", kForNobody, [](const Place& p) { return vu_file::exists(p.document()); }},
    {"vu_file::access_time", kForNobody, [](const Place& p) { return vu_file::access_time(p.document()); }},
    {"vu_file::modify_time", kForNobody, [](const Place& p) { return vu_file::modify_time(p.document()); }},
    {"vu_file::size", kForNobody, [](const Place& p) { return vu_file::size(p.document()); }},
    {"vu_file::is_dir", kForNobody, [](const Place& p) { return vu_file::is_dir(p.folder()); }},
    {"vu_file::filenames", kForNobody, [](const Place& p) { return vu_file::filenames(p.folder()); }},
    {"vu_file::chmodW", kForNobody, [](const Place& p) { return vu_file::chmodW(p.document()); }},
    {"vu_file::createDir", kForNobody, [](const Place& p) { return vu_file::createDir(p.plain("new")); }},
    {"vu_file::remove", kForNobody, [](const Place& p) { return vu_file::remove(p.document()); }},
    {"vu_file::rename", kForNobody, [](const Place& p) { return vu_file::rename(p.document(), p.document() + "x"); }},
    {"vu_file::copyFile", kForNobody, [](const Place& p) { vu_file::copyFile(p.document(), p.plain("copy"), true); return vu_file::copyFile(p.plain("one.txt"), p.document(), true); }},
    {"vu_file::recurseRemoveDir", kForNobody, [](const Place& p) { return vu_file::recurseRemoveDir(p.folder()); }},
    {"vu_file::getShirtFileName", kForNobody, [](const Place& p) { std::string folder; return vu_file::getShirtFileName(p.document(), folder); }},
    {"vu_file::addFileSep", kForNobody, [](const Place& p) { std::string path = p.root; return vu_file::addFileSep(path); }},
    {"vu_file::removeLastFileSep", kForNobody, [](const Place& p) { std::string path = p.root; return vu_file::removeLastFileSep(path); }},
    {"vu_file::split", kForNobody, [](const Place&) { std::string name = "a.b"; std::string extension; return vu_file::split(name, extension); }},
    {"vu_file::getExtension", kForNobody, [](const Place&) { return vu_file::getExtension("a.b"); }},
  });
}

void add_utf8_files(Operations& all) {
  using Text = vu_utf8string;
  all.insert(all.end(), {
    {"vu_fileutf8::vu_fileutf8", kForNobody, [](const Place& p) { const vu_fileutf8 one(Text(p.folder()), Text("a")); vu_fileutf8 other(one); other = vu_fileutf8(Text(p.document())); }},
    {"vu_fileutf8::setPath", kForNobody, [](const Place& p) { return vu_fileutf8().setPath(Text(p.document())); }},
    {"vu_fileutf8::getFilePath", kForNobody, [](const Place& p) { (void)vu_fileutf8(Text(p.document())).getFilePath(); }},
    {"vu_fileutf8::getPath", kForNobody, [](const Place& p) { (void)vu_fileutf8(Text(p.document())).getPath(); }},
    {"vu_fileutf8::try_open", kForNobody, [](const Place& p) { vu_fileutf8 file{Text(p.document())}; bool refused = false; return file.try_open(vu_fileutf8::o_write, refused, true); }},
    {"vu_fileutf8::open", kForDocument, [](const Place& p) { vu_fileutf8 file; return file.open(Text(p.folder()), Text("00000001.kdb"), vu_fileutf8::o_truncate); }},
    {"vu_fileutf8::read", kForDocument, [](const Place& p) { return open8_and(p, vu_fileutf8::o_read, [](vu_fileutf8& f) { std::string text; f.read(text, 0); char one = 0; f.read(&one, 1); f.rewind(); read_into_a_buffer(f); }); }},
    {"vu_fileutf8::write", kForDocument, [](const Place& p) { return open8_and(p, vu_fileutf8::o_append, [](vu_fileutf8& f) { f.write("text"); f.write("text", 4); }); }},
    {"vu_fileutf8::seek", kForDocument, [](const Place& p) { return open8_and(p, vu_fileutf8::o_write, [](vu_fileutf8& f) { f.seek(1, 0); }); }},
    {"vu_fileutf8::rewind", kForDocument, [](const Place& p) { return open8_and(p, vu_fileutf8::o_write, [](vu_fileutf8& f) { f.rewind(); }); }},
    {"vu_fileutf8::clear", kForDocument, [](const Place& p) { return open8_and(p, vu_fileutf8::o_write, [](vu_fileutf8& f) { f.clear(); }); }},
    {"vu_fileutf8::close", kForDocument, [](const Place& p) { return open8_and(p, vu_fileutf8::o_write, [](vu_fileutf8& f) { f.close(); }); }},
    {"vu_fileutf8::linesNotEmpty", kForDocument, [](const Place& p) { std::vector<Text> lines; return vu_fileutf8::linesNotEmpty(Text(p.folder()), Text("00000001.kdb"), lines); }},
    {"vu_fileutf8::exists", kForNobody, [](const Place& p) { return vu_fileutf8::exists(Text(p.document())); }},
    {"vu_fileutf8::access_time", kForNobody, [](const Place& p) { return vu_fileutf8::access_time(Text(p.document())); }},
    {"vu_fileutf8::modify_time", kForNobody, [](const Place& p) { return vu_fileutf8::modify_time(Text(p.document())); }},
    {"vu_fileutf8::size", kForNobody, [](const Place& p) { return vu_fileutf8::size(Text(p.document())); }},
    {"vu_fileutf8::is_dir", kForNobody, [](const Place& p) { return vu_fileutf8::is_dir(Text(p.folder())); }},
    {"vu_fileutf8::filenames", kForNobody, [](const Place& p) { return vu_fileutf8::filenames(Text(p.folder())); }},
    {"vu_fileutf8::getFolderSizeInKb", kForNobody, [](const Place& p) { return vu_fileutf8::getFolderSizeInKb(Text(p.folder())); }},
    {"vu_fileutf8::chmodW", kForNobody, [](const Place& p) { return vu_fileutf8::chmodW(Text(p.document())); }},
    {"vu_fileutf8::createDir", kForNobody, [](const Place& p) { return vu_fileutf8::createDir(Text(p.plain("new"))); }},
    {"vu_fileutf8::createDirR", kForNobody, [](const Place& p) { return vu_fileutf8::createDirR(Text(p.plain("new\\deep"))); }},
    {"vu_fileutf8::remove", kForNobody, [](const Place& p) { vu_fileutf8::remove(Text(p.document())); return vu_fileutf8::remove(Text(p.document()), false); }},
    {"vu_fileutf8::rename", kForNobody, [](const Place& p) { return vu_fileutf8::rename(Text(p.document()), Text(p.document() + "x")); }},
    {"vu_fileutf8::copyFile", kForNobody, [](const Place& p) { vu_fileutf8::copyFile(Text(p.document()), Text(p.plain("copy")), true); return vu_fileutf8::copyFile(Text(p.plain("one.txt")), Text(p.document()), true); }},
    {"vu_fileutf8::recurseRemoveDir", kForNobody, [](const Place& p) { vu_fileutf8::recurseRemoveDir(Text(p.folder())); return vu_fileutf8::recurseRemoveDir(Text(p.folder()), false); }},
    {"vu_fileutf8::getShirtFileName", kForNobody, [](const Place& p) { Text folder; return vu_fileutf8::getShirtFileName(Text(p.document()), folder); }},
    {"vu_fileutf8::addFileSep", kForNobody, [](const Place& p) { Text path(p.root); return vu_fileutf8::addFileSep(path); }},
    {"vu_fileutf8::removeLastFileSep", kForNobody, [](const Place& p) { Text path(p.root); return vu_fileutf8::removeLastFileSep(path); }},
    {"vu_fileutf8::split", kForNobody, [](const Place&) { Text name("a.b"); Text extension; return vu_fileutf8::split(name, extension); }},
    {"vu_fileutf8::getExtension", kForNobody, [](const Place&) { return vu_fileutf8::getExtension(Text("a.b")); }},
    {"vu_fileutf8::directories", kForNobody, [](const Place& p) { return vu_fileutf8::directories(ucs2string(Text(p.root))); }},
    {"vu_fileutf8::getCurrentDirectory", kForNobody, [](const Place&) { Text folder; return vu_fileutf8::getCurrentDirectory(folder); }},
    {"vu_fileutf8::rel2abs", kForNobody, [](const Place&) { Text path("a"); return vu_fileutf8::rel2abs(path); }},
  });
}

// clang-format on

}  // namespace

const std::vector<PublicOperation>& public_operations() {
  static const Operations all = [] {
    Operations list;
    add_index(list);
    add_storage_roots(list);
    add_documents(list);
    add_keys_parts_and_users(list);
    add_narrow_files(list);
    add_utf8_files(list);
    return list;
  }();
  return all;
}

const char* name_of(Situation situation) {
  switch (situation) {
    case Situation::kTidy: return "every file in the index";
    case Situation::kStrays: return "orphans in the folder";
    case Situation::kNoIndex: return "no index yet";
  }
  return "?";
}

namespace {

/// All times are old and fixed, so only their order decides what a read of a sub-part does.
void prepare_page(const std::string& root) {
  // The hash bucket of this name. In another bucket no operation would find the document.
  const std::string folder = root + "\\storage\\docs\\anna\\00000021";
  const std::string document = folder + "\\00000001.kdc";
  const std::string parts = document + "_\\html";
  make_folder(parts + "\\x");
  make_folder(parts + "\\preload");
  write_file(folder + "\\index.dat", "page.kdc_0000000005/00000001\n");
  write_file(folder + "\\index", "00000001");
  std::int64_t time = 1'000'000'000;
  const std::pair<std::string, const char*> files[] = {{document, "page"},
                                                       {parts + "\\x\\part", "the old part"},
                                                       {parts + "\\x\\current", "current part"},
                                                       {parts + "\\preload\\part", "a new part"}};
  for (const auto& [path, bytes] : files) {
    write_file(path, bytes);
    set_modify_time(path, ++time);
  }
}

}  // namespace

void prepare(const Place& place, Situation situation) {
  std::filesystem::remove_all(native(place.root));
  for (const char* const folder : {"\\storage\\docs", "\\storage\\list", "\\storage\\semlets",
                                   "\\storage\\mail\\anna", "\\storage\\user\\anna", "\\plain"}) {
    make_folder(place.root + folder);
  }
  write_file(place.plain("one.txt"), "one\ntwo\n");
  write_file(place.root + "\\storage\\mail\\anna\\a%20b.kdb", "mail");
  write_file(place.root + "\\storage\\mail\\anna\\read.txt", "x\tA%20B\tB\tf4\tf5\tf6\t\n");
  write_file(place.document(), "document\n");
  write_file(place.folder() + "\\00000002.ctg", "report.kdb=2\n");
  make_folder(place.document() + "_\\html");
  prepare_page(place.root);
  if (situation != Situation::kNoIndex) {
    write_file(place.folder() + "\\index.dat",
               "list.ctg_0000000000/00000002\nreport.kdb_0000000000/00000001\n");
    write_file(place.folder() + "\\index", "00000002");
  }
  if (situation != Situation::kTidy) {
    write_file(place.folder() + "\\young.kdb", "put in by hand");
    write_file(place.folder() + "\\noise", "");
    make_folder(place.folder() + "\\odd folder");
  }
}

// ------------------------------------------------------------------------------------------------

namespace {

using Operations = std::vector<PublicOperation>;

/// Adds a line to the index. The index is empty until the second write.
void save_by_cutting_first(const Place& place) {
  vu_file file(place.folder(), "index.dat");
  std::string text;
  file.open(vu_file::o_read);
  file.read(text, 0);
  file.close();
  file.open(vu_file::o_truncate);
  file.write("a.kdb_0000000009/00000001\n" + text);
  file.close();
}

/// The leaked buffers form a list, so that a leak checker does not report them.
struct Buffer {
  std::string text;
  Buffer* before;
};
Buffer* s_forgotten = nullptr;

/// Reads a file. After a failure it does not close the file, and does not free the buffer.
void read_and_forget(const Place& place) {
  os::Handle handle = os::kNoHandle;
  if (!os::open(place.document(), os::Access::kReadExisting, handle).ok()) return;
  auto* const buffer = new Buffer{std::string(1000, ' '), s_forgotten};
  s_forgotten = buffer;
  std::size_t done = 0;
  const bool is_read = os::read(handle, buffer->text.data(), buffer->text.size(), done).ok();
  const auto copy = std::make_unique<std::string>(buffer->text);
  if (!is_read) return;
  s_forgotten = buffer->before;
  delete buffer;
  static_cast<void>(os::close(handle));
}

bool write_silently(const Place& place) {
  os::Handle handle = os::kNoHandle;
  if (!os::open(place.document(), os::Access::kReadWriteCreate, handle).ok()) return false;
  std::size_t done = 0;
  const bool is_written = os::write(handle, "text", 4, done).ok();
  return os::close(handle).ok() && is_written;
}

}  // namespace

const Operations& operations_that_cut_first() {
  static const Operations all = {{"STGIndex::, faulty: a save that truncates first", kForNobody,
                                  [](const Place& p) { save_by_cutting_first(p); }}};
  return all;
}

const Operations& operations_that_leak() {
  static const Operations all = {
      {"faulty: a reader that leaks", kForNobody, [](const Place& p) { read_and_forget(p); }}};
  return all;
}

const Operations& operations_that_say_nothing() {
  static const Operations all = {
      {"faulty: a silent writer", kForNobody, [](const Place& p) { return write_silently(p); }}};
  return all;
}

const Operations& operations_that_let_out() {
  // Named like an operation that lets no exception pass.
  static const Operations all = {{"vu_storage::RemoveFile", kForNobody, [](const Place& p) {
                                    vu_file(p.document()).open(vu_file::o_write);
                                  }}};
  return all;
}

const Operations& operations_that_always_fail() {
  static const Operations all = {
      {"STGIndex::, faulty: an exception", kForNobody,
       [](const Place& p) { vu_file(p.plain("missing")).open(vu_file::o_read); }},
      {"faulty: returns a failure", kForNobody,
       [](const Place& p) { return vu_file::exists(p.plain("missing")); }},
      {"faulty: traces an error", kForNobody,
       [](const Place&) {
         vu_file file;
         vu_storage().OpenWriteSubPart(file, kAnna, "missing.kdc", "html@x", "part", 5);
       }},
      {"faulty: profile, vu_storage::loadUserOrMasterProfile", kForNobody, [](const Place&) {
         STG::NameValueSeq lines;
         return vu_storage::loadUserOrMasterProfile(kAnna, "missing.ctg", lines);
       }}};
  return all;
}

}  // namespace reliability
