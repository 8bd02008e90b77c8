// Handles and what is done to files by their paths.

#include "lab/model/world.h"

namespace model {

// ---- handles -------------------------------------------------------------------------------

void File::open(Mode mode) {
  if (m_open) {
    m_world.error("file is already opened, it will be closed and reopened !!!");
    m_world.error(" path = " + path());
    close();
  }
  m_mode = mode;
  if (mode == Mode::kRead) {
    const Node* const node = m_world.tree.at(path());
    m_open = node != nullptr && !node->is_folder;
  } else {
    Node* const node = m_world.tree.open_to_write(path());
    m_open = node != nullptr;
    if (node != nullptr && mode == Mode::kTruncate) {
      node->bytes.clear();
      node->is_fresh = true;
    }
  }
  m_position = 0;
  if (m_open) return;
  if (mode != Mode::kRead) {
    m_world.error("open o_read : " + path());
    m_world.error("Error message :*");
  }
  throw FileError{"throw exception on open"};
}

void File::open(const std::string& folder, const std::string& name, Mode mode) {
  if (folder.empty() || name.empty()) return;
  m_folder = folder;
  m_name = name;
  open(mode);
}

int File::read(std::string& out, int count) {
  out.clear();
  if (m_mode == Mode::kWrite || m_mode == Mode::kTruncate || m_mode == Mode::kNone)
    throw FileError{"vu_file::read : read op in write or truncate access file"};
  const Node* const node = m_world.tree.at(path());
  if (count == 0) count = node == nullptr ? 0 : static_cast<int>(node->bytes.size());
  if (count == 0) return 0;
  if (!m_open || count < 0) {
    m_world.error("read file : " + path());
    m_world.error("Error message :*");
    throw FileError{"throw exception on read"};
  }
  if (m_position < node->bytes.size())
    out = node->bytes.substr(m_position, static_cast<std::size_t>(count));
  m_position += out.size();
  return static_cast<int>(out.size());
}

int File::write(const std::string& data) {
  if (m_mode == Mode::kRead || m_mode == Mode::kNone)
    throw FileError{"vu_file::write : write operation in read access file"};
  if (data.empty()) return 0;
  if (!m_open) {
    m_world.error("write file : " + path());
    m_world.error("Error message :*");
    return 0;
  }
  Node* const node = m_world.tree.at(path());
  if (m_mode == Mode::kAppend) m_position = node->bytes.size();
  if (node->bytes.size() < m_position) node->bytes.resize(m_position, '\0');
  for (const char c : data) {
    if (m_position < node->bytes.size()) {
      node->bytes[m_position] = c;
    } else {
      node->bytes.push_back(c);
    }
    ++m_position;
  }
  node->is_fresh = true;
  return static_cast<int>(data.size());
}

void File::seek(int offset, int origin) {
  if (!m_open) return;
  long base = 0;
  if (origin == 1) base = static_cast<long>(m_position);
  if (origin == 2) base = static_cast<long>(m_world.tree.size(path()));
  if (base + offset >= 0) m_position = static_cast<std::size_t>(base + offset);
}

void File::clear() {
  if (m_mode == Mode::kRead) return;
  if (!m_open) {
    m_world.error("Can't truncate file  : " + path());
    m_world.error("Error message :*");
    return;
  }
  Node* const node = m_world.tree.at(path());
  node->bytes.clear();
  node->is_fresh = true;
  m_position = 0;
}

// ---- by path -------------------------------------------------------------------------------

bool World::create_dir(const std::string& path) {
  if (tree.make_folder(path)) return true;
  if (tree.exists(path) && tree.at(path) != nullptr) return true;
  error("vu_file::createDir (" + path + ") : *");
  return false;
}

void World::make_if_missing(const std::string& path) {
  if (!tree.exists(path)) create_dir(path);
}

bool World::chmod(const std::string& path) {
  if (tree.make_writable(path)) return true;
  error("vu_file::chmodW : failed (" + path + ")");
  return false;
}

void World::remove(const std::string& path) {
  if (tree.is_folder(path)) {
    tree.remove_folder(path);
  } else {
    tree.remove_file(path);
  }
}

bool World::copy_file(const std::string& from, const std::string& to, bool overwrite) {
  if (!tree.exists(from)) return false;
  if (!overwrite && tree.exists(to)) return false;
  return tree.copy(from, to, overwrite);
}

bool World::recurse_remove(const std::string& path) {
  if (!tree.exists(path) || !tree.is_folder(path)) return false;
  for (const std::string& name : tree.names(path)) {
    const std::string entry = path + "\\" + name;
    if (!tree.exists(entry)) continue;
    if (tree.is_folder(entry)) recurse_remove(entry);
    remove(entry);
  }
  remove(path);
  return true;
}

void World::remove_loudly(const std::string& path) {
  const bool done = tree.is_folder(path) ? tree.remove_folder(path) : tree.remove_file(path);
  // The text contains the path in its long form.
  std::string shown = path;
  for (char& c : shown) {
    if (c == '/') c = '\\';
  }
  if (!done) error("removing: " + shown + ": *");
}

std::uint64_t World::folder_size_in_kb(const std::string& path) {
  std::uint64_t result = 0;
  for (const std::string& name : tree.names(path)) {
    const std::string entry = path + "\\" + name;
    if (tree.is_folder(entry)) result += folder_size_in_kb(entry);
    result += tree.size(entry) / 1024;
  }
  return result;
}

std::string World::read_whole(const std::string& folder, const std::string& name) {
  File file(*this, folder, name);
  file.open(Mode::kRead);
  std::string text;
  file.read(text, 0);
  return text;
}

}  // namespace model
