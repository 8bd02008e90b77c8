#include "lab/interleavings/footprint.h"

#include <algorithm>

namespace interleavings {
namespace {

using os::faults::Call;

bool is_below(const std::string& path, const std::string& folder) {
  return path.size() > folder.size() && path.starts_with(folder) && path[folder.size()] == '/';
}

bool touch(const Touched& one, const Touched& other) {
  if (one.touch == Touch::kReads && other.touch == Touch::kReads) return false;
  if (one.aspect == other.aspect && one.path == other.path) return true;
  const auto moves = [](const Touched& folder, const Touched& inside) {
    return folder.aspect == Aspect::kName && folder.touch == Touch::kChanges &&
           (is_below(inside.path, folder.path) ||
            (inside.path == folder.path && inside.aspect == Aspect::kListing));
  };
  return moves(one, other) || moves(other, one);
}

}  // namespace

std::string parent_of(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string() : path.substr(0, slash);
}

bool touch_each_other(const Footprint& one, const Footprint& other) {
  return std::any_of(one.begin(), one.end(), [&](const Touched& mine) {
    return std::any_of(other.begin(), other.end(),
                       [&](const Touched& theirs) { return touch(mine, theirs); });
  });
}

bool changes_anything(const Footprint& footprint) {
  return std::any_of(footprint.begin(), footprint.end(),
                     [](const Touched& each) { return each.touch == Touch::kChanges; });
}

std::string in_words(const SeenCall& call) {
  std::string words = os::faults::name(call.function);
  if (call.function == Call::lock) words += call.is_exclusive ? " (exclusive)" : " (shared)";
  if (!call.path.empty()) words += " " + call.path;
  if (!call.to.empty()) words += " to " + call.to;
  return words;
}

namespace detail {

void mark_question(const SeenCall& call, Marks& marks) {
  switch (call.function) {
    case Call::probe_attributes:
    case Call::probe_search:
      if (call.path.find_first_of("*?") != std::string::npos) {
        marks.reads(Aspect::kListing, parent_of(call.path));
      } else {
        marks.reads(Aspect::kName, call.path);
      }
      break;
    case Call::list:
      marks.reads(Aspect::kName, call.path);
      marks.reads(Aspect::kListing, call.path);
      break;
    case Call::stat:
      marks.reads(Aspect::kName, call.path);
      marks.reads(Aspect::kContent, call.path);
      break;
    case Call::open_folder:
    // No file of these trees is read-only.
    case Call::make_writable:
      marks.reads(Aspect::kName, call.path);
      break;
    default:
      break;
  }
}

void mark_on_handle(const SeenCall& call, Marks& marks) {
  const auto lock = [&] {
    call.is_exclusive ? marks.changes(Aspect::kLock, call.path)
                      : marks.reads(Aspect::kLock, call.path);
  };
  switch (call.function) {
    case Call::lock:
    case Call::unlock:
      lock();
      break;
    case Call::close:
      if (call.is_locked) lock();
      break;
    case Call::size:
      marks.reads(Aspect::kContent, call.path);
      break;
    case Call::read:
      marks.reads(Aspect::kContent, call.path);
      if (!call.is_locked) marks.reads(Aspect::kLock, call.path);
      break;
    case Call::write:
    case Call::set_end:
      marks.changes(Aspect::kContent, call.path);
      if (!call.is_locked) marks.reads(Aspect::kLock, call.path);
      break;
    default:
      break;
  }
}

}  // namespace detail
}  // namespace interleavings
