#pragma once

#include <string>
#include <vector>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/target.h"

/// @file
/// What the commands that look at one document have in common: versions, which, cat, parts.
namespace stgctl {

struct EntryOptions {
  std::string name;
  std::string timestamp;
  bool no_lock = false;
};

/// Whether the name may be the path of a file as well.
enum class Paths { kTaken, kRefused };

/// Declares the name, --timestamp and --no-lock. @param what the name's description.
void declare_entry(Arguments& app, EntryOptions& options, const char* what);
/// Takes the name apart where it is one as lines print it.
EntryOptions taken_apart(Context& context, const EntryOptions& options, Paths paths);

/// All versions of the name that the options and --area and --owner leave, in order. Folders that
/// could not be read are warned of.
std::vector<FoundEntry> versions_of(Context& context, const EntryOptions& options,
                                    admin::EntryFailures& failures);

}  // namespace stgctl
