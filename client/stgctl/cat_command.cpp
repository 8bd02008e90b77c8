#include "client/stgctl/look.h"
#include "client/stgctl/new_file.h"

namespace stgctl {

namespace {

FoundEntry only_one(Context& context, const std::vector<FoundEntry>& all,
                    const EntryOptions& options) {
  if (all.empty()) none_matches(context, options.name);
  if (all.size() > 1)
    refuse(
        "{} versions match; name one by --area, --owner and --timestamp "
        "('stgctl versions' lists them)",
        all.size());
  return all.front();
}

Exit run_cat(Context& context, EntryOptions& options) {
  options.take_apart(context);
  if (context.out().json()) misused("cat has no JSON output; omit --json");
  admin::EntryFailures failures;
  const std::vector<FoundEntry> all = versions_of(context, options, failures);
  if (all.empty() && failures.lock_missed) return Exit::kLockTimeout;
  const std::string path = only_one(context, all, options).path();
  check_read(path, write_out(context, path, context.locking()));
  return Exit::kDone;
}

}  // namespace

Commands cat_command() {
  return {{"cat", Group::kLook, Effect::kLooks, "Write a document to the standard output", run_cat,
           "Reads under a shared lock, so it never sees a half-written document. The name must\n"
           "lead to exactly one version."}};
}

}  // namespace stgctl
