// Shows the tree of the storage.
#include <algorithm>
#include <iomanip>
#include <set>

#include "demo.h"

namespace demo {

namespace fs = std::filesystem;

namespace {

constexpr std::size_t kSampleLines = 6;
constexpr std::size_t kNameWidth = 28;

std::set<fs::path> folders_in(const fs::path& folder) {
  std::set<fs::path> folders;
  for (const fs::directory_entry& entry : fs::directory_iterator(folder))
    if (entry.is_directory()) folders.insert(entry.path());
  return folders;
}

void show(Report& report, const fs::path& folder, const std::string& indent) {
  const Volume volume = volume_of(folder);
  // Columns count characters. In UTF-8 the bytes after the first of a character begin with bits 10.
  std::string name = indent + utf8(folder.filename());
  const auto followers = std::count_if(name.begin(), name.end(), [](char c) {
    return (static_cast<unsigned char>(c) & 0xC0U) == 0x80U;
  });
  name.resize(std::max(name.size(), kNameWidth + static_cast<std::size_t>(followers)), ' ');
  report.say(text_of(name, std::setw(5), volume.files, " files ", std::setw(4), volume.folders,
                     " folders ", std::setw(11), size_text(volume.bytes)));
}

/// Prints some lines of the largest index of the corporate documents.
void show_index(Demo& demo) {
  fs::path best;
  std::size_t most = 0;
  for (const fs::directory_entry& entry :
       fs::recursive_directory_iterator(native(vu_storage::getCorpPath()))) {
    if (entry.path().filename() != "index.dat") continue;
    const std::string text = read_whole(entry.path());
    const auto lines = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    if (lines < most || (lines == most && entry.path() > best)) continue;
    most = lines;
    best = entry.path();
  }
  if (best.empty()) return;
  demo.report.say("from " + utf8(best.lexically_relative(native(demo.root))) + ":");
  std::istringstream lines(read_whole(best));
  std::string line;
  for (std::size_t i = 0; i < kSampleLines && std::getline(lines, line); ++i)
    demo.report.say("  " + line);
}

}  // namespace

void show_tree(Demo& demo) {
  demo.report.begin("The tree");
  const fs::path storage = native(vu_storage::getStoragePath());
  show(demo.report, storage, "");
  for (const fs::path& area : folders_in(storage)) {
    show(demo.report, area, "  ");
    for (const fs::path& owner : folders_in(area)) show(demo.report, owner, "    ");
  }
  show_index(demo);
  demo.report.check(volume_of(storage).files > demo.versions.size(),
                    "there are at least as many files as versions");
}

}  // namespace demo
