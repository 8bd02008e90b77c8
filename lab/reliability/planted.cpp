#include "lab/reliability/planted.h"

#include <memory>
#include <string>

#include "platform/os/os.h"
#include "vu_file.h"
#include "vu_storage.h"

namespace reliability {
namespace {

using Operations = std::vector<PublicOperation>;

/// A line more, by way of an index that is empty meanwhile.
void save_by_cutting_first(const Place& place) {
  vu_file file(place.folder(), "index.dat");
  std::string text;
  file.open(vu_file::o_read);
  file.read(text, 0);
  file.close();
  file.open(vu_file::o_truncate);
  file.write("a.kdb_0000000009/00000001\n" + text);
  file.close();
}

/// What is forgotten hangs together, so that a leak checker of the whole process has nothing to
/// say.
struct Buffer {
  std::string text;
  Buffer* before;
};
Buffer* s_forgotten = nullptr;

/// Reads a file; where that fails, nobody closes it, and the buffer is forgotten.
void read_and_forget(const Place& place) {
  os::Handle handle = os::kNoHandle;
  if (!os::open(place.document(), os::Access::kReadExisting, handle).ok()) return;
  auto* const buffer = new Buffer{std::string(1000, ' '), s_forgotten};
  s_forgotten = buffer;
  std::size_t done = 0;
  const bool is_read = os::read(handle, buffer->text.data(), buffer->text.size(), done).ok();
  const auto copy = std::make_unique<std::string>(buffer->text);
  if (!is_read) return;
  s_forgotten = buffer->before;
  delete buffer;
  static_cast<void>(os::close(handle));
}

bool write_silently(const Place& place) {
  os::Handle handle = os::kNoHandle;
  if (!os::open(place.document(), os::Access::kReadWriteCreate, handle).ok()) return false;
  std::size_t done = 0;
  const bool is_written = os::write(handle, "text", 4, done).ok();
  return os::close(handle).ok() && is_written;
}

}  // namespace

const Operations& operations_that_cut_first() {
  static const Operations all = {{"STGIndex::, planted: a save that cuts first", kForNobody,
                                  [](const Place& p) { save_by_cutting_first(p); }}};
  return all;
}

const Operations& operations_that_leak() {
  static const Operations all = {
      {"planted: a reader that forgets", kForNobody, [](const Place& p) { read_and_forget(p); }}};
  return all;
}

const Operations& operations_that_say_nothing() {
  static const Operations all = {
      {"planted: a silent writer", kForNobody, [](const Place& p) { return write_silently(p); }}};
  return all;
}

const Operations& operations_that_let_out() {
  // It bears the name of one that lets no exception out.
  static const Operations all = {{"vu_storage::RemoveFile", kForNobody, [](const Place& p) {
                                    vu_file(p.document()).open(vu_file::o_write);
                                  }}};
  return all;
}

}  // namespace reliability
