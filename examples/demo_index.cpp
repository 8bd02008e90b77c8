// Lists the indexes of the folders and compares them with the stored documents.
#include <algorithm>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "demo.h"
#include "stg_index.h"

namespace demo {

namespace {

using Folders = std::map<std::string, std::multiset<std::string>>;

/// @return the logical names that each folder must list.
Folders expected_names(Demo& demo) {
  vu_storage storage;
  Folders folders;
  for (const Version& version : demo.versions) {
    std::string folder;
    if (demo.report.check(storage.IsFileExist(version.owner, version.entry, version.type,
                                              version.stamp, &folder, nullptr),
                          name_of(version) + " is in an index"))
      folders[folder].insert(version.entry);
  }
  return folders;
}

bool is_document(const std::string& name) {
  return vu_storage::isVuDocExt(vu_file::getExtension(name));
}

/// Compares a folder with the results of STGIndex.
void ask_index(Demo& demo, const std::string& folder, const std::multiset<std::string>& names) {
  STGIndex::NameMap by_physical;
  STGIndex::NameMap by_logical;
  STGIndex::NameMap documents;
  STGIndex::plValues(folder, by_physical);
  STGIndex::lpValues(folder, by_logical);
  STGIndex::getVUDocs(folder, documents);
  const std::set<std::string> distinct(names.begin(), names.end());
  const auto expected = std::count_if(names.begin(), names.end(), is_document);
  demo.report.check(by_physical.size() == names.size(), folder + ": one physical file per version");
  demo.report.check(by_logical.size() == distinct.size(),
                    folder + ": one logical name per document");
  demo.report.check(std::cmp_equal(documents.size(), expected),
                    folder + ": lists the documents with extensions kda to kdg");
  for (const auto& [physical, logical] : by_physical)
    demo.report.check(vu_file::exists(text_of(folder, "\\", physical)),
                      text_of(folder, ": contains ", physical));
}

void ask_lists(Demo& demo, const std::string& folder, const std::multiset<std::string>& names) {
  std::vector<std::string> physical;
  const std::vector<std::string> all = vu_storage::getAllFileListFromIndexFile(folder, physical);
  demo.report.check(std::multiset<std::string>(all.begin(), all.end()) == names,
                    folder + ": lists the stored names");
  demo.report.check(
      physical.size() == all.size() && std::is_sorted(physical.begin(), physical.end()),
      folder + ": in the order of the physical names");

  std::vector<std::string> of_documents;
  const std::vector<std::string> some =
      vu_storage::getFileListFromIndexFile(folder, of_documents, nullptr);
  demo.report.check(
      std::all_of(some.begin(), some.end(), is_document) &&
          std::cmp_equal(some.size(), std::count_if(all.begin(), all.end(), is_document)),
      folder + ": lists only documents");
  if (some.empty()) return;
  const std::vector<std::string> wanted{some.back()};
  std::vector<std::string> of_wanted;
  const std::vector<std::string> found =
      vu_storage::getFileListFromIndexFile(folder, of_wanted, &wanted);
  demo.report.check(!found.empty() && std::set<std::string>(found.begin(), found.end()) ==
                                          std::set<std::string>{some.back()},
                    folder + ": lists only the requested name");
}

}  // namespace

void list_indexes(Demo& demo) {
  demo.report.begin("Listing the indexes");
  const Folders folders = expected_names(demo);
  std::size_t lines = 0;
  for (const auto& [folder, names] : folders) {
    ask_index(demo, folder, names);
    ask_lists(demo, folder, names);
    lines += names.size();
  }
  // The folder depends on the name only. It is the same on every system and must never change.
  std::string dir;
  vu_storage::createUserOrDomainNameDirectory("anna.schmidt", "ab", STG::CorporateRepository, dir,
                                              false);
  demo.report.check(dir == vu_storage::getCorpPath() + "\\anna.schmidt\\00000075",
                    "the corporate document 'ab' belongs in the folder 00000075");
  bool thrown = false;
  try {
    std::vector<std::string> none;
    vu_storage::getFileListFromIndexFile(demo.below_root("no such folder"), none, nullptr);
  } catch (const vu_file_except&) {
    thrown = true;
  }
  demo.report.check(thrown, "listing the documents of a missing folder throws an exception");
  demo.report.say(text_of(folders.size(), " folders with ", lines, " entries"));
}

}  // namespace demo
