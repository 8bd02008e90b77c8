#include <cstring>
#include <string>
#include <string_view>

#include "index/index_format.h"
#include "lab/bench/bare.h"
#include "lab/bench/stage.h"

// Uses internal headers: the search for a key, without the reading of the file.

namespace bench {
namespace {

constexpr std::size_t kLine = std::string_view("Report 000042.kdb_1700000042/00000042\n").size();

/// Searches a whole text in memory for a key that it does not contain. The floor is memchr().
Jobs search_jobs(Stage& stage, std::size_t entries) {
  const Folder& folder = stage.folder(Place::kDisk, entries);
  const std::string_view text = folder.text();
  if (text.size() != entries * kLine) bare::broken("unexpected lines in", folder.path());
  const std::string key = key_of(folder.logical(entries / 2), folder.timestamp(entries / 2) - 1);
  Jobs jobs;
  jobs[Who::kLibrary].run = [text, key, &folder] {
    index_format::LinesOfKey lines(text, key);
    index_format::Line line;
    if (lines.next(line)) bare::broken("a wrong answer in", folder.path());
  };
  jobs[Who::kFloor].run = [text, &folder] {
    if (std::memchr(text.data(), '\0', text.size()) != nullptr)
      bare::broken("a wrong answer in", folder.path());
  };
  return jobs;
}

}  // namespace

Contest search_contest(Stage& stage, std::size_t entries) {
  constexpr double kBytesPerSecond = 4e9;
  Contest contest = folder_contest("search of the text", Place::kMemory, entries,
                                   [&stage, entries] { return search_jobs(stage, entries); });
  const auto bytes = static_cast<double>(entries * kLine);
  contest.requirements = {at_most_seconds(bytes / kBytesPerSecond, Who::kFloor)};
  return contest;
}

}  // namespace bench
