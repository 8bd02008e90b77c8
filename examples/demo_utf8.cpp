// The file handle for UTF-8 names: long paths, many scripts, locks between handles.
#include "demo.h"
#include "vu_fileutf8.h"

namespace demo {

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
