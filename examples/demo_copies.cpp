// Copies into and out of the storage, and the file handle for UTF-8 names.

#include "demo.h"
#include "stg_index.h"
#include "vu_fileutf8.h"

namespace demo {

namespace {

void copy_out(Demo& demo) {
  const std::string target = demo.below_root("outside\\copied out.bin");
  std::size_t copies = 0;
  std::uint64_t bytes = 0;
  for (std::size_t i = 0; i < demo.versions.size(); i += 7) {
    const Version& version = demo.versions[i];
    if (!is_served(version)) continue;
    const long stamp = version.stamp != 0 ? version.stamp : version.not_older_than;
    const bool copied =
        vu_storage::copyFromStorage(target, version.owner, version.entry, version.type, stamp);
    const std::string copy = copied ? read_whole(native(target)) : std::string();
    demo.report.check(copied && fnv1a(copy) == version.hash, name_of(version) + " is copied out");
    ++copies;
    bytes += copy.size();
  }
  const std::string none = demo.below_root("outside\\none.bin");
  demo.report.check(
      !vu_storage::copyFromStorage(none, "bernd", "none.kda", STG::MailRepository, 0) &&
          !vu_file::exists(none),
      "an unknown document is not copied out");
  demo.report.say(text_of(copies, " documents copied out, ", size_text(bytes)));
}

/// Stores a file twice under its own name: one entry remains, with the later bytes.
void copy_file_in(Demo& demo, STG::RepositoryType type) {
  const std::string folder = demo.below_root("outside");
  const std::string name = "Price List 2024.v2.txt";
  const std::string owner = "bernd";
  vu_storage storage;
  for (const std::string bytes : {"bread 2.40\n", "bread 2.60\nbutter 3.10\n"}) {
    write_whole(native(text_of(folder, "\\", name)), bytes);
    const bool copied = type == STG::UserFilesRepository
                            ? storage.copyFileToUserPath(folder, name, owner)
                            : storage.copyFileToStorage(folder, name, vu_utf8string(owner), type);
    demo.report.check(copied, text_of(name, " is copied into ", area_of(type)));
  }
  std::string dir;
  STGIndex::NameMap entries;
  if (vu_storage::createUserOrDomainNameDirectory(owner, name, type, dir, false))
    STGIndex::plValues(dir, entries);
  std::size_t found = 0;
  for (const auto& entry : entries)
    if (entry.second == name) ++found;
  demo.report.check(found == 1, text_of(name, " has one entry in ", area_of(type)));

  const std::string last = "bread 2.60\nbutter 3.10\n";
  demo.versions.push_back({owner, type, name, 0, {}, last.size(), fnv1a(last), 0});
  std::string back;
  demo.report.check(read_version(storage, demo.versions.back(), back) && back == last,
                    text_of(name, " has the later bytes in ", area_of(type)));
}

void refuse_to_replace(Demo& demo) {
  const std::string file = demo.below_root("outside\\other.txt");
  write_whole(native(file), "other bytes");
  const Version& version = demo.versions.front();
  const bool copied = vu_storage::copyToStorage(file, version.owner, version.entry, version.type,
                                                false, version.stamp);
  vu_storage storage;
  std::string back;
  demo.report.check(!copied && read_version(storage, version, back) && fnv1a(back) == version.hash,
                    name_of(version) + " is not replaced by a copy with replace = false");
}

void drop_file(Demo& demo) {
  std::string folder;
  const std::string name = "put here by hand.txt";
  const std::string text = "no entry names this file\n";
  demo.report.check(vu_storage::createUserOrDomainNameDirectory("bernd", name, STG::UserRepository,
                                                                folder, false),
                    "bernd has a user folder");
  write_whole(native(folder + "\\" + name), text);
  STGIndex::NameMap entries;
  STGIndex::plValues(folder, entries);
  demo.report.check(entries[name] == name, "an orphan is adopted");
  const std::string index = read_whole(native(folder + "\\index.dat"));
  demo.report.check(index.find(name + "_0000000000/" + name + "\n") != std::string::npos,
                    "the adopted file has its line in index.dat");
  vu_storage storage;
  std::string back;
  demo.versions.push_back({"bernd", STG::UserRepository, name, 0, {}, text.size(), fnv1a(text), 0});
  demo.report.check(read_version(storage, demo.versions.back(), back) && back == text,
                    "the adopted file is served");
  demo.report.say("one orphan in a user's folder: adopted and served");
}

}  // namespace

void copy_in_and_out(Demo& demo) {
  demo.report.begin("Copying in and out");
  copy_out(demo);
  copy_file_in(demo, STG::MailRepository);
  copy_file_in(demo, STG::UserFilesRepository);
  refuse_to_replace(demo);
  drop_file(demo);
}

// ------------------------------------------------------------------------------------------------
// The file handle for UTF-8 names: long paths, many scripts, locks between handles.

namespace {

const std::string kBytes("line one\r\n\r\nline two\n\0binary", 28);

/// Creates nested folders with names in several scripts until the path is longer than 300
/// characters. @return the innermost folder.
vu_utf8string make_long_path(Demo& demo, const vu_utf8string& start) {
  const std::vector<std::string> names{
      "a folder with blanks and a rather long name, as people give them",
      "Größenordnung und Ähnliches", "Ελληνικά και Кириллица", "文書倉庫 ストレージ",
      "beyond the basic plane 𝓓𝓸𝓬 📁"};
  vu_utf8string folder = start;
  bool made = true;
  for (std::size_t i = 0; ucs2string(folder).size() <= 300; ++i) {
    folder += vu_utf8string("\\" + names[i % names.size()]);
    made = made && vu_fileutf8::createDir(folder);
  }
  demo.report.check(made && vu_fileutf8::is_dir(folder),
                    "folders with names in several scripts are created");
  return folder;
}

void write_and_read(Demo& demo, const vu_utf8string& folder, const vu_utf8string& name) {
  Report& report = demo.report;
  vu_fileutf8 file(folder, name);
  file.open(vu_file_base::o_truncate);
  report.check(file.write(kBytes) == 28, "all bytes are written");
  file.close();
  file.open(vu_file_base::o_append);
  file.write("more");
  file.close();
  report.check(vu_fileutf8::size(file.getFilePath()) == 32, "bytes are appended");

  file.open(vu_file_base::o_read);
  unsigned char* buffer = nullptr;
  unsigned int length = 0;
  file.read(buffer, length);
  const std::string back(reinterpret_cast<const char*>(buffer), buffer == nullptr ? 0 : length);
  delete[] buffer;
  report.check(back == kBytes + "more", "a buffer receives the same bytes");
  file.seek(5, 0);
  std::string some;
  report.check(file.read(some, 3) == 3 && some == "one", "some bytes are read after seek()");
  file.close();

  std::vector<vu_utf8string> lines;
  vu_fileutf8::linesNotEmpty(folder, name, lines);
  report.check(lines.size() == 3 && lines[0].str() == "line one" && lines[1].str() == "line two",
               "the non-empty lines are read");
}

void lock(Demo& demo, const vu_utf8string& folder, const vu_utf8string& name) {
  vu_fileutf8 writer(folder, name);
  vu_fileutf8 reader(folder, name);
  bool refused = false;
  writer.open(vu_file_base::o_write);
  demo.report.check(reader.try_open(vu_file_base::o_read, refused, true) && refused,
                    "a read lock is refused while a handle writes");
  reader.close();
  writer.close();
  vu_fileutf8 other(folder, name);
  bool other_refused = true;
  demo.report.check(reader.try_open(vu_file_base::o_read, refused, true) && !refused &&
                        other.try_open(vu_file_base::o_read, other_refused, true) && !other_refused,
                    "two handles read at the same time");
}

}  // namespace

void use_utf8_handle(Demo& demo) {
  demo.report.begin("The file handle for UTF-8 names, with a long path");
  Report& report = demo.report;
  const vu_utf8string start(demo.below_root("long"));
  report.check(vu_fileutf8::createDir(start), "a start folder is created");
  const vu_utf8string folder = make_long_path(demo, start);
  const vu_utf8string name("データ üéè final.v2.bin");
  write_and_read(demo, folder, name);
  lock(demo, folder, name);

  const vu_utf8string path = folder + vu_utf8string("\\") + name;
  const vu_utf8string copy = folder + vu_utf8string("\\copy.bin");
  report.check(
      vu_fileutf8::copyFile(path, copy, false) && !vu_fileutf8::copyFile(path, copy, false),
      "a file is copied, and a second copy does not overwrite it");
  report.check(
      vu_fileutf8::rename(copy, folder + vu_utf8string("\\改名.bin")) && !vu_fileutf8::exists(copy),
      "the copy is renamed");
  report.check(vu_fileutf8::filenames(folder).size() == 2, "the folder lists both files");
  const std::size_t units = ucs2string(path).size();
  report.check(units > 260, "the path is longer than 260 characters");
  report.check(vu_fileutf8::recurseRemoveDir(start) && !vu_fileutf8::exists(start),
               "the whole folder is removed");
  report.say(
      text_of("a path of ", units, " characters in Latin, Greek, Cyrillic, Chinese, Japanese"));
}

}  // namespace demo
