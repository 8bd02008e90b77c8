#include <cstring>
#include <functional>
#include <string>
#include <string_view>

#include "index/index_format.h"
#include "lab/bench/bare.h"
#include "lab/bench/stage.h"

// Uses internal headers: the searches of a text, without the reading of the file.

namespace bench {
namespace {

constexpr std::size_t kLine = std::string_view("Report 000042.kdb_1700000042/00000042\n").size();

/// Counts the lines that a search finds.
template <class Lines>
std::size_t found(Lines lines) {
  std::size_t count = 0;
  for (index_format::Line line; lines.next(line);) ++count;
  return count;
}

/// How many lines of @p text the search finds that is measured.
using Search = std::function<std::size_t(const Folder& folder, std::size_t entry)>;

std::size_t search_for_key(const Folder& folder, std::size_t entry) {
  // No line has this key, so the whole text is searched.
  const std::string key = key_of(folder.logical(entry), folder.timestamp(entry) - 1);
  return found(index_format::LinesOfKey(folder.text(), key));
}

std::size_t search_for_key_without_version(const Folder& folder, std::size_t entry) {
  return found(index_format::LinesOfKey(folder.text(), key_of(folder.logical(entry), 0)));
}

std::size_t search_for_name(const Folder& folder, std::size_t entry) {
  return found(index_format::LinesOfName(folder.text(), folder.logical(entry))) - 1;
}

/// Searches a whole text in memory. The floor is memchr().
Jobs search_jobs(Stage& stage, std::size_t entries, const Search& search) {
  const Folder& folder = stage.folder(Place::kDisk, entries);
  const std::string_view text = folder.text();
  if (text.size() != entries * kLine) bare::broken("unexpected lines in", folder.path());
  Jobs jobs;
  jobs[Who::kLibrary].run = [search, entries, &folder] {
    if (search(folder, entries / 2) != 0) bare::broken("a wrong answer in", folder.path());
  };
  jobs[Who::kFloor].run = [text, &folder] {
    if (std::memchr(text.data(), '\0', text.size()) != nullptr)
      bare::broken("a wrong answer in", folder.path());
  };
  return jobs;
}

Contest search_contest(Stage& stage, const char* workload, std::size_t entries,
                       const Search& search) {
  constexpr double kBytesPerSecond = 4e9;
  Contest contest = folder_contest(workload, Place::kMemory, entries, [&stage, entries, search] {
    return search_jobs(stage, entries, search);
  });
  const auto bytes = static_cast<double>(entries * kLine);
  contest.requirements = {at_most_seconds(bytes / kBytesPerSecond, Who::kFloor)};
  return contest;
}

}  // namespace

std::vector<Contest> text_searches(Stage& stage) {
  std::vector<Contest> contests;
  for (const std::size_t entries : kSizes) {
    // In a small text, making the key takes longer than the search.
    if (entries < 1000) continue;
    contests.push_back(search_contest(stage, "search for a key", entries, search_for_key));
    contests.push_back(search_contest(stage, "search for a key with the timestamp 0", entries,
                                      search_for_key_without_version));
    contests.push_back(search_contest(stage, "search for a name", entries, search_for_name));
  }
  return contests;
}

}  // namespace bench
