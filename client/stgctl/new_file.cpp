#include "client/stgctl/new_file.h"

#include <cerrno>

#include "client/stgctl/paths.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

std::string parent_of(const std::string& path) { return from_path(to_path(path).parent_path()); }

/// The path, or its nearest parent that exists: the system resolves links only in such a path.
std::string existing_part(fs::path path) {
  const auto exists = [&path] {
    const sys::Kind kind = sys::describe(from_path(path)).kind;
    return kind != sys::Kind::kMissing && kind != sys::Kind::kUnknown;
  };
  while (path.has_relative_path() && !exists()) path = path.parent_path();
  return from_path(path);
}

}  // namespace

bool is_in_tree(Context& context, const std::string& path) {
  const std::string real = sys::absolute(path);
  const std::string tree = sys::absolute(context.storage());
  return real == tree || real.starts_with(tree + sys::kSeparator);
}

void check_outside_tree(Context& context, const std::string& path) {
  const fs::path whole = fs::absolute(to_path(path));
  // "link/.." is the parent of the link's target. But "new/../link" is "link" once "new" exists.
  for (const fs::path& each : {whole, whole.lexically_normal()}) {
    if (is_in_tree(context, existing_part(each)))
      refuse("{} is in the tree; name a place outside the tree", shown(path));
  }
  if (sys::kSeparator != '\\' && path.find('\\') != std::string::npos)
    refuse("{} contains a backslash; name another place", shown(path));
}

bool is_file_at(const std::string& path) {
  const sys::Kind there = sys::describe(path).kind;
  if (there == sys::Kind::kUnknown)
    refuse("{} cannot be examined; name another place", shown(path));
  if (there != sys::Kind::kMissing && there != sys::Kind::kFile)
    refuse("{} is not a plain file; name another place", shown(path));
  return there == sys::Kind::kFile;
}

NewFile::NewFile(std::string path, std::string unfinished, IfGivenUp if_given_up)
    : m_path(std::move(path)), m_unfinished(std::move(unfinished)), m_if_given_up(if_given_up) {
  std::error_code error;
  fs::create_directories(to_path(parent_of(m_path)), error);
  errno = error.value();
  if (!error) m_stream.open(to_path(m_unfinished), std::ios::binary | std::ios::trunc);
  if (!m_stream.is_open()) fail();
}

NewFile::NewFile(const std::string& path)
    : NewFile(path, joined(parent_of(path), kUnfinishedName)) {}

NewFile::~NewFile() {
  if (m_committed || m_if_given_up == IfGivenUp::kKeep) return;
  m_stream.close();
  std::error_code ignored;
  fs::remove(to_path(m_unfinished), ignored);
}

void NewFile::fail() {
  const int code = errno;
  throw WriteFailure(Exit::kFailed,
                     "{} cannot be written ({}); check the free space and the permissions",
                     shown(m_path), std::generic_category().message(code));
}

void NewFile::write(std::string_view bytes) {
  m_stream.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  if (!m_stream) fail();
}

void NewFile::commit(std::optional<std::int64_t> modify_time) {
  m_stream.close();
  if (!m_stream) fail();
  if (modify_time) set_modify_time(m_unfinished, *modify_time);
  std::error_code error;
  fs::rename(to_path(m_unfinished), to_path(m_path), error);
  errno = error.value();
  if (error) fail();
  m_committed = true;
}

void write_file(const std::string& path, std::string_view bytes) {
  if (std::error_code error; !fs::is_directory(to_path(path).parent_path(), error))
    fail("{} cannot be written: its folder does not exist", shown(path));
  NewFile file(path, path + std::string(kUnfinishedName));
  file.write(bytes);
  file.commit();
}

void set_modify_time(const std::string& path, std::int64_t seconds) {
  using namespace std::chrono;
  std::error_code error;
  const auto time = file_clock::from_sys(sys_seconds(std::chrono::seconds(seconds)));
  fs::last_write_time(to_path(path), time_point_cast<fs::file_time_type::duration>(time), error);
  if (error) fail("{}: its time could not be set: {}", shown(path), error.message());
}

Content read_content(const std::string& path, const sys::Locking& locking, NewFile* copy) {
  admin::Checksum checksum;
  Content content;
  const os::Status read = sys::read_pieces(path, locking, [&](std::string_view piece) {
    content.bytes += piece.size();
    checksum.add(piece);
    if (copy != nullptr) copy->write(piece);
    return !Context::interrupted();
  });
  check_read(path, read);
  content.checksum = checksum.text();
  return content;
}

os::Status write_out(Context& context, const std::string& path, const sys::Locking& locking) {
  return sys::read_pieces(path, locking, [&](std::string_view piece) {
    context.out().write(piece);
    return !Context::interrupted();
  });
}

std::vector<std::string> names_of_folder(const std::string& path) {
  std::vector<sys::Child> children;
  if (const os::Status listed = sys::list_sorted(path, children); !listed.ok())
    fail("{}: {}", shown(path), sys::text_of(listed));
  std::vector<std::string> names;
  for (sys::Child& child : children) names.push_back(std::move(child.name));
  return names;
}

}  // namespace stgctl
