#pragma once

// Included by the os.h of the tests (layer/platform/os/os.h). It stands between the library and the
// seam: os::open() counts, consults the plan of the test and goes on to os::sys::open().

#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
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
Status seek(Handle handle, std::int32_t distance, std::int16_t method);
Status set_end(Handle handle);
Status size(Handle handle, std::uint64_t& bytes);
Status reserve(Handle handle, std::uint64_t size);
Status flush(Handle handle);
Status lock(Handle handle, const LockRequest& request);
Status unlock(Handle handle);

Status probe_attributes(Path path);
Status probe_search(Path path);
Status list(Path folder, Listing& entries);
Status stat(Path path, FileStat& result, Links links = Links::kFollow);
Status open_folder(Path path, Handle& folder);

Status make_writable(Path path);
Status create_directory(Path path);
Status remove_directory(Path path);
Status remove_file(Path path);
Status rename(Path from, Path to);
Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time = nullptr);
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

/// Faults planned by a test.
///
/// Each function below puts one rule into force and returns its owner; the rule ends with the
/// owner's scope. "The n-th call" counts from 1 and from that moment on, each rule for itself.
/// Several rules may concern one call: every hook runs, and of the others the oldest that applies
/// decides.
///
///   const auto fault = faults::fail(faults::Call::copy, {5, os::Failure::kOther});
///
/// May be used while other threads are inside the seam. A hook runs on the thread of the call and
/// outside of every lock, so it may wait for other threads, and call the seam itself.
namespace faults {

enum class Call : std::uint8_t {
  open,
  close,
  read,
  write,
  seek,
  set_end,
  size,
  reserve,
  flush,
  lock,
  unlock,
  probe_attributes,
  probe_search,
  list,
  stat,
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
  any,     ///< in a rule: whichever function is called
  system,  ///< in a rule: whichever asks the system for something, see asks_the_system()
};

/// The name of the function, for messages.
const char* name(Call call);
/// Whether a function returns a status: the others cannot fail, and leave no trace outside.
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

  /// How often its turn came.
  std::uint64_t hits() const;

 private:
  std::shared_ptr<Rule> m_rule;
};

/// The call does nothing and returns @p status; last_error() of that thread agrees with it.
/// Functions that return no status answer as poorly as they can: false, the empty text, 0;
/// last_error() itself answers the code. A close that a rule for Call::system concerns has closed
/// by then, planned exceptions included: nobody could do it any more.
Fault fail(Call call, Status status, std::uint64_t nth = 1, Times times = Times::kOnce);
/// The call does nothing and throws.
Fault fail_with(Call call, std::exception_ptr exception, std::uint64_t nth = 1,
                Times times = Times::kOnce);
template <class Exception>
Fault throw_from(Call call, const Exception& exception, std::uint64_t nth = 1,
                 Times times = Times::kOnce) {
  return fail_with(call, std::make_exception_ptr(exception), nth, times);
}
/// read() or write() transfers at most @p bytes of what is asked, and then reports @p status:
/// success for a short transfer, or what broke it off.
Fault cut_transfer(Call call, std::size_t bytes, Status status = {}, std::uint64_t nth = 1,
                   Times times = Times::kOnce);
/// Runs @p hook before the call is made (and before it fails, if it is to fail).
Fault before(Call call, std::function<void()> hook, std::uint64_t nth = 1,
             Times times = Times::kOnce);
/// Runs @p hook after the call was made or has failed; not after a planned exception.
Fault after(Call call, std::function<void()> hook, std::uint64_t nth = 1,
            Times times = Times::kOnce);
/// Ends the process with kEnded, as a kill does: nothing is destroyed, flushed or given back but by
/// the system.
Fault end_process_before(Call call, std::uint64_t nth = 1);
Fault end_process_after(Call call, std::uint64_t nth = 1);
inline constexpr int kEnded = 137;
/// now() answers @p seconds.
Fault set_now(std::int64_t seconds);
/// is_lead_byte() is true for the bytes of @p bytes alone.
Fault set_lead_bytes(std::string bytes);
/// nt_family() answers @p answer.
Fault set_nt_family(bool answer);

/// How often a function was called since the last reset(); for Call::any all of them together, for
/// Call::system those that ask the system.
std::uint64_t calls(Call call);
/// Sets the counters to 0. Rules in force stay as they are.
void reset();

/// From here on the calls that ask the system are written down, from the first one again.
void begin_sequence();
/// Those calls in their order, and the end of that: the n-th that a rule for Call::system would
/// have counted is the n-th here.
std::vector<Call> end_sequence();

/// A call that the system has carried out, for whoever watches. What does not apply is empty.
struct Made {
  Call call = Call::any;
  Handle handle = kNoHandle;
  const Path* path = nullptr;
  const Path* to = nullptr;
  std::string_view bytes = {};  ///< that were written
  std::int64_t number = 0;      ///< of bytes read; the distance of a seek
  std::int16_t method = 0;      ///< of a seek
};

/// Is told of the successful calls that open, move in, change or flush files and folders (and of
/// what an unsuccessful write has written), as long as it lives; on their threads, one at a time.
/// There is one at most.
class [[nodiscard]] Watch {
 public:
  explicit Watch(std::function<void(const Made&)> watcher);
  ~Watch();
  Watch(const Watch&) = delete;
  Watch& operator=(const Watch&) = delete;
};

/// A call that asks the system for something, on its way there. What does not apply is empty.
struct Arriving {
  Call call = Call::any;
  Handle handle = kNoHandle;
  const Path* path = nullptr;
  const Path* to = nullptr;
  Access access = Access::kReadExisting;  ///< of an open
  LockRequest* request = nullptr;         ///< of a lock, and what is asked of the system
  const Handle* opened = nullptr;         ///< by an open, when it is made
  Listing* entries = nullptr;             ///< of a listing, when it is made
};

/// For whoever needs the same order each time.
void sort_by_name(Listing& entries);

/// Decides when the calls of several threads are made.
class Conductor {
 public:
  virtual ~Conductor() = default;
  /// Makes the call, at once or when others have gone before, or answers in the system's place. On
  /// the thread of the call, outside of every lock.
  virtual Status conduct(const Arriving& arriving, const std::function<Status()>& make) = 0;
};

/// Every call that reaches a file or folder passes through the conductor as long as this lives.
/// There is one at most, and no call may be under way when it begins and ends.
class [[nodiscard]] Conducted {
 public:
  explicit Conducted(Conductor& conductor);
  ~Conducted();
  Conducted(const Conducted&) = delete;
  Conducted& operator=(const Conducted&) = delete;
};

}  // namespace faults

}  // namespace os
