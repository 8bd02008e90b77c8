#include "lab/reliability/disk_model.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "tests/support/scratch.h"

namespace reliability {

using What = os::faults::Change::What;

namespace {

constexpr std::size_t kNoFile = static_cast<std::size_t>(-1);
constexpr auto kNone = std::string_view::npos;

std::uint64_t up_to_sector(std::uint64_t size) { return (size + kSector - 1) / kSector * kSector; }

/// Chooses a version of each sector, in one of several ways.
class Choice {
 public:
  explicit Choice(std::mt19937_64& random, std::size_t sectors)
      : m_random(random),
        m_way(random() % 6),
        m_chance(1 + random() % 15),
        m_turn(random() % (sectors + 1)) {}

  /// @return the version of sector number @p n: 0 for the flushed one, up to @p versions for newer.
  std::size_t of(std::size_t n, std::size_t versions) {
    switch (m_way) {
      case 0:  // the first sectors are new
        return n < m_turn ? versions : 0;
      case 1:  // the last sectors are new
        return n >= m_turn ? versions : 0;
      case 2:  // all but one are new
        return n == m_turn ? m_random() % versions : versions;
      case 3:  // only one is new
        return n == m_turn ? 1 + m_random() % versions : 0;
      default: return m_random() % 16 < m_chance ? 1 + m_random() % versions : 0;
    }
  }

 private:
  std::mt19937_64& m_random;
  const std::uint64_t m_way;
  const std::uint64_t m_chance;
  const std::uint64_t m_turn;
};

}  // namespace

// ---- one file -----------------------------------------------------------------------------------

void LooseFile::change(std::uint64_t begin, std::uint64_t end) {
  for (std::uint64_t n = begin / kSector; n * kSector < end; ++n) {
    const auto at = static_cast<std::size_t>(n * kSector);
    std::string sector = at < m_seen.size() ? m_seen.substr(at, kSector) : std::string();
    sector.resize(kSector, '\0');
    m_sectors[n].versions.push_back(std::move(sector));
  }
}

void LooseFile::write(std::uint64_t offset, std::string_view bytes) {
  if (bytes.empty()) return;
  const std::uint64_t old_size = m_seen.size();
  const std::uint64_t end = offset + bytes.size();
  if (end > old_size) {
    m_seen.resize(static_cast<std::size_t>(end), '\0');
    for (std::uint64_t edge = (old_size / kBlock + 1) * kBlock; edge < end; edge += kBlock) {
      m_sizes.push_back(edge);
    }
    m_sizes.push_back(end);
  }
  for (std::uint64_t at = offset; at < std::min(end, old_size); at = (at / kSector + 1) * kSector) {
    const auto in_sector = std::min(end, (at / kSector + 1) * kSector) - at;
    const auto replaced = std::string_view(m_seen).substr(at, in_sector);
    if (replaced.find_first_not_of('\0') != kNone) m_sectors[at / kSector].is_replaced = true;
  }
  m_seen.replace(static_cast<std::size_t>(offset), bytes.size(), bytes);
  change(std::min(offset, old_size), end);
}

void LooseFile::cut(std::uint64_t size) {
  const std::uint64_t old_size = m_seen.size();
  if (size == old_size) return;
  m_seen.resize(static_cast<std::size_t>(size), '\0');
  // If the file is later found longer, the truncated bytes are zeros.
  change(std::min(size, old_size), std::max(size, old_size));
  m_sizes.push_back(size);
}

void LooseFile::flush() {
  m_certain = m_seen;
  m_sectors.clear();
  m_sizes.clear();
}

std::string LooseFile::image(std::mt19937_64& random, Missing missing) const {
  std::uint64_t size = m_certain.size();
  if (!m_sizes.empty()) {
    const std::uint64_t way = random() % 4;
    if (way == 0) size = m_sizes[random() % m_sizes.size()];
    if (way > 1) size = m_sizes.back();
  }
  std::string bytes = m_certain;
  bytes.resize(static_cast<std::size_t>(up_to_sector(std::max<std::uint64_t>(size, bytes.size()))),
               '\0');
  // Most devices keep the old sector, so most images do.
  const bool may_be_zeros = missing == Missing::kMayBeZeros && random() % 4 == 0;
  Choice choice(random, m_sectors.size());
  std::size_t n = 0;
  for (const auto& [number, sector] : m_sectors) {
    const std::size_t version = choice.of(n++, sector.versions.size());
    const auto at = static_cast<std::size_t>(number * kSector);
    if (at >= bytes.size()) continue;
    if (version > 0) {
      bytes.replace(at, kSector, sector.versions[version - 1]);
    } else if (sector.is_replaced && may_be_zeros && random() % 2 == 0) {
      bytes.replace(at, kSector, kSector, '\0');
    }
  }
  bytes.resize(static_cast<std::size_t>(size));
  return bytes;
}

// ---- the tree -----------------------------------------------------------------------------------

DiskModel::DiskModel(const Tree& before) {
  for (const auto& [path, bytes] : before) {
    if (path.back() == '/') {
      m_folders.insert(path);
    } else {
      m_first[path] = m_files.size();
      m_files.emplace_back(bytes);
    }
  }
  m_now = m_first;
}

const LooseFile* DiskModel::file(const std::string& path) const {
  const auto found = m_now.find(path);
  return found == m_now.end() ? nullptr : &m_files[found->second];
}

void DiskModel::name(const Change& change, std::size_t file) {
  m_namings.push_back({change.what, change.path, change.to, file, false});
}

void DiskModel::flush(const std::string& path, std::size_t file) {
  m_files[file].flush();
  for (Naming& naming : m_namings) {
    const bool is_of_file =
        naming.file == file && (naming.what == What::kCreate || naming.what == What::kRename);
    const bool is_above = naming.what == What::kMakeFolder && path.starts_with(naming.path + "/");
    if (is_of_file || is_above) naming.is_certain = true;
  }
}

void DiskModel::apply(const Change& change) {
  if (change.what == What::kMakeFolder || change.what == What::kRemoveFolder) {
    return name(change, kNoFile);
  }
  if (change.what == What::kCreate) {
    m_now[change.path] = m_files.size();
    m_files.emplace_back();
    return name(change, m_files.size() - 1);
  }
  const auto found = m_now.find(change.path);
  if (found == m_now.end()) return;
  const std::size_t file = found->second;
  switch (change.what) {
    case What::kWrite: return m_files[file].write(change.offset, change.bytes);
    case What::kCut: return m_files[file].cut(change.offset);
    case What::kFlush: return flush(change.path, file);
    case What::kRename:
      m_now.erase(found);
      m_now[change.to] = file;
      return name(change, file);
    case What::kRemove: m_now.erase(found); return name(change, file);
    default: return;
  }
}

Tree DiskModel::image(std::mt19937_64& random) const {
  std::map<std::string, std::size_t> names = m_first;
  std::set<std::string> folders = m_folders;
  const std::uint64_t chance = random() % 17;
  for (const Naming& naming : m_namings) {
    if (!naming.is_certain && random() % 16 >= chance) continue;
    switch (naming.what) {
      case What::kCreate: names[naming.path] = naming.file; break;
      case What::kRename: {
        const auto found = names.find(naming.path);
        if (found != names.end() && found->second == naming.file) names.erase(found);
        names[naming.to] = naming.file;
        break;
      }
      case What::kRemove: {
        const auto found = names.find(naming.path);
        if (found != names.end() && found->second == naming.file) names.erase(found);
        break;
      }
      case What::kMakeFolder: folders.insert(naming.path + "/"); break;
      case What::kRemoveFolder: folders.erase(naming.path + "/"); break;
      default: break;
    }
  }
  Tree tree;
  for (const std::string& folder : folders) tree.emplace(folder, std::string());
  for (const auto& [path, file] : names) {
    const Missing missing = path.ends_with("/index") ? Missing::kIsOld : Missing::kMayBeZeros;
    tree.emplace(path, m_files[file].image(random, missing));
  }
  return tree;
}

void put_tree(const Tree& tree, const std::string& root, const Tree& there) {
  for (const auto& [path, bytes] : there) {
    if (path.back() != '/' && tree.count(path) == 0) {
      std::filesystem::remove(native(root + "/" + path));
    }
  }
  for (const auto& [path, bytes] : tree) {
    const std::string place = root + "/" + path;
    if (path.back() == '/') {
      make_folder(place.substr(0, place.size() - 1));
    } else if (const auto found = there.find(path);
               found == there.end() || found->second != bytes) {
      make_folder(place.substr(0, place.rfind('/')));
      write_file(place, bytes);
    }
  }
}

}  // namespace reliability
