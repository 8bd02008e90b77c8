#include <memory>

#include "client/stgctl/look.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;

FoundEntry only_one(const std::vector<FoundEntry>& all, const EntryOptions& options) {
  if (all.empty()) {
    throw Failure(Exit::kNothingMatched, "nothing in the tree is called " + shown(options.name));
  }
  if (all.size() > 1) {
    throw Failure(Exit::kUsage,
                  formatted("{} versions match; name one by --area, --owner and --timestamp "
                            "('stgctl versions' lists them)",
                            all.size()));
  }
  return all.front();
}

Exit run_cat(Context& context, const EntryOptions& options) {
  if (context.out().json())
    throw Failure(Exit::kUsage, "cat has no JSON form: it writes the bytes");
  admin::EntryFailures failures;
  const std::vector<FoundEntry> all = versions_of(context, options, failures);
  if (all.empty() && failures.lock_missed) return Exit::kLockTimeout;
  const std::string path = only_one(all, options).path();
  const os::Status read =
      sys::read_pieces(path, locking_for(context, options.no_lock), [&](std::string_view piece) {
        context.out().write(piece);
        return !Context::interrupted();
      });
  if (read.failure() == os::Failure::kLocked) {
    throw Failure(Exit::kLockTimeout,
                  shown(path) + " is held locked; wait, or read it with --no-lock");
  }
  if (!read.ok()) throw Failure(Exit::kFailed, shown(path) + ": " + sys::text_of(read));
  return Context::interrupted() ? Exit::kInterrupted : Exit::kDone;
}

}  // namespace

void add_cat_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto options = std::make_shared<EntryOptions>();
    declare_entry(app, *options, "The logical name");
    return [options](Context& context) {
      return run_cat(context, taken_apart(context, *options, Paths::kRefused));
    };
  };
  commands.push_back({"cat", Group::kLook, Effect::kLooks, "Write a document to the output",
                      declare,
                      "Under a shared lock, so that no half-written document is seen. The name "
                      "has\nto lead to one version."});
}

}  // namespace stgctl
