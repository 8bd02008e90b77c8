#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"
#include "client/stgctl/output.h"

namespace stgctl {

/// A version of a document. Empty fields are omitted.
struct Subject {
  std::string area;
  std::string owner;
  std::string name;
  std::optional<long> timestamp;
};

/// "docs/anna/sales.kdf@42"
std::string shown(const Subject& subject);
/// The fields "area", "owner", "name" and "timestamp".
void put_subject(Json& object, const Subject& subject);

/// Reports what a changing command did, per entry and in total, and determines its exit code. As
/// JSON each entry is one line {"schema", "record": "entry", "action", ...}. The last line is
/// {"schema", "record": "summary", "dry_run", "done", "skipped", "failed", "interrupted", ...}.
class ChangeReport {
 public:
  /// @param schema "stgctl.rm/1". @param done the word for a changed entry: "removed".
  ChangeReport(Context& context, const char* schema, std::string done);

  /// An entry was changed; in a dry run it would be. @param fields more fields of the JSON line.
  void done(const Subject& subject, const Json& fields = Json::object(),
            std::string_view tail = {});
  /// Like done(), with another word.
  void done_as(const char* action, const Subject& subject, const Json& fields = Json::object(),
               std::string_view tail = {});
  /// An entry was not changed, for a reason that is not a failure.
  void skipped(const Subject& subject, const std::string& reason);
  /// An entry could not be changed.
  void failed(const Subject& subject, const std::string& reason);

  /// Adds bytes to the total. The count stays valid when the work ends early.
  void add_bytes(std::uint64_t bytes) noexcept { m_bytes += bytes; }
  std::uint64_t bytes() const noexcept { return m_bytes; }

  /// How long the guarded work took.
  double seconds() const noexcept { return m_seconds.count(); }
  /// ", 412 files/s" if the work took at least a second, otherwise empty.
  std::string speed() const;

  std::uint64_t failures() const noexcept { return m_failed; }
  std::uint64_t changed() const noexcept { return m_done; }

  /// Runs the work. A lock timeout or Ctrl-C ends the work, but not the report: it shows what was
  /// done, and finish() returns the exit code.
  /// @return the work's result, or an empty one.
  template <class Work>
  auto guarded(Work&& work) -> decltype(work()) {
    const auto begin = std::chrono::steady_clock::now();
    try {
      const auto result = work();
      m_seconds = std::chrono::steady_clock::now() - begin;
      return result;
    } catch (const Failure& failure) {
      m_seconds = std::chrono::steady_clock::now() - begin;
      if (failure.code() != Exit::kInterrupted && failure.code() != Exit::kLockTimeout) throw;
      end(failure);
      return decltype(work())();
    }
  }

  /// Writes the totals. @param sums more fields of the JSON line. @param tail more text.
  /// @return kInterrupted after Ctrl-C. After a lock timeout or a failure: kPartlyDone if an entry
  /// was changed, otherwise kLockTimeout or kFailed. kNothingMatched without done or skipped
  /// entries, otherwise kDone.
  Exit finish(const Json& sums = Json::object(), std::string_view tail = {});

 private:
  void end(const Failure& failure);
  void line(const char* action, const Subject& subject, Json fields, std::string_view text,
            Style style);

  Context& m_context;
  const char* m_schema;
  std::string m_verb;
  bool m_lock_missed = false;
  std::chrono::duration<double> m_seconds{};
  std::uint64_t m_bytes = 0;
  std::uint64_t m_done = 0;
  std::uint64_t m_skipped = 0;
  std::uint64_t m_failed = 0;
};

}  // namespace stgctl
