#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "client/admin/entries.h"
#include "client/admin/explain.h"
#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"

/// @file
/// What the commands that look have in common.
namespace stgctl {

/// Adds --no-lock to a command that reads indexes.
void add_no_lock(Arguments& app, bool& no_lock);
/// How the command reads: as Context::locking(), or without locks.
admin::sys::Locking locking_for(Context& context, bool no_lock);

/// As Context::take_apart(), for a key file, which has one version.
/// @throws Failure kUsage for another timestamp than 0.
void take_key_file(Context& context, std::string& name);

/// The area that --area names. @throws Failure kUsage for one that the library keeps no documents
/// in.
admin::Area document_area(Context& context, admin::Area fallback);
/// The tree's owner folder of --owner; the folder of the empty name when none is said.
std::string owner_or_none(Context& context);

/// Warns of a folder that could not be read.
admin::FailureSink warn_of_failures(Context& context);
/// The exit code of a listing. @param any whether it has shown anything.
Exit exit_of(const admin::EntryFailures& failures, bool any);

/// Appends a name as it may be printed. Quick for plain ASCII, which nearly all names are.
void append_name(std::string& line, std::string_view name);
/// Appends "docs/anna/sales.kdf@42".
void append_subject(std::string& line, const admin::EntryView& entry);
/// The fields "area", "owner", "name", "timestamp", "state", "physical", "file" and "folder".
Json fields_of(const admin::EntryView& entry);
/// The fields "bytes" and "modified".
void put_info(Json& object, const admin::sys::Info& info);

/// "file", "folder", ...
std::string_view name_of(admin::sys::Kind kind);
/// "complete", "partial", "none".
std::string_view name_of(admin::sys::Knowledge known);

}  // namespace stgctl
