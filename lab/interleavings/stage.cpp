#include "lab/interleavings/stage.h"

#include <stdexcept>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/scratch.h"

namespace interleavings {
namespace {

void check(const os::Status& status, const char* what, const std::string& path) {
  if (status.ok()) return;
  throw std::runtime_error(std::string(what) + " " + path + ": " + std::to_string(status.code()));
}

std::string bytes_of(const std::string& path, std::uint64_t size) {
  os::Handle handle = os::kNoHandle;
  check(os::sys::open(path, os::Access::kReadExisting, handle), "open", path);
  std::string bytes(static_cast<std::size_t>(size), '\0');
  std::size_t done = 0;
  const os::Status read = os::sys::read(handle, bytes.data(), bytes.size(), done);
  check(os::sys::close(handle), "close", path);
  check(read, "read", path);
  bytes.resize(done);
  return bytes;
}

}  // namespace

void add_folder(Tree& tree, const std::string& path) {
  for (std::size_t slash = path.find('/'); slash != std::string::npos;
       slash = path.find('/', slash + 1))
    tree.emplace(path.substr(0, slash + 1), Item());
}

void add_file(Tree& tree, const std::string& path, const std::string& bytes, std::int64_t time) {
  add_folder(tree, path);
  tree[path] = {bytes, time};
}

Stage::Stage(const std::string& root) : m_root(root) {
  make_folder(root);
  look();
}

void Stage::set(const Tree& tree) {
  // From the last one on, so that a folder is empty before it goes.
  for (auto it = m_now.rbegin(); it != m_now.rend(); ++it) {
    if (!tree.contains(it->first)) remove(it->first);
  }
  for (const auto& [path, item] : tree) {
    const auto found = m_now.find(path);
    if (found == m_now.end() || found->second != item) make(path, item);
  }
  m_now = tree;
}

const Tree& Stage::look() {
  m_now.clear();
  walk("", m_now);
  return m_now;
}

void Stage::walk(const std::string& folder, Tree& tree) const {
  os::Listing entries;
  check(os::sys::list(whole(folder), entries), "list", folder);
  for (const os::Entry entry : entries) {
    const std::string path = folder + std::string(entry.name);
    os::FileStat found;
    check(os::sys::stat(whole(path), found, os::Links::kKeep), "stat", path);
    if (found.is_directory) {
      tree.emplace(path + "/", Item());
      walk(path + "/", tree);
    } else {
      tree.emplace(path, Item{bytes_of(whole(path), found.size), found.modify_time});
    }
  }
}

void Stage::remove(const std::string& path) const {
  check(path.ends_with('/') ? os::sys::remove_directory(whole(path))
                            : os::sys::remove_file(whole(path)),
        "remove", path);
}

void Stage::make(const std::string& path, const Item& item) const {
  if (path.ends_with('/')) return check(os::sys::create_directory(whole(path)), "make", path);
  os::Handle handle = os::kNoHandle;
  check(os::sys::open(whole(path), os::Access::kReadWriteCreate, handle), "make", path);
  std::size_t done = 0;
  os::Status status = os::sys::set_end(handle);
  if (status.ok()) status = os::sys::write(handle, item.bytes.data(), item.bytes.size(), done);
  check(os::sys::close(handle), "close", path);
  check(status, "write", path);
  set_modify_time(whole(path), item.time);
}

}  // namespace interleavings
