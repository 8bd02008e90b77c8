#pragma once

#include "client/admin/check.h"
#include "client/admin/explain.h"
#include "client/admin/stats.h"
#include "client/stgctl/command.h"
#include "client/stgctl/target.h"

/// @file
/// Common parts of the commands that only read.
namespace stgctl {

/// Like Context::take_apart(), for a key file, which has one version.
/// @throws Failure kUsage for another timestamp than 0.
void take_key_file(Context& context, std::string& name);

/// The area that --area names. @throws Failure kUsage for an area without documents.
admin::Area document_area(Context& context, admin::Area fallback);
/// The owner folder of --owner in the tree; without --owner that of the empty name.
std::string owner_or_none(Context& context);

/// Warns about a folder that could not be read.
admin::FailureSink warn_of_failures(Context& context);
/// The exit code of a listing. @param any whether it printed an entry. @param wanted as
/// none_matches(), which it calls without entries and failures.
Exit exit_of(Context& context, const admin::EntryFailures& failures, bool any,
             const std::string& wanted = {});

/// Appends a name in printable form. Fast for plain ASCII, the usual case.
void append_name(std::string& line, std::string_view name);
/// Appends "docs/anna/sales.kdf@42".
void append_subject(std::string& line, const admin::EntryView& entry);
std::string subject_text(const admin::EntryView& entry);
/// The fields "area", "owner", "name", "timestamp", "state", "physical", "file" and "folder".
Json fields_of(const admin::EntryView& entry);
/// The fields "bytes" and "modified".
void put_info(Json& object, const sys::Info& info);

/// The path of what a finding is about.
std::string place_of(const admin::Finding& finding);
/// The colour of "error", "warning" or "info".
Style style_of(std::string_view severity);
/// Prints a finding as text. @param where printable. @param detail any bytes; can be empty.
void print_finding(Output& out, std::string_view severity, std::string_view code,
                   std::string_view where, std::string_view detail);

/// "complete", "partial", "none".
std::string_view name_of(sys::Knowledge known);

// The help of two options of ls and find.
inline constexpr const char* kPatternHelp = "Logical names: \"*\" and \"?\" match";
inline constexpr const char* kLongHelp = "Also show sizes and times";

/// What a listing asks for. An empty pattern or timestamp matches all.
admin::EntryQuery query_of(Context& context, const std::string& pattern,
                           const std::string& timestamp);
/// Lists the matching entries one by one. @param schema "stgctl.ls/1".
Exit list_entries(Context& context, const admin::EntryQuery& query, const char* schema);

// ---- for the commands that look at one document: versions, which, cat, parts -------------------

struct EntryOptions : Arguments {
  const char* what = "The logical name";
  TextOption name{*this, "entry", "ENTRY", what, kRequired};
  TextOption timestamp{*this, "--timestamp", kStamp, "Only the version of this timestamp"};
  NoLock no_lock{*this};

  /// Splits the name if it has the printed form of a version.
  void take_apart(Context& context) { context.take_apart(name, timestamp); }
};

/// All versions of the name within --area, --owner and the options, sorted by area, owner, name and
/// timestamp. Warns about folders that could not be read.
std::vector<FoundEntry> versions_of(Context& context, const EntryOptions& options,
                                    admin::EntryFailures& failures);

// ---- what a clean would free -------------------------------------------------------------------

/// The curves of the versions in the tree.
/// @throws Failure kLockTimeout, kFailed or kInterrupted if not every folder could be read.
admin::Forecast forecast_of(Context& context, const admin::Scope& scope, bool by_access,
                            std::int64_t now);

/// "to reach 5.0 GiB the limit is 37 days: ..."
std::string sentence_for(std::uint64_t target, const admin::LimitFor& limit);

}  // namespace stgctl
