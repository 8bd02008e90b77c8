// Files: their bytes, names and times, and the choice of those to store.

#include <algorithm>
#include <fstream>
#include <iterator>
#include <map>
#include <set>
#include <stdexcept>
#include <system_error>
#include <tuple>
#include <utility>
#include <vector>

#include "demo.h"
#include "vu_file.h"
#include "vu_fileutf8.h"
#include "vu_i18n.h"

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

// ------------------------------------------------------------------------------------------------

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kLargest = 8U << 20U;
// The total size is at most this number times --max-files, so a run with few files remains small.
constexpr std::uint64_t kBytesPerFile = 160U << 10U;
constexpr std::size_t kDeepest = 8;
constexpr std::size_t kLongestName = 120;
// Packages repeat names such as "copyright"; more files of one name add no coverage.
constexpr std::size_t kSameName = 6;

struct Candidate {
  SourceFile file;
  std::size_t rank = 0;  ///< position in its folder
  std::uint64_t hash = 0;
};

/// @return at most @p wanted elements, evenly spread over the list.
template <class T>
std::vector<T> spread(std::vector<T> all, std::size_t wanted) {
  if (all.size() <= wanted) return all;
  std::vector<T> some;
  for (std::size_t i = 0; i < wanted; ++i) some.push_back(std::move(all[i * all.size() / wanted]));
  return some;
}

/// Whether the name is a valid file name on both systems and can be part of an index line.
bool is_storable(const std::string& name) {
  if (name.size() > kLongestName || name == "index" || name == "index.dat") return false;
  if (name.back() == '.' || name.back() == ' ') return false;
  if (name.find_first_of("<>:\"/\\|?*") != std::string::npos) return false;
  for (const char c : name)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7f) return false;
  return vu_utf8string(name).is_valid();
}

/// The sub-folders and files of a folder, sorted; symbolic links are omitted.
struct Listing {
  std::vector<fs::path> folders;
  std::vector<fs::path> files;
};

Listing list(const fs::path& folder) {
  Listing listing;
  std::error_code error;
  for (fs::directory_iterator it(folder, error), end; !error && it != end; it.increment(error)) {
    const fs::file_status status = it->symlink_status(error);
    if (fs::is_directory(status)) listing.folders.push_back(it->path());
    if (fs::is_regular_file(status)) listing.files.push_back(it->path());
    error.clear();
  }
  std::sort(listing.folders.begin(), listing.folders.end());
  std::sort(listing.files.begin(), listing.files.end());
  return listing;
}

class Collector {
 public:
  Collector(std::size_t max_files, bool beyond_ascii)
      : m_max_files(max_files), m_beyond_ascii(beyond_ascii) {}

  /// Searches level by level, at most m_max_files folders on each level.
  void walk(const fs::path& root) {
    std::vector<fs::path> level{root};
    for (std::size_t depth = 0; depth < kDeepest && !level.empty(); ++depth) {
      std::vector<fs::path> next;
      for (const fs::path& folder : level) {
        ++m_result.folders_seen;
        Listing listing = list(folder);
        take(listing.files);
        std::move(listing.folders.begin(), listing.folders.end(), std::back_inserter(next));
      }
      level = spread(std::move(next), m_max_files);
    }
  }

  Collection choose();

 private:
  void take(const std::vector<fs::path>& files);

  std::size_t m_max_files;
  bool m_beyond_ascii;
  Collection m_result;
  std::vector<Candidate> m_candidates;
};

void Collector::take(const std::vector<fs::path>& files) {
  m_result.files_seen += files.size();
  std::size_t rank = 0;
  // Reading a size is a system call, so only some files of a large folder are examined.
  for (const fs::path& path : spread(files, m_max_files)) {
    std::string name;
    try {
      name = utf8(path.filename());
    } catch (const std::exception&) {
      // The name has no valid encoding.
    }
    if (name.empty() || !is_storable(name)) {
      ++m_result.not_storable;
      continue;
    }
    if (!m_beyond_ascii && !is_ascii(utf8(path))) {
      ++m_result.not_in_codepage;
      continue;
    }
    std::error_code error;
    const std::uint64_t size = fs::file_size(path, error);
    if (error || size > kLargest) {
      if (!error) ++m_result.too_large;
      continue;
    }
    m_candidates.push_back({{path, std::move(name), size}, rank++, fnv1a(utf8(path))});
  }
}

std::size_t size_class(std::uint64_t size) {
  if (size == 0) return 0;
  if (size < 1U << 10U) return 1;
  if (size < 16U << 10U) return 2;
  if (size < 256U << 10U) return 3;
  return size < 1U << 20U ? 4 : 5;
}

std::size_t name_class(const std::string& name) {
  if (!is_ascii(name)) return 0;
  if (name.find(' ') != std::string::npos) return 1;
  const auto dots = std::count(name.begin(), name.end(), '.');
  if (dots == 0) return 2;
  return dots > 1 ? 3 : 4;
}

Collection Collector::choose() {
  std::sort(m_candidates.begin(), m_candidates.end(), [](const Candidate& a, const Candidate& b) {
    return std::tie(a.rank, a.hash, a.file.path) < std::tie(b.rank, b.hash, b.file.path);
  });
  std::map<std::pair<std::size_t, std::size_t>, std::vector<const Candidate*>> classes;
  for (const Candidate& candidate : m_candidates)
    classes[{size_class(candidate.file.size), name_class(candidate.file.name)}].push_back(
        &candidate);

  std::map<std::string, std::size_t> taken;
  std::uint64_t bytes_left = kBytesPerFile * m_max_files;
  std::size_t most = 0;
  for (const auto& entry : classes) most = std::max(most, entry.second.size());
  for (std::size_t round = 0; round < most; ++round) {
    for (const auto& entry : classes) {
      if (m_result.files.size() == m_max_files) return std::move(m_result);
      if (round >= entry.second.size()) continue;
      const SourceFile& file = entry.second[round]->file;
      if (file.size > bytes_left || taken[file.name] == kSameName) continue;
      ++taken[file.name];
      bytes_left -= file.size;
      m_result.files.push_back(file);
    }
  }
  return std::move(m_result);
}

}  // namespace

std::vector<std::string> default_sources() {
  std::vector<std::string> folders;
  for (const char* folder :
       {"/usr/share/doc", "/usr/share/fonts", "/usr/share/ca-certificates", "/usr/include",
        "C:\\Windows\\Fonts", "C:\\Windows\\System32\\drivers\\etc", "C:\\Windows\\Help"})
    if (std::error_code error; fs::is_directory(native(folder), error))
      folders.emplace_back(folder);
  // CMake's manual, because its file names contain blanks. Its folder's name contains a version.
  for (const fs::path& folder : list("/usr/share").folders) {
    const fs::path help = folder / "Help";
    if (utf8(folder.filename()).rfind("cmake", 0) == 0 && fs::is_directory(help))
      folders.push_back(utf8(help));
  }
  return folders;
}

Collection collect(const std::vector<std::string>& folders, std::size_t max_files,
                   bool beyond_ascii) {
  Collector collector(max_files, beyond_ascii);
  for (const std::string& folder : folders) collector.walk(native(folder));
  return collector.choose();
}

}  // namespace demo
