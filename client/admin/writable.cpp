#include "client/admin/writable.h"

#include <utility>

#include "client/admin/text.h"
#include "index/index_format.h"

namespace admin {

namespace {

constexpr os::Status kNoPlainFile{0, os::Failure::kOther};

/// The folder itself, or the nearest one above it that is there: what is missing is made in it.
Obstacle obstacle_of_folder(std::string path) {
  for (;;) {
    const sys::Kind kind = sys::describe(path).kind;
    const std::size_t at = path.rfind(sys::kSeparator);
    if (kind == sys::Kind::kMissing && at != std::string::npos && at != 0) {
      path.resize(at);
      continue;
    }
    Obstacle found{Obstacle::Kind::kFolder, path, ""};
    if (kind == sys::Kind::kFile || kind == sys::Kind::kOther) {
      found.why = "a file stands where a folder has to be";
    } else if (const os::Status status = sys::probe_writable(path); !status.ok()) {
      found.why = sys::text_of(status);
    }
    return found;
  }
}

Obstacle obstacle_of_file(Obstacle::Kind what, const std::string& path) {
  const sys::Kind kind = sys::describe(path).kind;
  Obstacle found{what, path, ""};
  if (kind == sys::Kind::kMissing) return found;
  if (kind != sys::Kind::kFile) {
    found.why = why_not_usable(path, kNoPlainFile);
  } else if (const os::Status status = sys::probe_writable(path); !status.ok()) {
    found.why = why_not_usable(path, status);
  }
  return found;
}

}  // namespace

std::string why_not_usable(const std::string& path, const os::Status& status) {
  if (status.failure() == os::Failure::kLocked) return "it is locked elsewhere";
  const sys::Info info = sys::describe(path);
  if (info.kind == sys::Kind::kFolder) return "a folder stands in its place";
  if (info.kind == sys::Kind::kLink) return "a link stands in its place";
  if (info.kind == sys::Kind::kOther) return "it is no plain file";
  if (info.is_read_only) return "it is read-only";
  return sys::text_of(status);
}

std::vector<Obstacle> obstacles_to_writing(const std::string& folder) {
  using Kind = Obstacle::Kind;
  // Where the folder itself keeps everybody out, what is in it need not be told.
  if (Obstacle first = obstacle_of_folder(folder); !first.why.empty()) return {std::move(first)};
  std::vector<Obstacle> found;
  for (Obstacle& each : std::vector<Obstacle>{
           obstacle_of_file(Kind::kIndex, sys::join(folder, index_format::kIndexFile)),
           obstacle_of_file(Kind::kCounter, sys::join(folder, index_format::kCounterFile))}) {
    if (!each.why.empty()) found.push_back(std::move(each));
  }
  return found;
}

std::string why_not_storable(const std::string& folder) {
  const std::vector<Obstacle> found = obstacles_to_writing(folder);
  if (found.empty()) return {};
  const Obstacle& first = found.front();
  const char* const what = first.kind == Obstacle::Kind::kIndex     ? "the index "
                           : first.kind == Obstacle::Kind::kCounter ? "the counter "
                                                                    : "the folder ";
  return what + printable(first.path) + " cannot be written: " + first.why;
}

}  // namespace admin
