#pragma once

#include <functional>
#include <span>

#include "client/stgctl/context.h"
#include "client/stgctl/text.h"

namespace stgctl {

/// A version of a document. Empty fields are omitted.
struct Subject {
  std::string area;
  std::string owner;
  std::string name;
  std::optional<std::int32_t> timestamp;
};
Subject subject_in(admin::Area area, std::string owner, std::string name = {},
                   std::optional<std::int32_t> timestamp = {});
/// Something that is only a name, for example a path.
inline Subject subject_named(std::string name) { return {"", "", std::move(name), {}}; }

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
  /// Something beside the entries was changed. The total of the changed entries omits it.
  void also_done(const char* action, const Subject& subject, std::string_view tail = {});
  /// An entry was not changed, for a reason that is not a failure.
  void skipped(const Subject& subject, const std::string& reason);
  /// An entry could not be changed.
  void failed(const Subject& subject, const std::string& reason);
  /// The same, except for a failure that ends the work: that is reported once, at the end.
  void failed(const Subject& subject, const Failure& failure) {
    if (!failure.ends_work()) failed(subject, std::string(failure.what()));
  }

  /// finish() with the total of the bytes, and with the time of the work.
  Exit finish_bytes() {
    return finish({{"bytes", m_bytes}, {"seconds", seconds()}}, format_bytes(m_bytes) + speed());
  }

  /// Adds bytes to the total. The count stays valid when the work ends early.
  void add_bytes(std::uint64_t bytes) noexcept { m_bytes += bytes; }
  std::uint64_t bytes() const noexcept { return m_bytes; }

  /// How long the guarded work took.
  double seconds() const noexcept { return m_seconds.count(); }
  /// ", 412 files/s" if the work took at least a second, otherwise empty.
  std::string speed() const;

  std::uint64_t failures() const noexcept { return m_failed; }

  /// Runs the work. A lock timeout or Ctrl-C ends the work, but not the report: it shows what was
  /// done, and finish() returns the exit code.
  /// @return whether the work came to its own end.
  bool guarded(const std::function<void()>& work);
  /// The same with a progress bar. @param what "storing". @param total the number of steps.
  bool guarded(const char* what, std::uint64_t total,
               const std::function<void(Progress& progress)>& work);
  /// Guarded work on items one by one, until Ctrl-C. @param work returns the item's name.
  template <class Item, class Work>
  bool for_each(const char* what, const std::vector<Item>& items, const Work& work) {
    return guarded(what, items.size(), [&](Progress& progress) {
      for (const Item& item : items) {
        Context::stop_if_interrupted();
        progress.advance(1, work(item));
      }
    });
  }
  /// The same batch by batch. @param name names an item. @param work gets the next items, and
  /// returns how many it has taken.
  template <class Item, class Name, class Work>
  bool in_batches(const char* what, std::span<Item> items, const Name& name, const Work& work) {
    return guarded(what, items.size(), [&](Progress& progress) {
      for (std::span<Item> rest = items; !rest.empty();) {
        Context::stop_if_interrupted();
        const std::size_t taken = work(rest);
        progress.advance(taken, std::invoke(name, rest[taken - 1]));
        rest = rest.subspan(taken);
      }
    });
  }

  /// Writes the totals. @param sums more fields of the JSON line. @param tail more text.
  /// @return kInterrupted after Ctrl-C. After a lock timeout or a failure: kPartlyDone if an entry
  /// was changed, otherwise kLockTimeout or kFailed. kNothingMatched without done or skipped
  /// entries, otherwise kDone.
  Exit finish(const Json& sums = Json::object(), std::string_view tail = {});

 private:
  void line(const char* action, const Subject& subject, Json fields, std::string_view text,
            Style style);

  Context& m_context;
  const char* m_schema;
  std::string m_verb;
  bool m_lock_missed = false;
  std::chrono::duration<double> m_seconds{};
  std::uint64_t m_bytes = 0;
  std::uint64_t m_done = 0;
  std::uint64_t m_also_done = 0;
  std::uint64_t m_skipped = 0;
  std::uint64_t m_failed = 0;
};

}  // namespace stgctl
