#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/support/os_faults.h"

/// @file
/// What a call of the seam touches, and which calls touch one another.
namespace interleavings {

enum class Aspect : std::uint8_t {
  kName,     ///< whether the path is there, and as what
  kListing,  ///< the names in a folder
  kContent,  ///< bytes and size of a file
  kLock,     ///< who holds locks on a file
};
enum class Touch : std::uint8_t { kReads, kChanges };

struct Touched {
  Aspect aspect = Aspect::kName;
  Touch touch = Touch::kReads;
  std::string path = {};

  bool operator==(const Touched&) const = default;
};
using Footprint = std::vector<Touched>;

/// Whether the order of two calls can matter. Both may read, but where one of them changes what the
/// other one touches it does. A folder's name counts for everything below it.
bool touch_each_other(const Footprint& one, const Footprint& other);
/// Whether the call leaves anything behind.
bool changes_anything(const Footprint& footprint);

/// A call, as a conductor sees it. Paths are relative to the tree, with "/" between their parts.
struct SeenCall {
  os::faults::Call function = os::faults::Call::any;
  std::string path = {};
  std::string to = {};        ///< of a rename and a copy
  bool is_making = false;     ///< an open that makes the file when it is missing
  bool is_exclusive = false;  ///< a lock, or what is done on a handle that holds one
  bool waits = false;         ///< a lock that is waited for
  bool is_locked = false;     ///< done on a handle that holds any lock
};

/// "open user/anna/index.dat"
std::string in_words(const SeenCall& call);
/// @param is_there whether a path of the tree exists now.
template <class IsThere>
Footprint footprint_of(const SeenCall& call, const IsThere& is_there);

/// The folder of a path; empty for the tree itself.
std::string parent_of(const std::string& path);

// ------------------------------------------------------------------------------------------------

namespace detail {

class Marks {
 public:
  void reads(Aspect aspect, const std::string& path) { add(aspect, Touch::kReads, path); }
  void changes(Aspect aspect, const std::string& path) { add(aspect, Touch::kChanges, path); }
  /// A name comes or goes.
  void changes_name(const std::string& path) {
    changes(Aspect::kName, path);
    changes(Aspect::kListing, parent_of(path));
  }
  Footprint take() { return std::move(m_marks); }

 private:
  void add(Aspect aspect, Touch touch, const std::string& path) {
    m_marks.push_back({aspect, touch, path});
  }

  Footprint m_marks;
};

void mark_on_handle(const SeenCall& call, Marks& marks);
void mark_question(const SeenCall& call, Marks& marks);

}  // namespace detail

template <class IsThere>
Footprint footprint_of(const SeenCall& call, const IsThere& is_there) {
  using os::faults::Call;
  detail::Marks marks;
  // What is made only when it is missing, and goes only when it is there, changes nothing else.
  const auto comes = [&](const std::string& path) {
    is_there(path) ? marks.reads(Aspect::kName, path) : marks.changes_name(path);
  };
  const auto goes = [&](const std::string& path) {
    is_there(path) ? marks.changes_name(path) : marks.reads(Aspect::kName, path);
  };
  switch (call.function) {
    case Call::open:
      call.is_making ? comes(call.path) : marks.reads(Aspect::kName, call.path);
      break;
    case Call::create_directory:
      comes(call.path);
      break;
    case Call::remove_directory:
      goes(call.path);
      marks.reads(Aspect::kListing, call.path);
      break;
    case Call::remove_file:
      goes(call.path);
      break;
    case Call::rename:
      if (call.path == call.to) {
        marks.reads(Aspect::kName, call.path);
      } else {
        goes(call.path);
        comes(call.to);
      }
      break;
    case Call::copy:
      marks.reads(Aspect::kName, call.path);
      marks.reads(Aspect::kContent, call.path);
      marks.reads(Aspect::kLock, call.path);
      comes(call.to);
      marks.changes(Aspect::kContent, call.to);
      marks.changes(Aspect::kLock, call.to);
      break;
    default:
      detail::mark_question(call, marks);
      detail::mark_on_handle(call, marks);
      break;
  }
  return marks.take();
}

}  // namespace interleavings
