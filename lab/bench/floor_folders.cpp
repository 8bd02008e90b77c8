#include <algorithm>
#include <cstdio>
#include <ctime>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "lab/bench/floor.h"
#include "lab/bench/floor_index.h"
#include "lab/bench/folder.h"

// The floors of operations on all files of a folder: cleaning, adoption, migration.

namespace floor_of {

using bare::File;
using bare::Text;
using bench::Listed;

// ---- cleaning ----------------------------------------------------------------------------------

void clean_nothing(const std::string& folder, Ages& kept) {
  const auto now = static_cast<unsigned long>(::time(nullptr));
  const Index index(folder);
  const std::string_view text = index.text.view();
  const Listed files(folder);
  std::string path = folder + "/";
  const std::size_t base = path.size();
  judge(text, files,
        [&](std::string_view logical, std::string_view stored, std::string_view extension) {
          path.resize(base);
          path.append(stored).append(extension);
          const auto time = static_cast<unsigned long>(bare::modify_time(path));
          // The key includes the timestamp after the logical name.
          std::string key = folder + "/";
          key.append(logical.data(), logical.size() + kStamp);
          kept.emplace(now - time, std::move(key));
        });
  // Each file has an entry, so there is no orphan to remove.
  if (kept.size() + 2 != files.size()) bare::broken("lines and files differ in", folder);
}

void clean_everything(const std::string& folder) {
  Index index(folder);
  const std::string_view text = index.text.view();
  {
    const Listed files(folder);
    std::string path = folder + "/";
    const std::size_t base = path.size();
    std::size_t removed = 0;
    judge(text, files, [&](std::string_view, std::string_view stored, std::string_view extension) {
      path.resize(base);
      path.append(stored).append(extension);
      remove_file(path);
      ++removed;
    });
    if (removed + 2 != files.size()) bare::broken("lines and files differ in", folder);
  }
  const File file = lock_for_save(index);
  // Before the save drops the lines, it checks again under the lock that their files are missing.
  const Listed left(folder);
  judge(text, left, [&](std::string_view, std::string_view, std::string_view) {
    bare::broken("a file is back in", folder);
  });
  replace(file, text, " ", 0);
}

// ---- adoption ----------------------------------------------------------------------------------

void adopt(const std::string& folder) {
  if (!bare::is_folder(folder) || bare::entry_exists(folder + "/index.dat"))
    bare::broken("an index in", folder);
  const Listed files(folder);
  std::vector<std::string_view> names = files.names();
  std::string path = folder + "/";
  const std::size_t base = path.size();
  for (const std::string_view name : names) {
    path.resize(base);
    path.append(name);
    // Required: the file is renamed even if the letters of its extension do not change.
    bare::rename(path, path);
    bare::make_writable(path);
  }
  // All names have the same length, so their keys have the same order.
  std::sort(names.begin(), names.end());
  const std::string stamp = bench::key_of("", 0);
  std::string text;
  for (const std::string_view name : names)
    text.append(name).append(stamp).append("/").append(name).append("\n");
  const File file(folder + "/index.dat", File::Mode::kReadWriteCreate);
  replace(file, file.read().view(), text, 0);
}

// ---- migration ---------------------------------------------------------------------------------

namespace {

constexpr const char* kMarker = "k1mailboxcompliant";

int digit(char c) { return c < 'A' ? c - '0' : (c & ~0x20) - 'A' + 10; }

/// Unescapes a name except its extension.
std::string unescaped(std::string_view name) {
  const std::size_t dot = name.rfind('.');
  std::string result;
  for (std::size_t i = 0; i < dot; ++i) {
    if (name[i] == '%') {
      result += static_cast<char>(digit(name[i + 1]) * 16 | digit(name[i + 2]));
      i += 2;
    } else {
      result += name[i] == '+' ? ' ' : name[i];
    }
  }
  return result.append(name.substr(dot));
}

/// A line of the read list: its first two fields and the rest.
struct Read {
  std::string_view first;
  std::string second;
  std::string_view rest;
};
using ReadList = std::unordered_map<std::string, Read>;

/// @param[out] names the names of the documents in the order of the text.
/// @return the lines by the names of their documents.
ReadList read_list_of(std::string_view text, std::vector<std::string>& names) {
  ReadList result;
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = end_of_line(text, start);
    std::string_view field[5];
    std::size_t at = start;
    for (std::string_view& one : field) {
      const std::size_t tab = text.find('\t', at);
      one = text.substr(at, tab - at);
      at = tab + 1;
    }
    std::string name;
    name.append(field[3]).append("#").append(field[4]).append("#");
    name.append(field[0]).append("#").append(field[1]).append(".kdb");
    const auto rest_at = static_cast<std::size_t>(field[2].data() - text.data());
    result[name] = {field[0], std::string(field[1]), text.substr(rest_at, end - rest_at)};
    names.push_back(std::move(name));
    start = end + 1;
  }
  return result;
}

std::string text_of(const ReadList& list, const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) {
    const Read& line = list.at(name);
    text.append(line.first).append("\t").append(line.second).append("\t");
    text.append(line.rest).append("\n");
  }
  return text;
}

}  // namespace

void migrate(const std::string& folder) {
  if (!bare::is_folder(folder) || bare::entry_exists(folder + "/" + kMarker))
    bare::broken("no mails in", folder);
  Index index(folder);
  const std::string_view text = index.text.view();
  const Listed files(folder);
  const std::string list_key = bench::key_of("read.txt", 0);
  const std::size_t list_line = line_of(text, list_key);
  const std::string list_path =
      folder + "/" + file_of(stored_at(text, list_line, list_key), "read.txt");
  const Text list_text = bare::read_locked(list_path);
  std::vector<std::string> names;
  ReadList list = read_list_of(list_text.view(), names);

  std::vector<std::string> lines;
  std::vector<std::string> replaced;
  const auto add = [&](const std::string& logical) {
    const std::string stored = next_number(folder);
    lines.push_back(bench::key_of(logical, 0) + "/" + stored + "\n");
    return make_file(folder, stored, logical);
  };
  for (std::size_t start = 0; start < text.size();) {
    const std::size_t end = end_of_line(text, start);
    const std::size_t separator = text.find('/', start);
    const std::string_view logical = text.substr(start, separator - start - kStamp);
    const std::string_view stored = text.substr(separator + 1, end - separator - 1);
    if (logical != stored) {
      lines.emplace_back(text.substr(start, end + 1 - start));
    } else {
      if (!files.contains(stored, "")) bare::broken("a mail is missing in", folder);
      replaced.emplace_back(stored);
      copy_for_good(folder, replaced.back(), add(unescaped(logical)));
      std::string& field = list.at(replaced.back()).second;
      field = unescaped(field + ".");
      field.pop_back();
    }
    start = end + 1;
  }
  add(kMarker);
  std::sort(lines.begin(), lines.end());
  std::string new_text;
  for (const std::string& line : lines) new_text += line;
  {
    const File file = lock_for_save(index);
    replace(file, text, new_text, 0);
    for (const std::string& name : replaced) remove_file(folder + "/" + name);
  }
  write_document(list_path, text_of(list, names));
}

}  // namespace floor_of
