// complete: what the completion scripts ask for while a command line is typed.

#include <memory>
#include <set>
#include <string_view>

#include "client/stgctl/command.h"
#include "client/stgctl/look.h"
#include "client/stgctl/text.h"

namespace stgctl {

namespace {

namespace sys = admin::sys;

struct Options {
  std::string what;
  std::string begin;
};

/// Nobody reads more on a screen.
constexpr std::size_t kMost = 2000;

/// Whoever types waits for no lock, and a half-written index costs some proposals at most.
sys::Locking at_once() {
  sys::Locking locking;
  locking.mode = sys::Locking::Mode::kNone;
  return locking;
}

/// What cannot be typed is not proposed.
void propose(std::set<std::string>& all, const Options& options, std::string_view text) {
  if (text.starts_with(options.begin) && shown(text) == text) all.emplace(text);
}

std::set<std::string> owners(Context& context, const Options& options) {
  std::set<std::string> found;
  if (context.tree().layout == admin::Layout::kFlat) return found;
  const admin::Scope scope = context.scope();
  for (const admin::Area area : admin::kAreas) {
    if (area == admin::Area::kSemlets || scope.area.value_or(area) != area) continue;
    sys::Folder folder;
    if (!folder.open(context.tree().folder_of(area)).ok()) continue;
    sys::Entry entry;
    while (folder.next(entry)) {
      if (entry.kind == sys::Kind::kFolder) propose(found, options, entry.name);
    }
  }
  return found;
}

/// Where versions that begin so can be: "docs/anna/sa" is about one owner's documents.
admin::Scope scope_of(Context& context, const std::string& begin) {
  admin::Scope scope = context.scope();
  const std::size_t slash = begin.find('/');
  if (slash == std::string::npos) return scope;
  scope.area = admin::area_named(begin.substr(0, slash));
  const std::size_t next = begin.find('/', slash + 1);
  const bool has_owner = context.tree().layout == admin::Layout::kOwner;
  if (has_owner && next != std::string::npos)
    scope.owner = begin.substr(slash + 1, next - slash - 1);
  return scope;
}

/// Versions as every line prints them, and names by themselves where some letters are there.
std::set<std::string> names(Context& context, const Options& options) {
  std::set<std::string> found;
  admin::EntryQuery query;
  query.scope = scope_of(context, options.begin);
  query.locking = at_once();
  query.state = admin::EntryState::kIndexed;
  query.stop = &Context::interrupt_flag();
  std::string version;
  static_cast<void>(admin::for_each_entry(
      context.tree(), query,
      [&](const admin::EntryView& entry) {
        version.clear();
        append_subject(version, entry);
        propose(found, options, version);
        if (!options.begin.empty()) propose(found, options, entry.logical);
        return found.size() < kMost;
      },
      [](const std::string&, const std::string&) {}));
  return found;
}

Exit run(Context& context, const Options& options) {
  const std::set<std::string> all =
      options.what == "owners" ? owners(context, options) : names(context, options);
  for (const std::string& each : all) context.out().write(each + "\n");
  return all.empty() ? Exit::kNothingMatched : Exit::kDone;
}

}  // namespace

void add_complete_command(Commands& commands) {
  const auto declare = [](Arguments& app) -> Run {
    const auto options = std::make_shared<Options>();
    app.add_option("what", options->what, "What is being typed")
        .type_name("WHAT")
        .required()
        .one_of({"owners", "names"});
    app.add_option("begin", options->begin, "As far as it is typed").type_name("TEXT");
    return [options](Context& context) { return run(context, *options); };
  };
  commands.push_back({"complete", Group::kHidden, Effect::kLooks,
                      "List owners, or names, that begin so", declare});
}

}  // namespace stgctl
