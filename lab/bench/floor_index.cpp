#include "lab/bench/floor_index.h"

#include <xxhash.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "lab/bench/folder.h"

namespace floor_of {
namespace {

using bare::File;
using bare::Text;
using bench::Listed;

constexpr std::size_t kPage = 4096;
constexpr std::size_t kSector = 512;

/// @return the separators of the lines at page edges, for a text at position @p offset of a file.
std::vector<std::size_t> separators_at_edges(std::string_view text, std::size_t offset) {
  std::vector<std::size_t> result;
  for (std::size_t edge = (offset / kPage + 1) * kPage; edge < offset + text.size();
       edge += kPage) {
    const std::size_t before = text.rfind('\n', edge - offset - 1);
    const std::size_t separator = text.find('/', before == kNone ? 0 : before);
    if (separator != kNone && (result.empty() || result.back() != separator))
      result.push_back(separator);
  }
  return result;
}

std::string with_blanks(std::string_view text, const std::vector<std::size_t>& places) {
  std::string result(text);
  for (const std::size_t at : places) result[at] = ' ';
  return result;
}

std::string without_slashes(std::string_view text) {
  std::string result(text);
  for (std::size_t at = result.find('/'); at != kNone; at = result.find('/', at + 1))
    result[at] = '\x1b';
  return result;
}

}  // namespace

std::string_view extension_of(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  return dot == kNone ? std::string_view() : name.substr(dot);
}

std::size_t find(std::string_view text, std::string_view wanted, std::size_t from) {
  if (from >= text.size()) return kNone;
  const void* const found =
      ::memmem(text.data() + from, text.size() - from, wanted.data(), wanted.size());
  return found == nullptr ? kNone
                          : static_cast<std::size_t>(static_cast<const char*>(found) - text.data());
}

std::size_t line_of(std::string_view text, const std::string& key) {
  const std::string wanted = "\n" + key + "/";
  if (text.starts_with(std::string_view(wanted).substr(1))) return 0;
  const std::size_t found = find(text, wanted);
  return found == kNone ? kNone : found + 1;
}

std::size_t end_of_line(std::string_view text, std::size_t from) {
  return std::min(text.find('\n', from), text.size());
}

std::string_view stored_at(std::string_view text, std::size_t line, const std::string& key) {
  const std::size_t from = line + key.size() + 1;
  return text.substr(from, end_of_line(text, from) - from);
}

std::string file_of(std::string_view stored, std::string_view logical) {
  return std::string(stored).append(extension_of(logical));
}

Index::Index(const std::string& path) : folder(path) {
  if (!bare::is_folder(folder) || !bare::entry_exists(folder + "/index.dat"))
    bare::broken("no index in", folder);
  file.emplace(folder + "/index.dat", File::Mode::kRead);
  text = file->read();
}

void judge_for_save(std::string_view text, const Listed& files) {
  std::size_t valid = 0;
  judge(text, files, [&](std::string_view, std::string_view, std::string_view) { ++valid; });
  // The two other files are "index.dat" and the counter.
  if (valid + 2 != files.size()) bare::broken("lines and files differ in", "the benchmark's tree");
}

File lock_for_save(Index& index) {
  index.file.reset();
  File file(index.folder + "/index.dat", File::Mode::kReadWriteCreate);
  if (file.read().view() != index.text.view()) bare::broken("somebody else changed", index.folder);
  return file;
}

void replace(const File& file, std::string_view old_text, const std::string& text,
             std::size_t base) {
  const std::size_t sector = base / kSector * kSector;
  const std::size_t whole = std::max(old_text.size(), text.size());
  const std::size_t copy_at = (whole + kSector - 1) / kSector * kSector;
  std::string copy = without_slashes(std::string_view(text).substr(sector));
  copy += std::to_string(XXH3_64bits(copy.data(), copy.size()));
  file.reserve(copy_at + copy.size());
  file.write_at(copy_at, copy);
  file.flush();

  const std::string_view old_tail = old_text.substr(base);
  const std::vector<std::size_t> unmade = separators_at_edges(old_tail, base);
  if (!unmade.empty()) {
    const std::string bytes = with_blanks(old_tail, unmade);
    file.write_at(base + unmade.front(), std::string_view(bytes).substr(
                                             unmade.front(), unmade.back() - unmade.front() + 1));
  }
  std::string tail = text.substr(base);
  tail.resize(whole - base, ' ');
  const std::vector<std::size_t> late = separators_at_edges(tail, base);
  file.write_at(base, with_blanks(tail, late));
  if (!late.empty())
    file.write_at(base + late.front(),
                  std::string_view(tail).substr(late.front(), late.back() - late.front() + 1));
  file.flush();
  file.cut(text.size());
}

std::string next_number(const std::string& folder) {
  const File counter(folder + "/index", File::Mode::kReadWriteCreate);
  const Text last = counter.read();
  const std::string name =
      bench::stored_name(static_cast<std::size_t>(std::atol(std::string(last.view()).c_str())) + 1);
  counter.write_at(0, name);
  counter.flush();
  return name;
}

std::string make_file(const std::string& folder, const std::string& stored,
                      const std::string& logical) {
  std::string name = file_of(stored, logical);
  const std::string path = folder + "/" + name;
  if (bare::entry_exists(path)) bare::broken("already there:", path);
  File(path, File::Mode::kReadWriteCreate).flush();
  return name;
}

void copy_for_good(const std::string& folder, const std::string& from, const std::string& to) {
  bare::copy_onto(folder + "/" + from, folder + "/" + to, bare::Flush::kYes);
}

void remove_file(const std::string& path) {
  bare::make_writable(path);
  bare::remove_file(path);
  if (bare::entry_exists(path)) bare::broken("still there:", path);
}

}  // namespace floor_of
