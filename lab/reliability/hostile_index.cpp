// Unusual texts of index.dat. The work must be in proportion to the text, and the results right.

#include <algorithm>
#include <array>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "lab/reliability/reliability.h"
#include "lab/reliability/work.h"
#include "stg_index.h"
#include "tests/support/scratch.h"

namespace reliability {
namespace {

constexpr std::size_t kKilobyte = 1024;
const std::string kLine = "a.kdb_0000000001/00000001\n";
/// The file of that entry, and one without an extension.
constexpr std::array<const char*, 2> kFiles = {"00000001.kdb", "00000002"};

struct Shape {
  const char* name;
  std::function<std::string(std::size_t size)> text;
  /// The text after a save; " " if no entry is valid.
  std::function<std::string(const std::string& folder, const std::string& text)> saved;
};

std::string nothing(const std::string&, const std::string&) { return " "; }
std::string one_line(const std::string&, const std::string&) { return kLine; }
std::string all_of_it(const std::string&, const std::string& text) { return text; }

bool is_valid(const std::string& folder, const std::string& key, const std::string& stored) {
  if (key.size() < 11) return false;
  const std::size_t dot = key.rfind('.', key.size() - 12);
  const std::string extension =
      key.size() == 11 || dot == std::string::npos ? "" : key.substr(dot, key.size() - 11 - dot);
  const std::string path = folder + "\\" + stored;
  return vu_file::exists(path) || vu_file::exists(path + extension);
}

/// Random bytes can contain valid entries: an empty stored name, or one that begins with a NUL,
/// means the folder itself. So each line is checked. The name of a line without "/" is the rest of
/// the text; it is only checked if it is short enough for a name.
std::string valid_lines(const std::string& folder, const std::string& text) {
  constexpr std::size_t kLongestName = 40000;
  STGIndex::NameMap entries;
  std::size_t slash = text.find('/');
  for (std::size_t start = 0; slash != std::string::npos;) {
    const std::size_t feed = text.find('\n', start);
    const bool has_slash = feed == std::string::npos || slash < feed;
    const std::size_t end = has_slash && feed != std::string::npos ? feed : text.size();
    if (end - slash < kLongestName || has_slash) {
      const std::string key = text.substr(start, slash - start);
      const std::string stored = text.substr(slash + 1, end - slash - 1);
      if (is_valid(folder, key, stored)) entries.emplace(key, stored);
    }
    if (feed == std::string::npos) break;
    start = feed + 1;
    if (slash < start) slash = text.find('/', start);
  }
  std::string saved;
  for (const auto& [key, stored] : entries) saved += key + "/" + stored + "\n";
  return saved.empty() ? " " : saved;
}

std::string repeated(const std::string& what, std::size_t size) {
  std::string text;
  text.reserve(size + what.size());
  while (text.size() < size) text += what;
  return text;
}

std::string any_bytes(std::size_t size) {
  std::mt19937_64 random(size);
  std::string text(size, '\0');
  for (std::size_t i = 0; i + 8 <= size; i += 8) {
    const std::uint64_t bits = random();
    for (std::size_t k = 0; k < 8; ++k) text[i + k] = static_cast<char>(bits >> (8 * k));
  }
  return text;
}

std::string lines_of_missing_files(std::size_t size) {
  std::string text;
  text.reserve(size + 64);
  for (std::size_t i = 0; text.size() < size; ++i)
    text += "n" + std::to_string(i) + ".kdc_0000000001/9" + std::to_string(10000000 + i) + "\n";
  return text;
}

const std::vector<Shape>& shapes() {
  static const std::vector<Shape> all = {
      {"line feeds", [](std::size_t n) { return std::string(n, '\n'); }, nothing},
      {"line feeds, then a line", [](std::size_t n) { return std::string(n, '\n') + kLine; },
       one_line},
      {"lines without a slash, then a line",
       [](std::size_t n) { return repeated("a line without it.kdb\n", n) + kLine; }, one_line},
      {"a line, then lines without a slash",
       [](std::size_t n) { return kLine + repeated("a line without it.kdb\n", n); }, one_line},
      {"one line without a slash", [](std::size_t n) { return std::string(n, 'x'); }, nothing},
      {"a long key", [](std::size_t n) { return std::string(n, 'k') + "_0000000001/00000002\n"; },
       all_of_it},
      {"a long stored name",
       [](std::size_t n) { return "a.kdb_0000000001/" + std::string(n, 's') + "\n"; }, nothing},
      {"NULs", [](std::size_t n) { return std::string(n, '\0'); }, nothing},
      {"NULs and line feeds, then a line",
       [](std::size_t n) { return repeated(std::string("\0\0\0\n", 4), n) + kLine; }, one_line},
      // A save removes the slashes of a line one by one, with a system call for each.
      {"slashes", [](std::size_t n) { return std::string(n / 16, '/'); }, nothing},
      {"slashes and line feeds", [](std::size_t n) { return repeated("/\n", n); }, nothing},
      {"one line again and again", [](std::size_t n) { return repeated(kLine, n); }, one_line},
      {"dangling entries", lines_of_missing_files, nothing},
      {"any bytes", any_bytes, valid_lines},
  };
  return all;
}

/// Runs each lookup that reads the whole text, and a save.
Work work_of(const std::string& folder) {
  const WorkCounter counter;
  std::string physical;
  long stamp = 0;
  STGIndex::NameMap map;
  STGIndex::exists(folder, "nobody.kdb", 1, physical);
  STGIndex::lastVersion(folder, "nobody.kdb", stamp);
  STGIndex::plValues(folder, map);
  STGIndex::updateIndexFile(folder);
  return counter.work();
}

/// At most twice as much work for twice as much text, with some tolerance.
bool grows_as_the_text(std::uint64_t before, std::uint64_t after, std::uint64_t little) {
  return after <= before * 5 / 2 + little;
}

void require_growth(Run& run, const std::string& shape, const Work& before, const Work& after) {
  const auto check = [&](const char* what, std::uint64_t was, std::uint64_t is,
                         std::uint64_t little) {
    if (!grows_as_the_text(was, is, little))
      run.fail(shape + ": " + what + " grow from " + std::to_string(was) + " to " +
               std::to_string(is) + " for twice the text");
  };
  check("allocations", before.allocations, after.allocations, 1000);
  check("bytes allocated", before.bytes, after.bytes, 100000);
  check("system calls", before.calls, after.calls, 100);
  check("instructions", before.instructions, after.instructions, 10000000);
}

void prepare(const std::string& folder, const std::string& text) {
  for (const char* const name : kFiles) write_file(folder + "\\" + name, "x");
  write_file(folder + "\\index.dat", text);
}

void try_shape(Run& run, const Shape& shape, std::size_t largest) {
  Work before;
  for (const std::size_t size : {largest / 4, largest / 2, largest}) {
    const scratch_folder scratch;
    const std::string text = shape.text(size);
    prepare(scratch.path(), text);
    const std::string saved = shape.saved(scratch.path(), text);
    const Work work = work_of(scratch.path());
    if (read_file(scratch.path("index.dat")) != saved)
      run.fail(std::string(shape.name) + ", " + std::to_string(size) +
               " bytes: the saved index is wrong");
    if (size != largest / 4) require_growth(run, shape.name, before, work);
    before = work;
  }
  run.figure(shape.name, std::to_string(before.bytes / kKilobyte) + " KB in " +
                             std::to_string(before.allocations) + " allocations, " +
                             std::to_string(before.calls) + " calls, " +
                             std::to_string(before.instructions / 1000000) +
                             " million instructions");
}

/// Lines without "/" before a last line without a line feed: each is an entry whose key is the rest
/// of the text (see README.md). The result grows with the square; the work must not grow faster.
void try_lines_that_are_entries(Run& run) {
  for (const std::size_t lines : {100U, 200U, 400U}) {
    const scratch_folder scratch;
    std::string text;
    for (std::size_t i = 0; i < lines; ++i) text += "line " + std::to_string(i) + "\n";
    const std::string last = "a.kdb_0000000001/00000001";
    text += last;
    prepare(scratch.path(), text);
    STGIndex::NameMap map;
    const WorkCounter counter;
    STGIndex::lpValues(scratch.path(), map);
    const Work work = counter.work();
    std::uint64_t result = 0;
    for (const auto& [logical, physical] : map) result += logical.size() + physical.size();
    if (map.size() != lines + 1)
      run.fail("lines that are entries: " + std::to_string(map.size()) + " of " +
               std::to_string(lines + 1) + " entries");
    // Each entry has three texts, two in maps and one in the result, and their nodes.
    if (work.bytes > 8 * (result + text.size()) + 1000 * lines + 100000)
      run.fail("lines that are entries: " + std::to_string(work.bytes) + " bytes for a result of " +
               std::to_string(result));
    run.figure("lines that are entries, " + std::to_string(lines),
               "a result of " + std::to_string(result) + " bytes, " + std::to_string(work.bytes) +
                   " bytes allocated");
  }
}

void hostile_index(Run& run) {
  STGIndex::setSynchronizeMode(false);
  const std::size_t largest = run.wanted() * kKilobyte;
  std::uint64_t tried = 0;
  for (const Shape& shape : shapes()) {
    if (run.time_is_over()) break;
    try_shape(run, shape, largest);
    ++tried;
  }
  try_lines_that_are_entries(run);
  STGIndex::setSynchronizeMode(true);
  run.figure("kinds of text", std::to_string(tried) + " of " + std::to_string(shapes().size()));
  run.counted(run.wanted() * tried / shapes().size());
}

/// Work that grows with the square must fail the same check.
void hostile_index_noticed(Run& run) {
  const auto square = [](std::size_t n) {
    const WorkCounter counter;
    std::string copies;
    for (std::size_t i = 0; i < n; ++i) copies = std::string(n * 16, 'x') + copies.substr(0, 1);
    return counter.work();
  };
  Run judged(run.seed(), {});
  require_growth(judged, "a square", square(1000), square(2000));
  if (judged.failures() == 0) run.fail("work that grows with the square was not detected");
  run.counted(1);
}

REGISTER_SUITE(hostile_index, "hostile-index",
               "the work for an invalid index is in proportion to its size",
               "KB of the largest index", 102400, Scratch::kMemory)
REGISTER_SUITE(hostile_index_noticed, "hostile-index-noticed", "work that grows faster is detected",
               "cases", 1, Scratch::kMemory)

}  // namespace
}  // namespace reliability
