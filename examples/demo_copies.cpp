// Copies files into and out of the storage, and adopts an orphan.
#include "demo.h"
#include "stg_index.h"

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

}  // namespace demo
