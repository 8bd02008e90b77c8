// The functions of the OS seam, as code under test calls them: each follows the plan of the faults.

#include <algorithm>
#include <cstdint>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/os/os.h"
#include "tests/support/os_faults_plan.h"

namespace os::faults {

namespace {

/// What last_error() returns after a planned failure, until the thread makes another call.
thread_local std::optional<std::int32_t> t_planned_error;

/// The rules that apply to one call.
class Verdict {
 public:
  explicit Verdict(Call call) {
    const std::scoped_lock guard(plan().mutex);
    ++plan().counters[index_of(call)];
    if (plan().sequence && asks_the_system(call)) plan().sequence->push_back(call);
    for (const std::shared_ptr<Rule>& rule : plan().rules) {
      if (!concerns(rule->call, call)) continue;
      ++rule->seen;
      const bool applies =
          rule->seen == rule->nth || (rule->times == Times::kLasting && rule->seen > rule->nth);
      if (!applies) continue;
      ++rule->hits;
      m_rules.push_back(rule);
      if (m_decider == nullptr && !rule->before && !rule->after) m_decider = rule.get();
    }
  }

  void run_before() const {
    for (const auto& rule : m_rules) {
      if (rule->before) rule->before();
    }
  }
  void run_after() const {
    for (const auto& rule : m_rules) {
      if (rule->after) rule->after();
    }
  }
  /// Null: the call is made as usual.
  const Rule* decider() const { return m_decider; }

 private:
  std::vector<std::shared_ptr<Rule>> m_rules;
  const Rule* m_decider = nullptr;
};

/// Passes a successful call to the watch.
Status watched(Status status, const Made& made) {
  if (!status.ok() || !plan().is_watched) return status;
  const std::scoped_lock guard(plan().mutex);
  if (plan().watcher) plan().watcher(made);
  return status;
}

/// Makes one call under the rules. @p decided(rule) answers in place of the system. @p
/// in_any_case(rule) runs before that and before a planned exception.
template <class Decided, class Forward, class InAnyCase>
auto call_under_plan(Call call, Decided decided, Forward forward, InAnyCase in_any_case) {
  const Verdict verdict(call);
  verdict.run_before();
  const Rule* const rule = verdict.decider();
  if (rule != nullptr) in_any_case(*rule);
  if (rule != nullptr && rule->exception) std::rethrow_exception(rule->exception);
  auto result = rule != nullptr ? decided(*rule) : forward();
  verdict.run_after();
  return result;
}

template <class Decided, class Forward>
auto call_under_plan(Call call, Decided decided, Forward forward) {
  return call_under_plan(call, decided, forward, [](const Rule&) {});
}

Status planned(const Rule& rule) {
  const Status status = rule.status.value_or(Status());
  if (!status.ok()) t_planned_error = status.code();
  return status;
}

/// Makes the call when the conductor allows it.
template <class Make>
Status conducted(const Arriving& arriving, const Make& make) {
  Conductor* const conductor = plan().conductor;
  if (conductor == nullptr) return make();
  return conductor->conduct(arriving, [&]() -> Status { return make(); });
}

/// A function that only returns a status.
template <class Forward>
Status status_call(Call call, Forward forward) {
  return call_under_plan(call, planned, [&] {
    t_planned_error.reset();
    return forward();
  });
}

/// The same for a function that reaches a file or folder.
template <class Forward>
Status status_call(const Arriving& arriving, Forward forward) {
  return status_call(arriving.call, [&] { return conducted(arriving, forward); });
}

/// The same for read() and write(), which may be done in part. @p forward takes the count.
template <class Forward>
Status transfer_call(Call call, std::size_t count, std::size_t& done, Forward forward) {
  const auto part = [&](const Rule& rule) {
    done = 0;
    if (rule.most_bytes) {
      const Status made = forward(std::min(count, *rule.most_bytes));
      if (!made.ok()) return made;
    }
    return planned(rule);
  };
  return call_under_plan(call, part, [&] {
    t_planned_error.reset();
    return forward(count);
  });
}

}  // namespace

}  // namespace os::faults

namespace os {

using faults::Call;
using faults::call_under_plan;
using faults::conducted;
using faults::Rule;
using faults::status_call;
using faults::t_planned_error;
using faults::transfer_call;
using faults::watched;

Status open(Path path, Access access, Handle& handle) {
  handle = kNoHandle;
  return status_call({.call = Call::open, .path = &path, .access = access, .opened = &handle}, [&] {
    const Status status = sys::open(path, access, handle);
    return watched(status, {.call = Call::open, .handle = handle, .path = &path});
  });
}

Status close(Handle handle) {
  return call_under_plan(
      Call::close, faults::planned,
      [&] {
        t_planned_error.reset();
        return conducted({.call = Call::close, .handle = handle}, [&] {
          return watched(sys::close(handle), {.call = Call::close, .handle = handle});
        });
      },
      [&](const Rule& rule) {
        if (rule.call == Call::system) static_cast<void>(sys::close(handle));
      });
}

Status read(Handle handle, void* buffer, std::size_t count, std::size_t& done) {
  done = 0;
  return transfer_call(Call::read, count, done, [&](std::size_t length) {
    const Status status = conducted({.call = Call::read, .handle = handle},
                                    [&] { return sys::read(handle, buffer, length, done); });
    return watched(
        status, {.call = Call::read, .handle = handle, .number = static_cast<std::int64_t>(done)});
  });
}

Status write(Handle handle, const void* data, std::size_t count, std::size_t& done) {
  done = 0;
  return transfer_call(Call::write, count, done, [&](std::size_t length) {
    const Status status = conducted({.call = Call::write, .handle = handle},
                                    [&] { return sys::write(handle, data, length, done); });
    static_cast<void>(watched(
        {},
        {.call = Call::write, .handle = handle, .bytes = {static_cast<const char*>(data), done}}));
    return status;
  });
}

Status write_at(Handle handle, std::uint64_t offset, const void* data, std::size_t count,
                std::size_t& done) {
  done = 0;
  return transfer_call(Call::write, count, done, [&](std::size_t length) {
    const Status status = conducted({.call = Call::write, .handle = handle}, [&] {
      return sys::write_at(handle, offset, data, length, done);
    });
    static_cast<void>(watched({}, {.call = Call::write,
                                   .handle = handle,
                                   .bytes = {static_cast<const char*>(data), done},
                                   .offset = offset}));
    return status;
  });
}

Status seek(Handle handle, std::int32_t distance, std::int16_t method) {
  return status_call({.call = Call::seek, .handle = handle}, [&] {
    return watched(sys::seek(handle, distance, method),
                   {.call = Call::seek, .handle = handle, .number = distance, .method = method});
  });
}

Status set_end(Handle handle) {
  return status_call({.call = Call::set_end, .handle = handle}, [&] {
    return watched(sys::set_end(handle), {.call = Call::set_end, .handle = handle});
  });
}

Status size(Handle handle, std::uint64_t& bytes) {
  bytes = 0;
  return status_call({.call = Call::size, .handle = handle},
                     [&] { return sys::size(handle, bytes); });
}

Status reserve(Handle handle, std::uint64_t size) {
  return status_call({.call = Call::reserve, .handle = handle},
                     [&] { return sys::reserve(handle, size); });
}

Status take_time(Handle from, Handle to, CopiedTime& time) {
  time = CopiedTime::kKept;
  return status_call({.call = Call::take_time, .handle = to},
                     [&] { return sys::take_time(from, to, time); });
}

Status flush(Handle handle) {
  return status_call({.call = Call::flush, .handle = handle}, [&] {
    return watched(sys::flush(handle), {.call = Call::flush, .handle = handle});
  });
}

Status lock(Handle handle, const LockRequest& request) {
  LockRequest asked = request;
  return status_call({.call = Call::lock, .handle = handle, .request = &asked},
                     [&] { return sys::lock(handle, asked); });
}

Status unlock(Handle handle) {
  return status_call({.call = Call::unlock, .handle = handle}, [&] { return sys::unlock(handle); });
}

// ---- questions ---------------------------------------------------------------------------------

Status probe_attributes(Path path) {
  return status_call({.call = Call::probe_attributes, .path = &path},
                     [&] { return sys::probe_attributes(path); });
}

Status probe_search(Path path) {
  return status_call({.call = Call::probe_search, .path = &path},
                     [&] { return sys::probe_search(path); });
}

Status list(Path folder, Listing& entries) {
  return status_call({.call = Call::list, .path = &folder, .entries = &entries},
                     [&] { return sys::list(folder, entries); });
}

Status stat(Path path, FileStat& result, Links links) {
  return status_call({.call = Call::stat, .path = &path},
                     [&] { return sys::stat(path, result, links); });
}

Status same_file(Path one, Path other, bool& is_same) {
  return status_call({.call = Call::same_file, .path = &one, .to = &other},
                     [&] { return sys::same_file(one, other, is_same); });
}

Status open_folder(Path path, Handle& folder) {
  folder = kNoHandle;
  return status_call({.call = Call::open_folder, .path = &path, .opened = &folder},
                     [&] { return sys::open_folder(path, folder); });
}

// ---- changes -----------------------------------------------------------------------------------

Status make_writable(Path path) {
  return status_call({.call = Call::make_writable, .path = &path},
                     [&] { return sys::make_writable(path); });
}

Status create_directory(Path path) {
  return status_call({.call = Call::create_directory, .path = &path}, [&] {
    return watched(sys::create_directory(path), {.call = Call::create_directory, .path = &path});
  });
}

Status remove_directory(Path path) {
  return status_call({.call = Call::remove_directory, .path = &path}, [&] {
    return watched(sys::remove_directory(path), {.call = Call::remove_directory, .path = &path});
  });
}

Status remove_file(Path path) {
  return status_call({.call = Call::remove_file, .path = &path}, [&] {
    return watched(sys::remove_file(path), {.call = Call::remove_file, .path = &path});
  });
}

Status remove_file(Path path, const FileStat& found) {
  return status_call({.call = Call::remove_file, .path = &path}, [&] {
    return watched(sys::remove_file(path, found), {.call = Call::remove_file, .path = &path});
  });
}

Status rename(Path from, Path to) {
  return status_call({.call = Call::rename, .path = &from, .to = &to}, [&] {
    return watched(sys::rename(from, to), {.call = Call::rename, .path = &from, .to = &to});
  });
}

Status copy(Path from, Path to, IfExists if_exists, CopiedTime* time, Flushed flushed) {
  const Status copied = status_call({.call = Call::copy, .path = &from, .to = &to}, [&] {
    return watched(sys::copy(from, to, if_exists, time, flushed),
                   {.call = Call::copy, .path = &from, .to = &to});
  });
  if (!copied.ok() || flushed == Flushed::kNo) return copied;
  // The flush is the last step of the copy. Rules apply to it as to a call of its own.
  return status_call({.call = Call::flush_file, .path = &to},
                     [&] { return watched(Status(), {.call = Call::flush_file, .path = &to}); });
}

Status flush_file(Path path) {
  return status_call({.call = Call::flush_file, .path = &path}, [&] {
    return watched(sys::flush_file(path), {.call = Call::flush_file, .path = &path});
  });
}

// ---- names -------------------------------------------------------------------------------------

Status short_path(const ucs2string& path, ucs2string& result) {
  return status_call(Call::short_path, [&] { return sys::short_path(path, result); });
}

Status current_directory(ucs2string& result) {
  return status_call(Call::current_directory, [&] { return sys::current_directory(result); });
}

Status full_path(const ucs2string& path, ucs2string& result) {
  return status_call(Call::full_path, [&] { return sys::full_path(path, result); });
}

Status program_folder(ucs2string& result) {
  return status_call(Call::program_folder, [&] { return sys::program_folder(result); });
}

Status temporary_folder(ucs2string& result) {
  return status_call(Call::temporary_folder, [&] { return sys::temporary_folder(result); });
}

Status environment(const std::string& variable, ucs2string& value) {
  return status_call(Call::environment, [&] { return sys::environment(variable, value); });
}

std::string to_narrow(const ucs2string& text) {
  return call_under_plan(
      Call::to_narrow, [](const Rule&) { return std::string(); },
      [&] { return sys::to_narrow(text); });
}

bool narrow_of(const std::string& utf8, std::string& narrow) {
  return call_under_plan(
      Call::narrow_of, [](const Rule&) { return false; },
      [&] { return sys::narrow_of(utf8, narrow); });
}

std::string utf8_of(const std::string& narrow) {
  return call_under_plan(
      Call::utf8_of, [](const Rule&) { return std::string(); },
      [&] { return sys::utf8_of(narrow); });
}

std::string native_form(const std::string& narrow) {
  return call_under_plan(
      Call::native_form, [](const Rule&) { return std::string(); },
      [&] { return sys::native_form(narrow); });
}

bool is_lead_byte(unsigned char byte) {
  return call_under_plan(
      Call::is_lead_byte,
      [&](const Rule& rule) {
        const auto& bytes = rule.lead_bytes;
        return bytes && bytes->find(static_cast<char>(byte)) != std::string::npos;
      },
      [&] { return sys::is_lead_byte(byte); });
}

// ---- the rest ----------------------------------------------------------------------------------

std::int32_t last_error() {
  // This comes first: the work below could change the system's value.
  const std::int32_t code = t_planned_error.value_or(sys::last_error());
  return call_under_plan(
      Call::last_error, [](const Rule& rule) { return rule.status.value_or(Status()).code(); },
      [&] { return code; });
}

std::string error_text(std::int32_t code) {
  return call_under_plan(
      Call::error_text, [](const Rule&) { return std::string(); },
      [&] { return sys::error_text(code); });
}

ucs2string error_text_wide(std::int32_t code) {
  return call_under_plan(
      Call::error_text_wide, [](const Rule&) { return ucs2string(); },
      [&] { return sys::error_text_wide(code); });
}

std::int64_t now() {
  return call_under_plan(
      Call::now, [](const Rule& rule) { return rule.now.value_or(0); }, [] { return sys::now(); });
}

bool nt_family() {
  return call_under_plan(
      Call::nt_family, [](const Rule& rule) { return rule.nt_family.value_or(false); },
      [] { return sys::nt_family(); });
}

bool locks_belong_to_handles(Path folder) {
  return call_under_plan(
      Call::locks_belong_to_handles, [](const Rule&) { return false; },
      [&] { return sys::locks_belong_to_handles(folder); });
}

}  // namespace os
