#include "client/stgctl/look.h"

#include <algorithm>
#include <array>

#include "client/stgctl/arguments.h"
#include "client/stgctl/text.h"

namespace stgctl {

void add_no_lock(Arguments& app, bool& no_lock) {
  app.add_flag("--no-lock", no_lock,
               "Read indexes without a lock: never waits, and may see a half-written one");
}

admin::sys::Locking locking_for(Context& context, bool no_lock) {
  admin::sys::Locking locking = context.locking();
  if (no_lock) locking.mode = admin::sys::Locking::Mode::kNone;
  return locking;
}

void take_key_file(Context& context, std::string& name) {
  const std::string typed = name;
  std::string timestamp;
  context.take_apart(name, timestamp);
  if (!timestamp.empty() && timestamp != "0")
    throw Failure(Exit::kUsage, shown(typed) + ": key files are read at timestamp 0 alone");
}

admin::Area document_area(Context& context, admin::Area fallback) {
  const admin::Area area = context.scope().area.value_or(fallback);
  if (admin::expects_index(area)) return area;
  throw Failure(Exit::kUsage,
                formatted("the library keeps no documents in the area {}; say --area docs, user "
                          "or mail",
                          admin::name_of(area)));
}

std::string owner_or_none(Context& context) { return context.scope().owner.value_or(""); }

admin::FailureSink warn_of_failures(Context& context) {
  return [&context](const std::string& path, const std::string& why) {
    context.out().warning(formatted("{}: {}", shown(path), shown(why)));
  };
}

Exit exit_of(const admin::EntryFailures& failures, bool any) {
  if (failures.was_stopped || Context::interrupted()) return Exit::kInterrupted;
  if (failures.lock_missed) return Exit::kLockTimeout;
  if (failures.folders != 0) return any ? Exit::kPartlyDone : Exit::kFailed;
  return any ? Exit::kDone : Exit::kNothingMatched;
}

void append_name(std::string& line, std::string_view name) {
  const bool plain =
      std::all_of(name.begin(), name.end(), [](char c) { return c >= 0x20 && c < 0x7F; });
  if (plain) {
    line.append(name);
  } else {
    line.append(shown(name));
  }
}

void append_subject(std::string& line, const admin::EntryView& entry) {
  line.append(admin::name_of(entry.folder->area)).push_back('/');
  if (!entry.folder->owner.empty()) {
    append_name(line, entry.folder->owner);
    line.push_back('/');
  }
  append_name(line, entry.logical);
  line.push_back('@');
  append_formatted(line, "{}", entry.timestamp);
}

Json fields_of(const admin::EntryView& entry) {
  Json fields;
  fields["area"] = admin::name_of(entry.folder->area);
  put_name(fields, "owner", entry.folder->owner);
  put_name(fields, "name", entry.logical);
  fields["timestamp"] = entry.timestamp;
  fields["state"] = admin::name_of(entry.state);
  put_name(fields, "physical", entry.stored);
  put_name(fields, "file", entry.file);
  put_name(fields, "folder", entry.folder->path);
  return fields;
}

void put_info(Json& object, const admin::sys::Info& info) {
  object["bytes"] = info.size;
  object["modified"] = info.modify_time;
}

std::string_view name_of(admin::sys::Kind kind) {
  constexpr std::array<std::string_view, 5> kNames = {"missing", "file", "folder", "link", "other"};
  return kNames[static_cast<std::size_t>(kind)];
}

std::string_view name_of(admin::sys::Knowledge known) {
  constexpr std::array<std::string_view, 3> kNames = {"complete", "partial", "none"};
  return kNames[static_cast<std::size_t>(known)];
}

}  // namespace stgctl
