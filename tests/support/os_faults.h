#pragma once

// Included by the tests' os.h (layer/platform/os/os.h). This layer is between the library and the
// seam. Its functions are twins of those in os.h, whose comments apply. Example: os::open() counts
// the call, applies the rules of the test and calls os::sys::open().

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/os/os.h"

#if !defined(VU_OS_LAYER)
#error "the library's own os.h was found first; link vu_storage_testable before anything else"
#endif

namespace os {

Status open(Path path, Access access, Handle& handle);
Status close(Handle handle);
Status read(Handle handle, void* buffer, std::size_t count, std::size_t& done);
Status write(Handle handle, const void* data, std::size_t count, std::size_t& done);
Status write_at(Handle handle, std::uint64_t offset, const void* data, std::size_t count,
                std::size_t& done);
Status seek(Handle handle, std::int32_t distance, std::int16_t method);
Status set_end(Handle handle);
Status size(Handle handle, std::uint64_t& bytes);
Status reserve(Handle handle, std::uint64_t size);
Status take_time(Handle from, Handle to, CopiedTime& time);
Status flush(Handle handle);
Status lock(Handle handle, const LockRequest& request);
Status unlock(Handle handle);

Status probe_attributes(Path path);
Status probe_search(Path path);
Status list(Path folder, Listing& entries);
Status stat(Path path, FileStat& result, Links links = Links::kFollow);
Status same_file(Path one, Path other, bool& is_same);
Status open_folder(Path path, Handle& folder);

Status make_writable(Path path);
Status create_directory(Path path);
Status remove_directory(Path path);
Status remove_file(Path path);
Status remove_file(Path path, const FileStat& found);
Status rename(Path from, Path to);
Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time = nullptr,
            Flushed flushed = Flushed::kNo);
Status flush_file(Path path);

Status short_path(const ucs2string& path, ucs2string& result);
Status current_directory(ucs2string& result);
Status full_path(const ucs2string& path, ucs2string& result);
Status program_folder(ucs2string& result);
Status temporary_folder(ucs2string& result);
Status environment(const std::string& variable, ucs2string& value);
std::string to_narrow(const ucs2string& text);
bool narrow_of(const std::string& utf8, std::string& narrow);
std::string utf8_of(const std::string& narrow);
std::string native_form(const std::string& narrow);
bool is_lead_byte(unsigned char byte);

std::int32_t last_error();
std::string error_text(std::int32_t code);
ucs2string error_text_wide(std::int32_t code);
std::int64_t now();
bool nt_family();
bool locks_belong_to_handles(Path folder);

/// Fault injection by rules.
///
/// Each function below adds one rule and returns its owner; the end of the owner's scope removes
/// the rule. Each rule counts its calls itself: the first call after it was added is number 1.
/// Several rules can apply to one call: every hook runs. Of the other rules the oldest one decides.
///
///  // The third open fails.
///  const auto fault = faults::fail(faults::Call::open, {5, os::Failure::kOther}, 3);
///
/// Rules can be added while other threads are inside the seam. A hook runs on the thread of the
/// call, outside of every lock. It may wait for other threads and call the seam.
namespace faults {

enum class Call : std::uint8_t {
  open,
  close,
  read,
  write,  ///< also write_at()
  seek,
  set_end,
  size,
  reserve,
  take_time,
  flush,
  lock,
  unlock,
  probe_attributes,
  probe_search,
  list,
  stat,
  same_file,
  open_folder,
  make_writable,
  create_directory,
  remove_directory,
  remove_file,
  rename,
  copy,
  flush_file,
  short_path,
  current_directory,
  full_path,
  program_folder,
  temporary_folder,
  environment,
  to_narrow,
  narrow_of,
  utf8_of,
  native_form,
  is_lead_byte,
  last_error,
  error_text,
  error_text_wide,
  now,
  nt_family,
  locks_belong_to_handles,
  any,     ///< in a rule: every function
  system,  ///< in a rule: every function that asks_the_system()
};

/// The name of the function, for messages.
const char* name(Call call);
/// Whether a function returns a status. The others cannot fail and change nothing outside of the
/// process.
constexpr bool asks_the_system(Call call) { return call < Call::to_narrow; }

enum class Times : std::uint8_t {
  kOnce,     ///< the n-th call alone
  kLasting,  ///< the n-th call and all that follow
};

struct Rule;

/// Owns one rule.
class [[nodiscard]] Fault {
 public:
  explicit Fault(std::shared_ptr<Rule> rule);
  ~Fault();
  Fault(const Fault&) = delete;
  Fault& operator=(const Fault&) = delete;

  /// How often the rule was applied.
  std::uint64_t hits() const;

 private:
  std::shared_ptr<Rule> m_rule;
};

/// The call does nothing and returns @p status; last_error() of that thread then agrees with it. A
/// function without a status returns false, an empty text or 0; last_error() itself returns the
/// code. Exception: under a rule for Call::system a close still closes, also before a planned
/// exception, because nobody else could close the handle.
Fault fail(Call call, Status status, std::uint64_t nth = 1, Times times = Times::kOnce);
/// The call does nothing and throws.
Fault fail_with(Call call, std::exception_ptr exception, std::uint64_t nth = 1,
                Times times = Times::kOnce);
template <class Exception>
Fault throw_from(Call call, const Exception& exception, std::uint64_t nth = 1,
                 Times times = Times::kOnce) {
  return fail_with(call, std::make_exception_ptr(exception), nth, times);
}
/// read() or write() transfers at most @p bytes and then returns @p status: success for a short
/// transfer, or the failure that interrupted it.
Fault cut_transfer(Call call, std::size_t bytes, Status status = {}, std::uint64_t nth = 1,
                   Times times = Times::kOnce);
/// Runs @p hook before the call, also if the call is to fail.
Fault before(Call call, std::function<void()> hook, std::uint64_t nth = 1,
             Times times = Times::kOnce);
/// Runs @p hook after the call, also if it failed, but not after a planned exception.
Fault after(Call call, std::function<void()> hook, std::uint64_t nth = 1,
            Times times = Times::kOnce);
/// Ends the process with exit code kEnded, like a kill: without destructors and without flushing
/// buffers.
Fault end_process_before(Call call, std::uint64_t nth = 1);
Fault end_process_after(Call call, std::uint64_t nth = 1);
inline constexpr int kEnded = 137;
/// now() returns @p seconds.
Fault set_now(std::int64_t seconds);
/// is_lead_byte() is true only for the bytes of @p bytes.
Fault set_lead_bytes(std::string bytes);
/// nt_family() returns @p answer.
Fault set_nt_family(bool answer);

/// How often a function was called since the last reset(). Call::any: all functions; Call::system:
/// those that ask the system.
std::uint64_t calls(Call call);
/// Sets the counters to 0. Does not change the rules.
void reset();

/// Starts a new record of the calls that ask the system.
void begin_sequence();
/// Ends the record. @return the calls in order; a rule for Call::system numbers them in the same
/// way.
std::vector<Call> end_sequence();

/// A call that the system has carried out. Members that do not apply are empty.
struct Made {
  Call call = Call::any;
  Handle handle = kNoHandle;
  const Path* path = nullptr;
  const Path* to = nullptr;
  std::string_view bytes = {};               ///< that were written
  std::int64_t number = 0;                   ///< of bytes read; the distance of a seek
  std::int16_t method = 0;                   ///< of a seek
  std::optional<std::uint64_t> offset = {};  ///< of write_at()
};

/// Receives the successful calls that open, move in, change or flush files and folders, and what a
/// failed write has written. It is called on the threads of the calls, one at a time. Only one can
/// exist.
class [[nodiscard]] Watch {
 public:
  explicit Watch(std::function<void(const Made&)> watcher);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

/// A call that is about to ask the system. Members that do not apply are empty.
struct Arriving {
  Call call = Call::any;
  Handle handle = kNoHandle;
  const Path* path = nullptr;
  const Path* to = nullptr;
  Access access = Access::kReadExisting;  ///< of an open
  LockRequest* request = nullptr;         ///< of a lock; a conductor may change it
  const Handle* opened = nullptr;         ///< set by an open after it was made
  Listing* entries = nullptr;             ///< set by a listing after it was made
};

/// Sorts a listing, for callers that need a fixed order.
void sort_by_name(Listing& entries);

/// Decides when the calls of several threads are made.
class Conductor {
 public:
  virtual ~Conductor() = default;
  /// Makes the call, at once or after calls of other threads, or answers in place of the system.
  /// Runs on the thread of the call, outside of every lock.
  virtual Status conduct(const Arriving& arriving, const std::function<Status()>& make) = 0;
};

/// Sends every call that reaches a file or folder through the conductor during its lifetime. Only
/// one can exist. Required: no call is under way at its begin and end.
class [[nodiscard]] Conducted {
 public:
  explicit Conducted(Conductor& conductor);
  ~Conducted();
  Conducted(const Conducted&) = delete;
  Conducted& operator=(const Conducted&) = delete;
};

}  // namespace faults

}  // namespace os
