#include "tests/reliability/disk_model.h"

#include <algorithm>
#include <filesystem>
#include <utility>

#include "tests/support/scratch.h"

namespace reliability {

using os::faults::Change;
using What = Change::What;

namespace {

constexpr std::size_t kNoFile = static_cast<std::size_t>(-1);

bool is_of_names(What what) {
  return what == What::kCreate || what == What::kRename || what == What::kRemove;
}

}  // namespace

/// A disk while changes are applied to it.
struct DiskModel::State {
  std::map<std::string, std::size_t> names;
  std::map<std::size_t, std::string> bytes;
  std::set<std::string> folders;
};

DiskModel::DiskModel(Tree before, Changes changes)
    : m_before(std::move(before)), m_changes(std::move(changes)) {
  for (const auto& [path, bytes] : m_before) {
    if (path.back() != '/') m_first[path] = m_files++;
  }
  std::map<std::string, std::size_t> names = m_first;
  for (std::size_t i = 0; i < m_changes.size(); ++i) {
    const Change& change = m_changes[i];
    if (change.what == What::kCreate) names[change.path] = m_files++;
    const auto found = names.find(change.path);
    m_file.push_back(found == names.end() ? kNoFile : found->second);
    if (found == names.end()) continue;
    if (change.what == What::kFlush) m_flushes[found->second].insert(i);
    if (change.what == What::kRename) names[change.to] = found->second;
    if (change.what == What::kRename || change.what == What::kRemove) names.erase(found);
  }
}

bool DiskModel::is_certain(std::size_t change, std::size_t end) const {
  const Change& one = m_changes[change];
  if (one.what == What::kMakeFolder) {
    // With a flushed file below it.
    for (std::size_t i = change; i < end; ++i) {
      if (m_changes[i].what == What::kFlush && m_changes[i].path.starts_with(one.path + "/")) {
        return true;
      }
    }
    return false;
  }
  const auto flushes = m_flushes.find(m_file[change]);
  if (one.what == What::kRemove || flushes == m_flushes.end()) return false;
  const auto next = flushes->second.upper_bound(change);
  return next != flushes->second.end() && *next < end;
}

void DiskModel::apply(State& state, std::size_t number,
                      const std::function<bool()>& keeps_next) const {
  const Change& change = m_changes[number];
  const std::size_t file = m_file[number];
  switch (change.what) {
    case What::kCreate:
      if (keeps_next()) state.names[change.path] = file;
      break;
    case What::kWrite: {
      std::string& bytes = state.bytes[file];
      for (std::size_t at = 0; at < change.bytes.size();) {
        const std::size_t offset = static_cast<std::size_t>(change.offset) + at;
        const std::size_t length = std::min(kSector - offset % kSector, change.bytes.size() - at);
        if (keeps_next()) {
          if (bytes.size() < offset + length) bytes.resize(offset + length, '\0');
          bytes.replace(offset, length, change.bytes, at, length);
        }
        at += length;
      }
      break;
    }
    case What::kCut:
      if (keeps_next()) state.bytes[file].resize(static_cast<std::size_t>(change.offset), '\0');
      break;
    case What::kRename:
      if (keeps_next()) {
        const auto found = state.names.find(change.path);
        if (found != state.names.end() && found->second == file) state.names.erase(found);
        state.names[change.to] = file;
      }
      break;
    case What::kRemove:
      if (keeps_next()) state.names.erase(change.path);
      break;
    case What::kMakeFolder:
      if (keeps_next()) state.folders.insert(change.path + "/");
      break;
    case What::kRemoveFolder:
      if (keeps_next()) state.folders.erase(change.path + "/");
      break;
    case What::kFlush:
    case What::kClose:
      break;
  }
}

Tree DiskModel::image(std::size_t end, const std::function<bool(std::size_t)>& keeps) const {
  State state;
  for (const auto& [path, file] : m_first) {
    state.names[path] = file;
    state.bytes[file] = m_before.at(path);
  }
  for (const auto& [path, bytes] : m_before) {
    if (path.back() == '/') state.folders.insert(path);
  }
  std::size_t piece = 0;
  for (std::size_t i = 0; i < end; ++i) {
    const bool certain = is_certain(i, end);
    apply(state, i, [&] { return certain || keeps(piece++); });
  }
  Tree tree;
  for (const std::string& folder : state.folders) tree.emplace(folder, std::string());
  for (const auto& [path, file] : state.names) tree.emplace(path, state.bytes[file]);
  return tree;
}

std::size_t DiskModel::loose_pieces(std::size_t end) const {
  std::size_t pieces = 0;
  image(end, [&](std::size_t piece) {
    pieces = piece + 1;
    return true;
  });
  return pieces;
}

bool DiskModel::is_loose(std::size_t begin, std::size_t end, const std::string& path) const {
  for (std::size_t i = begin; i < end; ++i) {
    const Change& change = m_changes[i];
    const bool changes =
        is_of_names(change.what) || change.what == What::kWrite || change.what == What::kCut;
    if (changes && change.path == path && !is_certain(i, end)) return true;
  }
  return false;
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
