#pragma once

#include "client/admin/entries.h"
#include "client/stgctl/context.h"
#include "client/stgctl/exit_codes.h"

namespace stgctl {

/// What a listing is asked for on the command line.
struct ListingOptions {
  std::string pattern;
  std::string timestamp;
  bool with_sizes = false;
  bool with_missing = false;
  bool no_lock = false;
};

admin::EntryQuery query_of(Context& context, const ListingOptions& options);
/// Lists the entries that match, one by one as they are met. @param schema "stgctl.ls/1".
Exit list_entries(Context& context, const admin::EntryQuery& query, const char* schema);

}  // namespace stgctl
