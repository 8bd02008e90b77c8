#include "demo_files.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <set>
#include <stdexcept>
#include <vector>

#include "demo_report.h"
#include "vu_file.h"
#include "vu_fileutf8.h"

namespace demo {

namespace fs = std::filesystem;

fs::path native(const std::string& path) {
  std::u8string text(path.begin(), path.end());
  if constexpr (fs::path::preferred_separator == '/')
    std::replace(text.begin(), text.end(), u8'\\', u8'/');
  return fs::path(text);
}

std::string utf8(const fs::path& path) {
  const std::u8string text = path.u8string();
  return std::string(text.begin(), text.end());
}

bool is_ascii(std::string_view text) {
  return std::all_of(text.begin(), text.end(),
                     [](char c) { return static_cast<unsigned char>(c) < 0x80; });
}

bool narrow_names_are_utf8() {
  // A unique name, because another run may do the same test at this moment.
  const auto ticks = std::chrono::steady_clock::now().time_since_epoch().count();
  const std::string path =
      text_of(utf8(fs::temp_directory_path()), "\\storage_demo ", ticks, " éő中.tmp");
  const vu_utf8string wide(path);
  try {
    vu_fileutf8 file(wide);
    file.open(vu_file_base::o_write);
  } catch (const vu_file_except&) {
    return false;
  }
  const bool found = vu_file::exists(path);
  vu_fileutf8::remove(wide);
  return found;
}

std::string read_whole(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::string bytes;
  if (in) bytes.assign(std::istreambuf_iterator<char>(in), {});
  if (!in.is_open() || in.bad()) throw std::runtime_error("cannot read " + utf8(path));
  return bytes;
}

void write_whole(const fs::path& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) throw std::runtime_error("cannot write " + utf8(path) + ": is the folder writable?");
}

std::uint64_t fnv1a(std::string_view bytes) {
  std::uint64_t hash = 0xcbf29ce484222325U;
  for (const char c : bytes) {
    hash ^= static_cast<unsigned char>(c);
    hash *= 0x100000001b3U;
  }
  return hash;
}

void set_time_from(const fs::path& path, const fs::path& base, std::chrono::seconds shift) {
  fs::last_write_time(path, fs::last_write_time(base) + shift);
}

void remove_tree(const fs::path& folder) {
  if (!fs::exists(folder)) return;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder))
    fs::permissions(entry.path(), fs::perms::owner_write, fs::perm_options::add);
  fs::remove_all(folder);
}

Volume volume_of(const fs::path& folder) {
  Volume volume;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    if (entry.is_directory()) {
      ++volume.folders;
    } else {
      ++volume.files;
      volume.bytes += entry.file_size();
    }
  }
  return volume;
}

std::uint64_t fingerprint(const fs::path& folder) {
  std::set<std::string> lines;
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(folder)) {
    std::string line = utf8(entry.path());
    if (!entry.is_directory()) {
      const auto time = entry.last_write_time().time_since_epoch().count();
      line += text_of('\t', entry.file_size(), '\t', time);
      if (entry.path().filename() == "index.dat")
        line += text_of('\t', fnv1a(read_whole(entry.path())));
    }
    lines.insert(std::move(line));
  }
  std::string all;
  for (const std::string& line : lines) all += line + "\n";
  return fnv1a(all);
}

}  // namespace demo
